/*
 * vld_record.cpp: the generic reader, writer, copier and comparer of records.
 *
 * A record type is one Record descriptor (vld_record_internal.h). The reader
 * hands eg_general a ReadContext and one callback, which finds the Field of a
 * statement's code and stores the value by the field's kind; a nested block is
 * read by calling rec_read again on the sub-record, with a null file name, so
 * that it goes on in the same document. The writer walks the fields in order
 * and emits each through ep_line, or ep_general for a nested block.
 */
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "vld_record_internal.h"
#include "vln_guard_internal.h"

int32_t read_transients = 0;
int32_t write_transients = 0;

namespace vld {

namespace {

constexpr double kDegreesPerRadian = 180.0 / M_PI;

/* What ep_general hands back to frame_writer: the record and how to write it. */
struct WriteFrame {
    const void *record;
    const Record *rec;
    const void *aux;
};

template <class T>
T &member(void *record, const Field &f)
{
    return *static_cast<T *>(field_addr(record, f));
}
template <class T>
const T &member(const void *record, const Field &f)
{
    return *static_cast<const T *>(field_addr(record, f));
}

/* A BlockList element's first member is its `next` pointer. */
void *&next_of(void *element)
{
    return *static_cast<void **>(element);
}
const void *next_of(const void *element)
{
    return *static_cast<void *const *>(element);
}

const Field *find_field(const Record &r, int32_t code)
{
    for (size_t i = 0; i < r.nfields; i++)
        if (static_cast<int32_t>(r.fields[i].code) == code) return &r.fields[i];
    return nullptr;
}

const void *sub_aux_of(const Field &f, const void *record, const void *aux)
{
    return f.sub_aux ? f.sub_aux(record, aux) : aux;
}

/* The degrees of an angle in radians, with as few digits as still read back
 * to the same radians: 30 degrees is written 30, not 29.999999999999996. */
double readable_degrees(double radians)
{
    double degrees = radians * kDegreesPerRadian;
    for (int digits = 12; digits <= 16; digits++) {
        char text[40];
        std::snprintf(text, sizeof text, "%.*g", digits, degrees);
        double shorter = std::strtod(text, nullptr);
        if (shorter / kDegreesPerRadian == radians) return shorter;
    }
    return degrees;
}

/* Frees the owned part of a statement's value that nobody took. */
void drop_value(VLD_STATEMENT *st)
{
    switch (st->type) {
        case VTYPE_STRING:
        case VTYPE_FILENAME:
        case VTYPE_BANDID:
            safe_free(st->value.s);
            st->value.s = nullptr;
            break;
        case VTYPE_LIST:
            VLD_free_textnodes(st->value.list);
            st->value.list = nullptr;
            break;
        default:
            break;
    }
}

int32_t int_value(const VLD_STATEMENT *st)
{
    if (st->type == VTYPE_FLOAT || st->type == VTYPE_DMS) return static_cast<int32_t>(st->value.d);
    return st->value.i;
}

double double_value(const VLD_STATEMENT *st)
{
    if (st->type == VTYPE_FLOAT || st->type == VTYPE_DMS) return st->value.d;
    return st->value.i;
}

/* Reads a nested block for field `f` of the record in `ctx`. */
void read_block(ReadContext &ctx, const Field &f)
{
    const Record &sub = f.sub();
    const void *aux = sub_aux_of(f, ctx.record, ctx.aux);
    switch (f.kind) {
        case Kind::Block:
            keep_status(ctx, rec_read(field_addr(ctx.record, f), nullptr, sub, aux));
            break;
        case Kind::BlockPtr: {
            void *&slot = member<void *>(ctx.record, f);
            rec_free(slot, sub);  // a repeated block replaces the earlier one
            slot = rec_alloc(sub);
            keep_status(ctx, rec_read(slot, nullptr, sub, aux));
            break;
        }
        case Kind::BlockList: {
            void *element = rec_alloc(sub);
            void **tail = ctx.last_list == &f && ctx.last_element ? &next_of(ctx.last_element)
                                                                  : &member<void *>(ctx.record, f);
            while (*tail) tail = &next_of(*tail);
            *tail = element;
            ctx.last_list = &f;
            ctx.last_element = element;
            keep_status(ctx, rec_read(element, nullptr, sub, aux));
            break;
        }
        default: {  // Discard, and Ignore of a block
            void *scratch = rec_alloc(sub);
            keep_status(ctx, rec_read(scratch, nullptr, sub, aux));
            rec_free(scratch, sub);
            break;
        }
    }
}

/* The one callback of every record: stores a statement by its field. */
void generic_callback(void *context, VLD_STATEMENT *st)
{
    ReadContext &ctx = *static_cast<ReadContext *>(context);
    const Field *f = find_field(*ctx.rec, st->code);
    if (!f) {  // a keyword of the table that no member holds
        drop_value(st);
        return;
    }
    void *record = ctx.record;
    if (f->transient && !read_transients) {
        if (st->type == VTYPE_BLOCK && f->sub) {
            Field past = *f;
            past.kind = Kind::Discard;
            read_block(ctx, past);
        } else {
            drop_value(st);
        }
        return;
    }
    switch (f->kind) {
        case Kind::Int32:
        case Kind::YesNo:
        case Kind::Enum:
        case Kind::Time:
            member<int32_t>(record, *f) = int_value(st);
            break;
        case Kind::YesNo8:
            member<uint8_t>(record, *f) = int_value(st) ? 1 : 0;
            break;
        case Kind::Double:
            member<double>(record, *f) = double_value(st);
            break;
        case Kind::Angle:
            member<double>(record, *f) = double_value(st) / kDegreesPerRadian;
            break;
        case Kind::String:
        case Kind::Filename:
        case Kind::BandIdText: {
            char *&slot = member<char *>(record, *f);
            safe_free(slot);
            slot = st->value.s;
            st->value.s = nullptr;
            if (f->unescape && slot) convert_backquoted_chars(slot);
            break;
        }
        case Kind::Rgb:
            std::memcpy(field_addr(record, *f), st->value.rgb, 3);
            break;
        case Kind::List:
            if (f->read) {
                ctx.field = f;
                f->read(ctx, st);
            } else {
                textnode *&slot = member<textnode *>(record, *f);
                VLD_free_textnodes(slot);
                slot = st->value.list;
                st->value.list = nullptr;
            }
            break;
        case Kind::Block:
        case Kind::BlockPtr:
        case Kind::BlockList:
        case Kind::Discard:
            read_block(ctx, *f);
            break;
        case Kind::Ignore:
            if (st->type == VTYPE_BLOCK && f->sub)
                read_block(ctx, *f);
            else
                drop_value(st);
            break;
        case Kind::Custom:
            ctx.field = f;
            if (f->read)
                f->read(ctx, st);
            else
                drop_value(st);  // a member that is written, never read
            break;
    }
}

void frame_writer(void *frame)
{
    const WriteFrame &fr = *static_cast<const WriteFrame *>(frame);
    if (fr.rec->before_write) fr.rec->before_write(const_cast<void *>(fr.record), fr.aux);
    rec_write_fields(fr.record, *fr.rec, fr.aux);
}

/* Writes a raw list as quoted texts, which read back as the same elements. */
void write_raw_list(const WriteContext &ctx, const textnode *list)
{
    size_t n = 0;
    for (const textnode *t = list; t; t = t->next) n++;
    char **texts = static_cast<char **>(malloc_or_die((n + 1) * sizeof(char *)));
    n = 0;
    for (const textnode *t = list; t; t = t->next) texts[n++] = t->text;
    texts[n] = nullptr;
    rec_write_line(ctx, &list);
    ep_text_array(texts);
    safe_free(texts);
}

textnode *copy_textnodes(const textnode *list)
{
    textnode *head = nullptr, **tail = &head;
    for (; list; list = list->next) {
        auto *node = static_cast<textnode *>(malloc_or_die(sizeof(textnode)));
        node->next = nullptr;
        node->text = list->text ? strsave(list->text) : nullptr;
        *tail = node;
        tail = &node->next;
    }
    return head;
}

bool same_text(const char *a, const char *b)
{
    // A document can't tell an empty string from an absent one.
    if (!a || !*a) return !b || !*b;
    return b && std::strcmp(a, b) == 0;
}

/* A file name without its "." components and doubled separators; ".." is
 * kept, since it can't be undone without the file system. */
std::string plain_path(const char *path)
{
    std::string out;
    for (const char *p = path; *p;) {
        bool sep = *p == '/' || *p == '\\';
        if (sep && !out.empty() && out.back() == '/') {
            p++;
        } else if (*p == '.' && !out.empty() && out.back() == '/' &&
                   (p[1] == '/' || p[1] == '\\' || p[1] == '\0')) {
            p += p[1] ? 2 : 1;
        } else {
            out += sep ? '/' : *p;
            p++;
        }
    }
    return out;
}

/* Two file names are the same when they differ only in spelling: a document
 * written and read again gives "dir/./name" for "dir/name". */
bool same_file_name(const char *a, const char *b)
{
    if (!a || !*a || !b || !*b) return same_text(a, b);
    return plain_path(a) == plain_path(b);
}

bool same_double(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

}  // namespace

/* ---------------------------------------------------------------- allocation */

void *rec_alloc(const Record &r)
{
    void *record = malloc_or_die(r.size);
    std::memset(record, 0, r.size);
    if (r.init) r.init(record);
    return record;
}

void rec_free(void *record, const Record &r)
{
    if (!record) return;
    rec_free_contents(record, r);
    safe_free(record);
}

void rec_free_contents(void *record, const Record &r)
{
    if (!record) return;
    if (r.free_extra) r.free_extra(record);
    for (size_t i = 0; i < r.nfields; i++) {
        const Field &f = r.fields[i];
        switch (f.kind) {
            case Kind::String:
            case Kind::Filename:
            case Kind::BandIdText: {
                char *&slot = member<char *>(record, f);
                safe_free(slot);
                slot = nullptr;
                break;
            }
            case Kind::List: {
                textnode *&slot = member<textnode *>(record, f);
                VLD_free_textnodes(slot);
                slot = nullptr;
                break;
            }
            case Kind::Block:
                rec_free_contents(field_addr(record, f), f.sub());
                break;
            case Kind::Custom:
                if (f.sub) rec_free_contents(field_addr(record, f), f.sub());
                break;
            case Kind::BlockPtr: {
                void *&slot = member<void *>(record, f);
                rec_free(slot, f.sub());
                slot = nullptr;
                break;
            }
            case Kind::BlockList: {
                void *&slot = member<void *>(record, f);
                const Record &sub = f.sub();
                while (slot) {
                    void *next = next_of(slot);
                    rec_free(slot, sub);
                    slot = next;
                }
                break;
            }
            default:
                break;
        }
    }
}

void rec_defaults(void *record, const Record &r)
{
    if (record && r.defaults) r.defaults(record);
}

void *rec_new_defaults(const Record &r)
{
    void *record = rec_alloc(r);
    rec_defaults(record, r);
    return record;
}

/* ---------------------------------------------------------------- reading */

int rec_read(void *record, const char *filename, const Record &r, const void *aux,
             const char *block)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    std::unique_ptr<void, void (*)(void *)> state(
        r.new_read_state ? r.new_read_state(aux) : nullptr, r.free_read_state);
    if (state) aux = state.get();
    if (r.before_read) r.before_read(record, aux);
    ReadContext ctx{record, &r, aux, nullptr, 0};
    int status = eg_general(&ctx, filename, block ? block : r.block, r.keywords, generic_callback);
    if (status) return status;
    if (ctx.status) return ctx.status;
    return r.after_read ? r.after_read(record, aux) : 0;
}

int rec_get(void **address, const char *filename, const Record &r, const void *aux,
            const char *block)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    *address = rec_alloc(r);
    return rec_read(*address, filename, r, aux, block);
}

