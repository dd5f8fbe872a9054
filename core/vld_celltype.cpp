/*
 * vld_celltype.cpp: cell types, their sizes and ranges, and byte order.
 *
 * A cell type is a small integer (2 to 9 are the storable ones). Byte order is
 * two process-wide numbers, the host's and the data's; the return_* readers and
 * smart_byteswap swap when they differ. The host here is always least
 * significant byte first (2).
 */
#include "vld_core.h"

#include <bit>
#include <cstring>
#include <utility>

const VLD_ENUM ev_CellType[] = {
    {0, "None"},
    {1, "Unknown"},
    {2, "Unsigned8BitInteger"},
    {3, "Unsigned16BitInteger"},
    {4, "Unsigned32BitInteger"},
    {5, "Signed8BitInteger"},
    {6, "Signed16BitInteger"},
    {7, "Signed32BitInteger"},
    {8, "IEEE4ByteReal"},
    {9, "IEEE8ByteReal"},
    {0, nullptr},
};

const int32_t typesize[VLD_NCELLTYPES] = {0, 0, 1, 2, 4, 1, 2, 4, 4, 8};

const char *DE_cell_type_string[VLD_NCELLTYPES] = {
    "None",
    "Unknown",
    "Unsigned 8 Bit Integer",
    "Unsigned 16 Bit Integer",
    "Unsigned 32 Bit Integer",
    "Signed 8 Bit Integer",
    "Signed 16 Bit Integer",
    "Signed 32 Bit Integer",
    "IEEE 4 Byte Real",
    "IEEE 8 Byte Real",
};

// "UTM" and "LatLong" are synonyms read as EN and LL; a writer finds the earlier
// name by value, so they are never written.
const VLD_ENUM ev_CST[] = {
    {0, "None"}, {1, "RAW"}, {2, "EN"}, {3, "LL"}, {2, "UTM"}, {3, "LatLong"}, {0, nullptr},
};

namespace {

struct celltype_range {
    double max, min;
};

constexpr double double_max = std::bit_cast<double>(0x7FEFFFFFFFFFFFFFULL);
constexpr double float_max = std::bit_cast<double>(0x47EFFFFFE0000000ULL);

constexpr celltype_range ranges[VLD_NCELLTYPES] = {
    {double_max, -double_max},
    {double_max, -double_max},
    {255.0, 0.0},
    {65535.0, 0.0},
    {4294967295.0, 0.0},
    {127.0, -128.0},
    {32767.0, -32768.0},
    {2147483647.0, -2147483648.0},
    {float_max, -float_max},
    {double_max, -double_max},
};

int host_order = 0;  // 0 until first needed
int data_order = 0;

// Settles the host order on first use. A data order that nobody has set yet is
// taken to be the host's, so that reading native data swaps nothing.
inline void settle_orders()
{
    if (host_order == 0) {
        host_order = byteorder();
        if (data_order == 0) data_order = host_order;
    }
}

inline bool orders_differ()
{
    settle_orders();
    return host_order != data_order;
}

template <typename T>
T read_value(const void *p)
{
    T value;
    memcpy(&value, p, sizeof value);
    return value;
}

template <typename U>
U swapped(U value)
{
    if constexpr (sizeof(U) == 2) return static_cast<U>(__builtin_bswap16(value));
    if constexpr (sizeof(U) == 4) return static_cast<U>(__builtin_bswap32(value));
    if constexpr (sizeof(U) == 8) return static_cast<U>(__builtin_bswap64(value));
}

// Reads a value of type T stored as U bits, swapping when the orders differ.
template <typename T, typename U>
T return_value(const void *p)
{
    U bits = read_value<U>(p);
    if (orders_differ()) bits = swapped(bits);
    return std::bit_cast<T>(bits);
}

template <typename U>
void swap_all(unsigned char *buffer, size_t count)
{
    for (size_t i = 0; i < count; i++) {
        U value;
        memcpy(&value, buffer + i * sizeof(U), sizeof(U));
        value = swapped(value);
        memcpy(buffer + i * sizeof(U), &value, sizeof(U));
    }
}

}  // namespace

int celltypesize(int type)
{
    return (type >= 0 && type < VLD_NCELLTYPES) ? typesize[type] : 0;
}

void get_celltype_max_min(int type, double *max, double *min)
{
    // Only the storable integer and 4-byte types have narrower bounds.
    const celltype_range &r = (type >= 2 && type <= 8) ? ranges[type] : ranges[9];
    if (max != nullptr) *max = r.max;
    if (min != nullptr) *min = r.min;
}

int byteorder(void)
{
    return std::endian::native == std::endian::little ? LSBFirst : MSBFirst;
}

void set_byteorder(int host, int data)
{
    vln_mutex_begin(&csect);
    host_order = host;
    data_order = data;
    vln_mutex_end(&csect);
}

int data_byteorder(int a, int b)
{
    vln_mutex_begin(&csect);
    data_order = (a == b) ? MSBFirst : LSBFirst;
    int result = data_order;
    vln_mutex_end(&csect);
    return result;
}

float return_IEEE4(const void *p)
{
    return return_value<float, uint32_t>(p);
}
double return_IEEE8(const void *p)
{
    return return_value<double, uint64_t>(p);
}
int32_t return_INT32(const void *p)
{
    return return_value<int32_t, uint32_t>(p);
}
uint32_t return_UINT32(const void *p)
{
    return return_value<uint32_t, uint32_t>(p);
}
int return_INT16(const void *p)
{
    return return_value<int16_t, uint16_t>(p);
}
int return_UINT16(const void *p)
{
    return return_value<uint16_t, uint16_t>(p);
}
int return_INT8(const void *p)
{
    return static_cast<int8_t>(read_value<uint8_t>(p));
}
int return_UINT8(const void *p)
{
    return read_value<uint8_t>(p);
}

int smart_byteswap(void *buffer, int count, int width)
{
    if (!orders_differ()) return 0;
    if (buffer == nullptr || count <= 0) return 1;
    auto *bytes = static_cast<unsigned char *>(buffer);
    // Kept: only widths 2 and 4 are swapped here, and any other width is left
    // as it is with a true result; 8-byte data goes through swap_bytes.
    if (width == 2) swap_all<uint16_t>(bytes, static_cast<size_t>(count));
    if (width == 4) swap_all<uint32_t>(bytes, static_cast<size_t>(count));
    return 1;
}

int swap_bytes(void *buffer, int count, int width)
{
    if (buffer == nullptr || count <= 0 || width <= 1) return 0;
    auto *bytes = static_cast<unsigned char *>(buffer);
    auto n = static_cast<size_t>(count);
    switch (width) {
        case 2:
            swap_all<uint16_t>(bytes, n);
            break;
        case 4:
            swap_all<uint32_t>(bytes, n);
            break;
        case 8:
            swap_all<uint64_t>(bytes, n);
            break;
        default:
            for (size_t i = 0; i < n; i++) {
                unsigned char *e = bytes + i * static_cast<size_t>(width);
                for (int a = 0, b = width - 1; a < b; a++, b--) std::swap(e[a], e[b]);
            }
    }
    return 0;
}
