// The algorithm document: golden round trips of the present and the old
// forms, the upgrades on reading, transients, defaults and copies, layer
// set-up (datasets, shared headers, link init programs), and virtual datasets
// read through the dataset header.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>

#include <unistd.h>

#include <cmath>
#include <string>
#include <vector>

#include "alg_docs_fixture.h"
#include "dshdr_fixture.h"
#include "vld_alg.h"
#include "vld_alg_internal.h"

namespace {

using dsh::TempDir;

using algdocs::kAlgDir;
using algdocs::write_datasets;

/* An algorithm read with a reader of the family, freed at the end. */
struct Alg {
    algorithm *a = nullptr;
    int status = 0;
    explicit Alg(const std::string &path, int (*reader)(algorithm **, const char *) = eg_algorithm)
    {
        status = reader(&a, path.c_str());
    }
    ~Alg() { ef_algorithm(a); }
    Alg(const Alg &) = delete;
    Alg &operator=(const Alg &) = delete;
    algorithm *operator->() const { return a; }
};

bool equal(const algorithm *a, const algorithm *b)
{
    return vld::rec_equal(a, b, vld::vld_algorithm_record());
}

/* ---------------------------------------------------------------- golden round trips */

class AlgGolden : public testing::TestWithParam<const char *> {};

// Each document is read from a copy beside its datasets, written over the
// copy, compared with its golden text, and read again into an equal record.
TEST_P(AlgGolden, ReadsWritesGoldenAndReadsBackEqual)
{
    TempDir dir;
    write_datasets(dir);
    std::string name = GetParam();
    std::string path = dir.write(name, dsh::slurp(kAlgDir + name));
    Alg first(path);
    ASSERT_EQ(first.status, 0) << dsh::error_text();
    ASSERT_EQ(ep_algorithm(first.a, path.c_str()), 0) << dsh::error_text();
    EXPECT_EQ(dsh::masked(dsh::slurp(path)), dsh::slurp(kAlgDir + name + ".golden"));

    Alg second(path);
    ASSERT_EQ(second.status, 0) << dsh::error_text();
    safe_free(first->version);
    first->version = strsave("7.0");
    EXPECT_TRUE(equal(first.a, second.a));

    algorithm *copy = nullptr;
    ASSERT_EQ(cp_algorithm_all(&copy, second.a), 0);
    ef_algorithm(second.a);
    second.a = nullptr;
    EXPECT_TRUE(equal(first.a, copy));
    ef_algorithm(copy);
}

INSTANTIATE_TEST_SUITE_P(Documents, AlgGolden, testing::Values("full.alg", "legacy.alg"),
                         [](const testing::TestParamInfo<const char *> &info) {
                             std::string name = info.param;
                             return name.substr(0, name.find('.'));
                         });

/* ---------------------------------------------------------------- reading */

TEST(AlgRead, PresentFormSettlesWhatTheDocumentLeftOut)
{
    TempDir dir;
    write_datasets(dir);
    Alg a(dir.write("full.alg", dsh::slurp(kAlgDir + "full.alg")));
    ASSERT_EQ(a.status, 0) << dsh::error_text();
    EXPECT_EQ(std::string(a->name), dir.file("full.alg"));
    // The stipple colour stands out from a light background.
    EXPECT_EQ(a->stipple_colour24[0], 0);
    // ZScale 20 with empty ranges gets 0 to 70; the offset is NaN and stays so.
    surface *s = a->surfaces;
    EXPECT_EQ(s->z_scale_min, 0.0);
    EXPECT_EQ(s->z_scale_max, 70.0);
    EXPECT_TRUE(std::isnan(s->z_offset));
    EXPECT_EQ(s->next->z_offset_min, -995.0);
    EXPECT_EQ(s->next->z_offset_max, 1005.0);
    // The first surface and stream are selected.
    EXPECT_EQ(a->current_surface, s);
    EXPECT_EQ(a->current_stream, s->first_stream);
    EXPECT_EQ(s->selected, 1);
    // Transients are dropped without a word unless asked for.
    EXPECT_EQ(a->output_file, nullptr);
    EXPECT_EQ(a->canvas_width, 0);
    // The canvas corners default to the top left; the adjusted one to the bottom right.
    EXPECT_EQ(a->canvas_bottom_right.x, 0.0);
    ASSERT_NE(a->adjusted_bottom_right, nullptr);
    EXPECT_EQ(a->adjusted_bottom_right->x, 40.0);
    // Layers on a dataset have their header, and share it.
    stream *red = s->first_stream;
    ASSERT_NE(red->dshdr, nullptr);
    EXPECT_EQ(red->dshdr->info.r.nr_bands, 3);
    EXPECT_EQ(red->bottom_right.x, 40.0);
    EXPECT_EQ(red->bottom_right.y, 30.0);
    EXPECT_EQ(red->multiple_coordspaces, 1);
    ASSERT_NE(red->next->dshdr, nullptr);
    EXPECT_NE(red->next->dshdr, red->dshdr);
    // Sun angles are degrees in d:m:s form in the text, radians in the record.
    EXPECT_DOUBLE_EQ(red->sun_azimuth, 45.0 * M_PI / 180.0);
    EXPECT_DOUBLE_EQ(red->sun_angle, 30.0 * M_PI / 180.0);
    // The formula is fitted to the dataset: BandId "Red" is band 1.
    EXPECT_STREQ(red->formula.args[0].band_number, "1");
    // Layers of a surface that is off are left alone.
    EXPECT_EQ(s->next->first_stream->next->dshdr, nullptr);
    // The link type of an old monocolour overlay is unchanged for other filters.
    stream *grid = s->next->first_stream;
    while (grid && grid->type != ST_DynamicLink) grid = grid->next;
    ASSERT_NE(grid, nullptr);
    EXPECT_EQ(grid->link_type, LT_Monocolour);
}

TEST(AlgRead, TransientsAreKeptOnlyWhenAskedFor)
{
    TempDir dir;
    write_datasets(dir);
    std::string path = dir.write("full.alg", dsh::slurp(kAlgDir + "full.alg"));
    Alg a(path, eg_algorithm_with_transients);
    ASSERT_EQ(a.status, 0) << dsh::error_text();
    ASSERT_NE(a->output_file, nullptr);
    EXPECT_NE(std::string(a->output_file).find("ignored.vld"), std::string::npos);
    EXPECT_EQ(a->canvas_width, 640);
    EXPECT_EQ(read_transients, 0);

    a->dots_per_inch_across = 96;
    a->dots_per_inch_down = 72;
    a->reserved_colours = 2;
    a->reserved_colours8 = static_cast<uint8_t *>(malloc_or_die(2));
    a->reserved_colours8[0] = 0;
    a->reserved_colours8[1] = 255;
    ASSERT_EQ(ep_algorithm_with_transients(a.a, path.c_str()), 0);
    std::string text = dsh::slurp(path);
    EXPECT_NE(text.find("DotsPerInchAcross"), std::string::npos);
    EXPECT_NE(text.find("ReservedColours"), std::string::npos);
    EXPECT_EQ(text.find("ReservedColours24bit"), std::string::npos);
    Alg back(path, eg_algorithm_with_transients);
    ASSERT_EQ(back.status, 0) << dsh::error_text();
    EXPECT_EQ(back->dots_per_inch_down, 72.0);
    ASSERT_EQ(back->reserved_colours, 2);
    EXPECT_EQ(back->reserved_colours8[1], 255);

    // Without transients neither goes out.
    ASSERT_EQ(ep_algorithm(a.a, path.c_str()), 0);
    text = dsh::slurp(path);
    EXPECT_EQ(text.find("DotsPerInchAcross"), std::string::npos);
    EXPECT_EQ(text.find("OutputFile"), std::string::npos);
}

TEST(AlgRead, OldFormsAreBroughtUpToDate)
{
    TempDir dir;
    write_datasets(dir);
    Alg a(dir.write("legacy.alg", dsh::slurp(kAlgDir + "legacy.alg")));
    ASSERT_EQ(a.status, 0) << dsh::error_text();
    // Corners in cells of the old CellInfo.
    EXPECT_EQ(a->bottom_right->x, 40.0);
    EXPECT_EQ(a->bottom_right->y, 30.0);
    // Version 5.4 with FlyThruMode: a fly-through, and ZScale 1 becomes 100.
    EXPECT_EQ(a->view_mode, VM_Flythrough);
    EXPECT_EQ(a->d3info.degen_mode, 0);
    ASSERT_EQ(nr_surfaces_in_alg(a.a), 2);
    surface *first = a->surfaces;
    EXPECT_EQ(first->z_scale, 100.0);
    EXPECT_EQ(first->color_mode, CM_RGB);
    EXPECT_STREQ(first->lookup_table, "rainbow");
    // StreamSurfaceId 0 and 1 both go to the first surface, in file order.
    ASSERT_EQ(nr_streams_in_surface(first), 2);
    EXPECT_EQ(first->first_stream->type, ST_Pseudo);
    stream *value = first->first_stream->next;
    EXPECT_EQ(value->type, ST_Intensity);
    EXPECT_NE(std::string(value->dataset).find("sub/inner.vld"), std::string::npos);
    // The vector types become link layers.
    stream *overlay = a->surfaces->next->first_stream;
    EXPECT_EQ(overlay->type, ST_DynamicLink);
    EXPECT_STREQ(overlay->filter_program_name, "vlnps_vlvec");
    EXPECT_STREQ(overlay->initialisation_program, "vlninit_vld");
    EXPECT_EQ(overlay->can_edit, 1);
    EXPECT_EQ(overlay->link_type, LT_TrueColour);
    stream *cells = overlay->next;
    EXPECT_STREQ(cells->menu_button_description, "Dataset Cell Grid");
    EXPECT_EQ(cells->turned_off, 1);
    stream *ll = cells->next;
    EXPECT_STREQ(ll->filter_program_name, "vlnps_ll_tgrid");
    EXPECT_STREQ(ll->dataset, "Variable");
    // Streams without a Formula block have the default one.
    EXPECT_STREQ(first->first_stream->formula.formula, "INPUT1");

    // Without FlyThruMode an old 3D view is a perspective one; from 5.5 on
    // the document's own ViewMode stands.
    std::string text = dsh::slurp(kAlgDir + "legacy.alg");
    const std::string fly = "\t\tFlyThruMode\t= Yes\n";
    text.erase(text.find(fly), fly.size());
    Alg perspective(dir.write("perspective.alg", text));
    ASSERT_EQ(perspective.status, 0) << dsh::error_text();
    EXPECT_EQ(perspective->view_mode, VM_Perspective3D);
    text.replace(text.find("\"5.4\""), 5, "\"5.5\"");
    Alg current(dir.write("current.alg", text));
    ASSERT_EQ(current.status, 0) << dsh::error_text();
    EXPECT_EQ(current->view_mode, VM_Flythrough);  // its Plythrough
}

TEST(AlgRead, EmptyDocumentGetsOneDefaultSurfaceAndStream)
{
    TempDir dir;
    std::string path = dir.write("empty.alg",
                                 "Algorithm Begin\n"
                                 "\tTopLeftCorner Begin\n\t\tMetersX = 0\n\t\tMetersY = 0\n"
                                 "\tTopLeftCorner End\n"
                                 "\tBottomRightCorner Begin\n\t\tMetersX = 1\n\t\tMetersY = 1\n"
                                 "\tBottomRightCorner End\n"
                                 "Algorithm End\n");
    Alg a(path);
    ASSERT_EQ(a.status, 0) << dsh::error_text();
    ASSERT_EQ(nr_surfaces_in_alg(a.a), 1);
    EXPECT_STREQ(a->surfaces->name, "Default Surface");
    EXPECT_EQ(a->surfaces->color_mode, CM_PSEUDO);
    ASSERT_EQ(nr_streams_in_alg(a.a), 1);
    EXPECT_EQ(a->surfaces->first_stream->type, ST_Pseudo);
    // The page was repaired: letter size.
    EXPECT_EQ(a->page.page_width, 8.5);
    EXPECT_EQ(a->page.page_height, 11.0);
}

/* Documents that fail keep what they read, for ef_algorithm. */
TEST(AlgRead, FailuresGiveTheirRowsAndLeaveAFreeableRecord)
{
    TempDir dir;
    const std::string corners =
        "\tTopLeftCorner Begin\n\t\tMetersX = 0\n\t\tMetersY = 0\n\tTopLeftCorner End\n"
        "\tBottomRightCorner Begin\n\t\tMetersX = 1\n\t\tMetersY = 1\n\tBottomRightCorner End\n";
    struct Case {
        const char *label;
        std::string text;
        int row;
        const char *message;
    } cases[] = {
        {"no top left",
         "Algorithm Begin\n\tBottomRightCorner Begin\n\t\tMetersX = 1\n\tBottomRightCorner End\n"
         "Algorithm End\n",
         25, "Coordinate missing in algorithm: topleft"},
        {"no bottom right",
         "Algorithm Begin\n\tTopLeftCorner Begin\n\t\tMetersX = 1\n\tTopLeftCorner End\n"
         "Algorithm End\n",
         25, "Coordinate missing in algorithm: bottomright"},
        {"missing dataset",
         "Algorithm Begin\n" + corners +
             "\tSurface Begin\n\t\tStream Begin\n\t\t\tType = Pseudo\n"
             "\t\t\tDataset = \"nowhere.vld\"\n\t\tStream End\n\tSurface End\nAlgorithm End\n",
         1, "nowhere.vld"},
        {"unknown keyword", "Algorithm Begin\n" + corners + "\tColour = 3\nAlgorithm End\n", 7,
         nullptr},
        {"even kernel",
         "Algorithm Begin\n" + corners +
             "\tSurface Begin\n\t\tStream Begin\n\t\t\tTurnedOff = Yes\n\t\t\tKernel Begin\n"
             "\t\t\t\tRows = 2\n\t\t\t\tColumns = 3\n\t\t\tKernel End\n\t\tStream End\n"
             "\tSurface End\nAlgorithm End\n",
         7, "Bad number of rows (must be odd)"},
        {"formula count after its blocks",
         "Algorithm Begin\n" + corners +
             "\tSurface Begin\n\t\tStream Begin\n\t\t\tTurnedOff = Yes\n\t\t\tFormula Begin\n"
             "\t\t\t\tFormulaArg Begin\n\t\t\t\tFormulaArg End\n\t\t\t\tNumberOfArgs = 1\n"
             "\t\t\tFormula End\n\t\tStream End\n\tSurface End\nAlgorithm End\n",
         7, "NumberOfArgs must stand before the FormulaArg blocks"},
        {"truncated", "Algorithm Begin\n" + corners + "\tSurface Begin\n\t\tStream Begin\n", 7,
         nullptr},
        {"sun azimuth as a plain real",
         "Algorithm Begin\n" + corners +
             "\tSurface Begin\n\t\tStream Begin\n\t\t\tTurnedOff = Yes\n"
             "\t\t\tSunAzimuth = 45.5\n\t\tStream End\n\tSurface End\nAlgorithm End\n",
         7, "Bad Type.  Expecting VTYPE_DMS, received VTYPE_FLOAT (45.5)"},
        {"colour beyond 16 bits",
         "Algorithm Begin\n" + corners +
             "\tSurface Begin\n\t\tStream Begin\n\t\t\tTurnedOff = Yes\n"
             "\t\t\tType = ClassificationDisplay\n\t\t\tColourList = { 65536 0 0 }\n"
             "\t\tStream End\n\tSurface End\nAlgorithm End\n",
         7, "Value out of range in ColourList"},
    };
    for (const Case &c : cases) {
        std::string path = dir.write("bad.alg", c.text);
        Alg a(path);
        EXPECT_EQ(a.status, c.row) << c.label << ": " << dsh::error_text();
        if (c.message) {
            EXPECT_NE(dsh::error_text().find(c.message), std::string::npos)
                << c.label << ": " << dsh::error_text();
        }
        EXPECT_NE(a.a, nullptr) << c.label;
    }
    algorithm *none = nullptr;
    EXPECT_EQ(eg_algorithm(&none, dir.file("absent.alg").c_str()), 1);
    ef_algorithm(none);
    EXPECT_EQ(eg_algorithm(nullptr, "x.alg"), 12);
    EXPECT_EQ(ep_algorithm(nullptr, "x.alg"), 0);
}

// Transient colour arrays that don't match ColourList are dropped, so that the
// writer never reads past them.
TEST(AlgRead, MismatchedColourArraysAreDropped)
{
    TempDir dir;
    std::string path =
        dir.write("colours.alg",
                  "Algorithm Begin\n"
                  "\tTopLeftCorner Begin\n\t\tMetersX = 0\n\tTopLeftCorner End\n"
                  "\tBottomRightCorner Begin\n\t\tMetersX = 1\n\tBottomRightCorner End\n"
                  "\tSurface Begin\n\t\tStream Begin\n\t\t\tTurnedOff = Yes\n"
                  "\t\t\tType = ClassificationDisplay\n"
                  "\t\t\tColourList = { 65535 0 0 0 65535 0 }\n"
                  "\t\t\tColourList8bit = { 7 }\n"
                  "\t\t\tColourList24bit = { 1 2 3 4 5 6 }\n"
                  "\t\tStream End\n\tSurface End\n"
                  "\tReservedColours = { 1 2 3 }\n"
                  "\tReservedColours24bit = { 1 2 3 }\n"
                  "Algorithm End\n");
    Alg a(path, eg_algorithm_with_transients);
    ASSERT_EQ(a.status, 0) << dsh::error_text();
    stream *s = a->surfaces->first_stream;
    EXPECT_EQ(s->nr_rgb_colours, 2);
    EXPECT_EQ(s->colours8, nullptr);
    ASSERT_NE(s->colours24, nullptr);
    EXPECT_EQ(s->colours24[0], 255);  // the top byte of the 16-bit colour
    EXPECT_EQ(a->reserved_colours, 1);
    EXPECT_EQ(a->reserved_colours8, nullptr);
    ASSERT_EQ(ep_algorithm_with_transients(a.a, path.c_str()), 0);
}

/* ---------------------------------------------------------------- defaults and copies */

TEST(AlgDefaults, DefaultAlgorithmAndStreams)
{
    algorithm *a = nullptr;
    ASSERT_EQ(df_algorithm(&a), 0);
    EXPECT_STREQ(a->version, "7.0");
    EXPECT_STREQ(a->description, "No Description");
    EXPECT_STREQ(a->author, "Vorlan");
    EXPECT_EQ(a->bottom_right->x, 1000.0);
    EXPECT_EQ(a->bottom_right->y, 1000.0);
    EXPECT_EQ(a->adjusted_bottom_right->x, 1000.0);
    EXPECT_TRUE(std::isnan(a->d3info.eye_xyz[0]));
    EXPECT_EQ(a->d3info.window_aspect_ratio, 1.0);
    EXPECT_EQ(a->stipple_colour24[2], 255);
    EXPECT_EQ(a->current_surface, a->surfaces);
    EXPECT_EQ(a->is_new, 1);
    ef_algorithm(a);

    struct {
        int type;
        int row;
        const char *description;
        int transform_type;
    } cases[] = {{ST_Red, 0, "Red Layer", TT_Linear},
                 {ST_Height, 0, "Height Layer", TT_HistogramOnly},
                 {ST_Classification, 0, "Classification Layer", TT_HistogramOnly},
                 {ST_DatasetBand, 0, "Unknown Layer", TT_Linear},
                 {ST_DynamicLink, 0, "", 0},
                 {1, 22, nullptr, 0},
                 {13, 22, nullptr, 0},
                 {100, 22, nullptr, 0}};
    for (const auto &c : cases) {
        stream *s = nullptr;
        EXPECT_EQ(df_stream(&s, c.type), c.row) << c.type;
        if (c.row) {
            EXPECT_EQ(s, nullptr);
            continue;
        }
        ASSERT_NE(s, nullptr);
        EXPECT_STREQ(s->description, c.description) << c.type;
        EXPECT_EQ(s->turned_off, 1);
        EXPECT_STREQ(s->dataset, "");
        EXPECT_EQ(s->surface_id, 1);
        if (c.type == ST_DynamicLink) {
            EXPECT_EQ(s->stream_inputs, nullptr);
            EXPECT_STREQ(s->filter_program_name, "");
        } else {
            ASSERT_NE(s->stream_inputs, nullptr);
            EXPECT_EQ(s->stream_inputs->id, 1);
            ASSERT_NE(s->transforms, nullptr);
            EXPECT_EQ(s->transforms->type, c.transform_type);
            EXPECT_STREQ(s->formula.formula, "INPUT1");
        }
        ef_stream(s);
    }
}

TEST(AlgDefaults, CopiesOwnAllTheyHoldAndFollowTheSelection)
{
    TempDir dir;
    write_datasets(dir);
    Alg a(dir.write("full.alg", dsh::slurp(kAlgDir + "full.alg")), eg_algorithm_with_transients);
    ASSERT_EQ(a.status, 0) << dsh::error_text();
    a->current_surface = a->surfaces->next;
    a->current_stream = a->surfaces->next->first_stream->next;
    algorithm *all = nullptr, *some = nullptr;
    ASSERT_EQ(cp_algorithm_all(&all, a.a), 0);
    ASSERT_EQ(cp_algorithm(&some, a.a), 0);
    EXPECT_TRUE(equal(a.a, all));
    EXPECT_EQ(all->current_surface, all->surfaces->next);
    EXPECT_EQ(all->current_stream, all->surfaces->next->first_stream->next);
    EXPECT_NE(all->surfaces, a->surfaces);
    EXPECT_EQ(all->surfaces->next->prev, all->surfaces);
    stream *st = all->surfaces->first_stream;
    EXPECT_EQ(st->next->prev, st);
    EXPECT_NE(st->dshdr, a->surfaces->first_stream->dshdr);
    EXPECT_EQ(some->output_file, nullptr);
    EXPECT_STREQ(all->output_file, a->output_file);
    EXPECT_EQ(some->canvas_width, 0);
    ef_algorithm(all);
    ef_algorithm(some);
}

// The window fitting reads and writes the record: a flat view at one scale,
// a 3D view keeps its far corner.
TEST(AlgDefaults, AdjustForAspectFitsTheRecord)
{
    EXPECT_EQ(adjust_for_aspect(nullptr, 100, 100), 65);
    algorithm *a = nullptr;
    ASSERT_EQ(df_algorithm(&a), 0);  // raw, (0,0) to (1000,1000)
    a->output_width = 200;
    a->output_height = 100;
    a->enforce_aspect = 1;
    ASSERT_EQ(adjust_for_aspect(a, 100, 100), 0) << dsh::error_text();
    EXPECT_EQ(a->canvas_width, 100);
    EXPECT_EQ(a->canvas_height, 100);
    EXPECT_EQ(a->adjusted_bottom_right->x, 2000.0);

    a->view_mode = VM_Perspective3D;
    a->adjusted_bottom_right->x = 7;
    ASSERT_EQ(adjust_for_aspect(a, 100, 100), 0);
    EXPECT_EQ(a->adjusted_bottom_right->x, 7.0);
    a->view_mode = VM_Planimetric2D;
    a->output_height = 0;
    EXPECT_EQ(adjust_for_aspect(a, 100, 100), 72);
    ef_algorithm(a);
}

/* ---------------------------------------------------------------- link init programs */

/* A link init program as a shell script that prints `answer`, writes `err`
 * to its error stream and exits with `status`. */
std::string link_program(const TempDir &dir, const std::string &answer, const std::string &err,
                         int status)
{
    std::string path =
        dir.write("linkinit.sh", "#!/bin/sh\nprintf '%s' '" + answer + "'\nprintf '%s' '" + err +
                                     "' >&2\nexit " + std::to_string(status) + "\n");
    chmod(path.c_str(), 0755);
    return path;
}

std::string link_document(const std::string &program)
{
    return "Algorithm Begin\n"
           "\tTopLeftCorner Begin\n\t\tMetersX = 0\n\t\tMetersY = 0\n\tTopLeftCorner End\n"
           "\tBottomRightCorner Begin\n\t\tMetersX = 10\n\t\tMetersY = 10\n"
           "\tBottomRightCorner End\n"
           "\tSurface Begin\n\t\tStream Begin\n\t\t\tType = DynamicLink\n"
           "\t\t\tDataset = \"x\"\n\t\t\tFilterProgramName = \"vlnps_grid\"\n"
           "\t\t\tFileExtent = \"choose\"\n\t\t\tInitialisationProgram = \"" +
           program + "\"\n\t\tStream End\n\tSurface End\nAlgorithm End\n";
}

TEST(AlgLink, AnswerOfTheInitProgramSetsTheLayer)
{
    TempDir dir;
    std::string prog =
        link_program(dir, "info RAW RAW RAW METERS 0 \"5\" 6 105 206 MULTIPLE", "", 0);
    Alg a(dir.write("link.alg", link_document(prog)));
    ASSERT_EQ(a.status, 0) << dsh::error_text();
    stream *s = a->surfaces->first_stream;
    ASSERT_NE(s->dshdr, nullptr);
    EXPECT_EQ(s->dshdr->data_type, DT_Vector);
    EXPECT_EQ(s->top_left.x, 5.0);
    EXPECT_EQ(s->top_left.y, 6.0);
    EXPECT_EQ(s->bottom_right.x, 105.0);
    EXPECT_EQ(s->bottom_right.y, 206.0);
    EXPECT_STREQ(s->coordspace.datum, "RAW");
    EXPECT_EQ(s->multiple_coordspaces, 1);
    EXPECT_EQ(s->file_time, 0);
}

TEST(AlgLink, FailuresOfTheInitProgram)
{
    TempDir dir;
    struct Case {
        const char *label;
        std::string answer, err;
        int status;
        int row;
        const char *message;
    } cases[] = {
        {"bad exit", "", "no map here", 3, 60, "returned error 3\nno map here"},
        {"too few fields", "a b c", "", 0, 61, "too few (3) parameters"},
        {"too much output", std::string(1100, 'x'), "", 0, 59,
         "Too much output from link init program. Maximum = 1024 bytes."},
    };
    for (const Case &c : cases) {
        std::string prog = link_program(dir, c.answer, c.err, c.status);
        Alg a(dir.write("link.alg", link_document(prog)));
        EXPECT_EQ(a.status, c.row) << c.label << ": " << dsh::error_text();
        EXPECT_NE(dsh::error_text().find(c.message), std::string::npos)
            << c.label << ": " << dsh::error_text();
        EXPECT_NE(a.a, nullptr);
    }
    Alg missing(dir.write("link.alg", link_document(dir.file("no_such_program"))));
    EXPECT_EQ(missing.status, 59) << dsh::error_text();
}

/* ---------------------------------------------------------------- virtual datasets */

TEST(AlgVirtual, AlgorithmReadsAsAVirtualDatasetHeader)
{
    TempDir dir;
    write_datasets(dir);
    std::string path = dir.write("full.alg", dsh::slurp(kAlgDir + "full.alg"));
    dsh::Header h(path);
    ASSERT_EQ(h.status, 0) << dsh::error_text();
    ASSERT_NE(h->algorithm, nullptr);
    EXPECT_EQ(h->data_type, DT_Raster);
    EXPECT_EQ(h->info.r.cell_type, IEEE8ByteReal);
    EXPECT_GT(h->info.r.nr_bands, 0);

    // Written as a header with its algorithm, and read back the same way.
    std::string vld = dir.file("virtual.vld");
    ASSERT_EQ(ep_dshdr(h.d, vld.c_str()), 0) << dsh::error_text();
    std::string text = dsh::slurp(vld);
    EXPECT_NE(text.find("\tAlgorithm Begin"), std::string::npos);
    dsh::Header back(vld);
    ASSERT_EQ(back.status, 0) << dsh::error_text();
    ASSERT_NE(back->algorithm, nullptr);
    EXPECT_EQ(nr_surfaces_in_alg(back->algorithm), 2);
    EXPECT_EQ(back->info.r.nr_bands, h->info.r.nr_bands);
}

TEST(AlgVirtual, DatasetThatReadsItselfIsRefused)
{
    TempDir dir;
    std::string path = dir.file("self.alg");
    dir.write("self.alg",
              "Algorithm Begin\n"
              "\tTopLeftCorner Begin\n\t\tMetersX = 0\n\t\tMetersY = 0\n\tTopLeftCorner End\n"
              "\tBottomRightCorner Begin\n\t\tMetersX = 1\n\t\tMetersY = 1\n"
              "\tBottomRightCorner End\n"
              "\tSurface Begin\n\t\tStream Begin\n\t\t\tTurnedOff = Yes\n\t\t\tType = Pseudo\n"
              "\t\t\tDataset = \"" +
                  path + "\"\n\t\tStream End\n\tSurface End\nAlgorithm End\n");
    dsh::Header h(path);
    EXPECT_EQ(h.status, 49);
    EXPECT_NE(dsh::error_text().find("points to itself"), std::string::npos) << dsh::error_text();
    EXPECT_EQ(h.d, nullptr);
}

// A layer on a virtual dataset whose algorithm reads the document back.
TEST(AlgVirtual, LayerThatReadsTheDocumentBackIsRefused)
{
    TempDir dir;
    auto doc = [](const std::string &dataset, bool off) {
        return "Algorithm Begin\n"
               "\tTopLeftCorner Begin\n\t\tMetersX = 0\n\tTopLeftCorner End\n"
               "\tBottomRightCorner Begin\n\t\tMetersX = 1\n\tBottomRightCorner End\n"
               "\tSurface Begin\n\t\tStream Begin\n" +
               std::string(off ? "\t\t\tTurnedOff = Yes\n" : "") +
               "\t\t\tType = Pseudo\n\t\t\tDataset = \"" + dataset +
               "\"\n\t\tStream End\n\tSurface End\nAlgorithm End\n";
    };
    std::string outer = dir.file("outer.alg");
    dir.write("inner.alg", doc(outer, true));
    dir.write("outer.alg", doc(dir.file("inner.alg"), false));
    Alg a(outer);
    EXPECT_EQ(a.status, 49);
    EXPECT_NE(dsh::error_text().find("is self referential"), std::string::npos)
        << dsh::error_text();
    EXPECT_EQ(a->surfaces->first_stream->dshdr, nullptr);
}

/* An algorithm of one surface whose layers, all on, read the given datasets. */
std::string layers_doc(const std::vector<std::string> &datasets)
{
    std::string text =
        "Algorithm Begin\n"
        "\tTopLeftCorner Begin\n\t\tMetersX = 0\n\t\tMetersY = 0\n\tTopLeftCorner End\n"
        "\tBottomRightCorner Begin\n\t\tMetersX = 40\n\t\tMetersY = 30\n"
        "\tBottomRightCorner End\n\tSurface Begin\n";
    for (const std::string &ds : datasets)
        text += "\t\tStream Begin\n\t\t\tType = Pseudo\n\t\t\tDataset = \"" + ds +
                "\"\n\t\tStream End\n";
    return text + "\tSurface End\nAlgorithm End\n";
}

// Layers that lead back to their own document, directly, through another
// algorithm, through a virtual dataset header or through a linked folder, are
// refused before the document is read again: such a read would never end.
TEST(AlgVirtual, LayersThatLeadBackAreRefusedBeforeReadingAgain)
{
    TempDir dir;
    write_datasets(dir);
    dir.write("self.alg", layers_doc({"self.alg"}));
    dir.write("a.alg", layers_doc({"land.vld", "b.alg"}));
    dir.write("b.alg", layers_doc({"a.alg"}));
    dir.write("v.alg", layers_doc({"w.vld"}));
    symlink(".", dir.file("here").c_str());
    dir.write("deep.alg", layers_doc({"here/deep.alg"}));
    // A virtual dataset header whose algorithm reads the algorithm above.
    {
        Alg v(dir.write("w.alg", layers_doc({"land.vld"})));
        ASSERT_EQ(v.status, 0) << dsh::error_text();
        dsh::Header w(dir.file("w.alg"));
        ASSERT_EQ(w.status, 0) << dsh::error_text();
        safe_free(w->algorithm->surfaces->first_stream->dataset);
        w->algorithm->surfaces->first_stream->dataset = strsave(dir.file("v.alg").c_str());
        ASSERT_EQ(ep_dshdr(w.d, dir.file("w.vld").c_str()), 0) << dsh::error_text();
    }
    for (const char *name : {"self.alg", "a.alg", "b.alg", "v.alg", "deep.alg"}) {
        SCOPED_TRACE(name);
        Alg a(dir.file(name));
        EXPECT_EQ(a.status, 49);
        EXPECT_NE(dsh::error_text().find("is self referential"), std::string::npos)
            << dsh::error_text();
        dsh::Header h(dir.file(name));
        EXPECT_EQ(h.status, 49);
        EXPECT_EQ(h.d, nullptr);
    }
    // A read that failed leaves nothing behind: the next read starts afresh.
    Alg fine(dir.write("fine.alg", layers_doc({"land.vld", "w.alg", "w.alg"})));
    EXPECT_EQ(fine.status, 0) << dsh::error_text();
}

// A chain of virtual datasets deeper than any real document is refused, and
// reading it up to the limit fits in a small thread stack.
TEST(AlgVirtual, DeepChainsAreRefusedWithinASmallStack)
{
    TempDir dir;
    write_datasets(dir);
    const int length = 40;
    for (int i = 0; i < length; i++)
        dir.write("c" + std::to_string(i) + ".alg",
                  layers_doc({i + 1 < length ? "c" + std::to_string(i + 1) + ".alg" : "land.vld"}));
    struct Job {
        std::string path;
        int status = -1;
        std::string error;
    };
    auto read_on_small_stack = [](Job &job) {
        pthread_attr_t attr;
        pthread_attr_init(&attr);
        pthread_attr_setstacksize(&attr, 512 * 1024);
        pthread_t thread;
        auto body = [](void *p) -> void * {
            Job &j = *static_cast<Job *>(p);
            algorithm *a = nullptr;
            j.status = eg_algorithm(&a, j.path.c_str());
            if (j.status) j.error = dsh::error_text();
            ef_algorithm(a);
            return nullptr;
        };
        ASSERT_EQ(pthread_create(&thread, &attr, body, &job), 0);
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&attr);
    };
    Job deep{dir.file("c0.alg"), -1, ""};
    read_on_small_stack(deep);
    EXPECT_EQ(deep.status, 49);
    EXPECT_NE(deep.error.find("is nested too deeply: more than 16 levels"), std::string::npos)
        << deep.error;
    Job shallow{dir.file("c" + std::to_string(length - 8) + ".alg"), -1, ""};
    read_on_small_stack(shallow);
    EXPECT_EQ(shallow.status, 0) << shallow.error;
}

