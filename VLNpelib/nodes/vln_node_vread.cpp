/*
 * vln_node_vread.cpp: the roots of the trees, one per output layout.
 *
 * A root has one input, whose bands are the lines that the caller gives to
 * each read; the connection owns its line records but not the lines, so the
 * caller's memory goes straight down the tree and the nodes below write into
 * it. What stands under the root depends on the open:
 *
 *   dataset (surface 0 in DATASET mode)  FN_VREAD over FN_DGROUPSTREAMS
 *   to buffers                           FN_VREAD over FN_TOBUFFERS
 *   to packed-pixel buffers              FN_VREADTOPP over FN_TOPPBUFFERS
 *   to 32-bit pixels per surface         FN_VREADTOMSRGBH over FN_TOMSRGBH
 *   image                                FN_VREAD over the image chain
 *
 * The roots are read through the three *_read_lines calls, which take the
 * caller's arrays; their read hook does nothing, as nothing pulls a root.
 */
#include <cstdio>

#include "vln_nodes.h"

namespace {

struct Root {
    vln_pe::NodeBase base;
    int32_t line;       // lines delivered so far
    int32_t nr_lines;   // OutputHeight
    int32_t cell_size;  // bytes of one cell of the caller's lines
    // The per-surface root: which caller's line each band is (2 * s pixels,
    // 2 * s + 1 heights), and a line of its own for a band the caller gives
    // no memory for.
    int32_t nr_mapped;
    int32_t *band_map;
    void **spare_lines;
};

void root_read(funcnode *) {}

/* The caller's lines are sized by the layout; a tree whose top delivers wider
 * cells would write past them. The one way this comes about is a surface of
 * real-time shading, whose 16-bit directions only 24-bit colour and the
 * buffer layouts can take. */
void root_check_cells(funcnode *root)
{
    auto *p = vln_pe::priv<Root>(root);
    const bufinfo *in = root->inputs[0].buffers;
    if (in == nullptr || in->cell_size <= p->cell_size) return;
    char text[160];
    snprintf(text, sizeof text,
             "Output cells of %d bytes don't fit pixels of %d: real-time shading needs 24-bit "
             "colour or a buffer output",
             static_cast<int>(in->cell_size), static_cast<int>(p->cell_size));
    alg_error_fatal(p->base.pe, text);
}

bool is_dataset_layout(const pe_context *pe)
{
    return pe->nr_surfaces > 0 && pe->surface_modes[0] == CM_DATASET;
}

bool has_link_group(const pe_context *pe)
{
    for (int s = 0; s < pe->nr_surfaces; s++)
        if (pe->link_groups[s] != nullptr) return true;
    return false;
}

/* Frees the lists that the caller holds from the last read. */
void free_caller_lists(pe_context *pe, rlseg **rlsegs, int count)
{
    if (rlsegs == nullptr) return;
    for (int i = 0; i < count; i++) pe_free_rlseg_list(pe, &rlsegs[i]);
}

/* Hands the list of each band to the caller, or frees it. */
void hand_over_lists(pe_context *pe, bufinfo *in, rlseg **rlsegs)
{
    for (int b = 0; b < in->nr_buffers; b++) {
        linebuf *line = in->buffers[b];
        if (rlsegs == nullptr) {
            pe_free_rlseg_list(pe, &line->rlsegs);
        } else {
            rlsegs[b] = line->rlsegs;
            line->rlsegs = nullptr;
        }
    }
}

}  // namespace

void root_set_line_range(funcnode *root, int first, int end)
{
    if (root == nullptr) return;
    auto *p = vln_pe::priv<Root>(root);
    if (p->line != 0) alg_error_fatal(p->base.pe, "Lines can be chosen only before the first read");
    if (first < 0 || end < first || end > p->nr_lines)
        alg_error_vprintf(p->base.pe, "Lines %d to %d are not lines of an image of %d", first,
                          end - 1, p->nr_lines);
    p->line = first;
    p->nr_lines = end;
}

namespace vln_pe {
extern const NodeOps vread_ops;
const NodeOps vread_ops = {nullptr, root_check_cells, nullptr, root_read, nullptr};
}  // namespace vln_pe

