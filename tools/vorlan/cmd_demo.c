/*
 * cmd_demo.c: `vorlan demo [-o DIR] [--size WxH] [--threads N]`, every
 * bundled example algorithm ($VORLAN/examples, each NAME.alg) drawn as
 * NAME.png in one folder.
 *
 * Each picture is made by the render subcommand's own drawing, so that the
 * demo shows exactly what `vorlan render` makes. A picture appears whole or
 * not at all; the first failure stops the run, and a folder that the demo
 * made and left empty is removed.
 */
#define _DEFAULT_SOURCE
#include <dirent.h>
#include <errno.h>
#include <getopt.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vorlan_tool.h"

static const char default_folder[] = "vorlan-demo";

static int has_suffix(const char *name, const char *suffix)
{
    size_t n = strlen(name), m = strlen(suffix);
    return n > m && strcmp(name + n - m, suffix) == 0;
}

static int only_algorithms(const struct dirent *entry)
{
    return entry->d_name[0] != '.' && has_suffix(entry->d_name, ".alg");
}

/* "W" "x" "H" with both from 1 to 65535, as render takes it; 0 when bad. */
static int parse_size(const char *text, int *width, int *height)
{
    char *end = NULL;
    long w = strtol(text, &end, 10);
    if (end == text || (*end != 'x' && *end != 'X')) return 0;
    const char *second = end + 1;
    long h = strtol(second, &end, 10);
    if (end == second || *end != '\0' || w < 1 || h < 1 || w > 65535 || h > 65535) return 0;
    *width = (int)w;
    *height = (int)h;
    return 1;
}

static char *join(const char *dir, const char *name, const char *suffix)
{
    size_t n = strlen(dir) + strlen(name) + strlen(suffix) + 2;
    char *s = malloc_or_die(n);
    snprintf(s, n, "%s/%s%s", dir, name, suffix);
    return s;
}

static int run_demo(const char *folder, int width, int height)
{
    const char *root = getenv("VORLAN");
    char *examples = join(root, "examples", "");
    struct dirent **entries = NULL;
    int count = scandir(examples, &entries, only_algorithms, alphasort);
    if (count <= 0) {
        int status = vt_fail("demo", "no example algorithms in %s%s%s", examples,
                             count < 0 ? ": " : "", count < 0 ? strerror(errno) : "");
        free(entries);
        safe_free(examples);
        return status;
    }

    int made_folder = 0, status = VT_OK;
    if (mkdir(folder, 0777) == 0)
        made_folder = 1;
    else if (errno != EEXIST)
        status = vt_fail("demo", "cannot make the folder %s: %s", folder, strerror(errno));
    int done = 0;
    for (int i = 0; i < count && status == VT_OK; i++) {
        const char *name = entries[i]->d_name;
        char *alg_path = join(examples, name, "");
        char *stem = strsave(name);
        stem[strlen(stem) - 4] = '\0';
        char *png_path = join(folder, stem, ".png");
        status = vt_render("demo", alg_path, png_path, width, height);
        if (status == VT_OK) {
            printf("  %s\n", png_path);
            done++;
        } else if (status != VT_INTERRUPTED) {
            vt_fail("demo", "the example %s could not be drawn", name);
        }
        safe_free(png_path);
        safe_free(stem);
        safe_free(alg_path);
    }
    if (status == VT_OK) {
        char where[PATH_MAX];
        printf("%d example%s drawn in %s\n", done, done == 1 ? "" : "s",
               realpath(folder, where) != NULL ? where : folder);
    } else if (made_folder && done == 0) {
        rmdir(folder);
    }
    for (int i = 0; i < count; i++) free(entries[i]);
    free(entries);
    safe_free(examples);
    return status;
}

int vt_cmd_demo(int argc, char **argv)
{
    static const struct option options[] = {{"output", required_argument, NULL, 'o'},
                                            {"size", required_argument, NULL, 's'},
                                            {"threads", required_argument, NULL, 'j'},
                                            {NULL, 0, NULL, 0}};
    const char *folder = default_folder;
    int width = 0, height = 0, c;
    opterr = 0;
    while ((c = getopt_long(argc, argv, ":o:s:j:", options, NULL)) != -1) {
        switch (c) {
            case 'o':
                folder = optarg;
                break;
            case 's':
                if (!parse_size(optarg, &width, &height))
                    return vt_usage_error("demo", "bad size '%s' (WIDTHxHEIGHT)", optarg);
                break;
            case 'j':
                if (vt_parse_threads("demo", optarg) != VT_OK) return VT_USAGE;
                break;
            case ':':
                return vt_usage_error("demo", "%s needs a value", argv[optind - 1]);
            default:
                return vt_usage_error("demo", "unknown option '%s'", argv[optind - 1]);
        }
    }
    if (optind < argc) return vt_usage_error("demo", "unexpected argument '%s'", argv[optind]);
    if (*folder == '\0') return vt_usage_error("demo", "the folder name is empty");
    return run_demo(folder, width, height);
}
