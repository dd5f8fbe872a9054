/*
 * vld_alg_query.cpp: what an algorithm implies as a dataset.
 *
 * A virtual dataset is a header that holds an algorithm. Its raster fields are
 * not read from a file but worked out here from the algorithm: the bands are
 * the algorithm's band groups (streams that share a description), the cells
 * are 8-byte reals, and the size comes from the cell size of the algorithm's
 * first raster layers laid over its corners. The same groups tell the engine
 * which streams make which band, and the same name search keeps a virtual
 * dataset from reading itself, directly or through others.
 */
#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "vld_alg.h"
#include "vld_coords.h"
#include "vld_dshdr_internal.h"
#include "vln_path.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDefaultCellsAcross = 1000.0; /* without raster layers */

/* ---------------------------------------------------------------- band groups */

/* The name of the band a stream belongs to: a link's file, else the stream's
 * description, else its type's word. */
std::string group_name(const stream *st)
{
    if (st->type == ST_DynamicLink) return st->dataset ? st->dataset : "";
    if (st->description && *st->description) return st->description;
    const char *word = nullptr;
    if (stream_type_name(&word, st->type) || !word) return "Unknown";
    return word;
}

msinfo *find_group(msinfo *list, const std::string &name)
{
    for (; list; list = list->next)
        if (VLD_strcasecmp(list->name, name.c_str()) == 0) return list;
    return nullptr;
}

/* Adds a stream to its group at the end of the list, making the group when
 * it is new. `tail` is the address of the list's last link. */
void add_to_groups(msinfo **list, msinfo ***tail, stream *st)
{
    std::string name = group_name(st);
    msinfo *g = find_group(*list, name);
    if (!g) {
        g = static_cast<msinfo *>(malloc_or_die(sizeof *g));
        *g = msinfo{nullptr, strsave(name.c_str()), 0, nullptr};
        **tail = g;
        *tail = &g->next;
    }
    g->streams = static_cast<stream **>(
        realloc_or_die(g->streams, sizeof(stream *) * static_cast<size_t>(g->nr_streams + 1)));
    g->streams[g->nr_streams++] = st;
}

/* Band class in the order of the output: ordinary bands, then classification
 * bands, then link bands. */
int band_class(const stream *st)
{
    return st->type == ST_Classification ? 1 : st->type == ST_DynamicLink ? 2 : 0;
}

/* ---------------------------------------------------------------- names of datasets */

/* A dataset's name without the " $$ALG" tail of a vector layer. */
std::string plain_dataset(const char *name)
{
    std::string s = name ? name : "";
    size_t at = s.find(" $$");
    return at == std::string::npos ? s : s.substr(0, at);
}

bool ends_with_nocase(const std::string &s, const char *tail)
{
    size_t n = strlen(tail);
    return s.size() > n && VLD_strcasecmp(s.c_str() + s.size() - n, tail) == 0;
}

/* Reads the algorithm of a dataset that may be virtual: an ".alg" document,
 * or a ".vld" header that holds one. Null for any other dataset. `header`
 * keeps what must be freed. A dataset that can't be read because it refers to
 * itself further down reports that through `looped`. */
algorithm *inner_algorithm(const stream *st, dshdr **header, algorithm **own, bool *looped)
{
    *header = nullptr;
    *own = nullptr;
    *looped = false;
    if (st->dshdr) return st->dshdr->algorithm;
    std::string name = plain_dataset(st->dataset);
    if (ends_with_nocase(name, ".alg")) {
        if (eg_vds_algorithm(own, name.c_str()) == 0) return *own;
        ef_algorithm(*own);
        *own = nullptr;
    } else if (ends_with_nocase(name, ".vld")) {
        int status = eg_dshdr(header, name.c_str());
        if (status == 0 && *header) return (*header)->algorithm;
        *looped = status == VLD_ERR_VDS || status == VLD_ERR_VDS_TOO_DEEP;
    }
    return nullptr;
}

