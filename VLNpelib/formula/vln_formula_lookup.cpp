/*
 * vln_formula_lookup.cpp: the word tables of the formula language and the
 * lookups that go with formulae: operator, function, constant and dataset
 * constant names, band descriptions of a dataset, and variable values.
 */
#include <cstdio>
#include <cstring>
#include <string>

#include "vln_formula_internal.h"

namespace vlnf {

const char *const kOpNames[NR_OPTYPES + 1] = {"",   "*", "/",  "+", "-",  "-",   "%",  "=",
                                              "!=", ">", ">=", "<", "<=", "AND", "OR", "NOT"};

const char *const kFfNames[NR_FFTYPES + 1] = {"",     "ABS",  "SIN", "COS",   "TAN",   "ASIN",
                                              "ACOS", "ATAN", "EXP", "LOG",   "LOG10", "POW",
                                              "SQRT", "MIN",  "MAX", "FLOOR", "CEIL"};

const char *const kScNames[NR_SCTYPES + 1] = {"", "PI", "E"};

const char *const kDcNames[NR_DCTYPES + 1] = {
    "",          "NRBANDS",   "NRROWS",    "NRCOLS",   "NRNULLS",  "NRNONNULLS", "RMIN",
    "RMAX",      "MEAN",      "MEDIAN",    "COVAR",    "CORR",     "COV_EVAL",   "CORR_EVAL",
    "PC_COV",    "PC_CORR",   "STDEV",     "STDEVNM1", "MAXCELLX", "MAXCELLY",   "MAXPIXELX",
    "MAXPIXELY", "NRPIXROWS", "NRPIXCOLS", "DETCOV",   "DETCORR",  "INVPC_COV",  "INVPC_CORR"};

/* The largest number of arguments (dataset, region, band, nth) of each. */
const int kDcMaxArgs[NR_DCTYPES + 1] = {0, 1, 1, 1, 3, 3, 3, 3, 3, 3, 4, 4, 3, 3,
                                        4, 4, 3, 3, 1, 1, 0, 0, 0, 0, 2, 2, 4, 4};

/* Kept: the inverse components take no band list although PC_COV and PC_CORR
 * do; they are evaluated over an empty list. */
const bool kDcBandList[NR_DCTYPES + 1] = {false, false, false, false, false, false, false,
                                          false, false, false, false, false, true,  true,
                                          true,  true,  false, false, false, false, false,
                                          false, false, false, true,  true,  false, false};

}  // namespace vlnf

using namespace vlnf;

namespace {

vln_mutex g_text_mutex;
char g_unknown_text[64];

/* The "Unknown ..." text of a type outside its table, in a static buffer. */
const char *unknown_text(const char *what, int type)
{
    vln_mutex_begin(&g_text_mutex);
    snprintf(g_unknown_text, sizeof g_unknown_text, "Unknown %s type: %d", what, type);
    vln_mutex_end(&g_text_mutex);
    return g_unknown_text;
}

const char *table_text(const char *const *table, int count, int type, const char *what)
{
    if (type >= 1 && type <= count) return table[type];
    return unknown_text(what, type);
}

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

int strcmp_null_empty(const char *a, const char *b)
{
    return strcasecmp(a ? a : "", b ? b : "");
}

}  // namespace

int find_dctype(const char *text)
{
    if (text && strcasecmp(text, "NRLINES") == 0) return DC_NRROWS;
    return find_in_table(kDcNames, NR_DCTYPES, text, -1);
}

int find_sctype(const char *text)
{
    return find_in_table(kScNames, NR_SCTYPES, text, -1);
}
int find_optype(const char *text)
{
    return find_in_table(kOpNames, NR_OPTYPES, text, -1);
}
int find_fftype(const char *text)
{
    return find_in_table(kFfNames, NR_FFTYPES, text, -1);
}

const char *dctype_text(int type)
{
    return table_text(kDcNames, NR_DCTYPES, type, "dataset constant");
}

const char *sctype_text(int type)
{
    return table_text(kScNames, NR_SCTYPES, type, "symbolic constant");
}

const char *optype_text(int type)
{
    return table_text(kOpNames, NR_OPTYPES, type, "operator");
}

const char *fftype_text(int type)
{
    return table_text(kFfNames, NR_FFTYPES, type, "formula function");
}

int find_bandindex_from_bandid(const rasterinfo *info, const bandid *band)
{
    if (!info || !band || !info->bandids) return -1;
    for (int i = 0; i < info->nr_bands; i++) {
        const bandid &b = info->bandids[i];
        if (strcmp_null_empty(b.value, band->value) == 0 &&
            strcmp_null_empty(b.units, band->units) == 0)
            return i;
    }
    return -1;
}

int find_band_index(const dshdr *header, const char *description)
{
    if (!header || header->data_type != DT_Raster) return -1;
    const rasterinfo &info = header->info.r;
    if (!description) return info.nr_bands == 1 ? 0 : -1;

    size_t split = strcspn(description, " \t_");
    std::string value(description, split);
    std::string units = description[split] ? std::string(description + split + 1) : std::string();
    size_t first = 0, last = units.size();
    while (first < last && is_blank(units[first])) first++;
    while (last > first && is_blank(units[last - 1])) last--;
    units = units.substr(first, last - first);

    bandid wanted{};
    wanted.value = const_cast<char *>(value.c_str());
    wanted.units = const_cast<char *>(units.c_str());
    return find_bandindex_from_bandid(&info, &wanted);
}

char *find_band_desc(const dshdr *header, int band_index)
{
    if (!header || header->data_type != DT_Raster) return nullptr;
    const rasterinfo &info = header->info.r;
    if (!info.bandids || band_index < 0 || band_index >= info.nr_bands) return nullptr;
    const bandid &b = info.bandids[band_index];
    // The description is the value and, when there is one, the unit after a
    // blank: the form that find_band_index splits again.
    std::string text = b.value ? b.value : "";
    if (b.units && *b.units) text += std::string(" ") + b.units;
    if (strcasecmp(text.c_str(), "None") == 0) return nullptr;
    return strsave(text.c_str());
}

int find_variable_value(const char *name, int count, const variablearg *variables, double *value)
{
    if (!name || !variables) return 0;
    for (int i = 0; i < count; i++) {
        if (variables[i].name && strcasecmp(variables[i].name, name) == 0) {
            if (value) *value = variables[i].value;
            return 1;
        }
    }
    return 0;
}

int set_variable_value(const char *name, int count, variablearg *variables, double value)
{
    if (!name || !variables) return 0;
    for (int i = 0; i < count; i++) {
        if (variables[i].name && strcasecmp(variables[i].name, name) == 0) {
            variables[i].value = value;
            return 1;
        }
    }
    return 0;
}
