/* stats_fixture.h: rasters with known cells for the statistics suites.
 *
 * A Grid holds every cell as a double, writes a native dataset of any cell
 * type (header through ep_dshdr, data by hand), and computes the statistics
 * of a mask of cells on its own, with plain sums over the cells, so that the
 * library's passes are checked against an independent picture.
 */
#ifndef VORLAN_TESTS_STATS_FIXTURE_H
#define VORLAN_TESTS_STATS_FIXTURE_H

#include <unistd.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "temp_dir.h"
#include "vld_dshdr.h"
#include "vln_path.h"

namespace st {

inline std::string error_text()
{
    return VLD_error.text ? VLD_error.text : "";
}

using test_support::TempDir;

/* The host's bytes of `value` as a cell of `type`. */
inline void put_cell(std::string &out, double value, int type)
{
    auto put = [&](auto v) { out.append(reinterpret_cast<const char *>(&v), sizeof v); };
    switch (type) {
        case Unsigned8BitInteger:
            put(static_cast<uint8_t>(value));
            break;
        case Unsigned16BitInteger:
            put(static_cast<uint16_t>(value));
            break;
        case Unsigned32BitInteger:
            put(static_cast<uint32_t>(value));
            break;
        case Signed8BitInteger:
            put(static_cast<int8_t>(value));
            break;
        case Signed16BitInteger:
            put(static_cast<int16_t>(value));
            break;
        case Signed32BitInteger:
            put(static_cast<int32_t>(value));
            break;
        case IEEE4ByteReal:
            put(static_cast<float>(value));
            break;
        default:
            put(value);
            break;
    }
}

/* A polygon ring in cell coordinates. */
using Ring = std::vector<std::pair<double, double>>;

inline void add_polygon(dshdr *d, const char *name, const Ring &ring)
{
    regioninfo *r = nullptr;
    ea_regioninfo(&r);
    r->type = REGION_POLYGON;
    r->name = strsave(name);
    auto *s = static_cast<subregion *>(malloc_or_die(sizeof(subregion)));
    std::memset(s, 0, sizeof *s);
    VLD_POINTNODE **tail = &s->points;
    for (auto [x, y] : ring) {
        auto *p = static_cast<VLD_POINTNODE *>(malloc_or_die(sizeof(VLD_POINTNODE)));
        *p = {nullptr, x, y};
        *tail = p;
        tail = &p->next;
    }
    r->subregions = s;
    regioninfo **at = &d->info.r.regions;
    while (*at) at = &(*at)->next;
    *at = r;
}

inline void add_class(dshdr *d, const char *name, const char *source, int class_number)
{
    regioninfo *r = nullptr;
    ea_regioninfo(&r);
    r->type = REGION_CLASS;
    r->name = strsave(name);
    r->source_dataset = source ? strsave(source) : nullptr;
    r->class_number = class_number;
    regioninfo **at = &d->info.r.regions;
    while (*at) at = &(*at)->next;
    *at = r;
}

inline regioninfo *find_region(const dshdr *d, const char *name)
{
    for (regioninfo *r = d->info.r.regions; r; r = r->next)
        if (r->name && std::strcmp(r->name, name) == 0) return r;
    return nullptr;
}

/* Whether the centre of cell (c, l) is inside the ring, by the even-odd rule. */
inline bool inside(const Ring &ring, int c, int l)
{
    double x = c + 0.5, y = l + 0.5;
    bool in = false;
    for (size_t i = 0, j = ring.size() - 1; i < ring.size(); j = i++) {
        auto [xi, yi] = ring[i];
        auto [xj, yj] = ring[j];
        if ((yi > y) != (yj > y) && x < (xj - xi) * (y - yi) / (yj - yi) + xi) in = !in;
    }
    return in;
}

/* Statistics of one region, computed here cell by cell. */
struct Expected {
    std::vector<long> null_cells, non_null_cells;
    std::vector<double> minimum, maximum, mean, median, covariance;
};

struct Grid {
    int type = Unsigned8BitInteger;
    int lines = 7, cells = 9, bands = 2;
    bool has_null = false;
    double null_value = 0.0;
    int order = LSBFirst;       /* of the data file */
    int header_offset = 0;      /* bytes before the first line */
    std::vector<double> values; /* band, line, cell */
    std::string header;
    dshdr *d = nullptr;

    Grid() = default;
    Grid(const Grid &) = delete;
    Grid &operator=(const Grid &) = delete;
    ~Grid() { ef_dshdr(d); }

    double &at(int b, int l, int c)
    {
        return values[(static_cast<size_t>(b) * lines + l) * cells + c];
    }
    double at(int b, int l, int c) const
    {
        return values[(static_cast<size_t>(b) * lines + l) * cells + c];
    }

    void fill(const std::function<double(int, int, int)> &f)
    {
        values.assign(static_cast<size_t>(bands) * lines * cells, 0.0);
        for (int b = 0; b < bands; b++)
            for (int l = 0; l < lines; l++)
                for (int c = 0; c < cells; c++) at(b, l, c) = f(b, l, c);
    }

