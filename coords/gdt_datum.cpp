/*
 * gdt_datum.cpp: moving a point between two datums.
 *
 * The change between two datums is chosen when a transformation is first
 * used, from table "datumcha": a row SRC>DST, or DST>SRC used the other way
 * round, or two Bursa-Wolf rows to WGS84 combined. A Bursa-Wolf change goes
 * through geocentric space; a grid change reads shifts from the grid files.
 *
 * The seven-parameter arithmetic is the position-vector form with
 * small-angle rotations; rows published in the coordinate-frame form are
 * stored with their rotations negated.
 */
#include <cmath>
#include <cstdio>
#include <cstring>
#include <strings.h>

#include "gdt_internal.h"

namespace {

/* Loads the change of row `key` of "datumcha": 0, or -1 after a report. */
int load_row(const char *key, gdt::DatumChange &change)
{
    char type[512] = "";
    if (gdb_set_table("datumcha") != 0 || gdb_set_name_key(key) != 0 ||
        gdb_load("change_type", "s", type) != 0) {
        gdt::report('S', 0, "error reading datum change type");
        return -1;
    }
    if (strncasecmp(type, "bursawol", 8) == 0) {
        gdt_bursa_wolf &bw = change.bw;
        double ppm = 0.0;
        if (gdb_set_table("bursawol") != 0 || gdb_set_name_key(key) != 0 ||
            gdb_load("translation_x", "d", &bw.translation_x) != 0 ||
            gdb_load("translation_y", "d", &bw.translation_y) != 0 ||
            gdb_load("translation_z", "d", &bw.translation_z) != 0 ||
            gdb_load("rotation_x", "d", &bw.rotation_x) != 0 ||
            gdb_load("rotation_y", "d", &bw.rotation_y) != 0 ||
            gdb_load("rotation_z", "d", &bw.rotation_z) != 0 ||
            gdb_load("scale_change", "d", &ppm) != 0) {
            gdt::report('S', 0, "error reading datum change (Bursa-Wolfe record)");
            return -1;
        }
        bw.scale = ppm * 1e-6 + 1.0;
        bw.level = 3;
        change.mode = 1;
        return 0;
    }
    static const struct {
        const char *type, *table, *label;
    } grids[] = {
        {"smith", "smith", "Smith"}, {"nadcon", "nadwin32", "NADCON"}, {"ntv2", "ntv2", "NTv2"}};
    for (const auto &g : grids) {
        if (strncasecmp(type, g.type, std::strlen(g.type)) != 0) continue;
        char files[512] = "";
        if (gdb_set_table(g.table) != 0 || gdb_set_name_key(key) != 0 ||
            gdb_load("control_file", "s", files) != 0) {
            gdt::reportf('S', 0, "error reading datum change (%s record)", g.label);
            return -1;
        }
        change.grid = grid_access_init(files);
        if (change.grid <= 0) {
            gdt::reportf('S', 0, "error opening grid/datum change file (%s): %s in %s", g.label,
                         files, gdb_grid_path());
            return -1;
        }
        change.mode = 2;
        return 0;
    }
    gdt::report('S', 0, "Unknown datum change type");
    return -1;
}

bool row_exists(const char *key)
{
    return gdb_set_table("datumcha") == 0 && gdb_set_name_key(key) == 0;
}

}  // namespace

int gdt::load_datum_change(const char *source, const char *target, DatumChange &change)
{
    change = DatumChange{};
    if (strcasecmp(source, target) == 0) return 0;
    if (strncasecmp(source, "USC", 3) == 0 || strncasecmp(target, "USC", 3) == 0) {
        change.mode = 1;
        change.bw.level = 0;
        change.bw.scale = 1.0;
        return 0;
    }
    char key[64];
    std::snprintf(key, sizeof key, "%s>%s", source, target);
    if (row_exists(key)) return load_row(key, change);
    std::snprintf(key, sizeof key, "%s>%s", target, source);
    if (row_exists(key)) {
        if (load_row(key, change) != 0) return -1;
        if (change.mode == 1) {
            gdt_bursa_wolf forward = change.bw;
            gdt_bw_invert(&forward, &change.bw);
        } else {
            change.inverse = 1;
        }
        return 0;
    }
    char to_wgs[64], from_wgs[64];
    std::snprintf(to_wgs, sizeof to_wgs, "%s>WGS84", source);
    std::snprintf(from_wgs, sizeof from_wgs, "%s>WGS84", target);
    if (!row_exists(to_wgs) || !row_exists(from_wgs)) {
        report('U', 0, "No Datum change exists");
        return -1;
    }
    DatumChange a, b;
    if (load_row(to_wgs, a) != 0 || load_row(from_wgs, b) != 0) return -1;
    if (a.mode != 1 || b.mode != 1) {
        close_datum_change(a);
        close_datum_change(b);
        report('U', 0, "No datum change exists");
        return -1;
    }
    gdt_bursa_wolf back;
    gdt_bw_invert(&b.bw, &back);
    gdt_bw_combine(&a.bw, &back, &change.bw);
    change.mode = 1;
    return 0;
}

void gdt::close_datum_change(DatumChange &change)
{
    if (change.mode == 2) grid_access_close(change.grid);
    change = DatumChange{};
}

