/*
 * cmd_stats.c: `vorlan stats DATASET`: the statistics of every region of a
 * raster dataset computed afresh, kept in its header, and reported.
 */
#define _POSIX_C_SOURCE 200809L
#include <getopt.h>
#include <stdio.h>

#include "vld_dshdr.h"
#include "vln_stats.h"
#include "vorlan_tool.h"

int vt_cmd_stats(int argc, char **argv)
{
    static const struct option options[] = {{NULL, 0, NULL, 0}};
    int c;
    opterr = 0;
    while ((c = getopt_long(argc, argv, "", options, NULL)) != -1)
        return vt_usage_error("stats", "unknown option '%s'", argv[optind - 1]);
    if (optind >= argc) return vt_usage_error("stats", "no dataset given");
    if (optind + 1 < argc) return vt_usage_error("stats", "more than one dataset given");
    const char *name = argv[optind];

    dshdr *dsh = NULL;
    if (eg_dshdr(&dsh, name) != 0) {
        ef_dshdr(dsh);
        return vt_fail_library("stats");
    }
    if (dsh->data_type != DT_Raster || dsh->algorithm != NULL) {
        ef_dshdr(dsh);
        return vt_fail("stats", "%s: statistics are kept for raster datasets only", name);
    }
    /* The header is rewritten by the library's writer, which replaces the
     * file by renaming a new one over it. */
    int status = calc_stats(dsh, 1);
    if (status == 0) status = ep_dshdr(dsh, name);
    ef_dshdr(dsh);
    if (status != 0) return vt_fail_library("stats");
    if (region_statistics_report(name, NULL, NULL, NULL, stdout) != 0)
        return vt_fail_library("stats");
    return fflush(stdout) == 0 ? VT_OK : vt_fail("stats", "cannot write the report");
}
