// Cell types, byte order, foreign number formats and floating-point classes.
#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstring>

#include "vld_core.h"

namespace {

TEST(CellType, TablesAgree)
{
    struct Row {
        int value;
        const char *keyword, *display;
        int size;
        double min, max;
    } rows[] = {
        {0, "None", "None", 0, -DBL_MAX, DBL_MAX},
        {1, "Unknown", "Unknown", 0, -DBL_MAX, DBL_MAX},
        {2, "Unsigned8BitInteger", "Unsigned 8 Bit Integer", 1, 0, 255},
        {3, "Unsigned16BitInteger", "Unsigned 16 Bit Integer", 2, 0, 65535},
        {4, "Unsigned32BitInteger", "Unsigned 32 Bit Integer", 4, 0, 4294967295.0},
        {5, "Signed8BitInteger", "Signed 8 Bit Integer", 1, -128, 127},
        {6, "Signed16BitInteger", "Signed 16 Bit Integer", 2, -32768, 32767},
        {7, "Signed32BitInteger", "Signed 32 Bit Integer", 4, -2147483648.0, 2147483647.0},
        {8, "IEEE4ByteReal", "IEEE 4 Byte Real", 4, -FLT_MAX, FLT_MAX},
        {9, "IEEE8ByteReal", "IEEE 8 Byte Real", 8, -DBL_MAX, DBL_MAX},
    };
    for (const Row &r : rows) {
        EXPECT_EQ(ev_CellType[r.value].value, r.value);
        EXPECT_STREQ(ev_CellType[r.value].name, r.keyword);
        EXPECT_STREQ(DE_cell_type_string[r.value], r.display);
        EXPECT_EQ(typesize[r.value], r.size);
        EXPECT_EQ(celltypesize(r.value), r.size);
        double max = 0, min = 0;
        get_celltype_max_min(r.value, &max, &min);
        EXPECT_EQ(max, r.max) << r.keyword;
        EXPECT_EQ(min, r.min) << r.keyword;
    }
    EXPECT_EQ(ev_CellType[10].name, nullptr);
    EXPECT_EQ(std::bit_cast<uint64_t>(static_cast<double>(FLT_MAX)), 0x47EFFFFFE0000000ULL);
    for (int odd : {-1, 10, 1000}) {
        EXPECT_EQ(celltypesize(odd), 0);
        double max = 0, min = 0;
        get_celltype_max_min(odd, &max, &min);
        EXPECT_EQ(max, DBL_MAX);
        EXPECT_EQ(min, -DBL_MAX);
    }
    get_celltype_max_min(2, nullptr, nullptr);
}

TEST(CellType, CoordinateSystemWords)
{
    // Synonyms come after the names a writer uses.
    const char *first_for[4] = {"None", "RAW", "EN", "LL"};
    for (int v = 0; v < 4; v++) {
        const VLD_ENUM *e = ev_CST;
        while (e->name != nullptr && e->value != v) e++;
        EXPECT_STREQ(e->name, first_for[v]);
    }
    EXPECT_STREQ(ev_CST[4].name, "UTM");
    EXPECT_EQ(ev_CST[4].value, 2);
    EXPECT_STREQ(ev_CST[5].name, "LatLong");
    EXPECT_EQ(ev_CST[5].value, 3);
    EXPECT_EQ(ev_CST[6].name, nullptr);
}

// Restores native data order after a test that changes it.
struct ByteOrderGuard {
    ~ByteOrderGuard() { set_byteorder(2, 2); }
};

TEST(ByteOrder, ReadersSwapOnlyWhenOrdersDiffer)
{
    ByteOrderGuard guard;
    EXPECT_EQ(byteorder(), LSBFirst);
    const unsigned char i16[] = {0xFF, 0xFE};
    const unsigned char i32[] = {0x01, 0x02, 0x03, 0x04};
    float f = 1.5f;
    unsigned char f32[4];
    memcpy(f32, &f, 4);
    unsigned char f32_be[4] = {f32[3], f32[2], f32[1], f32[0]};

    set_byteorder(2, 2);
    EXPECT_EQ(return_INT16(i16), static_cast<int16_t>(0xFEFF));
    EXPECT_EQ(return_UINT16(i16), 0xFEFF);
    EXPECT_EQ(return_UINT32(i32), 0x04030201u);
    EXPECT_EQ(return_IEEE4(f32), 1.5f);

    set_byteorder(2, 1);
    EXPECT_EQ(return_INT16(i16), -2);  // 0xFFFE, sign-extended
    EXPECT_EQ(return_UINT16(i16), 0xFFFE);
    EXPECT_EQ(return_INT32(i32), 0x01020304);
    EXPECT_EQ(return_IEEE4(f32_be), 1.5f);
    double d = -2.25;
    unsigned char d64[8];
    memcpy(d64, &d, 8);
    unsigned char d64_be[8];
    for (int i = 0; i < 8; i++) d64_be[i] = d64[7 - i];
    EXPECT_EQ(return_IEEE8(d64_be), -2.25);
    const unsigned char i8[] = {0x80};
    EXPECT_EQ(return_INT8(i8), -128);
    EXPECT_EQ(return_UINT8(i8), 128);

    EXPECT_EQ(data_byteorder(7, 7), 1);
    EXPECT_EQ(data_byteorder(7, 8), 2);
}

TEST(ByteOrder, SmartSwapWidths)
{
    ByteOrderGuard guard;
    unsigned char w2[] = {1, 2, 3, 4};
    set_byteorder(2, 2);
    EXPECT_EQ(smart_byteswap(w2, 2, 2), 0);
    EXPECT_EQ(w2[0], 1);

    set_byteorder(2, 1);
    EXPECT_EQ(smart_byteswap(w2, 2, 2), 1);
    EXPECT_EQ(memcmp(w2, "\x02\x01\x04\x03", 4), 0);
    unsigned char w4[] = {1, 2, 3, 4};
    EXPECT_EQ(smart_byteswap(w4, 1, 4), 1);
    EXPECT_EQ(memcmp(w4, "\x04\x03\x02\x01", 4), 0);
    unsigned char w8[] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(smart_byteswap(w8, 1, 8), 1);  // kept: 8-byte data is left alone
    EXPECT_EQ(memcmp(w8, "\x01\x02\x03\x04\x05\x06\x07\x08", 8), 0);
}

TEST(ByteOrder, SwapBytesReversesEveryWidth)
{
    for (int width = 1; width <= 9; width++) {
        unsigned char buf[27], want[27];
        for (int i = 0; i < 3 * width; i++) buf[i] = static_cast<unsigned char>(i);
        for (int e = 0; e < 3; e++)
            for (int k = 0; k < width; k++) want[e * width + k] = buf[e * width + width - 1 - k];
        EXPECT_EQ(swap_bytes(buf, 3, width), 0);
        EXPECT_EQ(memcmp(buf, want, static_cast<size_t>(3 * width)), 0) << "width " << width;
    }
    EXPECT_EQ(swap_bytes(nullptr, 3, 4), 0);
}

TEST(Foreign, VaxNumbers)
{
    struct Case {
        unsigned char bytes[8];
        double f, d;
    } cases[] = {
        // Words low byte first; the first word holds sign, exponent, high fraction.
        {{0x80, 0x40, 0, 0, 0, 0, 0, 0}, 1.0, 1.0},
        {{0x80, 0xC0, 0, 0, 0, 0, 0, 0}, -1.0, -1.0},
        {{0x00, 0x40, 0, 0, 0, 0, 0, 0}, 0.5, 0.5},
        {{0x40, 0x41, 0, 0, 0, 0, 0, 0}, 3.0, 3.0},
        {{0x00, 0x00, 0x12, 0x34, 0x56, 0x78, 0, 0}, 0.0, 0.0},  // exponent 0
        {{0xC0, 0x40, 0, 0, 0, 0, 0, 0}, 1.5, 1.5},
        {{0x80, 0x40, 0x00, 0x80, 0, 0, 0, 0},
         1.0 + std::ldexp(1.0, -8),
         1.0 + std::ldexp(1.0, -8)},
        {{0x80, 0x40, 0, 0, 0x00, 0x80, 0, 0}, 1.0, 1.0 + std::ldexp(1.0, -24)},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(convert_float(c.bytes), static_cast<float>(c.f));
        EXPECT_EQ(convert_D_double(c.bytes), c.d);
    }
}

TEST(Foreign, VaxGFloat)
{
    const unsigned char one[8] = {0x10, 0x40, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(convert_G_double(one), 1.0);
    const unsigned char ten[8] = {0x44, 0x40, 0, 0, 0, 0, 0, 0};  // 0.625 * 2^4
    EXPECT_EQ(convert_G_double(ten), 10.0);
    const unsigned char zero[8] = {0x0F, 0x00, 0xFF, 0xFF, 0, 0, 0, 0};
    EXPECT_EQ(convert_G_double(zero), 0.0);
    // Kept: the sign bit stays in the exponent, so -1 comes out far too large.
    const unsigned char minus_one[8] = {0x10, 0xC0, 0, 0, 0, 0, 0, 0};
    double v = convert_G_double(minus_one);
    EXPECT_TRUE(v < -1e300 || std::isinf(v));
}

TEST(Foreign, IntegerIsReadLowByteFirstAndReversedInPlace)
{
    unsigned char b[4] = {0x01, 0x02, 0x03, 0x84};
    EXPECT_EQ(convert_int(b), static_cast<int32_t>(0x84030201u));
    EXPECT_EQ(memcmp(b, "\x84\x03\x02\x01", 4), 0);
}

TEST(FloatClass, Classes)
{
    EXPECT_EQ(std::bit_cast<uint64_t>(vln_nanval()), 0x7FF8000000000000ULL);
    EXPECT_EQ(std::bit_cast<uint64_t>(vln_infval()), 0x7FF0000000000000ULL);
    const double sig_nan = std::bit_cast<double>(0x7FF0000000000001ULL);
    struct Case {
        double v;
        int isinf, isnan, isvalue;
    } cases[] = {
        {1.0, 0, 0, 0},           {0.0, 0, 0, 0},     {-DBL_MAX, 0, 0, 0},
        {vln_nanval(), 1, 1, 1},  {sig_nan, 1, 1, 1}, {vln_infval(), 1, 0, 1},
        {-vln_infval(), 1, 0, 1},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(vln_isinf(c.v), c.isinf) << c.v;
        EXPECT_EQ(vln_disnan(c.v) != 0, c.isnan != 0) << c.v;
        EXPECT_EQ(VLD_float_isvalue(c.v), c.isvalue) << c.v;  // kept: reversed sense
        EXPECT_EQ(vln_fisnan(static_cast<float>(c.v)), c.isnan) << c.v;
    }
    EXPECT_EQ(vln_fisnan(std::bit_cast<float>(0x7F800001u)), 1);  // signalling
}

}  // namespace
