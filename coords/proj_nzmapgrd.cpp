/*
 * proj_nzmapgrd.cpp: the New Zealand Map Grid, a conformal projection of the
 * International ellipsoid defined by two published series: a real one from
 * the latitude's offset from the origin (in units of 10^5 arc seconds) to
 * the isometric offset psi, and a complex polynomial from z = psi + i dlon to
 * the grid, northing in its real part and easting in its imaginary part,
 * in units of the semi-major axis. Backward inverts the complex polynomial by
 * Newton's method in the complex plane and the real series by Newton's
 * method, both to 1e-12, so that it is the exact inverse of forward.
 */
#include <cmath>
#include <complex>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
/* Radians to units of 10^5 arc seconds. */
constexpr double kToSec5 = 180 * 3600 / kPi / 1e5;

/* psi = sum A_k dphi^k, k = 1 to 10. */
constexpr double kA[10] = {0.6399175073, -0.1358797613, 0.063294409, -0.02526853, 0.0117879,
                           -0.0055161,   0.0026906,     -0.001333,   0.00067,     -0.00034};
/* zeta = sum B_k z^k, k = 1 to 6. */
const std::complex<double> kB[6] = {{0.7557853228, 0.0},         {0.249204646, 0.003371507},
                                    {-0.001541739, 0.041058560}, {-0.10162907, 0.01727609},
                                    {-0.26623489, -0.36249218},  {-0.6870983, -1.1651967}};

struct Nzmg {
    double false_east, false_north, centre_merid, centre_lat;
    double radius, eccentricity, long_cut; /* the series hold the ellipsoid's shape */
};

Nzmg proto;

double psi_of(double dphi, double *slope)
{
    double v = 0, d = 0;
    for (int k = 9; k >= 0; k--) {
        d = d * dphi + (k + 1) * kA[k];
        v = (v + kA[k]) * dphi;
    }
    if (slope) *slope = d;
    return v;
}

std::complex<double> zeta_of(std::complex<double> z, std::complex<double> *slope)
{
    std::complex<double> v = 0, d = 0;
    for (int k = 5; k >= 0; k--) {
        d = d * z + static_cast<double>(k + 1) * kB[k];
        v = (v + kB[k]) * z;
    }
    if (slope) *slope = d;
    return v;
}

int init(void *block)
{
    auto *p = static_cast<Nzmg *>(block);
    p->long_cut = p->centre_merid - kPi;
    return p->radius > 0 ? 0 : -1;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Nzmg *>(block);
    double psi = psi_of((lat - p->centre_lat) * kToSec5, nullptr);
    std::complex<double> zeta = zeta_of({psi, gdt_normal_pi(lon - p->centre_merid)}, nullptr);
    *x = p->radius * zeta.imag() + p->false_east;
    *y = p->radius * zeta.real() + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Nzmg *>(block);
    std::complex<double> target((y - p->false_north) / p->radius, (x - p->false_east) / p->radius);
    std::complex<double> z = target / kB[0];
    int round = 0;
    for (; round < 100; round++) {
        std::complex<double> slope;
        std::complex<double> step = (zeta_of(z, &slope) - target) / slope;
        z -= step;
        if (std::abs(step) < 1e-12) break;
    }
    if (round == 100 || !std::isfinite(z.real()) || !std::isfinite(z.imag()))
        return GDT_PROJ_NO_CONVERGENCE;
    double dphi = z.real() / kA[0];
    for (round = 0; round < 100; round++) {
        double slope;
        double step = (psi_of(dphi, &slope) - z.real()) / slope;
        dphi -= step;
        if (std::fabs(step) < 1e-12) break;
    }
    if (round == 100) return GDT_PROJ_NO_CONVERGENCE;
    *lat = p->centre_lat + dphi / kToSec5;
    *lon = gdt_normal_pi(p->centre_merid + z.imag());
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_nzmapgrd_install()
{
    Nzmg &b = proto;
    const gdt_proj_par pars[] = {
        {"false_east", &b.false_east, "d"},     {"false_north", &b.false_north, "d"},
        {"centre_merid", &b.centre_merid, "d"}, {"centre_lat", &b.centre_lat, "d"},
        {"spheroid.radius", &b.radius, "d"},    {"spheroid.eccentricity", &b.eccentricity, "d"},
        {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("nzmapgrd", &proto, sizeof proto, pars, init, forward, backward, 1);
}
