/*
 * vln_stats_calc.cpp: statistics of every region of a raster dataset.
 *
 * The regions to be done are split into shares: the first holds the polygon
 * regions, and each distinct class dataset (the source of class regions)
 * holds its own, with those regions in the first share too when it is the
 * first class dataset. Each share is two passes over the dataset's mapped
 * lines, one read of each line for all its regions. Polygon regions find the
 * runs of a line through an index made ahead of the passes; class regions
 * find theirs by reading the class dataset's line beside it. The first pass
 * gathers counts, ranges and sums; the second, knowing the means and ranges,
 * the histograms and the covariance. Only when every pass has worked do the
 * results replace the regions' statistics records.
 */
#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vld_raster.h"
#include "vld_rlseg.h"
#include "vln_path.h"
#include "vln_stats.h"
#include "vln_stats_internal.h"

using namespace vln_stats;

namespace {

/* Entries of the bucket tables over all bands of all regions. */
constexpr size_t kBucketTableBudget = size_t{1} << 24;

/* ---------------------------------------------------------------- mapped lines */

/* The lines of a mapped dataset. A file too large for one view is mapped in
 * windows, moved forward as the lines are asked for. */
class MappedLines {
   public:
    MappedLines() = default;
    MappedLines(const MappedLines &) = delete;
    MappedLines &operator=(const MappedLines &) = delete;
    ~MappedLines()
    {
        if (map_) {
            VLD_raster_mmfree_buf_array(map_, &buffers_);
            VLD_raster_mmclose(&map_);
        }
    }

    /* Opens `cells` cells of the first `nr_bands` bands, in `cell_type`. */
    int open(dshdr *header, int nr_bands, int cells, int cell_type)
    {
        header_ = header;
        int status = VLD_warp_raster_mmopen(&map_, header, 0, cells, nullptr, nr_bands, cell_type);
        if (status) return status;
        window_ = map_->view_size;
        return VLD_raster_mmsetup_buf_array(map_, &buffers_);
    }

    /* Makes sure the view holds the whole of `line`, all bands; false with
     * the error set when it can't. Pointers from cells() to other lines may
     * be left dangling. */
    bool hold_line(int line)
    {
        int64_t start = line0() + static_cast<int64_t>(line) * map_->line_bytes;
        int64_t end = start + map_->line_bytes;
        if (start >= map_->view_offset && end <= map_->view_offset + map_->view_size) return true;
        int64_t file_size = VLD_filesize_in_bytes64(map_->name);
        if (line < 0 || end > file_size || window_ < static_cast<uint32_t>(map_->line_bytes)) {
            VLD_setup_error(VLD_ERR_LINES_OUTSIDE_DATASET);
            return false;
        }
        int64_t size = std::min<int64_t>(window_, file_size - start);
        return VLD_raster_mmremap(map_, header_, static_cast<int32_t>(start & 0xffffffff),
                                  static_cast<int32_t>(start >> 32),
                                  static_cast<uint32_t>(size)) == 0;
    }

    /* The cells of one band of a line that the view holds; null with the
     * error set. */
    const void *cells(int line, int band)
    {
        return VLD_raster_mmget_cells(map_, line, band, buffers_[band]);
    }

   private:
    /* Where line 0 starts in the file. */
    int64_t line0() const
    {
        return static_cast<int64_t>(reinterpret_cast<uintptr_t>(map_->data) -
                                    reinterpret_cast<uintptr_t>(map_->view)) +
               map_->view_offset;
    }

    dshdr *header_ = nullptr;
    VLD_mmraster *map_ = nullptr;
    void **buffers_ = nullptr;
    uint32_t window_ = 0;
};

/* ---------------------------------------------------------------- progress */

/* The percentage of the whole job, reported when its whole number changes.
 * Each share takes an equal part: its first pass the first half of it, its
 * second pass the rest. */
class Progress {
   public:
    Progress(vln_stats_progress report, int shares)
        : report_(report), share_(1.0 / std::max(shares, 1))
    {
    }

    void at(int share, int pass, int done, int total)
    {
        if (!report_ || total <= 0) return;
        double start = share * 100.0 * share_ + pass * 50.0 * share_;
        int percent = static_cast<int>(static_cast<double>(done) / total * 50.0 * share_ + start);
        std::lock_guard<std::mutex> hold(mutex_);
        if (percent == last_) return;
        last_ = percent;
        report_(percent);
    }

   private:
    std::mutex mutex_;
    vln_stats_progress report_;
    double share_;
    int last_ = -1;
};

/* ---------------------------------------------------------------- regions */

/* A class dataset: its header, its mapped first band, and which class
 * number belongs to which region. */
struct ClassSource {
    std::string path;
    dshdr *header = nullptr;
    MappedLines lines;
    NullTest null;
    int nr_lines = 0, nr_cells = 0;
    std::vector<std::pair<int64_t, int>> classes; /* class number, work; sorted */

