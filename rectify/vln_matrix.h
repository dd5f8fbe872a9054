/*
 * vln_matrix.h: general matrices and the vector kernels under them.
 *
 * Matrices are single arrays of doubles in row-major order: entry (i, j) of
 * an n by n matrix is a[i * n + j]. Vector kernels take a count, a pointer
 * and a stride, and index from 0. None of these allocate for the caller
 * unless said; the status results are 0 for success and 1 for a matrix that
 * is singular (or not finite).
 */
#ifndef VLN_MATRIX_H
#define VLN_MATRIX_H

#include "vld_core.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The inverse of the n by n matrix into inverse (which may be matrix). */
VLD_API int VLN_get_matrix_inverse(const double *matrix, double *inverse, int n);

/* The determinant of the n by n matrix, through determinant; 1 if n < 1. */
VLD_API int VLN_get_matrix_determinant(const double *matrix, int n, double *determinant);

/* The determinant of the n by n matrix; 0.0 for n < 1. */
VLD_API double VLN_matrix_determinant(const double *matrix, int n);

/* The determinant of the matrix restricted to the rows and columns listed
 * (0-based) in index, in that order; 0.0 for an empty list or an index out
 * of range. */
VLD_API double VLN_submatrix_determinant(const double *matrix, int n, const int *index, int count);

/* The inverse in place, with work space of n ints; 1 if singular. */
VLD_API int invm(double *a, int n, int *pivots);

/* Eigenvalues and eigenvectors of a symmetric n by n matrix: values come
 * largest first, and column k of vectors (row-major) is the unit vector of
 * values[k]. Returns 1 if the iteration didn't converge. */
VLD_API int eigenrs(const double *a, int n, double *values, double *vectors);

/* LU factorisation in place with partial pivoting (pivots gets the row
 * swapped with each row); 1 if a pivot is zero. */
VLD_API int det(double *a, int n, int *pivots);

/* The determinant of a matrix that det has factored. */
VLD_API double deti(const double *lu, int n, const int *pivots);

/* Solves lu x = b for a matrix that det has factored; b becomes x. */
VLD_API void backsub(const double *lu, int n, const int *pivots, double *b);

/* Solves transpose(lu) x = b for a matrix that det has factored. */
VLD_API void backt(const double *lu, int n, const int *pivots, double *b);

/* Vector kernels. */
VLD_API int isamax(int n, const double *x, int incx);  /* index of the largest |x|, -1 for n < 1 */
VLD_API void saxpy(int n, double a, const double *x, int incx, double *y, int incy);  /* y += a x */
VLD_API double sdot(int n, const double *x, int incx, const double *y, int incy);
VLD_API void sswap(int n, double *x, int incx, double *y, int incy);
VLD_API void sscal(int n, double a, double *x, int incx);
VLD_API double sasum(int n, const double *x, int incx);

/* Prints an n by m matrix on standard error under a title. */
VLD_API void printm(const char *title, const double *a, int n, int m);

#ifdef __cplusplus
}
#endif

#endif
