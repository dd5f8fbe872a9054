/* vld_memory_internal.h: what the allocator shares with the leak layer. */
#ifndef VORLAN_VLD_MEMORY_INTERNAL_H
#define VORLAN_VLD_MEMORY_INTERNAL_H

#include <cstddef>

/* Ends the thread with the allocation failure `format` (one %d: the size). */
[[noreturn]] void vld_fatal_allocation(const char *format, size_t size);

#endif
