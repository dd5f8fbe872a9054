/*
 * gdt_system.cpp: coordinate systems of the engine.
 *
 * A system is made from three names: a datum (a row of "datum_sp"), a
 * projection ("GEODETIC", "GEOCENTRIC", "USGS ..." or a row of "project") and
 * units ("horizontal/vertical"). Ids run from 1 to 399. A locked system may
 * be transformed and is shared: asking again for the same names adds a
 * reference. The engine starts on the first creation: it opens its tables,
 * builds the fixed descriptions and installs the base projections.
 */
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "gdt_internal.h"
#include "gdt_proj_internal.h"
#include "vln_guard_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

gdt::CoordSys *systems[gdt::kMaxSystems];
bool started = false;
gdt::CoordSys proto_sys;
gdt::Affine proto_affine;

gdt_struct_desc *d_units, *d_aoi, *d_resolution, *d_datum, *d_projection, *d_affine, *d_special;

bool modification_warned = false;

gdt_struct_desc *describe(
    const char *name, void *base,
    std::initializer_list<std::pair<const char *, std::pair<void *, const char *>>> attrs)
{
    struct_begin(name, base);
    for (const auto &a : attrs) struct_add(a.first, a.second.first, a.second.second);
    return struct_end();
}

void build_descriptions()
{
    gdt::CoordSys &c = proto_sys;
    d_units = describe("units", &c.units,
                       {{"%horizontal_label", {c.units.horizontal_label, "s"}},
                        {"%horizontal_factor", {&c.units.horizontal_factor, "d"}},
                        {"%vertical_label", {c.units.vertical_label, "s"}},
                        {"%vertical_factor", {&c.units.vertical_factor, "d"}}});
    d_aoi = describe("aoi", &c.aoi,
                     {{"x0", {&c.aoi.x0, "d"}},
                      {"x1", {&c.aoi.x1, "d"}},
                      {"y0", {&c.aoi.y0, "d"}},
                      {"y1", {&c.aoi.y1, "d"}}});
    d_resolution = describe("resolution", &c.resolution, {{"resolution", {&c.resolution, "d"}}});
    d_datum = describe("datum", &c.datum,
                       {{"%name", {c.datum.name, "s"}},
                        {"%radius", {&c.datum.radius, "d"}},
                        {"%eccentricity", {&c.datum.eccentricity, "d"}},
                        {"%metre_factor", {&c.datum.metre_factor, "d"}},
                        {"%prime_merid", {&c.datum.prime_merid, "d"}}});
    d_projection = describe("projection", &c.projection,
                            {{"%name", {c.projection.name, "s"}},
                             {"%metre_factor", {&c.projection.metre_factor, "d"}}});
    gdt::Affine &a = proto_affine;
    d_affine = describe("Affine", &a,
                        {{"%map_x_offset", {&a.map_x_offset, "d"}},
                         {"%map_x_xfact", {&a.map_x_xfact, "d"}},
                         {"%map_x_yfact", {&a.map_x_yfact, "d"}},
                         {"%map_y_offset", {&a.map_y_offset, "d"}},
                         {".map_y_xfact", {&a.map_y_xfact, "d"}},
                         {".map_y_yfact", {&a.map_y_yfact, "d"}}});
    d_special = describe("special...", &c, {});
}

bool valid_id(const int *id)
{
    return id && *id > 0 && *id < gdt::kMaxSystems && systems[*id];
}

void free_system(int id)
{
    gdt::CoordSys *s = systems[id];
    if (!s) return;
    std::free(s->block);
    std::free(s->usgs_text);
    std::free(s->trans_cache);
    std::free(s);
    systems[id] = nullptr;
}

/* Unit words of a geodetic system and their sizes in radians. */
bool angular_factor(const char *word, double *factor)
{
    static const struct {
        const char *word;
        double factor;
    } words[] = {{"degrees", kPi / 180}, {"radians", 1.0}, {"grads", kPi / 200}};
    for (const auto &w : words)
        if (strcasecmp(word, w.word) == 0) {
            *factor = w.factor;
            return true;
        }
    return false;
}

/* The name of a linear unit of the given size; the sizes stand as they
 * always have, also those that differ from the usual definitions. */
