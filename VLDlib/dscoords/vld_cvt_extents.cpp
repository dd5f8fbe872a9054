/*
 * vld_cvt_extents.cpp: the extents of a dataset in another space.
 *
 * A grid carried into another projection is no longer a rectangle, so its
 * extents there are found by walking its edges, about a hundred points a side,
 * and keeping the least and greatest coordinates. A rotated grid is first
 * turned square to the map axes, and a rotated target turns the result back:
 * the grid of a turned rectangle is the rectangle that holds all of it.
 *
 * Also here is the round trip that tells whether an area lies where its
 * projection can be used: far outside it, a point does not come back from
 * latitude and longitude to where it started.
 */
#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "vld_coords_internal.h"
#include "vld_dshdr_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

int nint(double v)
{
    return static_cast<int>(std::lround(v));
}

/* The size of a dataset in cells and lines; a vector counts the cells of its
 * extents. */
int grid_size(const dshdr *dsh, int &cells, int &lines)
{
    if (dsh->data_type == DT_Raster) {
        cells = dsh->info.r.nr_cells;
        lines = dsh->info.r.nr_lines;
        return 0;
    }
    double cx, cy;
    if (int status = cvt_coord_to_cell(dsh, &dsh->info.v.extents.bottom_right, &cx, &cy))
        return status;
    cells = nint(std::fabs(cx));
    lines = nint(std::fabs(cy));
    return 0;
}

/* A raster header in `space` over its own strings that the caller fills in. */
dshdr bare_raster(const coordspace &space)
{
    dshdr h{};
    h.data_type = DT_Raster;
    h.coordspace = space;
    return h;
}

/* The rectangle, square to a grid turned by `angle`, that holds all of `h`:
 * its corners come back in `tl` and `br`. */
int rotated_extents(double angle, dshdr *h, dscoord &tl, dscoord &br)
{
    vld::CellGeometry g;
    if (int status = vld::cell_geometry(h, g)) return status;
    int cells, lines;
    if (int status = grid_size(h, cells, lines)) return status;

    dshdr t = bare_raster(h->coordspace);
    t.coordspace.rotation = angle;
    rasterinfo &r = t.info.r;
    r.cellinfo.x_dimension = g.xd;
    r.cellinfo.y_dimension = g.yd;
    r.registration_coord = g.reg;

    const double w = cells * g.xd, hgt = lines * g.yd;
    r.nr_cells = nint((std::fabs(w * std::cos(angle)) + std::fabs(hgt * std::sin(angle))) / g.xd);
    r.nr_lines = nint((std::fabs(w * std::sin(angle)) + std::fabs(hgt * std::cos(angle))) / g.yd);

    // The offsets of the corners read the same angle as degrees; the grid
    // laid out above reads it as radians. Both readings are kept as they are.
    const double c = std::cos(angle * kPi / 180.0), s = std::sin(angle * kPi / 180.0);
    auto turn = [&](double x, double y) { return std::pair{x * c + y * s, y * c - x * s}; };
    double min_x = 0, min_y = 0;
    for (auto [x, y] : {turn(w, 0), turn(w, hgt), turn(0, hgt)}) {
        min_x = std::min(min_x, x);
        min_y = std::min(min_y, y);
    }
    auto [reg_x, reg_y] = turn(g.rx * g.xd, g.ry * g.yd);
    r.registration_cell_x = (reg_x - min_x) / g.xd;
    r.registration_cell_y = (reg_y - min_y) / g.yd;

    double lo_x = HUGE_VAL, lo_y = HUGE_VAL, hi_x = -HUGE_VAL, hi_y = -HUGE_VAL;
    const double corners[4][2] = {
        {0, 0}, {double(cells), 0}, {double(cells), double(lines)}, {0, double(lines)}};
    for (const auto &corner : corners) {
        dscoord at;
        double cx, cy;
        int status = cvt_cell_to_coord(h, corner[0], corner[1], &at);
        if (!status) status = cvt_coord_to_cell(&t, &at, &cx, &cy);
        if (status) return status;
        lo_x = std::min(lo_x, cx);
        lo_y = std::min(lo_y, cy);
        hi_x = std::max(hi_x, cx);
        hi_y = std::max(hi_y, cy);
    }
    int status = cvt_cell_to_nonLL_coord(&t, lo_x, lo_y, &tl);
    if (!status) status = cvt_cell_to_nonLL_coord(&t, hi_x, hi_y, &br);
    if (status) return status;
    const coordspace &ts = t.coordspace;
    if (ts.coordsystype == CST_LL && ts.projection && std::strcmp(ts.projection, "GEODETIC") == 0) {
        for (dscoord *p : {&tl, &br}) {
            p->x *= 180.0 / kPi;
            p->y *= 180.0 / kPi;
        }
    }
    return 0;
}

/* An derotated raster in `space` that spans the corners, its size the number
 * of the dataset's cells between them; `scale` multiplies the cell sizes. */
int spanning_raster(const coordspace &space, double rotation, dshdr *dsh, const dscoord &tl,
                    const dscoord &br, double scale, dshdr &out)
{
    double x0, y0, x1, y1;
    int status = cvt_any_coord_to_cell(&space, &tl, dsh, &x0, &y0);
    if (!status) status = cvt_any_coord_to_cell(&space, &br, dsh, &x1, &y1);
    if (status) return status;
    int cells = std::max(1, static_cast<int>(std::max(x0, x1) - std::min(x0, x1) + 0.5));
    int lines = std::max(1, static_cast<int>(std::max(y0, y1) - std::min(y0, y1) + 0.5));
    out = bare_raster(space);
    out.coordspace.rotation = rotation;
    rasterinfo &r = out.info.r;
    r.nr_cells = cells;
    r.nr_lines = lines;
    r.cellinfo.x_dimension = (br.x - tl.x) / cells * scale;
    r.cellinfo.y_dimension = (tl.y - br.y) / lines * scale;
    r.registration_coord = tl;
    return 0;
}

