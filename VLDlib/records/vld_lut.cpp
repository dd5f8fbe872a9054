/*
 * vld_lut.cpp: LookUpTable, a colour table of NrEntries rows. The LUT list
 * holds four numbers a row: the index and 16-bit red, green and blue. Tables
 * live in $VORLAN/lut as name.lut; a configuration may hold one too.
 *
 * Tables reach 65,536 rows, so the list is converted in one pass over its
 * elements, without the intermediate arrays of the generic list converters.
 */
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vld_docs.h"
#include "vld_record_internal.h"
#include "vln_path.h"

namespace {

using vld::Kind;

enum : uint32_t { VERSION = 1, NAME, DESCRIPTION, COMMENTS, LOADMETHOD, NRENTRIES, LUTLIST };

const VLD_ENUM ev_load_method[] = {{LUT_LOAD_None, "None"},
                                   {LUT_LOAD_Compress, "Compress"},
                                   {LUT_LOAD_Truncate, "Truncate"},
                                   {0, nullptr}};

const VLD_KEYWORD keywords[] = {{VERSION, "Version", VTYPE_STRING, nullptr},
                                {NAME, "Name", VTYPE_STRING, nullptr},
                                {DESCRIPTION, "Description", VTYPE_STRING, nullptr},
                                {COMMENTS, "Comments", VTYPE_STRING, nullptr},
                                {LOADMETHOD, "LoadMethod", VTYPE_ENUM, ev_load_method},
                                {NRENTRIES, "NrEntries", VTYPE_INT, nullptr},
                                {LUTLIST, "LUT", VTYPE_LIST, nullptr},
                                {0, nullptr, 0, nullptr}};

constexpr int kValuesPerRow = 4;

lut &table(void *r)
{
    return *static_cast<lut *>(r);
}
const lut &table(const void *r)
{
    return *static_cast<const lut *>(r);
}

/* A number of a row; colour values are kept to their 16 bits. */
long element_value(const textnode *t)
{
    return t->text ? std::strtol(t->text, nullptr, 10) : 0;
}

/* LUT = { index red green blue ... }: NrEntries, when it came first, must
 * agree with the list; otherwise the list sets it. */
void read_entries(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    lut &l = table(ctx.record);
    textnode *list = st->value.list;
    st->value.list = nullptr;
    int elements = 0;
    for (const textnode *t = list; t; t = t->next) elements++;
    int rows = elements / kValuesPerRow;
    if (elements % kValuesPerRow || (l.nr_entries > 0 && l.nr_entries != rows)) {
        vld::report_list_count((l.nr_entries > 0 ? l.nr_entries : rows) * kValuesPerRow, elements);
    }
    safe_free(l.entries);
    l.entries = nullptr;
    if (rows > 0) {
        l.entries = static_cast<lutentry *>(malloc_or_die(rows * sizeof(lutentry)));
        const textnode *t = list;
        for (int i = 0; i < rows; i++) {
            lutentry &e = l.entries[i];
            e.index = static_cast<int32_t>(element_value(t));
            e.red = static_cast<uint16_t>(element_value(t = t->next));
            e.green = static_cast<uint16_t>(element_value(t = t->next));
            e.blue = static_cast<uint16_t>(element_value(t = t->next));
            t = t->next;
        }
    }
    l.nr_entries = rows;
    VLD_free_textnodes(list);
}

void read_nr_entries(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    lut &l = table(ctx.record);
    if (l.entries && st->value.i != l.nr_entries) {
        vld::report_list_count(st->value.i * kValuesPerRow, l.nr_entries * kValuesPerRow);
        return;
    }
    l.nr_entries = st->value.i;
}

void write_nr_entries(const vld::WriteContext &ctx)
{
    vld::rec_write_line(ctx, &table(ctx.record).nr_entries);
}

void write_entries(const vld::WriteContext &ctx)
{
    const lut &l = table(ctx.record);
    vld::rec_write_line(ctx, &l.entries);
    ep_lut_entries(l.entries, l.nr_entries);
}

bool no_entries(const void *r, const void *)
{
    return !table(r).entries || table(r).nr_entries <= 0;
}

void free_entries(void *r)
{
    safe_free(table(r).entries);
    table(r).entries = nullptr;
}

void copy_entries(void *dst, const void *src)
{
    const lut &s = table(src);
    lut &d = table(dst);
    d.entries = nullptr;
    if (s.entries && s.nr_entries > 0) {
        size_t bytes = s.nr_entries * sizeof(lutentry);
        d.entries = static_cast<lutentry *>(malloc_or_die(bytes));
        std::memcpy(d.entries, s.entries, bytes);
    }
}

bool same_entries(const void *a, const void *b)
{
    const lut &x = table(a), &y = table(b);
    if (x.nr_entries != y.nr_entries) return false;
    if (!x.entries || !y.entries) return !x.entries == !y.entries || x.nr_entries == 0;
    for (int i = 0; i < x.nr_entries; i++) {
        const lutentry &p = x.entries[i], &q = y.entries[i];
        if (p.index != q.index || p.red != q.red || p.green != q.green || p.blue != q.blue)
            return false;
    }
    return true;
}

const vld::Field fields[] = {
    {.code = VERSION, .kind = Kind::String, .offset = offsetof(lut, version)},
    {.code = NAME, .kind = Kind::String, .offset = offsetof(lut, name)},
    {.code = DESCRIPTION, .kind = Kind::String, .offset = offsetof(lut, description)},
    {.code = COMMENTS, .kind = Kind::String, .offset = offsetof(lut, comments)},
    {.code = LOADMETHOD, .kind = Kind::Enum, .offset = offsetof(lut, load_method)},
    {.code = NRENTRIES, .kind = Kind::Custom, .read = read_nr_entries, .write = write_nr_entries},
    {.code = LUTLIST,
     .kind = Kind::Custom,
     .omit = no_entries,
     .read = read_entries,
     .write = write_entries},
};

const vld::Record record = {
    .block = "LookUpTable",
    .keywords = keywords,
    .fields = fields,
    .nfields = vld::count_of(fields),
    .size = sizeof(lut),
    .free_extra = free_entries,
    .copy_extra = copy_entries,
    .equal_extra = same_entries,
};

/* "<base>/lut/<name>.lut", or the name itself when it has a directory part. */
char *standard_path(const char *base, const char *name)
{
    char *path = nullptr;
    if (std::strchr(name, '/') || std::strchr(name, '\\')) {
        path = strsave(name);
    } else {
        char *root = base ? strsave(base) : VLN_get_vorlan_dir();
        if (!root) return nullptr;
        VLN_build_filepath(&path, root, "lut", name, static_cast<char *>(nullptr));
        safe_free(root);
    }
    char *ext = VLN_get_ext(path);
    if (!ext) {
        char *with_ext = VLN_add_ext(path, ".lut");
        safe_free(path);
        path = with_ext;
    }
    safe_free(ext);
    return path;
}

}  // namespace

const vld::Record &vld::vld_lut_record()
{
    return record;
}

int ea_lut(lut **address)
{
    return vld::fam_alloc(address, record);
}
void ef_lut(lut *l)
{
    vld::rec_free(l, record);
}
int eg_lut(lut **address, const char *filename)
{
    return vld::fam_get(address, filename, record);
}
int ep_lut(const lut *l, const char *filename)
{
    return vld::rec_write(l, filename, record);
}
int cp_lut(lut **address, const lut *source)
{
    return vld::fam_dup(address, source, record);
}

int eg_lut_standard(lut **address, const char *base, const char *name)
{
    if (!address) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    if (!name || !*name) {
        *address = static_cast<lut *>(vld::rec_alloc(record));
        return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
    }
    char *path = standard_path(base, name);
    if (!path) {  // $VORLAN unset: the row is set up already
        *address = static_cast<lut *>(vld::rec_alloc(record));
        return VLD_error.code;
    }
    int status = vld::fam_get(address, path, record);
    safe_free(path);
    return status;
}
