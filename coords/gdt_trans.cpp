/*
 * gdt_trans.cpp: transformations between two coordinate systems.
 *
 * Setting a source and a target finds or makes the transformation of that
 * pair; it is prepared on first use, so that gdt_transform itself does no
 * look-up: factors, spheroids, the datum change and the member's functions
 * stand in the record. A point goes: scaled to metres or radians, from
 * geocentric if so, its longitude checked by the robustness mode, then
 * backward through the source's projection, across the datum change, and
 * forward through the target's projection, to geocentric if so, and scaled
 * into the target's units.
 */
#include <cmath>
#include <cstring>

#include "gdt_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

enum Status { kUnprepared = -1, kReady = 0, kBad = 3 };
enum Conversion { kToProjected = 1, kToGeodetic = 2, kProjectedToProjected = 3, kGeodeticOnly = 4 };

struct Trans {
    int source, target;
    int status;
    int num_points;
    void *fast_path;
    int robustness;
    int target_mode_bits;
    int cut;
    double low, high;
    int source_geocentric, target_geocentric;
    int conversion;
    double source_factor, target_factor;
    gdt_proj_conv_fn forward;
    gdt_proj_conv_fn backward;
    gdt::DatumChange change;
    gdt_spheroid source_spheroid, target_spheroid;
    void *source_block, *target_block;
    bool used;
};

Trans transforms[gdt::kMaxTransforms];
int current_source = 0, current_target = 0;
Trans *current = nullptr;

void release(Trans &t)
{
    if (t.status == kReady) gdt::close_datum_change(t.change);
    t = Trans{};
}

/* Finds or makes the transformation of the current pair. */
void choose()
{
    current = nullptr;
    if (current_source <= 0 || current_target <= 0) return;
    Trans *free_slot = nullptr;
    for (Trans &t : transforms) {
        if (t.used && t.source == current_source && t.target == current_target) {
            current = &t;
            return;
        }
        if (!free_slot && (!t.used)) free_slot = &t;
    }
    if (!free_slot)
        for (Trans &t : transforms)
            if (t.status == kUnprepared) {
                free_slot = &t;
                break;
            }
    if (!free_slot) {
        gdt::report('S', 3, "Too many transformations");
        return;
    }
    release(*free_slot);
    free_slot->used = true;
    free_slot->source = current_source;
    free_slot->target = current_target;
    free_slot->status = kUnprepared;
    free_slot->robustness = 4;
    current = free_slot;
}

gdt_spheroid spheroid_of(const gdt::CoordSys *s)
{
    // The division stands: the transformation's copy divides by the factor.
    double f = s->datum.metre_factor != 0 ? s->datum.metre_factor : 1.0;
    return {s->datum.radius / f, s->datum.eccentricity, s->datum.prime_merid};
}

/* Reported as "(trn_init)". */
int prepare(Trans &t)
{
    gdt::CoordSys *src = gdt::system_at(t.source), *dst = gdt::system_at(t.target);
    if (!src || !dst) {
        gdt::report('P', 3, "bad cs id (trn_init)");
        t.status = kBad;
        return -1;
    }
    if (!src->locked || !dst->locked) {
        gdt::report('U', 3, "Cannot transform with unlocked coord_sys (trn_init)");
        t.status = kBad;
        return -1;
    }
    if (gdt::load_datum_change(src->datum.name, dst->datum.name, t.change) != 0) {
        gdt::report('S', 3, "Error loading datum change information (trn_init)");
        t.status = kBad;
        return -1;
    }
    t.source_spheroid = spheroid_of(src);
    t.target_spheroid = spheroid_of(dst);
    const gdt::Base *tb = gdt::base_at(dst->base);
    const gdt::Base *sb = gdt::base_at(src->base);
    if (tb && tb->long_cut_offset >= 0) {
        std::memcpy(&t.low, static_cast<char *>(dst->block) + tb->long_cut_offset, sizeof t.low);
        t.high = t.low + 2 * kPi;
        t.cut = 1;
    } else {
        t.low = -kPi;
        t.high = kPi;
        t.cut = dst->coord_type == gdt::kGeocentric ? 1 : 0;
    }
    t.target_mode_bits = tb ? tb->mode : 0;
    bool source_geodetic = true, target_geodetic = true;
    switch (src->coord_type) {
        case gdt::kProjected:
            t.source_factor = 1.0;
            source_geodetic = false;
            break;
        case gdt::kGeodetic:
            t.source_factor = src->units.horizontal_factor;
            break;
        default:
            t.source_factor = 1.0;
            t.source_geocentric = 1;
            break;
    }
    switch (dst->coord_type) {
        case gdt::kProjected:
            t.target_factor = 1.0;
            target_geodetic = false;
            break;
        case gdt::kGeodetic:
            t.target_factor = 1.0 / dst->units.horizontal_factor;
            break;
        case gdt::kGeocentric:
            t.target_factor = 1.0;
            t.target_geocentric = 1;
            break;
        default:
            gdt::report('P', 3, "bad coord type (trn_init)");
            t.status = kBad;
            return -1;
    }
    if (source_geodetic)
        t.conversion = target_geodetic ? kGeodeticOnly : kToProjected;
    else
        t.conversion = target_geodetic ? kToGeodetic : kProjectedToProjected;
    t.forward = tb ? tb->forward : nullptr;
    t.backward = sb ? sb->backward : nullptr;
    t.source_block = src->block;
    t.target_block = dst->block;
    if (t.change.mode < 0 || t.change.mode > 2) {
        gdt::report('P', 3, "Bad datum change mode");
        t.status = kBad;
        return -1;
    }
    t.status = kReady;
    return 0;
}

