/*
 * vln_transform_edit.cpp: changing the shape of a transform.
 *
 * Linear shapes are lists of points in the unit square; these operations
 * compose, invert, step and shift them, and keep them small by dropping the
 * points that add nothing. Exponential and logarithmic shapes are kept as
 * unit coefficients with scaled ones worked out from the ranges, and a curve
 * of either kind can be fitted through one point.
 */
#include <cmath>
#include <cstdio>
#include <numbers>

#include "vln_transform_internal.h"

using namespace vln_tr;

namespace {

constexpr double kTolerance = 1e-7;
constexpr double kInLine = 0.02617993877991494;  // 1.5 degrees

/* The y of a unit-square shape at unit x. */
double unit_y(const transform *t, const trans_interval *intervals, int count, double x)
{
    const double span = t->max_input - t->min_input;
    const double v = trans_map_value(t, intervals, count, t->min_input + x * span, nullptr);
    return (v - t->min_output) / (t->max_output - t->min_output);
}

}  // namespace

/* ---------------------------------------------------------------- simplifying */

int trans_three_points_in_line(const double *p0, const double *p1, const double *p2)
{
    const double dx1 = p1[0] - p0[0], dy1 = p1[1] - p0[1];
    const double dx2 = p2[0] - p1[0], dy2 = p2[1] - p1[1];
    auto small = [](double d) { return std::fabs(d) < kTolerance; };
    if ((small(dx1) && small(dx2)) || (small(dy1) && small(dy2))) return 1;
    if ((small(dx1) && small(dy1)) || (small(dx2) && small(dy2))) return 1;
    const double a1 = std::asin(dy1 / std::hypot(dx1, dy1));
    const double a2 = std::asin(dy2 / std::hypot(dx2, dy2));
    const double diff = std::fabs(a1 - a2);
    return diff < kInLine || std::fabs(diff - std::numbers::pi) < kInLine ? 1 : 0;
}

int trans_two_points_clustered(const double *p0, const double *p1, const double *p2)
{
    auto near = [](const double *a, const double *b) {
        return std::fabs(a[0] - b[0]) < 0.01 && std::fabs(a[1] - b[1]) < 0.01;
    };
    return near(p1, p0) || near(p1, p2) ? 1 : 0;
}

int trans_scrap_a_point(transform *t, int index)
{
    if (int status = need_linear(t)) return status;
    Points p = points_of(t);
    const int n = static_cast<int>(p.size() / 2);
    if (index < 0 || index >= n || n <= 2)
        return VLD_setup_error(VLD_ERR_INTERNAL, "No point to remove from the transform");
    p.erase(p.begin() + 2 * index, p.begin() + 2 * index + 2);
    set_points(t, p);
    return 0;
}

int trans_scrap_lines(transform *t)
{
    if (int status = need_linear(t)) return status;
    Points p = points_of(t);
    auto count = [&] { return static_cast<int>(p.size() / 2); };
    auto drop = [&](int i) { p.erase(p.begin() + 2 * i, p.begin() + 2 * i + 2); };
    for (auto test : {trans_three_points_in_line, trans_two_points_clustered})
        for (int i = 1; i < count() - 1;) {
            if (test(&p[2 * (i - 1)], &p[2 * i], &p[2 * (i + 1)]))
                drop(i);
            else
                i++;
        }
    while (count() > 2 && p[2] < kTolerance) drop(0);
    while (count() > 2 && std::fabs(p[2 * (count() - 2)] - 1) < kTolerance) drop(count() - 1);
    set_points(t, p);
    return 0;
}

/* ---------------------------------------------------------------- composing and inverting */

int combine_two_trans(transform *result, const transform *first, const transform *second)
{
    for (const transform *t : {static_cast<const transform *>(result), first, second})
        if (int status = need_linear(t)) return status;
    // Both as shapes on the unit square.
    transform a = *first, b = *second;
    a.min_input = b.min_input = a.min_output = b.min_output = 0;
    a.max_input = b.max_input = a.max_output = b.max_output = 1;
    std::vector<trans_interval> ia(static_cast<size_t>(linear_of(first)->nr_points));
    std::vector<trans_interval> ib(static_cast<size_t>(linear_of(second)->nr_points));
    int na = 0, nb = 0;
    setup_interval_info(&a, ia.data(), &na);
    setup_interval_info(&b, ib.data(), &nb);
    constexpr int kSamples = 500;
    Points p(2 * kSamples);
    for (int i = 0; i < kSamples; i++) {
        const double x = i == kSamples - 1 ? 1.0 : i * 0.002004008016032064;
        const double y = trans_map_intervals(ia.data(), na, x, nullptr);
        p[2 * i] = x;
        p[2 * i + 1] = trans_map_intervals(ib.data(), nb, y, nullptr);
    }
    p[1] = 0.0;
    p[2 * kSamples - 1] = 1.0;
    result->min_input = first->min_input;
    result->max_input = first->max_input;
    result->min_output = first->min_output;
    result->max_output = first->max_output;
    set_points(result, p);
    return trans_scrap_lines(result);
}

