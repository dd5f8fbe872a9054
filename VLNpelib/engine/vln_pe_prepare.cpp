/*
 * vln_pe_prepare.cpp: planning an algorithm before any node is made.
 *
 * The preparation decides which streams take part, finds each stream's
 * shared dataset input, registers the datasets against the image window,
 * works out how far each stream reaches beyond the window (its margins, for
 * kernels, shading and bilinear zoom), and gathers the streams into groups:
 * one group per merge, the streams of one type on one surface.
 */
#include <cmath>
#include <cstdio>
#include <cstring>

#include "vld_coords.h"
#include "vln_pe_plan.h"

namespace {

void progress(pe_context *pe, const char *text)
{
    if (pe->progress_fn != nullptr) pe->progress_fn(pe->progress_arg, text);
}

int kernel_stack_rows(const kernel *k)
{
    int rows = 1;
    for (; k != nullptr; k = k->next) rows += k->rows - 1;
    return rows;
}

int kernel_stack_cols(const kernel *k)
{
    int cols = 1;
    for (; k != nullptr; k = k->next) cols += k->columns - 1;
    return cols;
}

bool needs_full_res(const stream *st)
{
    for (const kernel *k = st->kernels; k != nullptr; k = k->next)
        if (!k->ok_on_subsampled_data) return true;
    for (const streaminput *in = st->stream_inputs; in != nullptr; in = in->next)
        for (const kernel *k = in->kernels; k != nullptr; k = k->next)
            if (!k->ok_on_subsampled_data) return true;
    return false;
}

/* The image window: a raster header in the document's space whose cells are
 * the output's. */
void build_image_dsh(pe_context *pe, algorithm *alg)
{
    dshdr frame{};
    frame.data_type = DT_Vector;
    if (alg->coordspace != nullptr) frame.coordspace = *alg->coordspace;
    frame.info.v.extents.top_left = *alg->top_left;
    frame.info.v.extents.bottom_right = *alg->bottom_right;
    double x0, y0, x1, y1;
    calc_image_corners(pe, &frame, &x0, &y0, &x1, &y1);

    dshdr *dsh = nullptr;
    ea_dshdr(&dsh);
    pe->image_dsh = dsh;
    dsh->data_type = DT_Raster;
    dsh->dataset_type = DST_VLDStorage;
    if (alg->coordspace != nullptr) cp_coordspace_noalloc(&dsh->coordspace, alg->coordspace);
    rasterinfo &r = dsh->info.r;
    r.cell_type = pe->cell_type;
    r.cell_bytes = celltypesize(pe->cell_type);
    r.nr_lines = pe->nr_lines;
    r.nr_cells = pe->nr_cells;
    r.nr_bands = 1;
    r.registration_coord = *alg->top_left;
    r.registration_cell_x = r.registration_cell_y = 0.0;
    r.cellinfo.x_dimension = (x1 - x0) / pe->nr_cells;
    r.cellinfo.y_dimension = (y1 - y0) / pe->nr_lines;
}

/* ---------------------------------------------------------------- streams */

pe_stream *new_pe_stream(pe_context *pe, surface *s, int surface_number, stream *st)
{
    auto *ps = static_cast<pe_stream *>(pe_malloc(pe, sizeof(pe_stream)));
    ps->surface = s;
    ps->stream = st;
    ps->surface_number = surface_number;
    pe_stream **tail = &pe->streams;
    while (*tail != nullptr) tail = &(*tail)->next;
    *tail = ps;
    return ps;
}

void settle_shading(pe_context *pe, const algorithm *alg, const surface *s, pe_stream *ps)
{
    const stream *st = ps->stream;
    if (s->color_mode != CM_RTSHADE || is_class_type(st->type) || !st->do_static_shade) {
        ps->do_static_shade = st->do_static_shade ? 1 : 0;
    } else if (alg->colour24 && !pe->to_buffers) {
        ps->do_static_shade = 1;
    } else if (!got_active_intensity_stream_in_alg(alg) ||
               (st->type >= ST_Red && st->type <= ST_Pseudo)) {
        ps->do_rtshade16 = 1;
    }
}

void settle_type_and_name(pe_context *pe, const surface *s, pe_stream *ps)
{
    const stream *st = ps->stream;
    ps->type = st->type;
    if (s->color_mode != CM_DATASET) return;
    if (st->type == ST_Classification) return;  // no name
    if (st->type == ST_DynamicLink) {
        ps->name = pe_strsave(pe, "Vector");
        return;
    }
    ps->type = ST_PE_DatasetBand;
    const char *name = st->description;
    if (name == nullptr || *name == '\0') stream_type_name(&name, st->type);
    ps->name = pe_strsave(pe, name != nullptr ? name : "");
}

void take_inputs(pe_context *pe, pe_stream *ps)
{
    const stream *st = ps->stream;
    ps->full_res = needs_full_res(st) ? 1 : 0;
    ps->nr_inputs = count_streaminputs(st);
    if (ps->nr_inputs > 0)
        ps->inputs = static_cast<pe_input *>(pe_malloc(pe, sizeof(pe_input) * ps->nr_inputs));
    int i = 0;
    for (streaminput *in = st->stream_inputs; in != nullptr; in = in->next, i++) {
        pe_input &p = ps->inputs[i];
        p.streaminput = in;
        p.band = get_band(pe, st, in);
        p.rows = kernel_stack_rows(in->kernels);
        p.cols = kernel_stack_cols(in->kernels);
    }
    get_formula_info(pe, ps);
    ps->dsinput = find_dsinput(pe, ps);
}

/* ---------------------------------------------------------------- margins */

void work_out_margins(pe_stream *ps)
{
    const stream *st = ps->stream;
    int max_rows = 1, max_cols = 1;
    for (int i = 0; i < ps->nr_inputs; i++) {
        if (ps->inputs[i].rows > max_rows) max_rows = ps->inputs[i].rows;
        if (ps->inputs[i].cols > max_cols) max_cols = ps->inputs[i].cols;
    }
    ps->max_input_rows = max_rows;
    ps->max_input_cols = max_cols;
    for (int i = 0; i < ps->nr_inputs; i++)
        ps->inputs[i].delay = (max_rows - ps->inputs[i].rows) / 2;

    ps->total_rows = max_rows + kernel_stack_rows(st->kernels) - 1;
    ps->total_cols = max_cols + kernel_stack_cols(st->kernels) - 1;
    if (ps->do_rtshade || ps->do_rtshade16 || ps->do_static_shade) {
        ps->total_rows += 2;
        ps->total_cols += 2;
    }
    if (ps->bilinear_lines) ps->total_rows += 2;
    if (ps->bilinear_cells) ps->total_cols += 2;
    ps->half_rows = (ps->total_rows - 1) / 2;
    ps->half_cols = (ps->total_cols - 1) / 2;

    dsinput *d = ps->dsinput;
    if (d->ring_lines < ps->total_rows) d->ring_lines = ps->total_rows;
    if (d->is_virtual || d->no_dataset) {
        ps->margin_top = ps->margin_bottom = ps->half_rows;
        ps->margin_left = ps->margin_right = ps->half_cols;
    } else {
        // What the dataset has outside the read window, at the resolution
        // of processing.
        const int ds_cells = d->dsh->info.r.nr_cells, ds_lines = d->dsh->info.r.nr_lines;
        const int rx = d->proc_cells > 0 ? d->nr_cells / d->proc_cells : 1;
        const int ry = d->proc_lines > 0 ? d->nr_lines / d->proc_lines : 1;
        auto margin = [](int half, int available, int factor) {
            int m = available / (factor > 0 ? factor : 1);
            return m < half ? m : half;
        };
        ps->margin_left = margin(ps->half_cols, d->first_cell, rx);
        ps->margin_right = margin(ps->half_cols, ds_cells - d->first_cell - d->nr_cells, rx);
        ps->margin_top = margin(ps->half_rows, d->first_line, ry);
        ps->margin_bottom = margin(ps->half_rows, ds_lines - d->first_line - d->nr_lines, ry);
    }
    if (ps->margin_top > d->margin_top) d->margin_top = ps->margin_top;
    if (ps->margin_bottom > d->margin_bottom) d->margin_bottom = ps->margin_bottom;
    if (ps->margin_left > d->margin_left) d->margin_left = ps->margin_left;
    if (ps->margin_right > d->margin_right) d->margin_right = ps->margin_right;

    ps->null_top = ps->half_rows - ps->margin_top;
    ps->null_bottom = ps->half_rows - ps->margin_bottom;
    ps->null_left = ps->half_cols - ps->margin_left;
    ps->null_right = ps->half_cols - ps->margin_right;
    if (ps->null_aware) {
        int reach = (ps->max_input_rows - 1) / 2;
        ps->input_null_top = ps->null_top < reach ? ps->null_top : reach;
        ps->null_top -= ps->input_null_top;
        ps->input_null_bottom = ps->null_bottom < reach ? ps->null_bottom : reach;
        ps->null_bottom -= ps->input_null_bottom;
    }
    ps->proc_cells = d->proc_cells + ps->margin_left + ps->margin_right;
    ps->proc_lines = d->proc_lines + ps->margin_top + ps->margin_bottom;
    ps->zoom_cells = d->proc_cells + (ps->bilinear_cells ? 2 : 0);
    ps->zoom_lines = d->proc_lines + (ps->bilinear_lines ? 2 : 0);
}

/* ---------------------------------------------------------------- groups */

pe_streamgroup **append_group(pe_streamgroup **list)
{
    while (*list != nullptr) list = &(*list)->next;
    return list;
}

void put_in_group(pe_context *pe, pe_stream *ps)
{
    const int index = pe->surface_modes[ps->surface_number] == CM_DATASET ? 0 : ps->surface_number;
    for (pe_streamgroup *g = pe->groups[index]; g != nullptr; g = g->next) {
        if (g->type != ps->type || g->streams->do_rtshade16 != ps->do_rtshade16) continue;
        if (ps->type == ST_PE_DatasetBand) {
            // The group's index was stored after the fold to 0, so that a
            // band of a later DATASET surface never joins: kept as it stands.
            if (g->name == nullptr || ps->name == nullptr ||
                VLD_strcasecmp(g->name, ps->name) != 0 || ps->surface_number != g->surface_index)
                continue;
        }
        pe_stream **tail = &g->streams;
        while (*tail != nullptr) tail = &(*tail)->next;
        *tail = ps;
        g->count++;
        return;
    }
    auto *g = static_cast<pe_streamgroup *>(pe_malloc(pe, sizeof(pe_streamgroup)));
    g->surface_index = index;
    g->type = ps->type;
    g->name = ps->name;
    g->count = 1;
    g->streams = ps;
    *append_group(&pe->groups[index]) = g;
    pe->group_counts[index]++;
}

/* The class, class display and link groups stand apart; a later one of a
 * type replaces an earlier. */
void separate_special_groups(pe_context *pe, int s)
{
    for (pe_streamgroup **at = &pe->groups[s]; *at != nullptr;) {
        pe_streamgroup *g = *at;
        pe_streamgroup **slot = nullptr;
        int32_t *count = nullptr;
        if (g->type == ST_ClassificationDisplay)
            slot = &pe->classdisp_groups[s], count = &pe->classdisp_counts[s];
        else if (g->type == ST_Classification)
            slot = &pe->class_groups[s], count = &pe->class_counts[s];
        else if (g->type == ST_DynamicLink)
            slot = &pe->link_groups[s], count = &pe->link_counts[s];
        if (slot == nullptr) {
            at = &g->next;
            continue;
        }
        *at = g->next;
        g->next = nullptr;
        *slot = g;
        *count = 1;
        pe->group_counts[s]--;
    }
}

template <class T>
T *pool_array(pe_context *pe, int n)
{
    return static_cast<T *>(pe_malloc(pe, static_cast<int64_t>(sizeof(T)) * (n > 0 ? n : 1)));
}

}  // namespace

