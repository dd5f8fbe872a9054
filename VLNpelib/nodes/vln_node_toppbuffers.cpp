/*
 * vln_node_toppbuffers.cpp: FN_TOPPBUFFERS, one packed-pixel line per
 * surface.
 *
 * Every ordinary group of every surface writes its values into a plane of its
 * surface, 8-bit, or 16-bit for a group of 16-bit shading; the class colours
 * of a surface go into its red, green and blue planes. Each cell of a surface
 * has a mask of what it carries (the PP_ bits). After all inputs are pulled,
 * each surface's cells are packed one after the other, each with the bytes its
 * mask calls for, and a run table of {mask, count} says how to unpack them.
 * The table is the one allocation of a read: it is new each line, and the
 * caller's.
 */
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "vln_nodes.h"
#include "vln_pe_plan.h"

namespace {

constexpr int nr_colours = 8;

/* The write order of the planes in a packed cell. Kept: intensity comes
 * before hue, the reverse of the mask bits, as readers of packed lines expect
 * it so. */
constexpr int pack_order[nr_colours] = {0, 1, 2, 5, 4, 3, 6, 7};

/* The planes of one surface, the lines handed to its inputs, and its masks. */
struct PpSurface {
    pp_planes planes;
    linebuf line8[nr_colours];
    linebuf line16[nr_colours];
    uint32_t *masks;
    int nr_bytes_limit;
};

/* An input: an ordinary group (its colour, 16 bits or not) or class colours. */
struct PpInput {
    int surface;
    int colour;  // -1 for class colours
    bool sixteen;
    uint32_t bit;
};

struct ToPpBuffers {
    vln_pe::NodeBase base;
    int line;  // from 1, the line being made
    PpSurface *surfaces;
    PpInput *inputs;
};

void init(funcnode *node)
{
    auto *p = vln_pe::priv<ToPpBuffers>(node);
    setup_bufinfo(node->output, Unsigned8BitInteger);
    for (int i = 0; i < node->nr_inputs; i++)
        if (node->inputs[i].buffers->cell_size != (p->inputs[i].sixteen ? 2 : 1))
            alg_internal_error(p->base.pe, "toppbuffers", __LINE__,
                               "A packed-pixel layer does not deliver cells of its plane's size");
}

void mark(uint32_t *masks, const rlseg *runs, int nr_cells, uint32_t bit)
{
    for (const rlseg *r = runs; r != nullptr; r = r->next)
        for (int x = std::max(r->first, 0); x <= r->last && x < nr_cells; x++) masks[x] |= bit;
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<ToPpBuffers>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    const int nr_cells = out->nr_cells;
    p->line++;
    for (int s = 0; s < out->nr_buffers; s++)
        std::memset(p->surfaces[s].masks, 0, sizeof(uint32_t) * nr_cells);
    for (int i = 0; i < node->nr_inputs; i++) {
        const PpInput &d = p->inputs[i];
        PpSurface &surface = p->surfaces[d.surface];
        bufinfo *in = node->inputs[i].buffers;
        if (d.colour < 0)
            for (int b = 0; b < 3; b++) in->buffers[b] = &surface.line8[b];
        else
            in->buffers[0] = d.sixteen ? &surface.line16[d.colour] : &surface.line8[d.colour];
        vln_pe::pull(node, i);
        mark(surface.masks, in->buffers[0]->rlsegs, nr_cells, d.bit);
        for (int b = 0; b < in->nr_buffers; b++) pe_free_rlseg_list(pe, &in->buffers[b]->rlsegs);
    }
    auto **tables = static_cast<uint32_t **>(node->pp_output);
    for (int s = 0; s < out->nr_buffers; s++) {
        const PpSurface &surface = p->surfaces[s];
        const int status = convert_bufs_to_pp(
            surface.nr_bytes_limit, nr_cells, p->line, pe->nr_cells, pe->nr_lines, &surface.planes,
            surface.masks, tables != nullptr ? &tables[s] : nullptr,
            static_cast<uint8_t *>(out->buffers[s]->data));
        if (status == 1) vds_abort_read(pe);
        if (status != 0)
            vds_processing_error(pe, "Packed line of surface %d is longer than %d bytes", s + 1,
                                 surface.nr_bytes_limit);
    }
}

/* ---------------------------------------------------------------- building */

/* The bit of an ordinary group, and its plane. */
PpInput group_input(pe_context *pe, int s, const pe_streamgroup *g)
{
    if (g->type < ST_Red || g->type > ST_Height)
        alg_internal_error(pe, "toppbuffers", __LINE__, "No packed plane for this layer type");
    PpInput d{s, g->type - ST_Red, g->streams != nullptr && g->streams->do_rtshade16 != 0, 0};
    d.bit = d.sixteen ? static_cast<uint32_t>(PP_RED16) << d.colour : 1u << d.colour;
    return d;
}

/* Gives surface `s` the planes its inputs need, and its masks and limit. */
void make_planes(pe_context *pe, PpSurface &surface, const PpInput *inputs, int nr_inputs, int s,
                 int width)
{
    auto plane = [&](linebuf &line, int cell_size) {
        if (line.data == nullptr)
            line.data = pe_malloc(pe, static_cast<int64_t>(width) * cell_size);
    };
    for (int i = 0; i < nr_inputs; i++) {
        const PpInput &d = inputs[i];
        if (d.surface != s) continue;
        if (d.colour < 0)
            for (int c = 0; c < 3; c++) plane(surface.line8[c], 1);
        else if (d.sixteen)
            plane(surface.line16[d.colour], 2);
        else
            plane(surface.line8[d.colour], 1);
    }
    int cell_bytes = 0;
    for (int c = 0; c < nr_colours; c++) {
        surface.planes.plane8[c] = static_cast<const uint8_t *>(surface.line8[c].data);
        surface.planes.plane16[c] = static_cast<const uint16_t *>(surface.line16[c].data);
        cell_bytes += surface.line16[c].data != nullptr ? 2 : surface.line8[c].data != nullptr;
    }
    surface.masks = static_cast<uint32_t *>(pe_malloc(pe, sizeof(uint32_t) * width));
    surface.nr_bytes_limit = width * cell_bytes;
}

void skip(funcnode *node, int first)
{
    vln_pe::priv<ToPpBuffers>(node)->line = first;
    start_inputs_at_line(node, first);
}

}  // namespace