bool pure_to_projected(const Trans &t)
{
    return t.conversion == kToProjected && !t.source_geocentric;
}

bool mode_allowed(const Trans &t, int mode)
{
    switch (mode) {
        case 1:
            return !(pure_to_projected(t) && !(t.target_mode_bits & 1));
        case 2:
        case 3:
            return pure_to_projected(t);
        case 4:
            return true;
        default:
            return false;
    }
}

int effective_mode(const Trans &t)
{
    if (t.robustness != 4) return t.robustness;
    return pure_to_projected(t) ? 2 : 1;
}

int change_datum(const Trans &t, double &lon, double &lat, double &h)
{
    switch (t.change.mode) {
        case 0:
            return 0;
        case 1:
            return gdt::bw_gd_to_gd(t.change, t.source_spheroid, t.target_spheroid, lon, lat, h,
                                    &lon, &lat, &h);
        case 2:
            return gdt::grid_gd_to_gd(t.change, t.source_spheroid, t.target_spheroid, lon, lat, h,
                                      &lon, &lat, &h);
        default:
            gdt::report('P', 0, "gdt_dummy() called (it should not be!)");
            return -999;
    }
}

}  // namespace

void gdt::drop_transforms_of(int id)
{
    for (Trans &t : transforms)
        if (t.used && (t.source == id || t.target == id)) {
            if (current == &t) current = nullptr;
            release(t);
        }
    if (current_source == id) current_source = 0;
    if (current_target == id) current_target = 0;
}

int gdt_set_source(int *id)
{
    if (!id || !gdt::system_at(*id)) {
        gdt::report('P', 3, "bad cs id (gdt_set_source)");
        return -1;
    }
    if (*id == current_source && current) return 0;
    current_source = *id;
    choose();
    return 0;
}

int gdt_set_target(int *id)
{
    if (!id || !gdt::system_at(*id)) {
        gdt::report('P', 3, "bad cs id (gdt_set_target)");
        return -1;
    }
    if (*id == current_target && current) return 0;
    current_target = *id;
    choose();
    return 0;
}

int gdt_inq_source(void)
{
    return current_source;
}

int gdt_inq_target(void)
{
    return current_target;
}

int gdt_inq_trans_status(void)
{
    if (!current) return kBad;
    if (current->status == kUnprepared) prepare(*current);
    return current->status;
}

int gdt_mod_num_points(int *n)
{
    if (!current || !n) {
        gdt::report('P', 3, "(gdt_mod_num_points) No transformation set up");
        return -1;
    }
    if (current->status == kReady) gdt::close_datum_change(current->change);
    current->num_points = *n;
    current->status = kUnprepared;
    return 0;
}

int gdt_mod_trans_mode(int *mode)
{
    if (!current || !mode) {
        gdt::report('P', 3, "(gdt_mod_trans_mode) No transformation set up");
        return -1;
    }
    if (current->status == kUnprepared) prepare(*current);
    if (current->status != kReady || !mode_allowed(*current, *mode)) {
        gdt::report('P', 3, "(gdt_mod_trans_mode) bad trans mode");
        return -1;
    }
    current->robustness = *mode;
    return 0;
}

