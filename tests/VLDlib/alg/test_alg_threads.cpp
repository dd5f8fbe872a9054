// Documents read on several threads at once: algorithms with their layers,
// virtual datasets and dataset headers, each read again and again beside the
// others, must come out as one thread alone reads them. Built with
// ThreadSanitizer (scripts/build.sh tsan) this also shows any state that two
// reads share without a lock.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "alg_docs_fixture.h"
#include "dshdr_fixture.h"
#include "vld_alg.h"
#include "vld_alg_internal.h"
#include "vld_dshdr_internal.h"
#include "vln_thread.h"

namespace {

/* One document and the reader it is read with: an algorithm or a header. */
struct Document {
    std::string path;
    bool as_algorithm;
};

/* A read of a document; null when the read failed. */
void *read_document(const Document &doc)
{
    if (doc.as_algorithm) {
        algorithm *a = nullptr;
        if (eg_algorithm(&a, doc.path.c_str()) == 0) return a;
        ef_algorithm(a);
        return nullptr;
    }
    dshdr *d = nullptr;
    if (eg_dshdr(&d, doc.path.c_str()) == 0) return d;
    ef_dshdr(d);
    return nullptr;
}

void free_document(const Document &doc, void *record)
{
    if (doc.as_algorithm)
        ef_algorithm(static_cast<algorithm *>(record));
    else
        ef_dshdr(static_cast<dshdr *>(record));
}

bool same(const Document &doc, const void *a, const void *b)
{
    return doc.as_algorithm ? vld::rec_equal(a, b, vld::vld_algorithm_record())
                            : vld::rec_equal(a, b, vld::dshdr_record());
}

TEST(AlgThreads, ConcurrentReadsEqualWhatOneThreadReads)
{
    ASSERT_EQ(vln_thread_init(), 1);
    dsh::TempDir dir;
    algdocs::write_datasets(dir);
    dir.write("full.alg", dsh::slurp(algdocs::kAlgDir + "full.alg"));
    dir.write("legacy.alg", dsh::slurp(algdocs::kAlgDir + "legacy.alg"));
    dir.write("header.vld", dsh::slurp(std::string(VORLAN_TEST_DATA_DIR) + "/dshdr/full.vld"));
    const std::vector<Document> docs = {
        {dir.file("full.alg"), true},     // layers, formulae, kernels, transforms
        {dir.file("legacy.alg"), true},   // the old forms and their upgrades
        {dir.file("full.alg"), false},    // a virtual dataset over the same layers
        {dir.file("header.vld"), false},  // every block of a raster header
    };

    std::vector<void *> alone;
    for (const Document &doc : docs) {
        alone.push_back(read_document(doc));
        ASSERT_NE(alone.back(), nullptr) << doc.path << ": " << dsh::error_text();
    }

    constexpr int kReads = 200;
    std::atomic<int> failed_reads{0}, differing{0};
    std::vector<std::thread> threads;
    for (size_t t = 0; t < docs.size(); t++) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kReads; i++) {
                void *record = read_document(docs[t]);
                if (!record) {
                    failed_reads++;
                    continue;
                }
                if (!same(docs[t], record, alone[t])) differing++;
                free_document(docs[t], record);
            }
        });
    }
    for (std::thread &t : threads) t.join();
    EXPECT_EQ(failed_reads.load(), 0);
    EXPECT_EQ(differing.load(), 0);
    for (size_t t = 0; t < docs.size(); t++) free_document(docs[t], alone[t]);
}

}  // namespace
