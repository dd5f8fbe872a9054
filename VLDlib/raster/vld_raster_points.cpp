/*
 * vld_raster_points.cpp: reading single cells, directly, through a cache of
 * recent points, or through a tile of the window.
 *
 * A native file is read a cell at a time at the cell's position. A dataset
 * that can't be read that way (a translated or virtual one, or a handle whose
 * no_direct_point is set) is read a tile at a time: the window is moved onto
 * the tile that holds the point, and later points in the same tile are copied
 * from it. The cache keeps the 64 most recently read points, most recent
 * first.
 */
#include <algorithm>
#include <cstring>
#include <new>

#include "vld_raster_internal.h"
#include "vln_fileio.h"

namespace vld_raster {

PointState *point_state(rasterfile *handle)
{
    if (handle->point_cache == nullptr) handle->point_cache = new PointState;
    return static_cast<PointState *>(handle->point_cache);
}

void free_point_state(rasterfile *handle)
{
    delete static_cast<PointState *>(handle->point_cache);
    handle->point_cache = nullptr;
}

namespace {

void give_fill(const rasterfile *h, void **values, int *is_null)
{
    for (int k = 0; k < h->nr_bands; k++)
        std::memcpy(values[k], h->fill, static_cast<size_t>(h->cell_bytes));
    if (is_null != nullptr) *is_null = 1;
}

bool in_window(const rasterfile *h, int line, int cell)
{
    return line >= h->first_line && line - h->first_line < h->nr_lines && cell >= h->first_cell &&
           cell - h->first_cell < h->nr_cells;
}

// One cell of one band, straight from the file.
int read_cell(const rasterfile *h, int line, int band, int cell, void *out)
{
    Layout layout;
    layout_of(h->dshdr, &layout);
    int64_t at = layout.position(line, band, cell);
    const int size = h->cell_bytes;
    int64_t got;
    if (h->word_swap != nullptr) {
        // The cell's bytes stand mirrored within their 32-bit word.
        int64_t word = at - at % 4;
        int64_t from = size == 1 ? word + 3 - (at - word) : word + 2 - (at - word);
        got = vln_pread64(h->fd, out, size, from);
    } else {
        got = vln_pread64(h->fd, out, size, at);
    }
    if (got != size) return VLD_setup_error(VLD_ERR_CANNOT_READ_FILE, h->name);
    if (h->swap) swap_bytes(out, 1, size);
    return 0;
}

}  // namespace

int point_from_tile(rasterfile *h, void **values, int *is_null, int line, int cell)
{
    const rasterinfo &r = h->dshdr->info.r;
    if (line < 0 || line >= r.nr_lines || cell < 0 || cell >= r.nr_cells) {
        give_fill(h, values, is_null);
        return 0;
    }
    PointState *st = point_state(h);
    const int size = h->cell_bytes;
    bool inside = st->tile_valid && line >= st->tile_line &&
                  line - st->tile_line < st->tile_lines && cell >= st->tile_cell &&
                  cell - st->tile_cell < st->tile_cells;
    if (!inside) {
        // A tile on a multiple of its size; the whole line for a virtual
        // dataset; the single cell when no cache is in use.
        int tile_cells = h->vds != nullptr ? r.nr_cells : kTileCells;
        int tile_lines = kTileLines;
        if (!st->cache_used) tile_cells = tile_lines = 1;
        int first_line = line - line % tile_lines;
        int first_cell = cell - cell % tile_cells;
        int lines = std::min(tile_lines, r.nr_lines - first_line);
        int cells = std::min(tile_cells, r.nr_cells - first_cell);
        st->tile_valid = false;
        if (int status = reopen_window(h, first_line, lines, first_cell, cells)) return status;
        size_t band_bytes = static_cast<size_t>(lines) * cells * size;
        st->tile_bands.resize(static_cast<size_t>(h->nr_bands));
        for (auto &band : st->tile_bands) band.assign(band_bytes, 0);
        // Without a masked reader every cell that was read is valid.
        st->tile_mask.assign(static_cast<size_t>(lines) * cells, 1);
        st->tile_targets.resize(static_cast<size_t>(h->nr_bands));
        for (int i = 0; i < lines; i++) {
            for (int k = 0; k < h->nr_bands; k++)
                st->tile_targets[k] =
                    st->tile_bands[k].data() + static_cast<size_t>(i) * cells * size;
            if (int status = h->read(h, st->tile_targets.data(), first_line + i, 1)) return status;
        }
        st->tile_line = first_line;
        st->tile_cell = first_cell;
        st->tile_lines = lines;
        st->tile_cells = cells;
        st->tile_valid = true;
    }
    size_t index = static_cast<size_t>(line - st->tile_line) * st->tile_cells +
                   static_cast<size_t>(cell - st->tile_cell);
    for (int k = 0; k < h->nr_bands; k++)
        std::memcpy(values[k], st->tile_bands[k].data() + index * size, static_cast<size_t>(size));
    if (is_null != nullptr) *is_null = st->tile_mask[index] != 1 ? 1 : 0;
    return 0;
}

}  // namespace vld_raster

