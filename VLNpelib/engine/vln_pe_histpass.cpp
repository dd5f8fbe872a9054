/*
 * vln_pe_histpass.cpp: the clipping passes of the default algorithms.
 *
 * A default algorithm's transforms are fitted to the data it shows: the
 * algorithm is read through the engine as a small picture of 100 by 100
 * pixels with histograms on, the histograms go to their transforms by id,
 * and the transforms' limits follow from them. The algorithm part calls
 * this through the hook that PE_initialise installs.
 */
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "vln_pe_internal.h"
#include "vln_transform_ops.h"
#include "vln_vds.h"

namespace {

constexpr int kPassSize = 100;

/* Calls f(stream, transform) for every transform of the algorithm: each
 * stream's output chain, then the chains of its inputs. */
template <class F>
void for_each_transform(algorithm *alg, F &&f)
{
    for (surface *s = alg->surfaces; s != nullptr; s = s->next)
        for (stream *st = s->first_stream; st != nullptr; st = st->next) {
            for (transform *t = st->transforms; t != nullptr; t = t->next) f(st, t);
            for (streaminput *in = st->stream_inputs; in != nullptr; in = in->next)
                for (transform *t = in->transforms; t != nullptr; t = t->next) f(st, t);
        }
}

/* Histograms find their transforms by id: ids that aren't distinct (as in a
 * new algorithm, whose layers are copies) are numbered afresh from 1. */
void give_distinct_ids(algorithm *alg)
{
    std::set<int32_t> seen;
    bool distinct = true;
    for_each_transform(alg, [&](stream *, transform *t) {
        if (!seen.insert(t->id).second) distinct = false;
    });
    if (distinct) return;
    int32_t id = 0;
    for_each_transform(alg, [&](stream *, transform *t) { t->id = ++id; });
}

int vds_failure(const std::string &text)
{
    return VLD_setup_error(VLD_ERR_VDS, text.c_str());
}

/* Reads the algorithm as a picture of 100 by 100 pixels with histograms on,
 * and gives each transform (with `first_only`, each stream's first output
 * transform) a copy of the histogram it gathered. */
int histogram_pass(algorithm *alg, bool first_only)
{
    alg->output_width = alg->output_height = kPassSize;
    alg->dots_per_inch_across = alg->dots_per_inch_down = 100.0;
    if (int status = adjust_for_aspect(alg, 100.0, 100.0)) return status;
    alg->calc_histograms = 1;
    std::vector<uint32_t> line(kPassSize);
    char *errmsg = nullptr;
    Vds *vds = vds_open_alg_rgbh(alg, &errmsg);
    if (vds == nullptr) {
        const std::string text =
            std::string("CalcHistograms: open vds failed: ") + (errmsg != nullptr ? errmsg : "");
        safe_free(errmsg);
        return vds_failure(text);
    }
    for (int i = 0; i < kPassSize; i++) {
        void *lines[1] = {line.data()};
        const int status = vds_read(vds, lines, nullptr, 0);
        if (status == -1) break;
        if (status != 0) {
            vds_close(&vds);
            return vds_failure("CalcHistograms: Virtual Dataset Read error");
        }
    }
    int status = 0;
    histogram **found = vds_get_histograms(vds);
    for (histogram **h = found; status == 0 && h != nullptr && *h != nullptr; h++) {
        transform *match = nullptr;
        stream *owner = nullptr;
        for_each_transform(alg, [&](stream *st, transform *t) {
            if (match == nullptr && t->id == (*h)->id) match = t, owner = st;
        });
        if (match == nullptr) {
            status = VLD_setup_error(VLD_ERR_HISTOGRAM_NO_TRANSFORM);
            break;
        }
        if (first_only && match != owner->transforms) continue;
        ef_histogram(match->histogram);
        match->histogram = nullptr;
        cp_histogram(&match->histogram, *h);
        match->histogram->invalid = 0;
    }
    vds_close(&vds);
    return status;
}

/* Calls f(stream, its first output transform) for each stream that has one. */
template <class F>
void for_each_first_transform(algorithm *alg, F &&f)
{
    for (surface *s = alg->surfaces; s != nullptr; s = s->next)
        for (stream *st = s->first_stream; st != nullptr; st = st->next)
            if (st->transforms != nullptr) f(st, st->transforms);
}

/* The passes: with `clip`, the first transform of each stream is set to the
 * actual range of its data, then narrowed to keep `clip` percent of it; with
 * `limit`, its shape becomes the ramp that cuts half of the rest at each end.
 * A transform that can't take a step (no histogram, not linear) keeps what
 * it has. */
int alg_clip_passes(algorithm *alg, double clip, double limit)
{
    give_distinct_ids(alg);
    if (clip > 0) {
        if (clip < 0.1) clip = 0.1;
        if (clip >= 100) clip = 100;
        if (int status = histogram_pass(alg, true)) return status;
        for_each_first_transform(alg, [](stream *st, transform *t) {
            if (t->histogram != nullptr) trans_set_limits_actual(t, st);
        });
        if (int status = histogram_pass(alg, false)) return status;
        for_each_first_transform(
            alg, [&](stream *st, transform *t) { trans_set_limits_percent(t, st, clip); });
    }
    if (limit <= 0) return 0;
    if (int status = histogram_pass(alg, false)) return status;
    const double midpoint = (100 - limit) / 2 + limit;
    for_each_first_transform(alg, [&](stream *, transform *t) {
        if (t->type == TT_Linear) autoclip_trans(t, 100 - midpoint);
    });
    return 0;
}

}  // namespace

void pe_install_alg_clip_passes(void)
{
    VLN_set_alg_clip_passes(alg_clip_passes);
}
