/*
 * gdt_grid.cpp: datum shifts read from grid files.
 *
 * A grid set is a list of files of one type, found in the table directory.
 * A point takes the first file whose limits hold it. Types 0 and 1 give the
 * new position as a polynomial of the old within each grid square; type 2
 * gives shifts at the nodes of NTv2 sub-grids, interpolated bilinearly in the
 * finest sub-grid that holds the point. A set is read whole into memory when
 * it is opened: the grids are small, and a point then costs no file access.
 */
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "gdt_grid_format_internal.h"
#include "gdt_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kArcSecond = kPi / (180.0 * 3600.0);
constexpr int kMaxSets = 64;

struct GridFile {
    gdt::GridHeader header;
    std::vector<double> blocks; /* types 0 and 1: coefficients of every square */
    std::vector<float> shifts;  /* type 2: four floats a node, all sub-grids */
    std::vector<gdt::SubGrid> subgrids;
    int64_t data_start = 0;

    bool holds(double x, double y) const
    {
        const gdt::GridHeader &h = header;
        return x >= h.x0 && x < h.x0 + h.dx * h.nx && y >= h.y0 && y < h.y0 + h.dy * h.ny;
    }
};

struct GridSet {
    int type = -1;
    std::vector<GridFile> files;
};

std::unique_ptr<GridSet> sets[kMaxSets];
int current_set = 0;

bool read_file(const std::string &path, std::vector<char> &bytes)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    bytes.assign(std::istreambuf_iterator<char>(in), {});
    return true;
}

/* Reads one grid file (and its index for type 2): false when it is unreadable or malformed. */
bool load_file(const std::string &path, GridFile &file)
{
    std::vector<char> bytes;
    if (!read_file(path, bytes) || bytes.size() < gdt::kGridHeaderSize) return false;
    std::memcpy(&file.header, bytes.data(), sizeof file.header);
    const gdt::GridHeader &h = file.header;
    if (h.nx <= 0 || h.ny <= 0 || !(h.dx > 0) || !(h.dy > 0)) return false;
    size_t body = bytes.size() - gdt::kGridHeaderSize;
    if (h.type == gdt::kGridQuadratic || h.type == gdt::kGridBilinear) {
        size_t n = h.type == gdt::kGridQuadratic ? 18 : 8;
        size_t need = static_cast<size_t>(h.nx) * static_cast<size_t>(h.ny) * n;
        if (body < need * sizeof(double)) return false;
        file.blocks.resize(need);
        std::memcpy(file.blocks.data(), bytes.data() + gdt::kGridHeaderSize, need * sizeof(double));
        return true;
    }
    file.shifts.resize(body / sizeof(float));
    std::memcpy(file.shifts.data(), bytes.data() + gdt::kGridHeaderSize,
                file.shifts.size() * sizeof(float));
    file.data_start = gdt::kGridHeaderSize;
    std::string index_path = path;
    size_t dot = index_path.rfind('.');
    size_t slash = index_path.rfind('/');
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash))
        index_path.resize(dot);
    index_path += ".ind";
    std::vector<char> index;
    if (!read_file(index_path, index) || index.size() < gdt::kGridIndexHeaderSize ||
        std::memcmp(index.data(), gdt::kGridIndexMagic, std::strlen(gdt::kGridIndexMagic)) != 0)
        return false;
    int32_t count;
    std::memcpy(&count, index.data() + 40, sizeof count);
    if (count <= 0 || index.size() < gdt::kGridIndexHeaderSize +
                                         static_cast<size_t>(count) * gdt::kGridIndexRecordSize) {
        std::printf("DEBUG: Could not read entire record from NTv2 index file\n");
        return false;
    }
    for (int32_t g = 0; g < count; g++) {
        const char *p = index.data() + gdt::kGridIndexHeaderSize +
                        static_cast<size_t>(g) * gdt::kGridIndexRecordSize;
        gdt::SubGrid s{};
        std::memcpy(s.name, p, 9);
        std::memcpy(s.parent, p + 9, 9);
        s.name[8] = s.parent[8] = '\0';
        double limits[6];
        std::memcpy(limits, p + 40, sizeof limits);
        s.south = limits[0];
        s.north = limits[1];
        s.west = limits[2];
        s.east = limits[3];
        s.lat_inc = limits[4];
        s.lon_inc = limits[5];
        std::memcpy(&s.offset, p + 88, 8);
        std::memcpy(&s.rows, p + 96, 4);
        std::memcpy(&s.columns, p + 100, 4);
        int64_t records = static_cast<int64_t>(s.rows) * s.columns;
        if (s.rows < 2 || s.columns < 2 || !(s.lat_inc > 0) || !(s.lon_inc > 0) ||
            s.offset < gdt::kGridHeaderSize || (s.offset - gdt::kGridHeaderSize) % 16 != 0 ||
            s.offset + records * 16 > static_cast<int64_t>(bytes.size()))
            return false;
        file.subgrids.push_back(s);
    }
    return true;
}

