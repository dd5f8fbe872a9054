/*
 * vds_capi_test.c: virtual datasets from C, through the installed library's
 * interface alone. Datasets are generated here from known functions of band,
 * line and cell; algorithms are written as text over them; each open reads
 * every line, and the lines are checked against values worked out here from
 * the functions and the rules of each output. Exits nonzero at a surprise.
 */
#define _POSIX_C_SOURCE 200809L
#include <math.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "vld_alg.h"
#include "vld_core.h"
#include "vld_dshdr.h"
#include "vld_raster.h"
#include "vln_path.h"
#include "vln_vds.h"

static int failures = 0, checks = 0;
static char dir[64];

#define CHECK(cond)                                                                  \
    do {                                                                             \
        checks++;                                                                    \
        if (!(cond)) {                                                               \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            failures++;                                                              \
        }                                                                            \
    } while (0)

/* A file of the scratch folder. */
static const char *path_of(const char *name)
{
    static char paths[8][256];
    static int next = 0;
    char *p = paths[next++ % 8];
    snprintf(p, 256, "%s/%s", dir, name);
    return p;
}

/* ---------------------------------------------------------------- datasets */

static unsigned value8(int band, int line, int cell)
{
    return (unsigned)(band * 61 + line * 13 + cell * 7) % 256u;
}

static unsigned value16(int band, int line, int cell)
{
    return (unsigned)(band * 1009 + line * 131 + cell * 7) % 65521u;
}

/* A raster of `bands` bands at cell size 1 with its top left at (x0, y0),
 * each cell from `value8` (8-bit) or `value16` (16-bit). */
static void write_dataset(const char *stem, int cells, int lines, int bands, int type, double x0,
                          double y0)
{
    char header[300];
    snprintf(header, sizeof header, "%s.vld", path_of(stem));
    dshdr *d = NULL;
    CHECK(df_raster_dshdr(&d, header, cells, lines, bands, type) == 0);
    d->info.r.registration_coord.x = x0;
    d->info.r.registration_coord.y = y0;
    d->info.r.cellinfo.x_dimension = d->info.r.cellinfo.y_dimension = 1.0;
    CHECK(ep_dshdr(d, header) == 0);
    ef_dshdr(d);
    FILE *f = fopen(path_of(stem), "wb");
    CHECK(f != NULL);
    for (int l = 0; l < lines; l++)
        for (int b = 0; b < bands; b++)
            for (int c = 0; c < cells; c++) {
                if (type == Unsigned8BitInteger) {
                    unsigned char v = (unsigned char)value8(b, l, c);
                    fwrite(&v, 1, 1, f);
                } else {
                    uint16_t v = (uint16_t)value16(b, l, c);
                    fwrite(&v, 2, 1, f);
                }
            }
    fclose(f);
}

/* ---------------------------------------------------------------- algorithms */

/* An algorithm's text, built a line at a time. */
typedef struct {
    char text[16384];
    size_t length;
} Doc;

static void add(Doc *doc, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    int n = vsnprintf(doc->text + doc->length, sizeof doc->text - doc->length, format, args);
    va_end(args);
    if (n > 0) doc->length += (size_t)n;
}

/* The top of a document over raw space from (0, 0) to (width, height) at one
 * cell per pixel; `settings` are further lines of the top level. */
static void begin_doc(Doc *doc, int width, int height, const char *settings)
{
    doc->length = 0;
    add(doc,
        "Algorithm Begin\n\tVersion = \"7.0\"\n\tName = \"C test\"\n"
        "\tCoordinateSpace Begin\n\t\tDatum = \"RAW\"\n\t\tProjection = \"RAW\"\n"
        "\t\tCoordinateType = RAW\n\tCoordinateSpace End\n"
        "\tTopLeftCorner Begin\n\t\tMetersX = 0\n\t\tMetersY = 0\n\tTopLeftCorner End\n"
        "\tBottomRightCorner Begin\n\t\tMetersX = %d\n\t\tMetersY = %d\n"
        "\tBottomRightCorner End\n\tOutputWidth = %d\n\tOutputHeight = %d\n"
        "\tCanvasWidth = %d\n\tCanvasHeight = %d\n"
        "\tDotsPerInchAcross = 96\n\tDotsPerInchDown = 96\n%s",
        width, height, width, height, width, height, settings);
}

