/*
 * vln_pe_start.cpp: the engine's start, a handle's context, and init_alg.
 *
 * PE_initialise runs once per process under a lock of its own, reads the
 * engine's switches and builds the search paths of user code. A context is
 * one handle's whole state; init_alg plans the algorithm, builds its trees
 * and brings them to life, all under the handle's failure target.
 */
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <string>

#include "vln_guard_internal.h"
#include "vln_nodes.h"
#include "vln_fileio.h"
#include "vln_path.h"
#include "vln_pe_plan.h"

using namespace vln_pe;

namespace {

vln_mutex start_mutex;
vln_mutex dump_mutex;

struct EngineState {
    bool initialised = false;
    bool mmap_allowed = true;
    bool use_libdl = true;
    std::string program_name;
    std::string kernel_path;
    std::string formula_path;
    bool dump_tested = false;
    bool dump = false;
};

EngineState &engine()
{
    static EngineState state;
    return state;
}

std::string search_path(const char *base, const char *kind, const char *machine, const char *extra)
{
    std::string first = std::string(base) + "/usercode/" + kind;
    std::string second = first + "/" + machine;
    std::string path = first + ":" + second;
    if (extra != nullptr) path += std::string(":") + extra;
    return path;
}

}  // namespace

int PE_initialise(const char *program_name)
{
    vln::Guard guard(&start_mutex);
    EngineState &e = engine();
    if (e.initialised) return 0;
    // Installed also when the start fails, so that the passes report why.
    pe_install_alg_clip_passes();
    const char *base = std::getenv("VORLAN");
    if (base == nullptr) return VLD_setup_error(VLD_ERR_ENV_NOT_SET, "VORLAN");
    const char *machine = std::getenv("VLN_MACHINE_TYPE");
    if (machine == nullptr) return VLD_setup_error(VLD_ERR_ENV_NOT_SET, "VLN_MACHINE_TYPE");
    e.program_name = program_name != nullptr ? program_name : "";
    pe_clear_verbose_errors();
    // Kept: nothing in the engine reads the mapped-reading flag, but the
    // switch stays for callers that look at it.
    e.mmap_allowed = std::getenv("VLN_NO_MMAP") == nullptr;
    e.use_libdl = std::getenv("VLN_DONT_USE_LIBDL") == nullptr;
    e.kernel_path = search_path(base, "kernel/c", machine, std::getenv("VLN_KERNEL_UCPATH"));
    e.formula_path = search_path(base, "formula", machine, std::getenv("VLN_FORMULA_UCPATH"));
    e.initialised = true;
    return 0;
}

int pe_initialised(void)
{
    vln::Guard guard(&start_mutex);
    return engine().initialised ? 1 : 0;
}

int pe_mmap_allowed(void)
{
    vln::Guard guard(&start_mutex);
    return engine().mmap_allowed ? 1 : 0;
}

const char *pe_kernel_search_path(void)
{
    // Set once by the engine's start and never changed after it.
    vln::Guard guard(&start_mutex);
    return engine().kernel_path.c_str();
}

int pe_dump_wanted(void)
{
    vln::Guard guard(&dump_mutex);
    EngineState &e = engine();
    if (!e.dump_tested) {
        e.dump_tested = true;
        e.dump = std::getenv("VLN_PE_DUMP") != nullptr;
    }
    return e.dump ? 1 : 0;
}

/* ---------------------------------------------------------------- the context */

pe_context *pe_create_context(void)
{
    auto *pe = static_cast<pe_context *>(malloc_or_die(sizeof(pe_context)));
    std::memset(pe, 0, sizeof *pe);
    rlseg_pool_init(&pe->rlsegs);
    pe->cell_type = Unsigned8BitInteger;
    return pe;
}

namespace {

void warn(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    VLD_error_vprintf(format, args);
    va_end(args);
}

void run_close(funcnode *node)
{
    if (node->close != nullptr) node->close(node);
}

void run_start(funcnode *node)
{
    if (node->start != nullptr) node->start(node);
}

}  // namespace

