/*
 * vln_pe_outhdr.cpp: the header of a dataset written from an algorithm.
 *
 * A handle opened for a dataset delivers one line per band; the header that
 * goes with the written data describes the window (its cells, their size
 * and where the top left corner lies), names the bands in the order of the
 * handle's lines, and carries the regions and classes of the datasets that
 * went into it, moved onto the new grid.
 */
#include <cstring>
#include <string>
#include <vector>

#include "vld_coords.h"
#include "vln_nodes.h"
#include "vln_path.h"

namespace {

/* Deeper than this, a virtual dataset's regions are no longer looked for:
 * a document that names itself would never end. */
constexpr int max_nesting = 16;

bool is_all(const regioninfo *r)
{
    return r->name != nullptr && std::strcmp(r->name, "All") == 0;
}

/* The header holds no region but "All". */
bool only_all(const regioninfo *list)
{
    for (const regioninfo *r = list; r != nullptr; r = r->next)
        if (!is_all(r)) return false;
    return true;
}

regioninfo **tail_of(regioninfo **list)
{
    while (*list != nullptr) list = &(*list)->next;
    return list;
}

regioninfo *find_region(regioninfo *list, int type, const char *name)
{
    for (regioninfo *r = list; r != nullptr; r = r->next)
        if (r->type == type && r->name != nullptr && name != nullptr &&
            std::strcmp(r->name, name) == 0)
            return r;
    return nullptr;
}

/* Moves the points of a polygon from the cells of `from` to those of `to`. */
int move_points(regioninfo *region, dshdr *from, dshdr *to)
{
    for (subregion *sub = region->subregions; sub != nullptr; sub = sub->next)
        for (VLD_POINTNODE *pt = sub->points; pt != nullptr; pt = pt->next) {
            dscoord c{};
            int status = cvt_cell_to_coord(from, pt->x, pt->y, &c);
            if (status == 0)
                status = cvt_any_coord_to_cell(&from->coordspace, &c, to, &pt->x, &pt->y);
            if (status != 0) return status;
        }
    return 0;
}

/* Copies the regions of `from` into `to`, but "All" and those whose name is
 * already there; the first of a name stays. */
int take_regions(dshdr *to, dshdr *from)
{
    for (const regioninfo *r = from->info.r.regions; r != nullptr; r = r->next) {
        if (is_all(r) || find_region(to->info.r.regions, r->type, r->name) != nullptr) continue;
        regioninfo *copy = nullptr;
        int status = cp_regioninfo(&copy, r);
        if (status == 0 && copy->type == REGION_POLYGON) status = move_points(copy, from, to);
        if (status != 0) {
            ef_regioninfo(copy);
            return status;
        }
        *tail_of(&to->info.r.regions) = copy;
    }
    return 0;
}

bool stream_on(const surface *s, const stream *st)
{
    return !s->turned_off && !st->turned_off;
}

/* The regions of every raster dataset of the document, once per dataset. */
int collect_regions(dshdr *dsh, const algorithm *alg, int depth, std::vector<std::string> &seen)
{
    if (depth > max_nesting) return 0;
    for (const surface *s = alg->surfaces; s != nullptr; s = s->next)
        for (const stream *st = s->first_stream; st != nullptr; st = st->next) {
            if (!stream_on(s, st) || st->type == ST_DynamicLink || st->dataset == nullptr ||
                *st->dataset == '\0')
                continue;
            bool known = false;
            for (const std::string &name : seen)
                known = known || VLD_strcasecmp(name.c_str(), st->dataset) == 0;
            if (known) continue;
            seen.emplace_back(st->dataset);

            dshdr *from = st->dshdr;
            dshdr *loaded = nullptr;
            if (from == nullptr) {
                const int status = eg_dshdr(&loaded, st->dataset);
                if (status != 0) return status;
                from = loaded;
            }
            int status = 0;
            if (from->data_type == DT_Raster) {
                if (from->algorithm != nullptr && only_all(from->info.r.regions))
                    status = collect_regions(dsh, from->algorithm, depth + 1, seen);
                else
                    status = take_regions(dsh, from);
                if (status == 0 && dsh->fftinfo.frequency_level <= 0 &&
                    from->fftinfo.frequency_level > 0)
                    status = cp_fftinfo_noalloc(&dsh->fftinfo, &from->fftinfo);
            }
            ef_dshdr(loaded);
            if (status != 0) return status;
        }
    return 0;
}

/* Drops every region called "All", wherever it stands in the list. */
void drop_all_regions(rasterinfo &r)
{
    for (regioninfo **at = &r.regions; *at != nullptr;) {
        regioninfo *region = *at;
        if (!is_all(region)) {
            at = &region->next;
            continue;
        }
        *at = region->next;
        region->next = nullptr;
        ef_regioninfo(region);
    }
}

/* Each Classification layer that is on, numbered from 1, becomes (or
 * updates) the class region of its description. Returns the count. */
int add_class_regions(dshdr *dsh, const algorithm *alg)
{
    int number = 0;
    for (const surface *s = alg->surfaces; s != nullptr; s = s->next)
        for (const stream *st = s->first_stream; st != nullptr; st = st->next) {
            if (!stream_on(s, st) || st->type != ST_Classification) continue;
            number++;
            const char *name = st->description != nullptr ? st->description : "";
            regioninfo *region = find_region(dsh->info.r.regions, REGION_CLASS, name);
            if (region == nullptr) {
                ea_regioninfo(&region);
                region->type = REGION_CLASS;
                region->name = strsave(name);
                *tail_of(&dsh->info.r.regions) = region;
            }
            region->class_number = number;
            safe_free(region->source_dataset);
            region->source_dataset = strsave(st->dataset);
            region->colour = st->class_colour;
        }
    return number;
}

bool has_class_display(const algorithm *alg)
{
    for (const surface *s = alg->surfaces; s != nullptr; s = s->next)
        for (const stream *st = s->first_stream; st != nullptr; st = st->next)
            if (stream_on(s, st) && st->type == ST_ClassificationDisplay) return true;
    return false;
}

/* The name of the first class display layer's dataset, from its header. */
const char *class_display_name(const algorithm *alg)
{
    for (const surface *s = alg->surfaces; s != nullptr; s = s->next) {
        if (s->turned_off) continue;
        for (const stream *st = s->first_stream; st != nullptr; st = st->next)
            if (!st->turned_off && st->type == ST_ClassificationDisplay && st->dshdr != nullptr &&
                st->dshdr->name != nullptr && *st->dshdr->name != '\0')
                return st->dshdr->name;
    }
    return nullptr;
}

void set_errmsg(char **errmsg, const char *text)
{
    if (errmsg == nullptr) return;
    safe_free(*errmsg);
    *errmsg = strsave(text != nullptr ? text : "");
}

/* The output's name for its "All" region: its file name without folder or
 * extension. */
char *output_name(const dshdr *dsh)
{
    if (dsh->name == nullptr) return nullptr;
    char *file = VLN_get_filename(dsh->name);
    char *name = VLN_strip_ext(file != nullptr ? file : dsh->name);
    safe_free(file);
    return name;
}

}  // namespace

