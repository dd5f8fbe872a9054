/*
 * gdb_lookup.cpp: what the tables answer besides single rows: the name of a
 * datum or projection row from its values (for importers that meet numbers
 * rather than names), the lists of projections and datums for choosers, the
 * names of State Plane zones and Albers projections by their numbers, and
 * the legacy ellipsoid codes.
 */
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "gdt_coords.h"
#include "gdt_internal.h"
#include "vld_docs.h"
#include "vln_guard_internal.h"

namespace {

/* The column names of table `table` after the key; false without the table. */
bool value_columns(const char *table, std::vector<std::string> &names)
{
    names.clear();
    if (gdb_set_table(table) != 0) return false;
    char name[128];
    gdb_next_column_name(nullptr);
    bool key = true;
    while (gdb_next_column_name(name) == 0) {
        if (!key) names.emplace_back(name);
        key = false;
    }
    return true;
}

/* The suggestion of a row to add, when no row matches. */
char *no_match_text(const char *table, const char *placeholder, int ignored,
                    const std::vector<double> &values, int integer_at, int integer)
{
    std::string text = std::string("ERROR: Could not find a match in ") + table + ".dat\n" +
                       "Please put the following line into the file\n";
    if (ignored > 0)
        text += "NOTE: Set last " + std::to_string(ignored) +
                " parameters the same as those existing in the file\n";
    text += "-----------------------------CUT HERE----------------------------\n";
    text += placeholder;
    for (size_t i = 0; i < values.size(); i++) {
        if (static_cast<int>(i) == integer_at) {
            text += ", " + std::to_string(integer);
            continue;
        }
        char number[64];
        text += std::string(", ") + format_float2_G(number, values[i], 13);
    }
    text += "\n-----------------------------END HERE----------------------------\n";
    return strsave(text.c_str());
}

/* Whether field `column` of the chosen row holds `want` within `tolerance`;
 * an empty field never matches. */
bool field_matches(const char *column, double want, double tolerance)
{
    char text[512] = "";
    if (gdb_load(column, "s", text) != 0 || text[0] == '\0') return false;
    return std::fabs(std::atof(text) - want) <= tolerance;
}

/* The marker of a value that is not to be compared. */
bool is_skip_marker(double value)
{
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits == (uint64_t{0x41cdcd65} << 32);
}

/* The first row of the chosen table whose columns `first` to `last - 1`
 * hold `values` within `tolerance(column, value)`; its key goes to `name`. */
bool first_match(const std::vector<std::string> &columns, const std::vector<double> &values,
                 int first, int last, double (*tolerance)(int column, double value), char *name)
{
    char key[64];
    gdb_next_name_key(nullptr);
    while (gdb_next_name_key(key) == 0) {
        if (gdb_set_name_key(key) != 0) continue;
        bool all = true;
        for (int c = first; c < last && all; c++) {
            const double within = tolerance(c, values[c]);
            all = within == HUGE_VAL || field_matches(columns[c].c_str(), values[c], within);
        }
        if (all) {
            if (name != nullptr) std::strcpy(name, key);
            return true;
        }
    }
    return false;
}

/* ---------------------------------------------------------------- lists */

struct NameList {
    std::vector<std::string> texts;
    std::vector<gdt_name_item> items;
};

const gdt_name_item *finish(NameList &list, std::vector<std::pair<std::string, std::string>> rows)
{
    list.texts.clear();
    list.items.clear();
    list.texts.reserve(rows.size() * 2);
    for (auto &row : rows) {
        list.texts.push_back(std::move(row.first));
        list.texts.push_back(std::move(row.second));
    }
    for (size_t i = 0; i + 1 < list.texts.size(); i += 2)
        list.items.push_back({list.texts[i].c_str(), list.texts[i + 1].c_str()});
    list.items.push_back({nullptr, nullptr});
    return list.items.data();
}

/* ---------------------------------------------------------------- State Plane zones */

struct StatePlane {
    const char *number, *key, *datum;
};

// Zone numbers and their projection keys; the first row of a number wins
// (kept: a zone in feet and in metres both have the number, and the feet
// row, listed first, is the one found).
constexpr StatePlane kStatePlanes[] = {
    {"0101", "TMALABEF", "NAD27"}, {"0102", "TMALABWF", "NAD27"}, {"5001", "OMALSK1M", "NAD27"},
    {"5002", "TMALSK2M", "NAD27"}, {"5003", "TMALSK3M", "NAD27"}, {"5004", "TMALSK4M", "NAD27"},
    {"5005", "TMALSK5M", "NAD27"}, {"5006", "TMALSK6M", "NAD27"}, {"5007", "TMALSK7M", "NAD27"},
    {"5008", "TMALSK8M", "NAD27"}, {"5009", "TMALSK9M", "NAD27"}, {"0201", "TMARIZEF", "NAD27"},
    {"0202", "TMARIZCF", "NAD27"}, {"0203", "TMARIZWF", "NAD27"}, {"0301", "LM2ARKNM", "NAD27"},
    {"0302", "LM2ARKSM", "NAD27"}, {"0401", "LM2CAL1F", "NAD27"}, {"0402", "LM2CAL2F", "NAD27"},
    {"0403", "LM2CAL3F", "NAD27"}, {"0404", "LM2CAL4F", "NAD27"}, {"0405", "LM2CAL5F", "NAD27"},
    {"0406", "LM2CAL6F", "NAD27"}, {"0407", "LM2CAL7F", "NAD27"}, {"0501", "LM2COLNF", "NAD27"},
    {"0502", "LM2COLCF", "NAD27"}, {"0503", "LM2COLSF", "NAD27"}, {"0600", "LM2CONNM", "NAD27"},
    {"0700", "TMDELWRF", "NAD27"}, {"0903", "LM2FLANF", "NAD27"}, {"0901", "TMFLRAEF", "NAD27"},
    {"0902", "TMFLRAWF", "NAD27"}, {"1001", "TMGEOREF", "NAD27"}, {"1002", "TMGEORWF", "NAD27"},
    {"5101", "TMHAWI1F", "NAD27"}, {"5102", "TMHAWI2F", "NAD27"}, {"5103", "TMHAWI3F", "NAD27"},
    {"5104", "TMHAWI4F", "NAD27"}, {"5105", "TMHAWI5F", "NAD27"}, {"1101", "TMIDAEFT", "NAD27"},
    {"1102", "TMIDACFT", "NAD27"}, {"1103", "TMIDAWFT", "NAD27"}, {"1201", "TMILLEFT", "NAD27"},
    {"1202", "TMILLWFT", "NAD27"}, {"1301", "TMINDEFT", "NAD27"}, {"1302", "TMINDWFT", "NAD27"},
    {"1401", "LM2IOWNF", "NAD27"}, {"1402", "LM2IOWSF", "NAD27"}, {"1501", "LM2KANNF", "NAD27"},
    {"1501", "LM2KANNM", "NAD27"}, {"1601", "LM2KYNFT", "NAD27"}, {"1602", "LM2KYSFT", "NAD27"},
    {"1701", "LM2LANFT", "NAD27"}, {"1701", "LM2LANM", "NAD27"},  {"1702", "LM2LASFT", "NAD27"},
    {"1702", "LM2LASM", "NAD27"},  {"1703", "LM2LAOFT", "NAD27"}, {"1801", "TMMAINEF", "NAD27"},
    {"1802", "TMMAINWF", "NAD27"}, {"1900", "LM2MARYF", "NAD27"}, {"2001", "LM2MASMF", "NAD27"},
    {"2002", "LM2MASIF", "NAD27"}, {"2101", "TMMICHEF", "NAD27"}, {"2102", "TMMICHCF", "NAD27"},
    {"2103", "TMMICHWF", "NAD27"}, {"2112", "LM2MICCF", "NAD27"}, {"2113", "LM2MICSF", "NAD27"},
    {"2201", "LM2MINNF", "NAD27"}, {"2202", "LM2MINCF", "NAD27"}, {"2203", "LM2MINSF", "NAD27"},
    {"2301", "TMMISSEF", "NAD27"}, {"2301", "TMMISSEM", "NAD27"}, {"2302", "TMMISSWF", "NAD27"},
    {"2302", "TMMISSWM", "NAD27"}, {"2401", "TMMISOEF", "NAD27"}, {"2402", "TMMISOCF", "NAD27"},
    {"2403", "TMMISOWF", "NAD27"}, {"2501", "LM2MTNFT", "NAD27"}, {"2502", "LM2MTCFT", "NAD27"},
    {"2503", "LM2MTSFT", "NAD27"}, {"2601", "LM2NEBNF", "NAD27"}, {"2602", "LM2NEBSF", "NAD27"},
    {"2701", "TMNEVAEF", "NAD27"}, {"2701", "TMNEVAEM", "NAD27"}, {"2702", "TMNEVACF", "NAD27"},
    {"2702", "TMNEVACM", "NAD27"}, {"2703", "TMNEVAWF", "NAD27"}, {"2703", "TMNEVAWM", "NAD27"},
    {"2800", "TMNEWHFT", "NAD27"}, {"2900", "TMNEWJFT", "NAD27"}, {"3001", "TMNEWMEF", "NAD27"},
    {"3002", "TMNEWMCF", "NAD27"}, {"3003", "TMNEWMWF", "NAD27"}, {"3101", "TMNEWYEF", "NAD27"},
    {"3102", "TMNEWYCF", "NAD27"}, {"3103", "TMNEWYWF", "NAD27"}, {"3104", "LM2NEWYF", "NAD27"},
    {"3200", "LM2NCAFT", "NAD27"}, {"3301", "LM2NDNFT", "NAD27"}, {"3302", "LM2NDSFT", "NAD27"},
    {"3351", "LM2CAL4F", "NAD27"}, {"3401", "LM2OHINF", "NAD27"}, {"3402", "LM2OHISF", "NAD27"},
    {"3501", "LM2OKLNF", "NAD27"}, {"3502", "LM2OKLSF", "NAD27"}, {"3601", "LM2ORENF", "NAD27"},
    {"3602", "LM2ORESF", "NAD27"}, {"3701", "LM2PANFT", "NAD27"}, {"3702", "LM2PANST", "NAD27"},
    {"5201", "LM2PRV1F", "NAD27"}, {"3800", "TMRHODI", "NAD27"},  {"3901", "LM2SCNFT", "NAD27"},
    {"3902", "LM2SCSFT", "NAD27"}, {"4001", "LM2SDNFT", "NAD27"}, {"4002", "LM2SDSFT", "NAD27"},
    {"4100", "LM2TENNF", "NAD27"}, {"4201", "LM2TXNF", "NAD27"},  {"4202", "LM2TXNCF", "NAD27"},
    {"4202", "LM2TXNCM", "NAD27"}, {"4203", "LM2TXCF", "NAD27"},  {"4203", "LM2TXCM", "NAD27"},
    {"4204", "LM2TXSCF", "NAD27"}, {"4204", "LM2TXSCM", "NAD27"}, {"4205", "LM2TXSF", "NAD27"},
    {"4205", "LM2TXSF", "NAD27"},  {"4301", "LM2UTHNF", "NAD27"}, {"4302", "LM2UTHCF", "NAD27"},
    {"4303", "LM2UTHSF", "NAD27"}, {"4400", "TMVERMTF", "NAD27"}, {"4501", "LM2VIRNF", "NAD27"},
    {"4502", "LM2VIRSF", "NAD27"}, {"4601", "LM2WSHNF", "NAD27"}, {"4602", "LM2WSHSF", "NAD27"},
    {"4701", "LM2WVANF", "NAD27"}, {"4702", "LM2WVASF", "NAD27"}, {"4801", "LM2WISNF", "NAD27"},
    {"4802", "LM2WISCF", "NAD27"}, {"4803", "LM2WISSF", "NAD27"}, {"4901", "TMWYO1FT", "NAD27"},
    {"4902", "TMWYO2FT", "NAD27"}, {"4903", "TMWYO3FT", "NAD27"},
};

/* ---------------------------------------------------------------- Albers projections */

struct AlbersRow {
    const char *name;
    double
        values[7];  // false east, false north, two parallels, centre latitude and meridian, radius
};

constexpr double kDeg = 3.14159265358979323846 / 180.0;

// The rows whose values are known; the other named rows of the look-up have
// none to compare, and are left out rather than made up.
constexpr AlbersRow kAlbers[] = {
    {"ALALASK2", {-4943910.68, 0, 65 * kDeg, 55 * kDeg, 0, -153 * kDeg, 6378206.4}},
};

/* ---------------------------------------------------------------- ellipsoids */

struct EllipsoidRow {
    int type;
    double radius, eccentricity_squared;
};

constexpr EllipsoidRow kEllipsoids[] = {
    {2, 6378137.0, 0.00669438},      {3, 6378135.0, 0.006694317778},
    {4, 6378160.0, 0.006694541855},  {5, 6378245.0, 0.006693421623},
    {6, 6378388.0, 0.006722670022},  {7, 6378249.1, 0.006803627004},
    {8, 6378206.4, 0.006768658},     {9, 6377563.4, 0.006670650454},
    {10, 6377397.2, 0.006674434883}, {11, 6377276.3, 0.006637884082},
};

}  // namespace

