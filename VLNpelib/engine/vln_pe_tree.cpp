/*
 * vln_pe_tree.cpp: nodes, connections and the passes over a tree.
 *
 * A node's input connection (fninput) carries a bufinfo whose alloc_level
 * says what the connection owns: the array of line records only (level 1,
 * the parent shares its own), the records too (level 2, the parent points
 * them at memory of its own before each pull), or lines as well (level 3).
 * init_funcnode settles cell types bottom-up; init_pass4 allocates what the
 * levels call for, top-down, stopping at a stream's FN_SSYNC, below which
 * line memory exists only while the stream is in its rows; init_pass5 runs
 * the post_init hooks.
 */
#include "vln_nodes.h"

using namespace vln_pe;

funcnode *alloc_funcnode(pe_context *pe, int nr_inputs)
{
    auto *node = static_cast<funcnode *>(pe_malloc(pe, sizeof(funcnode)));
    node->nr_inputs = nr_inputs;
    if (nr_inputs > 0)
        node->inputs = static_cast<fninput *>(pe_malloc(pe, sizeof(fninput) * nr_inputs));
    return node;
}

bufinfo *alloc_bufinfo(pe_context *pe, int nr_buffers, int nr_cells, int cell_type, int alloc_level)
{
    auto *info = static_cast<bufinfo *>(pe_malloc(pe, sizeof(bufinfo)));
    info->nr_buffers = nr_buffers;
    info->nr_cells = nr_cells;
    info->alloc_level = alloc_level;
    setup_bufinfo(info, cell_type);
    return info;
}

void setup_fninput(pe_context *pe, fninput *input, funcnode *child, int nr_buffers, int nr_cells,
                   int cell_type, int alloc_level)
{
    input->node = child;
    input->buffers = alloc_bufinfo(pe, nr_buffers, nr_cells, cell_type, alloc_level);
}

void setup_bufinfo(bufinfo *info, int cell_type)
{
    info->cell_type = cell_type;
    info->cell_size = (cell_type >= Unsigned8BitInteger && cell_type <= IEEE8ByteReal)
                          ? celltypesize(cell_type)
                          : 0;
    info->line_size = info->nr_cells * info->cell_size;
}

void alloc_bufinfo_buffer_array(pe_context *pe, bufinfo *info)
{
    if (info->buffers == nullptr && info->nr_buffers > 0)
        info->buffers =
            static_cast<linebuf **>(pe_malloc(pe, sizeof(linebuf *) * info->nr_buffers));
}

void alloc_bufinfo_buffers(pe_context *pe, bufinfo *info)
{
    for (int b = 0; b < info->nr_buffers; b++)
        if (info->buffers[b] == nullptr)
            info->buffers[b] = static_cast<linebuf *>(pe_malloc(pe, sizeof(linebuf)));
}

void alloc_bufinfo_buffer_bufs(pe_context *pe, bufinfo *info)
{
    // One cell more than the line, so that a loop may read one past its end.
    for (int b = 0; b < info->nr_buffers; b++)
        if (info->buffers[b]->data == nullptr)
            info->buffers[b]->data = pe_malloc(pe, info->line_size + 8);
}

void alloc_bufinfo_buffers_and_bufs(pe_context *pe, bufinfo *info)
{
    alloc_bufinfo_buffers(pe, info);
    alloc_bufinfo_buffer_bufs(pe, info);
}

void free_bufinfo_buffer_bufs(pe_context *pe, bufinfo *info)
{
    if (info->buffers == nullptr) return;
    for (int b = 0; b < info->nr_buffers; b++) {
        linebuf *line = info->buffers[b];
        if (line == nullptr) continue;
        pe_free_rlseg_list(pe, &line->rlsegs);
        pe_free(pe, line->data);
        line->data = nullptr;
    }
}

void free_bufinfo_buffers(pe_context *pe, bufinfo *info)
{
    if (info->buffers == nullptr) return;
    for (int b = 0; b < info->nr_buffers; b++) {
        if (info->buffers[b] == nullptr) continue;
        pe_free_rlseg_list(pe, &info->buffers[b]->rlsegs);
        pe_free(pe, info->buffers[b]);
        info->buffers[b] = nullptr;
    }
}

void free_bufinfo_buffer_array(pe_context *pe, bufinfo *info)
{
    pe_free(pe, info->buffers);
    info->buffers = nullptr;
}