thread_local int vds_depth = 0;

struct DepthGuard {
    DepthGuard() { vds_depth++; }
    ~DepthGuard() { vds_depth--; }
};

/* ---------------------------------------------------------------- sizes */

bool is_geodetic(const coordspace *cs)
{
    return cs && cs->coordsystype == CST_LL && cs->projection &&
           strcmp(cs->projection, "GEODETIC") == 0;
}

/* A header of the algorithm's grid: cell (0, 0) at the top left corner, cells
 * of the given size. Strings stay the algorithm's. */
dshdr grid_header(const algorithm *alg, double x, double y)
{
    dshdr d{};
    d.data_type = DT_Raster;
    if (alg->coordspace) d.coordspace = *alg->coordspace;
    d.info.r.cellinfo.x_dimension = x;
    d.info.r.cellinfo.y_dimension = y;
    if (alg->top_left) d.info.r.registration_coord = *alg->top_left;
    return d;
}

/* The bottom right corner as a cell of a grid header. A "GEODETIC" grid takes
 * its coordinates in degrees. */
int corner_cell(const dshdr &grid, const dscoord &corner, double *cx, double *cy)
{
    dscoord c = corner;
    if (is_geodetic(&grid.coordspace)) {
        c.x *= 180.0 / kPi;
        c.y *= 180.0 / kPi;
    }
    return cvt_coord_to_cell(&grid, &c, cx, cy);
}

}  // namespace

/* ---------------------------------------------------------------- band groups */

int VLD_setup_msinfo_surface(msinfo **list, const surface *s)
{
    if (!list) return VLD_setup_error(VLD_ERR_INTERNAL, "VLD_setup_msinfo_surface: null list");
    *list = nullptr;
    msinfo **tail = list;
    for (stream *st = s ? s->first_stream : nullptr; st; st = st->next)
        add_to_groups(list, &tail, st);
    return 0;
}

/* The bands of the algorithm's output: the groups of the streams that are on,
 * in surfaces that are on, with ordinary bands first, then classification
 * bands and link bands, as the engine lays them out. */
int VLD_setup_msinfo(msinfo **list, const algorithm *alg)
{
    if (!list) return VLD_setup_error(VLD_ERR_INTERNAL, "VLD_setup_msinfo: null list");
    *list = nullptr;
    msinfo **tail = list;
    for (int cls = 0; cls < 3; cls++)
        for (const surface *s = alg ? alg->surfaces : nullptr; s; s = s->next)
            if (!s->turned_off)
                for (stream *st = s->first_stream; st; st = st->next)
                    if (!st->turned_off && band_class(st) == cls) add_to_groups(list, &tail, st);
    return 0;
}

void VLD_free_msinfos(msinfo *list)
{
    while (list) {
        msinfo *next = list->next;
        safe_free(list->name);
        safe_free(list->streams);
        safe_free(list);
        list = next;
    }
}

int VLN_get_algorithm_band_info(algorithm *alg, int *count, bandid **bandids)
{
    if (count) *count = 0;
    if (bandids) *bandids = nullptr;
    if (!alg) return VLD_setup_error(VLD_ERR_NO_ALG);
    if (!count || !bandids)
        return VLD_setup_error(VLD_ERR_INTERNAL, "VLN_get_algorithm_band_info: null output");
    msinfo *groups = nullptr;
    VLD_setup_msinfo(&groups, alg);
    int n = 0;
    for (const msinfo *g = groups; g; g = g->next) n++;
    if (n > 0) {
        *bandids = static_cast<bandid *>(malloc_or_die(sizeof(bandid) * static_cast<size_t>(n)));
        memset(*bandids, 0, sizeof(bandid) * static_cast<size_t>(n));
        int i = 0;
        for (const msinfo *g = groups; g; g = g->next) (*bandids)[i++].value = strsave(g->name);
    }
    *count = n;
    VLD_free_msinfos(groups);
    return 0;
}

