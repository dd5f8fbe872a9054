/*
 * vld_writer.cpp: the table-driven writer of block text.
 *
 * ep_general writes one block: "Name Begin", the record's lines, "Name End".
 * The outermost call of a document opens the output (a temporary file in the
 * target's directory, the library's standard output, or a string) and ends it:
 * the temporary file is renamed over the target only when everything was
 * written, so a failure never damages the document that was there before.
 *
 * A failure deep inside a record's writer (a short write, a code or an enum
 * value that the table doesn't know) ends the whole document. It travels as a
 * C++ exception from the failing call to the outermost ep_general, which
 * catches it; it never leaves the library. Called outside any document, the
 * writers only set the error.
 */
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "vld_blocktext_internal.h"
#include "vln_fileio.h"
#include "vln_path.h"

namespace {

struct WriteFailure {
    int row;
};

struct Writer {
    bool open = false;
    FILE *fp = nullptr;
    bool to_buffer = false;
    bool to_stdout = false;
    std::string text; /* a buffer write */
    std::string name; /* the temporary file, or "standard output" */
    vln_replacement replacement{-1, nullptr, nullptr}; /* of a file being written */
    int indent = 0;
    bool in_document = false; /* an outermost ep_general is running */
};

Writer W;
bool buffer_requested = false;
bool buffer_ready = false;
std::string buffer_result;

// Sets up the error and, inside a document, ends the document.
void fail(int row, const char *argument)
{
    VLD_setup_error(row, argument);
    if (W.in_document) throw WriteFailure{row};
}

void emit(const std::string &s)
{
    if (!W.open) return;
    if (W.to_buffer) {
        W.text += s;
        return;
    }
    if (fwrite(s.data(), 1, s.size(), W.fp) != s.size())
        fail(VLD_ERR_CANNOT_WRITE_FILE, W.name.c_str());
}

std::string indentation()
{
    return std::string(static_cast<size_t>(W.indent > 0 ? W.indent : 0), '\t');
}

// Writes a line at the current indentation.
void emit_line(const std::string &body)
{
    emit(indentation() + body + "\n");
}

// A keyword and the tabs that bring "=" to a common column.
std::string padded(const std::string &keyword)
{
    std::string out = keyword + '\t';
    for (size_t tabs = 1; keyword.size() + 4 * tabs < 12; tabs++) out += '\t';
    return out;
}

std::string quoted(const char *text)
{
    std::string out = "\"";
    for (const char *p = text != nullptr ? text : ""; *p != '\0'; p++) {
        if (*p == '"' || *p == '\\') out += '\\';
        out += *p;
    }
    return out + "\"";
}

std::string format(const char *fmt, ...) VLD_PRINTF(1, 2);
std::string format(const char *fmt, ...)
{
    char buffer[256];
    va_list args, again;
    va_start(args, fmt);
    va_copy(again, args);
    int n = vsnprintf(buffer, sizeof buffer, fmt, args);
    std::string out;
    if (n >= static_cast<int>(sizeof buffer)) {
        out.resize(static_cast<size_t>(n) + 1);
        vsnprintf(out.data(), out.size(), fmt, again);
        out.resize(static_cast<size_t>(n));
    } else if (n > 0) {
        out.assign(buffer, static_cast<size_t>(n));
    }
    va_end(again);
    va_end(args);
    return out;
}

const VLD_KEYWORD *find_code(const VLD_KEYWORD *table, uint32_t code)
{
    if (table == nullptr) return nullptr;
    for (const VLD_KEYWORD *k = table; k->name != nullptr; k++)
        if (k->code == code) return k;
    return nullptr;
}

const char *enum_word(const VLD_ENUM *enums, int32_t value)
{
    for (const VLD_ENUM *e = enums; e != nullptr && e->name != nullptr; e++)
        if (e->value == value) return e->name;
    return nullptr;
}

// A file name between quotes, unescaped as documents have always held them (the
// reader repairs the one backslash it loses from a network name). Two things
// that could not read back are mended: a trailing separator, which would
// escape the closing quote, and a double quote inside the name, which is
// escaped together with the separators before it, since the reader takes a
// backslash pair for one backslash.
std::string quoted_filename(std::string path)
{
    while (path.size() > 1 && (path.back() == '\\' || path.back() == '/')) path.pop_back();
    std::string out = "\"";
    size_t run = 0;  // backslashes just written
    for (char c : path) {
        if (c == '"') out.append(run + 1, '\\');
        run = c == '\\' ? run + 1 : 0;
        out += c;
    }
    return out + "\"";
}

// A file name as a document holds it: relative to the document's directory,
// in English separators, unless absolute names were asked for.
std::string filename_text(const char *path)
{
    if (VLN_get_fspecs_abs()) return quoted_filename(path);
    char *relative = nullptr;
    std::string out = path;
    if (VLN_build_rel_fspec(&relative, VLD_get_parent_path(), path) == 0 && relative != nullptr)
        out = relative;
    safe_free(relative);
    VLN_convert_to_english_sep(out.data());
    return quoted_filename(out);
}

// The value of `k` at `value` as written after "= "; false to leave the line
// out (no text, or a number that isn't one).
bool value_text(const VLD_KEYWORD &k, const void *value, std::string &out)
{
    switch (k.type) {
        case VTYPE_DATETIME: {
            char date[32];
            out = wdate(*static_cast<const int32_t *>(value), date);
            return true;
        }
        case VTYPE_YN:
            out = *static_cast<const unsigned char *>(value) ? "Yes" : "No";
            return true;
        case VTYPE_INT:
            out = format("%d", *static_cast<const int32_t *>(value));
            return true;
        case VTYPE_FLOAT: {
            double d = *static_cast<const double *>(value);
            if (std::isnan(d)) return false;  // no text reads back as a NaN
            out = format("%.17G", d);         // infinities come out as INF and -INF
            return true;
        }
        case VTYPE_LENGTH: {
            double d = *static_cast<const double *>(value);
            if (!std::isfinite(d)) return false;  // a length has no text for these
            out = len_to_str(d);
            return true;
        }
        case VTYPE_ENUM: {
            const char *word = enum_word(k.enums, *static_cast<const int32_t *>(value));
            if (word == nullptr) fail(VLD_ERR_INTERNAL, "Bad structure member enum value");
            if (word == nullptr) return false;
            out = word;
            return true;
        }
        case VTYPE_LIST:
            out = "{";
            return true;
        case VTYPE_BANDID: {
            const char *s = *static_cast<char *const *>(value);
            if (s == nullptr) return false;
            out = s;
            return true;
        }
        case VTYPE_DMS: {
            double d = *static_cast<const double *>(value);
            // Like a NaN, an angle too large for the d:m:s form is left out.
            if (!(std::fabs(d) < 1e15)) return false;
            char dms[64];
            out = d_to_dmsstr(dms, d);
            return true;
        }
        case VTYPE_TRIPLE: {
            const auto *rgb = static_cast<const uint8_t *>(value);
            out = format("%u,%u,%u", rgb[0], rgb[1], rgb[2]);
            return true;
        }
        case VTYPE_STRING:
        case VTYPE_FILENAME: {
            const char *s = *static_cast<char *const *>(value);
            if (s == nullptr || *s == '\0') return false;
            out = k.type == VTYPE_STRING ? quoted(s) : filename_text(s);
            return true;
        }
        default:
            fail(VLD_ERR_INTERNAL, "Bad structure member code");
            return false;
    }
}

void write_block(void *record, const char *block, VLD_BLOCK_WRITER writer)
{
    if (block != nullptr) emit_line(std::string(block) + " Begin");
    W.indent++;
    if (writer != nullptr) writer(record);
    W.indent--;
    if (block != nullptr) emit_line(std::string(block) + " End");
}

// Opens the output of an outermost call. Returns 0 or a row.
int open_output(const char *filename)
{
    if (filename == nullptr) {
        W.to_buffer = true;
        W.name = "buffer";
    } else if (strcmp(filename, "-") == 0) {
        W.fp = vln_ReturnStdOut();
        W.to_stdout = true;
        W.name = "standard output";
    } else {
        // A link is written through: the file it points to is replaced, in
        // its own folder, and keeps its permissions.
        char *target = vln_resolve_links(filename);
        char *dir = VLN_get_dirname(target != nullptr ? target : filename);
        safe_free(target);
        std::string directory = dir != nullptr && *dir != '\0' ? dir : ".";
        safe_free(dir);
        if (!canwrite(directory.c_str()))
            return VLD_setup_error(VLD_ERR_DIR_NOT_WRITABLE, directory.c_str());
        vln_replacement &r = W.replacement;
        if (vln_replace_begin(&r, filename, 0666) != 0)
            return VLD_setup_error(VLD_ERR_CANNOT_OPEN_FILE, filename);
        W.fp = fdopen(r.fd, "wb");
        if (W.fp == nullptr) {
            vln_replace_abandon(&r);
            return VLD_setup_error(VLD_ERR_CANNOT_OPEN_FILE, filename);
        }
        W.name = r.temp;
    }
    W.open = true;
    return 0;
}

// Ends the output of an outermost call: the temporary file replaces the target
// when all went well, and is removed otherwise.
int close_output(int status)
{
    if (W.to_buffer) return status;
    if (W.to_stdout) {
        if (fflush(W.fp) != 0 && status == 0)
            status = VLD_setup_error(VLD_ERR_CANNOT_WRITE_FILE, W.name.c_str());
        return status;
    }
    // The document reaches the disk before it takes the old one's place.
    if ((fflush(W.fp) != 0 || vln_fsync(fileno(W.fp)) != 0) && status == 0)
        status = VLD_setup_error(VLD_ERR_CANNOT_WRITE_FILE, W.name.c_str());
    if (fclose(W.fp) != 0 && status == 0)
        status = VLD_setup_error(VLD_ERR_CANNOT_WRITE_FILE, W.name.c_str());
    W.fp = nullptr;
    W.replacement.fd = -1;  // closed with the stream
    if (status != 0) {
        vln_replace_abandon(&W.replacement);
    } else if (vln_replace_commit(&W.replacement) != 0) {
        fprintf(vln_ReturnStdErr(), "VLDLIB: %s\n", strerror(errno));
        status = VLD_setup_error(VLD_ERR_CANNOT_RENAME_FILE, W.name.c_str());
    }
    return status;
}

// Pushes the directory of a document being written for the length of a call.
class ParentGuard {
   public:
    explicit ParentGuard(const char *filename)
        : dir_(filename != nullptr ? VLN_get_dirname(filename) : nullptr)
    {
        VLD_push_parent_path(dir_);
    }
    ~ParentGuard() { VLD_pop_parent_path(dir_); }
    ParentGuard(const ParentGuard &) = delete;
    ParentGuard &operator=(const ParentGuard &) = delete;