    /* Writes `stem`.vld and its data in `dir` and reads the header back. */
    void write(const TempDir &dir, const std::string &stem, double cell_size = 1.0)
    {
        header = dir.file(stem + ".vld");
        dshdr *w = nullptr;
        df_raster_dshdr(&w, header.c_str(), cells, lines, bands, type);
        w->info.r.has_null = has_null;
        w->info.r.null_value = null_value;
        w->info.r.cellinfo.x_dimension = w->info.r.cellinfo.y_dimension = cell_size;
        w->byte_order = order;
        w->header_offset = header_offset;
        ep_dshdr(w, header.c_str());
        ef_dshdr(w);
        std::string data(static_cast<size_t>(header_offset), '\x5a');
        for (int l = 0; l < lines; l++)
            for (int b = 0; b < bands; b++)
                for (int c = 0; c < cells; c++) {
                    std::string cell;
                    put_cell(cell, at(b, l, c), type);
                    if (order != LSBFirst) std::reverse(cell.begin(), cell.end());
                    data += cell;
                }
        std::ofstream(dir.file(stem), std::ios::binary) << data;
        ef_dshdr(d);
        d = nullptr;
        eg_dshdr(&d, header.c_str());
    }

    /* The value a cell holds once stored in the cell type. */
    double stored(int b, int l, int c) const
    {
        std::string bytes;
        put_cell(bytes, at(b, l, c), type);
        auto get = [&](auto v) {
            std::memcpy(&v, bytes.data(), sizeof v);
            return static_cast<double>(v);
        };
        switch (type) {
            case Unsigned8BitInteger:
                return get(uint8_t{});
            case Unsigned16BitInteger:
                return get(uint16_t{});
            case Unsigned32BitInteger:
                return get(uint32_t{});
            case Signed8BitInteger:
                return get(int8_t{});
            case Signed16BitInteger:
                return get(int16_t{});
            case Signed32BitInteger:
                return get(int32_t{});
            case IEEE4ByteReal:
                return get(float{});
            default:
                return get(double{});
        }
    }

    bool is_null(double v) const
    {
        if (!has_null) return false;
        double nv = null_value;
        double limit = type == IEEE4ByteReal ? FLT_MAX : DBL_MAX;
        if (type == IEEE4ByteReal) nv = std::fmax(-limit, std::fmin(limit, nv));
        if (!(std::fabs(v) <= limit)) return true;
        return static_cast<float>(v) == static_cast<float>(nv);
    }

    /* The statistics of the cells that `in` accepts, lines and cells on the
     * grid of `rate` from 0. */
    Expected expect(const std::function<bool(int, int)> &in, int rate = 1) const
    {
        Expected e;
        std::vector<double> sum(bands, 0.0), mn(bands, DBL_MAX), mx(bands, -DBL_MAX);
        e.null_cells.assign(bands, 0);
        e.non_null_cells.assign(bands, 0);
        for (int l = 0; l < lines; l += rate)
            for (int c = 0; c < cells; c += rate) {
                if (!in(c, l)) continue;
                for (int b = 0; b < bands; b++) {
                    double v = stored(b, l, c);
                    if (is_null(v)) {
                        e.null_cells[b]++;
                        continue;
                    }
                    e.non_null_cells[b]++;
                    sum[b] += v;
                    mn[b] = std::fmin(mn[b], v);
                    mx[b] = std::fmax(mx[b], v);
                }
            }
        std::vector<double> range(bands);
        for (int b = 0; b < bands; b++) {
            long n = e.non_null_cells[b];
            e.mean.push_back(n ? sum[b] / n : 0.0);
            e.minimum.push_back(n ? mn[b] : 0.0);
            e.maximum.push_back(n ? mx[b] : 0.0);
            range[b] = e.maximum[b] == e.minimum[b] ? 1.0 : e.maximum[b] - e.minimum[b];
        }
        std::vector<std::vector<long>> histogram(bands, std::vector<long>(256, 0));
        std::vector<double> products(static_cast<size_t>(bands) * bands, 0.0);
        long full = 0;
        for (int l = 0; l < lines; l += rate)
            for (int c = 0; c < cells; c += rate) {
                if (!in(c, l)) continue;
                bool any_null = false;
                for (int b = 0; b < bands; b++) {
                    double v = stored(b, l, c);
                    if (is_null(v)) {
                        any_null = true;
                        continue;
                    }
                    int k = static_cast<int>((v - e.minimum[b]) / range[b] * 256);
                    histogram[b][k > 255 ? 255 : k]++;
                }
                if (any_null) continue;
                full++;
                for (int i = 0; i < bands; i++)
                    for (int j = 0; j < bands; j++)
                        products[i * bands + j] +=
                            (stored(i, l, c) - e.mean[i]) * (stored(j, l, c) - e.mean[j]);
            }
        for (int b = 0; b < bands; b++) {
            long half = (e.non_null_cells[b] + 1) / 2, running = 0;
            int k = 0;
            for (; k < 255; k++) {
                running += histogram[b][k];
                if (running >= half) break;
            }
            double v = k / 256.0 * range[b] + e.minimum[b];
            if (type == IEEE4ByteReal)
                v = static_cast<float>(v);
            else if (type != IEEE8ByteReal)
                v = v >= 0 ? std::floor(v + 0.5) : std::ceil(v - 0.5);
            e.median.push_back(v);
        }
        for (double p : products) e.covariance.push_back(full > 1 ? p / (full - 1) : 0.0);
        for (int b = 0; b < bands; b++) {
            e.null_cells[b] *= rate * rate;
            e.non_null_cells[b] *= rate * rate;
        }
        return e;
    }
};

}  // namespace st

#endif
