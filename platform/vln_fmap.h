/*
 * vln_fmap.h: mapping a file, or a part of one, into memory.
 *
 * A mapping is described by a handle pair: the file's descriptor, and the
 * platform's mapping object, which Linux doesn't have (always -1). A pair of
 * {-1, -1} asks vln_fmap to open the file; an open pair maps another view of
 * the same file. vln_funmap closes both and sets them to -1 again.
 */
#ifndef VORLAN_VLN_FMAP_H
#define VORLAN_VLN_FMAP_H

#include <stddef.h>
#include <stdint.h>

#include "vld_core.h"

VLD_BEGIN_DECLS

/* Maps `size` bytes of `path` from `offset` (any offset: the view is aligned
 * to the page size underneath) and returns the address of the byte at
 * `offset`, or null with a new text in *message (when message isn't null).
 *
 * `mode` is a string of letters; reading is implied:
 *   "w"  read and write, after checking write permission on the file, or on
 *        its directory when the file is new;
 *   "x"  read and write without that check;
 *   "s"  sequential scan ("n", the default, random access);
 *   "c"  always create the file (emptied), "u" create a new file only.
 * A created file is extended to `size`; otherwise the file must hold the whole
 * view. A directory, an empty view and an empty file can't be mapped. */
VLD_API void *vln_fmap(const char *path, const char *mode, size_t size, int64_t offset,
                       int handles[2], char **message);

/* Unmaps a view that vln_fmap returned and closes the handles. `flag` is kept
 * for callers and ignored. Returns 1, or 0 with a new text in *message. */
VLD_API int vln_funmap(void *view, size_t size, int handles[2], int flag, char **message);

/* Moves a view: unmaps `view` (of `size` bytes) and maps `new_size` bytes from
 * `new_offset` of the same open file, keeping the handles. The new view starts
 * exactly at `new_offset`, which callers round down to the page size. Returns
 * the new view, or null with a new text in *message (the old view is gone
 * either way; the handles stay open for vln_funmap). A null `mode` keeps the
 * access that the file was opened with. */
VLD_API void *vln_remap(void *view, size_t size, int handles[2], const char *path, const char *mode,
                        size_t new_size, int64_t new_offset, char **message);

/* The system's unit of mapping, read once. */
VLD_API int vln_getpagesize(void);

/* Half of the address space that is still free to this process, in bytes. */
VLD_API int64_t vln_calculate_mmmap_size(void);

VLD_END_DECLS

#endif