   private:
    char *dir_;
};

// The rows of a value writer, then the "}" that closes the list.
template <typename RowFn>
void write_rows(int count, RowFn row)
{
    for (int i = 0; i < count; i++) emit_line(row(i));
    emit_line("}");
}

}  // namespace

using namespace vld_bt;

int ep_general(void *record, const char *filename, const char *block, VLD_BLOCK_WRITER writer)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    ParentGuard parent(filename);
    if (filename == nullptr && !buffer_requested) {
        if (!W.open) return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
        if (record == nullptr) return 0;  // an optional sub-block left out
        write_block(record, block, writer);
        return 0;
    }
    if (filename != nullptr && record == nullptr)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");

    // A writer that writes another document by name: the one being written is
    // set aside meanwhile.
    Writer outer = std::move(W);
    W = Writer{};
    bool to_buffer = filename == nullptr;
    buffer_requested = false;
    int status = open_output(filename);
    if (status == 0) {
        W.in_document = true;
        try {
            CLocaleGuard locale;
            if (record != nullptr) write_block(record, block, writer);
        } catch (const WriteFailure &failure) {
            status = failure.row;
        }
        W.in_document = false;
        status = close_output(status);
    }
    if (to_buffer && status == 0) {
        buffer_result = std::move(W.text);
        buffer_ready = true;
    }
    W = std::move(outer);
    return status;
}

