/*
 * gdt_struct.cpp: named attributes of a parameter block.
 *
 * A description lists a block's attributes: name, type letter and offset from
 * the block's start, and an access class. The tables fill class 1 attributes
 * by column name, modification touches only those, and inquiry reads any.
 * Descriptions are built between struct_begin and struct_end in one global
 * working description: the base projections install once, at start.
 * String attributes are kNameSize bytes.
 */
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "gdt_internal.h"

namespace {

constexpr int kMaxAttributes = 40;

gdt_struct_desc working;
const char *working_base = nullptr;
bool building = false;

void str_error(const char *text)
{
    gdt::report('P', 0, text);
}

/* A double as an integer of `lo`..`hi`: clamped, NaN as 0. */
int32_t to_int(double v, double lo = -2147483648.0, double hi = 2147483647.0)
{
    if (!(v == v)) return 0;
    return static_cast<int32_t>(v < lo ? lo : v > hi ? hi : v);
}

const gdt_struct_attr *find(const gdt_struct_desc *d, const char *name)
{
    for (int i = 0; i < d->count; i++)
        if (std::strcmp(d->attrs[i].name, name) == 0) return &d->attrs[i];
    return nullptr;
}

bool valid_type(char t)
{
    return t == 'c' || t == 'd' || t == 'l' || t == 's';
}

/* Reads the attribute as a double, for conversions between types. */
double as_double(const gdt_struct_attr &a, const char *block)
{
    const char *p = block + a.offset;
    switch (a.type) {
        case 'c':
            return static_cast<unsigned char>(*p);
        case 'd': {
            double v;
            std::memcpy(&v, p, sizeof v);
            return v;
        }
        case 'l': {
            int32_t v;
            std::memcpy(&v, p, sizeof v);
            return v;
        }
        default:
            return std::atof(p);
    }
}

/* Copies the attribute into `out` as type `t`: 0, or -1 when a string does
 * not fit. */
int convert_out(const gdt_struct_attr &a, const char *block, char t, void *out, int out_size)
{
    const char *p = block + a.offset;
    if (t == 's') {
        char text[64];
        if (a.type == 's')
            std::snprintf(text, sizeof text, "%s", p);
        else if (a.type == 'c')
            std::snprintf(text, sizeof text, "%c", *p);
        else if (a.type == 'l')
            std::snprintf(text, sizeof text, "%ld", static_cast<long>(to_int(as_double(a, block))));
        else
            std::snprintf(text, sizeof text, "%.12lg", as_double(a, block));
        if (static_cast<int>(std::strlen(text)) >= out_size) {
            str_error("STR:result too large for the string");
            return -1;
        }
        std::strcpy(static_cast<char *>(out), text);
        return 0;
    }
    if (t == 'c') {
        *static_cast<char *>(out) = a.type == 'c' || a.type == 's'
                                        ? *p
                                        : static_cast<char>(to_int(as_double(a, block), -128, 127));
        return 0;
    }
    double v = as_double(a, block);
    if (t == 'd')
        *static_cast<double *>(out) = v;
    else
        *static_cast<int32_t *>(out) = to_int(v);
    return 0;
}

}  // namespace

int struct_begin(const char *name, void *base)
{
    if (building) {
        str_error("STR:Cannot have nested struct_begin");
        return -1;
    }
    working = gdt_struct_desc{};
    std::snprintf(working.name, sizeof working.name, "%s", name ? name : "");
    working_base = static_cast<const char *>(base);
    building = true;
    return 0;
}

int struct_add(const char *name, void *address, const char *type)
{
    if (!building || !name) return -1;
    if (working.count >= kMaxAttributes) {
        str_error("STR:Too many attributes (struct_add)");
        return -1;
    }
    if (!type || !valid_type(type[0])) {
        str_error("STR:Bad data type (struct_add)");
        return -1;
    }
    gdt_struct_attr &a = working.attrs[working.count];
    if (name[0] == '%') {
        a.cls = 2;
        name++;
    } else if (name[0] == '.') {
        a.cls = 3;
        name++;
    } else {
        a.cls = std::strchr(name, '.') ? 3 : 1;
    }
    std::snprintf(a.name, sizeof a.name, "%s", name);
    a.type = type[0];
    a.offset = static_cast<const char *>(address) - working_base;
    working.count++;
    return 0;
}