    ~ClassSource() { ef_dshdr(header); }

    int open()
    {
        int status = eg_dshdr(&header, path.c_str());
        if (status) return status;
        if (header->data_type != DT_Raster) return VLD_setup_error(VLD_ERR_RASTER_DATASET_REQUIRED);
        null = make_null_test(header->info.r);
        nr_lines = header->info.r.nr_lines;
        nr_cells = header->info.r.nr_cells;
        if (nr_cells < 1) return VLD_setup_error(VLD_ERR_CELLS_OUTSIDE_DATASET);
        return lines.open(header, 1, nr_cells, IEEE8ByteReal);
    }

    /* The region of a class value, or -1. */
    int work_of(double value) const
    {
        if (!(value == std::floor(value)) || std::fabs(value) > 9.0e18) return -1;
        if (null.active && to_single(value) == null.single) return -1;
        auto key = static_cast<int64_t>(value);
        auto it = std::lower_bound(classes.begin(), classes.end(), std::make_pair(key, -1));
        return it != classes.end() && it->first == key ? it->second : -1;
    }
};

bool starts_with(const char *text, const char *prefix)
{
    return text && std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

/* One run of a polygon region on a line. */
struct IndexEntry {
    int work;
    int first, last;
};

/* The runs of every polygon region, by line: entries[offsets[l]] to
 * entries[offsets[l + 1]] are those of line l. */
struct RunIndex {
    std::vector<size_t> offsets;
    std::vector<IndexEntry> entries;
    int first_line = 0, end_line = 0; /* lines holding any run */
};

int build_run_index(const dshdr *record, const std::vector<Work> &works, RunIndex &index)
{
    const int nr_lines = record->info.r.nr_lines;
    std::vector<std::vector<IndexEntry>> by_line(static_cast<size_t>(nr_lines));
    for (size_t w = 0; w < works.size(); w++) {
        if (works[w].region->type == REGION_CLASS) continue;
        lineseg_info *list = nullptr;
        if (int status = get_lineseg_info(record, works[w].region, &list)) return status;
        for (lineseg_info *l = list; l; l = l->next)
            for (rlseg *r = l->rlsegs; r; r = r->next)
                by_line[l->line].push_back({static_cast<int>(w), r->first, r->last});
        free_lineseg_info(&list);
    }
    index.offsets.assign(static_cast<size_t>(nr_lines) + 1, 0);
    index.first_line = nr_lines;
    index.end_line = 0;
    for (int l = 0; l < nr_lines; l++) {
        index.offsets[l + 1] = index.offsets[l] + by_line[l].size();
        if (!by_line[l].empty()) {
            index.first_line = std::min(index.first_line, l);
            index.end_line = l + 1;
        }
    }
    index.entries.reserve(index.offsets.back());
    for (auto &line : by_line) index.entries.insert(index.entries.end(), line.begin(), line.end());
    return 0;
}

/* ---------------------------------------------------------------- the job */

struct Job {
    dshdr *record = nullptr;
    int rate = 1;
    int nr_bands = 0;
    std::vector<Work> works;
    std::vector<std::unique_ptr<ClassSource>> sources; /* share k > 0 reads sources[k] */
    RunIndex index;
    MappedLines lines;
    PassState state;
};

/* The lines a share reads: its polygon regions' rows and all lines of its
 * class dataset that the dataset has. */
void share_lines(const Job &job, int share, int *first, int *end)
{
    const int nr_lines = job.record->info.r.nr_lines;
    *first = nr_lines;
    *end = 0;
    if (share == 0 && job.index.first_line < job.index.end_line) {
        *first = job.index.first_line;
        *end = job.index.end_line;
    }
    if (share < static_cast<int>(job.sources.size())) {
        *first = 0;
        *end = std::max(*end, std::min(nr_lines, job.sources[share]->nr_lines));
    }
}

/* Adds the class runs of the line to their regions: sampled cells of one
 * class in a row form one run. */
int add_class_runs(Job &job, ClassSource &source, int line, RunKernel kernel)
{
    if (!source.lines.hold_line(line)) return VLD_error.code;
    const auto *classes = static_cast<const double *>(source.lines.cells(line, 0));
    if (!classes) return VLD_error.code ? VLD_error.code : VLD_ERR_CANNOT_READ_FILE;
    const int cells = std::min(job.record->info.r.nr_cells, source.nr_cells);
    const int rate = job.rate;
    int run_work = -1, run_first = 0, run_last = 0;
    double last_value = std::nan("");
    int last_work = -1;
    for (int c = 0; c < cells; c += rate) {
        // Neighbouring cells mostly hold the same class.
        int w = classes[c] == last_value ? last_work : source.work_of(classes[c]);
        last_value = classes[c];
        last_work = w;
        if (w == run_work && w >= 0) {
            run_last = c;
            continue;
        }
        if (run_work >= 0) kernel(job.works[run_work], job.state, run_first, run_last);
        run_work = w;
        run_first = run_last = c;
    }
    if (run_work >= 0) kernel(job.works[run_work], job.state, run_first, run_last);
    return 0;
}

/* Fetches the line of every band into the pass state. */
int load_line(Job &job, int line)
{
    if (!job.lines.hold_line(line)) return VLD_error.code;
    for (int b = 0; b < job.nr_bands; b++) {
        job.state.line[b] = job.lines.cells(line, b);
        if (!job.state.line[b]) return VLD_error.code ? VLD_error.code : VLD_ERR_CANNOT_READ_FILE;
    }
    return 0;
}

int run_pass(Job &job, int share, int pass, Progress &progress)
{
    RunKernel kernel = pass == 0 ? first_pass_kernel(job.state.cell_type)
                                 : second_pass_kernel(job.state.cell_type);
    int first = 0, end = 0;
    share_lines(job, share, &first, &end);
    ClassSource *source =
        share < static_cast<int>(job.sources.size()) ? job.sources[share].get() : nullptr;
    const int total = (end - first + job.rate - 1) / job.rate;
    int done = 0;
    for (int line = first; line < end; line += job.rate) {
        const IndexEntry *entry = nullptr, *stop = nullptr;
        if (share == 0) {
            entry = job.index.entries.data() + job.index.offsets[line];
            stop = job.index.entries.data() + job.index.offsets[line + 1];
        }
        bool with_classes = source && line < source->nr_lines;
        if (entry != stop || with_classes) {
            if (int status = load_line(job, line)) return status;
            for (; entry != stop; entry++)
                kernel(job.works[entry->work], job.state, entry->first, entry->last);
            if (with_classes)
                if (int status = add_class_runs(job, *source, line, kernel)) return status;
        }
        progress.at(share, pass, ++done, total);
    }
    return 0;
}

/* Between the passes: means, ranges and bucket tables of a share's regions. */
void finish_first_pass(Job &job, int share)
{
    size_t budget = kBucketTableBudget;
    for (Work &w : job.works) {
        if (w.group != share) continue;
        for (BandAcc &a : w.bands) {
            if (a.non_null_cells == 0) {
                a.minimum = a.maximum = a.mean = 0.0;
            } else {
                a.mean = a.sum.divided_by(static_cast<double>(a.non_null_cells));
            }
            a.range = a.maximum - a.minimum;
            if (a.maximum == a.minimum) a.range = 1.0;
            budget -= make_bucket_table(a, job.state.cell_type, budget);
            a.sum.parts.assign(1, 0.0);
        }
    }
}

int32_t scaled_count(int64_t count, int rate)
{
    int64_t n = count * rate * rate;
    return n > INT32_MAX ? INT32_MAX : static_cast<int32_t>(n);
}

/* The stored record of a finished region. */
msstats *make_msstats(const Job &job, const Work &w)
{
    const int nb = job.nr_bands;
    msstats *m = nullptr;
    ea_msstats_spec(&m, nb);
    m->subsample_rate = job.rate;
    m->prior_probability = w.region->stats ? w.region->stats->prior_probability : 0.0;
    for (int b = 0; b < nb; b++) {
        const BandAcc &a = w.bands[b];
        m->minimum[b] = a.minimum;
        m->maximum[b] = a.maximum;
        m->mean[b] = a.mean;
        // The median is the first bucket where half the cells are reached.
        const int64_t half = (a.non_null_cells + 1) / 2;
        int64_t running = 0;
        int bucket = 0;
        for (; bucket < 255; bucket++) {
            running += a.histogram[bucket];
            if (running >= half) break;
        }
        m->median[b] =
            round_to_cell_type(bucket / 256.0 * a.range + a.minimum, job.state.cell_type);
        m->non_null_cells[b] = scaled_count(a.non_null_cells, job.rate > 1 ? job.rate : 1);
        m->null_cells[b] = scaled_count(a.null_cells, job.rate > 1 ? job.rate : 1);
    }
    const double n = static_cast<double>(w.full_cells);
    for (int i = 0; i < nb; i++)
        for (int j = i; j < nb; j++) {
            double c =
                n > 1.0 ? w.covariance[static_cast<size_t>(i) * nb + j].divided_by(n - 1.0) : 0.0;
            m->covariance[static_cast<size_t>(i) * nb + j] = c;
            m->covariance[static_cast<size_t>(j) * nb + i] = c;
        }
    return m;
}

/* Finds the regions to be done and the class datasets they need. */
int collect_regions(Job &job, int force)
{
    std::vector<std::string> paths;
    for (regioninfo *g = job.record->info.r.regions; g; g = g->next) {
        if (g->stats && !force) continue;
        if (starts_with(g->name, "Balance Wizard")) continue;
        Work w;
        w.region = g;
        w.bands.resize(static_cast<size_t>(job.nr_bands));
        w.covariance.resize(static_cast<size_t>(job.nr_bands) * job.nr_bands);
        if (g->type == REGION_CLASS) {
            if (!g->source_dataset || !*g->source_dataset)
                return VLD_setup_error(VLD_ERR_MESSAGE, "No Source Dataset for Class labels");
            char *path = nullptr;
            VLN_build_abs_fspec(&path, job.record->name, g->source_dataset);
            std::string name = path ? path : g->source_dataset;
            safe_free(path);
            auto at = std::find(paths.begin(), paths.end(), name);
            w.group = static_cast<int>(at - paths.begin());
            if (at == paths.end()) paths.push_back(name);
        }
        job.works.push_back(std::move(w));
    }
    for (const std::string &p : paths) {
        job.sources.push_back(std::make_unique<ClassSource>());
        job.sources.back()->path = p;
    }
    for (size_t w = 0; w < job.works.size(); w++) {
        const regioninfo *g = job.works[w].region;
        if (g->type != REGION_CLASS) continue;
        auto &classes = job.sources[job.works[w].group]->classes;
        classes.emplace_back(g->class_number, static_cast<int>(w));
    }
    for (auto &s : job.sources) std::stable_sort(s->classes.begin(), s->classes.end());
    return 0;
}

}  // namespace

int calc_stats(dshdr *record, int force)
{
    return calc_stats_subsamp(record, force, 1, nullptr);
}

int calc_stats_subsamp(dshdr *record, int force, int rate, vln_stats_progress progress)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    if (record->data_type != DT_Raster) return VLD_setup_error(VLD_ERR_RASTER_DATASET_REQUIRED);
    const rasterinfo &r = record->info.r;
    Job job;
    job.record = record;
    job.rate = std::max(rate, 1);
    job.nr_bands = r.nr_bands;
    if (job.nr_bands < 1) return VLD_setup_error(VLD_ERR_MESSAGE, "No bands in dataset");
    if (int status = collect_regions(job, force)) return status;
    if (job.works.empty()) return 0;
    if (r.nr_lines < 1) return VLD_setup_error(VLD_ERR_LINES_OUTSIDE_DATASET);
    if (r.nr_cells < 1) return VLD_setup_error(VLD_ERR_CELLS_OUTSIDE_DATASET);
    if (!first_pass_kernel(r.cell_type))
        return VLD_setup_error(VLD_ERR_MESSAGE, "Unknown cell type in dataset header");

