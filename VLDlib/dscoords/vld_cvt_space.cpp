/*
 * vld_cvt_space.cpp: comparing coordinate spaces, and carrying a coordinate
 * from one space to another.
 *
 * Two spaces of the same datum and projection whose units are the same size
 * need no arithmetic at all; raw spaces only ever meet raw spaces. Every other
 * pair goes through the coordinate engine in one, or for LL to LL three,
 * passes. An LL space is always carried through its own projection's grid,
 * never from geodetic to geodetic directly, so that a rotated or offset LL
 * dataset meets others on the ground.
 */
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vld_coords_internal.h"
#include "vld_dshdr_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

/* A word that stands for a raw datum or projection: "RAW" in any case, or unset. */
bool raw_word(const char *s)
{
    return !s || VLD_strcasecmp(s, "RAW") == 0;
}

/* The type a conversion works with: a null space and type 0 count as RAW. */
int working_type(const coordspace *space)
{
    if (!space || space->coordsystype == CST_None) return CST_RAW;
    return space->coordsystype;
}

bool regs_compatible(const coordspace *a, const coordspace *b, bool strict)
{
    if (!a && !b) return true;
    if (!a || !b) return raw_word((a ? a : b)->datum);
    if (strict)
        return vld::same_word(a->datum, b->datum) && vld::same_word(a->projection, b->projection) &&
               a->rotation == b->rotation;
    bool all_raw = raw_word(a->datum) && raw_word(a->projection) && raw_word(b->datum) &&
                   raw_word(b->projection);
    bool none_raw = !raw_word(a->datum) && !raw_word(a->projection) && !raw_word(b->datum) &&
                    !raw_word(b->projection);
    return all_raw || none_raw;
}

double factor_of(const coordspace *space)
{
    return get_meter_factor_from_datum_proj(space->datum, space->projection, space->units);
}

const char *or_empty(const char *s)
{
    return s ? s : "";
}

/* The passes through the engine for a pair of spaces of known types. */
int engine_convert(const coordspace *src, int st, const dscoord &in, const coordspace *dst, int tt,
                   dscoord &out)
{
    if (!vld::coord_engine()) {
        char text[400];
        std::snprintf(text, sizeof text,
                      "no coordinate engine to carry %s %.80s/%.80s to %s %.80s/%.80s",
                      coordsystype_to_string(st), or_empty(src->datum), or_empty(src->projection),
                      coordsystype_to_string(tt), or_empty(dst->datum), or_empty(dst->projection));
        return VLD_setup_error(VLD_ERR_GEODETIC_TRANSFORM, text);
    }
    // Ids from the caches stay valid only inside the lock.
    vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);
    if (st == CST_EN && tt == CST_LL)
        return vld::engine_pass(vld::cached_coord_sys(src->datum, src->projection, src->units),
                                vld::cached_geodetic_sys(dst->datum), in, out);
    if (st == CST_LL && tt == CST_EN) {
        dscoord p = in;
        if (p.y >= kPi / 2)
            p.y = kPi / 2;
        else if (p.y < -kPi / 2)
            p.y = -kPi / 2;
        return vld::engine_pass(vld::cached_geodetic_sys(src->datum),
                                vld::cached_coord_sys(dst->datum, dst->projection, dst->units), p,
                                out);
    }
    if (st == CST_EN && tt == CST_EN)
        return vld::engine_pass(vld::cached_coord_sys(src->datum, src->projection, src->units),
                                vld::cached_coord_sys(dst->datum, dst->projection, dst->units), in,
                                out);
    // LL to LL: through the source's grid, across to the target's, and up.
    dscoord a, b;
    int status =
        vld::engine_pass(vld::cached_geodetic_sys(src->datum),
                         vld::cached_coord_sys(src->datum, src->projection, src->units), in, a);
    if (!status)
        status =
            vld::engine_pass(vld::cached_coord_sys(src->datum, src->projection, src->units),
                             vld::cached_coord_sys(dst->datum, dst->projection, dst->units), a, b);
    if (!status)
        status = vld::engine_pass(vld::cached_coord_sys(dst->datum, dst->projection, dst->units),
                                  vld::cached_geodetic_sys(dst->datum), b, out);
    return status;
}