/* ---------------------------------------------------------------- writing */

int rec_write(const void *record, const char *filename, const Record &r, const void *aux,
              const char *block)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    const char *name = block ? block : r.block;
    if (!record) return ep_general(nullptr, filename, name, frame_writer);
    if (r.empty && r.empty(record, aux)) return 0;
    WriteFrame frame{record, &r, aux};
    return ep_general(&frame, filename, name, frame_writer);
}

void rec_write_line(const WriteContext &ctx, const void *value)
{
    ep_line(value, ctx.field->code, ctx.rec->keywords);
}

void rec_write_fields(const void *record, const Record &r, const void *aux)
{
    for (size_t i = 0; i < r.nfields; i++) {
        const Field &f = r.fields[i];
        if (f.read_only || f.kind == Kind::Discard || f.kind == Kind::Ignore) continue;
        if (f.transient && !write_transients) continue;
        if (f.omit && f.omit(record, aux)) continue;
        WriteContext ctx{record, &r, aux, &f};
        const void *at = field_addr(record, f);
        switch (f.kind) {
            case Kind::Angle: {
                double degrees = readable_degrees(member<double>(record, f));
                rec_write_line(ctx, &degrees);
                break;
            }
            case Kind::List:
                if (f.write)
                    f.write(ctx);
                else if (member<textnode *>(record, f))
                    write_raw_list(ctx, member<textnode *>(record, f));
                break;
            case Kind::Block:
            case Kind::BlockPtr:
            case Kind::BlockList: {
                const VLD_KEYWORD *kw = rec_keyword(r, f.code);
                const Record &sub = f.sub();
                const void *saux = sub_aux_of(f, record, aux);
                if (f.kind == Kind::Block) {
                    rec_write(at, nullptr, sub, saux, kw->name);
                } else if (f.kind == Kind::BlockPtr) {
                    if (member<void *>(record, f))
                        rec_write(member<void *>(record, f), nullptr, sub, saux, kw->name);
                } else {
                    for (const void *e = member<void *>(record, f); e; e = next_of(e))
                        rec_write(e, nullptr, sub, saux, kw->name);
                }
                break;
            }
            case Kind::Custom:
                if (f.write) f.write(ctx);
                break;
            default:
                rec_write_line(ctx, at);
                break;
        }
    }
}

