/*
 * cmd_cs.c: `vorlan cs --from DATUM,PROJECTION[,UNITS] --to DATUM,PROJECTION[,UNITS]
 * [FILE]`, points carried from one coordinate system to another.
 *
 * Each line of the input (standard input without FILE) holds x and y, and
 * optionally z, separated by blanks or commas; a geodetic point is longitude
 * then latitude. The line comes out with the point transformed and whatever
 * followed the numbers after it. A point the engine can't carry (outside a
 * grid, past a projection's horizon) comes out as "* *" with the rest of its
 * line, and the run goes on; blank lines and lines starting with '#' pass
 * through. Units are the coordinate engine's words: "degrees" (the default of
 * a geodetic system), "radians", "grads", "metres" (the default of a
 * projection), "feet", "yards".
 */
#define _POSIX_C_SOURCE 200809L
#include <ctype.h>
#include <getopt.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "gdt_coords.h"
#include "vorlan_tool.h"

/* The engine's last message, for the failure that ends a run. */
static char last_message[512];

static void keep_message(const char *message)
{
    snprintf(last_message, sizeof last_message, "%s", message);
}

/* The engine's message without its class and level ("S3:..."). */
static const char *message_text(void)
{
    const char *colon = strchr(last_message, ':');
    return colon != NULL && colon - last_message <= 3 ? colon + 1 : last_message;
}

typedef struct system_name {
    char datum[64], projection[128], units[64];
} system_name;

/* "DATUM,PROJECTION[,UNITS]"; 0, or VT_USAGE after saying why. */
static int parse_system(const char *option, const char *text, system_name *s)
{
    char copy[260];
    if (strlen(text) >= sizeof copy)
        return vt_usage_error("cs", "%s: the system's name is too long", option);
    strcpy(copy, text);
    char *fields[4] = {NULL, NULL, NULL, NULL};
    int n = 0;
    for (char *p = copy; n < 4;) {
        fields[n++] = p;
        char *comma = strchr(p, ',');
        if (comma == NULL) break;
        *comma = '\0';
        p = comma + 1;
    }
    if (n < 2 || n > 3 || *fields[0] == '\0' || *fields[1] == '\0')
        return vt_usage_error("cs", "%s wants DATUM,PROJECTION[,UNITS], not '%s'", option, text);
    snprintf(s->datum, sizeof s->datum, "%s", fields[0]);
    snprintf(s->projection, sizeof s->projection, "%s", fields[1]);
    const int geodetic = strcasecmp(fields[1], "GEODETIC") == 0;
    snprintf(s->units, sizeof s->units, "%s",
             n == 3 && *fields[2] ? fields[2]
             : geodetic           ? "degrees"
                                  : "metres");
    return VT_OK;
}

/* The number of decimals a unit is written with: about a tenth of a
 * millimetre on the ground. */
static int decimals_of(const char *units)
{
    if (strcasecmp(units, "degrees") == 0 || strcasecmp(units, "grads") == 0) return 9;
    if (strcasecmp(units, "radians") == 0) return 11;
    return 4;
}

/* The latitude of a pole in a geodetic system's units, or 0 for a projection. */
static double pole_of(const system_name *s)
{
    if (strcasecmp(s->projection, "GEODETIC") != 0) return 0;
    if (strcasecmp(s->units, "radians") == 0) return 1.5707963267948966;
    if (strcasecmp(s->units, "grads") == 0) return 100;
    return 90;
}

/* Reads up to three numbers at the start of `line`; the count, and where the
 * rest begins. */
static int read_numbers(const char *line, double *values, const char **rest)
{
    int n = 0;
    const char *p = line;
    while (n < 3) {
        const char *at = p;
        while (*at == ' ' || *at == '\t' || (n > 0 && *at == ',')) at++;
        char *end = NULL;
        double v = strtod(at, &end);
        if (end == at || !isfinite(v)) break;
        values[n++] = v;
        p = end;
    }
    *rest = p;
    return n;
}

