/*
 * vld_raster_open.cpp: opening and closing a raster handle.
 *
 * eo_raster checks the request against the header, works out the file's
 * layout, picks the line reader once (by storage type, band mode and byte
 * order) and allocates the handle's one work buffer, so that nothing is
 * allocated while lines are read. Virtual and translated datasets are read
 * through other modules; until those are present, their routes fail with the
 * rows a missing reader gives.
 */
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "vld_raster_internal.h"
#include "vln_fileio.h"

using namespace vld_raster;

namespace {

void reset(rasterfile *h)
{
    std::memset(h, 0, sizeof *h);
    h->fd = -1;
}

// Drops what an open that failed half-way had taken, leaving a closed handle.
int abandon(rasterfile *h, int status)
{
    safe_free(h->bands);
    std::free(h->buffer);
    if (h->fd >= 0) vln_close(h->fd);
    reset(h);
    return status;
}

// A band number as the caller wrote it: one-based text, read as a long, and
// made zero-based. Numbers past the 32-bit range stay past it, to be refused.
int64_t parse_band(const char *text)
{
    long number = 0;
    if (text != nullptr) std::sscanf(text, "%ld", &number);
    if (number < 1) number = 1;
    // Room for a range of INT_MAX bands after it.
    if (number > std::numeric_limits<long>::max() / 2)
        number = std::numeric_limits<long>::max() / 2;
    return static_cast<int64_t>(number) - 1;
}

raster_read_func reader_for(int type, int band_mode, bool swap)
{
    switch (type) {
        case DST_IFUT:
            return rd_ifut;
        case DST_AImage:
            return rd_aimage;
        default:
            if (band_mode == RASTER_BAND_RANGE) return swap ? rd_vld_range_reverse : rd_vld_range;
            return swap ? rd_vld_list_reverse : rd_vld_list;
    }
}

// The storage types that have a file of their own; the row of the others.
int check_storage_type(const dshdr *d)
{
    switch (d->dataset_type) {
        case DST_VLDStorage:
        case DST_IFUT:
        case DST_AImage:
        case DST_GeoScanMk2:
            return 0;
        case DST_BandInterleavedLine: {
            char text[32];
            std::snprintf(text, sizeof text, " %ld", static_cast<long>(d->dataset_type));
            return VLD_setup_error(VLD_ERR_INVALID_FILE_TYPE, text);
        }
        case DST_Translated:
            // Translators are loaded by their own module; without it, the
            // open entry is as missing as in a plug-in that lacks it.
            return VLD_setup_error(VLD_ERR_TRANSLATOR_SYMBOL, data_file_name(d),
                                   "TranslatorOpenDatasetRead");
        default:
            return VLD_setup_error(VLD_ERR_RASTER_FILETYPE_UNKNOWN);
    }
}

// Fills the fields that describe the file itself.
void describe_file(rasterfile *h, dshdr *d, const Layout &layout)
{
    h->dshdr = d;
    h->name = data_file_name(d);
    h->cell_bytes = layout.cell_bytes;
    h->file_bands = layout.bands;
    h->file_cells = layout.cells;
    h->line_bytes = static_cast<int32_t>(layout.line_bytes);
    h->band_line_bytes = static_cast<int32_t>(layout.band_line_bytes);
    h->data_offset = static_cast<int32_t>(layout.data_offset);
    h->swap = needs_swap(d->byte_order, layout.cell_bytes) ? 1 : 0;
    h->word_swap = layout.type == DST_IFUT ? word_swap_for(layout.cell_bytes) : nullptr;
    fill_bytes(d, layout.cell_bytes, h->fill);
}

}  // namespace