/* The routine of the strict and the relaxed conversion. */
int convert(const coordspace *src, const dscoord *in, const coordspace *dst, dscoord *out,
            bool strict)
{
    if (!in || !out) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    if (!regs_compatible(src, dst, strict)) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    int st = working_type(src), tt = working_type(dst);
    if (st == CST_RAW && tt == CST_RAW) {
        *out = *in;
        return 0;
    }
    if (st == CST_RAW || tt == CST_RAW) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    if (st == tt && vld::same_word(src->datum, dst->datum) &&
        vld::same_word(src->projection, dst->projection) &&
        (vld::same_word(src->units, dst->units) || factor_of(src) == factor_of(dst))) {
        *out = *in;
        return 0;
    }
    return engine_convert(src, st, *in, dst, tt, *out);
}

}  // namespace

bool vld::same_word(const char *a, const char *b)
{
    if (!a || !b) return !a && !b;
    return VLD_strcasecmp(a, b) == 0;
}

vld::SpaceCopy::SpaceCopy(const coordspace *from, int type)
{
    if (from) {
        cs.rotation = from->rotation;
        cs.meter_factor = from->meter_factor;
        cs.datum = from->datum ? strsave(from->datum) : nullptr;
        cs.projection = from->projection ? strsave(from->projection) : nullptr;
        cs.units = from->units ? strsave(from->units) : nullptr;
    } else {
        cs.meter_factor = 1.0;
    }
    cs.coordsystype = type;
}

vld::SpaceCopy::~SpaceCopy()
{
    safe_free(cs.datum);
    safe_free(cs.projection);
    safe_free(cs.units);
}

int cvt_coord_to_coord(const coordspace *source, const dscoord *in, const coordspace *target,
                       dscoord *out)
{
    return convert(source, in, target, out, true);
}

int cvt_any_coord_to_coord(const coordspace *source, const dscoord *in, const coordspace *target,
                           dscoord *out)
{
    return convert(source, in, target, out, false);
}

int check_2_regs(const coordspace *a, const coordspace *b, int strict)
{
    return regs_compatible(a, b, strict != 0) ? 0 : VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
}

int coordspaces_equal(const coordspace *a, const coordspace *b)
{
    if (!a || !b || !a->datum || !b->datum || !a->projection || !b->projection) return 0;
    if (VLD_strcasecmp(a->datum, b->datum) != 0 ||
        VLD_strcasecmp(a->projection, b->projection) != 0)
        return 0;
    if (a->coordsystype != b->coordsystype || a->rotation != b->rotation) return 0;
    if (a->units && b->units && VLD_strcasecmp(a->units, b->units) == 0) return 1;
    return factor_of(a) == factor_of(b) ? 1 : 0;
}

int is_raw_cspace(const coordspace *space)
{
    if (!space) return 1;
    return vld::is_raw_space(space) ? 1 : 0;
}

/* ---------------------------------------------------------------- validation */

int coordspace_valid(const char *datum, const char *projection, const char *units)
{
    auto blank = [](const char *s) { return !s || !*s; };
    if (blank(datum) && blank(projection)) return 0;
    coordspace candidate{};
    candidate.datum = const_cast<char *>(blank(datum) ? "RAW" : datum);
    candidate.projection = const_cast<char *>(blank(projection) ? "RAW" : projection);
    candidate.units = const_cast<char *>(blank(units) ? "METERS" : units);
    candidate.coordsystype =
        raw_word(candidate.datum) || raw_word(candidate.projection) ? CST_RAW : CST_EN;
    candidate.meter_factor = 1.0;

    coordspace raw{};
    raw.coordsystype = CST_RAW;
    raw.datum = const_cast<char *>("RAW");
    raw.projection = const_cast<char *>("RAW");
    raw.units = const_cast<char *>("natural");
    coordspace geodetic{};
    geodetic.coordsystype = CST_LL;
    geodetic.datum = const_cast<char *>("WGS84");
    geodetic.projection = const_cast<char *>("GEODETIC");
    geodetic.units = const_cast<char *>("METERS");
    return regs_compatible(&candidate, &raw, false) || regs_compatible(&candidate, &geodetic, false)
               ? 1
               : 0;
}

