/*
 * vld_cvt_cell.cpp: cells of a dataset and coordinates of its space.
 *
 * A dataset is placed by one registration point: the coordinate that lies at
 * a given fractional cell, a cell size and a rotation of the grid. From these
 * the origin (the coordinate of cell (0, 0)) is found first and the cell is
 * then laid off from it, so that both directions share one origin and invert
 * each other exactly.
 *
 * Cell sizes are in metres. An EN space in other units divides by its meter
 * factor; a raw space runs down the page and ignores the factor; an LL space
 * either steps in degrees ("GEODETIC") or works in its projection's grid in
 * metres and goes back to latitude and longitude through the engine. A
 * rotation of exactly 0 and a factor of 0 or 1 skip their arithmetic, which
 * also keeps unrotated results exact.
 */
#include <cmath>
#include <cstring>

#include "vld_coords_internal.h"
#include "vld_dshdr_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

bool scaled(double f)
{
    return f != 0.0 && f != 1.0;
}

// Turns (a, b) by the grid's rotation, given as its cosine and sine.
void turn(double c, double s, double &a, double &b)
{
    double t = c * a - s * b;
    b = s * a + c * b;
    a = t;
}

/* The coordinate of cell (0, 0) in an EN space: the registration point less
 * the registration cell laid off along the (rotated) grid. */
void en_origin(const dshdr *dsh, const vld::CellGeometry &g, double c, double s, double &ox,
               double &oy)
{
    const double f = dsh->coordspace.meter_factor;
    double a = g.xd * g.rx, b = g.yd * g.ry;
    if (dsh->coordspace.rotation != 0.0) turn(c, s, a, b);
    if (scaled(f)) {
        a /= f;
        b /= f;
    }
    ox = g.reg.x - a;
    oy = g.reg.y + b;
}

int en_cell_to_coord(const dshdr *dsh, const vld::CellGeometry &g, double cell_x, double cell_y,
                     dscoord *out, double c, double s)
{
    const double f = dsh->coordspace.meter_factor;
    double ox, oy;
    en_origin(dsh, g, c, s, ox, oy);
    double a = g.xd * cell_x, b = g.yd * cell_y;
    if (dsh->coordspace.rotation != 0.0) turn(c, s, a, b);
    if (scaled(f)) {
        a /= f;
        b /= f;
    }
    out->x = ox + a;
    out->y = oy - b;
    out->z = vln_nanval();
    return 0;
}

int en_coord_to_cell(const dshdr *dsh, const vld::CellGeometry &g, const dscoord &in,
                     double *cell_x, double *cell_y, double c, double s)
{
    const double f = dsh->coordspace.meter_factor;
    double ox, oy;
    en_origin(dsh, g, c, s, ox, oy);
    double a = in.x - ox, b = oy - in.y;
    if (scaled(f)) {
        a *= f;
        b *= f;
    }
    // The inverse turn: by the negated sine.
    if (dsh->coordspace.rotation != 0.0) turn(c, -s, a, b);
    *cell_x = a / g.xd;
    *cell_y = b / g.yd;
    return 0;
}

/* Raw space runs down the page: the formulas work on y negated, and the
 * rotation turns the other way. */
void raw_origin(const dshdr *dsh, const vld::CellGeometry &g, double c, double s, double &ox,
                double &oy)
{
    double a = g.rx * g.xd, b = -g.ry * g.yd;
    if (dsh->coordspace.rotation != 0.0) {
        ox = g.reg.x - a * c - s * b;
        oy = -g.reg.y + s * a - b * c;
    } else {
        ox = g.reg.x - a;
        oy = -g.reg.y - b;
    }
}

int raw_cell_to_coord(const dshdr *dsh, const vld::CellGeometry &g, double cell_x, double cell_y,
                      dscoord *out, double c, double s)
{
    double ox, oy;
    raw_origin(dsh, g, c, s, ox, oy);
    double a = cell_x * g.xd, b = -cell_y * g.yd;
    double y;
    if (dsh->coordspace.rotation != 0.0) {
        out->x = a * c + s * b + ox;
        y = -s * a + b * c + oy;
    } else {
        out->x = a + ox;
        y = b + oy;
    }
    out->y = -y;
    out->z = vln_nanval();
    return 0;
}

