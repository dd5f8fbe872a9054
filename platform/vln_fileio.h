/*
 * vln_fileio.h: plain file access with 64-bit offsets, and file-system figures.
 *
 * The raster readers and writers go through these rather than the system
 * directly. Reads and writes loop over interruptions and short transfers, so
 * that a byte count below the one asked for means the end of the file (or an
 * error). Positions are 64-bit: a data file may exceed 2 GiB.
 */
#ifndef VORLAN_VLN_FILEIO_H
#define VORLAN_VLN_FILEIO_H

#include <stddef.h>
#include <stdint.h>

#include "vld_core.h"

VLD_BEGIN_DECLS

/* Opens `path` with open(2) flags (close-on-exec is added) and permissions;
 * returns the descriptor or -1. */
VLD_API int vln_open(const char *path, int flags, int mode);
/* What vln_open_data gives for a path that names anything but a regular file. */
#define VLN_NOT_REGULAR (-2)

/* Opens a data file as vln_open does, but only a regular file: a directory, a
 * FIFO, a socket or a device is refused with VLN_NOT_REGULAR (errno EISDIR for
 * a directory, else ENODEV) without waiting on it, since the open itself is
 * made without blocking and the kind is read from the opened descriptor.
 * Returns the descriptor, in blocking mode, or -1 with errno. */
VLD_API int vln_open_data(const char *path, int flags, int mode);
/* Closes a descriptor; 0, or -1 on failure. */
VLD_API int vln_close(int fd);

/* Reads up to `length` bytes at the current position; the count read (short
 * only at the end of the file), or -1. */
VLD_API int64_t vln_read(int fd, void *buffer, int64_t length);
/* Writes `length` bytes at the current position; the count, or -1. */
VLD_API int64_t vln_write(int fd, const void *buffer, int64_t length);
/* Reads up to `length` bytes at `offset` without moving the position. */
VLD_API int64_t vln_pread64(int fd, void *buffer, int64_t length, int64_t offset);
/* Reads `count` consecutive pieces of `each` bytes from `offset` into
 * buffers[0..count-1] in one call where it can; the total count read, or -1. */
VLD_API int64_t vln_preadv64(int fd, void *const *buffers, int count, int64_t each, int64_t offset);

/* Seeks to the offset made of two 32-bit halves, relative to `whence`
 * (SEEK_SET, SEEK_CUR, SEEK_END); the new position, or -1. */
VLD_API int64_t vln_lseek64(int fd, int32_t low, int32_t high, int whence);
/* The current position, or -1. */
VLD_API int64_t vln_tell64(int fd);

/* The size of a file in bytes, or -1 when it can't be read (a directory
 * counts as failure). */
VLD_API int64_t vln_filesize64(const char *path);
/* The size of an open file, or -1. */
VLD_API int64_t vln_fdsize64(int fd);

/* Writes a file's data through to the disk; 0, or -1 with errno. */
VLD_API int vln_fsync(int fd);

/* The time a file was last modified, in seconds since 1970, or -1 when it
 * can't be read. */
VLD_API int64_t vln_file_mtime(const char *path);

/* Free blocks available to the caller, and the size of one block, on the file
 * system that holds `path`. 0, or VLD_ERR_STATFS_NULL_SPEC (null path) or VLD_ERR_STATFS_FAILED. */
VLD_API int vln_statfs(const char *path, int64_t *free_blocks, int64_t *block_size);

/* ---------------------------------------------------------------- replacing a file
 *
 * A file is replaced safely by writing a temporary file beside it and renaming
 * that over it once everything was written: a failure at any step leaves the
 * old file as it was, and removes the temporary file. A path that is a
 * symbolic link is followed, so that the file it points to is replaced and
 * the link stays; the new file keeps the old one's permissions (and owner,
 * where the caller may set it). */
typedef struct vln_replacement {
    int fd;       /* the temporary file, open for writing; -1 once closed */
    char *temp;   /* its name */
    char *target; /* the file to replace: the path with its links followed */
} vln_replacement;

/* The file that `path` names once symbolic links are followed, as a new
 * string; `path` itself when it is no link, and the end of a chain that leads
 * nowhere (the file a write would create). Null for a null path or a loop. */
VLD_API char *vln_resolve_links(const char *path);

/* Starts replacing `path`: creates the temporary file, named "tmp" with the
 * process number and a counter, in the target's folder, with the target's
 * permissions or, for a new file, `mode` less the umask. 0, or -1 with errno,
 * and then *r holds nothing. */
VLD_API int vln_replace_begin(vln_replacement *r, const char *path, int mode);
/* Writes the temporary file through to the disk and closes it. A caller that
 * closed the descriptor itself (after vln_fsync) sets fd to -1 first. 0, or -1
 * with errno. */
VLD_API int vln_replace_close(vln_replacement *r);
/* Closes the temporary file (see vln_replace_close) and renames it over the
 * target. 0, or -1 with errno; on failure the temporary file is removed and
 * the target is untouched. Either way *r is emptied. */
VLD_API int vln_replace_commit(vln_replacement *r);
/* Gives up: closes and removes the temporary file, and empties *r. */
VLD_API void vln_replace_abandon(vln_replacement *r);

VLD_END_DECLS

#endif
