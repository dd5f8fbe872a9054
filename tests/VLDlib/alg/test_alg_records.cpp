// The small records of the algorithm document: kernels, transforms with their
// shapes and histograms, the page and the 3D view. Each is read from a
// hand-written text, written, compared with its golden text and read again;
// then the reader's refusals, the defaults and the page repair.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#include "dshdr_fixture.h"
#include "vld_alg.h"
#include "vld_alg_internal.h"
#include "vld_docs.h"

namespace {

using dsh::TempDir;

const std::string kAlgData = std::string(VORLAN_TEST_DATA_DIR) + "/alg/";

coordspace en_space()
{
    coordspace s{};
    s.coordsystype = CST_EN;
    s.projection = const_cast<char *>("NUTM55");
    s.datum = const_cast<char *>("WGS84");
    s.units = const_cast<char *>("METERS");
    s.meter_factor = 1.0;
    return s;
}

coordspace raw_space(double rotation = 0.0)
{
    coordspace s{};
    s.coordsystype = CST_RAW;
    s.projection = const_cast<char *>("RAW");
    s.datum = const_cast<char *>("RAW");
    s.units = const_cast<char *>("METERS");
    s.meter_factor = 1.0;
    s.rotation = rotation;
    return s;
}

/* A record of any descriptor, freed at the end of the scope. */
struct Rec {
    const vld::Record &r;
    void *p = nullptr;
    explicit Rec(const vld::Record &rec) : r(rec) {}
    ~Rec() { vld::rec_free(p, r); }
    Rec(const Rec &) = delete;
    Rec &operator=(const Rec &) = delete;
    template <class T>
    T *as() const
    {
        return static_cast<T *>(p);
    }
};

/* Reads `text` as a document of the record, with `aux` handed down. */
const coordspace *g_aux = nullptr;
const vld::Record *g_record = nullptr;
int read_text(const std::string &text, Rec &rec, const coordspace *aux = nullptr)
{
    g_aux = aux;
    g_record = &rec.r;
    return eg_from_buffer(
        text.c_str(),
        [](void *address, const char *file) {
            return vld::rec_get(static_cast<void **>(address), file, *g_record, g_aux);
        },
        &rec.p);
}

std::string write_text(const Rec &rec, const coordspace *aux = nullptr)
{
    g_aux = aux;
    g_record = &rec.r;
    char *text = nullptr;
    EXPECT_EQ(
        ep_to_buffer(
            rec.p,
            [](void *r, const char *file) { return vld::rec_write(r, file, *g_record, g_aux); },
            &text),
        0);
    std::string out = text ? text : "";
    safe_free(text);
    return out;
}

/* ---------------------------------------------------------------- round trips */

TEST(AlgRecordText, ReadWriteReadMatchesGolden)
{
    const coordspace en = en_space();
    const struct {
        const char *file;
        const vld::Record &(*rec)();
        const coordspace *aux;
        bool lossy = false;  // the text leaves out what the record held
    } cases[] = {
        {"kernel_convolution.ker", vld::vld_kernel_record, nullptr},
        {"kernel_threshold.ker", vld::vld_kernel_record, nullptr},
        {"kernel_user.ker", vld::vld_kernel_record, nullptr},
        {"transform_linear.txt", vld::vld_transform_record, nullptr},
        {"transform_exp.txt", vld::vld_transform_record, nullptr},
        {"transform_log.txt", vld::vld_transform_record, nullptr},
        {"transform_null.txt", vld::vld_transform_record, nullptr, true},
        {"pagesize_en.txt", vld::vld_pagesize_record, &en},
        {"d3info.txt", vld::vld_d3info_record, nullptr},
    };
    TempDir dir;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.file);
        Rec first(c.rec());
        ASSERT_EQ(vld::rec_get(&first.p, (kAlgData + c.file).c_str(), first.r, c.aux), 0)
            << dsh::error_text();
        std::string out = dir.file(c.file);
        ASSERT_EQ(vld::rec_write(first.p, out.c_str(), first.r, c.aux), 0) << dsh::error_text();
        EXPECT_EQ(dsh::slurp(out), dsh::slurp(kAlgData + c.file + ".golden"));

        Rec again(c.rec());
        ASSERT_EQ(vld::rec_get(&again.p, out.c_str(), again.r, c.aux), 0) << dsh::error_text();
        EXPECT_EQ(vld::rec_equal(first.p, again.p, first.r), !c.lossy);

