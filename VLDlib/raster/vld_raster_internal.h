/*
 * vld_raster_internal.h: what the raster sources share behind vld_raster.h.
 *
 * The position arithmetic of the four storage layouts, the data file's name,
 * the private state behind a handle's point_cache, and the helpers that the
 * readers, writers and point readers have in common. All positions are 64-bit.
 */
#ifndef VORLAN_VLD_RASTER_INTERNAL_H
#define VORLAN_VLD_RASTER_INTERNAL_H

#include <cstdint>
#include <cstring>
#include <vector>

#include "vld_raster.h"

namespace vld_raster {

// Bytes before the first line of AImage and GeoScanMk2 data.
constexpr int kAImageOffset = 52;
constexpr int kGeoScanOffset = 256;
// Point cache and tile sizes.
constexpr int kCacheSize = 64;
constexpr int kTileCells = 256;
constexpr int kTileLines = 4;

// How a data file is laid out: where band b of line l starts, and how far
// apart cells of one band stand.
struct Layout {
    int type = DST_VLDStorage;
    int64_t data_offset = 0;
    int64_t band_line_bytes = 0;  // distance between band-lines (IFUT pads it)
    int64_t line_bytes = 0;
    int bands = 0, cells = 0, cell_bytes = 0;

    // Position of cell `cell` of band `band` in line `line`.
    int64_t position(int64_t line, int64_t band, int64_t cell) const
    {
        if (type == DST_AImage)
            return data_offset + (line * bands * cells + cell * bands + band) * cell_bytes;
        return data_offset + (line * bands + band) * band_line_bytes + cell * cell_bytes;
    }
    // Bytes that a file of `lines` lines needs.
    int64_t expected_size(int64_t lines) const { return data_offset + lines * line_bytes; }
};

// The layout of a header's data file; false for a type without one.
bool layout_of(const dshdr *header, Layout *layout);

// Whether the sizes of a layout, and `request_bytes` (one band-line of a
// window), fit the 32-bit fields in which the handles describe them; or
// VLD_ERR_MESSAGE, saying which size is too large.
int check_32bit_sizes(const Layout &layout, int64_t request_bytes);

// The data file of a header: DataFile, else the header name without its
// extension (the reader always sets DataFile; a hand-made header may not).
const char *data_file_name(const dshdr *header);

// Opens a data file for reading, a regular file only (see vln_open_data).
// Returns the descriptor, or sets up `row` with the reason and returns -1.
int open_data_file(const char *name, int row);
// The size of a data file, a regular file only; or -1, with `row` set up.
int64_t data_file_size(const char *name, int row);

// Whether a file of this byte order must be swapped into the host's.
bool needs_swap(int byte_order, int cell_bytes);

// The bytes of a stored double that stand for a null cell outside the window.
void fill_bytes(const dshdr *header, int cell_bytes, unsigned char fill[8]);

// Writes `value` into `out` as a cell of `cell_type`, by the rounding rule of
// the library and clamped to the type's range.
void store_as(double value, int cell_type, void *out);

// The word swaps of IFUT data, by cell size (null when none applies).
raster_word_swap_func word_swap_for(int cell_bytes);

// Reads `length` bytes from `position` of IFUT data into `out`: whole words
// from the word boundary below, each swapped, copied out. `scratch` holds at
// least length + 8 bytes. Returns the bytes copied, or -1.
int64_t read_ifut(const rasterfile *handle, int64_t position, int64_t length, void *out,
                  void *scratch);

// The private state behind point_cache: the cache of recent points and the
// last tile that a point read went through.
struct CacheEntry {
    int line = -1, cell = -1;
    int is_null = 0;
    bool filled = false;
    std::vector<unsigned char> values;  // cell_bytes per band
};

struct PointState {
    std::vector<CacheEntry> entries;  // most recently used first
    // The tile of the last tiled read.
    bool tile_valid = false;
    int tile_line = 0, tile_cell = 0, tile_lines = 0, tile_cells = 0;
    std::vector<std::vector<unsigned char>> tile_bands;
    std::vector<unsigned char> tile_mask;  // 1 on valid cells
    bool cache_used = false;               // the cached reads have been used
    std::vector<void *> targets;           // one pointer per band, for the cache
    std::vector<void *> tile_targets;      // one pointer per band, for tiles
};

PointState *point_state(rasterfile *handle);
void free_point_state(rasterfile *handle);

// Reads a point through a tile of the window: the window is moved onto the
// tile that holds the point (when it isn't there already). Used for datasets
// whose files can't be read a cell at a time.
int point_from_tile(rasterfile *handle, void **values, int *is_null, int line, int cell);

// A data file being written is a temporary file beside it until the handle is
// closed. Starts one and returns the descriptor to write to, or -1 with VLD_ERR_CANNOT_CREATE_FILE.
int begin_data_file(const char *name);
// Notes that a write to `fd` failed: its temporary file will not replace the
// data file.
void spoil_data_file(int fd);
// Ends a data file being written through `fd`, when it is one: renames the
// temporary file over the data file, or removes it after a failed write.
// Returns false when `fd` isn't a data file being written; else true, with
// *status 0, or the row of the failure (the old data file stays).
bool end_data_file(int fd, const char *name, int *status);

// Moves an open handle's window, keeping its bands.
int reopen_window(rasterfile *handle, int first_line, int nr_lines, int first_cell, int nr_cells);

/* The line readers of the IFUT and AImage layouts, which have no exported
 * name: the open installs them as the handle's reader. */
int rd_ifut(rasterfile *handle, void **buffers, int first_line, int nr_lines);
int rd_aimage(rasterfile *handle, void **buffers, int first_line, int nr_lines);

}  // namespace vld_raster

#endif
