/*
 * cmd_render.c: `vorlan render ALGORITHM -o OUT.ppm|OUT.png [--size WxH]`,
 * an algorithm drawn as a picture of 24-bit pixels: a binary PPM written
 * here, or a PNG through libpng, chosen by the output's extension.
 */
#define _POSIX_C_SOURCE 200809L
#include <getopt.h>
#include <png.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "vln_vds.h"
#include "vorlan_tool.h"

typedef enum { PICTURE_PPM, PICTURE_PNG } picture_kind;

/* The picture file being written; one of the two faces is used. */
typedef struct picture {
    picture_kind kind;
    FILE *file;
    png_structp png;
    png_infop info;
} picture;

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

/* libpng reports through this; the failure unwinds to the setjmp in each
 * call that may fail. */
static void png_failed(png_structp png, png_const_charp message)
{
    fprintf(stderr, "vorlan render: PNG: %s\n", message);
    png_longjmp(png, 1);
}

static int picture_begin(picture *p, int width, int height)
{
    if (p->kind == PICTURE_PPM) return fprintf(p->file, "P6\n%d %d\n255\n", width, height) < 0;
    p->png = png_create_write_struct(PNG_LIBPNG_VER_STRING, NULL, png_failed, NULL);
    if (p->png == NULL) return -1;
    p->info = png_create_info_struct(p->png);
    if (p->info == NULL || setjmp(png_jmpbuf(p->png))) return -1;
    png_init_io(p->png, p->file);
    png_set_IHDR(p->png, p->info, (png_uint_32)width, (png_uint_32)height, 8, PNG_COLOR_TYPE_RGB,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(p->png, p->info);
    return 0;
}

static int picture_row(picture *p, const unsigned char *rgb, int width)
{
    if (p->kind == PICTURE_PPM)
        return fwrite(rgb, 3, (size_t)width, p->file) == (size_t)width ? 0 : -1;
    if (setjmp(png_jmpbuf(p->png))) return -1;
    png_write_row(p->png, rgb);
    return 0;
}

static int picture_end(picture *p)
{
    if (p->kind == PICTURE_PNG) {
        if (setjmp(png_jmpbuf(p->png))) return -1;
        png_write_end(p->png, p->info);
    }
    return 0;
}

static void picture_free(picture *p)
{
    if (p->png != NULL) png_destroy_write_struct(&p->png, &p->info);
    if (p->file != NULL) fclose(p->file);
    p->file = NULL;
}

/* Reads every line of the window into the picture; an exit status. */
static int draw(Vds *vds, picture *p, int width, int height)
{
    uint32_t *pixels = malloc_or_die(sizeof(uint32_t) * (size_t)width);
    unsigned char *rgb = malloc_or_die((size_t)width * 3);
    void *lines[1] = {pixels};
    int status = picture_begin(p, width, height) == 0 ? VT_OK : vt_fail("render", "cannot write");
    for (int y = 0; y < height && status == VT_OK; y++) {
        if (vt_interrupted) {
            status = VT_INTERRUPTED;
            break;
        }
        if (vds_read(vds, lines, NULL, 0) != 0) {
            status = vt_fail_text("render", vt_read_error_text(vds));
            break;
        }
        /* Red in bits 16-23, green 8-15, blue 0-7: the shifts of the open. */
        for (int x = 0; x < width; x++) {
            rgb[3 * x] = (unsigned char)(pixels[x] >> 16);
            rgb[3 * x + 1] = (unsigned char)(pixels[x] >> 8);
            rgb[3 * x + 2] = (unsigned char)pixels[x];
        }
        if (picture_row(p, rgb, width) != 0) status = vt_fail("render", "cannot write a row");
    }
    if (status == VT_OK && picture_end(p) != 0) status = vt_fail("render", "cannot finish");
    if (status == VT_OK && vt_interrupted) status = VT_INTERRUPTED;
    safe_free(rgb);
    safe_free(pixels);
    return status;
}

static int render(const char *name, const char *output, picture_kind kind, int width, int height)
{
    algorithm *alg = NULL;
    if (eg_algorithm_with_transients(&alg, name) != 0) {
        ef_algorithm(alg);
        return vt_fail_library("render");
    }
    alg->colour24 = 1;
    if (vt_default_window("render", alg) != VT_OK) {
        ef_algorithm(alg);
        return VT_FAILED;
    }
    if (width > 0)
        vln_rethink_alg(alg, width, height, alg->dots_per_inch_across, alg->dots_per_inch_down);
    width = alg->output_width;
    height = alg->output_height;

    vt_tempfile temp;
    vt_catch_signals();
    if (vt_tempfile_init(&temp, "render", output, kind == PICTURE_PNG ? ".png" : ".ppm") != 0) {
        ef_algorithm(alg);
        return VT_FAILED;
    }
    int status = VT_OK;
    char *errmsg = NULL;
    Vds *vds = vds_open_alg_towin(alg, &errmsg, 16, 8, 0, NULL, NULL);
    if (vds == NULL) {
        status = vt_fail_text("render", errmsg);
    }
    safe_free(errmsg);
    picture p = {kind, NULL, NULL, NULL};
    if (status == VT_OK) {
        p.file = fopen(temp.temp_path, "wb");
        if (p.file == NULL) status = vt_fail("render", "cannot write %s", temp.temp_path);
    }
    if (status == VT_OK) status = draw(vds, &p, width, height);
    vds_close(&vds);
    if (p.file != NULL && fflush(p.file) != 0 && status == VT_OK)
        status = vt_fail("render", "cannot write %s", temp.temp_path);
    picture_free(&p);
    if (status == VT_OK && vt_tempfile_commit(&temp, "render") != 0) status = VT_FAILED;
    if (status == VT_INTERRUPTED) fprintf(stderr, "vorlan render: interrupted\n");
    vt_tempfile_discard(&temp);
    ef_algorithm(alg);
    return status;
}

int vt_cmd_render(int argc, char **argv)
{
    static const struct option options[] = {{"output", required_argument, NULL, 'o'},
                                            {"size", required_argument, NULL, 's'},
                                            {NULL, 0, NULL, 0}};
    const char *output = NULL;
    int width = 0, height = 0, c;
    opterr = 0;
    while ((c = getopt_long(argc, argv, ":o:s:", options, NULL)) != -1) {
        switch (c) {
            case 'o':
                output = optarg;
                break;
            case 's':
                if (parse_size(optarg, &width, &height) != 0)
                    return vt_usage_error("render", "bad size '%s' (WIDTHxHEIGHT)", optarg);
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
    picture_kind kind;
    if (ends_with(output, ".ppm"))
        kind = PICTURE_PPM;
    else if (ends_with(output, ".png"))
        kind = PICTURE_PNG;
    else
        return vt_usage_error("render", "the output must end in .ppm or .png");
    return render(argv[optind], output, kind, width, height);
}