        Rec copy(c.rec());
        copy.p = vld::rec_dup(first.p, first.r);
        EXPECT_TRUE(vld::rec_equal(first.p, copy.p, first.r));
    }
}

TEST(AlgRecordText, ReadValuesLandInTheirMembers)
{
    Rec k(vld::vld_kernel_record());
    ASSERT_EQ(vld::rec_get(&k.p, (kAlgData + "kernel_threshold.ker").c_str(), k.r), 0);
    const kernel *kt = k.as<kernel>();
    EXPECT_EQ(kt->type, KT_Threshold);
    EXPECT_EQ(kt->rows, 3);
    EXPECT_EQ(kt->columns, 5);
    ASSERT_NE(kt->array, nullptr);
    EXPECT_EQ(kt->array[12], 0.0);  // the centre
    EXPECT_EQ(kt->threshold, 40.5);

    Rec t(vld::vld_transform_record());
    ASSERT_EQ(vld::rec_get(&t.p, (kAlgData + "transform_linear.txt").c_str(), t.r), 0);
    const transform *tr = t.as<transform>();
    EXPECT_EQ(tr->id, 0);  // a transient, dropped
    ASSERT_NE(tr->histogram, nullptr);
    EXPECT_EQ(tr->histogram->counts[0], 1000u);
    EXPECT_EQ(tr->histogram->counts[2], 0xFFFFFFFFu);  // written as a signed count
    EXPECT_EQ(tr->histogram->counts[255], 3u);
    const auto *ld = static_cast<const lineardef *>(tr->definition);
    ASSERT_EQ(ld->nr_points, 3);
    EXPECT_EQ(ld->points[3], 0.75);

    // Scaled coefficients come from the unit ones, not from the old keywords.
    Rec e(vld::vld_transform_record());
    ASSERT_EQ(vld::rec_get(&e.p, (kAlgData + "transform_exp.txt").c_str(), e.r), 0);
    const auto *ex = static_cast<const expdef *>(e.as<transform>()->definition);
    EXPECT_DOUBLE_EQ(ex->a_scaled, 5.5 / 100.0);
    EXPECT_DOUBLE_EQ(ex->b_scaled, 255.0 * 0.004);
    EXPECT_DOUBLE_EQ(ex->c_scaled, 255.0 * -0.004);

    Rec d(vld::vld_d3info_record());
    ASSERT_EQ(vld::rec_get(&d.p, (kAlgData + "d3info.txt").c_str(), d.r), 0);
    const d3info *di = d.as<d3info>();
    EXPECT_EQ(di->model_matrix[5], 2.0);
    EXPECT_EQ(di->head_matrix[14], -5.0);

    // The old view settings are read, never written.
    Rec old(vld::vld_d3info_record());
    ASSERT_EQ(read_text("ThreeDInfo Begin\nDegenMode = Point\nFallbackResolution = 4\n"
                        "PointSize = 2\nLineWidth = 1.5\nZScale = 3\nAutoPilot = Yes\n"
                        "ThreeDInfo End\n",
                        old),
              0)
        << dsh::error_text();
    di = old.as<d3info>();
    EXPECT_EQ(di->degen_mode, 2);
    EXPECT_EQ(di->fallback_resolution, 4);
    EXPECT_EQ(di->point_size, 2.0);
    EXPECT_EQ(di->line_width, 1.5);
    EXPECT_EQ(di->z_scale, 3.0);
    EXPECT_EQ(di->auto_pilot, 1);
    std::string out = write_text(old);
    for (const char *word : {"Degen", "Fallback", "PointSize", "LineWidth", "ZScale", "AutoPilot"})
        EXPECT_EQ(out.find(word), std::string::npos) << word;
}

TEST(AlgRecordText, TransformIdIsTransient)
{
    const std::string text =
        "Transform Begin\nId = 9\nType = HistogramOnly\n"
        "MinimumInputValue = 0\nMaximumInputValue = 1\nTransform End\n";
    const int saved_read = read_transients, saved_write = write_transients;
    for (int flag : {0, 1}) {
        SCOPED_TRACE(flag);
        read_transients = write_transients = flag;
        Rec t(vld::vld_transform_record());
        ASSERT_EQ(read_text(text, t), 0) << dsh::error_text();
        EXPECT_EQ(t.as<transform>()->id, flag ? 9 : 0);
        t.as<transform>()->id = 9;
        EXPECT_EQ(write_text(t).find("Id") != std::string::npos, flag == 1);
    }
    read_transients = saved_read;
    write_transients = saved_write;
}

