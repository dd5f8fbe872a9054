/*
 * vld_alg_finish.cpp: what reading an algorithm does once the document is
 * parsed.
 *
 * The corners are checked and, in documents with an old CellInfo, turned from
 * cells into coordinates; streams of the form before surfaces go to their
 * surfaces; the page is repaired; the stipple colour is chosen against the
 * background; the first surface and stream are selected; the 3D settings of
 * documents before version 5.5 are upgraded; and each surface's ranges of
 * scale and offset are settled around its values.
 */
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "vld_alg_internal.h"
#include "vld_coords.h"

namespace {

constexpr const char *kVectorFilter = "vlnps_vlvec";

/* The fixed fields of a link layer. */
struct LinkFields {
    const char *menu, *filter, *extent, *init;
    bool turned_off;
    const char *dataset;
};

/* By GeneratedVectorType, 1 to 8. */
const LinkFields kGenerated[] = {
    {"Show arguments for No Parameter", "vlnps_info", nullptr, nullptr, false, nullptr},
    {"Dataset Cell Grid", "vlnps_cell_grid", ".vld", "vlninit_vld", true, nullptr},
    {"Easting/Northing Tick Grid", "vlnps_en_tgrid", "vln_choose_en_grid", "vlninit_notraw", false,
     "Variable"},
    {"Dataset Cell Tick Grid", "vlnps_cell_tgrid", ".vld", "vlninit_vld", true, nullptr},
    {"Easting/Northing Tick Grid", "vlnps_en_tgrid", "vln_choose_en_grid", "vlninit_notraw", false,
     "Variable"},
    {"Regions Outlined", "vlnps_region_outline", ".vld", "vlninit_vld", true, nullptr},
    {"Latitude-Longitude Tick Grid", "vlnps_ll_tgrid", "vln_choose_ll_grid", "vlninit_notraw",
     false, "Variable"},
    {"Latitude-Longitude Tick Grid", "vlnps_ll_tgrid", "vln_choose_ll_grid", "vlninit_notraw",
     false, "Variable"},
};

void make_link(stream &s, const LinkFields &f)
{
    s.type = ST_DynamicLink;
    vld::replace_text(s.menu_button_description, f.menu);
    vld::replace_text(s.filter_program_name, f.filter);
    vld::replace_text(s.file_extent, f.extent);
    vld::replace_text(s.initialisation_program, f.init);
    if (f.turned_off) s.turned_off = 1;
    if (f.dataset) vld::replace_text(s.dataset, f.dataset);
}

/* A surface for old streams and old documents, in the old mode and table. */
surface *old_surface(const vld::AlgReadState &state, bool with_stream)
{
    surface *s = nullptr;
    df_surface(&s);
    if (!with_stream) {
        for (stream *st = s->first_stream; st;) {
            stream *next = st->next;
            ef_stream(st);
            st = next;
        }
        s->first_stream = nullptr;
    }
    if (state.old_display_mode > 0 && state.old_display_mode != CM_Unknown)
        s->color_mode = state.old_display_mode;
    if (state.old_lookup_table) {
        safe_free(s->lookup_table);
        s->lookup_table = strsave(state.old_lookup_table);
    }
    return s;
}

/* Old top-level streams go to the surface their StreamSurfaceId numbers
 * (from 1; 0 is the first), made as needed. */
void place_old_streams(algorithm &a, vld::AlgReadState &state)
{
    std::vector<surface *> surfaces;
    std::vector<stream *> last;  // each surface's last stream
    for (surface *s = a.surfaces; s; s = s->next) {
        surfaces.push_back(s);
        stream *end = s->first_stream;
        while (end && end->next) end = end->next;
        last.push_back(end);
    }
    for (stream *st : state.old_streams) {
        // The reader has refused numbers beyond kMaxOldSurfaceId.
        size_t want = st->surface_id > 1 ? static_cast<size_t>(st->surface_id) : 1;
        while (surfaces.size() < want) {
            surface *end = surfaces.empty() ? nullptr : surfaces.back();
            surfaces.push_back(vld::append_surface(a, old_surface(state, false), end));
            last.push_back(nullptr);
        }
        last[want - 1] = vld::append_stream(surfaces[want - 1], st, last[want - 1]);
    }
    state.old_streams.clear();
}

/* The view settings of documents before 3D views had modes. */
void upgrade_3d(algorithm &a)
{
    if (a.d3info.draw_mode == 0 || !a.version || std::atof(a.version) >= 5.5) return;
    a.view_mode = a.d3info.fly_thru_mode ? VM_Flythrough : VM_Perspective3D;
    a.d3info.degen_mode = 0;
    surface *s = a.surfaces;
    if (!s) return;
    s->z_scale = a.d3info.z_scale * 100.0;
    s->z_offset = 0.0;
    int type = a.coordspace ? a.coordspace->coordsystype : CST_RAW;
    if (type == CST_RAW || type == CST_None || std::isnan(s->z_scale) || !a.top_left ||
        !a.bottom_right)
        return;
    double m = 0.0;
    if (distance_coords_meters(a.coordspace, a.top_left, a.bottom_right, &m) != 0 || m == 0.0)
        return;
    double dx = a.bottom_right->x - a.top_left->x;
    double dy = a.bottom_right->y - a.top_left->y;
    if (dx == 0.0) return;
    s->z_scale = 0.3333333333333333 / (std::sqrt(dx * dx + dy * dy) / m * 85.0 / dx) * s->z_scale;
}

void settle_ranges(surface &s)
{
    if (s.z_scale_min < 0) s.z_scale_min = 0;
    bool f = s.z_scale_min == 0 && s.z_scale_max == 0 && s.z_offset_min == 0 && s.z_offset_max == 0;
    if (!std::isnan(s.z_scale)) {
        if (s.z_scale < 0) {
            s.z_scale = vln_nanval();
        } else {
            if (f || s.z_scale < s.z_scale_min)
                s.z_scale_min = s.z_scale - 50 < 0 ? 0 : s.z_scale - 50;
            if (f || s.z_scale > s.z_scale_max) s.z_scale_max = s.z_scale + 50;
        }
    }
    if (!std::isnan(s.z_offset)) {
        if (f || s.z_offset < s.z_offset_min) s.z_offset_min = s.z_offset - 1000;
        if (f || s.z_offset >= s.z_offset_max) s.z_offset_max = s.z_offset + 1000;
    }
}

}  // namespace

