/*
 * vld_userparam.cpp: UserParameter, a value that a legend rule asks of its
 * user, with the list of values it may take (AllowedValues) and, for a
 * parameter filled by a dynamic link, the link's DlinkParam block. The list
 * of allowed values also stands as a block of its own, holding a Values list.
 */
#include <cstddef>
#include <string_view>

#include "vld_docs.h"
#include "vld_record_internal.h"

namespace {

using vld::Kind;

/* ---------------------------------------------------------------- the allowed values */

allowed &values_of(vld::ReadContext &ctx)
{
    return *static_cast<allowed *>(vld::field_addr(ctx.record, *ctx.field));
}
const allowed &values_of(const vld::WriteContext &ctx)
{
    return *static_cast<const allowed *>(vld::field_addr(ctx.record, *ctx.field));
}

void clear_values(allowed &a)
{
    if (a.values)
        for (int i = 0; i < a.nr_values; i++) safe_free(a.values[i]);
    safe_free(a.values);
    a.values = nullptr;
    a.nr_values = 0;
}

/* A list of texts becomes the null-ended array; a later list replaces it. */
void read_values(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    allowed &a = values_of(ctx);
    clear_values(a);
    int n = 0;
    for (const textnode *t = st->value.list; t; t = t->next) n++;
    if (n) {
        a.values = static_cast<char **>(malloc_or_die((n + 1) * sizeof(char *)));
        n = 0;
        for (textnode *t = st->value.list; t; t = t->next) {
            a.values[n++] = t->text;  // the list's texts change owner
            t->text = nullptr;
        }
        a.values[n] = nullptr;
        a.nr_values = n;
    }
    VLD_free_textnodes(st->value.list);
    st->value.list = nullptr;
}

void write_values(const vld::WriteContext &ctx)
{
    const allowed &a = values_of(ctx);
    vld::rec_write_line(ctx, &a.values);
    ep_text_array(a.values);
}

bool no_values(const void *record, const void *)
{
    return static_cast<const allowed *>(record)->nr_values <= 0;
}

void free_values(void *r)
{
    clear_values(*static_cast<allowed *>(r));
}

void copy_values(void *dst, const void *src)
{
    const allowed &s = *static_cast<const allowed *>(src);
    allowed &d = *static_cast<allowed *>(dst);
    d.values = nullptr;
    d.nr_values = 0;
    if (!s.values || s.nr_values <= 0) return;
    d.values = static_cast<char **>(malloc_or_die((s.nr_values + 1) * sizeof(char *)));
    for (int i = 0; i < s.nr_values; i++) d.values[i] = strsave(s.values[i]);
    d.values[s.nr_values] = nullptr;
    d.nr_values = s.nr_values;
}

bool same_values(const void *x, const void *y)
{
    const allowed &a = *static_cast<const allowed *>(x), &b = *static_cast<const allowed *>(y);
    if (a.nr_values != b.nr_values) return false;
    for (int i = 0; i < a.nr_values; i++) {
        const char *p = a.values[i] ? a.values[i] : "", *q = b.values[i] ? b.values[i] : "";
        if (std::string_view(p) != q) return false;
    }
    return true;
}

enum : uint32_t { AV_VALUES = 1 };

const VLD_KEYWORD allowed_keywords[] = {{AV_VALUES, "Values", VTYPE_LIST, nullptr},
                                        {0, nullptr, 0, nullptr}};

static_assert(offsetof(allowed, nr_values) == 0, "the Values field addresses the whole record");

const vld::Field allowed_fields[] = {
    {.code = AV_VALUES,
     .kind = Kind::Custom,
     .offset = 0,
     .omit = no_values,
     .read = read_values,
     .write = write_values},
};

const vld::Record allowed_record = {
    .block = "AllowedValues",
    .keywords = allowed_keywords,
    .fields = allowed_fields,
    .nfields = vld::count_of(allowed_fields),
    .size = sizeof(allowed),
    .free_extra = free_values,
    .copy_extra = copy_values,
    .equal_extra = same_values,
};

/* ---------------------------------------------------------------- DlinkParam */

enum : uint32_t { DEFAULTSTRING = 1, CHOOSERSTRING, LINKPROGRAM, INITPROGRAM };

const VLD_KEYWORD dlink_keywords[] = {{DEFAULTSTRING, "DefaultString", VTYPE_STRING, nullptr},
                                      {CHOOSERSTRING, "ChooserString", VTYPE_STRING, nullptr},
                                      {LINKPROGRAM, "LinkProgram", VTYPE_STRING, nullptr},
                                      {INITPROGRAM, "InitProgram", VTYPE_STRING, nullptr},
                                      {0, nullptr, 0, nullptr}};

const vld::Field dlink_fields[] = {
    {.code = DEFAULTSTRING, .kind = Kind::String, .offset = offsetof(dlinkparam, default_string)},
    {.code = CHOOSERSTRING, .kind = Kind::String, .offset = offsetof(dlinkparam, chooser_string)},
    {.code = LINKPROGRAM, .kind = Kind::String, .offset = offsetof(dlinkparam, link_program)},
    {.code = INITPROGRAM, .kind = Kind::String, .offset = offsetof(dlinkparam, init_program)},
};

const vld::Record dlink_record = {
    .block = "DlinkParam",
    .keywords = dlink_keywords,
    .fields = dlink_fields,
    .nfields = vld::count_of(dlink_fields),
    .size = sizeof(dlinkparam),
};

/* ---------------------------------------------------------------- UserParameter */

enum : uint32_t { UP_NAME = 1, UP_TYPE, UP_ALLOWEDVALUES, UP_DEFAULT, UP_DLINKPARAM };

const VLD_ENUM ev_param_type[] = {{UPARAM_None, "None"},
                                  {UPARAM_String, "String"},
                                  {UPARAM_Number, "Number"},
                                  {UPARAM_YesNo, "YesNo"},
                                  {UPARAM_List, "List"},
                                  {UPARAM_Color, "Color"},
                                  {UPARAM_Font, "Font"},
                                  {UPARAM_Algorithm, "Algorithm"},
                                  {UPARAM_DynamicLink, "DynamicLink"},
                                  {0, nullptr}};

const VLD_KEYWORD param_keywords[] = {{UP_NAME, "Name", VTYPE_STRING, nullptr},
                                      {UP_TYPE, "Type", VTYPE_ENUM, ev_param_type},
                                      {UP_ALLOWEDVALUES, "AllowedValues", VTYPE_LIST, nullptr},
                                      {UP_DEFAULT, "Default", VTYPE_STRING, nullptr},
                                      {UP_DLINKPARAM, "DlinkParam", VTYPE_BLOCK, nullptr},
                                      {0, nullptr, 0, nullptr}};

bool no_allowed_values(const void *r, const void *)
{
    return static_cast<const userparam *>(r)->allowed_values.nr_values <= 0;
}

/* One parameter is copied, not the rest of its list. */
void unlink_copy(void *dst, const void *)
{
    static_cast<userparam *>(dst)->next = nullptr;
}

const vld::Field param_fields[] = {
    {.code = UP_NAME, .kind = Kind::String, .offset = offsetof(userparam, name)},
    {.code = UP_TYPE, .kind = Kind::Enum, .offset = offsetof(userparam, type)},
    {.code = UP_ALLOWEDVALUES,
     .kind = Kind::Custom,
     .offset = offsetof(userparam, allowed_values),
     .sub = vld::vld_allowed_record,
     .omit = no_allowed_values,
     .read = read_values,
     .write = write_values},
    {.code = UP_DEFAULT, .kind = Kind::String, .offset = offsetof(userparam, default_value)},
    {.code = UP_DLINKPARAM,
     .kind = Kind::BlockPtr,
     .offset = offsetof(userparam, dlinkparam),
     .sub = vld::vld_dlinkparam_record},
};

const vld::Record param_record = {
    .block = "UserParameter",
    .keywords = param_keywords,
    .fields = param_fields,
    .nfields = vld::count_of(param_fields),
    .size = sizeof(userparam),
    .copy_extra = unlink_copy,
};

}  // namespace

