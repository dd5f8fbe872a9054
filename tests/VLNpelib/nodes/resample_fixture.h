// A hand-built tree for the tests of the resampling node kinds: a source node
// that delivers given lines and run lists, the nodes under test over it, and
// a top connection from which the test pulls lines.
#ifndef VORLAN_TEST_RESAMPLE_FIXTURE_H
#define VORLAN_TEST_RESAMPLE_FIXTURE_H

#include <gtest/gtest.h>

#include <cstddef>
#include <utility>
#include <vector>

#include "vln_nodes.h"

namespace resample_test {

using Runs = std::vector<std::pair<int, int>>;

struct SourceLine {
    std::vector<double> cells;
    Runs runs;
};

// Delivers lines[k % size] on its k-th read, in every band, converted to the
// output's cell type; counts its reads. Like any node, it writes its run
// list over whatever the line held.
struct Source {
    vln_pe::NodeBase base;
    const std::vector<SourceLine> *lines;
    int cell_type;  // set on the output by init; 0 leaves the output's type alone
    int pulls;
};

inline void source_init(funcnode *node)
{
    auto *s = vln_pe::priv<Source>(node);
    if (s->cell_type != 0) setup_bufinfo(node->output, s->cell_type);
}

inline void source_read(funcnode *node)
{
    auto *s = vln_pe::priv<Source>(node);
    const SourceLine &line = (*s->lines)[static_cast<size_t>(s->pulls) % s->lines->size()];
    s->pulls++;
    bufinfo *out = node->output;
    for (int b = 0; b < out->nr_buffers; b++) {
        linebuf *l = out->buffers[b];
        if (out->cell_size > 0)
            for (int i = 0; i < out->nr_cells && i < static_cast<int>(line.cells.size()); i++)
                vln_pe::convtype1(line.cells[static_cast<size_t>(i)], out->cell_type,
                                  static_cast<char *>(l->data) + i * out->cell_size);
        // The parent owns what the line held: a list left there is a leak
        // that the tests see in the pool's count.
        l->rlsegs = nullptr;
        rlseg **tail = &l->rlsegs;
        for (auto [first, last] : line.runs) {
            *tail = pe_rlseg(s->base.pe, first, last);
            tail = &(*tail)->next;
        }
    }
}

class Tree {
   public:
    pe_context *pe = pe_create_context();
    funcnode *slot = nullptr;
    Source *source = nullptr;
    fninput top{};
    std::vector<SourceLine> lines;

    Tree() = default;
    Tree(const Tree &) = delete;
    Tree &operator=(const Tree &) = delete;
    ~Tree()
    {
        pe->raster_root = slot;  // so that the close hooks run
        pe_destroy_context(pe);
    }

    void add_source(int cell_type, std::vector<SourceLine> source_lines)
    {
        lines = std::move(source_lines);
        funcnode *node = nullptr;
        source = vln_pe::new_private_node<Source>(pe, FN_CCOUNT, 0, &node);
        source->lines = &lines;
        source->cell_type = cell_type;
        node->init = source_init;
        node->read = source_read;
        slot = node;
    }

    // Runs a builder under the handle's target; false if it failed.
    template <class Build>
    bool build(Build &&b)
    {
        return vln_pe::guarded(pe, [&] { b(&slot, pe); });
    }

    // Brings the tree to life under a top connection of `bands` lines of
    // `width` cells; false, with the text in the context, if a hook failed.
    bool finish(int bands, int width)
    {
        return vln_pe::guarded(pe, [&] {
            setup_fninput(pe, &top, slot, bands, width, 0, PE_ALLOC_LINES);
            init_funcnode(slot, nullptr, top.buffers);
            setup_fninput_buffers(pe, &top);
            init_pass4(pe, slot);
            init_pass5(slot);
        });
    }

    // One line through the top connection: 0, or 1 on failure.
    int read()
    {
        return pe_guarded_read(pe, slot, [](funcnode *n) { n->read(n); });
    }

    linebuf *line(int b = 0) { return top.buffers->buffers[b]; }
    int cell_type() const { return top.buffers->cell_type; }
    double cell(int i, int b = 0) { return vln_pe::cell_value(cell_type(), line(b)->data, i); }
    void fill(double value, int b = 0)
    {
        for (int i = 0; i < top.buffers->nr_cells; i++)
            vln_pe::convtype1(value, cell_type(),
                              static_cast<char *>(line(b)->data) + i * top.buffers->cell_size);
    }

    // The output line's runs, which the test takes and gives back to the pool.
    Runs take_runs(int b = 0)
    {
        Runs runs;
        for (const rlseg *r = line(b)->rlsegs; r != nullptr; r = r->next)
            runs.emplace_back(r->first, r->last);
        pe_free_rlseg_list(pe, &line(b)->rlsegs);
        return runs;
    }
};

// The maximal runs of the true entries.
inline Runs runs_where(const std::vector<bool> &valid)
{
    Runs runs;
    for (int i = 0; i < static_cast<int>(valid.size()); i++) {
        if (!valid[static_cast<size_t>(i)]) continue;
        if (!runs.empty() && runs.back().second == i - 1)
            runs.back().second = i;
        else
            runs.emplace_back(i, i);
    }
    return runs;
}

inline bool in_runs(const Runs &runs, long long i)
{
    for (auto [first, last] : runs)
        if (first <= i && i <= last) return true;
    return false;
}

inline Runs runs_of(const rlseg *list)
{
    Runs runs;
    for (; list != nullptr; list = list->next) runs.emplace_back(list->first, list->last);
    return runs;
}

}  // namespace resample_test

#endif
