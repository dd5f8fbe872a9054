/*
 * vln_node_rgb24final.cpp: FN_RGB24FINAL, which packs a surface's three
 * colour planes into 32-bit pixels by the handle's byte shifts.
 *
 * Inputs: the colour planes (from the intensity stage), and the surface's
 * Height group if it has one. A display that keeps some palette entries for
 * itself has the colours moved off them first. With the height kept, the top
 * byte of every pixel is cleared and the height byte put at its shift; cells
 * outside the runs get the background colour in their low 24 bits and keep
 * whatever top byte they hold.
 */
#include <cstdint>

#include "vln_colour_nodes.h"
#include "vln_pe_plan.h"

namespace {

struct Rgb24Final {
    vln_pe::NodeBase base;
    vln_colour::Shifts shifts;
    uint32_t background;  // the background pixel, top byte clear
    uint8_t *reserved;    // 256 entries, or null without reserved colours
};

void init(funcnode *node)
{
    setup_bufinfo(node->output, Unsigned32BitInteger);
}

/* The pixels of the runs; the common layout has a loop of its own. */
void pack(const Rgb24Final *p, const rlseg *runs, uint8_t *const plane[3], uint32_t *pixel)
{
    const vln_colour::Shifts &s = p->shifts;
    const bool common = s.red == 16 && s.green == 8 && s.blue == 0;
    for (const rlseg *r = runs; r != nullptr; r = r->next) {
        if (common) {
            for (int i = r->first; i <= r->last; i++)
                pixel[i] = static_cast<uint32_t>(plane[0][i]) << 16 |
                           static_cast<uint32_t>(plane[1][i]) << 8 | plane[2][i];
        } else {
            for (int i = r->first; i <= r->last; i++)
                pixel[i] = static_cast<uint32_t>(plane[0][i]) << s.red |
                           static_cast<uint32_t>(plane[1][i]) << s.green |
                           static_cast<uint32_t>(plane[2][i]) << s.blue;
        }
    }
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<Rgb24Final>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    bufinfo *colour = node->inputs[0].buffers;
    vln_pe::pull(node, 0);
    linebuf *line = out->buffers[0];
    pe_free_rlseg_list(pe, &line->rlsegs);
    line->rlsegs = colour->buffers[0]->rlsegs;
    colour->buffers[0]->rlsegs = nullptr;
    linebuf *height = nullptr;
    if (node->nr_inputs > 1) {
        vln_pe::pull(node, 1);
        height = node->inputs[1].buffers->buffers[0];
    }

    uint8_t *plane[3];
    for (int c = 0; c < 3; c++) plane[c] = static_cast<uint8_t *>(colour->buffers[c]->data);
    if (p->reserved != nullptr)
        for (const rlseg *r = line->rlsegs; r != nullptr; r = r->next)
            for (int c = 0; c < 3; c++)
                for (int i = r->first; i <= r->last; i++) plane[c][i] = p->reserved[plane[c][i]];

    auto *pixel = static_cast<uint32_t *>(line->data);
    pack(p, line->rlsegs, plane, pixel);
    if (pe->keep_height && height != nullptr) {
        const auto *h = static_cast<const uint8_t *>(height->data);
        for (int i = 0; i < out->nr_cells; i++)
            pixel[i] = (pixel[i] & 0x00FFFFFFu) | static_cast<uint32_t>(h[i]) << p->shifts.height;
    }
    if (height != nullptr) pe_free_rlseg_list(pe, &height->rlsegs);

    // The gaps: background below, the top byte as it stands.
    int next = 0;
    auto fill = [&](int from, int to) {
        for (int i = from; i < to; i++) pixel[i] = (pixel[i] & 0xFF000000u) | p->background;
    };
    for (const rlseg *r = line->rlsegs; r != nullptr; r = r->next) {
        fill(next, r->first < out->nr_cells ? r->first : out->nr_cells);
        next = r->last + 1;
    }
    fill(next, out->nr_cells);
}

}  // namespace

namespace vln_pe {
extern const NodeOps rgb24final_ops;
const NodeOps rgb24final_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

void vln_colour::rgb24final_over(funcnode **slot, pe_context *pe, funcnode *colour,
                                 funcnode *height)
{
    funcnode *node = nullptr;
    auto *p =
        vln_pe::new_private_node<Rgb24Final>(pe, FN_RGB24FINAL, height != nullptr ? 2 : 1, &node);
    p->shifts = shifts_of(pe);
    p->background = background_pixel(pe, p->shifts) & 0x00FFFFFFu;
    const int nr_reserved = pe->alg->reserved_colours;
    if (nr_reserved > 0) {
        // The reserved entries are the first ones of the palette; at least
        // one entry stays free.
        uint8_t numbers[255];
        const int n = nr_reserved < 255 ? nr_reserved : 255;
        for (int i = 0; i < n; i++) numbers[i] = static_cast<uint8_t>(i);
        p->reserved = static_cast<uint8_t *>(pe_malloc(pe, 256));
        setup_rclut(p->reserved, n, numbers);
    }
    setup_fninput(pe, &node->inputs[0], colour, 3, pe->nr_cells, Unsigned8BitInteger,
                  PE_ALLOC_LINES);
    if (height != nullptr)
        setup_fninput(pe, &node->inputs[1], height, 1, pe->nr_cells, Unsigned8BitInteger,
                      PE_ALLOC_LINES);
    *slot = node;
}

/* A surface's colour, with its height, as 32-bit pixels. */
void setup_rgb24final_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups)
{
    funcnode *colour = nullptr;
    setup_rgbitorgb_node(&colour, pe, groups);
    vln_colour::rgb24final_over(slot, pe, colour, vln_colour::group_tree(pe, groups, ST_Height));
}
