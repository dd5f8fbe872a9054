/*
 * vld_raster_layout.cpp: the storage layouts of raster data, and small helpers
 * of the raster sources (byte order, null bytes, cell stores, IFUT words).
 *
 * VLDStorage is band interleaved by line after the header offset; GeoScanMk2
 * is the same after 256 bytes. IFUT pads each band-line to at least 512 bytes
 * and then to a whole number of 32-bit words, starts its data one band-line
 * per band plus one in, and stores its words in the other byte order. AImage
 * keeps the bands of a cell together, after 52 bytes.
 */
#include <fcntl.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <type_traits>

#include "vld_raster_internal.h"
#include "vln_fileio.h"
#include "vln_path.h"

namespace vld_raster {

bool layout_of(const dshdr *header, Layout *layout)
{
    const rasterinfo &r = header->info.r;
    Layout l;
    l.type = header->dataset_type;
    l.bands = r.nr_bands > 0 ? r.nr_bands : 1;
    l.cells = r.nr_cells;
    l.cell_bytes = celltypesize(r.cell_type);
    int64_t band_line = static_cast<int64_t>(l.cells) * l.cell_bytes;
    switch (l.type) {
        case DST_VLDStorage:
        case DST_Translated:
            l.data_offset = header->header_offset;
            break;
        case DST_GeoScanMk2:
            l.data_offset = kGeoScanOffset;
            break;
        case DST_AImage:
            l.data_offset = kAImageOffset;
            break;
        case DST_IFUT:
            band_line = band_line < 512 ? 512 : band_line;
            band_line = (band_line + 3) / 4 * 4;
            l.data_offset = band_line * (l.bands + 1);
            break;
        default:
            return false;
    }
    l.band_line_bytes = band_line;
    l.line_bytes = band_line * l.bands;
    *layout = l;
    return true;
}

int check_32bit_sizes(const Layout &layout, int64_t request_bytes)
{
    constexpr int64_t kMax = std::numeric_limits<int32_t>::max();
    const struct {
        int64_t value;
        const char *what;
    } sizes[] = {
        {layout.band_line_bytes, "one band of a line"},
        {layout.line_bytes, "one line"},
        {layout.data_offset, "the data offset"},
        {request_bytes, "one band of a line of the window"},
    };
    for (const auto &s : sizes)
        if (s.value > kMax) {
            char text[200];
            std::snprintf(text, sizeof text,
                          "Dataset too large for a raster handle: %s takes %lld bytes, "
                          "more than %lld",
                          s.what, static_cast<long long>(s.value), static_cast<long long>(kMax));
            return VLD_setup_error(VLD_ERR_MESSAGE, text);
        }
    return 0;
}

const char *data_file_name(const dshdr *header)
{
    if (header->data_file != nullptr && header->data_file[0] != '\0') return header->data_file;
    return header->name;
}

namespace {

int not_regular(const char *name, int row, bool directory)
{
    VLD_setup_error(row, name);
    append_buffer_to_VLD_error(directory ? "It is a directory, not a data file"
                                         : "It is not a regular file");
    return -1;
}

}  // namespace

int open_data_file(const char *name, int row)
{
    int fd = vln_open_data(name, O_RDONLY, 0);
    if (fd >= 0) return fd;
    if (fd == VLN_NOT_REGULAR) return not_regular(name, row, errno == EISDIR);
    VLD_setup_system_error(row, name);
    return -1;
}

int64_t data_file_size(const char *name, int row)
{
    int64_t size = vln_filesize64(name);
    if (size < 0) {
        if (errno == EISDIR) return not_regular(name, row, true);
        VLD_setup_system_error(row, name != nullptr ? name : "");
        return -1;
    }
    if (!VLD_is_regular_file(name)) return not_regular(name, row, false);
    return size;
}

bool needs_swap(int byte_order, int cell_bytes)
{
    return cell_bytes >= 2 && byte_order != BO_None && byte_order != byteorder();
}

void fill_bytes(const dshdr *header, int cell_bytes, unsigned char fill[8])
{
    // Kept: the bytes of the stored double itself, not the null converted to
    // the cell type.
    std::memset(fill, 0, 8);
    if (header->info.r.has_null) {
        double null_value = header->info.r.null_value;
        std::memcpy(fill, &null_value, static_cast<size_t>(cell_bytes > 8 ? 8 : cell_bytes));
    }
}

namespace {

template <typename T>
void store_cell(double value, void *out)
{
    T cell;
    if constexpr (std::is_floating_point_v<T>) {
        cell = static_cast<T>(value);
    } else {
        double rounded = value >= 0 ? std::floor(value + 0.5) : std::ceil(value - 0.5);
        if (std::isnan(rounded)) rounded = 0;
        if (rounded < static_cast<double>(std::numeric_limits<T>::min()))
            rounded = static_cast<double>(std::numeric_limits<T>::min());
        if (rounded > static_cast<double>(std::numeric_limits<T>::max()))
            rounded = static_cast<double>(std::numeric_limits<T>::max());
        cell = static_cast<T>(rounded);
    }
    std::memcpy(out, &cell, sizeof cell);
}

void swap_words_of_bytes(void *words, int nr_words)
{
    swap_bytes(words, nr_words, 4);
}

void swap_word_halves(void *words, int nr_words)
{
    auto *p = static_cast<unsigned char *>(words);
    for (int i = 0; i < nr_words; i++, p += 4) {
        unsigned char t0 = p[0], t1 = p[1];
        p[0] = p[2];
        p[1] = p[3];
        p[2] = t0;
        p[3] = t1;
    }
}

}  // namespace

void store_as(double value, int cell_type, void *out)
{
    switch (cell_type) {
        case Unsigned8BitInteger:
            return store_cell<uint8_t>(value, out);
        case Unsigned16BitInteger:
            return store_cell<uint16_t>(value, out);
        case Unsigned32BitInteger:
            return store_cell<uint32_t>(value, out);
        case Signed8BitInteger:
            return store_cell<int8_t>(value, out);
        case Signed16BitInteger:
            return store_cell<int16_t>(value, out);
        case Signed32BitInteger:
            return store_cell<int32_t>(value, out);
        case IEEE4ByteReal:
            return store_cell<float>(value, out);
        case IEEE8ByteReal:
            return store_cell<double>(value, out);
        default:
            break;
    }
}

raster_word_swap_func word_swap_for(int cell_bytes)
{
    if (cell_bytes == 1) return swap_words_of_bytes;
    if (cell_bytes == 2) return swap_word_halves;
    return nullptr;
}

int64_t read_ifut(const rasterfile *handle, int64_t position, int64_t length, void *out,
                  void *scratch)
{
    int64_t base = position - position % 4;
    int64_t end = position + length;
    int64_t word_end = (end + 3) / 4 * 4;
    auto *words = static_cast<unsigned char *>(scratch);
    int64_t got = vln_pread64(handle->fd, words, word_end - base, base);
    if (got < 0) return -1;
    // A short file: how much of the request came, never -1, whose errno would
    // be stale.
    if (got < end - base) return got > position - base ? got - (position - base) : 0;
    if (got < word_end - base)
        std::memset(words + got, 0, static_cast<size_t>(word_end - base - got));
    if (handle->word_swap != nullptr)
        handle->word_swap(words, static_cast<int>((word_end - base) / 4));
    std::memcpy(out, words + (position - base), static_cast<size_t>(length));
    return length;
}

}  // namespace vld_raster
