/*
 * vld_cvt_fit.cpp: fitting a map window to the size of its output.
 *
 * An algorithm names the corners of the map it shows and the output's size in
 * pixels. When the two have different shapes and the aspect is enforced, the
 * map is drawn at one scale across and down into the top-left part of the
 * output (the canvas), and the far corner is moved so that the map at that
 * scale covers the whole output; what the canvas doesn't cover is filled with
 * nulls by the engine.
 */
#include <cmath>

#include "vld_coords_internal.h"

namespace {

bool unset(const dscoord &c)
{
    return c.x == 0.0 && c.y == 0.0;
}

}  // namespace

int vld::aspect_fit(AspectFrame &f, double dpi_x, double dpi_y)
{
    f.canvas_width = f.output_width;
    f.canvas_height = f.output_height;
    if (!f.planimetric) return 0;
    f.adjusted_bottom_right = f.bottom_right;
    if (f.canvas_width == 0 || f.canvas_height == 0) return VLD_setup_error(VLD_ERR_ALG_CORRUPT);
    if (unset(f.canvas_top_left) && unset(f.canvas_bottom_right)) {
        f.canvas_top_left = f.top_left;
        f.canvas_bottom_right = f.bottom_right;
    }
    if (!f.enforce_aspect) return 0;

    // The corners in cells of a vector header laid over them: its cells are
    // one map unit, so the span in cells is the span in map units.
    dshdr frame{};
    frame.data_type = DT_Vector;
    if (f.space) frame.coordspace = *f.space;
    frame.info.v.extents.top_left = f.top_left;
    frame.info.v.extents.bottom_right = f.bottom_right;
    double x0, y0, x1, y1;
    int status = cvt_any_coord_to_cell(f.space, &f.top_left, &frame, &x0, &y0);
    if (!status) status = cvt_any_coord_to_cell(f.space, &f.bottom_right, &frame, &x1, &y1);
    if (status) return status;
    double span_x = x1 - x0, span_y = y1 - y0;

    // The window in inches, or in cells where dots don't matter.
    double window_x = f.output_width, window_y = f.output_height;
    if (!f.dataset_surface) {
        window_x /= dpi_x;
        window_y /= dpi_y;
    }
    double across = span_x / window_x, down = span_y / window_y;
    if (across < down) {
        f.canvas_width = static_cast<int32_t>(std::floor(span_x / down * dpi_x + 0.5));
        span_x = window_x * down;
    } else if (down < across) {
        f.canvas_height = static_cast<int32_t>(std::floor(span_y / across * dpi_y + 0.5));
        span_y = window_y * across;
    }
    return cvt_cell_to_coord(&frame, x0 + span_x, y0 + span_y, &f.adjusted_bottom_right);
}
