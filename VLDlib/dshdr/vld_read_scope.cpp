/*
 * vld_read_scope.cpp: what one read of documents shares, from the outermost
 * eg_dshdr or eg_algorithm down to the last layer it opens.
 *
 * A layer may name a virtual dataset whose algorithm names further datasets,
 * so one read can open many documents, and the same one many times. The scope
 * keeps the documents that are open on the way down, so that a document that
 * reaches itself again is refused before the second read starts, and the
 * headers and embedded algorithms already read, so that each file is parsed
 * once per read and every later request gets a copy. Results are kept by the
 * absolute name they were asked for, not by the file a link leads to: names
 * inside a document resolve against the folder it was reached through.
 *
 * The state is the calling thread's own, and lives exactly as long as the
 * outermost scope; nothing of it outlives a read.
 */
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "vld_alg.h"
#include "vld_dshdr_internal.h"
#include "vln_path.h"

namespace {

/* The results of one kind of read, by key; each entry is owned. */
template <typename T, int (*copy_of)(T **, const T *), void (*free_of)(T *)>
struct Results {
    std::map<std::string, T *> kept;

    /* A new copy named `name`, or null. */
    T *copy(const std::string &key, const char *name) const
    {
        auto hit = kept.find(key);
        if (key.empty() || hit == kept.end()) return nullptr;
        T *out = nullptr;
        copy_of(&out, hit->second);
        vld::replace_text(out->name, name);
        return out;
    }
    void keep(const std::string &key, const T *record)
    {
        if (key.empty() || !record || kept.count(key)) return;
        T *own = nullptr;
        copy_of(&own, record);
        kept[key] = own;
    }
    void clear()
    {
        for (auto &entry : kept) free_of(entry.second);
        kept.clear();
    }
};

struct ScopeState {
    int depth = 0;
    std::vector<std::string> open;              /* documents being read, outermost first */
    Results<dshdr, cp_dshdr, ef_dshdr> headers; /* eg_dshdr's */
    Results<algorithm, cp_algorithm_all, ef_algorithm> algs; /* embedded reads' */
};

thread_local ScopeState scope_state;

}  // namespace

vld::ReadScope::ReadScope()
{
    scope_state.depth++;
}

vld::ReadScope::~ReadScope()
{
    if (--scope_state.depth > 0) return;
    scope_state.headers.clear();
    scope_state.algs.clear();
    scope_state.open.clear();
}

std::string vld::document_key(const char *name)
{
    if (empty_text(name)) return std::string();
    char *abs = nullptr;
    VLN_build_abs_fspec(&abs, nullptr, name);
    std::string key = abs ? abs : name;
    safe_free(abs);
    return key;
}

vld::OpenDocument::OpenDocument(const char *name)
{
    // The file itself, whatever links lead to it: a loop through a linked
    // folder would otherwise make a new name at every turn.
    int saved_errno = errno;  // a name that isn't a link leaves EINVAL behind
    char resolved[PATH_MAX];
    key_ = empty_text(name)           ? std::string()
           : realpath(name, resolved) ? resolved
                                      : document_key(name);
    for (const std::string &open : scope_state.open)
        if (!key_.empty() && open == key_) looped_ = true;
    too_deep_ = scope_state.open.size() > static_cast<size_t>(kMaxVdsDepth);
    if (!refused()) scope_state.open.push_back(key_);
    errno = saved_errno;
}

int vld::OpenDocument::refuse(const char *name) const
{
    if (!looped_)
        return VLD_setup_vds_error(
            "The Virtual Dataset \"%s\" is nested too deeply: more than %d levels\n", name,
            kMaxVdsDepth);
    return VLD_setup_vds_error("The Virtual Dataset \"%s\" is self referential\n", name);
}

vld::OpenDocument::~OpenDocument()
{
    if (!refused() && !scope_state.open.empty()) scope_state.open.pop_back();
}

dshdr *vld::cached_header(const std::string &key, const char *name)
{
    return scope_state.headers.copy(key, name);
}

void vld::cache_header(const std::string &key, const dshdr *d)
{
    // The outermost call's own result can't be asked for again within it: a
    // document that leads back to itself is refused.
    if (scope_state.depth > 1) scope_state.headers.keep(key, d);
}

algorithm *vld::cached_embedded_algorithm(const std::string &key, const char *name)
{
    return scope_state.algs.copy(key, name);
}

void vld::cache_embedded_algorithm(const std::string &key, const algorithm *a)
{
    if (scope_state.depth > 1) scope_state.algs.keep(key, a);
}
