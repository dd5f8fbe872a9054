/*
 * proj_danish_uts.cpp: the Danish national systems, reached from UTM zones
 * 32 and 33 by published polynomial transformations: System 34 of Jutland
 * ("s34j") and of Zealand ("s34s") and System 45 of Bornholm ("s45b").
 *
 * The coefficient tables of those polynomials are published by the Danish
 * mapping agency and are not held here. Rather than invent numbers, the
 * member is installed so that its systems can be named, and its initialise
 * refuses with a message that says which tables are missing.
 */
#include "gdt_internal.h"
#include "gdt_proj_internal.h"

namespace {

struct DanishUts {
    int sub_proj_type; /* which transformation: UTM32/UTM33 to s34j, s34s or s45b */
    int xdirection;    /* 1 towards the local system, else back to UTM */
};

DanishUts proto;

int init(void *)
{
    gdt::report('P', 0,
                "danish_uts: missing the published polynomial coefficients of the "
                "transformations from UTM32 and UTM33 to s34j, s34s and s45b");
    return -1;
}

int refuse(void *, double, double, double *, double *)
{
    return GDT_PROJ_NO_CONVERGENCE;
}

}  // namespace

int gdt_danish_uts_install()
{
    DanishUts &b = proto;
    const gdt_proj_par pars[] = {{"sub_proj_type", &b.sub_proj_type, "l"},
                                 {"xdirection", &b.xdirection, "l"}};
    return gdt_proj_install("danish_uts", &proto, sizeof proto, pars, init, refuse, refuse, 0);
}