void pe_start_trees(pe_context *pe)
{
    walk_funcnodes(pe->raster_root, run_start);
    walk_funcnodes(pe->vector_root, run_start);
}

void pe_destroy_context(pe_context *pe)
{
    if (pe == nullptr) return;
    walk_funcnodes(pe->raster_root, run_close);
    walk_funcnodes(pe->vector_root, run_close);
    // The little trees of the datasets hang from their dsinputs.
    for (dsinput *d = pe->dsinputs; d != nullptr; d = d->next) walk_funcnodes(d->root, run_close);
    if (pe->image_dsh != nullptr) ef_dshdr(pe->image_dsh);
    pe->image_dsh = nullptr;
    for (pe_stream *s = pe->streams; s != nullptr; s = s->next) free_ExprNode(s->formula);
    free_group_formulae(pe);
    rlseg_pool_release(&pe->rlsegs);
    close_dsinputs(pe->dsinputs);
    for (int i = 0; i < pe->nr_delete_files; i++) {
        const char *path = pe->delete_files[i];
        if (path != nullptr && vln_filesize64(path) >= 0 && std::remove(path) != 0)
            warn("WARNING: unable to delete temporary file %s\n", path);
    }
    pe_free_all(pe);
    std::free(pe);
}

int pe_guarded_read(pe_context *pe, funcnode *root, void (*root_read)(funcnode *root))
{
    if (root == nullptr) return -1;
    return guarded(pe, [&] { root_read(root); }) ? 0 : 1;
}

int pe_read_lines(pe_context *pe, int which, void **lines, rlseg **rlsegs)
{
    funcnode *root = which == 0 ? pe->raster_root : pe->vector_root;
    if (root == nullptr) return -1;
    int result = -1;
    if (!guarded(pe, [&] { result = vread_read_lines(root, lines, rlsegs); })) return 1;
    return result;
}

/* ---------------------------------------------------------------- init_alg */

namespace {

void progress(pe_context *pe, const char *text)
{
    if (pe->progress_fn != nullptr) pe->progress_fn(pe->progress_arg, text);
}

void dump_trees(pe_context *pe)
{
    FILE *out = vln_ReturnStdErr();
    if (pe->raster_root != nullptr) {
        std::fputs("Raster Nodes:\n", out);
        dump_functree(pe->raster_root);
    } else {
        std::fputs("No Raster Nodes in this algorithm\n", out);
    }
    if (pe->vector_root != nullptr) {
        std::fputs("Vector Nodes:\n", out);
        dump_functree(pe->vector_root);
    } else {
        std::fputs("No Vector Nodes in this algorithm\n", out);
    }
    std::fputs("\n", out);
    std::fflush(out);
}

}  // namespace

int init_alg(pe_context *pe, algorithm *alg)
{
    pe->nr_errors = 0;
    pe->aborted = 0;
    guarded(pe, [&] {
        prepare_alg(alg, pe);
        progress(pe, "Initialising 8");
        // The dynamic compiler would start here.
        progress(pe, "Initialising 9");
        build_trees(pe);
        progress(pe, "Initialising 10");
        finish_setting_up_dsinputs(pe);
        progress(pe, "Initialising 11");
        init_funcnode(pe->raster_root, nullptr, nullptr);
        init_funcnode(pe->vector_root, nullptr, nullptr);
        progress(pe, "Initialising 12");
        init_pass4(pe, pe->raster_root);
        progress(pe, "Initialising 13");
        init_pass4(pe, pe->vector_root);
        progress(pe, "Initialising 14");
        init_pass5(pe->raster_root);
        progress(pe, "Initialising 15");
        init_pass5(pe->vector_root);
        progress(pe, "Initialising 16");
    });
    if (pe_dump_wanted()) dump_trees(pe);
    if (pe->nr_errors != 0) return 1;
    if (pe->aborted) return 2;
    return 0;
}
