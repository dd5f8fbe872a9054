/*
 * vld_region_mask.cpp: a region's extents, and its polygons turned into runs.
 *
 * The rings of a polygon region are filled by the even-odd rule on cell
 * centres. Coordinates are shifted by half a cell so that cell centres lie at
 * integers; an edge then covers the rows from ceil of its upper end to floor of
 * its lower end, and a row's runs lie between pairs of the edges that cross
 * it, in order of x. A vertex that lies exactly on a row counts once where the
 * boundary passes through it (its upper edge stops a row short) and twice or
 * not at all at a peak. All rings of a region share one edge table, so that
 * where they overlap they cancel.
 */
#include <algorithm>
#include <cmath>
#include <vector>

#include "vld_rlseg.h"

namespace {

/* A double as an int, saturated well inside the int range; NaN gives 0. */
int to_int(double v)
{
    constexpr double limit = 1 << 29;
    if (!(v == v)) return 0;
    return static_cast<int>(std::clamp(v, -limit, limit));
}

int count_points(const VLD_POINTNODE *p)
{
    int n = 0;
    for (; p; p = p->next) n++;
    return n;
}

bool has_polygon(const regioninfo *region)
{
    if (!region) return false;
    for (const subregion *s = region->subregions; s; s = s->next)
        if (count_points(s->points) >= 3) return true;
    return false;
}

struct Vertex {
    double x, y;
};

/* Whether the boundary, leaving vertex `v` of the ring in direction `step`
 * (+1 or -1), goes on below the vertex's row, skipping vertices on that row. */
bool continues_below(const std::vector<Vertex> &ring, int v, int step)
{
    int n = static_cast<int>(ring.size());
    double y = ring[v].y;
    for (int k = 1; k < n; k++) {
        const Vertex &w = ring[((v + step * k) % n + n) % n];
        if (w.y != y) return w.y > y;
    }
    return false;
}

/* Inserts an edge into a list sorted by x. */
void insert_by_x(active_edge **list, active_edge *edge)
{
    while (*list && (*list)->x < edge->x) list = &(*list)->next;
    edge->next = *list;
    *list = edge;
}

/* Puts the edges of one ring that cross rows row0 to row0 + nr_rows - 1 into
 * the table, each at the first of those rows that it crosses. */
void add_ring(const VLD_POINTNODE *points, int row0, int nr_rows, active_edge **table)
{
    std::vector<Vertex> ring;
    for (const VLD_POINTNODE *p = points; p; p = p->next) ring.push_back({p->x - 0.5, p->y - 0.5});
    int n = static_cast<int>(ring.size());
    if (n < 3) return;
    for (int i = 0; i < n; i++) {
        int j = (i + 1) % n;
        const Vertex &p = ring[i], &q = ring[j];
        if (!(p.y != q.y) || !std::isfinite(p.y) || !std::isfinite(q.y)) continue;
        bool forward = p.y < q.y;  // the edge runs down the ring's direction
        const Vertex &lo = forward ? p : q, &hi = forward ? q : p;
        int hi_index = forward ? j : i;
        double dx = (hi.x - lo.x) / (hi.y - lo.y);
        // Where the boundary passes through a vertex on a row, the row is
        // left to the edge below it.
        bool shortened =
            hi.y == std::floor(hi.y) && continues_below(ring, hi_index, forward ? 1 : -1);
        double first = std::ceil(lo.y);
        double last = std::floor(hi.y) - (shortened ? 1 : 0);
        double start = std::max(first, static_cast<double>(row0));
        last = std::min(last, static_cast<double>(row0) + nr_rows - 1);
        if (start > last) continue;
        auto *edge = static_cast<active_edge *>(malloc_or_die(sizeof(active_edge)));
        edge->bottom_y = last;
        edge->x = lo.x + (start - lo.y) * dx;
        edge->dx_per_line = dx;
        edge->next = nullptr;
        insert_by_x(&table[to_int(start) - row0], edge);
    }
}

void build_table(const regioninfo *region, int row0, int nr_rows, active_edge **table)
{
    for (const subregion *s = region->subregions; s; s = s->next)
        add_ring(s->points, row0, nr_rows, table);
}

/* Merges a list sorted by x into the active list. */
void merge_into(active_edge **active, active_edge *edges)
{
    while (edges) {
        active_edge *next = edges->next;
        insert_by_x(active, edges);
        edges = next;
    }
}

/* The runs between pairs of active edges, clipped to the line. */
rlseg *row_runs(const active_edge *active, int width)
{
    rlseg *head = nullptr, **tail = &head, *prev = nullptr;
    for (const active_edge *e = active; e && e->next; e = e->next->next) {
        double first = std::max(std::ceil(e->x), 0.0);
        double last = std::min(std::floor(e->next->x), width - 1.0);
        if (!(first <= last)) continue;
        int f = static_cast<int>(first), l = static_cast<int>(last);
        if (prev && f <= prev->last + 1) {  // pairs that meet on one cell
            prev->last = std::max(prev->last, l);
            continue;
        }
        prev = create_rlseg(nullptr, f, l);
        *tail = prev;
        tail = &prev->next;
    }
    return head;
}

/* Retires the edges that end at `row`, steps the others to the next row and
 * restores the order by x, which crossing edges may have broken. */
void step_active(active_edge **active, int row)
{
    for (active_edge **slot = active; *slot;) {
        active_edge *e = *slot;
        if (e->bottom_y <= row) {
            *slot = e->next;
            safe_free(e);
        } else {
            e->x += e->dx_per_line;
            slot = &e->next;
        }
    }
    bool swapped = true;
    while (swapped) {
        swapped = false;
        for (active_edge **slot = active; *slot && (*slot)->next; slot = &(*slot)->next) {
            active_edge *a = *slot, *b = a->next;
            if (b->x < a->x) {
                a->next = b->next;
                b->next = a;
                *slot = b;
                swapped = true;
            }
        }
    }
}

void free_edges(active_edge **list)
{
    while (*list) {
        active_edge *next = (*list)->next;
        safe_free(*list);
        *list = next;
    }
}

}  // namespace

