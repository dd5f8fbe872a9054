/*
 * vln_pe_cells.cpp: cell-type conversion for the engine's lines.
 *
 * Conversion to an integer type rounds half away from zero and saturates at
 * the type's limits, so that out-of-range values keep their sign's extreme
 * rather than wrapping; NaN becomes 0. One template per pair of types.
 */
#include <cstdio>
#include <cstring>

#include "vln_pe_internal.h"

using namespace vln_pe;

namespace {

template <class From, class To>
void convert_run(const void *from, void *to, int first, int count)
{
    const auto *in = static_cast<const From *>(from) + first;
    auto *out = static_cast<To *>(to) + first;
    if constexpr (std::is_same_v<From, To>) {
        if (in != out) std::memmove(out, in, sizeof(To) * static_cast<size_t>(count));
    } else if constexpr (sizeof(From) >= sizeof(To)) {
        // Same or shrinking size: forwards, so that an in-place conversion
        // reads each cell before it is overwritten.
        for (int i = 0; i < count; i++) out[i] = round_to<To>(static_cast<double>(in[i]));
    } else {
        for (int i = count - 1; i >= 0; i--) out[i] = round_to<To>(static_cast<double>(in[i]));
    }
}

using RunConverter = void (*)(const void *, void *, int, int);

template <class From>
RunConverter converter_from(int to_type)
{
    return with_cell_type(to_type, [](auto to) -> RunConverter {
        using To = decltype(to);
        if constexpr (std::is_same_v<To, std::byte> || std::is_same_v<From, std::byte>)
            return nullptr;
        else
            return &convert_run<From, To>;
    });
}

RunConverter converter(int from_type, int to_type)
{
    return with_cell_type(from_type, [to_type](auto from) -> RunConverter {
        return converter_from<decltype(from)>(to_type);
    });
}

void unknown_type(int type)
{
    char text[64];
    std::snprintf(text, sizeof text, "Unknown cell type %d", type);
    VLD_setup_error(VLD_ERR_INTERNAL, text);
}

}  // namespace

void vln_pe::convtype_cells(int from_type, const void *from, int to_type, void *to, int first,
                            int count)
{
    RunConverter f = converter(from_type, to_type);
    if (f == nullptr) return unknown_type(f == nullptr ? from_type : to_type);
    if (count > 0) f(from, to, first, count);
}

void vln_pe::convtype(int from_type, const void *from, int to_type, void *to, const rlseg *runs)
{
    RunConverter f = converter(from_type, to_type);
    if (f == nullptr) return unknown_type(from_type);
    // A type that grows must be converted from the last run back, so that
    // one line can be converted in place.
    if (celltypesize(to_type) > celltypesize(from_type) && from == to) {
        const rlseg *stack[64];
        int n = 0;
        for (const rlseg *r = runs; r != nullptr; r = r->next) {
            if (n == 64) {
                // Rare: many runs; convert the stacked ones and go on.
                for (int i = n - 1; i >= 0; i--)
                    f(from, to, stack[i]->first, stack[i]->last - stack[i]->first + 1);
                n = 0;
            }
            stack[n++] = r;
        }
        for (int i = n - 1; i >= 0; i--)
            f(from, to, stack[i]->first, stack[i]->last - stack[i]->first + 1);
        return;
    }
    for (const rlseg *r = runs; r != nullptr; r = r->next)
        f(from, to, r->first, r->last - r->first + 1);
}

void vln_pe::convtype1(double value, int cell_type, void *out)
{
    with_cell_type(cell_type, [&](auto t) {
        using T = decltype(t);
        if constexpr (std::is_same_v<T, std::byte>) {
            unknown_type(cell_type);
        } else {
            T v = round_to<T>(value);
            std::memcpy(out, &v, sizeof v);
        }
    });
}

double vln_pe::cell_value(int cell_type, const void *line, int i)
{
    return with_cell_type(cell_type, [&](auto t) -> double {
        using T = decltype(t);
        if constexpr (std::is_same_v<T, std::byte>)
            return 0.0;
        else
            return static_cast<double>(static_cast<const T *>(line)[i]);
    });
}
