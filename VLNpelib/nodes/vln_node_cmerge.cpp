/*
 * vln_node_cmerge.cpp: FN_CMERGE and FN_CDMERGE, class colours painted over
 * what lies below.
 *
 * Input 0, when there is one, is what lies below (the surface's colour step,
 * or a class merge under a class merge): it writes straight into the node's
 * own output (level 1), so nothing is copied. The other inputs give class
 * numbers, 8-bit; each cell of their runs takes its colour from a table of
 * 256 entries. FN_CMERGE has one input, the merge of the Classification
 * streams, and one table, by class; FN_CDMERGE has one input and one table
 * per ClassificationDisplay stream, made from the classes of the stream's
 * dataset. The output's runs are the union of all.
 *
 * A line is an 8-bit palette index, a 32-bit pixel (the colours at the
 * display's shifts), or three 8-bit planes. Colours are the upper bytes of
 * the 16-bit components of the document.
 */
#include <cstring>

#include "vln_nodes.h"
#include "vln_pe_plan.h"

using namespace vln_pe;

namespace {

constexpr int kTableSize = 256;

struct ClassMerge {
    NodeBase base;
    int output_type;    // Unsigned8BitInteger or Unsigned32BitInteger
    int colour_layers;  // 1, or 3 planes
    bool has_below;
    uint32_t background;    // index, pixel, or r | g << 8 | b << 16 on planes
    void *background_line;  // 32-bit: the line that stands in for what is below
    int nr_tables;          // one per class input
    uint32_t *tables;       // nr_tables * 256 entries, in the form of `background`
    pe_streamgroup *group;  // the class streams
};

struct Shifts {
    int red, green, blue;
};

Shifts display_shifts(const pe_context *pe)
{
    if (pe->vds == nullptr) return {16, 8, 0};
    return {pe->vds->red_shift, pe->vds->green_shift, pe->vds->blue_shift};
}

/* A colour of 8-bit components in the table's form for the line. */
uint32_t entry_of(const ClassMerge *p, Shifts s, uint8_t r, uint8_t g, uint8_t b)
{
    if (p->colour_layers == 3) return r | (g << 8) | (static_cast<uint32_t>(b) << 16);
    return (static_cast<uint32_t>(r) << s.red) | (static_cast<uint32_t>(g) << s.green) |
           (static_cast<uint32_t>(b) << s.blue);
}

uint8_t upper(int32_t component16)
{
    return static_cast<uint8_t>((component16 >> 8) & 0xFF);
}

/* The class colours of a Classification merge: entry c is stream c's colour. */
void fill_class_table(const ClassMerge *p, Shifts s, uint32_t *table)
{
    int c = 0;
    for (const pe_stream *ps = p->group->streams; ps != nullptr && c < kTableSize;
         ps = ps->next, c++) {
        const stream *st = ps->stream;
        if (p->output_type == Unsigned8BitInteger && p->colour_layers == 1)
            table[c] = st->class_colour8;
        else
            table[c] = entry_of(p, s, upper(st->class_colour.red), upper(st->class_colour.green),
                                upper(st->class_colour.blue));
    }
}

/* The colours of a ClassificationDisplay stream: each class of its dataset
 * at the class's number. An 8-bit line takes the stream's palette index of
 * the number, where the stream has one. */
void fill_display_table(const ClassMerge *p, Shifts s, const pe_stream *ps, uint32_t *table)
{
    const stream *st = ps->stream;
    if (p->output_type == Unsigned8BitInteger && p->colour_layers == 1) {
        if (st->colours8 != nullptr)
            for (int i = 0; i < st->nr_rgb_colours && i < kTableSize; i++)
                table[i] = st->colours8[i];
        return;
    }
    const dshdr *dsh = st->dshdr;
    if (dsh == nullptr && ps->dsinput != nullptr) dsh = ps->dsinput->dsh;
    if (dsh == nullptr || dsh->data_type != DT_Raster) return;
    for (const regioninfo *r = dsh->info.r.regions; r != nullptr; r = r->next) {
        if (r->type != REGION_CLASS || r->class_number < 0 || r->class_number >= kTableSize)
            continue;
        table[r->class_number] =
            entry_of(p, s, upper(r->colour.red), upper(r->colour.green), upper(r->colour.blue));
    }
}

void init(funcnode *node)
{
    auto *p = priv<ClassMerge>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    const bool planes = p->colour_layers == 3;
    setup_bufinfo(out, planes ? Unsigned8BitInteger : p->output_type);
    const Shifts s = display_shifts(pe);
    const algorithm *alg = pe->alg;
    if (p->output_type == Unsigned8BitInteger && !planes)
        p->background = alg != nullptr ? alg->null_colour : 0;
    else if (alg != nullptr)
        p->background = entry_of(p, s, alg->background_colour[0], alg->background_colour[1],
                                 alg->background_colour[2]);
    p->tables = static_cast<uint32_t *>(
        pe_malloc(pe, static_cast<int64_t>(sizeof(uint32_t)) * kTableSize * p->nr_tables));
    for (int i = 0; i < kTableSize * p->nr_tables; i++) p->tables[i] = p->background;
    if (node->type == FN_CMERGE) {
        fill_class_table(p, s, p->tables);
    } else {
        int t = 0;
        for (const pe_stream *ps = p->group->streams; ps != nullptr && t < p->nr_tables;
             ps = ps->next, t++)
            fill_display_table(p, s, ps, p->tables + t * kTableSize);
    }
    if (!p->has_below && !planes && out->cell_size > 0) {
        p->background_line = pe_malloc(pe, static_cast<int64_t>(out->line_size));
        for (int i = 0; i < out->nr_cells; i++) {
            if (p->output_type == Unsigned32BitInteger)
                static_cast<uint32_t *>(p->background_line)[i] = p->background;
            else
                static_cast<uint8_t *>(p->background_line)[i] = static_cast<uint8_t>(p->background);
        }
    }
}

/* Paints the cells of `runs` with the colours of their class numbers. */
void paint(const ClassMerge *p, bufinfo *out, const uint8_t *classes, const rlseg *runs,
           const uint32_t *table)
{
    for (const rlseg *r = runs; r != nullptr; r = r->next) {
        if (p->colour_layers == 3) {
            auto *red = static_cast<uint8_t *>(out->buffers[0]->data);
            auto *green = static_cast<uint8_t *>(out->buffers[1]->data);
            auto *blue = static_cast<uint8_t *>(out->buffers[2]->data);
            for (int x = r->first; x <= r->last; x++) {
                const uint32_t c = table[classes[x]];
                red[x] = c & 0xFF;
                green[x] = (c >> 8) & 0xFF;
                blue[x] = (c >> 16) & 0xFF;
            }
        } else if (p->output_type == Unsigned32BitInteger) {
            auto *line = static_cast<uint32_t *>(out->buffers[0]->data);
            for (int x = r->first; x <= r->last; x++) line[x] = table[classes[x]];
        } else {
            auto *line = static_cast<uint8_t *>(out->buffers[0]->data);
            for (int x = r->first; x <= r->last; x++)
                line[x] = static_cast<uint8_t>(table[classes[x]]);
        }
    }
}

void read(funcnode *node)
{
    auto *p = priv<ClassMerge>(node);
    pe_context *pe = p->base.pe;
    rlseg_pool *pool = &pe->rlsegs;
    bufinfo *out = node->output;
    for (int b = 0; b < out->nr_buffers; b++) pe_free_rlseg_list(pe, &out->buffers[b]->rlsegs);
    int first_class = 0;
    if (p->has_below) {
        bufinfo *below = node->inputs[0].buffers;
        for (int b = 0; b < out->nr_buffers && b < below->nr_buffers; b++)
            below->buffers[b] = out->buffers[b];
        pull(node, 0);
        first_class = 1;
    } else if (p->background_line != nullptr) {
        std::memcpy(out->buffers[0]->data, p->background_line, static_cast<size_t>(out->line_size));
    }
    // What lies below may give its runs on any of its planes.
    rlseg *all = out->buffers[0]->rlsegs;
    out->buffers[0]->rlsegs = nullptr;
    for (int b = 1; b < out->nr_buffers; b++) {
        rlseg *joined = or_rlsegs(pool, all, out->buffers[b]->rlsegs);
        pe_free_rlseg_list(pe, &all);
        pe_free_rlseg_list(pe, &out->buffers[b]->rlsegs);
        all = joined;
    }
    for (int i = first_class; i < node->nr_inputs; i++) {
        pull(node, i);
        linebuf *classes = node->inputs[i].buffers->buffers[0];
        paint(p, out, static_cast<const uint8_t *>(classes->data), classes->rlsegs,
              p->tables + (i - first_class) * kTableSize);
        rlseg *joined = or_rlsegs(pool, all, classes->rlsegs);
        pe_free_rlseg_list(pe, &all);
        pe_free_rlseg_list(pe, &classes->rlsegs);
        all = joined;
    }
    out->buffers[0]->rlsegs = all;
}

/* The colour step of a surface, when the caller left nothing below. */
void build_colour_step(funcnode **slot, pe_context *pe, int output_type, int colour_layers,
                       pe_streamgroup *groups)
{
    if (*slot != nullptr || groups == nullptr) return;
    if (colour_layers == 3)
        setup_rgbitorgb_node(slot, pe, groups);
    else if (output_type == Unsigned32BitInteger)
        setup_rgb24final_node(slot, pe, groups);
    else
        setup_height8_node(slot, pe, groups);
}

}  // namespace

