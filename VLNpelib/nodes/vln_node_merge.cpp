/*
 * vln_node_merge.cpp: FN_MERGESTREAMS, the streams of one group on one line.
 *
 * A group is the streams of one type on one surface, whose results fall on
 * one band. The node pulls its streams from the last in the group's list to
 * the first, so that the last stream is the top layer: a cell that a higher
 * layer has given keeps its value (overlay), or is blended with the layer
 * below it across the overlap of the two (feather). A group of Classification
 * streams instead gives each cell the number of the stream with the lowest
 * value there, which builds a minimum distance classification from one
 * stream per class, and counts the cells of each class.
 *
 * Each stream writes into the node's scratch line (level 2); the cells it
 * adds are converted into the output from there. Classification streams keep
 * their values as doubles in lines of their own (level 3), since all of them
 * are compared cell by cell.
 */
#include <algorithm>

#include "vln_nodes.h"
#include "vln_pe_plan.h"

using namespace vln_pe;

namespace {

struct Merge {
    NodeBase base;
    pe_streamgroup *group;
    int stream_type;
    int nr_streams;
    int64_t *counters;  // Classification: cells given to each class so far
    bool dataset_mode;  // the surface is DATASET: classes are numbered from 1
    int mosaic_type;    // MT_Overlay or MT_Feather
    int lines_done;
    void *scratch;  // the line each stream writes into, in its own type
};

/* The cells of a stream in image cells, [left, right), from its paired dataset. */
struct Extent {
    int left, right;
};

Extent dataset_extent(const dsinput *d)
{
    if (d == nullptr || d->dsh == nullptr) return {0, 0};
    const int left = d->out_first_cell - static_cast<int>(d->first_cell * d->inv_step_x);
    const int width = static_cast<int>(d->dsh->info.r.nr_cells * d->inv_step_x);
    return {left, left + width};
}

void init(funcnode *node)
{
    auto *p = priv<Merge>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    if (p->stream_type == ST_Classification) {
        setup_bufinfo(out, Unsigned8BitInteger);
        p->counters = static_cast<int64_t *>(pe_malloc(pe, sizeof(int64_t) * p->nr_streams));
        return;
    }
    pass_type_up(node);
    // Streams of a group share a type; the scratch line holds any.
    p->scratch = pe_malloc(pe, static_cast<int64_t>(out->nr_cells) * 8);
}

/* Blends the overlap cells of one stream (A, in `in_type` in `a_line`) into
 * the output (B). */
void feather_cells(const rlseg *overlap, Extent stream, Extent covered, int in_type,
                   const void *a_line, bufinfo *out, void *b_line)
{
    const int first = std::max(stream.left, covered.left);
    const int width = std::min(stream.right, covered.right) - first;
    const int size = out->cell_size;
    for (const rlseg *r = overlap; r != nullptr; r = r->next)
        for (int x = r->first; x <= r->last; x++) {
            const int k = x - first;
            // A cell outside the overlap of the extents (a stream paired with
            // another dataset's extent) keeps the higher layer.
            if (width < 1 || k < 0 || k >= width) continue;
            const double a = cell_value(in_type, a_line, x);
            const double b = cell_value(out->cell_type, b_line, x);
            const double v =
                feather_value(stream.left, stream.right, covered.left, covered.right, k, a, b);
            convtype1(v, out->cell_type,
                      static_cast<char *>(b_line) + static_cast<size_t>(x) * size);
        }
}

void read_layers(funcnode *node)
{
    auto *p = priv<Merge>(node);
    pe_context *pe = p->base.pe;
    rlseg_pool *pool = &pe->rlsegs;
    linebuf *out_line = node->output->buffers[0];
    pe_free_rlseg_list(pe, &out_line->rlsegs);
    Extent covered = {0, 0};
    bool any_covered = false;
    // Kept: streams are paired with the context's datasets by position, the
    // newest dataset first, not looked up by name.
    const dsinput *d = pe->dsinputs;
    for (int i = p->nr_streams - 1; i >= 0; i--) {
        bufinfo *in = node->inputs[i].buffers;
        in->buffers[0]->data = p->scratch;
        pull(node, i);
        rlseg *runs = in->buffers[0]->rlsegs;
        in->buffers[0]->rlsegs = nullptr;
        const dsinput *paired = d;
        if (d != nullptr && d->next != nullptr) d = d->next;
        const Extent stream = dataset_extent(paired);

        rlseg *fresh = rlseg_diff(pool, runs, out_line->rlsegs);
        convtype(in->cell_type, p->scratch, node->output->cell_type, out_line->data, fresh);
        if (p->mosaic_type == MT_Feather && paired != nullptr && !paired->no_dataset &&
            out_line->rlsegs != nullptr) {
            rlseg *overlap = pe_and_rlsegs(pool, runs, out_line->rlsegs);
            feather_cells(overlap, stream, covered, in->cell_type, p->scratch, node->output,
                          out_line->data);
            pe_free_rlseg_list(pe, &overlap);
        }
        rlseg *merged = or_rlsegs(pool, out_line->rlsegs, fresh);
        pe_free_rlseg_list(pe, &out_line->rlsegs);
        out_line->rlsegs = merged;
        if (fresh != nullptr) {
            // The first layer that gives cells sets the extent; later ones widen it.
            if (!any_covered) {
                covered = stream;
                any_covered = true;
            } else {
                covered.left = std::min(covered.left, stream.left);
                covered.right = std::max(covered.right, stream.right);
            }
        }
        pe_free_rlseg_list(pe, &fresh);
        pe_free_rlseg_list(pe, &runs);
    }
    p->lines_done++;
}

void read_classes(funcnode *node)
{
    auto *p = priv<Merge>(node);
    pe_context *pe = p->base.pe;
    rlseg_pool *pool = &pe->rlsegs;
    linebuf *out_line = node->output->buffers[0];
    auto *classes = static_cast<uint8_t *>(out_line->data);
    pe_free_rlseg_list(pe, &out_line->rlsegs);
    for (int i = 0; i < p->nr_streams; i++) pull(node, i);
    auto value = [&](int c, int x) {
        return static_cast<const double *>(node->inputs[c].buffers->buffers[0]->data)[x];
    };
    for (int c = p->nr_streams - 1; c >= 0; c--) {
        const rlseg *runs = node->inputs[c].buffers->buffers[0]->rlsegs;
        rlseg *fresh = rlseg_diff(pool, runs, out_line->rlsegs);
        rlseg *overlap = pe_and_rlsegs(pool, runs, out_line->rlsegs);
        for (const rlseg *r = fresh; r != nullptr; r = r->next)
            for (int x = r->first; x <= r->last; x++) classes[x] = static_cast<uint8_t>(c);
        // The lowest value wins; on a tie the stream nearer the list's head.
        for (const rlseg *r = overlap; r != nullptr; r = r->next)
            for (int x = r->first; x <= r->last; x++)
                if (value(c, x) <= value(classes[x], x)) classes[x] = static_cast<uint8_t>(c);
        rlseg *merged = or_rlsegs(pool, out_line->rlsegs, fresh);
        pe_free_rlseg_list(pe, &out_line->rlsegs);
        out_line->rlsegs = merged;
        pe_free_rlseg_list(pe, &fresh);
        pe_free_rlseg_list(pe, &overlap);
    }
    for (const rlseg *r = out_line->rlsegs; r != nullptr; r = r->next)
        for (int x = r->first; x <= r->last; x++) {
            p->counters[classes[x]]++;
            if (p->dataset_mode) classes[x]++;
        }
    for (int i = 0; i < p->nr_streams; i++)
        pe_free_rlseg_list(pe, &node->inputs[i].buffers->buffers[0]->rlsegs);
    p->lines_done++;
}

void read(funcnode *node)
{
    if (priv<Merge>(node)->stream_type == ST_Classification)
        read_classes(node);
    else
        read_layers(node);
}

bool group_on_dataset_surface(pe_context *pe, const pe_streamgroup *group)
{
    if (pe->surface_modes == nullptr || group->streams == nullptr) return false;
    return pe->surface_modes[group->streams->surface_number] == CM_DATASET;
}

void skip(funcnode *node, int first)
{
    vln_pe::priv<Merge>(node)->lines_done = first;
    start_inputs_at_line(node, first);
}

}  // namespace

