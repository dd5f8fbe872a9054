/*
 * cmd_calc.c: `vorlan calc -i A.vld[:BAND] ... -e FORMULA -o OUT.vld`, a
 * formula over the bands of several datasets written as a new dataset.
 *
 * A layer reads one dataset, so the inputs are first stacked: a virtual
 * dataset whose band k is input k (one layer per input over the first
 * input's extent and cells). The formula's layer reads that stack, INPUTk
 * on its band k; inputs that are all bands of one dataset need no stack.
 * The documents are written as text in a private temporary folder, read
 * back, and removed.
 */
#define _DEFAULT_SOURCE
#include <ctype.h>
#include <getopt.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vld_dshdr.h"
#include "vln_path.h"
#include "vorlan_tool.h"

enum { MAX_INPUTS = 256 };

typedef struct calc_input {
    char *path; /* absolute */
    int band;   /* from 1 */
} calc_input;

/* ---------------------------------------------------------------- text of a document */

typedef struct text {
    char *s;
    size_t length, size;
} text;

static void add(text *t, const char *format, ...) VLD_PRINTF(2, 3);
static void add(text *t, const char *format, ...)
{
    for (;;) {
        va_list args;
        va_start(args, format);
        int n = vsnprintf(t->s + t->length, t->size - t->length, format, args);
        va_end(args);
        if (n >= 0 && (size_t)n < t->size - t->length) {
            t->length += (size_t)n;
            return;
        }
        t->size = t->size * 2 + (n > 0 ? (size_t)n : 0) + 256;
        t->s = realloc_or_die(t->s, t->size);
    }
}

/* A string value with its quotes and backslashes escaped. */
static void add_quoted(text *t, const char *value)
{
    add(t, "\"");
    for (const char *p = value; *p; p++) {
        if (*p == '"' || *p == '\\')
            add(t, "\\%c", *p);
        else
            add(t, "%c", *p);
    }
    add(t, "\"");
}

/* The top of a document over the first input's extent, in its space. */
static void begin_document(text *t, const dshdr *first, const char *settings)
{
    const rasterinfo *r = &first->info.r;
    const coordspace *cs = &first->coordspace;
    const int type = cs->coordsystype == CST_EN ? CST_EN : CST_RAW;
    const double left = r->registration_coord.x - r->registration_cell_x * r->cellinfo.x_dimension;
    const double right = left + r->nr_cells * r->cellinfo.x_dimension;
    /* Northings grow up the page; raw coordinates grow down it, with the lines. */
    const double sign = type == CST_EN ? -1.0 : 1.0;
    const double top =
        r->registration_coord.y - sign * r->registration_cell_y * r->cellinfo.y_dimension;
    const double bottom = top + sign * r->nr_lines * r->cellinfo.y_dimension;
    const char *x_word = type == CST_EN ? "Eastings" : "MetersX";
    const char *y_word = type == CST_EN ? "Northings" : "MetersY";
    add(t, "Algorithm Begin\n\tVersion = \"7.0\"\n\tName = \"vorlan calc\"\n");
    add(t, "\tCoordinateSpace Begin\n\t\tDatum = ");
    add_quoted(t, cs->datum != NULL ? cs->datum : "RAW");
    add(t, "\n\t\tProjection = ");
    add_quoted(t, cs->projection != NULL ? cs->projection : "RAW");
    add(t, "\n\t\tCoordinateType = %s\n", type == CST_EN ? "EN" : "RAW");
    if (cs->units != NULL && *cs->units) {
        add(t, "\t\tUnits = ");
        add_quoted(t, cs->units);
        add(t, "\n");
    }
    add(t, "\tCoordinateSpace End\n");
    add(t, "\tTopLeftCorner Begin\n\t\t%s = %.17g\n\t\t%s = %.17g\n\tTopLeftCorner End\n", x_word,
        left, y_word, top);
    add(t, "\tBottomRightCorner Begin\n\t\t%s = %.17g\n\t\t%s = %.17g\n\tBottomRightCorner End\n",
        x_word, right, y_word, bottom);
    add(t,
        "\tOutputWidth = %d\n\tOutputHeight = %d\n\tCanvasWidth = %d\n\tCanvasHeight = %d\n"
        "\tDotsPerInchAcross = 96\n\tDotsPerInchDown = 96\n%s",
        r->nr_cells, r->nr_lines, r->nr_cells, r->nr_lines, settings);
    add(t, "\tSurface Begin\n\t\tName = \"calc\"\n\t\tColorMode = DATASET\n");
}

static void end_document(text *t)
{
    add(t, "\tSurface End\nAlgorithm End\n");
}

