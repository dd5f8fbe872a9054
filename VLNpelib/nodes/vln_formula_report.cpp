/*
 * vln_formula_report.cpp: the report of what an open processed.
 *
 * Two texts side by side, a label and a value per line: the part of each
 * dataset that was read, the cells each class of a classification took, and
 * the time the processing took.
 */
#include <cstdarg>
#include <cstdio>
#include <string>

#include "vln_formula_node.h"
#include "vln_guard_internal.h"
#include "vln_nodes.h"

namespace {

vln_mutex report_mutex;

/* One line of each text. */
struct Report {
    std::string labels, values;
    void row(const std::string &label, const std::string &value)
    {
        labels += label;
        values += value;
    }
};

std::string format(const char *fmt, ...) VLD_PRINTF(1, 2);
std::string format(const char *fmt, ...)
{
    char text[1024];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    return text;
}

std::string number(double value)
{
    return format("%.2f", value);
}

/* The file name of a dataset, split at its last separator. */
void split_name(const char *path, std::string &dir, std::string &name)
{
    const std::string p = path != nullptr ? path : "";
    const size_t at = p.find_last_of('/');
    dir = at == std::string::npos ? "." : p.substr(0, at);
    name = at == std::string::npos ? p : p.substr(at + 1);
}

void datasets(Report &r, const pe_context *pe)
{
    r.row("DATASETS PROCESSED:\n", "\n");
    bool any = false;
    for (const dsinput *d = pe->dsinputs; d != nullptr; d = d->next) {
        if (d->dsh == nullptr || d->dsh->data_type != DT_Raster) continue;
        any = true;
        std::string dir, name;
        split_name(d->name, dir, name);
        const int lines = d->dsh->info.r.nr_lines, cells = d->dsh->info.r.nr_cells;
        const double row_part = lines > 0 ? 100.0 * d->nr_lines / lines : 0.0;
        const double col_part = cells > 0 ? 100.0 * d->nr_cells / cells : 0.0;
        r.row(format("%s/%s:\n", dir.c_str(), name.c_str()),
              format("%s%% of rows %s-%s\n", number(row_part).c_str(),
                     std::to_string(d->first_line).c_str(),
                     std::to_string(d->first_line + d->nr_lines - 1).c_str()));
        r.row("\n", format("%s%% of columns %s-%s\n", number(col_part).c_str(),
                           std::to_string(d->first_cell).c_str(),
                           std::to_string(d->first_cell + d->nr_cells - 1).c_str()));
    }
    if (!any) r.row("None:\n", "\n");
}

/* The first classification merge of a tree, depth first. */
funcnode *class_merge(funcnode *node)
{
    if (node == nullptr) return nullptr;
    if (merge_class_counters(node, nullptr) != nullptr) return node;
    for (int i = 0; i < node->nr_inputs; i++)
        if (funcnode *found = class_merge(node->inputs[i].node)) return found;
    return nullptr;
}

const pe_streamgroup *class_group(const pe_context *pe)
{
    for (int s = 0; s < pe->nr_surfaces && pe->class_groups != nullptr; s++)
        if (pe->class_groups[s] != nullptr) return pe->class_groups[s];
    return nullptr;
}

void classes(Report &r, const pe_context *pe)
{
    funcnode *merge = class_merge(pe->raster_root);
    const pe_streamgroup *group = class_group(pe);
    if (merge == nullptr || group == nullptr) return;
    int count = 0;
    const int64_t *counters = merge_class_counters(merge, &count);
    double area = 1.0;
    if (pe->image_dsh != nullptr)
        area =
            pe->image_dsh->info.r.cellinfo.x_dimension * pe->image_dsh->info.r.cellinfo.y_dimension;
    const double total = static_cast<double>(pe->nr_cells) * pe->nr_lines;
    r.row("\nCLASSIFICATION INFO:\n", "\n\n");
    int64_t classified = 0;
    int k = 0;
    for (const pe_stream *ps = group->streams; ps != nullptr && k < count; ps = ps->next, k++) {
        const int64_t pixels = counters[k];
        classified += pixels;
        const char *desc = ps->stream != nullptr ? ps->stream->description : nullptr;
        const double hectares = static_cast<double>(pixels) * area / 10000.0;
        r.row(desc != nullptr && *desc != '\0' ? format("%s (%d):\n", desc, k + 1)
                                               : std::string("No description\n"),
              format("%5.2f%%, %d pixels, %s hectares (%s acres)\n",
                     total > 0 ? 100.0 * static_cast<double>(pixels) / total : 0.0,
                     static_cast<int>(pixels), number(hectares).c_str(),
                     number(hectares * 2.471054).c_str()));
    }
    const int64_t unclassified = static_cast<int64_t>(total) - classified;
    r.row("Total classified\n",
          format("%d pixels, %s hectares\n", static_cast<int>(classified),
                 number(static_cast<double>(classified) * area / 10000.0).c_str()));
    r.row("Unclassified\n",
          format("%d pixels, %s hectares\n", static_cast<int>(unclassified),
                 number(static_cast<double>(unclassified) * area / 10000.0).c_str()));
}

}  // namespace

int get_procinfo(char **labels, char **values, pe_context *pe, long start_seconds, long end_seconds,
                 long start_microseconds, long end_microseconds)
{
    vln::Guard guard(&report_mutex);
    Report r;
    datasets(r, pe);
    classes(r, pe);
    double seconds = static_cast<double>(end_seconds - start_seconds) +
                     static_cast<double>(end_microseconds - start_microseconds) / 1e6;
    if (seconds < 0) seconds = 0;
    const double hours = static_cast<double>(static_cast<long>(seconds / 3600));
    const double minutes = static_cast<double>(static_cast<long>((seconds - hours * 3600) / 60));
    r.row("TIME TO PROCESS:\n",
          format("%02.0f:%02.0f:%05.2f\n", hours, minutes, seconds - hours * 3600 - minutes * 60));
    *labels = strsave(r.labels.c_str());
    *values = strsave(r.values.c_str());
    return 0;
}
