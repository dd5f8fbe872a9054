/* formula_fixture.h: datasets and algorithms for the formula suites.
 *
 * A dataset of 16-bit bands is written from a function of band, line and
 * cell, optionally with 0 as its null value and with regions (a rectangle,
 * with or without statistics). An algorithm holds one DATASET surface of
 * doubles over it, whose one stream computes a formula over inputs bound to
 * bands, with region, dataset and variable arguments. Lines are read through
 * the engine's root as doubles with their runs.
 */
#ifndef VORLAN_TESTS_FORMULA_FIXTURE_H
#define VORLAN_TESTS_FORMULA_FIXTURE_H

#include <functional>
#include <optional>

#include "engine_fixture.h"

namespace frm {

using CellFn = std::function<uint16_t(int band, int line, int cell)>;

struct RegionDoc {
    std::string name;
    int x0, y0, x1, y1;    // corners of a rectangle, in cells
    const msstats *stats;  // copied; may be null
    int type = REGION_POLYGON;
};

inline std::string write_dataset(const eng::TempDir &dir, const std::string &stem, int cells,
                                 int lines, int bands, const CellFn &fn, bool null_zero = false,
                                 const std::vector<RegionDoc> &regions = {})
{
    std::string header = dir.file(stem + ".vld");
    dshdr *d = nullptr;
    df_raster_dshdr(&d, header.c_str(), cells, lines, bands, Unsigned16BitInteger);
    d->info.r.cellinfo.x_dimension = d->info.r.cellinfo.y_dimension = 1.0;
    if (null_zero) {
        d->info.r.has_null = 1;
        d->info.r.null_value = 0;
    }
    regioninfo **tail = &d->info.r.regions;
    for (const RegionDoc &rd : regions) {
        regioninfo *r = nullptr;
        ea_regioninfo(&r);
        r->name = strsave(rd.name.c_str());
        r->type = rd.type;
        if (rd.stats != nullptr) cp_msstats(&r->stats, rd.stats);
        auto *sub = static_cast<subregion *>(malloc_or_die(sizeof(subregion)));
        sub->next = nullptr;
        sub->points = nullptr;
        const double xs[4] = {double(rd.x0), double(rd.x1), double(rd.x1), double(rd.x0)};
        const double ys[4] = {double(rd.y0), double(rd.y0), double(rd.y1), double(rd.y1)};
        VLD_POINTNODE **pt = &sub->points;
        for (int i = 0; i < 4; i++) {
            auto *p = static_cast<VLD_POINTNODE *>(malloc_or_die(sizeof(VLD_POINTNODE)));
            p->next = nullptr;
            p->x = xs[i];
            p->y = ys[i];
            *pt = p;
            pt = &p->next;
        }
        r->subregions = sub;
        *tail = r;
        tail = &r->next;
    }
    EXPECT_EQ(ep_dshdr(d, header.c_str()), 0) << (VLD_error.text ? VLD_error.text : "");
    ef_dshdr(d);
    std::string bytes;
    for (int l = 0; l < lines; l++)
        for (int b = 0; b < bands; b++)
            for (int c = 0; c < cells; c++) {
                uint16_t v = fn(b, l, c);
                bytes.append(reinterpret_cast<const char *>(&v), 2);
            }
    std::ofstream(dir.file(stem), std::ios::binary) << bytes;
    return header;
}

struct StreamDoc {
    std::string formula;
    std::vector<int> bands{1};  // the band of each input, I1 first
    std::vector<std::string> regions;
    std::vector<std::string> datasets;
    std::vector<std::pair<std::string, double>> variables;
};

inline std::string alg_text(const std::string &dataset, int cells, int lines, const StreamDoc &s,
                            int output_type = IEEE8ByteReal)
{
    std::ostringstream o;
    o << "Algorithm Begin\n\tVersion = \"7.0\"\n\tName = \"formula test\"\n";
    o << "\tCoordinateSpace Begin\n\t\tDatum = \"RAW\"\n\t\tProjection = \"RAW\"\n"
         "\t\tCoordinateType = RAW\n\tCoordinateSpace End\n";
    o << "\tTopLeftCorner Begin\n\t\tMetersX = 0\n\t\tMetersY = 0\n\tTopLeftCorner End\n";
    o << "\tBottomRightCorner Begin\n\t\tMetersX = " << cells << "\n\t\tMetersY = " << lines
      << "\n\tBottomRightCorner End\n";
    o << "\tSuperSampling = NearestNeighbour\n";
    o << "\tOutputWidth = " << cells << "\n\tOutputHeight = " << lines << "\n";
    o << "\tCanvasWidth = " << cells << "\n\tCanvasHeight = " << lines << "\n";
    o << "\tOutputType = " << eng::cell_type_word(output_type) << "\n\tNullValue = 0\n";
    o << "\tSurface Begin\n\t\tName = \"Bands\"\n\t\tColorMode = DATASET\n";
    o << "\t\tStream Begin\n\t\t\tType = Pseudo\n\t\t\tDescription = \"Result\"\n\t\t\tDataset = \""
      << dataset << "\"\n";
    for (size_t i = 0; i < s.bands.size(); i++)
        o << "\t\t\tStreamInput Begin\n\t\t\t\tStreamInputID = " << i + 1
          << "\n\t\t\tStreamInput End\n";
    std::string text = s.formula;
    o << "\t\t\tFormula Begin\n\t\t\t\tFormula = \"" << text << "\"\n";
    for (size_t i = 0; i < s.bands.size(); i++)
        o << "\t\t\t\tFormulaArg Begin\n\t\t\t\t\tStreamInput = " << i + 1
          << "\n\t\t\t\t\tBandNumber = " << s.bands[i] << "\n\t\t\t\tFormulaArg End\n";
    for (size_t i = 0; i < s.regions.size(); i++)
        o << "\t\t\t\tRegionArg Begin\n\t\t\t\t\tRegionNumber = " << i + 1
          << "\n\t\t\t\t\tRegionName = \"" << s.regions[i] << "\"\n\t\t\t\tRegionArg End\n";
    for (size_t i = 0; i < s.datasets.size(); i++)
        o << "\t\t\t\tDatasetArg Begin\n\t\t\t\t\tDatasetNumber = " << i + 1
          << "\n\t\t\t\t\tDatasetName = \"" << s.datasets[i] << "\"\n\t\t\t\tDatasetArg End\n";
    for (const auto &[name, value] : s.variables)
        o << "\t\t\t\tVariableArg Begin\n\t\t\t\t\tVariableName = \"" << name
          << "\"\n\t\t\t\t\tValue = " << value << "\n\t\t\t\tVariableArg End\n";
    o << "\t\t\tFormula End\n\t\tStream End\n\tSurface End\nAlgorithm End\n";
    return o.str();
}

/* One line of the result: values, and a flag per cell (true: null). */
struct Line {
    std::vector<double> values;
    std::vector<bool> null;
};

/* An open over a stream's formula; `lines` holds what was read. */
struct FormulaRun {
    algorithm *alg = nullptr;
    pe_context *pe = nullptr;
    int status = -1;
    std::vector<Line> lines;

