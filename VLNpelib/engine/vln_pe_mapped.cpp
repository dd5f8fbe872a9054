/*
 * vln_pe_mapped.cpp: the reader behind the engine's dataset inputs.
 *
 * vds_mmopen opens a rectangle of a dataset by its header, vds_mmread gives
 * any line of it in the caller's cell type with the valid runs of each band,
 * vds_mmclose ends it. A plain raster is read directly (mode 0) through the
 * raster's line reader, which runs at the rate of a plain copy from the page
 * cache; that is the path the engine takes. The valid runs come from the
 * cells, by the engine's one routine for the file's cell type. A dataset
 * whose header holds an algorithm is read through an inner virtual dataset,
 * which only goes forwards: a line behind it opens it again from that line.
 * A header in another coordinate space than its source is rectified on the
 * fly (mode 2): each cell's centre is taken to the source through the
 * coordinate engine and read there, nearest or bilinear.
 * The runs of a read stay the handle's until its next read.
 */
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "vld_coords.h"
#include "vln_nodes.h"
#include "vln_vds.h"

using namespace vln_pe;

namespace {

// What the handle keeps beside its documented fields.
struct MappedState {
    rlseg_pool pool{};
    std::vector<rlseg *> runs;  // one list per band, the last read's
    rlsegs_routine routine = nullptr;
    alignas(8) unsigned char null_cell[8] = {};  // the null value in the file's type
    std::vector<rlseg *> inner_runs;             // the inner virtual dataset's, per band
    std::vector<void *> source_lines;            // a resampled view's source line, per band
    // A warped read's working memory, made at the open: positions and
    // validity of the line's cells, the spans of the position search, and a
    // cell of each band for each of four corners and the cell itself.
    std::vector<double> xs, ys;
    std::vector<unsigned char> mask;
    std::vector<std::pair<int, int>> spans;
    std::vector<void *> values, corners;
    std::vector<unsigned char> corner_cells, own;
};

MappedState *state_of(Vds *h)
{
    return static_cast<MappedState *>(h->rlseg_info);
}

void free_handle(Vds *h)
{
    if (h == nullptr) return;
    if (h->raster != nullptr) {
        if (h->mode == 2)
            ec_raster_point(h->raster);  // its point cache goes too
        else
            ec_raster(h->raster);
        std::free(h->raster);
    }
    vds_close(&h->inner_vds);
    if (MappedState *s = state_of(h)) {
        for (void *l : s->source_lines) std::free(l);
        rlseg_pool_release(&s->pool);
        delete s;
    }
    for (int b = 0; b < h->nr_bands; b++) {
        if (h->lines != nullptr) std::free(h->lines[b]);  // only the handle's own lines
        if (h->conv_lines != nullptr) std::free(h->conv_lines[b]);
    }
    std::free(h->lines);
    std::free(h->conv_lines);
    std::free(h->bands);
    std::free(h->error_text);
    std::free(h);
}

/* The handle's fields that every mode shares. */
Vds *new_handle(dshdr *dsh, int first_line, int nr_lines, int first_cell, int nr_cells,
                const int *bands, int nr_bands, int out_type)
{
    auto *h = static_cast<Vds *>(malloc_or_die(sizeof(Vds)));
    std::memset(h, 0, sizeof *h);
    h->dsh = dsh;
    h->first_line = first_line;
    h->nr_lines = nr_lines;
    h->first_cell = first_cell;
    h->nr_cells = nr_cells;
    h->nr_bands = nr_bands;
    h->out_type = out_type;
    h->file_type = dsh->info.r.cell_type;
    h->bands = static_cast<int32_t *>(malloc_or_die(sizeof(int32_t) * nr_bands));
    for (int b = 0; b < nr_bands; b++) h->bands[b] = bands[b];
    auto *state = new MappedState;
    state->runs.assign(static_cast<size_t>(nr_bands), nullptr);
    state->inner_runs.assign(static_cast<size_t>(nr_bands), nullptr);
    h->rlseg_info = state;
    h->lines = static_cast<void **>(malloc_or_die(sizeof(void *) * nr_bands));
    std::memset(h->lines, 0, sizeof(void *) * nr_bands);
    return h;
}

void make_conversion_lines(Vds *h)
{
    h->conv_lines = static_cast<void **>(malloc_or_die(sizeof(void *) * h->nr_bands));
    const size_t bytes = static_cast<size_t>(h->nr_cells) * celltypesize(h->file_type) + 8;
    for (int b = 0; b < h->nr_bands; b++) h->conv_lines[b] = malloc_or_die(bytes);
}

/* The window of a resampled view's source that the rectangle covers, by
 * coordinate, as the engine's read window takes it: whole cells from the
 * nearest edge inwards, within the source. */
int setup_view_window(Vds *h)
{
    const dshdr *dsh = h->dsh, *src = dsh->source_dsh;
    h->cell_step = static_cast<double>(src->info.r.nr_cells) / dsh->info.r.nr_cells;
    h->line_step = static_cast<double>(src->info.r.nr_lines) / dsh->info.r.nr_lines;
    dscoord tl, br;
    double x0, y0, x1, y1;
    if (int status = cvt_cell_to_coord(dsh, h->first_cell, h->first_line, &tl)) return status;
    if (int status = cvt_cell_to_coord(dsh, static_cast<double>(h->first_cell) + h->nr_cells,
                                       static_cast<double>(h->first_line) + h->nr_lines, &br))
        return status;
    if (int status = cvt_coord_to_cell(src, &tl, &x0, &y0)) return status;
    if (int status = cvt_coord_to_cell(src, &br, &x1, &y1)) return status;
    auto window = [](double a, double b, int size, int32_t *first, int32_t *count) {
        if (a > b) std::swap(a, b);
        const int lo = std::max(0, static_cast<int>(std::floor(a + 0.5)));
        const int hi = std::min(size, static_cast<int>(std::floor(b + 0.5)));
        *first = std::min(lo, size - 1);
        *count = std::max(1, hi - *first);
    };
    window(x0, x1, src->info.r.nr_cells, &h->src_first_cell, &h->src_nr_cells);
    window(y0, y1, src->info.r.nr_lines, &h->src_first_line, &h->src_nr_lines);
    return 0;
}

/* Line `line` of a resampled view: the source line under it, rounded, and of
 * that line the cell under each cell, in the file's type, into conv_lines. */
int read_view_line(Vds *h, int line)
{
    MappedState *s = state_of(h);
    const int last_line = h->src_first_line + h->src_nr_lines - 1;
    int source_line = static_cast<int>(line * h->line_step + h->src_first_line + 0.5);
    source_line = std::min(source_line, last_line);
    if (int status = h->raster->read(h->raster, s->source_lines.data(), source_line, 1))
        return status;
    const size_t size = celltypesize(h->file_type);
    for (int b = 0; b < h->nr_bands; b++) {
        const auto *from = static_cast<const char *>(s->source_lines[b]);
        auto *to = static_cast<char *>(h->conv_lines[b]);
        for (int c = 0; c < h->nr_cells; c++) {
            int at = static_cast<int>(c * h->cell_step + 0.5);
            at = std::min(at, h->src_nr_cells - 1);
            std::memcpy(to + c * size, from + static_cast<size_t>(at) * size, size);
        }
    }
    return 0;
}

/* Opens the inner virtual dataset over the whole rectangle, its reads
 * starting at line `from`: the lines are those of a read from the top. */
int open_inner_from(Vds *h, int from)
{
    MappedState *s = state_of(h);
    vds_close(&h->inner_vds);
    std::fill(s->inner_runs.begin(), s->inner_runs.end(), nullptr);  // went with the handle
    char *errmsg = nullptr;
    h->inner_vds = vds_vopen(h->dsh, h->first_line, h->nr_lines, h->first_cell, h->nr_cells,
                             h->bands, h->nr_bands, &errmsg);
    if (h->inner_vds == nullptr) {
        const int status = VLD_setup_vds_error("%s", errmsg != nullptr ? errmsg : "");
        safe_free(errmsg);
        return status;
    }
    if (from > 0)
        if (int status = vds_set_line_range(h->inner_vds, from, h->nr_lines - from)) return status;
    h->next_line = from;
    return 0;
}

/* Lines further ahead than this are reached by a new start rather than by
 * reading the lines between. */
constexpr int inner_skip_reopen = 32;

int open_inner(Vds **handle, dshdr *dsh, int first_line, int nr_lines, int first_cell, int nr_cells,
               const int *bands, int nr_bands, int out_type)
{
    Vds *h = new_handle(dsh, first_line, nr_lines, first_cell, nr_cells, bands, nr_bands, out_type);
    h->mode = 0;
    if (int status = open_inner_from(h, 0)) {
        free_handle(h);
        return status;
    }
    if (out_type != h->file_type) make_conversion_lines(h);
    *handle = h;
    return 0;
}

/* Line `line` of the rectangle from the inner virtual dataset. */
int read_inner(Vds *h, void **targets, int line)
{
    MappedState *s = state_of(h);
    if (line < h->next_line || line > h->next_line + inner_skip_reopen)
        if (int status = open_inner_from(h, line)) return status;
    while (h->next_line <= line) {
        const int status = vds_read(h->inner_vds, targets, s->inner_runs.data(), 0);
        if (status != 0) {
            const char *text = status == 1 ? vds_error_text(h->inner_vds) : nullptr;
            // A failure of the engine's own (a dataset that can't be opened)
            // leaves its text in the inner handle's context instead.
            if (status == 1 && (text == nullptr || *text == '\0'))
                text = h->inner_vds->context->error_text;
            return VLD_setup_vds_error(
                "%s", text != nullptr && *text != '\0' ? text : "The virtual dataset ended early");
        }
        h->next_line++;
    }
    return 0;
}

/* ---------------------------------------------------------------- rectified on the fly */

/* The position, in cells of the source, of the centre of cell (x, y) of the
 * view: its coordinate taken across to the source's space (degrees for a
 * geodetic source), then to the source's cells. */
bool source_position(Vds *h, double x, double y, double *px, double *py)
{
    dshdr *view = h->dsh;
    const dshdr *src = view->source_dsh;
    dscoord c{};
    if (cvt_cell_to_any_coord(view, x + 0.5, y + 0.5, &src->coordspace, &c) != 0) return false;
    if (src->coordspace.coordsystype == CST_LL && src->coordspace.projection != nullptr &&
        VLD_strcasecmp(src->coordspace.projection, "GEODETIC") == 0) {
        c.x *= 180.0 / M_PI;
        c.y *= 180.0 / M_PI;
    }
    return cvt_coord_to_cell(src, &c, px, py) == 0;
}

/* The source positions of the cells of view line `line`: each one computed
 * or, with `fast`, by halving: a span's middle is computed, and where it lies
 * within 0.05 of a cell of the straight line between the span's ends, the
 * span is filled along that line. The conversions are the costly part of a
 * rectified line, and a smooth warp needs only a handful. */
bool line_positions(Vds *h, int line, bool fast)
{
    MappedState *s = state_of(h);
    std::vector<double> &xs = s->xs, &ys = s->ys;
    const int n = h->nr_cells;
    const double y = static_cast<double>(h->first_line) + line;
    auto at = [&](int i) {
        return source_position(h, static_cast<double>(h->first_cell) + i, y, &xs[i], &ys[i]);
    };
    if (!fast) {
        for (int i = 0; i < n; i++)
            if (!at(i)) return false;
        return true;
    }
    if (!at(0) || (n > 1 && !at(n - 1))) return false;
    std::vector<std::pair<int, int>> &spans = s->spans;
    spans.assign(1, {0, n - 1});
    while (!spans.empty()) {
        auto [a, b] = spans.back();
        spans.pop_back();
        if (b - a < 2) continue;  // no cell between the ends
        const int m = (a + b) / 2;
        if (!at(m)) return false;
        const double t = static_cast<double>(m - a) / (b - a);
        if (std::fabs(xs[m] - (xs[a] + (xs[b] - xs[a]) * t)) <= 0.05 &&
            std::fabs(ys[m] - (ys[a] + (ys[b] - ys[a]) * t)) <= 0.05) {
            for (int i = a + 1; i < b; i++) {
                const double u = static_cast<double>(i - a) / (b - a);
                xs[i] = xs[a] + (xs[b] - xs[a]) * u;
                ys[i] = ys[a] + (ys[b] - ys[a]) * u;
            }
        } else {
            spans.push_back({a, m});
            spans.push_back({m, b});
        }
    }
    return true;
}

/* Writes the blend of four cells of each band, in the file's type. */
void blend_cell(int type, void *const *corners, double fx, double fy, void *to)
{
    const double top =
        cell_value(type, corners[0], 0) * (1 - fx) + cell_value(type, corners[1], 0) * fx;
    const double bottom =
        cell_value(type, corners[2], 0) * (1 - fx) + cell_value(type, corners[3], 0) * fx;
    convtype1(top * (1 - fy) + bottom * fy, type, to);
}

/* View line `line` of a header in another space than its source: each cell
 * the source's nearest cell (positions rounded with rint), or with bit 2 of
 * `flags` the blend of the four around it; cells outside the source are the
 * null value, and out of the runs. Bit 4 asks for the fast position search. */
int read_warped_line(Vds *h, void **targets, int line, int flags)
{
    MappedState *s = state_of(h);
    const dshdr *src = h->dsh->source_dsh;
    const int width = src->info.r.nr_cells, height = src->info.r.nr_lines;
    const int n = h->nr_cells, nb = h->nr_bands;
    const size_t size = celltypesize(h->file_type);
    if (!line_positions(h, line, (flags & 4) != 0))
        return VLD_setup_error(VLD_ERR_GEODETIC_TRANSFORM);
    const std::vector<double> &xs = s->xs, &ys = s->ys;
    std::fill(s->mask.begin(), s->mask.end(), 0);
    std::vector<void *> &values = s->values, &corners = s->corners;
    std::vector<unsigned char> &corner_cells = s->corner_cells, &own = s->own;
    for (int i = 0; i < n; i++) {
        const bool outside = !(xs[i] >= 0 && ys[i] >= 0 && xs[i] < width && ys[i] < height);
        if (outside) {
            for (int b = 0; b < nb; b++)
                std::memcpy(static_cast<char *>(targets[b]) + i * size, s->null_cell, size);
            continue;
        }
        int is_null = 0;
        if (!(flags & 2)) {
            NearestRounding nearest;
            int cx = static_cast<int>(std::rint(xs[i])), cy = static_cast<int>(std::rint(ys[i]));
            cx = std::min(cx, width - 1), cy = std::min(cy, height - 1);
            for (int b = 0; b < nb; b++) values[b] = static_cast<char *>(targets[b]) + i * size;
            if (int status = eg_raster_point_cache_ex(h->raster, values.data(), &is_null, cy, cx))
                return status;
        } else {
            // The four cells around the position, less half a cell.
            const double x = xs[i] - 0.5, y = ys[i] - 0.5;
            const double x0 = std::floor(x), y0 = std::floor(y);
            const double fx = x0 < 0 ? 0 : x - x0, fy = y0 < 0 ? 0 : y - y0;
            const int c0 = std::clamp(static_cast<int>(x0), 0, width - 1);
            const int l0 = std::clamp(static_cast<int>(y0), 0, height - 1);
            const int c1 = std::min(c0 + 1, width - 1), l1 = std::min(l0 + 1, height - 1);
            const int cells[4][2] = {{l0, c0}, {l0, c1}, {l1, c0}, {l1, c1}};
            for (int k = 0; k < 4; k++) {
                for (int b = 0; b < nb; b++) {
                    corners[k * nb + b] = corner_cells.data() + (k * nb + b) * 8;
                    values[b] = corners[k * nb + b];
                }
                int null_here = 0;
                if (int status = eg_raster_point_cache_ex(h->raster, values.data(), &null_here,
                                                          cells[k][0], cells[k][1]))
                    return status;
            }
            // A null in the cell under the position itself makes the cell null.
            for (int b = 0; b < nb; b++) values[b] = own.data() + b * 8;
            if (int status = eg_raster_point_cache_ex(h->raster, values.data(), &is_null,
                                                      std::min(static_cast<int>(ys[i]), height - 1),
                                                      std::min(static_cast<int>(xs[i]), width - 1)))
                return status;
            for (int b = 0; b < nb; b++) {
                void *four[4] = {corners[b], corners[nb + b], corners[2 * nb + b],
                                 corners[3 * nb + b]};
                blend_cell(h->file_type, four, fx, fy, static_cast<char *>(targets[b]) + i * size);
            }
        }
        s->mask[i] = is_null ? 0 : 1;
    }
    return 0;
}

/* The runs of the valid cells of the last warped line. */
rlseg *mask_runs(MappedState *s)
{
    rlseg *head = nullptr, **tail = &head;
    const int n = static_cast<int>(s->mask.size());
    for (int i = 0; i < n;) {
        if (!s->mask[i]) {
            i++;
            continue;
        }
        int j = i;
        while (j + 1 < n && s->mask[j + 1]) j++;
        *tail = pe_create_rlseg(&s->pool, i, j);
        tail = &(*tail)->next;
        i = j + 1;
    }
    return head;
}

}  // namespace

