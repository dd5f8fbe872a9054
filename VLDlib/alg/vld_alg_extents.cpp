/*
 * vld_alg_extents.cpp: the area that an algorithm's layers cover.
 *
 * Each layer's corners are brought into the algorithm's coordinate space and
 * then onto the cells of the algorithm's own grid (the header that the
 * algorithm implies as a virtual dataset), where the outermost cells are kept.
 * The result goes back to coordinates of the algorithm's space. A virtual
 * dataset among the layers may be measured by its own layers instead.
 */
#include <cfloat>
#include <cmath>
#include <cstring>

#include "vld_alg.h"
#include "vld_coords.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Flags {
    int raster, height, vector, virtual_ds;
    int turned_off_surfaces, turned_off_streams, invalid_streams;
};

/* The outermost cells found so far. */
struct CellBounds {
    double min_x = DBL_MAX, min_y = DBL_MAX;
    double max_x = -DBL_MAX, max_y = -DBL_MAX;
    bool found = false;
};

bool is_geodetic(const coordspace *cs)
{
    return cs && cs->coordsystype == CST_LL && cs->projection &&
           strcmp(cs->projection, "GEODETIC") == 0;
}

/* cvt_coord_to_cell with the corner in radians also for a "GEODETIC" grid,
 * whose form of the conversion takes degrees. */
int corner_to_cell(const dshdr *grid, const dscoord &corner, double *cx, double *cy)
{
    dscoord c = corner;
    if (is_geodetic(&grid->coordspace)) {
        c.x *= 180.0 / kPi;
        c.y *= 180.0 / kPi;
    }
    return cvt_coord_to_cell(grid, &c, cx, cy);
}

/* Whether the layer's space is the algorithm's. A "GEODETIC" algorithm shows
 * its layers in a space marked with the layer's own type, so the comparison
 * is made again with that type. */
bool same_space(const coordspace *layer, const coordspace *alg_space)
{
    if (coordspaces_equal(layer, alg_space)) return true;
    if (!alg_space || !alg_space->projection || strcmp(alg_space->projection, "GEODETIC") != 0)
        return false;
    coordspace as_layer = *alg_space;
    as_layer.coordsystype = layer->coordsystype;
    return coordspaces_equal(layer, &as_layer) != 0;
}

int calc_extents(algorithm *alg, dscoord *top_left, dscoord *bottom_right, const Flags &f);

/* The layer's corners in its own space: the cached ones when it has no header
 * or may be drawn in any space, else the header's; a virtual dataset with the
 * flag set is measured through its own algorithm. */
int layer_corners(const stream *st, const Flags &f, const coordspace **space, dscoord *tl,
                  dscoord *br)
{
    const dshdr *h = st->dshdr;
    if (!h || st->multiple_coordspaces) {
        *space = &st->coordspace;
        *tl = st->top_left;
        *br = st->bottom_right;
        return 0;
    }
    if (h->algorithm && f.virtual_ds) {
        *space = h->algorithm->coordspace;
        return calc_extents(h->algorithm, tl, br, f);
    }
    *space = &h->coordspace;
    return setup_extents_from_dsh(h, tl, br);
}

/* Takes one layer into the bounds; a layer whose corners can't be carried
 * into the algorithm's grid is left out. */
void add_layer(const algorithm *alg, const dshdr *grid, const stream *st, const Flags &f,
               CellBounds &b)
{
    bool link = st->type == ST_DynamicLink;
    if (link ? !f.vector : !f.raster) return;
    const coordspace *space = nullptr;
    dscoord tl{}, br{};
    if (layer_corners(st, f, &space, &tl, &br)) return;
    if (!same_space(space, alg->coordspace)) {
        dscoord a, c;
        if (cvt_any_coord_to_coord(space, &tl, alg->coordspace, &a) ||
            cvt_any_coord_to_coord(space, &br, alg->coordspace, &c))
            return;
        tl = a;
        br = c;
    }
    double x0, y0, x1, y1;
    if (corner_to_cell(grid, tl, &x0, &y0) || corner_to_cell(grid, br, &x1, &y1)) return;
    b.min_x = std::fmin(b.min_x, x0);
    b.min_y = std::fmin(b.min_y, y0);
    b.max_x = std::fmax(b.max_x, x1);
    b.max_y = std::fmax(b.max_y, y1);
    b.found = true;
}

int calc_extents(algorithm *alg, dscoord *top_left, dscoord *bottom_right, const Flags &f)
{
    if (!alg) return VLD_setup_error(VLD_ERR_NO_ALG);
    if (!top_left || !bottom_right)
        return VLD_setup_error(VLD_ERR_INTERNAL, "VLN_calc_alg_abs_extents: null corner");

    // The algorithm's grid, made with its surface's mode left as it was.
    dshdr grid{};
    grid.algorithm = alg;
    int saved_mode = alg->surfaces ? alg->surfaces->color_mode : 0;
    int status = VLD_setup_dsh_from_alg(&grid);
    if (alg->surfaces) alg->surfaces->color_mode = saved_mode;
    grid.algorithm = nullptr;
    if (status) {
        ef_dshdr_contents(&grid);
        return status;
    }

    CellBounds b;
    for (const surface *s = alg->surfaces; s; s = s->next) {
        if (s->turned_off && !f.turned_off_surfaces) continue;
        for (const stream *st = s->first_stream; st; st = st->next) {
            if (st->turned_off && !f.turned_off_streams) continue;
            if (!stream_is_valid(st, s->color_mode) && !f.invalid_streams) continue;
            if (st->type == ST_Height && !f.height) continue;
            add_layer(alg, &grid, st, f, b);
        }
    }

    if (b.found) {
        status = cvt_cell_to_coord(&grid, b.min_x, b.min_y, top_left);
        if (!status) status = cvt_cell_to_coord(&grid, b.max_x, b.max_y, bottom_right);
    } else {
        cvt_cell_to_coord(&grid, 0.0, 0.0, top_left);
        cvt_cell_to_coord(&grid, 0.0, 0.0, bottom_right);
        status = VLD_setup_error(VLD_ERR_NO_DATASET);
    }
    ef_dshdr_contents(&grid);
    return status;
}

}  // namespace

int VLN_calc_alg_abs_extents(algorithm *alg, dscoord *top_left, dscoord *bottom_right, int raster,
                             int height, int vector, int virtual_ds, int turned_off_surfaces,
                             int turned_off_streams, int invalid_streams)
{
    Flags f{raster,         height, vector, virtual_ds, turned_off_surfaces, turned_off_streams,
            invalid_streams};
    return calc_extents(alg, top_left, bottom_right, f);
}
