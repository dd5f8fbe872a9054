// The package's environment, its set-up, and the places of the installation tree.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "path_fixtures.h"
#include "support/capture.h"
#include "vln_path.h"

namespace {

TEST(EnvVars, GetAndSet)
{
    EnvGuard unset("VLN_TEST_VAR", nullptr);
    char *value = strsave("old");  // freed by the call
    EXPECT_EQ(VLN_get_environment_variable(&value, "VLN_TEST_VAR"), 28);
    EXPECT_EQ(value, nullptr);
    EXPECT_STREQ(VLD_error_text(), "Environment variable \"VLN_TEST_VAR\" not set");

    ASSERT_EQ(VLN_set_environment_variable("VLN_TEST_VAR", "%s/%d", "dir", 7), 0);
    ASSERT_EQ(VLN_get_environment_variable(&value, "VLN_TEST_VAR"), 0);
    EXPECT_EQ(take(value), "dir/7");
    EXPECT_EQ(take(VLN_getenv(0, "VLN_TEST_VAR")), "dir/7");

    ASSERT_EQ(VLN_set_environment_variable("VLN_TEST_VAR", nullptr), 0);
    EXPECT_EQ(getenv("VLN_TEST_VAR"), nullptr);
    EXPECT_EQ(VLN_set_environment_variable("BAD=NAME", "x"), 194);
    EXPECT_STREQ(VLD_error_text(), "Cannot set environment variable BAD=NAME");

    EnvGuard dsdir("VLNDSDIR", "C:\\data\\x:/y");
    EXPECT_EQ(take(VLN_getenv(1, "ignored")), "C:/data/x:/y");
}

TEST(EnvVars, VorlanDirectory)
{
    {
        EnvGuard v("VORLAN", "/opt/vorlan//");
        EXPECT_EQ(take(VLN_get_vorlan_dir()), "/opt/vorlan");
    }
    for (const char *value : {(const char *)nullptr, ""}) {
        EnvGuard v("VORLAN", value);
        StreamCapture err(StreamCapture::Err);
        EXPECT_EQ(VLN_get_vorlan_dir(), nullptr);
        EXPECT_EQ(VLD_error.code, VLD_ERR_VORLAN_NOT_SET);
        EXPECT_EQ(err.text(), "Vorlan: VORLAN environment variable not set\n");
    }
}

TEST(EnvVars, RasterLayerInfo)
{
    struct Case {
        const char *value, *name;
        int number;
    } cases[] = {
        {nullptr, "<null>", -1}, {"layer:3", "layer", 3}, {"/d/f.vld", "/d/f.vld", -1},
        {"a:b", "a:b", -1},      {"a:b:12", "a:b", 12},   {"x:", "x:", -1},
    };
    for (const Case &c : cases) {
        EnvGuard v("VLN_RASTER_LAYER_INFO", c.value);
        int number = 99;
        EXPECT_EQ(take(VLN_get_vorlan_rli(&number)), c.name) << (c.value ? c.value : "(unset)");
        EXPECT_EQ(number, c.number) << (c.value ? c.value : "(unset)");
    }
}

// Every variable that the set-up reads or writes, restored afterwards.
struct SetupEnv {
    EnvGuard guards[12] = {
        {"VLN_MACHINE_TYPE", nullptr}, {"VORLAN", nullptr},
        {"VLNBIN", nullptr},           {"VLNDSDIR", nullptr},
        {"VLNSCRIPTS", nullptr},       {"VLNTMP", nullptr},
        {"GSHOME", nullptr},           {"VLNEDIT", nullptr},
        {"EDITOR", nullptr},           {"PATH", "/usr/bin:/bin"},
        {"TMPDIR", nullptr},           {"VLN_DATASET_SEARCH_PATH", nullptr},
    };
};

std::string env(const char *name)
{
    const char *v = getenv(name);
    return v != nullptr ? v : "<unset>";
}

TEST(EnvSetup, DerivesThePackageVariables)
{
    SetupEnv saved;
    ScratchDir dir;
    std::string gsdir = dir.mkdir("gsbin");
    dir.touch("gsbin/gs", 0755);
    setenv("PATH", (gsdir + ":/usr/bin").c_str(), 1);
    setenv("TMPDIR", (dir.path() + "/").c_str(), 1);
    setenv("EDITOR", "nano", 1);

    std::string base = dir.path() + "/base";
    ASSERT_EQ(VLN_setup_environment((base + "//").c_str()), 0);
    EXPECT_EQ(env("VLN_MACHINE_TYPE"), "linux");
    EXPECT_EQ(env("VORLAN"), base);
    EXPECT_EQ(env("VLNBIN"), base + "/bin/linux");
    EXPECT_EQ(env("VLNDSDIR"), base + "/examples");
    EXPECT_EQ(env("VLNSCRIPTS"), base + "/bin/scripts");
    EXPECT_EQ(env("VLNTMP"), dir.path());
    EXPECT_EQ(env("GSHOME"), gsdir);
    EXPECT_EQ(env("VLNEDIT"), "nano");
    const std::string path = gsdir + ":/usr/bin:" + base + "/bin/linux:" + base + "/bin/scripts";
    EXPECT_EQ(env("PATH"), path);

    // Again, with the user's own settings: they are kept, and PATH doesn't grow.
    setenv("VLNTMP", "/mine", 1);
    setenv("GSHOME", "/opt/gs", 1);
    setenv("VLNEDIT", "ed", 1);
    setenv("VLN_DATASET_SEARCH_PATH", "/d1:/d2", 1);
    ASSERT_EQ(VLN_set_vorlan_dir(base.c_str()), 0);
    EXPECT_EQ(env("VLNTMP"), "/mine");
    EXPECT_EQ(env("GSHOME"), "/opt/gs");
    EXPECT_EQ(env("VLNEDIT"), "ed");
    EXPECT_EQ(env("VLNDSDIR"), "/d1:/d2");
    EXPECT_EQ(env("PATH"), path + ":/opt/gs");
}

TEST(EnvSetup, Defaults)
{
    SetupEnv saved;
    setenv("TMPDIR", "/nonexistent/tmp", 1);
    setenv("PATH", "/nonexistent", 1);
    ASSERT_EQ(VLN_setup_environment("/base"), 0);
    EXPECT_EQ(env("VLNTMP"), "/tmp");
    EXPECT_EQ(env("VLNEDIT"), "vi");
    EXPECT_EQ(env("GSHOME"), "<unset>");
    EXPECT_EQ(env("PATH"), "/nonexistent:/base/bin/linux:/base/bin/scripts");

    // With no base, $VORLAN stands in; with neither, the set-up fails.
    setenv("VORLAN", "/other", 1);
    ASSERT_EQ(VLN_setup_environment(nullptr), 0);
    EXPECT_EQ(env("VLNBIN"), "/other/bin/linux");
    unsetenv("VORLAN");
    EXPECT_EQ(VLN_setup_environment(""), 62);
}

TEST(InstallTree, Places)
{
    EnvGuard v("VORLAN", "/opt/vorlan/");
    struct Case {
        char *(*get)(void);
        const char *place;
    } cases[] = {
        {VLN_get_alg_dir, "examples"},
        {VLN_get_manuals_path_name, "online_manuals/linux"},
        {VLN_get_onlinehelp_toc_file_name, "online_manuals/linux/toc.dat"},
        {VLN_get_config_file_name, "config/config.vln"},
        {VLN_get_canvas_3d_menu_file_name, "config/image_scatter.vln"},
    };
    for (const Case &c : cases) EXPECT_EQ(take(c.get()), std::string("/opt/vorlan/") + c.place);

    EXPECT_EQ(take(VLN_get_lut_name("grey")), "/opt/vorlan/lut/grey.lut");
    EXPECT_EQ(take(VLN_get_lut_name("grey.LUT")), "/opt/vorlan/lut/grey.LUT");
    EXPECT_EQ(take(VLN_get_hardcopy_name("a4")), "/opt/vorlan/hardcopy/a4.hc");
    EXPECT_EQ(take(VLN_get_sensortype_name("spot\\xs")),
              "/opt/vorlan/cameras_and_sensors/spot/xs.vld");
    EXPECT_EQ(VLN_get_lut_name(nullptr), nullptr);
}

TEST(InstallTree, NoVorlan)
{
    EnvGuard v("VORLAN", nullptr);
    StreamCapture err(StreamCapture::Err);
    EXPECT_EQ(VLN_get_kernel_dir(), nullptr);
    EXPECT_EQ(VLN_get_lut_name("x"), nullptr);
    EXPECT_EQ(VLD_error.code, VLD_ERR_VORLAN_NOT_SET);
}

TEST(InstallTree, Interpreter)
{
    ScratchDir dir;
    dir.touch("gs", 0755);
    {
        EnvGuard home("GSHOME", "/opt/gs/"), lib("GS_LIB", "/opt/gs/lib");
        EXPECT_EQ(take(VLN_get_onlinehelp_ps_exec_name()), "/opt/gs/gs");
        EXPECT_EQ(take(VLN_get_onlinehelp_ps_lib_name()), "/opt/gs/lib");
    }
    EnvGuard home("GSHOME", nullptr), lib("GS_LIB", nullptr), path("PATH", dir.path().c_str());
    EXPECT_EQ(take(VLN_get_onlinehelp_ps_exec_name()), dir.at("gs"));
    EXPECT_EQ(VLN_get_onlinehelp_ps_lib_name(), nullptr);
}

TEST(InstallTree, DirectoryLists)
{
    ScratchDir dir;
    for (const char *name : {"b.LUT", "a.lut", "C.lut", "x.txt", "lut"}) dir.touch(name);
    dir.mkdir("d.lut");  // directories aren't listed

    int count = -1;
    char **list = VLN_get_sorted_directory_list(dir.path().c_str(), ".lut", &count);
    ASSERT_NE(list, nullptr);
    std::vector<std::string> names(list, list + count);
    EXPECT_EQ(list[count], nullptr);
    vln_free_directory_list(list, count);
    EXPECT_EQ(names, (std::vector<std::string>{"a.lut", "b.LUT", "C.lut"}));

    std::string empty = dir.mkdir("empty");
    list = VLN_get_directory_list(empty.c_str(), ".lut", &count);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(count, 0);
    vln_free_directory_list(list, count);

    EXPECT_EQ(VLN_get_directory_list(dir.at("none").c_str(), ".lut", &count), nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(VLD_error.code, VLD_ERR_CANNOT_FIND_DIR);
}

}  // namespace
