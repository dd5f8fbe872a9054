/*
 * make_examples.c: writes the datasets of the bundled examples into a folder.
 *
 *   make_examples DIR
 *
 * Everything comes from one seeded height function of map position, so the
 * same bytes come out on every run:
 *
 *   terrain     heights in metres, 2,048 by 2,048 cells of 25 m, 32-bit real:
 *               a coast with a sea floor to the south-west, hills, ridged
 *               mountains to the north-east and a lake in a high valley
 *   image       four 16-bit bands over the same cells, reflectances times
 *               10,000 (blue, green, red, near-infrared) made from the
 *               heights: water, beach, grass and forest, bare rock and snow,
 *               lit by the same sun as the shaded relief
 *   both carry the regions "Lake" (the shore as a polygon) and "Study area"
 *   regional    the same ground at 100 m, 1,024 by 1,024 cells round it, to
 *               be mosaicked with the detailed heights
 *
 * The folder's algorithms (kept in the source tree as text) read these. Each
 * file is written under a temporary name and renamed when whole, so that two
 * builds sharing the folder never see half a file.
 */
#define _POSIX_C_SOURCE 200809L
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

/* The detailed grid: its top-left corner in UTM zone 32 north, its size. */
enum { SIZE = 2048, REGIONAL_SIZE = 1024 };
static const double CELL = 25.0, REGIONAL_CELL = 100.0;
static const double EAST0 = 430000.0, NORTH0 = 5311200.0; /* top-left corner */
static const double EXTENT = SIZE * 25.0;                 /* 51.2 km */

/* The lake: its centre (metres from the grid's top-left corner, y down), its
 * mean radius and the points of its shore polygon. */
static const double LAKE_X = 30200.0, LAKE_Y = 16800.0, LAKE_R = 2600.0;
enum { LAKE_POINTS = 48 };

static const char *out_dir;

/* ---------------------------------------------------------------- noise */

/* A value in [-1, 1] for a lattice point, from an integer hash. */
static double lattice(int32_t ix, int32_t iy, uint32_t seed)
{
    uint32_t h = (uint32_t)ix * 0x8da6b343u ^ (uint32_t)iy * 0xd8163841u ^ seed * 0xcb1ab31fu;
    h ^= h >> 13;
    h *= 0x5bd1e995u;
    h ^= h >> 15;
    h *= 0x27d4eb2du;
    h ^= h >> 16;
    return (double)(h & 0xffffffu) / (double)0x7fffff - 1.0;
}

static double fade(double t)
{
    return t * t * t * (t * (t * 6.0 - 15.0) + 10.0);
}

/* Smooth value noise in [-1, 1] with a period of one unit. */
static double value_noise(double x, double y, uint32_t seed)
{
    const double fx = floor(x), fy = floor(y);
    const int32_t ix = (int32_t)fx, iy = (int32_t)fy;
    const double u = fade(x - fx), v = fade(y - fy);
    const double a = lattice(ix, iy, seed), b = lattice(ix + 1, iy, seed);
    const double c = lattice(ix, iy + 1, seed), d = lattice(ix + 1, iy + 1, seed);
    return (a + (b - a) * u) + ((c + (d - c) * u) - (a + (b - a) * u)) * v;
}

/* Summed octaves, each half as strong and twice as fine; about [-1, 1]. */
static double fbm(double x, double y, int octaves, uint32_t seed)
{
    double sum = 0.0, amplitude = 0.5, norm = 0.0;
    for (int o = 0; o < octaves; o++) {
        sum += amplitude * value_noise(x, y, seed + (uint32_t)o * 101u);
        norm += amplitude;
        amplitude *= 0.5;
        /* A rotation between octaves hides the lattice. */
        const double rx = 1.6 * x - 1.2 * y, ry = 1.2 * x + 1.6 * y;
        x = rx + 17.3;
        y = ry - 4.1;
    }
    return sum / norm;
}

/* Sharp crests along the winding lines where summed noise crosses zero, in
 * [0, 1]; crests are higher where the coarse noise is. */
static double ridged(double x, double y, int octaves, uint32_t seed)
{
    const double n = fbm(x, y, octaves, seed);
    const double r = 1.0 - fabs(n) * 2.2;
    const double crest = r < 0.0 ? 0.0 : r * r;
    return crest * (0.6 + 0.4 * fbm(x * 0.5 + 7.0, y * 0.5 - 3.0, 3, seed + 7u));
}

static double smoothstep(double e0, double e1, double x)
{
    double t = (x - e0) / (e1 - e0);
    t = t < 0.0 ? 0.0 : t > 1.0 ? 1.0 : t;
    return t * t * (3.0 - 2.0 * t);
}

/* ---------------------------------------------------------------- the ground */

