/*
 * main.c: the `vorlan` program. One program, subcommands, each with --help;
 * quiet unless asked, one line per error. This file finds the subcommand,
 * starts the library and holds the helpers that every subcommand uses for
 * its messages and arguments.
 *
 *   vorlan [--help | --version]
 *   vorlan SUBCOMMAND [OPTIONS] ...
 */
#define _POSIX_C_SOURCE 200809L
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "vln_path.h"
#include "vln_pe.h"
#include "vorlan_tool.h"

static const vt_command commands[] = {
    {"info", "describe a dataset or an algorithm",
     "usage: vorlan info [--json] DATASET|ALGORITHM\n"
     "  Prints the header in words: size, bands, cell type, null value, coordinate\n"
     "  space, registration, cell size, regions and stored statistics; for an\n"
     "  algorithm, its surfaces and layers.\n"
     "  -j, --json   the same as one JSON object\n",
     vt_cmd_info},
    {"process", "write an algorithm as a new dataset",
     "usage: vorlan process ALGORITHM -o OUT.vld [--type CELLTYPE] [--threads N]\n"
     "  -o, --output FILE   the header of the new dataset (its data file is FILE\n"
     "                      without \".vld\")\n"
     "  -t, --type TYPE     cell type of the output (e.g. Unsigned16BitInteger,\n"
     "                      u8, s16, f32, f64); default: the algorithm's\n"
     "  -j, --threads N     threads to work on (row stripes); default one per core\n",
     vt_cmd_process},
    {"calc", "compute a formula over datasets into a new dataset",
     "usage: vorlan calc -i A.vld[:BAND] [-i B.vld[:BAND] ...] -e FORMULA -o OUT.vld\n"
     "                   [--type CELLTYPE] [--threads N]\n"
     "  -i, --input DATASET[:BAND]  an input; the formula calls the first INPUT1,\n"
     "                              the second INPUT2, ...; band 1 unless given\n"
     "  -e, --expression FORMULA    the formula\n"
     "  -o, --output FILE           the header of the new dataset\n"
     "  -t, --type TYPE             cell type of the output; default IEEE4ByteReal\n"
     "  -j, --threads N             threads to work on; default one per core\n"
     "  The output covers the extent and cell size of the first input.\n",
     vt_cmd_calc},
    {"stats", "compute and store a dataset's statistics, and report them",
     "usage: vorlan stats DATASET\n"
     "  Computes the statistics of every region, writes them into the header and\n"
     "  prints the report.\n",
     vt_cmd_stats},
    {"render", "draw an algorithm as a picture",
     "usage: vorlan render ALGORITHM -o OUT.ppm|OUT.png [--size WxH] [--threads N]\n"
     "  -o, --output FILE   a binary PPM or a PNG, by the name's extension\n"
     "  -s, --size WxH      the picture's size; default the algorithm's output size\n"
     "  -j, --threads N     threads to work on (row stripes); default one per core\n",
     vt_cmd_render},
    {"demo", "draw every bundled example into a folder",
     "usage: vorlan demo [-o DIR] [--size WxH] [--threads N]\n"
     "  Renders each example algorithm of $VORLAN/examples as DIR/NAME.png and\n"
     "  says where they are.\n"
     "  -o, --output DIR    the folder, made if missing; default ./vorlan-demo\n"
     "  -s, --size WxH      every picture's size; default each algorithm's own\n"
     "  -j, --threads N     threads to work on (row stripes); default one per core\n",
     vt_cmd_demo},
    {"cs", "carry points from one coordinate system to another",
     "usage: vorlan cs --from DATUM,PROJECTION[,UNITS] --to DATUM,PROJECTION[,UNITS] [FILE]\n"
     "  Reads points, one per line (x y [z]; a geodetic point is longitude then\n"
     "  latitude), from FILE or standard input, and writes each transformed, with\n"
     "  the rest of its line; a point that can't be carried is written \"* *\".\n"
     "  -f, --from SYSTEM   e.g. WGS84,GEODETIC (degrees) or OSGB36,BNG,metres\n"
     "  -t, --to SYSTEM     e.g. WGS84,NUTM31\n"
     "  Units: degrees, radians, grads, metres, feet, yards; default degrees for\n"
     "  GEODETIC, metres otherwise.\n",
     vt_cmd_cs},
};

static const char program_usage[] =
    "usage: vorlan [--help | --version]\n"
    "       vorlan SUBCOMMAND [OPTIONS] ...   (vorlan SUBCOMMAND --help for its options)\n";

