/*
 * vld_raster_read.cpp: the line readers.
 *
 * A reader fills one buffer per band of the window with the window's cells of
 * the lines asked for, in the host's byte order. The native readers read each
 * band-line straight into the caller's buffer (one positioned read per band
 * and line, or one gathering read per line when the window's bands are whole
 * and consecutive); the "reverse" forms swap the bytes of each line after it
 * is read. The IFUT and AImage readers go through the handle's work buffer.
 * Nothing is allocated here.
 */
#include <cerrno>
#include <cstring>

#include "vld_raster_internal.h"
#include "vln_fileio.h"

using namespace vld_raster;

namespace {

int check_request(const rasterfile *h, void **buffers, int first_line, int nr_lines)
{
    if (h == nullptr || buffers == nullptr || h->fd < 0 || h->bands == nullptr)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Raster handle not open for reading");
    if (first_line < h->first_line || nr_lines < 0 ||
        nr_lines > h->first_line + h->nr_lines - first_line)
        return VLD_setup_error(VLD_ERR_LINES_OUTSIDE_DATASET);
    for (int k = 0; k < h->nr_bands; k++)
        if (buffers[k] == nullptr) return VLD_setup_error(VLD_ERR_INTERNAL, "Null band buffer");
    return 0;
}

// The row of a read that gave `got` bytes of `wanted`.
int read_failure(const rasterfile *h, int64_t got)
{
    if (got < 0 && (errno == EINVAL || errno == ESPIPE))
        return VLD_setup_error(VLD_ERR_CANNOT_SEEK_FILE, h->name);
    return VLD_setup_error(VLD_ERR_CANNOT_READ_FILE, h->name);
}

Layout layout_of_handle(const rasterfile *h)
{
    Layout l;
    l.type = h->dshdr->dataset_type;
    l.data_offset = h->data_offset;
    l.band_line_bytes = h->band_line_bytes;
    l.line_bytes = h->line_bytes;
    l.bands = h->file_bands;
    l.cells = h->file_cells;
    l.cell_bytes = h->cell_bytes;
    return l;
}

// Whether the window's bands stand one after another in each file line, so
// that a line can be read with one gathering call.
bool bands_contiguous(const rasterfile *h)
{
    if (h->nr_cells != h->file_cells || h->nr_bands > 64) return false;
    for (int k = 1; k < h->nr_bands; k++)
        if (h->bands[k] != h->bands[k - 1] + 1) return false;
    return true;
}

// Kept: a list reader puts every line at the start of its band's buffer;
// callers of the list form read one line at a time.
template <bool Swap, bool AdvanceLines>
int read_native(rasterfile *h, void **buffers, int first_line, int nr_lines)
{
    if (int status = check_request(h, buffers, first_line, nr_lines)) return status;
    const Layout layout = layout_of_handle(h);
    const int64_t bytes = h->bytes_per_request;
    const bool gather = bands_contiguous(h);
    for (int i = 0; i < nr_lines; i++) {
        const int64_t line = first_line + i;
        const int64_t advance = AdvanceLines ? i * bytes : 0;
        if (gather) {
            void *targets[64];
            for (int k = 0; k < h->nr_bands; k++)
                targets[k] = static_cast<char *>(buffers[k]) + advance;
            int64_t at = layout.position(line, h->bands[0], h->first_cell);
            int64_t got = vln_preadv64(h->fd, targets, h->nr_bands, bytes, at);
            if (got != bytes * h->nr_bands) return read_failure(h, got);
        } else {
            for (int k = 0; k < h->nr_bands; k++) {
                char *target = static_cast<char *>(buffers[k]) + advance;
                int64_t at = layout.position(line, h->bands[k], h->first_cell);
                int64_t got = vln_pread64(h->fd, target, bytes, at);
                if (got != bytes) return read_failure(h, got);
            }
        }
        if constexpr (Swap)
            for (int k = 0; k < h->nr_bands; k++)
                swap_bytes(static_cast<char *>(buffers[k]) + advance, h->nr_cells, h->cell_bytes);
    }
    return 0;
}

// Picks band `band` out of a line whose cells hold all `bands` bands together.
template <typename Cell>
void pick_band(const unsigned char *line, unsigned char *out, int cells, int bands, int band)
{
    const Cell *in = reinterpret_cast<const Cell *>(line);
    Cell *to = reinterpret_cast<Cell *>(out);
    for (int c = 0; c < cells; c++) std::memcpy(&to[c], &in[c * bands + band], sizeof(Cell));
}

void pick_band_bytes(const unsigned char *line, unsigned char *out, int cells, int bands, int band,
                     int cell_bytes)
{
    switch (cell_bytes) {
        case 1:
            return pick_band<uint8_t>(line, out, cells, bands, band);
        case 2:
            return pick_band<uint16_t>(line, out, cells, bands, band);
        case 4:
            return pick_band<uint32_t>(line, out, cells, bands, band);
        case 8:
            return pick_band<uint64_t>(line, out, cells, bands, band);
        default:
            for (int c = 0; c < cells; c++)
                std::memcpy(out + c * cell_bytes, line + (c * bands + band) * cell_bytes,
                            static_cast<size_t>(cell_bytes));
    }
}

}  // namespace

