/*
 * proj_modstero.cpp: the modified stereographic projections (Snyder 18-1 to
 * 18-21): the conformal latitude, an oblique stereographic projection of the
 * sphere about the centre, and a complex polynomial of `num_const` terms,
 * w = sum (a_j + i b_j) z^j, that spreads the scale error evenly over a
 * chosen region. The coefficients are those published for the region (Miller's
 * oblated stereographic, the 50 states, Alaska, ...). Backward inverts the
 * polynomial by Newton's method in the complex plane, 100 steps, and the
 * conformal latitude by iteration.
 */
#include <cmath>
#include <complex>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kTerms = 10;

struct Modstero {
    double false_east, false_north, centre_merid, centre_lat;
    int num_const;
    double a[kTerms], b[kTerms];
    double radius, eccentricity, long_cut;
    /* derived */
    double sin_chi1, cos_chi1;
};

Modstero proto;

double conformal(double phi, double e)
{
    double es = e * std::sin(phi);
    return 2 * std::atan(std::tan(kPi / 4 + phi / 2) * std::pow((1 - es) / (1 + es), e / 2)) -
           kPi / 2;
}

/* The polynomial and its derivative at z. */
std::complex<double> polynomial(const Modstero *p, std::complex<double> z,
                                std::complex<double> *slope)
{
    std::complex<double> v = 0, d = 0;
    for (int j = p->num_const - 1; j >= 0; j--) {
        std::complex<double> c(p->a[j], p->b[j]);
        d = d * z + static_cast<double>(j + 1) * c;
        v = (v + c) * z;
    }
    if (slope) *slope = d;
    return v;
}

int init(void *block)
{
    auto *p = static_cast<Modstero *>(block);
    p->long_cut = p->centre_merid - kPi;
    if (!(p->radius > 0) || p->num_const < 1 || p->num_const > kTerms) return -1;
    if (p->a[0] == 0 && p->b[0] == 0) return -1;
    double chi1 = conformal(p->centre_lat, p->eccentricity);
    p->sin_chi1 = std::sin(chi1);
    p->cos_chi1 = std::cos(chi1);
    return 0;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Modstero *>(block);
    double d = gdt_normal_pi(lon - p->centre_merid);
    double chi = conformal(lat, p->eccentricity);
    double sc = std::sin(chi), cc = std::cos(chi), cd = std::cos(d);
    double den = 1 + p->sin_chi1 * sc + p->cos_chi1 * cc * cd;
    if (den < 1e-10) return GDT_PROJ_ANTIPODE;
    double k = 2 / den;
    std::complex<double> z(k * cc * std::sin(d), k * (p->cos_chi1 * sc - p->sin_chi1 * cc * cd));
    std::complex<double> w = polynomial(p, z, nullptr);
    *x = p->radius * w.real() + p->false_east;
    *y = p->radius * w.imag() + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Modstero *>(block);
    std::complex<double> target((x - p->false_east) / p->radius, (y - p->false_north) / p->radius);
    std::complex<double> z = target / std::complex<double>(p->a[0], p->b[0]);
    int round = 0;
    for (; round < 100; round++) {
        std::complex<double> slope;
        std::complex<double> step = (polynomial(p, z, &slope) - target) / slope;
        z -= step;
        if (!std::isfinite(z.real()) || !std::isfinite(z.imag())) return GDT_PROJ_NO_CONVERGENCE;
        if (std::abs(step) < 1e-12) break;
    }
    if (round == 100) return GDT_PROJ_NO_CONVERGENCE;
    double rho = std::abs(z);
    double chi;
    if (rho < 1e-15) {
        chi = std::asin(p->sin_chi1);
        *lon = p->centre_merid;
    } else {
        double c = 2 * std::atan(rho / 2), sc = std::sin(c), cc = std::cos(c);
        chi = gdt_asin(cc * p->sin_chi1 + z.imag() * sc * p->cos_chi1 / rho);
        *lon = gdt_normal_pi(
            p->centre_merid +
            std::atan2(z.real() * sc, rho * p->cos_chi1 * cc - z.imag() * p->sin_chi1 * sc));
    }
    double e = p->eccentricity, phi = chi;
    for (round = 0; round < 100; round++) {
        double es = e * std::sin(phi);
        double next =
            2 * std::atan(std::tan(kPi / 4 + chi / 2) * std::pow((1 + es) / (1 - es), e / 2)) -
            kPi / 2;
        double step = next - phi;
        phi = next;
        if (std::fabs(step) < 1e-12) {
            *lat = phi;
            return GDT_PROJ_OK;
        }
    }
    return GDT_PROJ_NO_CONVERGENCE;
}

}  // namespace

int gdt_modstero_install()
{
    Modstero &b = proto;
    static const char *const a_names[kTerms] = {"coeff_a1", "coeff_a2", "coeff_a3", "coeff_a4",
                                                "coeff_a5", "coeff_a6", "coeff_a7", "coeff_a8",
                                                "coeff_a9", "coeff_a10"};
    static const char *const b_names[kTerms] = {"coeff_b1", "coeff_b2", "coeff_b3", "coeff_b4",
                                                "coeff_b5", "coeff_b6", "coeff_b7", "coeff_b8",
                                                "coeff_b9", "coeff_b10"};
    gdt_proj_par pars[5 + 2 * kTerms + 3] = {{"false_east", &b.false_east, "d"},
                                             {"false_north", &b.false_north, "d"},
                                             {"centre_merid", &b.centre_merid, "d"},
                                             {"centre_lat", &b.centre_lat, "d"},
                                             {"num_const", &b.num_const, "l"}};
    int count = 5;
    for (int j = 0; j < kTerms; j++) pars[count++] = {a_names[j], &b.a[j], "d"};
    for (int j = 0; j < kTerms; j++) pars[count++] = {b_names[j], &b.b[j], "d"};
    pars[count++] = {"spheroid.radius", &b.radius, "d"};
    pars[count++] = {"spheroid.eccentricity", &b.eccentricity, "d"};
    pars[count++] = {".long_cut", &b.long_cut, "d"};
    return gdt_proj_install("modstero", &proto, sizeof proto, pars, count, init, forward, backward,
                            0);
}
