/*
 * vln_pe_dsinput.cpp: the one shared reader of each dataset.
 *
 * Every stream that reads a dataset is a client of one dsinput: the dataset
 * is opened once and read once, top to bottom, into a ring of lines from
 * which each client takes its own. Here a dsinput is found or made, the image
 * window is registered against the dataset (its footprint in image cells, the
 * read window in dataset cells, the steps of reduction and enlargement), the
 * read window is widened for the clients' margins, and the dataset's little
 * tree (read, reduce in cells, hand to the ring) is built.
 */
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "vld_coords.h"
#include "vln_nodes.h"
#include "vln_pe_plan.h"

namespace {

[[noreturn]] void fail_with_vld_error(pe_context *pe)
{
    const char *text = VLD_error_text();
    alg_error_fatal(pe, text != nullptr ? text : "Unknown error");
}

int ds_cells(const dsinput *d)
{
    return d->dsh->info.r.nr_cells;
}
int ds_lines(const dsinput *d)
{
    return d->dsh->info.r.nr_lines;
}

/* The cells of each region of `dsh`, moved from the grid of `old_dsh`. */
void regrid_regions(pe_context *pe, dshdr *old_dsh, dshdr *dsh)
{
    for (regioninfo *r = dsh->info.r.regions; r != nullptr; r = r->next)
        for (subregion *s = r->subregions; s != nullptr; s = s->next)
            for (VLD_POINTNODE *p = s->points; p != nullptr; p = p->next) {
                dscoord c;
                PE_cvt_cell_to_coord(pe, old_dsh, p->x, p->y, &c);
                PE_cvt_any_coord_to_cell(pe, &old_dsh->coordspace, &c, dsh, &p->x, &p->y);
            }
}

}  // namespace

/* ---------------------------------------------------------------- conversions that jump */

void PE_cvt_coord_to_cell(pe_context *pe, dshdr *dsh, const dscoord *coord, double *x, double *y)
{
    if (cvt_coord_to_cell(dsh, coord, x, y) != 0) fail_with_vld_error(pe);
}

void PE_cvt_cell_to_coord(pe_context *pe, dshdr *dsh, double x, double y, dscoord *coord)
{
    if (cvt_cell_to_coord(dsh, x, y, coord) != 0) fail_with_vld_error(pe);
}

void PE_cvt_cell_to_nonLL_coord(pe_context *pe, dshdr *dsh, double x, double y, dscoord *coord)
{
    if (cvt_cell_to_nonLL_coord(dsh, x, y, coord) != 0) fail_with_vld_error(pe);
}

void PE_cvt_any_coord_to_cell(pe_context *pe, const coordspace *space, const dscoord *coord,
                              dshdr *dsh, double *x, double *y)
{
    if (cvt_any_coord_to_cell(space, coord, dsh, x, y) != 0) fail_with_vld_error(pe);
}

/* ---------------------------------------------------------------- finding a dsinput */