namespace vln_pe {
extern const NodeOps toppbuffers_ops;
const NodeOps toppbuffers_ops = {init, nullptr, nullptr, read, nullptr, skip};
}  // namespace vln_pe

void setup_toppbufnode(funcnode **slot, pe_context *pe)
{
    const int width = pe->alg->output_width;
    int n = 0;
    for (int s = 0; s < pe->nr_surfaces; s++)
        n += pe->group_counts[s] + (pe->classdisp_groups[s] != nullptr) +
             (pe->class_groups[s] != nullptr);
    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<ToPpBuffers>(pe, FN_TOPPBUFFERS, n, &node);
    p->inputs = static_cast<PpInput *>(pe_malloc(pe, sizeof(PpInput) * (n + 1)));
    p->surfaces =
        static_cast<PpSurface *>(pe_malloc(pe, sizeof(PpSurface) * (pe->nr_surfaces + 1)));
    int i = 0;
    for (int s = 0; s < pe->nr_surfaces; s++)
        for (pe_streamgroup *g = pe->groups[s]; g != nullptr; g = g->next, i++) {
            p->inputs[i] = group_input(pe, s, g);
            setup_mergestreamsnode(&node->inputs[i].node, pe, pe->groups[s], g);
            node->inputs[i].buffers = alloc_bufinfo(
                pe, 1, width, p->inputs[i].sixteen ? Unsigned16BitInteger : Unsigned8BitInteger,
                PE_ALLOC_SHARED);
        }
    // The class colours of each surface, with nothing below them.
    for (int s = 0; s < pe->nr_surfaces; s++) {
        auto class_input = [&]() {
            p->inputs[i] = {s, -1, false, PP_RGB};
            node->inputs[i].buffers =
                alloc_bufinfo(pe, 3, width, Unsigned8BitInteger, PE_ALLOC_SHARED);
            return &node->inputs[i++].node;
        };
        if (pe->classdisp_groups[s] != nullptr)
            setup_cdmergenode(class_input(), pe, Unsigned8BitInteger, 3, nullptr,
                              pe->classdisp_groups[s]);
        if (pe->class_groups[s] != nullptr)
            setup_cmergenode(class_input(), pe, Unsigned8BitInteger, 3, nullptr,
                             pe->class_groups[s], nullptr);
    }
    for (int s = 0; s < pe->nr_surfaces; s++)
        make_planes(pe, p->surfaces[s], p->inputs, n, s, width);
    *slot = node;
}