/* The lake's shore radius towards angle a: a wobbly circle. */
static double lake_radius(double a)
{
    return LAKE_R * (1.0 + 0.22 * sin(3.0 * a + 0.7) + 0.12 * sin(5.0 * a + 2.1));
}

/* Height before the lake is cut, at x metres east and y metres south of the
 * grid's top-left corner. */
static double raw_height(double x, double y)
{
    const double sx = x / EXTENT, sy = y / EXTENT;
    const double base = fbm(x / 16000.0, y / 16000.0, 8, 11u);
    /* Land rises to the north-east; the coast wanders with the noise. */
    const double land = 0.62 * sx + 0.38 * (1.0 - sy) + 0.55 * base - 0.30;
    if (land < 0.0) return land * 900.0 - 15.0 * fbm(x / 900.0, y / 900.0, 3, 23u) * (-land);
    const double hills = 260.0 * (0.5 + 0.5 * fbm(x / 5000.0, y / 5000.0, 6, 37u));
    const double mountains = smoothstep(0.12, 0.6, land);
    const double crest = ridged(x / 11000.0, y / 11000.0, 7, 53u);
    return land * 600.0 + hills * smoothstep(0.0, 0.08, land) + mountains * crest * 2700.0;
}

/* The lake's surface: a little below the valley floor at its centre. */
static double lake_level(void)
{
    static double level = -1.0e9;
    if (level < -1.0e8) level = floor(raw_height(LAKE_X, LAKE_Y)) - 5.0;
    return level;
}

/* How far (metres) a point lies outside the shore; negative inside. */
static double lake_distance(double x, double y)
{
    const double dx = x - LAKE_X, dy = y - LAKE_Y;
    const double r = sqrt(dx * dx + dy * dy);
    return r - lake_radius(atan2(dy, dx));
}

/* The height at a point: the lake is flat, and the ground within 1.2 km of
 * its shore leans to a bank 2 m above it. */
static double height_at(double x, double y)
{
    const double h = raw_height(x, y);
    const double d = lake_distance(x, y);
    if (d > 1200.0) return h;
    const double level = lake_level();
    if (d <= 0.0) return level;
    const double t = smoothstep(0.0, 1200.0, d);
    return h * t + (level + 2.0) * (1.0 - t);
}

/* ---------------------------------------------------------------- files */

static char *path_of(const char *name)
{
    size_t n = strlen(out_dir) + strlen(name) + 2;
    char *p = malloc(n);
    if (p == NULL) exit(1);
    snprintf(p, n, "%s/%s", out_dir, name);
    return p;
}

typedef struct output {
    FILE *file;
    char *final_path;
    char *temp_path;
} output;

static output open_output(const char *name)
{
    output o;
    o.final_path = path_of(name);
    size_t n = strlen(o.final_path) + 16;
    o.temp_path = malloc(n);
    if (o.temp_path == NULL) exit(1);
    snprintf(o.temp_path, n, "%s.tmp%ld", o.final_path, (long)getpid());
    o.file = fopen(o.temp_path, "wb");
    if (o.file == NULL) {
        perror(o.temp_path);
        exit(1);
    }
    return o;
}

static void close_output(output *o)
{
    if (ferror(o->file) || fclose(o->file) != 0 || rename(o->temp_path, o->final_path) != 0) {
        perror(o->final_path);
        remove(o->temp_path);
        exit(1);
    }
    free(o->temp_path);
    free(o->final_path);
}

/* The text of a raster header; `regions` is inserted before the end of the
 * raster block, `bands` are the band names. */
static void write_header(const char *name, const char *description, const char *cell_type,
                         double cell, int size, double east, double north, int nr_bands,
                         const char *const *bands, const char *units, const char *regions)
{
    output o = open_output(name);
    FILE *f = o.file;
    fprintf(f,
            "DatasetHeader Begin\n\tVersion\t\t= \"7.0\"\n\tName\t\t= \"%s\"\n"
            "\tDescription\t= \"%s\"\n\tDataSetType\t= VLDStorage\n\tDataType\t= Raster\n"
            "\tByteOrder\t= LSBFirst\n\tCoordinateSpace Begin\n\t\tDatum\t\t= \"WGS84\"\n"
            "\t\tProjection\t= \"NUTM32\"\n\t\tCoordinateType\t= EN\n\tCoordinateSpace End\n"
            "\tRasterInfo Begin\n\t\tCellType\t= %s\n\t\tCellInfo Begin\n"
            "\t\t\tXdimension\t= %g\n\t\t\tYdimension\t= %g\n\t\tCellInfo End\n"
            "\t\tNrOfLines\t= %d\n\t\tNrOfCellsPerLine\t= %d\n"
            "\t\tRegistrationCoord Begin\n\t\t\tEastings\t= %.1f\n\t\t\tNorthings\t= %.1f\n"
            "\t\tRegistrationCoord End\n\t\tNrOfBands\t= %d\n",
            name, description, cell_type, cell, cell, size, size, east, north, nr_bands);
    for (int b = 0; b < nr_bands; b++) {
        fprintf(f, "\t\tBandId Begin\n\t\t\tValue\t\t= \"%s\"\n", bands[b]);
        if (units != NULL) fprintf(f, "\t\t\tUnits\t\t= \"%s\"\n", units);
        fprintf(f, "\t\tBandId End\n");
    }
    fprintf(f, "%s\tRasterInfo End\nDatasetHeader End\n", regions);
    close_output(&o);
}

