/*
 * vln_pe_chain.cpp: laying down the nodes of each stream, and the trees.
 *
 * A stream's chain is fixed, source first: its formula over its inputs, its
 * kernels, transforms and shading at the dataset's resolution with margins,
 * a trim to the footprint, null lines, reduction, colour reservation,
 * enlargement, null conversion, and the synchronising node that places the
 * stream in the image. Work that depends on neighbours thus runs on real
 * cells before any change of resolution; reduction comes before the colour
 * step and enlargement after it. With bilinear zoom the lines stay doubles
 * through the zoom, and conversion, reservation and nulls move behind it.
 */
#include <cctype>
#include <cstring>

#include "vln_nodes.h"
#include "vln_pe_plan.h"

namespace {

bool surface_has_intensity_group(pe_context *pe, int surface_index)
{
    for (pe_streamgroup *g = pe->groups[surface_index]; g != nullptr; g = g->next)
        if (g->type == ST_Intensity) return true;
    return false;
}

int surface_mode(pe_context *pe, const pe_stream *ps)
{
    return pe->surface_modes[ps->surface_number];
}

/* The formula text is one plain input, "INPUT1" or "I1" in any case. */
bool is_plain_first_input(const char *text)
{
    if (text == nullptr) return false;
    while (std::isspace(static_cast<unsigned char>(*text))) text++;
    const char *end = text + std::strlen(text);
    while (end > text && std::isspace(static_cast<unsigned char>(end[-1]))) end--;
    const size_t n = static_cast<size_t>(end - text);
    return (n == 6 && VLD_strncasecmp(text, "INPUT1", 6) == 0) ||
           (n == 2 && VLD_strncasecmp(text, "I1", 2) == 0);
}

/* The short cut: an 8-bit pseudocolour view of one band and at most one
 * transform, folded into one table. */
bool takes_short_cut(pe_context *pe, pe_streamgroup *group, pe_stream *ps)
{
    const algorithm *alg = pe->alg;
    const stream *st = ps->stream;
    const dsinput *d = ps->dsinput;
    if (group->count != 1 || !alg->do_optimisation || alg->colour24) return false;
    if (d == nullptr || d->dsh == nullptr || d->cell_type != Unsigned8BitInteger) return false;
    if (surface_mode(pe, ps) != CM_PSEUDO || ps->type != ST_Pseudo) return false;
    if (alg->super_sampling == SS_Bilinear &&
        (d->proc_cells < d->out_nr_cells || d->proc_lines < d->out_nr_lines))
        return false;
    if (!is_plain_first_input(st->formula.formula) || ps->nr_inputs != 1) return false;
    const streaminput *in = ps->inputs[0].streaminput;
    if (in->kernels != nullptr || in->transforms != nullptr || st->kernels != nullptr) return false;
    if (st->transforms != nullptr && st->transforms->next != nullptr) return false;
    if (ps->do_static_shade || ps->do_rtshade || ps->do_rtshade16) return false;
    if (surface_has_intensity_group(pe, ps->surface_number)) return false;
    return d->margin_top == ps->margin_top && d->margin_bottom == ps->margin_bottom &&
           d->margin_left == ps->margin_left && d->margin_right == ps->margin_right;
}

double stream_null_value(pe_context *pe, const pe_stream *ps)
{
    if (is_class_type(ps->type)) return 0.0;
    switch (surface_mode(pe, ps)) {
        case CM_DATASET:
            return pe->alg->null_value;
        case CM_PSEUDO:
        case CM_RTSHADE:
            return pe->alg->colour24 ? 0.0 : pe->alg->null_colour;
        default:
            return 0.0;
    }
}

bool reserves_colours(pe_context *pe, const pe_stream *ps)
{
    const algorithm *alg = pe->alg;
    return ps->type == ST_Pseudo && !ps->do_rtshade && !ps->do_rtshade16 && !alg->colour24 &&
           !surface_has_intensity_group(pe, ps->surface_number) && alg->reserved_colours > 0;
}

void short_cut_chain(funcnode **slot, pe_context *pe, pe_stream *ps)
{
    dsinput *d = ps->dsinput;
    setup_inputnode(slot, pe, d, &ps->inputs[0], 1);
    setup_optim_node(slot, pe, ps);
    if (d->out_nr_cells > d->read_cells)
        setup_supersamplenode(slot, pe, d->read_cells, d->out_nr_cells, d->super_step_cells,
                              d->super_step_out_cells, d->super_frac_x);
    if (d->out_nr_lines > d->read_lines)
        setup_lsupersnode(slot, pe, d->out_nr_cells, d->out_nr_lines, d->super_step_lines,
                          d->super_step_out_lines, d->super_frac_y);
    setup_ssync_node(slot, pe, ps, d->out_nr_cells, d->out_first_line, d->out_nr_lines,
                     d->out_first_cell, pe->alg->null_colour);
}

/* Trim or pad the width from proc_cells to zoom_cells. */
void trim_width(funcnode **slot, pe_context *pe, pe_stream *ps)
{
    if (ps->zoom_cells < ps->proc_cells) {
        int left = ps->margin_left;
        int right = ps->proc_cells - ps->zoom_cells - ps->margin_left;
        if (ps->bilinear_cells && !(ps->rts_after_zoom && !ps->do_rtshade16)) {
            left -= 1;
            right -= 1;
        }
        setup_clipnode(slot, pe, ps->proc_cells, left, right);
    } else if (ps->zoom_cells == ps->proc_cells) {
        if (ps->null_left > ps->null_right)
            setup_nullcell_node(slot, pe, ps->proc_cells, 1);
        else if (ps->null_right > ps->null_left)
            setup_nullcell_node(slot, pe, ps->proc_cells, -1);
    } else {
        setup_addnull_node(slot, pe, ps->zoom_cells, ps->null_left > 0 ? 1 : 0);
    }
}

const transform *last_limit_transform(const stream *st)
{
    // Limit types 2 to 4 are the transform types Linear, Exponential and
    // Logarithmic: the ones whose output range sets a limit.
    const transform *found = nullptr;
    for (const transform *t = st->transforms; t != nullptr; t = t->next)
        if (t->type >= TT_Linear && t->type <= TT_Logarithmic) found = t;
    return found;
}

}  // namespace