const char *linear_label(double factor)
{
    static const struct {
        const char *word;
        double factor;
    } words[] = {{"metres", 1.0},        {"feet", 0.30479},    {"yards", 0.91439},
                 {"links", 0.201167},    {"chains", 20.01167}, {"roods", 3.7782},
                 {"Brealy Units", 375.0}};
    for (const auto &w : words)
        if (std::fabs(factor - w.factor) < 0.001) return w.word;
    return "????";
}

double linear_factor(const char *word)
{
    static const struct {
        const char *word;
        double factor;
    } words[] = {{"metres", 1.0}, {"meters", 1.0}, {"feet", 0.3048}, {"yards", 0.9144}};
    for (const auto &w : words)
        if (strcasecmp(word, w.word) == 0) return w.factor;
    return 1.0;
}

void copy_name(char *to, const char *from)
{
    size_t n = strnlen(from, gdt::kNameSize - 1);
    std::memcpy(to, from, n);
    to[n] = '\0';
}

/* Loads the system's datum, projection and block from the tables: 0, or -1
 * after a report. */
int load(gdt::CoordSys *s, const char *datum, const char *projection, const char *unit_word)
{
    if (gdb_set_table("datum_sp") != 0 || gdb_set_name_key(datum) != 0) {
        gdt::reportf('U', 0, "Datum \"%s\" not found", datum);
        return -1;
    }
    copy_name(s->datum.name, datum);
    if (gdb_load("radius", "d", &s->datum.radius) != 0 ||
        gdb_load("eccentricity", "d", &s->datum.eccentricity) != 0 ||
        gdb_load("metre_factor", "d", &s->datum.metre_factor) != 0) {
        gdt::reportf('S', 0, "Datum \"%s\": radius, eccentricity or metre_factor missing", datum);
        return -1;
    }
    char field[512];
    if (gdb_load("prime_merid", "s", field) == 0) {
        // A field is as long as its line; the text is kept to the record's size.
        copy_name(s->prime_merid_text, field);
        s->datum.prime_merid = std::atof(field) * kPi / 180;
    }
    copy_name(s->projection.name, projection);
    s->base = gdt::kNoBase;

    if (std::strcmp(projection, "GEODETIC") == 0) {
        s->coord_type = gdt::kGeodetic;
        const char *word =
            unit_word[0] && strcasecmp(unit_word, "natural") != 0 ? unit_word : "degrees";
        if (!angular_factor(word, &s->units.horizontal_factor)) {
            gdt::report('U', 0, "Bad Angular unit");
            return -1;
        }
        copy_name(s->units.horizontal_label, word);
        return 0;
    }
    if (std::strcmp(projection, "GEOCENTRIC") == 0) {
        s->coord_type = gdt::kGeocentric;
        s->units.horizontal_factor = 1.0;
        copy_name(s->units.horizontal_label, "metres");
        return 0;
    }

    s->coord_type = gdt::kProjected;
    char type[512] = "";
    double row_radius = 0.0, row_ecc = 0.0;
    if (s->usgs_text) {
        std::strcpy(type, "usgs");
        s->projection.metre_factor = 1.0;
    } else {
        if (gdb_set_table("project") != 0 || gdb_set_name_key(projection) != 0) {
            gdt::reportf('U', 0, "Projection \"%s\" not found", projection);
            return -1;
        }
        if (gdb_load("type", "s", type) != 0 ||
            gdb_load("metre_factor", "d", &s->projection.metre_factor) != 0 ||
            !(s->projection.metre_factor > 0)) {
            gdt::reportf('S', 0, "Projection \"%s\": type or metre_factor missing", projection);
            return -1;
        }
        gdb_load("radius", "d", &row_radius);
        gdb_load("eccentricity", "d", &row_ecc);
        char row_pm[512] = "";
        if (gdb_load("prime_merid", "s", row_pm) == 0 &&
            std::strcmp(row_pm, s->prime_merid_text) != 0)
            s->status |= gdt::kStatusPrimeMeridian;
    }
    // A field projection wraps another: its parameters are the other's, and
    // an affine map of the plane follows.
    const bool is_field = std::strcmp(type, "field") == 0;
    char reference[512] = "";
    gdt::Affine affine{};
    if (is_field) {
        char ref_datum[512] = "";
        if (gdb_set_table("field") != 0 || gdb_set_name_key(projection) != 0 ||
            gdb_load("ref_proj_name", "s", reference) != 0 ||
            gdb_load("ref_datum_name", "s", ref_datum) != 0 ||
            gdb_load("map_x_offset", "d", &affine.map_x_offset) != 0 ||
            gdb_load("map_y_offset", "d", &affine.map_y_offset) != 0 ||
            gdb_load("map_x_xfact", "d", &affine.map_x_xfact) != 0 ||
            gdb_load("map_x_yfact", "d", &affine.map_x_yfact) != 0) {
            gdt::reportf('S', 0, "Parameters of projection \"%s\" missing in table field",
                         projection);
            return -1;
        }
        // Kept: the y factors follow from the x ones, so the map is a similarity.
        affine.map_y_xfact = -affine.map_x_yfact;
        affine.map_y_yfact = affine.map_x_xfact;
        if (strcasecmp(ref_datum, datum) != 0) s->status |= gdt::kStatusSpheroid;
        if (gdb_set_table("project") != 0 || gdb_set_name_key(reference) != 0 ||
            gdb_load("type", "s", type) != 0 ||
            gdb_load("metre_factor", "d", &s->projection.metre_factor) != 0 ||
            !(s->projection.metre_factor > 0)) {
            gdt::report('S', 0, "Field ref-projection not found");
            return -1;
        }
    }
    s->units.horizontal_factor = s->projection.metre_factor;
    copy_name(s->units.horizontal_label, linear_label(s->projection.metre_factor));

    const int real = gdt::find_base(type);
    s->base = is_field && real >= 0 ? gdt::field_base(real) : real;
    const gdt::Base *base = gdt::base_at(s->base);
    if (!base) {
        gdt::reportf('S', 0, "Base projection \"%s\" not found", type);
        return -1;
    }
    s->block = std::calloc(1, static_cast<size_t>(base->block_size));
    if (!s->block) {
        gdt::report('S', 0, "memory shortage");
        return -1;
    }
    if (!s->usgs_text) {
        // A field's own parameters are its reference projection's row.
        void *params = s->block;
        const gdt_struct_desc *description = base->description;
        if (is_field) {
            params = static_cast<char *>(s->block) + gdt::field_fill(s->block, real, affine);
            description = gdt::base_at(real)->description;
        }
        const char *key = is_field ? reference : projection;
        if (gdb_set_table(type) != 0 || gdb_set_name_key(key) != 0 ||
            gdb_struct_load(description, params) != 0) {
            gdt::reportf('S', 0, "Parameters of projection \"%s\" missing in table %s", key, type);
            return -1;
        }
    }
    auto *block = static_cast<char *>(s->block);
    if (base->radius_offset >= 0) {
        double r = s->datum.radius * s->datum.metre_factor / s->projection.metre_factor;
        std::memcpy(block + base->radius_offset, &r, sizeof r);
    }
    if (base->eccentricity_offset >= 0)
        std::memcpy(block + base->eccentricity_offset, &s->datum.eccentricity, sizeof(double));
    if (row_radius > 0) {
        if (std::fabs(row_radius * s->projection.metre_factor -
                      s->datum.radius * s->datum.metre_factor) > 0.1 ||
            std::fabs(row_ecc - s->datum.eccentricity) > 4e-7)
            s->status |= gdt::kStatusSpheroid;
    }
    if (s->usgs_text)
        std::snprintf(static_cast<char *>(s->block), kGdtUsgsTextSize, "%s", s->usgs_text);
    if (base->init(s->block) != 0) {
        gdt::report('U', 0, "projection initialisation");
        return -1;
    }
    return 0;
}