namespace vln_pe {
extern const NodeOps mergestreams_ops;
const NodeOps mergestreams_ops = {init, nullptr, nullptr, read, nullptr, skip};
}  // namespace vln_pe

double feather_value(int left, int right, int covered_left, int covered_right, int k, double a,
                     double b)
{
    const int first = std::max(left, covered_left);
    const int w = std::min(right, covered_right) - first;
    const bool left_meets = left == covered_left, right_meets = right == covered_right;
    if (left_meets && right_meets) return (a + b) * 0.5;
    if (left_meets || right_meets) {
        // One common end: half and half there, towards the layer that goes
        // on at the other end of the overlap.
        const double d = 2.0 * (w + 1);
        const int from_common = left_meets ? k : w - 1 - k;
        const int kk = from_common + w;
        const double w1 = (w - kk) / d + 0.5, w2 = (kk + 1) / d;
        const bool stream_goes_on = left_meets ? right > covered_right : left < covered_left;
        return stream_goes_on ? w1 * b + w2 * a : w1 * a + w2 * b;
    }
    const double d = w + 1;
    const double w1 = (w - k) / d, w2 = (k + 1) / d;
    if (left > covered_left && right < covered_right)
        return 2 * k <= w ? w1 * b + w2 * a : w1 * a + w2 * b;
    if (left < covered_left && right > covered_right)
        return 2 * k <= w ? w1 * a + w2 * b : w1 * b + w2 * a;
    // The extents cross: from the covered side's layer to the stream's
    // across the overlap. (A half weight on w1 here would make the weights
    // sum to 1.5; the plain cross-fade keeps them at 1.)
    return left > covered_left ? w1 * b + w2 * a : w1 * a + w2 * b;
}