int ep_to_buffer(void *record, VLD_DOC_WRITER writer, char **text)
{
    if (text != nullptr) *text = nullptr;
    if (writer == nullptr || text == nullptr) return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
    vln::Guard lock(&vld_bt::vld_mutex);
    buffer_requested = true;
    buffer_ready = false;
    int status = writer(record, nullptr);
    buffer_requested = false;
    if (status == 0 && buffer_ready) *text = strsave(buffer_result.c_str());
    buffer_result.clear();
    buffer_ready = false;
    return status;
}

void ep_line(const void *value, uint32_t code, const VLD_KEYWORD *table)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    const VLD_KEYWORD *k = find_code(table, code);
    if (k == nullptr) return fail(VLD_ERR_INTERNAL, "Bad structure member code");
    if (value == nullptr) return;
    std::string text;
    if (!value_text(*k, value, text)) return;
    emit_line(padded(k->name) + "= " + text);
}

void ep_raw_line(const char *text)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    emit_line(text != nullptr ? text : "");
}

void ep_bandwidth(const double *value, uint32_t code, const VLD_KEYWORD *table)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    const VLD_KEYWORD *k = find_code(table, code);
    if (k == nullptr) return fail(VLD_ERR_INTERNAL, "Bad structure member code");
    if (value == nullptr) return;
    char number[512];
    emit_line(padded(k->name) + "= " + format_float2(number, *value, 4));
}

