/*
 * vld_warp.cpp: WarpControl and its parts: the ground control points, the
 * Correction flags, the given camera orientation (GivenOrthoInfo) and the
 * map-to-map space (MapToMapInfo).
 *
 * Control points are one list, a row of tab-separated fields per point. Their
 * coordinates read and write by the warp's working space: the dataset's own
 * space for a rotation, the MapToMapInfo space for a map-to-map warp, the
 * given orientation's space for an advanced ortho warp, and the warp's target
 * space otherwise. Three generations of the list are read; the newest is
 * written.
 *
 * Headers of old versions also stored the solved polynomial coefficients; they
 * are still read, never written (the fit is made again when needed).
 */
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "vld_dshdr_internal.h"

namespace {

using vld::Field;
using vld::Kind;

using vld::as;

using vld::keep_status;

bool same_number(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

constexpr double kDegrees = 180.0 / M_PI;

/* ---------------------------------------------------------------- Correction */

enum : uint32_t { CO_RADIAL = 1, CO_POLY, CO_ATMOSPHERIC, CO_CURVATURE };

const VLD_KEYWORD co_keywords[] = {{CO_RADIAL, "RadialLens", VTYPE_YN, nullptr},
                                   {CO_POLY, "PolyLens", VTYPE_YN, nullptr},
                                   {CO_ATMOSPHERIC, "Atmospheric", VTYPE_YN, nullptr},
                                   {CO_CURVATURE, "EarthCurvature", VTYPE_YN, nullptr},
                                   {0, nullptr, 0, nullptr}};

const Field co_fields[] = {
    {.code = CO_RADIAL, .kind = Kind::YesNo, .offset = offsetof(correction, radial_lens)},
    {.code = CO_POLY, .kind = Kind::YesNo, .offset = offsetof(correction, poly_lens)},
    {.code = CO_ATMOSPHERIC, .kind = Kind::YesNo, .offset = offsetof(correction, atmospheric)},
    {.code = CO_CURVATURE, .kind = Kind::YesNo, .offset = offsetof(correction, earth_curvature)},
};

const vld::Record co_record = {
    .block = "Correction",
    .keywords = co_keywords,
    .fields = co_fields,
    .nfields = vld::count_of(co_fields),
    .size = sizeof(correction),
};

/* ---------------------------------------------------------------- GivenOrthoInfo */

enum : uint32_t { OI_OMEGA = 1, OI_PHI, OI_KAPPA, OI_X, OI_Y, OI_Z, OI_SCALE, OI_SPACE };

const VLD_KEYWORD oi_keywords[] = {{OI_OMEGA, "AttitudeOmega", VTYPE_FLOAT, nullptr},
                                   {OI_PHI, "AttitudePhi", VTYPE_FLOAT, nullptr},
                                   {OI_KAPPA, "AttitudeKappa", VTYPE_FLOAT, nullptr},
                                   {OI_X, "ExposureCenterX", VTYPE_FLOAT, nullptr},
                                   {OI_Y, "ExposureCenterY", VTYPE_FLOAT, nullptr},
                                   {OI_Z, "ExposureCenterZ", VTYPE_FLOAT, nullptr},
                                   {OI_SCALE, "SCALE", VTYPE_FLOAT, nullptr},
                                   {OI_SPACE, "CoordinateSpace", VTYPE_BLOCK, nullptr},
                                   {0, nullptr, 0, nullptr}};

const Field oi_fields[] = {
    {.code = OI_OMEGA, .kind = Kind::Angle, .offset = offsetof(orthoinfo, omega)},
    {.code = OI_PHI, .kind = Kind::Angle, .offset = offsetof(orthoinfo, phi)},
    {.code = OI_KAPPA, .kind = Kind::Angle, .offset = offsetof(orthoinfo, kappa)},
    {.code = OI_X, .kind = Kind::Double, .offset = offsetof(orthoinfo, exposure_x)},
    {.code = OI_Y, .kind = Kind::Double, .offset = offsetof(orthoinfo, exposure_y)},
    {.code = OI_Z, .kind = Kind::Double, .offset = offsetof(orthoinfo, exposure_z)},
    {.code = OI_SCALE, .kind = Kind::Double, .offset = offsetof(orthoinfo, scale)},
    {.code = OI_SPACE,
     .kind = Kind::Block,
     .offset = offsetof(orthoinfo, coordspace),
     .sub = vld::coordspace_record,
     .sub_aux = vld::no_aux},
};

/* A new record's space is the default one, so that a block without a
 * CoordinateSpace still has a valid space. */
void oi_init(void *r)
{
    df_coordspace_noalloc(&as<orthoinfo>(r).coordspace);
}

const vld::Record oi_record = {
    .block = "GivenOrthoInfo",
    .keywords = oi_keywords,
    .fields = oi_fields,
    .nfields = vld::count_of(oi_fields),
    .size = sizeof(orthoinfo),
    .init = oi_init,
};

/* ---------------------------------------------------------------- MapToMapInfo */

enum : uint32_t { MM_SPACE = 1 };

const VLD_KEYWORD mm_keywords[] = {{MM_SPACE, "CoordinateSpace", VTYPE_BLOCK, nullptr},
                                   {0, nullptr, 0, nullptr}};

const Field mm_fields[] = {
    {.code = MM_SPACE,
     .kind = Kind::Block,
     .offset = offsetof(map_to_map_info, coordspace),
     .sub = vld::coordspace_record,
     .sub_aux = vld::no_aux},
};

void mm_init(void *r)
{
    df_coordspace_noalloc(&as<map_to_map_info>(r).coordspace);
}

const vld::Record mm_record = {
    .block = "MapToMapInfo",
    .keywords = mm_keywords,
    .fields = mm_fields,
    .nfields = vld::count_of(mm_fields),
    .size = sizeof(map_to_map_info),
    .init = mm_init,
};

/* ---------------------------------------------------------------- polynomial coefficients */

/* The blocks of old headers: U terms for cell x, V terms for cell y, as many
 * of each as the order has (3, 6, 10). */
struct Polynomial {
    int half;
    double u[10], v[10];
};

const VLD_KEYWORD po_keywords[] = {{1, "U_Const", VTYPE_FLOAT, nullptr},
                                   {2, "U_XCoeff", VTYPE_FLOAT, nullptr},
                                   {3, "U_YCoeff", VTYPE_FLOAT, nullptr},
                                   {4, "U_XYCoeff", VTYPE_FLOAT, nullptr},
                                   {5, "U_X2Coeff", VTYPE_FLOAT, nullptr},
                                   {6, "U_Y2Coeff", VTYPE_FLOAT, nullptr},
                                   {7, "U_X2YCoeff", VTYPE_FLOAT, nullptr},
                                   {8, "U_XY2Coeff", VTYPE_FLOAT, nullptr},
                                   {9, "U_X3Coeff", VTYPE_FLOAT, nullptr},
                                   {10, "U_Y3Coeff", VTYPE_FLOAT, nullptr},
                                   {11, "V_Const", VTYPE_FLOAT, nullptr},
                                   {12, "V_XCoeff", VTYPE_FLOAT, nullptr},
                                   {13, "V_YCoeff", VTYPE_FLOAT, nullptr},
                                   {14, "V_XYCoeff", VTYPE_FLOAT, nullptr},
                                   {15, "V_X2Coeff", VTYPE_FLOAT, nullptr},
                                   {16, "V_Y2Coeff", VTYPE_FLOAT, nullptr},
                                   {17, "V_X2YCoeff", VTYPE_FLOAT, nullptr},
                                   {18, "V_XY2Coeff", VTYPE_FLOAT, nullptr},
                                   {19, "V_X3Coeff", VTYPE_FLOAT, nullptr},
                                   {20, "V_Y3Coeff", VTYPE_FLOAT, nullptr},
                                   {0, nullptr, 0, nullptr}};

/* A term beyond the block's order is as unknown as any other word. */
void read_term(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    Polynomial &p = as<Polynomial>(ctx.record);
    int term = static_cast<int>(ctx.field->code) - 1;
    int index = term % 10;
    if (index >= p.half) {
        std::string text = std::string("Unknown identifier \"") + po_keywords[term].name + "\"";
        rf_report_error(text.c_str());
        return;
    }
    double value = st->type == VTYPE_INT ? st->value.i : st->value.d;
    (term < 10 ? p.u : p.v)[index] = value;
}

constexpr std::array<Field, 20> make_term_fields()
{
    std::array<Field, 20> fields{};
    for (uint32_t i = 0; i < fields.size(); i++)
        fields[i] =
            Field{.code = i + 1, .kind = Kind::Custom, .read_only = true, .read = read_term};
    return fields;
}

constexpr std::array<Field, 20> po_fields = make_term_fields();

const vld::Record po_record = {
    .block = "WarpPolynomial",
    .keywords = po_keywords,
    .fields = po_fields.data(),
    .nfields = po_fields.size(),
    .size = sizeof(Polynomial),
};

/* ---------------------------------------------------------------- control points */

const VLD_ENUM ev_WarpType[] = {{WARP_Polynomial, "Polynomial"},
                                {WARP_Triangulated, "Triangulated"},
                                {WARP_Rotation, "Rotation"},
                                {WARP_Map, "Map"},
                                {WARP_Ortho, "Ortho"},
                                {WARP_OrthoAdvanced, "OrthoAdvanced"},
                                {WARP_KnownPointRegistration, "KnownPointRegistration"},
                                {0, nullptr}};
const VLD_ENUM ev_WarpSampling[] = {{SAMPLE_Nearest, "Nearest"},
                                    {SAMPLE_Bilinear, "Bilinear"},
                                    {SAMPLE_Cubic, "Cubic"},
                                    {0, nullptr}};
const VLD_ENUM ev_ExtentsUsed[] = {{EXTENTS_Maximum, "Maximum"},
                                   {EXTENTS_Optimum, "Optimum"},
                                   {EXTENTS_Custom, "Custom"},
                                   {0, nullptr}};

/* The space in which the warp's points and extents are expressed. */
const coordspace *working_space(const warp_control &w, const coordspace *dataset)
{
    const coordspace *own = dataset ? dataset : &w.coordspace;
    switch (w.type) {
        case WARP_Rotation:
            return own;
        case WARP_Map:
            return w.map_to_map_info ? &w.map_to_map_info->coordspace : own;
        case WARP_OrthoAdvanced:
            return w.given_orthoinfo ? &w.given_orthoinfo->coordspace : &w.coordspace;
        default:
            return &w.coordspace;
    }
}

const void *extents_aux(const void *r, const void *aux)
{
    return working_space(as<warp_control>(r), vld::space_of(aux));
}

void free_points(controlpoint *points, int count)
{
    for (int i = 0; points && i < count; i++) safe_free(points[i].name);
    safe_free(points);
}

bool is_flag(const char *word)
{
    return word && (VLD_strcasecmp(word, "Yes") == 0 || VLD_strcasecmp(word, "No") == 0);
}
bool flag_value(const char *word)
{
    return VLD_strcasecmp(word, "No") != 0;
}

/* Whether the elements make rows of `width` with the two flags in place. */
bool rows_of(const std::vector<const char *> &items, size_t width)
{
    if (items.empty() || items.size() % width != 0) return false;
    for (size_t row = 0; row < items.size(); row += width)
        if (!is_flag(items[row + 1]) || !is_flag(items[row + 2])) return false;
    return true;
}

/* The number of elements per point. The oldest lists hold four numbers per
 * point; later ones name the point and carry two flags, and z from version 5.5
 * on. A list that doesn't fit the layout its version names is tried in the
 * other, since a WarpControl read outside a header has no version. */
size_t row_width(const std::vector<const char *> &items)
{
    if (items.size() < 2 || !is_flag(items[1])) return 4;
    const char *version = vld::document_version();
    size_t width = version && vld::number_value(version) >= 5.5 ? 8 : 7;
    if (!rows_of(items, width) && rows_of(items, 15 - width)) width = 15 - width;
    return width;
}

double coordinate_value(const char *text, int type)
{
    return type == CST_LL ? dmsstr_to_d(text) / kDegrees : vld::number_value(text);
}

void read_control_points(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    warp_control &w = as<warp_control>(ctx.record);
    textnode *list = st->value.list;
    st->value.list = nullptr;
    std::vector<const char *> items;
    for (const textnode *t = list; t; t = t->next) items.push_back(t->text ? t->text : "");

    size_t width = row_width(items);
    if (items.size() % width != 0) {
        char text[160];
        std::snprintf(text, sizeof text, "ControlPoints: %zu elements don't make whole rows of %zu",
                      items.size(), width);
        rf_report_error(text);
        VLD_free_textnodes(list);
        return;
    }
    int type = vld::coord_type_of(working_space(w, vld::space_of(ctx.aux)));
    size_t count = items.size() / width;
    // The oldest rows hold only the four numbers, which stand at 3 to 6 in the others.
    size_t shift = width == 4 ? 3 : 0;
    controlpoint *points = nullptr;
    if (count) points = static_cast<controlpoint *>(malloc_or_die(count * sizeof(controlpoint)));
    for (size_t i = 0; i < count; i++) {
        auto at = [&](size_t k) { return items[i * width + k - shift]; };
        controlpoint &p = points[i];
        p = controlpoint{};
        if (width == 4) {
            char name[24];
            std::snprintf(name, sizeof name, "%zu", i + 1);
            p.name = strsave(name);
            p.active = 1;
        } else {
            p.name = *at(0) ? strsave(at(0)) : nullptr;
            p.active = flag_value(at(1));
            p.shown = flag_value(at(2));
        }
        p.cell_x = vld::number_value(at(3));
        p.cell_y = vld::number_value(at(4));
        p.x = coordinate_value(at(5), type);
        p.y = coordinate_value(at(6), type);
        p.z = width == 8 ? vld::number_value(at(7)) : 0.0;
    }
    free_points(w.points, w.nr_points);
    w.points = points;
    w.nr_points = static_cast<int32_t>(count);
    VLD_free_textnodes(list);
}

void write_control_points(const vld::WriteContext &ctx)
{
    const warp_control &w = as<warp_control>(ctx.record);
    if (w.nr_points <= 0 || !w.points) return;
    vld::rec_write_line(ctx, &w.points);
    ep_control_points(w.points, w.nr_points,
                      vld::coord_type_of(working_space(w, vld::space_of(ctx.aux))));
}

/* ---------------------------------------------------------------- WarpControl */

enum : uint32_t {
    WC_TYPE = 1,
    WC_ORDER,
    WC_BACKGROUND,
    WC_SAMPLING,
    WC_ROTATION,
    WC_DEM_FILE,
    WC_DEM_BAND,
    WC_DEM_FACTOR,
    WC_FROM_DIGITIZER,
    WC_FROM_IMAGE,
    WC_CHOSEN_FROM,
    WC_OUTPUT_FILE,
    WC_USE_AVERAGE,
    WC_AVERAGE,
    WC_CELL_X,
    WC_CELL_Y,
    WC_HAS_NULL,
    WC_NULL_VALUE,
    WC_CORRECTION,
    WC_GIVEN_ORTHO,
    WC_SPACE,
    WC_MAP_TO_MAP,
    WC_EXTENTS_USED,
    WC_EXTENTS,
    WC_POINTS,
    WC_LINEAR,
    WC_QUADRATIC,
    WC_CUBIC,
    WC_SOLVED_ORTHO /* no keyword: the solved orientation lives in memory only */
};

const VLD_KEYWORD wc_keywords[] = {
    {WC_TYPE, "WarpType", VTYPE_ENUM, ev_WarpType},
    {WC_ORDER, "WarpOrder", VTYPE_INT, nullptr},
    {WC_BACKGROUND, "DoBackGround", VTYPE_YN, nullptr},
    {WC_SAMPLING, "WarpSampling", VTYPE_ENUM, ev_WarpSampling},
    {WC_ROTATION, "Rotation", VTYPE_FLOAT, nullptr},
    {WC_DEM_FILE, "DemFile", VTYPE_FILENAME, nullptr},
    {WC_DEM_BAND, "DemBandNr", VTYPE_INT, nullptr},
    {WC_DEM_FACTOR, "DemMeterFactor", VTYPE_FLOAT, nullptr},
    {WC_FROM_DIGITIZER, "ChooseGcpsFromDigitizer", VTYPE_YN, nullptr},
    {WC_FROM_IMAGE, "ChooseGcpsFromImage", VTYPE_YN, nullptr},
    {WC_CHOSEN_FROM, "GcpsChosenFrom", VTYPE_FILENAME, nullptr},
    {WC_OUTPUT_FILE, "OutputFile", VTYPE_FILENAME, nullptr},
    {WC_USE_AVERAGE, "UseAverageHeight", VTYPE_YN, nullptr},
    {WC_AVERAGE, "AverageHeight", VTYPE_FLOAT, nullptr},
    {WC_CELL_X, "OutputCellSizeX", VTYPE_FLOAT, nullptr},
    {WC_CELL_Y, "OutputCellSizeY", VTYPE_FLOAT, nullptr},
    {WC_HAS_NULL, "OutputHasNullCells", VTYPE_YN, nullptr},
    {WC_NULL_VALUE, "OutputNullCellValue", VTYPE_FLOAT, nullptr},
    {WC_CORRECTION, "Correction", VTYPE_BLOCK, nullptr},
    {WC_GIVEN_ORTHO, "GivenOrthoInfo", VTYPE_BLOCK, nullptr},
    {WC_SPACE, "CoordinateSpace", VTYPE_BLOCK, nullptr},
    {WC_MAP_TO_MAP, "MapToMapInfo", VTYPE_BLOCK, nullptr},
    {WC_EXTENTS_USED, "ExtentsUsed", VTYPE_ENUM, ev_ExtentsUsed},
    {WC_EXTENTS, "Extents", VTYPE_BLOCK, nullptr},
    {WC_POINTS, "ControlPoints", VTYPE_LIST, nullptr},
    {WC_LINEAR, "WarpPolynomialLinear", VTYPE_BLOCK, nullptr},
    {WC_QUADRATIC, "WarpPolynomialQuadratic", VTYPE_BLOCK, nullptr},
    {WC_CUBIC, "WarpPolynomialCubic", VTYPE_BLOCK, nullptr},
    {0, nullptr, 0, nullptr}};

/* Reads an old coefficient block into the array of its order. */
void read_polynomial(vld::ReadContext &ctx, VLD_STATEMENT *)
{
    warp_control &w = as<warp_control>(ctx.record);
    double *target = ctx.field->code == WC_LINEAR      ? w.linear
                     : ctx.field->code == WC_QUADRATIC ? w.quadratic
                                                       : w.cubic;
    Polynomial p{};
    p.half = ctx.field->code == WC_LINEAR ? 3 : ctx.field->code == WC_QUADRATIC ? 6 : 10;
    keep_status(ctx, vld::rec_read(&p, nullptr, po_record));
    for (int i = 0; i < p.half; i++) {
        target[i] = p.u[i];
        target[p.half + i] = p.v[i];
    }
}

const warp_control &wc(const void *r)
{
    return as<warp_control>(r);
}
bool omit_type(const void *r, const void *)
{
    return wc(r).type == 0;
}
bool omit_order(const void *r, const void *)
{
    return wc(r).order <= 0;
}
bool omit_background(const void *r, const void *)
{
    return !wc(r).do_background;
}
bool omit_sampling(const void *r, const void *)
{
    return wc(r).sampling == 0;
}
bool omit_dem_band(const void *r, const void *)
{
    return !wc(r).dem_file || !*wc(r).dem_file;
}
bool omit_cell_x(const void *r, const void *)
{
    return wc(r).output_cell_size_x == 0.0;
}
bool omit_cell_y(const void *r, const void *)
{
    return wc(r).output_cell_size_y == 0.0;
}

void wc_init(void *r)
{
    warp_control &w = as<warp_control>(r);
    df_coordspace_noalloc(&w.coordspace);
    w.extents.top_left.z = w.extents.bottom_right.z = vln_nanval();
}
void wc_before_read(void *r, const void *)
{
    extents &e = as<warp_control>(r).extents;
    e.top_left.z = e.bottom_right.z = vln_nanval();
}

void wc_free_extra(void *r)
{
    warp_control &w = as<warp_control>(r);
    free_points(w.points, w.nr_points);
    w.points = nullptr;
    w.nr_points = 0;
}

void wc_copy_extra(void *dst, const void *src)
{
    warp_control &d = as<warp_control>(dst);
    const warp_control &s = as<warp_control>(src);
    d.points = nullptr;
    if (s.nr_points <= 0 || !s.points) return;
    d.points = static_cast<controlpoint *>(malloc_or_die(s.nr_points * sizeof(controlpoint)));
    for (int32_t i = 0; i < s.nr_points; i++) {
        d.points[i] = s.points[i];
        d.points[i].name = s.points[i].name ? strsave(s.points[i].name) : nullptr;
    }
}

bool same_name(const char *a, const char *b)
{
    if (!a || !*a) return !b || !*b;
    return b && std::strcmp(a, b) == 0;
}

bool wc_equal_extra(const void *a, const void *b)
{
    const warp_control &p = wc(a), &q = wc(b);
    if (p.nr_points != q.nr_points) return false;
    for (int32_t i = 0; i < p.nr_points; i++) {
        const controlpoint &s = p.points[i], &t = q.points[i];
        if (!same_number(s.cell_x, t.cell_x) || !same_number(s.cell_y, t.cell_y) ||
            !same_number(s.x, t.x) || !same_number(s.y, t.y) || !same_number(s.z, t.z) ||
            !same_name(s.name, t.name) || s.active != t.active || s.shown != t.shown)
            return false;
    }
    // The coefficients aren't compared: they are derived from the points,
    // and the text no longer carries them.
    return true;
}

#define WC_OFFSET(member) offsetof(warp_control, member)

const Field wc_fields[] = {
    {.code = WC_TYPE, .kind = Kind::Enum, .offset = WC_OFFSET(type), .omit = omit_type},
    {.code = WC_ORDER, .kind = Kind::Int32, .offset = WC_OFFSET(order), .omit = omit_order},
    {.code = WC_BACKGROUND,
     .kind = Kind::YesNo,
     .offset = WC_OFFSET(do_background),
     .omit = omit_background},
    {.code = WC_SAMPLING, .kind = Kind::Enum, .offset = WC_OFFSET(sampling), .omit = omit_sampling},
    {.code = WC_ROTATION, .kind = Kind::Double, .offset = WC_OFFSET(rotation)},
    {.code = WC_DEM_FILE, .kind = Kind::Filename, .offset = WC_OFFSET(dem_file)},
    {.code = WC_DEM_BAND,
     .kind = Kind::Int32,
     .offset = WC_OFFSET(dem_band_nr),
     .omit = omit_dem_band},
    {.code = WC_DEM_FACTOR, .kind = Kind::Double, .offset = WC_OFFSET(dem_meter_factor)},
    {.code = WC_FROM_DIGITIZER,
     .kind = Kind::YesNo,
     .offset = WC_OFFSET(choose_gcps_from_digitizer)},
    {.code = WC_FROM_IMAGE, .kind = Kind::YesNo, .offset = WC_OFFSET(choose_gcps_from_image)},
    {.code = WC_CHOSEN_FROM, .kind = Kind::Filename, .offset = WC_OFFSET(gcps_chosen_from)},
    {.code = WC_OUTPUT_FILE, .kind = Kind::Filename, .offset = WC_OFFSET(output_file)},
    {.code = WC_USE_AVERAGE, .kind = Kind::YesNo, .offset = WC_OFFSET(use_average_height)},
    {.code = WC_AVERAGE, .kind = Kind::Double, .offset = WC_OFFSET(average_height)},
    {.code = WC_CELL_X,
     .kind = Kind::Double,
     .offset = WC_OFFSET(output_cell_size_x),
     .omit = omit_cell_x},
    {.code = WC_CELL_Y,
     .kind = Kind::Double,
     .offset = WC_OFFSET(output_cell_size_y),
     .omit = omit_cell_y},
    {.code = WC_HAS_NULL, .kind = Kind::YesNo, .offset = WC_OFFSET(output_has_null_cells)},
    {.code = WC_NULL_VALUE, .kind = Kind::Double, .offset = WC_OFFSET(output_null_cell_value)},
    {.code = WC_CORRECTION,
     .kind = Kind::BlockPtr,
     .offset = WC_OFFSET(correction),
     .sub = vld::correction_record},
    {.code = WC_GIVEN_ORTHO,
     .kind = Kind::BlockPtr,
     .offset = WC_OFFSET(given_orthoinfo),
     .sub = vld::orthoinfo_record},
    {.code = WC_SPACE,
     .kind = Kind::Block,
     .offset = WC_OFFSET(coordspace),
     .sub = vld::coordspace_record,
     .sub_aux = vld::no_aux},
    {.code = WC_MAP_TO_MAP,
     .kind = Kind::BlockPtr,
     .offset = WC_OFFSET(map_to_map_info),
     .sub = vld::map_to_map_info_record},
    {.code = WC_EXTENTS_USED, .kind = Kind::Enum, .offset = WC_OFFSET(extents_used)},
    {.code = WC_EXTENTS,
     .kind = Kind::Block,
     .offset = WC_OFFSET(extents),
     .sub = vld::extents_record,
     .sub_aux = extents_aux},
    {.code = WC_POINTS,
     .kind = Kind::Custom,
     .read = read_control_points,
     .write = write_control_points},
    {.code = WC_LINEAR, .kind = Kind::Custom, .read_only = true, .read = read_polynomial},
    {.code = WC_QUADRATIC, .kind = Kind::Custom, .read_only = true, .read = read_polynomial},
    {.code = WC_CUBIC, .kind = Kind::Custom, .read_only = true, .read = read_polynomial},
    {.code = WC_SOLVED_ORTHO,
     .kind = Kind::Block,
     .offset = WC_OFFSET(orthoinfo),
     .sub = vld::orthoinfo_record,
     .read_only = true},
};

const vld::Record wc_record = {
    .block = "WarpControl",
    .keywords = wc_keywords,
    .fields = wc_fields,
    .nfields = vld::count_of(wc_fields),
    .size = sizeof(warp_control),
    .init = wc_init,
    .before_read = wc_before_read,
    .free_extra = wc_free_extra,
    .copy_extra = wc_copy_extra,
    .equal_extra = wc_equal_extra,
};

const char *block_or(const char *block, const char *fallback)
{
    return block ? block : fallback;
}

}  // namespace

/* ---------------------------------------------------------------- shared */

const vld::Record &vld::vld_warp_control_record()
{
    return wc_record;
}
const vld::Record &vld::correction_record()
{
    return co_record;
}
const vld::Record &vld::orthoinfo_record()
{
    return oi_record;
}
const vld::Record &vld::map_to_map_info_record()
{
    return mm_record;
}

/* One row per point: name, the two flags, the cell, then the position in the
 * precision its coordinate type needs. */
void ep_control_points(const controlpoint *points, int count, int coordsystype)
{
    for (int i = 0; points && i < count; i++) {
        const controlpoint &p = points[i];
        char *name = strsave_backquote_chars(p.name);
        std::string row = std::string("\t\"") + name + "\"\t" + (p.active ? "Yes" : "No") + "\t" +
                          (p.shown ? "Yes" : "No");
        safe_free(name);
        row += "\t" + vld::list_number(p.cell_x, 6) + "\t" + vld::list_number(p.cell_y, 6);
        if (coordsystype == CST_LL) {
            char degrees[64];
            for (double angle : {p.x, p.y}) {
                if (std::isfinite(angle))
                    row += std::string("\t\"") + d_to_dmsstr(degrees, angle * kDegrees) + "\"";
                else
                    row += "\t" + vld::list_number(angle, 9);
            }
        } else {
            int places = coordsystype == CST_EN ? 4 : 6;
            row += "\t" + vld::list_number(p.x, places) + "\t" + vld::list_number(p.y, places);
        }
        row += "\t" + vld::list_number(p.z, 6);
        ep_raw_line(row.c_str());
    }
    ep_raw_line("}");
}

/* ---------------------------------------------------------------- warp_control */

int ea_warp_control(warp_control **record)
{
    return vld::fam_alloc(record, wc_record);
}
void ef_warp_control(warp_control *record)
{
    vld::rec_free(record, wc_record);
}
int eg_warp_control(warp_control **record, const char *file)
{
    return vld::fam_get(record, file, wc_record);
}
int eg_warp_control_noalloc(warp_control *record, const char *file)
{
    return vld::rec_read(record, file, wc_record);
}
int ep_warp_control(const warp_control *record, const char *file)
{
    return vld::rec_write(record, file, wc_record);
}
int ep_warp_control_spec(const warp_control *record, const char *file, const coordspace *space)
{
    return vld::rec_write(record, file, wc_record, space);
}
int cp_warp_control(warp_control **copy, const warp_control *source)
{
    return vld::fam_dup(copy, source, wc_record);
}

/* ---------------------------------------------------------------- correction */

int ea_correction(correction **record)
{
    return vld::fam_alloc(record, co_record);
}
int ep_correction(const correction *record, const char *file)
{
    return vld::rec_write(record, file, co_record);
}

/* ---------------------------------------------------------------- orthoinfo */

int ea_orthoinfo(orthoinfo **record)
{
    return vld::fam_alloc(record, oi_record);
}
void ef_orthoinfo(orthoinfo *record)
{
    vld::rec_free(record, oi_record);
}
int eg_orthoinfo(orthoinfo **record, const char *file)
{
    return vld::fam_get(record, file, oi_record);
}
int eg_orthoinfo_spec(orthoinfo **record, const char *file, const char *block)
{
    return vld::fam_get(record, file, oi_record, nullptr, block);
}
int eg_orthoinfo_spec_noalloc(orthoinfo *record, const char *file, const char *block)
{
    return vld::rec_read(record, file, oi_record, nullptr, block);
}
int ep_orthoinfo(const orthoinfo *record, const char *file)
{
    return vld::rec_write(record, file, oi_record);
}
int ep_orthoinfo_spec(const orthoinfo *record, const char *file, const char *block)
{
    return vld::rec_write(record, file, oi_record, nullptr, block_or(block, "GivenOrthoInfo"));
}
int cp_orthoinfo_noalloc(orthoinfo *copy, const orthoinfo *source)
{
    return vld::fam_copy(copy, source, oi_record);
}

/* ---------------------------------------------------------------- map_to_map_info */

int ea_map_to_map_info(map_to_map_info **record)
{
    return vld::fam_alloc(record, mm_record);
}
void ef_map_to_map_info(map_to_map_info *record)
{
    vld::rec_free(record, mm_record);
}
int eg_map_to_map_info(map_to_map_info **record, const char *file)
{
    return vld::fam_get(record, file, mm_record);
}
int eg_map_to_map_info_spec(map_to_map_info **record, const char *file, const char *block)
{
    return vld::fam_get(record, file, mm_record, nullptr, block);
}
int eg_map_to_map_info_spec_noalloc(map_to_map_info *record, const char *file, const char *block)
{
    return vld::rec_read(record, file, mm_record, nullptr, block);
}
int ep_map_to_map_info(const map_to_map_info *record, const char *file)
{
    return vld::rec_write(record, file, mm_record);
}
int ep_map_to_map_info_spec(const map_to_map_info *record, const char *file, const char *block)
{
    return vld::rec_write(record, file, mm_record, nullptr, block_or(block, "MapToMapInfo"));
}
int cp_map_to_map_info_noalloc(map_to_map_info *copy, const map_to_map_info *source)
{
    return vld::fam_copy(copy, source, mm_record);
}