/* ---------------------------------------------------------------- the preparation */

void prepare_alg(algorithm *alg, pe_context *pe)
{
    progress(pe, "Initialising 4");
    init_usercode_error_handling();
    if (!pe_initialised()) alg_error_fatal(pe, "PE_initialise() has not been called");

    progress(pe, "Initialising 5");
    if (alg->output_width == 0) alg_error_fatal(pe, "Image window has 0 width");
    if (alg->output_height == 0) alg_error_fatal(pe, "Image window has 0 height");
    if (alg->canvas_width == 0) alg_error_fatal(pe, "Image canvas has 0 width");
    if (alg->canvas_height == 0) alg_error_fatal(pe, "Image canvas has 0 height");
    bool any_dataset_surface = false;
    for (surface *s = alg->surfaces; s != nullptr; s = s->next)
        if (s->color_mode == CM_DATASET) any_dataset_surface = true;
    if (!any_dataset_surface) {
        if (alg->dots_per_inch_across == 0.0)
            alg_internal_error(pe, "init_alg", 300, "x dots per inch is 0.0");
        if (alg->dots_per_inch_down == 0.0)
            alg_internal_error(pe, "init_alg", 304, "y dots per inch is 0.0");
    }
    if (alg->top_left == nullptr) alg_error_fatal(pe, "No top left coordinate in algorithm");
    if (alg->bottom_right == nullptr)
        alg_error_fatal(pe, "No bottom right coordinate in algorithm");
    if (alg->output_width < 0 || alg->output_height < 0 || alg->canvas_width < 0 ||
        alg->canvas_height < 0)
        alg_error_fatal(pe, "Image window has a negative size");

    pe->alg = alg;
    pe->cell_type = Unsigned8BitInteger;
    pe->nr_cells = alg->canvas_width < alg->output_width ? alg->canvas_width : alg->output_width;
    pe->nr_lines =
        alg->canvas_height < alg->output_height ? alg->canvas_height : alg->output_height;
    pe->nr_surfaces = nr_surfaces_in_alg(alg);
    if (any_dataset_surface) {
        // The output type rules the image header's cells; checked below.
        if (alg->output_type >= Unsigned8BitInteger && alg->output_type <= IEEE8ByteReal)
            pe->cell_type = alg->output_type;
    }
    build_image_dsh(pe, alg);

    // Which streams take part.
    pe->surface_modes = pool_array<int32_t>(pe, pe->nr_surfaces);
    bool annotated = false;
    int surface_number = 0;
    for (surface *s = alg->surfaces; s != nullptr; s = s->next, surface_number++) {
        pe->surface_modes[surface_number] = s->color_mode;
        for (stream *st = s->first_stream; st != nullptr; st = st->next) {
            if (st->type < ST_Red || st->type > ST_DynamicLink)
                alg_internal_error(pe, "init_alg", 355, "Unknown stream type");
            if (st->being_annotated) annotated = true;
            if (st->turned_off || s->turned_off || st->being_annotated ||
                !stream_is_valid(st, s->color_mode))
                continue;
            pe_stream *ps = new_pe_stream(pe, s, surface_number, st);
            settle_shading(pe, alg, s, ps);
            settle_type_and_name(pe, s, ps);
            if (st->type != ST_DynamicLink) take_inputs(pe, ps);
        }
    }
    if (pe->streams == nullptr && !annotated) alg_error_fatal(pe, "All overlays are turned off");
    if (any_dataset_surface) {
        if (alg->output_type < Unsigned8BitInteger || alg->output_type > IEEE8ByteReal)
            alg_error_fatal(pe, "Output data type not specified or invalid");
        pe->cell_type = alg->output_type;
    }

    // Which datasets fall into the window at all.
    for (dsinput *d = pe->dsinputs; d != nullptr; d = d->next)
        raster_registration_calculations(pe, d);
    for (pe_stream **at = &pe->streams; *at != nullptr;) {
        pe_stream *ps = *at;
        if (ps->type != ST_DynamicLink && !ps->dsinput->in_view) {
            free_ExprNode(ps->formula);
            ps->formula = nullptr;
            *at = ps->next;
        } else {
            at = &ps->next;
        }
    }
    for (dsinput **at = &pe->dsinputs; *at != nullptr;) {
        dsinput *d = *at;
        if (!d->in_view) {
            close_dsinput(d);
            *at = d->next;
        } else {
            at = &d->next;
        }
    }

    // Bilinear enlargement.
    for (pe_stream *ps = pe->streams; ps != nullptr; ps = ps->next) {
        if (alg->super_sampling != SS_Bilinear || is_class_type(ps->type) ||
            ps->type == ST_DynamicLink)
            continue;
        const dsinput *d = ps->dsinput;
        ps->bilinear_cells = d->proc_cells < d->out_nr_cells ? 1 : 0;
        ps->bilinear_lines = d->proc_lines < d->out_nr_lines ? 1 : 0;
        if ((ps->bilinear_cells || ps->bilinear_lines) && (ps->do_rtshade || ps->do_rtshade16))
            ps->rts_after_zoom = 1;
    }
    for (pe_stream *ps = pe->streams; ps != nullptr; ps = ps->next)
        if (ps->type != ST_DynamicLink) work_out_margins(ps);
    for (dsinput *d = pe->dsinputs; d != nullptr; d = d->next) {
        widen_dsinput(pe, d);
        setup_dsi_subsample_arrays(pe, d);
    }

    // Groups, by surface.
    const int n = pe->nr_surfaces;
    pe->group_counts = pool_array<int32_t>(pe, n);
    pe->groups = pool_array<pe_streamgroup *>(pe, n);
    pe->height_groups = pool_array<pe_streamgroup *>(pe, n);
    pe->class_counts = pool_array<int32_t>(pe, n);
    pe->class_groups = pool_array<pe_streamgroup *>(pe, n);
    pe->classdisp_counts = pool_array<int32_t>(pe, n);
    pe->classdisp_groups = pool_array<pe_streamgroup *>(pe, n);
    pe->link_counts = pool_array<int32_t>(pe, n);
    pe->link_groups = pool_array<pe_streamgroup *>(pe, n);
    while (pe->streams != nullptr) {
        pe_stream *ps = pe->streams;
        pe->streams = ps->next;
        ps->next = nullptr;
        put_in_group(pe, ps);
    }
    for (int s = 0; s < n; s++) separate_special_groups(pe, s);
    progress(pe, "Initialising 6");
    progress(pe, "Initialising 7");
}

