/*
 * vld_cvt_engine.cpp: the coordinate engine as dataset coordinates see it.
 *
 * Creating a coordinate system in the engine is costly, so systems are built
 * once per (datum, projection, units) and kept in a cache of 400 entries; the
 * geodetic system that LL coordinates go through is kept in a cache of one.
 * Everything here runs under VLN_GLOBAL_GDT_MUTEX, which is recursive, so the
 * cache look-ups may be called from inside a caller's critical section.
 *
 * The engine reports failures through a handler that this file installs once:
 * messages of class "P" are the engine's notes and are dropped, every other
 * message becomes VLD_ERR_GEODETIC_TRANSFORM.
 */
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "vld_coords_internal.h"
#include "vld_dshdr_internal.h"

namespace {

constexpr int kSpaceCacheSize = 400;

struct CacheEntry {
    std::string datum, projection, units;
    int id = 0;
    int8_t count = 0;  // hit count; wraps like the 8-bit counter it always was
    bool used = false;
};

struct Caches {
    CacheEntry spaces[kSpaceCacheSize];
    int next_free = 0;
    std::string geodetic_datum;
    int geodetic_id = 0;
    bool geodetic_valid = false;
    std::string radius_datum;
    double radius = 0.0;
    bool radius_valid = false;
};

const vld::CoordEngine *engine = nullptr;
bool handler_installed = false;

/* Built on first use: the coordinate module installs its engine while the
 * library is being loaded, possibly before this file's statics are set up. */
Caches &cache_store()
{
    static Caches store;
    return store;
}

void delete_id(int id)
{
    if (id > 0 && engine && engine->delete_coord_sys) engine->delete_coord_sys(&id);
}

/* The engine's messages: "P" notes are dropped, anything else fails the call. */
void engine_message(const char *message)
{
    if (!message || message[0] == 'P' || message[0] == 'p') return;
    VLD_setup_error(VLD_ERR_GEODETIC_TRANSFORM, message);
}

void ensure_handler()
{
    if (handler_installed || !engine || !engine->install_error) return;
    engine->install_error(engine_message);
    handler_installed = true;
}

std::string text(const char *s)
{
    return s ? s : "";
}

}  // namespace

void vld::set_coord_engine(const CoordEngine *table)
{
    vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);
    flush_coord_caches();
    engine = table;
    handler_installed = false;
}

const vld::CoordEngine *vld::coord_engine()
{
    return engine;
}

int vld::cached_coord_sys(const char *datum, const char *projection, const char *units)
{
    vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);
    Caches &caches = cache_store();
    std::string d = text(datum), p = text(projection), u = text(units);
    CacheEntry *found = nullptr;
    for (CacheEntry &e : caches.spaces) {
        if (!e.used) continue;
        if (!found && e.datum == d && e.projection == p && e.units == u) {
            found = &e;
            e.count = static_cast<int8_t>(e.count + 1);
        } else {
            e.count = static_cast<int8_t>(e.count - 1);
        }
    }
    if (found) return found->id;

    CacheEntry *slot;
    if (caches.next_free < kSpaceCacheSize) {
        slot = &caches.spaces[caches.next_free++];
    } else {
        slot = &caches.spaces[0];
        for (CacheEntry &e : caches.spaces)
            if (e.count < slot->count) slot = &e;
        delete_id(slot->id);
    }
    // The slot keeps the count it had: 0 when fresh, the least when evicted.
    ensure_handler();
    slot->datum = d;
    slot->projection = p;
    slot->units = u;
    slot->used = true;
    slot->id = engine && engine->crelock_coord_sys
                   ? engine->crelock_coord_sys(datum, projection, units)
                   : -1;
    return slot->id;
}

int vld::cached_geodetic_sys(const char *datum)
{
    vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);
    Caches &caches = cache_store();
    std::string d = text(datum);
    if (caches.geodetic_valid && caches.geodetic_datum == d) return caches.geodetic_id;
    if (caches.geodetic_valid) delete_id(caches.geodetic_id);
    ensure_handler();
    caches.geodetic_datum = d;
    caches.geodetic_valid = true;
    caches.geodetic_id = engine && engine->crelock_coord_sys
                             ? engine->crelock_coord_sys(datum, "GEODETIC", "radians")
                             : -1;
    return caches.geodetic_id;
}

void vld::flush_coord_caches()
{
    vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);
    Caches &caches = cache_store();
    for (CacheEntry &e : caches.spaces)
        if (e.used) delete_id(e.id);
    if (caches.geodetic_valid) delete_id(caches.geodetic_id);
    for (CacheEntry &e : caches.spaces) e = CacheEntry{};
    caches.next_free = 0;
    caches.geodetic_datum.clear();
    caches.geodetic_id = 0;
    caches.geodetic_valid = false;
    caches.radius_datum.clear();
    caches.radius_valid = false;
}