/* Splits "horizontal/vertical"; each part under 20 characters. */
bool split_units(const char *units, char *horizontal, char *vertical)
{
    const char *slash = std::strchr(units, '/');
    size_t h = slash ? static_cast<size_t>(slash - units) : std::strlen(units);
    const char *v = slash ? slash + 1 : "";
    if (h >= gdt::kNameSize || std::strlen(v) >= gdt::kNameSize) return false;
    std::memcpy(horizontal, units, h);
    horizontal[h] = '\0';
    std::strcpy(vertical, v);
    return true;
}

int create(const char *datum, const char *projection, const char *units)
{
    if (gdt::engine_start() != 0) return -1;
    if (!datum || !projection) {
        gdt::report('U', 3, "Datum and projection must be named (cs_create)");
        return -1;
    }
    if (!units) units = "";
    bool usgs = strncasecmp(projection, "USGS ", 5) == 0;
    char horizontal[gdt::kNameSize], vertical[gdt::kNameSize];
    if (std::strlen(datum) >= gdt::kNameSize ||
        std::strlen(projection) >= static_cast<size_t>(usgs ? kGdtUsgsTextSize : gdt::kNameSize) ||
        std::strlen(units) >= gdt::kNameSize || !split_units(units, horizontal, vertical)) {
        gdt::report('U', 3, "Name too big (cs_create)");
        return -1;
    }
    int id = 0;
    for (int i = 1; i < gdt::kMaxSystems && !id; i++)
        if (!systems[i]) id = i;
    if (!id) {
        gdt::report('S', 3, "Too many coordinate systems (cs_create)");
        return 0;
    }
    auto *s = static_cast<gdt::CoordSys *>(std::calloc(1, sizeof(gdt::CoordSys)));
    if (!s) {
        gdt::report('S', 3, "Memory shortage (cs_create)");
        return -1;
    }
    systems[id] = s;
    s->references = 1;
    copy_name(s->unit_word, horizontal);
    copy_name(s->vertical_word, vertical);
    copy_name(s->units.vertical_label, vertical[0] ? vertical : "metres");
    s->units.vertical_factor = vertical[0] ? linear_factor(vertical) : 1.0;
    if (usgs) s->usgs_text = strsave(projection);
    int status = load(s, datum, usgs ? "USGS" : projection, horizontal);
    if (status != 0) {
        gdt::reportf('U', 3, "%s (cs_db_load)", gdt::last_text());
        free_system(id);
        return -1;
    }
    if (s->status) gdt::report('P', 3, "P:Inconsistent datum/projection pair");
    return id;
}

