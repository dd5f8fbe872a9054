/*
 * vorlan_tool_fixture.c: writes the datasets and algorithms that the tests of
 * the `vorlan` program run it on, into a folder:
 *
 *   vorlan_tool_fixture DIR        small.vld (2 bands of 16-bit cells, 20 by
 *                                  12, cell v = (b*1009 + l*(131+17b) +
 *                                  c*(7+3b)) % 65521 for band b from 0, line l,
 *                                  cell c), one.vld
 *                                  (1 band of the same rule at b = 2),
 *                                  small.alg (both bands as a dataset) and
 *                                  grey.alg (band 1 through a grey table)
 *   vorlan_tool_fixture DIR big    big.vld (4000 by 4000 zero cells) and
 *                                  big.alg (a long formula over it)
 */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vld_core.h"
#include "vld_dshdr.h"

static char dir[512];

static const char *path_of(const char *name)
{
    static char paths[4][600];
    static int next = 0;
    char *p = paths[next++ % 4];
    snprintf(p, 600, "%s/%s", dir, name);
    return p;
}

static unsigned value16(int band, int line, int cell)
{
    return (unsigned)(band * 1009 + line * (131 + 17 * band) + cell * (7 + 3 * band)) % 65521u;
}

/* A raster header at cell size 2 with its top left at (10, 20); the cells
 * of `first_band` and on follow the rule when `fill`, else stay zero. */
static int write_dataset(const char *stem, int cells, int lines, int bands, int first_band,
                         int fill)
{
    char header[600];
    snprintf(header, sizeof header, "%s.vld", path_of(stem));
    dshdr *d = NULL;
    if (df_raster_dshdr(&d, header, cells, lines, bands, Unsigned16BitInteger) != 0) return -1;
    d->info.r.registration_coord.x = 10;
    d->info.r.registration_coord.y = 20;
    d->info.r.cellinfo.x_dimension = d->info.r.cellinfo.y_dimension = 2.0;
    for (int b = 0; b < bands; b++) {
        char name[32];
        snprintf(name, sizeof name, "band \"%d\"", b + 1);
        safe_free(d->info.r.bandids[b].value);
        d->info.r.bandids[b].value = strsave(name);
    }
    int status = ep_dshdr(d, header);
    ef_dshdr(d);
    if (status != 0) return -1;
    FILE *f = fopen(path_of(stem), "wb");
    if (f == NULL) return -1;
    if (!fill) {
        /* A sparse file of zeros: large without costing the disk. */
        status = fseeko(f, (off_t)cells * lines * bands * 2 - 1, SEEK_SET) == 0 && fputc(0, f) == 0;
        return fclose(f) == 0 && status ? 0 : -1;
    }
    for (int l = 0; l < lines; l++)
        for (int b = 0; b < bands; b++)
            for (int c = 0; c < cells; c++) {
                uint16_t v = (uint16_t)value16(b + first_band, l, c);
                fwrite(&v, 2, 1, f);
            }
    return fclose(f) == 0 ? 0 : -1;
}

/* A document over (10, 20) to (10 + 2 * cells, 20 + 2 * lines) whose surface
 * has the layers given as text. */
static int write_alg(const char *name, int cells, int lines, const char *settings,
                     const char *surface, const char *layers)
{
    FILE *f = fopen(path_of(name), "w");
    if (f == NULL) return -1;
    fprintf(f,
            "Algorithm Begin\n\tVersion = \"7.0\"\n\tDescription = \"tool \\\"fixture\\\"\"\n"
            "\tCoordinateSpace Begin\n\t\tDatum = \"RAW\"\n\t\tProjection = \"RAW\"\n"
            "\t\tCoordinateType = RAW\n\tCoordinateSpace End\n"
            "\tTopLeftCorner Begin\n\t\tMetersX = 10\n\t\tMetersY = 20\n\tTopLeftCorner End\n"
            "\tBottomRightCorner Begin\n\t\tMetersX = %d\n\t\tMetersY = %d\n"
            "\tBottomRightCorner End\n%s"
            "\tSurface Begin\n\t\tName = \"S\"\n%s%s\tSurface End\nAlgorithm End\n",
            10 + 2 * cells, 20 + 2 * lines, settings, surface, layers);
    return fclose(f) == 0 ? 0 : -1;
}

static void layer(char *out, size_t size, const char *type, const char *description,
                  const char *stem, const char *formula, int band)
{
    size_t n = strlen(out);
    snprintf(out + n, size - n,
             "\t\tStream Begin\n\t\t\tType = %s\n\t\t\tDescription = \"%s\"\n"
             "\t\t\tDataset = \"%s.vld\"\n"
             "\t\t\tStreamInput Begin\n\t\t\t\tStreamInputID = 1\n\t\t\tStreamInput End\n"
             "\t\t\tFormula Begin\n\t\t\t\tFormula = \"%s\"\n\t\t\t\tFormulaArg Begin\n"
             "\t\t\t\t\tStreamInput = 1\n\t\t\t\t\tBandNumber = %d\n\t\t\t\tFormulaArg End\n"
             "\t\t\tFormula End\n\t\tStream End\n",
             type, description, stem, formula, band);
}

int main(int argc, char **argv)
{
    if (argc < 2) return 2;
    snprintf(dir, sizeof dir, "%s", argv[1]);
    static char layers[1 << 16];
    layers[0] = '\0';
    if (argc > 2 && strcmp(argv[2], "big") == 0) {
        if (write_dataset("big", 4000, 4000, 1, 0, 0) != 0) return 1;
        static char formula[1 << 14];
        strcpy(formula, "INPUT1");
        for (int i = 0; i < 400; i++) strcat(formula, " + INPUT1 * 3");
        layer(layers, sizeof layers, "Pseudo", "slow", "big", formula, 1);
        return write_alg("big.alg", 4000, 4000, "\tOutputType = Unsigned16BitInteger\n",
                         "\t\tColorMode = DATASET\n", layers) == 0
                   ? 0
                   : 1;
    }
    if (write_dataset("small", 20, 12, 2, 0, 1) != 0) return 1;
    if (write_dataset("one", 20, 12, 1, 2, 1) != 0) return 1;
    layer(layers, sizeof layers, "Pseudo", "first", "small", "INPUT1", 1);
    layer(layers, sizeof layers, "Pseudo", "second", "small", "INPUT1", 2);
    if (write_alg("small.alg", 20, 12, "\tOutputType = Unsigned16BitInteger\n\tNullValue = 0\n",
                  "\t\tColorMode = DATASET\n", layers) != 0)
        return 1;
    layers[0] = '\0';
    layer(layers, sizeof layers, "Pseudo", "grey", "small", "INPUT1", 1);
    return write_alg("grey.alg", 20, 12, "",
                     "\t\tColorMode = PSEUDO\n\t\tLookupTable = \"greyscale\"\n", layers) == 0
               ? 0
               : 1;
}
