/*
 * vld_dshdr_util.cpp: small helpers that the dataset header's sources share:
 * numbers in lists, file name comparison, the version of the document being
 * read, and the hooks through which later modules plug into the header.
 */
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>

#include "vld_dshdr_internal.h"
#include "vln_path.h"

namespace {

vld::DshdrHooks hooks{};

/* The Version keyword of the header being read; set and read under the
 * record I/O lock. */
std::string version_text;
bool version_known = false;

const char *skip_blanks(const char *text)
{
    while (*text == ' ' || *text == '\t') text++;
    return text;
}

/* Parses a number that fills `text` up to trailing blanks. */
bool parse_number(const char *text, double &value)
{
    if (!text) return false;
    const char *p = skip_blanks(text);
    if (*p == '+') p++;
    const char *end = p + std::strlen(p);
    while (end > p && (end[-1] == ' ' || end[-1] == '\t')) end--;
    if (p == end) return false;
    auto [stop, error] = std::from_chars(p, end, value);
    if (error == std::errc::result_out_of_range) return stop == end;  // value is clamped
    return error == std::errc() && stop == end;
}

}  // namespace

namespace vld {

void set_dshdr_hooks(const DshdrHooks &h)
{
    hooks = h;
}
const DshdrHooks &dshdr_hooks()
{
    return hooks;
}

const char *document_version()
{
    return version_known ? version_text.c_str() : nullptr;
}

void set_document_version(const char *version)
{
    version_known = version != nullptr;
    version_text = version ? version : "";
}

bool is_number_text(const char *text)
{
    double value;
    return parse_number(text, value);
}

double number_value(const char *text)
{
    double value = 0.0;
    return parse_number(text, value) ? value : 0.0;
}

bool list_to_doubles(textnode *list, std::vector<double> &out, const char *keyword)
{
    out.clear();
    bool good = true;
    for (const textnode *t = list; t && good; t = t->next) {
        double value;
        if (parse_number(t->text, value)) {
            out.push_back(value);
            continue;
        }
        std::string text = std::string("Expecting a number in ") + keyword + ", received \"" +
                           (t->text ? t->text : "") + "\"";
        if (text.size() > 300) text.resize(300);
        rf_report_error(text.c_str());
        good = false;
    }
    VLD_free_textnodes(list);
    return good;
}

std::string list_number(double value, int places)
{
    if (std::isnan(value)) return "\"nan\"";
    if (std::isinf(value)) return value > 0 ? "\"inf\"" : "\"-inf\"";
    char buffer[512];
    return format_float2(buffer, value, places);
}

bool same_file(const char *a, const char *b, const char *base)
{
    if (!a || !*a || !b || !*b) return (!a || !*a) && (!b || !*b);
    if (std::strcmp(a, b) == 0) return true;
    char *dir = base ? VLN_get_dirname(base) : nullptr;
    auto absolute = [dir](const char *name) {
        char *full = nullptr;
        if (VLN_path_is_abs(name) || !dir)
            VLN_build_filepath(&full, name, static_cast<char *>(nullptr));
        else
            VLN_build_filepath(&full, dir, name, static_cast<char *>(nullptr));
        std::string out = full ? full : name;
        safe_free(full);
        return out;
    };
    bool same = absolute(a) == absolute(b);
    safe_free(dir);
    return same;
}

}  // namespace vld

namespace {

/* The dataset header's records in the one index of records. */
const vld::RecordEntry header_records[] = {
    {"DatasetHeader", vld::dshdr_record},
    {"CoordinateSpace", vld::coordspace_record},
    {"Dscoord", vld::dscoord_record},
    {"Extents", vld::extents_record},
    {"RasterInfo", vld::rasterinfo_record},
    {"BandId", vld::bandid_record},
    {"VectorInfo", vld::vectorinfo_record},
    {"FFTInfo", vld::fftinfo_record},
    {"RadarInfo", vld::radarinfo_record},
    {"RegionInfo", vld::vld_regioninfo_record},
    {"RGBcolour", vld::rgbcolour_record},
    {"Stats", vld::msstats_record},
    {"SensorInfo", vld::sensorinfo_record},
    {"FiducialInfo", vld::fiducialinfo_record},
    {"FiducialPoint", vld::fiducialpoint_record},
    {"WarpControl", vld::vld_warp_control_record},
    {"Correction", vld::correction_record},
    {"GivenOrthoInfo", vld::orthoinfo_record},
    {"MapToMapInfo", vld::map_to_map_info_record},
};

const vld::RecordRegistration header_registration(header_records, vld::count_of(header_records));

}  // namespace
