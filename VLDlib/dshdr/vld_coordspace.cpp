/*
 * vld_coordspace.cpp: CoordinateSpace, coordinate blocks and Extents.
 *
 * A coordinate space names a datum, a projection, the type of its coordinates
 * (raw, easting/northing, latitude/longitude), their units and a rotation of
 * the cell grid. Coordinate blocks (RegistrationCoord, TopLeftCorner, ...) have
 * no type of their own: the surrounding space decides which keywords they take,
 * so their descriptor reads and writes by the space handed down as its aux.
 *
 * Old headers spelled the space by a ProjectionType and a Zone, and kept the
 * cell size inside this block; the reader maps both, and the special readers
 * hand the old CellInfo back to the caller, which needs it to scale raw
 * coordinates that were stored in cells.
 */
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

#include "vld_coords.h"
#include "vld_dshdr_internal.h"

namespace {

using vld::Field;
using vld::Kind;

/* ---------------------------------------------------------------- CoordinateSpace */

enum : uint32_t {
    CS_DATUM = 1,
    CS_PROJECTION,
    CS_TYPE,
    CS_UNITS,
    CS_ROTATION,
    CS_PROJECTION_TYPE,
    CS_ZONE,
    CS_CELLINFO,
    CS_MASTER_DATASET,
    CS_MASTER_CELL_X,
    CS_MASTER_CELL_Y,
    CS_ELLIPSOID,
    CS_SCALE_FACTOR,
    CS_MIDDLE_LATITUDE,
    CS_STD_PARALLEL1,
    CS_STD_PARALLEL2,
    CS_CENTRAL_MERIDIAN,
    CS_LATITUDE_RADIUS
};

/* The old way of naming a space; AMG and UTM carry a zone. */
enum { PT_None = 0, PT_Raw = 1, PT_AMG = 2, PT_UTM = 3 };
const VLD_ENUM ev_ProjectionType[] = {
    {PT_None, "None"}, {PT_Raw, "Raw"}, {PT_AMG, "AMG"}, {PT_UTM, "UTM"}, {0, nullptr}};

const VLD_KEYWORD cs_keywords[] = {
    {CS_DATUM, "Datum", VTYPE_STRING, nullptr},
    {CS_PROJECTION, "Projection", VTYPE_STRING, nullptr},
    {CS_TYPE, "CoordinateType", VTYPE_ENUM, ev_CST},
    {CS_TYPE, "CoordinateSystem", VTYPE_ENUM, ev_CST},
    {CS_UNITS, "Units", VTYPE_STRING, nullptr},
    {CS_ROTATION, "Rotation", VTYPE_DMS, nullptr},
    {CS_PROJECTION_TYPE, "ProjectionType", VTYPE_ENUM, ev_ProjectionType},
    {CS_ZONE, "Zone", VTYPE_INT, nullptr},
    {CS_CELLINFO, "CellInfo", VTYPE_BLOCK, nullptr},
    {CS_MASTER_DATASET, "MasterDataset", VTYPE_STRING, nullptr},
    {CS_MASTER_CELL_X, "MasterOriginCellX", VTYPE_FLOAT, nullptr},
    {CS_MASTER_CELL_Y, "MasterOriginCellY", VTYPE_FLOAT, nullptr},
    {CS_ELLIPSOID, "Ellipsoid", VTYPE_BLOCK, nullptr},
    {CS_SCALE_FACTOR, "ScaleFactor", VTYPE_FLOAT, nullptr},
    {CS_MIDDLE_LATITUDE, "MiddleLatitude", VTYPE_DMS, nullptr},
    {CS_STD_PARALLEL1, "StdParallel1", VTYPE_DMS, nullptr},
    {CS_STD_PARALLEL2, "StdParallel2", VTYPE_DMS, nullptr},
    {CS_CENTRAL_MERIDIAN, "CentralMeridian", VTYPE_DMS, nullptr},
    {CS_LATITUDE_RADIUS, "LatitudeRadius", VTYPE_FLOAT, nullptr},
    {0, nullptr, 0, nullptr}};

/* What the old keywords of the block being read said, and the special
 * reader's record that the read came with (or null). Each read has its own,
 * as the aux of the read. */
struct Legacy {
    vld::CoordspaceSpecial *special = nullptr;
    bool has_projection_type = false;
    bool has_zone = false;
    int32_t projection_type = PT_None;
    int32_t zone = 0;
    cellinfo *old_cellinfo = nullptr;
    ~Legacy() { ef_cellinfo(old_cellinfo); }
};

void *new_legacy(const void *aux)
{
    auto *state = new Legacy;
    state->special = static_cast<vld::CoordspaceSpecial *>(const_cast<void *>(aux));
    return state;
}
void free_legacy(void *state)
{
    delete static_cast<Legacy *>(state);
}
Legacy &legacy_of(const void *aux)
{
    return vld::read_state<Legacy>(aux);
}

coordspace &cs_of(void *r)
{
    return *static_cast<coordspace *>(r);
}
const coordspace &cs_of(const void *r)
{
    return *static_cast<const coordspace *>(r);
}

bool same_word(const char *a, const char *b)
{
    return a && VLD_strcasecmp(a, b) == 0;
}

void replace(char *&slot, const char *text)
{
    safe_free(slot);
    slot = strsave(text);
}

void read_projection_type(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    Legacy &legacy = legacy_of(ctx.aux);
    legacy.has_projection_type = true;
    legacy.projection_type = st->value.i;
}

void read_zone(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    Legacy &legacy = legacy_of(ctx.aux);
    legacy.has_zone = true;
    legacy.zone = st->value.i;
}

void read_old_cellinfo(vld::ReadContext &ctx, VLD_STATEMENT *)
{
    Legacy &legacy = legacy_of(ctx.aux);
    if (!legacy.old_cellinfo) ea_cellinfo(&legacy.old_cellinfo);
    int status = vld::rec_read(legacy.old_cellinfo, nullptr, vld::vld_cellinfo_record());
    if (status && !ctx.status) ctx.status = status;
}

/* Units are left out when they are the default of the space. */
bool omit_units(const void *r, const void *)
{
    const coordspace &cs = cs_of(r);
    return vld::is_raw_space(&cs) ? same_word(cs.units, "METERS") : same_word(cs.units, "natural");
}

void cs_init(void *r)
{
    cs_of(r).meter_factor = 1.0;
}

void cs_defaults(void *r)
{
    df_coordspace_noalloc(static_cast<coordspace *>(r));
}

/* Each block is checked on its own: what an earlier block said doesn't count. */
void cs_before_read(void *r, const void *aux)
{
    coordspace &cs = cs_of(r);
    ef_coordspace_contents(&cs);
    cs.coordsystype = CST_None;
    cs.rotation = 0.0;
    cs.meter_factor = 1.0;
    if (vld::CoordspaceSpecial *special = legacy_of(aux).special) special->seen = true;
}

int space_error(const std::string &text)
{
    return VLD_setup_error(VLD_ERR_INVALID_COORDSPACE, text.c_str());
}

int cs_after_read(void *r, const void *aux)
{
    coordspace &cs = cs_of(r);
    Legacy &legacy = legacy_of(aux);
    vld::CoordspaceSpecial *special = legacy.special;

    if (legacy.has_projection_type || legacy.has_zone) {
        char projection[32];
        switch (legacy.projection_type) {
            case PT_AMG:
                std::snprintf(projection, sizeof projection, "TMAMG%d", legacy.zone);
                replace(cs.datum, "AGD66");
                replace(cs.projection, projection);
                break;
            case PT_UTM:
                std::snprintf(projection, sizeof projection, "NUTM%d", legacy.zone);
                replace(cs.datum, "WGS84");
                replace(cs.projection, projection);
                break;
            default:
                replace(cs.datum, "RAW");
                replace(cs.projection, "RAW");
                break;
        }
    }
    cellinfo *old = std::exchange(legacy.old_cellinfo, nullptr);
    if (special) {
        bool old_raw = legacy.has_projection_type && legacy.projection_type <= PT_Raw;
        if (!old && old_raw) df_cellinfo(&old);
        ef_cellinfo(special->old_cellinfo);
        special->old_cellinfo = old;
    } else {
        ef_cellinfo(old);
    }

    if (!cs.datum || !*cs.datum) return space_error("No Datum");
    if (!cs.projection || !*cs.projection) return space_error("No Projection");
    if (cs.coordsystype < CST_RAW || cs.coordsystype > CST_LL)
        return space_error("Bad (or no) CoordinateSystem (should be RAW, EN, or LL)");

    bool raw = vld::is_raw_space(&cs);
    if (!cs.units || !*cs.units) {
        replace(cs.units, raw ? "METERS" : "natural");
    } else if (raw && same_word(cs.units, "natural")) {
        replace(cs.units, "METERS");
    } else if (raw && !same_word(cs.units, "METERS")) {
        std::string units(cs.units);
        if (units.size() > 200) units.resize(200);
        return space_error("\n  Units were set to " + units +
                           ", must be METERS for a RAW coordinate space");
    }
    cs.meter_factor = get_meter_factor_from_datum_proj(cs.datum, cs.projection, cs.units);
    return 0;
}

const Field cs_fields[] = {
    {.code = CS_DATUM, .kind = Kind::String, .offset = offsetof(coordspace, datum)},
    {.code = CS_PROJECTION, .kind = Kind::String, .offset = offsetof(coordspace, projection)},
    {.code = CS_TYPE, .kind = Kind::Enum, .offset = offsetof(coordspace, coordsystype)},
    {.code = CS_UNITS,
     .kind = Kind::String,
     .offset = offsetof(coordspace, units),
     .omit = omit_units},
    {.code = CS_ROTATION, .kind = Kind::Angle, .offset = offsetof(coordspace, rotation)},
    {.code = CS_PROJECTION_TYPE,
     .kind = Kind::Custom,
     .read_only = true,
     .read = read_projection_type},
    {.code = CS_ZONE, .kind = Kind::Custom, .read_only = true, .read = read_zone},
    {.code = CS_CELLINFO, .kind = Kind::Custom, .read_only = true, .read = read_old_cellinfo},
    {.code = CS_MASTER_DATASET, .kind = Kind::Ignore},
    {.code = CS_MASTER_CELL_X, .kind = Kind::Ignore},
    {.code = CS_MASTER_CELL_Y, .kind = Kind::Ignore},
    {.code = CS_ELLIPSOID, .kind = Kind::Discard, .sub = vld::vld_ellipsoid_record},
    {.code = CS_SCALE_FACTOR, .kind = Kind::Ignore},
    {.code = CS_MIDDLE_LATITUDE, .kind = Kind::Ignore},
    {.code = CS_STD_PARALLEL1, .kind = Kind::Ignore},
    {.code = CS_STD_PARALLEL2, .kind = Kind::Ignore},
    {.code = CS_CENTRAL_MERIDIAN, .kind = Kind::Ignore},
    {.code = CS_LATITUDE_RADIUS, .kind = Kind::Ignore},
};

const vld::Record cs_record = {
    .block = "CoordinateSpace",
    .keywords = cs_keywords,
    .fields = cs_fields,
    .nfields = vld::count_of(cs_fields),
    .size = sizeof(coordspace),
    .init = cs_init,
    .defaults = cs_defaults,
    .before_read = cs_before_read,
    .after_read = cs_after_read,
    .new_read_state = new_legacy,
    .free_read_state = free_legacy,
};

/* ---------------------------------------------------------------- coordinate blocks */

enum : uint32_t { DC_X = 1, DC_Y, DC_Z, DC_EASTINGS, DC_NORTHINGS, DC_LATITUDE, DC_LONGITUDE };

const VLD_KEYWORD dc_keywords[] = {{DC_X, "MetersX", VTYPE_FLOAT, nullptr},
                                   {DC_Y, "MetersY", VTYPE_FLOAT, nullptr},
                                   {DC_Z, "MetersZ", VTYPE_FLOAT, nullptr},
                                   {DC_X, "MasterDatasetX", VTYPE_FLOAT, nullptr},
                                   {DC_Y, "MasterDatasetY", VTYPE_FLOAT, nullptr},
                                   {DC_EASTINGS, "Eastings", VTYPE_FLOAT, nullptr},
                                   {DC_NORTHINGS, "Northings", VTYPE_FLOAT, nullptr},
                                   {DC_LATITUDE, "Latitude", VTYPE_DMS, nullptr},
                                   {DC_LONGITUDE, "Longitude", VTYPE_DMS, nullptr},
                                   {0, nullptr, 0, nullptr}};

constexpr double kDegrees = 180.0 / M_PI;

/* The coordinate type a keyword belongs to (0: every type), and its member. */
struct CoordKey {
    int type;
    double dscoord::*member;
    bool angle;
};

CoordKey coord_key(uint32_t code)
{
    switch (code) {
        case DC_X:
            return {CST_RAW, &dscoord::x, false};
        case DC_Y:
            return {CST_RAW, &dscoord::y, false};
        case DC_EASTINGS:
            return {CST_EN, &dscoord::x, false};
        case DC_NORTHINGS:
            return {CST_EN, &dscoord::y, false};
        case DC_LATITUDE:
            return {CST_LL, &dscoord::y, true};
        case DC_LONGITUDE:
            return {CST_LL, &dscoord::x, true};
        default:
            return {0, &dscoord::z, false};
    }
}

double statement_number(const VLD_STATEMENT *st)
{
    return st->type == VTYPE_INT ? st->value.i : st->value.d;
}

/* A keyword of another coordinate type is as unknown here as any other word. */
void read_coord(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    CoordKey key = coord_key(ctx.field->code);
    if (key.type && key.type != vld::coord_type_of(vld::space_of(ctx.aux))) {
        const VLD_KEYWORD *kw = vld::rec_keyword(*ctx.rec, ctx.field->code);
        std::string text = std::string("Unknown identifier \"") + kw->name + "\"";
        rf_report_error(text.c_str());
        return;
    }
    double value = statement_number(st);
    static_cast<dscoord *>(ctx.record)->*key.member = key.angle ? value / kDegrees : value;
}

void write_coord(const vld::WriteContext &ctx)
{
    CoordKey key = coord_key(ctx.field->code);
    if (key.type != vld::coord_type_of(vld::space_of(ctx.aux))) return;
    double value = static_cast<const dscoord *>(ctx.record)->*key.member;
    if (key.angle) value *= kDegrees;
    vld::rec_write_line(ctx, &value);
}

bool same_number(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

bool dc_equal(const void *a, const void *b)
{
    const auto &p = *static_cast<const dscoord *>(a);
    const auto &q = *static_cast<const dscoord *>(b);
    return same_number(p.x, q.x) && same_number(p.y, q.y) && same_number(p.z, q.z);
}

void dc_init(void *r)
{
    static_cast<dscoord *>(r)->z = vln_nanval();
}
void dc_before_read(void *r, const void *)
{
    dc_init(r);
}

const Field dc_fields[] = {
    {.code = DC_X, .kind = Kind::Custom, .read = read_coord, .write = write_coord},
    {.code = DC_Y, .kind = Kind::Custom, .read = read_coord, .write = write_coord},
    {.code = DC_EASTINGS, .kind = Kind::Custom, .read = read_coord, .write = write_coord},
    {.code = DC_NORTHINGS, .kind = Kind::Custom, .read = read_coord, .write = write_coord},
    {.code = DC_LATITUDE, .kind = Kind::Custom, .read = read_coord, .write = write_coord},
    {.code = DC_LONGITUDE, .kind = Kind::Custom, .read = read_coord, .write = write_coord},
    {.code = DC_Z, .kind = Kind::Custom, .read_only = true, .read = read_coord},
};

const vld::Record dc_record = {
    .block = "Dscoord",
    .keywords = dc_keywords,
    .fields = dc_fields,
    .nfields = vld::count_of(dc_fields),
    .size = sizeof(dscoord),
    .init = dc_init,
    .before_read = dc_before_read,
    .equal_extra = dc_equal,
};

/* ---------------------------------------------------------------- Extents */

enum : uint32_t { EX_TOP_LEFT = 1, EX_BOTTOM_RIGHT };

const VLD_KEYWORD ex_keywords[] = {{EX_TOP_LEFT, "TopLeftCorner", VTYPE_BLOCK, nullptr},
                                   {EX_BOTTOM_RIGHT, "BottomRightCorner", VTYPE_BLOCK, nullptr},
                                   {0, nullptr, 0, nullptr}};

const Field ex_fields[] = {
    {.code = EX_TOP_LEFT,
     .kind = Kind::Block,
     .offset = offsetof(extents, top_left),
     .sub = vld::dscoord_record},
    {.code = EX_BOTTOM_RIGHT,
     .kind = Kind::Block,
     .offset = offsetof(extents, bottom_right),
     .sub = vld::dscoord_record},
};

void ex_init(void *r)
{
    auto &e = *static_cast<extents *>(r);
    e.top_left.z = e.bottom_right.z = vln_nanval();
}

const vld::Record ex_record = {
    .block = "Extents",
    .keywords = ex_keywords,
    .fields = ex_fields,
    .nfields = vld::count_of(ex_fields),
    .size = sizeof(extents),
    .init = ex_init,
};

const char *block_or(const char *block, const char *fallback)
{
    return block ? block : fallback;
}

}  // namespace

/* ---------------------------------------------------------------- shared */

const vld::Record &vld::coordspace_record()
{
    return cs_record;
}
const vld::Record &vld::dscoord_record()
{
    return dc_record;
}
const vld::Record &vld::extents_record()
{
    return ex_record;
}

const void *vld::no_aux(const void *, const void *)
{
    return nullptr;
}

int vld::coord_type_of(const coordspace *space)
{
    if (space && (space->coordsystype == CST_EN || space->coordsystype == CST_LL))
        return space->coordsystype;
    return CST_RAW;
}

bool vld::is_raw_space(const coordspace *space)
{
    auto raw = [](const char *s) { return !s || std::string_view(s) == "RAW"; };
    return space && raw(space->datum) && raw(space->projection);
}

/* ---------------------------------------------------------------- coordspace */

int ea_coordspace(coordspace **record)
{
    return vld::fam_alloc(record, cs_record);
}
void ef_coordspace(coordspace *record)
{
    vld::rec_free(record, cs_record);
}
void ef_coordspace_contents(coordspace *record)
{
    vld::rec_free_contents(record, cs_record);
}
int ee_coordspace(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, cs_record);
}
int eg_coordspace(coordspace **record, const char *file)
{
    return vld::fam_get(record, file, cs_record);
}
int eg_coordspace_noalloc(coordspace *record, const char *file)
{
    return vld::rec_read(record, file, cs_record);
}

