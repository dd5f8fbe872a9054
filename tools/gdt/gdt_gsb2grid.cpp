/*
 * gdt_gsb2grid: converts a grid of datum shifts in the NTv2 form (.gsb) to the
 * engine's own grid file and its index (see coords/gdt_grid_format_internal.h).
 *
 *   vorlan-gsb2grid INPUT.gsb OUTPUT_STEM
 *
 * writes OUTPUT_STEM.grd and OUTPUT_STEM.ind, each first under a temporary
 * name and renamed when whole. NTv2 rows run from the east; the engine's run
 * from the west, so each row is reversed. Exit status 0, or 1 with a message.
 */
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "gdt_grid_format_internal.h"

namespace {

constexpr double kArcSecond = 3.14159265358979323846 / (180.0 * 3600.0);

struct Reader {
    std::vector<char> bytes;
    size_t at = 0;
    bool ok = true;
    const char *take(size_t n)
    {
        if (at + n > bytes.size()) {
            ok = false;
            static char zero[16] = {};
            return zero;
        }
        const char *p = bytes.data() + at;
        at += n;
        return p;
    }
    /* One 16-byte record of a header: 8 characters of label, 8 of value. */
    const char *record(const char *label)
    {
        const char *p = take(16);
        if (std::strncmp(p, label, std::strlen(label)) != 0) ok = false;
        return p + 8;
    }
    int32_t int_of(const char *label)
    {
        int32_t v;
        std::memcpy(&v, record(label), 4);
        return v;
    }
    double double_of(const char *label)
    {
        double v;
        std::memcpy(&v, record(label), 8);
        return v;
    }
    void text_of(const char *label, char *out, size_t size)
    {
        const char *p = record(label);
        size_t n = std::min<size_t>(8, size - 1);
        std::memcpy(out, p, n);
        out[n] = '\0';
        for (size_t i = n; i > 0 && out[i - 1] == ' '; i--) out[i - 1] = '\0';
    }
};

bool write_whole(const std::string &path, const std::vector<char> &bytes)
{
    std::string temporary = path + ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        if (!out) return false;
    }
    return std::rename(temporary.c_str(), path.c_str()) == 0;
}

template <typename T>
void put(std::vector<char> &out, size_t at, T value)
{
    std::memcpy(out.data() + at, &value, sizeof value);
}