int coordspace_and_coordsystype_valid(int coordsystype, const char *datum, const char *projection,
                                      const char *units)
{
    if (!coordspace_valid(datum, projection, units)) return 0;
    // A blank word stands for "RAW" here as in coordspace_valid.
    auto raw = [](const char *s) { return !s || !*s || raw_word(s); };
    switch (coordsystype) {
        case CST_RAW:
            return raw(datum) && raw(projection) ? 1 : 0;
        case CST_EN:
        case CST_LL:
            return !raw(datum) && !raw(projection) ? 1 : 0;
        default:
            return 0;
    }
}

int VLD_get_zone(const char *projection)
{
    if (!projection || VLD_strncasecmp(projection, "TMAMG", 5) != 0) return 0;
    const char *end = projection + std::strlen(projection);
    const char *digits = end;
    while (digits > projection + 5 && digits[-1] >= '0' && digits[-1] <= '9') digits--;
    return digits == end ? 0 : std::atoi(digits);
}

int string_to_coordsystype(const char *word)
{
    if (!word) return CST_None;
    for (const VLD_ENUM *e = ev_CST; e->name; e++)
        if (VLD_strcasecmp(e->name, word) == 0) return e->value;
    return CST_None;
}

const char *coordsystype_to_string(int coordsystype)
{
    for (const VLD_ENUM *e = ev_CST; e->name; e++)
        if (e->value == coordsystype) return e->name;
    return nullptr;
}

/* ---------------------------------------------------------------- distances */

int delta_coords_meters_non_abs(const coordspace *space, const dscoord *a, const dscoord *b,
                                double *dx, double *dy)
{
    if (dx) *dx = 0.0;
    if (dy) *dy = 0.0;
    if (!space || !a || !b || !dx || !dy) return 0;
    dscoord pa = *a, pb = *b;
    int type = working_type(space);
    if (type == CST_LL) {
        vld::SpaceCopy en(space, CST_EN);
        int status = cvt_any_coord_to_coord(space, a, &en.cs, &pa);
        if (!status) status = cvt_any_coord_to_coord(space, b, &en.cs, &pb);
        if (status) return status;
        type = CST_EN;
    }
    *dx = pa.x - pb.x;
    *dy = pa.y - pb.y;
    double f = space->meter_factor;
    if (type == CST_EN && f != 0.0 && f != 1.0) {
        *dx *= f;
        *dy *= f;
    }
    return 0;
}

int delta_coords_meters(const coordspace *space, const dscoord *a, const dscoord *b, double *dx,
                        double *dy)
{
    int status = delta_coords_meters_non_abs(space, a, b, dx, dy);
    if (dx) *dx = std::fabs(*dx);
    if (dy) *dy = std::fabs(*dy);
    return status;
}

int distance_coords_meters(const coordspace *space, const dscoord *a, const dscoord *b,
                           double *distance)
{
    if (!distance) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    *distance = 0.0;
    if (!space || !a || !b) return 0;
    if (!space->projection || std::strcmp(space->projection, "GEODETIC") != 0) {
        double dx, dy;
        if (int status = delta_coords_meters(space, a, b, &dx, &dy)) return status;
        *distance = std::sqrt(dx * dx + dy * dy);
        return 0;
    }
    // Along the sphere of the datum's radius. The radius is taken as the datum
    // table holds it: in metres whatever the datum's own unit.
    vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);
    double radius;
    if (int status = vld::cached_datum_radius(space->datum, radius)) return status;
    vld::SpaceCopy en(space, CST_EN);  // degrees, for a geodetic space
    dscoord pa, pb;
    int status = cvt_any_coord_to_coord(space, a, &en.cs, &pa);
    if (!status) status = cvt_any_coord_to_coord(space, b, &en.cs, &pb);
    if (status) return status;
    const double k = kPi / 180.0;
    double lat1 = pa.y * k, lat2 = pb.y * k;
    double half_dlat = (lat2 - lat1) / 2, half_dlon = (pb.x - pa.x) * k / 2;
    double h = std::sin(half_dlat) * std::sin(half_dlat) +
               std::cos(lat1) * std::cos(lat2) * std::sin(half_dlon) * std::sin(half_dlon);
    *distance = 2 * radius * std::asin(std::sqrt(h));
    return 0;
}
