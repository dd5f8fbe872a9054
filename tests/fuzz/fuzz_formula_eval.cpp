// Fuzz target of the formula node: any bytes, as the formula of a stream over
// two bands of a small dataset with nulls, compiled and evaluated through the
// engine over every line. A formula that doesn't open is fine; a crash, a
// leak, undefined behaviour or a read that fails after a good open is not.
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "vld_alg.h"
#include "vld_dshdr.h"
#include "vln_vds.h"

namespace {

constexpr int kCells = 40, kLines = 3;

struct Place {
    std::string dir, dataset, alg;
};

/* A dataset of two 16-bit bands whose zeros are null, made once. */
const Place &place()
{
    static const Place p = [] {
        Place made;
        char templ[] = "/tmp/vln_fuzz_formula_XXXXXX";
        made.dir = mkdtemp(templ);
        made.dataset = made.dir + "/bands.vld";
        made.alg = made.dir + "/f.alg";
        dshdr *d = nullptr;
        df_raster_dshdr(&d, made.dataset.c_str(), kCells, kLines, 2, Unsigned16BitInteger);
        d->info.r.cellinfo.x_dimension = d->info.r.cellinfo.y_dimension = 1.0;
        d->info.r.has_null = 1;
        d->info.r.null_value = 0;
        if (ep_dshdr(d, made.dataset.c_str()) != 0) abort();
        ef_dshdr(d);
        std::string bytes;
        for (int l = 0; l < kLines; l++)
            for (int b = 0; b < 2; b++)
                for (int c = 0; c < kCells; c++) {
                    uint16_t v = static_cast<uint16_t>((c * 7 + l * 3 + b * 11) % 13);
                    bytes.append(reinterpret_cast<const char *>(&v), 2);
                }
        std::ofstream(made.dir + "/bands", std::ios::binary) << bytes;
        setenv("VORLAN", VORLAN_SHARE_DIR, 0);
        setenv("VLN_MACHINE_TYPE", "linux", 0);
        if (PE_initialise("fuzz_formula_eval") != 0) abort();
        return made;
    }();
    return p;
}

std::string alg_text(const std::string &formula)
{
    std::ostringstream o;
    o << "Algorithm Begin\n\tVersion = \"7.0\"\n";
    o << "\tCoordinateSpace Begin\n\t\tDatum = \"RAW\"\n\t\tProjection = \"RAW\"\n"
         "\t\tCoordinateType = RAW\n\tCoordinateSpace End\n";
    o << "\tTopLeftCorner Begin\n\t\tMetersX = 0\n\t\tMetersY = 0\n\tTopLeftCorner End\n";
    o << "\tBottomRightCorner Begin\n\t\tMetersX = " << kCells << "\n\t\tMetersY = " << kLines
      << "\n\tBottomRightCorner End\n";
    o << "\tOutputWidth = " << kCells << "\n\tOutputHeight = " << kLines << "\n";
    o << "\tCanvasWidth = " << kCells << "\n\tCanvasHeight = " << kLines << "\n";
    o << "\tOutputType = IEEE8ByteReal\n\tNullValue = 0\n";
    o << "\tSurface Begin\n\t\tName = \"Bands\"\n\t\tColorMode = DATASET\n";
    o << "\t\tStream Begin\n\t\t\tType = Pseudo\n\t\t\tDataset = \"" << place().dataset << "\"\n";
    for (int i = 1; i <= 2; i++)
        o << "\t\t\tStreamInput Begin\n\t\t\t\tStreamInputID = " << i << "\n\t\t\tStreamInput End\n";
    o << "\t\t\tFormula Begin\n\t\t\t\tFormula = \"" << formula << "\"\n";
    for (int i = 1; i <= 2; i++)
        o << "\t\t\t\tFormulaArg Begin\n\t\t\t\t\tStreamInput = " << i
          << "\n\t\t\t\t\tBandNumber = " << i << "\n\t\t\t\tFormulaArg End\n";
    o << "\t\t\t\tVariableArg Begin\n\t\t\t\t\tVariableName = \"V1\"\n\t\t\t\t\tValue = 2.5\n"
         "\t\t\t\tVariableArg End\n";
    o << "\t\t\tFormula End\n\t\tStream End\n\tSurface End\nAlgorithm End\n";
    return o.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 4000) return 0;
    // The formula stands in a quoted text of one line.
    std::string formula(reinterpret_cast<const char *>(data), size);
    for (char &c : formula)
        if (c == '"' || c == '\n' || c == '\r' || c == '\\' || c == '\0') c = ' ';
    const Place &p = place();
    std::ofstream(p.alg) << alg_text(formula);
    algorithm *alg = nullptr;
    if (eg_algorithm_with_transients(&alg, p.alg.c_str()) != 0) {
        ef_algorithm(alg);
        return 0;
    }
    char *errmsg = nullptr;
    Vds *vds = vds_open_alg_tods(alg, &errmsg, nullptr, nullptr);
    if (vds == nullptr) {
        safe_free(errmsg);
        ef_algorithm(alg);
        return 0;
    }
    std::vector<double> line(kCells);
    void *lines[1] = {line.data()};
    rlseg *runs[1] = {nullptr};
    int status, n = 0;
    while ((status = vds_read(vds, lines, runs, 0)) == 0) n++;
    // A formula that opened evaluates on every line.
    if (status != -1 || n != kLines) {
        fprintf(stderr, "read %d after %d lines: %s\n", status, n,
                vds_error_text(vds) != nullptr ? vds_error_text(vds) : "");
        abort();
    }
    vds_close(&vds);
    ef_algorithm(alg);
    return 0;
}