/* The two regions of the detailed grid, in cells: the lake's shore and a
 * study area over the mountains. */
static char *region_text(void)
{
    static const double study[][2] = {
        {1180, 230}, {1860, 300}, {1930, 880}, {1420, 1060}, {1120, 690}};
    size_t size = 8192, n = 0;
    char *text = malloc(size);
    if (text == NULL) exit(1);
    n += (size_t)snprintf(text + n, size - n,
                          "\t\tRegionInfo Begin\n\t\t\tType\t\t= Polygon\n"
                          "\t\t\tRegionName\t= \"Lake\"\n\t\t\tRGBcolour Begin\n\t\t\t\tRed\t= 0\n"
                          "\t\t\t\tGreen\t= 0\n\t\t\t\tBlue\t= 255\n\t\t\tRGBcolour End\n"
                          "\t\t\tSubRegion\t= {\n");
    for (int i = 0; i < LAKE_POINTS; i++) {
        const double a = 6.283185307179586 * i / LAKE_POINTS, r = lake_radius(a);
        n += (size_t)snprintf(text + n, size - n, "\t\t\t\t%.2f\t%.2f\n",
                              (LAKE_X + r * cos(a)) / CELL, (LAKE_Y + r * sin(a)) / CELL);
    }
    n += (size_t)snprintf(text + n, size - n,
                          "\t\t\t}\n\t\tRegionInfo End\n\t\tRegionInfo Begin\n"
                          "\t\t\tType\t\t= Polygon\n\t\t\tRegionName\t= \"Study area\"\n"
                          "\t\t\tSubRegion\t= {\n");
    for (size_t i = 0; i < sizeof study / sizeof study[0]; i++)
        n += (size_t)snprintf(text + n, size - n, "\t\t\t\t%g\t%g\n", study[i][0], study[i][1]);
    snprintf(text + n, size - n, "\t\t\t}\n\t\tRegionInfo End\n");
    return text;
}

/* ---------------------------------------------------------------- the image */

typedef struct {
    double b, g, r, n;
} spectrum;

static spectrum mix(spectrum a, spectrum b, double t)
{
    spectrum s = {a.b + (b.b - a.b) * t, a.g + (b.g - a.g) * t, a.r + (b.r - a.r) * t,
                  a.n + (b.n - a.n) * t};
    return s;
}

static uint16_t reflectance(double v)
{
    return (uint16_t)(v < 1.0 ? 1.0 : v > 10000.0 ? 10000.0 : floor(v + 0.5));
}

