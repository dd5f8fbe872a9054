/*
 * vld_raster_mapped.cpp: the mapped access to a raster dataset.
 *
 * The data file is mapped whole (or, for files too large for one view, a
 * window of it that VLD_raster_mmremap moves), and a line of a band is used
 * in place when its cells are aligned, in the host's byte order and of the
 * type asked for. Otherwise the handle's `access` says what must be done to
 * them, and VLD_raster_mmget_cells does it into the caller's line buffer.
 */
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <type_traits>

#include "vld_error_internal.h"
#include "vld_raster_internal.h"
#include "vln_fileio.h"
#include "vln_fmap.h"

using namespace vld_raster;

namespace {

constexpr int64_t kMaxView = 0xFFFFF000LL;  // the largest view a 32-bit size holds

// VLD_ERR_DATA_FILE_TOO_SHORT with the sizes printed whole: its %d would cut a size past 2 GiB.
int too_short(int64_t file_size, int64_t expected)
{
    char text[200];
    std::snprintf(text, sizeof text, "Dataset data file size (%lld) less than expected (%lld)",
                  static_cast<long long>(file_size), static_cast<long long>(expected));
    return vld_setup_error_text(VLD_ERR_DATA_FILE_TOO_SHORT, text);
}

// A remap that can't be made: VLD_ERR_CANNOT_OPEN_FILE with the system's reason.
int bad_remap(VLD_mmraster *h, int err, const char *text)
{
    errno = err;
    return VLD_setup_system_error(VLD_ERR_CANNOT_OPEN_FILE, text != nullptr ? text : h->name);
}

// Where the older platform showed a message box titled "Vorlan".
int map_failure(char *message)
{
    FILE *err = vln_ReturnStdErr();
    std::fprintf(err, "Vorlan\n%s\n", message != nullptr ? message : "");
    std::fflush(err);
    int status = VLD_setup_error(VLD_ERR_CANNOT_MMAP, message != nullptr ? message : "");
    safe_free(message);
    return status;
}

struct Request {
    int first_cell, nr_cells;
    const int *bands;
    int nr_bands;
    int cell_type;
    bool write, warp;
};

int open_mapped(VLD_mmraster **out, dshdr *d, const Request &q)
{
    if (out == nullptr || d == nullptr)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    *out = nullptr;
    const char *name = data_file_name(d);
    if (d->algorithm != nullptr)
        return VLD_setup_error(VLD_ERR_CANNOT_USE_VDS, name != nullptr ? name : "");
    if (d->data_type != DT_Raster) return VLD_setup_error(VLD_ERR_RASTER_DATASET_REQUIRED);
    Layout layout;
    if (!layout_of(d, &layout) ||
        (layout.type != DST_VLDStorage && layout.type != DST_GeoScanMk2)) {
        char text[32];
        std::snprintf(text, sizeof text, " %ld", static_cast<long>(d->dataset_type));
        return VLD_setup_error(VLD_ERR_INVALID_FILE_TYPE, text);
    }
    const rasterinfo &r = d->info.r;
    const int file_bytes = layout.cell_bytes;
    if (file_bytes <= 0)
        return VLD_setup_error(VLD_ERR_MESSAGE, "Unknown cell type in dataset header");
    if (q.write && layout.data_offset % file_bytes != 0)
        return VLD_setup_error(VLD_ERR_MMAP_HEADER_UNALIGNED, name,
                               static_cast<int>(layout.data_offset));
    if (q.first_cell < 0 || q.nr_cells < 0 || q.nr_cells > r.nr_cells - q.first_cell)
        return VLD_setup_error(VLD_ERR_CELLS_OUTSIDE_DATASET);
    if (q.nr_bands < 1)
        return VLD_setup_error(VLD_ERR_MESSAGE, "No bands requested from the dataset");
    for (int k = 0; k < q.nr_bands; k++) {
        int b = q.bands != nullptr ? q.bands[k] : k;
        if (b < 0 || b >= layout.bands) {
            char text[128];
            std::snprintf(text, sizeof text, "Band %lld not in dataset (%d bands)",
                          static_cast<long long>(b) + 1, layout.bands);
            return VLD_setup_error(VLD_ERR_MESSAGE, text);
        }
    }
    if (int status = check_32bit_sizes(layout, int64_t{file_bytes} * q.nr_cells)) return status;
    int want_type = q.cell_type != 0 ? q.cell_type : r.cell_type;
    if (celltypesize(want_type) <= 0)
        return VLD_setup_error(VLD_ERR_MESSAGE, "Unknown cell type requested");

    int64_t file_size = data_file_size(name, VLD_ERR_CANNOT_OPEN_FILE);
    if (file_size < 0) return VLD_ERR_CANNOT_OPEN_FILE;
    int64_t expected = layout.expected_size(r.nr_lines);
    if (layout.type == DST_VLDStorage && file_size < expected)
        return too_short(file_size, expected);
    int64_t size = file_size;
    if (size > kMaxView && !q.warp) {
        char text[1100];
        std::snprintf(text, sizeof text, "%s is too large to map in one view", name);
        return map_failure(strsave(text));
    }

    int handles[2] = {-1, -1};
    char *message = nullptr;
    // Datasets are read line after line: ask for read-ahead, not random access.
    const char *mode = q.write ? "w" : "s";
    void *view = nullptr;
    if (size <= kMaxView)
        view = vln_fmap(name, mode, static_cast<size_t>(size), 0, handles, &message);
    if (view == nullptr && q.warp && size > 0) {
        // A partial view from the start of the file, to be moved by remapping.
        int64_t part = vln_calculate_mmmap_size();
        part = std::min({part, size, kMaxView});
        part -= part % vln_getpagesize();
        if (part <= 0) part = std::min<int64_t>(size, vln_getpagesize());
        safe_free(message);
        message = nullptr;
        size = part;
        view = vln_fmap(name, mode, static_cast<size_t>(size), 0, handles, &message);
    }
    if (view == nullptr) return map_failure(message);

    auto *h = static_cast<VLD_mmraster *>(malloc_or_die(sizeof(VLD_mmraster)));
    std::memset(h, 0, sizeof *h);
    h->cell_type = want_type;
    h->cell_bytes = celltypesize(want_type);
    h->first_cell = q.first_cell;
    h->nr_cells = q.nr_cells;
    h->nr_bands = q.nr_bands;
    h->bands = static_cast<int32_t *>(malloc_or_die(sizeof(int32_t) * q.nr_bands));
    for (int k = 0; k < q.nr_bands; k++) h->bands[k] = q.bands != nullptr ? q.bands[k] : k;
    h->view = view;
    h->view_bytes = static_cast<uint32_t>(size);
    h->file_handle = handles[0];
    h->map_handle = handles[1];
    h->name = strsave(name);
    h->data = static_cast<unsigned char *>(view) + layout.data_offset;
    h->band_line_bytes = static_cast<int32_t>(layout.band_line_bytes);
    h->line_bytes = static_cast<int32_t>(layout.line_bytes);
    h->file_cell_type = r.cell_type;
    h->file_cell_bytes = file_bytes;
    // Kept: without a conversion the cells are offered as the file holds them,
    // so only a conversion makes a byte order difference count.
    bool convert = q.cell_type != 0;
    bool swap = convert && needs_swap(d->byte_order, file_bytes);
    bool misaligned = layout.data_offset % file_bytes != 0;
    h->access = swap ? MM_ACCESS_SWAP : misaligned ? MM_ACCESS_MISALIGNED : MM_ACCESS_IN_PLACE;
    if (convert && want_type != r.cell_type) h->access += MM_ACCESS_CONVERT;
    if (h->access == 4 || h->access == 5)
        h->conversion_buffer = malloc_or_die(static_cast<size_t>(q.nr_cells) * file_bytes + 8);
    h->view_offset = 0;
    h->view_size = static_cast<uint32_t>(size);
    *out = h;
    return 0;
}

template <typename From, typename To>
void convert_cells(const unsigned char *in, void *out, int cells)
{
    auto *to = static_cast<To *>(out);
    for (int c = 0; c < cells; c++) {
        From v;
        std::memcpy(&v, in + static_cast<size_t>(c) * sizeof(From), sizeof v);
        if constexpr (std::is_floating_point_v<To>) {
            to[c] = static_cast<To>(v);
        } else {
            double x = static_cast<double>(v);
            x = x >= 0 ? std::floor(x + 0.5) : std::ceil(x - 0.5);
            if (!(x >= static_cast<double>(std::numeric_limits<To>::min())))
                x = static_cast<double>(std::numeric_limits<To>::min());
            if (x > static_cast<double>(std::numeric_limits<To>::max()))
                x = static_cast<double>(std::numeric_limits<To>::max());
            to[c] = static_cast<To>(x);
        }
    }
}

template <typename From>
void convert_from(const unsigned char *in, int to_type, void *out, int cells)
{
    switch (to_type) {
        case Unsigned8BitInteger:
            return convert_cells<From, uint8_t>(in, out, cells);
        case Unsigned16BitInteger:
            return convert_cells<From, uint16_t>(in, out, cells);
        case Unsigned32BitInteger:
            return convert_cells<From, uint32_t>(in, out, cells);
        case Signed8BitInteger:
            return convert_cells<From, int8_t>(in, out, cells);
        case Signed16BitInteger:
            return convert_cells<From, int16_t>(in, out, cells);
        case Signed32BitInteger:
            return convert_cells<From, int32_t>(in, out, cells);
        case IEEE4ByteReal:
            return convert_cells<From, float>(in, out, cells);
        case IEEE8ByteReal:
            return convert_cells<From, double>(in, out, cells);
        default:
            break;
    }
}

void convert(const unsigned char *in, int from_type, int to_type, void *out, int cells)
{
    switch (from_type) {
        case Unsigned8BitInteger:
            return convert_from<uint8_t>(in, to_type, out, cells);
        case Unsigned16BitInteger:
            return convert_from<uint16_t>(in, to_type, out, cells);
        case Unsigned32BitInteger:
            return convert_from<uint32_t>(in, to_type, out, cells);
        case Signed8BitInteger:
            return convert_from<int8_t>(in, to_type, out, cells);
        case Signed16BitInteger:
            return convert_from<int16_t>(in, to_type, out, cells);
        case Signed32BitInteger:
            return convert_from<int32_t>(in, to_type, out, cells);
        case IEEE4ByteReal:
            return convert_from<float>(in, to_type, out, cells);
        case IEEE8ByteReal:
            return convert_from<double>(in, to_type, out, cells);
        default:
            break;
    }
}

}  // namespace

