/*
 * gdt_proj_internal.h: what a member of the projection family is built from.
 *
 * A member is one file, proj_<base>.cpp. Its parameter block is a plain struct
 * whose first fields are the attributes read from the member's table, in the
 * units the member expects (angles in radians), followed by the constants its
 * initialise function derives. Its install function registers the block
 * layout with gdt_proj_create / gdt_proj_ins_par (a name starting with "."
 * is hidden from the tables), its three functions and its mode bits:
 *
 *   init(block)                          0, or -1 for unusable parameters
 *   forward(block, lon, lat, &x, &y)     radians to projection units
 *   backward(block, x, y, &lon, &lat)    the reverse
 *
 * The conversions return 0, or 1 at a pole or beyond the horizon, 2 on an
 * infinite line, 4 at the antipode, -2 when an iteration does not converge.
 * The engine writes `spheroid.radius` (in projection units) and
 * `spheroid.eccentricity` from the datum before init. Mode bit 0 allows
 * geodetic input without a longitude check.
 *
 * The shared functions below carry the names of the equations of Snyder's
 * working manual of map projections that they evaluate.
 */
#ifndef VORLAN_GDT_PROJ_INTERNAL_H
#define VORLAN_GDT_PROJ_INTERNAL_H

#include "gdt_coords.h"

/* Status codes of the conversions. */
enum {
    GDT_PROJ_OK = 0,
    GDT_PROJ_POLE = 1,
    GDT_PROJ_INFINITE = 2,
    GDT_PROJ_ANTIPODE = 4,
    GDT_PROJ_NO_CONVERGENCE = -2
};

/* Below this eccentricity a member uses its spherical formulas. */
constexpr double kGdtSphereEcc = 1e-7;

/* One attribute of a member's block, for gdt_proj_install. */
struct gdt_proj_par {
    const char *name;
    void *address;
    const char *type;
};
/* The whole install sequence of a member whose prototype block is `proto`. */
int gdt_proj_install(const char *name, void *proto, int size, const gdt_proj_par *pars, int count,
                     gdt_proj_init_fn init, gdt_proj_conv_fn forward, gdt_proj_conv_fn backward,
                     int mode);
template <int N>
int gdt_proj_install(const char *name, void *proto, int size, const gdt_proj_par (&pars)[N],
                     gdt_proj_init_fn init, gdt_proj_conv_fn forward, gdt_proj_conv_fn backward,
                     int mode)
{
    return gdt_proj_install(name, proto, size, pars, N, init, forward, backward, mode);
}

/* Install functions of the members, in the family's order. */
int gdt_coniced_install();
int gdt_lambert1_install();
int gdt_lambert2_install();
int gdt_mollweid_install();
int gdt_mercator_install();
int gdt_tranmerc_install();
int gdt_stm_install();
int gdt_utm_install();
int gdt_albersea_install();
int gdt_regpol_install();
int gdt_modpol_install();
int gdt_azimuted_install();
int gdt_obmerc_b_install();
int gdt_stereo_install();
int gdt_grinten_install();
int gdt_lambazea_install();
int gdt_sinusoid_install();
int gdt_eckertiv_install();
int gdt_eckertvi_install();
int gdt_placaree_install();
int gdt_cassini_install();
int gdt_bioconco_install();
int gdt_dutch_install();
int gdt_borneo_install();
int gdt_swiss_install();
int gdt_winktrip_install();
int gdt_nzmapgrd_install();
int gdt_labordom_install();
int gdt_bonne_install();
int gdt_orthog_install();
int gdt_gnomonic_install();
int gdt_modstero_install();
int gdt_robinson_install();
int gdt_lamcon1_install();
int gdt_lamcon2_install();
int gdt_obmerc_c_install();
int gdt_usgs_install();
int gdt_millercy_install();
int gdt_danish_uts_install();

/* The parameter text of a "USGS ..." system, at the start of its block. */
constexpr int kGdtUsgsTextSize = 256;

/* sqrt(((1 - s)/(1 + s)) * ((1 + e s)/(1 - e s))^e) for s = sin(latitude). */
double gdt_snyder_eqn_9_13(double s, double e);
/* 2 atan(t) - pi/2: the conformal latitude of the inverse of 9-13. */
double gdt_snyder_eqn_3_1(double t);
/* q of the authalic latitude; 2 s on the sphere. */
double gdt_snyder_eqn_3_12(double s, double e);
/* Latitude from q by fixed-point iteration from `start`: 0 or -2. */
int gdt_snyder_eqn_3_16(double q, double e, double start, double *phi);

/* Four coefficients of a series in sin 2x, sin 4x, sin 6x, sin 8x. */
struct gdt_series4 {
    double a, b, c, d;
};
/* Geodetic latitude from conformal latitude. */
void gdt_snyder_init_3_5(double e2, gdt_series4 *s);
/* Footpoint latitude from rectifying latitude, in e1 of 3-24. */
void gdt_snyder_init_3_26(double e1, gdt_series4 *s);
/* Meridian distance: `first` multiplies the latitude, the rest form the series. */
void gdt_snyder_init_3_21(double e2, double radius, double *first, gdt_series4 *s);
/* (A, B, C, D) of a sine series to the form evaluated in powers of cos 2x. */
void gdt_proj_factors_35(gdt_series4 *s);
/* A series prepared by gdt_proj_factors_35, at angle x. */
double gdt_snyder_eqn_3_35(double x, const gdt_series4 *s);
/* The meridian distance at latitude phi. */
double gdt_snyder_eqn_3_21(double phi, double first, const gdt_series4 *s);
double gdt_snyder_eqn_3_24(double e2);

/* Inverts `forward` at (x, y) from the start in lon, lat by Newton's method
 * on finite differences, until the forward image is within `tolerance` (in
 * projection units): 0, or -2 when it does not converge. */
int gdt_scaled_newton(gdt_proj_conv_fn forward, void *block, double x, double y, double tolerance,
                      double *lon, double *lat);

/* Inverts `forward` at (x, y) from the start in lon, lat, clipped to the
 * globe, by Newton's method, to 0.0001 projection units: 0, or -2. */
int gdt_generic_newton(gdt_proj_conv_fn forward, void *block, double x, double y, double *lon,
                       double *lat);

/* asin and acos that take arguments just past +-1 as +-1. */
double gdt_asin(double v);
double gdt_acos(double v);
double gdt_atanh(double v);
double gdt_acosh(double v);

#endif