/* The formulae of the streams live in their groups once the list is used up. */
void free_group_formulae(pe_context *pe)
{
    auto free_list = [](pe_streamgroup *g) {
        for (; g != nullptr; g = g->next)
            for (pe_stream *ps = g->streams; ps != nullptr; ps = ps->next) {
                free_ExprNode(ps->formula);
                ps->formula = nullptr;
            }
    };
    for (int s = 0; s < pe->nr_surfaces && pe->groups != nullptr; s++) {
        free_list(pe->groups[s]);
        free_list(pe->height_groups[s]);
        free_list(pe->class_groups[s]);
        free_list(pe->classdisp_groups[s]);
        free_list(pe->link_groups[s]);
    }
}

/* ---------------------------------------------------------------- pieces */

void calc_image_corners(pe_context *pe, dshdr *dsh, double *x0, double *y0, double *x1, double *y1)
{
    const algorithm *alg = pe->alg != nullptr ? pe->alg : nullptr;
    const coordspace *space = alg != nullptr ? alg->coordspace : &dsh->coordspace;
    const dscoord *tl = alg != nullptr ? alg->top_left : &dsh->info.v.extents.top_left;
    const dscoord *br = alg != nullptr ? alg->bottom_right : &dsh->info.v.extents.bottom_right;
    PE_cvt_any_coord_to_cell(pe, space, tl, dsh, x0, y0);
    PE_cvt_any_coord_to_cell(pe, space, br, dsh, x1, y1);
    if (!(*x0 <= *x1 && *y0 <= *y1))
        alg_error_fatal(pe, "Image top left coordinate > bottom right coordinate");
}

