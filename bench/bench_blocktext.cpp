// Reading large block-text documents: a lookup table of 65,536 entries (about a
// megabyte) through its record reader, and the same bytes read plainly into
// memory as the floor that any reader pays. The ratio of the two is what the
// reader costs per byte over the file system's own cost.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <unistd.h>

#include "vld_docs.h"

namespace {

std::string make_lut_file()
{
    char name[] = "/tmp/vln_bench_lutXXXXXX";
    int fd = mkstemp(name);
    FILE *f = fdopen(fd, "w");
    fputs("LookUpTable Begin\n\tName\t\t= \"big\"\n\tNrEntries\t= 65536\n\tLUT\t\t\t= {\n", f);
    for (int i = 0; i < 65536; i++)
        fprintf(f, "\t\t%d\t%d\t%d\t%d\n", i, i, 65535 - i, (i * 7) & 0xffff);
    fputs("\t}\nLookUpTable End\n", f);
    fclose(f);
    return name;
}

const std::string &lut_file()
{
    static const std::string path = make_lut_file();
    return path;
}

void BM_ReadLookupTable(benchmark::State &state)
{
    for (auto _ : state) {
        lut *l = nullptr;
        if (eg_lut(&l, lut_file().c_str()) != 0) state.SkipWithError("read failed");
        benchmark::DoNotOptimize(l);
        ef_lut(l);
    }
}
BENCHMARK(BM_ReadLookupTable)->Unit(benchmark::kMillisecond);

void BM_PlainReadOfTheSameFile(benchmark::State &state)
{
    std::string buffer(1 << 21, '\0');
    for (auto _ : state) {
        FILE *f = fopen(lut_file().c_str(), "rb");
        size_t n = fread(buffer.data(), 1, buffer.size(), f);
        fclose(f);
        benchmark::DoNotOptimize(n);
    }
}
BENCHMARK(BM_PlainReadOfTheSameFile)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    unlink(lut_file().c_str());
    return 0;
}
