/*
 * vld_rlseg.cpp: runs of valid cells and their set operations.
 *
 * Each operation is written once, as a template over where its runs come
 * from: the heap (malloc_or_die per run) or a pool with a free list. The two
 * exported forms of an operation are one-line wrappers, so their results are
 * the same by construction. Results are built front to back through a tail
 * pointer; inputs are only read.
 */
#include "vld_rlseg.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>

/* A pooled run: the pool's links in front of the run that callers see. On the
 * used list both links are in use; on the free list only `next`. */
struct rlseg_pooled {
    rlseg_pooled *prev;
    rlseg_pooled *next;
    rlseg run;
};

namespace {

rlseg_pooled *pooled_of(rlseg *run)
{
    return reinterpret_cast<rlseg_pooled *>(reinterpret_cast<char *>(run) -
                                            offsetof(rlseg_pooled, run));
}

struct HeapRuns {
    rlseg *make(int first, int last) const { return create_rlseg(nullptr, first, last); }
    void drop(rlseg *run) const { free_rlseg(&run); }
};

struct PoolRuns {
    rlseg_pool *pool;
    rlseg *make(int first, int last) const { return pe_create_rlseg(pool, first, last); }
    void drop(rlseg *run) const { pe_free_rlseg(pool, &run); }
};

/* A list under construction, appended at its tail. */
template <class Runs>
struct Builder {
    Runs runs;
    rlseg *head = nullptr;
    rlseg **tail = &head;

    void emit(int first, int last)
    {
        rlseg *run = runs.make(first, last);
        *tail = run;
        tail = &run->next;
    }
    void copy_rest(const rlseg *list)
    {
        for (; list; list = list->next) emit(list->first, list->last);
    }
};

template <class Runs>
void combine(Runs runs, rlseg *list)
{
    rlseg *run = list;
    while (run && run->next) {
        rlseg *next = run->next;
        if (run->last >= next->last) {
            run->next = next->next;
            runs.drop(next);
        } else if (int64_t{run->last} + 1 >= next->first) {
            run->last = next->last;
            run->next = next->next;
            runs.drop(next);
        } else {
            run = next;
        }
    }
}

template <class Runs>
rlseg *intersect(Runs runs, const rlseg *a, const rlseg *b)
{
    Builder<Runs> out{runs};
    while (a && b) {
        if (a->first > b->last) {
            b = b->next;
        } else if (b->first > a->last) {
            a = a->next;
        } else {
            out.emit(std::max(a->first, b->first), std::min(a->last, b->last));
            if (a->last < b->last) {
                a = a->next;
            } else if (b->last < a->last) {
                b = b->next;
            } else {
                a = a->next;
                b = b->next;
            }
        }
    }
    return out.head;
}

template <class Runs>
rlseg *unite(Runs runs, const rlseg *a, const rlseg *b)
{
    Builder<Runs> out{runs};
    while (a && b) {
        if (a->last < b->first) {
            out.emit(a->first, a->last);
            a = a->next;
        } else if (b->last < a->first) {
            out.emit(b->first, b->last);
            b = b->next;
        } else {
            int first = std::min(a->first, b->first);
            int last = std::max(a->last, b->last);
            while (a && a->last <= last) a = a->next;
            while (b && b->last <= last) b = b->next;
            out.emit(first, last);
        }
    }
    out.copy_rest(a ? a : b);
    // Runs that overlap the merged one, or touch their neighbours, join here.
    combine(runs, out.head);
    return out.head;
}

template <class Runs>
rlseg *difference(Runs runs, const rlseg *a, const rlseg *b)
{
    Builder<Runs> out{runs};
    if (!a) return nullptr;
    int p = a->first;  // the first cell of a's current run not yet decided
    while (a && b) {
        if (a->last < b->first) {
            out.emit(p, a->last);
            a = a->next;
            if (a) p = a->first;
        } else if (b->last < p) {
            b = b->next;
        } else if (p < b->first) {
            out.emit(p, b->first - 1);
            p = b->first;
        } else if (a->last <= b->last) {
            a = a->next;
            if (a) p = a->first;
        } else {
            p = b->last + 1;
            b = b->next;
        }
    }
    if (a) {
        out.emit(p, a->last);
        out.copy_rest(a->next);
    }
    return out.head;
}

template <class Runs>
rlseg *complement(Runs runs, const rlseg *a, int width)
{
    if (width < 1) return nullptr;
    const rlseg line{nullptr, 0, width - 1};
    return difference(runs, &line, a);
}

template <class Runs>
rlseg *duplicate(Runs runs, const rlseg *list)
{
    Builder<Runs> out{runs};
    out.copy_rest(list);
    return out.head;
}

}  // namespace

