/*
 * vln_resample_internal.h: what the resampling node kinds share; included by
 * the files of this folder only.
 *
 * The nearest-neighbour nodes move cells as opaque units of their size, so
 * that one loop serves every cell type of one size; a size that no loop is
 * written for fails the read. Run lists are rebuilt front to back through a
 * tail pointer, from the handle's pool, so that a read allocates nothing once
 * the pool's free list has grown.
 */
#ifndef VORLAN_VLN_RESAMPLE_INTERNAL_H
#define VORLAN_VLN_RESAMPLE_INTERNAL_H

#include <cmath>
#include <cstdint>
#include <cstring>

#include "vln_nodes.h"

namespace vln_pe {

/* Fails the read: no copying loop is written for the cell size. `file` and
 * `line` say where the loop stands. */
[[noreturn]] inline void bad_cell_size(pe_context *pe, const char *file, int line)
{
    vds_processing_error(pe, "Internal PE error: File = %s, Line = %d, Bad cell size", file, line);
}

/* Calls f(U{}) with U an unsigned type of `cell_size` bytes, the unit in which
 * a cell is moved; sizes other than 1, 2, 4 and 8 fail the read. */
template <class F>
void with_cell_size(pe_context *pe, int cell_size, const char *file, int line, F &&f)
{
    switch (cell_size) {
        case 1:
            return f(uint8_t{});
        case 2:
            return f(uint16_t{});
        case 4:
            return f(uint32_t{});
        case 8:
            return f(uint64_t{});
        default:
            bad_cell_size(pe, file, line);
    }
}

/* Moves cell `from` of `in` to cell `to` of `out`, in units of U. */
template <class U>
inline void move_cell(const void *in, int64_t from, void *out, int64_t to)
{
    std::memcpy(static_cast<char *>(out) + to * static_cast<int64_t>(sizeof(U)),
                static_cast<const char *>(in) + from * static_cast<int64_t>(sizeof(U)), sizeof(U));
}

/* A run list under construction, appended at its tail from the pool. */
struct RunList {
    pe_context *pe;
    rlseg *head = nullptr;
    rlseg **tail = &head;

    explicit RunList(pe_context *context) : pe(context) {}
    void add(int first, int last)
    {
        rlseg *run = pe_rlseg(pe, first, last);
        *tail = run;
        tail = &run->next;
    }
    /* The list, normalised: runs that touch or overlap become one. */
    rlseg *finish()
    {
        combine_rlsegs(&pe->rlsegs, head);
        return head;
    }
};

/* Gives `list` to a line, returning to the pool what the line held. */
inline void give_rlsegs(pe_context *pe, linebuf *line, rlseg *list)
{
    if (line->rlsegs != list) pe_free_rlseg_list(pe, &line->rlsegs);
    line->rlsegs = list;
}

/* ---------------------------------------------------------------- bilinear */

/* Where a destination of a bilinear enlargement lies: between source cells
 * (or lines) i and j, with the weight f of j. */
struct BlendPosition {
    int i, j;
    double f;
};

/* u + f * (v - u). Hue values lie on a circle of 256: a pair more than 128
 * apart is blended across the wrap, and the result brought back into it. */
template <bool Hue>
inline double blend_values(double u, double v, double f)
{
    if constexpr (Hue) {
        if (std::fabs(u - v) > 128.0) {
            if (u >= v)
                v += 256.0;
            else
                u += 256.0;
        }
    }
    double x = u + f * (v - u);
    if constexpr (Hue) {
        if (x > 256.0)
            x -= 256.0;
        else if (x < 0.0)
            x += 256.0;
    }
    return x;
}

/* A real-time shade cell holds its elevation level in its first byte in
 * memory and its azimuth level in its second, on either byte order. */
enum { SHADE_ELEVATION_BYTE = 0, SHADE_AZIMUTH_BYTE = 1 };

/* Blends two shade cells component by component, the azimuth across its
 * wrap at 256. Truncates; callers run in the truncating rounding mode. */
inline uint16_t blend_shade(uint16_t u, uint16_t v, double f)
{
    uint8_t a[2], b[2], out[2];
    std::memcpy(a, &u, 2);
    std::memcpy(b, &v, 2);
    out[SHADE_ELEVATION_BYTE] = static_cast<uint8_t>(
        static_cast<int>(blend_values<false>(a[SHADE_ELEVATION_BYTE], b[SHADE_ELEVATION_BYTE], f)));
    out[SHADE_AZIMUTH_BYTE] = static_cast<uint8_t>(
        static_cast<int>(blend_values<true>(a[SHADE_AZIMUTH_BYTE], b[SHADE_AZIMUTH_BYTE], f)) &
        0xff);
    uint16_t cell;
    std::memcpy(&cell, out, 2);
    return cell;
}

}  // namespace vln_pe

#endif