    if (int status = build_run_index(record, job.works, job.index)) return status;
    const int shares = std::max<int>(1, static_cast<int>(job.sources.size()));
    for (int s = 0; s < shares; s++) {
        int first = 0, end = 0;
        share_lines(job, s, &first, &end);
        if (first >= end) return VLD_setup_error(VLD_ERR_LINES_OUTSIDE_DATASET);
    }
    for (auto &source : job.sources)
        if (int status = source->open()) return status;
    if (int status = job.lines.open(record, job.nr_bands, r.nr_cells, r.cell_type)) return status;

    PassState &state = job.state;
    state.cell_type = r.cell_type;
    state.nr_bands = job.nr_bands;
    state.rate = job.rate;
    state.null = make_null_test(r);
    state.line.assign(static_cast<size_t>(job.nr_bands), nullptr);
    state.row_length = static_cast<size_t>(r.nr_cells);
    state.deviations.assign(state.row_length * job.nr_bands, 0.0);
    state.masked.assign(state.row_length, 0);

    Progress report(progress, shares);
    for (int s = 0; s < shares; s++) {
        if (int status = run_pass(job, s, 0, report)) return status;
        finish_first_pass(job, s);
        if (int status = run_pass(job, s, 1, report)) return status;
    }

    // Every pass has worked: the results replace the regions' records.
    std::vector<msstats *> results;
    for (const Work &w : job.works) results.push_back(make_msstats(job, w));
    for (size_t i = 0; i < job.works.size(); i++) {
        ef_msstats(job.works[i].region->stats);
        job.works[i].region->stats = results[i];
    }
    return 0;
}