int eo_raster(rasterfile *handle, dshdr *header, int first_line, int nr_lines, int first_cell,
              int nr_cells, int band_mode, int nr_bands, char **band_strings)
{
    if (handle == nullptr || header == nullptr)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    rasterfile *h = handle;
    reset(h);
    if (header->data_type != DT_Raster) return VLD_setup_error(VLD_ERR_RASTER_DATASET_REQUIRED);
    if (header->byte_order == BO_None)
        return VLD_setup_error(VLD_ERR_BAD_BYTE_ORDER, "byteorder=NONE");
    if (nr_bands < 1 || band_strings == nullptr)
        return VLD_setup_error(VLD_ERR_MESSAGE, "No bands requested from the dataset");
    if (band_mode != RASTER_BAND_LIST && band_mode != RASTER_BAND_RANGE)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Unknown band mode");

    std::vector<int64_t> bands(static_cast<size_t>(nr_bands));
    for (int i = 0; i < nr_bands; i++) {
        if (band_mode == RASTER_BAND_LIST) {
            bands[i] = parse_band(band_strings[i]);
            if (i > 0 && bands[i] < bands[i - 1])
                return VLD_setup_error(VLD_ERR_REQUEST_NOT_ASCENDING);
        } else {
            bands[i] = (i == 0 ? parse_band(band_strings[0]) : bands[i - 1] + 1);
        }
    }
    if (header->algorithm != nullptr)
        return VLD_setup_error(VLD_ERR_CANNOT_USE_VDS, data_file_name(header));
    if (int status = check_storage_type(header)) return status;

    Layout layout;
    layout_of(header, &layout);
    const rasterinfo &r = header->info.r;
    if (layout.cell_bytes <= 0)
        return VLD_setup_error(VLD_ERR_MESSAGE, "Unknown cell type in dataset header");
    for (int64_t b : bands)
        if (b >= layout.bands) {
            char text[128];
            std::snprintf(text, sizeof text, "Band %lld not in dataset (%d bands)",
                          static_cast<long long>(b) + 1, layout.bands);
            return VLD_setup_error(VLD_ERR_MESSAGE, text);
        }
    if (first_line < 0 || nr_lines < 0 || nr_lines > r.nr_lines - first_line)
        return VLD_setup_error(VLD_ERR_LINES_OUTSIDE_DATASET);
    if (first_cell < 0 || nr_cells < 0 || nr_cells > r.nr_cells - first_cell)
        return VLD_setup_error(VLD_ERR_CELLS_OUTSIDE_DATASET);

    if (int status = check_32bit_sizes(layout, int64_t{layout.cell_bytes} * nr_cells))
        return status;

    h->first_line = first_line;
    h->nr_lines = nr_lines;
    h->first_cell = first_cell;
    h->nr_cells = nr_cells;
    h->band_mode = band_mode;
    h->nr_bands = nr_bands;
    describe_file(h, header, layout);
    h->bytes_per_request = static_cast<int32_t>(int64_t{h->cell_bytes} * nr_cells);

    h->bands = static_cast<int32_t *>(malloc_or_die(sizeof(int32_t) * bands.size()));
    for (size_t i = 0; i < bands.size(); i++) h->bands[i] = static_cast<int32_t>(bands[i]);

    // One buffer serves every reader: AImage reads all bands of a line into
    // it, IFUT reads whole words into it.
    int64_t size = static_cast<int64_t>(h->bytes_per_request) * nr_bands;
    if (layout.type == DST_AImage)
        size = std::max<int64_t>(size, static_cast<int64_t>(h->bytes_per_request) * layout.bands);
    if (layout.type == DST_IFUT) size = std::max<int64_t>(size, h->bytes_per_request + 8);
    h->buffer = std::malloc(static_cast<size_t>(size > 0 ? size : 8));
    if (h->buffer == nullptr)
        return abandon(h, VLD_setup_error(VLD_ERR_CANNOT_ALLOCATE, static_cast<int>(size)));

    h->read = reader_for(layout.type, band_mode, h->swap != 0);
    h->fd = open_data_file(h->name, VLD_ERR_CANNOT_OPEN_FILE);
    if (h->fd < 0) return abandon(h, VLD_ERR_CANNOT_OPEN_FILE);
    return 0;
}

