/*
 * vln_matrix.cpp: general matrices, their inverse, determinant and the
 * eigen-decomposition of symmetric ones, over the vector kernels below.
 *
 * Factoring is LU with partial pivoting, row-major and in place; the inverse
 * is Gauss-Jordan in place, so that it needs only the pivot list. A pivot
 * counts as zero when it is below a small multiple of the largest entry of
 * the matrix: a covariance of a constant band is singular, not merely huge.
 */
#include "vln_matrix.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <vector>

namespace {

// A pivot below this share of the matrix's largest entry is taken as zero.
constexpr double kSingularShare = 1e-14;

double largest_entry(const double *a, int n)
{
    double big = 0.0;
    for (long i = 0; i < static_cast<long>(n) * n; i++)
        big = std::max(big, std::fabs(a[i]));
    return big;
}

bool all_finite(const double *a, long count)
{
    for (long i = 0; i < count; i++)
        if (!std::isfinite(a[i]))
            return false;
    return true;
}

void swap_rows(double *a, int n, int r, int s)
{
    if (r != s)
        sswap(n, a + static_cast<long>(r) * n, 1, a + static_cast<long>(s) * n, 1);
}

}  // namespace

extern "C" {

int isamax(int n, const double *x, int incx)
{
    if (n < 1 || x == nullptr)
        return -1;
    int best = 0;
    double big = std::fabs(x[0]);
    for (int i = 1; i < n; i++) {
        double v = std::fabs(x[static_cast<long>(i) * incx]);
        if (v > big) {
            big = v;
            best = i;
        }
    }
    return best;
}

void saxpy(int n, double a, const double *x, int incx, double *y, int incy)
{
    if (a == 0.0)
        return;
    for (int i = 0; i < n; i++)
        y[static_cast<long>(i) * incy] += a * x[static_cast<long>(i) * incx];
}

double sdot(int n, const double *x, int incx, const double *y, int incy)
{
    double sum = 0.0;
    for (int i = 0; i < n; i++)
        sum += x[static_cast<long>(i) * incx] * y[static_cast<long>(i) * incy];
    return sum;
}

void sswap(int n, double *x, int incx, double *y, int incy)
{
    for (int i = 0; i < n; i++)
        std::swap(x[static_cast<long>(i) * incx], y[static_cast<long>(i) * incy]);
}

void sscal(int n, double a, double *x, int incx)
{
    for (int i = 0; i < n; i++)
        x[static_cast<long>(i) * incx] *= a;
}

double sasum(int n, const double *x, int incx)
{
    double sum = 0.0;
    for (int i = 0; i < n; i++)
        sum += std::fabs(x[static_cast<long>(i) * incx]);
    return sum;
}

int det(double *a, int n, int *pivots)
{
    if (a == nullptr || pivots == nullptr || n < 1)
        return 1;
    const double tiny = kSingularShare * largest_entry(a, n);
    int status = 0;
    for (int k = 0; k < n; k++) {
        double *row_k = a + static_cast<long>(k) * n;
        int p = k + isamax(n - k, row_k + k, n);
        pivots[k] = p;
        swap_rows(a, n, k, p);
        double pivot = row_k[k];
        if (std::fabs(pivot) <= tiny || pivot == 0.0) {
            status = 1;
            continue;
        }
        for (int i = k + 1; i < n; i++) {
            double *row_i = a + static_cast<long>(i) * n;
            double f = row_i[k] / pivot;
            row_i[k] = f;
            saxpy(n - k - 1, -f, row_k + k + 1, 1, row_i + k + 1, 1);
        }
    }
    return status;
}

double deti(const double *lu, int n, const int *pivots)
{
    double d = 1.0;
    for (int k = 0; k < n; k++) {
        d *= lu[static_cast<long>(k) * n + k];
        if (pivots[k] != k)
            d = -d;
    }
    return d;
}

void backsub(const double *lu, int n, const int *pivots, double *b)
{
    for (int k = 0; k < n; k++)
        if (pivots[k] != k)
            std::swap(b[k], b[pivots[k]]);
    for (int i = 1; i < n; i++)  // L has a unit diagonal
        b[i] -= sdot(i, lu + static_cast<long>(i) * n, 1, b, 1);
    for (int i = n - 1; i >= 0; i--) {
        const double *row = lu + static_cast<long>(i) * n;
        b[i] = (b[i] - sdot(n - i - 1, row + i + 1, 1, b + i + 1, 1)) / row[i];
    }
}

void backt(const double *lu, int n, const int *pivots, double *b)
{
    // With P A = L U, transpose(A) = transpose(U) transpose(L) P.
    for (int i = 0; i < n; i++)
        b[i] = (b[i] - sdot(i, lu + i, n, b, 1)) / lu[static_cast<long>(i) * n + i];
    for (int i = n - 2; i >= 0; i--)
        b[i] -= sdot(n - i - 1, lu + static_cast<long>(i + 1) * n + i, n, b + i + 1, 1);
    for (int k = n - 1; k >= 0; k--)
        if (pivots[k] != k)
            std::swap(b[k], b[pivots[k]]);
}

int invm(double *a, int n, int *pivots)
{
    if (a == nullptr || pivots == nullptr || n < 1)
        return 1;
    if (!all_finite(a, static_cast<long>(n) * n))
        return 1;
    const double tiny = kSingularShare * largest_entry(a, n);
    for (int k = 0; k < n; k++) {
        double *row_k = a + static_cast<long>(k) * n;
        int p = k + isamax(n - k, row_k + k, n);
        pivots[k] = p;
        swap_rows(a, n, k, p);
        double pivot = row_k[k];
        if (std::fabs(pivot) <= tiny || pivot == 0.0)
            return 1;
        row_k[k] = 1.0;
        sscal(n, 1.0 / pivot, row_k, 1);
        for (int i = 0; i < n; i++) {
            if (i == k)
                continue;
            double *row_i = a + static_cast<long>(i) * n;
            double f = row_i[k];
            row_i[k] = 0.0;
            saxpy(n, -f, row_k, 1, row_i, 1);
        }
    }
    // The row swaps of the elimination come back out as column swaps.
    for (int k = n - 1; k >= 0; k--)
        if (pivots[k] != k)
            sswap(n, a + k, n, a + pivots[k], n);
    return 0;
}

int VLN_get_matrix_inverse(const double *matrix, double *inverse, int n)
{
    if (matrix == nullptr || inverse == nullptr || n < 1)
        return 1;
    if (inverse != matrix)
        std::copy(matrix, matrix + static_cast<long>(n) * n, inverse);
    std::vector<int> pivots(static_cast<size_t>(n));
    return invm(inverse, n, pivots.data());
}

int VLN_get_matrix_determinant(const double *matrix, int n, double *determinant)
{
    if (matrix == nullptr || determinant == nullptr || n < 1)
        return 1;
    std::vector<double> lu(matrix, matrix + static_cast<long>(n) * n);
    std::vector<int> pivots(static_cast<size_t>(n));
    // A singular matrix has the determinant 0, which is an answer, not a failure.
    *determinant = det(lu.data(), n, pivots.data()) != 0 ? 0.0 : deti(lu.data(), n, pivots.data());
    return 0;
}

double VLN_matrix_determinant(const double *matrix, int n)
{
    double d = 0.0;
    return VLN_get_matrix_determinant(matrix, n, &d) == 0 ? d : 0.0;
}

double VLN_submatrix_determinant(const double *matrix, int n, const int *index, int count)
{
    if (matrix == nullptr || index == nullptr || count < 1)
        return 0.0;
    for (int i = 0; i < count; i++)
        if (index[i] < 0 || index[i] >= n)
            return 0.0;
    std::vector<double> sub(static_cast<size_t>(count) * count);
    for (int i = 0; i < count; i++)
        for (int j = 0; j < count; j++)
            sub[static_cast<size_t>(i) * count + j] = matrix[static_cast<long>(index[i]) * n + index[j]];
    return VLN_matrix_determinant(sub.data(), count);
}

int eigenrs(const double *a, int n, double *values, double *vectors)
{
    if (a == nullptr || values == nullptr || vectors == nullptr || n < 1)
        return 1;
    const size_t nn = static_cast<size_t>(n) * n;
    if (!all_finite(a, static_cast<long>(nn)))
        return 1;
    // Cyclic Jacobi: rotations zero the off-diagonal entries one by one. It
    // is slow for large matrices but exact to rounding, and our matrices
    // have one row per band.
    std::vector<double> m(a, a + nn), v(nn, 0.0);
    for (int i = 0; i < n; i++)
        v[static_cast<size_t>(i) * n + i] = 1.0;
    auto at = [n](std::vector<double> &x, int i, int j) -> double & {
        return x[static_cast<size_t>(i) * n + j];
    };
    bool converged = false;
    for (int sweep = 0; sweep < 100 && !converged; sweep++) {
        double off = 0.0, diag = 0.0;
        for (int i = 0; i < n; i++) {
            diag += at(m, i, i) * at(m, i, i);
            for (int j = i + 1; j < n; j++)
                off += at(m, i, j) * at(m, i, j);
        }
        if (off == 0.0 || off <= 1e-30 * diag) {
            converged = true;
            break;
        }
        for (int p = 0; p < n; p++) {
            for (int q = p + 1; q < n; q++) {
                double apq = at(m, p, q);
                if (apq == 0.0)
                    continue;
                double theta = (at(m, q, q) - at(m, p, p)) / (2.0 * apq);
                double t = (theta >= 0 ? 1.0 : -1.0) / (std::fabs(theta) + std::sqrt(theta * theta + 1.0));
                double c = 1.0 / std::sqrt(t * t + 1.0), s = t * c;
                for (int k = 0; k < n; k++) {  // columns p and q
                    double mkp = at(m, k, p), mkq = at(m, k, q);
                    at(m, k, p) = c * mkp - s * mkq;
                    at(m, k, q) = s * mkp + c * mkq;
                }
                for (int k = 0; k < n; k++) {  // rows p and q
                    double mpk = at(m, p, k), mqk = at(m, q, k);
                    at(m, p, k) = c * mpk - s * mqk;
                    at(m, q, k) = s * mpk + c * mqk;
                }
                for (int k = 0; k < n; k++) {
                    double vkp = at(v, k, p), vkq = at(v, k, q);
                    at(v, k, p) = c * vkp - s * vkq;
                    at(v, k, q) = s * vkp + c * vkq;
                }
            }
        }
    }
    // Largest first; each vector turned so that its largest component is
    // positive, which makes the answer the same on every run.
    std::vector<int> order(static_cast<size_t>(n));
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](int x, int y) { return at(m, x, x) > at(m, y, y); });
    for (int k = 0; k < n; k++) {
        int src = order[static_cast<size_t>(k)];
        values[k] = at(m, src, src);
        int big = isamax(n, &at(v, 0, src), n);
        double sign = at(v, big, src) < 0 ? -1.0 : 1.0;
        for (int i = 0; i < n; i++)
            vectors[static_cast<size_t>(i) * n + k] = sign * at(v, i, src);
    }
    return converged ? 0 : 1;
}

void printm(const char *title, const double *a, int n, int m)
{
    std::fprintf(stderr, "%s\n", title != nullptr ? title : "");
    if (a == nullptr)
        return;
    for (int i = 0; i < n; i++) {
        for (int j = 0; j < m; j++)
            std::fprintf(stderr, " %14.6g", a[static_cast<long>(i) * m + j]);
        std::fprintf(stderr, "\n");
    }
}

}  // extern "C"