int eg_coordspace_noalloc_special(coordspace *record, const char *file, cellinfo **old_cellinfo)
{
    vld::CoordspaceSpecial special;
    int status = vld::rec_read(record, file, cs_record, &special);
    if (old_cellinfo)
        *old_cellinfo = special.old_cellinfo;
    else
        ef_cellinfo(special.old_cellinfo);
    return status;
}

int eg_coordspace_special(coordspace **record, const char *file, cellinfo **old_cellinfo)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    ea_coordspace(record);
    return eg_coordspace_noalloc_special(*record, file, old_cellinfo);
}

int ep_coordspace(const coordspace *record, const char *file)
{
    return vld::rec_write(record, file, cs_record);
}
int cp_coordspace(coordspace **copy, const coordspace *source)
{
    return vld::fam_dup(copy, source, cs_record);
}
int cp_coordspace_noalloc(coordspace *copy, const coordspace *source)
{
    return vld::fam_copy(copy, source, cs_record);
}
int df_coordspace(coordspace **record)
{
    return vld::fam_new_defaults(record, cs_record);
}

int df_coordspace_noalloc(coordspace *record)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    ef_coordspace_contents(record);
    record->coordsystype = CST_RAW;
    record->rotation = 0.0;
    record->datum = strsave("RAW");
    record->projection = strsave("RAW");
    record->units = strsave("natural");
    record->meter_factor = 1.0;
    return 0;
}