int struct_add_struct(const gdt_struct_desc *description, void *address)
{
    if (!building || !description) return -1;
    long shift = static_cast<const char *>(address) - working_base;
    for (int i = 0; i < description->count; i++) {
        if (working.count >= kMaxAttributes) {
            str_error("STR:Too many attributes (struct_add)");
            return -1;
        }
        working.attrs[working.count] = description->attrs[i];
        working.attrs[working.count].offset += shift;
        working.count++;
    }
    return 0;
}

gdt_struct_desc *struct_end(void)
{
    if (!building) return nullptr;
    building = false;
    auto *d = static_cast<gdt_struct_desc *>(std::malloc(sizeof(gdt_struct_desc)));
    if (!d) {
        str_error("STR:memory shortage");
        return nullptr;
    }
    *d = working;
    return d;
}

int struct_inq(const gdt_struct_desc *d, const void *block, char *name, char *type, void *out,
               int out_size)
{
    if (!d || !name) return -1;
    const gdt_struct_attr *a = nullptr;
    bool iterating = false;
    if (std::strncmp(name, "init", 4) == 0) {
        d->position = 0;
        const_cast<gdt_struct_desc *>(d)->filter = std::strcmp(name, "init-.") == 0 ? 3 : 0;
        iterating = true;
    } else if (std::strcmp(name, "next") == 0) {
        d->position++;
        iterating = true;
    }
    if (iterating) {
        while (d->position < d->count && d->filter && d->attrs[d->position].cls == d->filter)
            d->position++;
        if (d->position >= d->count) return 1;
        a = &d->attrs[d->position];
        std::strcpy(name, a->name);
    } else {
        a = find(d, name);
        if (!a) return -1;
    }
    if (!type) return 0;
    if (type[0] == '*') {
        type[0] = a->type;
        type[1] = '\0';
    }
    if (!valid_type(type[0])) {
        str_error("STR:Bad data type");
        return -1;
    }
    if (!out || !block) return 0;
    return convert_out(*a, static_cast<const char *>(block), type[0], out, out_size);
}

int struct_mod(const gdt_struct_desc *d, void *block, const char *name, const char *type,
               const void *value)
{
    if (!d || !block || !name || !type || !value) return -1;
    const gdt_struct_attr *a = find(d, name);
    if (!a) {
        str_error("STR:attribute not found");
        return -1;
    }
    if (a->cls != 1) {
        str_error("STR:attribute cannot be modified");
        return -1;
    }
    char *p = static_cast<char *>(block) + a->offset;
    double v = 0.0;
    switch (type[0]) {
        case 's':
            if (a->type == 's') {
                std::snprintf(p, gdt::kNameSize, "%s", static_cast<const char *>(value));
                return 0;
            }
            if (a->type == 'c') {
                *p = *static_cast<const char *>(value);
                return 0;
            }
            v = std::atof(static_cast<const char *>(value));
            break;
        case 'c':
            v = static_cast<unsigned char>(*static_cast<const char *>(value));
            break;
        case 'd':
            v = *static_cast<const double *>(value);
            break;
        case 'l':
            v = *static_cast<const int32_t *>(value);
            break;
        default:
            str_error("STR:Bad data type");
            return -1;
    }
    switch (a->type) {
        case 'c':
            *p = static_cast<char>(to_int(v, -128, 127));
            break;
        case 'd':
            std::memcpy(p, &v, sizeof v);
            break;
        case 'l': {
            int32_t i = to_int(v);
            std::memcpy(p, &i, sizeof i);
            break;
        }
        default:
            std::snprintf(p, gdt::kNameSize, "%.12lg", v);
            break;
    }
    return 0;
}

int struct_offset(const gdt_struct_desc *d, const char *name)
{
    if (!d || !name) return -1;
    const gdt_struct_attr *a = find(d, name);
    return a ? static_cast<int>(a->offset) : -1;
}

void struct_dump(const gdt_struct_desc *d, const void *block)
{
    if (!d) return;
    std::printf("%s:\n", d->name);
    for (int i = 0; i < d->count; i++) {
        const gdt_struct_attr &a = d->attrs[i];
        if (!block) {
            std::printf("  %-24s %c %ld\n", a.name, a.type, a.offset);
            continue;
        }
        char text[64] = "";
        convert_out(a, static_cast<const char *>(block), 's', text, sizeof text);
        std::printf("  %-24s %s\n", a.name, text);
    }
}
