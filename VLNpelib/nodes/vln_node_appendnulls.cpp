/*
 * vln_node_appendnulls.cpp: FN_APPENDNULLS, which fills the part of the
 * output window that the image's canvas doesn't cover.
 *
 * When the aspect of the image is kept, the canvas may be narrower or
 * shorter than the window. The node passes the canvas's lines through from
 * its child and paints the rest with a light stipple over the null colour:
 * three pattern lines taken in the cycle a, b, c, b, where a has the stipple
 * on every fourth cell from 0, c on every fourth from 2, and b none. When the
 * canvas is short, the lines below it are patterned whole; when only its
 * width differs, the cells right of it get the pattern on every line. When
 * both differ, only the lines below the canvas are filled. Filled cells are
 * not valid cells: they stay outside the runs.
 */
#include <cstdint>
#include <cstring>

#include "vln_nodes.h"

namespace {

struct AppendNulls {
    vln_pe::NodeBase base;
    int process_vectors;
    int with_links;
    int cell_type;
    int canvas_lines;  // lines that come from the child
    int canvas_cells;  // cells of each such line
    int window_lines;
    int line;           // lines delivered so far
    int next_pattern;   // 0 to 3, in the cycle a, b, c, b
    void *patterns[3];  // a, b, c, as wide as the window
};

/* The null and stipple values of the output's cells: palette indices at 8
 * bits, pixels of the background and stipple colours at 32 bits. */
void fill_values(const pe_context *pe, int cell_type, uint32_t *null_cell, uint32_t *stipple)
{
    const algorithm *alg = pe->alg;
    if (cell_type != Unsigned32BitInteger) {
        *null_cell = alg->null_colour;
        *stipple = alg->stipple_colour;
        return;
    }
    int red = 16, green = 8, blue = 0;
    if (pe->vds != nullptr) {
        red = pe->vds->red_shift;
        green = pe->vds->green_shift;
        blue = pe->vds->blue_shift;
    }
    auto pixel = [&](const uint8_t *rgb) {
        return static_cast<uint32_t>(rgb[0]) << red | static_cast<uint32_t>(rgb[1]) << green |
               static_cast<uint32_t>(rgb[2]) << blue;
    };
    *null_cell = pixel(alg->background_colour);
    *stipple = pixel(alg->stipple_colour24);
}

template <class T>
void make_patterns(AppendNulls *p, int nr_cells, T null_cell, T stipple)
{
    for (int k = 0; k < 3; k++) {
        auto *cells = static_cast<T *>(p->patterns[k]);
        for (int i = 0; i < nr_cells; i++) {
            const bool dotted = (k == 0 && i % 4 == 0) || (k == 2 && i % 4 == 2);
            cells[i] = dotted ? stipple : null_cell;
        }
    }
}

void init(funcnode *node)
{
    auto *p = vln_pe::priv<AppendNulls>(node);
    bufinfo *out = node->output;
    setup_bufinfo(out, p->cell_type);
    for (void *&pattern : p->patterns) pattern = pe_malloc(p->base.pe, out->line_size);
    uint32_t null_cell = 0, stipple = 0;
    fill_values(p->base.pe, out->cell_type, &null_cell, &stipple);
    if (out->cell_type == Unsigned32BitInteger)
        make_patterns<uint32_t>(p, out->nr_cells, null_cell, stipple);
    else
        make_patterns<uint8_t>(p, out->nr_cells, static_cast<uint8_t>(null_cell),
                               static_cast<uint8_t>(stipple));
}

/* The next pattern line of the cycle a, b, c, b. */
const void *next_pattern(AppendNulls *p)
{
    static constexpr int cycle[4] = {0, 1, 2, 1};
    const void *pattern = p->patterns[cycle[p->next_pattern]];
    p->next_pattern = (p->next_pattern + 1) % 4;
    return pattern;
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<AppendNulls>(node);
    bufinfo *out = node->output;
    bufinfo *in = node->inputs[0].buffers;
    const int line = p->line++;
    if (line >= p->canvas_lines) {
        const void *pattern = next_pattern(p);
        for (int b = 0; b < out->nr_buffers; b++) {
            std::memcpy(out->buffers[b]->data, pattern, out->line_size);
            pe_free_rlseg_list(p->base.pe, &out->buffers[b]->rlsegs);
        }
        return;
    }
    for (int b = 0; b < out->nr_buffers; b++) in->buffers[b] = out->buffers[b];
    vln_pe::pull(node);
    // A short canvas's own lines are passed on as they are, however wide.
    if (p->canvas_lines < p->window_lines || p->canvas_cells >= out->nr_cells) return;
    const void *pattern = next_pattern(p);
    const size_t canvas_bytes = static_cast<size_t>(p->canvas_cells) * out->cell_size;
    for (int b = 0; b < out->nr_buffers; b++)
        std::memcpy(static_cast<char *>(out->buffers[b]->data) + canvas_bytes, pattern,
                    out->line_size - canvas_bytes);
}

/* The lines before `first` have each taken a pattern line where they had
 * cells of the pattern, so the cycle goes on from their count. */
void skip(funcnode *node, int first)
{
    auto *p = vln_pe::priv<AppendNulls>(node);
    const bool canvas_patterned =
        !(p->canvas_lines < p->window_lines || p->canvas_cells >= node->output->nr_cells);
    const int canvas_before = first < p->canvas_lines ? first : p->canvas_lines;
    const int64_t taken = (canvas_patterned ? canvas_before : 0) + (first - canvas_before);
    p->line = first;
    p->next_pattern = static_cast<int>(taken % 4);
    start_at_line(node->inputs[0].node, canvas_before);
}

}  // namespace

namespace vln_pe {
extern const NodeOps appendnulls_ops;
const NodeOps appendnulls_ops = {init, nullptr, nullptr, read, nullptr, skip};
}  // namespace vln_pe

/* Fills the window around the canvas: a stage over the image's tree, whose
 * lines are the canvas's, in `cell_type` (that of the root's line). A canvas
 * as large as the window makes no node. */
void setup_appendnulls_node(funcnode **slot, pe_context *pe, int process_vectors, int with_links,
                            int cell_type)
{
    const algorithm *alg = pe->alg;
    if (pe->nr_lines >= alg->output_height && pe->nr_cells >= alg->output_width) return;
    auto *p = vln_pe::add_stage<AppendNulls>(slot, pe, FN_APPENDNULLS, 1, pe->nr_cells, cell_type,
                                             PE_ALLOC_SHARED);
    p->process_vectors = process_vectors;
    p->with_links = with_links;
    p->cell_type = cell_type;
    p->canvas_lines = pe->nr_lines;
    p->canvas_cells = pe->nr_cells;
    p->window_lines = alg->output_height;
}
