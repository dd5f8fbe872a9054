/*
 * colour_fixture.h: sources and probes of several bands, for the colour
 * nodes, which deliver and take three planes at once.
 */
#ifndef VORLAN_TESTS_COLOUR_FIXTURE_H
#define VORLAN_TESTS_COLOUR_FIXTURE_H

#include <vector>

#include "node_harness.h"
#include "vln_colour_nodes.h"

namespace colour_test {

using node_test::Harness;
using node_test::Runs;

/* One line of a source of several bands: the values of each band, and the
 * runs, which go with band 0. */
struct BandsLine {
    std::vector<std::vector<double>> bands;
    Runs runs;
};

struct BandsScript {
    int cell_type = Unsigned8BitInteger;
    std::vector<BandsLine> lines;  // line k is delivered by read k (the last repeats)
    int reads = 0;
};

struct BandsPrivate {
    vln_pe::NodeBase base;
    BandsScript *script;
};

inline void bands_init(funcnode *node)
{
    setup_bufinfo(node->output, vln_pe::priv<BandsPrivate>(node)->script->cell_type);
}

inline void bands_read(funcnode *node)
{
    auto *p = vln_pe::priv<BandsPrivate>(node);
    BandsScript *s = p->script;
    const BandsLine &line = s->lines[std::min<size_t>(s->reads, s->lines.size() - 1)];
    s->reads++;
    bufinfo *out = node->output;
    for (int b = 0; b < out->nr_buffers && b < static_cast<int>(line.bands.size()); b++) {
        auto *data = static_cast<char *>(out->buffers[b]->data);
        const std::vector<double> &values = line.bands[static_cast<size_t>(b)];
        for (size_t i = 0; i < values.size() && static_cast<int>(i) < out->nr_cells; i++)
            vln_pe::convtype1(values[i], out->cell_type, data + i * out->cell_size);
    }
    out->buffers[0]->rlsegs = node_test::make_runs(p->base.pe, line.runs);
}

inline funcnode *make_bands_source(pe_context *pe, BandsScript *script)
{
    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<BandsPrivate>(pe, FN_CCOUNT, 0, &node);
    p->script = script;
    node->init = bands_init;
    node->read = bands_read;
    return node;
}

/* Puts a probe over `tree` that owns `nr_bands` lines of `nr_cells` cells
 * (level 3) and runs the passes. */
inline void build_bands(Harness &h, funcnode *tree, int nr_bands, int nr_cells)
{
    vln_pe::new_private_node<node_test::ProbePrivate>(h.pe, FN_CCOUNT, 1, &h.root);
    h.root->init = h.root->post_init = h.root->start = h.root->close = nullptr;
    h.root->read = node_test::probe_read;
    setup_fninput(h.pe, &h.root->inputs[0], tree, nr_bands, nr_cells, 0, PE_ALLOC_LINES);
    h.pe->raster_root = h.root;
    init_funcnode(h.root, nullptr, nullptr);
    init_pass4(h.pe, h.root);
    init_pass5(h.root);
}

/* One read of the probe: each band's values, and the runs of band 0 (taken). */
struct Planes {
    std::vector<std::vector<double>> bands;
    Runs runs;
    bool other_runs = false;  // a band other than 0 carried runs
};

inline Planes read_bands(Harness &h)
{
    h.root->read(h.root);
    bufinfo *in = h.top();
    Planes planes;
    for (int b = 0; b < in->nr_buffers; b++) {
        std::vector<double> values;
        for (int i = 0; i < in->nr_cells; i++)
            values.push_back(vln_pe::cell_value(in->cell_type, in->buffers[b]->data, i));
        planes.bands.push_back(values);
        if (b > 0 && in->buffers[b]->rlsegs != nullptr) planes.other_runs = true;
        if (b > 0) pe_free_rlseg_list(h.pe, &in->buffers[b]->rlsegs);
    }
    planes.runs = node_test::runs_of(in->buffers[0]->rlsegs);
    pe_free_rlseg_list(h.pe, &in->buffers[0]->rlsegs);
    return planes;
}

/* A context with an algorithm of its own, for nodes that read one. */
struct ColourHarness : Harness {
    explicit ColourHarness(int nr_cells)
    {
        pe->alg = &alg;
        pe->nr_cells = nr_cells;
        pe->nr_lines = 1;
    }
    algorithm alg{};
};

}  // namespace colour_test

#endif