static void begin_surface(Doc *doc, const char *mode, const char *extra)
{
    add(doc, "\tSurface Begin\n\t\tName = \"S\"\n\t\tColorMode = %s\n%s", mode, extra);
}

/* A layer of `type` over band `band` (from 1) of a dataset of this folder. */
static void add_stream(Doc *doc, const char *type, const char *description, const char *stem,
                       int band, const char *extra)
{
    add(doc,
        "\t\tStream Begin\n\t\t\tType = %s\n\t\t\tDescription = \"%s\"\n"
        "\t\t\tDataset = \"%s.vld\"\n%s"
        "\t\t\tStreamInput Begin\n\t\t\t\tStreamInputID = 1\n\t\t\tStreamInput End\n"
        "\t\t\tFormula Begin\n\t\t\t\tFormula = \"INPUT1\"\n\t\t\t\tFormulaArg Begin\n"
        "\t\t\t\t\tStreamInput = 1\n\t\t\t\t\tBandNumber = %d\n\t\t\t\tFormulaArg End\n"
        "\t\t\tFormula End\n\t\tStream End\n",
        type, description, path_of(stem), extra, band);
}

static algorithm *end_doc(Doc *doc, const char *name)
{
    add(doc, "\tSurface End\nAlgorithm End\n");
    const char *path = path_of(name);
    FILE *f = fopen(path, "w");
    CHECK(f != NULL);
    fputs(doc->text, f);
    fclose(f);
    algorithm *alg = NULL;
    if (eg_algorithm_with_transients(&alg, path) != 0) {
        fprintf(stderr, "%s: %s\n", name, VLD_error_text());
        failures++;
        ef_algorithm(alg);
        return NULL;
    }
    return alg;
}

/* ---------------------------------------------------------------- reading */

/* Reads every line of a handle with `bands` lines of `bytes` per read and
 * checks that the next read is the end; the lines, one after the other. */
static unsigned char *read_every_line(Vds *vds, int bands, int lines, size_t bytes)
{
    unsigned char *all = calloc((size_t)bands * (size_t)lines, bytes);
    void *line_ptrs[16];
    rlseg *runs[16] = {0};
    for (int y = 0; y < lines; y++) {
        for (int b = 0; b < bands; b++) line_ptrs[b] = all + ((size_t)y * bands + b) * bytes;
        int status = vds_read(vds, line_ptrs, runs, 0);
        if (status != 0) {
            fprintf(stderr, "read of line %d: %d %s\n", y, status,
                    vds_error_text(vds) ? vds_error_text(vds) : "");
            failures++;
            break;
        }
    }
    CHECK(vds_read(vds, line_ptrs, runs, 0) == -1);
    for (int b = 0; b < bands; b++) CHECK(runs[b] == NULL);
    return all;
}

/* The handle of an open, or null after reporting why it failed; `errmsg` is
 * the address the open was given, read only after the open has run. */
static Vds *checked_open(Vds *vds, char **errmsg, const char *what)
{
    if (vds == NULL) {
        fprintf(stderr, "%s: the open failed: %s\n", what, *errmsg ? *errmsg : "(no text)");
        failures++;
    }
    safe_free(*errmsg);
    *errmsg = NULL;
    return vds;
}

/* ---------------------------------------------------------------- cases */

/* Two bands of a 16-bit dataset to a new dataset of 32-bit reals: the header
 * written beside the bytes reads back, and the bytes are the cells. */
