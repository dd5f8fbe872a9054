/* raster_fixture.h: datasets written cell by cell for the raster suites.
 *
 * A Dataset describes one raster (layout, byte order, cell type, size) and
 * writes its header (through ep_dshdr) and its data file beside it, by its own
 * position arithmetic, so that the readers are checked against an independent
 * picture of each layout. Every cell's value is a function of band, line and
 * cell that fits every cell type.
 */
#ifndef VORLAN_TESTS_RASTER_FIXTURE_H
#define VORLAN_TESTS_RASTER_FIXTURE_H

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "temp_dir.h"
#include "vld_dshdr.h"
#include "vld_raster.h"
#include "vln_path.h"

namespace ras {

inline std::string error_text()
{
    return VLD_error.text ? VLD_error.text : "";
}

using test_support::TempDir;

/* The value of a cell: small enough for a signed 8-bit cell. */
inline double cell_value(int band, int line, int cell)
{
    return static_cast<double>((band * 31 + line * 7 + cell * 3) % 120);
}

/* The host's bytes of `value` as a cell of `type`. */
inline std::vector<unsigned char> cell_bytes(double value, int type)
{
    std::vector<unsigned char> out(static_cast<size_t>(celltypesize(type)));
    auto put = [&](auto v) { std::memcpy(out.data(), &v, sizeof v); };
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
    return out;
}

struct Dataset {
    int layout = DST_VLDStorage;
    int order = LSBFirst;
    int type = Signed16BitInteger;
    int lines = 7, cells = 13, bands = 3;
    int header_offset = 0;  // VLDStorage only
    std::string header, data;
    dshdr *d = nullptr;

    Dataset() = default;
    Dataset(const Dataset &) = delete;
    Dataset &operator=(const Dataset &) = delete;
    ~Dataset() { ef_dshdr(d); }

    int cb() const { return celltypesize(type); }

    /* The file's bytes of one cell, in its byte order. */
    std::vector<unsigned char> file_cell(int b, int l, int c) const
    {
        auto v = cell_bytes(cell_value(b, l, c), type);
        if (order != LSBFirst) std::reverse(v.begin(), v.end());
        return v;
    }

    /* The data file, laid out by hand for each storage type. */
    std::string bytes() const
    {
        std::string out;
        auto put = [&](const std::vector<unsigned char> &v) { out.append(v.begin(), v.end()); };
        if (layout == DST_AImage) {
            out.assign(52, '\x5a');
            for (int l = 0; l < lines; l++)
                for (int c = 0; c < cells; c++)
                    for (int b = 0; b < bands; b++) put(file_cell(b, l, c));
            return out;
        }
        if (layout == DST_IFUT) {
            size_t band_line = std::max<size_t>(512, static_cast<size_t>(cells) * cb());
            band_line = (band_line + 3) / 4 * 4;
            out.assign(band_line * (bands + 1), '\x5a');
            for (int l = 0; l < lines; l++)
                for (int b = 0; b < bands; b++) {
                    std::string piece;
                    for (int c = 0; c < cells; c++) {
                        auto v = file_cell(b, l, c);
                        piece.append(v.begin(), v.end());
                    }
                    piece.resize(band_line, '\0');
                    // Stored in 32-bit words of the other order.
                    for (size_t w = 0; w < band_line; w += 4) {
                        if (cb() == 1) std::reverse(piece.begin() + w, piece.begin() + w + 4);
                        if (cb() == 2)
                            std::rotate(piece.begin() + w, piece.begin() + w + 2,
                                        piece.begin() + w + 4);
                    }
                    out += piece;
                }
            return out;
        }
        out.assign(layout == DST_GeoScanMk2 ? 256 : header_offset, '\x5a');
        for (int l = 0; l < lines; l++)
            for (int b = 0; b < bands; b++)
                for (int c = 0; c < cells; c++) put(file_cell(b, l, c));
        return out;
    }

    /* Writes header and data in `dir` as `stem`.vld and `stem`; then reads the
     * header back. `cut` drops bytes from the end of the data file; without
     * `with_data` the data file is left empty, for the caller to lay out. */
    void write(const TempDir &dir, const std::string &stem, size_t cut = 0, bool with_data = true)
    {
        header = dir.file(stem + ".vld");
        data = dir.file(stem);
        dshdr *w = nullptr;
        df_raster_dshdr(&w, header.c_str(), cells, lines, bands, type);
        w->dataset_type = layout;
        w->byte_order = order;
        w->header_offset = header_offset;
        ep_dshdr(w, header.c_str());
        ef_dshdr(w);
        std::string content = with_data ? bytes() : std::string();
        content.resize(content.size() - cut);
        std::ofstream(data, std::ios::binary) << content;
        eg_dshdr(&d, header.c_str());
    }
};

/* Band buffers for a window, one per band. */
struct Buffers {
    std::vector<std::vector<unsigned char>> bands;
    std::vector<void *> ptrs;
    Buffers(int nr_bands, size_t bytes) : bands(nr_bands, std::vector<unsigned char>(bytes))
    {
        for (auto &b : bands) ptrs.push_back(b.data());
    }
    void **data() { return ptrs.data(); }
};

/* Band strings for eo_raster. */
struct BandStrings {
    std::vector<std::string> texts;
    std::vector<char *> ptrs;
    explicit BandStrings(std::initializer_list<int> numbers)
    {
        for (int n : numbers) texts.push_back(std::to_string(n));
        for (auto &t : texts) ptrs.push_back(t.data());
    }
    char **data() { return ptrs.data(); }
};

}  // namespace ras

#endif