/* An algorithm that shows a spectrum: its layers are the real and imaginary
 * parts of a transform, by their names or their headers. */
int alg_is_fft(const algorithm *alg)
{
    for (const surface *s = alg ? alg->surfaces : nullptr; s; s = s->next)
        for (const stream *st = s->first_stream; st; st = st->next) {
            const char *d = st->description;
            if (d && (strncmp(d, "(Re) FFT - ", 11) == 0 || strncmp(d, "(Im) FFT - ", 11) == 0))
                return 1;
            if (dshdr_is_fft(st->dshdr)) return 1;
        }
    return 0;
}

/* ---------------------------------------------------------------- self reference */

/* 1 when a stream of the algorithm reads the dataset `name` (resolved against
 * `parent` when relative), compared without regard to case. */
int VLD_check_ds_in_alg(const algorithm *alg, const char *parent, const char *name)
{
    if (!alg || !name || !*name) return 0;
    std::string wanted = plain_dataset(name), resolved = wanted;
    char *abs = nullptr;
    // A name that isn't on disk (yet) is still taken as relative to the parent.
    VLN_build_abs_fspec(&abs, parent, wanted.c_str());
    if (!abs && parent && *parent && !VLN_path_is_abs(wanted.c_str()))
        VLN_concat_filepath(&abs, parent, wanted.c_str());
    if (abs) resolved = abs;
    safe_free(abs);
    for (const surface *s = alg->surfaces; s; s = s->next)
        for (const stream *st = s->first_stream; st; st = st->next) {
            if (!st->dataset || !*st->dataset) continue;
            std::string ds = plain_dataset(st->dataset);
            if (VLD_strcasecmp(ds.c_str(), wanted.c_str()) == 0 ||
                VLD_strcasecmp(ds.c_str(), resolved.c_str()) == 0)
                return 1;
        }
    return 0;
}

/* 1 when the dataset *name is read by the algorithm or, further down, by any
 * virtual dataset that it reads; also when the nesting runs deeper than a
 * sane document would, which is how a loop that doesn't pass through *name
 * shows. *parent resolves a relative *name; on a hit it is replaced by a new
 * text naming the document in which the name was found (the caller keeps
 * the text that it passed in). */
int VLD_check_recur_alg(const algorithm *alg, char **name, char **parent)
{
    if (!alg || !name || !*name || !**name) return 0;
    DepthGuard depth;
    const char *where_from = parent ? *parent : nullptr;
    bool hit = vds_depth > vld::kMaxVdsDepth || VLD_check_ds_in_alg(alg, where_from, *name);
    const char *where = alg->name;
    char *inner_where = nullptr;
    for (const surface *s = alg->surfaces; s && !hit; s = s->next)
        for (const stream *st = s->first_stream; st && !hit; st = st->next) {
            if (!st->dataset || !*st->dataset || st->type == ST_DynamicLink) continue;
            dshdr *header = nullptr;
            algorithm *own = nullptr;
            bool looped = false;
            const algorithm *inner = inner_algorithm(st, &header, &own, &looped);
            if (looped) {
                hit = true;
                where = st->dataset;
            } else if (inner) {
                char *dir = VLN_get_dirname(st->dataset);
                char *p = dir;
                if (VLD_check_recur_alg(inner, name, &p)) {
                    hit = true;
                    inner_where = p;
                }
                safe_free(dir);
            }
            ef_algorithm(own);
            ef_dshdr(header);
        }
    if (hit && parent) *parent = inner_where ? inner_where : strsave(where);
    return hit ? 1 : 0;
}

/* ---------------------------------------------------------------- sizes */

/* The cell size of the output: the smallest cell width and height among the
 * first raster layer of each surface. Layers count when they and their
 * surface are on, or with `flag` set whether on or not. VLD_ERR_NEED_RASTER_DATASET when there is
 * no raster layer with a header. */
