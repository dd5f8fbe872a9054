/* callcount.c: a sample formula user function that counts its calls:
 * callcount(a) is the number of calls so far, this one included. The count
 * lives in user data that the init entry makes and the final entry frees. */
#include <stdlib.h>

double callcount_init(double a, void *alg, void *formula, void **user_data)
{
    (void)a;
    (void)alg;
    (void)formula;
    long *count = malloc(sizeof *count);
    *count = 0;
    *user_data = count;
    return 0.0;
}

double callcount(double a, void *alg, void *formula, void *user_data)
{
    (void)a;
    (void)alg;
    (void)formula;
    return (double)++*(long *)user_data;
}

void callcount_final(void *user_data)
{
    free(user_data);
}
