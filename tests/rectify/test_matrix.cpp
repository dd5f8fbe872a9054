// The matrix routines against answers worked out by hand, and against their
// own definitions (A A^-1 = I, A v = lambda v) on matrices made in the test.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "vln_matrix.h"

namespace {

using Matrix = std::vector<double>;

Matrix product(const Matrix &a, const Matrix &b, int n)
{
    Matrix c(static_cast<size_t>(n) * n, 0.0);
    for (int i = 0; i < n; i++)
        for (int j = 0; j < n; j++)
            for (int k = 0; k < n; k++)
                c[i * n + j] += a[i * n + k] * b[k * n + j];
    return c;
}

Matrix random_matrix(int n, unsigned seed)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> d(-5.0, 5.0);
    Matrix a(static_cast<size_t>(n) * n);
    for (double &x : a)
        x = d(gen);
    return a;
}

void expect_identity(const Matrix &m, int n, double tol)
{
    for (int i = 0; i < n; i++)
        for (int j = 0; j < n; j++)
            EXPECT_NEAR(m[i * n + j], i == j ? 1.0 : 0.0, tol) << "entry " << i << "," << j;
}

TEST(Matrix, InverseTimesMatrixIsIdentity)
{
    for (int n : {1, 2, 3, 5, 8}) {
        Matrix a = random_matrix(n, 17u + n), inv(a.size());
        ASSERT_EQ(VLN_get_matrix_inverse(a.data(), inv.data(), n), 0) << n;
        expect_identity(product(a, inv, n), n, 1e-10);
        // In place gives the same.
        Matrix same = a;
        ASSERT_EQ(VLN_get_matrix_inverse(same.data(), same.data(), n), 0);
        for (size_t i = 0; i < a.size(); i++)
            EXPECT_DOUBLE_EQ(same[i], inv[i]);
    }
}

TEST(Matrix, InverseNeedsRowSwaps)
{
    // A zero on the diagonal: only pivoting gets past it.
    Matrix a = {0, 1, 2, 1, 0, 3, 4, -3, 8}, inv(9);
    ASSERT_EQ(VLN_get_matrix_inverse(a.data(), inv.data(), 3), 0);
    Matrix expected = {-4.5, 7, -1.5, -2, 4, -1, 1.5, -2, 0.5};
    for (int i = 0; i < 9; i++)
        EXPECT_NEAR(inv[i], expected[i], 1e-12) << i;
}

TEST(Matrix, SingularAndBadMatricesAreRefused)
{
    struct Case {
        const char *what;
        Matrix a;
        int n;
    };
    const double nan = std::nan("");
    for (const Case &c : std::vector<Case>{
             {"zero", {0, 0, 0, 0}, 2},
             {"equal rows", {1, 2, 3, 2, 4, 6, 1, 1, 1}, 3},
             {"not a number", {1, nan, 0, 1}, 2},
             {"constant band covariance", {4, 0, 0, 0}, 2},
         }) {
        Matrix inv(c.a.size());
        EXPECT_EQ(VLN_get_matrix_inverse(c.a.data(), inv.data(), c.n), 1) << c.what;
    }
    Matrix one = {1};
    EXPECT_EQ(VLN_get_matrix_inverse(nullptr, one.data(), 1), 1);
    EXPECT_EQ(VLN_get_matrix_inverse(one.data(), one.data(), 0), 1);
}

TEST(Matrix, Determinants)
{
    struct Case {
        Matrix a;
        int n;
        double expected;
    };
    for (const Case &c : std::vector<Case>{
             {{7}, 1, 7},
             {{1, 2, 3, 4}, 2, -2},
             {{0, 1, 1, 0}, 2, -1},                       // one swap
             {{0, 1, 0, 0, 0, 1, 1, 0, 0}, 3, 1},         // a cycle: two swaps
             {{2, -3, 1, 2, 0, -1, 1, 4, 5}, 3, 49},
             {{1, 2, 3, 2, 4, 6, 1, 1, 1}, 3, 0},         // singular
         }) {
        double d = -99;
        ASSERT_EQ(VLN_get_matrix_determinant(c.a.data(), c.n, &d), 0);
        EXPECT_NEAR(d, c.expected, 1e-12);
        EXPECT_NEAR(VLN_matrix_determinant(c.a.data(), c.n), c.expected, 1e-12);
    }
    double d;
    EXPECT_EQ(VLN_get_matrix_determinant(nullptr, 2, &d), 1);
    EXPECT_EQ(VLN_matrix_determinant(nullptr, 0), 0.0);
}

TEST(Matrix, SubmatrixDeterminantTakesRowsAndColumnsInListOrder)
{
    Matrix a = {2, -3, 1, 2, 0, -1, 1, 4, 5};
    int first_last[] = {0, 2};
    EXPECT_NEAR(VLN_submatrix_determinant(a.data(), 3, first_last, 2), 2 * 5 - 1 * 1, 1e-12);
    int swapped[] = {2, 0};  // both rows and columns swap: the sign stays
    EXPECT_NEAR(VLN_submatrix_determinant(a.data(), 3, swapped, 2), 9, 1e-12);
    int all[] = {0, 1, 2};
    EXPECT_NEAR(VLN_submatrix_determinant(a.data(), 3, all, 3), 49, 1e-12);
    int out_of_range[] = {0, 3};
    EXPECT_EQ(VLN_submatrix_determinant(a.data(), 3, out_of_range, 2), 0.0);
    EXPECT_EQ(VLN_submatrix_determinant(a.data(), 3, all, 0), 0.0);
}