int fail(const char *what, const std::string &name)
{
    std::fprintf(stderr, "vorlan-gsb2grid: %s: %s\n", name.c_str(), what);
    return 1;
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: vorlan-gsb2grid INPUT.gsb OUTPUT_STEM\n");
        return 2;
    }
    std::string input = argv[1], stem = argv[2];
    Reader r;
    {
        std::ifstream in(input, std::ios::binary);
        if (!in) return fail("cannot be read", input);
        r.bytes.assign(std::istreambuf_iterator<char>(in), {});
    }
    if (r.int_of("NUM_OREC") != 11) return fail("not a little-endian NTv2 grid", input);
    r.int_of("NUM_SREC");
    int32_t count = r.int_of("NUM_FILE");
    r.take(16 * 8); /* GS_TYPE to MINOR_T */
    if (!r.ok || count <= 0 || count > 100000) return fail("bad overview header", input);

    std::vector<gdt::SubGrid> grids;
    std::vector<char> data(gdt::kGridHeaderSize, 0);
    for (int g = 0; g < count; g++) {
        gdt::SubGrid s{};
        r.text_of("SUB_NAME", s.name, sizeof s.name);
        r.text_of("PARENT", s.parent, sizeof s.parent);
        r.text_of("CREATED", s.created, sizeof s.created);
        r.text_of("UPDATED", s.updated, sizeof s.updated);
        s.south = r.double_of("S_LAT");
        s.north = r.double_of("N_LAT");
        double e_west_positive = r.double_of("E_LONG");
        double w_west_positive = r.double_of("W_LONG");
        s.lat_inc = r.double_of("LAT_INC");
        s.lon_inc = r.double_of("LONG_INC");
        int32_t records = r.int_of("GS_COUNT");
        // Sizes beyond ten million nodes a side are not grids but damage.
        if (!r.ok || !(s.lat_inc > 0) || !(s.lon_inc > 0) || !(s.north >= s.south) ||
            !(w_west_positive >= e_west_positive) || !((s.north - s.south) / s.lat_inc < 1e7) ||
            !((w_west_positive - e_west_positive) / s.lon_inc < 1e7))
            return fail("bad sub-grid header", input);
        s.west = -w_west_positive;
        s.east = -e_west_positive;
        s.rows = static_cast<int32_t>(std::lround((s.north - s.south) / s.lat_inc)) + 1;
        s.columns = static_cast<int32_t>(std::lround((s.east - s.west) / s.lon_inc)) + 1;
        if (s.rows <= 0 || s.columns <= 0 || static_cast<int64_t>(s.rows) * s.columns != records)
            return fail("sub-grid size does not match its records", input);
        s.offset = static_cast<int64_t>(data.size());
        const char *p = r.take(static_cast<size_t>(records) * 16);
        if (!r.ok) return fail("sub-grid records cut short", input);
        for (int32_t row = 0; row < s.rows; row++)
            for (int32_t col = 0; col < s.columns; col++) {
                // NTv2 counts columns from the east.
                const char *rec =
                    p + (static_cast<size_t>(row) * s.columns + (s.columns - 1 - col)) * 16;
                data.insert(data.end(), rec, rec + 16);
            }
        grids.push_back(s);
    }

    // The file's limits: the box around the top-level grids, in the first one's steps.
    const gdt::SubGrid &first = grids.front();
    double west = first.west, east = first.east, south = first.south, north = first.north;
    for (const gdt::SubGrid &s : grids) {
        west = std::min(west, s.west);
        east = std::max(east, s.east);
        south = std::min(south, s.south);
        north = std::max(north, s.north);
    }
    gdt::GridHeader h{};
    h.type = gdt::kGridShifts;
    h.dx = first.lon_inc * kArcSecond;
    h.dy = first.lat_inc * kArcSecond;
    h.x0 = west * kArcSecond;
    h.y0 = south * kArcSecond;
    // One step more than the extent, so that the east and north edges lie inside.
    h.nx = static_cast<int32_t>(std::ceil((east - west) / first.lon_inc)) + 1;
    h.ny = static_cast<int32_t>(std::ceil((north - south) / first.lat_inc)) + 1;
    std::memcpy(data.data(), &h, sizeof h);

    std::vector<char> index(gdt::kGridIndexHeaderSize + grids.size() * gdt::kGridIndexRecordSize,
                            0);
    std::memcpy(index.data(), gdt::kGridIndexMagic, std::strlen(gdt::kGridIndexMagic));
    put<int32_t>(index, 16, 1);
    put<int32_t>(index, 40, static_cast<int32_t>(grids.size()));
    for (size_t g = 0; g < grids.size(); g++) {
        const gdt::SubGrid &s = grids[g];
        size_t at = gdt::kGridIndexHeaderSize + g * gdt::kGridIndexRecordSize;
        std::memcpy(index.data() + at, s.name, 9);
        std::memcpy(index.data() + at + 9, s.parent, 9);
        std::memcpy(index.data() + at + 18, s.created, 9);
        std::memcpy(index.data() + at + 27, s.updated, 8);
        const double limits[] = {s.south, s.north, s.west, s.east, s.lat_inc, s.lon_inc};
        std::memcpy(index.data() + at + 40, limits, sizeof limits);
        put<int64_t>(index, at + 88, s.offset);
        put<int32_t>(index, at + 96, s.rows);
        put<int32_t>(index, at + 100, s.columns);
    }
    if (!write_whole(stem + ".grd", data)) return fail("cannot be written", stem + ".grd");
    if (!write_whole(stem + ".ind", index)) return fail("cannot be written", stem + ".ind");
    return 0;
}
