/*
 * vln_node_tomsrgbh.cpp: FN_TOMSRGBH, 32-bit pixels and heights per surface.
 *
 * Each surface that has anything to show gives one line of 32-bit pixels,
 * through its class merge (or its vector merge, when a vector layer of the
 * surface is drawn by a program of its own), and each surface with a Height
 * group one line of heights as 4-byte reals. Heights are thus not folded into
 * the pixels: the Height group is taken out of the surface's groups before the
 * pixel tree is built. Every input writes straight into its band's line.
 */
#include <cstring>

#include "vln_nodes.h"
#include "vln_pe_plan.h"

namespace {

constexpr const char *internal_vector_link = "vlnps_vlvec";

struct ToMsRgbh {
    vln_pe::NodeBase base;
    int line;  // lines delivered so far
};

bool has_any_group(const pe_context *pe, int s)
{
    return pe->groups[s] != nullptr || pe->class_groups[s] != nullptr ||
           pe->classdisp_groups[s] != nullptr || pe->link_groups[s] != nullptr;
}

/* A vector layer of the group is drawn by a program other than the one for
 * the system's own vector files. */
bool has_foreign_link(const pe_streamgroup *links)
{
    if (links == nullptr) return false;
    for (const pe_stream *ps = links->streams; ps != nullptr; ps = ps->next) {
        const char *program = ps->stream->filter_program_name;
        if (program != nullptr && *program != '\0' && std::strcmp(program, internal_vector_link))
            return true;
    }
    return false;
}

/* Moves the first Height group of each surface from `groups` to
 * `height_groups`. */
void take_out_heights(pe_context *pe)
{
    for (int s = 0; s < pe->nr_surfaces; s++) {
        if (pe->height_groups[s] != nullptr) continue;
        for (pe_streamgroup **at = &pe->groups[s]; *at != nullptr; at = &(*at)->next) {
            if ((*at)->type != ST_Height) continue;
            pe_streamgroup *g = *at;
            *at = g->next;
            g->next = nullptr;
            pe->height_groups[s] = g;
            pe->group_counts[s]--;
            break;
        }
    }
}

void init(funcnode *node)
{
    setup_bufinfo(node->output, Unsigned32BitInteger);
    for (int i = 0; i < node->nr_inputs; i++)
        if (node->inputs[i].buffers->cell_size != 4)
            alg_internal_error(vln_pe::context_of(node), "tomsrgbh", __LINE__,
                               "A surface's line is not of 4-byte cells");
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<ToMsRgbh>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    p->line++;
    for (int i = 0; i < node->nr_inputs; i++) {
        linebuf *in = node->inputs[i].buffers->buffers[0];
        linebuf *to = out->buffers[i];
        in->data = to->data;
        vln_pe::pull(node, i);
        pe_free_rlseg_list(pe, &to->rlsegs);
        to->rlsegs = in->rlsegs;
        in->rlsegs = nullptr;
    }
}

void skip(funcnode *node, int first)
{
    vln_pe::priv<ToMsRgbh>(node)->line = first;
    start_inputs_at_line(node, first);
}

}  // namespace

namespace vln_pe {
extern const NodeOps tomsrgbh_ops;
const NodeOps tomsrgbh_ops = {init, nullptr, nullptr, read, nullptr, skip};
}  // namespace vln_pe

int tomsrgbh_band_map(const pe_context *pe, int32_t *band_map)
{
    int k = 0;
    for (int s = 0; s < pe->nr_surfaces; s++)
        if (has_any_group(pe, s)) {
            if (band_map != nullptr) band_map[k] = 2 * s;
            k++;
        }
    for (int s = 0; s < pe->nr_surfaces; s++)
        if (pe->height_groups[s] != nullptr) {
            if (band_map != nullptr) band_map[k] = 2 * s + 1;
            k++;
        }
    return k;
}

void setup_tomsrgbh(funcnode **slot, pe_context *pe)
{
    take_out_heights(pe);
    const int width = pe->alg->output_width;
    const int n = tomsrgbh_band_map(pe, nullptr);
    funcnode *node = nullptr;
    vln_pe::new_private_node<ToMsRgbh>(pe, FN_TOMSRGBH, n, &node);
    int i = 0;
    for (int s = 0; s < pe->nr_surfaces; s++) {
        if (!has_any_group(pe, s)) continue;
        fninput *in = &node->inputs[i++];
        if (has_foreign_link(pe->link_groups[s]))
            setup_psmergenode(&in->node, pe, PV_MergeWithRaster, Unsigned32BitInteger, 1,
                              pe->groups[s], pe->class_groups[s], pe->classdisp_groups[s],
                              pe->link_groups[s]);
        else
            setup_cmergenode(&in->node, pe, Unsigned32BitInteger, 1, pe->groups[s],
                             pe->class_groups[s], pe->classdisp_groups[s]);
        in->buffers = alloc_bufinfo(pe, 1, width, Unsigned32BitInteger, PE_ALLOC_RECORDS);
    }
    for (int s = 0; s < pe->nr_surfaces; s++) {
        if (pe->height_groups[s] == nullptr) continue;
        fninput *in = &node->inputs[i++];
        setup_mergestreamsnode(&in->node, pe, pe->groups[s], pe->height_groups[s]);
        in->buffers = alloc_bufinfo(pe, 1, width, IEEE4ByteReal, PE_ALLOC_RECORDS);
    }
    *slot = node;
}