const vld::Record &vld::vld_allowed_record()
{
    return allowed_record;
}
const vld::Record &vld::vld_dlinkparam_record()
{
    return dlink_record;
}
const vld::Record &vld::vld_userparam_record()
{
    return param_record;
}

int ea_allowed(allowed **address)
{
    return vld::fam_alloc(address, allowed_record);
}
void ef_allowed(allowed *a)
{
    vld::rec_free(a, allowed_record);
}
int eg_allowed(allowed **address, const char *filename)
{
    return vld::fam_get(address, filename, allowed_record);
}
int eg_allowed_spec(allowed **address, const char *filename, const char *block)
{
    return vld::fam_get(address, filename, allowed_record, nullptr, block);
}
int ep_allowed(const allowed *a, const char *filename)
{
    return vld::rec_write(a, filename, allowed_record);
}
int ep_allowed_spec(const allowed *a, const char *filename, const char *block)
{
    return vld::rec_write(a, filename, allowed_record, nullptr, block);
}

int ea_dlinkparam(dlinkparam **address)
{
    return vld::fam_alloc(address, dlink_record);
}
void ef_dlinkparam(dlinkparam *d)
{
    vld::rec_free(d, dlink_record);
}
void ef_dlinkparam_contents(dlinkparam *d)
{
    vld::rec_free_contents(d, dlink_record);
}
int eg_dlinkparam(dlinkparam **address, const char *filename)
{
    return vld::fam_get(address, filename, dlink_record);
}
int eg_dlinkparam_noalloc(dlinkparam *d, const char *filename)
{
    return vld::rec_read(d, filename, dlink_record);
}
int ep_dlinkparam(const dlinkparam *d, const char *filename)
{
    return vld::rec_write(d, filename, dlink_record);
}
int cp_dlinkparam_noalloc(dlinkparam *copy, const dlinkparam *source)
{
    return vld::fam_copy(copy, source, dlink_record);
}

int ea_userparam(userparam **address)
{
    return vld::fam_alloc(address, param_record);
}
void ef_userparam(userparam *p)
{
    vld::rec_free(p, param_record);
}
void ef_userparams(userparam *list)
{
    while (list) {
        userparam *next = list->next;
        vld::rec_free(list, param_record);
        list = next;
    }
}
int eg_userparam(userparam **address, const char *filename)
{
    return vld::fam_get(address, filename, param_record);
}
int eg_userparam_noalloc(userparam *p, const char *filename)
{
    return vld::rec_read(p, filename, param_record);
}
int ep_userparam(const userparam *p, const char *filename)
{
    return vld::rec_write(p, filename, param_record);
}
int cp_userparam_noalloc(userparam *copy, const userparam *source)
{
    return vld::fam_copy(copy, source, param_record);
}
