/*
 * vld_leak.cpp: the leak layer, an allocator that remembers its live blocks.
 *
 * A caller selects it per call site (see VLD_LEAK_CHECK), naming its source file
 * and line. Live blocks are kept newest first, so that leak_print lists the most
 * recent allocations at the top.
 */
#include "vld_core.h"
#include "vld_memory_internal.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

struct leak_node {
    void *address;
    const char *file;
    int line;
    size_t size;
    leak_node *next;
};

leak_node *live = nullptr;

void remember(const char *file, int line, void *address, size_t size)
{
    auto *node = static_cast<leak_node *>(malloc(sizeof(leak_node)));
    if (node == nullptr) return;
    *node = {address, file, line, size, nullptr};
    vln_mutex_begin(&csect);
    node->next = live;
    live = node;
    vln_mutex_end(&csect);
}

// Drops the node of `address` from the list; true when there was one.
bool forget(uintptr_t address)
{
    vln_mutex_begin(&csect);
    bool found = false;
    for (leak_node **link = &live; *link != nullptr; link = &(*link)->next) {
        if (reinterpret_cast<uintptr_t>((*link)->address) == address) {
            leak_node *node = *link;
            *link = node->next;
            free(node);
            found = true;
            break;
        }
    }
    vln_mutex_end(&csect);
    return found;
}

}  // namespace

void *leak_malloc(const char *file, int line, size_t size)
{
    if (size < 1) size = 1;
    void *block = malloc(size);
    if (block != nullptr) remember(file, line, block, size);
    return block;
}

void *leak_calloc(const char *file, int line, size_t count, size_t size)
{
    if (count < 1) count = 1;
    if (size < 1) size = 1;
    void *block = calloc(count, size);
    if (block != nullptr) remember(file, line, block, count * size);
    return block;
}

void *leak_realloc(const char *file, int line, void *pointer, size_t size)
{
    if (pointer == nullptr) return leak_malloc(file, line, size);
    if (size < 1) size = 1;
    auto old = reinterpret_cast<uintptr_t>(pointer);
    void *block = realloc(pointer, size);
    if (block == nullptr) return nullptr;
    forget(old);
    remember(file, line, block, size);
    return block;
}

void leak_free(const char *file, int line, void *pointer)
{
    (void)file;
    (void)line;
    if (pointer == nullptr) return;
    forget(reinterpret_cast<uintptr_t>(pointer));
    free(pointer);
}

// Unlike malloc_or_die, this form does not call the last-resort functions.
void *leak_malloc_or_die(const char *file, int line, size_t size)
{
    void *block = leak_calloc(file, line, 1, size);
    if (block == nullptr) vld_fatal_allocation("Could not allocate %d bytes", size);
    return block;
}

void *leak_realloc_or_die(const char *file, int line, void *pointer, size_t size)
{
    if (pointer == nullptr) return leak_malloc_or_die(file, line, size);
    void *block = leak_realloc(file, line, pointer, size);
    if (block == nullptr) vld_fatal_allocation("Could not reallocate %d bytes", size);
    return block;
}

void leak_safe_free(const char *file, int line, void *pointer)
{
    leak_free(file, line, pointer);
}

void leak_VLDfree(const char *file, int line, void *address_of_pointer)
{
    auto **slot = static_cast<void **>(address_of_pointer);
    leak_free(file, line, *slot);
    *slot = nullptr;
}

void leak_safe_VLDfree(const char *file, int line, void *address_of_pointer)
{
    if (address_of_pointer != nullptr) leak_VLDfree(file, line, address_of_pointer);
}

char *leak_strsave(const char *file, int line, const char *text)
{
    if (text == nullptr) text = "";
    size_t length = strlen(text);
    auto *copy = static_cast<char *>(leak_malloc_or_die(file, line, length + 1));
    memcpy(copy, text, length + 1);
    return copy;
}

void leak_print(void)
{
    vln_mutex_begin(&csect);
    FILE *out = vln_ReturnStdOut();
    for (leak_node *node = live; node != nullptr; node = node->next)
        fprintf(out, "%s:%d (%d bytes)\n", node->file != nullptr ? node->file : "", node->line,
                static_cast<int>(node->size));
    vln_mutex_end(&csect);
}

void leak_reset(void)
{
    vln_mutex_begin(&csect);
    while (live != nullptr) {
        leak_node *next = live->next;
        free(live);
        live = next;
    }
    vln_mutex_end(&csect);
}
