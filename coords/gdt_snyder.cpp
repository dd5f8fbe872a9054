/*
 * gdt_snyder.cpp: the functions the members of the projection family share:
 * latitude series and their coefficients, in Snyder's numbering, and guarded
 * inverse trigonometry. Series are prepared once and evaluated nested in
 * cos 2x, so a point costs one sine and one cosine.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {
constexpr double kPi = 3.14159265358979323846;
}

double gdt_normal_pi(double angle)
{
    // The bound sits a little above pi so that values at pi stay as they are.
    if (std::fabs(angle) > 3.1415926535898033) {
        angle = std::fmod(angle, 2 * kPi);
        if (angle > kPi)
            angle -= 2 * kPi;
        else if (angle < -kPi)
            angle += 2 * kPi;
    }
    return angle;
}

double gdt_snyder_eqn_9_13(double s, double e)
{
    double es = e * s;
    return std::sqrt(((1 - s) / (1 + s)) * std::pow((1 + es) / (1 - es), e));
}

double gdt_snyder_eqn_3_1(double t)
{
    return 2 * std::atan(t) - kPi / 2;
}

double gdt_snyder_eqn_3_12(double s, double e)
{
    if (e < 1e-8) return 2 * s;
    double e2 = e * e, es = e * s;
    return (1 - e2) * (s / (1 - es * es) - (1 / (2 * e)) * std::log((1 - es) / (1 + es)));
}

int gdt_snyder_eqn_3_16(double q, double e, double start, double *phi)
{
    double e2 = e * e, p = start;
    for (int i = 0; i < 100; i++) {
        double s = std::sin(p), es = e * s, one = 1 - es * es;
        double step = one * one / (2 * std::cos(p)) *
                      (q / (1 - e2) - s / one + (1 / (2 * e)) * std::log((1 - es) / (1 + es)));
        p += step;
        if (std::fabs(step) < 1e-12) {
            *phi = p;
            return 0;
        }
    }
    *phi = p;
    return GDT_PROJ_NO_CONVERGENCE;
}

void gdt_snyder_init_3_5(double a, gdt_series4 *s)
{
    double a2 = a * a, a3 = a2 * a, a4 = a3 * a;
    s->a = a / 2 + 5 * a2 / 24 + a3 / 12 + 13 * a4 / 360;
    s->b = 7 * a2 / 48 + 29 * a3 / 240 + 811 * a4 / 11520;
    s->c = 7 * a3 / 120 + 81 * a4 / 1120;
    s->d = 4279 * a4 / 161280;
}

void gdt_snyder_init_3_26(double e1, gdt_series4 *s)
{
    double e2 = e1 * e1, e3 = e2 * e1, e4 = e3 * e1;
    s->a = 3 * e1 / 2 - 27 * e3 / 32;
    s->b = 21 * e2 / 16 - 55 * e4 / 32;
    s->c = 151 * e3 / 96;
    s->d = 1097 * e4 / 512;
}

void gdt_snyder_init_3_21(double a, double r, double *first, gdt_series4 *s)
{
    double a2 = a * a, a3 = a2 * a;
    *first = r * (1 - a / 4 - 3 * a2 / 64 - 5 * a3 / 256);
    s->a = -r * (3 * a / 8 + 3 * a2 / 32 + 45 * a3 / 1024);
    s->b = r * (15 * a2 / 256 + 45 * a3 / 1024);
    s->c = -r * 35 * a3 / 3072;
    s->d = 0.0;
}

void gdt_proj_factors_35(gdt_series4 *s)
{
    gdt_series4 f = {s->a - s->c, 2 * s->b - 4 * s->d, 4 * s->c, 8 * s->d};
    *s = f;
}

double gdt_snyder_eqn_3_35(double x, const gdt_series4 *s)
{
    double c = std::cos(2 * x);
    return std::sin(2 * x) * (((s->d * c + s->c) * c + s->b) * c + s->a);
}

double gdt_snyder_eqn_3_21(double phi, double first, const gdt_series4 *s)
{
    return gdt_snyder_eqn_3_35(phi, s) + phi * first;
}

double gdt_snyder_eqn_3_24(double e2)
{
    double r = std::sqrt(1 - e2);
    return (1 - r) / (1 + r);
}

double gdt_asin(double v)
{
    if (std::fabs(std::fabs(v) - 1) < 1e-10 || std::fabs(v) > 1) return v < 0 ? -kPi / 2 : kPi / 2;
    return std::asin(v);
}

double gdt_acos(double v)
{
    if (std::fabs(std::fabs(v) - 1) < 1e-10 || std::fabs(v) > 1) return v < 0 ? kPi : 0.0;
    return std::acos(v);
}

double gdt_atanh(double v)
{
    return 0.5 * std::log((1 + v) / (1 - v));
}

double gdt_acosh(double v)
{
    return std::log(v + std::sqrt(v * v - 1));
}

int gdt_scaled_newton(gdt_proj_conv_fn forward, void *block, double x, double y, double tolerance,
                      double *lon, double *lat)
{
    double l = *lon, p = *lat;
    double dl = kPi / 180, dp = kPi / 180;
    // A forward result far beyond the target means the search has left the map.
    auto sane = [&](double f, double g) {
        return std::fabs(f) <= 10000.0 * std::fmax(std::fabs(x), 1.0) &&
               std::fabs(g) <= 10000.0 * std::fmax(std::fabs(y), 1.0);
    };
    for (int round = 0; round < 100; round++) {
        double f, g;
        if (forward(block, l, p, &f, &g) != 0 || !sane(f, g)) return GDT_PROJ_NO_CONVERGENCE;
        if (std::fabs(x - f) + std::fabs(y - g) <= tolerance) {
            *lon = l;
            *lat = p;
            return GDT_PROJ_OK;
        }
        double fl, gl, fp, gp;
        if (forward(block, l + dl, p, &fl, &gl) != 0 || forward(block, l, p + dp, &fp, &gp) != 0)
            return GDT_PROJ_NO_CONVERGENCE;
        double a = (fl - f) / dl, b = (fp - f) / dp, c = (gl - g) / dl, d = (gp - g) / dp;
        double det = a * d - b * c;
        if (std::fabs(det) < 1e-7) return GDT_PROJ_NO_CONVERGENCE;
        double sl = ((x - f) * d - b * (y - g)) / det;
        double sp = (a * (y - g) - c * (x - f)) / det;
        l += sl;
        p += sp;
        if (p > kPi / 2) p = kPi / 2;
        if (p < -kPi / 2) p = -kPi / 2;
        dl = std::fmax(std::fabs(sl) / 2, 1e-12);
        dp = std::fmax(std::fabs(sp) / 2, 1e-12);
    }
    return GDT_PROJ_NO_CONVERGENCE;
}

int gdt_generic_newton(gdt_proj_conv_fn forward, void *block, double x, double y, double *lon,
                       double *lat)
{
    double l = std::fmax(-kPi, std::fmin(kPi, *lon));
    double p = std::fmax(-kPi / 2, std::fmin(kPi / 2, *lat));
    double dl = kPi / 180, dp = kPi / 180;
    int clamped = 0;
    for (int round = 0; round < 99; round++) {
        double f, g;
        if (forward(block, l, p, &f, &g) != 0) return GDT_PROJ_NO_CONVERGENCE;
        if (std::fabs(x - f) + std::fabs(y - g) < 0.0001) {
            // Kept: the bound sits a hair above pi/2, as the members using it always had.
            if (std::fabs(p) >= 1.5707963267958966) return GDT_PROJ_NO_CONVERGENCE;
            *lon = l;
            *lat = p;
            return GDT_PROJ_OK;
        }
        // The latitude step goes towards the equator near the poles, where
        // the forward is not defined beyond.
        // and the longitude step towards the centre near the map's edge.
        double sp_dir = p + dp > kPi / 2 ? -dp : dp;
        double sl_dir = l + dl > kPi ? -dl : dl;
        double fl, gl, fp, gp;
        if (forward(block, l + sl_dir, p, &fl, &gl) != 0 ||
            forward(block, l, p + sp_dir, &fp, &gp) != 0)
            return GDT_PROJ_NO_CONVERGENCE;
        double a = (fl - f) / sl_dir, b = (fp - f) / sp_dir, c = (gl - g) / sl_dir,
               d = (gp - g) / sp_dir;
        double det = a * d - b * c;
        if (std::fabs(det) < 1e-7) return GDT_PROJ_NO_CONVERGENCE;
        double sl = ((x - f) * d - b * (y - g)) / det;
        double sp = (a * (y - g) - c * (x - f)) / det;
        l += sl;
        p += sp;
        dl = std::fmax(std::fabs(sl) / 2, 1e-12);
        dp = std::fmax(std::fabs(sp) / 2, 1e-12);
        if (round >= 2) {
            bool out = false;
            if (std::fabs(p) > kPi / 2) {
                p = p > 0 ? kPi / 2 : -kPi / 2;
                out = true;
            }
            if (std::fabs(l) > 2 * kPi) {
                l = l > 0 ? kPi : -kPi;
                out = true;
            }
            if (out) {
                if (std::fabs(sl) < 1e-12 && std::fabs(sp) < 1e-12 &&
                    (clamped == 2 || clamped >= 10))
                    return GDT_PROJ_NO_CONVERGENCE;
                clamped++;
            }
        }
    }
    return GDT_PROJ_NO_CONVERGENCE;
}
