/*
 * vld_alg_formula.cpp: the Formula block of a stream and the ".frm" document,
 * with its FormulaArg, RegionArg, DatasetArg and VariableArg blocks.
 *
 * The four kinds of argument are arrays in the record. A count
 * (NumberOfArgs and its kin) may stand before its blocks and sizes the array;
 * the writer leaves the counts out and the reader grows an array by each block
 * that comes beyond it. A count after blocks of its kind is a parse error.
 */
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "vld_alg_internal.h"
#include "vld_dshdr_internal.h"
#include "vln_path.h"

namespace {

using vld::as;
using vld::Field;
using vld::keep_status;
using vld::Kind;

/* More arguments than any formula can refer to; a larger count is damage. */
constexpr int32_t kMaxArgs = 1 << 16;

/* A relative name joined to the directory that came with it. */
void join_directory(char *&name, const char *directory)
{
    if (!name || !*name || !directory || !*directory || VLN_path_is_abs(name)) return;
    char *joined = nullptr;
    if (VLN_concat_filepath(&joined, directory, name) != 0 || !joined) {
        safe_free(joined);
        return;
    }
    safe_free(name);
    name = joined;
}

/* ---------------------------------------------------------------- FormulaArg */

enum : uint32_t { FA_STREAM_INPUT = 1, FA_BAND_NUMBER, FA_BANDID };

const VLD_KEYWORD fa_keywords[] = {{FA_STREAM_INPUT, "StreamInput", VTYPE_INT, nullptr},
                                   {FA_BAND_NUMBER, "BandNumber", VTYPE_BANDID, nullptr},
                                   {FA_BANDID, "BandId", VTYPE_BLOCK, nullptr},
                                   {0, nullptr, 0, nullptr}};

const Field fa_fields[] = {
    {.code = FA_STREAM_INPUT, .kind = Kind::Int32, .offset = offsetof(formulaarg, stream_input)},
    {.code = FA_BAND_NUMBER, .kind = Kind::BandIdText, .offset = offsetof(formulaarg, band_number)},
    {.code = FA_BANDID,
     .kind = Kind::BlockPtr,
     .offset = offsetof(formulaarg, band_id),
     .sub = vld::bandid_record},
};

const vld::Record fa_record = {
    .block = "FormulaArg",
    .keywords = fa_keywords,
    .fields = fa_fields,
    .nfields = vld::count_of(fa_fields),
    .size = sizeof(formulaarg),
};

/* ---------------------------------------------------------------- RegionArg */

enum : uint32_t { RA_NUMBER = 1, RA_NAME };

const VLD_KEYWORD ra_keywords[] = {{RA_NUMBER, "RegionNumber", VTYPE_INT, nullptr},
                                   {RA_NAME, "RegionName", VTYPE_STRING, nullptr},
                                   {0, nullptr, 0, nullptr}};

const Field ra_fields[] = {
    {.code = RA_NUMBER, .kind = Kind::Int32, .offset = offsetof(regionarg, region_number)},
    {.code = RA_NAME, .kind = Kind::String, .offset = offsetof(regionarg, region_name)},
};

const vld::Record ra_record = {
    .block = "RegionArg",
    .keywords = ra_keywords,
    .fields = ra_fields,
    .nfields = vld::count_of(ra_fields),
    .size = sizeof(regionarg),
};

/* ---------------------------------------------------------------- DatasetArg */

enum : uint32_t { DA_NUMBER = 1, DA_DIRECTORY, DA_NAME };

const VLD_KEYWORD da_keywords[] = {{DA_NUMBER, "DatasetNumber", VTYPE_INT, nullptr},
                                   {DA_DIRECTORY, "DatasetDirectory", VTYPE_STRING, nullptr},
                                   {DA_NAME, "DatasetName", VTYPE_FILENAME, nullptr},
                                   {0, nullptr, 0, nullptr}};

/* DatasetName is read as written and made absolute after the block, against
 * DatasetDirectory when that came, whichever stood first. */
void read_ds_name(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    dsarg &a = as<dsarg>(ctx.record);
    safe_free(a.dataset_name);
    a.dataset_name = st->value.s;
    st->value.s = nullptr;
}
void write_ds_name(const vld::WriteContext &ctx)
{
    vld::rec_write_line(ctx, &as<dsarg>(ctx.record).dataset_name);
}

int da_after_read(void *r, const void *)
{
    dsarg &a = as<dsarg>(r);
    join_directory(a.dataset_name, a.dataset_directory);
    return 0;
}

const Field da_fields[] = {
    {.code = DA_NUMBER, .kind = Kind::Int32, .offset = offsetof(dsarg, dataset_number)},
    {.code = DA_DIRECTORY, .kind = Kind::String, .offset = offsetof(dsarg, dataset_directory)},
    {.code = DA_NAME,
     .kind = Kind::Filename,
     .offset = offsetof(dsarg, dataset_name),
     .read_only = true},
    {.code = DA_NAME, .kind = Kind::Custom, .read = read_ds_name, .write = write_ds_name},
};

const vld::Record da_record = {
    .block = "DatasetArg",
    .keywords = da_keywords,
    .fields = da_fields,
    .nfields = vld::count_of(da_fields),
    .size = sizeof(dsarg),
    .after_read = da_after_read,
};

/* ---------------------------------------------------------------- VariableArg */

enum : uint32_t { VA_NAME = 1, VA_VALUE };

const VLD_KEYWORD va_keywords[] = {{VA_NAME, "VariableName", VTYPE_STRING, nullptr},
                                   {VA_VALUE, "Value", VTYPE_FLOAT, nullptr},
                                   {0, nullptr, 0, nullptr}};

const Field va_fields[] = {
    {.code = VA_NAME, .kind = Kind::String, .offset = offsetof(variablearg, name)},
    {.code = VA_VALUE, .kind = Kind::Double, .offset = offsetof(variablearg, value)},
};

const vld::Record va_record = {
    .block = "VariableArg",
    .keywords = va_keywords,
    .fields = va_fields,
    .nfields = vld::count_of(va_fields),
    .size = sizeof(variablearg),
};

/* ---------------------------------------------------------------- argument arrays */

/* One array of arguments in the formula record: where its count and pointer
 * live, its record, and the names for messages. */
struct ArgArray {
    size_t count_offset;
    size_t array_offset;
    const vld::Record *rec;
    const char *count_word;
    const char *block_word;
};

const ArgArray kArrays[] = {
    {offsetof(formula, nr_args), offsetof(formula, args), &fa_record, "NumberOfArgs", "FormulaArg"},
    {offsetof(formula, nr_region_args), offsetof(formula, region_args), &ra_record,
     "NumberOfRegionArgs", "RegionArg"},
    {offsetof(formula, nr_dataset_args), offsetof(formula, dataset_args), &da_record,
     "NumberOfDatasetArgs", "DatasetArg"},
    {offsetof(formula, nr_variable_args), offsetof(formula, variable_args), &va_record,
     "NumberOfVariableArgs", "VariableArg"},
};

int32_t &count_of(void *f, const ArgArray &a)
{
    return *reinterpret_cast<int32_t *>(static_cast<char *>(f) + a.count_offset);
}
int32_t count_of(const void *f, const ArgArray &a)
{
    return *reinterpret_cast<const int32_t *>(static_cast<const char *>(f) + a.count_offset);
}
void *&array_of(void *f, const ArgArray &a)
{
    return *reinterpret_cast<void **>(static_cast<char *>(f) + a.array_offset);
}
const void *array_of(const void *f, const ArgArray &a)
{
    return *reinterpret_cast<void *const *>(static_cast<const char *>(f) + a.array_offset);
}
char *element(void *array, const ArgArray &a, int32_t i)
{
    return static_cast<char *>(array) + static_cast<size_t>(i) * a.rec->size;
}
const char *element(const void *array, const ArgArray &a, int32_t i)
{
    return static_cast<const char *>(array) + static_cast<size_t>(i) * a.rec->size;
}

void free_array(void *f, const ArgArray &a)
{
    void *&array = array_of(f, a);
    for (int32_t i = 0; array && i < count_of(f, a); i++)
        vld::rec_free_contents(element(array, a, i), *a.rec);
    safe_free(array);
    array = nullptr;
    count_of(f, a) = 0;
}

void copy_array(void *dst, const void *src, const ArgArray &a)
{
    const void *from = array_of(src, a);
    int32_t n = count_of(src, a);
    void *&to = array_of(dst, a);
    to = nullptr;
    count_of(dst, a) = from ? n : 0;
    if (!from || n <= 0) return;
    to = malloc_or_die(static_cast<size_t>(n) * a.rec->size);
    for (int32_t i = 0; i < n; i++) vld::rec_copy(element(to, a, i), element(from, a, i), *a.rec);
}

bool equal_array(const void *p, const void *q, const ArgArray &a)
{
    int32_t n = count_of(p, a);
    if (n != count_of(q, a)) return false;
    const void *x = array_of(p, a), *y = array_of(q, a);
    if (!x || !y) return x == y || n == 0;
    for (int32_t i = 0; i < n; i++)
        if (!vld::rec_equal(element(x, a, i), element(y, a, i), *a.rec)) return false;
    return true;
}

/* What the Formula being read leaves for later: how many blocks of each kind
 * it has had, and its Directory. Each read has its own, as the aux of the read. */
struct FormulaReading {
    int32_t read[4] = {0, 0, 0, 0};
    char *directory = nullptr;
    ~FormulaReading() { safe_free(directory); }
};

void *new_formula_reading(const void *)
{
    return new FormulaReading;
}
void free_formula_reading(void *state)
{
    delete static_cast<FormulaReading *>(state);
}
FormulaReading &formula_reading(const void *aux)
{
    return vld::read_state<FormulaReading>(aux);
}

/* Resizes an argument array to n records, zeroing the new ones. */
void resize(void *f, const ArgArray &a, int32_t n)
{
    int32_t old = count_of(f, a);
    void *&array = array_of(f, a);
    for (int32_t i = n; array && i < old; i++) vld::rec_free_contents(element(array, a, i), *a.rec);
    array = n ? realloc_or_die(array, static_cast<size_t>(n) * a.rec->size)
              : (safe_free(array), nullptr);
    if (n > old) std::memset(element(array, a, old), 0, static_cast<size_t>(n - old) * a.rec->size);
    count_of(f, a) = n;
}

const ArgArray &array_by_count(uint32_t code);
const ArgArray &array_by_block(uint32_t code);

void read_count(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    const ArgArray &a = array_by_count(ctx.field->code);
    size_t k = static_cast<size_t>(&a - kArrays);
    int32_t n = st->value.i;
    char text[96];
    if (formula_reading(ctx.aux).read[k] > 0) {
        std::snprintf(text, sizeof text, "%s must stand before the %s blocks", a.count_word,
                      a.block_word);
        rf_report_error(text);
        return;
    }
    if (n < 0 || n > kMaxArgs) {
        std::snprintf(text, sizeof text, "%s = %d is out of range", a.count_word, n);
        rf_report_error(text);
        return;
    }
    resize(ctx.record, a, n);
}

void read_arg_block(vld::ReadContext &ctx, VLD_STATEMENT *)
{
    const ArgArray &a = array_by_block(ctx.field->code);
    size_t k = static_cast<size_t>(&a - kArrays);
    int32_t i = formula_reading(ctx.aux).read[k]++;
    if (i >= kMaxArgs) {
        rf_report_error("Too many formula arguments");
        void *scratch = vld::rec_alloc(*a.rec);
        keep_status(ctx, vld::rec_read(scratch, nullptr, *a.rec));
        vld::rec_free(scratch, *a.rec);
        return;
    }
    if (i >= count_of(ctx.record, a)) resize(ctx.record, a, i + 1);
    keep_status(ctx, vld::rec_read(element(array_of(ctx.record, a), a, i), nullptr, *a.rec));
}

void write_arg_blocks(const vld::WriteContext &ctx)
{
    const ArgArray &a = array_by_block(ctx.field->code);
    const void *array = array_of(ctx.record, a);
    for (int32_t i = 0; array && i < count_of(ctx.record, a); i++)
        vld::rec_write(element(array, a, i), nullptr, *a.rec, nullptr, a.block_word);
}

/* ---------------------------------------------------------------- Formula */

enum : uint32_t {
    FO_NAME = 1,
    FO_DESCRIPTION,
    FO_COMMENTS,
    FO_FORMULA,
    FO_ARG,
    FO_REGION_ARG,
    FO_DATASET_ARG,
    FO_VARIABLE_ARG,
    FO_NR_ARGS,
    FO_NR_REGION_ARGS,
    FO_NR_DATASET_ARGS,
    FO_NR_VARIABLE_ARGS,
    FO_DIRECTORY
};

const VLD_KEYWORD fo_keywords[] = {
    {FO_NAME, "Name", VTYPE_FILENAME, nullptr},
    {FO_DESCRIPTION, "Description", VTYPE_STRING, nullptr},
    {FO_COMMENTS, "Comments", VTYPE_STRING, nullptr},
    {FO_FORMULA, "Formula", VTYPE_STRING, nullptr},
    {FO_ARG, "FormulaArg", VTYPE_BLOCK, nullptr},
    {FO_REGION_ARG, "RegionArg", VTYPE_BLOCK, nullptr},
    {FO_DATASET_ARG, "DatasetArg", VTYPE_BLOCK, nullptr},
    {FO_VARIABLE_ARG, "VariableArg", VTYPE_BLOCK, nullptr},
    {FO_NR_ARGS, "NumberOfArgs", VTYPE_INT, nullptr},
    {FO_NR_REGION_ARGS, "NumberOfRegionArgs", VTYPE_INT, nullptr},
    {FO_NR_DATASET_ARGS, "NumberOfDatasetArgs", VTYPE_INT, nullptr},
    {FO_NR_VARIABLE_ARGS, "NumberOfVariableArgs", VTYPE_INT, nullptr},
    {FO_DIRECTORY, "Directory", VTYPE_STRING, nullptr},
    {0, nullptr, 0, nullptr}};

const ArgArray &array_by_count(uint32_t code)
{
    return kArrays[code - FO_NR_ARGS];
}
const ArgArray &array_by_block(uint32_t code)
{
    return kArrays[code - FO_ARG];
}

/* The directory that came with the formula, kept until the block ends. */
void read_directory(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    FormulaReading &reading = formula_reading(ctx.aux);
    safe_free(reading.directory);
    reading.directory = st->value.s;
    st->value.s = nullptr;
}

void read_name(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    formula &f = as<formula>(ctx.record);
    safe_free(f.name);
    f.name = st->value.s;
    st->value.s = nullptr;
}
void write_name(const vld::WriteContext &ctx)
{
    vld::rec_write_line(ctx, &as<formula>(ctx.record).name);
}

int fo_after_read(void *r, const void *aux)
{
    formula &f = as<formula>(r);
    join_directory(f.name, formula_reading(aux).directory);
    return 0;
}

void fo_free_extra(void *r)
{
    for (const ArgArray &a : kArrays) free_array(r, a);
}
void fo_copy_extra(void *dst, const void *src)
{
    for (const ArgArray &a : kArrays) copy_array(dst, src, a);
}
bool fo_equal_extra(const void *p, const void *q)
{
    for (const ArgArray &a : kArrays)
        if (!equal_array(p, q, a)) return false;
    return true;
}

void fo_defaults(void *r)
{
    formula &f = as<formula>(r);
    f.description = strsave("Default Formula");
    f.formula = strsave("INPUT1");
    resize(r, kArrays[0], 1);
    f.args[0].stream_input = 1;
    f.args[0].band_number = strsave("1");
}

const Field fo_fields[] = {
    {.code = FO_NAME, .kind = Kind::Filename, .offset = offsetof(formula, name), .read_only = true},
    {.code = FO_NAME, .kind = Kind::Custom, .read = read_name, .write = write_name},
    {.code = FO_DESCRIPTION, .kind = Kind::String, .offset = offsetof(formula, description)},
    {.code = FO_COMMENTS, .kind = Kind::String, .offset = offsetof(formula, comments)},
    {.code = FO_FORMULA, .kind = Kind::String, .offset = offsetof(formula, formula)},
    {.code = FO_ARG, .kind = Kind::Custom, .read = read_arg_block, .write = write_arg_blocks},
    {.code = FO_REGION_ARG,
     .kind = Kind::Custom,
     .read = read_arg_block,
     .write = write_arg_blocks},
    {.code = FO_DATASET_ARG,
     .kind = Kind::Custom,
     .read = read_arg_block,
     .write = write_arg_blocks},
    {.code = FO_VARIABLE_ARG,
     .kind = Kind::Custom,
     .read = read_arg_block,
     .write = write_arg_blocks},
    {.code = FO_NR_ARGS, .kind = Kind::Custom, .read_only = true, .read = read_count},
    {.code = FO_NR_REGION_ARGS, .kind = Kind::Custom, .read_only = true, .read = read_count},
    {.code = FO_NR_DATASET_ARGS, .kind = Kind::Custom, .read_only = true, .read = read_count},
    {.code = FO_NR_VARIABLE_ARGS, .kind = Kind::Custom, .read_only = true, .read = read_count},
    {.code = FO_DIRECTORY, .kind = Kind::Custom, .read_only = true, .read = read_directory},
};

const vld::Record fo_record = {
    .block = "Formula",
    .keywords = fo_keywords,
    .fields = fo_fields,
    .nfields = vld::count_of(fo_fields),
    .size = sizeof(formula),
    .defaults = fo_defaults,
    .after_read = fo_after_read,
    .free_extra = fo_free_extra,
    .copy_extra = fo_copy_extra,
    .equal_extra = fo_equal_extra,
    .new_read_state = new_formula_reading,
    .free_read_state = free_formula_reading,
};

template <class T>
void free_array_of(T *array, int count, const vld::Record &r)
{
    for (int i = 0; array && i < count; i++) vld::rec_free_contents(&array[i], r);
    safe_free(array);
}

}  // namespace

