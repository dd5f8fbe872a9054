/*
 * vld_dshdr_read.cpp: eg_dshdr, the one way in to a dataset's description.
 *
 * The name's ending picks the route: a header document (".vld", ".vlv", ".cam"
 * and the like), an algorithm (".alg"), or a foreign file, which is described
 * by a ".vld" beside it (a side header) or read through a translator. After a
 * header is read, old forms are brought up to date: a missing coordinate space
 * becomes the default one, raw coordinates that old files stored in cells are
 * scaled by the old cell size, and a vector dataset never stays in latitude
 * and longitude.
 *
 * An algorithm, or a header with an Algorithm block, is a virtual dataset:
 * its raster fields come from the algorithm. The translators stand above this
 * module; until they are built their route gives "Filetype unknown" (169).
 */
#include <cmath>
#include <cstring>
#include <string>

#include "vld_alg.h"
#include "vld_dshdr_internal.h"
#include "vld_worldfile.h"
#include "vln_path.h"
#include "vln_path_internal.h"
#include "vln_guard_internal.h"

namespace {

bool ends_with(const char *name, const char *ending)
{
    size_t n = std::strlen(name), e = std::strlen(ending);
    return n > e && VLD_strcasecmp(name + n - e, ending) == 0;
}

/* Names read as a DatasetHeader document. " $$ALG" marks a layer of an
 * algorithm; the file is the name without it. */
const char *const kHeaderEndings[] = {".vlv", ".vlv $$ALG", ".vld", ".alg",
                                      ".map", ".map $$ALG", ".cam"};

bool is_header_name(const char *name)
{
    for (const char *ending : kHeaderEndings)
        if (ends_with(name, ending)) return true;
    return false;
}

std::string header_file(const char *name)
{
    std::string file = name;
    if (ends_with(name, " $$ALG")) file.resize(file.size() - 6);
    return file;
}

/* Reads the header of a foreign file from the ".vld" beside it. 169 when there
 * is none, or when it doesn't describe the file through a translator. */
int read_side_header(dshdr *d, const char *name, vld::DshdrReadState &state)
{
    char *side = VLN_replace_ext(name, ".vld");
    if (!side || !fileexists(side)) {
        safe_free(side);
        return VLD_setup_error(VLD_ERR_RASTER_FILETYPE_UNKNOWN);
    }
    d->flags |= DSHDR_FLAG_SIDE_HEADER;
    int status = vld::read_dshdr_document(d, side, state);
    if (!status) {
        if (d->dataset_type != DST_Translated) {
            status = VLD_setup_error(VLD_ERR_RASTER_FILETYPE_UNKNOWN);
        } else if (vld::empty_text(d->data_file)) {
            status = VLD_setup_error(VLD_ERR_RASTER_TRANSLATOR,
                                     "Error determining data filename for translated data.");
        } else if (vld::same_file(d->data_file, name, side)) {
            // It names the file itself: the translator describes the file.
            status = VLD_setup_error(VLD_ERR_RASTER_FILETYPE_UNKNOWN);
        }
        // Otherwise the header stands for another file; the translator's own
        // attributes of that file join it when translators are built.
    }
    safe_free(side);
    return status;
}

int read_header(dshdr *d, const char *name, vld::DshdrReadState &state)
{
    int status = vld::read_dshdr_document(d, header_file(name).c_str(), state);
    if (status) return status;
    if (d->dataset_type == DST_Translated) {
        if (vld::empty_text(d->data_file))
            return VLD_setup_error(VLD_ERR_RASTER_TRANSLATOR,
                                   "Error determining data filename for translated data.");
    } else if (vld::empty_text(d->data_file)) {
        d->data_file = VLN_strip_ext(header_file(name).c_str());
    }
    return 0;
}

/* A foreign file that no side header describes goes to the translators. */
int read_foreign(const char *name)
{
    if (!fileexists(name) && !VLN_path_is_url(name))
        return VLD_setup_error(VLD_ERR_CANNOT_OPEN_FILE, name);
    // Translators, and the world file that may go with their data, are built
    // with the raster translator module; until then no foreign file is known.
    return VLD_setup_error(VLD_ERR_RASTER_FILETYPE_UNKNOWN);
}

/* Brings a header that was read up to date with the current form. */
void finish(dshdr *d, const char *name, vld::DshdrReadState &state)
{
    if (!state.cs.seen) df_coordspace_noalloc(&d->coordspace);
    const cellinfo *old = state.cs.old_cellinfo;
    if (old && d->coordspace.datum && std::strcmp(d->coordspace.datum, "RAW") == 0) {
        // Old files kept raw coordinates in cells, and the cell size here.
        double xd = old->x_dimension, yd = old->y_dimension;
        if (d->data_type == DT_Raster) {
            d->info.r.registration_coord.x *= xd;
            d->info.r.registration_coord.y *= yd;
        } else if (d->data_type == DT_Vector) {
            extents &e = d->info.v.extents;
            e.top_left.x *= xd;
            e.top_left.y *= yd;
            e.bottom_right.x *= xd;
            e.bottom_right.y *= yd;
        }
    }
    if (old && d->data_type == DT_Raster) {
        cellinfo plain{};
        setup_cellinfo_defaults(&plain);
        if (std::memcmp(&plain, &d->info.r.cellinfo, sizeof plain) == 0) d->info.r.cellinfo = *old;
    }
    if (d->data_type == DT_Vector && d->coordspace.coordsystype == CST_LL) {
        // Vector data is kept in eastings and northings. The extents keep the
        // values they were read with (radians), as files of this kind always have.
        d->coordspace.coordsystype = CST_EN;
        vld::replace_text(d->coordspace.units, "METERS");
    }
    vld::replace_text(d->name, name);
}

/* Makes the header of a virtual dataset from its algorithm, unless the
 * algorithm reads the dataset itself. */
int setup_virtual(dshdr *d, const char *name)
{
    if (VLD_check_ds_in_alg(d->algorithm, nullptr, name))
        return VLD_setup_vds_error("The Virtual Dataset \"%s\" points to itself, cannot load\n",
                                   name);
    reverse_alg_stack(d->algorithm);
    int status = VLD_setup_dsh_from_alg(d);
    if (!status) status = setup_all_region(d);
    return status;
}

/* Whether the header of a dataset holds an algorithm and names a data file,
 * for VLN_fspec_clashes. */
int probe_header(const char *vld_path, char **datafile, int *has_algorithm)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    dshdr d{};
    vld::DshdrReadState state;
    int status = vld::rec_read(&d, vld_path, vld::dshdr_record(), &state);
    *has_algorithm = state.algorithm_seen || d.algorithm != nullptr;
    if (*has_algorithm) {
        status = 0;
    } else if (!status) {
        *datafile = vld::empty_text(d.data_file) ? VLN_strip_ext(vld_path) : strsave(d.data_file);
    }
    ef_dshdr_contents(&d);
    return status;
}

