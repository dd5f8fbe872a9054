/*
 * vln_node_kernel_user.cpp: user kernels, whose cell function lives in a
 * shared library (the entries are told in vln_kernel_usercode.h).
 *
 * The library is found and loaded, and its entries looked up, when the tree
 * is built, so that a missing library or function fails the open. Its init
 * entry runs at the node's start, which has no failure target of its own: a
 * failure there is kept and ends the first read. The final entry runs at
 * close, only after the init entry has run, and the library goes with it.
 */
#include <unistd.h>

#include <string>
#include <vector>

#include "vln_kernel_internal.h"
#include "vln_kernel_usercode.h"
#include "vln_path.h"

using namespace vln_pe;
using vln_kernel::Window;

namespace {

struct UserCode {
    int interface_type;
    const char *parameters;  // pool copy of UserCodeParameters; may be null
    vln_kernel_init_fn init_function;
    vln_kernel_fn main_function;
    vln_kernel_final_fn finish_function;
    vln_kernel_mtsafe_fn mtsafe_function;
    double **row_pointers;  // one per window row
    void *library_handle;
    void *user_data;
    algorithm *alg;
    stream *layer;           // the stream of the kernel
    int started;             // the init entry has run
    const char *init_error;  // pool copy of what a failed init entry said
};

UserCode *user_of(const Window *w)
{
    return static_cast<UserCode *>(w->kind);
}

/* Interface type 0: the function once per cell, its window's rows pointed at
 * the cell's leftmost column. */
void call_user_function(const Window *w, int first, int last, const double *const *rows,
                        void *out_line)
{
    UserCode *u = user_of(w);
    for (int r = 0; r < w->rows; r++)
        u->row_pointers[r] = const_cast<double *>(rows[r]) + first - w->half_columns;
    auto *out = static_cast<double *>(out_line);
    for (int x = first; x <= last; x++) {
        out[x] = u->main_function(w->rows, w->columns, u->row_pointers, &u->user_data);
        for (int r = 0; r < w->rows; r++) u->row_pointers[r]++;
    }
}

void user_kernel_read(funcnode *node)
{
    auto *w = priv<Window>(node);
    if (const char *text = user_of(w)->init_error) vds_processing_error(w->base.pe, "%s", text);
    vln_kernel::window_read(node);
}

bool is_file(const std::string &path)
{
    return !path.empty() && access(path.c_str(), R_OK) == 0;
}

/* The file name with the platform's library suffix in place of its extension. */
std::string library_name(const char *file_name)
{
    std::string name = file_name;
    const size_t slash = name.find_last_of("/\\");
    const size_t dot = name.rfind('.');
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) name.erase(dot);
    return name + ".so";
}

/* A name that goes through a folder called "usercode" loses everything up to
 * and including that folder: the search path says where user code lives. */
std::string without_usercode(const std::string &name)
{
    for (size_t at = name.find("usercode"); at != std::string::npos;
         at = name.find("usercode", at + 1)) {
        const size_t end = at + 8;
        const bool starts = at == 0 || name[at - 1] == '/' || name[at - 1] == '\\';
        const bool ends = end < name.size() && (name[end] == '/' || name[end] == '\\');
        if (starts && ends) return name.substr(end + 1);
    }
    return name;
}

void split_path(const std::string &path, std::vector<std::string> &into)
{
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find(':', start);
        if (end == std::string::npos) end = path.size();
        if (end > start) into.push_back(path.substr(start, end - start));
        start = end + 1;
    }
}

