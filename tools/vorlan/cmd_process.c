/*
 * cmd_process.c: `vorlan process ALGORITHM -o OUT.vld [--type CELLTYPE]`,
 * an algorithm written out as a new dataset.
 */
#define _POSIX_C_SOURCE 200809L
#include <getopt.h>
#include <stdio.h>

#include "vorlan_tool.h"

int vt_cmd_process(int argc, char **argv)
{
    static const struct option options[] = {{"output", required_argument, NULL, 'o'},
                                            {"type", required_argument, NULL, 't'},
                                            {"threads", required_argument, NULL, 'j'},
                                            {NULL, 0, NULL, 0}};
    const char *output = NULL;
    int cell_type = CT_None;
    int c;
    opterr = 0;
    while ((c = getopt_long(argc, argv, ":o:t:j:", options, NULL)) != -1) {
        switch (c) {
            case 'o':
                output = optarg;
                break;
            case 't':
                cell_type = vt_parse_cell_type(optarg);
                if (cell_type == CT_None)
                    return vt_usage_error("process", "unknown cell type '%s'", optarg);
                break;
            case 'j':
                if (vt_parse_threads("process", optarg) != VT_OK) return VT_USAGE;
                break;
            case ':':
                return vt_usage_error("process", "%s needs a value", argv[optind - 1]);
            default:
                return vt_usage_error("process", "unknown option '%s'", argv[optind - 1]);
        }
    }
    if (optind >= argc) return vt_usage_error("process", "no algorithm given");
    if (optind + 1 < argc) return vt_usage_error("process", "more than one algorithm given");
    if (output == NULL) return vt_usage_error("process", "no output given (-o OUT.vld)");

    algorithm *alg = NULL;
    if (eg_algorithm_with_transients(&alg, argv[optind]) != 0) {
        ef_algorithm(alg);
        return vt_fail_library("process");
    }
    int status = vt_write_dataset("process", alg, output, cell_type);
    ef_algorithm(alg);
    return status;
}
