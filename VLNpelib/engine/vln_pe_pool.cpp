/*
 * vln_pe_pool.cpp: the memory of one handle.
 *
 * Every block of a tree comes from here and goes with the handle in one
 * sweep. A block carries a small header that links it into the pool's list,
 * newest first; blocks of the ordinary allocator join through a link record on
 * a second list. The run records of the handle recycle through their own free
 * list (rlseg_pool), so that reads stop allocating once it has grown.
 */
#include <cstdlib>
#include <cstring>

#include "vln_pe_internal.h"

namespace {

// The header in front of each pool block; 16 bytes keep the block aligned
// for any cell type.
struct alignas(16) PoolBlock {
    PoolBlock *next, *prev;
    int64_t size;
};

// A block of the ordinary allocator given to the pool.
struct ExtraLink {
    ExtraLink *next;
    void *block;
};

PoolBlock *&head(pe_context *pe)
{
    return reinterpret_cast<PoolBlock *&>(pe->mem_list);
}
ExtraLink *&extra_head(pe_context *pe)
{
    return reinterpret_cast<ExtraLink *&>(pe->extra_mem_list);
}

void *pool_alloc(pe_context *pe, int64_t size, bool zero)
{
    if (size < 1) size = 1;
    size_t total = sizeof(PoolBlock) + static_cast<size_t>(size);
    auto *b = static_cast<PoolBlock *>(malloc_or_die(total));
    b->size = size;
    b->prev = nullptr;
    b->next = head(pe);
    if (b->next != nullptr) b->next->prev = b;
    head(pe) = b;
    pe->pool_bytes += size;
    pe->pool_allocations++;
    if (pe->pool_bytes > pe->pool_peak_bytes) pe->pool_peak_bytes = pe->pool_bytes;
    void *data = b + 1;
    if (zero) std::memset(data, 0, static_cast<size_t>(size));
    return data;
}

}  // namespace

void *pe_malloc(pe_context *pe, int64_t size)
{
    return pool_alloc(pe, size, true);
}

void *pe_malloc_raw(pe_context *pe, int64_t size)
{
    return pool_alloc(pe, size, false);
}

void pe_addmem(pe_context *pe, void *block)
{
    if (pe == nullptr || block == nullptr) return;
    auto *link = static_cast<ExtraLink *>(malloc_or_die(sizeof(ExtraLink)));
    link->block = block;
    link->next = extra_head(pe);
    extra_head(pe) = link;
}

char *pe_strsave(pe_context *pe, const char *text)
{
    char *copy = strsave(text);
    pe_addmem(pe, copy);
    return copy;
}

void pe_free(pe_context *pe, void *block)
{
    if (pe == nullptr || block == nullptr) return;
    // Linear, by design: only the rare frees of whole buffers come here.
    for (PoolBlock *b = head(pe); b != nullptr; b = b->next) {
        if (static_cast<void *>(b + 1) != block) continue;
        if (b->prev != nullptr)
            b->prev->next = b->next;
        else
            head(pe) = b->next;
        if (b->next != nullptr) b->next->prev = b->prev;
        pe->pool_bytes -= b->size;
        std::free(b);
        return;
    }
    for (ExtraLink **at = &extra_head(pe); *at != nullptr; at = &(*at)->next) {
        if ((*at)->block != block) continue;
        ExtraLink *link = *at;
        *at = link->next;
        safe_free(link->block);
        std::free(link);
        return;
    }
}

void pe_free_all(pe_context *pe)
{
    if (pe == nullptr) return;
    for (PoolBlock *b = head(pe); b != nullptr;) {
        PoolBlock *next = b->next;
        std::free(b);
        b = next;
    }
    head(pe) = nullptr;
    for (ExtraLink *link = extra_head(pe); link != nullptr;) {
        ExtraLink *next = link->next;
        safe_free(link->block);
        std::free(link);
        link = next;
    }
    extra_head(pe) = nullptr;
    pe->pool_bytes = 0;
}

rlseg *pe_rlseg(pe_context *pe, int first, int last)
{
    return pe_create_rlseg(&pe->rlsegs, first, last);
}

void pe_free_rlseg_list(pe_context *pe, rlseg **list)
{
    pe_free_rlsegs(&pe->rlsegs, list);
}
