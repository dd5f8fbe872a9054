/*
 * vln_pe_internal.h: the engine's frame, for the engine and its node kinds.
 *
 * What every node kind builds on: the builders of nodes and connections, the
 * passes that bring a tree to life, the pool, the failure calls, cell-type
 * helpers and the sampling rule. A node kind is one file in nodes/ with its
 * setup_ function and its hooks, reached through one row of the kind table
 * (vln_node_table.cpp), which gives each FN_ value its name and hooks.
 *
 * Failure: a node never returns an error. The failure calls throw
 * vln_pe::Failure, tagged with the handle, which only the handle's target
 * (init_alg and the read entries, through vln_pe::guarded) catches; nothing
 * needs unwinding, as all tree memory is in the pool.
 */
#ifndef VORLAN_VLN_PE_INTERNAL_H
#define VORLAN_VLN_PE_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "vln_pe.h"

namespace vln_pe {

/* ---------------------------------------------------------------- failure */

/* The engine's one internal exception: a failure of the tree of `pe`. */
struct Failure {
    const pe_context *pe;
};

/* Runs `body` under the failure target of `pe`: true when it finished, false
 * when a failure of this handle ended it. A failure of another handle (a
 * nested one) goes on to its own target. */
template <class Body>
bool guarded(pe_context *pe, Body &&body)
{
    void *outer = pe->jump_target;
    pe->jump_target = pe;
    try {
        body();
    } catch (const Failure &failure) {
        pe->jump_target = outer;
        if (failure.pe != pe) throw;
        return false;
    }
    pe->jump_target = outer;
    return true;
}

[[noreturn]] void jump(pe_context *pe);

/* ---------------------------------------------------------------- node kinds */

/* Starts a node at a later line: its next read delivers its output line
 * `first` (counted from 0), as if every line before had been read. The hook
 * sets the node's counters and starts each input where that line needs it,
 * through start_at_line. */
using pe_skip_hook = void (*)(funcnode *node, int first);

/* The hooks of one node kind, as its file defines them. A kind without a
 * skip hook maps lines one to one: its inputs start at the same line. */
struct NodeOps {
    pe_hook init, post_init, start, read, close;
    pe_skip_hook skip = nullptr;
};

/* A row of the kind table: a kind's value, its name and its hooks (null for
 * the names that stay without a builder). */
struct NodeKind {
    int type;
    const char *name;
    const NodeOps *ops;
};

const NodeKind &node_kind(int type);

/* Every private record starts with this. */
struct NodeBase {
    pe_context *pe;
};

/* A node of `type` with `nr_inputs` inputs, the kind's hooks and a zeroed
 * private record of `private_size` bytes whose first field is the context. */
funcnode *new_node(pe_context *pe, int type, int nr_inputs, size_t private_size);

template <class Private>
Private *new_private_node(pe_context *pe, int type, int nr_inputs, funcnode **node)
{
    static_assert(offsetof(Private, base) == 0, "a node's record starts with its base");
    *node = new_node(pe, type, nr_inputs, sizeof(Private));
    return static_cast<Private *>((*node)->private_data);
}

/* The builder's idiom for a stage of one input: a new node over the slot's
 * tree, its input one connection of `nr_buffers` bands of `nr_cells` cells,
 * left in the slot. Returns the node's private record. */
template <class Private>
Private *add_stage(funcnode **slot, pe_context *pe, int type, int nr_buffers, int nr_cells,
                   int cell_type, int alloc_level, funcnode **made = nullptr);

template <class Private>
Private *priv(funcnode *node)
{
    return static_cast<Private *>(node->private_data);
}

inline pe_context *context_of(funcnode *node)
{
    return static_cast<NodeBase *>(node->private_data)->pe;
}

/* Pulls input `i` of `node`. */
inline void pull(funcnode *node, int i = 0)
{
    funcnode *child = node->inputs[i].node;
    child->read(child);
}

/* The usual init: the output takes the type of input 0. */
void pass_type_up(funcnode *node);

/* Moves the run lists of every band from `from` to `to`, freeing what `to`
 * held. */
void move_rlsegs(pe_context *pe, bufinfo *from, bufinfo *to);
/* Adds `offset` to both ends of every run of a list. */
void shift_rlsegs(rlseg *list, int offset);

/* ---------------------------------------------------------------- cell types */

/* Calls f(T{}) with T the C type of a cell type; f(std::byte{}) for any other. */
template <class F>
decltype(auto) with_cell_type(int cell_type, F &&f);

/* Rounding of a double to a cell type: floor(r + 0.5), ceil(r - 0.5) for
 * negative values, limited to the type's range; NaN gives 0. */
template <class T>
T round_to(double value);

/* Converts the cells of the runs (all cells with a null list and `all` set)
 * from one type to another; the lines may be the same when the sizes are. */
void convtype(int from_type, const void *from, int to_type, void *to, const rlseg *runs);
void convtype_cells(int from_type, const void *from, int to_type, void *to, int first, int count);
/* One value in a cell type, written to `out`. */
void convtype1(double value, int cell_type, void *out);
/* The value of cell `i` of a line, as a double. */
double cell_value(int cell_type, const void *line, int i);

/* ---------------------------------------------------------------- sampling */

/* Sets the floating-point unit's rounding mode (an FE_ value) for a scope,
 * and back. */
class RoundingMode {
   public:
    explicit RoundingMode(int mode);
    ~RoundingMode();
    RoundingMode(const RoundingMode &) = delete;
    RoundingMode &operator=(const RoundingMode &) = delete;