int gdt::bw_gd_to_gd(const DatumChange &change, const gdt_spheroid &from, const gdt_spheroid &to,
                     double lon, double lat, double h, double *olon, double *olat, double *oh)
{
    double x, y, z;
    gdt_gd_to_xyz(&from, lon, lat, h, &x, &y, &z);
    if (gdt_xyz_to_xyz(&change.bw, x, y, z, &x, &y, &z) != 0) return -1;
    gdt_xyz_to_gd(&to, x, y, z, olon, olat, oh);
    return 0;
}

void gdt_gd_to_xyz(const gdt_spheroid *s, double lon, double lat, double h, double *x, double *y,
                   double *z)
{
    double e2 = s->e * s->e, sl = std::sin(lat), cl = std::cos(lat);
    double n = s->a / std::sqrt(1 - e2 * sl * sl);
    double l = lon + s->prime_merid;
    *x = (n + h) * cl * std::cos(l);
    *y = (n + h) * cl * std::sin(l);
    *z = ((1 - e2) * n + h) * sl;
}

void gdt_xyz_to_gd(const gdt_spheroid *s, double x, double y, double z, double *lon, double *lat,
                   double *h)
{
    double a = s->a, e2 = s->e * s->e;
    double p = std::hypot(x, y);
    double f = std::sqrt(1 - e2);
    double beta = std::atan2(z, f * p);
    double sb = std::sin(beta), cb = std::cos(beta);
    double phi = std::atan2(z + (e2 / (1 - e2)) * a * f * sb * sb * sb, p - e2 * a * cb * cb * cb);
    double sp = std::sin(phi);
    double n = a / std::sqrt(1 - e2 * sp * sp);
    *lon = std::atan2(y, x) - s->prime_merid;
    *lat = phi;
    *h = std::fabs(z) >= p ? z / sp - n * (1 - e2) : p / std::cos(phi) - n;
}

void gdt_xyz_to_gd_2(const gdt_spheroid *s, double x, double y, double z, double *lon, double *lat,
                     double *h)
{
    double a = s->a, e2 = s->e * s->e;
    double p = std::hypot(x, y);
    double phi = std::atan2(z, p * (1 - e2));
    double sp = std::sin(phi);
    double n = a / std::sqrt(1 - e2 * sp * sp);
    // One Newton correction of z = p tan(phi) (1 - e2 N / (N + h)).
    double hh = std::fabs(z) >= p ? z / sp - n * (1 - e2) : p / std::cos(phi) - n;
    phi = std::atan2(z, p * (1 - e2 * n / (n + hh)));
    sp = std::sin(phi);
    n = a / std::sqrt(1 - e2 * sp * sp);
    *lon = std::atan2(y, x) - s->prime_merid;
    *lat = phi;
    *h = std::fabs(z) >= p ? z / sp - n * (1 - e2) : p / std::cos(phi) - n;
}

int gdt_xyz_to_xyz(const gdt_bursa_wolf *bw, double x, double y, double z, double *ox, double *oy,
                   double *oz)
{
    double s = bw->scale, rx = bw->rotation_x, ry = bw->rotation_y, rz = bw->rotation_z;
    switch (bw->level) {
        case 0:
            *ox = x;
            *oy = y;
            *oz = z;
            return 0;
        case 1:
            *ox = x + bw->translation_x;
            *oy = y + bw->translation_y;
            *oz = z + bw->translation_z;
            return 0;
        case 2:
            *ox = (x - y * rz) * s + bw->translation_x;
            *oy = (x * rz + y) * s + bw->translation_y;
            *oz = z * s + bw->translation_z;
            return 0;
        case 3:
            *ox = (x - y * rz + z * ry) * s + bw->translation_x;
            *oy = (x * rz + y - z * rx) * s + bw->translation_y;
            *oz = (-ry * x + rx * y + z) * s + bw->translation_z;
            return 0;
        default:
            return -1;
    }
}

void gdt_bw_invert(const gdt_bursa_wolf *in, gdt_bursa_wolf *out)
{
    // First order: negated translations and rotations, the inverse scale.
    gdt_bursa_wolf r = *in;
    r.translation_x = -in->translation_x;
    r.translation_y = -in->translation_y;
    r.translation_z = -in->translation_z;
    r.rotation_x = -in->rotation_x;
    r.rotation_y = -in->rotation_y;
    r.rotation_z = -in->rotation_z;
    r.scale = in->scale != 0 ? 1.0 / in->scale : 1.0;
    *out = r;
}

void gdt_bw_combine(const gdt_bursa_wolf *a, const gdt_bursa_wolf *b, gdt_bursa_wolf *out)
{
    gdt_bursa_wolf r;
    r.level = a->level > b->level ? a->level : b->level;
    r.translation_x = a->translation_x + b->translation_x;
    r.translation_y = a->translation_y + b->translation_y;
    r.translation_z = a->translation_z + b->translation_z;
    r.rotation_x = a->rotation_x + b->rotation_x;
    r.rotation_y = a->rotation_y + b->rotation_y;
    r.rotation_z = a->rotation_z + b->rotation_z;
    r.scale = a->scale * b->scale;
    *out = r;
}
