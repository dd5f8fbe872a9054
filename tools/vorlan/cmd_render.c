/*
 * cmd_render.c: `vorlan render ALGORITHM -o OUT.ppm|OUT.png [--size WxH]`,
 * an algorithm drawn as a picture of 24-bit pixels: a binary PPM through
 * netpbm, or a PNG through libpng, chosen by the output's extension. The rows
 * are made on every core: a PPM's go straight to their places in the file, a
 * PNG's into memory, to be compressed in order at the end.
 */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <getopt.h>
#include <netpbm/ppm.h>
#include <png.h>
#include <setjmp.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/types.h>
#include <unistd.h>

#include "vln_vds.h"
#include "vorlan_tool.h"

typedef enum { PICTURE_PPM, PICTURE_PNG } picture_kind;

static int ends_with(const char *s, const char *suffix)
{
    size_t n = strlen(s), m = strlen(suffix);
    return n > m && strcasecmp(s + n - m, suffix) == 0;
}

static int parse_size(const char *text, int *width, int *height)
{
    char *end = NULL;
    long w = strtol(text, &end, 10);
    if (end == text || (*end != 'x' && *end != 'X')) return -1;
    const char *second = end + 1;
    long h = strtol(second, &end, 10);
    if (end == second || *end != '\0' || w < 1 || h < 1 || w > 65535 || h > 65535) return -1;
    *width = (int)w;
    *height = (int)h;
    return 0;
}

/* libpng reports through this; the failure unwinds to the setjmp of the
 * call that failed. */
static void png_failed(png_structp png, png_const_charp message)
{
    fprintf(stderr, "vorlan render: PNG: %s\n", message);
    png_longjmp(png, 1);
}

/* The picture: rows in memory for a PNG, compressed in order at the end. */
typedef struct picture {
    picture_kind kind;
    int width, height;
    unsigned char *image; /* PNG: width * 3 bytes per row */
} picture;

/* Red in bits 16-23, green 8-15, blue 0-7: the shifts of the open. */
static void to_rgb(void **lines, unsigned char *rgb, int width)
{
    const uint32_t *pixels = lines[0];
    for (int x = 0; x < width; x++) {
        rgb[3 * x] = (unsigned char)(pixels[x] >> 16);
        rgb[3 * x + 1] = (unsigned char)(pixels[x] >> 8);
        rgb[3 * x + 2] = (unsigned char)pixels[x];
    }
}

/* Writes the picture held in memory as a PNG; 0 or -1. */
static int write_png(const picture *p, FILE *file)
{
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, NULL, png_failed, NULL);
    if (png == NULL) return -1;
    png_infop info = png_create_info_struct(png);
    if (info == NULL || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return -1;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, (png_uint_32)p->width, (png_uint_32)p->height, 8, PNG_COLOR_TYPE_RGB,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < p->height; y++) {
        if (vt_interrupted) png_error(png, "interrupted");
        png_write_row(png, p->image + (size_t)p->width * 3 * (size_t)y);
    }
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return 0;
}

/* The header of a binary PPM of maxval 255, through netpbm; its failures
 * come back here instead of ending the program. 0 or -1. */
static int write_ppm_header(FILE *file, int width, int height)
{
    static int started = 0;
    if (!started) {
        pm_init("vorlan", 0);
        started = 1;
    }
    jmp_buf failed, *saved = NULL;
    if (setjmp(failed) != 0) {
        pm_setjmpbuf(saved);
        return -1;
    }
    pm_setjmpbufsave(&failed, &saved);
    ppm_writeppminit(file, width, height, 255, 0);
    pm_setjmpbuf(saved);
    return ferror(file) ? -1 : 0;
}

static Vds *open_window(algorithm *alg, char **errmsg)
{
    return vds_open_alg_towin(alg, errmsg, 16, 8, 0, NULL, NULL);
}