static void dataset_of_reals(void)
{
    const int W = 20, H = 12;
    write_dataset("src16", W, H, 2, Unsigned16BitInteger, 0, 0);
    Doc doc;
    begin_doc(&doc, W, H, "\tOutputType = IEEE4ByteReal\n\tNullValue = 0\n");
    begin_surface(&doc, "DATASET", "");
    add_stream(&doc, "Pseudo", "second", "src16", 2, "");
    add_stream(&doc, "Pseudo", "first", "src16", 1, "");
    algorithm *alg = end_doc(&doc, "reals.alg");
    if (alg == NULL) return;
    char *errmsg = NULL;
    Vds *vds = checked_open(vds_open_alg_tods(alg, &errmsg, NULL, NULL), &errmsg, "reals");
    if (vds == NULL) {
        ef_algorithm(alg);
        return;
    }
    // The new dataset: a header, then each line of each band written in turn.
    const char *out_header = path_of("reals_out.vld");
    dshdr *out = NULL;
    CHECK(df_raster_dshdr(&out, out_header, W, H, 2, IEEE4ByteReal) == 0);
    CHECK(ep_dshdr(out, out_header) == 0);
    rasterfile writer;
    CHECK(eow_raster(&writer, out) == 0);
    float *lines = calloc((size_t)2 * W, sizeof(float));
    void *line_ptrs[2] = {lines, lines + W};
    rlseg *runs[2] = {NULL, NULL};
    int n = 0;
    while (vds_read(vds, line_ptrs, runs, 0) == 0) {
        CHECK(ep_raster(&writer, line_ptrs, 1) == 0);
        n++;
    }
    CHECK(n == H);
    CHECK(ec_raster(&writer) == 0);
    vds_close(&vds);
    CHECK(vds == NULL);
    ef_dshdr(out);
    free(lines);

    dshdr *back = NULL;
    CHECK(eg_dshdr(&back, out_header) == 0);
    if (back != NULL) {
        CHECK(back->info.r.cell_type == IEEE4ByteReal);
        CHECK(back->info.r.nr_bands == 2 && back->info.r.nr_cells == W && back->info.r.nr_lines == H);
        ef_dshdr(back);
    }
    FILE *f = fopen(path_of("reals_out"), "rb");
    CHECK(f != NULL);
    if (f != NULL) {
        float cell;
        int bad = 0;
        for (int y = 0; y < H; y++)
            for (int b = 0; b < 2; b++)
                for (int x = 0; x < W; x++) {
                    if (fread(&cell, 4, 1, f) != 1) bad++;
                    // Band 0 of the output is the first layer of the document: band 2.
                    else if (cell != (float)value16(b == 0 ? 1 : 0, y, x)) bad++;
                }
        CHECK(bad == 0);
        CHECK(fread(&cell, 1, 1, f) == 0);
        fclose(f);
    }
    ef_algorithm(alg);
}

/* A rectangle of a dataset whose header is an algorithm, by band numbers and
 * by band names. */
static void rectangle_of_a_virtual_dataset(void)
{
    const int W = 18, H = 10;
    write_dataset("vsrc", W, H, 1, Unsigned16BitInteger, 0, 0);
    Doc doc;
    begin_doc(&doc, W, H, "\tOutputType = Unsigned16BitInteger\n\tNullValue = 0\n");
    begin_surface(&doc, "DATASET", "");
    add_stream(&doc, "Pseudo", "only", "vsrc", 1, "");
    algorithm *alg = end_doc(&doc, "virtual.alg");
    ef_algorithm(alg);
    dshdr *dsh = NULL;
    CHECK(eg_dshdr(&dsh, path_of("virtual.alg")) == 0);
    if (dsh == NULL) return;
    char *errmsg = NULL;
    const int bands[] = {0};
    Vds *vds = checked_open(vds_vopen(dsh, 2, 6, 3, 11, bands, 1, &errmsg), &errmsg, "vopen");
    if (vds != NULL) {
        // A virtual dataset's cells are reals.
        double *cells = (double *)read_every_line(vds, 1, 6, (size_t)11 * sizeof(double));
        int bad = 0;
        for (int y = 0; y < 6; y++)
            for (int x = 0; x < 11; x++)
                if (cells[y * 11 + x] != (double)value16(0, y + 2, x + 3)) bad++;
        CHECK(bad == 0);
        free(cells);
        vds_close(&vds);
    }
    char one[] = "1";
    char *names[] = {one};
    vds = checked_open(vds_open(dsh, 0, H, 0, W, names, 1, &errmsg), &errmsg, "open by name");
    if (vds != NULL) {
        double *cells = (double *)read_every_line(vds, 1, H, (size_t)W * sizeof(double));
        CHECK(cells[(H - 1) * W + W - 1] == (double)value16(0, H - 1, W - 1));
        free(cells);
        vds_close(&vds);
    }
    ef_dshdr(dsh);
}


/* ---------------------------------------------------------------- colour outputs */

/* The colours of a lookup table of the installation tree, in the upper byte
 * of each entry, read here from the file's text. */