/* The least and greatest coordinates in `target` of the edges of `h`. */
int walk_edges(dshdr *h, const coordspace *target, dscoord &tl, dscoord &br)
{
    int cells, lines;
    if (int status = grid_size(h, cells, lines)) return status;
    const int step_x = std::max(1, cells / 100), step_y = std::max(1, lines / 100);
    double lo_x = HUGE_VAL, lo_y = HUGE_VAL, hi_x = -HUGE_VAL, hi_y = -HUGE_VAL;
    auto visit = [&](double cx, double cy) {
        dscoord c;
        if (int status = cvt_cell_to_any_coord(h, cx, cy, target, &c)) return status;
        lo_x = std::min(lo_x, c.x);
        lo_y = std::min(lo_y, c.y);
        hi_x = std::max(hi_x, c.x);
        hi_y = std::max(hi_y, c.y);
        return 0;
    };
    // Each edge from 0 to its far end, the far end always included.
    auto along = [](int n, int step, auto &&f) {
        for (int i = 0;; i += step) {
            if (i > n) i = n;
            if (int status = f(i)) return status;
            if (i == n) return 0;
        }
    };
    int status = along(cells, step_x, [&](int x) { return visit(x, 0); });
    if (!status) status = along(lines, step_y, [&](int y) { return visit(cells, y); });
    if (!status) status = along(cells, step_x, [&](int x) { return visit(x, lines); });
    if (!status) status = along(lines, step_y, [&](int y) { return visit(0, y); });
    if (status) return status;
    tl = dscoord{lo_x, hi_y, vln_nanval()};
    br = dscoord{hi_x, lo_y, vln_nanval()};
    return 0;
}

}  // namespace

int VLN_calculate_reprojected_extents(const coordspace *target, dshdr *dsh, dscoord *top_left,
                                      dscoord *bottom_right)
{
    if (!target || !dsh || !top_left || !bottom_right)
        return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    dscoord tl = *top_left, br = *bottom_right;
    const coordspace &own = dsh->coordspace;

    const bool derotated = own.rotation != 0.0;
    if (derotated)
        if (int status = rotated_extents(0.0, dsh, tl, br)) return status;

    const bool reprojected = !(vld::same_word(target->datum, own.datum) &&
                               vld::same_word(target->projection, own.projection));
    if (reprojected) {
        dshdr square;
        dshdr *walked = dsh;
        if (derotated) {
            if (int status = spanning_raster(own, 0.0, dsh, tl, br, 1.0, square)) return status;
            walked = &square;
        }
        if (int status = walk_edges(walked, target, tl, br)) return status;
    }

    if (!(target->rotation == own.rotation && target->rotation == 0.0)) {
        if (!reprojected) {
            if (int status = rotated_extents(target->rotation, dsh, tl, br)) return status;
        } else {
            double f = target->meter_factor;
            dshdr there;
            int status =
                spanning_raster(*target, derotated ? 0.0 : own.rotation, dsh, tl, br, f, there);
            if (!status) status = rotated_extents(target->rotation, &there, tl, br);
            if (status) return status;
        }
    }
    *top_left = tl;
    *bottom_right = br;
    return 0;
}

int VLN_check_coords_round_trip(const coordspace *space, const dscoord *top_left,
                                const dscoord *bottom_right, int32_t nr_cells, int32_t nr_lines)
{
    if (!space || !top_left || !bottom_right) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    if (is_raw_cspace(space) || space->coordsystype == CST_RAW || space->coordsystype == CST_None)
        return 0;
    if (!space->projection || std::strcmp(space->projection, "GEODETIC") == 0 ||
        std::strcmp(space->projection, "LOCAL") == 0)
        return 0;

    vld::SpaceCopy grid(space, CST_EN);
    vld::SpaceCopy geo(space, CST_LL);
    dscoord a = *top_left, b = *bottom_right;
    if (space->coordsystype == CST_LL) {
        int status = cvt_any_coord_to_coord(space, top_left, &grid.cs, &a);
        if (!status) status = cvt_any_coord_to_coord(space, bottom_right, &grid.cs, &b);
        if (status) return status;
    }
    const double f = space->meter_factor;
    const double tolerance = f == 0.0 ? 1.0 : 1.0 / f;
    const int across = std::max(nr_cells, 1) / std::max(1, nr_cells / 100);
    const int down = std::max(nr_lines, 1) / std::max(1, nr_lines / 100);
    const int points = std::max(across, down);
    for (int i = 0; i <= points; i++) {
        double t = static_cast<double>(i) / points;
        dscoord p = {a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t, vln_nanval()}, ll, back;
        int status = cvt_any_coord_to_coord(&grid.cs, &p, &geo.cs, &ll);
        if (!status) status = cvt_any_coord_to_coord(&geo.cs, &ll, &grid.cs, &back);
        if (status) return status;
        if (std::fabs(back.x - p.x) >= tolerance || std::fabs(back.y - p.y) >= tolerance)
            return VLD_setup_error(VLD_ERR_CELLS_OUTSIDE_DATASET);
    }
    return 0;
}
