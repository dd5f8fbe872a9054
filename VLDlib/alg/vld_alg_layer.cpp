/*
 * vld_alg_layer.cpp: the cached layer of a stream.
 *
 * Each stream of an algorithm keeps the header of its dataset, the time of its
 * file, and the space and corners in which it is drawn. Setting a layer up
 * opens the header (or borrows a copy from a stream on the same dataset, or
 * asks the layer's link init program), and settles the extents: a layer in
 * another space of the same kind is carried into the algorithm's space where
 * it can be, and then marked as drawable there (multiple_coordspaces).
 *
 * Also here: fitting a formula to its dataset's bands, and fitting the output
 * window to the algorithm's aspect.
 */
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vld_alg_internal.h"
#include "vld_coords.h"
#include "vld_coords_internal.h"
#include "vln_fileio.h"
#include "vln_path.h"
#include "vln_process.h"

namespace {

constexpr int kLinkOutputMax = 1024;
constexpr int kLinkWaitMs = 3000;

bool ends_with_nocase(const char *s, const char *tail)
{
    if (!s) return false;
    size_t n = std::strlen(s), m = std::strlen(tail);
    return n >= m && VLD_strcasecmp(s + n - m, tail) == 0;
}

bool is_link(const stream &s)
{
    return s.type == ST_DynamicLink;
}

/* A link layer whose file is one of the library's own kinds is set up from
 * its header, like any layer; others ask their link init program. */
bool known_extent(const stream &s)
{
    static const char *const kinds[] = {".alg", ".map", ".vld", ".vlv"};
    if (!s.file_extent || std::strlen(s.file_extent) != 4) return false;
    for (const char *k : kinds)
        if (VLD_strcasecmp(s.file_extent, k) == 0) return true;
    return false;
}

/* Replaces a stream's space by a copy of `space` (the default one for null). */
void set_space(coordspace &slot, const coordspace *space)
{
    ef_coordspace_contents(&slot);
    if (space)
        cp_coordspace_noalloc(&slot, space);
    else
        df_coordspace_noalloc(&slot);
}

/* ---------------------------------------------------------------- settling the extents */

int settle_extents(algorithm &alg, stream &st, int reproject)
{
    if (!st.dshdr)
        return VLD_setup_error(VLD_ERR_INTERNAL,
                               "setup_stream_cspace_extents passed a null cache ptr\n");
    dshdr &d = *st.dshdr;
    dscoord tl{}, br{};
    int status = setup_extents_from_dsh(&d, &tl, &br);
    if (status) return status;
    bool raster = d.data_type == DT_Raster;
    bool can_reproject = ends_with_nocase(st.dataset, ".vlv") ||
                         ends_with_nocase(st.dataset, ".vlv $$ALG") || raster ||
                         (ends_with_nocase(st.dataset, ".vld") && st.edit_program &&
                          std::strcmp(st.edit_program, "vln_vec") == 0);
    coordspace own{};
    cp_coordspace_noalloc(&own, &d.coordspace);
    const coordspace *target = alg.coordspace;
    if (!raster && can_reproject && check_2_regs(target, &own, 1) != 0 &&
        check_2_regs(target, &own, 0) == 0) {
        dscoord a{}, b{};
        if (cvt_any_coord_to_coord(&own, &tl, target, &a) == 0 &&
            cvt_any_coord_to_coord(&own, &br, target, &b) == 0) {
            set_space(own, target);
            tl = a;
            br = b;
        }
    }
    if (raster && check_2_regs(target, &own, 1) != 0) {
        can_reproject = false;
        dscoord a{}, b{};
        if (reproject && check_2_regs(target, &own, 0) == 0 &&
            cvt_any_coord_to_coord(&own, &tl, target, &a) == 0 &&
            cvt_any_coord_to_coord(&own, &br, target, &b) == 0) {
            dscoord ntl = tl, nbr = br;
            if (VLN_calculate_reprojected_extents(target, &d, &ntl, &nbr) == 0 &&
                VLN_check_coords_round_trip(target, &ntl, &nbr, d.info.r.nr_cells,
                                            d.info.r.nr_lines) == 0) {
                can_reproject = true;
                set_space(own, target);
                tl = ntl;
                br = nbr;
            }
        }
    }
    coordspace display{};
    cp_coordspace_noalloc(&display, &own);
    int desired = display.coordsystype;
    if (display.coordsystype == CST_LL) display.coordsystype = CST_EN;
    if (!raster) {
        dscoord a{}, b{};
        status = cvt_any_coord_to_coord(&own, &tl, &display, &a);
        if (!status) status = cvt_any_coord_to_coord(&own, &br, &display, &b);
        if (status) {
            ef_coordspace_contents(&own);
            ef_coordspace_contents(&display);
            ef_dshdr(st.dshdr);
            st.dshdr = nullptr;
            return status;
        }
        tl = a;
        br = b;
    }
    ef_coordspace_contents(&st.coordspace);
    st.coordspace = display;
    st.top_left = tl;
    st.bottom_right = br;
    st.multiple_coordspaces = can_reproject ? 1 : 0;
    st.desired_coordinate_type = desired;
    ef_coordspace_contents(&own);
    return 0;
}

/* ---------------------------------------------------------------- opening a layer's header */

/* The file of a layer's name: "name.vlv $$ALG" loses its tail. */
std::string layer_file(const char *name)
{
    std::string s = name ? name : "";
    size_t at = s.find_last_of(". \t");
    if (at != std::string::npos && (s[at] == ' ' || s[at] == '\t')) s.erase(at);
    return s;
}

void inherit_dpi(algorithm *inner, const algorithm &outer)
{
    if (!inner) return;
    if (inner->dots_per_inch_across == 0.0 || inner->dots_per_inch_down == 0.0) {
        inner->dots_per_inch_across = outer.dots_per_inch_across;
        inner->dots_per_inch_down = outer.dots_per_inch_down;
    }
}

int open_layer_header(algorithm &alg, stream &st, const char *name)
{
    if (st.dshdr)
        return VLD_setup_error(VLD_ERR_INTERNAL,
                               "setup_stream_dshdr passed a non-null cache ptr\n");
    std::string file = layer_file(name);
    char *path = nullptr;
    if (VLN_build_abs_fspec(&path, alg.name, file.c_str()) != 0 || !path) {
        safe_free(path);
        path = strsave(file.c_str());
    }
    dshdr *d = nullptr;
    int status = eg_dshdr(&d, path);
    if (status) {
        safe_free(path);
        return status;
    }
    if (d->algorithm && alg.name) {
        char *self = strsave(alg.name);
        char *parent = strsave(path);
        char *given = parent;
        bool loop = VLD_check_ds_in_alg(d->algorithm, path, alg.name) ||
                    VLD_check_recur_alg(d->algorithm, &self, &parent);
        // On a hit the parent is replaced by the document that holds the name.
        if (parent != given) safe_free(given);
        safe_free(self);
        safe_free(parent);
        if (loop) {
            ef_dshdr(d);
            status = VLD_setup_vds_error("The Virtual Dataset \"%s\" is self referential\n", path);
            safe_free(path);
            return status;
        }
    }
    if (d->algorithm) inherit_dpi(d->algorithm, alg);
    int64_t t = -1;
    if (d->dataset_type == DST_Translated) {
        char *vld = VLN_replace_ext(path, ".vld");
        if (vld && fileexists(vld)) t = vln_file_mtime(vld);
        safe_free(vld);
    }
    if (t < 0) t = vln_file_mtime(path);
    st.file_time = t >= 0 ? static_cast<int32_t>(t) : d->last_updated;
    st.dshdr = d;
    safe_free(path);
    return 0;
}

/* ---------------------------------------------------------------- the link init program */

/* Splits at whitespace into at most 16 fields; double quotes protect
 * whitespace and are dropped. */
std::vector<std::string> split_answer(const char *text)
{
    std::vector<std::string> fields;
    const char *p = text;
    while (*p && fields.size() < 16) {
        while (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r') p++;
        if (!*p) break;
        std::string field;
        bool quoted = false;
        for (; *p && (quoted || !(*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r')); p++) {
            if (*p == '"')
                quoted = !quoted;
            else
                field += *p;
        }
        fields.push_back(field);
    }
    return fields;
}

/* Reads what the pipe holds, up to `max` bytes, in one call. */
int64_t read_once(int fd, char *buffer, int max)
{
    if (fd < 0) return 0;
    int64_t n;
    do {
        n = vln_read(fd, buffer, max);
    } while (n < 0 && errno == EINTR);
    return n;
}

void close_fd(int &fd)
{
    if (fd >= 0) vln_close(fd);
    fd = -1;
}

/* Whether every other stream that is on can be drawn in any space. */
bool others_all_multiple(const algorithm &alg, const stream &self)
{
    for (const surface *s = alg.surfaces; s; s = s->next)
        for (const stream *st = s->first_stream; st; st = st->next)
            if (st != &self && !st->turned_off && !st->multiple_coordspaces) return false;
    return true;
}

int ask_link_program(algorithm &alg, stream &st, const char *name)
{
    if (st.dshdr)
        return VLD_setup_error(VLD_ERR_INTERNAL,
                               "get_link_init_info was passed a non-null cache ptr\n");
    if (vld::empty_text(st.initialisation_program)) {
        set_space(st.coordspace, alg.coordspace);
        if (alg.top_left) st.top_left = *alg.top_left;
        if (alg.bottom_right) st.bottom_right = *alg.bottom_right;
        st.multiple_coordspaces = 1;
        st.file_time = 0;
        return VLD_create_fake_dshdr(&st.dshdr, alg.coordspace, alg.top_left, alg.bottom_right);
    }
    std::string file;
    if (st.file_extent && st.file_extent[0] == '.') {
        std::string s = name ? name : "";
        size_t cut = s.find(" $$ALG");
        if (cut != std::string::npos) s.erase(cut);
        char *abs = nullptr;
        if (VLN_build_abs_fspec(&abs, alg.name, s.c_str()) == 0 && abs) s = abs;
        safe_free(abs);
        file = s;
    } else if (!vld::empty_text(st.dataset)) {
        file = name ? name : "";
    }

    // While every other layer can be drawn anywhere, the program may choose
    // the space: the algorithm's projection reads "UNDEFINED" for the call.
    bool choose = others_all_multiple(alg, st) && alg.coordspace;
    char *saved_projection = nullptr;
    if (choose) {
        saved_projection = alg.coordspace->projection;
        alg.coordspace->projection = strsave("UNDEFINED");
    }
    vln_linkprog_args args{};
    args.mode = "mapinfo";
    args.coordsystype = alg.coordspace ? alg.coordspace->coordsystype : CST_RAW;
    args.rotation = alg.coordspace ? alg.coordspace->rotation : 0.0;
    if (alg.top_left) args.top_left_x = alg.top_left->x, args.top_left_y = alg.top_left->y;
    if (alg.bottom_right)
        args.bottom_right_x = alg.bottom_right->x, args.bottom_right_y = alg.bottom_right->y;
    args.file = file.c_str();
    int pid = -1, out = -1, err = -1;
    char errtext[1024] = "";
    int started = forkexec_linkprog(&pid, errtext, sizeof errtext, nullptr, &out, &err,
                                    st.initialisation_program, &args);
    if (choose) {
        safe_free(alg.coordspace->projection);
        alg.coordspace->projection = saved_projection;
    }
    if (started != 0) {
        close_fd(out);
        close_fd(err);
        return VLD_setup_error(VLD_ERR_LINK_INIT, errtext);
    }
    int status = VLN_waitpid(pid, kLinkWaitMs);
    if (status == VLN_STILL_ACTIVE) {
        // It may have answered and lingered; its answer is read after it is
        // stopped, so that a silent program can't hold the reader.
        vln_kill(pid, SIGTERM);
        VLN_waitpid(pid, -1);
    }
    if (status != 0 && status != 15 && status != 99 && status != VLN_STILL_ACTIVE) {
        char text[kLinkOutputMax + 1] = "";
        int64_t n = read_once(err, text, kLinkOutputMax);
        text[n > 0 ? n : 0] = '\0';
        close_fd(out);
        close_fd(err);
        return VLD_setup_error(VLD_ERR_LINK_INIT_STATUS, st.initialisation_program, status, text);
    }
    char answer[kLinkOutputMax + 1];
    int64_t n = read_once(out, answer, kLinkOutputMax);
    close_fd(out);
    close_fd(err);
    if (n < 0) return VLD_setup_error(VLD_ERR_LINK_INIT, "read() from link init program failed");
    if (n >= kLinkOutputMax) {
        char text[96];
        std::snprintf(text, sizeof text,
                      "Too much output from link init program. Maximum = %d bytes.",
                      kLinkOutputMax);
        return VLD_setup_error(VLD_ERR_LINK_INIT, text);
    }
    answer[n] = '\0';
    std::vector<std::string> f = split_answer(answer);
    if (f.size() < 10)
        return VLD_setup_error(VLD_ERR_LINK_INIT_TOO_FEW, static_cast<int>(f.size()), answer);

    coordspace space{};
    space.datum = strsave(f[1].c_str());
    space.projection = strsave(f[2].c_str());
    space.coordsystype = f[3] == "EN" ? CST_EN : f[3] == "LL" ? CST_LL : CST_RAW;
    space.units = strsave(f[4].c_str());
    space.rotation = std::atof(f[5].c_str());
    space.meter_factor =
        get_meter_factor_from_datum_proj(space.datum, space.projection, space.units);
    double scale = space.coordsystype == CST_LL ? M_PI / 180.0 : 1.0;
    double nan = vln_nanval();
    dscoord tl{std::atof(f[6].c_str()) * scale, std::atof(f[7].c_str()) * scale, nan};
    dscoord br{std::atof(f[8].c_str()) * scale, std::atof(f[9].c_str()) * scale, nan};
    bool multiple = f.size() > 10 && VLD_strncasecmp(f.back().c_str(), "MULTI", 5) == 0;
    if (choose && space.projection && std::strcmp(space.projection, "UNDEFINED") == 0 &&
        alg.coordspace && alg.coordspace->projection)
        vld::replace_text(space.projection, alg.coordspace->projection);
    int desired = space.coordsystype;
    if (space.coordsystype == CST_LL) {
        coordspace display{};
        cp_coordspace_noalloc(&display, &space);
        display.coordsystype = CST_EN;
        dscoord a{}, b{};
        if (cvt_any_coord_to_coord(&space, &tl, &display, &a) == 0 &&
            cvt_any_coord_to_coord(&space, &br, &display, &b) == 0) {
            tl = a;
            br = b;
        }
        ef_coordspace_contents(&space);
        space = display;
    }
    ef_coordspace_contents(&st.coordspace);
    st.coordspace = space;
    st.top_left = tl;
    st.bottom_right = br;
    st.desired_coordinate_type = desired;
    if (multiple) st.multiple_coordspaces = 1;
    st.file_time = 0;
    return VLD_create_fake_dshdr(&st.dshdr, &st.coordspace, &tl, &br);
}

/* ---------------------------------------------------------------- sharing a header */

bool same_name(const char *a, const char *b)
{
    return a && b && VLD_strcasecmp(a, b) == 0;
}

const stream *find_sharer(const algorithm &alg, const stream &st, const char *name)
{
    auto fits = [&](const stream *s) {
        return s && s != &st && !s->turned_off && s->dshdr && same_name(s->dataset, name);
    };
    if (fits(st.prev)) return st.prev;
    if (fits(st.next)) return st.next;
    for (const surface *s = alg.surfaces; s; s = s->next)
        for (const stream *o = s->first_stream; o; o = o->next)
            if (fits(o)) return o;
    return nullptr;
}

void borrow(stream &st, const stream &from, const char *name)
{
    cp_dshdr(&st.dshdr, from.dshdr);
    st.file_time = from.file_time;
    set_space(st.coordspace, &from.coordspace);
    st.top_left = from.top_left;
    st.bottom_right = from.bottom_right;
    st.multiple_coordspaces = from.multiple_coordspaces;
    st.desired_coordinate_type = from.desired_coordinate_type;
    vld::replace_text(st.dataset, name);
}

/* Puts the header set aside back in the cache, dropping what is there. */
void restore(stream &st, dshdr *kept)
{
    if (!kept) return;
    ef_dshdr(st.dshdr);
    st.dshdr = kept;
}

}  // namespace

/* ---------------------------------------------------------------- exported */

int setup_extents_from_dsh(const dshdr *header, dscoord *top_left, dscoord *bottom_right)
{
    if (!header) return VLD_setup_error(VLD_ERR_NULL_DSHDR);
    if (!top_left || !bottom_right)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    if (header->data_type != DT_Raster) {
        *top_left = header->info.v.extents.top_left;
        *bottom_right = header->info.v.extents.bottom_right;
        return 0;
    }
    const rasterinfo &r = header->info.r;
    int status = cvt_cell_to_coord(header, 0.0, 0.0, top_left);
    if (!status) status = cvt_cell_to_coord(header, r.nr_cells, r.nr_lines, bottom_right);
    return status;
}

int setup_layer_cspace_and_extents(algorithm *alg, stream *layer, int ignored, const char *name,
                                   int share)
{
    return setup_layer_cspace_and_extents_ex(alg, layer, ignored, name, share, 1);
}

int setup_layer_cspace_and_extents_ex(algorithm *alg, stream *layer, int, const char *name_in,
                                      int share, int reproject)
{
    if (!alg || !layer) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    std::string name_copy = name_in ? name_in : "";
    const char *name = name_copy.c_str();
    stream &st = *layer;
    dshdr *kept = nullptr;
    if (st.dshdr && !same_name(st.dataset, name)) {
        kept = st.dshdr;
        st.dshdr = nullptr;
    }
    if (st.dshdr && st.multiple_coordspaces &&
        check_2_regs(alg->coordspace, &st.coordspace, 1) != 0) {
        kept = st.dshdr;
        st.dshdr = nullptr;
        share = 0;
    }
    int status = 0;
    if (st.dshdr) {
        if (!st.multiple_coordspaces && !(is_link(st) && !known_extent(st)))
            status = settle_extents(*alg, st, reproject);
    } else {
        if (share && !is_link(st))
            if (const stream *from = find_sharer(*alg, st, name)) {
                borrow(st, *from, name);
                status = settle_extents(*alg, st, reproject);
            }
        if (!status && !st.dshdr) {
            if (is_link(st) && !known_extent(st)) {
                status = ask_link_program(*alg, st, name);
                if (!status) vld::replace_text(st.dataset, name);
            } else {
                status = open_layer_header(*alg, st, name);
                if (!status) status = settle_extents(*alg, st, reproject);
            }
        }
    }
    if (status) {
        restore(st, kept);
        return status;
    }
    if (!st.dshdr) {
        restore(st, kept);
        return VLD_setup_error(VLD_ERR_CANNOT_OPEN_FILE, name);
    }
    ef_dshdr(kept);
    algorithm *inner = st.dshdr->algorithm;
    if (inner && inner->enforce_aspect >= 1 && inner->enforce_aspect <= 3)
        inner->enforce_aspect = 0;
    return 0;
}

int vld::setup_layers(algorithm *alg)
{
    for (surface *s = alg->surfaces; s; s = s->next) {
        if (s->turned_off) continue;
        for (stream *st = s->first_stream; st; st = st->next) {
            if (st->turned_off) continue;
            // A layer without a dataset has nothing to set up yet.
            if (!is_link(*st) && vld::empty_text(st->dataset)) continue;
            int status = setup_layer_cspace_and_extents_ex(alg, st, 0, st->dataset, 1, 1);
            if (status) return status;
            if (!is_link(*st) && st->dshdr && st->dshdr->data_type == DT_Raster)
                VLD_merge_new_d_with_f(&st->formula, st->dshdr);
            if (st->dshdr) inherit_dpi(st->dshdr->algorithm, *alg);
        }
    }
    return 0;
}

/* The band of a formula argument: the band record it names, when the dataset
 * has one like it; else its band number, when the dataset has that band; else
 * the first band. */
int VLD_merge_new_d_with_f(formula *f, const dshdr *header)
{
    if (!f) return VLD_setup_error(VLD_ERR_NULL_FORMULA);
    if (!header) return VLD_setup_error(VLD_ERR_NULL_DSHDR);
    if (header->data_type != DT_Raster) return VLD_setup_error(VLD_ERR_RASTER_REQUIRED_HERE);
    const rasterinfo &r = header->info.r;
    for (int32_t i = 0; f->args && i < f->nr_args; i++) {
        formulaarg &a = f->args[i];
        int band = -1;
        if (a.band_id && r.bandids)
            for (int32_t b = 0; b < r.nr_bands && band < 0; b++) {
                const bandid &id = r.bandids[b];
                auto same = [](const char *x, const char *y) {
                    return VLD_strcasecmp(x ? x : "", y ? y : "") == 0;
                };
                if (same(id.value, a.band_id->value) && same(id.units, a.band_id->units)) band = b;
            }
        if (band < 0 && a.band_number) {
            int n = std::atoi(a.band_number);
            if (n >= 1 && n <= r.nr_bands) band = n - 1;
        }
        if (band < 0) band = 0;
        char text[16];
        std::snprintf(text, sizeof text, "%d", band + 1);
        vld::replace_text(a.band_number, text);
    }
    return 0;
}

int adjust_for_aspect(algorithm *alg, double dpi_x, double dpi_y)
{
    if (!alg) return VLD_setup_error(VLD_ERR_NO_ALG);
    if (!alg->top_left || !alg->bottom_right)
        return VLD_setup_error(VLD_ERR_ALG_COORD_MISSING, "topleft");
    vld::AspectFrame frame{};
    frame.space = alg->coordspace;
    frame.top_left = *alg->top_left;
    frame.bottom_right = *alg->bottom_right;
    frame.output_width = alg->output_width;
    frame.output_height = alg->output_height;
    frame.planimetric = alg->view_mode == VM_Planimetric2D;
    frame.enforce_aspect = alg->enforce_aspect != 0;
    frame.dataset_surface = alg->surfaces && alg->surfaces->color_mode == CM_DATASET;
    frame.canvas_top_left = alg->canvas_top_left;
    frame.canvas_bottom_right = alg->canvas_bottom_right;
    frame.adjusted_bottom_right =
        alg->adjusted_bottom_right ? *alg->adjusted_bottom_right : *alg->bottom_right;
    int status = vld::aspect_fit(frame, dpi_x, dpi_y);
    if (status) return status;
    alg->canvas_width = frame.canvas_width;
    alg->canvas_height = frame.canvas_height;
    alg->canvas_top_left = frame.canvas_top_left;
    alg->canvas_bottom_right = frame.canvas_bottom_right;
    if (!alg->adjusted_bottom_right)
        alg->adjusted_bottom_right = static_cast<dscoord *>(malloc_or_die(sizeof(dscoord)));
    *alg->adjusted_bottom_right = frame.adjusted_bottom_right;
    return 0;
}