int eo_raster_point(rasterfile *handle, dshdr *header)
{
    if (handle == nullptr || header == nullptr)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    const rasterinfo &r = header->info.r;
    int n = r.nr_bands > 0 ? r.nr_bands : 1;
    std::vector<std::string> texts(static_cast<size_t>(n));
    std::vector<char *> strings(static_cast<size_t>(n));
    for (int i = 0; i < n; i++) {
        texts[i] = std::to_string(i + 1);
        strings[i] = texts[i].data();
    }
    return eo_raster(handle, header, 0, r.nr_lines, 0, r.nr_cells, RASTER_BAND_LIST, n,
                     strings.data());
}

int eow_raster(rasterfile *handle, dshdr *header)
{
    if (handle == nullptr || header == nullptr)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    rasterfile *h = handle;
    reset(h);
    switch (header->dataset_type) {
        case DST_VLDStorage:
        case DST_IFUT:
        case DST_AImage:
        case DST_GeoScanMk2:
            break;
        case DST_Translated:
            return VLD_setup_error(VLD_ERR_TRANSLATOR_SYMBOL, data_file_name(header),
                                   "TranslatorOpenDatasetWrite");
        default:
            return VLD_setup_error(VLD_ERR_RASTER_FILETYPE_UNKNOWN);
    }
    Layout layout;
    layout_of(header, &layout);
    if (layout.cell_bytes <= 0)
        return VLD_setup_error(VLD_ERR_MESSAGE, "Unknown cell type in dataset header");
    const rasterinfo &r = header->info.r;
    if (int status = check_32bit_sizes(layout, layout.band_line_bytes)) return status;
    h->first_line = 0;
    h->nr_lines = r.nr_lines;
    h->first_cell = 0;
    h->nr_cells = r.nr_cells;
    h->band_mode = RASTER_BAND_RANGE;
    h->nr_bands = layout.bands;  // a band count of 0 counts as 1
    describe_file(h, header, layout);
    h->bytes_per_request = static_cast<int32_t>(int64_t{h->cell_bytes} * h->nr_cells);
    h->bands = static_cast<int32_t *>(malloc_or_die(sizeof(int32_t) * h->nr_bands));
    for (int i = 0; i < h->nr_bands; i++) h->bands[i] = i;
    // The old file stays whole until ec_raster puts the new one in its place.
    h->fd = begin_data_file(h->name);
    if (h->fd < 0) return abandon(h, VLD_ERR_CANNOT_CREATE_FILE);
    return 0;
}

int ec_raster(rasterfile *handle)
{
    if (handle == nullptr) return 0;
    rasterfile *h = handle;
    free_point_state(h);
    h->vds = nullptr;
    safe_free(h->bands);
    h->bands = nullptr;
    std::free(h->buffer);
    h->buffer = nullptr;
    int status = 0;
    if (h->fd >= 0) {
        const char *name = h->name != nullptr ? h->name : "";
        if (!end_data_file(h->fd, name, &status) && vln_close(h->fd) != 0)
            status = VLD_setup_error(VLD_ERR_CANNOT_CLOSE_FILE, name);
        h->fd = -1;
    }
    return status;
}

int ec_raster_point(rasterfile *handle)
{
    if (handle == nullptr) return 0;
    free_point_state(handle);
    return ec_raster(handle);
}

namespace vld_raster {

int reopen_window(rasterfile *handle, int first_line, int nr_lines, int first_cell, int nr_cells)
{
    dshdr *header = handle->dshdr;
    std::vector<std::string> texts(static_cast<size_t>(handle->nr_bands));
    std::vector<char *> strings(texts.size());
    for (size_t i = 0; i < texts.size(); i++) {
        texts[i] = std::to_string(handle->bands[i] + 1);
        strings[i] = texts[i].data();
    }
    int mode = handle->band_mode;
    int32_t no_direct_point = handle->no_direct_point;
    void *state = handle->point_cache;
    handle->point_cache = nullptr;  // the point state outlives the window
    int status = ec_raster(handle);
    if (status == 0)
        status = eo_raster(handle, header, first_line, nr_lines, first_cell, nr_cells, mode,
                           static_cast<int>(strings.size()), strings.data());
    handle->point_cache = state;
    handle->no_direct_point = no_direct_point;
    return status;
}

}  // namespace vld_raster
