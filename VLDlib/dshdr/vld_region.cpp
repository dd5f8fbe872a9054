/*
 * vld_region.cpp: RegionInfo, its RGBcolour and its Stats block.
 *
 * A raster's regions are a list: polygons given as rings of cell positions
 * (SubRegion lists of x, y pairs), or classes of a class dataset. Each may carry
 * the statistics of its cells. The region "All", the whole image, is put at the
 * head of the list when a raster is read without one.
 */
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "vld_dshdr_internal.h"

namespace {

using vld::Field;
using vld::Kind;

using vld::as;

const char *keyword_name(const vld::ReadContext &ctx)
{
    return vld::rec_keyword(*ctx.rec, ctx.field->code)->name;
}

void report(const char *format, const char *keyword, long a = 0, long b = 0)
{
    char text[256];
    std::snprintf(text, sizeof text, format, keyword, a, b);
    rf_report_error(text);
}

/* ---------------------------------------------------------------- RGBcolour */

enum : uint32_t { RGB_RED = 1, RGB_GREEN, RGB_BLUE };

const VLD_KEYWORD rgb_keywords[] = {{RGB_RED, "Red", VTYPE_INT, nullptr},
                                    {RGB_GREEN, "Green", VTYPE_INT, nullptr},
                                    {RGB_BLUE, "Blue", VTYPE_INT, nullptr},
                                    {0, nullptr, 0, nullptr}};

const Field rgb_fields[] = {
    {.code = RGB_RED, .kind = Kind::Int32, .offset = offsetof(rgbcolour, red)},
    {.code = RGB_GREEN, .kind = Kind::Int32, .offset = offsetof(rgbcolour, green)},
    {.code = RGB_BLUE, .kind = Kind::Int32, .offset = offsetof(rgbcolour, blue)},
};

const vld::Record rgb_record = {
    .block = "RGBcolour",
    .keywords = rgb_keywords,
    .fields = rgb_fields,
    .nfields = vld::count_of(rgb_fields),
    .size = sizeof(rgbcolour),
};

/* ---------------------------------------------------------------- Stats */

enum : uint32_t {
    ST_RATE = 1,
    ST_PRIOR,
    ST_BANDS,
    ST_NON_NULL,
    ST_NULL,
    ST_MIN,
    ST_MAX,
    ST_MEAN,
    ST_MEDIAN,
    ST_COVARIANCE,
    ST_DERIVED /* derived matrices: recomputed, never kept */
};

const VLD_KEYWORD st_keywords[] = {{ST_RATE, "SubsampleRate", VTYPE_INT, nullptr},
                                   {ST_PRIOR, "PriorProbability", VTYPE_FLOAT, nullptr},
                                   {ST_BANDS, "NumberOfBands", VTYPE_INT, nullptr},
                                   {ST_NON_NULL, "NumberOfNonNullCells", VTYPE_LIST, nullptr},
                                   {ST_NULL, "NumberOfNullCells", VTYPE_LIST, nullptr},
                                   {ST_MIN, "MinimumValue", VTYPE_LIST, nullptr},
                                   {ST_MAX, "MaximumValue", VTYPE_LIST, nullptr},
                                   {ST_MEAN, "MeanValue", VTYPE_LIST, nullptr},
                                   {ST_MEDIAN, "MedianValue", VTYPE_LIST, nullptr},
                                   {ST_COVARIANCE, "CovarianceMatrix", VTYPE_LIST, nullptr},
                                   {ST_DERIVED, "CorrelationMatrix", VTYPE_LIST, nullptr},
                                   {ST_DERIVED, "CovarianceEigenvalues", VTYPE_LIST, nullptr},
                                   {ST_DERIVED, "CorrelationEigenvalues", VTYPE_LIST, nullptr},
                                   {ST_DERIVED, "CovarianceEigenvectors", VTYPE_LIST, nullptr},
                                   {ST_DERIVED, "CorrelationEigenvectors", VTYPE_LIST, nullptr},
                                   {0, nullptr, 0, nullptr}};

/* More bands than statistics are ever kept for; a larger count is damage. */
constexpr int32_t kMaxStatsBands = 1 << 16;

/* A per-band array of a Stats record, by its keyword's code. */
struct BandArray {
    void **slot;
    bool integers;
    size_t count; /* elements, for the record's band count */
};

BandArray band_array(msstats &m, uint32_t code)
{
    size_t n = m.nr_bands > 0 ? static_cast<size_t>(m.nr_bands) : 0;
    switch (code) {
        case ST_NON_NULL:
            return {reinterpret_cast<void **>(&m.non_null_cells), true, n};
        case ST_NULL:
            return {reinterpret_cast<void **>(&m.null_cells), true, n};
        case ST_MIN:
            return {reinterpret_cast<void **>(&m.minimum), false, n};
        case ST_MAX:
            return {reinterpret_cast<void **>(&m.maximum), false, n};
        case ST_MEAN:
            return {reinterpret_cast<void **>(&m.mean), false, n};
        case ST_MEDIAN:
            return {reinterpret_cast<void **>(&m.median), false, n};
        default:
            return {reinterpret_cast<void **>(&m.covariance), false, n * n};
    }
}
BandArray band_array(const msstats &m, uint32_t code)
{
    return band_array(const_cast<msstats &>(m), code);
}

constexpr uint32_t kArrayCodes[] = {ST_NON_NULL, ST_NULL,   ST_MIN,       ST_MAX,
                                    ST_MEAN,     ST_MEDIAN, ST_COVARIANCE};

size_t element_size(const BandArray &a)
{
    return a.integers ? sizeof(int32_t) : sizeof(double);
}

void *copy_array(const void *data, const BandArray &a)
{
    if (!data || a.count == 0) return nullptr;
    void *copy = malloc_or_die(a.count * element_size(a));
    std::memcpy(copy, data, a.count * element_size(a));
    return copy;
}

void read_stats_bands(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    msstats &m = as<msstats>(ctx.record);
    int32_t n = st->value.i;
    if (n < 0 || n > kMaxStatsBands) {
        report("%s = %ld is out of range", keyword_name(ctx), n);
        return;
    }
    for (uint32_t code : kArrayCodes) {
        if (*band_array(m, code).slot && n != m.nr_bands) {
            report("%s = %ld differs from the band values before it", keyword_name(ctx), n);
            return;
        }
    }
    m.nr_bands = n;
}

/* A list of band values: one per band, or one per pair of bands for the
 * covariance. NumberOfBands must come first, as the writer puts it. */
void read_stats_array(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    msstats &m = as<msstats>(ctx.record);
    std::vector<double> values;
    textnode *list = st->value.list;
    st->value.list = nullptr;
    if (!vld::list_to_doubles(list, values, keyword_name(ctx))) return;
    BandArray a = band_array(m, ctx.field->code);
    if (m.nr_bands <= 0) {
        report("NumberOfBands must come before %s", keyword_name(ctx));
        return;
    }
    if (values.size() != a.count) {
        vld::report_list_count(static_cast<long long>(a.count),
                               static_cast<long long>(values.size()));
        return;
    }
    safe_free(*a.slot);
    *a.slot = malloc_or_die(a.count * element_size(a));
    for (size_t i = 0; i < a.count; i++) {
        if (a.integers) {
            double v = values[i];
            static_cast<int32_t *>(*a.slot)[i] = v >= 2147483647.0    ? INT32_MAX
                                                 : v <= -2147483648.0 ? INT32_MIN
                                                 : std::isnan(v)      ? 0
                                                                      : static_cast<int32_t>(v);
        } else {
            static_cast<double *>(*a.slot)[i] = values[i];
        }
    }
}

void write_stats_bands(const vld::WriteContext &ctx)
{
    vld::rec_write_line(ctx, &as<msstats>(ctx.record).nr_bands);
}

void write_stats_array(const vld::WriteContext &ctx)
{
    const msstats &m = as<msstats>(ctx.record);
    BandArray a = band_array(m, ctx.field->code);
    if (!*a.slot || a.count == 0) return;
    vld::rec_write_line(ctx, a.slot);
    if (!a.integers) {
        int n = m.nr_bands;
        ep_array(static_cast<const double *>(*a.slot), ctx.field->code == ST_COVARIANCE ? n : 1, n);
        return;
    }
    std::string row;
    char number[16];
    for (size_t i = 0; i < a.count; i++) {
        std::snprintf(number, sizeof number, "\t%d", static_cast<const int32_t *>(*a.slot)[i]);
        row += number;
    }
    ep_raw_line(row.c_str());
    ep_raw_line("}");
}

bool omit_rate(const void *r, const void *)
{
    return as<msstats>(r).subsample_rate == 0 || as<msstats>(r).subsample_rate == 1;
}
bool omit_prior(const void *r, const void *)
{
    return as<msstats>(r).prior_probability == 0.0;
}
bool omit_null_cells(const void *r, const void *)
{
    const msstats &m = as<msstats>(r);
    for (int32_t i = 0; m.null_cells && i < m.nr_bands; i++)
        if (m.null_cells[i] != 0) return false;
    return true;
}
bool stats_empty(const void *r, const void *)
{
    return as<msstats>(r).nr_bands == 0;
}

void st_free_extra(void *r)
{
    msstats &m = as<msstats>(r);
    for (uint32_t code : kArrayCodes) {
        BandArray a = band_array(m, code);
        safe_free(*a.slot);
        *a.slot = nullptr;
    }
}

void st_copy_extra(void *dst, const void *src)
{
    const msstats &s = as<msstats>(src);
    msstats &d = as<msstats>(dst);
    for (uint32_t code : kArrayCodes)
        *band_array(d, code).slot = copy_array(*band_array(s, code).slot, band_array(s, code));
}

bool same_number(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

bool st_equal_extra(const void *x, const void *y)
{
    const msstats &p = as<msstats>(x);
    const msstats &q = as<msstats>(y);
    if (p.nr_bands != q.nr_bands) return false;
    for (uint32_t code : kArrayCodes) {
        BandArray a = band_array(p, code), b = band_array(q, code);
        if (!*a.slot || !*b.slot) {
            if (*a.slot != *b.slot) return false;
            continue;
        }
        for (size_t i = 0; i < a.count; i++) {
            bool same = a.integers ? static_cast<const int32_t *>(*a.slot)[i] ==
                                         static_cast<const int32_t *>(*b.slot)[i]
                                   : same_number(static_cast<const double *>(*a.slot)[i],
                                                 static_cast<const double *>(*b.slot)[i]);
            if (!same) return false;
        }
    }
    return true;
}

const Field st_fields[] = {
    {.code = ST_RATE,
     .kind = Kind::Int32,
     .offset = offsetof(msstats, subsample_rate),
     .omit = omit_rate},
    {.code = ST_PRIOR,
     .kind = Kind::Double,
     .offset = offsetof(msstats, prior_probability),
     .omit = omit_prior},
    {.code = ST_BANDS, .kind = Kind::Custom, .read = read_stats_bands, .write = write_stats_bands},
    {.code = ST_NON_NULL,
     .kind = Kind::Custom,
     .read = read_stats_array,
     .write = write_stats_array},
    {.code = ST_NULL,
     .kind = Kind::Custom,
     .omit = omit_null_cells,
     .read = read_stats_array,
     .write = write_stats_array},
    {.code = ST_MIN, .kind = Kind::Custom, .read = read_stats_array, .write = write_stats_array},
    {.code = ST_MAX, .kind = Kind::Custom, .read = read_stats_array, .write = write_stats_array},
    {.code = ST_MEAN, .kind = Kind::Custom, .read = read_stats_array, .write = write_stats_array},
    {.code = ST_MEDIAN, .kind = Kind::Custom, .read = read_stats_array, .write = write_stats_array},
    {.code = ST_COVARIANCE,
     .kind = Kind::Custom,
     .read = read_stats_array,
     .write = write_stats_array},
    {.code = ST_DERIVED, .kind = Kind::Ignore},
};

const vld::Record st_record = {
    .block = "Stats",
    .keywords = st_keywords,
    .fields = st_fields,
    .nfields = vld::count_of(st_fields),
    .size = sizeof(msstats),
    .empty = stats_empty,
    .free_extra = st_free_extra,
    .copy_extra = st_copy_extra,
    .equal_extra = st_equal_extra,
};

/* ---------------------------------------------------------------- RegionInfo */

enum : uint32_t { RG_TYPE = 1, RG_NAME, RG_SOURCE, RG_COLOUR, RG_SUBREGION, RG_CLASS, RG_STATS };

const VLD_ENUM ev_RegionType[] = {
    {REGION_POLYGON, "Polygon"}, {REGION_CLASS, "Class"}, {0, nullptr}};

const VLD_KEYWORD rg_keywords[] = {{RG_TYPE, "Type", VTYPE_ENUM, ev_RegionType},
                                   {RG_NAME, "RegionName", VTYPE_STRING, nullptr},
                                   {RG_SOURCE, "SourceDataset", VTYPE_FILENAME, nullptr},
                                   {RG_COLOUR, "RGBcolour", VTYPE_BLOCK, nullptr},
                                   {RG_SUBREGION, "SubRegion", VTYPE_LIST, nullptr},
                                   {RG_CLASS, "ClassNumber", VTYPE_INT, nullptr},
                                   {RG_STATS, "Stats", VTYPE_BLOCK, nullptr},
                                   {0, nullptr, 0, nullptr}};

VLD_POINTNODE *new_point(double x, double y)
{
    auto *p = static_cast<VLD_POINTNODE *>(malloc_or_die(sizeof(VLD_POINTNODE)));
    *p = {nullptr, x, y};
    return p;
}

void free_subregions(subregion *s)
{
    while (s) {
        subregion *next = s->next;
        for (VLD_POINTNODE *p = s->points; p;) {
            VLD_POINTNODE *n = p->next;
            safe_free(p);
            p = n;
        }
        safe_free(s);
        s = next;
    }
}

/* Appends a ring of points to the region. */
void append_subregion(regioninfo &r, const double *xy, size_t pairs)
{
    auto *s = static_cast<subregion *>(malloc_or_die(sizeof(subregion)));
    *s = {nullptr, nullptr};
    VLD_POINTNODE **tail = &s->points;
    for (size_t i = 0; i < pairs; i++, tail = &(*tail)->next)
        *tail = new_point(xy[2 * i], xy[2 * i + 1]);
    subregion **at = &r.subregions;
    while (*at) at = &(*at)->next;
    *at = s;
}

void read_subregion(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    std::vector<double> values;
    textnode *list = st->value.list;
    st->value.list = nullptr;
    if (!vld::list_to_doubles(list, values, "SubRegion")) return;
    if (values.size() % 2 != 0) {
        report("%s needs pairs of numbers, received %ld numbers", "SubRegion",
               static_cast<long>(values.size()));
        return;
    }
    append_subregion(as<regioninfo>(ctx.record), values.data(), values.size() / 2);
}

void write_subregions(const vld::WriteContext &ctx)
{
    for (const subregion *s = as<regioninfo>(ctx.record).subregions; s; s = s->next) {
        vld::rec_write_line(ctx, &s->points);
        ep_region_points(s->points);
    }
}

bool omit_colour(const void *r, const void *)
{
    const rgbcolour &c = as<regioninfo>(r).colour;
    return c.red == 0 && c.green == 0 && c.blue == 0;
}
bool omit_subregions(const void *r, const void *)
{
    return as<regioninfo>(r).type != REGION_POLYGON;
}
bool omit_class(const void *r, const void *)
{
    return as<regioninfo>(r).type != REGION_CLASS;
}

int rg_after_read(void *r, const void *)
{
    regioninfo &rg = as<regioninfo>(r);
    if (!rg.name || !*rg.name) {
        safe_free(rg.name);
        rg.name = strsave(" ");
    }
    return 0;
}

void rg_free_extra(void *r)
{
    free_subregions(as<regioninfo>(r).subregions);
    as<regioninfo>(r).subregions = nullptr;
}

void rg_copy_extra(void *dst, const void *src)
{
    regioninfo &d = as<regioninfo>(dst);
    d.subregions = nullptr;
    for (const subregion *s = as<regioninfo>(src).subregions; s; s = s->next) {
        std::vector<double> xy;
        for (const VLD_POINTNODE *p = s->points; p; p = p->next) xy.insert(xy.end(), {p->x, p->y});
        append_subregion(d, xy.data(), xy.size() / 2);
    }
}

bool rg_equal_extra(const void *a, const void *b)
{
    const subregion *s = as<regioninfo>(a).subregions, *t = as<regioninfo>(b).subregions;
    for (; s && t; s = s->next, t = t->next) {
        const VLD_POINTNODE *p = s->points, *q = t->points;
        for (; p && q; p = p->next, q = q->next)
            if (!same_number(p->x, q->x) || !same_number(p->y, q->y)) return false;
        if (p || q) return false;
    }
    return !s && !t;
}

const Field rg_fields[] = {
    {.code = RG_TYPE, .kind = Kind::Enum, .offset = offsetof(regioninfo, type)},
    {.code = RG_NAME, .kind = Kind::String, .offset = offsetof(regioninfo, name)},
    {.code = RG_SOURCE, .kind = Kind::Filename, .offset = offsetof(regioninfo, source_dataset)},
    {.code = RG_COLOUR,
     .kind = Kind::Block,
     .offset = offsetof(regioninfo, colour),
     .sub = vld::rgbcolour_record,
     .omit = omit_colour},
    {.code = RG_SUBREGION,
     .kind = Kind::Custom,
     .omit = omit_subregions,
     .read = read_subregion,
     .write = write_subregions},
    {.code = RG_CLASS,
     .kind = Kind::Int32,
     .offset = offsetof(regioninfo, class_number),
     .omit = omit_class},
    {.code = RG_STATS,
     .kind = Kind::BlockPtr,
     .offset = offsetof(regioninfo, stats),
     .sub = vld::msstats_record},
};

const vld::Record rg_record = {
    .block = "RegionInfo",
    .keywords = rg_keywords,
    .fields = rg_fields,
    .nfields = vld::count_of(rg_fields),
    .size = sizeof(regioninfo),
    .after_read = rg_after_read,
    .free_extra = rg_free_extra,
    .copy_extra = rg_copy_extra,
    .equal_extra = rg_equal_extra,
};

}  // namespace

/* ---------------------------------------------------------------- shared */

const vld::Record &vld::vld_regioninfo_record()
{
    return rg_record;
}
const vld::Record &vld::rgbcolour_record()
{
    return rgb_record;
}
const vld::Record &vld::msstats_record()
{
    return st_record;
}

void vld::add_all_region(rasterinfo *raster)
{
    if (!raster || (raster->nr_lines == 0 && raster->nr_cells == 0)) return;
    for (const regioninfo *r = raster->regions; r; r = r->next)
        if (r->name && std::strcmp(r->name, "All") == 0) return;
    regioninfo *all = nullptr;
    ea_regioninfo(&all);
    all->type = REGION_POLYGON;
    all->name = strsave("All");
    double lines = raster->nr_lines, cells = raster->nr_cells;
    const double corners[] = {0.0, 0.0, 0.0, lines, cells, lines, cells, 0.0};
    append_subregion(*all, corners, 4);
    all->next = raster->regions;
    raster->regions = all;
}

int setup_all_region(dshdr *record)
{
    if (!record) return VLD_setup_error(VLD_ERR_NULL_DSHDR);
    if (record->data_type == DT_Raster) vld::add_all_region(&record->info.r);
    return 0;
}

/* ---------------------------------------------------------------- regioninfo */

int ea_regioninfo(regioninfo **record)
{
    return vld::fam_alloc(record, rg_record);
}
void ef_regioninfo(regioninfo *record)
{
    vld::rec_free(record, rg_record);
}

void ef_regioninfo_list(regioninfo *list)
{
    while (list) {
        regioninfo *next = list->next;
        vld::rec_free(list, rg_record);
        list = next;
    }
}

int ee_regioninfo(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, rg_record);
}
int eg_regioninfo(regioninfo **record, const char *file)
{
    return vld::fam_get(record, file, rg_record);
}
int ep_regioninfo(const regioninfo *record, const char *file)
{
    return vld::rec_write(record, file, rg_record);
}

