/* alg_docs_fixture.h: the datasets that the algorithm documents under
 * tests/data/alg read, written beside copies of them in a temporary folder. */
#ifndef VORLAN_TESTS_ALG_DOCS_FIXTURE_H
#define VORLAN_TESTS_ALG_DOCS_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "dshdr_fixture.h"

namespace algdocs {

inline const std::string kAlgDir = std::string(VORLAN_TEST_DATA_DIR) + "/alg/";

/* Writes a raster header of three bands named Red, Green, Blue, 40 by 30
 * cells of size 1 in raw space (land.vld, and sub/inner.vld), and a vector
 * header beside it (roads.vlv). */
inline void write_datasets(const dsh::TempDir &dir)
{
    dshdr *d = nullptr;
    std::string land = dir.file("land.vld");
    ASSERT_EQ(df_raster_dshdr(&d, land.c_str(), 40, 30, 3, Unsigned8BitInteger), 0);
    const char *names[] = {"Red", "Green", "Blue"};
    for (int i = 0; i < 3; i++) d->info.r.bandids[i].value = strsave(names[i]);
    ASSERT_EQ(ep_dshdr(d, land.c_str()), 0) << dsh::error_text();
    mkdir(dir.file("sub").c_str(), 0755);
    std::string inner = dir.file("sub/inner.vld");
    ASSERT_EQ(ep_dshdr(d, inner.c_str()), 0) << dsh::error_text();
    ef_dshdr(d);
    d = nullptr;
    std::string roads = dir.file("roads.vlv");
    ASSERT_EQ(df_vector_dshdr(&d, roads.c_str()), 0);
    d->info.v.extents.bottom_right.x = 40;
    d->info.v.extents.bottom_right.y = 30;
    ASSERT_EQ(ep_dshdr(d, roads.c_str()), 0) << dsh::error_text();
    ef_dshdr(d);
}

}  // namespace algdocs

#endif