void setup_vreadnode(funcnode **slot, pe_context *pe, int process_vectors, int which)
{
    const algorithm *alg = pe->alg;
    funcnode *child = nullptr;
    int type = FN_VREAD;
    int nr_buffers = 1;
    int cell_type = Unsigned8BitInteger;
    if (is_dataset_layout(pe)) {
        // A dataset has no vector pass: its vectors are bands of their own.
        if (which != 0) return;
        nr_buffers = dataset_output_groups(pe, nullptr, 0);
        if (nr_buffers == 0)
            alg_error_fatal(pe, "Nothing to output to dataset - all overlays off or invisible");
        cell_type = pe->cell_type;
        setup_dgsnode(&child, pe, nr_buffers);
    } else if (pe->to_buffers || pe->to_ppbuffers || pe->to_ms_rgbh) {
        // These layouts carry no vector pass: the buffers' overlay lines are
        // never drawn, and the per-surface open merges vectors with the raster.
        if (which != 0) return;
        if (pe->to_ppbuffers) {
            type = FN_VREADTOPP;
            nr_buffers = pe->nr_surfaces;
            setup_toppbufnode(&child, pe);
        } else if (pe->to_buffers) {
            nr_buffers = 12;
            setup_tobufnode(&child, pe);
        } else {
            type = FN_VREADTOMSRGBH;
            nr_buffers = pe->nr_surfaces * 2;
            cell_type = Unsigned32BitInteger;
            setup_tomsrgbh(&child, pe);
        }
    } else {
        cell_type = alg->colour24 ? Unsigned32BitInteger : Unsigned8BitInteger;
        const int with_links =
            which == 1 || (process_vectors == PV_MergeWithRaster && has_link_group(pe));
        setup_transpnode(&child, pe, process_vectors, with_links, cell_type);
        setup_appendnulls_node(&child, pe, process_vectors, with_links, cell_type);
    }

    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<Root>(pe, type, 1, &node);
    setup_fninput(pe, &node->inputs[0], child, nr_buffers, alg->output_width, cell_type,
                  PE_ALLOC_RECORDS);
    p->nr_lines = alg->output_height;
    p->cell_size = celltypesize(cell_type);
    if (type == FN_VREADTOMSRGBH) {
        p->nr_mapped = tomsrgbh_band_map(pe, nullptr);
        p->band_map = static_cast<int32_t *>(pe_malloc(pe, sizeof(int32_t) * (p->nr_mapped + 1)));
        tomsrgbh_band_map(pe, p->band_map);
        p->spare_lines = static_cast<void **>(pe_malloc(pe, sizeof(void *) * (p->nr_mapped + 1)));
        for (int k = 0; k < p->nr_mapped; k++)
            p->spare_lines[k] = pe_malloc(pe, static_cast<int64_t>(alg->output_width) * 4);
    }
    *slot = node;
}

/* FN_VREAD: one line of each band into the caller's lines. */
int vread_read_lines(funcnode *root, void **lines, rlseg **rlsegs)
{
    auto *p = vln_pe::priv<Root>(root);
    pe_context *pe = p->base.pe;
    bufinfo *in = root->inputs[0].buffers;
    free_caller_lists(pe, rlsegs, in->nr_buffers);
    if (p->line >= p->nr_lines) return -1;
    for (int b = 0; b < in->nr_buffers; b++) in->buffers[b]->data = lines[b];
    vln_pe::pull(root);
    hand_over_lists(pe, in, rlsegs);
    p->line++;
    return 0;
}

/* FN_VREADTOPP: a packed line per surface, and the run table of each in
 * `pp_lines`, which the child fills through pp_output. */
int vreadtopp_read_lines(funcnode *root, void **lines, uint32_t **pp_lines)
{
    auto *p = vln_pe::priv<Root>(root);
    pe_context *pe = p->base.pe;
    bufinfo *in = root->inputs[0].buffers;
    if (p->line >= p->nr_lines) return -1;
    for (int b = 0; b < in->nr_buffers; b++) in->buffers[b]->data = lines[b];
    root->pp_output = pp_lines;
    root->inputs[0].node->pp_output = pp_lines;
    vln_pe::pull(root);
    hand_over_lists(pe, in, nullptr);
    p->line++;
    return 0;
}

/* FN_VREADTOMSRGBH: the pixels and heights of each surface into the caller's
 * lines of that surface; the lists go to 2 * s and 2 * s + 1 of `rlsegs`. */
int vreadtomsrgbh_read_lines(funcnode *root, void **rgb_lines, void **height_lines, rlseg **rlsegs)
{
    auto *p = vln_pe::priv<Root>(root);
    pe_context *pe = p->base.pe;
    bufinfo *in = root->inputs[0].buffers;
    free_caller_lists(pe, rlsegs, in->nr_buffers);
    if (p->line >= p->nr_lines) return -1;
    for (int k = 0; k < p->nr_mapped; k++) {
        const int s = p->band_map[k] / 2;
        void **given = p->band_map[k] % 2 == 0 ? rgb_lines : height_lines;
        in->buffers[k]->data =
            given != nullptr && given[s] != nullptr ? given[s] : p->spare_lines[k];
    }
    vln_pe::pull(root);
    for (int k = 0; k < p->nr_mapped; k++) {
        linebuf *line = in->buffers[k];
        if (rlsegs == nullptr) {
            pe_free_rlseg_list(pe, &line->rlsegs);
        } else {
            rlsegs[p->band_map[k]] = line->rlsegs;
            line->rlsegs = nullptr;
        }
    }
    p->line++;
    return 0;
}

void Colour24toUINT32(const Vds *vds, const uint8_t *rgb, uint32_t *pixel)
{
    const int red = vds != nullptr ? vds->red_shift : 16;
    const int green = vds != nullptr ? vds->green_shift : 8;
    const int blue = vds != nullptr ? vds->blue_shift : 0;
    *pixel = static_cast<uint32_t>(rgb[0]) << red | static_cast<uint32_t>(rgb[1]) << green |
             static_cast<uint32_t>(rgb[2]) << blue;
}