bool same_units(const gdt::CoordSys *s, const char *horizontal, const char *vertical)
{
    auto natural = [](const char *w) { return !w[0] || strcasecmp(w, "natural") == 0; };
    if (natural(s->unit_word) || natural(horizontal)) {
        if (natural(s->unit_word) != natural(horizontal)) return false;
    } else if (std::strcmp(s->unit_word, horizontal) != 0) {
        return false;
    }
    return std::strcmp(s->vertical_word, vertical) == 0;
}

}  // namespace

gdt::CoordSys *gdt::system_at(int id)
{
    return valid_id(&id) ? systems[id] : nullptr;
}

const gdt_struct_desc *gdt::units_description()
{
    return d_units;
}
const gdt_struct_desc *gdt::aoi_description()
{
    return d_aoi;
}
const gdt_struct_desc *gdt::resolution_description()
{
    return d_resolution;
}
const gdt_struct_desc *gdt::datum_description()
{
    return d_datum;
}
const gdt_struct_desc *gdt::projection_description()
{
    return d_projection;
}
const gdt_struct_desc *gdt::affine_description()
{
    return d_affine;
}

int gdt::engine_start()
{
    if (started) return 0;
    vln::Guard lock(&csect);
    if (started) return 0;
    for (const char *table : {"datum_sp", "project", "datumcha", "bursawol"}) {
        if (gdb_set_table(table) != 0) {
            reportf('S', 3, "initialising the database: no table %s.dat in %s", table, gdb_path());
            return -1;
        }
    }
    build_descriptions();
    if (base_install() != 0) {
        report('P', 3, "initialising the base projections");
        return -1;
    }
    started = true;
    return 0;
}

void gdt::engine_reset()
{
    for (int id = 1; id < kMaxSystems; id++)
        if (systems[id]) {
            drop_transforms_of(id);
            free_system(id);
        }
    for (gdt_struct_desc **d :
         {&d_units, &d_aoi, &d_resolution, &d_datum, &d_projection, &d_affine, &d_special}) {
        std::free(*d);
        *d = nullptr;
    }
    base_reset();
    gdb_reset();
    started = false;
}