const vt_command *vt_find_command(const char *name)
{
    for (size_t i = 0; i < sizeof commands / sizeof commands[0]; i++)
        if (strcmp(commands[i].name, name) == 0) return &commands[i];
    return NULL;
}

void vt_print_usage(const char *sub, FILE *out)
{
    const vt_command *c = vt_find_command(sub);
    fputs(c != NULL ? c->usage : program_usage, out);
}

static void vmessage(const char *sub, const char *format, va_list args)
{
    fprintf(stderr, "vorlan %s: ", sub);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
}

int vt_usage_error(const char *sub, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vmessage(sub, format, args);
    va_end(args);
    vt_print_usage(sub, stderr);
    return VT_USAGE;
}

int vt_fail(const char *sub, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vmessage(sub, format, args);
    va_end(args);
    return VT_FAILED;
}

const char *vt_read_error_text(Vds *vds)
{
    const char *text = vds_error_text(vds);
    if ((text == NULL || *text == '\0') && vds != NULL && vds->context != NULL)
        text = vds->context->error_text;
    return text;
}

int vt_fail_text(const char *sub, const char *text)
{
    if (text == NULL || *text == '\0') text = "the library failed without a message";
    /* The library's texts may run over several lines; the tool prints one. */
    fprintf(stderr, "vorlan %s: ", sub);
    int blank = 0, started = 0;
    for (const char *p = text; *p; p++) {
        if (*p == '\n' || *p == '\r' || *p == '\t' || *p == ' ') {
            blank = started;
            continue;
        }
        if (blank) fputc(' ', stderr);
        fputc(*p, stderr);
        blank = 0;
        started = 1;
    }
    fputc('\n', stderr);
    return VT_FAILED;
}

int vt_fail_library(const char *sub)
{
    return vt_fail_text(sub, VLD_error_text());
}

int vt_wants_help(int argc, char **argv)
{
    for (int i = 1; i < argc; i++) {
        if (strcmp(argv[i], "--") == 0) return 0;
        if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) return 1;
    }
    return 0;
}

const char *vt_word(const VLD_ENUM *table, int value)
{
    for (; table->name != NULL; table++)
        if (table->value == value) return table->name;
    return "?";
}

int vt_parse_cell_type(const char *text)
{
    static const VLD_ENUM short_names[] = {
        {Unsigned8BitInteger, "u8"}, {Unsigned16BitInteger, "u16"}, {Unsigned32BitInteger, "u32"},
        {Signed8BitInteger, "s8"},   {Signed16BitInteger, "s16"},   {Signed32BitInteger, "s32"},
        {IEEE4ByteReal, "f32"},      {IEEE8ByteReal, "f64"},        {0, NULL},
    };
    for (const VLD_ENUM *t = short_names; t->name != NULL; t++)
        if (strcasecmp(t->name, text) == 0) return t->value;
    for (const VLD_ENUM *t = ev_CellType; t->name != NULL; t++)
        if (t->value > CT_Unknown && strcasecmp(t->name, text) == 0) return t->value;
    return CT_None;
}

static void print_program_help(void)
{
    fputs(program_usage, stdout);
    printf("\nSubcommands:\n");
    for (size_t i = 0; i < sizeof commands / sizeof commands[0]; i++)
        printf("  %-9s %s\n", commands[i].name, commands[i].summary);
    printf("\nExit status: 0 success, 1 failure, 2 bad arguments, 130 interrupted.\n");
}

int main(int argc, char **argv)
{
    if (argc < 2) {
        fprintf(stderr, "vorlan: no subcommand given\n");
        fputs(program_usage, stderr);
        return VT_USAGE;
    }
    const char *first = argv[1];
    if (strcmp(first, "--help") == 0 || strcmp(first, "-h") == 0) {
        print_program_help();
        return VT_OK;
    }
    if (strcmp(first, "--version") == 0) {
        printf("vorlan %s\n", VLD_version());
        return VT_OK;
    }
    const vt_command *command = vt_find_command(first);
    if (command == NULL) {
        fprintf(stderr, "vorlan: unknown subcommand '%s'\n", first);
        fputs(program_usage, stderr);
        return VT_USAGE;
    }
    if (vt_wants_help(argc - 1, argv + 1)) {
        fputs(command->usage, stdout);
        return VT_OK;
    }
    init_dbprintf_progname("vorlan");
    if (getenv("VORLAN") == NULL)
        return vt_fail(command->name, "the VORLAN environment variable is not set");
    setenv("VLN_MACHINE_TYPE", "linux", 0);
    if (PE_initialise("vorlan") != 0) return vt_fail_library(command->name);
    return command->run(argc - 1, argv + 1);
}
