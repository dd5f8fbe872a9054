/* The preparations of a document before an open: pruning for a 3D view,
 * fitting to a window or a page, and the output size of a 3D view. */
#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <deque>
#include <sstream>
#include <string>

#include "alg_fixture.h"
#include "coords_fixture.h"
#include "vln_vds.h"

namespace {

using algfix::Alg;

/* ---------------------------------------------------------------- layouts as text
 *
 * "A 4 : aI bP- | B 2- : cR" is surface A in mode 4 with layers a (Intensity)
 * and b (Pseudo, off), then surface B, off, in mode 2 with layer c (Red). */

constexpr struct {
    char code;
    int type;
} kTypes[] = {{'R', ST_Red},    {'G', ST_Green},      {'B', ST_Blue},
              {'U', ST_Hue},    {'S', ST_Saturation}, {'I', ST_Intensity},
              {'P', ST_Pseudo}, {'H', ST_Height},     {'L', ST_DynamicLink}};

struct Layout {
    std::deque<std::string> names;  // stable storage for the specs' names
    std::vector<algfix::SurfaceSpec> specs;
};

Layout parse(const std::string &text)
{
    Layout out;
    std::istringstream surfaces(text);
    std::string part;
    while (std::getline(surfaces, part, '|')) {
        std::istringstream in(part);
        std::string name, mode, colon, word;
        in >> name >> mode >> colon;
        out.names.push_back(name);
        out.specs.push_back(
            {out.names.back().c_str(), std::atoi(mode.c_str()), mode.back() == '-', {}});
        while (in >> word) {
            size_t n = 0;
            while (n < word.size() && std::islower(static_cast<unsigned char>(word[n]))) n++;
            int type = 0;
            for (const auto &t : kTypes)
                if (t.code == word[n]) type = t.type;
            out.names.push_back(word.substr(0, n));
            out.specs.back().streams.push_back(
                {out.names.back().c_str(), type, word.back() == '-'});
        }
    }
    return out;
}

std::string describe(const algorithm *alg)
{
    std::string out;
    const surface *prev_s = nullptr;
    for (const surface *s = alg->surfaces; s; prev_s = s, s = s->next) {
        if (s->prev != prev_s) return "broken";
        out += (out.empty() ? "" : " | ") + std::string(s->name) + " " +
               std::to_string(s->color_mode) + (s->turned_off ? "-" : "") + " :";
        const stream *prev = nullptr;
        for (const stream *st = s->first_stream; st; prev = st, st = st->next) {
            if (st->prev != prev) return "broken";
            char code = '?';
            for (const auto &t : kTypes)
                if (t.type == st->type) code = t.code;
            out += " " + std::string(st->description) + code + (st->turned_off ? "-" : "");
        }
    }
    return out;
}

bool in_document(const algorithm *alg, const stream *wanted)
{
    for (const surface *s = alg->surfaces; s; s = s->next)
        for (const stream *st = s->first_stream; st; st = st->next)
            if (st == wanted) return true;
    return false;
}

/* ---------------------------------------------------------------- pruning */

struct PruneCase {
    int view;
    const char *layout;
    const char *current;  // the current layer before the call
    const char *expected;
    const char *current_after;  // its surface's name and its own, or "-"
};

const PruneCase kPruneCases[] = {
    // Turned-off surfaces go in the perspective views only, and never the last one.
    {VM_Perspective3D, "A 4 : aP | B 4- : bP", "a", "A 4 : aP", "A a"},
    {VM_Flythrough, "A 4- : aP | B 4 : bP", "b", "B 4 : bP", "B b"},
    {VM_Planimetric3D, "A 4 : aP | B 4- : bP", "a", "A 4 : aP | B 4- : bP", "A a"},
    {VM_Perspective3D, "B 4- : bP", "b", "B 4- : bP", "B b"},
    // A current surface that goes hands over to the next, else the previous.
    {VM_Perspective3D, "A 4- : aP | B 4 : bP cP", "a", "B 4 : bP cP", "B b"},
    {VM_Perspective3D, "A 4 : aP | B 4- : bP", "b", "A 4 : aP", "A a"},
    // Layers that are off, of a type the mode refuses, or heights in 2D.
    {VM_Planimetric3D, "A 4 : aP bP- cP", "a", "A 4 : aP cP", "A a"},
    {VM_Planimetric3D, "A 2 : aR bP cG", "a", "A 2 : aR cG", "A a"},
    {VM_Planimetric2D, "A 4 : aP bH", "a", "A 4 : aP", "A a"},
    {VM_Planimetric3D, "A 4 : aP bH", "a", "A 4 : aP bH", "A a"},
    // The current layer moves to the previous, else the next.
    {VM_Planimetric3D, "A 4 : aP bP- cP", "b", "A 4 : aP cP", "A a"},
    {VM_Planimetric3D, "A 4 : aP- bP cP", "a", "A 4 : bP cP", "A b"},
    // A last layer is turned off instead; a surface with a neighbour then goes.
    {VM_Planimetric3D, "A 2 : aP", "a", "A 2 : aP-", "A a"},
    {VM_Planimetric3D, "A 4 : aP- bP-", "a", "A 4 : bP-", "A b"},
    {VM_Planimetric3D, "A 4 : aP | B 4 : bP-", "a", "A 4 : aP", "A a"},
    {VM_Planimetric3D, "A 4 : aP | B 2 : bP", "b", "A 4 : aP", "A a"},
    // Intensity gives the heights in 3D when nothing else does and something
    // else is left to colour the surface; never in HSI.
    {VM_Planimetric3D, "A 4 : aI bP", "a", "A 4 : aH bP", "A a"},
    {VM_Planimetric2D, "A 4 : aI bP", "a", "A 4 : aI bP", "A a"},
    {VM_Planimetric3D, "A 3 : aI bU", "a", "A 3 : aI bU", "A a"},
    {VM_Planimetric3D, "A 4 : aI", "a", "A 4 : aI", "A a"},
    {VM_Planimetric3D, "A 4 : aI bP-", "a", "A 4 : aI", "A a"},
    {VM_Planimetric3D, "A 4 : aI bH cP", "a", "A 4 : aI bH cP", "A a"},
    {VM_Planimetric3D, "A 4 : aI bH- cP", "a", "A 4 : aH cP", "A a"},
    {VM_Planimetric3D, "A 4- : aI bH cP", "a", "A 4- : aH bH cP", "A a"},
    {VM_Planimetric3D, "A 4 : aI bI", "a", "A 4 : aH bI", "A a"},
};

TEST(VdsDoc, PrunesForA3DView)
{
    for (const PruneCase &c : kPruneCases) {
        SCOPED_TRACE(std::string(c.layout) + " in view " + std::to_string(c.view));
        Layout layout = parse(c.layout);
        Alg a(layout.specs);
        algorithm *alg = a.alg;
        alg->view_mode = c.view;
        stream *current = a.st(c.current);
        alg->current_surface = surface_of_stream(alg, current);
        alg->current_surface->selected = 1;
        alg->current_stream = alg->intensity_input = alg->height_input = current;
        alg->intensity_streaminput = alg->height_streaminput = current->stream_inputs;
        for (const auto &s : layout.specs)
            for (const auto &st : s.streams) a.st(st.name)->do_static_shade = 1;

        vds_setup_alg_for_de(alg);

        EXPECT_EQ(describe(alg), c.expected);
        std::string now = alg->current_surface ? alg->current_surface->name : "null";
        now += std::string(" ") + algfix::name_of(alg->current_stream);
        EXPECT_EQ(now, c.current_after);
        EXPECT_TRUE(alg->current_surface->selected);
        EXPECT_EQ(surface_of_stream(alg, alg->current_stream), alg->current_surface);
        // The inputs stay selected only while their layer stays current.
        const bool kept = alg->current_stream == current;
        EXPECT_EQ(alg->intensity_input, kept ? current : nullptr);
        EXPECT_EQ(alg->height_input, kept ? current : nullptr);
        for (const surface *s = alg->surfaces; s; s = s->next)
            for (const stream *st = s->first_stream; st; st = st->next)
                if (std::string(st->description) == "a") {
                    EXPECT_EQ(st->do_static_shade, st->type == ST_Height ? 0 : 1);
                }
    }
}

TEST(VdsDoc, PruningLeavesNoSelectionOnAFreedLayer)
{
    Alg a({{"A", CM_PSEUDO, false, {{"a", ST_Pseudo}, {"b", ST_Pseudo, true}}}});
    algorithm *alg = a.alg;
    alg->view_mode = VM_Planimetric3D;
    alg->current_stream = a.st("a");
    alg->intensity_input = a.st("b");  // selected elsewhere than the current layer
    alg->height_input = a.st("a");
    vds_setup_alg_for_de(alg);
    EXPECT_EQ(describe(alg), "A 4 : aP");
    EXPECT_EQ(alg->intensity_input, nullptr);
    EXPECT_EQ(alg->height_input, a.st("a"));
    EXPECT_TRUE(in_document(alg, alg->current_stream));
    vds_setup_alg_for_de(nullptr);
}

/* ---------------------------------------------------------------- fitting to a window or page */

class Doc {
   public:
    algorithm *alg = nullptr;
    Doc(double br_x, double br_y)
    {
        EXPECT_EQ(df_algorithm(&alg), 0);
        *alg->bottom_right = {br_x, br_y, std::nan("")};
    }
    ~Doc() { ef_algorithm(alg); }
    Doc(const Doc &) = delete;
    Doc &operator=(const Doc &) = delete;
};

TEST(VdsDoc, ThreeDViewKeepsItsWindowAspect)
{
    // The image of ratio r inches across to 1 down fills the window one way.
    const struct {
        double ratio;
        int width, height;
        double dpi_x, dpi_y;
        int out_w, out_h;
    } cases[] = {
        {2.0, 800, 600, 100, 100, 800, 400},         // wider than the window: full width
        {1.0, 800, 600, 100, 100, 600, 600},         // narrower: full height
        {2.0, 800, 600, 100, 200, 600, 600},         // window 8 by 3 inches: 6 inches across
        {4.0, 800, 600, 100, 200, 800, 400},         // 8 by 2 inches
        {3.0, 1000, 1000, 96, 96, 1000, 333},        // truncated
        {1.0 / 3.0, 1000, 1000, 96, 96, 333, 1000},  // truncated
        {0.0, 0, 600, 100, 100, 0, 0},               // no window and no ratio: no pixels
    };
    for (const auto &c : cases) {
        Doc d(1000, 1000);
        d.alg->view_mode = VM_Perspective3D;
        d.alg->d3info.window_aspect_ratio = c.ratio;
        d.alg->output_width = c.width;  // no change of size: still 1
        d.alg->output_height = c.height;
        EXPECT_EQ(vln_rethink_alg(d.alg, c.width, c.height, c.dpi_x, c.dpi_y), 1);
        EXPECT_EQ(d.alg->output_width, c.out_w) << c.ratio;
        EXPECT_EQ(d.alg->output_height, c.out_h) << c.ratio;
        EXPECT_EQ(d.alg->dots_per_inch_across, c.dpi_x);
        EXPECT_EQ(d.alg->dots_per_inch_down, c.dpi_y);
    }
    EXPECT_EQ(vln_rethink_alg(nullptr, 1, 1, 1, 1), 0);
}

TEST(VdsDoc, PageFollowsTheImage)
{
    // A letter page, 215.9 by 279.4 mm; contents in metres of a raw space.
    const struct {
        double br_x, br_y;
        double scale, bottom, right;
    } cases[] = {
        {1000, 1000, 1e6 / 215.9, 2.5, 0},  // fills the width, 8.5 inches down
        {2000, 500, 2e6 / 215.9, 11 - 2.125, 0},
        {100, 1000, 1e6 / 279.4, 0, 8.5 - 1.1},  // fills the height, 1.1 inches across
    };
    for (const auto &c : cases) {
        Doc d(c.br_x, c.br_y);
        pagesize &p = d.alg->page;
        p.top_border = p.bottom_border = p.left_border = p.right_border = 1.0;
        EXPECT_EQ(vln_rethink_alg(d.alg, 400, 300, 72, 72), 1);
        EXPECT_NEAR(p.scale, c.scale, 1e-6 * c.scale);
        EXPECT_NEAR(p.bottom_border, c.bottom, 1e-9);
        EXPECT_NEAR(p.right_border, c.right, 1e-9);
        EXPECT_EQ(p.top_border + p.left_border, 0.0);
        // The paper at that scale, from the contents' top-left.
        EXPECT_NEAR(p.page_extents.bottom_right.x, 215.9 * c.scale / 1000, 1e-6);
        EXPECT_NEAR(p.page_extents.bottom_right.y, 279.4 * c.scale / 1000, 1e-6);
        EXPECT_EQ(p.content_extents.bottom_right.x, c.br_x);
        EXPECT_EQ(d.alg->dots_per_inch_across, 72);
        EXPECT_EQ(d.alg->dots_per_inch_down, 72);
    }
}

TEST(VdsDoc, ResultSaysWhetherSizeOrPageChanged)
{
    Doc d(1000, 1000);
    EXPECT_EQ(vln_rethink_alg(d.alg, 400, 300, 72, 72), 1);
    EXPECT_EQ(vln_rethink_alg(d.alg, 400, 300, 96, 96), 0);
    EXPECT_EQ(d.alg->dots_per_inch_across, 96);
    EXPECT_EQ(vln_rethink_alg(d.alg, 401, 300, 96, 96), 1);
    EXPECT_EQ(d.alg->output_width, 401);
    // Panning the image takes the page along.
    *d.alg->top_left = {500, 200, std::nan("")};
    *d.alg->bottom_right = {1500, 1200, std::nan("")};
    EXPECT_EQ(vln_rethink_alg(d.alg, 401, 300, 96, 96), 1);
    EXPECT_EQ(d.alg->page.page_extents.top_left.x, 500);
    EXPECT_EQ(d.alg->page.page_extents.top_left.y, 200);
    EXPECT_EQ(vln_rethink_alg(d.alg, 401, 300, 96, 96), 0);
    // A fixed page doesn't move, so only the size counts.
    d.alg->page.page_constraint = PC_Page;
    EXPECT_EQ(vln_rethink_alg(d.alg, 401, 300, 96, 96), 0);
}

TEST(VdsDoc, FixedPageFitsTheWindow)
{
    // A page of 10 by 5 inches over 4000 by 1000 units; contents of 1000 by
    // 1000. A window of aspect at most the contents' is fitted across.
    const struct {
        int width, height;
        double page_br_x;
        double dpi;
    } cases[] = {
        {400, 800, 4000, 100 / (10.0 / 4 * 1000 / 4000)},  // across: 160
        {800, 400, 4000, 100 / (5.0 / 4 * 1000 / 1000)},   // down: 80
        {400, 800, 0, 100},                                // a page of no width: factor 1
    };
    for (const auto &c : cases) {
        Doc d(1000, 1000);
        pagesize &p = d.alg->page;
        p.page_constraint = PC_Page;
        p.page_width = 10;
        p.page_height = 5;
        p.page_extents = {{0, 0, 0}, {c.page_br_x, 1000, 0}};
        EXPECT_EQ(vln_rethink_alg(d.alg, c.width, c.height, 100, 100), 1);
        EXPECT_NEAR(d.alg->dots_per_inch_across, c.dpi, 1e-9);
        EXPECT_NEAR(d.alg->dots_per_inch_down, c.dpi, 1e-9);
    }
}

TEST(VdsDoc, FixedPageInATurnedSpace)
{
    // Contents of 1000 by 500 turned a quarter: 500 across, 1000 down. The
    // canvas is 600 by 300 pixels; the page 10 by 5 inches with borders.
    const struct {
        int width, height;
        double dpi;
    } cases[] = {
        {800, 400, 100 / ((10 - 1 - 1) / 8.0 * 600 / 500)},      // across
        {800, 200, 100 / ((5 - 0.5 - 0.5) / 2.0 * 300 / 1000)},  // down
    };
    for (const auto &c : cases) {
        Doc d(1000, 500);
        d.alg->coordspace->rotation = std::acos(-1.0) / 2;
        d.alg->canvas_width = 600;
        d.alg->canvas_height = 300;
        pagesize &p = d.alg->page;
        p.page_constraint = PC_Page;
        p.page_width = 10;
        p.page_height = 5;
        p.left_border = p.right_border = 1;
        p.top_border = p.bottom_border = 0.5;
        vln_rethink_alg(d.alg, c.width, c.height, 100, 100);
        EXPECT_NEAR(d.alg->dots_per_inch_across, c.dpi, 1e-9);
    }
    // Without a canvas the aspect is fitted once, and the setting put back.
    Doc d(1000, 500);
    d.alg->coordspace->rotation = 0.3;
    d.alg->page.page_constraint = PC_Page;
    d.alg->enforce_aspect = 0;
    vln_rethink_alg(d.alg, 800, 400, 100, 100);
    EXPECT_EQ(d.alg->enforce_aspect, 0);
    EXPECT_GT(d.alg->dots_per_inch_across, 0.0);
    EXPECT_TRUE(std::isfinite(d.alg->dots_per_inch_across));
}

/* ---------------------------------------------------------------- output size of a 3D view */

TEST(VdsDoc, ThreeDOutputSizeCountsLines)
{
    coords::Space raw(CST_RAW, "RAW", "RAW", "natural");
    dshdr dsh = coords::raster(raw.cs, 4, 2, 0, 0, coords::at(0, 0));
    Doc d(50, 64);
    *d.alg->top_left = coords::at(10, 4);
    d.alg->d3info.window_aspect_ratio = 1.5;
    double w = -1, h = -1;
    EXPECT_EQ(vds_calc_3d_alg_output_size(d.alg, &dsh, &w, &h), 0);
    EXPECT_EQ(w, -1);  // a 2D view: nothing
    EXPECT_EQ(vds_calc_3d_alg_output_size(nullptr, &dsh, &w, &h), 0);
    d.alg->view_mode = VM_Flythrough;
    EXPECT_EQ(vds_calc_3d_alg_output_size(d.alg, nullptr, &w, &h), 0);
    EXPECT_EQ(w, -1);

    EXPECT_EQ(vds_calc_3d_alg_output_size(d.alg, &dsh, &w, &h), 0);
    EXPECT_EQ(h, 30);  // lines 2 to 32
    EXPECT_EQ(w, 45);
    d.alg->bottom_right->x = 5000;  // the cells across don't enter
    EXPECT_EQ(vds_calc_3d_alg_output_size(d.alg, &dsh, &w, &h), 0);
    EXPECT_EQ(w, 45);
}

/* A stand-in engine that can't carry a point east of 0.5 radians. */
int transform_west_only(double *x, double *y, double *z, double *ox, double *oy, double *oz)
{
    if (*x > 0.5) return -1;
    return coords::kFakeTable.transform(x, y, z, ox, oy, oz);
}

TEST(VdsDoc, ThreeDOutputSizeOfACornerWithoutCell)
{
    Doc d(1000, 1000);
    d.alg->view_mode = VM_Perspective3D;
    double w = -1, h = -1;
    dshdr none{};  // neither raster nor vector
    EXPECT_EQ(vds_calc_3d_alg_output_size(d.alg, &none, &w, &h), VLD_ERR_INTERNAL);
    EXPECT_EQ(VLD_error.code, VLD_ERR_INTERNAL);
    EXPECT_STREQ(VLD_error.text, "Internal error: \"cvt_coord_to_cell() failed on TL coord\"");

    coords::FakeEngine engine;
    coords::fake = &engine;
    vld::CoordEngine table = coords::kFakeTable;
    table.transform = transform_west_only;
    const vld::CoordEngine *before = vld::coord_engine();
    vld::set_coord_engine(&table);
    coords::Space ll(CST_LL, "WGS84", "FLAT", "METERS");
    dshdr dsh = coords::raster(ll.cs, 1000, 1000, 0, 0, coords::at(0, 0));
    *d.alg->top_left = coords::at(0.1, 0.2);
    *d.alg->bottom_right = coords::at(0.6, 0.1);
    EXPECT_EQ(vds_calc_3d_alg_output_size(d.alg, &dsh, &w, &h), VLD_ERR_INTERNAL);
    EXPECT_STREQ(VLD_error.text, "Internal error: \"cvt_coord_to_cell() failed on BR coord\"");
    EXPECT_EQ(w, -1);
    vld::set_coord_engine(before);
    coords::fake = nullptr;
}

}  // namespace
