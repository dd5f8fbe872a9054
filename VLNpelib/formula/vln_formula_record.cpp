/*
 * vln_formula_record.cpp: installing formulae in the streams of an algorithm.
 *
 * A stream's formula record carries the text and four arrays that bind what
 * the text refers to: one argument per input (stream input and band), per
 * region, per dataset and per variable. Installing a new text keeps what it
 * can of the former bindings, so that editing a formula doesn't lose the
 * user's choice of bands, regions, datasets and variable values. The dataset
 * names quoted in a formula text can be rewritten absolute or relative.
 */
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include "vln_formula_internal.h"
#include "vln_path.h"

using namespace vlnf;

namespace {

template <typename T>
T *zeroed_array(int count)
{
    if (count <= 0) return nullptr;
    auto *array = static_cast<T *>(malloc_or_die(static_cast<size_t>(count) * sizeof(T)));
    memset(array, 0, static_cast<size_t>(count) * sizeof(T));
    return array;
}

/* Bands of the stream's dataset, or -1 when its header isn't known. */
int stream_band_count(const stream *st)
{
    if (!st->dshdr || st->dshdr->data_type != DT_Raster) return -1;
    return st->dshdr->info.r.nr_bands;
}

/* The band number a BandNumber text names, or 0 when it isn't a number. */
int band_number_of(const char *text)
{
    if (!text || !*text) return 0;
    char *end = nullptr;
    long n = strtol(text, &end, 10);
    while (end && (*end == ' ' || *end == '\t')) end++;
    if (!end || *end || n < 1 || n > INT32_MAX) return 0;
    return static_cast<int>(n);
}

bool band_in_dataset(int band, int nr_bands)
{
    return band >= 1 && (nr_bands < 0 || band <= nr_bands);
}

void set_band_number(formulaarg &arg, int band)
{
    char text[16];
    snprintf(text, sizeof text, "%d", band);
    safe_free(arg.band_number);
    arg.band_number = strsave(text);
}

/* The stream input at position `index` (0-based), made when the chain is
 * shorter. New inputs get ids above every id in use. */
streaminput *stream_input_at(stream *st, int index)
{
    streaminput *last = nullptr;
    int max_id = 0;
    int i = 0;
    for (streaminput *in = st->stream_inputs; in; in = in->next, i++) {
        if (i == index) return in;
        if (in->id > max_id) max_id = in->id;
        last = in;
    }
    streaminput *in = nullptr;
    for (; i <= index; i++) {
        ea_streaminput(&in);
        in->id = ++max_id;
        in->prev = last;
        if (last)
            last->next = in;
        else
            st->stream_inputs = in;
        last = in;
    }
    return in;
}

/* Binds the new record's input `i` to a stream input and a band: its own band
 * identification, then its band number when the dataset has that band, then
 * the old binding, then the input's own number (band 1 beyond the last). */
void bind_input(stream *st, formulaarg &arg, const formula *given, const formula *old, int i)
{
    arg.stream_input = stream_input_at(st, i)->id;
    int nr_bands = stream_band_count(st);
    const formulaarg *g = i < given->nr_args && given->args ? &given->args[i] : nullptr;
    if (g && g->band_id) {
        cp_formulaarg_noalloc(&arg, g);
        arg.stream_input = stream_input_at(st, i)->id;
        return;
    }
    if (g && band_in_dataset(band_number_of(g->band_number), nr_bands)) {
        set_band_number(arg, band_number_of(g->band_number));
        return;
    }
    if (i < old->nr_args && old->args) {
        cp_formulaarg_noalloc(&arg, &old->args[i]);
        arg.stream_input = stream_input_at(st, i)->id;
        return;
    }
    set_band_number(arg, band_in_dataset(i + 1, nr_bands) ? i + 1 : 1);
}

/* The distinct quoted dataset names of a tree. */
void collect_dataset_names(ExprNode *node, void *arg)
{
    auto *names = static_cast<std::set<std::string> *>(arg);
    const NameOrNumber *ref = nullptr;
    if (node->kind == EXPR_DSCONST) ref = node->u.dsconst.dataset;
    if (node->kind == EXPR_USERSTATS) ref = node->u.userstats.dataset;
    if (ref && ref->type == NN_NAME && ref->name && *ref->name) names->insert(ref->name);
}

/* Rewrites every quoted dataset name of *text with `convert`. */
int convert_names(char **text, const char *directory,
                  int (*convert)(char **, const char *, const char *))
{
    if (!text || !*text) return 0;
    ExprNode *tree = nullptr;
    char *message = string_to_expr(&tree, *text);
    if (message) {
        safe_free(message);
        return 0;
    }
    std::set<std::string> names;
    walk_formula(tree, collect_dataset_names, &names);
    free_ExprNode(tree);
    if (names.empty()) return 0;

    // Replace the quoted strings that are dataset names, token by token, so
    // that a name inside another quoted string is left alone.
    std::string out;
    Scanner scanner(*text);
    const char *at = *text;
    for (Token t = scanner.next(); t.kind != Tok::End; t = scanner.next()) {
        if (t.kind != Tok::String) continue;
        std::string name(t.start + 1, t.length - 2);
        if (!names.count(name)) continue;
        char *converted = nullptr;
        convert(&converted, directory, name.c_str());
        out.append(at, t.start);
        out += '\'';
        out += converted ? converted : name;
        out += '\'';
        safe_free(converted);
        at = t.start + t.length;
    }
    out += at;
    safe_free(*text);
    *text = strsave(out.c_str());
    return 0;
}

}  // namespace

