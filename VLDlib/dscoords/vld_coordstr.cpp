/*
 * vld_coordstr.cpp: positions and lengths as people type and read them.
 *
 * A position is shown as latitude and longitude in degrees, minutes and
 * seconds with a hemisphere letter, or as eastings and northings; either may
 * instead show the difference between two positions. Typed positions come back
 * the same ways, or as a cell of a dataset, and may be offsets from a base
 * position. Lengths are shown in the largest metric unit in which they are at
 * least 1.
 */
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vld_blocktext.h"
#include "vld_coords_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegrees = 180.0 / kPi;

/* The position in LL: as given for an LL space, carried for an EN one. */
int as_ll(const coordspace *space, const dscoord &in, dscoord &out)
{
    if (space->coordsystype == CST_LL) {
        out = in;
        return 0;
    }
    vld::SpaceCopy ll(space, CST_LL);
    return cvt_any_coord_to_coord(space, &in, &ll.cs, &out);
}

int as_en(const coordspace *space, const dscoord &in, dscoord &out)
{
    if (space->coordsystype != CST_LL) {
        out = in;
        return 0;
    }
    vld::SpaceCopy en(space, CST_EN);
    return cvt_any_coord_to_coord(space, &in, &en.cs, &out);
}

/* "%s%s" of the d:m:s text and the letter; a text too long for the field
 * falls back to decimal degrees. */
char *angle_text(double degrees, const char *letter)
{
    char digits[64], text[96];
    d_to_dmsstr_spec(digits, degrees, 2);
    if (std::strlen(digits) < 20)
        std::snprintf(text, sizeof text, "%s%s", digits, letter);
    else
        std::snprintf(text, sizeof text, "%.6G%s", degrees, letter);
    return strsave(text);
}

/* Whole half-turns of an angle in degrees. */
bool odd_half_turns(double degrees)
{
    return static_cast<int64_t>(std::trunc(degrees / 180.0)) % 2 != 0;
}

/* Reads one angle text; a last letter from `letters` (positive, negative)
 * marks the hemisphere. */
double angle_of(const char *text, char positive, char negative, bool &hemisphere, bool &flip)
{
    hemisphere = flip = false;
    double value = dmsstr_to_d(text);
    size_t n = std::strlen(text);
    if (n > 0) {
        char last = static_cast<char>(std::toupper(static_cast<unsigned char>(text[n - 1])));
        if (last == positive) hemisphere = true;
        if (last == negative) hemisphere = flip = true;
    }
    return value;
}

}  // namespace

/* ---------------------------------------------------------------- positions to text */

int VLD_coords_to_ll_strings(char **lat, char **lon, const dscoord *coord, const dscoord *second,
                             const coordspace *space)
{
    if (!lat || !lon || !coord || !space) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    double la = 0.0, lo = 0.0;
    if (space->coordsystype == CST_EN || space->coordsystype == CST_LL) {
        dscoord p;
        if (int status = as_ll(space, *coord, p)) return status;
        la = p.y * kDegrees;
        lo = p.x * kDegrees;
        if (second) {
            dscoord q;
            if (int status = as_ll(space, *second, q)) return status;
            la = la - q.y * kDegrees;
            lo = q.x * kDegrees - lo;
        }
    }

    if (std::isnan(la) || la == 0.0) {
        *lat = strsave("0:0:0.0N");
    } else {
        const char *letter = second ? "" : "N";
        if (!second && la < 0.0) {
            la = -la;
            letter = "S";
        }
        *lat = angle_text(la, letter);
    }

    if (lo == 0.0) {
        *lon = strsave("0:0:0.0E");
    } else if (second) {
        *lon = angle_text(lo, "");
    } else {
        double turns = std::trunc(std::fabs(lo) / 360.0);
        lo = lo < 0.0 ? lo + 360.0 * (turns + 1.0) : lo - 360.0 * turns;
        const char *letter = "E";
        if (odd_half_turns(lo)) {
            lo = 360.0 - lo;
            letter = "W";
        }
        *lon = angle_text(lo, letter);
    }
    return 0;
}