int VLD_raster_mmopen(VLD_mmraster **handle, dshdr *header, int first_cell, int nr_cells,
                      const int *bands, int nr_bands, int cell_type)
{
    return open_mapped(handle, header,
                       {first_cell, nr_cells, bands, nr_bands, cell_type, false, false});
}

int VLD_raster_mmopen_rw(VLD_mmraster **handle, dshdr *header)
{
    if (header == nullptr) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    const rasterinfo &r = header->info.r;
    return open_mapped(handle, header,
                       {0, r.nr_cells, nullptr, r.nr_bands > 0 ? r.nr_bands : 1, 0, true, false});
}

int VLD_warp_raster_mmopen(VLD_mmraster **handle, dshdr *header, int first_cell, int nr_cells,
                           const int *bands, int nr_bands, int cell_type)
{
    return open_mapped(handle, header,
                       {first_cell, nr_cells, bands, nr_bands, cell_type, false, true});
}

int VLD_raster_mmremap(VLD_mmraster *handle, dshdr *header, int32_t offset_low, int32_t offset_high,
                       uint32_t size)
{
    if (handle == nullptr || header == nullptr)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    int64_t offset =
        static_cast<int64_t>((static_cast<uint64_t>(static_cast<uint32_t>(offset_high)) << 32) |
                             static_cast<uint32_t>(offset_low));
    // An offset with the top bit set (-1, -1 among them) or an empty view is
    // no place in a file: refused like any view that can't be made.
    int refused_errno = offset < 0 || size == 0 ? EINVAL : 0;
    // Line 0's address in the view, kept across the move as plain arithmetic.
    uintptr_t line0 = reinterpret_cast<uintptr_t>(handle->data) -
                      reinterpret_cast<uintptr_t>(handle->view) +
                      static_cast<uintptr_t>(handle->view_offset);
    int64_t aligned = offset - offset % vln_getpagesize();
    size_t bytes = static_cast<size_t>(size) + static_cast<size_t>(offset - aligned);
    int handles[2] = {handle->file_handle, handle->map_handle};
    char *message = nullptr;
    if (refused_errno == 0 && bytes > static_cast<size_t>(kMaxView)) refused_errno = EFBIG;
    void *view = refused_errno != 0 ? nullptr
                                    : vln_remap(handle->view, handle->view_size, handles,
                                                handle->name, nullptr, bytes, aligned, &message);
    if (refused_errno != 0 && handle->view != nullptr) {
        int dropped[2] = {-1, -1};  // unmap only: the file stays open
        vln_funmap(handle->view, handle->view_size, dropped, 0, nullptr);
    }
    handle->file_handle = handles[0];
    handle->map_handle = handles[1];
    if (view == nullptr) {
        handle->view = nullptr;
        handle->data = nullptr;
        handle->view_bytes = handle->view_size = 0;
        handle->view_offset = 0;
        // vln_remap leaves errno saying why it failed.
        int status = bad_remap(handle, refused_errno != 0 ? refused_errno : errno, message);
        safe_free(message);
        return status;
    }
    handle->view = view;
    handle->view_offset = aligned;
    handle->view_bytes = handle->view_size = static_cast<uint32_t>(bytes);
    handle->data = reinterpret_cast<unsigned char *>(reinterpret_cast<uintptr_t>(view) + line0 -
                                                     static_cast<uintptr_t>(aligned));
    return 0;
}