/* The library of a user kernel, or "" when it is nowhere. */
std::string find_library(const char *file_name)
{
    const std::string name = library_name(file_name);
    if (VLN_path_is_abs(name.c_str())) return is_file(name) ? name : "";
    const std::string rest = without_usercode(name);
    const size_t slash = rest.find_last_of("/\\");
    const std::string base = slash == std::string::npos ? rest : rest.substr(slash + 1);

    std::vector<std::string> folders;
    split_path(pe_kernel_search_path(), folders);
    char *installation = VLN_getenv(0, "VORLAN");
    if (installation != nullptr) {
        const std::string kernels = std::string(installation) + "/usercode/kernel";
        if (const char *machine = VLN_get_machine_type())
            folders.push_back(kernels + "/" + machine);
        folders.push_back(kernels);
    }
    safe_free(installation);
    folders.push_back("usercode/kernel");
    for (const std::string &folder : folders) {
        if (is_file(folder + "/" + rest)) return folder + "/" + rest;
        if (base != rest && is_file(folder + "/" + base)) return folder + "/" + base;
    }
    return "";
}

/* The address of `name` in the library, or null. */
void *entry(void *library, const std::string &name)
{
    return name.empty() ? nullptr : vln_dlsym(library, name.c_str());
}

}  // namespace

void vln_kernel::setup_user_kernel(Window *w, pe_context *pe, pe_stream *ps, const kernel *k)
{
    auto *u = static_cast<UserCode *>(pe_malloc(pe, sizeof(UserCode)));
    w->kind = u;
    u->interface_type = k->interface_type;
    u->parameters =
        k->user_code_parameters != nullptr ? pe_strsave(pe, k->user_code_parameters) : nullptr;
    u->alg = pe->alg;
    u->layer = ps != nullptr ? ps->stream : nullptr;
    u->row_pointers = static_cast<double **>(pe_malloc(pe, sizeof(double *) * w->rows));
    w->cell_routine = call_user_function;

    if (k->user_code_file_name == nullptr || *k->user_code_file_name == '\0')
        alg_error_fatal(pe, "No object file specified in user kernel.");
    const std::string path = find_library(k->user_code_file_name);
    if (path.empty())
        alg_error_vprintf(pe, "Cannot find usercode kernel object file: %s",
                          k->user_code_file_name);
    void *library = vln_dlopen(0, path.c_str(), 0);
    if (library == nullptr) {
        const char *reason = VLD_error_text();
        alg_error_vprintf(pe, "dlopen() failed for %s\n%s", path.c_str(),
                          reason != nullptr ? reason : "");
    }
    const std::string name = k->user_function_name != nullptr ? k->user_function_name : "";
    u->main_function = reinterpret_cast<vln_kernel_fn>(entry(library, name));
    if (u->main_function == nullptr) {
        vln_dlclose(library);
        alg_error_vprintf(pe, "Could not find symbol %s in %s", name.c_str(), path.c_str());
    }
    u->init_function = reinterpret_cast<vln_kernel_init_fn>(entry(library, name + "_init"));
    u->finish_function = reinterpret_cast<vln_kernel_final_fn>(entry(library, name + "_final"));
    u->mtsafe_function = reinterpret_cast<vln_kernel_mtsafe_fn>(entry(library, name + "_mtsafe"));
    u->library_handle = library;
}

/* Replaces the node's read, so that a failed init entry ends the first read. */
void vln_kernel::use_user_kernel_read(funcnode *node)
{
    node->read = user_kernel_read;
}

void vln_kernel::start_user_kernel(Window *w)
{
    UserCode *u = user_of(w);
    // Another interface type calls the library by its own entry alone.
    if (u == nullptr || u->library_handle == nullptr || u->started || u->interface_type != 0)
        return;
    u->started = 1;
    if (u->init_function == nullptr) return;
    const char *text = nullptr;
    const int status = u->init_function(w->rows, w->columns, u->parameters, u->alg, u->layer,
                                        &u->user_data, &text);
    if (status != 0 || text != nullptr)
        u->init_error =
            pe_strsave(w->base.pe, text != nullptr ? text : "User kernel initialisation failed");
}

void vln_kernel::close_user_kernel(Window *w)
{
    UserCode *u = user_of(w);
    if (u == nullptr || u->library_handle == nullptr) return;
    if (u->started && u->finish_function != nullptr) u->finish_function(u->user_data);
    u->user_data = nullptr;
    vln_dlclose(u->library_handle);
    u->library_handle = nullptr;
}