/* Makes the picture's rows into the temporary file; an exit status. */
static int draw(const char *sub, const algorithm *pristine, Vds *vds, picture *p, const char *path,
                const char *shown)
{
    FILE *file = fopen(path, "wb");
    if (file == NULL) return vt_fail(sub, "cannot write %s: %s", shown, strerror(errno));
    int status = VT_OK;
    off_t header_bytes = 0;
    if (p->kind == PICTURE_PPM) {
        /* netpbm writes the header; the rows follow in its raw layout, three
         * bytes a pixel, each row at its place. */
        if (write_ppm_header(file, p->width, p->height) != 0 || fflush(file) != 0)
            status = vt_fail(sub, "cannot write %s", shown);
        header_bytes = ftello(file);
    } else {
        p->image = malloc((size_t)p->width * 3 * (size_t)p->height);
        if (p->image == NULL)
            status = vt_fail(sub, "no memory for a picture of %d x %d", p->width, p->height);
    }
    if (status == VT_OK) {
        vt_stripe_job job = {sub,
                             shown,
                             pristine,
                             open_window,
                             p->height,
                             1,
                             sizeof(uint32_t) * (size_t)p->width,
                             (size_t)p->width * 3,
                             to_rgb,
                             p->width,
                             fileno(file),
                             header_bytes,
                             p->image};
        status = vt_run_stripes(&job, vds);
    }
    if (status == VT_OK && p->kind == PICTURE_PNG && write_png(p, file) != 0)
        status = vt_interrupted ? VT_INTERRUPTED : vt_fail(sub, "cannot write %s", shown);
    if (fclose(file) != 0 && status == VT_OK) status = vt_fail(sub, "cannot write %s", shown);
    free(p->image);
    p->image = NULL;
    return status;
}

int vt_render(const char *sub, const char *name, const char *output, int width, int height)
{
    picture_kind kind = ends_with(output, ".png") ? PICTURE_PNG : PICTURE_PPM;
    algorithm *alg = NULL;
    if (eg_algorithm_with_transients(&alg, name) != 0) {
        ef_algorithm(alg);
        return vt_fail_library(sub);
    }
    alg->colour24 = 1;
    if (vt_default_window(sub, alg) != VT_OK) {
        ef_algorithm(alg);
        return VT_FAILED;
    }
    if (width > 0) {
        vln_rethink_alg(alg, width, height, alg->dots_per_inch_across, alg->dots_per_inch_down);
        /* The picture asked for is all image: the canvas grows with it. */
        alg->canvas_width = alg->output_width;
        alg->canvas_height = alg->output_height;
    }
    picture p = {kind, alg->output_width, alg->output_height, NULL};

    vt_tempfile temp;
    vt_catch_signals();
    if (vt_tempfile_init(&temp, sub, output, kind == PICTURE_PNG ? ".png" : ".ppm") != 0) {
        ef_algorithm(alg);
        return VT_FAILED;
    }
    int status = VT_OK;
    algorithm *pristine = NULL;
    if (cp_algorithm_all(&pristine, alg) != 0) status = vt_fail_library(sub);
    char *errmsg = NULL;
    Vds *vds = status == VT_OK ? open_window(alg, &errmsg) : NULL;
    if (status == VT_OK && vds == NULL) status = vt_fail_text(sub, errmsg);
    safe_free(errmsg);
    if (status == VT_OK) status = draw(sub, pristine, vds, &p, temp.temp_path, output);
    vds_close(&vds);
    ef_algorithm(pristine);
    if (status == VT_OK && vt_tempfile_commit(&temp, sub) != 0) status = VT_FAILED;
    if (status == VT_INTERRUPTED) fprintf(stderr, "vorlan %s: interrupted\n", sub);
    vt_tempfile_discard(&temp);
    ef_algorithm(alg);
    return status;
}

int vt_cmd_render(int argc, char **argv)
{
    static const struct option options[] = {{"output", required_argument, NULL, 'o'},
                                            {"size", required_argument, NULL, 's'},
                                            {"threads", required_argument, NULL, 'j'},
                                            {NULL, 0, NULL, 0}};
    const char *output = NULL;
    int width = 0, height = 0, c;
    opterr = 0;
    while ((c = getopt_long(argc, argv, ":o:s:j:", options, NULL)) != -1) {
        switch (c) {
            case 'o':
                output = optarg;
                break;
            case 's':
                if (parse_size(optarg, &width, &height) != 0)
                    return vt_usage_error("render", "bad size '%s' (WIDTHxHEIGHT)", optarg);
                break;
            case 'j':
                if (vt_parse_threads("render", optarg) != VT_OK) return VT_USAGE;
                break;
            case ':':
                return vt_usage_error("render", "%s needs a value", argv[optind - 1]);
            default:
                return vt_usage_error("render", "unknown option '%s'", argv[optind - 1]);
        }
    }
    if (optind >= argc) return vt_usage_error("render", "no algorithm given");
    if (optind + 1 < argc) return vt_usage_error("render", "more than one algorithm given");
    if (output == NULL) return vt_usage_error("render", "no output given (-o OUT.ppm)");
    if (!ends_with(output, ".ppm") && !ends_with(output, ".png"))
        return vt_usage_error("render", "the output must end in .ppm or .png");
    return vt_render("render", argv[optind], output, width, height);
}
