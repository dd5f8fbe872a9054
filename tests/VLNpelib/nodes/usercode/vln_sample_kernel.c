/*
 * vln_sample_kernel.c: a user kernel library, built for the kernel suites and
 * written as a user of the library would write one.
 *
 * "range" gives the spread of a cell's window (largest less smallest value)
 * times a factor read from its parameters ("factor=F", 1 without). Its init
 * keeps the factor in a block of its own, which its final entry frees;
 * sample_live_states() counts the blocks alive, so that a test can see that
 * the final entry came. "refuse" fails its init with a text.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vln_kernel_usercode.h"

static int live_states;

int sample_live_states(void)
{
    return live_states;
}

int range_init(int rows, int columns, const char *parameters, algorithm *alg, stream *st,
               void **user_data, const char **error_text)
{
    (void)rows, (void)columns, (void)alg, (void)st, (void)error_text;
    double *factor = malloc(sizeof *factor);
    if (factor == NULL) return 1;
    *factor = 1.0;
    if (parameters != NULL && strncmp(parameters, "factor=", 7) == 0)
        *factor = atof(parameters + 7);
    *user_data = factor;
    live_states++;
    return 0;
}

double range(int rows, int columns, double **row_pointers, void **user_data)
{
    double low = row_pointers[0][0], high = low;
    for (int r = 0; r < rows; r++)
        for (int c = 0; c < columns; c++) {
            double v = row_pointers[r][c];
            if (v < low) low = v;
            if (v > high) high = v;
        }
    const double factor = *user_data != NULL ? *(double *)*user_data : 1.0;
    return (high - low) * factor;
}

void range_final(void *user_data)
{
    free(user_data);
    live_states--;
}

int range_mtsafe(void)
{
    return 1;
}

int refuse_init(int rows, int columns, const char *parameters, algorithm *alg, stream *st,
                void **user_data, const char **error_text)
{
    (void)rows, (void)columns, (void)parameters, (void)alg, (void)st, (void)user_data;
    *error_text = "refuse: these parameters are not for me";
    return 1;
}

double refuse(int rows, int columns, double **row_pointers, void **user_data)
{
    (void)rows, (void)columns, (void)user_data;
    return row_pointers[0][0];
}