int raw_coord_to_cell(const dshdr *dsh, const vld::CellGeometry &g, const dscoord &in,
                      double *cell_x, double *cell_y, double c, double s)
{
    double ox, oy;
    raw_origin(dsh, g, c, s, ox, oy);
    double a = in.x - ox, b = -in.y - oy;
    if (dsh->coordspace.rotation != 0.0) turn(c, s, a, b);
    *cell_x = a / g.xd;
    *cell_y = -b / g.yd;
    return 0;
}

bool raw_word(const char *s)
{
    return s && VLD_strcasecmp(s, "RAW") == 0;
}

bool geodetic(const coordspace &cs)
{
    return cs.projection && std::strcmp(cs.projection, "GEODETIC") == 0;
}

/* A shallow copy of a header whose space and registration may be replaced for
 * the length of one call; strings stay the caller's. */
dshdr working_copy(const dshdr *dsh, const coordspace &space, const dscoord &reg)
{
    dshdr copy = *dsh;
    copy.coordspace = space;
    vld::set_registration(&copy, reg);
    return copy;
}

/* An LL dataset that is not "GEODETIC": the cell is laid off in the grid of
 * its projection, in metres, and the result goes back to latitude and
 * longitude. */
int projected_ll_cell_to_coord(const dshdr *dsh, const vld::CellGeometry &g, double cell_x,
                               double cell_y, dscoord *out, double c, double s)
{
    const coordspace &cs = dsh->coordspace;
    vld::SpaceCopy geo(&cs, CST_LL);
    vld::SpaceCopy grid(&cs, CST_EN);
    grid.cs.meter_factor = 1.0;
    safe_free(grid.cs.units);
    grid.cs.units = strsave("METERS");
    if (!vld::coord_engine())
        return cvt_any_coord_to_coord(&geo.cs, &g.reg, &grid.cs, out);  // reports the failure

    dscoord reg;
    int status;
    {
        vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);  // the cached ids stay valid only inside the lock
        status =
            vld::engine_pass(vld::cached_geodetic_sys(cs.datum),
                             vld::cached_coord_sys(cs.datum, cs.projection, "METERS"), g.reg, reg);
    }
    if (status) return VLD_ERR_GEODETIC_TRANSFORM;

    dshdr copy = working_copy(dsh, grid.cs, reg);
    dscoord en;
    status = cvt_cell_to_coord_ex(&copy, cell_x, cell_y, &en, c, s);
    if (status) return status;

    vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);
    status = vld::engine_pass(vld::cached_coord_sys(cs.datum, cs.projection, "METERS"),
                              vld::cached_geodetic_sys(cs.datum), en, *out);
    return status ? VLD_ERR_GEODETIC_TRANSFORM : 0;
}

int ll_coord_to_cell(const dshdr *dsh, const vld::CellGeometry &g, const dscoord &in,
                     double *cell_x, double *cell_y, double c, double s)
{
    const coordspace &cs = dsh->coordspace;
    vld::SpaceCopy en(&cs, CST_EN);
    dscoord reg, point;
    int status;
    if (!geodetic(cs)) {
        status = cvt_coord_to_coord(&cs, &g.reg, &en.cs, &reg);
        if (!status) status = cvt_coord_to_coord(&cs, &in, &en.cs, &point);
    } else {
        // Registration to degrees; the coordinate is taken as given, in
        // degrees (kept: callers of this form hand in degrees).
        reg = g.reg;
        reg.x *= 180.0 / kPi;
        reg.y *= 180.0 / kPi;
        status = cvt_coord_to_coord(&en.cs, &in, &en.cs, &point);
    }
    if (status) return status;  // the conversion has set the error
    dshdr copy = working_copy(dsh, en.cs, reg);
    copy.data_type = DT_Raster;
    if (dsh->data_type == DT_Vector) {
        copy.info.r = rasterinfo{};
        copy.info.r.cellinfo.x_dimension = copy.info.r.cellinfo.y_dimension = 1.0;
        copy.info.r.registration_coord = reg;
    }
    return cvt_coord_to_cell_ex(&copy, &point, cell_x, cell_y, c, s);
}

/* The header marked EN, with its registration carried into that space, for
 * the length of one call; restored on every path. */