static int read_lut(const char *name, unsigned char rgb[256][3])
{
    char path[512];
    snprintf(path, sizeof path, "%s/lut/%s.lut", getenv("VORLAN"), name);
    FILE *f = fopen(path, "r");
    if (f == NULL) return 0;
    char line[256];
    int n = 0, in_table = 0;
    memset(rgb, 0, 256 * 3);
    while (fgets(line, sizeof line, f) != NULL && n < 256) {
        if (strstr(line, "{") != NULL) {
            in_table = 1;
            continue;
        }
        unsigned index, r, g, b;
        if (in_table && sscanf(line, "%u %u %u %u", &index, &r, &g, &b) == 4) {
            rgb[n][0] = (unsigned char)(r >> 8);
            rgb[n][1] = (unsigned char)(g >> 8);
            rgb[n][2] = (unsigned char)(b >> 8);
            n++;
        }
    }
    fclose(f);
    return n;
}

static uint32_t pixel(unsigned r, unsigned g, unsigned b, int rs, int gs, int bs)
{
    return ((uint32_t)r << rs) | ((uint32_t)g << gs) | ((uint32_t)b << bs);
}

/* Hue, saturation and intensity to red, green and blue, as the display does. */
static void hsi_to_rgb(unsigned h, unsigned s, unsigned v, unsigned rgb[3])
{
    if (s == 0) {
        rgb[0] = rgb[1] = rgb[2] = v;
        return;
    }
    const double f = h / 42.666666666666664;
    const int i = (int)f;
    const double t = v * (double)s / 255.0, u = t * (f - i), p = v - t;
    const unsigned pu = (unsigned)(p + u + 0.5), pp = (unsigned)(p + 0.5),
                   vu = (unsigned)(v - u + 0.5);
    const unsigned table[6][3] = {{v, pu, pp}, {vu, v, pp}, {pp, v, pu},
                                  {pp, vu, v}, {pu, pp, v}, {v, pp, vu}};
    if (i < 0 || i > 5) return;
    for (int k = 0; k < 3; k++) rgb[k] = table[i][k];
}

/* Window pixels of one surface with Colour24Flag: `expected(x, y)`. */
typedef uint32_t (*pixel_rule)(int x, int y);

static void check_window(algorithm *alg, const char *what, int W, int H, pixel_rule expected,
                         int rs, int gs, int bs)
{
    char *errmsg = NULL;
    Vds *vds = checked_open(vds_open_alg_towin(alg, &errmsg, rs, gs, bs, NULL, NULL), &errmsg, what);
    if (vds == NULL) return;
    uint32_t *pixels = (uint32_t *)read_every_line(vds, 1, H, (size_t)W * 4);
    int bad = 0;
    for (int y = 0; y < H; y++)
        for (int x = 0; x < W; x++)
            if ((pixels[y * W + x] & 0xffffffu) != expected(x, y)) {
                if (bad++ < 3)
                    fprintf(stderr, "%s: pixel (%d, %d) is %08x, not %08x\n", what, x, y,
                            (unsigned)pixels[y * W + x], (unsigned)expected(x, y));
            }
    CHECK(bad == 0);
    free(pixels);
    vds_close(&vds);
}

static unsigned char g_lut[256][3];

static uint32_t pseudo_rule(int x, int y)
{
    const unsigned v = value8(0, y, x);
    return pixel(g_lut[v][0], g_lut[v][1], g_lut[v][2], 0, 8, 16);
}

static uint32_t rgb_rule(int x, int y)
{
    return pixel(value8(0, y, x), value8(1, y, x), value8(2, y, x), 16, 8, 0);
}

static uint32_t hsi_rule(int x, int y)
{
    unsigned rgb[3] = {0, 0, 0};
    hsi_to_rgb(value8(0, y, x), value8(1, y, x), value8(2, y, x), rgb);
    return pixel(rgb[0], rgb[1], rgb[2], 16, 8, 0);
}

/* A pseudocolour view through a lookup table; an RGB surface of three
 * layers; and the same bands as hue, saturation and intensity. */
