/*
 * vorlan-info: prints the library's version, its installation tree and the
 * cell types with their sizes and ranges; given datasets or algorithms on the
 * command line, describes each: its size and bands, and for an algorithm its
 * surfaces and layers with their formulae as the library reads them.
 *
 *   vorlan-info [DATASET_OR_ALGORITHM ...]
 */
#include <stdio.h>
#include <stdlib.h>

#include "vld_alg.h"
#include "vld_core.h"
#include "vld_dshdr.h"
#include "vln_formula.h"
#include "vln_path.h"

/* The word of `value` in an enum table, or "?". */
static const char *word(const VLD_ENUM *table, int value)
{
    for (; table->name != NULL; table++)
        if (table->value == value) return table->name;
    return "?";
}

static void print_cell_types(void)
{
    printf("Cell types:\n");
    printf("  %-2s %-22s %-26s %4s %24s %24s\n", "#", "Keyword", "Name", "Size", "Minimum",
           "Maximum");
    for (const VLD_ENUM *t = ev_CellType; t->name != NULL; t++) {
        double max, min;
        get_celltype_max_min(t->value, &max, &min);
        printf("  %-2d %-22s %-26s %4d %24.17G %24.17G\n", t->value, t->name,
               DE_cell_type_string[t->value], celltypesize(t->value), min, max);
    }
}

/* A stream's formula as the parser prints it back, variables given their values. */
static void print_formula(const stream *st)
{
    const formula *f = &st->formula;
    if (f->formula == NULL) return;
    ExprNode *tree = NULL;
    char *message = string_to_expr(&tree, f->formula);
    if (message != NULL) {
        printf("      formula: %s (%s)\n", f->formula, message);
        safe_free(message);
        return;
    }
    /* The printed text can be far longer than the formula (ranges unroll,
     * variables become numbers), so the buffer is sized from the tree. */
    size_t length = expr_to_string_n(NULL, 0, tree, "I", NULL, "R", NULL, "D", NULL,
                                     f->nr_variable_args, f->variable_args);
    char *text = malloc_or_die(length + 1);
    expr_to_string_n(text, length + 1, tree, "I", NULL, "R", NULL, "D", NULL, f->nr_variable_args,
                     f->variable_args);
    printf("      formula: %s\n", text);
    safe_free(text);
    printf("      inputs %d, regions %d, datasets %d, variables %d\n", count_formula_inputs(tree),
           count_formula_regions(tree), count_formula_datasets(tree),
           count_formula_variables(tree));
    for (int i = 0; f->args != NULL && i < f->nr_args; i++)
        printf("      I%d: band %s\n", i + 1,
               f->args[i].band_number != NULL ? f->args[i].band_number : "-");
    free_ExprNode(tree);
}

static void print_algorithm(const algorithm *alg)
{
    printf("  algorithm: %s\n", alg->description != NULL ? alg->description : "");
    int n = 1;
    for (const surface *s = alg->surfaces; s != NULL; s = s->next, n++) {
        printf("  surface %d: \"%s\", %s, lookup table \"%s\"%s\n", n,
               s->name != NULL ? s->name : "", word(ev_ColorMode, s->color_mode),
               s->lookup_table != NULL ? s->lookup_table : "", s->turned_off ? ", off" : "");
        for (const stream *st = first_stream_in_surface(s); st != NULL; st = next_stream(st)) {
            printf("    layer %d: %s \"%s\" on %s%s\n", stream_id(st),
                   word(ev_StreamType, st->type), st->description != NULL ? st->description : "",
                   st->dataset != NULL ? st->dataset : "", st->turned_off ? ", off" : "");
            if (st->type != ST_DynamicLink) print_formula(st);
        }
    }
}

static int describe(const char *name)
{
    dshdr *d = NULL;
    if (eg_dshdr(&d, name) != 0) {
        VLD_output_error();
        return 1;
    }
    printf("%s:\n", name);
    if (d->data_type == DT_Raster) {
        const rasterinfo *r = &d->info.r;
        printf("  raster of %d lines, %d cells, %d band(s) of %s\n", r->nr_lines, r->nr_cells,
               r->nr_bands, word(ev_CellType, r->cell_type));
        for (int b = 0; r->bandids != NULL && b < r->nr_bands; b++)
            printf("    band %d: %s\n", b + 1,
                   r->bandids[b].value != NULL ? r->bandids[b].value : "");
    } else {
        printf("  vector dataset\n");
    }
    if (d->algorithm != NULL) print_algorithm(d->algorithm);
    ef_dshdr(d);
    return 0;
}

int main(int argc, char **argv)
{
    init_dbprintf_progname(argv[0]);
    printf("Vorlan %s\n", VLD_version());
    char *tree = VLN_get_vorlan_dir();
    if (tree == NULL) {
        VLD_output_error();
        return 1;
    }
    printf("Installation tree: %s\n", tree);
    safe_free(tree);
    if (argc < 2) {
        print_cell_types();
        return 0;
    }
    int status = 0;
    for (int i = 1; i < argc; i++) status |= describe(argv[i]);
    return status;
}
