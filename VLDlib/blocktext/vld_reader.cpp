/*
 * vld_reader.cpp: the table-driven reader of block text.
 *
 * eg_general reads one block of a document for a record's keyword table and
 * hands each statement to the record's callback; a nested block's callback
 * calls eg_general again, without a file name, on the same input. File names
 * in documents are made absolute against the directory of the document that
 * holds them, kept on the parent path stack. Lists arrive as textnodes and
 * are turned into arrays by the conv_list_ functions.
 *
 * Everything here runs under vld_mutex_on, the one lock of all record reading
 * and writing.
 */
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "vld_blocktext_internal.h"
#include "vld_error_internal.h"
#include "vln_path.h"

vln_mutex vld_bt::vld_mutex;

namespace {

std::vector<char *> parent_paths;

// Frees what a statement owns when there is no callback to take it.
void free_statement_value(VLD_STATEMENT &st)
{
    switch (st.type) {
        case VTYPE_STRING:
        case VTYPE_FILENAME:
        case VTYPE_BANDID:
            safe_free(st.value.s);
            break;
        case VTYPE_LIST:
            VLD_free_textnodes(st.value.list);
            break;
        default:
            break;
    }
}

// Joins path components with '/', a doubled separator after the first.
std::string join_after_scheme(const std::vector<std::string> &parts)
{
    std::string out = parts[0] + "//";
    for (size_t i = 1; i < parts.size(); i++) {
        if (i > 1) out += '/';
        out += parts[i];
    }
    return out;
}

std::vector<std::string> split_at_separators(const std::string &s)
{
    std::vector<std::string> parts;
    size_t pos = 0;
    while (pos <= s.size()) {
        size_t end = s.find('/', pos);
        if (end == std::string::npos) end = s.size();
        if (end > pos) parts.push_back(s.substr(pos, end - pos));
        pos = end + 1;
    }
    return parts;
}

// Makes a file name of a document absolute. On failure the name stays as it
// was written (in native separators), and VLD_error holds why.
void resolve_filename(char *&value)
{
    if (value == nullptr || *value == '\0') return;
    // A name written "\server\share\..." lost one backslash of a network name
    // to the string escapes; it gets it back where that network name exists.
    bool single_backslash = value[0] == '\\' && value[1] != '\\';
    VLN_convert_to_native_sep(value);
    VLN_convert_to_correct_webpath(value);
    std::string path = value;

    if (single_backslash) {
        std::vector<std::string> parts = split_at_separators(path);
        if (parts.size() > 2 && isdirectory(("//" + parts[0] + "/" + parts[1]).c_str())) {
            std::string network = "/";
            for (const std::string &part : parts) {
                network += '/';
                network += part;
            }
            path = std::move(network);
        }
    }
    // A scheme whose "//" was lost ("http:/host/x"): a colon past the place of
    // a drive letter, in the first component.
    size_t colon = path.find(':');
    if (colon != std::string::npos && colon > 1 && path.find('/') > colon) {
        std::vector<std::string> parts = split_at_separators(path);
        if (parts.size() > 1) path = join_after_scheme(parts);
    }

    char *absolute = nullptr;
    if (VLN_build_abs_fspec(&absolute, VLD_get_parent_path(), path.c_str()) == 0 &&
        absolute != nullptr) {
        safe_free(value);
        value = absolute;
        return;
    }
    safe_free(absolute);
    if (path != value) {
        safe_free(value);
        value = strsave(path.c_str());
    }
}

// Sets up VLD_ERR_BAD_FORMAT for a document that had errors, with the diagnostic after it.
int report_bad_format(const char *filename)
{
    VLD_setup_error(VLD_ERR_BAD_FORMAT, filename != nullptr ? filename : "");
    append_parser_error_to_VLD_error();
    return VLD_error.code;
}

int list_length(const textnode *list)
{
    int n = 0;
    for (const textnode *t = list; t != nullptr; t = t->next) n++;
    return n;
}

}  // namespace

void vld_bt::report_list_count(long long expected, long long got)
{
    char message[128];
    snprintf(message, sizeof message, "Wrong number of list elements.  Expecting: %lld, got: %lld",
             expected, got);
    rf_report_error(message);
}

using namespace vld_bt;

void vld_mutex_on(void)
{
    vln_mutex_begin(&vld_bt::vld_mutex);
}

void vld_mutex_off(void)
{
    vln_mutex_end(&vld_bt::vld_mutex);
}

int eg_general(void *record, const char *filename, const char *block, const VLD_KEYWORD *table,
               VLD_CALLBACK callback)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    SavedInput *outer = nullptr;
    char *parent = nullptr;
    int errors = 0;
    if (filename != nullptr) {
        // A callback that reads another document by name: the document being
        // read is set aside and taken up again afterwards.
        if (lex_is_open()) outer = lex_set_aside();
        if (!VLD_init_lexer(2, &errors, filename, nullptr)) {
            bool not_regular = lex_not_regular;
            lex_restore(outer);
            VLD_setup_error(VLD_ERR_CANNOT_OPEN_FILE, filename);
            if (not_regular) append_buffer_to_VLD_error("It is not a regular file");
            return VLD_ERR_CANNOT_OPEN_FILE;
        }
        parent = VLN_get_dirname(filename);
        parser_first_statement = true;
    } else if (!lex_is_open()) {
        return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
    }

    bool started = true;
    if (parser_first_statement) {
        parser_first_statement = false;
        started = rf_init_parser(block) != 0;
    }
    if (started) {
        VLD_push_parent_path(parent);
        VLD_STATEMENT st;
        while (rf_get_stmeminfo(&st, table)) {
            if (st.type == VTYPE_FILENAME) resolve_filename(st.value.s);
            if (callback != nullptr)
                callback(record, &st);
            else
                free_statement_value(st);
        }
        VLD_pop_parent_path(parent);
    } else {
        safe_free(parent);
    }

    if (filename != nullptr) {
        rf_finalise_parser(lex_error_count());
        errors = lex_error_count();
        VLD_finalise_lexer();
        lex_restore(outer);
    } else {
        errors = lex_error_count();
    }
    return errors == 0 ? 0 : report_bad_format(filename);
}