int find_datum(char **message, char *name, int ignore, ...)
{
    if (message != nullptr) *message = nullptr;
    std::vector<std::string> columns;
    if (!value_columns("datum_sp", columns)) {
        if (message != nullptr) {
            char text[128];
            std::snprintf(text, sizeof text, "ERROR: Datum file %s.dat does not exist\n",
                          "datum_sp");
            *message = strsave(text);
        }
        return -1;
    }
    // One value per column: doubles, but for the integer next to last.
    const int n = static_cast<int>(columns.size());
    const int integer_at = n - 2;
    std::vector<double> values(static_cast<size_t>(n));
    int integer = 0;
    va_list args;
    va_start(args, ignore);
    for (int i = 0; i < n; i++) {
        if (i == integer_at) {
            integer = va_arg(args, int);
            values[i] = integer;
        } else {
            values[i] = va_arg(args, double);
        }
    }
    va_end(args);
    // The first column isn't compared; the radius within a millimetre, the
    // rest within 1e-6; the last two count as matching when ignored.
    const int compared = ignore ? n - 2 : n;
    if (first_match(
            columns, values, 1, compared, [](int c, double) { return c == 1 ? 0.001 : 1e-6; },
            name))
        return 0;
    if (message != nullptr)
        *message = no_match_text("datum_sp", "<DATUM_NAME>, 0", ignore ? 2 : 0,
                                 std::vector<double>(values.begin() + 1, values.end()),
                                 integer_at - 1, integer);
    return -1;
}

