/*
 * gdt_seam.cpp: the engine behind the conversions of dataset coordinates.
 *
 * Dataset coordinates sit below this module and reach the engine through a
 * table of entry points. The table is installed when the library is loaded,
 * so that every conversion of every caller finds the engine without a call
 * of its own; the engine itself starts (reads its tables) on the first
 * coordinate system asked for.
 */
#include <cstdio>

#include "gdt_internal.h"
#include "vld_coords_internal.h"
#include "vln_guard_internal.h"

namespace {

int inq(int *id, const char *entity, const char *attribute, const char *type, void *out,
        int out_size)
{
    // The engine writes back the attribute and type of an iterating inquiry;
    // the conversions ask for exact names, on copies.
    char name[64], letter[4];
    std::snprintf(name, sizeof name, "%s", attribute ? attribute : "");
    std::snprintf(letter, sizeof letter, "%s", type ? type : "*");
    return gdt_inq_coord_sys(id, entity, name, letter, out, out_size);
}

int datum_radius(const char *datum, double *radius)
{
    vln::Guard lock(&VLN_GLOBAL_GDT_MUTEX);
    if (gdt::engine_start() != 0) return -1;
    if (gdt::gdb_datum_radius(datum, radius) != 0) {
        gdt::reportf('U', 3, "Datum \"%s\" not found", datum ? datum : "");
        return -1;
    }
    return 0;
}

const vld::CoordEngine kEngine = {
    gdt_crelock_coord_sys,
    gdt_delete_coord_sys,
    gdt_set_source,
    gdt_set_target,
    gdt_mod_trans_mode,
    gdt_transform,
    inq,
    gdt_install_error,
    datum_radius,
};

/* Installed with the library, after the objects below it are set up. */
__attribute__((constructor)) void install_at_load()
{
    gdt::install_coord_engine();
}

}  // namespace

void gdt::install_coord_engine()
{
    vld::set_coord_engine(&kEngine);
}
