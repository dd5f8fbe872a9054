// Runs made from cell values: the routine that get_setup_rlsegs_info chooses
// for each cell type and null setting, and FN_RLSEG, which gives a line the
// runs of its cells that aren't null.
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "resample_fixture.h"

using namespace resample_test;

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN();

struct RoutineRow {
    int cell_type;
    int null_set;
    double null_value;
    std::vector<double> cells;
    Runs expected;
};

TEST(RlsegRoutine, EveryCellThatIsNotTheNullIsValid)
{
    const RoutineRow rows[] = {
        {Unsigned8BitInteger, 0, 0, {0, 5, 0}, {{0, 2}}},  // no null: the whole line
        {Signed32BitInteger, 0, 0, {}, {}},
        {Unsigned8BitInteger, 1, 0, {0, 5, 5, 0, 7}, {{1, 2}, {4, 4}}},
        {Signed16BitInteger, 1, -1, {-1, -1, 3, -1}, {{2, 2}}},
        {Unsigned32BitInteger, 1, 7, {7, 7, 7}, {}},
        {Signed8BitInteger, 1, 0, {1, 2, 3}, {{0, 2}}},
        {Unsigned16BitInteger, 1, 65535, {65535, 1, 65535, 2}, {{1, 1}, {3, 3}}},
        {IEEE4ByteReal, 0, 0, {1, NaN, 2, 3}, {{0, 0}, {2, 3}}},  // no null: NaN
        {IEEE8ByteReal, 0, 5, {NaN, NaN, 0, NaN}, {{2, 2}}},
        {IEEE8ByteReal, 1, 0, {0, NaN, 1}, {{1, 2}}},  // with a null, NaN is a value
        {IEEE4ByteReal, 1, 0.5, {0.5, 0.25, 0.5}, {{1, 1}}},
        {IEEE8ByteReal, 1, NaN, {NaN, 1}, {{1, 1}}},
    };
    Tree t;
    for (const RoutineRow &row : rows) {
        SCOPED_TRACE(testing::Message()
                     << row.cell_type << " " << row.null_set << " " << row.null_value);
        rlsegs_routine routine = nullptr;
        alignas(8) unsigned char null_cell[8];
        get_setup_rlsegs_info(row.cell_type, row.null_set, row.null_value, &routine, null_cell);
        ASSERT_NE(routine, nullptr);
        const int size = celltypesize(row.cell_type);
        std::vector<unsigned char> line(row.cells.size() * static_cast<size_t>(size) + 1);
        for (size_t i = 0; i < row.cells.size(); i++)
            vln_pe::convtype1(row.cells[i], row.cell_type,
                              line.data() + i * static_cast<size_t>(size));
        rlseg *runs =
            routine(&t.pe->rlsegs, line.data(), static_cast<int>(row.cells.size()), null_cell);
        EXPECT_EQ(runs_of(runs), row.expected);
        pe_free_rlseg_list(t.pe, &runs);
        // The null value is kept in the type's own form.
        if (row.null_set && !std::isnan(row.null_value)) {
            unsigned char expected[8] = {};
            vln_pe::convtype1(row.null_value, row.cell_type, expected);
            EXPECT_EQ(std::memcmp(null_cell, expected, static_cast<size_t>(size)), 0);
        }
    }
    EXPECT_EQ(t.pe->rlsegs.nr_used, 0);
}

TEST(RlsegNode, ReplacesTheRunsOfEveryBandByThoseOfItsValues)
{
    Tree t;
    // The child's runs are wrong on purpose: the node ignores them.
    t.add_source(Signed16BitInteger, {{{0, 5, 0, 7, 7, 0}, {{0, 0}}}, {{3, 3, 3, 3, 3, 3}, {}}});
    ASSERT_TRUE(
        t.build([](funcnode **slot, pe_context *pe) { setup_rlsegnode(slot, pe, 6, 2, 1, 0.0); }));
    ASSERT_TRUE(t.finish(2, 6));
    ASSERT_EQ(t.cell_type(), Signed16BitInteger);
    const Runs expected[] = {{{1, 1}, {3, 4}}, {{0, 5}}};
    for (const Runs &runs : expected) {
        ASSERT_EQ(t.read(), 0);
        for (int b = 0; b < 2; b++) {
            EXPECT_EQ(t.take_runs(b), runs) << "band " << b;
            EXPECT_EQ(t.cell(3, b), t.lines[static_cast<size_t>(t.source->pulls - 1)].cells[3]);
        }
    }
    EXPECT_EQ(t.pe->rlsegs.nr_used, 0);
}

}  // namespace

/* The conversion of doubles to integer cells: half away from zero, limited
 * to the type, NaN to 0; worked out here with floor and ceil, at the values
 * where a quicker way could slip (halves, just under a half, the limits and
 * just past them, huge values, negative zero). */
template <class T>
void expect_rounding_of(double value)
{
    const double r = value >= 0 ? std::floor(value + 0.5) : std::ceil(value - 0.5);
    T want;
    if (std::isnan(value))
        want = 0;
    else if (r < static_cast<double>(std::numeric_limits<T>::min()))
        want = std::numeric_limits<T>::min();
    else if (r > static_cast<double>(std::numeric_limits<T>::max()))
        want = std::numeric_limits<T>::max();
    else
        want = static_cast<T>(r);
    EXPECT_EQ(vln_pe::round_to<T>(value), want) << value << " as " << sizeof(T) << " bytes";
}

TEST(CellRounding, HalfAwayFromZeroWithinTheType)
{
    std::vector<double> values = {0.0,
                                  -0.0,
                                  0.5,
                                  -0.5,
                                  1.5,
                                  -1.5,
                                  2.5,
                                  0.49999999999999994,
                                  -0.49999999999999994,
                                  std::nan(""),
                                  1e300,
                                  -1e300,
                                  4294967295.5,
                                  -2147483648.5,
                                  -2147483648.4,
                                  2147483647.4,
                                  2147483647.5};
    for (double limit :
         {127.0, 128.0, 255.0, 32767.0, 32768.0, 65535.0, 2147483647.0, 4294967295.0})
        for (double d : {-0.5, -0.49999999999999994, 0.0, 0.49999999999999994, 0.5, 1.0})
            values.push_back(limit + d), values.push_back(-limit + d);
    for (double v : values) {
        expect_rounding_of<uint8_t>(v);
        expect_rounding_of<int8_t>(v);
        expect_rounding_of<uint16_t>(v);
        expect_rounding_of<int16_t>(v);
        expect_rounding_of<uint32_t>(v);
        expect_rounding_of<int32_t>(v);
    }
}