/* One cell's four bands, from its height and the slope to its neighbours. */
static void cell_spectrum(const float *heights, int line, int cell, uint16_t out[4])
{
    static const spectrum rock = {1100, 1350, 1650, 2250}, sand = {2000, 2300, 2600, 2900};
    static const spectrum forest = {230, 480, 290, 3200}, grass = {420, 820, 520, 4300};
    static const spectrum snow = {8600, 8500, 8300, 6400}, clear_water = {650, 520, 230, 110};
    static const spectrum shallow = {1300, 1350, 900, 320};
    const double x = (cell + 0.5) * CELL, y = (line + 0.5) * CELL;
    const double h = heights[(size_t)line * SIZE + cell];
    const int l0 = line > 0 ? line - 1 : line, l1 = line < SIZE - 1 ? line + 1 : line;
    const int c0 = cell > 0 ? cell - 1 : cell, c1 = cell < SIZE - 1 ? cell + 1 : cell;
    const double dzdx = (heights[(size_t)line * SIZE + c1] - heights[(size_t)line * SIZE + c0]) /
                        ((c1 - c0) * CELL);
    const double dzdn = (heights[(size_t)l0 * SIZE + cell] - heights[(size_t)l1 * SIZE + cell]) /
                        ((l1 - l0) * CELL);
    const double slope = sqrt(dzdx * dzdx + dzdn * dzdn);
    spectrum s;
    const double lake_d = lake_distance(x, y);
    if (h < 0.0 || lake_d < 0.0) {
        /* Water: dark in the near-infrared, paler where shallow. */
        const double depth = lake_d < 0.0 ? -lake_d / 40.0 : -h;
        s = mix(clear_water, shallow, exp(-depth / 6.0));
    } else {
        const double detail = fbm(x / 1400.0, y / 1400.0, 5, 71u);
        const double wood = smoothstep(-0.15, 0.25, fbm(x / 3000.0, y / 3000.0, 5, 89u));
        double cover = (1.0 - smoothstep(1350.0, 1850.0, h + 150.0 * detail)) *
                       (1.0 - smoothstep(0.45, 0.95, slope)) * (0.55 + 0.45 * detail);
        cover = cover < 0.0 ? 0.0 : cover > 1.0 ? 1.0 : cover;
        s = mix(rock, mix(grass, forest, wood), cover);
        if (h < 6.0 + 4.0 * detail) s = mix(s, sand, 1.0 - smoothstep(3.0, 6.0 + 4.0 * detail, h));
        const double snowline = 2050.0 + 120.0 * detail;
        if (h > snowline)
            s = mix(s, snow,
                    smoothstep(0.0, 150.0, h - snowline) * (1.0 - smoothstep(0.7, 1.2, slope)));
        /* The sun of the shaded relief, from the north-west at 45 degrees. */
        const double norm = sqrt(dzdx * dzdx + dzdn * dzdn + 1.0);
        const double lit = (dzdx * 0.5 - dzdn * 0.5 + 0.70710678118654752) / norm;
        const double light = 0.25 + 0.75 * (lit < 0.0 ? 0.0 : lit) / 0.70710678118654752;
        s.b *= light;
        s.g *= light;
        s.r *= light;
        s.n *= light;
    }
    const double grain = 1.0 + 0.01 * value_noise(x / 60.0, y / 60.0, 97u);
    out[0] = reflectance(s.b * grain);
    out[1] = reflectance(s.g * grain);
    out[2] = reflectance(s.r * grain);
    out[3] = reflectance(s.n * grain);
}

/* ---------------------------------------------------------------- main */

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: make_examples DIR\n");
        return 2;
    }
    out_dir = argv[1];
    static const char *const height_band[] = {"Height"};
    static const char *const image_bands[] = {"Blue", "Green", "Red", "NIR"};
    char *regions = region_text();

    float *heights = malloc(sizeof(float) * SIZE * SIZE);
    if (heights == NULL) return 1;
    for (int l = 0; l < SIZE; l++)
        for (int c = 0; c < SIZE; c++)
            heights[(size_t)l * SIZE + c] = (float)height_at((c + 0.5) * CELL, (l + 0.5) * CELL);
    output o = open_output("terrain");
    fwrite(heights, sizeof(float), (size_t)SIZE * SIZE, o.file);
    close_output(&o);
    write_header("terrain.vld", "Heights above sea level in metres; the sea floor is negative",
                 "IEEE4ByteReal", CELL, SIZE, EAST0, NORTH0, 1, height_band, "metres", regions);

    /* Band interleaved by line: each line holds the four bands in turn. */
    uint16_t *line = malloc(sizeof(uint16_t) * 4 * SIZE);
    if (line == NULL) return 1;
    o = open_output("image");
    for (int l = 0; l < SIZE; l++) {
        for (int c = 0; c < SIZE; c++) {
            uint16_t cellv[4];
            cell_spectrum(heights, l, c, cellv);
            for (int b = 0; b < 4; b++) line[(size_t)b * SIZE + c] = cellv[b];
        }
        fwrite(line, sizeof(uint16_t), 4 * (size_t)SIZE, o.file);
    }
    close_output(&o);
    write_header("image.vld",
                 "Surface reflectance times 10000: blue, green, red and near-infrared bands",
                 "Unsigned16BitInteger", CELL, SIZE, EAST0, NORTH0, 4, image_bands, NULL, regions);

    /* The regional heights: the same ground, four times coarser, over twice
     * the extent each way, centred on the detailed grid. */
    const double shift = (REGIONAL_SIZE * REGIONAL_CELL - EXTENT) / 2.0;
    float *coarse = malloc(sizeof(float) * REGIONAL_SIZE);
    if (coarse == NULL) return 1;
    o = open_output("regional");
    for (int l = 0; l < REGIONAL_SIZE; l++) {
        for (int c = 0; c < REGIONAL_SIZE; c++)
            coarse[c] = (float)height_at((c + 0.5) * REGIONAL_CELL - shift,
                                         (l + 0.5) * REGIONAL_CELL - shift);
        fwrite(coarse, sizeof(float), REGIONAL_SIZE, o.file);
    }
    close_output(&o);
    write_header("regional.vld", "Regional heights in metres at 100 m, round the detailed grid",
                 "IEEE4ByteReal", REGIONAL_CELL, REGIONAL_SIZE, EAST0 - shift, NORTH0 + shift, 1,
                 height_band, "metres", "");
    free(coarse);
    free(line);
    free(heights);
    free(regions);
    return 0;
}