int find_projection(char **message, char *name, const char *table, int ignore, ...)
{
    if (message != nullptr) *message = nullptr;
    std::vector<std::string> columns;
    if (table == nullptr || !value_columns(table, columns)) {
        if (message != nullptr) {
            char text[160];
            std::snprintf(text, sizeof text, "ERROR: Projection file %s.dat does not exist\n",
                          table != nullptr ? table : "");
            *message = strsave(text);
        }
        return -1;
    }
    // One value per column: doubles, but for the integer last.
    const int n = static_cast<int>(columns.size());
    std::vector<double> values(static_cast<size_t>(n));
    int integer = 0;
    va_list args;
    va_start(args, ignore);
    for (int i = 0; i < n; i++) {
        if (i == n - 1) {
            integer = va_arg(args, int);
            values[i] = integer;
        } else {
            values[i] = va_arg(args, double);
        }
    }
    va_end(args);
    const int compared = ignore ? std::max(n - 4, 0) : n;
    // The marker leaves a column out, as an infinite tolerance would.
    if (first_match(
            columns, values, 0, compared,
            [](int, double v) { return is_skip_marker(v) ? HUGE_VAL : 1e-11; }, name))
        return 0;
    if (message != nullptr)
        *message =
            no_match_text(table, "<PROJECTION_NAME>", ignore ? 4 : 0, values, n - 1, integer);
    return -1;
}

