/*
 * vld_alg_transform.cpp: the Transform block of a stream or stream input, its
 * three shapes (LinearDef, ExpDef, LogDef) and the Histogram it last gathered.
 *
 * A transform's `definition` is untyped: its record is chosen by `type`. The
 * reader keeps the two in step at every statement, so that freeing, copying
 * and comparing can always go by `type`: a Type that changes the kind of shape
 * drops the shape read so far, and a shape block fills an untyped transform's
 * type. Each transform read, nested or a document of its own, is checked
 * before it is handed on, and its scaled coefficients are worked out again
 * from the unit ones, since the text carries only the latter.
 */
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vld_alg_internal.h"
#include "vld_dshdr_internal.h"

const VLD_ENUM ev_TransformType[] = {{TT_Unknown, "Unknown"},
                                     {TT_Linear, "Linear"},
                                     {TT_Exponential, "Exponential"},
                                     {TT_Logarithmic, "Logarithmic"},
                                     {TT_HistogramOnly, "HistogramOnly"},
                                     {TT_Null, "Null"},
                                     {0, nullptr}};

namespace {

using vld::as;
using vld::Field;
using vld::keep_status;
using vld::Kind;

bool same_number(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

/* ---------------------------------------------------------------- LinearDef */

enum : uint32_t { LD_COUNT = 1, LD_POINTS };

const VLD_KEYWORD ld_keywords[] = {{LD_COUNT, "NumberOfPoints", VTYPE_INT, nullptr},
                                   {LD_POINTS, "Points", VTYPE_LIST, nullptr},
                                   {0, nullptr, 0, nullptr}};

void report_point_count()
{
    char text[64];
    std::snprintf(text, sizeof text, "LinearDef array size != %d * NrEntries\n", 2);
    rf_report_error(text);
}

/* The count and the list may come in either order; whichever comes second is
 * checked against the first. The record always keeps the count of the values
 * it holds, so that a damaged block can still be freed and copied. */
void read_count(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    lineardef &d = as<lineardef>(ctx.record);
    int32_t count = st->value.i;
    if (d.points) {
        if (count != d.nr_points) report_point_count();
        return;
    }
    d.nr_points = count < 0 ? 0 : count;
}

void read_points(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    lineardef &d = as<lineardef>(ctx.record);
    textnode *list = st->value.list;
    st->value.list = nullptr;
    std::vector<double> values;
    if (!vld::list_to_doubles(list, values, "Points")) return;
    if (values.size() % 2 != 0 || values.size() / 2 != static_cast<size_t>(d.nr_points))
        report_point_count();
    safe_free(d.points);
    d.points = nullptr;
    d.nr_points = static_cast<int32_t>(values.size() / 2);
    if (values.empty()) return;
    d.points = static_cast<double *>(malloc_or_die(values.size() * sizeof(double)));
    std::memcpy(d.points, values.data(), values.size() * sizeof(double));
}

void write_count(const vld::WriteContext &ctx)
{
    const lineardef &d = as<lineardef>(ctx.record);
    int32_t count = d.points ? d.nr_points : 0;
    vld::rec_write_line(ctx, &count);
}

void write_points(const vld::WriteContext &ctx)
{
    const lineardef &d = as<lineardef>(ctx.record);
    if (!d.points || d.nr_points <= 0) return;
    vld::rec_write_line(ctx, &d.points);
    ep_trxyval_entries(d.points, d.nr_points);
}

/* A count without its points describes nothing. */
int ld_after_read(void *r, const void *)
{
    lineardef &d = as<lineardef>(r);
    if (!d.points) d.nr_points = 0;
    return 0;
}

void ld_free_extra(void *r)
{
    lineardef &d = as<lineardef>(r);
    safe_free(d.points);
    d.points = nullptr;
    d.nr_points = 0;
}

void ld_copy_extra(void *dst, const void *src)
{
    lineardef &d = as<lineardef>(dst);
    const lineardef &s = as<lineardef>(src);
    d.points = nullptr;
    d.nr_points = s.points ? s.nr_points : 0;
    if (d.nr_points <= 0) return;
    size_t bytes = static_cast<size_t>(d.nr_points) * 2 * sizeof(double);
    d.points = static_cast<double *>(malloc_or_die(bytes));
    std::memcpy(d.points, s.points, bytes);
}

bool ld_equal_extra(const void *a, const void *b)
{
    const lineardef &p = as<lineardef>(a), &q = as<lineardef>(b);
    int32_t n = p.points ? p.nr_points : 0, m = q.points ? q.nr_points : 0;
    if (n != m) return false;
    for (int32_t i = 0; i < 2 * n; i++)
        if (!same_number(p.points[i], q.points[i])) return false;
    return true;
}

const Field ld_fields[] = {
    {.code = LD_COUNT, .kind = Kind::Custom, .read = read_count, .write = write_count},
    {.code = LD_POINTS, .kind = Kind::Custom, .read = read_points, .write = write_points},
};

const vld::Record ld_record = {
    .block = "LinearDef",
    .keywords = ld_keywords,
    .fields = ld_fields,
    .nfields = vld::count_of(ld_fields),
    .size = sizeof(lineardef),
    .after_read = ld_after_read,
    .free_extra = ld_free_extra,
    .copy_extra = ld_copy_extra,
    .equal_extra = ld_equal_extra,
};

/* ---------------------------------------------------------------- ExpDef and LogDef */

/* Both shapes have the same six members in the same order, so one table and
 * one field list serve both; only the block name differs. */
static_assert(sizeof(expdef) == sizeof(logdef) &&
              offsetof(expdef, c_scaled) == offsetof(logdef, c_scaled));

enum : uint32_t { CO_A = 1, CO_B, CO_C, CO_A_SCALED, CO_B_SCALED, CO_C_SCALED };

const VLD_KEYWORD co_keywords[] = {{CO_A, "A", VTYPE_FLOAT, nullptr},
                                   {CO_B, "B", VTYPE_FLOAT, nullptr},
                                   {CO_C, "C", VTYPE_FLOAT, nullptr},
                                   {CO_A_SCALED, "AScaled", VTYPE_FLOAT, nullptr},
                                   {CO_B_SCALED, "BScaled", VTYPE_FLOAT, nullptr},
                                   {CO_C_SCALED, "CScaled", VTYPE_FLOAT, nullptr},
                                   {0, nullptr, 0, nullptr}};

// The scaled coefficients follow from the unit ones and the transform's ranges;
// old documents carried them, and they are still read.
const Field co_fields[] = {
    {.code = CO_A, .kind = Kind::Double, .offset = offsetof(expdef, a)},
    {.code = CO_B, .kind = Kind::Double, .offset = offsetof(expdef, b)},
    {.code = CO_C, .kind = Kind::Double, .offset = offsetof(expdef, c)},
    {.code = CO_A_SCALED,
     .kind = Kind::Double,
     .offset = offsetof(expdef, a_scaled),
     .read_only = true},
    {.code = CO_B_SCALED,
     .kind = Kind::Double,
     .offset = offsetof(expdef, b_scaled),
     .read_only = true},
    {.code = CO_C_SCALED,
     .kind = Kind::Double,
     .offset = offsetof(expdef, c_scaled),
     .read_only = true},
};

const vld::Record exp_record = {
    .block = "ExpDef",
    .keywords = co_keywords,
    .fields = co_fields,
    .nfields = vld::count_of(co_fields),
    .size = sizeof(expdef),
};

const vld::Record log_record = {
    .block = "LogDef",
    .keywords = co_keywords,
    .fields = co_fields,
    .nfields = vld::count_of(co_fields),
    .size = sizeof(logdef),
};

/* ---------------------------------------------------------------- Histogram */

enum : uint32_t { HI_ID = 1, HI_MIN, HI_MAX, HI_BELOW, HI_ABOVE, HI_CELLS, HI_BINS };

const VLD_KEYWORD hi_keywords[] = {{HI_ID, "TransformID", VTYPE_INT, nullptr},
                                   {HI_MIN, "MinimumValue", VTYPE_FLOAT, nullptr},
                                   {HI_MAX, "MaximumValue", VTYPE_FLOAT, nullptr},
                                   {HI_BELOW, "CellsBelowMin", VTYPE_INT, nullptr},
                                   {HI_ABOVE, "CellsAboveMax", VTYPE_INT, nullptr},
                                   {HI_CELLS, "NrOfCells", VTYPE_INT, nullptr},
                                   {HI_BINS, "Bins", VTYPE_LIST, nullptr},
                                   {0, nullptr, 0, nullptr}};

/* Bins are unsigned counts written as signed ones ("%d"), so a count beyond
 * the signed range reads back from its negative spelling. Exactly one entry
 * per bucket is expected; the first VLD_HIST_BUCKETS are kept. */
void read_bins(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    histogram &h = as<histogram>(ctx.record);
    textnode *list = st->value.list;
    st->value.list = nullptr;
    int n = 0;
    for (const textnode *t = list; t; t = t->next, n++) {
        const char *text = t->text ? t->text : "";
        char *end = nullptr;
        long long value = std::strtoll(text, &end, 10);
        if (end == text || *end != '\0' || value < INT32_MIN || value > UINT32_MAX) {
            std::string message =
                std::string("Expecting a count in Bins, received \"") + text + "\"";
            if (message.size() > 300) message.resize(300);
            rf_report_error(message.c_str());
            break;
        }
        if (n < VLD_HIST_BUCKETS) h.counts[n] = static_cast<uint32_t>(value);
    }
    VLD_free_textnodes(list);
    if (n != VLD_HIST_BUCKETS) {
        vld::report_list_count(VLD_HIST_BUCKETS, n);
    }
}

void write_bins(const vld::WriteContext &ctx)
{
    const histogram &h = as<histogram>(ctx.record);
    int32_t counts[VLD_HIST_BUCKETS];
    std::memcpy(counts, h.counts, sizeof counts);
    vld::rec_write_line(ctx, &h.counts);
    ep_hist_entries(counts, VLD_HIST_BUCKETS);
}

bool hi_equal_extra(const void *a, const void *b)
{
    return std::memcmp(as<histogram>(a).counts, as<histogram>(b).counts,
                       sizeof(histogram::counts)) == 0;
}

#define HI_OFFSET(member) offsetof(histogram, member)

// `invalid` has no keyword: a histogram that no longer fits its chain isn't
// written at all.
const Field hi_fields[] = {
    {.code = HI_ID, .kind = Kind::Int32, .offset = HI_OFFSET(id)},
    {.code = HI_MIN, .kind = Kind::Double, .offset = HI_OFFSET(min_value)},
    {.code = HI_MAX, .kind = Kind::Double, .offset = HI_OFFSET(max_value)},
    {.code = HI_BELOW, .kind = Kind::Int32, .offset = HI_OFFSET(below)},
    {.code = HI_ABOVE, .kind = Kind::Int32, .offset = HI_OFFSET(above)},
    {.code = HI_CELLS, .kind = Kind::Int32, .offset = HI_OFFSET(nr_cells)},
    {.code = HI_BINS, .kind = Kind::Custom, .read = read_bins, .write = write_bins},
};

const vld::Record hi_record = {
    .block = "Histogram",
    .keywords = hi_keywords,
    .fields = hi_fields,
    .nfields = vld::count_of(hi_fields),
    .size = sizeof(histogram),
    .equal_extra = hi_equal_extra,
};

/* ---------------------------------------------------------------- shapes by type */

/* The record of a type's shape, or null for the types without one. */
const vld::Record *shape_record(int32_t type)
{
    switch (type) {
        case TT_Linear:
            return &ld_record;
        case TT_Exponential:
            return &exp_record;
        case TT_Logarithmic:
            return &log_record;
        default:
            return nullptr;
    }
}

void free_definition(transform &t)
{
    if (const vld::Record *r = shape_record(t.type)) vld::rec_free(t.definition, *r);
    t.definition = nullptr;
}

void *copy_definition(int32_t type, const void *definition)
{
    const vld::Record *r = shape_record(type);
    return r ? vld::rec_dup(definition, *r) : nullptr;
}

/* The scaled coefficients of an exponential or logarithmic shape, from its
 * unit coefficients and the transform's ranges. */
void scale_coefficients(transform &t)
{
    if (!t.definition) return;
    double in = t.max_input - t.min_input, out = t.max_output - t.min_output;
    if (t.type == TT_Exponential) {
        expdef &e = *static_cast<expdef *>(t.definition);
        e.a_scaled = e.a / in;
        e.b_scaled = out * e.b / std::exp(e.a * t.min_input / in);
        e.c_scaled = out * e.c + t.min_output;
    } else if (t.type == TT_Logarithmic) {
        logdef &l = *static_cast<logdef *>(t.definition);
        l.a_scaled = in * l.a - t.min_input;
        l.b_scaled = out * l.b;
        l.c_scaled = out * l.c + t.min_output - std::log(in) * out * l.b;
    }
}

/* ---------------------------------------------------------------- Transform */

enum : uint32_t {
    TR_ID = 1,
    TR_TYPE,
    TR_MIN_INPUT,
    TR_MAX_INPUT,
    TR_MIN_OUTPUT,
    TR_MAX_OUTPUT,
    TR_LINEAR,
    TR_EXP,
    TR_LOG,
    TR_HISTOGRAM,
    TR_REALTIME
};

const VLD_KEYWORD tr_keywords[] = {{TR_ID, "Id", VTYPE_INT, nullptr},
                                   {TR_TYPE, "Type", VTYPE_ENUM, ev_TransformType},
                                   {TR_MIN_INPUT, "MinimumInputValue", VTYPE_FLOAT, nullptr},
                                   {TR_MAX_INPUT, "MaximumInputValue", VTYPE_FLOAT, nullptr},
                                   {TR_MIN_OUTPUT, "MinimumOutputValue", VTYPE_FLOAT, nullptr},
                                   {TR_MAX_OUTPUT, "MaximumOutputValue", VTYPE_FLOAT, nullptr},
                                   {TR_LINEAR, "LinearDef", VTYPE_BLOCK, nullptr},
                                   {TR_EXP, "ExpDef", VTYPE_BLOCK, nullptr},
                                   {TR_LOG, "LogDef", VTYPE_BLOCK, nullptr},
                                   {TR_HISTOGRAM, "Histogram", VTYPE_BLOCK, nullptr},
                                   {TR_REALTIME, "DoInRealtime", VTYPE_YN, nullptr},
                                   {0, nullptr, 0, nullptr}};

const transform &tr(const void *r)
{
    return as<transform>(r);
}

/* The Id is a transient: always accepted, kept only when transients are read. */
void read_id(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    if (read_transients) as<transform>(ctx.record).id = st->value.i;
}

/* A type whose shape differs from the present one drops the shape. */
void read_type(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    transform &t = as<transform>(ctx.record);
    if (t.definition && shape_record(st->value.i) != shape_record(t.type)) free_definition(t);
    t.type = st->value.i;
}

const char *type_name(int32_t type)
{
    for (const VLD_ENUM *e = ev_TransformType; e->name; e++)
        if (e->value == type) return e->name;
    return "?";
}

/* A shape block replaces the shape of its own type. Before any Type it sets
 * the type; against another type it is read, dropped and reported. */
void read_shape(vld::ReadContext &ctx, VLD_STATEMENT *)
{
    transform &t = as<transform>(ctx.record);
    int32_t type = ctx.field->code == TR_LINEAR ? TT_Linear
                   : ctx.field->code == TR_EXP  ? TT_Exponential
                                                : TT_Logarithmic;
    const vld::Record &r = *shape_record(type);
    void *shape = vld::rec_alloc(r);
    keep_status(ctx, vld::rec_read(shape, nullptr, r));
    if (t.type != type && t.type != 0 && t.type != TT_Unknown) {
        vld::rec_free(shape, r);
        std::string text =
            std::string(r.block) + " does not fit a transform of type " + type_name(t.type);
        rf_report_error(text.c_str());
        return;
    }
    free_definition(t);
    t.type = type;
    t.definition = shape;
}

void write_shape(const vld::WriteContext &ctx)
{
    const transform &t = tr(ctx.record);
    const vld::Record *r = shape_record(t.type);
    if (!r || !t.definition) return;
    uint32_t code = t.type == TT_Linear ? TR_LINEAR : t.type == TT_Exponential ? TR_EXP : TR_LOG;
    if (code != ctx.field->code) return;
    vld::rec_write(t.definition, nullptr, *r);
}

/* Ranges that were never set (NaN) are written as the 8-bit range. */
void write_range(const vld::WriteContext &ctx)
{
    const transform &t = tr(ctx.record);
    double value = 0.0, fallback = 0.0;
    switch (ctx.field->code) {
        case TR_MIN_INPUT:
            value = t.min_input;
            break;
        case TR_MAX_INPUT:
            value = t.max_input, fallback = 255.0;
            break;
        case TR_MIN_OUTPUT:
            value = t.min_output;
            break;
        default:
            value = t.max_output, fallback = 255.0;
            break;
    }
    if (std::isnan(value)) value = fallback;
    vld::rec_write_line(ctx, &value);
}

bool omit_id(const void *, const void *)
{
    return !write_transients;
}
bool is_null(const void *r, const void *)
{
    return tr(r).type == TT_Null;
}
bool omit_histogram(const void *r, const void *)
{
    return !tr(r).histogram || tr(r).histogram->invalid != 0;
}

/* The checks of a transform as the engine needs it; 0 or VLD_ERR_INVALID_TRANSFORM. */
int check_transform(const transform &t)
{
    if (t.type == TT_Null) return 0;
    const char *fault = nullptr;
    if (t.min_input >= t.max_input) {
        fault = "Minimum x >= maximum x";
    } else if (t.type != TT_HistogramOnly && t.min_output >= t.max_output) {
        fault = "Minimum y >= maximum y";
    } else if (t.type == TT_Linear) {
        const lineardef *d = static_cast<const lineardef *>(t.definition);
        if (!d || !d->points || d->nr_points < 2)
            fault = "Piecewise linear intervals not defined";
        else if (d->points[0] != 0.0)
            fault = "First interval does not start with x = 0.0";
        else if (d->points[2 * (d->nr_points - 1)] != 1.0)
            fault = "Last interval does not end with x = 1.0";
    }
    return fault ? VLD_setup_error(VLD_ERR_INVALID_TRANSFORM, fault) : 0;
}

int tr_after_read(void *r, const void *)
{
    transform &t = as<transform>(r);
    // Neither Type nor a shape block: an Unknown transform, which keeps its
    // ranges and writes back; left at 0 it could not be written.
    if (t.type == 0) t.type = TT_Unknown;
    int status = check_transform(t);
    if (!status) scale_coefficients(t);
    return status;
}

void tr_free_extra(void *r)
{
    free_definition(as<transform>(r));
}

/* A copy stands alone: its links are cleared, and the owner of a chain sets
 * them. */
void tr_copy_extra(void *dst, const void *src)
{
    transform &d = as<transform>(dst);
    d.next = d.prev = nullptr;
    d.definition = copy_definition(tr(src).type, tr(src).definition);
}

bool tr_equal_extra(const void *a, const void *b)
{
    const transform &p = tr(a), &q = tr(b);
    if (p.type != q.type) return false;
    const vld::Record *r = shape_record(p.type);
    return !r || vld::rec_equal(p.definition, q.definition, *r);
}

#define TR_OFFSET(member) offsetof(transform, member)

// The first field of a code reads it; the writer skips read-only fields and
// writes by the later one. Ranges are read and compared as plain numbers and
// written by write_range.
const Field tr_fields[] = {
    {.code = TR_ID, .kind = Kind::Custom, .read_only = true, .read = read_id},
    {.code = TR_TYPE, .kind = Kind::Custom, .read_only = true, .read = read_type},
    {.code = TR_MIN_INPUT, .kind = Kind::Double, .offset = TR_OFFSET(min_input), .read_only = true},
    {.code = TR_MAX_INPUT, .kind = Kind::Double, .offset = TR_OFFSET(max_input), .read_only = true},
    {.code = TR_MIN_OUTPUT,
     .kind = Kind::Double,
     .offset = TR_OFFSET(min_output),
     .read_only = true},
    {.code = TR_MAX_OUTPUT,
     .kind = Kind::Double,
     .offset = TR_OFFSET(max_output),
     .read_only = true},

    {.code = TR_ID, .kind = Kind::Int32, .offset = TR_OFFSET(id), .omit = omit_id},
    {.code = TR_TYPE, .kind = Kind::Enum, .offset = TR_OFFSET(type)},
    {.code = TR_MIN_INPUT, .kind = Kind::Custom, .omit = is_null, .write = write_range},
    {.code = TR_MAX_INPUT, .kind = Kind::Custom, .omit = is_null, .write = write_range},
    {.code = TR_MIN_OUTPUT, .kind = Kind::Custom, .omit = is_null, .write = write_range},
    {.code = TR_MAX_OUTPUT, .kind = Kind::Custom, .omit = is_null, .write = write_range},
    {.code = TR_LINEAR, .kind = Kind::Custom, .read = read_shape, .write = write_shape},
    {.code = TR_EXP, .kind = Kind::Custom, .read = read_shape, .write = write_shape},
    {.code = TR_LOG, .kind = Kind::Custom, .read = read_shape, .write = write_shape},
    {.code = TR_HISTOGRAM,
     .kind = Kind::BlockPtr,
     .offset = TR_OFFSET(histogram),
     .sub = vld::vld_histogram_record,
     .omit = omit_histogram},
    {.code = TR_REALTIME,
     .kind = Kind::YesNo,
     .offset = TR_OFFSET(do_in_realtime),
     .omit = is_null},
};

const vld::Record tr_record = {
    .block = "Transform",
    .keywords = tr_keywords,
    .fields = tr_fields,
    .nfields = vld::count_of(tr_fields),
    .size = sizeof(transform),
    .after_read = tr_after_read,
    .free_extra = tr_free_extra,
    .copy_extra = tr_copy_extra,
    .equal_extra = tr_equal_extra,
};

/* The default shapes of the three shaped types, on the unit square. */
void default_shape(transform &t)
{
    switch (t.type) {
        case TT_Linear: {
            auto *d = static_cast<lineardef *>(vld::rec_alloc(ld_record));
            d->nr_points = 2;
            d->points = static_cast<double *>(malloc_or_die(4 * sizeof(double)));
            const double points[4] = {0.0, 0.0, 1.0, 1.0};
            std::memcpy(d->points, points, sizeof points);
            t.definition = d;
            break;
        }
        case TT_Exponential: {
            auto *e = static_cast<expdef *>(vld::rec_alloc(exp_record));
            e->a = 5.496878, e->b = 0.004116, e->c = -0.004116;
            t.definition = e;
            break;
        }
        case TT_Logarithmic: {
            auto *l = static_cast<logdef *>(vld::rec_alloc(log_record));
            l->a = 0.004116, l->b = 0.181922, l->c = 0.999253;
            t.definition = l;
            break;
        }
        default:
            break;
    }
    scale_coefficients(t);
}

}  // namespace

/* ---------------------------------------------------------------- shared */

const vld::Record &vld::vld_transform_record()
{
    return tr_record;
}
const vld::Record &vld::vld_lineardef_record()
{
    return ld_record;
}
const vld::Record &vld::vld_expdef_record()
{
    return exp_record;
}
const vld::Record &vld::vld_logdef_record()
{
    return log_record;
}
const vld::Record &vld::vld_histogram_record()
{
    return hi_record;
}

void vld::free_transforms(transform *chain)
{
    while (chain) {
        transform *next = chain->next;
        vld::rec_free(chain, tr_record);
        chain = next;
    }
}

transform *vld::copy_transforms(const transform *chain)
{
    transform *head = nullptr, *last = nullptr;
    for (; chain; chain = chain->next) {
        auto *copy = static_cast<transform *>(vld::rec_dup(chain, tr_record));
        copy->prev = last;
        (last ? last->next : head) = copy;
        last = copy;
    }
    return head;
}

/* ---------------------------------------------------------------- transform */

int ea_transform(transform **record)
{
    return vld::fam_alloc(record, tr_record);
}
void ef_transform(transform *record)
{
    vld::rec_free(record, tr_record);
}
int eg_transform(transform **record, const char *name)
{
    return vld::fam_get(record, name, tr_record);
}
int ep_transform(const transform *record, const char *name)
{
    return vld::rec_write(record, name, tr_record);
}
int cp_transform(transform **copy, const transform *source)
{
    return vld::fam_dup(copy, source, tr_record);
}
/* The copy's old contents are not freed, and its links come out null. */
int cp_transform_noalloc(transform *copy, const transform *source)
{
    return vld::fam_copy(copy, source, tr_record);
}

int cp_transform_partial(transform *copy, const transform *source)
{
    if (!copy || !source) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    if (copy == source) return 0;
    free_definition(*copy);
    copy->min_input = source->min_input;
    copy->max_input = source->max_input;
    copy->min_output = source->min_output;
    copy->max_output = source->max_output;
    copy->type = source->type;
    copy->definition = copy_definition(source->type, source->definition);
    return 0;
}

int df_transform(transform **record, int type)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    *record = nullptr;
    if (type < TT_Linear || type > TT_Null) return VLD_setup_error(VLD_ERR_INVALID_TRANSFORM_TYPE);
    *record = static_cast<transform *>(vld::rec_alloc(tr_record));
    return df_transform_noalloc(*record, type);
}