dsinput *find_dsinput(pe_context *pe, pe_stream *ps)
{
    const stream *st = ps->stream;
    const char *name = st->dataset != nullptr ? st->dataset : "";
    for (dsinput *d = pe->dsinputs; d != nullptr; d = d->next)
        if (std::strcmp(d->name, name) == 0 && d->no_dataset == ps->no_dataset &&
            d->full_res == ps->full_res)
            return d;

    auto *d = static_cast<dsinput *>(pe_malloc(pe, sizeof(dsinput)));
    d->name = pe_strsave(pe, name);
    d->no_dataset = ps->no_dataset;
    d->full_res = ps->full_res;
    d->sub_step_x = d->sub_step_y = 1.0;
    d->ring_lines = 1;
    d->next = pe->dsinputs;
    pe->dsinputs = d;
    if (ps->no_dataset && *name == '\0') return d;  // reads no file at all

    dshdr *dsh = nullptr;
    if (st->dshdr != nullptr) {
        if (cp_dshdr(&dsh, st->dshdr) != 0) fail_with_vld_error(pe);
    } else if (eg_dshdr(&dsh, name) != 0) {
        fail_with_vld_error(pe);
    }
    d->dsh = dsh;
    if (dsh->data_type != DT_Raster) alg_error_vprintf(pe, "%s is not a raster dataset", name);
    if (dsh->source_dsh != nullptr) ef_dshdr(dsh->source_dsh);
    dsh->source_dsh = nullptr;
    dshdr *self = nullptr;
    if (cp_dshdr(&self, dsh) != 0) fail_with_vld_error(pe);
    dsh->source_dsh = self;

    const algorithm *alg = pe->alg;
    if (!st->multiple_coordspaces || alg->coordspace == nullptr ||
        coordspaces_equal(&dsh->coordspace, alg->coordspace)) {
        PE_cvt_cell_to_nonLL_coord(pe, dsh, 0.0, 0.0, &d->top_left);
        PE_cvt_cell_to_nonLL_coord(pe, dsh, dsh->info.r.nr_cells, dsh->info.r.nr_lines,
                                   &d->bottom_right);
    } else {
        // Rectified on the fly into the image's space: the header's grid is
        // replaced by one in that space over the layer's corners.
        d->top_left = st->top_left;
        d->bottom_right = st->bottom_right;
        double xs[2], ys[2];
        PE_cvt_any_coord_to_cell(pe, &st->coordspace, &st->top_left, pe->image_dsh, &xs[0], &ys[0]);
        PE_cvt_any_coord_to_cell(pe, &st->coordspace, &st->bottom_right, pe->image_dsh, &xs[1],
                                 &ys[1]);
        double min_x = DBL_MAX, max_x = -DBL_MAX, min_y = DBL_MAX, max_y = -DBL_MAX;
        for (int i = 0; i < 2; i++) {
            min_x = std::fmin(min_x, xs[i]), max_x = std::fmax(max_x, xs[i]);
            min_y = std::fmin(min_y, ys[i]), max_y = std::fmax(max_y, ys[i]);
        }
        ef_coordspace_contents(&dsh->coordspace);
        cp_coordspace_noalloc(&dsh->coordspace, alg->coordspace);
        int cells = static_cast<int>(max_x - min_x + 0.5),
            lines = static_cast<int>(max_y - min_y + 0.5);
        const double mf = alg->coordspace->meter_factor;
        if (mf != 0.0 && mf != 1.0) {
            cells = static_cast<int>(cells / mf);
            lines = static_cast<int>(lines / mf);
        }
        if (cells < 1) cells = 1;
        if (lines < 1) lines = 1;
        dscoord tl, br;
        PE_cvt_cell_to_coord(pe, pe->image_dsh, min_x, min_y, &tl);
        PE_cvt_cell_to_coord(pe, pe->image_dsh, max_x, max_y, &br);
        rasterinfo &r = dsh->info.r;
        r.registration_coord = tl;
        r.registration_cell_x = r.registration_cell_y = 0.0;
        const double c = std::cos(dsh->coordspace.rotation), s = std::sin(dsh->coordspace.rotation);
        const double dx = br.x - tl.x, dy = br.y - tl.y;
        r.cellinfo.x_dimension = std::fabs(dx * c + dy * s) / cells;
        r.cellinfo.y_dimension = std::fabs(dy * c - dx * s) / lines;
        r.nr_cells = cells;
        r.nr_lines = lines;
        regrid_regions(pe, dsh->source_dsh, dsh);
    }
    if (dsh->info.r.nr_lines < 1)
        alg_error_vprintf(pe, "The Dataset \"%s\" has zero height.\n", name);
    if (dsh->info.r.nr_cells < 1)
        alg_error_vprintf(pe, "The Dataset \"%s\" has zero width.\n", name);
    d->cell_type = dsh->info.r.cell_type;
    d->nr_bands = dsh->info.r.nr_bands;
    d->null_value = dsh->info.r.null_value;
    d->is_virtual = dsh->algorithm != nullptr ? 1 : 0;
    if (d->cell_type < Unsigned8BitInteger || d->cell_type > IEEE8ByteReal)
        alg_error_vprintf(pe, "Unknown data type %d in dataset %s", d->cell_type, name);
    d->cell_size = celltypesize(d->cell_type);
    return d;
}

/* ---------------------------------------------------------------- registration */

