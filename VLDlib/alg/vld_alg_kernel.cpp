/*
 * vld_alg_kernel.cpp: the Kernel block of a stream or stream input, and the
 * ".ker" document, which is one Kernel block on its own.
 *
 * A kernel is a window of Rows by Columns cells, both odd so that it has a
 * centre. Convolution and threshold kernels carry their weights as one list,
 * row after row; user kernels name a function in a library instead.
 *
 * The record keeps one promise that the engine relies on: when `array` is set
 * it holds exactly rows x columns values. The reader checks the size whenever
 * the last of Rows, Columns and Array comes in, whatever their order, and a
 * list of the wrong size is reported and dropped.
 */
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "vld_alg_internal.h"
#include "vld_dshdr_internal.h"
#include "vln_path.h"

const VLD_ENUM ev_KernelType[] = {{KT_Unknown, "Unknown"},
                                  {KT_Convolution, "Convolution"},
                                  {KT_Threshold, "Threshold"},
                                  {KT_User, "User"},
                                  {0, nullptr}};

namespace {

using vld::as;
using vld::Field;
using vld::Kind;

const VLD_ENUM ev_InterfaceType[] = {{0, "C"}, {0, nullptr}};

/* The number of weights of a kernel of the given size; 0 for a size that
 * isn't positive. */
size_t cell_count(int32_t rows, int32_t columns)
{
    if (rows <= 0 || columns <= 0) return 0;
    return static_cast<size_t>(rows) * static_cast<size_t>(columns);
}

bool has_weights(const kernel &k)
{
    return k.type == KT_Convolution || k.type == KT_Threshold;
}

/* What one Kernel block leaves for the end of its read; each read has its
 * own, as the aux of the read. */
struct KernelReading {
    bool has_directory = false;
    std::string directory;
    std::string parent;     /* the document's place while it was read */
    size_t array_count = 0; /* values in the Array list read so far */
};

void *new_kernel_reading(const void *)
{
    return new KernelReading;
}
void free_kernel_reading(void *state)
{
    delete static_cast<KernelReading *>(state);
}
KernelReading &kernel_reading(const void *aux)
{
    return vld::read_state<KernelReading>(aux);
}

enum : uint32_t {
    KE_DIRECTORY = 1,
    KE_NAME,
    KE_DESCRIPTION,
    KE_COMMENTS,
    KE_TYPE,
    KE_ROWS,
    KE_COLUMNS,
    KE_SUBSAMPLED,
    KE_ARRAY,
    KE_SCALE,
    KE_THRESHOLD,
    KE_UC_FILE,
    KE_UC_FUNCTION,
    KE_INTERFACE,
    KE_UC_PARAMETERS
};

const VLD_KEYWORD ke_keywords[] = {{KE_DIRECTORY, "Directory", VTYPE_STRING, nullptr},
                                   {KE_NAME, "Name", VTYPE_STRING, nullptr},
                                   {KE_DESCRIPTION, "Description", VTYPE_STRING, nullptr},
                                   {KE_COMMENTS, "Comments", VTYPE_STRING, nullptr},
                                   {KE_TYPE, "Type", VTYPE_ENUM, ev_KernelType},
                                   {KE_ROWS, "Rows", VTYPE_INT, nullptr},
                                   {KE_COLUMNS, "Columns", VTYPE_INT, nullptr},
                                   {KE_SUBSAMPLED, "OKOnSubsampledData", VTYPE_YN, nullptr},
                                   {KE_ARRAY, "Array", VTYPE_LIST, nullptr},
                                   {KE_SCALE, "ScaleFactor", VTYPE_FLOAT, nullptr},
                                   {KE_THRESHOLD, "Threshold", VTYPE_FLOAT, nullptr},
                                   {KE_UC_FILE, "UserCodeFileName", VTYPE_STRING, nullptr},
                                   {KE_UC_FUNCTION, "UserFunctionName", VTYPE_STRING, nullptr},
                                   {KE_INTERFACE, "InterfaceType", VTYPE_ENUM, ev_InterfaceType},
                                   {KE_UC_PARAMETERS, "UserCodeParameters", VTYPE_STRING, nullptr},
                                   {0, nullptr, 0, nullptr}};

const kernel &kn(const void *r)
{
    return as<kernel>(r);
}

/* Drops an Array whose size doesn't fit Rows and Columns, once both are known. */
void check_array_size(kernel &k, const KernelReading &reading)
{
    if (!k.array || k.rows <= 0 || k.columns <= 0) return;
    size_t expected = cell_count(k.rows, k.columns);
    if (reading.array_count == expected) return;
    vld::report_list_count(static_cast<long long>(expected),
                           static_cast<long long>(reading.array_count));
    safe_free(k.array);
    k.array = nullptr;
}

void read_directory(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    KernelReading &reading = kernel_reading(ctx.aux);
    reading.has_directory = true;
    const char *parent = VLD_get_parent_path();
    reading.parent = parent ? parent : "";
    reading.directory = st->value.s ? st->value.s : "";
    safe_free(st->value.s);
    st->value.s = nullptr;
}

/* Rows and Columns must be odd, so that the window has a centre. */
void read_size(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    kernel &k = as<kernel>(ctx.record);
    int32_t value = st->value.i;
    bool rows = ctx.field->code == KE_ROWS;
    if (value <= 0 || value % 2 == 0)
        rf_report_error(rows ? "Bad number of rows (must be odd)"
                             : "Bad number of cols (must be odd)");
    (rows ? k.rows : k.columns) = value;
    check_array_size(k, kernel_reading(ctx.aux));
}

void read_array(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    kernel &k = as<kernel>(ctx.record);
    textnode *list = st->value.list;
    st->value.list = nullptr;
    std::vector<double> values;
    safe_free(k.array);
    k.array = nullptr;
    KernelReading &reading = kernel_reading(ctx.aux);
    reading.array_count = 0;
    if (!vld::list_to_doubles(list, values, "Array") || values.empty()) return;
    k.array = static_cast<double *>(malloc_or_die(values.size() * sizeof(double)));
    std::memcpy(k.array, values.data(), values.size() * sizeof(double));
    reading.array_count = values.size();
    check_array_size(k, kernel_reading(ctx.aux));
}

void write_array(const vld::WriteContext &ctx)
{
    const kernel &k = kn(ctx.record);
    vld::rec_write_line(ctx, &k.array);
    ep_array(k.array, k.rows, k.columns);
}

bool omit_array(const void *r, const void *)
{
    const kernel &k = kn(r);
    return !has_weights(k) || !k.array || cell_count(k.rows, k.columns) == 0;
}
bool omit_scale(const void *r, const void *)
{
    return !has_weights(kn(r));
}
bool omit_threshold(const void *r, const void *)
{
    return kn(r).type != KT_Threshold;
}
bool omit_user(const void *r, const void *)
{
    return kn(r).type != KT_User;
}

void ke_init(void *r)
{
    as<kernel>(r).scale_factor = 1.0;
}

/* A Name given with a Directory is a ".ker" file: the two are joined, the
 * extension is supplied when missing, and the file is looked for in the
 * kernel directory of the installation and then beside the document being
 * read. A name that is found nowhere stays joined. A Name without a Directory
 * is kept as written: it may be a plain title ("Default Kernel"). */
void resolve_name(kernel &k, const KernelReading &reading)
{
    if (!reading.has_directory || !k.name || !*k.name || VLN_path_is_abs(k.name)) return;
    char *joined = nullptr;
    if (reading.directory.empty())
        joined = strsave(k.name);
    else
        VLN_concat_filepath(&joined, reading.directory.c_str(), k.name);
    if (!joined) return;
    char *extension = VLN_get_ext(joined);
    if (!extension) {
        char *with = VLN_add_ext(joined, ".ker");
        safe_free(joined);
        joined = with;
    }
    safe_free(extension);

    // Without an installation there is no kernel directory to look in.
    char *installation = VLN_getenv(0, "VORLAN");
    char *kernel_dir = installation ? VLN_get_kernel_dir() : nullptr;
    safe_free(installation);
    const char *parents[] = {kernel_dir, reading.parent.empty() ? nullptr : reading.parent.c_str()};
    char *found = nullptr;
    for (const char *parent : parents) {
        if (!parent) continue;
        char *absolute = nullptr;
        if (VLN_build_abs_fspec(&absolute, parent, joined) == 0 && absolute) {
            found = absolute;
            break;
        }
        safe_free(absolute);
    }
    safe_free(kernel_dir);
    safe_free(k.name);
    if (found) {
        safe_free(joined);
        k.name = found;
    } else {
        k.name = joined;
    }
}

/* Rows and Columns that never came leave no window at all. */
int ke_after_read(void *r, const void *aux)
{
    kernel &k = as<kernel>(r);
    // Without Type a kernel is a convolution, as df_kernel makes it; left at
    // 0 it could not be written back.
    if (k.type == 0) k.type = KT_Convolution;
    bool sized = k.rows > 0 && k.columns > 0;
    if (!sized) {
        safe_free(k.array);
        k.array = nullptr;
    }
    resolve_name(k, kernel_reading(aux));
    if (!sized) return VLD_setup_error(VLD_ERR_BAD_KERNEL_SIZE, k.name ? k.name : "");
    return 0;
}

void ke_free_extra(void *r)
{
    kernel &k = as<kernel>(r);
    safe_free(k.array);
    k.array = nullptr;
}

/* A copy stands alone: the owner of a chain sets `next`. */
void ke_copy_extra(void *dst, const void *src)
{
    kernel &d = as<kernel>(dst);
    const kernel &s = kn(src);
    d.next = nullptr;
    d.array = nullptr;
    size_t n = cell_count(s.rows, s.columns);
    if (!s.array || n == 0) return;
    d.array = static_cast<double *>(malloc_or_die(n * sizeof(double)));
    std::memcpy(d.array, s.array, n * sizeof(double));
}

bool ke_equal_extra(const void *a, const void *b)
{
    const kernel &p = kn(a), &q = kn(b);
    if (!p.array || !q.array) return !p.array && !q.array;
    size_t n = cell_count(p.rows, p.columns);
    for (size_t i = 0; i < n; i++)
        if (!(p.array[i] == q.array[i] || (p.array[i] != p.array[i] && q.array[i] != q.array[i])))
            return false;
    return true;
}

#define KE_OFFSET(member) offsetof(kernel, member)

// Rows and Columns are read by read_size (the first field of their codes) and
// written, compared and copied by the plain fields further down.
const Field ke_fields[] = {
    {.code = KE_DIRECTORY, .kind = Kind::Custom, .read_only = true, .read = read_directory},
    {.code = KE_ROWS, .kind = Kind::Custom, .read_only = true, .read = read_size},
    {.code = KE_COLUMNS, .kind = Kind::Custom, .read_only = true, .read = read_size},

    {.code = KE_TYPE, .kind = Kind::Enum, .offset = KE_OFFSET(type)},
    {.code = KE_NAME, .kind = Kind::String, .offset = KE_OFFSET(name)},
    {.code = KE_DESCRIPTION, .kind = Kind::String, .offset = KE_OFFSET(description)},
    {.code = KE_COMMENTS, .kind = Kind::String, .offset = KE_OFFSET(comments)},
    {.code = KE_ROWS, .kind = Kind::Int32, .offset = KE_OFFSET(rows)},
    {.code = KE_COLUMNS, .kind = Kind::Int32, .offset = KE_OFFSET(columns)},
    {.code = KE_SUBSAMPLED, .kind = Kind::YesNo, .offset = KE_OFFSET(ok_on_subsampled_data)},
    {.code = KE_ARRAY,
     .kind = Kind::Custom,
     .omit = omit_array,
     .read = read_array,
     .write = write_array},
    {.code = KE_SCALE, .kind = Kind::Double, .offset = KE_OFFSET(scale_factor), .omit = omit_scale},
    {.code = KE_THRESHOLD,
     .kind = Kind::Double,
     .offset = KE_OFFSET(threshold),
     .omit = omit_threshold},
    {.code = KE_UC_FILE,
     .kind = Kind::String,
     .offset = KE_OFFSET(user_code_file_name),
     .omit = omit_user},
    {.code = KE_UC_FUNCTION,
     .kind = Kind::String,
     .offset = KE_OFFSET(user_function_name),
     .omit = omit_user},
    {.code = KE_INTERFACE,
     .kind = Kind::Enum,
     .offset = KE_OFFSET(interface_type),
     .omit = omit_user},
    {.code = KE_UC_PARAMETERS,
     .kind = Kind::String,
     .offset = KE_OFFSET(user_code_parameters),
     .omit = omit_user},
};

const vld::Record ke_record = {
    .block = "Kernel",
    .keywords = ke_keywords,
    .fields = ke_fields,
    .nfields = vld::count_of(ke_fields),
    .size = sizeof(kernel),
    .init = ke_init,
    .after_read = ke_after_read,
    .free_extra = ke_free_extra,
    .copy_extra = ke_copy_extra,
    .equal_extra = ke_equal_extra,
    .new_read_state = new_kernel_reading,
    .free_read_state = free_kernel_reading,
};

}  // namespace

