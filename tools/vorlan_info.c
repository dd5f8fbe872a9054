/*
 * vorlan-info: prints the library's version, its installation tree and the
 * cell types with their sizes and ranges.
 */
#include <stdio.h>
#include <stdlib.h>

#include "vld_core.h"
#include "vln_path.h"

int main(int argc, char **argv)
{
    (void)argc;
    init_dbprintf_progname(argv[0]);
    printf("Vorlan %s\n", VLD_version());
    char *tree = VLN_get_vorlan_dir();
    if (tree == NULL) {
        VLD_output_error();
        return 1;
    }
    printf("Installation tree: %s\n", tree);
    safe_free(tree);
    printf("Cell types:\n");
    printf("  %-2s %-22s %-26s %4s %24s %24s\n", "#", "Keyword", "Name", "Size", "Minimum",
           "Maximum");
    for (const VLD_ENUM *t = ev_CellType; t->name != NULL; t++) {
        double max, min;
        get_celltype_max_min(t->value, &max, &min);
        printf("  %-2d %-22s %-26s %4d %24.17G %24.17G\n", t->value, t->name,
               DE_cell_type_string[t->value], celltypesize(t->value), min, max);
    }
    return 0;
}