void raster_registration_calculations(pe_context *pe, dsinput *d)
{
    d->in_view = 0;
    if (d->no_dataset || d->dsh == nullptr) {
        d->in_view = 1;
        d->out_first_cell = d->out_first_line = 0;
        d->out_nr_cells = d->proc_cells = d->nr_cells = pe->nr_cells;
        d->out_nr_lines = d->proc_lines = d->nr_lines = pe->nr_lines;
        d->first_cell = d->first_line = 0;
        d->inv_step_x = d->inv_step_y = 1.0;
        return;
    }
    double x0, y0, x1, y1;
    PE_cvt_coord_to_cell(pe, pe->image_dsh, &d->top_left, &x0, &y0);
    PE_cvt_coord_to_cell(pe, pe->image_dsh, &d->bottom_right, &x1, &y1);
    // The image cells whose centres are inside.
    double ix0 = std::fmax(std::ceil(x0 - 0.5), 0.0), iy0 = std::fmax(std::ceil(y0 - 0.5), 0.0);
    double ix1 = std::fmin(std::floor(x1 + 0.5), pe->nr_cells);
    double iy1 = std::fmin(std::floor(y1 + 0.5), pe->nr_lines);
    if (!(ix1 >= ix0 && iy1 >= iy0) || ix1 - ix0 < 1 || iy1 - iy0 < 1) return;
    dscoord tl, br;
    PE_cvt_cell_to_nonLL_coord(pe, pe->image_dsh, ix0, iy0, &tl);
    PE_cvt_cell_to_nonLL_coord(pe, pe->image_dsh, ix1, iy1, &br);
    d->out_first_cell = static_cast<int>(ix0);
    d->out_first_line = static_cast<int>(iy0);
    d->out_nr_cells = static_cast<int>(ix1 - ix0);
    d->out_nr_lines = static_cast<int>(iy1 - iy0);

    auto dataset_side = [&](double *cx0, double *cy0, double *cx1, double *cy1) {
        PE_cvt_coord_to_cell(pe, d->dsh, &tl, cx0, cy0);
        PE_cvt_coord_to_cell(pe, d->dsh, &br, cx1, cy1);
        auto clamp = [](double v, double hi) { return v < 0 ? 0.0 : (v > hi ? hi : v); };
        *cx0 = clamp(*cx0, ds_cells(d)), *cx1 = clamp(*cx1, ds_cells(d));
        *cy0 = clamp(*cy0, ds_lines(d)), *cy1 = clamp(*cy1, ds_lines(d));
    };
    double cx0, cy0, cx1, cy1;
    dataset_side(&cx0, &cy0, &cx1, &cy1);

    // A dataset that can itself be asked for fewer cells is asked so.
    const dshdr *src = d->dsh->source_dsh;
    const bool reducible =
        d->is_virtual || (d->dsh->flags & DSHDR_FLAG_RESAMPLED) != 0 ||
        (src != nullptr && !coordspaces_equal(&src->coordspace, &d->dsh->coordspace));
    if (!d->full_res && reducible && (cx1 - cx0 > d->out_nr_cells || cy1 - cy0 > d->out_nr_lines)) {
        rasterinfo &r = d->dsh->info.r;
        dshdr *copy = nullptr;
        if (cp_dshdr(&copy, d->dsh) != 0) fail_with_vld_error(pe);
        std::unique_ptr<dshdr, void (*)(dshdr *)> old_dsh(copy, ef_dshdr);
        const double fx = (cx1 - cx0) / d->out_nr_cells, fy = (cy1 - cy0) / d->out_nr_lines;
        if (d->is_virtual) {
            r.registration_coord = tl;
            r.registration_cell_x = r.registration_cell_y = 0.0;
            if (fx > 1.0) r.cellinfo.x_dimension *= fx, r.nr_cells = d->out_nr_cells;
            if (fy > 1.0) r.cellinfo.y_dimension *= fy, r.nr_lines = d->out_nr_lines;
        } else {
            if (fx > 1.0) {
                r.nr_cells = static_cast<int>(r.nr_cells / fx + 0.5);
                r.cellinfo.x_dimension *= fx;
                r.registration_cell_x /= fx;
            }
            if (fy > 1.0) {
                r.nr_lines = static_cast<int>(r.nr_lines / fy + 0.5);
                r.cellinfo.y_dimension *= fy;
                r.registration_cell_y /= fy;
            }
        }
        regrid_regions(pe, old_dsh.get(), d->dsh);
        dataset_side(&cx0, &cy0, &cx1, &cy1);
    }

    const double step_x = (cx1 - cx0) / d->out_nr_cells, step_y = (cy1 - cy0) / d->out_nr_lines;
    d->inv_step_x = step_x != 0.0 ? 1.0 / step_x : 0.0;
    d->inv_step_y = step_y != 0.0 ? 1.0 / step_y : 0.0;
    int first_cell = static_cast<int>(std::floor(cx0 + step_x / 2));
    int last_cell = static_cast<int>(std::floor(cx1 - step_x / 2));
    int first_line = static_cast<int>(std::floor(cy0 + step_y / 2));
    int last_line = static_cast<int>(std::floor(cy1 - step_y / 2));
    if (first_cell < 0) first_cell = 0;
    if (first_line < 0) first_line = 0;
    if (last_cell > ds_cells(d) - 1) last_cell = ds_cells(d) - 1;
    if (last_line > ds_lines(d) - 1) last_line = ds_lines(d) - 1;
    d->first_cell = first_cell;
    d->first_line = first_line;
    d->nr_cells = last_cell - first_cell + 1;
    d->nr_lines = last_line - first_line + 1;
    if (d->nr_cells < 1 || d->nr_lines < 1) return;

    d->in_view = 1;
    if (d->full_res) {
        d->proc_cells = d->nr_cells;
        d->proc_lines = d->nr_lines;
    } else {
        d->proc_cells = d->nr_cells < d->out_nr_cells ? d->nr_cells : d->out_nr_cells;
        d->proc_lines = d->nr_lines < d->out_nr_lines ? d->nr_lines : d->out_nr_lines;
    }
    if (d->proc_cells < d->out_nr_cells) {
        const double p = step_x / 2 + cx0;
        d->super_frac_x = p - std::floor(p);
        d->super_step_cells = cx1 - cx0;
        d->super_step_out_cells = d->out_nr_cells;
    }
    if (d->proc_lines < d->out_nr_lines) {
        const double p = step_y / 2 + cy0;
        d->super_frac_y = p - std::floor(p);
        d->super_step_lines = cy1 - cy0;
        d->super_step_out_lines = d->out_nr_lines;
    }
}