const gdt_name_item *get_projection_list(void)
{
    static NameList list;
    static bool made = false;
    vln::Guard guard(&VLN_GLOBAL_GDT_MUTEX);
    if (made) return list.items.data();
    std::vector<std::pair<std::string, std::string>> rows;
    if (gdb_set_table("project") == 0) {
        char key[64], type[512];
        gdb_next_name_key(nullptr);
        while (gdb_next_name_key(key) == 0) {
            type[0] = '\0';
            if (gdb_set_name_key(key) == 0) gdb_load("type", "s", type);
            rows.emplace_back(type, key);
        }
    }
    std::sort(rows.begin(), rows.end());
    made = true;
    return finish(list, std::move(rows));
}

const gdt_name_item *get_datum_list(void)
{
    static NameList list;
    static bool made = false;
    vln::Guard guard(&VLN_GLOBAL_GDT_MUTEX);
    if (made) return list.items.data();
    std::vector<std::string> keys;
    if (gdb_set_table("datum_sp") == 0) {
        char key[64];
        gdb_next_name_key(nullptr);
        while (gdb_next_name_key(key) == 0) keys.emplace_back(key);
    }
    std::vector<std::pair<std::string, std::string>> rows;
    for (const std::string &key : keys) {
        char spheroid[512] = "", origin[512] = "";
        std::string description = "Datum description not found";
        if (gdb_set_table("datum") == 0 && gdb_set_name_key(key.c_str()) == 0 &&
            gdb_load("spheroid_name", "s", spheroid) == 0) {
            if (gdb_load("origin_name", "s", origin) != 0 || origin[0] == '\0')
                std::strcpy(origin, "not specified");
            description = std::string("Spheroid: ") + spheroid + ", tie point: " + origin;
        }
        rows.emplace_back(key, description);
    }
    made = true;
    return finish(list, std::move(rows));
}

