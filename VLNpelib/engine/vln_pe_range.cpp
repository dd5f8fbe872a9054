/*
 * vln_pe_range.cpp: reading a band of lines of the image from its middle.
 *
 * A tool that splits an image into row stripes, one handle per stripe, wants
 * each stripe's lines to be the very bytes that a read from the top gives.
 * Planning a stripe as an image of its own would not do that: the positions
 * of the sampling rule are sums of steps, and a sum that starts elsewhere
 * rounds elsewhere. So a stripe's handle plans the whole image, as any other,
 * and then starts its tree at the stripe's first line: from the root down,
 * each node works out which line of each input that line needs, and sets its
 * counters as a read from the top would have left them. Each dataset then
 * starts at the first line that any of its clients wants.
 */
#include <climits>

#include "vln_pe_internal.h"

void start_inputs_at_line(funcnode *node, int first)
{
    for (int i = 0; i < node->nr_inputs; i++)
        if (node->inputs[i].node != nullptr) start_at_line(node->inputs[i].node, first);
}

void start_at_line(funcnode *node, int first)
{
    if (node == nullptr) return;
    const vln_pe::NodeOps *ops = vln_pe::node_kind(node->type).ops;
    if (ops != nullptr && ops->skip != nullptr)
        ops->skip(node, first);
    else
        start_inputs_at_line(node, first);
}

int pe_set_line_range(pe_context *pe, int first, int count)
{
    if (pe == nullptr) return 1;
    return vln_pe::guarded(pe,
                           [&] {
                               // A dataset's clients say which line they want first; the least of
                               // those is where the dataset starts.
                               root_set_line_range(pe->raster_root, first, first + count);
                               root_set_line_range(pe->vector_root, first, first + count);
                               for (dsinput *d = pe->dsinputs; d != nullptr; d = d->next)
                                   d->next_line = INT_MAX;
                               start_at_line(pe->raster_root, first);
                               start_at_line(pe->vector_root, first);
                               for (dsinput *d = pe->dsinputs; d != nullptr; d = d->next) {
                                   if (d->next_line == INT_MAX) {
                                       d->next_line = 0;  // no stream over it is in the band
                                       continue;
                                   }
                                   d->ring_write =
                                       d->ring_lines > 0 ? d->next_line % d->ring_lines : 0;
                                   start_at_line(d->root, d->next_line);
                               }
                           })
               ? 0
               : 1;
}