/* A layer over `dataset` whose formula reads `formula` over the bands listed. */
static void add_layer(text *t, const char *description, const char *dataset, const char *formula,
                      const int *bands, int nr_bands)
{
    add(t, "\t\tStream Begin\n\t\t\tType = Pseudo\n\t\t\tDescription = ");
    add_quoted(t, description);
    add(t, "\n\t\t\tDataset = ");
    add_quoted(t, dataset);
    add(t, "\n");
    /* One stream input per formula input: each reads one band. */
    for (int i = 0; i < nr_bands; i++)
        add(t, "\t\t\tStreamInput Begin\n\t\t\t\tStreamInputID = %d\n\t\t\tStreamInput End\n",
            i + 1);
    add(t, "\t\t\tFormula Begin\n\t\t\t\tFormula = ");
    add_quoted(t, formula);
    add(t, "\n");
    for (int i = 0; i < nr_bands; i++)
        add(t,
            "\t\t\t\tFormulaArg Begin\n\t\t\t\t\tStreamInput = %d\n\t\t\t\t\tBandNumber = %d\n"
            "\t\t\t\tFormulaArg End\n",
            i + 1, bands[i]);
    add(t, "\t\t\tFormula End\n\t\tStream End\n");
}

static int write_text(const char *sub, const char *path, const text *t)
{
    FILE *f = fopen(path, "w");
    if (f == NULL || fwrite(t->s, 1, t->length, f) != t->length) {
        if (f != NULL) fclose(f);
        return vt_fail(sub, "cannot write %s", path), -1;
    }
    return fclose(f) == 0 ? 0 : (vt_fail(sub, "cannot write %s", path), -1);
}

/* ---------------------------------------------------------------- arguments */

/* "PATH" or "PATH:BAND"; 0, or VT_USAGE after saying why. */
static int parse_input(const char *arg, calc_input *in)
{
    const char *colon = strrchr(arg, ':');
    int band = 1;
    size_t n = strlen(arg);
    if (colon != NULL && colon[1] != '\0') {
        const char *p = colon + 1;
        while (isdigit((unsigned char)*p)) p++;
        if (*p == '\0') {
            long value = strtol(colon + 1, NULL, 10);
            if (value < 1 || value > INT_MAX)
                return vt_usage_error("calc", "band %s of %.*s: bands count from 1", colon + 1,
                                      (int)(colon - arg), arg);
            band = (int)value;
            n = (size_t)(colon - arg);
        }
    }
    if (n == 0) return vt_usage_error("calc", "an input without a dataset name");
    in->path = malloc_or_die(n + 1);
    memcpy(in->path, arg, n);
    in->path[n] = '\0';
    in->band = band;
    return 0;
}

/* Checks each input's header and band, and makes its name absolute so that
 * documents in another folder find it; 0, or VT_FAILED after saying why. */
static int check_inputs(calc_input *inputs, int n, dshdr **first)
{
    for (int i = 0; i < n; i++) {
        dshdr *d = NULL;
        if (eg_dshdr(&d, inputs[i].path) != 0) {
            ef_dshdr(d);
            return vt_fail_library("calc");
        }
        if (d->data_type != DT_Raster || inputs[i].band > d->info.r.nr_bands) {
            int bands = d->data_type == DT_Raster ? d->info.r.nr_bands : 0;
            ef_dshdr(d);
            return vt_fail("calc", "%s has %d band(s), not a band %d", inputs[i].path, bands,
                           inputs[i].band);
        }
        char *absolute = realpath(inputs[i].path, NULL);
        if (absolute != NULL) {
            safe_free(inputs[i].path);
            inputs[i].path = strsave(absolute);
            free(absolute);
        }
        if (i == 0)
            *first = d;
        else
            ef_dshdr(d);
    }
    return 0;
}