TEST(Matrix, FactoredSolvesForBothTheMatrixAndItsTranspose)
{
    const int n = 4;
    Matrix a = random_matrix(n, 5), lu = a;
    std::vector<int> piv(n);
    ASSERT_EQ(det(lu.data(), n, piv.data()), 0);
    EXPECT_NEAR(deti(lu.data(), n, piv.data()), VLN_matrix_determinant(a.data(), n), 1e-9);
    Matrix x = {1, -2, 3, 0.5};
    Matrix b(n, 0.0), bt(n, 0.0);
    for (int i = 0; i < n; i++)
        for (int j = 0; j < n; j++) {
            b[i] += a[i * n + j] * x[j];
            bt[i] += a[j * n + i] * x[j];
        }
    backsub(lu.data(), n, piv.data(), b.data());
    backt(lu.data(), n, piv.data(), bt.data());
    for (int i = 0; i < n; i++) {
        EXPECT_NEAR(b[i], x[i], 1e-10);
        EXPECT_NEAR(bt[i], x[i], 1e-10);
    }
}

TEST(Matrix, EigenOfSymmetricMatrices)
{
    // Worked by hand: [[2,1],[1,2]] has 3 along (1,1) and 1 along (1,-1).
    Matrix a = {2, 1, 1, 2}, values(2), vectors(4);
    ASSERT_EQ(eigenrs(a.data(), 2, values.data(), vectors.data()), 0);
    EXPECT_NEAR(values[0], 3, 1e-12);
    EXPECT_NEAR(values[1], 1, 1e-12);
    const double r = std::sqrt(0.5);
    EXPECT_NEAR(vectors[0], r, 1e-12);
    EXPECT_NEAR(vectors[2], r, 1e-12);
    EXPECT_NEAR(std::fabs(vectors[1]), r, 1e-12);
    EXPECT_NEAR(vectors[1], -vectors[3], 1e-12);

    // A diagonal matrix out of order comes back sorted, largest first.
    Matrix d = {1, 0, 0, 0, 5, 0, 0, 0, 3}, dv(3), dvec(9);
    ASSERT_EQ(eigenrs(d.data(), 3, dv.data(), dvec.data()), 0);
    EXPECT_EQ(dv, (Matrix{5, 3, 1}));
    EXPECT_EQ(dvec, (Matrix{0, 0, 1, 1, 0, 0, 0, 1, 0}));

    // A covariance-like matrix: A V = V diag(values), V orthonormal, trace kept.
    const int n = 6;
    Matrix g = random_matrix(n, 99), s(n * n, 0.0);
    for (int i = 0; i < n; i++)
        for (int j = 0; j < n; j++)
            for (int k = 0; k < n; k++)
                s[i * n + j] += g[k * n + i] * g[k * n + j];
    Matrix sv(n), svec(n * n);
    ASSERT_EQ(eigenrs(s.data(), n, sv.data(), svec.data()), 0);
    double trace = 0, sum = 0;
    for (int i = 0; i < n; i++) {
        trace += s[i * n + i];
        sum += sv[i];
        if (i > 0) {
            EXPECT_GE(sv[i - 1], sv[i]);
        }
    }
    EXPECT_NEAR(trace, sum, 1e-9);
    for (int k = 0; k < n; k++)
        for (int i = 0; i < n; i++) {
            double av = 0;
            for (int j = 0; j < n; j++)
                av += s[i * n + j] * svec[j * n + k];
            EXPECT_NEAR(av, sv[k] * svec[i * n + k], 1e-8);
        }
    Matrix vt(n * n);
    for (int i = 0; i < n; i++)
        for (int j = 0; j < n; j++)
            vt[i * n + j] = svec[j * n + i];
    expect_identity(product(vt, svec, n), n, 1e-12);

    Matrix bad = {1, std::nan(""), std::nan(""), 1};
    EXPECT_EQ(eigenrs(bad.data(), 2, values.data(), vectors.data()), 1);
}

TEST(Matrix, VectorKernelsHonourStrides)
{
    double x[] = {1, -7, 3, 8, -2, 4};
    EXPECT_EQ(isamax(6, x, 1), 3);
    EXPECT_EQ(isamax(3, x, 2), 1);  // 1, 3, -2: 3 is largest
    EXPECT_EQ(isamax(0, x, 1), -1);
    EXPECT_EQ(sasum(3, x + 1, 2), 7 + 8 + 4);
    EXPECT_EQ(sdot(3, x, 2, x + 1, 2), 1 * -7 + 3 * 8 + -2 * 4);
    double y[] = {1, 1, 1};
    saxpy(3, 2.0, x, 2, y, 1);
    EXPECT_EQ(y[0], 3);
    EXPECT_EQ(y[1], 7);
    EXPECT_EQ(y[2], -3);
    sscal(2, -1.0, y, 2);
    EXPECT_EQ(y[0], -3);
    EXPECT_EQ(y[2], 3);
    double a[] = {1, 2}, b[] = {3, 4};
    sswap(2, a, 1, b, 1);
    EXPECT_EQ(a[0], 3);
    EXPECT_EQ(b[1], 2);
}

}  // namespace