// Within one read a header is read once and handed out as copies: each copy
// is its layer's own, named as its layer asked for it.
TEST(AlgVirtual, HeadersReadOnceAreSharedAsCopies)
{
    TempDir dir;
    write_datasets(dir);
    mkdir(dir.file("lower").c_str(), 0755);
    dir.write("lower/mid.alg", layers_doc({"../land.vld", "../land.vld"}));
    Alg a(dir.write("top.alg", layers_doc({"lower/mid.alg", dir.file("lower/mid.alg"),
                                           "lower/../lower/mid.alg", "land.vld"})));
    ASSERT_EQ(a.status, 0) << dsh::error_text();
    std::vector<dshdr *> seen;
    for (stream *st = a->surfaces->first_stream; st; st = st->next) {
        ASSERT_NE(st->dshdr, nullptr);
        for (dshdr *d : seen) EXPECT_NE(d, st->dshdr);
        seen.push_back(st->dshdr);
    }
    stream *first = a->surfaces->first_stream;
    ASSERT_NE(first->dshdr->algorithm, nullptr);
    EXPECT_EQ(nr_streams_in_alg(first->dshdr->algorithm), 2);
    EXPECT_EQ(first->next->dshdr->info.r.nr_bands, first->dshdr->info.r.nr_bands);
    EXPECT_EQ(nr_streams_in_alg(first->next->next->dshdr->algorithm), 2);
    EXPECT_EQ(first->next->next->next->dshdr->algorithm, nullptr);
    // A second read of the same documents is a read of its own.
    Alg again(dir.file("top.alg"));
    ASSERT_EQ(again.status, 0) << dsh::error_text();
    EXPECT_TRUE(equal(a.a, again.a));
}