static int run(calc_input *inputs, int n, const char *formula, const char *output, int cell_type)
{
    /* From here a signal only sets a flag, so that the folder below goes too. */
    vt_catch_signals();
    dshdr *first = NULL;
    int status = check_inputs(inputs, n, &first);
    if (status != 0) return status;
    if (first->coordspace.coordsystype == CST_LL) {
        ef_dshdr(first);
        return vt_fail("calc", "%s: a first input in latitude and longitude is not supported",
                       inputs[0].path);
    }

    const char *tmp = getenv("VLNTMP");
    if (tmp == NULL || *tmp == '\0') tmp = getenv("TMPDIR");
    if (tmp == NULL || *tmp == '\0') tmp = "/tmp";
    char dir[PATH_MAX];
    snprintf(dir, sizeof dir, "%s/vorlan-calc.XXXXXX", tmp);
    if (mkdtemp(dir) == NULL) {
        ef_dshdr(first);
        return vt_fail("calc", "cannot make a temporary folder in %s", tmp);
    }
    char stack_path[PATH_MAX + 16], calc_path[PATH_MAX + 16];
    snprintf(stack_path, sizeof stack_path, "%s/inputs.alg", dir);
    snprintf(calc_path, sizeof calc_path, "%s/calc.alg", dir);

    /* The stack: band k is input k, as reals, so nothing is lost before the
     * formula; its null is a value no input cell takes. Layers of different
     * descriptions stay separate bands. */
    text t = {malloc_or_die(4096), 0, 4096};
    /* Bands of one dataset need no stack: the layer reads them itself. */
    int one_dataset = 1;
    for (int i = 1; i < n; i++)
        one_dataset = one_dataset && strcmp(inputs[i].path, inputs[0].path) == 0;
    if (!one_dataset) {
        begin_document(&t, first,
                       "\tOutputType = IEEE8ByteReal\n\tNullValue = -1.7976931348623157e308\n");
        for (int i = 0; i < n; i++) {
            char description[32];
            snprintf(description, sizeof description, "INPUT%d", i + 1);
            add_layer(&t, description, inputs[i].path, "INPUT1", &inputs[i].band, 1);
        }
        end_document(&t);
        status = write_text("calc", stack_path, &t);
    }

    if (status == 0) {
        /* The output's null is the first input's, where it has one. */
        char settings[64] = "";
        if (first->info.r.has_null)
            snprintf(settings, sizeof settings, "\tNullValue = %.17g\n", first->info.r.null_value);
        t.length = 0;
        begin_document(&t, first, settings);
        int *bands = malloc_or_die(sizeof(int) * (size_t)n);
        for (int i = 0; i < n; i++) bands[i] = one_dataset ? inputs[i].band : i + 1;
        add_layer(&t, "calc", one_dataset ? inputs[0].path : stack_path, formula, bands, n);
        safe_free(bands);
        end_document(&t);
        status = write_text("calc", calc_path, &t);
    }
    safe_free(t.s);
    ef_dshdr(first);

    if (status == 0) {
        algorithm *alg = NULL;
        if (eg_algorithm_with_transients(&alg, calc_path) != 0)
            status = vt_fail_library("calc");
        else
            status = vt_write_dataset("calc", alg, output,
                                      cell_type != CT_None ? cell_type : IEEE4ByteReal);
        ef_algorithm(alg);
    } else {
        status = VT_FAILED;
    }
    vln_rmrfdir(dir);
    return status;
}

int vt_cmd_calc(int argc, char **argv)
{
    static const struct option options[] = {
        {"input", required_argument, NULL, 'i'},   {"expression", required_argument, NULL, 'e'},
        {"output", required_argument, NULL, 'o'},  {"type", required_argument, NULL, 't'},
        {"threads", required_argument, NULL, 'j'}, {NULL, 0, NULL, 0}};
    calc_input inputs[MAX_INPUTS];
    int n = 0, cell_type = CT_None, status = VT_OK, c;
    const char *formula = NULL, *output = NULL;
    opterr = 0;
    while (status == VT_OK && (c = getopt_long(argc, argv, ":i:e:o:t:j:", options, NULL)) != -1) {
        switch (c) {
            case 'i':
                if (n == MAX_INPUTS)
                    status = vt_usage_error("calc", "more than %d inputs", MAX_INPUTS);
                else if ((status = parse_input(optarg, &inputs[n])) == 0)
                    n++;
                break;
            case 'e':
                formula = optarg;
                break;
            case 'o':
                output = optarg;
                break;
            case 't':
                cell_type = vt_parse_cell_type(optarg);
                if (cell_type == CT_None)
                    status = vt_usage_error("calc", "unknown cell type '%s'", optarg);
                break;
            case 'j':
                status = vt_parse_threads("calc", optarg);
                break;
            case ':':
                status = vt_usage_error("calc", "%s needs a value", argv[optind - 1]);
                break;
            default:
                status = vt_usage_error("calc", "unknown option '%s'", argv[optind - 1]);
        }
    }
    if (status == VT_OK) {
        if (optind < argc)
            status = vt_usage_error("calc", "unexpected argument '%s'", argv[optind]);
        else if (n == 0)
            status = vt_usage_error("calc", "no input given (-i DATASET)");
        else if (formula == NULL)
            status = vt_usage_error("calc", "no formula given (-e FORMULA)");
        else if (output == NULL)
            status = vt_usage_error("calc", "no output given (-o OUT.vld)");
    }
    if (status == VT_OK) status = run(inputs, n, formula, output, cell_type);
    for (int i = 0; i < n; i++) safe_free(inputs[i].path);
    return status;
}