bool contains(const gdt::SubGrid &s, double x, double y)
{
    return y >= s.south && y <= s.north && x >= s.west && x <= s.east;
}

/* The shifts (seconds of arc; longitude positive west) at x, y in seconds of
 * arc, from the finest sub-grid that holds the point. false outside all. */
bool ntv2_shift(const GridFile &file, double x, double y, double &dlat, double &dlon)
{
    const gdt::SubGrid *found = nullptr;
    for (const gdt::SubGrid &s : file.subgrids)
        if (std::strncmp(s.parent, "NONE", 4) == 0 && contains(s, x, y)) {
            found = &s;
            break;
        }
    // Descend through the children while one holds the point.
    for (bool deeper = found != nullptr; deeper;) {
        deeper = false;
        for (const gdt::SubGrid &s : file.subgrids)
            if (&s != found && std::strncmp(s.parent, found->name, 8) == 0 && contains(s, x, y)) {
                found = &s;
                deeper = true;
                break;
            }
    }
    if (!found) return false;
    const gdt::SubGrid &s = *found;
    double fc = (x - s.west) / s.lon_inc, fr = (y - s.south) / s.lat_inc;
    auto index = [](double f, int last) {
        double i = std::floor(f);
        return static_cast<int>(i >= 0 ? (i < last ? i : last) : 0);
    };
    int c = index(fc, s.columns - 2), r = index(fr, s.rows - 2);
    double u = fc - c, v = fr - r;
    const float *base = file.shifts.data() + (s.offset - file.data_start) / sizeof(float);
    auto node = [&](int rr, int cc, int k) {
        return static_cast<double>(base[(static_cast<size_t>(rr) * s.columns + cc) * 4 + k]);
    };
    for (int k = 0; k < 2; k++) {
        double value = node(r, c, k) * (1 - u) * (1 - v) + node(r, c + 1, k) * u * (1 - v) +
                       node(r + 1, c, k) * (1 - u) * v + node(r + 1, c + 1, k) * u * v;
        (k == 0 ? dlat : dlon) = value;
    }
    return true;
}

/* The polynomial of a square of a type 0 or 1 file at (u, v). */
void polynomial(const GridFile &f, const double *a, double u, double v, double &x, double &y,
                double &h)
{
    if (f.header.type == gdt::kGridBilinear) {
        x = a[0] + a[1] * u + a[2] * v + a[3] * u * v;
        y = a[4] + a[5] * u + a[6] * v + a[7] * u * v;
        return;
    }
    auto q = [&](const double *c) {
        return c[0] + c[1] * u + c[2] * v + c[3] * u * v + c[4] * u * u + c[5] * v * v;
    };
    x = q(a);
    y = q(a + 6);
    h = q(a + 12);
}

const double *block_at(const GridFile &f, double x, double y)
{
    const gdt::GridHeader &g = f.header;
    int col = std::min(static_cast<int>((x - g.x0) / g.dx), g.nx - 1);
    int row = std::min(static_cast<int>((y - g.y0) / g.dy), g.ny - 1);
    size_t n = g.type == gdt::kGridQuadratic ? 18 : 8;
    return f.blocks.data() + (static_cast<size_t>(row) * g.nx + col) * n;
}

}  // namespace

