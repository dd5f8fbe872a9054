/*
 * vld_raster_sizes.cpp: file sizes, free disk space, and mappings of a whole
 * data file for the statistics and copy paths.
 *
 * Sizes are 64-bit underneath; the 32-bit forms are kept for callers that
 * print them. A mapping record holds what those paths need to walk lines
 * without the header: the view, its place in the file, and the line sizes.
 */
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "vld_raster_internal.h"
#include "vln_fileio.h"
#include "vln_fmap.h"
#include "vln_path.h"
#include "vln_thread.h"

using namespace vld_raster;

int64_t VLD_filesize_in_bytes64(const char *path)
{
    return vln_filesize64(path);
}

int VLD_filesize_in_bytes(const char *path)
{
    int64_t size = vln_filesize64(path);
    if (size < 0 || size > std::numeric_limits<int>::max()) return -1;
    return static_cast<int>(size);
}

int VLD_filesize_in_blocks(const char *path)
{
    int64_t size = vln_filesize64(path);
    if (size < 0) return -1;
    int64_t free_blocks = 0, block_size = 0;
    if (vln_statfs(path, &free_blocks, &block_size) != 0 || block_size <= 0) return -1;
    int64_t blocks = (size + block_size - 1) / block_size;
    return blocks > std::numeric_limits<int>::max() ? std::numeric_limits<int>::max()
                                                    : static_cast<int>(blocks);
}

int enough_diskspace_for_dataset(dshdr *header, char **message)
{
    if (message != nullptr) *message = nullptr;
    if (header == nullptr || header->name == nullptr) {
        if (message != nullptr) *message = strsave("No dataset header given");
        return 0;
    }
    char *dir = VLN_get_dirname(header->name);
    int64_t free_blocks = 0, block_size = 0;
    int status = vln_statfs(dir != nullptr && *dir != '\0' ? dir : ".", &free_blocks, &block_size);
    safe_free(dir);
    if (status != 0 || block_size <= 0) {
        if (message != nullptr) *message = strsave(VLD_error_text());
        return 0;
    }
    // The present files will be replaced, so their blocks count as free.
    int64_t existing = 0;
    for (const char *file : {static_cast<const char *>(header->name), data_file_name(header)}) {
        int64_t size = file != nullptr ? vln_filesize64(file) : -1;
        if (size > 0) existing += (size + block_size - 1) / block_size;
    }
    const rasterinfo &r = header->info.r;
    double cells = static_cast<double>(r.nr_lines) * (r.nr_bands > 0 ? r.nr_bands : 1) * r.nr_cells;
    int cell_bytes = celltypesize(r.cell_type);
    int64_t needed = static_cast<int64_t>(
        std::ceil(cells / static_cast<double>(block_size) * (cell_bytes > 0 ? cell_bytes : 1)));
    needed += (2048 + block_size - 1) / block_size;
    if (free_blocks + existing < needed) {
        if (message != nullptr) {
            char text[128];
            auto clamp = [](int64_t v) {
                return v > std::numeric_limits<int>::max() ? std::numeric_limits<int>::max()
                                                           : static_cast<int>(v);
            };
            std::snprintf(text, sizeof text,
                          "Not enough disk space (%d blocks needed, %d available)", clamp(needed),
                          clamp(free_blocks + existing));
            *message = strsave(text);
        }
        return 0;
    }
    return 1;
}

