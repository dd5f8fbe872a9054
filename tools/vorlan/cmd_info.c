/*
 * cmd_info.c: `vorlan info [--json] DATASET|ALGORITHM`, a header described.
 *
 * The description is walked once through a small writer with two faces:
 * lines of "Label: value" for a person, or one JSON object whose keys are
 * the labels' short forms, so that both always say the same.
 */
#define _POSIX_C_SOURCE 200809L
#include <getopt.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

#include "vld_dshdr.h"
#include "vorlan_tool.h"

/* ---------------------------------------------------------------- the writer */

typedef struct writer {
    FILE *out;
    int json;
    int depth;
    int first; /* no member written yet at this depth (JSON) */
} writer;

static void json_string(FILE *out, const char *s)
{
    fputc('"', out);
    for (const unsigned char *p = (const unsigned char *)(s != NULL ? s : ""); *p; p++) {
        switch (*p) {
            case '"':
                fputs("\\\"", out);
                break;
            case '\\':
                fputs("\\\\", out);
                break;
            case '\n':
                fputs("\\n", out);
                break;
            case '\r':
                fputs("\\r", out);
                break;
            case '\t':
                fputs("\\t", out);
                break;
            default:
                if (*p < 0x20)
                    fprintf(out, "\\u%04x", *p);
                else
                    fputc(*p, out);
        }
    }
    fputc('"', out);
}

/* Starts a member: its key in JSON (none inside an array), its label and
 * indentation for a person. */
static void member_of(writer *w, const char *key, const char *label, int group)
{
    if (w->json) {
        if (!w->first) fputc(',', w->out);
        w->first = 0;
        if (key != NULL) {
            json_string(w->out, key);
            fputc(':', w->out);
        }
    } else {
        fprintf(w->out, "%*s%s%s", 2 * w->depth, "", label, group ? ":" : ": ");
    }
}

static void member(writer *w, const char *key, const char *label)
{
    member_of(w, key, label, 0);
}

static void put_text(writer *w, const char *key, const char *label, const char *value)
{
    member(w, key, label);
    if (w->json)
        json_string(w->out, value);
    else
        fprintf(w->out, "%s\n", value != NULL ? value : "");
}

static void put_int(writer *w, const char *key, const char *label, long value)
{
    member(w, key, label);
    fprintf(w->out, w->json ? "%ld" : "%ld\n", value);
}

static void put_real(writer *w, const char *key, const char *label, double value)
{
    member(w, key, label);
    if (w->json && !isfinite(value))
        fputs("null", w->out);
    else
        fprintf(w->out, w->json ? "%.17g" : "%.10g\n", value);
}

static void put_bool(writer *w, const char *key, const char *label, int value)
{
    member(w, key, label);
    fprintf(w->out, w->json ? "%s" : "%s\n",
            value ? (w->json ? "true" : "yes") : (w->json ? "false" : "no"));
}

/* An object or array opens; `label` heads it for a person. */
static void open_group(writer *w, const char *key, const char *label, int array)
{
    member_of(w, key, label, 1);
    if (w->json)
        fputc(array ? '[' : '{', w->out);
    else
        fputc('\n', w->out);
    w->depth++;
    w->first = 1;
}

static void close_group(writer *w, int array)
{
    w->depth--;
    w->first = 0;
    if (w->json) fputc(array ? ']' : '}', w->out);
}

/* ---------------------------------------------------------------- the header */

static void describe_statistics(writer *w, const msstats *s)
{
    open_group(w, "statistics", "Statistics", 1);
    for (int b = 0; b < s->nr_bands; b++) {
        char label[32];
        snprintf(label, sizeof label, "Band %d", b + 1);
        open_group(w, NULL, label, 0);
        if (s->non_null_cells) put_int(w, "non_null_cells", "Non-null cells", s->non_null_cells[b]);
        if (s->null_cells) put_int(w, "null_cells", "Null cells", s->null_cells[b]);
        if (s->minimum) put_real(w, "minimum", "Minimum", s->minimum[b]);
        if (s->maximum) put_real(w, "maximum", "Maximum", s->maximum[b]);
        if (s->mean) put_real(w, "mean", "Mean", s->mean[b]);
        if (s->median) put_real(w, "median", "Median", s->median[b]);
        if (s->covariance)
            put_real(w, "variance", "Variance", s->covariance[(size_t)b * s->nr_bands + b]);
        close_group(w, 0);
    }
    close_group(w, 1);
}

