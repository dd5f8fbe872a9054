/*
 * gdt_grid_format_internal.h: the layout of the engine's grid files, shared by the
 * reader in the coordinate module and the converters in tools/.
 *
 * A grid file starts with a 48-byte header, little-endian:
 *   0  int32   type: 0 quadratic, 1 bilinear, 2 shifts of NTv2 sub-grids
 *   4  int32   reserved, 0
 *   8  double  x0, the west limit (longitude, radians)
 *   16 double  y0, the south limit (latitude, radians)
 *   24 double  dx, 32 double dy: the size of a grid square (radians)
 *   40 int32   nx, 44 int32 ny: squares across and up
 * The file holds points from x0 up to x0 + dx nx and y0 up to y0 + dy ny,
 * the upper limits excluded. Types 0 and 1 follow with one block a square,
 * row by row from the south: 18 or 8 doubles, the coefficients of x', y'
 * (and height, for type 0) in the square's position.
 *
 * Type 2 follows with the sub-grids' shift records: 4 floats each (latitude
 * shift, longitude shift positive west, and their accuracies, in seconds of
 * arc), row by row from the south, each row from the west. Its sub-grids are
 * told by an index file of the same name with the extension ".ind": a 176-byte
 * header (the text "VLNGRIDINDEX" at 0, the version at 16, the number of
 * sub-grids at 40) and one 160-byte record a sub-grid:
 *   0 name (9), 9 parent (9), 18 created (9), 27 updated (8)
 *   40 six doubles in seconds of arc, longitudes positive east: south, north,
 *      west and east limits, latitude and longitude increments
 *   88 int64 offset of its first record in the grid file, 96 int32 rows,
 *   100 int32 columns.
 */
#ifndef VORLAN_GDT_GRID_FORMAT_INTERNAL_H
#define VORLAN_GDT_GRID_FORMAT_INTERNAL_H

#include <cstdint>

namespace gdt {

constexpr int kGridHeaderSize = 48;
constexpr int kGridIndexHeaderSize = 176;
constexpr int kGridIndexRecordSize = 160;
constexpr int kGridShiftRecordSize = 16;
constexpr char kGridIndexMagic[] = "VLNGRIDINDEX";

enum GridType { kGridQuadratic = 0, kGridBilinear = 1, kGridShifts = 2 };

struct GridHeader {
    int32_t type;
    int32_t reserved;
    double x0, y0, dx, dy;
    int32_t nx, ny;
};
static_assert(sizeof(GridHeader) == kGridHeaderSize, "grid header is 48 bytes");

struct SubGrid {
    char name[9], parent[9], created[9], updated[8];
    double south, north, west, east, lat_inc, lon_inc; /* seconds of arc, east positive */
    int64_t offset;
    int32_t rows, columns;
};

}  // namespace gdt

#endif