int gdt_create_coord_sys(const char *datum, const char *projection, const char *units)
{
    return create(datum, projection, units);
}

int gdt_crelock_coord_sys(const char *datum, const char *projection, const char *units)
{
    if (gdt::engine_start() != 0) return -1;
    if (datum && projection) {
        char horizontal[gdt::kNameSize], vertical[gdt::kNameSize];
        const char *u = units ? units : "";
        bool usgs = strncasecmp(projection, "USGS ", 5) == 0;
        if (std::strlen(u) < gdt::kNameSize && split_units(u, horizontal, vertical)) {
            for (int id = 1; id < gdt::kMaxSystems; id++) {
                gdt::CoordSys *s = systems[id];
                if (!s || !s->locked || strcasecmp(s->datum.name, datum) != 0) continue;
                if (usgs ? !(s->usgs_text && std::strcmp(s->usgs_text, projection) == 0)
                         : (s->usgs_text || strcasecmp(s->projection.name, projection) != 0))
                    continue;
                if (!same_units(s, horizontal, vertical)) continue;
                s->references++;
                return id;
            }
        }
    }
    int id = create(datum, projection, units);
    if (id > 0) systems[id]->locked = 1;
    return id;
}

int gdt_check_creation_coord_sys(const char *datum, const char *projection, const char *units)
{
    int id = create(datum, projection, units);
    if (id <= 0) return -1;
    int status = systems[id]->status;
    gdt_delete_coord_sys(&id);
    return status;
}

int gdt_inq_status_coord_sys(int *id)
{
    if (!valid_id(id)) {
        gdt::report('P', 3, "bad cs id (gdt_inq_status_coord_sys)");
        return -1;
    }
    return systems[*id]->status;
}

int gdt_copy_coord_sys(int *id)
{
    if (!valid_id(id)) {
        gdt::report('P', 3, "bad cs id (gdt_copy_coord_sys)");
        return -1;
    }
    int copy = 0;
    for (int i = 1; i < gdt::kMaxSystems && !copy; i++)
        if (!systems[i]) copy = i;
    if (!copy) {
        gdt::report('S', 3, "Too many coordinate systems (cs_create)");
        return 0;
    }
    const gdt::CoordSys *from = systems[*id];
    auto *s = static_cast<gdt::CoordSys *>(std::malloc(sizeof(gdt::CoordSys)));
    if (!s) {
        gdt::report('S', 3, "Memory shortage (cs_create)");
        return -1;
    }
    *s = *from;
    s->references = 1;
    s->locked = 0;
    s->trans_cache = nullptr;
    s->usgs_text = from->usgs_text ? strsave(from->usgs_text) : nullptr;
    if (from->block) {
        const gdt::Base *base = gdt::base_at(from->base);
        s->block = malloc_or_die(static_cast<size_t>(base->block_size));
        std::memcpy(s->block, from->block, static_cast<size_t>(base->block_size));
    }
    systems[copy] = s;
    return copy;
}

int gdt_lock_coord_sys(int *id)
{
    if (!valid_id(id)) {
        gdt::report('P', 3, "bad cs id (gdt_lock_coord_sys)");
        return -1;
    }
    systems[*id]->locked = 1;
    return 0;
}

int gdt_delete_coord_sys(int *id)
{
    if (!valid_id(id)) {
        gdt::report('P', 3, "bad cs id (gdt_delete_coord_sys)");
        return -1;
    }
    if (--systems[*id]->references > 0) return 0;
    gdt::drop_transforms_of(*id);
    free_system(*id);
    return 0;
}

int gdt_next_coord_sys(int *id)
{
    // A system comes back once for each of its references.
    static int repeat = 0;
    if (!id) return -1;
    if (*id == 0) repeat = 0;
    int i = *id;
    if (i > 0 && i < gdt::kMaxSystems && systems[i] && ++repeat < systems[i]->references) return i;
    repeat = 0;
    for (i = i + 1; i < gdt::kMaxSystems; i++)
        if (systems[i]) {
            *id = i;
            return i;
        }
    *id = 0;
    return 0;
}

