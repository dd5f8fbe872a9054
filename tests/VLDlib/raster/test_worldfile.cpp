// World files: the transform's types and terms, reading and writing the six
// numbers, finding the file beside an image, and the registration of a header
// that a world file stands for.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "dshdr_fixture.h"
#include "vld_worldfile.h"

namespace {

using dsh::error_text;
using dsh::slurp;
using dsh::TempDir;

affine make(double a, double b, double c, double d, double e = 0, double f = 0)
{
    affine t{};
    t.a = a, t.b = b, t.c = c, t.d = d, t.e = e, t.f = f;
    return t;
}

TEST(WorldFile, TransformTypes)
{
    const double r = 0.3, cr = std::cos(r), sr = std::sin(r);
    struct Row {
        const char *what;
        affine t;
        int type;
    } rows[] = {
        {"no rotation", make(0, 0, 2, -3), AFFINE_USABLE},
        {"c and a zero", make(0, 1, 0, -3), AFFINE_INVALID},
        {"d and b zero", make(1, 0, 2, 0), AFFINE_INVALID},
        {"c set, d zero", make(1, 1, 2, 0), AFFINE_SHEARED},
        {"a zero, b set", make(0, 1, 2, -3), AFFINE_SHEARED},
        {"a rotation", make(-sr * 3, -sr * 2, cr * 2, -cr * 3), AFFINE_USABLE},
        {"quarter turn", make(-3, -2, 0, 0), AFFINE_USABLE},
        {"a shear", make(-sr * 3, -sr * 5, cr * 2, -cr * 3), AFFINE_SHEARED},
    };
    for (const Row &row : rows) EXPECT_EQ(VLN_get_transform_type(&row.t), row.type) << row.what;
}

// Terms come back out of a transform as they went in.
TEST(WorldFile, ComposeAndDecompose)
{
    affine t{};
    ASSERT_EQ(VLN_get_affine_transform(2, 3, 0, 10, 20, &t), 0);
    EXPECT_EQ(t.a, 0);
    EXPECT_EQ(t.b, 0);
    EXPECT_EQ(t.c, 2);
    EXPECT_EQ(t.d, -3);

    std::mt19937 random(9);
    std::uniform_real_distribution<double> size(0.01, 500), angle(-3.1, 3.1), at(-1e6, 1e6);
    for (int i = 0; i < 500; i++) {
        double sx = size(random), sy = size(random), r = angle(random);
        double e = at(random), f = at(random);
        ASSERT_EQ(VLN_get_affine_transform(sx, sy, r, e, f, &t), 0);
        double got[5];
        ASSERT_EQ(VLN_decompose_affine_transform(&t, &got[0], &got[1], &got[2], &got[3], &got[4]),
                  0);
        EXPECT_NEAR(got[0], r, 1e-12);
        EXPECT_NEAR(got[1], sx, 1e-9 * sx);
        EXPECT_NEAR(got[2], sy, 1e-9 * sy);
        EXPECT_EQ(got[3], e);
        EXPECT_EQ(got[4], f);
    }

    EXPECT_EQ(VLN_get_affine_transform(0, 3, 0, 0, 0, &t), 12);
    EXPECT_NE(error_text().find("Invalid Affine Transformation"), std::string::npos);
    double v = 7;
    affine sheared = make(1, 1, 2, 0);
    EXPECT_EQ(VLN_get_rotation(&v, &sheared), 12);
    EXPECT_NE(error_text().find("Affine Transformation contains shearing"), std::string::npos);
    affine invalid = make(0, 0, 0, 0);
    EXPECT_EQ(VLN_get_cellsize_x(&v, &invalid), 12);
    EXPECT_NE(error_text().find("Invalid Affine Transformation"), std::string::npos);
    EXPECT_EQ(v, 7);
    affine plain = make(0, 0, 2, -3, 5, 6);
    EXPECT_EQ(VLN_get_cellsize_y(&v, &plain), 0);
    EXPECT_EQ(v, 3);
    EXPECT_EQ(VLN_get_translation_y(&v, &plain), 0);
    EXPECT_EQ(v, 6);
}

TEST(WorldFile, Reading)
{
    TempDir dir;
    struct Row {
        const char *text;
        int status;
        std::vector<double> expect;  // c, b, a, d, e, f after the call
    } rows[] = {
        {"2\n0\n0\n-3\n100.5\n200.25\n", 0, {2, 0, 0, -3, 100.5, 200.25}},
        {"  2 0.5\n0.25 -3\n1e3\n-7 trailing words 9\n", 0, {2, 0.5, 0.25, -3, 1000, -7}},
        {"1\n2\n3\n4\n5\n", 12, {1, 2, 3, 4, 5, 99}},
        {"1\n2\nthree\n4\n5\n6\n", 12, {1, 2, 99, 99, 99, 99}},
        {"", 12, {99, 99, 99, 99, 99, 99}},
    };
    for (const Row &row : rows) {
        std::string path = dir.write("w.tfw", row.text);
        affine t = make(99, 99, 99, 99, 99, 99);
        EXPECT_EQ(VLN_get_affine_transform_from_world_file(&t, path.c_str()), row.status)
            << row.text;
        EXPECT_EQ((std::vector<double>{t.c, t.b, t.a, t.d, t.e, t.f}), row.expect) << row.text;
        if (row.status) {
            EXPECT_NE(error_text().find(path + " is not a valid world file."), std::string::npos);
        }
    }
    affine t{};
    std::string missing = dir.file("none.tfw");
    EXPECT_EQ(VLN_get_affine_transform_from_world_file(&t, missing.c_str()), 24);
    EXPECT_EQ(error_text(), missing);
    // A FIFO is no world file, and is neither waited on nor found.
    std::string fifo = dir.file("pipe.tfw");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(VLN_get_affine_transform_from_world_file(&t, fifo.c_str()), 24);
    char *found = nullptr;
    EXPECT_NE(VLN_check_for_world_file(&found, dir.file("pipe.tif").c_str(), ""), 0);
    EXPECT_EQ(found, nullptr);
}

TEST(WorldFile, FindingBesideAnImage)
{
    struct Row {
        const char *image;
        const char *extensions;
        std::vector<const char *> files;
        const char *found;  // null: none
    } rows[] = {
        {"a.tif", "", {"a.tfw"}, "a.tfw"},
        {"a.tif", "", {"a.wld", "a.tfw"}, "a.tfw"},
        {"a.hdr", "", {"a.blw", "a.hrw"}, "a.blw"},
        {"a.hdr", "", {"a.hrw"}, "a.hrw"},
        {"a.img", ".xyz;.img", {"a.xzw"}, "a.xzw"},
        {"a.img", "*.xyz", {"a.xyzw", "a.wld"}, "a.xyzw"},
        {"a.img", "", {"a.wld", "a.imgw"}, "a.wld"},
        {"a.ab", "", {"a.abw"}, "a.abw"},
        {"a.jpeg", ".jpg", {"a.jpw"}, "a.jpw"},
        {"a.jpeg", ".JPG", {"a.jpegw"}, "a.jpegw"},
        {"a.raw", ".hdr", {"a.bilw"}, "a.bilw"},
        {"a.raw", ".tif", {"a.tiw"}, "a.tiw"},
        {"a.TIF", "", {"a.TFW"}, "a.TFW"},
        {"a.tif", "", {"b.tfw", "a.tif.w"}, nullptr},
    };
    for (const Row &row : rows) {
        TempDir dir;
        for (const char *f : row.files) dir.write(f, "1\n");
        std::string image = dir.file(row.image);
        char *path = nullptr;
        int status = VLN_check_for_world_file(&path, image.c_str(), row.extensions);
        if (row.found) {
            EXPECT_EQ(status, 0) << row.image;
            EXPECT_EQ(path ? std::string(path) : "", dir.file(row.found)) << row.image;
        } else {
            EXPECT_NE(status, 0) << row.image;
            EXPECT_EQ(path, nullptr);
        }
        safe_free(path);
    }
    EXPECT_EQ(VLN_translator_supports_world_files(".hdr"), 1);
    EXPECT_EQ(VLN_translator_supports_world_files("*.foo;*.TIF"), 1);
    EXPECT_EQ(VLN_translator_supports_world_files(".foo;.bar"), 0);
    EXPECT_EQ(VLN_translator_supports_world_files(nullptr), 0);
}

TEST(WorldFile, Writing)
{
    affine t = make(-0.5, -0.5, 30, -30, 500000.125, 6100000);
    struct Row {
        const char *image;
        std::vector<const char *> existing;
        const char *target;  // null: nothing written
    } rows[] = {
        {"a.tif", {}, "a.tfw"},
        {"a.tif", {"a.wld"}, "a.wld"},
        {"a.hdr", {}, "a.blw"},
        {"a.xyz", {}, nullptr},
    };
    const std::string expect = "30\n-0.5\n-0.5\n-30\n500000.125\n6100000";
    for (const Row &row : rows) {
        TempDir dir;
        for (const char *f : row.existing) dir.write(f, "old");
        std::string image = dir.file(row.image);
        EXPECT_EQ(VLN_write_world_file(&t, image.c_str(), ""), 0) << row.image;
        int files = 0;
        for (auto &entry : std::filesystem::directory_iterator(dir.file(""))) files++, (void)entry;
        if (row.target) {
            EXPECT_EQ(slurp(dir.file(row.target)), expect) << row.image;
            EXPECT_EQ(files, 1) << row.image;  // no temporary left behind
        } else {
            EXPECT_EQ(files, 0) << row.image;
        }
    }

    TempDir dir;
    std::string image = dir.file("p.tif");
    affine tiny = make(0, 0, 0.1, -1.0 / 3);
    ASSERT_EQ(VLN_write_world_file(&tiny, image.c_str(), ""), 0);
    EXPECT_EQ(slurp(dir.file("p.tfw")), "0.10000000000000001\n0\n0\n-0.33333333333333331\n0\n0");

    affine sheared = make(1, 1, 2, 0);
    EXPECT_EQ(VLN_write_world_file(&sheared, image.c_str(), ""), 12);
    // An existing world file that can't be replaced.
    std::filesystem::create_directory(dir.file("q.tfw"));
    std::string blocked = dir.file("q.tif");
    EXPECT_EQ(VLN_write_world_file(&t, blocked.c_str(), ""), 5);
}

struct RasterHeader {
    dshdr *d = nullptr;
    explicit RasterHeader(const std::string &name)
    {
        df_raster_dshdr(&d, name.c_str(), 40, 30, 1, Unsigned8BitInteger);
    }
    ~RasterHeader() { ef_dshdr(d); }
};

// A world file beside a raw dataset makes it a local grid, registered at the
// centre of the first cell; the header then gives back the same transform.
TEST(WorldFile, HeaderRegistration)
{
    TempDir dir;
    struct Row {
        const char *text;
        double rotation, sx, sy;
    } rows[] = {
        {"30\n0\n0\n-30\n500015\n6100985\n", 0, 30, 30},
        {"8.6602540378443873\n-5\n-3\n-5.196152422706632\n1000\n2000\n", M_PI / 6, 10, 6},
    };
    for (const Row &row : rows) {
        std::string wf = dir.write("img.tfw", row.text);
        RasterHeader h(dir.file("img.vld"));
        ASSERT_EQ(VLN_add_world_file_params_to_dshdr(h.d, wf.c_str()), 0);
        const coordspace &cs = h.d->coordspace;
        const rasterinfo &r = h.d->info.r;
        EXPECT_EQ(cs.coordsystype, CST_EN);
        EXPECT_STREQ(cs.datum, "WGS84");
        EXPECT_STREQ(cs.projection, "LOCAL");
        EXPECT_EQ(r.registration_cell_x, 0.5);
        EXPECT_EQ(r.registration_cell_y, 0.5);
        EXPECT_NEAR(cs.rotation, row.rotation, 1e-12);
        EXPECT_NEAR(r.cellinfo.x_dimension, row.sx, 1e-9);
        EXPECT_NEAR(r.cellinfo.y_dimension, row.sy, 1e-9);

        affine read{}, back{};
        ASSERT_EQ(VLN_get_affine_transform_from_world_file(&read, wf.c_str()), 0);
        EXPECT_EQ(r.registration_coord.x, read.e);
        EXPECT_EQ(r.registration_coord.y, read.f);
        ASSERT_EQ(VLN_get_affine_transform_from_dshdr(h.d, &back), 0);
        const double want[] = {read.a, read.b, read.c, read.d, read.e, read.f};
        const double got[] = {back.a, back.b, back.c, back.d, back.e, back.f};
        for (int i = 0; i < 6; i++) EXPECT_NEAR(got[i], want[i], 1e-6) << row.text << " " << i;
    }

    RasterHeader h(dir.file("img.vld"));
    std::string sheared = dir.write("s.tfw", "1\n1\n2\n0\n0\n0\n");
    EXPECT_EQ(VLN_add_world_file_params_to_dshdr(h.d, sheared.c_str()), 12);
    h.d->info.r.cellinfo.x_dimension = 0;
    h.d->info.r.cellinfo.y_dimension = 0;
    affine t{};
    EXPECT_EQ(VLN_get_affine_transform_from_dshdr(h.d, &t), 12);
    std::string tail = std::string(h.d->name) + "\"";  // the text ends in the dataset's name
    EXPECT_EQ(error_text().substr(error_text().size() - tail.size()), tail);
}

TEST(WorldFile, WritingForAHeader)
{
    TempDir dir;
    RasterHeader h(dir.file("scene.vld"));
    h.d->info.r.cellinfo.x_dimension = 2;
    h.d->info.r.cellinfo.y_dimension = 2;
    EXPECT_EQ(VLN_write_world_file_for_dshdr(h.d), 12);
    EXPECT_NE(error_text().find("This is not a translated dataset."), std::string::npos);

    h.d->dataset_type = DST_Translated;
    safe_free(h.d->data_file);
    h.d->data_file = strsave("scene.tif");
    ASSERT_EQ(VLN_write_world_file_for_dshdr(h.d), 0);
    affine t{};
    ASSERT_EQ(VLN_get_affine_transform_from_world_file(&t, dir.file("scene.tfw").c_str()), 0);
    EXPECT_EQ(t.c, 2);
    EXPECT_EQ(t.d, -2);
}

}  // namespace
