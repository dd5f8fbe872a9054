/*
 * vln_transform_limits.cpp: a transform's ranges from its histogram, and
 * the chains transforms stand in.
 *
 * A histogram describes the input of its transform at the time it was
 * gathered; a change upstream makes it stale. Every change here therefore
 * marks the histograms it affects as out of date: from the transform itself
 * when its input range changes (the buckets move), from the next one when
 * only its shape or output changes.
 */
#include <cmath>
#include <cstring>

#include "vln_transform_internal.h"

namespace vln_tr {

int need_linear(const transform *t)
{
    const lineardef *d = linear_of(t);
    if (d == nullptr || d->points == nullptr || d->nr_points < 2)
        return VLD_setup_error(VLD_ERR_PIECEWISE_REQUIRED);
    return 0;
}

int need_histogram(const transform *t)
{
    if (t == nullptr || t->histogram == nullptr) return VLD_setup_error(VLD_ERR_NO_HISTOGRAM);
    if (t->histogram->invalid) return VLD_setup_error(VLD_ERR_HISTOGRAM_OUT_OF_DATE);
    return 0;
}

Points points_of(const transform *t)
{
    const lineardef *d = linear_of(t);
    if (d == nullptr || d->points == nullptr) return {};
    return Points(d->points, d->points + 2 * d->nr_points);
}

void set_points(transform *t, const Points &points)
{
    lineardef *d = linear_of(t);
    safe_free(d->points);
    d->nr_points = static_cast<int32_t>(points.size() / 2);
    d->points = static_cast<double *>(malloc_or_die(points.size() * sizeof(double)));
    std::memcpy(d->points, points.data(), points.size() * sizeof(double));
}

int replace_shape(transform *t, int type)
{
    transform *fresh = nullptr;
    if (int status = df_transform(&fresh, type)) return status;
    // The fresh record takes the old shape away with it.
    std::swap(t->type, fresh->type);
    std::swap(t->definition, fresh->definition);
    ef_transform(fresh);
    calc_scaled_any(t);
    return 0;
}

int mark_from(transform *start, const transform *member, stream *st)
{
    int changed = 0;
    for (transform *t = start; t != nullptr; t = t->next)
        if (t->histogram != nullptr && !t->histogram->invalid) {
            t->histogram->invalid = 1;
            changed = 1;
        }
    if (st == nullptr || member == nullptr) return changed;
    const transform *head = member;
    while (head->prev != nullptr) head = head->prev;
    if (head != st->transforms && mark_from(st->transforms, nullptr, nullptr)) changed = 1;
    return changed;
}

stream *first_of_surface(stream *st)
{
    while (st != nullptr && st->prev != nullptr) st = st->prev;
    return st;
}

}  // namespace vln_tr

using namespace vln_tr;

int mark_histograms_invalid(transform *t, stream *st)
{
    return mark_from(t, t, st);
}

int mark_all_histograms_invalid(stream *st)
{
    if (st == nullptr) return 0;
    int changed = mark_from(st->transforms, nullptr, nullptr);
    for (streaminput *in = st->stream_inputs; in != nullptr; in = in->next)
        if (mark_from(in->transforms, nullptr, nullptr)) changed = 1;
    return changed;
}

/* ---------------------------------------------------------------- clipping */

int calc_clip_points(const transform *t, double percent, double *low, double *high)
{
    if (int status = need_histogram(t)) return status;
    const histogram *h = t->histogram;
    const double valid = static_cast<double>(h->nr_cells) - h->below - h->above;
    const double k = std::trunc(valid * percent / 100);
    // Kept: the lower scan gives the first bucket it did not consume and the
    // upper scan the last one, so equal amounts give uneven limits.
    double sum = 0;
    int i = 0;
    while (sum < k && i < VLD_HIST_BUCKETS) sum += h->counts[i++];
    *low = i / 255.0;
    sum = 0;
    int j = VLD_HIST_BUCKETS - 1;
    while (sum < k && j >= 0) sum += h->counts[j--];
    *high = j / 255.0;
    return 0;
}

int autoclip_trans(transform *t, double percent)
{
    if (int status = need_linear(t)) return status;
    double low = 0, high = 1;
    if (int status = calc_clip_points(t, percent, &low, &high)) return status;
    set_points(t, {0.0, 0.0, low, 0.0, high, 1.0, 1.0, 1.0});
    mark_from(t->next, t, nullptr);
    return 0;
}

int trans_set_limits(transform *t, stream *st, double min_input, double max_input,
                     double min_output, double max_output)
{
    if (!(min_input < max_input) || !(min_output < max_output)) return -1;
    const bool input_changed = min_input != t->min_input || max_input != t->max_input;
    const bool output_changed = min_output != t->min_output || max_output != t->max_output;
    t->min_input = min_input;
    t->max_input = max_input;
    t->min_output = min_output;
    t->max_output = max_output;
    calc_scaled_any(t);
    if (input_changed)
        mark_from(t, t, st);
    else if (output_changed)
        mark_from(t->next, t, st);
    return 0;
}

/* Moves equal limits apart by 1.0 each way. */
static void spread(double &low, double &high)
{
    if (low != high) return;
    low -= 1.0;
    high += 1.0;
}

int trans_set_limits_actual(transform *t, stream *st)
{
    if (int status = need_histogram(t)) return status;
    double low = t->histogram->min_value, high = t->histogram->max_value;
    spread(low, high);
    return trans_set_limits(t, st, low, high, t->min_output, t->max_output);
}