using namespace vld_raster;

int eg_raster_point(rasterfile *handle, void **values, int line, int cell)
{
    int is_null = 0;
    return eg_raster_point_ex(handle, values, &is_null, line, cell);
}

int eg_raster_point_ex(rasterfile *handle, void **values, int *is_null, int line, int cell)
{
    if (handle == nullptr || values == nullptr || handle->dshdr == nullptr || handle->fd < 0)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Raster handle not open for reading");
    for (int k = 0; k < handle->nr_bands; k++)
        if (values[k] == nullptr) return VLD_setup_error(VLD_ERR_INTERNAL, "Null band value");
    if (handle->translator != nullptr || handle->vds != nullptr || handle->no_direct_point)
        return point_from_tile(handle, values, is_null, line, cell);
    if (!in_window(handle, line, cell)) {
        give_fill(handle, values, is_null);
        return 0;
    }
    for (int k = 0; k < handle->nr_bands; k++)
        if (int status = read_cell(handle, line, handle->bands[k], cell, values[k])) return status;
    if (is_null != nullptr) *is_null = 0;
    return 0;
}

int eg_raster_point_cache(rasterfile *handle, void **values, int line, int cell)
{
    int is_null = 0;
    return eg_raster_point_cache_ex(handle, values, &is_null, line, cell);
}

int eg_raster_point_cache_ex(rasterfile *handle, void **values, int *is_null, int line, int cell)
{
    if (handle == nullptr || values == nullptr || handle->dshdr == nullptr)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Raster handle not open for reading");
    const rasterinfo &r = handle->dshdr->info.r;
    if (line < 0 || line >= r.nr_lines || cell < 0 || cell >= r.nr_cells) {
        for (int k = 0; k < handle->nr_bands; k++) store_as(r.null_value, r.cell_type, values[k]);
        if (is_null != nullptr) *is_null = 1;
        return 0;
    }
    PointState *st = point_state(handle);
    st->cache_used = true;
    const size_t size = static_cast<size_t>(handle->cell_bytes);
    auto &entries = st->entries;
    auto hit = std::find_if(entries.begin(), entries.end(), [&](const CacheEntry &e) {
        return e.filled && e.line == line && e.cell == cell;
    });
    if (hit == entries.end()) {
        if (entries.size() < static_cast<size_t>(kCacheSize)) {
            entries.insert(entries.begin(), CacheEntry{});
        } else {
            std::rotate(entries.begin(), entries.end() - 1, entries.end());
        }
        CacheEntry &e = entries.front();
        e.filled = false;
        e.line = line;
        e.cell = cell;
        e.values.assign(size * handle->nr_bands, 0);
        st->targets.resize(static_cast<size_t>(handle->nr_bands));
        for (int k = 0; k < handle->nr_bands; k++) st->targets[k] = e.values.data() + k * size;
        int null_flag = 0;
        // The tile path may move the window: `entries` keeps its place.
        if (int status = eg_raster_point_ex(handle, st->targets.data(), &null_flag, line, cell))
            return status;
        e.is_null = null_flag;
        e.filled = true;
        hit = entries.begin();
    } else {
        std::rotate(entries.begin(), hit, hit + 1);
        hit = entries.begin();
    }
    for (int k = 0; k < handle->nr_bands; k++)
        std::memcpy(values[k], hit->values.data() + k * size, size);
    if (is_null != nullptr) *is_null = hit->is_null;
    return 0;
}
