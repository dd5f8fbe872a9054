/*
 * vln_resample_runs.cpp: run lists under reduction.
 *
 * A reduction keeps a destination cell valid exactly when the source cell it
 * samples is valid. setup_subs_lseg_luts turns a sample array into two tables
 * over the source cells, so that a source run maps to destinations by two
 * look-ups: its first cell to the first destination at or after it, its last
 * cell to the last destination at or before it. A run that no destination
 * samples comes out with its first above its last, and vanishes.
 */
#include "vln_resample_internal.h"

using namespace vln_pe;

void setup_subs_lseg_luts(int *start_table, int *end_table, const int *sample_array,
                          int source_width, int view_width)
{
    for (int s = 0; s < source_width; s++) start_table[s] = end_table[s] = -1;
    // Where several destinations sample one source cell, the last one stands.
    for (int d = 0; d < view_width; d++) {
        int s = sample_array[d];
        if (s >= 0 && s < source_width) start_table[s] = end_table[s] = d;
    }
    // An unsampled cell starts at the next sampled destination to its right
    // (view_width if none) and ends at the previous one to its left (0 if
    // none).
    int next = view_width;
    for (int s = source_width - 1; s >= 0; s--) {
        if (start_table[s] < 0)
            start_table[s] = next;
        else
            next = start_table[s];
    }
    int previous = 0;
    for (int s = 0; s < source_width; s++) {
        if (end_table[s] < 0)
            end_table[s] = previous;
        else
            previous = end_table[s];
    }
}

rlseg *subsample_rlsegs(pe_context *pe, rlseg **out, const rlseg *rlsegs, const int *start_table,
                        const int *end_table)
{
    RunList mapped(pe);
    for (const rlseg *r = rlsegs; r != nullptr; r = r->next) {
        int first = start_table[r->first];
        int last = end_table[r->last];
        if (first <= last) mapped.add(first, last);
    }
    pe_free_rlseg_list(pe, out);
    *out = mapped.finish();
    return *out;
}