class TemporaryEN {
   public:
    explicit TemporaryEN(dshdr *dsh) : dsh_(dsh), type_(dsh->coordspace.coordsystype)
    {
        vld::CellGeometry g;
        status_ = vld::cell_geometry(dsh, g);
        if (status_) return;
        saved_ = g.reg;
        vld::SpaceCopy en(&dsh->coordspace, CST_EN);
        dscoord reg;
        status_ = cvt_any_coord_to_coord(&dsh->coordspace, &g.reg, &en.cs, &reg);
        if (status_) return;
        dsh->coordspace.coordsystype = CST_EN;
        vld::set_registration(dsh, reg);
        active_ = true;
    }
    ~TemporaryEN()
    {
        if (!active_) return;
        dsh_->coordspace.coordsystype = type_;
        vld::set_registration(dsh_, saved_);
    }
    TemporaryEN(const TemporaryEN &) = delete;
    TemporaryEN &operator=(const TemporaryEN &) = delete;
    int status() const { return status_; }

   private:
    dshdr *dsh_;
    int type_;
    dscoord saved_{};
    int status_ = 0;
    bool active_ = false;
};

}  // namespace

int vld::cell_geometry(const dshdr *dsh, CellGeometry &g)
{
    if (dsh->data_type == DT_Raster) {
        const rasterinfo &r = dsh->info.r;
        g.xd = r.cellinfo.x_dimension == 0.0 ? 1.0 : r.cellinfo.x_dimension;
        g.yd = r.cellinfo.y_dimension == 0.0 ? 1.0 : r.cellinfo.y_dimension;
        g.rx = r.registration_cell_x;
        g.ry = r.registration_cell_y;
        g.reg = r.registration_coord;
        return 0;
    }
    if (dsh->data_type == DT_Vector) {
        g.xd = g.yd = 1.0;
        g.rx = g.ry = 0.0;
        g.reg = dsh->info.v.extents.top_left;
        return 0;
    }
    return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
}

void vld::set_registration(dshdr *dsh, const dscoord &reg)
{
    if (dsh->data_type == DT_Vector)
        dsh->info.v.extents.top_left = reg;
    else
        dsh->info.r.registration_coord = reg;
}

/* ---------------------------------------------------------------- own space */

int cvt_cell_to_coord(const dshdr *dsh, double cell_x, double cell_y, dscoord *coord)
{
    if (!dsh) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    double r = dsh->coordspace.rotation;
    return cvt_cell_to_coord_ex(dsh, cell_x, cell_y, coord, std::cos(r), std::sin(r));
}

int cvt_cell_to_coord_ex(const dshdr *dsh, double cell_x, double cell_y, dscoord *coord,
                         double cos_rot, double sin_rot)
{
    if (!dsh || !coord) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    vld::CellGeometry g;
    if (int status = vld::cell_geometry(dsh, g)) return status;
    const coordspace &cs = dsh->coordspace;
    switch (cs.coordsystype) {
        case CST_EN:
            return en_cell_to_coord(dsh, g, cell_x, cell_y, coord, cos_rot, sin_rot);
        case CST_LL:
            if (raw_word(cs.datum) || raw_word(cs.projection))
                return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
            if (geodetic(cs)) {
                // Cell sizes are degrees here, and the grid is never rotated.
                coord->x = g.reg.x + g.xd * kPi / 180.0 * (cell_x - g.rx);
                coord->y = g.reg.y + g.yd * kPi / 180.0 * (g.ry - cell_y);
                coord->z = vln_nanval();
                return 0;
            }
            return projected_ll_cell_to_coord(dsh, g, cell_x, cell_y, coord, cos_rot, sin_rot);
        default:
            return raw_cell_to_coord(dsh, g, cell_x, cell_y, coord, cos_rot, sin_rot);
    }
}

int cvt_coord_to_cell(const dshdr *dsh, const dscoord *coord, double *cell_x, double *cell_y)
{
    if (!dsh) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    double r = dsh->coordspace.rotation;
    return cvt_coord_to_cell_ex(dsh, coord, cell_x, cell_y, std::cos(r), std::sin(r));
}