int count_streaminputs(const stream *st)
{
    int n = 0;
    for (const streaminput *in = st != nullptr ? st->stream_inputs : nullptr; in != nullptr;
         in = in->next)
        n++;
    return n;
}

namespace {

struct FormulaFlags {
    bool no_dataset = true;
    bool null_aware = false;
};

void note_formula_node(ExprNode *node, void *arg)
{
    auto *f = static_cast<FormulaFlags *>(arg);
    switch (node->kind) {
        case EXPR_INPUT:
        case EXPR_INREGION:
        case EXPR_CELLX:
        case EXPR_CELLY:
            f->no_dataset = false;
            break;
        case EXPR_IF:
        case EXPR_NULL:
        case EXPR_ISNULL:
            f->null_aware = true;
            break;
        default:
            break;
    }
}

}  // namespace

void get_formula_info(pe_context *pe, pe_stream *ps)
{
    const char *text = ps->stream->formula.formula;
    ExprNode *tree = nullptr;
    if (char *message = string_to_expr(&tree, text != nullptr ? text : "")) {
        char buffer[PE_ERROR_TEXT_SIZE];
        std::snprintf(buffer, sizeof buffer, "Error in formula: %s", message);
        safe_free(message);
        alg_error_fatal(pe, buffer);
    }
    FormulaFlags flags;
    walk_formula(tree, note_formula_node, &flags);
    ps->no_dataset = flags.no_dataset ? 1 : 0;
    ps->null_aware = flags.null_aware ? 1 : 0;
    if (tree != nullptr && tree->kind == EXPR_INPUT && tree->next == nullptr) {
        free_ExprNode(tree);
        tree = nullptr;
    }
    ps->formula = tree;
}