static void colour_views(void)
{
    const int W = 24, H = 10;
    write_dataset("colour8", W, H, 3, Unsigned8BitInteger, 0, 0);
    const char *settings = "\tColour24Flag = Yes\n\tOutputType = Unsigned8BitInteger\n";
    Doc doc;

    CHECK(read_lut("pseudocolor", g_lut) == 256);
    begin_doc(&doc, W, H, settings);
    begin_surface(&doc, "PSEUDO", "\t\tLookupTable = \"pseudocolor\"\n");
    add_stream(&doc, "Pseudo", "p", "colour8", 1, "");
    algorithm *alg = end_doc(&doc, "pseudo.alg");
    if (alg != NULL) check_window(alg, "pseudocolour", W, H, pseudo_rule, 0, 8, 16);
    ef_algorithm(alg);

    begin_doc(&doc, W, H, settings);
    begin_surface(&doc, "RGB", "");
    add_stream(&doc, "Red", "r", "colour8", 1, "");
    add_stream(&doc, "Green", "g", "colour8", 2, "");
    add_stream(&doc, "Blue", "b", "colour8", 3, "");
    alg = end_doc(&doc, "rgb.alg");
    if (alg != NULL) check_window(alg, "RGB", W, H, rgb_rule, 16, 8, 0);
    ef_algorithm(alg);

    begin_doc(&doc, W, H, settings);
    begin_surface(&doc, "HSI", "");
    add_stream(&doc, "Hue", "h", "colour8", 1, "");
    add_stream(&doc, "Saturation", "s", "colour8", 2, "");
    add_stream(&doc, "Intensity", "i", "colour8", 3, "");
    alg = end_doc(&doc, "hsi.alg");
    if (alg != NULL) check_window(alg, "HSI", W, H, hsi_rule, 16, 8, 0);
    ef_algorithm(alg);
}


static uint32_t class_rule(int x, int y)
{
    // The lower value of the two layers wins; a tie goes to the first listed.
    const unsigned a = value8(0, y, x), b = value8(1, y, x);
    return a <= b ? pixel(255, 0, 0, 16, 8, 0) : pixel(0, 0, 255, 16, 8, 0);
}

/* A surface of two Classification layers: each cell takes the colour of the
 * layer of lowest value. */
static void classification_view(void)
{
    const int W = 16, H = 8;
    write_dataset("classes8", W, H, 2, Unsigned8BitInteger, 0, 0);
    Doc doc;
    begin_doc(&doc, W, H, "\tColour24Flag = Yes\n\tOutputType = Unsigned8BitInteger\n");
    begin_surface(&doc, "PSEUDO", "\t\tLookupTable = \"greyscale\"\n");
    add_stream(&doc, "Classification", "red class", "classes8", 1,
               "\t\t\tRGBcolour Begin\n\t\t\t\tRed = 65535\n\t\t\t\tGreen = 0\n"
               "\t\t\t\tBlue = 0\n\t\t\tRGBcolour End\n");
    add_stream(&doc, "Classification", "blue class", "classes8", 2,
               "\t\t\tRGBcolour Begin\n\t\t\t\tRed = 0\n\t\t\t\tGreen = 0\n"
               "\t\t\t\tBlue = 65535\n\t\t\tRGBcolour End\n");
    algorithm *alg = end_doc(&doc, "classes.alg");
    if (alg != NULL) check_window(alg, "classification", W, H, class_rule, 16, 8, 0);
    ef_algorithm(alg);
}

/* Two datasets side by side on one band: "left" covers cells 0 to 15, "right"
 * cells 8 to 23 and is listed last. Overlay shows the last layer where it is
 * valid; two layers of the same extent feather to their mean. */
static void mosaics(void)
{
    const int W = 24, H = 6;
    write_dataset("mleft", 16, H, 2, Unsigned16BitInteger, 0, 0);
    write_dataset("mright", 16, H, 1, Unsigned16BitInteger, 8, 0);
    Doc doc;
    begin_doc(&doc, W, H, "\tOutputType = Unsigned16BitInteger\n\tMosaicType = Overlay\n");
    begin_surface(&doc, "DATASET", "");
    add_stream(&doc, "Pseudo", "Band", "mleft", 1, "");
    add_stream(&doc, "Pseudo", "Band", "mright", 1, "");
    algorithm *alg = end_doc(&doc, "overlay.alg");
    char *errmsg = NULL;
    Vds *vds = alg ? checked_open(vds_open_alg_tods(alg, &errmsg, NULL, NULL), &errmsg, "overlay")
                   : NULL;
    if (vds != NULL) {
        uint16_t *cells = (uint16_t *)read_every_line(vds, 1, H, (size_t)W * 2);
        int bad = 0;
        for (int y = 0; y < H; y++)
            for (int x = 0; x < W; x++)
                if (cells[y * W + x] != (x < 8 ? value16(0, y, x) : value16(0, y, x - 8))) bad++;
        CHECK(bad == 0);
        free(cells);
        vds_close(&vds);
    }
    ef_algorithm(alg);

    begin_doc(&doc, 16, H, "\tOutputType = Unsigned16BitInteger\n\tMosaicType = Feather\n");
    begin_surface(&doc, "DATASET", "");
    add_stream(&doc, "Pseudo", "Band", "mleft", 1, "");
    add_stream(&doc, "Pseudo", "Band", "mleft", 2, "");
    alg = end_doc(&doc, "feather.alg");
    vds = alg ? checked_open(vds_open_alg_tods(alg, &errmsg, NULL, NULL), &errmsg, "feather") : NULL;
    if (vds != NULL) {
        uint16_t *cells = (uint16_t *)read_every_line(vds, 1, H, (size_t)16 * 2);
        int bad = 0;
        for (int y = 0; y < H; y++)
            for (int x = 0; x < 16; x++) {
                const double mean = (value16(0, y, x) + value16(1, y, x)) * 0.5;
                if (cells[y * 16 + x] != (uint16_t)floor(mean + 0.5)) bad++;
            }
        CHECK(bad == 0);
        free(cells);
        vds_close(&vds);
    }
    ef_algorithm(alg);
}