int eg_from_buffer(const char *text, VLD_READER reader, void *address_of_record)
{
    if (text == nullptr || reader == nullptr) return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
    vln::Guard lock(&vld_bt::vld_mutex);
    SavedInput *outer = lex_is_open() ? lex_set_aside() : nullptr;
    int errors = 0;
    VLD_init_lexer(1, &errors, nullptr, text);
    parser_first_statement = true;
    int status = reader(address_of_record, nullptr);
    parser_first_statement = false;
    rf_finalise_parser(lex_error_count());
    errors = lex_error_count();
    VLD_finalise_lexer();
    lex_restore(outer);
    // Blocks left open are only found after the reader has returned.
    if (status == 0 && errors != 0) status = report_bad_format(nullptr);
    return status;
}

/* ---------------------------------------------------------------- lists */

namespace {

// Doubles are taken as they read.
double list_value(const char *text, double *)
{
    return text_to_double(text);
}

// Integers are truncated toward zero and saturated at the ends of the range.
int32_t list_value(const char *text, int32_t *)
{
    double d = text_to_double(text);
    if (std::isnan(d)) return 0;
    return d >= 2147483647.0 ? INT32_MAX : d <= -2147483648.0 ? INT32_MIN : static_cast<int32_t>(d);
}

// A list's elements as a new array of T; the list is freed. Returns the count.
template <class T>
int list_to_array(T **result, textnode *list, int expected)
{
    vln::Guard lock(
        &vld_bt::vld_mutex);  // a count that doesn't match is reported on the open input
    int n = list_length(list);
    if (expected != -1 && expected != n) report_list_count(expected, n);
    T *values = nullptr;
    if (n > 0) {
        values = static_cast<T *>(malloc_or_die(sizeof(T) * static_cast<size_t>(n)));
        int i = 0;
        for (const textnode *t = list; t != nullptr; t = t->next)
            values[i++] = list_value(t->text, values);
    }
    VLD_free_textnodes(list);
    if (result != nullptr)
        *result = values;
    else
        safe_free(values);
    return n;
}

}  // namespace

int conv_list_to_array(double **result, textnode *list, int expected)
{
    return list_to_array(result, list, expected);
}

int conv_list_to_INT32_array(int32_t **result, textnode *list, int expected)
{
    return list_to_array(result, list, expected);
}

int conv_list_to_2Darray(double ***result, textnode *list, int rows, int columns)
{
    vln::Guard lock(
        &vld_bt::vld_mutex);  // a count that doesn't match is reported on the open input
    int n = list_length(list);
    if (result != nullptr) *result = nullptr;
    long long product = static_cast<long long>(rows) * columns;
    if (rows < 0 || columns < 0 || product != n) {
        report_list_count(static_cast<int>(product), n);
        VLD_free_textnodes(list);
        return 0;
    }
    if (n == 0 || result == nullptr) {
        VLD_free_textnodes(list);
        return n;
    }
    // One block: the row pointers, then the values; one safe_free releases it.
    size_t pointers = sizeof(double *) * static_cast<size_t>(rows);
    auto *block = static_cast<char *>(malloc_or_die(pointers + sizeof(double) * n));
    auto **row = reinterpret_cast<double **>(block);
    auto *values = reinterpret_cast<double *>(block + pointers);
    int i = 0;
    for (const textnode *t = list; t != nullptr; t = t->next) values[i++] = text_to_double(t->text);
    for (int r = 0; r < rows; r++) row[r] = values + static_cast<size_t>(r) * columns;
    VLD_free_textnodes(list);
    *result = row;
    return n;
}

void VLD_free_textnodes(textnode *list)
{
    while (list != nullptr) {
        textnode *next = list->next;
        safe_free(list->text);
        safe_free(list);
        list = next;
    }
}

/* ---------------------------------------------------------------- parent paths */

void VLD_push_parent_path(char *path)
{
    if (path == nullptr) return;
    vln::Guard lock(&vld_bt::vld_mutex);
    parent_paths.push_back(path);
}

void VLD_pop_parent_path(const char *path)
{
    if (path == nullptr) return;
    vln::Guard lock(&vld_bt::vld_mutex);
    if (parent_paths.empty()) return;
    safe_free(parent_paths.back());
    parent_paths.pop_back();
    if (parent_paths.empty()) parent_paths.shrink_to_fit();
}

const char *VLD_get_parent_path(void)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    return parent_paths.empty() ? nullptr : parent_paths.back();
}
