/*
 * vln_node_dgroupstreams.cpp: FN_DGROUPSTREAMS, the bands of a dataset
 * written from an algorithm.
 *
 * Each band is one group of streams: the ordinary groups first, then the
 * class numbers of each Classification group, then each DynamicLink group's
 * vectors drawn as 8-bit values and brought to the output's type. The node
 * shares its line records with its inputs, so each band's tree writes straight
 * into the line that the root was given for that band. The order here is the
 * order of the bands of the written dataset, and its header names them in
 * the same order.
 */
#include "vln_nodes.h"
#include "vln_pe_plan.h"

namespace {

struct DGroupStreams {
    vln_pe::NodeBase base;
};

void init(funcnode *node)
{
    setup_bufinfo(node->output, vln_pe::priv<DGroupStreams>(node)->base.pe->cell_type);
}

void read(funcnode *node)
{
    bufinfo *out = node->output;
    for (int b = 0; b < node->nr_inputs; b++) {
        node->inputs[b].buffers->buffers[0] = out->buffers[b];
        vln_pe::pull(node, b);
    }
}

}  // namespace

namespace vln_pe {
extern const NodeOps dgroupstreams_ops;
const NodeOps dgroupstreams_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

int dataset_output_groups(const pe_context *pe, pe_streamgroup **groups, int max)
{
    int n = 0;
    auto add = [&](pe_streamgroup *g) {
        if (groups != nullptr && n < max) groups[n] = g;
        n++;
    };
    for (int s = 0; s < pe->nr_surfaces; s++)
        for (pe_streamgroup *g = pe->groups[s]; g != nullptr; g = g->next) add(g);
    for (int s = 0; s < pe->nr_surfaces; s++)
        if (pe->class_groups[s] != nullptr) add(pe->class_groups[s]);
    for (int s = 0; s < pe->nr_surfaces; s++)
        if (pe->link_groups[s] != nullptr) add(pe->link_groups[s]);
    return n;
}

void setup_dgsnode(funcnode **slot, pe_context *pe, int nr_bands)
{
    const algorithm *alg = pe->alg;
    const int width = alg->output_width;
    auto **bands = static_cast<pe_streamgroup **>(pe_malloc(pe, sizeof(void *) * nr_bands));
    if (dataset_output_groups(pe, bands, nr_bands) != nr_bands)
        alg_internal_error(pe, "dgroupstreams", __LINE__, "Band count differs from the groups");
    funcnode *node = nullptr;
    vln_pe::new_private_node<DGroupStreams>(pe, FN_DGROUPSTREAMS, nr_bands, &node);
    for (int b = 0; b < nr_bands; b++) {
        pe_streamgroup *g = bands[b];
        fninput *in = &node->inputs[b];
        if (g->type == ST_DynamicLink) {
            // The vectors alone, drawn after the raster into 8-bit cells.
            setup_psmergenode(&in->node, pe, PV_AfterRasterOkay, Unsigned8BitInteger, 1, nullptr,
                              nullptr, nullptr, g);
            if (pe->cell_type != Unsigned8BitInteger)
                setup_tconvnode(&in->node, pe, width, pe->cell_type);
            setup_nconvnode(&in->node, pe, g, width, alg->null_value);
        } else {
            setup_mergestreamsnode(&in->node, pe, pe->groups[g->surface_index], g);
        }
        in->buffers = alloc_bufinfo(pe, 1, width, pe->cell_type, PE_ALLOC_SHARED);
    }
    *slot = node;
}