int VLD_setup_dsh_ri_from_alg(dshdr *dsh, algorithm *alg)
{
    if (dsh == nullptr || dsh->data_type != DT_Raster) return VLD_setup_error(VLD_ERR_NULL_DSHDR);
    if (alg == nullptr) return 0;
    std::vector<std::string> seen;
    const int status = collect_regions(dsh, alg, 0, seen);
    if (status != 0) return status;
    drop_all_regions(dsh->info.r);
    setup_all_region(dsh);
    const int nr_classes = add_class_regions(dsh, alg);
    regioninfo *all = dsh->info.r.regions;
    if (nr_classes == 0 && !has_class_display(alg) && all != nullptr && is_all(all)) {
        if (char *name = output_name(dsh)) {
            safe_free(all->name);
            all->name = name;
        }
    }
    return 0;
}

int PE_setup_output_dsh(Vds *vds, dshdr **out, char **errmsg)
{
    if (errmsg != nullptr) *errmsg = nullptr;
    if (out != nullptr) *out = nullptr;
    // A mapped handle describes the output of the handle inside it.
    if (vds != nullptr && vds->context == nullptr) vds = vds->inner_vds;
    if (vds == nullptr || vds->context == nullptr || vds->context->alg == nullptr ||
        out == nullptr) {
        set_errmsg(errmsg, "No virtual dataset to describe");
        return 0;
    }
    pe_context *pe = vds->context;
    algorithm *alg = pe->alg;
    if (alg->output_file == nullptr || *alg->output_file == '\0') {
        set_errmsg(errmsg, "Algorithm output dataset header file specification is NULL");
        return 0;
    }

    // The window's extent in the document's units, through the image's cells.
    dshdr *image = pe->image_dsh;
    double x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    int status = cvt_any_coord_to_cell(alg->coordspace, alg->top_left, image, &x0, &y0);
    if (status == 0)
        status = cvt_any_coord_to_cell(alg->coordspace, alg->bottom_right, image, &x1, &y1);
    if (status != 0) {
        set_errmsg(errmsg, VLD_error_text());
        return 0;
    }
    const double extent_x = (x1 - x0) * image->info.r.cellinfo.x_dimension;
    const double extent_y = (y1 - y0) * image->info.r.cellinfo.y_dimension;

    const int nr_bands = dataset_output_groups(pe, nullptr, 0);
    std::vector<pe_streamgroup *> bands(static_cast<size_t>(nr_bands));
    dataset_output_groups(pe, bands.data(), nr_bands);

    dshdr *dsh = nullptr;
    df_raster_dshdr(&dsh, alg->output_file, pe->nr_cells, pe->nr_lines, nr_bands, alg->output_type);
    if (alg->coordspace != nullptr) {
        ef_coordspace_contents(&dsh->coordspace);
        cp_coordspace_noalloc(&dsh->coordspace, alg->coordspace);
    }
    rasterinfo &r = dsh->info.r;
    r.has_null = 1;
    r.null_value = alg->null_value;
    r.cellinfo.x_dimension = extent_x / alg->output_width;
    r.cellinfo.y_dimension = extent_y / alg->output_height;
    r.registration_cell_x = r.registration_cell_y = 0.0;
    status = cvt_any_coord_to_coord(alg->coordspace, alg->top_left, &dsh->coordspace,
                                    &r.registration_coord);
    for (int b = 0; b < nr_bands && status == 0; b++) {
        const pe_streamgroup *g = bands[static_cast<size_t>(b)];
        const char *name = g->type == ST_Classification ? "Classified"
                           : g->type == ST_DynamicLink  ? "Vector"
                                                        : g->name;
        r.bandids[b].value = strsave(name);
    }
    if (status == 0) status = VLD_setup_dsh_ri_from_alg(dsh, alg);
    if (status != 0) {
        set_errmsg(errmsg, VLD_error_text());
        ef_dshdr(dsh);
        return 0;
    }
    if (const char *name = class_display_name(alg)) {
        safe_free(dsh->name);
        dsh->name = strsave(name);
    }
    *out = dsh;
    return 1;
}
