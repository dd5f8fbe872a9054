/*
 * vln_dl.cpp: loading plug-in libraries.
 *
 * Translators, point extractors and compiled user code are shared libraries
 * loaded through these calls. A library may be loaded from a private copy, so
 * that code rebuilt under the same name (or a library whose static state must
 * not be shared) gives a fresh instance; the copy lives in the temporary
 * directory until vln_dlclose removes it. Opening and closing hold a lock of
 * their own, which also guards the list of private copies.
 */
#include "vln_path_internal.h"
#include "vln_guard_internal.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <system_error>

using namespace vln_path;

namespace {

vln_mutex dl_lock;                             // zeroed storage: alive at first use
std::map<void *, std::string> private_copies;  // handle -> copy to remove, under dl_lock

bool has_library_suffix(const std::string &name)
{
    size_t slash = name.rfind('/');
    std::string_view file =
        std::string_view(name).substr(slash == std::string::npos ? 0 : slash + 1);
    return file.ends_with(".so") || file.find(".so.") != std::string_view::npos;
}

// The file to load: ".so" is added to a name without one, and a final dot
// says "no suffix" and is dropped, as the older platform's loader did.
std::string library_file(const char *path)
{
    std::string name = native(path);
    if (name.back() == '.') {
        name.pop_back();
    } else if (!has_library_suffix(name)) {
        name += ".so";
    }
    return name;
}

// The file a handle was loaded from ("" for the main program).
std::string loaded_file(void *handle)
{
    struct link_map *map = nullptr;
    if (dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr || map->l_name == nullptr)
        return "";
    return map->l_name;
}

// VLD_ERR_CANNOT_LOAD_LIBRARY for `name`, with the loader's own reason on a second line.
void *load_failed(const std::string &name, const std::string &reason)
{
    VLD_setup_error(VLD_ERR_CANNOT_LOAD_LIBRARY, clip(name).c_str());
    if (!reason.empty()) append_buffer_to_VLD_error(reason.c_str());
    return nullptr;
}

std::string loader_error()
{
    const char *text = dlerror();
    return text != nullptr ? text : "";
}

// Copies the library to a new temporary name and loads it from there.
void *open_private_copy(const std::string &name)
{
    std::string source = name;
    if (name.find('/') == std::string::npos) {
        // A bare name: let the loader find it, to learn which file it is.
        void *found = dlopen(name.c_str(), RTLD_LAZY | RTLD_LOCAL);
        if (found == nullptr) return load_failed(name, loader_error());
        source = loaded_file(found);
        dlclose(found);
        if (source.empty()) return load_failed(name, "");
    }
    char *stem = VLN_tempname(nullptr, "vlndl");
    if (stem == nullptr) return load_failed(name, "no free temporary name");
    std::string copy = std::string(stem) + ".so";
    safe_free(stem);

    std::error_code ec;
    std::filesystem::copy_file(source, copy, ec);
    if (ec) {
        unlink(copy.c_str());
        return load_failed(name, ec.message());
    }
    void *handle = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        std::string reason = loader_error();
        unlink(copy.c_str());
        return load_failed(name, reason);
    }
    private_copies[handle] = copy;
    return handle;
}

bool main_program_has(const char *name)
{
    if (name == nullptr || *name == '\0') return false;
    void *self = dlopen(nullptr, RTLD_LAZY);
    if (self == nullptr) return false;
    bool found = dlsym(self, name) != nullptr;
    dlclose(self);
    return found;
}

}  // namespace

void *vln_dlopen(int /*flags*/, const char *path, int private_copy)
{
    if (path == nullptr || *path == '\0') {
        VLD_setup_error(VLD_ERR_NULL_LIBRARY_SPEC);
        return nullptr;
    }
    std::string name = library_file(path);
    vln::Guard lock(&dl_lock);
    if (private_copy) return open_private_copy(name);
    void *handle = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
    return handle != nullptr ? handle : load_failed(name, loader_error());
}

void *vln_dlsym(void *handle, const char *name)
{
    if (handle == nullptr) {
        VLD_setup_error(VLD_ERR_NULL_LIBRARY_SPEC);
        return nullptr;
    }
    dlerror();
    void *symbol = name != nullptr ? dlsym(handle, name) : nullptr;
    if (symbol == nullptr)
        VLD_setup_error(VLD_ERR_FUNCTION_NOT_IN_LIBRARY, clip(name).c_str(),
                        clip(loaded_file(handle)).c_str());
    return symbol;
}

int vln_dlclose(void *handle)
{
    if (handle == nullptr) return VLD_setup_error(VLD_ERR_NULL_LIBRARY_SPEC);
    vln::Guard lock(&dl_lock);
    std::string file = loaded_file(handle);
    int rc = dlclose(handle);
    std::string reason = rc != 0 ? loader_error() : "";
    auto copy = private_copies.find(handle);
    if (copy != private_copies.end()) {
        unlink(copy->second.c_str());
        private_copies.erase(copy);
    }
    if (rc == 0) return 0;
    VLD_setup_error(VLD_ERR_CANNOT_FREE_LIBRARY, clip(file).c_str());
    if (!reason.empty()) append_buffer_to_VLD_error(reason.c_str());
    return VLD_ERR_CANNOT_FREE_LIBRARY;
}

int vln_symexists_inproc(const char *name)
{
    return main_program_has(name) ? 1 : 0;
}

int vln_symexists(int /*flags*/, const char *name)
{
    vln::Guard lock(&dl_lock);
    return main_program_has(name) ? 1 : 0;
}