int vds_mmopen(Vds **handle, dshdr *dsh, int first_line, int nr_lines, int first_cell, int nr_cells,
               const int *bands, int nr_bands, int out_type)
{
    if (handle == nullptr)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Null argument to the mapped reader");
    *handle = nullptr;
    if (dsh == nullptr || bands == nullptr || nr_bands < 1)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Null argument to the mapped reader");
    if (dsh->data_type != DT_Raster)
        return VLD_setup_error(VLD_ERR_MESSAGE, "The dataset is not a raster");
    const dshdr *source = dsh->source_dsh;
    const bool resampled = (dsh->flags & DSHDR_FLAG_RESAMPLED) != 0;
    const bool warped =
        source != nullptr && !coordspaces_equal(&source->coordspace, &dsh->coordspace);
    if (dsh->algorithm != nullptr && !warped && !resampled)
        return open_inner(handle, dsh, first_line, nr_lines, first_cell, nr_cells, bands, nr_bands,
                          out_type);

    // A view with fewer cells or lines than its source reads the source's
    // lines, sampled; a flagged view of the same size reads as itself.
    const bool view = !resampled && source != nullptr &&
                      (source->info.r.nr_cells > dsh->info.r.nr_cells ||
                       source->info.r.nr_lines > dsh->info.r.nr_lines);

    Vds *h = new_handle(dsh, first_line, nr_lines, first_cell, nr_cells, bands, nr_bands, out_type);
    h->mode = warped ? 2 : view ? 1 : 0;
    MappedState *state = state_of(h);
    dshdr *opened = dsh;
    int win_first_line = first_line, win_lines = nr_lines, win_first_cell = first_cell,
        win_cells = nr_cells;
    if (warped) {
        // The whole source is open: a warp reads it in any order, cell by cell.
        opened = dsh->source_dsh;
        h->file_type = opened->info.r.cell_type;
        win_first_line = 0, win_lines = opened->info.r.nr_lines;
        win_first_cell = 0, win_cells = opened->info.r.nr_cells;
        const size_t cells = static_cast<size_t>(nr_cells), nb = static_cast<size_t>(nr_bands);
        state->xs.assign(cells, 0.0);
        state->ys.assign(cells, 0.0);
        state->mask.assign(cells, 0);
        state->spans.reserve(64);
        state->values.assign(nb, nullptr);
        state->corners.assign(4 * nb, nullptr);
        state->corner_cells.assign(4 * nb * 8, 0);
        state->own.assign(nb * 8, 0);
    } else if (view) {
        if (int status = setup_view_window(h)) {
            free_handle(h);
            return status;
        }
        opened = dsh->source_dsh;
        h->file_type = opened->info.r.cell_type;
        win_first_line = h->src_first_line, win_lines = h->src_nr_lines;
        win_first_cell = h->src_first_cell, win_cells = h->src_nr_cells;
    }
    get_setup_rlsegs_info(h->file_type, opened->info.r.has_null, opened->info.r.null_value,
                          &state->routine, state->null_cell);

    std::vector<std::string> texts(static_cast<size_t>(nr_bands));
    std::vector<char *> band_strings(static_cast<size_t>(nr_bands));
    for (int b = 0; b < nr_bands; b++) {
        texts[b] = std::to_string(static_cast<long long>(bands[b]) + 1);
        band_strings[b] = texts[b].data();
    }
    h->raster = static_cast<rasterfile *>(malloc_or_die(sizeof(rasterfile)));
    std::memset(h->raster, 0, sizeof(rasterfile));
    h->raster->fd = -1;
    if (int status = eo_raster(h->raster, opened, win_first_line, win_lines, win_first_cell,
                               win_cells, RASTER_BAND_LIST, nr_bands, band_strings.data())) {
        std::free(h->raster);
        h->raster = nullptr;
        free_handle(h);
        return status;
    }
    if (view) {
        // The source's line of each band, before its cells are sampled.
        state->source_lines.assign(static_cast<size_t>(nr_bands), nullptr);
        const size_t bytes = static_cast<size_t>(win_cells) * celltypesize(h->file_type) + 8;
        for (void *&l : state->source_lines) l = malloc_or_die(bytes);
    }
    if (out_type != h->file_type || view || warped) make_conversion_lines(h);
    *handle = h;
    return 0;
}