void setup_fninput_buffers(pe_context *pe, fninput *input)
{
    bufinfo *info = input->buffers;
    if (info == nullptr) return;
    alloc_bufinfo_buffer_array(pe, info);
    if (info->alloc_level >= PE_ALLOC_RECORDS) alloc_bufinfo_buffers(pe, info);
    if (info->alloc_level >= PE_ALLOC_LINES) alloc_bufinfo_buffer_bufs(pe, info);
}

void free_fninput_buffers(pe_context *pe, fninput *input)
{
    bufinfo *info = input->buffers;
    if (info == nullptr || info->buffers == nullptr) return;
    if (info->alloc_level >= PE_ALLOC_LINES) free_bufinfo_buffer_bufs(pe, info);
    if (info->alloc_level >= PE_ALLOC_RECORDS) free_bufinfo_buffers(pe, info);
    free_bufinfo_buffer_array(pe, info);
}

void walk_funcnodes(funcnode *node, void (*fn)(funcnode *node))
{
    if (node == nullptr) return;
    for (int i = 0; i < node->nr_inputs; i++) walk_funcnodes(node->inputs[i].node, fn);
    fn(node);
}

void init_funcnode(funcnode *node, funcnode *parent, bufinfo *output)
{
    if (node == nullptr) return;
    node->parent = parent;
    node->output = output;
    if (node->type != FN_INPUT)
        for (int i = 0; i < node->nr_inputs; i++)
            init_funcnode(node->inputs[i].node, node, node->inputs[i].buffers);
    if (node->init != nullptr) node->init(node);
}

namespace {

void allocate_below(pe_context *pe, funcnode *node, bool stop_at_ssync)
{
    if (node == nullptr) return;
    if (node->type == FN_INPUT || node->type == FN_READ) return;
    if (stop_at_ssync && node->type == FN_SSYNC) return;
    for (int i = 0; i < node->nr_inputs; i++) {
        setup_fninput_buffers(pe, &node->inputs[i]);
        allocate_below(pe, node->inputs[i].node, true);
    }
}

void release_below(pe_context *pe, funcnode *node)
{
    if (node == nullptr || node->type == FN_INPUT || node->type == FN_READ) return;
    for (int i = 0; i < node->nr_inputs; i++) {
        release_below(pe, node->inputs[i].node);
        free_fninput_buffers(pe, &node->inputs[i]);
    }
}

void run_post_init(funcnode *node)
{
    if (node->post_init != nullptr) node->post_init(node);
}

}  // namespace

void init_pass4(pe_context *pe, funcnode *node)
{
    allocate_below(pe, node, true);
}

void init_pass5(funcnode *node)
{
    walk_funcnodes(node, run_post_init);
}

void alloc_subtree_buffers(pe_context *pe, funcnode *node)
{
    allocate_below(pe, node, false);
}

void free_subtree_buffers(pe_context *pe, funcnode *node)
{
    release_below(pe, node);
}

/* ---------------------------------------------------------------- helpers of the node kinds */

funcnode *vln_pe::new_node(pe_context *pe, int type, int nr_inputs, size_t private_size)
{
    funcnode *node = alloc_funcnode(pe, nr_inputs);
    node->type = type;
    if (const NodeOps *ops = node_kind(type).ops) {
        node->init = ops->init;
        node->post_init = ops->post_init;
        node->start = ops->start;
        node->read = ops->read;
        node->close = ops->close;
    }
    if (private_size > 0) {
        node->private_data = pe_malloc(pe, static_cast<int64_t>(private_size));
        static_cast<NodeBase *>(node->private_data)->pe = pe;
    }
    return node;
}

void vln_pe::pass_type_up(funcnode *node)
{
    if (node->output != nullptr && node->nr_inputs > 0 && node->inputs[0].buffers != nullptr)
        setup_bufinfo(node->output, node->inputs[0].buffers->cell_type);
}

void vln_pe::move_rlsegs(pe_context *pe, bufinfo *from, bufinfo *to)
{
    for (int b = 0; b < to->nr_buffers && b < from->nr_buffers; b++) {
        linebuf *src = from->buffers[b];
        linebuf *dst = to->buffers[b];
        if (src == dst) continue;
        pe_free_rlseg_list(pe, &dst->rlsegs);
        dst->rlsegs = src->rlsegs;
        src->rlsegs = nullptr;
    }
}

void vln_pe::shift_rlsegs(rlseg *list, int offset)
{
    for (rlseg *r = list; r != nullptr; r = r->next) {
        r->first += offset;
        r->last += offset;
    }
}
