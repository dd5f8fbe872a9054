// Fitting a map window to its output: which side of the canvas shrinks, and
// where the far corner moves.
#include "coords_fixture.h"

namespace {

using namespace coords;

struct Fit {
    const char *name;
    dscoord top_left, bottom_right;
    int width, height;
    bool dataset_surface;
    double dpi_x, dpi_y;
    int canvas_width, canvas_height;
    dscoord adjusted;
};

TEST(CoordsAspect, CanvasAndFarCorner)
{
    Space en(CST_EN, "WGS84", "NUTM50");
    const Fit fits[] = {
        {"wide map", at(0, 1000), at(2000, 0), 100, 100, false, 100, 100, 100, 50, at(2000, -1000)},
        {"tall map", at(0, 2000), at(1000, 0), 100, 100, false, 100, 100, 50, 100, at(2000, 0)},
        {"same shape", at(0, 1000), at(1000, 0), 300, 300, false, 72, 72, 300, 300, at(1000, 0)},
        // 100 by 50 pixels at 100 by 50 dots per inch is a square inch.
        {"square in inches", at(0, 1000), at(1000, 0), 100, 50, false, 100, 50, 100, 50,
         at(1000, 0)},
        {"cells of a dataset", at(0, 2000), at(2000, 0), 200, 100, true, 1, 1, 100, 100,
         at(4000, 0)},
    };
    for (const Fit &t : fits) {
        vld::AspectFrame f{};
        f.space = &en.cs;
        f.top_left = t.top_left;
        f.bottom_right = t.bottom_right;
        f.output_width = t.width;
        f.output_height = t.height;
        f.planimetric = f.enforce_aspect = true;
        f.dataset_surface = t.dataset_surface;
        ASSERT_EQ(vld::aspect_fit(f, t.dpi_x, t.dpi_y), 0) << t.name;
        EXPECT_EQ(f.canvas_width, t.canvas_width) << t.name;
        EXPECT_EQ(f.canvas_height, t.canvas_height) << t.name;
        EXPECT_NEAR(f.adjusted_bottom_right.x, t.adjusted.x, 1e-9) << t.name;
        EXPECT_NEAR(f.adjusted_bottom_right.y, t.adjusted.y, 1e-9) << t.name;
        EXPECT_EQ(dscoord_cmp(&f.canvas_top_left, &t.top_left), 0) << t.name;
    }
}

TEST(CoordsAspect, WhenNothingIsFitted)
{
    Space en(CST_EN, "WGS84", "NUTM50");
    vld::AspectFrame f{};
    f.space = &en.cs;
    f.top_left = at(0, 1000);
    f.bottom_right = at(2000, 0);
    f.output_width = 100;
    f.output_height = 100;
    f.adjusted_bottom_right = at(-1, -1);

    ASSERT_EQ(vld::aspect_fit(f, 100, 100), 0);  // not a flat view: canvas only
    EXPECT_EQ(f.canvas_width, 100);
    EXPECT_EQ(f.adjusted_bottom_right.x, -1);

    f.planimetric = true;  // aspect not enforced: corners only
    f.canvas_top_left = at(5, 5);
    ASSERT_EQ(vld::aspect_fit(f, 100, 100), 0);
    EXPECT_EQ(f.canvas_height, 100);
    EXPECT_EQ(f.adjusted_bottom_right.x, 2000);
    EXPECT_EQ(f.canvas_top_left.x, 5);  // set ones are kept

    f.output_height = 0;
    EXPECT_EQ(vld::aspect_fit(f, 100, 100), 72);
    EXPECT_STREQ(VLD_error_text(), "Algorithm internally corrupt");
}

}  // namespace
