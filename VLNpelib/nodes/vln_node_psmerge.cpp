/*
 * vln_node_psmerge.cpp: FN_PSMERGE, vector layers drawn by a child process
 * over what lies below.
 *
 * The vector layers of a surface (its DynamicLink group) are drawn by a
 * separate program, which renders them at the view's size and writes the
 * raster to its standard output. The node writes the algorithm to a
 * temporary file for it and starts it when the tree is initialised, then
 * reads its output through a pipe, one line per read: first one line of
 * text, which it skips, then the cells of each line. Cells that the program
 * drew on (not 0 in an 8-bit line, not white in a colour line) are copied
 * over what lies below; the output's runs are the union of both. On close
 * the temporary file goes (unless VLN_LINKMGR_DBFILE asks to keep it), and
 * the child is waited for, and killed if it hasn't ended.
 */
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vln_fileio.h"
#include "vln_nodes.h"
#include "vln_path.h"
#include "vln_process.h"

using namespace vln_pe;

namespace {

constexpr int kWaitMilliseconds = 200;  // for a child to end by itself at close

struct PsMerge {
    NodeBase base;
    int output_type;    // Unsigned8BitInteger or Unsigned32BitInteger
    int colour_layers;  // 1, or 3 planes
    bool has_below;
    pe_streamgroup *group;
    const char *program;
    char *alg_file;  // the algorithm written for the program; null when none
    int pid;
    int fd;  // the read end of the program's output, or -1
    bool header_read;
    int cell_bytes;  // what the program writes per cell: 1 (index) or 3 (red, green, blue)
    uint8_t *line;
    int skip_lines;  // lines of the program's image to drop before the first
    rlsegs_routine routine;
    unsigned char null_cell[8];
};

const char *program_of(const pe_streamgroup *group)
{
    const stream *st = group->streams != nullptr ? group->streams->stream : nullptr;
    if (st == nullptr || st->filter_program_name == nullptr || *st->filter_program_name == '\0')
        return "vlnps_vlvec";
    return st->filter_program_name;
}

/* A layer's dataset without the " $$ALG" tail of a generated layer. */
std::string dataset_argument(const stream *st)
{
    std::string name = st != nullptr && st->dataset != nullptr ? st->dataset : "";
    const size_t tail = name.find(" $$ALG");
    if (tail != std::string::npos) name.erase(tail);
    return name;
}

void write_algorithm(PsMerge *p)
{
    pe_context *pe = p->base.pe;
    if (pe->alg == nullptr) return;
    char *name = VLN_tempname(nullptr, "vlnps");
    if (name == nullptr) alg_error_fatal(pe, "Cannot make a temporary file for vector drawing");
    p->alg_file = pe_strsave(pe, name);
    safe_free(name);
    if (ep_algorithm(pe->alg, p->alg_file) != 0)
        alg_error_vprintf(pe, "Cannot write the algorithm for vector drawing to %s", p->alg_file);
}

void start_program(PsMerge *p, int nr_cells, int nr_lines)
{
    pe_context *pe = p->base.pe;
    std::vector<std::string> args = {p->program, p->alg_file != nullptr ? p->alg_file : "",
                                     std::to_string(nr_cells), std::to_string(nr_lines),
                                     std::to_string(p->cell_bytes)};
    int n = 0;
    for (const pe_stream *ps = p->group->streams; ps != nullptr && n < p->group->count;
         ps = ps->next, n++)
        args.push_back(dataset_argument(ps->stream));
    std::vector<char *> argv;
    for (std::string &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    char error[512];
    int out_fd = -1;
    if (vln_forkexecvp(&p->pid, error, sizeof error, nullptr, &out_fd, nullptr, p->program,
                       argv.data()) != 0)
        alg_error_vprintf(pe, "Cannot run vector drawing program %s: %s", p->program, error);
    p->fd = out_fd;
}

void init(funcnode *node)
{
    auto *p = priv<PsMerge>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    setup_bufinfo(out, p->colour_layers == 3 ? Unsigned8BitInteger : p->output_type);
    p->line =
        static_cast<uint8_t *>(pe_malloc(pe, static_cast<int64_t>(out->nr_cells) * p->cell_bytes));
    get_setup_rlsegs_info(Unsigned8BitInteger, 1, 0.0, &p->routine, p->null_cell);
    write_algorithm(p);
    start_program(p, out->nr_cells, pe->nr_lines);
}

/* Reads exactly `length` bytes from the program; an end of its output, or a
 * failure, ends the read. */
void read_exactly(PsMerge *p, void *buffer, size_t length)
{
    auto *at = static_cast<char *>(buffer);
    while (length > 0) {
        const int64_t got = vln_read(p->fd, at, static_cast<int64_t>(length));
        if (got == 0)
            vds_processing_error(p->base.pe, "Read 0 bytes from PostScript conversion program");
        if (got < 0) {
            if (errno == EINTR) continue;
            vds_processing_system_error(p->base.pe,
                                        "Read from PostScript conversion program failed");
        }
        at += got;
        length -= static_cast<size_t>(got);
    }
}

void skip_header(PsMerge *p)
{
    char c = '\0';
    while (c != '\n') read_exactly(p, &c, 1);
    p->header_read = true;
}

/* The runs of cells that aren't white in a line of colour triples. */
rlseg *colour_runs(pe_context *pe, const uint8_t *rgb, int nr_cells)
{
    rlseg *head = nullptr, **tail = &head;
    int start = -1;
    for (int x = 0; x <= nr_cells; x++) {
        const bool drawn =
            x < nr_cells && !(rgb[3 * x] == 255 && rgb[3 * x + 1] == 255 && rgb[3 * x + 2] == 255);
        if (drawn && start < 0) start = x;
        if (!drawn && start >= 0) {
            *tail = pe_rlseg(pe, start, x - 1);
            tail = &(*tail)->next;
            start = -1;
        }
    }
    return head;
}

void copy_drawn(const PsMerge *p, bufinfo *out, const rlseg *runs)
{
    const pe_context *pe = p->base.pe;
    const int red = pe->vds != nullptr ? pe->vds->red_shift : 16;
    const int green = pe->vds != nullptr ? pe->vds->green_shift : 8;
    const int blue = pe->vds != nullptr ? pe->vds->blue_shift : 0;
    for (const rlseg *r = runs; r != nullptr; r = r->next)
        for (int x = r->first; x <= r->last; x++) {
            if (p->cell_bytes == 1) {
                static_cast<uint8_t *>(out->buffers[0]->data)[x] = p->line[x];
                continue;
            }
            const uint8_t *c = p->line + 3 * x;
            if (p->colour_layers == 3) {
                for (int b = 0; b < 3; b++) static_cast<uint8_t *>(out->buffers[b]->data)[x] = c[b];
            } else {
                static_cast<uint32_t *>(out->buffers[0]->data)[x] =
                    (static_cast<uint32_t>(c[0]) << red) | (static_cast<uint32_t>(c[1]) << green) |
                    (static_cast<uint32_t>(c[2]) << blue);
            }
        }
}

void read(funcnode *node)
{
    auto *p = priv<PsMerge>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    for (int b = 0; b < out->nr_buffers; b++) pe_free_rlseg_list(pe, &out->buffers[b]->rlsegs);
    if (p->has_below) {
        bufinfo *below = node->inputs[0].buffers;
        for (int b = 0; b < out->nr_buffers && b < below->nr_buffers; b++)
            below->buffers[b] = out->buffers[b];
        pull(node, 0);
    } else {
        for (int b = 0; b < out->nr_buffers; b++)
            std::memset(out->buffers[b]->data, 0, static_cast<size_t>(out->line_size));
    }
    if (!p->header_read) skip_header(p);
    for (; p->skip_lines > 0; p->skip_lines--)
        read_exactly(p, p->line, static_cast<size_t>(out->nr_cells) * p->cell_bytes);
    read_exactly(p, p->line, static_cast<size_t>(out->nr_cells) * p->cell_bytes);
    rlseg *drawn = p->cell_bytes == 1
                       ? p->routine(&pe->rlsegs, p->line, out->nr_cells, p->null_cell)
                       : colour_runs(pe, p->line, out->nr_cells);
    copy_drawn(p, out, drawn);
    rlseg *all = or_rlsegs(&pe->rlsegs, out->buffers[0]->rlsegs, drawn);
    pe_free_rlseg_list(pe, &out->buffers[0]->rlsegs);
    pe_free_rlseg_list(pe, &drawn);
    out->buffers[0]->rlsegs = all;
}

void close_node(funcnode *node)
{
    auto *p = priv<PsMerge>(node);
    if (p->fd >= 0) vln_close(p->fd);
    p->fd = -1;
    if (p->alg_file != nullptr && std::getenv("VLN_LINKMGR_DBFILE") == nullptr)
        std::remove(p->alg_file);
    if (p->pid > 0) {
        if (VLN_waitpid(p->pid, kWaitMilliseconds) == VLN_STILL_ACTIVE) {
            vln_kill(p->pid, SIGKILL);
            VLN_waitpid(p->pid, -1);
        }
        p->pid = -1;
    }
}

/* The program draws the whole image: the lines before `first` are read from
 * it and dropped on the first read. */
void skip(funcnode *node, int first)
{
    priv<PsMerge>(node)->skip_lines = first;
    start_inputs_at_line(node, first);
}

}  // namespace

namespace vln_pe {
extern const NodeOps psmerge_ops;
const NodeOps psmerge_ops = {init, nullptr, nullptr, read, close_node, skip};
}  // namespace vln_pe

void setup_psmergenode(funcnode **slot, pe_context *pe, int mode, int output_type,
                       int colour_layers, pe_streamgroup *groups, pe_streamgroup *class_group,
                       pe_streamgroup *cdisplay_group, pe_streamgroup *vector_group)
{
    if (vector_group == nullptr || vector_group->count < 1)
        return setup_cmergenode(slot, pe, output_type, colour_layers, groups, class_group,
                                cdisplay_group);
    if (mode != PV_MergeWithRaster && mode != PV_AfterRasterOkay)
        alg_internal_error(pe, "psmerge", 159, "Unknown process vector flag");
    if (colour_layers != 3 && output_type != Unsigned8BitInteger &&
        output_type != Unsigned32BitInteger)
        alg_internal_error(pe, "psmerge", __LINE__, "Vector layers need 8-bit or 32-bit cells");
    if (mode == PV_MergeWithRaster)
        setup_cmergenode(slot, pe, output_type, colour_layers, groups, class_group, cdisplay_group);
    funcnode *below = *slot;
    funcnode *node = nullptr;
    auto *p = new_private_node<PsMerge>(pe, FN_PSMERGE, below != nullptr ? 1 : 0, &node);
    p->output_type = output_type;
    p->colour_layers = colour_layers == 3 ? 3 : 1;
    p->has_below = below != nullptr;
    p->group = vector_group;
    p->program = pe_strsave(pe, program_of(vector_group));
    p->pid = -1;
    p->fd = -1;
    p->cell_bytes = p->colour_layers == 1 && output_type == Unsigned8BitInteger ? 1 : 3;
    if (below != nullptr) {
        const int below_type = p->colour_layers == 3 ? Unsigned8BitInteger : output_type;
        setup_fninput(pe, &node->inputs[0], below, p->colour_layers, pe->nr_cells, below_type,
                      PE_ALLOC_SHARED);
    }
    *slot = node;
}