int VLN_get_algorithm_nominal_cell_sizeEx(algorithm *alg, double *x, double *y, int flag)
{
    double bx = 0.0, by = 0.0;
    bool found = false;
    for (const surface *s = alg ? alg->surfaces : nullptr; s; s = s->next) {
        if (s->turned_off && !flag) continue;
        for (const stream *st = s->first_stream; st; st = st->next) {
            if ((st->turned_off && !flag) || !st->dshdr || st->type == ST_DynamicLink ||
                st->dshdr->data_type != DT_Raster)
                continue;
            const cellinfo &c = st->dshdr->info.r.cellinfo;
            if (c.x_dimension > 0.0 && (!found || c.x_dimension < bx)) bx = c.x_dimension;
            if (c.y_dimension > 0.0 && (!found || c.y_dimension < by)) by = c.y_dimension;
            found = true;
            break;
        }
    }
    if (x) *x = bx;
    if (y) *y = by;
    if (!alg) return VLD_setup_error(VLD_ERR_NO_ALG);
    return found && bx > 0.0 && by > 0.0 ? 0 : VLD_setup_error(VLD_ERR_NEED_RASTER_DATASET);
}

int VLN_get_algorithm_nominal_cell_size(algorithm *alg, double *x, double *y)
{
    return VLN_get_algorithm_nominal_cell_sizeEx(alg, x, y, 0);
}

/* Lines, cells and cell size of the whole algorithm. The cell size is the
 * nominal one; without raster layers, square cells that put 1000 of them
 * along the longer side. The corners are laid out on a grid of that size
 * starting at the top left corner, and the bottom right corner's cell, rounded
 * and at least 1, gives the counts. */
int VLN_get_algorithm_default_image_and_cell_dimensionsEx(algorithm *alg, int *lines, int *cells,
                                                          double *x, double *y, int flag)
{
    if (lines) *lines = 0;
    if (cells) *cells = 0;
    if (!alg) return VLD_setup_error(VLD_ERR_NO_ALG);
    if (!alg->top_left || !alg->bottom_right)
        return VLD_setup_error(VLD_ERR_ALG_COORD_MISSING,
                               alg->top_left ? "bottomright" : "topleft");
    double cx = 0.0, cy = 0.0, fx, fy;
    if (VLN_get_algorithm_nominal_cell_sizeEx(alg, &cx, &cy, flag)) {
        dshdr unit = grid_header(alg, 1.0, 1.0);
        if (int status = corner_cell(unit, *alg->bottom_right, &fx, &fy)) return status;
        double side = std::fmax(std::fabs(fx), std::fabs(fy));
        cx = cy = side > 0.0 ? side / kDefaultCellsAcross : 1.0;
    }
    dshdr grid = grid_header(alg, cx, cy);
    if (int status = corner_cell(grid, *alg->bottom_right, &fx, &fy)) return status;
    auto count = [](double v) {
        return std::max(1, static_cast<int>(std::floor(std::fabs(v) + 0.5)));
    };
    if (cells) *cells = count(fx);
    if (lines) *lines = count(fy);
    if (x) *x = cx;
    if (y) *y = cy;
    return 0;
}

int VLN_get_algorithm_default_image_and_cell_dimensions(algorithm *alg, int *lines, int *cells,
                                                        double *x, double *y)
{
    return VLN_get_algorithm_default_image_and_cell_dimensionsEx(alg, lines, cells, x, y, 0);
}

/* ---------------------------------------------------------------- the header */