/* The record's old shape is not freed (as with every _noalloc); its links,
 * id, histogram and DoInRealtime stay as they are. */
int df_transform_noalloc(transform *record, int type)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    if (type < TT_Linear || type > TT_Null) return VLD_setup_error(VLD_ERR_INVALID_TRANSFORM_TYPE);
    record->definition = nullptr;
    record->type = type;
    record->min_input = record->min_output = 0.0;
    record->max_input = record->max_output = 255.0;
    default_shape(*record);
    return 0;
}

int cp_lineardef(lineardef **copy, const lineardef *source)
{
    return vld::fam_dup(copy, source, ld_record);
}
int cp_expdef(expdef **copy, const expdef *source)
{
    return vld::fam_dup(copy, source, exp_record);
}
int cp_logdef(logdef **copy, const logdef *source)
{
    return vld::fam_dup(copy, source, log_record);
}

/* ---------------------------------------------------------------- histogram */

int ea_histogram(histogram **record)
{
    return vld::fam_alloc(record, hi_record);
}
void ef_histogram(histogram *record)
{
    vld::rec_free(record, hi_record);
}
int cp_histogram(histogram **copy, const histogram *source)
{
    return vld::fam_dup(copy, source, hi_record);
}
int cp_histogram_noalloc(histogram *copy, const histogram *source)
{
    return vld::fam_copy(copy, source, hi_record);
}