int region_cell_extents(const regioninfo *region, double *min_x, double *max_x, double *min_y,
                        double *max_y)
{
    double x0 = 0, x1 = 0, y0 = 0, y1 = 0;
    bool any = false;
    for (const subregion *s = region ? region->subregions : nullptr; s; s = s->next) {
        for (const VLD_POINTNODE *p = s->points; p; p = p->next) {
            if (!any) {
                x0 = x1 = p->x;
                y0 = y1 = p->y;
                any = true;
            }
            x0 = std::min(x0, p->x);
            x1 = std::max(x1, p->x);
            y0 = std::min(y0, p->y);
            y1 = std::max(y1, p->y);
        }
    }
    if (min_x) *min_x = x0;
    if (max_x) *max_x = x1;
    if (min_y) *min_y = y0;
    if (max_y) *max_y = y1;
    return any ? 1 : 0;
}

int region_extents(const regioninfo *region, int *start_row, int *nr_rows, int *start_col,
                   int *nr_cols)
{
    double x0, x1, y0, y1;
    int any = region_cell_extents(region, &x0, &x1, &y0, &y1);
    if (start_row) *start_row = to_int(std::floor(y0));
    if (nr_rows) *nr_rows = to_int(std::ceil(y1) - std::floor(y0));
    if (start_col) *start_col = to_int(std::floor(x0));
    if (nr_cols) *nr_cols = to_int(std::ceil(x1) - std::floor(x0));
    return any;
}

int setup_edge_table(const regioninfo *region, int start_row, active_edge **table)
{
    if (!has_polygon(region))
        return VLD_setup_error(VLD_ERR_REGION_TOO_FEW_POINTS,
                               region && region->name ? region->name : "");
    if (!table) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    int nr_rows = 0;
    region_extents(region, nullptr, &nr_rows, nullptr, nullptr);
    build_table(region, start_row, nr_rows, table);
    return 0;
}

lineseg_info *get_next_lineseg_info(int width, int row_index, int row, active_edge **table,
                                    active_edge **active)
{
    merge_into(active, table[row_index]);
    table[row_index] = nullptr;
    rlseg *runs = row_runs(*active, width);
    step_active(active, row);
    if (!runs) return nullptr;
    auto *info = static_cast<lineseg_info *>(malloc_or_die(sizeof(lineseg_info)));
    info->next = nullptr;
    info->line = row;
    info->rlsegs = runs;
    return info;
}

void increment_lineseg_edge_table(int, int row_index, int row, active_edge **table,
                                  active_edge **active)
{
    merge_into(active, table[row_index]);
    table[row_index] = nullptr;
    step_active(active, row);
}

void free_edge_table(active_edge **table, int nr_rows, active_edge **active)
{
    for (int i = 0; table && i < nr_rows; i++) free_edges(&table[i]);
    if (active) free_edges(active);
}

int get_lineseg_info(const dshdr *record, const regioninfo *region, lineseg_info **list)
{
    if (!list || !record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    *list = nullptr;
    if (!has_polygon(region))
        return VLD_setup_error(VLD_ERR_REGION_TOO_FEW_POINTS,
                               region && region->name ? region->name : "");
    double y0 = 0, y1 = 0;
    region_cell_extents(region, nullptr, nullptr, &y0, &y1);
    // Only the dataset's rows are scanned; edges that begin above the first of
    // them start part way along. The region's rows are clipped to the dataset
    // as doubles: a region reaching far outside it keeps the rows inside.
    double top = std::max(std::floor(y0), 0.0);
    double bottom = std::min(std::ceil(y1), static_cast<double>(record->info.r.nr_lines));
    if (!(top < bottom)) return 0;
    int row0 = static_cast<int>(top), row1 = static_cast<int>(bottom);
    std::vector<active_edge *> table(static_cast<size_t>(row1 - row0), nullptr);
    build_table(region, row0, row1 - row0, table.data());
    active_edge *active = nullptr;
    lineseg_info **tail = list;
    for (int row = row0; row < row1; row++) {
        lineseg_info *info =
            get_next_lineseg_info(record->info.r.nr_cells, row - row0, row, table.data(), &active);
        if (info) {
            *tail = info;
            tail = &info->next;
        }
    }
    free_edge_table(table.data(), row1 - row0, &active);
    return 0;
}

void free_lineseg_info(lineseg_info **list)
{
    if (!list) return;
    while (*list) {
        lineseg_info *next = (*list)->next;
        free_rlsegs(&(*list)->rlsegs);
        safe_free(*list);
        *list = next;
    }
}