int cvt_coord_to_cell_ex(const dshdr *dsh, const dscoord *coord, double *cell_x, double *cell_y,
                         double cos_rot, double sin_rot)
{
    if (!dsh || !coord || !cell_x || !cell_y) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    vld::CellGeometry g;
    if (int status = vld::cell_geometry(dsh, g)) return status;
    switch (dsh->coordspace.coordsystype) {
        case CST_EN:
            return en_coord_to_cell(dsh, g, *coord, cell_x, cell_y, cos_rot, sin_rot);
        case CST_LL:
            return ll_coord_to_cell(dsh, g, *coord, cell_x, cell_y, cos_rot, sin_rot);
        default:
            return raw_coord_to_cell(dsh, g, *coord, cell_x, cell_y, cos_rot, sin_rot);
    }
}

/* ---------------------------------------------------------------- forgiving forms */

int cvt_cell_to_nonLL_coord(dshdr *dsh, double cell_x, double cell_y, dscoord *coord)
{
    if (!dsh) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    double r = dsh->coordspace.rotation;
    return cvt_cell_to_nonLL_coord_ex(dsh, cell_x, cell_y, coord, std::cos(r), std::sin(r));
}

int cvt_cell_to_nonLL_coord_ex(dshdr *dsh, double cell_x, double cell_y, dscoord *coord,
                               double cos_rot, double sin_rot)
{
    if (!dsh || !coord) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    if (dsh->coordspace.coordsystype != CST_LL)
        return cvt_cell_to_coord_ex(dsh, cell_x, cell_y, coord, cos_rot, sin_rot);
    TemporaryEN en(dsh);
    if (en.status()) return en.status();
    return cvt_cell_to_coord_ex(dsh, cell_x, cell_y, coord, cos_rot, sin_rot);
}

int cvt_cell_to_any_coord(dshdr *dsh, double cell_x, double cell_y, const coordspace *target,
                          dscoord *coord)
{
    if (!dsh) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    double r = dsh->coordspace.rotation;
    return cvt_cell_to_any_coord_ex(dsh, cell_x, cell_y, target, coord, std::cos(r), std::sin(r));
}

int cvt_cell_to_any_coord_ex(dshdr *dsh, double cell_x, double cell_y, const coordspace *target,
                             dscoord *coord, double cos_rot, double sin_rot)
{
    if (!dsh || !coord) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    if (coordspaces_equal(&dsh->coordspace, target))
        return cvt_cell_to_coord_ex(dsh, cell_x, cell_y, coord, cos_rot, sin_rot);
    if (check_2_regs(&dsh->coordspace, target, 0))
        return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    dscoord own;
    vld::SpaceCopy working(&dsh->coordspace, dsh->coordspace.coordsystype);
    int status;
    if (dsh->coordspace.coordsystype == CST_LL) {
        status = cvt_cell_to_nonLL_coord_ex(dsh, cell_x, cell_y, &own, cos_rot, sin_rot);
        working.cs.coordsystype = CST_EN;
    } else {
        status = cvt_cell_to_coord_ex(dsh, cell_x, cell_y, &own, cos_rot, sin_rot);
    }
    if (status) return status;
    return cvt_any_coord_to_coord(&working.cs, &own, target, coord);
}

int cvt_any_coord_to_cell(const coordspace *source, const dscoord *coord, dshdr *dsh,
                          double *cell_x, double *cell_y)
{
    if (!dsh) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    double r = dsh->coordspace.rotation;
    return cvt_any_coord_to_cell_ex(source, coord, dsh, cell_x, cell_y, std::cos(r), std::sin(r));
}

int cvt_any_coord_to_cell_ex(const coordspace *source, const dscoord *coord, dshdr *dsh,
                             double *cell_x, double *cell_y, double cos_rot, double sin_rot)
{
    if (!dsh || !coord || !cell_x || !cell_y) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    if (dsh->coordspace.coordsystype == CST_LL) {
        TemporaryEN en(dsh);
        if (en.status()) return en.status();
        return cvt_any_coord_to_cell_ex(source, coord, dsh, cell_x, cell_y, cos_rot, sin_rot);
    }
    dscoord own;
    if (int status = cvt_any_coord_to_coord(source, coord, &dsh->coordspace, &own)) return status;
    return cvt_coord_to_cell_ex(dsh, &own, cell_x, cell_y, cos_rot, sin_rot);
}