int vld::cached_datum_radius(const char *datum, double &radius)
{
    vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);
    Caches &caches = cache_store();
    std::string d = text(datum);
    if (caches.radius_valid && caches.radius_datum == d) {
        radius = caches.radius;
        return 0;
    }
    if (!engine || !engine->datum_radius)
        return VLD_setup_error(VLD_ERR_GEODETIC_TRANSFORM, "no coordinate engine is available");
    ensure_handler();
    double r = 0.0;
    if (engine->datum_radius(d.c_str(), &r) != 0 || !(r > 0.0)) {
        std::string message = "no radius for datum " + d;
        return VLD_setup_error(VLD_ERR_GEODETIC_TRANSFORM, message.c_str());
    }
    caches.radius_datum = d;
    caches.radius = r;
    caches.radius_valid = true;
    radius = r;
    return 0;
}

int vld::coord_cache_size()
{
    vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);
    Caches &caches = cache_store();
    return caches.next_free;
}

bool vld::coord_cache_holds(const char *datum, const char *projection, const char *units)
{
    vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);
    Caches &caches = cache_store();
    for (const CacheEntry &e : caches.spaces)
        if (e.used && e.datum == text(datum) && e.projection == text(projection) &&
            e.units == text(units))
            return true;
    return false;
}

int vld::engine_pass(int source, int target, const dscoord &in, dscoord &out)
{
    vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);
    if (!engine)
        return VLD_setup_error(VLD_ERR_GEODETIC_TRANSFORM, "no coordinate engine is available");
    ensure_handler();
    if (engine->set_source(&source) < 0 || engine->set_target(&target) < 0) {
        if (VLD_error.code != VLD_ERR_GEODETIC_TRANSFORM)
            VLD_setup_error(VLD_ERR_GEODETIC_TRANSFORM, "cannot set up the transformation");
        return VLD_ERR_GEODETIC_TRANSFORM;
    }
    int mode = 1;
    if (engine->mod_trans_mode(&mode) != 0) {
        mode = 2;
        engine->mod_trans_mode(&mode);
    }
    bool no_z = vln_disnan(in.z);
    double x = in.x, y = in.y, z = no_z ? 0.0 : in.z;
    double ox = 0.0, oy = 0.0, oz = 0.0;
    // The handler has set the text of a failed transform.
    if (engine->transform(&x, &y, &z, &ox, &oy, &oz) != 0) return VLD_ERR_GEODETIC_TRANSFORM;
    out.x = ox;
    out.y = oy;
    out.z = no_z ? vln_nanval() : oz;
    return 0;
}

/* ---------------------------------------------------------------- unit sizes */

double get_meter_factor_from_datum_proj(const char *datum, const char *projection,
                                        const char *units)
{
    if (!datum || !projection || !units) return 1.0;
    if (std::strcmp(datum, "RAW") == 0 || std::strcmp(projection, "GEODETIC") == 0) return 1.0;
    // The unit sizes live in the engine's tables; without the engine every
    // space counts in metres.
    vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);
    if (!engine || !engine->inq_coord_sys) return 1.0;
    int id = vld::cached_coord_sys(datum, projection, units);
    if (id <= 0) return 1.0;
    double factor = 0.0;
    if (engine->inq_coord_sys(&id, "units", "horizontal_factor", "d", &factor,
                              static_cast<int>(sizeof factor)) < 0)
        return 1.0;
    return factor == 0.0 ? 1.0 : factor;
}

char *get_units_from_datum_proj(const char *datum, const char *projection, const char *units)
{
    if (!datum || !projection || !units || std::strcmp(datum, "RAW") == 0) return strsave("Meters");
    if (std::strcmp(projection, "GEODETIC") == 0) return strsave("Decimal Degrees");
    vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);
    if (engine && engine->inq_coord_sys) {
        int id = vld::cached_coord_sys(datum, projection, units);
        char label[64] = "";
        if (id > 0 && engine->inq_coord_sys(&id, "units", "horizontal_label", "s", label,
                                            static_cast<int>(sizeof label)) >= 0) {
            label[sizeof label - 1] = '\0';
            if (label[0]) return strsave(label);
        }
    }
    return strsave(units);
}

int VLN_coordspace_valid(const coordspace *space)
{
    if (!space || !space->datum || !space->projection || !space->units) return 0;
    if (space->coordsystype == CST_RAW && vld::is_raw_space(space) &&
        VLD_strcasecmp(space->units, "meters") == 0)
        return 1;
    if (std::strcmp(space->projection, "LOCAL") == 0) return 1;
    vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);
    if (!engine || !engine->crelock_coord_sys) return 0;
    ensure_handler();
    int id = engine->crelock_coord_sys(space->datum, space->projection, space->units);
    bool valid = id > 0;
    delete_id(id);
    return valid ? 1 : 0;
}