/* ---------------------------------------------------------------- dscoord */

int ea_dscoord(dscoord **record)
{
    return vld::fam_alloc(record, dc_record);
}
void ef_dscoord(dscoord *record)
{
    vld::rec_free(record, dc_record);
}
int ee_dscoord(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, dc_record);
}
int eg_dscoord(dscoord **record, const char *file)
{
    return vld::fam_get(record, file, dc_record);
}
int eg_dscoord_spec(dscoord **record, const char *file, const char *block, const coordspace *space)
{
    return vld::fam_get(record, file, dc_record, space, block_or(block, "Dscoord"));
}
int eg_dscoord_spec_noalloc(dscoord *record, const char *file, const char *block,
                            const coordspace *space)
{
    return vld::rec_read(record, file, dc_record, space, block_or(block, "Dscoord"));
}
int ep_dscoord(const dscoord *record, const char *file)
{
    return vld::rec_write(record, file, dc_record);
}
int ep_dscoord_spec(const dscoord *record, const char *file, const char *block,
                    const coordspace *space)
{
    return vld::rec_write(record, file, dc_record, space, block_or(block, "Dscoord"));
}
int cp_dscoord(dscoord **copy, const dscoord *source)
{
    return vld::fam_dup(copy, source, dc_record);
}

int dscoord_cmp(const dscoord *a, const dscoord *b)
{
    if (!a || !b) return a == b ? 0 : 1;
    return dc_equal(a, b) ? 0 : 1;
}

/* ---------------------------------------------------------------- extents */

int ea_extents(extents **record)
{
    return vld::fam_alloc(record, ex_record);
}
void ef_extents(extents *record)
{
    vld::rec_free(record, ex_record);
}
int ee_extents(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, ex_record);
}
int eg_extents_spec_noalloc_internal(extents *record, const char *file, const char *block,
                                     const coordspace *space)
{
    return vld::rec_read(record, file, ex_record, space, block);
}
int ep_extents_spec_internal(const extents *record, const char *file, const char *block,
                             const coordspace *space)
{
    return vld::rec_write(record, file, ex_record, space, block);
}
int cp_extents_noalloc(extents *copy, const extents *source)
{
    return vld::fam_copy(copy, source, ex_record);
}