int state_plane2gdt_code(int number, char *projection, char *datum)
{
    char wanted[16];
    std::snprintf(wanted, sizeof wanted, "%04d", number);
    for (const StatePlane &row : kStatePlanes)
        if (std::strcmp(row.number, wanted) == 0) {
            if (projection != nullptr) std::strcpy(projection, row.key);
            if (datum != nullptr) std::strcpy(datum, row.datum);
            return 1;
        }
    if (projection != nullptr) std::strcpy(projection, "RAW");
    if (datum != nullptr) std::strcpy(datum, "RAW");
    return 0;
}

int albea2proj(const double *values, char *projection, char *datum)
{
    int best = 0;
    const AlbersRow *found = nullptr;
    for (const AlbersRow &row : kAlbers) {
        int score = 0;
        for (int i = 0; i < 7; i++) score += std::fabs(row.values[i] - values[i]) <= 1e-6 ? 1 : 0;
        if (score > best) best = score, found = &row;
    }
    if (found == nullptr) {
        if (projection != nullptr) std::strcpy(projection, "RAW");
        if (datum != nullptr) std::strcpy(datum, "RAW");
        return 0;
    }
    if (projection != nullptr) std::strcpy(projection, found->name);
    if (datum != nullptr) std::strcpy(datum, "NAD27");
    return 1;
}

int load_ellipsoid(int type, ellipsoid *out)
{
    if (out == nullptr) return -1;
    for (const EllipsoidRow &row : kEllipsoids)
        if (row.type == type) {
            out->ellipsoid_type = type;
            out->equatorial_radius = row.radius;
            out->eccentricity_squared = row.eccentricity_squared;
            return 0;
        }
    return -1;
}
