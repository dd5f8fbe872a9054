/*
 * kernel_fixture.h: grids of scripted lines, and what a window node must make
 * of them, worked out cell by cell from the definitions: a cell is valid when
 * every cell of its window lies on the line and in a run, and a convolution is
 * the weighted sum of the window, row by row and column by column, over the
 * scale factor.
 */
#ifndef VORLAN_TESTS_KERNEL_FIXTURE_H
#define VORLAN_TESTS_KERNEL_FIXTURE_H

#include <cmath>
#include <functional>
#include <vector>

#include "node_harness.h"

namespace kernel_test {

using node_test::Runs;
using node_test::ScriptLine;

struct Grid {
    int width = 0;
    std::vector<ScriptLine> lines;
};

/* `nr_lines` lines of `width` cells of f(line, cell), all valid. */
inline Grid make_grid(int width, int nr_lines, const std::function<double(int, int)> &f)
{
    Grid g;
    g.width = width;
    for (int l = 0; l < nr_lines; l++) {
        ScriptLine line;
        for (int x = 0; x < width; x++) line.values.push_back(f(l, x));
        line.runs = {{0, width - 1}};
        g.lines.push_back(line);
    }
    return g;
}

inline bool cell_valid(const Grid &g, int line, int x)
{
    if (x < 0 || x >= g.width) return false;
    for (auto [first, last] : g.lines[static_cast<size_t>(line)].runs)
        if (x >= first && x <= last) return true;
    return false;
}

inline double cell(const Grid &g, int line, int x)
{
    return g.lines[static_cast<size_t>(line)].values[static_cast<size_t>(x)];
}

/* The runs of the cells for which `valid` holds. */
inline Runs runs_where(int width, const std::function<bool(int)> &valid)
{
    Runs runs;
    for (int x = 0; x < width; x++) {
        if (!valid(x)) continue;
        if (!runs.empty() && runs.back().second == x - 1)
            runs.back().second = x;
        else
            runs.emplace_back(x, x);
    }
    return runs;
}

/* Output line `j` of a window of rows by columns: its top row is input line j. */
inline bool window_valid(const Grid &g, int j, int rows, int columns, int x)
{
    for (int r = 0; r < rows; r++)
        for (int c = 0; c < columns; c++)
            if (!cell_valid(g, j + r, x - columns / 2 + c)) return false;
    return true;
}

struct Expected {
    std::vector<double> values;  // per cell; only the runs' cells count
    Runs runs;
};

/* What a window node makes of line `j`, with `value(j, x)` the value of a
 * valid cell. */
inline Expected window_line(const Grid &g, int j, int rows, int columns,
                            const std::function<double(int, int)> &value)
{
    Expected e;
    e.values.assign(static_cast<size_t>(g.width), 0.0);
    e.runs = runs_where(g.width, [&](int x) { return window_valid(g, j, rows, columns, x); });
    for (auto [first, last] : e.runs)
        for (int x = first; x <= last; x++) e.values[static_cast<size_t>(x)] = value(j, x);
    return e;
}

/* Checks the cells of the expected runs, and the runs. */
inline void expect_line(const node_test::Line &got, const Expected &want)
{
    ASSERT_EQ(got.runs, want.runs);
    for (auto [first, last] : want.runs)
        for (int x = first; x <= last; x++)
            EXPECT_EQ(got.values[static_cast<size_t>(x)], want.values[static_cast<size_t>(x)])
                << "cell " << x;
}

}  // namespace kernel_test

#endif