void setup_input_chain(funcnode **slot, pe_context *pe, pe_stream *ps, pe_input *input, int kind)
{
    dsinput *d = ps->dsinput;
    // A formula that reads a stream input the stream doesn't have.
    if (kind == 1 && input == nullptr)
        alg_internal_error(pe, "init_alg", __LINE__, "Formula Input 1 is not set up");
    switch (kind) {
        case 1:
            setup_inputnode(slot, pe, d, input, 1);
            break;
        case 3:
            setup_cellx_node(slot, pe, ps);
            break;
        case 4:
            setup_celly_node(slot, pe, ps);
            break;
        case 5:
            setup_pixelx_node(slot, pe, ps);
            break;
        case 6:
            setup_pixely_node(slot, pe, ps);
            break;
        default:
            alg_internal_error(pe, "init_alg", __LINE__, "Unknown input kind");
    }
    if (kind == 1) {
        if (d->margin_top > ps->margin_top)
            setup_syncnode(slot, pe, d->read_cells, d->margin_top - ps->margin_top);
        if (d->margin_left > ps->margin_left || d->margin_right > ps->margin_right)
            setup_clipnode(slot, pe, d->read_cells, d->margin_left - ps->margin_left,
                           d->margin_right - ps->margin_right);
    }
    const int delay = kind == 1 ? input->delay : (ps->max_input_rows - 1) / 2;
    if (delay > 0) setup_syncnode(slot, pe, ps->proc_cells, delay);
    if (kind != 1) return;
    for (kernel *k = input->streaminput->kernels; k != nullptr; k = k->next)
        setup_kernelnode(slot, pe, ps, k, ps->proc_cells);
    for (transform *t = input->streaminput->transforms; t != nullptr; t = t->next)
        setup_transformnode(slot, pe, ps, t, ps->proc_cells, 0);
    if (ps->null_aware) {
        const int reach = (input->rows - 1) / 2;
        const int top = ps->input_null_top < reach ? ps->input_null_top : reach;
        const int bottom = ps->input_null_bottom < reach ? ps->input_null_bottom : reach;
        if (top > 0 || bottom > 0)
            setup_nullline_node(slot, pe, ps->proc_cells, ps->proc_lines, top, bottom);
    }
}