char *get_band(pe_context *pe, const stream *st, const streaminput *in)
{
    if (st == nullptr) alg_internal_error(pe, "init_alg", 1547, "Null stream passed to get_band()");
    const formula &f = st->formula;
    for (int i = 0; i < f.nr_args; i++) {
        const formulaarg &a = f.args[i];
        if (a.stream_input != in->id) continue;
        if (a.band_number != nullptr && *a.band_number != '\0')
            return pe_strsave(pe, a.band_number);
        if (a.band_id != nullptr && st->dshdr != nullptr && st->dshdr->data_type == DT_Raster) {
            int index = find_bandindex_from_bandid(&st->dshdr->info.r, a.band_id);
            if (index >= 0) {
                char text[16];
                std::snprintf(text, sizeof text, "%d", index + 1);
                return pe_strsave(pe, text);
            }
        }
        break;
    }
    // An input that the formula doesn't bind reads the first band.
    return pe_strsave(pe, "1");
}

void setup_rclut(unsigned char *table, int nr_reserved, const unsigned char *reserved)
{
    for (int i = 0; i < 256; i++)
        table[i] = static_cast<unsigned char>(i * (256 - nr_reserved) / 256);
    int shift = 0;
    for (int i = 0; i < 256;) {
        int value = table[i] + shift;
        bool taken = false;
        for (int k = 0; k < nr_reserved && value <= 255; k++)
            if (reserved[k] == value) taken = true;
        if (taken && value < 255) {
            shift++;
            continue;
        }
        table[i] = static_cast<unsigned char>(value > 255 ? 255 : value);
        i++;
    }
}