TEST(AlgRecordText, UnsetRangesAndInvalidHistogramsAreWrittenAsDefaults)
{
    Rec t(vld::vld_transform_record());
    t.p = vld::rec_alloc(t.r);
    transform *tr = t.as<transform>();
    ASSERT_EQ(df_transform_noalloc(tr, TT_HistogramOnly), 0);
    tr->min_input = tr->max_input = tr->min_output = tr->max_output = std::nan("");
    ea_histogram(&tr->histogram);
    tr->histogram->invalid = 1;
    std::string out = write_text(t);
    EXPECT_NE(out.find("MinimumInputValue\t= 0\n"), std::string::npos) << out;
    EXPECT_NE(out.find("MaximumInputValue\t= 255\n"), std::string::npos) << out;
    EXPECT_NE(out.find("MinimumOutputValue\t= 0\n"), std::string::npos) << out;
    EXPECT_NE(out.find("MaximumOutputValue\t= 255\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("Histogram Begin"), std::string::npos) << out;
}

/* ---------------------------------------------------------------- refusals */

std::string kernel_doc(const std::string &size, const std::string &array)
{
    return "Kernel Begin\nType = Convolution\n" + size + "Array = {\n" + array +
           "\n}\nKernel End\n";
}

std::string transform_doc(const std::string &type, const std::string &ranges,
                          const std::string &shape = "")
{
    return "Transform Begin\nType = " + type + "\n" + ranges + shape + "Transform End\n";
}

const char *const kRanges =
    "MinimumInputValue = 0\nMaximumInputValue = 10\n"
    "MinimumOutputValue = 0\nMaximumOutputValue = 255\n";

std::string linear(const std::string &count, const std::string &points)
{
    return "LinearDef Begin\nNumberOfPoints = " + count + "\nPoints = {\n" + points +
           "\n}\nLinearDef End\n";
}

TEST(AlgRecordText, BadBlocksAreRefusedWithTheirMessage)
{
    const struct {
        const vld::Record &(*rec)();
        std::string text;
        int status;
        const char *message;
    } cases[] = {
        {vld::vld_kernel_record, kernel_doc("Rows = 2\nColumns = 3\n", "1 1 1 1 1 1"), 7,
         "Bad number of rows (must be odd)"},
        {vld::vld_kernel_record, kernel_doc("Rows = 3\nColumns = 4\n", "1 1 1 1 1 1 1 1 1 1 1 1"),
         7, "Bad number of cols (must be odd)"},
        {vld::vld_kernel_record, kernel_doc("Rows = 3\nColumns = 3\n", "1 1 1 1 1 1 1 1"), 7,
         "Expecting: 9, got: 8"},
        // The size checked when it comes after the list.
        {vld::vld_kernel_record,
         "Kernel Begin\nArray = {1 1 1}\nRows = 1\nColumns = 1\nKernel End\n", 7,
         "Expecting: 1, got: 3"},
        {vld::vld_kernel_record, "Kernel Begin\nType = User\nKernel End\n", 38, "Bad size"},
        {vld::vld_transform_record, transform_doc("Linear", kRanges, linear("3", "0 0\n1 1")), 7,
         "LinearDef array size != 2 * NrEntries"},
        {vld::vld_transform_record, transform_doc("Linear", kRanges, linear("2", "0 0\n1")), 7,
         "LinearDef array size != 2 * NrEntries"},
        {vld::vld_transform_record,
         transform_doc("Linear", "MinimumInputValue = 10\nMaximumInputValue = 10\n"), 141,
         "Invalid transform: Minimum x >= maximum x"},
        {vld::vld_transform_record,
         transform_doc("Exponential",
                       "MaximumInputValue = 1\nMinimumOutputValue = 9\nMaximumOutputValue = 1\n"),
         141, "Invalid transform: Minimum y >= maximum y"},
        {vld::vld_transform_record, transform_doc("Linear", kRanges), 141,
         "Invalid transform: Piecewise linear intervals not defined"},
        {vld::vld_transform_record, transform_doc("Linear", kRanges, linear("1", "0 0")), 141,
         "Invalid transform: Piecewise linear intervals not defined"},
        {vld::vld_transform_record, transform_doc("Linear", kRanges, linear("2", "0.5 0\n1 1")),
         141, "Invalid transform: First interval does not start with x = 0.0"},
        {vld::vld_transform_record, transform_doc("Linear", kRanges, linear("2", "0 0\n0.9 1")),
         141, "Invalid transform: Last interval does not end with x = 1.0"},
        {vld::vld_transform_record,
         transform_doc("Linear", kRanges, "ExpDef Begin\nA = 1\nExpDef End\n"), 7,
         "ExpDef does not fit a transform of type Linear"},
        {vld::vld_histogram_record, "Histogram Begin\nBins = {1 2 3}\nHistogram End\n", 7,
         "Expecting: 256, got: 3"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        Rec rec(c.rec());
        EXPECT_EQ(read_text(c.text, rec), c.status);
        EXPECT_NE(dsh::error_text().find(c.message), std::string::npos) << dsh::error_text();
    }
}

TEST(AlgRecordText, TransformChecksSpareWhatTheTypeDoesNotUse)
{
    const std::string cases[] = {
        // Null is never checked.
        transform_doc("Null", "MinimumInputValue = 5\nMaximumInputValue = 5\n"),
        // A histogram has no output range.
        transform_doc("HistogramOnly", "MaximumInputValue = 1\nMinimumOutputValue = 3\n"),
        // A shape before the Type sets it.
        "Transform Begin\n" + linear("2", "0 0\n1 1") + kRanges + "Transform End\n",
    };
    for (const auto &text : cases) {
        SCOPED_TRACE(text);
        Rec rec(vld::vld_transform_record());
        EXPECT_EQ(read_text(text, rec), 0) << dsh::error_text();
    }
    // A later Type of another shape drops the shape read so far.
    Rec rec(vld::vld_transform_record());
    ASSERT_EQ(read_text("Transform Begin\n" + linear("2", "0 0\n1 1") + kRanges +
                            "Type = HistogramOnly\nTransform End\n",
                        rec),
              0);
    EXPECT_EQ(rec.as<transform>()->definition, nullptr);
}

/* ---------------------------------------------------------------- defaults */

TEST(AlgRecordDefaults, TransformOfEachType)
{
    const struct {
        int type;
        int status;
        double a, b, c;  // the unit coefficients, or the middle point of a line
    } cases[] = {
        {TT_Linear, 0, 0, 0, 0},
        {TT_Exponential, 0, 5.496878, 0.004116, -0.004116},
        {TT_Logarithmic, 0, 0.004116, 0.181922, 0.999253},
        {TT_HistogramOnly, 0, 0, 0, 0},
        {TT_Null, 0, 0, 0, 0},
        {TT_Unknown, 20, 0, 0, 0},
        {7, 20, 0, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.type);
        transform *t = reinterpret_cast<transform *>(1);
        ASSERT_EQ(df_transform(&t, c.type), c.status);
        if (c.status) {
            EXPECT_EQ(t, nullptr);
            EXPECT_NE(dsh::error_text().find("Invalid transform type"), std::string::npos);
            continue;
        }
        EXPECT_EQ(t->min_input, 0.0);
        EXPECT_EQ(t->max_input, 255.0);
        EXPECT_EQ(t->min_output, 0.0);
        EXPECT_EQ(t->max_output, 255.0);
        if (c.type == TT_Linear) {
            const auto *d = static_cast<const lineardef *>(t->definition);
            ASSERT_EQ(d->nr_points, 2);
            EXPECT_EQ(std::vector<double>(d->points, d->points + 4),
                      (std::vector<double>{0, 0, 1, 1}));
        } else if (c.type == TT_Exponential || c.type == TT_Logarithmic) {
            const auto *e = static_cast<const expdef *>(t->definition);
            EXPECT_EQ(e->a, c.a);
            EXPECT_EQ(e->b, c.b);
            EXPECT_EQ(e->c, c.c);
        } else {
            EXPECT_EQ(t->definition, nullptr);
        }
        // Every default passes the reader's checks (a Null one has no ranges
        // in the text).
        Rec written(vld::vld_transform_record());
        written.p = t;
        Rec back(vld::vld_transform_record());
        ASSERT_EQ(read_text(write_text(written), back), 0) << dsh::error_text();
        if (c.type != TT_Null) {
            EXPECT_TRUE(vld::rec_equal(t, back.p, back.r));
        }
    }
}

TEST(AlgRecordDefaults, KernelAndTriviality)
{
    kernel *k = nullptr;
    ASSERT_EQ(df_kernel(&k, 3), 0);
    EXPECT_STREQ(k->name, "Default Kernel");
    EXPECT_EQ(std::vector<double>(k->array, k->array + 9),
              (std::vector<double>{0, 0, 0, 0, 1, 0, 0, 0, 0}));
    EXPECT_EQ(kernel_is_trivial(k), 0);
    ef_kernel(k);
    EXPECT_EQ(df_kernel(&k, 4), 38);
    EXPECT_EQ(k, nullptr);

    ASSERT_EQ(df_kernel(&k, 1), 0);
    EXPECT_EQ(kernel_is_trivial(k), 1);
    EXPECT_EQ(kernel_is_trivial(nullptr), 1);
    k->scale_factor = 2.0;
    EXPECT_EQ(kernel_is_trivial(k), 0);
    k->scale_factor = 1.0;
    k->array[0] = 0.5;
    EXPECT_EQ(kernel_is_trivial(k), 0);
    ef_kernel(k);
}

/* ---------------------------------------------------------------- chains and copies */

TEST(AlgRecordChains, CopiesAreDeepAndLinked)
{
    transform *chain = nullptr;
    for (int type : {TT_Linear, TT_Exponential, TT_Null}) {
        transform *t = nullptr;
        ASSERT_EQ(df_transform(&t, type), 0);
        t->next = chain;
        if (chain) chain->prev = t;
        chain = t;
    }
    ea_histogram(&chain->histogram);
    chain->histogram->counts[3] = 5;

    transform *copy = vld::copy_transforms(chain);
    int n = 0;
    for (transform *a = chain, *b = copy, *prev = nullptr; a; a = a->next, b = b->next, n++) {
        ASSERT_NE(b, nullptr);
        EXPECT_EQ(b->prev, prev);
        EXPECT_TRUE(vld::rec_equal(a, b, vld::vld_transform_record()));
        if (a->definition) {
            EXPECT_NE(a->definition, b->definition);
        }
        prev = b;
    }
    EXPECT_EQ(n, 3);
    EXPECT_NE(copy->histogram, chain->histogram);

    // A partial copy takes the shape but keeps its own id and histogram.
    transform *target = nullptr;
    ASSERT_EQ(df_transform(&target, TT_Logarithmic), 0);
    target->id = 4;
    ASSERT_EQ(cp_transform_partial(target, chain->next), 0);
    EXPECT_EQ(target->type, TT_Exponential);
    EXPECT_EQ(target->id, 4);
    EXPECT_EQ(target->histogram, nullptr);
    EXPECT_NE(target->definition, chain->next->definition);
    ef_transform(target);

    vld::free_transforms(chain);
    vld::free_transforms(copy);

    kernel *kernels = nullptr;
    ASSERT_EQ(df_kernel(&kernels, 3), 0);
    ASSERT_EQ(df_kernel(&kernels->next, 5), 0);
    kernel *kcopy = vld::copy_kernels(kernels);
    ASSERT_NE(kcopy->next, nullptr);
    EXPECT_EQ(kcopy->next->next, nullptr);
    EXPECT_EQ(kcopy->next->rows, 5);
    EXPECT_NE(kcopy->next->array, kernels->next->array);
    vld::free_kernels(kernels);
    vld::free_kernels(kcopy);
}

TEST(AlgRecordText, KernelNameIsJoinedWithItsDirectory)
{
    TempDir dir;
    std::filesystem::create_directory(dir.file("sub"));
    dir.write("sub/edge.ker", "");
    const struct {
        std::string body;
        std::string name;
    } cases[] = {
        // Found beside the document being read, with the extension supplied.
        {"Directory = \"sub\"\nName = \"edge\"\n", dir.file("sub/edge.ker")},
        // The order of the two doesn't matter.
        {"Name = \"edge\"\nDirectory = \"sub\"\n", dir.file("sub/edge.ker")},
        // Not found anywhere: joined all the same.
        {"Directory = \"none\"\nName = \"x.ker\"\n", "none/x.ker"},
        // Without a Directory, a name is kept as written.
        {"Name = \"edge\"\n", "edge"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.body);
        std::string path = dir.write("doc.ker", "Kernel Begin\nType = Unknown\n" + c.body +
                                                    "Rows = 1\nColumns = 1\nKernel End\n");
        Rec k(vld::vld_kernel_record());
        ASSERT_EQ(vld::rec_get(&k.p, path.c_str(), k.r), 0) << dsh::error_text();
        EXPECT_EQ(std::filesystem::path(k.as<kernel>()->name).lexically_normal(),
                  std::filesystem::path(c.name).lexically_normal());
    }
}

/* ---------------------------------------------------------------- the page */

/* An algorithm built by hand: the page code needs only the space, the
 * corners, the version and the page. */
struct PageAlg {
    coordspace space;
    dscoord tl, br;
    algorithm alg{};
    PageAlg(const coordspace &s, dscoord top_left, dscoord bottom_right, const char *version)
        : space(s), tl(top_left), br(bottom_right)
    {
        alg.coordspace = &space;
        alg.top_left = &tl;
        alg.bottom_right = &br;
        alg.version = const_cast<char *>(version);
    }
};

/* Sets p_current_config for a scope. */
struct ConfigUnits {
    VLNConfig config{};
    VLNConfig *saved = p_current_config;
    explicit ConfigUnits(int units)
    {
        config.units = units;
        p_current_config = units < 0 ? nullptr : &config;
    }
    ~ConfigUnits() { p_current_config = saved; }
};

TEST(AlgRecordPage, UnsetPageGetsLetterSizeAndTheContentScale)
{
    const double nan = std::nan("");
    // A RAW content of 100 by 200 m: the height fills the page.
    const double scale = 200.0 * 1000.0 / 279.4;
    const double left = 8.5 - 100.0 / scale * 1000.0 / 25.4;
    const struct {
        int units;  // -1: no configuration
        int type;
        double bottom_y;
    } cases[] = {
        {-1, CST_RAW, 200.0},
        {CONFIG_UNITS_Imperial, CST_RAW, 200.0},
        {CONFIG_UNITS_Metric, CST_RAW, 200.0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.units);
        ConfigUnits units(c.units);
        PageAlg p(raw_space(), {0, 0, nan}, {100, 200, nan}, "7.0");
        ASSERT_EQ(check_pagesize(&p.alg), 0);
        const pagesize &pg = p.alg.page;
        EXPECT_EQ(pg.page_constraint, PC_None);
        EXPECT_EQ(pg.page_width, 8.5);
        EXPECT_EQ(pg.page_height, 11.0);
        EXPECT_DOUBLE_EQ(pg.scale, scale);
        EXPECT_DOUBLE_EQ(pg.left_border, left);
        EXPECT_EQ(pg.bottom_border, 0.0);
        EXPECT_EQ(pg.content_extents.bottom_right.x, 100.0);
        EXPECT_DOUBLE_EQ(pg.page_extents.bottom_right.x, 100.0 + left * scale);
        EXPECT_DOUBLE_EQ(pg.page_extents.bottom_right.y, c.bottom_y);
    }
}

TEST(AlgRecordPage, BottomBorderSignFollowsUnitsAndSpace)
{
    const double nan = std::nan("");
    // A wide EN content of 400 by 100 m: the width fills the page, leaving a
    // bottom border.
    const double scale = 400.0 * 1000.0 / 215.89999999999998;
    const double bottom = 11.0 - 100.0 / scale * 1000.0 / 25.4;
    const struct {
        int units;
        coordspace space;
        dscoord tl, br;
        double bottom_y;
    } cases[] = {
        {CONFIG_UNITS_Metric,
         en_space(),
         {1000, 5000, nan},
         {1400, 4900, nan},
         4900 - bottom * scale},
        {CONFIG_UNITS_Imperial,
         en_space(),
         {1000, 5000, nan},
         {1400, 4900, nan},
         4900 + bottom * scale},
        {CONFIG_UNITS_Metric, raw_space(), {0, 0, nan}, {400, 100, nan}, 100 + bottom * scale},
        {-1, raw_space(), {0, 0, nan}, {400, 100, nan}, 100 - bottom * scale},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.units);
        ConfigUnits units(c.units);
        PageAlg p(c.space, c.tl, c.br, "7.0");
        ASSERT_EQ(check_pagesize(&p.alg), 0);
        EXPECT_NEAR(p.alg.page.scale, scale, 1e-9);
        EXPECT_NEAR(p.alg.page.bottom_border, bottom, 1e-12);
        EXPECT_EQ(p.alg.page.left_border, 0.0);
        EXPECT_NEAR(p.alg.page.page_extents.bottom_right.y, c.bottom_y, 1e-6);
    }
}

TEST(AlgRecordPage, WhenThePageStands)
{
    const double nan = std::nan("");
    ConfigUnits units(-1);
    const struct {
        double rotation;
        const char *version;
        double width, height;
        bool repaired;
    } cases[] = {
        {0.0, "7.0", 5, 7, false},
        {0.0, "5.0", 5, 7, false},  // an old version alone changes nothing
        {0.5, "7.0", 5, 7, false},
        {0.5, "5.1", 5, 7, true},  // an old rotated document
        {0.0, "7.0", 0, 7, true},
        {0.5, "7.0", 5, 0, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::Message() << c.rotation << " " << c.version << " " << c.width);
        PageAlg p(raw_space(c.rotation), {0, 0, nan}, {100, 200, nan}, c.version);
        p.alg.page.page_width = c.width;
        p.alg.page.page_height = c.height;
        ASSERT_EQ(check_pagesize(&p.alg), 0);
        EXPECT_EQ(p.alg.page.page_width == 8.5, c.repaired);
    }
    EXPECT_EQ(check_pagesize(nullptr), 0);
    PageAlg missing(raw_space(), {0, 0, nan}, {1, 1, nan}, "7.0");
    missing.alg.bottom_right = nullptr;
    EXPECT_EQ(check_pagesize(&missing.alg), 25);
    EXPECT_NE(dsh::error_text().find("bottomright"), std::string::npos);
}

TEST(AlgRecordPage, RotatedContentsAreTheBoxAroundTheTurnedCorners)
{
    const double nan = std::nan("");
    const struct {
        double rotation;
        dscoord tl, br;
        dscoord want_tl, want_br;
    } cases[] = {
        {0.0, {0, 0, nan}, {100, 50, nan}, {0, 0, nan}, {100, 50, nan}},
        // A quarter turn of a y-down box about its top-left.
        {M_PI / 2, {0, 0, nan}, {100, 50, nan}, {-50, 0, nan}, {0, 100, nan}},
        // Half a turn of a y-up box.
        {M_PI, {10, 100, nan}, {30, 80, nan}, {-10, 120, nan}, {10, 100, nan}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.rotation);
        PageAlg p(raw_space(c.rotation), c.tl, c.br, "7.0");
        extents e{};
        ASSERT_EQ(page_get_rotated_contents_from_alg(&p.alg, &e), 0);
        EXPECT_NEAR(e.top_left.x, c.want_tl.x, 1e-9);
        EXPECT_NEAR(e.top_left.y, c.want_tl.y, 1e-9);
        EXPECT_NEAR(e.bottom_right.x, c.want_br.x, 1e-9);
        EXPECT_NEAR(e.bottom_right.y, c.want_br.y, 1e-9);

        double w = 0, h = 0;
        ASSERT_EQ(page_check_get_extents(&p.alg, &w, &h, 1), 0);
        EXPECT_NEAR(w, std::fabs(c.want_br.x - c.want_tl.x), 1e-9);
        EXPECT_NEAR(h, std::fabs(c.want_br.y - c.want_tl.y), 1e-9);
    }

    PageAlg p(raw_space(), {0, 0, nan}, {10, 10, nan}, "7.0");
    ASSERT_EQ(page_set_rotated_page_from_delta(&p.alg, 5, -2), 0);
    EXPECT_EQ(p.alg.page.content_extents.top_left.x, 5.0);
    EXPECT_EQ(p.alg.page.page_extents.bottom_right.y, -2.0);
    double w = 1, h = 1;
    EXPECT_EQ(page_check_get_scale(nullptr, 1, 1, &w, &h), 0.0);
    EXPECT_EQ(w, 0.0);
    EXPECT_EQ(h, 0.0);
}

}  // namespace
