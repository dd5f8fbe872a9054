/*
 * vln_vds_doc.cpp: fitting an algorithm to a view before it is opened.
 *
 * Three preparations that a client runs on its own document between editing
 * and an open: the pruning of surfaces and layers that a 3D renderer can't
 * show (vds_setup_alg_for_de), the fitting of output size, page and resolution
 * to a window or a printed page (vln_rethink_alg), and the output size of a 3D
 * view over a dataset (vds_calc_3d_alg_output_size). They change only the
 * document's own fields and build no tree.
 */
#include <cmath>

#include "vld_alg.h"
#include "vld_coords.h"
#include "vln_vds.h"

namespace {

/* ---------------------------------------------------------------- the selection */

/* Takes the document's selections off a stream about to be freed. When it was
 * the current stream, `heir` becomes current and the selected inputs are
 * dropped. The record holds no selected transform, kernel or formula
 * position, so nothing else follows the heir. */
void deselect_stream(algorithm *alg, const stream *gone, stream *heir)
{
    if (alg->current_stream == gone) {
        alg->current_stream = heir;
        alg->intensity_input = alg->height_input = nullptr;
        alg->intensity_streaminput = alg->height_streaminput = nullptr;
    }
    if (alg->intensity_input == gone) {
        alg->intensity_input = nullptr;
        alg->intensity_streaminput = nullptr;
    }
    if (alg->height_input == gone) {
        alg->height_input = nullptr;
        alg->height_streaminput = nullptr;
    }
}

/* Unlinks and frees a stream of `s`; the current stream moves to the
 * previous one, else the next, else the surface's first. */
void remove_stream(algorithm *alg, surface *s, stream *st)
{
    stream *prev = st->prev, *next = st->next;
    if (prev)
        prev->next = next;
    else
        s->first_stream = next;
    if (next) next->prev = prev;
    st->prev = st->next = nullptr;
    deselect_stream(alg, st, prev ? prev : next ? next : s->first_stream);
    ef_stream(st);
}

/* Unlinks and frees a surface that has a neighbour. A current surface hands
 * the selection to the next surface, else the previous, with its first
 * stream; the selected inputs go with it. */
void remove_surface(algorithm *alg, surface *s)
{
    if (alg->current_surface == s) {
        alg->intensity_input = alg->height_input = nullptr;
        alg->intensity_streaminput = alg->height_streaminput = nullptr;
    }
    delete_surface(alg, s);
}

/* ---------------------------------------------------------------- pruning for a 3D view */

bool has_neighbour(const surface *s)
{
    return s->prev != nullptr || s->next != nullptr;
}

bool stream_unwanted(const algorithm *alg, const surface *s, const stream *st)
{
    return st->turned_off || !check_stream_type(s->color_mode, st) ||
           (alg->view_mode == VM_Planimetric2D && st->type == ST_Height);
}

/* Removes the layers of `s` that the view can't show. A surface's last layer
 * stays, turned off, and ends the walk. */
void prune_streams(algorithm *alg, surface *s)
{
    for (stream *st = s->first_stream; st != nullptr;) {
        stream *next = st->next;
        if (stream_unwanted(alg, s, st)) {
            if (nr_streams_in_surface(s) == 1) {
                st->turned_off = 1;
                return;
            }
            remove_stream(alg, s, st);
        }
        st = next;
    }
}

bool has_active_height(const surface *s)
{
    for (const stream *st = s->first_stream; st; st = st->next)
        if (!st->turned_off && st->type == ST_Height) return true;
    return false;
}

bool has_other_active(const surface *s, const stream *than)
{
    for (const stream *st = s->first_stream; st; st = st->next)
        if (st != than && !st->turned_off) return true;
    return false;
}

/* In a 3D view an Intensity layer gives the surface its heights when nothing
 * else does, as long as another layer is left to colour it. */
void intensity_to_height(const algorithm *alg, surface *s)
{
    if (alg->view_mode == VM_Planimetric2D || s->color_mode == CM_HSI) return;
    for (stream *st = s->first_stream; st; st = st->next) {
        if (st->turned_off || st->type != ST_Intensity) continue;
        if (!s->turned_off && has_active_height(s)) continue;
        if (!has_other_active(s, st)) continue;
        st->type = ST_Height;
        st->do_static_shade = 0;
    }
}

/* ---------------------------------------------------------------- fitting to a window or page */

bool is_3d(const algorithm *alg)
{
    return alg->view_mode != VM_Planimetric2D;
}

/* A size in pixels, truncated; a size that is no number of pixels (from a
 * window or a ratio of 0) is 0. */
int32_t truncated(double pixels)
{
    return std::isfinite(pixels) && std::fabs(pixels) < 2147483647.0 ? static_cast<int32_t>(pixels)
                                                                     : 0;
}

/* The output of a 3D view keeps the window aspect of its 3D settings and
 * fills the window in one direction. */
void fit_3d(algorithm *alg, int width, int height, double dpi_x, double dpi_y)
{
    const double ratio = alg->d3info.window_aspect_ratio;
    const double window = (width / dpi_x) / (height / dpi_y);
    const double dpi_ratio = dpi_y / dpi_x;
    if (ratio < window) {
        alg->output_height = height;
        alg->output_width = truncated(height * ratio / dpi_ratio);
    } else {
        alg->output_width = width;
        alg->output_height = truncated(width / ratio * dpi_ratio);
    }
    alg->dots_per_inch_across = dpi_x;
    alg->dots_per_inch_down = dpi_y;
}

bool same_corner(const dscoord &a, const dscoord &b)
{
    return a.x == b.x && a.y == b.y;
}

/* A page that follows the image: the contents fill the page across or down,
 * from its top-left corner, at the scale that makes them fit, and the border
 * at the bottom or right takes the rest. The page travels with the image.
 * True if the page's corners moved. */
bool follow_image(algorithm *alg, const extents &contents)
{
    pagesize &page = alg->page;
    if (!(page.page_width > 0.0) || !(page.page_height > 0.0)) return false;
    double cw = 0.0, ch = 0.0;
    if (page_check_get_extents(alg, &cw, &ch, 1) != 0 || !(cw > 0.0) || !(ch > 0.0)) return false;
    const pagesize before = page;
    const double pw = page.page_width * 25.4, ph = page.page_height * 25.4;  // millimetres
    double scale;
    if (cw / ch >= pw / ph) {
        scale = cw * 1000.0 / pw;
        if (ch * 1000.0 / scale > ph) scale = ch * 1000.0 / ph;
        page.top_border = page.left_border = page.right_border = 0.0;
        page.bottom_border = page.page_height - ch * 1000.0 / scale / 25.4;
    } else {
        scale = ch * 1000.0 / ph;
        if (cw * 1000.0 / scale > pw) scale = cw * 1000.0 / pw;
        page.top_border = page.bottom_border = page.left_border = 0.0;
        page.right_border = page.page_width - cw * 1000.0 / scale / 25.4;
    }
    page.scale = scale;

    const dscoord &tl = contents.top_left, &br = contents.bottom_right;
    page_set_rotated_page_from_delta(alg, tl.x - before.content_extents.top_left.x,
                                     tl.y - before.content_extents.top_left.y);
    page.content_extents = contents;
    // From its top-left, the page spans as much more than the contents as the
    // paper is larger than the contents printed on it.
    const double across = pw / (cw * 1000.0 / scale), down = ph / (ch * 1000.0 / scale);
    dscoord &corner = page.page_extents.bottom_right;
    corner.x = page.page_extents.top_left.x + (br.x - tl.x) * across;
    corner.y = page.page_extents.top_left.y + (br.y - tl.y) * down;
    return !same_corner(page.page_extents.top_left, before.page_extents.top_left) ||
           !same_corner(page.page_extents.bottom_right, before.page_extents.bottom_right);
}

/* How much finer than the window's resolution a page of fixed size must be
 * drawn for the page to fit the window. Anything but a positive finite
 * number counts as 1. */
double fixed_page_factor(algorithm *alg, const extents &contents, int width, int height,
                         double dpi_x, double dpi_y)
{
    const pagesize &page = alg->page;
    const double window_w = width / dpi_x, window_h = height / dpi_y;  // inches
    const bool rotated = alg->coordspace != nullptr && alg->coordspace->rotation != 0.0;
    double cw, ch;
    if (rotated) {
        if (alg->canvas_width == 0 || alg->canvas_height == 0) {
            const int32_t enforce = alg->enforce_aspect;
            alg->enforce_aspect = 1;
            adjust_for_aspect(alg, dpi_x, dpi_y);
            alg->enforce_aspect = enforce;
        }
        cw = alg->canvas_width;
        ch = alg->canvas_height;
        if (cw == 0.0 || ch == 0.0) {
            cw = width;
            ch = height;
        }
    } else {
        cw = std::fabs(alg->bottom_right->x - alg->top_left->x);
        ch = std::fabs(alg->bottom_right->y - alg->top_left->y);
    }
    const extents &on_page = page.page_extents;
    double factor;
    if (window_w / window_h <= cw / ch) {
        if (rotated) {
            double ew = 0.0, eh = 0.0;
            page_check_get_extents(alg, &ew, &eh, 1);
            factor =
                (page.page_width - page.left_border - page.right_border) / window_w * (cw / ew);
        } else {
            factor = page.page_width / window_w *
                     (std::fabs(contents.bottom_right.x - contents.top_left.x) /
                      std::fabs(on_page.bottom_right.x - on_page.top_left.x));
        }
    } else {
        if (rotated) {
            double ew = 0.0, eh = 0.0;
            page_check_get_extents(alg, &ew, &eh, 1);
            factor =
                (page.page_height - page.top_border - page.bottom_border) / window_h * (ch / eh);
        } else {
            factor = page.page_height / window_h *
                     (std::fabs(contents.bottom_right.y - contents.top_left.y) /
                      std::fabs(on_page.bottom_right.y - on_page.top_left.y));
        }
    }
    return factor > 0.0 && std::isfinite(factor) ? factor : 1.0;
}

}  // namespace

