/*
 * vln_transform_internal.h: what the files of transform editing share.
 */
#ifndef VORLAN_VLN_TRANSFORM_INTERNAL_H
#define VORLAN_VLN_TRANSFORM_INTERNAL_H

#include <vector>

#include "vln_transform_ops.h"

namespace vln_tr {

/* (x, y) pairs of a linear shape. */
using Points = std::vector<double>;

inline lineardef *linear_of(const transform *t)
{
    return t != nullptr && t->type == TT_Linear ? static_cast<lineardef *>(t->definition) : nullptr;
}

/* 0, or error 113 when `t` has no linear shape. */
int need_linear(const transform *t);
/* 0, or error 86 without a histogram and 116 with an out-of-date one. */
int need_histogram(const transform *t);
/* The points of a linear shape. */
Points points_of(const transform *t);
/* Replaces the points of a linear transform (which keeps its shape record). */
void set_points(transform *t, const Points &points);
/* Replaces the shape by the default of `type` (2 to 6), keeping the ranges:
 * 0 or error 20. */
int replace_shape(transform *t, int type);
/* Marks histograms invalid from `start` along next and, when `member`'s chain
 * isn't the output chain of `st`, the whole output chain. */
int mark_from(transform *start, const transform *member, stream *st);
/* The first stream of the surface that `st` is on. */
stream *first_of_surface(stream *st);

}  // namespace vln_tr

#endif