int gdt_mod_coord_sys(int *id, const char *entity, const char *attribute, const char *type,
                      const void *value)
{
    if (!valid_id(id) || !entity) {
        gdt::report('P', 3, "bad cs id (gdt_mod_coord_sys)");
        return -1;
    }
    gdt::CoordSys *s = systems[*id];
    if (s->locked) {
        gdt::report('P', 3, "(gdt_mod_coord_sys) coord sys is locked");
        return -2;
    }
    if (std::strcmp(entity, "aoi") == 0) return struct_mod(d_aoi, &s->aoi, attribute, type, value);
    if (std::strcmp(entity, "resolution") == 0)
        return struct_mod(d_resolution, &s->resolution, attribute, type, value);
    if (std::strcmp(entity, "datum") == 0) {
        gdt::report('U', 3, "No DATUM modifications allowed");
        return -1;
    }
    if (std::strcmp(entity, "projection") != 0) {
        gdt::report('P', 3, "(gdt_mod_coord_sys) unknown entity");
        return -6;
    }
    if (s->coord_type != gdt::kProjected) {
        gdt::report('U', 3, "No projection parameters to modify");
        return 0;
    }
    const gdt::Base *base = gdt::base_at(s->base);
    char modifiable[48];
    std::snprintf(modifiable, sizeof modifiable, "mod_%s", base->name);
    if (std::strcmp(s->projection.name, modifiable) != 0) {
        gdt::report('U', 3, "Projection instance is not modifiable");
        return -4;
    }
    if (struct_mod(base->description, s->block, attribute, type, value) != 0) return -1;
    if (!modification_warned) {
        std::printf(" Warning - projection parameters being modified !");
        modification_warned = true;
    }
    char text[64] = "";
    char letter[4] = "*";
    char name[64];
    std::snprintf(name, sizeof name, "%s", attribute);
    struct_inq(base->description, s->block, name, letter, text, sizeof text);
    std::printf("\n PROJECTION MODIFICATION on %s", s->projection.name);
    std::printf("\n attribute =  %s %s", attribute, text);
    return base->init(s->block) == 0 ? 0 : -1;
}

int gdt_inq_coord_sys(int *id, const char *entity, char *attribute, char *type, void *out,
                      int out_size)
{
    if (!valid_id(id) || !entity || !attribute) {
        gdt::report('P', 3, "bad cs id (gdt_inq_coord_sys)");
        return -1;
    }
    gdt::CoordSys *s = systems[*id];
    const gdt_struct_desc *d = nullptr;
    const void *block = nullptr;
    if (std::strcmp(entity, "aoi") == 0) {
        d = d_aoi;
        block = &s->aoi;
    } else if (std::strcmp(entity, "resolution") == 0) {
        d = d_resolution;
        block = &s->resolution;
    } else if (std::strcmp(entity, "units") == 0) {
        d = d_units;
        block = &s->units;
    } else if (std::strcmp(entity, "datum") == 0) {
        d = d_datum;
        block = &s->datum;
    } else if (std::strcmp(entity, "projection") == 0) {
        if (std::strcmp(attribute, "name") == 0 || std::strcmp(attribute, "metre_factor") == 0) {
            d = d_projection;
            block = &s->projection;
        } else if (const gdt::Base *base = gdt::base_at(s->base)) {
            d = base->description;
            block = s->block;
        } else {
            return -1;
        }
    } else {
        gdt::report('P', 3, "(gdt_inq_coord_sys) unknown entity");
        return -6;
    }
    return struct_inq(d, block, attribute, type, out, out_size);
}

void gdt_debug(void)
{
    std::printf("Base projections:\n");
    for (int i = 0; i < gdt::base_count(); i++) {
        const gdt::Base *b = gdt::base_at(i);
        std::printf("  %3d %-12s mode %d block %d\n", i, b->name, b->mode, b->block_size);
    }
    std::printf("Coordinate systems:\n");
    for (int id = 1; id < gdt::kMaxSystems; id++)
        if (const gdt::CoordSys *s = systems[id])
            std::printf("  %3d %-19s %-19s %-12s refs %d%s status %d\n", id, s->datum.name,
                        s->projection.name, s->units.horizontal_label, s->references,
                        s->locked ? " locked" : "", s->status);
}