/* VLN_fspec_clashes reads headers through this module from the library's start. */
struct ProbeRegistration {
    ProbeRegistration() { VLN_set_header_probe(probe_header); }
} probe_registration;

}  // namespace

int eg_dshdr(dshdr **record, const char *name)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    *record = nullptr;
    if (vld::empty_text(name)) return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
    vln::Guard lock(&vld_bt::vld_mutex);
    // Within one read each header is read once; later requests get a copy.
    vld::ReadScope scope;
    std::string key = vld::document_key(name);
    if ((*record = vld::cached_header(key, name)) != nullptr) return 0;
    dshdr *d = nullptr;
    if (ends_with(name, ".alg") && std::strlen(name) > 4) {
        algorithm *alg = nullptr;
        int status = eg_algorithm(&alg, name);
        if (status) {
            ef_algorithm(alg);
            return status;
        }
        ea_dshdr(&d);
        d->algorithm = alg;
        vld::replace_text(d->name, name);
        status = setup_virtual(d, name);
        if (status) {
            ef_dshdr(d);
            return status;
        }
        vld::cache_header(key, d);
        *record = d;
        return 0;
    }

    // A header whose algorithm leads back to it is refused before it is read again.
    vld::OpenDocument open(name);
    if (open.refused()) return open.refuse(name);
    ea_dshdr(&d);
    vld::vld_config_load_once();
    vld::DshdrReadState state;
    int status;
    if (is_header_name(name)) {
        status = read_header(d, name, state);
    } else {
        status = read_side_header(d, name, state);
        if (status) {
            ef_dshdr_contents(d);
            std::memset(d, 0, sizeof *d);
            char *ext = VLN_get_ext(name);
            bool foreign = !ext || VLD_strcasecmp(ext, ".vld") != 0;
            safe_free(ext);
            if (foreign) status = read_foreign(name);
        }
    }
    if (!status && !d->algorithm) finish(d, name, state);
    if (!status && d->algorithm) {
        vld::replace_text(d->name, name);
        status = setup_virtual(d, name);
    }
    if (!status && d->data_type == DT_Raster && d->info.r.nr_bands < 1 && !d->algorithm)
        status = VLD_setup_error(VLD_ERR_NO_BANDS, name);
    if (status) {
        ef_dshdr(d);
        return status;
    }
    vld::cache_header(key, d);
    *record = d;
    return 0;
}

int eg_dshdr_alg_or_vld(dshdr **record, const char *name)
{
    return eg_dshdr(record, name);
}

int eg_dshdr_standard(dshdr **record, const char *directory, const char *name)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    *record = nullptr;
    if (vld::empty_text(name)) return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
    char *full = nullptr;
    VLN_build_abs_fspec(&full, directory, name);
    int status = eg_dshdr(record, full ? full : name);
    safe_free(full);
    return status;
}

int VLN_can_write_dshdr(const char *name)
{
    if (vld::empty_text(name)) return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
    vln::Guard lock(&vld_bt::vld_mutex);
    dshdr *d = nullptr;
    if (eg_dshdr(&d, name)) return VLD_setup_error(VLD_ERR_INVALID_FILE_TYPE, name);
    char *vld = VLN_replace_ext(name, ".vld");
    int status = 0;
    if (vld && fileexists(vld)) {
        if (!canwrite(vld))
            status = VLD_setup_error(VLD_ERR_CANNOT_WRITE_FILE, vld);
        else if ((d->flags & DSHDR_FLAG_SIDE_HEADER) && d->dataset_type == DST_Translated &&
                 !vld::empty_text(d->data_file) && !vld::same_file(d->data_file, name, vld))
            status = VLD_setup_error(VLD_ERR_CANNOT_WRITE_FILE, vld);
    }
    if (!status && d->dataset_type == DST_Translated && VLN_get_world_file_pref(0)) {
        char *world = nullptr;
        if (VLN_check_for_world_file(&world, d->data_file, nullptr) == 0 && !canwrite(world))
            status = VLD_setup_error(VLD_ERR_CANNOT_WRITE_FILE, world);
        safe_free(world);
    }
    safe_free(vld);
    ef_dshdr(d);
    return status;
}