namespace vln_pe {
extern const NodeOps cmerge_ops;
const NodeOps cmerge_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

funcnode *new_class_merge_node(funcnode **slot, pe_context *pe, int type, int output_type,
                               int colour_layers, pe_streamgroup *group, int nr_classes)
{
    if (colour_layers != 3 && output_type != Unsigned8BitInteger &&
        output_type != Unsigned32BitInteger)
        alg_internal_error(pe, "cmerge", __LINE__, "Class colours need 8-bit or 32-bit cells");
    const bool has_below = *slot != nullptr;
    funcnode *node = nullptr;
    auto *p = new_private_node<ClassMerge>(pe, type, nr_classes + (has_below ? 1 : 0), &node);
    p->output_type = output_type;
    p->colour_layers = colour_layers == 3 ? 3 : 1;
    p->has_below = has_below;
    p->nr_tables = nr_classes;
    p->group = group;
    if (has_below) {
        const int below_type = p->colour_layers == 3 ? Unsigned8BitInteger : output_type;
        setup_fninput(pe, &node->inputs[0], *slot, p->colour_layers, pe->nr_cells, below_type,
                      PE_ALLOC_SHARED);
    }
    for (int i = 0; i < nr_classes; i++)
        class_merge_input(node, i)->buffers =
            alloc_bufinfo(pe, 1, pe->nr_cells, Unsigned8BitInteger, PE_ALLOC_LINES);
    *slot = node;
    return node;
}

fninput *class_merge_input(funcnode *node, int i)
{
    auto *p = priv<ClassMerge>(node);
    return &node->inputs[i + (p->has_below ? 1 : 0)];
}

void setup_cdmergenode(funcnode **slot, pe_context *pe, int output_type, int colour_layers,
                       pe_streamgroup *groups, pe_streamgroup *cdisplay_group)
{
    build_colour_step(slot, pe, output_type, colour_layers, groups);
    if (cdisplay_group == nullptr || cdisplay_group->count < 1) return;
    funcnode *node = new_class_merge_node(slot, pe, FN_CDMERGE, output_type, colour_layers,
                                          cdisplay_group, cdisplay_group->count);
    int i = 0;
    for (pe_stream *ps = cdisplay_group->streams; ps != nullptr && i < cdisplay_group->count;
         ps = ps->next, i++)
        setup_streamnodes(&class_merge_input(node, i)->node, pe, groups, cdisplay_group, ps);
}

void setup_cmergenode(funcnode **slot, pe_context *pe, int output_type, int colour_layers,
                      pe_streamgroup *groups, pe_streamgroup *class_group,
                      pe_streamgroup *cdisplay_group)
{
    setup_cdmergenode(slot, pe, output_type, colour_layers, groups, cdisplay_group);
    if (class_group == nullptr || class_group->count < 1) return;
    funcnode *node =
        new_class_merge_node(slot, pe, FN_CMERGE, output_type, colour_layers, class_group, 1);
    setup_mergestreamsnode(&class_merge_input(node, 0)->node, pe, groups, class_group);
}