/* ---------------------------------------------------------------- shared */

const vld::Record &vld::vld_kernel_record()
{
    return ke_record;
}

void vld::free_kernels(kernel *chain)
{
    while (chain) {
        kernel *next = chain->next;
        vld::rec_free(chain, ke_record);
        chain = next;
    }
}

kernel *vld::copy_kernels(const kernel *chain)
{
    kernel *head = nullptr, **tail = &head;
    for (; chain; chain = chain->next) {
        *tail = static_cast<kernel *>(vld::rec_dup(chain, ke_record));
        tail = &(*tail)->next;
    }
    return head;
}

/* ---------------------------------------------------------------- kernel */

int ea_kernel(kernel **record)
{
    return vld::fam_alloc(record, ke_record);
}
void ef_kernel(kernel *record)
{
    vld::rec_free(record, ke_record);
}
void ef_kernel_contents(kernel *record)
{
    vld::rec_free_contents(record, ke_record);
}
int eg_kernel(kernel **record, const char *name)
{
    return vld::fam_get(record, name, ke_record);
}
int ep_kernel(const kernel *record, const char *name)
{
    return vld::rec_write(record, name, ke_record);
}
int cp_kernel(kernel **copy, const kernel *source)
{
    return vld::fam_dup(copy, source, ke_record);
}
/* The copy's old contents are not freed, and its `next` comes out null. */
int cp_kernel_noalloc(kernel *copy, const kernel *source)
{
    return vld::fam_copy(copy, source, ke_record);
}