int trans_is_decreasing(const transform *t)
{
    if (const lineardef *d = linear_of(t); d != nullptr && d->points != nullptr) {
        const int n = d->nr_points;
        double y_low = 0, y_high = 1;
        for (int i = 0; i < n && d->points[2 * i] < 0.005; i++) y_low = d->points[2 * i + 1];
        for (int i = n - 1; i >= 0 && d->points[2 * i] > 0.995; i--) y_high = d->points[2 * i + 1];
        return y_low > y_high ? 1 : 0;
    }
    if (t->type != TT_Exponential && t->type != TT_Logarithmic) return 0;
    return unit_y(t, nullptr, 0, 0.0) > unit_y(t, nullptr, 0, 1.0) ? 1 : 0;
}

namespace {

/* A copy of `t` with its input and output ranges swapped. */
int swapped_copy(transform **result, const transform *t)
{
    *result = nullptr;
    if (int status = cp_transform(result, t)) return status;
    transform *r = *result;
    std::swap(r->min_input, r->min_output);
    std::swap(r->max_input, r->max_output);
    if (r->histogram != nullptr) r->histogram->invalid = 1;
    return 0;
}

}  // namespace

int eg_undo_linear_trans(transform **result, const transform *t)
{
    if (int status = need_linear(t)) return status;
    if (int status = swapped_copy(result, t)) return status;
    Points p = points_of(t);
    const int n = static_cast<int>(p.size() / 2);
    for (int i = 0; i < n; i++) std::swap(p[2 * i], p[2 * i + 1]);
    if (trans_is_decreasing(t)) {
        Points r;
        r.reserve(p.size() + 4);
        for (int i = n - 1; i >= 0; i--) r.insert(r.end(), {p[2 * i], p[2 * i + 1]});
        // The ends, held level, so that the reversed shape spans x 0 to 1.
        r.insert(r.begin(), {0.0, r[1]});
        r.insert(r.end(), {1.0, r[r.size() - 1]});
        p = r;
    }
    for (size_t i = 2; i < p.size(); i += 2)
        if (p[i] < p[i - 2]) p[i] = p[i - 2];
    set_points(*result, p);
    return 0;
}

int eg_undo_exp_trans(transform **result, const transform *t)
{
    if (t == nullptr || t->type != TT_Exponential || t->definition == nullptr)
        return VLD_setup_error(VLD_ERR_INVALID_TRANSFORM_TYPE);
    const auto e = *static_cast<const expdef *>(t->definition);
    if (int status = swapped_copy(result, t)) return status;
    if (int status = replace_shape(*result, TT_Logarithmic)) return status;
    auto *l = static_cast<logdef *>((*result)->definition);
    l->a = -e.c;
    l->b = 1 / e.a;
    l->c = -std::log(e.b) / e.a;
    return calc_scaled_log(*result);
}

int eg_undo_log_trans(transform **result, const transform *t)
{
    if (t == nullptr || t->type != TT_Logarithmic || t->definition == nullptr)
        return VLD_setup_error(VLD_ERR_INVALID_TRANSFORM_TYPE);
    const auto l = *static_cast<const logdef *>(t->definition);
    if (int status = swapped_copy(result, t)) return status;
    if (int status = replace_shape(*result, TT_Exponential)) return status;
    auto *e = static_cast<expdef *>((*result)->definition);
    e->a = 1 / l.b;
    e->b = 1 / std::exp(l.c / l.b);
    e->c = -l.a;
    return calc_scaled_exp(*result);
}

int eg_undo_trans(transform **result, const transform *t)
{
    if (result == nullptr || t == nullptr) return VLD_setup_error(VLD_ERR_INTERNAL, "No transform");
    switch (t->type) {
        case TT_Exponential:
            return eg_undo_exp_trans(result, t);
        case TT_Logarithmic:
            return eg_undo_log_trans(result, t);
        default:
            return eg_undo_linear_trans(result, t);
    }
}

/* ---------------------------------------------------------------- steps and scrolling */

int trans_step(transform *t, int nr_steps)
{
    if (linear_of(t) == nullptr)
        if (int status = replace_shape(t, TT_Linear)) return status;
    const int n = nr_steps < 1 ? 1 : nr_steps;
    Points p;
    if (n == 1) {
        p = {0.0, 0.5, 1.0, 0.5};
    } else {
        for (int k = 0; k < n; k++) {
            const double y = static_cast<double>(k) / (n - 1);
            p.insert(p.end(), {static_cast<double>(k) / n, y, static_cast<double>(k + 1) / n, y});
        }
    }
    set_points(t, p);
    mark_from(t->next, t, nullptr);
    return 0;
}