namespace {

void free_bands(rasterinfo &r)
{
    for (int i = 0; r.bandids && i < r.nr_bands; i++) ef_bandid_contents(&r.bandids[i]);
    safe_free(r.bandids);
    r.bandids = nullptr;
    r.nr_bands = 0;
}

/* Fills the raster fields of a virtual dataset's header from its algorithm;
 * `flag` goes to the dimension routine. Regions, warp and sensor records that
 * the header already holds are kept. */
int setup_dsh_from_alg(dshdr *dsh, int flag)
{
    if (!dsh) return VLD_setup_error(VLD_ERR_NULL_DSHDR);
    algorithm *alg = dsh->algorithm;
    if (!alg) return VLD_setup_error(VLD_ERR_NO_ALG);

    if (dsh->name && *dsh->name) {
        char *name = dsh->name, *where = nullptr;
        if (VLD_check_recur_alg(alg, &name, &where)) {
            int status = VLD_setup_vds_error(
                "The Virtual Dataset \"%s\" is self referential\nAt Dataset \"%s\"\n", dsh->name,
                where ? where : "");
            safe_free(where);
            return status;
        }
    }
    int lines, cells;
    double x, y;
    if (int status = VLN_get_algorithm_default_image_and_cell_dimensionsEx(alg, &lines, &cells, &x,
                                                                           &y, flag))
        return status;

    if (alg->surfaces) alg->surfaces->color_mode = CM_DATASET;
    dsh->keep_version = 0;
    dsh->dataset_type = DST_VLDStorage;
    dsh->byte_order = byteorder();
    ef_coordspace_contents(&dsh->coordspace);
    if (alg->coordspace)
        cp_coordspace_noalloc(&dsh->coordspace, alg->coordspace);
    else
        df_coordspace_noalloc(&dsh->coordspace);
    if (dsh->data_type != DT_Raster) {
        memset(&dsh->info, 0, sizeof dsh->info);
        dsh->data_type = DT_Raster;
    }
    rasterinfo &r = dsh->info.r;
    if (alg->top_left) r.registration_coord = *alg->top_left;
    r.registration_cell_x = r.registration_cell_y = 0.0;
    r.cell_type = IEEE8ByteReal;
    r.cell_bytes = celltypesize(IEEE8ByteReal);
    r.null_value = alg->null_value;
    r.has_null = 1;
    r.nr_lines = lines;
    r.nr_cells = cells;
    r.cellinfo.x_dimension = x;
    r.cellinfo.y_dimension = y;

    free_bands(r);
    msinfo *groups = nullptr;
    VLD_setup_msinfo(&groups, alg);
    for (const msinfo *g = groups; g; g = g->next) r.nr_bands++;
    if (r.nr_bands > 0) {
        size_t size = sizeof(bandid) * static_cast<size_t>(r.nr_bands);
        r.bandids = static_cast<bandid *>(malloc_or_die(size));
        memset(r.bandids, 0, size);
        int i = 0;
        for (const msinfo *g = groups; g; g = g->next) r.bandids[i++].value = strsave(g->name);
    }
    VLD_free_msinfos(groups);
    return setup_all_region(dsh);
}

}  // namespace

int VLD_setup_dsh_from_alg(dshdr *header)
{
    return setup_dsh_from_alg(header, 0);
}

/* A new header for a copy of the algorithm, named as the algorithm is. */
int VLN_get_algorithm_dshEx(algorithm *alg, dshdr **header, int flag)
{
    if (!header)
        return VLD_setup_error(VLD_ERR_INTERNAL, "VLN_get_algorithm_dsh: null header address");
    *header = nullptr;
    if (!alg) return VLD_setup_error(VLD_ERR_NO_ALG);
    dshdr *d = nullptr;
    if (int status = ea_dshdr(&d)) return status;
    if (int status = cp_algorithm(&d->algorithm, alg)) {
        ef_dshdr(d);
        return status;
    }
    d->name = strsave(alg->name);
    if (int status = setup_dsh_from_alg(d, flag)) {
        ef_dshdr(d);
        return status;
    }
    *header = d;
    return 0;
}

int VLN_get_algorithm_dsh(algorithm *alg, dshdr **header)
{
    return VLN_get_algorithm_dshEx(alg, header, 0);
}