    FormulaRun(const eng::TempDir &dir, const std::string &dataset, int cells, int nr_lines,
               const StreamDoc &s, bool read_all = true)
    {
        setenv("VORLAN", VORLAN_SHARE_DIR, 0);
        setenv("VLN_MACHINE_TYPE", "linux", 0);
        EXPECT_EQ(PE_initialise("formula tests"), 0);
        const std::string path = dir.file("formula.alg");
        std::ofstream(path) << alg_text(dataset, cells, nr_lines, s);
        EXPECT_EQ(eg_algorithm_with_transients(&alg, path.c_str()), 0)
            << (VLD_error.text ? VLD_error.text : "");
        if (alg == nullptr) return;
        pe = pe_create_context();
        status = init_alg(pe, alg);
        if (status != 0) return;
        pe_start_trees(pe);
        if (!read_all) return;
        std::vector<double> buffer(static_cast<size_t>(cells));
        for (int y = 0; y < nr_lines; y++) {
            void *ptrs[1] = {buffer.data()};
            rlseg *runs[1] = {nullptr};
            const int rc = pe_read_lines(pe, 0, ptrs, runs);
            EXPECT_EQ(rc, 0) << pe->error_text;
            if (rc != 0) break;
            Line line{buffer, std::vector<bool>(static_cast<size_t>(cells), true)};
            for (const rlseg *r = runs[0]; r != nullptr; r = r->next)
                for (int i = r->first; i <= r->last; i++) line.null[i] = false;
            pe_free_rlseg_list(pe, &runs[0]);
            lines.push_back(std::move(line));
        }
    }
    ~FormulaRun()
    {
        pe_destroy_context(pe);
        ef_algorithm(alg);
    }
    FormulaRun(const FormulaRun &) = delete;
    FormulaRun &operator=(const FormulaRun &) = delete;
    std::string error() const { return pe != nullptr ? pe->error_text : ""; }
};

/* Values equal, NaN equal to NaN. */
inline bool same(double a, double b)
{
    return (std::isnan(a) && std::isnan(b)) || a == b;
}

}  // namespace frm

#endif