int grid_access_init(const char *file_list)
{
    if (!file_list) return 0;
    int handle = 0;
    for (int i = 1; i < kMaxSets && !handle; i++)
        if (!sets[i]) handle = i;
    if (!handle) return 0;
    auto set = std::make_unique<GridSet>();
    std::istringstream names(file_list);
    std::string name;
    while (names >> name) {
        GridFile file;
        if (!load_file(std::string(gdb_grid_path()) + name, file)) break;
        // The files of a set are of one type; a differing one ends the set.
        if (set->type >= 0 && file.header.type != set->type) break;
        set->type = file.header.type;
        set->files.push_back(std::move(file));
    }
    if (set->files.empty()) return 0;
    sets[handle] = std::move(set);
    return handle;
}

int grid_access_set_current_id(int handle)
{
    if (handle <= 0 || handle >= kMaxSets || !sets[handle]) return -1;
    current_set = handle;
    return 0;
}

int grid_access_inq_num_coeffs(void)
{
    if (current_set <= 0 || !sets[current_set]) return -1;
    switch (sets[current_set]->type) {
        case gdt::kGridQuadratic:
            return 18;
        case gdt::kGridBilinear:
            return 8;
        default:
            return 2;
    }
}

int grid_access_close(int handle)
{
    if (handle <= 0 || handle >= kMaxSets || !sets[handle]) return -1;
    sets[handle].reset();
    if (current_set == handle) current_set = 0;
    return 0;
}

int gdt::grid_gd_to_gd(const DatumChange &change, const gdt_spheroid &from, const gdt_spheroid &to,
                       double lon, double lat, double h, double *olon, double *olat, double *oh)
{
    *olon = lon;
    *olat = lat;
    *oh = h;
    if (grid_access_set_current_id(change.grid) != 0) return -1;
    const GridSet &set = *sets[change.grid];
    double x = lon + from.prime_merid, y = lat;
    const GridFile *file = nullptr;
    for (const GridFile &f : set.files)
        if (f.holds(x, y)) {
            file = &f;
            break;
        }
    if (!file) return -1;
    if (set.type == kGridShifts) {
        double dlat, dlon;
        if (!ntv2_shift(*file, x / kArcSecond, y / kArcSecond, dlat, dlon)) return -1;
        if (!change.inverse) {
            x -= dlon * kArcSecond;
            y += dlat * kArcSecond;
        } else {
            // The other way the shifts belong to the point sought, not to the
            // point given: a few rounds of the fixed point find it.
            double sx = x + dlon * kArcSecond, sy = y - dlat * kArcSecond;
            for (int round = 0; round < 10; round++) {
                if (!ntv2_shift(*file, sx / kArcSecond, sy / kArcSecond, dlat, dlon)) break;
                double nx = x + dlon * kArcSecond, ny = y - dlat * kArcSecond;
                bool done = std::fabs(nx - sx) < 1e-14 && std::fabs(ny - sy) < 1e-14;
                sx = nx;
                sy = ny;
                if (done) break;
            }
            x = sx;
            y = sy;
        }
    } else if (!change.inverse) {
        double nx, ny, nh = h;
        polynomial(*file, block_at(*file, x, y), x, y, nx, ny, nh);
        x = nx;
        y = ny;
        if (set.type == kGridQuadratic) h = nh;
    } else {
        // The inverse: (u, v) refined until the polynomial gives the point.
        const double *a = block_at(*file, x, y);
        double u = x, v = y, hh = h;
        int round = 0;
        for (; round < 100; round++) {
            double px, py;
            polynomial(*file, a, u, v, px, py, hh);
            double du = x - px, dv = y - py;
            u += du;
            v += dv;
            if (std::fabs(du) < 1e-7 * 0.017444444444444446 &&
                std::fabs(dv) < 1e-7 * 0.017444444444444446)
                break;
        }
        if (round == 100) return -1;
        x = u;
        y = v;
    }
    *olon = x - to.prime_merid;
    *olat = y;
    *oh = h;
    return 0;
}
