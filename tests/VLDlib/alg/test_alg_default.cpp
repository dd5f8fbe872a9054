/* The algorithm made for a dataset, and the header that an algorithm implies. */
#include <gtest/gtest.h>

#include <cmath>

#include "alg_fixture.h"
#include "dshdr_fixture.h"
#include "vld_coords.h"

using algfix::Alg;
using algfix::name_of;

namespace {

/* An algorithm of the layout in a raw space, from (0, 0) to (1000, 500). */
struct Placed : Alg {
    explicit Placed(const std::vector<algfix::SurfaceSpec> &layout) : Alg(layout)
    {
        ea_coordspace(&alg->coordspace);
        df_coordspace_noalloc(alg->coordspace);
        ea_dscoord(&alg->top_left);
        ea_dscoord(&alg->bottom_right);
        *alg->top_left = {0.0, 0.0, NAN};
        *alg->bottom_right = {1000.0, 500.0, NAN};
        alg->null_value = -9.5;
    }
    ~Placed()
    {
        ef_coordspace(alg->coordspace);
        ef_dscoord(alg->top_left);
        ef_dscoord(alg->bottom_right);
        for (surface *s = alg->surfaces; s; s = s->next)
            for (stream *st = s->first_stream; st; st = st->next) {
                ef_coordspace_contents(&st->coordspace);
                st->dshdr = nullptr;
            }
    }
    /* Gives a layer its own raw space and corners, as a layer set-up does. */
    void place(const char *name, double x0, double y0, double x1, double y1)
    {
        stream *s = st(name);
        df_coordspace_noalloc(&s->coordspace);
        s->top_left = {x0, y0, NAN};
        s->bottom_right = {x1, y1, NAN};
    }
};

dshdr raster_with_cells(double x, double y)
{
    dshdr d{};
    d.data_type = DT_Raster;
    d.info.r.cellinfo.x_dimension = x;
    d.info.r.cellinfo.y_dimension = y;
    return d;
}

std::string groups_of(const msinfo *g)
{
    std::string out;
    for (; g; g = g->next)
        out +=
            (out.empty() ? "" : " ") + std::string(g->name) + ":" + std::to_string(g->nr_streams);
    return out;
}

TEST(AlgQuery, BandGroups)
{
    Alg f({
        {"A",
         CM_DATASET,
         false,
         {{"l1", ST_DynamicLink},
          {"red", ST_Red},
          {"cls", ST_Classification},
          {"red2", ST_Red},
          {"off", ST_Pseudo, true}}},
        {"B", CM_DATASET, true, {{"hidden", ST_Pseudo}}},
        {"C", CM_DATASET, false, {{"band", ST_Pseudo}, {"nameless", ST_Height}}},
    });
    // Streams with one description form one band; a link goes by its file,
    // a stream without a description by its type's word.
    safe_free(f.st("red2")->description);
    f.st("red2")->description = strsave("RED");
    f.st("l1")->dataset = strsave("/d/roads.vlv");
    safe_free(f.st("nameless")->description);
    f.st("nameless")->description = nullptr;

    msinfo *groups = nullptr;
    ASSERT_EQ(VLD_setup_msinfo_surface(&groups, f.sf("A")), 0);
    EXPECT_EQ(groups_of(groups), "/d/roads.vlv:1 red:2 cls:1 off:1");
    VLD_free_msinfos(groups);

    // The output's bands: streams that are on, in surfaces that are on;
    // ordinary bands, then classification, then links.
    ASSERT_EQ(VLD_setup_msinfo(&groups, f.alg), 0);
    EXPECT_EQ(groups_of(groups), "red:2 band:1 Height:1 cls:1 /d/roads.vlv:1");
    VLD_free_msinfos(groups);

    int count = -1;
    bandid *bands = nullptr;
    ASSERT_EQ(VLN_get_algorithm_band_info(f.alg, &count, &bands), 0);
    ASSERT_EQ(count, 5);
    EXPECT_STREQ(bands[1].value, "band");
    for (int i = 0; i < count; i++) ef_bandid_contents(&bands[i]);
    safe_free(bands);
    EXPECT_EQ(VLN_get_algorithm_band_info(nullptr, &count, &bands), 65);
    EXPECT_EQ(count, 0);
}

TEST(AlgQuery, DimensionsFromFirstRasterLayers)
{
    Placed f({
        {"A", CM_DATASET, false, {{"v", ST_DynamicLink}, {"a1", ST_Pseudo}, {"a2", ST_Pseudo}}},
        {"B", CM_DATASET, true, {{"b1", ST_Pseudo}}},
        {"C", CM_DATASET, false, {{"c1", ST_Pseudo, true}, {"c2", ST_Pseudo}}},
    });
    dshdr coarse = raster_with_cells(10.0, 5.0), wide = raster_with_cells(2.5, 20.0),
          fine = raster_with_cells(1.0, 1.0), link = raster_with_cells(0.1, 0.1);
    struct Case {
        const char *what;
        std::vector<std::pair<const char *, dshdr *>> headers;
        int flag;
        double x, y;
        int cells, lines;
    };
    const Case cases[] = {
        // a2 isn't the first raster layer of A; links don't count.
        {"one layer", {{"v", &link}, {"a1", &coarse}, {"a2", &fine}}, 0, 10.0, 5.0, 100, 100},
        {"least of each surface", {{"a1", &coarse}, {"c2", &wide}}, 0, 2.5, 5.0, 400, 100},
        // B and c1 are off: they count only with the flag.
        {"off layers left out",
         {{"a1", &coarse}, {"b1", &fine}, {"c1", &fine}},
         0,
         10.0,
         5.0,
         100,
         100},
        {"off layers with flag", {{"a1", &coarse}, {"b1", &fine}}, 1, 1.0, 1.0, 1000, 500},
        {"no raster layer", {}, 0, 1.0, 1.0, 1000, 500},
    };
    for (const Case &c : cases) {
        for (const char *n : {"v", "a1", "a2", "b1", "c1", "c2"}) f.st(n)->dshdr = nullptr;
        for (auto &[n, h] : c.headers) f.st(n)->dshdr = h;
        int lines = 0, cells = 0;
        double x = 0, y = 0;
        EXPECT_EQ(VLN_get_algorithm_default_image_and_cell_dimensionsEx(f.alg, &lines, &cells, &x,
                                                                        &y, c.flag),
                  0)
            << c.what;
        EXPECT_EQ(x, c.x) << c.what;
        EXPECT_EQ(y, c.y) << c.what;
        EXPECT_EQ(cells, c.cells) << c.what;
        EXPECT_EQ(lines, c.lines) << c.what;
    }
    f.st("a1")->dshdr = nullptr;
    double x, y;
    EXPECT_EQ(VLN_get_algorithm_nominal_cell_size(f.alg, &x, &y), 110);
    EXPECT_EQ(VLN_get_algorithm_nominal_cell_size(nullptr, &x, &y), 65);
}

TEST(AlgQuery, HeaderFromAlgorithm)
{
    EXPECT_EQ(VLD_setup_dsh_from_alg(nullptr), 117);
    dshdr empty{};
    EXPECT_EQ(VLD_setup_dsh_from_alg(&empty), 65);

    Placed f({{"A",
               CM_PSEUDO,
               false,
               {{"elev", ST_Pseudo}, {"slope", ST_Pseudo}, {"elev2", ST_Pseudo}}}});
    safe_free(f.st("elev2")->description);
    f.st("elev2")->description = strsave("elev");
    dshdr cells = raster_with_cells(10.0, 5.0);
    f.st("elev")->dshdr = &cells;

    dshdr d{};
    d.algorithm = f.alg;
    ASSERT_EQ(VLD_setup_dsh_from_alg(&d), 0) << dsh::error_text();
    EXPECT_EQ(f.sf("A")->color_mode, CM_DATASET);
    EXPECT_EQ(d.data_type, DT_Raster);
    EXPECT_EQ(d.dataset_type, DST_VLDStorage);
    EXPECT_EQ(d.byte_order, byteorder());
    EXPECT_EQ(coordspaces_equal(&d.coordspace, f.alg->coordspace), 1);
    const rasterinfo &r = d.info.r;
    EXPECT_EQ(r.cell_type, IEEE8ByteReal);
    EXPECT_EQ(r.has_null, 1);
    EXPECT_EQ(r.null_value, -9.5);
    EXPECT_EQ(r.nr_cells, 100);
    EXPECT_EQ(r.nr_lines, 100);
    ASSERT_EQ(r.nr_bands, 2);
    EXPECT_STREQ(r.bandids[0].value, "elev");
    EXPECT_STREQ(r.bandids[1].value, "slope");
    ASSERT_NE(r.regions, nullptr);
    EXPECT_STREQ(r.regions->name, "All");

    // Run again on the filled header: the bands are made anew, not added.
    f.st("slope")->turned_off = 1;
    ASSERT_EQ(VLD_setup_dsh_from_alg(&d), 0);
    EXPECT_EQ(d.info.r.nr_bands, 1);

    d.algorithm = nullptr;
    ef_dshdr_contents(&d);
}

TEST(AlgQuery, ExtentsOfLayers)
{
    Placed f({
        {"A",
         CM_DATASET,
         false,
         {{"p", ST_Pseudo},
          {"q", ST_Pseudo},
          {"h", ST_Height},
          {"l", ST_DynamicLink},
          {"o", ST_Pseudo, true}}},
        {"B", CM_DATASET, true, {{"b", ST_Pseudo}}},
    });
    f.place("p", 100, 50, 300, 250);
    f.place("q", 50, 100, 200, 400);
    f.place("h", 0, 0, 900, 100);
    f.place("l", 20, 10, 1000, 500);
    f.place("o", 10, 10, 990, 490);
    f.place("b", 5, 5, 995, 495);

    struct Case {
        const char *what;
        int height, vector, off_surfaces, off_streams;
        double x0, y0, x1, y1;
    };
    const Case cases[] = {
        {"layers on", 0, 0, 0, 0, 50, 50, 300, 400},
        {"with height", 1, 0, 0, 0, 0, 0, 900, 400},
        {"with links", 0, 1, 0, 0, 20, 10, 1000, 500},
        {"with streams off", 0, 0, 0, 1, 10, 10, 990, 490},
        {"with surfaces off", 0, 0, 1, 0, 5, 5, 995, 495},
    };
    for (const Case &c : cases) {
        dscoord tl{}, br{};
        ASSERT_EQ(VLN_calc_alg_abs_extents(f.alg, &tl, &br, 1, c.height, c.vector, 0,
                                           c.off_surfaces, c.off_streams, 0),
                  0)
            << c.what << ": " << dsh::error_text();
        EXPECT_EQ(tl.x, c.x0) << c.what;
        EXPECT_EQ(tl.y, c.y0) << c.what;
        EXPECT_EQ(br.x, c.x1) << c.what;
        EXPECT_EQ(br.y, c.y1) << c.what;
    }
    EXPECT_EQ(f.sf("A")->color_mode, CM_DATASET);

    // Everything off: row 103, both corners at cell (0, 0).
    for (const char *n : {"p", "q", "h", "l"}) f.st(n)->turned_off = 1;
    dscoord tl{1, 1, 0}, br{2, 2, 0};
    EXPECT_EQ(VLN_calc_alg_abs_extents(f.alg, &tl, &br, 1, 1, 1, 1, 0, 0, 0), 103);
    EXPECT_EQ(tl.x, 0.0);
    EXPECT_EQ(tl.y, 0.0);
    EXPECT_EQ(br.x, 0.0);
    EXPECT_EQ(br.y, 0.0);
}

TEST(AlgQuery, SelfReference)
{
    Alg outer({{"A", CM_PSEUDO, false, {{"img", ST_Pseudo}, {"vds", ST_Pseudo}}}});
    Alg inner({{"A", CM_PSEUDO, false, {{"loop", ST_Pseudo}}}});
    outer.st("img")->dataset = strsave("/data/Image.VLD");
    outer.st("vds")->dataset = strsave("/data/inner.alg");
    inner.st("loop")->dataset = strsave("/data/outer.alg");
    inner.alg->name = strsave("/data/inner.alg");
    dshdr inner_header{};
    inner_header.algorithm = inner.alg;
    outer.st("vds")->dshdr = &inner_header;

    EXPECT_EQ(VLD_check_ds_in_alg(outer.alg, nullptr, "/data/image.vld"), 1);
    EXPECT_EQ(VLD_check_ds_in_alg(outer.alg, "/data", "image.vld"), 1);
    EXPECT_EQ(VLD_check_ds_in_alg(outer.alg, nullptr, "/data/image.vld $$ALG"), 1);
    EXPECT_EQ(VLD_check_ds_in_alg(outer.alg, nullptr, "/data/outer.alg"), 0);
    EXPECT_EQ(VLD_check_ds_in_alg(nullptr, nullptr, "/data/image.vld"), 0);

    // The outer document is read again by the virtual dataset it reads.
    char *name = const_cast<char *>("/data/outer.alg");
    char *where = nullptr;
    EXPECT_EQ(VLD_check_recur_alg(outer.alg, &name, &where), 1);
    EXPECT_STREQ(where, "/data/inner.alg");
    safe_free(where);
    where = nullptr;
    name = const_cast<char *>("/data/other.alg");
    EXPECT_EQ(VLD_check_recur_alg(outer.alg, &name, &where), 0);
    EXPECT_EQ(where, nullptr);
    outer.st("vds")->dshdr = nullptr;
}

/* ---------------------------------------------------------------- default algorithms */

/* A raster header of `bands` bands with the given names, written to `path`. */
void write_raster(const std::string &path, std::vector<const char *> names, double cell = 25.0)
{
    dshdr *h = nullptr;
    ASSERT_EQ(df_raster_dshdr(&h, path.c_str(), 20, 10, static_cast<int>(names.size()),
                              Unsigned8BitInteger),
              0);
    for (size_t i = 0; i < names.size(); i++) h->info.r.bandids[i].value = strsave(names[i]);
    h->info.r.cellinfo.x_dimension = h->info.r.cellinfo.y_dimension = cell;
    ASSERT_EQ(ep_dshdr(h, path.c_str()), 0) << dsh::error_text();
    ef_dshdr(h);
}

/* Type, band of the formula and description of each stream, in list order. */
std::string layers_of(const algorithm *a)
{
    std::string out;
    for (const stream *st = first_stream_in_alg(a); st; st = st->next) {
        const char *band = st->formula.nr_args > 0 ? st->formula.args[0].band_number : "-";
        out += (out.empty() ? "" : ", ") + std::to_string(st->type) + "/" + band + "/" +
               name_of(st) + (st->turned_off ? "/off" : "");
    }
    return out;
}

TEST(AlgDefault, LayersFromBands)
{
    dsh::TempDir dir;
    struct Case {
        std::vector<const char *> bands;
        int mode;
        const char *layers;
    };
    const Case cases[] = {
        {{"x"}, CM_PSEUDO, "8/1/Pseudo Layer"},
        {{"x", "y"}, CM_PSEUDO, "8/1/Pseudo Layer"},
        {{"Blue", "Green", "Red"}, CM_RGB, "2/3/Red Layer, 3/2/Green Layer, 4/1/Blue Layer"},
        {{"nir", "GREEN LAYER", "swir", "red"},
         CM_RGB,
         "2/4/Red Layer, 3/2/Green Layer, 4/3/Blue Layer"},
        {{"a", "b", "c", "d"}, CM_RGB, "2/1/Red Layer, 3/2/Green Layer, 4/3/Blue Layer"},
    };
    int n = 0;
    for (const Case &c : cases) {
        std::string path = dir.file("d" + std::to_string(n++) + ".vld");
        write_raster(path, c.bands);
        algorithm *a = nullptr;
        ASSERT_EQ(VLN_create_default_algorithm(&a, path.c_str()), 0)
            << path << ": " << dsh::error_text();
        EXPECT_EQ(layers_of(a), c.layers) << path;
        EXPECT_EQ(a->surfaces->color_mode, c.mode);
        EXPECT_STREQ(a->surfaces->lookup_table, "greyscale");
        EXPECT_STREQ(a->name, path.c_str());
        EXPECT_STREQ(a->description, "Algorithm generated from dataset.");
        EXPECT_EQ(a->do_optimisation, 1);
        EXPECT_STREQ(first_stream_in_alg(a)->dataset, path.c_str());
        EXPECT_EQ(a->current_stream, first_stream_in_alg(a));
        // 20 by 10 cells of 25 from a registration at (0, 0).
        ASSERT_NE(a->bottom_right, nullptr);
        EXPECT_EQ(a->bottom_right->x - a->top_left->x, 500.0);
        ef_algorithm(a);
    }
}

TEST(AlgDefault, VectorFileGetsAnAnnotationLayer)
{
    dsh::TempDir dir;
    std::string path = dir.file("roads.vlv");
    dshdr *h = nullptr;
    ASSERT_EQ(df_vector_dshdr(&h, path.c_str()), 0);
    h->info.v.extents.bottom_right = {100.0, 50.0, NAN};
    ASSERT_EQ(ep_dshdr(h, path.c_str()), 0) << dsh::error_text();
    ef_dshdr(h);

    algorithm *a = nullptr;
    ASSERT_EQ(VLN_create_default_algorithm(&a, path.c_str()), 0) << dsh::error_text();
    const stream *st = first_stream_in_alg(a);
    ASSERT_NE(st, nullptr);
    EXPECT_EQ(st->type, ST_DynamicLink);
    EXPECT_EQ(st->turned_off, 0);
    EXPECT_EQ(st->next, nullptr);
    EXPECT_STREQ(st->filter_program_name, "vlnps_vlvec");
    EXPECT_STREQ(st->initialisation_program, "vlninit_vld");
    EXPECT_STREQ(st->file_extent, ".vlv");
    EXPECT_STREQ(st->menu_button_description, "Annotation overlay");
    EXPECT_EQ(st->can_edit, 1);
    EXPECT_STREQ(st->dataset, path.c_str());
    EXPECT_EQ(a->current_stream, st);
    ef_algorithm(a);
}

TEST(AlgDefault, Failures)
{
    dsh::TempDir dir;
    std::string path = dir.file("one.vld");
    write_raster(path, {"x"}, 1.0);
    algorithm *a = reinterpret_cast<algorithm *>(&dir);
    EXPECT_EQ(VLN_create_algorithm(nullptr, path.c_str(), 0, 0), 12);
    EXPECT_NE(dsh::error_text().find("First argument is null"), std::string::npos);
    EXPECT_EQ(VLN_create_algorithm(&a, nullptr, 0, 0), 9);
    EXPECT_EQ(a, nullptr);
    EXPECT_EQ(VLN_create_algorithm(&a, dir.file("missing.vld").c_str(), 0, 0), 19);
    EXPECT_EQ(VLN_create_default_alg_from_dataset_fspec(&a, "", 0.0), 9);

    // A fine raster is made all the same (shown unclipped).
    ASSERT_EQ(VLN_create_default_alg_from_dataset_fspec(&a, path.c_str(), 0.0), 0);
    EXPECT_EQ(first_stream_in_alg(a)->type, ST_Pseudo);
    ef_algorithm(a);
}

}  // namespace