/* A grey pseudocolour surface over band 1 with a Height layer over band 2,
 * through the layouts that carry more than a window's pixel. */
static algorithm *grey_with_height(int W, int H, int with_height)
{
    Doc doc;
    begin_doc(&doc, W, H, "\tColour24Flag = Yes\n\tOutputType = Unsigned8BitInteger\n");
    begin_surface(&doc, "PSEUDO", "\t\tLookupTable = \"greyscale\"\n");
    add_stream(&doc, "Pseudo", "grey", "layouts8", 1, "");
    if (with_height) add_stream(&doc, "Height", "height", "layouts8", 2, "");
    return end_doc(&doc, with_height ? "layouts_h.alg" : "layouts.alg");
}

static void other_layouts(void)
{
    const int W = 12, H = 5;
    write_dataset("layouts8", W, H, 2, Unsigned8BitInteger, 0, 0);
    char *errmsg = NULL;
    int bad = 0;

    // Window pixels with the height in the top byte.
    algorithm *alg = grey_with_height(W, H, 1);
    Vds *vds = alg ? checked_open(vds_open_alg_rgbh(alg, &errmsg), &errmsg, "rgbh") : NULL;
    if (vds != NULL) {
        uint32_t *pixels = (uint32_t *)read_every_line(vds, 1, H, (size_t)W * 4);
        for (int y = 0; y < H; y++)
            for (int x = 0; x < W; x++) {
                const unsigned v = value8(0, y, x), h = value8(1, y, x);
                if (pixels[y * W + x] != (pixel(v, v, v, 16, 8, 0) | (uint32_t)h << 24)) bad++;
            }
        free(pixels);
        vds_close(&vds);
    }
    CHECK(bad == 0);
    ef_algorithm(alg);

    // Twelve planes: the pseudo plane holds the values, the mask says so.
    alg = grey_with_height(W, H, 0);
    vds = alg ? checked_open(vds_open_alg_tobuffers(alg, &errmsg, NULL, NULL), &errmsg, "buffers")
              : NULL;
    if (vds != NULL) {
        uint8_t needs[12];
        CHECK(vds_buffers_needed(vds, needs) == 1);
        CHECK(needs[6] == 1 && needs[8] == 1 && needs[0] == 0 && needs[7] == 0);
        uint8_t planes[12][12];
        void *lines[12];
        for (int i = 0; i < 12; i++) lines[i] = planes[i];
        bad = 0;
        for (int y = 0; y < H; y++) {
            CHECK(vds_read_tobuffers(vds, lines) == 0);
            for (int x = 0; x < W; x++)
                if (planes[6][x] != value8(0, y, x) || planes[8][x] != 64) bad++;
        }
        CHECK(bad == 0);
        CHECK(vds_read_tobuffers(vds, lines) == -1);
        vds_close(&vds);
    }

    // Packed pixels: one run of pseudo cells a byte each, in a table of runs.
    vds = alg ? checked_open(vds_open_alg_toppbuffers(alg, &errmsg, NULL, NULL), &errmsg,
                             "packed")
              : NULL;
    if (vds != NULL) {
        uint8_t packed[64];
        void *lines[1] = {packed};
        uint32_t *tables[1] = {NULL};
        bad = 0;
        for (int y = 0; y < H; y++) {
            CHECK(vds_read_toppbuffers(vds, lines, tables) == 0);
            const uint32_t *t = tables[0];
            CHECK(t != NULL);
            if (t == NULL) break;
            if (t[0] != 0 || t[1] != (uint32_t)W || t[2] != 64 || t[3] != (uint32_t)W || t[4] != 0 ||
                t[5] != 0)
                bad++;
            for (int x = 0; x < W; x++)
                if (packed[x] != value8(0, y, x)) bad++;
            free(tables[0]);
            tables[0] = NULL;
        }
        CHECK(bad == 0);
        vds_close(&vds);
    }
    ef_algorithm(alg);

    // Per surface: the surface's pixels, and its heights as reals.
    alg = grey_with_height(W, H, 1);
    vds = alg ? checked_open(vds_open_alg_ms_rgbh(alg, &errmsg), &errmsg, "per surface") : NULL;
    if (vds != NULL) {
        CHECK(alg->process_vectors == PV_MergeWithRaster);
        uint32_t rgb[12];
        float heights[12];
        void *rgb_lines[1] = {rgb}, *height_lines[1] = {heights};
        rlseg *runs[2] = {NULL, NULL};
        bad = 0;
        for (int y = 0; y < H; y++) {
            CHECK(vds_read_to_ms_rgbh(vds, rgb_lines, height_lines, runs) == 0);
            CHECK(runs[0] != NULL && runs[1] != NULL);
            for (int x = 0; x < W; x++) {
                const unsigned v = value8(0, y, x);
                if ((rgb[x] & 0xffffffu) != pixel(v, v, v, 16, 8, 0)) bad++;
                if (heights[x] != (float)value8(1, y, x)) bad++;
            }
        }
        CHECK(bad == 0);
        CHECK(vds_read_to_ms_rgbh(vds, rgb_lines, height_lines, runs) == -1);
        CHECK(runs[0] == NULL && runs[1] == NULL);
        vds_close(&vds);
    }
    ef_algorithm(alg);
}