/* ---------------------------------------------------------------- packing */

namespace {

/* A run table that grows by doubling; entries are {mask, count} pairs. */
struct Table {
    uint32_t *words = nullptr;
    int capacity = 0;  // entries
    int used = 0;

    bool reserve_two()
    {
        if (capacity - used >= 2) return true;
        const int grown = capacity * 2;
        void *more = std::realloc(words, sizeof(uint32_t) * 2 * grown);
        if (more == nullptr) return false;
        words = static_cast<uint32_t *>(more);
        capacity = grown;
        return true;
    }
    void add(uint32_t mask, uint32_t count)
    {
        words[2 * used] = mask;
        words[2 * used + 1] = count;
        used++;
    }
};

/* The bytes of one cell under `mask`; returns the count written. */
int pack_cell(const pp_planes &pl, uint32_t mask, int x, uint8_t *to)
{
    auto byte = [&](int c) { return pl.plane8[c] != nullptr ? pl.plane8[c][x] : uint8_t{0}; };
    auto word = [&](int c, uint8_t *at) {
        const uint16_t v = pl.plane16[c] != nullptr ? pl.plane16[c][x] : uint16_t{0};
        std::memcpy(at, &v, 2);
    };
    switch (mask) {
        case PP_RGB:
        case PP_RED | PP_GREEN | PP_BLUE:
            to[0] = byte(0), to[1] = byte(1), to[2] = byte(2);
            return 3;
        case PP_PSEUDO:
            to[0] = byte(6);
            return 1;
        case PP_PSEUDO16:
            word(6, to);
            return 2;
        case PP_INTENSITY16 | PP_PSEUDO:
            word(5, to);
            to[2] = byte(6);
            return 3;
        default:
            break;
    }
    // Composed colour is the red, green and blue planes, in their places.
    if (mask & PP_RGB) mask |= PP_RED | PP_GREEN | PP_BLUE;
    int n = 0;
    for (int c : pack_order) {
        if (mask & (static_cast<uint32_t>(PP_RED16) << c)) {
            word(c, to + n);
            n += 2;
        } else if (mask & (1u << c)) {
            to[n++] = byte(c);
        }
    }
    return n;
}

/* The bytes that a cell under `mask` takes. */
int cell_bytes(uint32_t mask)
{
    uint8_t scratch[2 * nr_colours];
    const pp_planes none{};
    return pack_cell(none, mask, 0, scratch);
}

}  // namespace

int convert_bufs_to_pp(int nr_bytes_limit, int nr_cells, int line, int nr_in, int nr_lines_in,
                       const pp_planes *planes, const uint32_t *masks, uint32_t **table,
                       uint8_t *out)
{
    if (table == nullptr) return 0;
    *table = nullptr;
    Table t;
    t.capacity = 4;
    t.words = static_cast<uint32_t *>(std::malloc(sizeof(uint32_t) * 2 * t.capacity));
    if (t.words == nullptr) return 1;
    t.add(0, 0);
    if (line > nr_lines_in) {
        t.add(PP_EMPTY, static_cast<uint32_t>(std::max(nr_cells, 0)));
        t.add(0, 0);
        *table = t.words;
        return 0;
    }
    const int real = std::clamp(nr_in, 0, std::max(nr_cells, 0));
    int bytes = 0;
    int need = 0;  // bytes of a cell of the open entry
    for (int x = 0; x < real; x++) {
        const uint32_t mask = masks[x];
        if (x == 0 || mask != t.words[2 * (t.used - 1)]) {
            if (!t.reserve_two()) {
                std::free(t.words);
                return 1;
            }
            t.add(mask, 0);
            need = cell_bytes(mask);
        }
        t.words[2 * (t.used - 1) + 1]++;
        if (bytes + need > nr_bytes_limit) {
            std::free(t.words);
            return 2;
        }
        bytes += pack_cell(*planes, mask, x, out + bytes);
    }
    if (!t.reserve_two()) {
        std::free(t.words);
        return 1;
    }
    if (nr_cells > real) t.add(PP_EMPTY, static_cast<uint32_t>(nr_cells - real));
    t.add(0, 0);
    t.words[1] = static_cast<uint32_t>(bytes);
    *table = t.words;
    return 0;
}
