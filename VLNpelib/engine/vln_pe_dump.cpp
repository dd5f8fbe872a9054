/*
 * vln_pe_dump.cpp: the tree dump, one line per node, inputs one blank
 * deeper. Each line shows the node's inputs (cell size and cells of each
 * connection) and its output (cell size, cells, cell type).
 */
#include <cstdio>

#include "vln_nodes.h"

namespace {

const char *cell_type_name(int type)
{
    for (const VLD_ENUM *e = ev_CellType; e->name != nullptr; e++)
        if (e->value == type) return e->name;
    return "Unknown";
}

void dump_node(FILE *out, funcnode *node, int level, dsinput *via);

void dump_dsinput_tree(FILE *out, funcnode *input_node, int level)
{
    // An FN_INPUT's source is the little tree of its dataset.
    dsinput *dsi = input_node_dsinput(input_node);
    if (dsi != nullptr && dsi->root != nullptr) dump_node(out, dsi->root, level, dsi);
}

void dump_node(FILE *out, funcnode *node, int level, dsinput *via)
{
    for (int i = 0; i < level; i++) std::fputc(' ', out);
    std::fprintf(out, "%s[", pe_fn_string(node->type));
    if (node->nr_inputs == 0) std::fputs("[No input buffer]", out);
    for (int i = 0; i < node->nr_inputs; i++) {
        bufinfo *b = node->inputs[i].buffers;
        if (b == nullptr)
            std::fprintf(out, "[No input buffer %d]", i);
        else
            std::fprintf(out, "%d,%d;", b->cell_size, b->nr_cells);
    }
    std::fputs(":", out);
    if (node->output == nullptr)
        std::fputs(" [No output buffer]", out);
    else
        std::fprintf(out, " %d,%d,%s", node->output->cell_size, node->output->nr_cells,
                     cell_type_name(node->output->cell_type));
    std::fputs("]\n", out);
    if (node->type == FN_READ) return;
    for (int i = 0; i < node->nr_inputs; i++) {
        funcnode *child = node->inputs[i].node;
        if (child != nullptr) {
            dump_node(out, child, level + 1, via);
        } else {
            if (node->type == FN_SUBSAMPLE) return;
            dump_dsinput_tree(out, node, level + 1);
        }
    }
}

}  // namespace

void dump_functree(funcnode *node)
{
    FILE *out = vln_ReturnStdErr();
    std::fputs("FUNC [in buff val sz, # in_vals; ... : output buff val sz, # out_val, setup]\n",
               out);
    if (node != nullptr) dump_node(out, node, 0, nullptr);
}