/* ---------------------------------------------------------------- copying and comparing */

void rec_copy(void *dst, const void *src, const Record &r)
{
    if (!dst || !src || dst == src) return;
    std::memcpy(dst, src, r.size);
    for (size_t i = 0; i < r.nfields; i++) {
        const Field &f = r.fields[i];
        switch (f.kind) {
            case Kind::String:
            case Kind::Filename:
            case Kind::BandIdText: {
                const char *text = member<char *>(src, f);
                member<char *>(dst, f) = text ? strsave(text) : nullptr;
                break;
            }
            case Kind::List:
                member<textnode *>(dst, f) = copy_textnodes(member<textnode *>(src, f));
                break;
            case Kind::Block:
                rec_copy(field_addr(dst, f), field_addr(src, f), f.sub());
                break;
            case Kind::Custom:
                if (f.sub) rec_copy(field_addr(dst, f), field_addr(src, f), f.sub());
                break;
            case Kind::BlockPtr:
                member<void *>(dst, f) = rec_dup(member<void *>(src, f), f.sub());
                break;
            case Kind::BlockList: {
                void **tail = &member<void *>(dst, f);
                *tail = nullptr;
                for (const void *e = member<void *>(src, f); e; e = next_of(e)) {
                    void *copy = rec_dup(e, f.sub());
                    next_of(copy) = nullptr;
                    *tail = copy;
                    tail = &next_of(copy);
                }
                break;
            }
            default:
                break;
        }
    }
    if (r.copy_extra) r.copy_extra(dst, src);
}

