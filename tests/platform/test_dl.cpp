// Loading shared libraries, private copies, and symbols of the running program.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <link.h>
#include <stdlib.h>
#include <unistd.h>

#include <cmath>
#include <string>

#include "vln_path.h"

namespace {

std::string loaded_file(void *handle)
{
    struct link_map *map = nullptr;
    if (dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr) return "";
    return map->l_name;
}

// A fresh directory for the private copies, so that a test sees its own.
struct TempDir {
    std::string path;
    TempDir()
    {
        char pattern[] = "/tmp/vln_dl_testXXXXXX";
        path = mkdtemp(pattern);
        setenv("VLNTMP", path.c_str(), 1);
    }
    ~TempDir()
    {
        unsetenv("VLNTMP");
        vln_rmrfdir(path.c_str());
    }
};

using CosFn = double (*)(double);

TEST(DlLoad, SuffixIsAdded)
{
    // The library's own file, named without its suffix: "<dir>/libvorlan".
    Dl_info info{};
    ASSERT_NE(dladdr(reinterpret_cast<void *>(&VLD_setup_error), &info), 0);
    std::string file = info.dli_fname;
    std::string bare = file.substr(0, file.find(".so"));
    ASSERT_EQ(access((bare + ".so").c_str(), F_OK), 0) << "no development link beside " << file;

    void *self = vln_dlopen(0, bare.c_str(), 0);
    ASSERT_NE(self, nullptr) << VLD_error_text();
    EXPECT_EQ(vln_dlsym(self, "VLD_setup_error"), reinterpret_cast<void *>(&VLD_setup_error));
    EXPECT_EQ(vln_dlclose(self), 0);
}

TEST(DlLoad, SharedAndPrivateCopies)
{
    TempDir tmp;
    void *shared = vln_dlopen(0, "libm.so.6.", 0);  // a final dot: no suffix is added
    void *copy = vln_dlopen(0, "libm.so.6.", 1);
    ASSERT_NE(shared, nullptr);
    ASSERT_NE(copy, nullptr) << VLD_error_text();
    EXPECT_NE(copy, shared);

    std::string copy_file = loaded_file(copy);
    EXPECT_EQ(copy_file.rfind(tmp.path + "/vlndl", 0), 0u) << copy_file;
    EXPECT_TRUE(copy_file.ends_with(".so")) << copy_file;
    EXPECT_TRUE(fileexists(copy_file.c_str()));

    auto cos_copy = reinterpret_cast<CosFn>(vln_dlsym(copy, "cos"));
    ASSERT_NE(cos_copy, nullptr);
    auto cos_shared = reinterpret_cast<CosFn>(vln_dlsym(shared, "cos"));
    ASSERT_NE(cos_shared, nullptr);
    EXPECT_NE(cos_copy, cos_shared);
    EXPECT_EQ(cos_copy(1.0), std::cos(1.0));
    EXPECT_EQ(cos_shared(0.5), std::cos(0.5));

    EXPECT_EQ(vln_dlclose(copy), 0);
    EXPECT_FALSE(fileexists(copy_file.c_str()));
    EXPECT_EQ(vln_dlclose(shared), 0);
}

TEST(DlLoad, Failures)
{
    EXPECT_EQ(vln_dlopen(0, nullptr, 0), nullptr);
    EXPECT_EQ(VLD_error.code, VLD_ERR_NULL_LIBRARY_SPEC);
    EXPECT_STREQ(VLD_error_text(), "Null library specification");

    for (int private_copy : {0, 1}) {
        EXPECT_EQ(vln_dlopen(0, "/nonexistent/libnope", private_copy), nullptr);
        EXPECT_EQ(VLD_error.code, VLD_ERR_CANNOT_LOAD_LIBRARY);
        EXPECT_EQ(std::string(VLD_error_text())
                      .rfind("Cannot load library: \"/nonexistent/libnope.so\"\n", 0),
                  0u)
            << VLD_error_text();
    }

    void *m = vln_dlopen(0, "libm.so.6.", 0);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(vln_dlsym(m, "vln_no_such_symbol"), nullptr);
    EXPECT_EQ(VLD_error.code, VLD_ERR_FUNCTION_NOT_IN_LIBRARY);
    EXPECT_EQ(std::string(VLD_error_text())
                  .rfind("Cannot find function \"vln_no_such_symbol\" in library", 0),
              0u);
    EXPECT_EQ(vln_dlclose(m), 0);

    EXPECT_EQ(vln_dlsym(nullptr, "cos"), nullptr);
    EXPECT_EQ(VLD_error.code, VLD_ERR_NULL_LIBRARY_SPEC);
    EXPECT_EQ(vln_dlclose(nullptr), 153);
}

TEST(DlLoad, SymbolsOfTheRunningProgram)
{
    struct Case {
        const char *name;
        int exists;
    } cases[] = {{"VLD_setup_error", 1}, {"vln_no_such_symbol", 0}, {nullptr, 0}};
    for (const Case &c : cases) {
        EXPECT_EQ(vln_symexists_inproc(c.name), c.exists) << (c.name ? c.name : "(null)");
        EXPECT_EQ(vln_symexists(0, c.name), c.exists) << (c.name ? c.name : "(null)");
    }
}

}  // namespace
