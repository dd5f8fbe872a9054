/* nofinal.c: a formula user function library that lacks its final entry. */
double nofinal_init(double a, void *alg, void *formula, void **user_data)
{
    (void)a;
    (void)alg;
    (void)formula;
    (void)user_data;
    return 0.0;
}

double nofinal(double a, void *alg, void *formula, void *user_data)
{
    (void)alg;
    (void)formula;
    (void)user_data;
    return a;
}