static int run(const system_name *from, const system_name *to, FILE *in)
{
    gdt_install_error(keep_message);
    vln_mutex_begin(&VLN_GLOBAL_GDT_MUTEX);
    int source = gdt_crelock_coord_sys(from->datum, from->projection, from->units);
    int target = source >= 0 ? gdt_crelock_coord_sys(to->datum, to->projection, to->units) : -1;
    int status = VT_OK;
    if (source < 0 || target < 0 || gdt_set_source(&source) != 0 || gdt_set_target(&target) != 0)
        status = vt_fail("cs", "%s", message_text());
    const int decimals = decimals_of(to->units);
    const double pole = pole_of(from);
    char *line = NULL;
    size_t size = 0;
    ssize_t length;
    while (status == VT_OK && (length = getline(&line, &size, in)) >= 0) {
        if (vt_interrupted) {
            status = VT_INTERRUPTED;
            break;
        }
        const char *p = line;
        while (*p == ' ' || *p == '\t') p++;
        if (*p == '\n' || *p == '\0' || *p == '#') {
            fputs(line, stdout);
            continue;
        }
        double v[3] = {0, 0, 0};
        const char *rest = NULL;
        const int n = read_numbers(line, v, &rest);
        if (n < 2) {
            status = vt_fail("cs", "not a point: %.*s", (int)strcspn(line, "\n"), line);
            break;
        }
        double x = 0, y = 0, z = 0;
        if ((pole > 0 && fabs(v[1]) > pole) ||
            gdt_transform(&v[0], &v[1], &v[2], &x, &y, &z) != 0) {
            fputs("* *", stdout);
        } else {
            printf("%.*f %.*f", decimals, x, decimals, y);
            if (n == 3) printf(" %.4f", z);
        }
        fputs(rest, stdout);
        if (length == 0 || line[length - 1] != '\n') fputc('\n', stdout);
    }
    free(line);
    if (source >= 0) gdt_delete_coord_sys(&source);
    if (target >= 0) gdt_delete_coord_sys(&target);
    vln_mutex_end(&VLN_GLOBAL_GDT_MUTEX);
    if (status == VT_OK && (ferror(in) || fflush(stdout) != 0))
        status = vt_fail("cs", "cannot read or write the points");
    if (status == VT_INTERRUPTED) fprintf(stderr, "vorlan cs: interrupted\n");
    return status;
}

int vt_cmd_cs(int argc, char **argv)
{
    static const struct option options[] = {{"from", required_argument, NULL, 'f'},
                                            {"to", required_argument, NULL, 't'},
                                            {NULL, 0, NULL, 0}};
    system_name from, to;
    int have_from = 0, have_to = 0, c;
    opterr = 0;
    while ((c = getopt_long(argc, argv, ":f:t:", options, NULL)) != -1) {
        switch (c) {
            case 'f':
                if (parse_system("--from", optarg, &from) != VT_OK) return VT_USAGE;
                have_from = 1;
                break;
            case 't':
                if (parse_system("--to", optarg, &to) != VT_OK) return VT_USAGE;
                have_to = 1;
                break;
            case ':':
                return vt_usage_error("cs", "%s needs a value", argv[optind - 1]);
            default:
                return vt_usage_error("cs", "unknown option '%s'", argv[optind - 1]);
        }
    }
    if (!have_from) return vt_usage_error("cs", "no source system given (--from)");
    if (!have_to) return vt_usage_error("cs", "no target system given (--to)");
    if (optind + 1 < argc) return vt_usage_error("cs", "more than one input given");
    FILE *in = stdin;
    if (optind < argc && strcmp(argv[optind], "-") != 0) {
        in = fopen(argv[optind], "r");
        if (in == NULL) return vt_fail("cs", "cannot open %s", argv[optind]);
    }
    vt_catch_signals();
    int status = run(&from, &to, in);
    if (in != stdin) fclose(in);
    return status;
}