/* Opens that fail leave a text and no handle. */
static void failed_opens(void)
{
    char *errmsg = (char *)"not null";
    CHECK(vds_open_alg_tods(NULL, &errmsg, NULL, NULL) == NULL);
    CHECK(errmsg != NULL);
    safe_free(errmsg);
    write_dataset("zero", 4, 4, 1, Unsigned8BitInteger, 0, 0);
    Doc doc;
    begin_doc(&doc, 4, 4, "\tOutputType = Unsigned8BitInteger\n");
    begin_surface(&doc, "DATASET", "");
    add_stream(&doc, "Pseudo", "z", "zero", 1, "");
    algorithm *alg = end_doc(&doc, "zero.alg");
    if (alg == NULL) return;
    alg->output_width = 0;
    errmsg = NULL;
    CHECK(vds_open_alg_tods(alg, &errmsg, NULL, NULL) == NULL);
    CHECK(errmsg != NULL && strcmp(errmsg, "Image window has 0 width\n") == 0);
    safe_free(errmsg);
    ef_algorithm(alg);
    // A band list that selects nothing.
    dshdr *dsh = NULL;
    CHECK(eg_dshdr(&dsh, path_of("virtual.alg")) == 0);
    if (dsh != NULL) {
        const int no_band[] = {5};
        errmsg = NULL;
        CHECK(vds_vopen(dsh, 0, 2, 0, 2, no_band, 1, &errmsg) == NULL);
        CHECK(errmsg != NULL &&
              strcmp(errmsg, "Nothing to output to dataset - all overlays off or invisible\n") == 0);
        safe_free(errmsg);
        ef_dshdr(dsh);
    }
    Vds *none = NULL;
    vds_close(&none);
    vds_close(NULL);
}

int main(void)
{
    snprintf(dir, sizeof dir, "/tmp/vds_capi_XXXXXX");
    if (mkdtemp(dir) == NULL) return 2;
    setenv("VLN_MACHINE_TYPE", "linux", 0);
    if (PE_initialise("vds_capi_test") != 0) {
        fprintf(stderr, "PE_initialise: %s\n", VLD_error_text());
        return 1;
    }
    dataset_of_reals();
    mosaics();
    colour_views();
    classification_view();
    other_layouts();
    rectangle_of_a_virtual_dataset();
    failed_opens();
    vln_rmrfdir(dir);
    printf("vds_capi_test: %d checks, %d failed\n", checks, failures);
    return failures == 0 ? 0 : 1;
}