int cp_regioninfo(regioninfo **copy, const regioninfo *source)
{
    int status = vld::fam_dup(copy, source, rg_record);
    if (!status && *copy) (*copy)->next = nullptr;
    return status;
}

/* ---------------------------------------------------------------- rgbcolour */

int ea_rgbcolour(rgbcolour **record)
{
    return vld::fam_alloc(record, rgb_record);
}
void ef_rgbcolour(rgbcolour *record)
{
    vld::rec_free(record, rgb_record);
}
int ee_rgbcolour(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, rgb_record);
}
int eg_rgbcolour(rgbcolour **record, const char *file)
{
    return vld::fam_get(record, file, rgb_record);
}
int eg_rgbcolour_noalloc(rgbcolour *record, const char *file)
{
    return vld::rec_read(record, file, rgb_record);
}
int ep_rgbcolour(const rgbcolour *record, const char *file)
{
    return vld::rec_write(record, file, rgb_record);
}
int ep_rgbcolour_spec(const rgbcolour *record, const char *file, const char *block)
{
    return vld::rec_write(record, file, rgb_record, nullptr, block);
}

/* ---------------------------------------------------------------- msstats */

int ea_msstats(msstats **record)
{
    return vld::fam_alloc(record, st_record);
}

int ea_msstats_spec(msstats **record, int nr_bands)
{
    if (nr_bands < 0 || nr_bands > kMaxStatsBands)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Bad number of bands for statistics");
    int status = vld::fam_alloc(record, st_record);
    if (status) return status;
    msstats &m = **record;
    m.nr_bands = nr_bands;
    for (uint32_t code : kArrayCodes) {
        BandArray a = band_array(m, code);
        if (a.count == 0) continue;
        *a.slot = malloc_or_die(a.count * element_size(a));
        std::memset(*a.slot, 0, a.count * element_size(a));
    }
    return 0;
}

void ef_msstats(msstats *record)
{
    vld::rec_free(record, st_record);
}
int ee_msstats(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, st_record);
}
int eg_msstats(msstats **record, const char *file)
{
    return vld::fam_get(record, file, st_record);
}
int ep_msstats(const msstats *record, const char *file)
{
    return vld::rec_write(record, file, st_record);
}
int cp_msstats(msstats **copy, const msstats *source)
{
    return vld::fam_dup(copy, source, st_record);
}