static void describe_raster(writer *w, const rasterinfo *r)
{
    put_int(w, "cells", "Cells", r->nr_cells);
    put_int(w, "lines", "Lines", r->nr_lines);
    put_text(w, "cell_type", "Cell type", vt_word(ev_CellType, r->cell_type));
    if (r->has_null)
        put_real(w, "null_value", "Null value", r->null_value);
    else if (w->json)
        member(w, "null_value", ""), fputs("null", w->out);
    else
        put_text(w, "null_value", "Null value", "none");
    put_real(w, "cell_width", "Cell width", r->cellinfo.x_dimension);
    put_real(w, "cell_height", "Cell height", r->cellinfo.y_dimension);
    open_group(w, "registration", "Registration", 0);
    put_real(w, "cell_x", "Cell x", r->registration_cell_x);
    put_real(w, "cell_y", "Cell y", r->registration_cell_y);
    put_real(w, "x", "Coordinate x", r->registration_coord.x);
    put_real(w, "y", "Coordinate y", r->registration_coord.y);
    close_group(w, 0);
    open_group(w, "bands", "Bands", 1);
    for (int b = 0; b < r->nr_bands; b++) {
        char label[32];
        snprintf(label, sizeof label, "Band %d", b + 1);
        const char *name = r->bandids != NULL ? r->bandids[b].value : NULL;
        put_text(w, NULL, label, name != NULL ? name : "");
    }
    close_group(w, 1);
    open_group(w, "regions", "Regions", 1);
    for (const regioninfo *g = r->regions; g != NULL; g = g->next) {
        open_group(w, NULL, g->name != NULL ? g->name : "(unnamed)", 0);
        put_text(w, "name", "Name", g->name != NULL ? g->name : "");
        put_text(w, "kind", "Kind", g->type == REGION_CLASS ? "class" : "polygon");
        if (g->stats != NULL) describe_statistics(w, g->stats);
        close_group(w, 0);
    }
    close_group(w, 1);
}

static void describe_algorithm(writer *w, const algorithm *alg)
{
    open_group(w, "algorithm", "Algorithm", 0);
    put_text(w, "description", "Description", alg->description != NULL ? alg->description : "");
    put_int(w, "output_width", "Output width", alg->output_width);
    put_int(w, "output_height", "Output height", alg->output_height);
    open_group(w, "surfaces", "Surfaces", 1);
    for (const surface *s = alg->surfaces; s != NULL; s = s->next) {
        open_group(w, NULL, s->name != NULL && *s->name ? s->name : "(surface)", 0);
        put_text(w, "name", "Name", s->name != NULL ? s->name : "");
        put_text(w, "colour_mode", "Colour mode", vt_word(ev_ColorMode, s->color_mode));
        if (s->lookup_table != NULL && *s->lookup_table)
            put_text(w, "lookup_table", "Lookup table", s->lookup_table);
        put_bool(w, "turned_off", "Turned off", s->turned_off);
        open_group(w, "layers", "Layers", 1);
        for (const stream *st = first_stream_in_surface(s); st != NULL; st = next_stream(st)) {
            open_group(w, NULL, vt_word(ev_StreamType, st->type), 0);
            put_text(w, "type", "Type", vt_word(ev_StreamType, st->type));
            put_text(w, "description", "Description", st->description ? st->description : "");
            put_text(w, "dataset", "Dataset", st->dataset != NULL ? st->dataset : "");
            if (st->formula.formula != NULL) put_text(w, "formula", "Formula", st->formula.formula);
            put_bool(w, "turned_off", "Turned off", st->turned_off);
            close_group(w, 0);
        }
        close_group(w, 1);
        close_group(w, 0);
    }
    close_group(w, 1);
    close_group(w, 0);
}

static void describe(writer *w, const char *name, const dshdr *d)
{
    if (w->json) {
        fputc('{', w->out);
        w->first = 1;
    }
    put_text(w, "name", "Dataset", name);
    put_text(w, "kind", "Kind",
             d->algorithm != NULL        ? "algorithm"
             : d->data_type == DT_Raster ? "raster"
                                         : "vector");
    const coordspace *cs = &d->coordspace;
    open_group(w, "coordinate_space", "Coordinate space", 0);
    put_text(w, "datum", "Datum", cs->datum != NULL ? cs->datum : "");
    put_text(w, "projection", "Projection", cs->projection != NULL ? cs->projection : "");
    put_text(w, "type", "Type", vt_word(ev_CST, cs->coordsystype));
    put_text(w, "units", "Units", cs->units != NULL ? cs->units : "");
    put_real(w, "rotation", "Rotation (radians)", cs->rotation);
    close_group(w, 0);
    if (d->data_type == DT_Raster) describe_raster(w, &d->info.r);
    if (d->algorithm != NULL) describe_algorithm(w, d->algorithm);
    if (w->json) fputs("}\n", w->out);
}

int vt_cmd_info(int argc, char **argv)
{
    static const struct option options[] = {{"json", no_argument, NULL, 'j'}, {NULL, 0, NULL, 0}};
    int json = 0, c;
    opterr = 0;
    while ((c = getopt_long(argc, argv, "j", options, NULL)) != -1) {
        if (c == 'j')
            json = 1;
        else
            return vt_usage_error("info", "unknown option '%s'", argv[optind - 1]);
    }
    if (optind >= argc) return vt_usage_error("info", "no dataset or algorithm given");
    if (optind + 1 < argc) return vt_usage_error("info", "more than one dataset given");
    const char *name = argv[optind];
    dshdr *d = NULL;
    if (eg_dshdr(&d, name) != 0) {
        ef_dshdr(d);
        return vt_fail_library("info");
    }
    writer w = {stdout, json, 0, 1};
    describe(&w, name, d);
    ef_dshdr(d);
    return fflush(stdout) == 0 ? VT_OK : vt_fail("info", "cannot write the description");
}
