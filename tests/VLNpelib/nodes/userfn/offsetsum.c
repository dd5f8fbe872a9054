/* offsetsum.c: a sample formula user function. offsetsum(a, b) is a + b plus
 * an offset that its init entry keeps in user data: 100 plus the first
 * cell's a. The final entry frees the user data, so that a missing final call
 * shows as a leak. */
#include <stdlib.h>

double offsetsum_init(double a, double b, void *alg, void *formula, void **user_data)
{
    (void)b;
    (void)alg;
    (void)formula;
    double *offset = malloc(sizeof *offset);
    *offset = 100.0 + a;
    *user_data = offset;
    return 0.0;
}

double offsetsum(double a, double b, void *alg, void *formula, void *user_data)
{
    (void)alg;
    (void)formula;
    return a + b + *(const double *)user_data;
}

void offsetsum_final(void *user_data)
{
    free(user_data);
}
