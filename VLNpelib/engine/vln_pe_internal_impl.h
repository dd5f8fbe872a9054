/*
 * vln_pe_internal_impl.h: the templates of the engine's frame; included by
 * vln_pe_internal.h only.
 */
#ifndef VORLAN_VLN_PE_INTERNAL_IMPL_H
#define VORLAN_VLN_PE_INTERNAL_IMPL_H

#include <cmath>
#include <limits>
#include <type_traits>

namespace vln_pe {

template <class Private>
Private *add_stage(funcnode **slot, pe_context *pe, int type, int nr_buffers, int nr_cells,
                   int cell_type, int alloc_level, funcnode **made)
{
    funcnode *node = nullptr;
    Private *p = new_private_node<Private>(pe, type, 1, &node);
    setup_fninput(pe, &node->inputs[0], *slot, nr_buffers, nr_cells, cell_type, alloc_level);
    *slot = node;
    if (made != nullptr) *made = node;
    return p;
}

template <class F>
decltype(auto) with_cell_type(int cell_type, F &&f)
{
    switch (cell_type) {
        case Unsigned8BitInteger:
            return f(uint8_t{});
        case Unsigned16BitInteger:
            return f(uint16_t{});
        case Unsigned32BitInteger:
            return f(uint32_t{});
        case Signed8BitInteger:
            return f(int8_t{});
        case Signed16BitInteger:
            return f(int16_t{});
        case Signed32BitInteger:
            return f(int32_t{});
        case IEEE4ByteReal:
            return f(float{});
        case IEEE8ByteReal:
            return f(double{});
        default:
            return f(std::byte{});
    }
}

template <class T>
T round_to(double value)
{
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(value);
    } else {
        if (std::isnan(value)) return T{0};
        constexpr double lo = static_cast<double>(std::numeric_limits<T>::min());
        constexpr double hi = static_cast<double>(std::numeric_limits<T>::max());
        if constexpr (sizeof(T) <= 4) {
            // floor(r) of r >= 0 and ceil(r) of r <= 0 are both r truncated,
            // which a conversion does in one instruction, in any rounding mode.
            if (value >= 0) {
                const double r = value + 0.5;
                return r >= hi + 1.0 ? std::numeric_limits<T>::max()
                                     : static_cast<T>(static_cast<int64_t>(r));
            }
            const double r = value - 0.5;
            return r <= lo - 1.0 ? std::numeric_limits<T>::min()
                                 : static_cast<T>(static_cast<int64_t>(r));
        } else {
            double r = value >= 0 ? std::floor(value + 0.5) : std::ceil(value - 0.5);
            if (r < lo) return std::numeric_limits<T>::min();
            if (r > hi) return std::numeric_limits<T>::max();
            return static_cast<T>(r);
        }
    }
}

}  // namespace vln_pe

#endif