/* ---------------------------------------------------------------- pool */

void rlseg_pool_init(rlseg_pool *pool)
{
    *pool = rlseg_pool{};
}

void rlseg_pool_release(rlseg_pool *pool)
{
    if (!pool) return;
    for (rlseg_pooled *list : {pool->used_list, pool->free_list}) {
        while (list) {
            rlseg_pooled *next = list->next;
            safe_free(list);
            list = next;
        }
    }
    int32_t allocated = pool->nr_allocated;
    *pool = rlseg_pool{};
    pool->nr_allocated = allocated;
}

/* ---------------------------------------------------------------- runs */

rlseg *create_rlseg(void *, int first, int last)
{
    auto *run = static_cast<rlseg *>(malloc_or_die(sizeof(rlseg)));
    *run = rlseg{nullptr, first, last};
    return run;
}

void free_rlseg(rlseg **slot)
{
    if (!slot || !*slot) return;
    safe_free(*slot);
    *slot = nullptr;
}

void free_rlsegs(rlseg **slot)
{
    if (!slot) return;
    rlseg *run = *slot;
    while (run) {
        rlseg *next = run->next;
        safe_free(run);
        run = next;
    }
    *slot = nullptr;
}

rlseg *pe_create_rlseg(rlseg_pool *pool, int first, int last)
{
    assert(pool);
    rlseg_pooled *node = pool->free_list;
    if (node) {
        pool->free_list = node->next;
        pool->nr_free--;
    } else {
        node = static_cast<rlseg_pooled *>(malloc_or_die(sizeof(rlseg_pooled)));
        pool->nr_allocated++;
    }
    node->prev = nullptr;
    node->next = pool->used_list;
    if (node->next) node->next->prev = node;
    pool->used_list = node;
    pool->nr_used++;
    node->run = rlseg{nullptr, first, last};
    return &node->run;
}

void pe_free_rlseg(rlseg_pool *pool, rlseg **slot)
{
    if (!slot || !*slot) return;
    assert(pool);
    rlseg_pooled *node = pooled_of(*slot);
    if (node->prev)
        node->prev->next = node->next;
    else
        pool->used_list = node->next;
    if (node->next) node->next->prev = node->prev;
    pool->nr_used--;
    node->prev = nullptr;
    node->next = pool->free_list;
    pool->free_list = node;
    pool->nr_free++;
    node->run = rlseg{nullptr, -1, -1};
    *slot = nullptr;
}

void pe_free_rlsegs(rlseg_pool *pool, rlseg **slot)
{
    if (!slot) return;
    rlseg *run = *slot;
    while (run) {
        rlseg *next = run->next;
        pe_free_rlseg(pool, &run);
        run = next;
    }
    *slot = nullptr;
}

/* ---------------------------------------------------------------- set operations */

rlseg *and_rlsegs(const rlseg *a, const rlseg *b)
{
    return intersect(HeapRuns{}, a, b);
}
rlseg *pe_and_rlsegs(rlseg_pool *pool, const rlseg *a, const rlseg *b)
{
    return intersect(PoolRuns{pool}, a, b);
}

rlseg *VLD_or_rlsegs(const rlseg *a, const rlseg *b)
{
    return unite(HeapRuns{}, a, b);
}
rlseg *or_rlsegs(rlseg_pool *pool, const rlseg *a, const rlseg *b)
{
    return unite(PoolRuns{pool}, a, b);
}

rlseg *VLD_rlseg_diff(const rlseg *a, const rlseg *b)
{
    return difference(HeapRuns{}, a, b);
}
rlseg *rlseg_diff(rlseg_pool *pool, const rlseg *a, const rlseg *b)
{
    return difference(PoolRuns{pool}, a, b);
}

rlseg *VLD_rlseg_complement(const rlseg *a, int width)
{
    return complement(HeapRuns{}, a, width);
}
rlseg *rlseg_complement(rlseg_pool *pool, const rlseg *a, int width)
{
    return complement(PoolRuns{pool}, a, width);
}

void VLD_combine_rlsegs(rlseg *list)
{
    combine(HeapRuns{}, list);
}
void combine_rlsegs(rlseg_pool *pool, rlseg *list)
{
    combine(PoolRuns{pool}, list);
}

rlseg *VLD_dup_rlsegs(const rlseg *list)
{
    return duplicate(HeapRuns{}, list);
}
rlseg *dup_rlsegs(rlseg_pool *pool, const rlseg *list)
{
    return duplicate(PoolRuns{pool}, list);
}