int df_kernel(kernel **record, int size)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    *record = nullptr;
    if (size <= 0 || size % 2 == 0)
        return VLD_setup_error(VLD_ERR_BAD_KERNEL_SIZE, "Default Kernel");
    *record = static_cast<kernel *>(vld::rec_alloc(ke_record));
    return df_kernel_noalloc(*record, size);
}

/* The record's old contents are not freed (as with every _noalloc); its
 * `next` stays. */
int df_kernel_noalloc(kernel *record, int size)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    if (size <= 0 || size % 2 == 0)
        return VLD_setup_error(VLD_ERR_BAD_KERNEL_SIZE, "Default Kernel");
    kernel *next = record->next;
    *record = kernel{};
    record->next = next;
    record->type = KT_Convolution;
    record->name = strsave("Default Kernel");
    record->rows = record->columns = size;
    size_t n = cell_count(size, size);
    record->array = static_cast<double *>(malloc_or_die(n * sizeof(double)));
    for (size_t i = 0; i < n; i++) record->array[i] = 0.0;
    record->array[n / 2] = 1.0;
    record->scale_factor = 1.0;
    return 0;
}

int kernel_is_trivial(const kernel *record)
{
    if (!record) return 1;
    return record->rows == 1 && record->columns == 1 && record->array && record->array[0] == 1.0 &&
           record->scale_factor == 1.0;
}