   private:
    int saved_;
};

/* Truncation, under which sampling loops turn positions into cells. */
class TruncatingRounding : public RoundingMode {
   public:
    TruncatingRounding();
};

/* Rounding to nearest, the mode that rint relies on. */
class NearestRounding : public RoundingMode {
   public:
    NearestRounding();
};

/* Truncates in the present rounding mode (truncation under TruncatingRounding). */
int64_t hardware_int(double value);

}  // namespace vln_pe

/* ---------------------------------------------------------------- the documented internals */

/* Builders. */
funcnode *alloc_funcnode(pe_context *pe, int nr_inputs);
bufinfo *alloc_bufinfo(pe_context *pe, int nr_buffers, int nr_cells, int cell_type,
                       int alloc_level);
void setup_fninput(pe_context *pe, fninput *input, funcnode *child, int nr_buffers, int nr_cells,
                   int cell_type, int alloc_level);
void setup_bufinfo(bufinfo *info, int cell_type);
void setup_fninput_buffers(pe_context *pe, fninput *input);
void alloc_bufinfo_buffer_array(pe_context *pe, bufinfo *info);
void alloc_bufinfo_buffers(pe_context *pe, bufinfo *info);
void alloc_bufinfo_buffer_bufs(pe_context *pe, bufinfo *info);
void alloc_bufinfo_buffers_and_bufs(pe_context *pe, bufinfo *info);
void free_bufinfo_buffer_array(pe_context *pe, bufinfo *info);
void free_bufinfo_buffers(pe_context *pe, bufinfo *info);
void free_bufinfo_buffer_bufs(pe_context *pe, bufinfo *info);
void free_fninput_buffers(pe_context *pe, fninput *input);

/* Passes. */
void walk_funcnodes(funcnode *node, void (*fn)(funcnode *node));
void init_funcnode(funcnode *node, funcnode *parent, bufinfo *output);
void init_pass4(pe_context *pe, funcnode *node);
void init_pass5(funcnode *node);
int init_alg(pe_context *pe, algorithm *alg);
/* Line memory of a stream below its FN_SSYNC, while the stream is in its rows. */
void alloc_subtree_buffers(pe_context *pe, funcnode *node);
void free_subtree_buffers(pe_context *pe, funcnode *node);

/* Runs of the handle's free list. */
rlseg *pe_rlseg(pe_context *pe, int first, int last);
void pe_free_rlseg_list(pe_context *pe, rlseg **list);

/* Failure calls; none returns. */
[[noreturn]] void alg_error_fatal(pe_context *pe, const char *text);
[[noreturn]] void alg_error_vprintf(pe_context *pe, const char *format, ...) VLD_PRINTF(2, 3);
[[noreturn]] void alg_system_error(pe_context *pe, const char *format, ...) VLD_PRINTF(2, 3);
[[noreturn]] void alg_internal_error(pe_context *pe, const char *file, int line, const char *text);
int usercode_error_fatal(char **out, const char *format, ...) VLD_PRINTF(2, 3);
void init_usercode_error_handling(void);
/* Turns off the verbose report of failures (the engine's start does). */
void pe_clear_verbose_errors();

/* The engine's start and switches. */
int pe_initialised(void);
int pe_dump_wanted(void); /* tested once per process, after the first init_alg */
int pe_mmap_allowed(void);
/* The folders where user kernel libraries are looked for, joined by ':';
 * empty before the engine's start. */
const char *pe_kernel_search_path(void);
/* Gives the algorithm part the clipping passes of its default algorithms. */
void pe_install_alg_clip_passes(void);

/* The handle's context: made by the opens, ended by pe_destroy_context, which
 * runs the close hooks and frees everything that hangs from it. */
pe_context *pe_create_context(void);
void pe_destroy_context(pe_context *pe);
/* Runs the start hooks of both trees. */
void pe_start_trees(pe_context *pe);
/* One line of the raster tree (`which` 0) or the vector tree (1), under the
 * handle's target: 0, -1 when there is no tree or no line left, 1 on failure
 * (the text in the handle, or in the context without one). */
int pe_read_lines(pe_context *pe, int which, void **lines, rlseg **rlsegs);
/* One call of `root_read` on `root` under the handle's target: 0, -1 when
 * there is no root, 1 on failure. */
int pe_guarded_read(pe_context *pe, funcnode *root, void (*root_read)(funcnode *root));

/* Starts `node` at line `first` (its kind's skip hook, or every input at the
 * same line). */
void start_at_line(funcnode *node, int first);
/* Starts every input of `node` at line `first`. */
void start_inputs_at_line(funcnode *node, int first);

/* Makes the next read of the handle's trees deliver line `first` of the
 * image and the read after line `first + count - 1` the end, with every
 * line the same bytes as when the image is read from its top: the tree is
 * planned for the whole image, and each node starts where that line needs
 * it. Only before the first read. 0, or 1 with the text in the context. */
int pe_set_line_range(pe_context *pe, int first, int count);
/* The root's part of it: its line counter and its end. */
void root_set_line_range(funcnode *root, int first, int end);

/* The sampling rule of every resampling node. */
void setup_sample_array(int *array, int count, double source_span, double destination_span,
                        double start);

#include "vln_pe_internal_impl.h"

#endif