int trans_scroll(transform *t, double amount)
{
    if (int status = need_linear(t)) return status;
    while (amount >= 1) amount -= 1;
    while (amount < -1) amount += 1;
    const Points old = points_of(t);
    const int n = static_cast<int>(old.size() / 2);
    auto at = [&](int i, double x) {
        // The line through shifted points i and i + 1, at x.
        const double x0 = old[2 * i] + amount, y0 = old[2 * i + 1];
        const double x1 = old[2 * i + 2] + amount, y1 = old[2 * i + 3];
        return x1 == x0 ? y0 : y0 + (y1 - y0) * (x - x0) / (x1 - x0);
    };
    Points p;
    int first = -1, last = -1;
    for (int i = 0; i < n; i++) {
        const double x = old[2 * i] + amount;
        if (x < 0 || x > 1) continue;
        if (first < 0) first = i;
        last = i;
        p.insert(p.end(), {x, old[2 * i + 1]});
    }
    if (first < 0) {
        p = {0.0, 0.0, 1.0, 0.0};
    } else {
        // The shape does not wrap: an end with no point beyond it stays level.
        if (p[0] > 0) p.insert(p.begin(), {0.0, first > 0 ? at(first - 1, 0.0) : p[1]});
        if (p[p.size() - 2] < 1) p.insert(p.end(), {1.0, last < n - 1 ? at(last, 1.0) : p.back()});
    }
    set_points(t, p);
    mark_from(t->next, t, nullptr);
    return trans_scrap_lines(t);
}

int trans_to_str(char *text, const transform *t)
{
    if (t != nullptr && t->type == TT_Exponential && t->definition != nullptr) {
        const auto *e = static_cast<const expdef *>(t->definition);
        std::snprintf(text, 96, "y = %.4lg * exp(%.4lg * x) + %.4lg", e->b_scaled, e->a_scaled,
                      e->c_scaled);
        return 0;
    }
    if (t != nullptr && t->type == TT_Logarithmic && t->definition != nullptr) {
        const auto *l = static_cast<const logdef *>(t->definition);
        std::snprintf(text, 96, "y = %.4lg * log(x + %.4lg) + %.4lg", l->b_scaled, l->a_scaled,
                      l->c_scaled);
        return 0;
    }
    std::snprintf(text, 96, "trans_to_str: Wrong type of transform");
    return 1;
}

/* ---------------------------------------------------------------- curves */

int calc_scaled_exp(transform *t)
{
    if (t == nullptr || t->type != TT_Exponential || t->definition == nullptr)
        return VLD_setup_error(VLD_ERR_INVALID_TRANSFORM_TYPE);
    auto *e = static_cast<expdef *>(t->definition);
    const double in = t->max_input - t->min_input, out = t->max_output - t->min_output;
    e->a_scaled = e->a / in;
    e->b_scaled = out * e->b / std::exp(e->a * t->min_input / in);
    e->c_scaled = out * e->c + t->min_output;
    return 0;
}

int calc_scaled_log(transform *t)
{
    if (t == nullptr || t->type != TT_Logarithmic || t->definition == nullptr)
        return VLD_setup_error(VLD_ERR_INVALID_TRANSFORM_TYPE);
    auto *l = static_cast<logdef *>(t->definition);
    const double in = t->max_input - t->min_input, out = t->max_output - t->min_output;
    l->a_scaled = in * l->a - t->min_input;
    l->b_scaled = out * l->b;
    l->c_scaled = out * l->c + t->min_output - std::log(in) * out * l->b;
    return 0;
}

int calc_scaled_any(transform *t)
{
    if (t == nullptr) return 0;
    if (t->type == TT_Exponential) return calc_scaled_exp(t);
    if (t->type == TT_Logarithmic) return calc_scaled_log(t);
    return 0;
}

double y_exp_est(double a, double x)
{
    // Kept: a flat curve gives 1, not x.
    if (std::fabs(a) < 1e-11) return 1.0;
    return (1 - std::exp(a * x)) / (1 - std::exp(a));
}

int solve_exp(double x0, double y0, double *a, double *b, double *c, double tolerance)
{
    if (x0 < tolerance) x0 = tolerance;
    if (y0 < tolerance) y0 = tolerance;
    double coefficient = 0.5, step = 0.1;
    double e = y0 - y_exp_est(coefficient, x0);
    bool was_positive = true;
    for (int i = 0; std::fabs(e) > tolerance && i <= 100000; i++) {
        if (e <= 0)
            coefficient += step;
        else
            coefficient -= step;
        const bool positive = e > 0;
        if (positive != was_positive) step /= 2;
        was_positive = positive;
        e = y0 - y_exp_est(coefficient, x0);
    }
    *a = coefficient;
    *b = 1 / (std::exp(coefficient) - 1);
    *c = -*b;
    return 0;
}

int solve_log(double x0, double y0, double *a, double *b, double *c)
{
    double ea = 0, eb = 0, ec = 0;
    solve_exp(y0, x0, &ea, &eb, &ec, 1e-4);
    *a = -ec;
    if (std::fabs(ea) < 1e-11) {
        *b = *c = 0;
    } else {
        *b = 1 / ea;
        *c = -std::log(eb) / ea;
    }
    return 0;
}