int rd_vld_range(rasterfile *handle, void **buffers, int first_line, int nr_lines)
{
    return read_native<false, true>(handle, buffers, first_line, nr_lines);
}

int rd_vld_range_reverse(rasterfile *handle, void **buffers, int first_line, int nr_lines)
{
    return read_native<true, true>(handle, buffers, first_line, nr_lines);
}

int rd_vld_list(rasterfile *handle, void **buffers, int first_line, int nr_lines)
{
    return read_native<false, false>(handle, buffers, first_line, nr_lines);
}

int rd_vld_list_reverse(rasterfile *handle, void **buffers, int first_line, int nr_lines)
{
    return read_native<true, false>(handle, buffers, first_line, nr_lines);
}

// IFUT: whole 32-bit words, swapped, then the window's bytes copied out.
int vld_raster::rd_ifut(rasterfile *h, void **buffers, int first_line, int nr_lines)
{
    if (int status = check_request(h, buffers, first_line, nr_lines)) return status;
    const Layout layout = layout_of_handle(h);
    const int64_t bytes = h->bytes_per_request;
    for (int i = 0; i < nr_lines; i++) {
        for (int k = 0; k < h->nr_bands; k++) {
            char *target = static_cast<char *>(buffers[k]) + i * bytes;
            int64_t at = layout.position(first_line + i, h->bands[k], h->first_cell);
            int64_t got = h->word_swap != nullptr ? read_ifut(h, at, bytes, target, h->buffer)
                                                  : vln_pread64(h->fd, target, bytes, at);
            if (got != bytes) return read_failure(h, got);
            if (h->swap) swap_bytes(target, h->nr_cells, h->cell_bytes);
        }
    }
    return 0;
}

// AImage: the window's cells of all bands in one read, then picked apart.
int vld_raster::rd_aimage(rasterfile *h, void **buffers, int first_line, int nr_lines)
{
    if (int status = check_request(h, buffers, first_line, nr_lines)) return status;
    const Layout layout = layout_of_handle(h);
    const int64_t bytes = h->bytes_per_request;
    const int64_t all_bands = bytes * h->file_bands;
    auto *line_buffer = static_cast<unsigned char *>(h->buffer);
    for (int i = 0; i < nr_lines; i++) {
        int64_t at = layout.position(first_line + i, 0, h->first_cell);
        int64_t got = vln_pread64(h->fd, line_buffer, all_bands, at);
        if (got != all_bands) return read_failure(h, got);
        for (int k = 0; k < h->nr_bands; k++) {
            auto *target = static_cast<unsigned char *>(buffers[k]) + i * bytes;
            pick_band_bytes(line_buffer, target, h->nr_cells, h->file_bands, h->bands[k],
                            h->cell_bytes);
            if (h->swap) swap_bytes(target, h->nr_cells, h->cell_bytes);
        }
    }
    return 0;
}
