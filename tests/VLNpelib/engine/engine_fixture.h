/* engine_fixture.h: datasets and algorithms for the engine's suites.
 *
 * A dataset is written cell by cell from a known function of band, line and
 * cell; an algorithm is written as text over it, with one DATASET surface
 * whose streams are its output bands. An Open runs the engine's passes on it
 * and pulls lines through the root, as the virtual dataset opens do.
 */
#ifndef VORLAN_TESTS_ENGINE_FIXTURE_H
#define VORLAN_TESTS_ENGINE_FIXTURE_H

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "temp_dir.h"
#include "vld_alg.h"
#include "vld_dshdr.h"
#include "vln_path.h"
#include "vln_pe_internal.h"

namespace eng {

using test_support::TempDir;

/* The value of a cell of a 16-bit dataset. */
inline uint16_t value16(int band, int line, int cell)
{
    return static_cast<uint16_t>((band * 1009 + line * 131 + cell * 7) % 65521);
}

/* A 16-bit raster of `bands` bands, cells of size 1 from (0, 0) in raw space. */
inline std::string write_dataset(const TempDir &dir, const std::string &stem, int cells, int lines,
                                 int bands = 1, double origin_x = 0, double origin_y = 0)
{
    std::string header = dir.file(stem + ".vld");
    dshdr *d = nullptr;
    df_raster_dshdr(&d, header.c_str(), cells, lines, bands, Unsigned16BitInteger);
    d->info.r.registration_coord.x = origin_x;
    d->info.r.registration_coord.y = origin_y;
    d->info.r.cellinfo.x_dimension = d->info.r.cellinfo.y_dimension = 1.0;
    EXPECT_EQ(ep_dshdr(d, header.c_str()), 0);
    ef_dshdr(d);
    std::string bytes;
    for (int l = 0; l < lines; l++)
        for (int b = 0; b < bands; b++)
            for (int c = 0; c < cells; c++) {
                uint16_t v = value16(b, l, c);
                bytes.append(reinterpret_cast<const char *>(&v), 2);
            }
    std::ofstream(dir.file(stem), std::ios::binary) << bytes;
    return header;
}

struct StreamDoc {
    std::string dataset;
    int band = 1;
    std::string description = "Band";
};

struct AlgDoc {
    double tl_x = 0, tl_y = 0, br_x = 0, br_y = 0;
    int width = 0, height = 0;
    bool bilinear = false;
    int output_type = Unsigned16BitInteger;
    std::vector<StreamDoc> streams;
};

inline const char *cell_type_word(int type)
{
    for (const VLD_ENUM *e = ev_CellType; e->name != nullptr; e++)
        if (e->value == type) return e->name;
    return "None";
}

inline std::string alg_text(const AlgDoc &a)
{
    std::ostringstream o;
    o << "Algorithm Begin\n\tVersion = \"7.0\"\n\tName = \"engine test\"\n";
    o << "\tCoordinateSpace Begin\n\t\tDatum = \"RAW\"\n\t\tProjection = \"RAW\"\n"
         "\t\tCoordinateType = RAW\n\tCoordinateSpace End\n";
    o << "\tTopLeftCorner Begin\n\t\tMetersX = " << a.tl_x << "\n\t\tMetersY = " << a.tl_y
      << "\n\tTopLeftCorner End\n";
    o << "\tBottomRightCorner Begin\n\t\tMetersX = " << a.br_x << "\n\t\tMetersY = " << a.br_y
      << "\n\tBottomRightCorner End\n";
    o << "\tSuperSampling = " << (a.bilinear ? "Bilinear" : "NearestNeighbour") << "\n";
    o << "\tOutputWidth = " << a.width << "\n\tOutputHeight = " << a.height << "\n";
    o << "\tCanvasWidth = " << a.width << "\n\tCanvasHeight = " << a.height << "\n";
    o << "\tOutputType = " << cell_type_word(a.output_type) << "\n\tNullValue = 0\n";
    o << "\tSurface Begin\n\t\tName = \"Bands\"\n\t\tColorMode = DATASET\n";
    for (const StreamDoc &s : a.streams) {
        o << "\t\tStream Begin\n\t\t\tType = Pseudo\n\t\t\tDescription = \"" << s.description
          << "\"\n\t\t\tDataset = \"" << s.dataset << "\"\n";
        o << "\t\t\tStreamInput Begin\n\t\t\t\tStreamInputID = 1\n\t\t\tStreamInput End\n";
        o << "\t\t\tFormula Begin\n\t\t\t\tFormula = \"INPUT1\"\n\t\t\t\tFormulaArg Begin\n"
             "\t\t\t\t\tStreamInput = 1\n\t\t\t\t\tBandNumber = "
          << s.band << "\n\t\t\t\tFormulaArg End\n\t\t\tFormula End\n\t\tStream End\n";
    }
    o << "\tSurface End\nAlgorithm End\n";
    return o.str();
}

/* An algorithm read from its text, and a context planned and built over it. */
struct Open {
    algorithm *alg = nullptr;
    pe_context *pe = nullptr;
    int status = -1;

    Open(const TempDir &dir, const AlgDoc &doc, const std::string &name = "test.alg")
    {
        setenv("VORLAN", VORLAN_SHARE_DIR, 0);
        setenv("VLN_MACHINE_TYPE", "linux", 0);
        EXPECT_EQ(PE_initialise("engine tests"), 0);
        std::string path = dir.file(name);
        std::ofstream(path) << alg_text(doc);
        EXPECT_EQ(eg_algorithm_with_transients(&alg, path.c_str()), 0)
            << (VLD_error.text ? VLD_error.text : "");
        if (alg == nullptr) return;
        pe = pe_create_context();
        status = init_alg(pe, alg);
        if (status == 0) pe_start_trees(pe);
    }
    ~Open()
    {
        pe_destroy_context(pe);
        ef_algorithm(alg);
    }
    Open(const Open &) = delete;
    Open &operator=(const Open &) = delete;
    std::string error() const { return pe != nullptr ? pe->error_text : ""; }

    /* Reads one line of every band; 0, -1 or 1. */
    int read(std::vector<std::vector<uint16_t>> &lines, std::vector<rlseg *> &runs)
    {
        std::vector<void *> ptrs;
        for (auto &l : lines) ptrs.push_back(l.data());
        return pe_read_lines(pe, 0, ptrs.data(), runs.data());
    }
};

}  // namespace eng

#endif