int vds_mmread(Vds *h, void **lines, rlseg **rlsegs, int line, int flags)
{
    if (h == nullptr || lines == nullptr)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Null argument to the mapped reader");
    if (line < 0 || line >= h->nr_lines) return VLD_setup_error(VLD_ERR_LINES_OUTSIDE_DATASET);
    MappedState *s = state_of(h);
    const int out_bytes = celltypesize(h->out_type);
    for (int b = 0; b < h->nr_bands; b++) {
        if (lines[b] != nullptr) continue;
        if (h->lines[b] == nullptr) {
            h->lines[b] = malloc_or_die(static_cast<size_t>(h->nr_cells) * out_bytes + 8);
        }
        lines[b] = h->lines[b];
    }
    void **targets = h->conv_lines != nullptr ? h->conv_lines : lines;
    if (h->inner_vds != nullptr || h->raster == nullptr) {
        if (int status = read_inner(h, targets, line)) return status;
        for (int b = 0; b < h->nr_bands; b++) {
            if (rlsegs != nullptr) rlsegs[b] = s->inner_runs[b];
            if (h->conv_lines != nullptr)
                convtype_cells(h->file_type, h->conv_lines[b], h->out_type, lines[b], 0,
                               h->nr_cells);
        }
        return 0;
    }
    if (h->mode == 2) {
        if (int status = read_warped_line(h, targets, line, flags)) return status;
        for (int b = 0; b < h->nr_bands; b++) {
            pe_free_rlsegs(&s->pool, &s->runs[b]);
            if (rlsegs != nullptr) rlsegs[b] = s->runs[b] = mask_runs(s);
            convtype_cells(h->file_type, h->conv_lines[b], h->out_type, lines[b], 0, h->nr_cells);
        }
        return 0;
    }
    if (h->mode == 1) {
        if (int status = read_view_line(h, line)) return status;
    } else if (int status = h->raster->read(h->raster, targets, h->first_line + line, 1)) {
        return status;
    }
    for (int b = 0; b < h->nr_bands; b++) {
        pe_free_rlsegs(&s->pool, &s->runs[b]);
        if (rlsegs != nullptr) {
            s->runs[b] = s->routine != nullptr
                             ? s->routine(&s->pool, targets[b], h->nr_cells, s->null_cell)
                             : nullptr;
            rlsegs[b] = s->runs[b];
        }
        if (h->conv_lines != nullptr)
            convtype_cells(h->file_type, h->conv_lines[b], h->out_type, lines[b], 0, h->nr_cells);
    }
    return 0;
}

int vds_mmclose(Vds **handle)
{
    if (handle == nullptr || *handle == nullptr) return 0;
    free_handle(*handle);
    *handle = nullptr;
    return 0;
}