const vld::Record &vld::vld_formula_record()
{
    return fo_record;
}
const vld::Record &vld::vld_formulaarg_record()
{
    return fa_record;
}
const vld::Record &vld::vld_regionarg_record()
{
    return ra_record;
}
const vld::Record &vld::vld_dsarg_record()
{
    return da_record;
}
const vld::Record &vld::vld_variablearg_record()
{
    return va_record;
}

/* ---------------------------------------------------------------- the family */

int ea_formula(formula **record)
{
    return vld::fam_alloc(record, fo_record);
}
void ef_formula(formula *record)
{
    vld::rec_free(record, fo_record);
}
void ef_formula_contents(formula *record)
{
    if (record) vld::rec_free_contents(record, fo_record);
}
int eg_formula(formula **record, const char *name)
{
    return vld::fam_get(record, name, fo_record);
}
int eg_formula_noalloc(formula *record, const char *name)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    return vld::rec_read(record, name, fo_record);
}
int ep_formula(const formula *record, const char *name)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    return vld::rec_write(record, name, fo_record);
}
int cp_formula(formula **copy, const formula *source)
{
    return vld::fam_dup(copy, source, fo_record);
}
int cp_formula_noalloc(formula *copy, const formula *source)
{
    return vld::fam_copy(copy, source, fo_record);
}
int df_formula(formula **record)
{
    return vld::fam_new_defaults(record, fo_record);
}
int df_formula_noalloc(formula *record)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    vld::rec_free_contents(record, fo_record);
    vld::rec_defaults(record, fo_record);
    return 0;
}

void ef_formulaarg_contents(formulaarg *record)
{
    if (record) vld::rec_free_contents(record, fa_record);
}
int cp_formulaarg_noalloc(formulaarg *copy, const formulaarg *source)
{
    return vld::fam_copy(copy, source, fa_record);
}
void ef_regionarg_contents(regionarg *record)
{
    if (record) vld::rec_free_contents(record, ra_record);
}
int cp_regionarg_noalloc(regionarg *copy, const regionarg *source)
{
    return vld::fam_copy(copy, source, ra_record);
}
void ef_dsarg_contents(dsarg *record)
{
    if (record) vld::rec_free_contents(record, da_record);
}
void ef_dsarg_array(dsarg *array, int count)
{
    free_array_of(array, count, da_record);
}
int cp_dsarg_noalloc(dsarg *copy, const dsarg *source)
{
    return vld::fam_copy(copy, source, da_record);
}
void ef_variablearg_contents(variablearg *record)
{
    if (record) vld::rec_free_contents(record, va_record);
}
void ef_variablearg_array(variablearg *array, int count)
{
    free_array_of(array, count, va_record);
}
int cp_variablearg_noalloc(variablearg *copy, const variablearg *source)
{
    return vld::fam_copy(copy, source, va_record);
}