int trans_set_limits_percent(transform *t, stream *st, double percent)
{
    if (percent > 100 || percent < 0.1) percent = 100;
    // The percent is what is kept: half of the rest is cut at each end.
    double low = 0, high = 1;
    if (int status = calc_clip_points(t, (100 - percent) / 2, &low, &high)) return status;
    const double span = t->max_input - t->min_input;
    double min_input = t->min_input + span * low, max_input = t->min_input + span * high;
    spread(min_input, max_input);
    return trans_set_limits(t, st, min_input, max_input, t->min_output, t->max_output);
}

int trans_set_type(transform *t, stream *st, int type)
{
    if (int status = replace_shape(t, type)) return status;
    mark_from(t->next, t, st);
    return 0;
}

/* ---------------------------------------------------------------- chains */

namespace {

transform **chain_of(streaminput *input, stream *st)
{
    if (input != nullptr) return &input->transforms;
    return st != nullptr ? &st->transforms : nullptr;
}

/* One more than the largest id of any transform of the algorithm. */
int32_t next_id(const algorithm *alg)
{
    int32_t id = 0;
    auto scan = [&](const transform *t) {
        for (; t != nullptr; t = t->next)
            if (t->id > id) id = t->id;
    };
    for (const surface *s = alg != nullptr ? alg->surfaces : nullptr; s != nullptr; s = s->next)
        for (const stream *st = s->first_stream; st != nullptr; st = st->next) {
            scan(st->transforms);
            for (const streaminput *in = st->stream_inputs; in != nullptr; in = in->next)
                scan(in->transforms);
        }
    return id + 1;
}

/* A default transform of `type`, linked between `prev` and `next` of the
 * chain at `head`. */
transform *link_new(transform **head, transform *prev, transform *next, stream *st,
                    const algorithm *alg, int type)
{
    if (head == nullptr) {
        VLD_setup_error(VLD_ERR_INTERNAL, "No chain for the transform");
        return nullptr;
    }
    transform *t = nullptr;
    if (df_transform(&t, type) != 0) return nullptr;
    t->id = next_id(alg);
    t->prev = prev;
    t->next = next;
    (prev != nullptr ? prev->next : *head) = t;
    if (next != nullptr) next->prev = t;
    mark_from(t, t, st);
    return t;
}

}  // namespace

transform *trans_append(transform *after, streaminput *input, stream *st, algorithm *alg, int type)
{
    transform **head = chain_of(input, st);
    if (after == nullptr && head != nullptr)
        for (after = *head; after != nullptr && after->next != nullptr;) after = after->next;
    return link_new(head, after, after != nullptr ? after->next : nullptr, st, alg, type);
}

transform *trans_insert(transform *before, streaminput *input, stream *st, algorithm *alg, int type)
{
    transform **head = chain_of(input, st);
    if (before == nullptr && head != nullptr) before = *head;
    return link_new(head, before != nullptr ? before->prev : nullptr, before, st, alg, type);
}

int trans_free(transform *t, streaminput *input, stream *st)
{
    transform **head = chain_of(input, st);
    if (t == nullptr || head == nullptr) return VLD_setup_error(VLD_ERR_INTERNAL, "No transform");
    transform *next = t->next;
    (t->prev != nullptr ? t->prev->next : *head) = next;
    if (next != nullptr) next->prev = t->prev;
    t->next = t->prev = nullptr;
    ef_transform(t);
    // What followed now sees other values; an input chain feeds the output.
    if (next != nullptr)
        mark_from(next, next, st);
    else if (input != nullptr && st != nullptr)
        mark_from(st->transforms, nullptr, nullptr);
    return 0;
}

int trans_paste(transform *target, const transform *source, stream *st)
{
    if (int status = cp_transform_partial(target, source)) return status;
    mark_from(target, target, st);
    return 0;
}

namespace {

/* Streams that share pasted transforms: type 10 among type 10, 11 among 11,
 * the others among themselves. */
bool like_kind(int a, int b)
{
    auto kind = [](int type) {
        return type == ST_ClassificationDisplay || type == ST_Classification ? type : 0;
    };
    return kind(a) == kind(b);
}

template <class T>
int position_in(const T *item, const T *head)
{
    int n = 0;
    for (const T *x = head; x != nullptr && x != item; x = x->next) n++;
    return n;
}

}  // namespace

int trans_paste_all(streaminput *input, const transform *source, const transform *chain_head,
                    stream *st, algorithm *alg)
{
    if (source == nullptr || st == nullptr)
        return VLD_setup_error(VLD_ERR_INTERNAL, "No transform");
    if (chain_head == nullptr)
        for (chain_head = source; chain_head->prev != nullptr;) chain_head = chain_head->prev;
    const int place = position_in(source, chain_head);
    const int input_place = input != nullptr ? position_in(input, st->stream_inputs) : -1;
    for (stream *other = first_of_surface(st); other != nullptr; other = other->next) {
        if (other == st || other->turned_off || other->type == ST_DynamicLink ||
            !like_kind(other->type, st->type))
            continue;
        streaminput *in = nullptr;
        if (input_place >= 0) {
            in = other->stream_inputs;
            for (int i = 0; i < input_place && in != nullptr; i++) in = in->next;
            if (in == nullptr) continue;
        }
        transform **head = chain_of(in, other);
        if (*head == nullptr && trans_append(nullptr, in, other, alg, source->type) == nullptr)
            return VLD_error.code;
        transform *target = *head;
        for (int i = 0; i < place && target != nullptr; i++) target = target->next;
        if (target == nullptr) continue;
        if (int status = trans_paste(target, source, other)) return status;
    }
    return 0;
}