/* ---------------------------------------------------------------- exported */

void vds_setup_alg_for_de(algorithm *alg)
{
    if (alg == nullptr) return;
    const bool drop_hidden = alg->view_mode == VM_Perspective3D || alg->view_mode == VM_Flythrough;
    for (surface *s = alg->surfaces; s != nullptr;) {
        surface *next = s->next;
        if (drop_hidden && s->turned_off && has_neighbour(s)) {
            remove_surface(alg, s);
            s = next;
            continue;
        }
        prune_streams(alg, s);
        intensity_to_height(alg, s);
        if (has_neighbour(s) && first_active_stream_in_surface(s) == nullptr)
            remove_surface(alg, s);
        s = next;
    }
}

int vln_rethink_alg(algorithm *alg, int width, int height, double dpi_x, double dpi_y)
{
    if (alg == nullptr) return 0;
    if (is_3d(alg)) {
        fit_3d(alg, width, height, dpi_x, dpi_y);
        return 1;
    }
    bool changed = false;
    if (width != alg->output_width || height != alg->output_height) {
        alg->output_width = width;
        alg->output_height = height;
        changed = true;
    }
    extents contents{};
    const bool have_contents = page_get_rotated_contents_from_alg(alg, &contents) == 0;
    const pagesize &page = alg->page;
    double factor = 1.0;
    if (have_contents && page.page_constraint == PC_None) {
        if (follow_image(alg, contents)) changed = true;
    } else if (have_contents && page.page_width > 0.0 && page.page_height > 0.0) {
        factor = fixed_page_factor(alg, contents, width, height, dpi_x, dpi_y);
    }
    alg->dots_per_inch_across = dpi_x / factor;
    alg->dots_per_inch_down = dpi_y / factor;
    return changed ? 1 : 0;
}

int vds_calc_3d_alg_output_size(const algorithm *alg, const dshdr *dsh, double *width,
                                double *height)
{
    if (alg == nullptr || dsh == nullptr || alg->view_mode == VM_Planimetric2D) return 0;
    double tl_x, tl_y, br_x, br_y;
    if (cvt_coord_to_cell(dsh, alg->top_left, &tl_x, &tl_y) != 0)
        return VLD_setup_error(VLD_ERR_INTERNAL, "cvt_coord_to_cell() failed on TL coord");
    if (cvt_coord_to_cell(dsh, alg->bottom_right, &br_x, &br_y) != 0)
        return VLD_setup_error(VLD_ERR_INTERNAL, "cvt_coord_to_cell() failed on BR coord");
    // Only the lines count: the width follows from the 3D window's aspect.
    const double lines = br_y - tl_y;
    if (height != nullptr) *height = lines;
    if (width != nullptr) *width = lines * alg->d3info.window_aspect_ratio;
    return 0;
}