int VLD_raster_mmclose(VLD_mmraster **handle)
{
    if (handle == nullptr || *handle == nullptr) return 0;
    VLD_mmraster *h = *handle;
    safe_free(h->bands);
    int handles[2] = {h->file_handle, h->map_handle};
    char *message = nullptr;
    int status = 0;
    if (!vln_funmap(h->view, h->view_size, handles, 0, &message))
        status = VLD_setup_system_error(VLD_ERR_CANNOT_MUNMAP, message != nullptr ? message : "");
    safe_free(message);
    safe_free(h->name);
    safe_free(h->conversion_buffer);
    safe_free(h);
    *handle = nullptr;
    return status;
}

int VLD_raster_mmsetup_buf(VLD_mmraster *handle, void **buffer)
{
    if (handle == nullptr || buffer == nullptr)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    *buffer = handle->access != MM_ACCESS_IN_PLACE
                  ? malloc_or_die(static_cast<size_t>(handle->nr_cells) * handle->cell_bytes + 8)
                  : nullptr;
    return 0;
}

int VLD_raster_mmfree_buf(VLD_mmraster *, void **buffer)
{
    if (buffer != nullptr) {
        safe_free(*buffer);
        *buffer = nullptr;
    }
    return 0;
}

int VLD_raster_mmsetup_buf_array(VLD_mmraster *handle, void ***buffers)
{
    if (handle == nullptr || buffers == nullptr)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    auto **array = static_cast<void **>(malloc_or_die(sizeof(void *) * handle->nr_bands));
    for (int k = 0; k < handle->nr_bands; k++) VLD_raster_mmsetup_buf(handle, &array[k]);
    *buffers = array;
    return 0;
}