int VLD_coords_to_en_strings(char **east, char **north, const dscoord *coord, const dscoord *second,
                             const coordspace *space)
{
    if (!east || !north || !coord || !space) return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
    dscoord p;
    if (int status = as_en(space, *coord, p)) return status;
    double x = p.x, y = p.y;
    if (second) {
        dscoord q;
        if (int status = as_en(space, *second, q)) return status;
        x = q.x - p.x;
        y = p.y - q.y;
    }
    char text[400];
    const char *e = second ? "" : "E";
    const char *n = second ? "" : "N";
    if (x == 0.0)
        *east = strsave("0.0E");
    else {
        std::snprintf(text, sizeof text, "%.2f%s", x, e);
        *east = strsave(text);
    }
    if (y == 0.0)
        *north = strsave("0.0N");
    else {
        std::snprintf(text, sizeof text, "%.2f%s", y, n);
        *north = strsave(text);
    }
    return 0;
}

/* ---------------------------------------------------------------- text to positions */

int VLD_en_to_coords(double east, double north, dscoord *base, dscoord *out,
                     const coordspace *space, int enable)
{
    if (!enable || !space || !base) return -1;
    int type = space->coordsystype == CST_None ? CST_RAW : space->coordsystype;
    if (!out) {
        dscoord p = {east, north, base->z};
        if (type != CST_LL) {
            *base = p;
            return 0;
        }
        vld::SpaceCopy en(space, CST_EN);
        dscoord ll;
        if (int status = cvt_any_coord_to_coord(&en.cs, &p, space, &ll)) return status;
        *base = ll;
        return 0;
    }
    if (type == CST_RAW) {
        *out = {base->x + east, base->y + north, base->z};
        return 0;
    }
    if (type == CST_EN) {
        *out = {base->x + east, base->y - north, base->z};
        return 0;
    }
    vld::SpaceCopy en(space, CST_EN);
    dscoord b;
    if (int status = cvt_any_coord_to_coord(space, base, &en.cs, &b)) return status;
    dscoord moved = {b.x + east, b.y - north, b.z};
    return cvt_any_coord_to_coord(&en.cs, &moved, space, out);
}

int VLD_ll_strings_to_coords(const char *lat, const char *lon, dscoord *base, dscoord *out,
                             const coordspace *space, int enable)
{
    if (!enable || !space || !base || !lat || !lon) return -1;
    bool lat_known, lat_south, lon_known, lon_west;
    double la = angle_of(lat, 'N', 'S', lat_known, lat_south);
    double lo = angle_of(lon, 'E', 'W', lon_known, lon_west);
    if (lat_south) la = -la;
    if (lon_west) lo = 360.0 - lo;
    la /= kDegrees;
    lo /= kDegrees;

    /* A missing hemisphere is taken from where the base lies. */
    auto take_signs = [&](const dscoord &from) {
        if (!lat_known && from.y < 0.0) la = -la;
        if (!lon_known && odd_half_turns(from.x * kDegrees)) lo = 2.0 * kPi - lo;
    };

    if (space->coordsystype == CST_EN) {
        vld::SpaceCopy ll(space, CST_LL);
        if (out) {
            dscoord b;
            if (int status = cvt_any_coord_to_coord(space, base, &ll.cs, &b)) return status;
            dscoord moved = {lo + b.x, b.y - la, b.z};
            return cvt_any_coord_to_coord(&ll.cs, &moved, space, out);
        }
        if (!lat_known || !lon_known) {
            // The signs come from the base only when it can't be carried to
            // LL; a base that converts keeps the typed signs (kept as is).
            dscoord buffer = *base;
            if (cvt_any_coord_to_coord(space, base, &ll.cs, &buffer) != 0) take_signs(buffer);
        }
        dscoord p = {lo, la, base->z};
        dscoord en;
        if (int status = cvt_any_coord_to_coord(&ll.cs, &p, space, &en)) return status;
        *base = en;
        return 0;
    }
    if (space->coordsystype == CST_LL) {
        if (out) {
            *out = {lo + base->x, base->y - la, base->z};
            return 0;
        }
        if (!lat_known || !lon_known) take_signs(*base);
        base->x = lo;
        base->y = la;
        return 0;
    }
    return VLD_setup_error(VLD_ERR_INCOMPATIBLE_COORDSYS);
}

int VLD_cellxy_strings_to_coords(const char *x, const char *y, dscoord *base, dscoord *out,
                                 const coordspace *space, dshdr *dsh)
{
    if (!x || !y || !base || !space || !dsh) return -1;
    double cx = std::atof(x), cy = std::atof(y);
    if (out) {
        double bx, by;
        if (int status = cvt_any_coord_to_cell(space, base, dsh, &bx, &by)) return status;
        return cvt_cell_to_any_coord(dsh, bx + cx, by + cy, space, out);
    }
    return cvt_cell_to_any_coord(dsh, cx, cy, space, base);
}
