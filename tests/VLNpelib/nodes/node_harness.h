/*
 * node_harness.h: small trees for testing node kinds by hand.
 *
 * A Source node delivers scripted lines (values and runs) and counts its
 * reads; a Probe node stands on top of the node under test, as its parent,
 * and pulls one line at a time through a connection of a chosen level. The
 * context comes from pe_create_context and goes with the harness.
 */
#ifndef VORLAN_TESTS_NODE_HARNESS_H
#define VORLAN_TESTS_NODE_HARNESS_H

#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <vector>

#include "vln_nodes.h"

namespace node_test {

using Runs = std::vector<std::pair<int, int>>;

struct ScriptLine {
    std::vector<double> values;
    Runs runs;
};

/* The scripted lines of a Source, and what it saw. */
struct Script {
    explicit Script(int type = Unsigned8BitInteger, std::vector<ScriptLine> script_lines = {})
        : cell_type(type), lines(std::move(script_lines))
    {
    }
    int cell_type;
    std::vector<ScriptLine> lines;  // line k is delivered by read k (the last repeats)
    int reads = 0;
    std::vector<void *> targets;  // the data pointer of band 0 at each read
};

struct SourcePrivate {
    vln_pe::NodeBase base;
    Script *script;
};

inline rlseg *make_runs(pe_context *pe, const Runs &runs)
{
    rlseg *head = nullptr;
    rlseg **tail = &head;
    for (auto [first, last] : runs) {
        *tail = pe_rlseg(pe, first, last);
        tail = &(*tail)->next;
    }
    return head;
}

inline Runs runs_of(const rlseg *list)
{
    Runs runs;
    for (const rlseg *r = list; r != nullptr; r = r->next) runs.emplace_back(r->first, r->last);
    return runs;
}

inline void source_init(funcnode *node)
{
    setup_bufinfo(node->output, vln_pe::priv<SourcePrivate>(node)->script->cell_type);
}

/* Writes the next scripted line. The old run list is overwritten, not freed:
 * a parent that forgets to take a list leaks it, which the tests see. */
inline void source_read(funcnode *node)
{
    auto *p = vln_pe::priv<SourcePrivate>(node);
    Script *s = p->script;
    const ScriptLine &line = s->lines[std::min<size_t>(s->reads, s->lines.size() - 1)];
    s->reads++;
    bufinfo *out = node->output;
    s->targets.push_back(out->buffers[0]->data);
    for (int b = 0; b < out->nr_buffers; b++) {
        auto *data = static_cast<char *>(out->buffers[b]->data);
        for (size_t i = 0; i < line.values.size() && static_cast<int>(i) < out->nr_cells; i++)
            vln_pe::convtype1(line.values[i], out->cell_type, data + i * out->cell_size);
        out->buffers[b]->rlsegs = make_runs(p->base.pe, line.runs);
    }
}

/* A source node over `script`. */
inline funcnode *make_source(pe_context *pe, Script *script)
{
    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<SourcePrivate>(pe, FN_CCOUNT, 0, &node);
    p->script = script;
    node->init = source_init;
    node->read = source_read;
    return node;
}

struct ProbePrivate {
    vln_pe::NodeBase base;
    void *target;  // the line handed down over a level 2 connection
};

inline void probe_read(funcnode *node)
{
    auto *p = vln_pe::priv<ProbePrivate>(node);
    bufinfo *in = node->inputs[0].buffers;
    if (in->alloc_level == PE_ALLOC_RECORDS) in->buffers[0]->data = p->target;
    vln_pe::pull(node);
}

/* One delivered line: its cells as doubles and its runs. */
struct Line {
    std::vector<double> values;
    Runs runs;
};

class Harness {
   public:
    Harness() : pe(pe_create_context()) {}
    ~Harness() { pe_destroy_context(pe); }
    Harness(const Harness &) = delete;
    Harness &operator=(const Harness &) = delete;

    /* Puts a probe of kind `probe_type` over `tree`, whose output is `nr_cells`
     * wide at `level`, and runs the passes. Over a level 2 connection the
     * probe hands down a line of its own, filled with `fill` bytes. */
    void build(funcnode *tree, int nr_cells, int level, int probe_type = FN_CCOUNT,
               unsigned char fill = 0xEE)
    {
        auto *p = vln_pe::new_private_node<ProbePrivate>(pe, probe_type, 1, &root);
        root->init = root->post_init = root->start = root->close = nullptr;
        root->read = probe_read;
        setup_fninput(pe, &root->inputs[0], tree, 1, nr_cells, 0, level);
        target.assign(static_cast<size_t>(nr_cells) * 8 + 8, fill);
        p->target = target.data();
        if (level == PE_ALLOC_SHARED) {
            // The probe owns the record and the line that it shares.
            shared.data = target.data();
            shared.rlsegs = nullptr;
        }
        pe->raster_root = root;
        init_funcnode(root, nullptr, nullptr);
        init_pass4(pe, root);
        if (level == PE_ALLOC_SHARED) root->inputs[0].buffers->buffers[0] = &shared;
        init_pass5(root);
    }

    bufinfo *top() { return root->inputs[0].buffers; }
    funcnode *child() { return root->inputs[0].node; }

    /* Reads one line and takes its run list. */
    Line read()
    {
        root->read(root);
        bufinfo *in = top();
        Line line;
        for (int i = 0; i < in->nr_cells; i++)
            line.values.push_back(vln_pe::cell_value(in->cell_type, in->buffers[0]->data, i));
        line.runs = runs_of(in->buffers[0]->rlsegs);
        pe_free_rlseg_list(pe, &in->buffers[0]->rlsegs);
        return line;
    }

    /* The raw byte of the probe's own line. */
    unsigned char target_byte(int i) const { return target[static_cast<size_t>(i)]; }

    pe_context *pe;
    funcnode *root = nullptr;
    std::vector<unsigned char> target;
    linebuf shared{};
};

}  // namespace node_test

#endif