void widen_dsinput(pe_context *, dsinput *d)
{
    d->read_cells = d->proc_cells + d->margin_left + d->margin_right;
    d->read_lines = d->proc_lines + d->margin_top + d->margin_bottom;
    if (d->no_dataset || d->dsh == nullptr) {
        d->nr_cells = d->read_cells;
        d->nr_lines = d->read_lines;
        return;
    }
    const int rx = d->proc_cells > 0 ? d->nr_cells / d->proc_cells : 1;
    const int ry = d->proc_lines > 0 ? d->nr_lines / d->proc_lines : 1;
    const int left = static_cast<int>(std::ceil(static_cast<double>(d->margin_left) * rx));
    const int right = static_cast<int>(std::ceil(static_cast<double>(d->margin_right) * rx));
    const int top = static_cast<int>(std::ceil(static_cast<double>(d->margin_top) * ry));
    const int bottom = static_cast<int>(std::ceil(static_cast<double>(d->margin_bottom) * ry));
    d->first_cell -= left;
    d->nr_cells += left + right;
    d->first_line -= top;
    d->nr_lines += top + bottom;
    if (d->is_virtual) {
        // A virtual dataset makes whatever rectangle it is asked for: where
        // the margins reach past its grid, the grid grows to hold them, its
        // registration cell moving with a first line or cell before it.
        rasterinfo &r = d->dsh->info.r;
        const int before_top = d->first_line < 0 ? -d->first_line : 0;
        const int before_left = d->first_cell < 0 ? -d->first_cell : 0;
        r.registration_cell_x += before_left;
        r.registration_cell_y += before_top;
        d->first_cell += before_left;
        d->first_line += before_top;
        r.nr_cells = std::max(r.nr_cells + before_left, d->first_cell + d->nr_cells);
        r.nr_lines = std::max(r.nr_lines + before_top, d->first_line + d->nr_lines);
    }
}

void setup_dsi_subsample_arrays(pe_context *, dsinput *d)
{
    d->sub_step_x =
        d->nr_cells <= d->read_cells ? 1.0 : static_cast<double>(d->nr_cells) / d->read_cells;
    d->sub_step_y =
        d->nr_lines <= d->read_lines ? 1.0 : static_cast<double>(d->nr_lines) / d->read_lines;
}

