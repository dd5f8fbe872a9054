/*
 * vln_node_input.cpp: FN_INPUT, a stream's client of a dataset's ring.
 *
 * The first client to want a line makes the dataset advance: the ring's next
 * entries are handed to the dataset's little tree, which reads into them.
 * Every client then takes its line from the ring; a client may lag the
 * leading one by up to the ring's length less one. A dataset with one client
 * of one band reads straight into that client's line, with no copy.
 */
#include <cstring>

#include "vln_nodes.h"
#include "vln_pe_plan.h"

namespace {

struct InputNode {
    vln_pe::NodeBase base;
    dsinput *dsi;
    int32_t line;
    dsi_client *client;
};

void input_init(funcnode *node)
{
    auto *p = vln_pe::priv<InputNode>(node);
    if (node->output != nullptr) setup_bufinfo(node->output, p->dsi->cell_type);
}

void release_ring(pe_context *pe, dsinput *d)
{
    for (int b = 0; b < d->nr_read_bands; b++)
        for (int i = 0; i < d->ring_lines; i++) {
            linebuf &entry = d->ring[b][i];
            pe_free_rlseg_list(pe, &entry.rlsegs);
            if (d->nr_clients > 1 || d->ring_lines > 1 || d->nr_read_bands > 1)
                pe_free(pe, entry.data);
            entry.data = nullptr;
        }
}

/* The dataset reads its next line into the ring. */
void advance_dataset(pe_context *pe, dsinput *d, linebuf *client_line)
{
    bufinfo *target = d->root->inputs[0].buffers;
    const bool straight = d->nr_clients == 1 && d->ring_lines == 1 && d->nr_read_bands == 1 &&
                          client_line->data != nullptr;
    if (!straight && d->nr_read_bands > 0 && d->ring[0][0].data == nullptr) {
        // The ring's lines exist only while the dataset is being read.
        for (int b = 0; b < d->nr_read_bands; b++)
            for (int i = 0; i < d->ring_lines; i++)
                d->ring[b][i].data = pe_malloc_raw(pe, d->line_bytes + 8);
    }
    for (int b = 0; b < d->nr_read_bands; b++) {
        linebuf *entry = &d->ring[b][d->ring_write];
        pe_free_rlseg_list(pe, &entry->rlsegs);
        if (straight) entry->data = client_line->data;
        target->buffers[b] = entry;
    }
    d->ring_write = (d->ring_write + 1) % d->ring_lines;
    d->root->read(d->root);
    d->next_line++;
}

void input_read(funcnode *node)
{
    auto *p = vln_pe::priv<InputNode>(node);
    pe_context *pe = p->base.pe;
    dsinput *d = p->dsi;
    dsi_client *c = p->client;
    linebuf *out = node->output->buffers[0];
    const int n = p->line++;
    // The leading client moves the dataset on; after a start in the middle,
    // the first read of one that leads by several lines moves it that far.
    while (n >= d->next_line) advance_dataset(pe, d, out);
    linebuf *entry = &d->ring[c->band_index][c->read_pos];
    c->read_pos = (c->read_pos + 1) % d->ring_lines;
    pe_free_rlseg_list(pe, &out->rlsegs);
    if (d->nr_clients == 1) {
        // Nobody else takes this line: its runs move on.
        out->rlsegs = entry->rlsegs;
        entry->rlsegs = nullptr;
    } else {
        out->rlsegs = dup_rlsegs(&pe->rlsegs, entry->rlsegs);
    }
    if (out->data != entry->data)
        std::memcpy(out->data, entry->data, static_cast<size_t>(d->line_bytes));
    if (p->line == d->read_lines && ++d->clients_done == d->nr_clients) release_ring(pe, d);
}

/* The client takes line `first` next, from the ring's entry of that line; the
 * dataset starts at the least line that its clients want. */
void input_skip(funcnode *node, int first)
{
    auto *p = vln_pe::priv<InputNode>(node);
    dsinput *d = p->dsi;
    p->line = first;
    p->client->read_pos = d->ring_lines > 0 ? first % d->ring_lines : 0;
    if (first < d->next_line) d->next_line = first;
}

}  // namespace

namespace vln_pe {
extern const NodeOps input_ops;
const NodeOps input_ops = {input_init, nullptr, nullptr, input_read, nullptr, input_skip};
}  // namespace vln_pe

void setup_inputnode(funcnode **slot, pe_context *pe, dsinput *dsi, pe_input *input,
                     int wants_rlsegs)
{
    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<InputNode>(pe, FN_INPUT, 1, &node);
    p->dsi = dsi;
    p->client = add_client_to_dsi(pe, dsi, input != nullptr ? input->band : "1", wants_rlsegs);
    *slot = node;
}

dsinput *input_node_dsinput(funcnode *node)
{
    if (node == nullptr || node->type != FN_INPUT || node->private_data == nullptr) return nullptr;
    return vln_pe::priv<InputNode>(node)->dsi;
}