int VLD_raster_mmfree_buf_array(VLD_mmraster *handle, void ***buffers)
{
    if (handle == nullptr || buffers == nullptr || *buffers == nullptr) return 0;
    for (int k = 0; k < handle->nr_bands; k++) VLD_raster_mmfree_buf(handle, &(*buffers)[k]);
    safe_free(*buffers);
    *buffers = nullptr;
    return 0;
}

const void *VLD_raster_mmget_cells(VLD_mmraster *h, int line, int band_index, void *buffer)
{
    if (h == nullptr || h->view == nullptr || band_index < 0 || band_index >= h->nr_bands) {
        VLD_setup_error(VLD_ERR_INTERNAL, "Mapped dataset not open, or band not in it");
        return nullptr;
    }
    if (line < 0) {
        VLD_setup_error(VLD_ERR_LINES_OUTSIDE_DATASET);
        return nullptr;
    }
    int64_t header_offset = static_cast<int64_t>(reinterpret_cast<uintptr_t>(h->data) -
                                                 reinterpret_cast<uintptr_t>(h->view)) +
                            h->view_offset;
    int64_t bytes = static_cast<int64_t>(h->nr_cells) * h->file_cell_bytes;
    int64_t at = header_offset + static_cast<int64_t>(line) * h->line_bytes +
                 static_cast<int64_t>(h->bands[band_index]) * h->band_line_bytes +
                 static_cast<int64_t>(h->first_cell) * h->file_cell_bytes;
    if (at < h->view_offset || at + bytes > h->view_offset + static_cast<int64_t>(h->view_size)) {
        VLD_setup_error(VLD_ERR_LINES_OUTSIDE_DATASET);
        return nullptr;
    }
    // The view was checked against the file when it was mapped, but the file
    // may have shrunk since; touching mapped bytes past its end would raise
    // SIGBUS. (Cells handed out in place stay the caller's to touch.)
    if (at + bytes > vln_fdsize64(h->file_handle)) {
        VLD_setup_error(VLD_ERR_CANNOT_READ_FILE, h->name);
        return nullptr;
    }
    const unsigned char *cells =
        static_cast<const unsigned char *>(h->view) + (at - h->view_offset);
    if (h->access == MM_ACCESS_IN_PLACE) return cells;
    if (buffer == nullptr) {
        VLD_setup_error(VLD_ERR_INTERNAL, "No line buffer for a mapped dataset that needs one");
        return nullptr;
    }
    int base = h->access % MM_ACCESS_CONVERT;
    bool convert_type = h->access >= MM_ACCESS_CONVERT;
    if (!convert_type) {
        std::memcpy(buffer, cells, static_cast<size_t>(bytes));
        if (base == MM_ACCESS_SWAP) swap_bytes(buffer, h->nr_cells, h->file_cell_bytes);
        return buffer;
    }
    const unsigned char *source = cells;
    if (base != MM_ACCESS_IN_PLACE) {
        std::memcpy(h->conversion_buffer, cells, static_cast<size_t>(bytes));
        if (base == MM_ACCESS_SWAP)
            swap_bytes(h->conversion_buffer, h->nr_cells, h->file_cell_bytes);
        source = static_cast<const unsigned char *>(h->conversion_buffer);
    }
    convert(source, h->file_cell_type, h->cell_type, buffer, h->nr_cells);
    return buffer;
}