// Old top-level streams name their surface; surfaces up to it are made, so an
// impossible number is a parse error, not a wait. A stream, kernel or
// transform without Type gets a type, so that every document that reads
// writes back.
TEST(AlgRead, OldSurfaceNumbersAndUntypedStreams)
{
    TempDir dir;
    const std::string head =
        "Algorithm Begin\n\tVersion = \"5.4\"\n"
        "\tTopLeftCorner Begin\n\t\tMetersX = 0\n\tTopLeftCorner End\n"
        "\tBottomRightCorner Begin\n\t\tMetersX = 1\n\tBottomRightCorner End\n";
    for (const char *id : {"2147483647", "-1", "1025"}) {
        Alg a(dir.write("far.alg", head +
                                       "\tStream Begin\n\t\tTurnedOff = Yes\n"
                                       "\t\tStreamSurfaceId = " +
                                       id + "\n\tStream End\nAlgorithm End\n"));
        EXPECT_EQ(a.status, 7) << id;
        EXPECT_NE(
            dsh::error_text().find(std::string("StreamSurfaceId = ") + id + " is out of range"),
            std::string::npos)
            << dsh::error_text();
    }
    Alg a(dir.write("third.alg",
                    head + "\tStream Begin\n\t\tTurnedOff = Yes\n"
                           "\t\tStreamSurfaceId = 3\n\tStream End\n"
                           "\tSurface Begin\n\t\tStream Begin\n\t\t\tTurnedOff = Yes\n"
                           "\t\t\tKernel Begin\n\t\t\t\tRows = 1\n\t\t\t\tColumns = 1\n"
                           "\t\t\tKernel End\n\t\t\tTransform Begin\n"
                           "\t\t\t\tMinimumInputValue = 0\n\t\t\t\tMaximumInputValue = 9\n"
                           "\t\t\t\tMinimumOutputValue = 0\n\t\t\t\tMaximumOutputValue = 9\n"
                           "\t\t\tTransform End\n"
                           "\t\tStream End\n\tSurface End\nAlgorithm End\n"));
    ASSERT_EQ(a.status, 0) << dsh::error_text();
    ASSERT_EQ(nr_surfaces_in_alg(a.a), 3);
    EXPECT_EQ(a->surfaces->first_stream->type, ST_Pseudo);
    EXPECT_EQ(a->surfaces->next->first_stream, nullptr);
    EXPECT_EQ(nr_streams_in_surface(a->surfaces->next->next), 1);
    // Kernels and transforms without Type get theirs too.
    ASSERT_NE(a->surfaces->first_stream->kernels, nullptr);
    EXPECT_EQ(a->surfaces->first_stream->kernels->type, KT_Convolution);
    ASSERT_NE(a->surfaces->first_stream->transforms, nullptr);
    EXPECT_EQ(a->surfaces->first_stream->transforms->type, TT_Unknown);
    std::string out = dir.file("out.alg");
    ASSERT_EQ(ep_algorithm(a.a, out.c_str()), 0) << dsh::error_text();
    EXPECT_NE(dsh::slurp(out).find("\t\t\tType\t\t= Pseudo\n"), std::string::npos);
    Alg back(out);
    EXPECT_EQ(back.status, 0) << dsh::error_text();
}

}  // namespace
