/*
 * vld_raster_write.cpp: writing lines of a raster dataset.
 *
 * Writers put the caller's bytes in the file as they are, band-line after
 * band-line, at the current position (or at a position the caller names).
 * They neither swap nor pad: a caller writing the other byte order supplies
 * its cells in that order.
 *
 * The file written is a temporary one beside the data file, which replaces
 * the data file when the handle is closed, and only when every write went
 * well: a full disk never leaves half a dataset where a whole one stood.
 */
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <unordered_map>

#include "vld_raster_internal.h"
#include "vln_fileio.h"
#include "vln_guard_internal.h"

namespace {

int check_writer(const rasterfile *h)
{
    if (h == nullptr || h->fd < 0)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Raster handle not open for writing");
    return 0;
}

int write_failure(const rasterfile *h)
{
    vld_raster::spoil_data_file(h->fd);
    char text[1100];
    std::snprintf(text, sizeof text, "Cannot write to file \"%s\"", h->name ? h->name : "");
    win32_error(1, text);
    return VLD_setup_error(VLD_ERR_CANNOT_WRITE_FILE, h->name ? h->name : "");
}

// A failed seek spoils the file as a failed write does.
int seek_failure(const rasterfile *h)
{
    vld_raster::spoil_data_file(h->fd);
    return VLD_setup_error(VLD_ERR_CANNOT_SEEK_FILE, h->name);
}

int64_t seek(int fd, int64_t offset, int whence)
{
    auto bits = static_cast<uint64_t>(offset);
    return vln_lseek64(fd, static_cast<int32_t>(bits & 0xffffffffu),
                       static_cast<int32_t>(bits >> 32), whence);
}

int64_t band_line_bytes(const rasterfile *h)
{
    return static_cast<int64_t>(h->file_cells) * h->cell_bytes;
}

struct Pending {
    vln_replacement replacement;
    bool spoiled = false;
};

vln_mutex pending_lock;
std::unordered_map<int, Pending> pending;  // by the descriptor written to

}  // namespace

namespace vld_raster {

int begin_data_file(const char *name)
{
    vln_replacement r;
    if (vln_replace_begin(&r, name, 0644) != 0)
        return (VLD_setup_system_error(VLD_ERR_CANNOT_CREATE_FILE, name), -1);
    vln::Guard guard(&pending_lock);
    pending[r.fd] = Pending{r, false};
    return r.fd;
}

void spoil_data_file(int fd)
{
    vln::Guard guard(&pending_lock);
    auto it = pending.find(fd);
    if (it != pending.end()) it->second.spoiled = true;
}

bool end_data_file(int fd, const char *name, int *status)
{
    Pending p;
    {
        vln::Guard guard(&pending_lock);
        auto it = pending.find(fd);
        if (it == pending.end()) return false;
        p = it->second;
        pending.erase(it);
    }
    *status = 0;
    if (p.spoiled) {
        // The failed write has been reported; the old file stays as it was.
        vln_replace_abandon(&p.replacement);
        *status = VLD_setup_error(VLD_ERR_CANNOT_WRITE_FILE, name);
    } else if (vln_replace_close(&p.replacement) != 0) {
        vln_replace_abandon(&p.replacement);
        *status = VLD_setup_system_error(VLD_ERR_CANNOT_CLOSE_FILE, name);
    } else if (vln_replace_commit(&p.replacement) != 0) {
        *status = VLD_setup_system_error(VLD_ERR_CANNOT_RENAME_FILE, name);
    }
    return true;
}

}  // namespace vld_raster

int ep_raster(rasterfile *handle, void **buffers, int nr_lines)
{
    if (int status = check_writer(handle)) return status;
    if (buffers == nullptr) return VLD_setup_error(VLD_ERR_INTERNAL, "Null band buffers");
    const int64_t bytes = band_line_bytes(handle);
    for (int i = 0; i < nr_lines; i++)
        for (int b = 0; b < handle->nr_bands; b++) {
            if (buffers[b] == nullptr) return VLD_setup_error(VLD_ERR_INTERNAL, "Null band buffer");
            const char *from = static_cast<const char *>(buffers[b]) + i * bytes;
            if (vln_write(handle->fd, from, bytes) != bytes) return write_failure(handle);
        }
    return 0;
}

int ep_raster_1band(rasterfile *handle, void *buffer, int nr_lines, int band)
{
    if (int status = check_writer(handle)) return status;
    if (buffer == nullptr || band < 0 || band >= handle->nr_bands)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Bad band or buffer for a one-band write");
    const int64_t bytes = band_line_bytes(handle);
    const int64_t before = band * bytes;
    const int64_t after = (handle->nr_bands - band - 1) * bytes;
    for (int i = 0; i < nr_lines; i++) {
        if (before != 0 && seek(handle->fd, before, SEEK_CUR) < 0) return seek_failure(handle);
        const char *from = static_cast<const char *>(buffer) + i * bytes;
        if (vln_write(handle->fd, from, bytes) != bytes) return write_failure(handle);
        if (after != 0 && seek(handle->fd, after, SEEK_CUR) < 0) return seek_failure(handle);
    }
    return 0;
}

int ep_raster_1band_1line(rasterfile *handle, void **buffer, int band, int line)
{
    if (int status = check_writer(handle)) return status;
    if (buffer == nullptr || *buffer == nullptr || band < 0 || band >= handle->nr_bands || line < 0)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Bad band, line or buffer for a one-line write");
    const int64_t bytes = band_line_bytes(handle);
    // Kept: the header offset isn't part of this position.
    const int64_t at = (static_cast<int64_t>(line) * handle->nr_bands + band) * bytes;
    if (seek(handle->fd, at, SEEK_SET) != at) return seek_failure(handle);
    if (vln_write(handle->fd, *buffer, bytes) != bytes) return write_failure(handle);
    return 0;
}

int ep_seek_raster(rasterfile *handle, void **buffers, int nr_lines, int32_t position_low,
                   int32_t position_high)
{
    if (int status = check_writer(handle)) return status;
    int64_t want =
        static_cast<int64_t>((static_cast<uint64_t>(static_cast<uint32_t>(position_high)) << 32) |
                             static_cast<uint32_t>(position_low));
    if (vln_lseek64(handle->fd, position_low, position_high, SEEK_SET) < want)
        return seek_failure(handle);
    return ep_raster(handle, buffers, nr_lines);
}