int gdt_inq_trans_mode(int *mode)
{
    if (!current || !mode) return -1;
    if (current->status == kUnprepared) prepare(*current);
    if (current->status != kReady) return -1;
    if (*mode == 5) {
        *mode = current->robustness;
        return 0;
    }
    return mode_allowed(*current, *mode) ? 0 : -1;
}

int gdt_transform(double *x_in, double *y_in, double *z_in, double *x_out, double *y_out,
                  double *z_out)
{
    if (!current) {
        gdt::report('P', 3, "(gdt_transform) No transformation set up");
        return -1;
    }
    Trans &t = *current;
    if (t.status == kUnprepared) prepare(t);
    if (t.status != kReady) {
        gdt::report('P', 3, "(gdt_transform) Bad transformation");
        return -1;
    }
    if (t.fast_path) return 0;
    double x = *x_in * t.source_factor, y = *y_in * t.source_factor, z = *z_in;
    if (t.source_geocentric) gdt_xyz_to_gd(&t.source_spheroid, x, y, z, &x, &y, &z);
    // On the geodetic side x is longitude and y latitude.
    bool geodetic_in = t.conversion == kToProjected || t.conversion == kGeodeticOnly;
    if (geodetic_in) {
        switch (effective_mode(t)) {
            case 1:
                break;
            case 2:
                if (x < t.low) {
                    x += 2 * kPi;
                    if (x < t.low) x += std::ceil((t.low - x) / (2 * kPi)) * 2 * kPi;
                } else if (x >= t.high) {
                    x -= 2 * kPi;
                    if (x >= t.high) x -= std::ceil((x - t.high) / (2 * kPi)) * 2 * kPi;
                }
                break;
            case 3:
                if (x < t.low || x >= t.high || y < -kPi / 2 || y >= kPi / 2) return 1;
                break;
            default:
                gdt::report('P', 3, "(gdt_transform) bad robustness mode");
                return -1;
        }
    }
    int status = 0;
    if (t.conversion == kToGeodetic || t.conversion == kProjectedToProjected)
        status |= t.backward(t.source_block, x, y, &x, &y);
    if (status == 0 && change_datum(t, x, y, z) != 0) {
        gdt::report('S', 3, "datum conversion error");
        *x_out = x;
        *y_out = y;
        *z_out = z;
        return -1;
    }
    if (status == 0 && (t.conversion == kToProjected || t.conversion == kProjectedToProjected))
        status |= t.forward(t.target_block, x, y, &x, &y);
    if (status != 0) {
        gdt::report('U', 3, "(gdt_transform) transformation error");
        return status;
    }
    if (t.target_geocentric) gdt_gd_to_xyz(&t.target_spheroid, x, y, z, &x, &y, &z);
    *x_out = x * t.target_factor;
    *y_out = y * t.target_factor;
    *z_out = z;
    return 0;
}

int gdt_trans_array(int *n, const double *in, double *out)
{
    if (!n || !in || !out) return -1;
    for (int i = 0; i < *n; i++) {
        double x = in[3 * i], y = in[3 * i + 1], z = in[3 * i + 2];
        if (gdt_transform(&x, &y, &z, &out[3 * i], &out[3 * i + 1], &out[3 * i + 2]) != 0) {
            gdt::report('U', 3, "(gdt_trans_array) bad transformation");
            return -1;
        }
    }
    return 0;
}

int gdt_trans_polyline(void)
{
    gdt::report('P', 3, "function gdt_trans_polyline is NOT implemented");
    return -1;
}

double gdt_i_get_resolution(int unit)
{
    const gdt::CoordSys *src = gdt::system_at(current_source);
    const gdt::CoordSys *dst = gdt::system_at(current_target);
    if (!src || !dst) return -1;
    // Metres in one horizontal unit of a system.
    auto unit_size = [](const gdt::CoordSys *s) {
        return s->coord_type == gdt::kGeodetic
                   ? s->units.horizontal_factor * s->datum.radius * s->datum.metre_factor
                   : s->units.horizontal_factor;
    };
    double ms = src->resolution * unit_size(src), mt = dst->resolution * unit_size(dst);
    const gdt::CoordSys *chosen = ms >= mt ? src : dst;
    double m = ms >= mt ? ms : mt;
    if (!(m > 0)) return -1;
    switch (unit) {
        case 0:
            return m / unit_size(src);
        case 1:
            return m / unit_size(dst);
        case 2:
            return m;
        case 3:
            return m / (chosen->units.vertical_factor > 0 ? chosen->units.vertical_factor : 1);
        default:
            gdt::report('P', 3, "bad res. unit");
            return -1;
    }
}
