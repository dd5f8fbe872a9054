/*
 * vln_formula_userfn.cpp: functions of user code that a formula calls.
 *
 * A call name(a, b, ...) loads the library "name.so" from the formula
 * user-code path ($VORLAN/usercode/formula, its machine sub-folder, then
 * VLN_FORMULA_UCPATH) and finds three entries in it: "name_init", "name" and
 * "name_final". The init entry runs once, before the first call, with the
 * first cell's arguments and the address of the function's user data; each
 * cell then calls "name" with its arguments as doubles, the algorithm, the
 * formula record and the user data; at close "name_final" gets the user data
 * and the library is closed.
 */
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "vln_formula_node.h"
#include "vln_path.h"

namespace {

constexpr int MAX_USER_ARGS = 20;

/* The entry of `fn` called with n doubles and three pointers. */
template <size_t... I>
double call_with(void *fn, const double *args, void *p1, void *p2, void *p3,
                 std::index_sequence<I...>)
{
    using Entry = double (*)(decltype((void)I, 0.0)..., void *, void *, void *);
    return reinterpret_cast<Entry>(fn)(args[I]..., p1, p2, p3);
}

using Caller = double (*)(void *fn, const double *args, void *p1, void *p2, void *p3);

template <size_t N>
double call_n(void *fn, const double *args, void *p1, void *p2, void *p3)
{
    return call_with(fn, args, p1, p2, p3, std::make_index_sequence<N>{});
}

template <size_t... N>
constexpr auto make_callers(std::index_sequence<N...>)
{
    return std::array<Caller, sizeof...(N)>{&call_n<N>...};
}

/* The formula user-code path, as the engine's start builds it. */
std::string formula_path()
{
    const char *base = std::getenv("VORLAN");
    const char *machine = std::getenv("VLN_MACHINE_TYPE");
    std::string first = std::string(base != nullptr ? base : ".") + "/usercode/formula";
    std::string path = first + ":" + first + "/" + (machine != nullptr ? machine : "");
    if (const char *extra = std::getenv("VLN_FORMULA_UCPATH")) path += std::string(":") + extra;
    return path;
}

/* The first directory of `path` that holds `file`; the bare name when none. */
std::string find_library(const std::string &path, const std::string &file)
{
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find(':', start);
        if (end == std::string::npos) end = path.size();
        const std::string dir = path.substr(start, end - start);
        if (!dir.empty()) {
            const std::string candidate = dir + "/" + file;
            if (FILE *f = std::fopen(candidate.c_str(), "rb")) {
                std::fclose(f);
                return candidate;
            }
        }
        start = end + 1;
    }
    return file;
}

}  // namespace

UserFunction *load_user_function(pe_context *pe, pe_stream *ps, const char *name, int number)
{
    auto *uf = static_cast<UserFunction *>(pe_malloc(pe, sizeof(UserFunction)));
    char label[300];
    std::snprintf(label, sizeof label, "%s_%d", name, number);
    uf->name = pe_strsave(pe, label);
    uf->alg = pe->alg;
    uf->formula_record = &ps->stream->formula;

    const std::string library = find_library(formula_path(), std::string(name) + ".so");
    uf->library_handle = vln_dlopen(0, library.c_str(), 0);
    if (uf->library_handle == nullptr) {
        const char *text = VLD_error_text();
        alg_error_fatal(pe, text != nullptr ? text : "Cannot load library");
    }
    // The entries name_init, name, name_final (and name_mtsafe, which the
    // interpreter doesn't need).
    const std::string base(name);
    const std::string symbols[3] = {base + "_init", base, base + "_final"};
    void **slots[3] = {&uf->init_function, &uf->main_function, &uf->finish_function};
    for (int i = 0; i < 3; i++) {
        *slots[i] = vln_dlsym(uf->library_handle, symbols[i].c_str());
        if (*slots[i] == nullptr) {
            vln_dlclose(uf->library_handle);
            uf->library_handle = nullptr;
            alg_error_vprintf(pe, "Could not find symbol %s in %s", symbols[i].c_str(),
                              library.c_str());
        }
    }
    return uf;
}

double call_user_function(void *function, const double *args, int nr_args)
{
    static constexpr auto callers = make_callers(std::make_index_sequence<MAX_USER_ARGS + 1>{});
    auto *uf = static_cast<UserFunction *>(function);
    if (nr_args < 0 || nr_args > MAX_USER_ARGS) return 0.0;
    if (!uf->init_done) {
        callers[nr_args](uf->init_function, args, uf->alg, uf->formula_record, &uf->user_data);
        uf->init_done = 1;
    }
    return callers[nr_args](uf->main_function, args, uf->alg, uf->formula_record, uf->user_data);
}

void close_user_functions(UserFunction *list)
{
    for (UserFunction *uf = list; uf != nullptr; uf = uf->next) {
        if (uf->library_handle == nullptr) continue;
        if (uf->finish_function != nullptr)
            reinterpret_cast<void (*)(void *)>(uf->finish_function)(uf->user_data);
        vln_dlclose(uf->library_handle);
        uf->library_handle = nullptr;
    }
}