void ep_lr_struct_element(const char *name, const char *text)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    if (name == nullptr) return;
    emit_line(padded(quoted(name)) + "= " + quoted(text));
}

/* ---------------------------------------------------------------- value writers */

void ep_array(const double *values, int rows, int columns)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    if (values == nullptr) rows = 0;
    write_rows(rows, [&](int r) {
        std::string line;
        for (int c = 0; c < columns; c++)
            line += format("\t%.13G", values[static_cast<size_t>(r) * columns + c]);
        return line;
    });
}

void ep_text_array(char *const *strings)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    if (strings == nullptr) return;
    int count = 0;
    while (strings[count] != nullptr) count++;
    write_rows(count, [&](int i) { return "\t" + quoted(strings[i]); });
}

void ep_lut_entries(const void *entries, int count)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    const auto *lut = static_cast<const VLD_LUT_ENTRY *>(entries);
    if (lut == nullptr) count = 0;
    write_rows(count, [&](int i) {
        return format("\t%d\t%d\t%d\t%d", lut[i].index, lut[i].red, lut[i].green, lut[i].blue);
    });
}

void ep_rgb_colours(const uint16_t *entries, int count)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    if (entries == nullptr) count = 0;
    write_rows(count, [&](int i) {
        const uint16_t *c = entries + 3 * static_cast<size_t>(i);
        return format("\t%5d %5d %5d", c[0], c[1], c[2]);
    });
}

void ep_c24_colours(const uint8_t *entries, int count)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    if (entries == nullptr) count = 0;
    write_rows(count, [&](int i) {
        const uint8_t *c = entries + 3 * static_cast<size_t>(i);
        return format("\t%3d %3d %3d", c[0], c[1], c[2]);
    });
}

void ep_c8_colours(const uint8_t *entries, int count)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    if (entries == nullptr) count = 0;
    write_rows(count, [&](int i) { return format("\t%3d", entries[i]); });
}

void ep_rescol_entries(const uint8_t *entries, int count)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    if (entries == nullptr) count = 0;
    write_rows(count, [&](int i) { return format("\t%u", entries[i]); });
}

void ep_rescol24_entries(const uint8_t *entries, int count)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    if (entries == nullptr) count = 0;
    write_rows(count, [&](int i) {
        const uint8_t *c = entries + 3 * static_cast<size_t>(i);
        return format("\t%u %u %u", c[0], c[1], c[2]);
    });
}

void ep_trxyval_entries(const double *pairs, int count)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    if (pairs == nullptr) count = 0;
    write_rows(count, [&](int i) {
        return format("\t%f\t%f\t", pairs[2 * static_cast<size_t>(i)],
                      pairs[2 * static_cast<size_t>(i) + 1]);
    });
}

void ep_hist_entries(const int32_t *counts, int count)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    if (counts == nullptr) count = 0;
    write_rows((count + 9) / 10, [&](int line) {
        std::string text = "\t";
        for (int i = line * 10; i < count && i < line * 10 + 10; i++)
            text += format("%d\t", counts[i]);
        return text;
    });
}

void ep_region_points(const VLD_POINTNODE *points)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    int count = 0;
    for (const VLD_POINTNODE *p = points; p != nullptr; p = p->next) count++;
    const VLD_POINTNODE *p = points;
    write_rows(count, [&](int) {
        char x[512], y[512];
        std::string text =
            std::string("\t") + format_float2(x, p->x, 4) + "\t" + format_float2(y, p->y, 4);
        p = p->next;
        return text;
    });
}

int vln_rename(const char *from, const char *to)
{
    if (from == nullptr || to == nullptr)
        return VLD_setup_error(VLD_ERR_CANNOT_RENAME_FILE, from != nullptr ? from : "");
    // rename(2) replaces an existing target in one step.
    if (rename(from, to) == 0) return 0;
    int saved = errno;
    VLD_setup_error(VLD_ERR_CANNOT_RENAME_FILE, from);
    errno = saved;
    return VLD_ERR_CANNOT_RENAME_FILE;
}
