/*
 * vld_alg_page.cpp: the page an algorithm is laid out on (PageSize) and its
 * 3D view (ThreeDInfo), with the repair of a page that a document left unset.
 *
 * PageSize holds two extents, the whole page and the content on it, in the
 * algorithm's coordinate space; the algorithm hands that space down as the
 * aux of the block, as for every block of corners.
 *
 * A rotated space turns the content on the page. Its extents are taken as the
 * corners of the algorithm turned by the space's rotation about the top-left
 * corner (counter-clockwise in x and y for a positive angle), and then the
 * box around the four turned corners, oriented as the corners are (x to the
 * right, y up or down as the space runs).
 *
 * The 3D view is presentation detail of the application: carried, not used.
 */
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "vld_alg_internal.h"
#include "vld_coords.h"
#include "vld_docs.h"
#include "vld_dshdr_internal.h"

namespace {

using vld::as;
using vld::Field;
using vld::Kind;

bool same_number(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

/* ---------------------------------------------------------------- PageSize */

const VLD_ENUM ev_PageConstraint[] = {
    {PC_None, "None"}, {PC_Page, "Page"}, {PC_Border, "Border"}, {PC_Scale, "Scale"}, {0, nullptr}};

enum : uint32_t {
    PS_CONSTRAINT = 1,
    PS_WIDTH,
    PS_HEIGHT,
    PS_TOP,
    PS_BOTTOM,
    PS_LEFT,
    PS_RIGHT,
    PS_SCALE,
    PS_PAGE,
    PS_CONTENT
};

const VLD_KEYWORD ps_keywords[] = {{PS_CONSTRAINT, "PageConstraint", VTYPE_ENUM, ev_PageConstraint},
                                   {PS_WIDTH, "PageWidth", VTYPE_FLOAT, nullptr},
                                   {PS_HEIGHT, "PageHeight", VTYPE_FLOAT, nullptr},
                                   {PS_TOP, "TopBorder", VTYPE_FLOAT, nullptr},
                                   {PS_BOTTOM, "BottomBorder", VTYPE_FLOAT, nullptr},
                                   {PS_LEFT, "LeftBorder", VTYPE_FLOAT, nullptr},
                                   {PS_RIGHT, "RightBorder", VTYPE_FLOAT, nullptr},
                                   {PS_SCALE, "Scale", VTYPE_FLOAT, nullptr},
                                   {PS_PAGE, "PageExtents", VTYPE_BLOCK, nullptr},
                                   {PS_CONTENT, "ContentExtents", VTYPE_BLOCK, nullptr},
                                   {0, nullptr, 0, nullptr}};

#define PS_OFFSET(member) offsetof(pagesize, member)

// The extents take the aux (the algorithm's space) as it comes.
const Field ps_fields[] = {
    {.code = PS_CONSTRAINT, .kind = Kind::Enum, .offset = PS_OFFSET(page_constraint)},
    {.code = PS_WIDTH, .kind = Kind::Double, .offset = PS_OFFSET(page_width)},
    {.code = PS_HEIGHT, .kind = Kind::Double, .offset = PS_OFFSET(page_height)},
    {.code = PS_TOP, .kind = Kind::Double, .offset = PS_OFFSET(top_border)},
    {.code = PS_BOTTOM, .kind = Kind::Double, .offset = PS_OFFSET(bottom_border)},
    {.code = PS_LEFT, .kind = Kind::Double, .offset = PS_OFFSET(left_border)},
    {.code = PS_RIGHT, .kind = Kind::Double, .offset = PS_OFFSET(right_border)},
    {.code = PS_SCALE, .kind = Kind::Double, .offset = PS_OFFSET(scale)},
    {.code = PS_PAGE,
     .kind = Kind::Block,
     .offset = PS_OFFSET(page_extents),
     .sub = vld::extents_record},
    {.code = PS_CONTENT,
     .kind = Kind::Block,
     .offset = PS_OFFSET(content_extents),
     .sub = vld::extents_record},
};

void ps_init(void *r)
{
    pagesize &p = as<pagesize>(r);
    for (extents *e : {&p.page_extents, &p.content_extents})
        e->top_left.z = e->bottom_right.z = vln_nanval();
}

const vld::Record ps_record = {
    .block = "PageSize",
    .keywords = ps_keywords,
    .fields = ps_fields,
    .nfields = vld::count_of(ps_fields),
    .size = sizeof(pagesize),
    .init = ps_init,
};

/* ---------------------------------------------------------------- ThreeDInfo */

const VLD_ENUM ev_DrawMode[] = {{0, "Unknown"},     {1, "Fallback"},   {2, "Point"},
                                {3, "WireframeHV"}, {4, "WireframeH"}, {5, "WireframeV"},
                                {6, "Flatshade"},   {7, "Colorfill"},  {8, "Textured"},
                                {9, "Auto"},        {0, nullptr}};

enum : uint32_t {
    D3_DRAW_MODE = 1,
    D3_WIRE,
    D3_ASPECT,
    D3_VIEW,
    D3_MODEL,
    D3_HEAD,
    D3_LIGHTS_OFF,
    D3_ANTI_ALIAS,
    D3_AXES,
    D3_BBOX,
    D3_AXES_ROTN,
    D3_FLY,
    D3_FORWARD,
    D3_VELOCITY,
    D3_TURN,
    D3_EYE,
    D3_LEFT,
    D3_RIGHT,
    D3_BOTTOM,
    D3_TOP,
    D3_NEAR,
    D3_FAR,
    D3_FLY_NEAR,
    D3_FLY_FAR,
    D3_FLY_FOV,
    D3_FOG,
    D3_FOG_DENSITY,
    D3_FOG_COLOR,
    D3_AMBIENT,
    D3_DIFFUSE,
    D3_SPECULAR,
    D3_SHININESS,
    D3_DEGEN,
    D3_FALLBACK,
    D3_POINT_SIZE,
    D3_LINE_WIDTH,
    D3_Z_SCALE,
    D3_AUTO_PILOT
};

// DegenMode names the same modes as DrawMode.
const VLD_KEYWORD d3_keywords[] = {{D3_DRAW_MODE, "DrawMode", VTYPE_ENUM, ev_DrawMode},
                                   {D3_WIRE, "WirePercentage", VTYPE_FLOAT, nullptr},
                                   {D3_ASPECT, "WindowAspectRatio", VTYPE_FLOAT, nullptr},
                                   {D3_VIEW, "ViewMatrix", VTYPE_LIST, nullptr},
                                   {D3_MODEL, "ModelMatrix", VTYPE_LIST, nullptr},
                                   {D3_HEAD, "HeadMatrix", VTYPE_LIST, nullptr},
                                   {D3_LIGHTS_OFF, "AllLightsOff", VTYPE_YN, nullptr},
                                   {D3_ANTI_ALIAS, "LineAntiAlias", VTYPE_YN, nullptr},
                                   {D3_AXES, "DisplayAxes", VTYPE_YN, nullptr},
                                   {D3_BBOX, "DisplayBBox", VTYPE_YN, nullptr},
                                   {D3_AXES_ROTN, "ScreenAxesRotn", VTYPE_YN, nullptr},
                                   {D3_FLY, "FlyThruMode", VTYPE_YN, nullptr},
                                   {D3_FORWARD, "MoveForward", VTYPE_YN, nullptr},
                                   {D3_VELOCITY, "Velocity", VTYPE_FLOAT, nullptr},
                                   {D3_TURN, "TurnRate", VTYPE_FLOAT, nullptr},
                                   {D3_EYE, "EyeXYZ", VTYPE_LIST, nullptr},
                                   {D3_LEFT, "Left", VTYPE_FLOAT, nullptr},
                                   {D3_RIGHT, "Right", VTYPE_FLOAT, nullptr},
                                   {D3_BOTTOM, "Bottom", VTYPE_FLOAT, nullptr},
                                   {D3_TOP, "Top", VTYPE_FLOAT, nullptr},
                                   {D3_NEAR, "Near", VTYPE_FLOAT, nullptr},
                                   {D3_FAR, "Far", VTYPE_FLOAT, nullptr},
                                   {D3_FLY_NEAR, "FlyNear", VTYPE_FLOAT, nullptr},
                                   {D3_FLY_FAR, "FlyFar", VTYPE_FLOAT, nullptr},
                                   {D3_FLY_FOV, "FlyFOV", VTYPE_FLOAT, nullptr},
                                   {D3_FOG, "Fog", VTYPE_YN, nullptr},
                                   {D3_FOG_DENSITY, "FogDensity", VTYPE_FLOAT, nullptr},
                                   {D3_FOG_COLOR, "FogColor", VTYPE_LIST, nullptr},
                                   {D3_AMBIENT, "MaterialAmbient", VTYPE_LIST, nullptr},
                                   {D3_DIFFUSE, "MaterialDiffuse", VTYPE_LIST, nullptr},
                                   {D3_SPECULAR, "MaterialSpecular", VTYPE_LIST, nullptr},
                                   {D3_SHININESS, "MaterialShininess", VTYPE_FLOAT, nullptr},
                                   {D3_DEGEN, "DegenMode", VTYPE_ENUM, ev_DrawMode},
                                   {D3_FALLBACK, "FallbackResolution", VTYPE_FLOAT, nullptr},
                                   {D3_POINT_SIZE, "PointSize", VTYPE_FLOAT, nullptr},
                                   {D3_LINE_WIDTH, "LineWidth", VTYPE_FLOAT, nullptr},
                                   {D3_Z_SCALE, "ZScale", VTYPE_FLOAT, nullptr},
                                   {D3_AUTO_PILOT, "AutoPilot", VTYPE_YN, nullptr},
                                   {0, nullptr, 0, nullptr}};

/* The shape of a list member: matrices are 4 by 4, the eye one row of 3, the
 * colours one row of 4. */
struct ListShape {
    int rows, columns;
};
ListShape list_shape(uint32_t code)
{
    switch (code) {
        case D3_VIEW:
        case D3_MODEL:
        case D3_HEAD:
            return {4, 4};
        case D3_EYE:
            return {1, 3};
        default:
            return {1, 4};
    }
}

/* A list that doesn't fill its member exactly is reported; what fits is kept. */
void read_values(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    textnode *list = st->value.list;
    st->value.list = nullptr;
    const VLD_KEYWORD *kw = vld::rec_keyword(*ctx.rec, ctx.field->code);
    std::vector<double> values;
    if (!vld::list_to_doubles(list, values, kw->name)) return;
    ListShape shape = list_shape(ctx.field->code);
    size_t n = static_cast<size_t>(shape.rows * shape.columns);
    if (values.size() != n) {
        vld::report_list_count(static_cast<long long>(n), static_cast<long long>(values.size()));
    }
    auto *member = static_cast<double *>(vld::field_addr(ctx.record, *ctx.field));
    std::memcpy(member, values.data(), std::min(n, values.size()) * sizeof(double));
}

void write_values(const vld::WriteContext &ctx)
{
    const auto *member = static_cast<const double *>(vld::field_addr(ctx.record, *ctx.field));
    ListShape shape = list_shape(ctx.field->code);
    vld::rec_write_line(ctx, member);
    ep_array(member, shape.rows, shape.columns);
}

/* The old view settings are kept for the upgrade of old documents. No text
 * carries them any more, so they are stored without being compared: a record
 * read from an old document equals the same record written and read again. */
void read_old(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    void *member = vld::field_addr(ctx.record, *ctx.field);
    bool real = ctx.field->code == D3_POINT_SIZE || ctx.field->code == D3_LINE_WIDTH ||
                ctx.field->code == D3_Z_SCALE;
    double value = st->type == VTYPE_FLOAT ? st->value.d : st->value.i;
    if (real) {
        std::memcpy(member, &value, sizeof value);
    } else {
        int32_t whole = st->type == VTYPE_FLOAT ? static_cast<int32_t>(value) : st->value.i;
        std::memcpy(member, &whole, sizeof whole);
    }
}

const d3info &d3(const void *r)
{
    return as<d3info>(r);
}
bool omit_wire(const void *r, const void *)
{
    return d3(r).wire_percentage == 0.0 || d3(r).draw_mode != 3;
}
bool omit_aspect(const void *r, const void *)
{
    return d3(r).window_aspect_ratio == 0.0;
}
/* A yes/no written only when set: the member at `Offset`. */
template <size_t Offset>
bool omit_unset(const void *r, const void *)
{
    int32_t value;
    std::memcpy(&value, static_cast<const char *>(r) + Offset, sizeof value);
    return value == 0;
}
bool omit_velocity(const void *r, const void *)
{
    return d3(r).velocity == 0.0;
}
bool omit_turn(const void *r, const void *)
{
    return d3(r).turn_rate == 0.0;
}
bool omit_eye(const void *r, const void *)
{
    return std::isnan(d3(r).eye_xyz[0]);
}
bool omit_fog(const void *r, const void *)
{
    return !d3(r).fog;
}

#define D3_OFFSET(member) offsetof(d3info, member)

const Field d3_fields[] = {
    {.code = D3_DRAW_MODE, .kind = Kind::Enum, .offset = D3_OFFSET(draw_mode)},
    {.code = D3_WIRE,
     .kind = Kind::Double,
     .offset = D3_OFFSET(wire_percentage),
     .omit = omit_wire},
    {.code = D3_ASPECT,
     .kind = Kind::Double,
     .offset = D3_OFFSET(window_aspect_ratio),
     .omit = omit_aspect},
    {.code = D3_VIEW,
     .kind = Kind::Custom,
     .offset = D3_OFFSET(view_matrix),
     .read = read_values,
     .write = write_values},
    {.code = D3_MODEL,
     .kind = Kind::Custom,
     .offset = D3_OFFSET(model_matrix),
     .read = read_values,
     .write = write_values},
    {.code = D3_HEAD,
     .kind = Kind::Custom,
     .offset = D3_OFFSET(head_matrix),
     .read = read_values,
     .write = write_values},
    {.code = D3_LIGHTS_OFF,
     .kind = Kind::YesNo,
     .offset = D3_OFFSET(all_lights_off),
     .omit = omit_unset<D3_OFFSET(all_lights_off)>},
    {.code = D3_ANTI_ALIAS,
     .kind = Kind::YesNo,
     .offset = D3_OFFSET(line_anti_alias),
     .omit = omit_unset<D3_OFFSET(line_anti_alias)>},
    {.code = D3_AXES,
     .kind = Kind::YesNo,
     .offset = D3_OFFSET(display_axes),
     .omit = omit_unset<D3_OFFSET(display_axes)>},
    {.code = D3_BBOX,
     .kind = Kind::YesNo,
     .offset = D3_OFFSET(display_bbox),
     .omit = omit_unset<D3_OFFSET(display_bbox)>},
    {.code = D3_AXES_ROTN,
     .kind = Kind::YesNo,
     .offset = D3_OFFSET(screen_axes_rotn),
     .omit = omit_unset<D3_OFFSET(screen_axes_rotn)>},
    {.code = D3_FLY,
     .kind = Kind::YesNo,
     .offset = D3_OFFSET(fly_thru_mode),
     .omit = omit_unset<D3_OFFSET(fly_thru_mode)>},
    {.code = D3_FORWARD,
     .kind = Kind::YesNo,
     .offset = D3_OFFSET(move_forward),
     .omit = omit_unset<D3_OFFSET(move_forward)>},
    {.code = D3_VELOCITY,
     .kind = Kind::Double,
     .offset = D3_OFFSET(velocity),
     .omit = omit_velocity},
    {.code = D3_TURN, .kind = Kind::Double, .offset = D3_OFFSET(turn_rate), .omit = omit_turn},
    {.code = D3_EYE,
     .kind = Kind::Custom,
     .offset = D3_OFFSET(eye_xyz),
     .omit = omit_eye,
     .read = read_values,
     .write = write_values},
    {.code = D3_LEFT, .kind = Kind::Double, .offset = D3_OFFSET(left)},
    {.code = D3_RIGHT, .kind = Kind::Double, .offset = D3_OFFSET(right)},
    {.code = D3_BOTTOM, .kind = Kind::Double, .offset = D3_OFFSET(bottom)},
    {.code = D3_TOP, .kind = Kind::Double, .offset = D3_OFFSET(top)},
    {.code = D3_NEAR, .kind = Kind::Double, .offset = D3_OFFSET(near_plane)},
    {.code = D3_FAR, .kind = Kind::Double, .offset = D3_OFFSET(far_plane)},
    {.code = D3_FLY_NEAR, .kind = Kind::Double, .offset = D3_OFFSET(fly_near)},
    {.code = D3_FLY_FAR, .kind = Kind::Double, .offset = D3_OFFSET(fly_far)},
    {.code = D3_FLY_FOV, .kind = Kind::Double, .offset = D3_OFFSET(fly_fov)},
    {.code = D3_FOG, .kind = Kind::YesNo, .offset = D3_OFFSET(fog), .omit = omit_fog},
    {.code = D3_FOG_DENSITY,
     .kind = Kind::Double,
     .offset = D3_OFFSET(fog_density),
     .omit = omit_fog},
    {.code = D3_FOG_COLOR,
     .kind = Kind::Custom,
     .offset = D3_OFFSET(fog_color),
     .omit = omit_fog,
     .read = read_values,
     .write = write_values},
    {.code = D3_AMBIENT,
     .kind = Kind::Custom,
     .offset = D3_OFFSET(material_ambient),
     .read = read_values,
     .write = write_values},
    {.code = D3_DIFFUSE,
     .kind = Kind::Custom,
     .offset = D3_OFFSET(material_diffuse),
     .read = read_values,
     .write = write_values},
    {.code = D3_SPECULAR,
     .kind = Kind::Custom,
     .offset = D3_OFFSET(material_specular),
     .read = read_values,
     .write = write_values},
    {.code = D3_SHININESS, .kind = Kind::Double, .offset = D3_OFFSET(material_shininess)},
    {.code = D3_DEGEN,
     .kind = Kind::Custom,
     .offset = D3_OFFSET(degen_mode),
     .read_only = true,
     .read = read_old},
    {.code = D3_FALLBACK,
     .kind = Kind::Custom,
     .offset = D3_OFFSET(fallback_resolution),
     .read_only = true,
     .read = read_old},
    {.code = D3_POINT_SIZE,
     .kind = Kind::Custom,
     .offset = D3_OFFSET(point_size),
     .read_only = true,
     .read = read_old},
    {.code = D3_LINE_WIDTH,
     .kind = Kind::Custom,
     .offset = D3_OFFSET(line_width),
     .read_only = true,
     .read = read_old},
    {.code = D3_Z_SCALE,
     .kind = Kind::Custom,
     .offset = D3_OFFSET(z_scale),
     .read_only = true,
     .read = read_old},
    {.code = D3_AUTO_PILOT,
     .kind = Kind::Custom,
     .offset = D3_OFFSET(auto_pilot),
     .read_only = true,
     .read = read_old},
};

/* The list members, compared value by value (a NaN equals a NaN). */
bool d3_equal_extra(const void *a, const void *b)
{
    for (const Field &f : d3_fields) {
        if (f.read != read_values) continue;
        ListShape shape = list_shape(f.code);
        const auto *p = static_cast<const double *>(vld::field_addr(a, f));
        const auto *q = static_cast<const double *>(vld::field_addr(b, f));
        for (int i = 0; i < shape.rows * shape.columns; i++)
            if (!same_number(p[i], q[i])) return false;
    }
    return true;
}

void d3_init(void *r)
{
    d3info &d = as<d3info>(r);
    for (double &v : d.eye_xyz) v = vln_nanval();
}

const vld::Record d3_record = {
    .block = "ThreeDInfo",
    .keywords = d3_keywords,
    .fields = d3_fields,
    .nfields = vld::count_of(d3_fields),
    .size = sizeof(d3info),
    .init = d3_init,
    .equal_extra = d3_equal_extra,
};

/* ---------------------------------------------------------------- page arithmetic */

int space_type(const algorithm &alg)
{
    return alg.coordspace ? alg.coordspace->coordsystype : CST_RAW;
}

bool geographic(const algorithm &alg)
{
    int type = space_type(alg);
    return type == CST_EN || type == CST_LL;
}

/* The algorithm's corners, or VLD_ERR_ALG_COORD_MISSING naming the one that is missing. */
int corners_of(const algorithm &alg, dscoord &top_left, dscoord &bottom_right)
{
    if (!alg.top_left) return VLD_setup_error(VLD_ERR_ALG_COORD_MISSING, "topleft");
    if (!alg.bottom_right) return VLD_setup_error(VLD_ERR_ALG_COORD_MISSING, "bottomright");
    top_left = *alg.top_left;
    bottom_right = *alg.bottom_right;
    return 0;
}

/* The box around the corners turned by `angle` about the top-left. */
void turned_box(const dscoord &tl, const dscoord &br, double angle, dscoord &out_tl,
                dscoord &out_br)
{
    out_tl = tl;
    out_br = br;
    if (angle == 0.0) return;
    double c = std::cos(angle), s = std::sin(angle);
    double xs[4], ys[4];
    const double dx[4] = {0.0, br.x - tl.x, 0.0, br.x - tl.x};
    const double dy[4] = {0.0, 0.0, br.y - tl.y, br.y - tl.y};
    for (int i = 0; i < 4; i++) {
        xs[i] = tl.x + dx[i] * c - dy[i] * s;
        ys[i] = tl.y + dx[i] * s + dy[i] * c;
    }
    double min_x = *std::min_element(xs, xs + 4), max_x = *std::max_element(xs, xs + 4);
    double min_y = *std::min_element(ys, ys + 4), max_y = *std::max_element(ys, ys + 4);
    bool x_right = tl.x <= br.x, y_down = tl.y <= br.y;
    out_tl.x = x_right ? min_x : max_x;
    out_br.x = x_right ? max_x : min_x;
    out_tl.y = y_down ? min_y : max_y;
    out_br.y = y_down ? max_y : min_y;
}

}  // namespace

/* ---------------------------------------------------------------- shared */

const vld::Record &vld::vld_pagesize_record()
{
    return ps_record;
}
const vld::Record &vld::vld_d3info_record()
{
    return d3_record;
}

/* ---------------------------------------------------------------- pagesize */

int ea_pagesize(pagesize **record)
{
    return vld::fam_alloc(record, ps_record);
}
void ef_pagesize(pagesize *record)
{
    vld::rec_free(record, ps_record);
}
int eg_pagesize_spec(pagesize **record, const char *file, const coordspace *space)
{
    return vld::fam_get(record, file, ps_record, space);
}
int eg_pagesize_spec_noalloc(pagesize *record, const char *file, const coordspace *space)
{
    return vld::rec_read(record, file, ps_record, space);
}
int ep_pagesize_spec(const pagesize *record, const char *file, const coordspace *space)
{
    return vld::rec_write(record, file, ps_record, space);
}
int cp_pagesize_noalloc(pagesize *copy, const pagesize *source)
{
    return vld::fam_copy(copy, source, ps_record);
}

/* ---------------------------------------------------------------- d3info */

int ea_d3info(d3info **record)
{
    return vld::fam_alloc(record, d3_record);
}
void ef_d3info(d3info *record)
{
    vld::rec_free(record, d3_record);
}
int eg_d3info_noalloc(d3info *record, const char *file)
{
    return vld::rec_read(record, file, d3_record);
}
int cp_d3info(d3info **copy, const d3info *source)
{
    return vld::fam_dup(copy, source, d3_record);
}
int cp_d3info_noalloc(d3info *copy, const d3info *source)
{
    return vld::fam_copy(copy, source, d3_record);
}

/* ---------------------------------------------------------------- the page */

int page_rotated_contents_from_alg(const algorithm *alg, dscoord *top_left, dscoord *bottom_right)
{
    if (!alg || !top_left || !bottom_right)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    dscoord tl, br;
    if (int status = corners_of(*alg, tl, br)) return status;
    turned_box(tl, br, alg->coordspace ? alg->coordspace->rotation : 0.0, *top_left, *bottom_right);
    return 0;
}

int page_get_rotated_contents_from_alg(const algorithm *alg, extents *contents)
{
    if (!contents) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    return page_rotated_contents_from_alg(alg, &contents->top_left, &contents->bottom_right);
}

int page_set_rotated_contents_from_alg(algorithm *alg)
{
    if (!alg) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    extents contents;
    if (int status = page_get_rotated_contents_from_alg(alg, &contents)) return status;
    alg->page.content_extents = contents;
    return 0;
}

/* Moves the content and the page together by (dx, dy) map units, so that a
 * page dragged over a rotated document keeps its content in place on it. */
int page_set_rotated_page_from_delta(algorithm *alg, double dx, double dy)
{
    if (!alg) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    for (extents *e : {&alg->page.content_extents, &alg->page.page_extents}) {
        for (dscoord *p : {&e->top_left, &e->bottom_right}) {
            p->x += dx;
            p->y += dy;
        }
    }
    return 0;
}

/* In an EN or LL space the sizes are ground distances across the middle of
 * the content (so a geographic extent is measured at its mid-latitude). In
 * other spaces they are the coordinate differences times the space's metre
 * factor, or 1 where that isn't a positive number. */
int page_check_get_extents(const algorithm *alg, double *width, double *height, int rotated)
{
    if (width) *width = 0.0;
    if (height) *height = 0.0;
    if (!alg || !width || !height)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    dscoord tl, br;
    int status = rotated ? page_rotated_contents_from_alg(alg, &tl, &br) : corners_of(*alg, tl, br);
    if (status) return status;
    if (geographic(*alg)) {
        double mid_x = (tl.x + br.x) / 2.0, mid_y = (tl.y + br.y) / 2.0;
        double nan = vln_nanval();
        dscoord west = {tl.x, mid_y, nan}, east = {br.x, mid_y, nan};
        dscoord north = {mid_x, tl.y, nan}, south = {mid_x, br.y, nan};
        if ((status = distance_coords_meters(alg->coordspace, &west, &east, width))) return status;
        return distance_coords_meters(alg->coordspace, &north, &south, height);
    }
    double factor = alg->coordspace ? alg->coordspace->meter_factor : 1.0;
    if (!(factor > 0.0) || !std::isfinite(factor)) factor = 1.0;
    *width = std::fabs(br.x - tl.x) * factor;
    *height = std::fabs(br.y - tl.y) * factor;
    return 0;
}

double page_check_get_scale(const algorithm *alg, double page_width, double page_height,
                            double *width, double *height)
{
    double w = 0.0, h = 0.0, scale = 0.0;
    double content_w = 0.0, content_h = 0.0;
    if (alg && page_width > 0.0 && page_height > 0.0 &&
        page_check_get_extents(alg, &content_w, &content_h, 0) == 0 && content_w > 0.0 &&
        content_h > 0.0) {
        if (page_width / page_height >= content_w / content_h)
            scale = content_h * 1000.0 / page_height;
        else
            scale = content_w * 1000.0 / page_width;
        w = content_w / scale * 1000.0 / 25.4;
        h = content_h / scale * 1000.0 / 25.4;
    }
    if (width) *width = w;
    if (height) *height = h;
    return scale;
}

int check_pagesize(algorithm *alg)
{
    if (!alg) return 0;
    pagesize &page = alg->page;
    double rotation = alg->coordspace ? alg->coordspace->rotation : 0.0;
    double version = alg->version ? vld::number_value(alg->version) : 0.0;
    bool unset = page.page_width == 0.0 || page.page_height == 0.0;
    bool rotated = rotation != 0.0 && (version < 5.2 || unset);
    if (!rotated && !unset) return 0;
    dscoord tl, br;
    if (int status = corners_of(*alg, tl, br)) return status;
    if (rotated) {
        if (int status = page_set_rotated_contents_from_alg(alg)) return status;
    } else {
        page.content_extents.top_left = tl;
        page.content_extents.bottom_right = br;
    }

    page.page_constraint = PC_None;
    page.page_width = 8.5;
    page.page_height = 11.0;
    page.top_border = page.bottom_border = page.left_border = page.right_border = 0.0;
    double w = 0.0, h = 0.0;
    page.scale = page_check_get_scale(alg, 215.89999999999998, 279.4, &w, &h);
    if (w > 0.0 && h > 0.0) {
        if (page.page_width / page.page_height >= w / h)
            page.left_border = page.page_width - w;
        else
            page.bottom_border = page.page_height - h;
    }

    // Kept: the sign of the bottom edge follows the configured units as well
    // as the direction of y, and only the metric case starts from the turned
    // content.
    bool metric = p_current_config && p_current_config->units != CONFIG_UNITS_Imperial;
    bool y_up = geographic(*alg);
    const dscoord &from_tl = metric && rotated ? page.content_extents.top_left : tl;
    const dscoord &from_br = metric && rotated ? page.content_extents.bottom_right : br;
    double down = page.bottom_border * page.scale;
    page.page_extents.top_left = from_tl;
    page.page_extents.bottom_right = from_br;
    page.page_extents.bottom_right.x = from_br.x + page.left_border * page.scale;
    if (metric)
        page.page_extents.bottom_right.y = y_up ? from_br.y - down : from_br.y + down;
    else
        page.page_extents.bottom_right.y = y_up ? from_br.y + down : from_br.y - down;
    return 0;
}