funcnode *new_mergestreams_node(pe_context *pe, pe_streamgroup *group, int nr_cells)
{
    funcnode *node = nullptr;
    auto *p = new_private_node<Merge>(pe, FN_MERGESTREAMS, group->count, &node);
    p->group = group;
    p->stream_type = group->type;
    p->nr_streams = group->count;
    p->dataset_mode = group_on_dataset_surface(pe, group);
    p->mosaic_type = pe->alg != nullptr ? pe->alg->mosaic_type : MT_Overlay;
    const bool classes = group->type == ST_Classification;
    for (int i = 0; i < group->count; i++)
        node->inputs[i].buffers = alloc_bufinfo(pe, 1, nr_cells, classes ? IEEE8ByteReal : 0,
                                                classes ? PE_ALLOC_LINES : PE_ALLOC_RECORDS);
    return node;
}

const int64_t *merge_class_counters(funcnode *node, int *count)
{
    if (node == nullptr || node->type != FN_MERGESTREAMS) return nullptr;
    auto *p = priv<Merge>(node);
    if (count != nullptr) *count = p->nr_streams;
    return p->counters;
}

void setup_mergestreamsnode(funcnode **slot, pe_context *pe, pe_streamgroup *groups,
                            pe_streamgroup *group)
{
    if (group->type != ST_Classification && group->count < 2)
        return setup_streamnodes(slot, pe, groups, group, group->streams);
    funcnode *node = new_mergestreams_node(pe, group, pe->nr_cells);
    int i = 0;
    for (pe_stream *ps = group->streams; ps != nullptr && i < group->count; ps = ps->next, i++)
        setup_streamnodes(&node->inputs[i].node, pe, groups, group, ps);
    *slot = node;
    if (group_on_dataset_surface(pe, group) && pe->cell_type != Unsigned8BitInteger)
        setup_tconvnode(slot, pe, pe->nr_cells, pe->cell_type);
    double null_value = 0.0;
    if (group->type == ST_Pseudo)
        null_value = pe->alg->null_colour;
    else if (group->type == ST_PE_DatasetBand)
        null_value = pe->alg->null_value;
    setup_nconvnode(slot, pe, group, pe->nr_cells, null_value);
}