namespace {

void set_message(char **message, const char *text)
{
    if (message != nullptr && *message == nullptr) *message = strsave(text);
}

VLD_mmdataset *map_range(dshdr *d, char **message, const char *mode, int64_t offset, int64_t length,
                         bool check_size)
{
    if (message != nullptr) *message = nullptr;
    Layout layout;
    if (d == nullptr || d->data_type != DT_Raster || !layout_of(d, &layout)) {
        set_message(message, "Dataset is not a raster with a data file of its own");
        return nullptr;
    }
    if (check_32bit_sizes(layout, 0) != 0) {
        set_message(message, VLD_error_text());
        return nullptr;
    }
    const char *name = data_file_name(d);
    int64_t file_size = vln_filesize64(name);
    char text[1100];
    if (file_size < 0) {
        std::snprintf(text, sizeof text, "vln_fmap() failed - Cannot open %s", name ? name : "");
        set_message(message, text);
        return nullptr;
    }
    int64_t expected = layout.expected_size(d->info.r.nr_lines);
    if (check_size && file_size < expected) {
        std::snprintf(text, sizeof text, "Dataset size (%lld) < expected size (%lld).",
                      static_cast<long long>(file_size), static_cast<long long>(expected));
        set_message(message, text);
        return nullptr;
    }
    if (length < 0) length = file_size - offset;
    int handles[2] = {-1, -1};
    void *view = vln_fmap(name, mode != nullptr ? mode : "", static_cast<size_t>(length), offset,
                          handles, message);
    if (view == nullptr) return nullptr;
    auto *rec = static_cast<VLD_mmdataset *>(malloc_or_die(sizeof(VLD_mmdataset)));
    rec->file_handle = handles[0];
    rec->map_handle = handles[1];
    rec->offset = offset;
    rec->length = length;
    rec->file_size = file_size;
    rec->view = view;
    rec->header_offset = static_cast<int32_t>(layout.data_offset);
    rec->band_line_bytes = static_cast<int32_t>(layout.band_line_bytes);
    rec->line_bytes = static_cast<int32_t>(layout.line_bytes);
    rec->cell_bytes = layout.cell_bytes;
    return rec;
}

}  // namespace

VLD_mmdataset *mmap_dataset(dshdr *header, char **message, const char *mode)
{
    return map_range(header, message, mode, 0, -1, true);
}

VLD_mmdataset *mmap_dataset_len(dshdr *header, char **message, const char *mode, int64_t offset,
                                int64_t length)
{
    return map_range(header, message, mode, offset, length, false);
}

VLD_mmdataset *mmap_dataset_1_byte(dshdr *header, char **message, const char *mode)
{
    return map_range(header, message, mode, 0, 1, false);
}

VLD_mmdataset *mmap_dataset_with_limits(dshdr *header, char **message, const char *mode,
                                        int64_t offset, int start, int end, int64_t limit)
{
    if (message != nullptr) *message = nullptr;
    Layout layout;
    if (header == nullptr || header->data_type != DT_Raster || !layout_of(header, &layout)) {
        set_message(message, "Dataset is not a raster with a data file of its own");
        return nullptr;
    }
    if (start < 0 || end > header->info.r.nr_lines || start >= end || offset < 0 ||
        offset >= static_cast<int64_t>(end - start) * layout.line_bytes) {
        set_message(message, "Lines specified are outside dataset range");
        return nullptr;
    }
    int64_t begin = layout.data_offset + static_cast<int64_t>(start) * layout.line_bytes + offset;
    int64_t length = static_cast<int64_t>(end - start) * layout.line_bytes - offset;
    if (limit > 0 && length > limit) length = limit;
    return map_range(header, message, mode, begin, length, false);
}

int munmap_dataset(VLD_mmdataset *record, char **message)
{
    if (message != nullptr) *message = nullptr;
    if (record == nullptr) return 1;
    int handles[2] = {record->file_handle, record->map_handle};
    int ok = vln_funmap(record->view, static_cast<size_t>(record->length), handles, 0, message);
    safe_free(record);
    return ok;
}

int64_t mmap_calculate_limit(int n)
{
    constexpr int64_t kMax = int64_t{32} << 20;
    if (n < 1) return kMax;
    int64_t free_memory = vln_availmem();
    if (free_memory < (int64_t{10} << 20)) return 0;
    return std::min(kMax, free_memory / 2 / n);
}