void setup_streamnodes(funcnode **slot, pe_context *pe, pe_streamgroup *, pe_streamgroup *group,
                       pe_stream *ps)
{
    if (takes_short_cut(pe, group, ps)) return short_cut_chain(slot, pe, ps);
    const stream *st = ps->stream;
    dsinput *d = ps->dsinput;
    const bool bilinear = ps->bilinear_cells || ps->bilinear_lines;
    const bool classification = ps->type == ST_Classification;
    const bool height_ms = ps->type == ST_Height && pe->to_ms_rgbh;
    const double null_value = stream_null_value(pe, ps);
    const bool reserve = reserves_colours(pe, ps);
    const int working_type = bilinear ? IEEE8ByteReal : (height_ms ? IEEE4ByteReal : pe->cell_type);
    const bool any_shade = ps->do_rtshade || ps->do_rtshade16 || ps->do_static_shade;

    // 1: the formula and its inputs, at the dataset's resolution with margins.
    if (ps->formula == nullptr)
        setup_input_chain(slot, pe, ps, ps->nr_inputs > 0 ? &ps->inputs[0] : nullptr, 1);
    else
        setup_formulanode(slot, pe, group, ps);
    // 2, 3: kernels and transforms of the stream.
    for (kernel *k = st->kernels; k != nullptr; k = k->next)
        setup_kernelnode(slot, pe, ps, k, ps->proc_cells);
    for (transform *t = st->transforms; t != nullptr; t = t->next) {
        int out_type = 0;
        if (t->next == nullptr)
            out_type = (!any_shade && !classification && !bilinear) ? working_type : IEEE8ByteReal;
        setup_transformnode(slot, pe, ps, t, ps->proc_cells, out_type);
    }
    // 4: shading, and the working type.
    if (!classification) {
        if (ps->do_rtshade && !ps->rts_after_zoom)
            setup_rtsnode(slot, pe, ps, ps->proc_cells);
        else if (!ps->do_rtshade && ps->do_rtshade16)
            setup_rts16node(slot, pe, ps, ps->proc_cells);
        else if (ps->do_static_shade && st->do_static_shade)
            setup_shadenode(slot, pe, ps, ps->proc_cells);
        if (!ps->do_rtshade16) setup_tconvnode(slot, pe, ps->proc_cells, working_type);
    } else {
        if (ps->do_static_shade) setup_shadenode(slot, pe, ps, ps->proc_cells);
        setup_tconvnode(slot, pe, ps->proc_cells, IEEE8ByteReal);
    }
    // 5 to 7: width to the footprint, class limits, null lines.
    trim_width(slot, pe, ps);
    if (classification)
        if (const transform *t = last_limit_transform(st))
            setup_adjustrlsegnode(slot, pe, ps->zoom_cells, t->type, t->max_input);
    if (ps->null_top != 0 || ps->null_bottom != 0)
        setup_nullline_node(slot, pe, ps->zoom_cells, ps->zoom_lines, ps->null_top,
                            ps->null_bottom);
    // 8, 9: reduction.
    // (The two cells or lines of bilinear lead-in don't count as data.)
    const int data_cells = ps->zoom_cells - (ps->bilinear_cells ? 2 : 0);
    const int data_lines = ps->zoom_lines - (ps->bilinear_lines ? 2 : 0);
    int cells = ps->zoom_cells;
    if (d->out_nr_lines < data_lines)
        setup_lsubsnode(slot, pe, cells, ps->zoom_lines, d->out_nr_lines);
    if (d->out_nr_cells < data_cells) {
        setup_subsamplenode2(slot, pe, ps->zoom_cells, d->out_nr_cells);
        cells = d->out_nr_cells;
    }
    // 10: colour reservation on as few cells as possible.
    if (reserve && !bilinear) setup_rcnode(slot, pe, cells);
    // 11, 12: enlargement.
    if (d->out_nr_cells > data_cells) {
        if (ps->bilinear_cells && ps->do_rtshade16)
            setup_bilinear_rts_supersample_node(slot, pe, ps);
        else if (ps->bilinear_cells)
            setup_bilinear_supersample_node(slot, pe, ps);
        else
            setup_supersamplenode(slot, pe, ps->zoom_cells, d->out_nr_cells, d->super_step_cells,
                                  d->super_step_out_cells, d->super_frac_x);
    }
    if (d->out_nr_lines > data_lines) {
        if (ps->bilinear_lines && ps->do_rtshade16)
            setup_bilinear_rts_line_supersample_node(slot, pe, ps);
        else if (ps->bilinear_lines)
            setup_bilinear_line_supersample_node(slot, pe, ps);
        else
            setup_lsupersnode(slot, pe, d->out_nr_cells, d->out_nr_lines, d->super_step_lines,
                              d->super_step_out_lines, d->super_frac_y);
    }
    // 13 to 18: nulls, late shading, and the way back from doubles.
    const int width = d->out_nr_cells;
    if ((ps->type == ST_ClassificationDisplay && bilinear) ||
        (!bilinear && !classification &&
         (group->count == 1 || ps->type == ST_ClassificationDisplay)))
        setup_nconvnode(slot, pe, group, width, null_value);
    if (ps->rts_after_zoom && !ps->do_rtshade16) setup_rtsnode(slot, pe, ps, width);
    if (bilinear && pe->cell_type != IEEE8ByteReal && !ps->do_rtshade16 && !height_ms)
        setup_tconvnode(slot, pe, width, pe->cell_type);
    if (bilinear && height_ms) setup_tconvnode(slot, pe, width, IEEE4ByteReal);
    if (bilinear && reserve) setup_rcnode(slot, pe, width);
    if (bilinear && !classification && group->count == 1)
        setup_nconvnode(slot, pe, group, width, null_value);
    // 19: placement in the image; the stream's lines are its own width.
    setup_ssync_node(slot, pe, ps, width, d->out_first_line, d->out_nr_lines,
                     d->out_first_cell, null_value);
}

void build_trees(pe_context *pe)
{
    algorithm *alg = pe->alg;
    // The header that each raster stream of a surface that is on needs.
    for (surface *s = alg->surfaces; s != nullptr; s = s->next) {
        if (s->turned_off) continue;
        for (stream *st = s->first_stream; st != nullptr; st = st->next) {
            if (st->type == ST_DynamicLink || st->dshdr != nullptr || st->dataset == nullptr ||
                *st->dataset == '\0')
                continue;
            dshdr *dsh = nullptr;
            if (eg_dshdr(&dsh, st->dataset) != 0) {
                const char *text = VLD_error_text();
                alg_error_fatal(pe, text != nullptr ? text : "Cannot read dataset header");
            }
            st->dshdr = dsh;
        }
    }
    int mode = alg->process_vectors;
    if (pe->nr_surfaces > 0 && pe->surface_modes[0] == CM_DATASET) mode = PV_MergeWithRaster;
    setup_vreadnode(&pe->raster_root, pe, mode, 0);
    if (mode == PV_AfterRasterOkay) setup_vreadnode(&pe->vector_root, pe, mode, 1);
}