void *rec_dup(const void *src, const Record &r)
{
    if (!src) return nullptr;
    void *dst = malloc_or_die(r.size);
    rec_copy(dst, src, r);
    return dst;
}

bool rec_equal(const void *a, const void *b, const Record &r)
{
    if (a == b) return true;
    if (!a || !b) return false;
    for (size_t i = 0; i < r.nfields; i++) {
        const Field &f = r.fields[i];
        bool same = true;
        switch (f.kind) {
            case Kind::Int32:
            case Kind::YesNo:
            case Kind::Enum:
            case Kind::Time:
                same = member<int32_t>(a, f) == member<int32_t>(b, f);
                break;
            case Kind::YesNo8:
                same = member<uint8_t>(a, f) == member<uint8_t>(b, f);
                break;
            case Kind::Double:
            case Kind::Angle:
                same = same_double(member<double>(a, f), member<double>(b, f));
                break;
            case Kind::String:
            case Kind::BandIdText:
                same = same_text(member<char *>(a, f), member<char *>(b, f));
                break;
            case Kind::Filename:
                same = same_file_name(member<char *>(a, f), member<char *>(b, f));
                break;
            case Kind::Rgb:
                same = std::memcmp(field_addr(a, f), field_addr(b, f), 3) == 0;
                break;
            case Kind::List: {
                const textnode *x = member<textnode *>(a, f), *y = member<textnode *>(b, f);
                for (; x && y && same; x = x->next, y = y->next) same = same_text(x->text, y->text);
                same = same && !x && !y;
                break;
            }
            case Kind::Block:
                same = rec_equal(field_addr(a, f), field_addr(b, f), f.sub());
                break;
            case Kind::Custom:
                if (f.sub) same = rec_equal(field_addr(a, f), field_addr(b, f), f.sub());
                break;
            case Kind::BlockPtr:
                same = rec_equal(member<void *>(a, f), member<void *>(b, f), f.sub());
                break;
            case Kind::BlockList: {
                const void *x = member<void *>(a, f), *y = member<void *>(b, f);
                for (; x && y && same; x = next_of(x), y = next_of(y))
                    same = rec_equal(x, y, f.sub());
                same = same && !x && !y;
                break;
            }
            default:  // Discard, Ignore: nothing stored
                break;
        }
        if (!same) return false;
    }
    return !r.equal_extra || r.equal_extra(a, b);
}

/* ---------------------------------------------------------------- keywords */

int rec_enumerate(VLD_KEYWORD **array, const Record &r)
{
    int n = 0;
    while (r.keywords[n].name) n++;
    if (!array) return n;
    *array = static_cast<VLD_KEYWORD *>(malloc_or_die((n ? n : 1) * sizeof(VLD_KEYWORD)));
    std::memcpy(*array, r.keywords, n * sizeof(VLD_KEYWORD));
    return n;
}

const VLD_KEYWORD *rec_keyword(const Record &r, uint32_t code)
{
    for (const VLD_KEYWORD *k = r.keywords; k->name; k++)
        if (k->code == code) return k;
    return nullptr;
}

}  // namespace vld