/* ---------------------------------------------------------------- clients and the ring */

int bandnumber_cmp(const char *a, const char *b)
{
    // Colon-separated lists of numbers, compared number by number.
    while (true) {
        char *end_a = nullptr, *end_b = nullptr;
        long x = std::strtol(a, &end_a, 10), y = std::strtol(b, &end_b, 10);
        if (x != y) return x < y ? -1 : 1;
        const bool more_a = *end_a == ':', more_b = *end_b == ':';
        if (!more_a || !more_b) return more_a == more_b ? 0 : (more_a ? 1 : -1);
        a = end_a + 1;
        b = end_b + 1;
    }
}

dsi_client *add_client_to_dsi(pe_context *pe, dsinput *d, const char *band, int wants_rlsegs)
{
    auto *c = static_cast<dsi_client *>(pe_malloc(pe, sizeof(dsi_client)));
    c->band = pe_strsave(pe, band != nullptr ? band : "1");
    dsi_client **at = &d->clients;
    while (*at != nullptr && bandnumber_cmp((*at)->band, c->band) < 0) at = &(*at)->next;
    c->next = *at;
    *at = c;
    d->nr_clients++;
    if (wants_rlsegs) d->needs_rlsegs = 1;
    return c;
}

void finish_setting_up_dsinputs(pe_context *pe)
{
    for (dsinput *d = pe->dsinputs; d != nullptr; d = d->next) {
        if (d->clients == nullptr || d->dsh == nullptr) continue;
        // The distinct bands, in the clients' order.
        d->read_bands = static_cast<int32_t *>(pe_malloc(pe, sizeof(int32_t) * d->nr_clients));
        d->nr_read_bands = 0;
        const char *last = nullptr;
        for (dsi_client *c = d->clients; c != nullptr; c = c->next) {
            if (last == nullptr || bandnumber_cmp(last, c->band) != 0) {
                int band = std::atoi(c->band) - 1;
                if (band < 0 || band >= d->nr_bands)
                    alg_error_vprintf(pe, "Band %s not in dataset %s (%d bands)", c->band, d->name,
                                      d->nr_bands);
                d->read_bands[d->nr_read_bands++] = band;
                last = c->band;
            }
            c->band_index = d->nr_read_bands - 1;
            c->read_pos = 0;
        }
        if (d->ring_lines < 1) d->ring_lines = 1;
        d->line_bytes = d->read_cells * d->cell_size;
        d->ring = static_cast<linebuf **>(pe_malloc(pe, sizeof(linebuf *) * d->nr_read_bands));
        // The ring's lines come at the dataset's first line (FN_INPUT).
        for (int b = 0; b < d->nr_read_bands; b++)
            d->ring[b] = static_cast<linebuf *>(pe_malloc(pe, sizeof(linebuf) * d->ring_lines));
        d->next_line = 0;
        setup_readnode(&d->root, pe, d);
        if (d->nr_cells > d->read_cells) setup_subsamplenode(&d->root, pe, d);
        setup_ginode(&d->root, pe, d);
        init_funcnode(d->root, nullptr, nullptr);
        init_pass4(pe, d->root);
        init_pass5(d->root);
    }
}

void close_dsinput(dsinput *d)
{
    if (d == nullptr) return;
    pe_close_raster(d);
    if (d->dsh != nullptr) ef_dshdr(d->dsh);
    d->dsh = nullptr;
}

void close_dsinputs(dsinput *list)
{
    for (; list != nullptr; list = list->next) close_dsinput(list);
}

void pe_open_raster(pe_context *pe, dsinput *d)
{
    if (d->first_line < 0 || d->first_line + d->nr_lines > ds_lines(d))
        alg_internal_error(pe, "dsinput", 624, "Lines specified outside dataset range");
    if (d->first_cell < 0 || d->first_cell + d->nr_cells > ds_cells(d))
        alg_internal_error(pe, "dsinput", 630, "Cells specified are outside dataset range");
    if (vds_mmopen(&d->raster, d->dsh, d->first_line, d->nr_lines, d->first_cell, d->nr_cells,
                   d->read_bands, d->nr_read_bands, d->cell_type) != 0)
        fail_with_vld_error(pe);
}

void pe_close_raster(dsinput *d)
{
    if (d->raster != nullptr) vds_mmclose(&d->raster);
}