int new_formula(stream *st, const formula *f, int keep_variable_values)
{
    if (!st) return VLD_setup_error(VLD_ERR_NULL_STREAM);
    if (!f) return VLD_setup_error(VLD_ERR_NULL_FORMULA);
    const formula &old = st->formula;
    formula nf{};
    nf.name = f->name ? strsave(f->name) : nullptr;
    nf.description = f->description ? strsave(f->description) : nullptr;
    nf.comments = f->comments ? strsave(f->comments) : nullptr;
    nf.formula = f->formula ? strsave(f->formula) : nullptr;

    nf.nr_variable_args = f->nr_variable_args;
    nf.variable_args = zeroed_array<variablearg>(f->nr_variable_args);
    for (int i = 0; i < nf.nr_variable_args; i++) {
        variablearg &v = nf.variable_args[i];
        v.name = strsave(f->variable_args[i].name);
        v.value = f->variable_args[i].value;
        if (keep_variable_values)
            find_variable_value(v.name, old.nr_variable_args, old.variable_args, &v.value);
    }

    nf.nr_dataset_args = f->nr_dataset_args;
    nf.dataset_args = zeroed_array<dsarg>(f->nr_dataset_args);
    for (int i = 0; i < nf.nr_dataset_args; i++) {
        dsarg &d = nf.dataset_args[i];
        if (i < old.nr_dataset_args && old.dataset_args) {
            cp_dsarg_noalloc(&d, &old.dataset_args[i]);
        } else {
            d.dataset_number = i + 1;
            d.dataset_name = strsave(st->dataset);
        }
    }

    nf.nr_region_args = f->nr_region_args;
    nf.region_args = zeroed_array<regionarg>(f->nr_region_args);
    for (int i = 0; i < nf.nr_region_args; i++) {
        regionarg &r = nf.region_args[i];
        if (i < old.nr_region_args && old.region_args) {
            cp_regionarg_noalloc(&r, &old.region_args[i]);
        } else {
            r.region_number = i + 1;
            r.region_name = strsave("All");
        }
    }

    nf.nr_args = f->nr_args;
    nf.args = zeroed_array<formulaarg>(f->nr_args);
    for (int i = 0; i < nf.nr_args; i++) bind_input(st, nf.args[i], f, &old, i);

    ef_formula_contents(&st->formula);
    st->formula = nf;
    return 0;
}

int new_generic_formula(stream *st, const char *text)
{
    if (!text) return VLD_setup_error(VLD_ERR_FORMULA_SYNTAX, "Generic formula is NULL");
    if (!st) return VLD_setup_error(VLD_ERR_NULL_STREAM);
    ExprNode *tree = nullptr;
    if (char *message = string_to_expr(&tree, text)) {
        int status = VLD_setup_error(VLD_ERR_FORMULA_SYNTAX, message);
        safe_free(message);
        return status;
    }
    formula temp{};
    temp.name = st->formula.name;
    temp.description = st->formula.description;
    temp.comments = st->formula.comments;
    temp.formula = const_cast<char *>(text);
    temp.nr_args = count_formula_inputs(tree);
    temp.args = zeroed_array<formulaarg>(temp.nr_args);
    temp.nr_region_args = count_formula_regions(tree);
    temp.region_args = zeroed_array<regionarg>(temp.nr_region_args);
    temp.nr_dataset_args = count_formula_datasets(tree);
    temp.dataset_args = zeroed_array<dsarg>(temp.nr_dataset_args);
    int nr_variables = 0;
    create_variable_list(&temp.variable_args, &nr_variables, tree, 0);
    temp.nr_variable_args = nr_variables;
    free_ExprNode(tree);

    // The strings of `temp` are the stream's own until new_formula has copied them.
    int status = new_formula(st, &temp, 1);
    safe_free(temp.args);
    safe_free(temp.region_args);
    safe_free(temp.dataset_args);
    ef_variablearg_array(temp.variable_args, temp.nr_variable_args);
    return status;
}

int new_formula_band(formula *f, int input_number, int band_number, const dshdr *header)
{
    if (!f) return VLD_setup_error(VLD_ERR_NULL_FORMULA);
    if (!header) return VLD_setup_error(VLD_ERR_NULL_DSHDR);
    if (header->data_type != DT_Raster) return VLD_setup_error(VLD_ERR_RASTER_REQUIRED_HERE);
    const rasterinfo &info = header->info.r;
    if (band_number < 1 || band_number > info.nr_bands)
        return VLD_setup_error(VLD_ERR_INVALID_BAND);
    if (input_number < 1 || input_number > f->nr_args || !f->args)
        return VLD_setup_error(VLD_ERR_FORMULA_BAD_INPUT_NUMBER);
    formulaarg &arg = f->args[input_number - 1];
    set_band_number(arg, band_number);
    if (arg.band_id) {
        ef_bandid(arg.band_id);
        arg.band_id = nullptr;
    }
    if (info.bandids) {
        ea_bandid(&arg.band_id);
        cp_bandid_noalloc(arg.band_id, &info.bandids[band_number - 1]);
    }
    return 0;
}

int VLNfrm_convert_to_abs(char **text, const char *directory)
{
    return convert_names(text, directory, VLN_build_abs_fspec);
}

int VLNfrm_convert_to_rel(char **text, const char *directory)
{
    return convert_names(text, directory, VLN_build_rel_fspec);
}