surface *vld::surface_at(const algorithm &a, int i)
{
    surface *s = a.surfaces;
    while (s && i-- > 0) s = s->next;
    return i < 0 ? s : nullptr;
}

surface *vld::append_surface(algorithm &a, surface *s, surface *last)
{
    surface **tail = last ? &last->next : &a.surfaces, *prev = last;
    while (*tail) {
        prev = *tail;
        tail = &(*tail)->next;
    }
    *tail = s;
    s->prev = prev;
    s->next = nullptr;
    return s;
}

dscoord *vld::new_coord(const dscoord &c)
{
    auto *p = static_cast<dscoord *>(malloc_or_die(sizeof(dscoord)));
    *p = c;
    return p;
}

/* Selects the first surface and stream, and the inputs that intensity and
 * height come from. */
void vld::select_first(algorithm &a)
{
    for (surface *s = a.surfaces; s; s = s->next) s->selected = 0;
    a.current_surface = a.surfaces;
    if (a.current_surface) a.current_surface->selected = 1;
    a.current_stream = a.current_surface ? a.current_surface->first_stream : nullptr;
    a.intensity_input = a.height_input = a.current_stream;
    a.intensity_streaminput = a.height_streaminput =
        a.current_stream ? a.current_stream->stream_inputs : nullptr;
}

/* Steps 3 on of reading: what the parsed record needs to be whole. */
int vld::finish_read(algorithm &a, const char *name, AlgReadState &state)
{
    if (!a.top_left) return VLD_setup_error(VLD_ERR_ALG_COORD_MISSING, "topleft");
    if (!a.bottom_right) return VLD_setup_error(VLD_ERR_ALG_COORD_MISSING, "bottomright");
    if (state.cs.old_cellinfo) {
        const cellinfo &c = *state.cs.old_cellinfo;
        a.top_left->x *= c.x_dimension;
        a.top_left->y *= c.y_dimension;
        a.bottom_right->x *= c.x_dimension;
        a.bottom_right->y *= c.y_dimension;
        ef_cellinfo(state.cs.old_cellinfo);
        state.cs.old_cellinfo = nullptr;
    }
    if (!a.adjusted_bottom_right) a.adjusted_bottom_right = new_coord(*a.bottom_right);
    if (!state.canvas_seen) a.canvas_top_left = a.canvas_bottom_right = *a.top_left;
    if (name) {
        safe_free(a.name);
        a.name = strsave(name);
    }
    place_old_streams(a, state);
    int status = check_pagesize(&a);
    if (status) return status;
    for (surface *s = a.surfaces; s; s = s->next)
        for (stream *st = s->first_stream; st; st = st->next)
            if (st->type == ST_DynamicLink && st->link_type == LT_Monocolour &&
                st->filter_program_name && std::strcmp(st->filter_program_name, "vlnps_vlvec") == 0)
                st->link_type = LT_TrueColour;
    const uint8_t *bg = a.background_colour;
    int luminance = (bg[0] * 77 + bg[1] * 150 + bg[2] * 29) >> 8;
    std::memset(a.stipple_colour24, luminance < 129 ? 255 : 0, 3);
    if (!a.surfaces) vld::append_surface(a, old_surface(state, true));
    int id = 1;
    for (surface *s = a.surfaces; s; s = s->next, id++)
        for (stream *st = s->first_stream; st; st = st->next) st->surface_id = id;
    select_first(a);
    upgrade_3d(a);
    for (surface *s = a.surfaces; s; s = s->next) settle_ranges(*s);
    if (a.d3info.window_aspect_ratio == 0.0) a.d3info.window_aspect_ratio = 1.0;
    return 0;
}

/* Old documents named vector layers by type: 81 an annotation overlay, 82 a
 * generated one by its GeneratedVectorType. Both are link layers now. */
void vld::upgrade_vector_types(stream &s, int32_t generated)
{
    if (s.type == ST_DatasetVector) {
        make_link(s, {"Annotation overlay", kVectorFilter, ".vlv", "vlninit_vld", false, nullptr});
        s.can_edit = 1;
    } else if (s.type == ST_GeneratedVector && generated >= 1 && generated <= 8) {
        make_link(s, kGenerated[generated - 1]);
    } else if (s.type == ST_GeneratedVector) {
        s.type = ST_DynamicLink;
    }
}
