// User kernels from the sample library the suite builds: values against the
// window's definition, the init and final entries paired, a failing init
// ending the first read, how a library is found, and the messages when it
// or its function isn't there.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "kernel_fixture.h"
#include "vln_path.h"

namespace {

using kernel_test::Grid;
using node_test::Harness;
using node_test::Script;

kernel user_kernel(const char *file, const char *function, const char *parameters = nullptr,
                   int rows = 3, int columns = 3)
{
    kernel k{};
    k.type = KT_User;
    k.rows = rows;
    k.columns = columns;
    k.user_code_file_name = const_cast<char *>(file);
    k.user_function_name = const_cast<char *>(function);
    k.user_code_parameters = const_cast<char *>(parameters);
    return k;
}

/* The sample library's count of init states not yet released. */
int live_states()
{
    void *library = dlopen(VORLAN_SAMPLE_KERNEL, RTLD_NOW);
    if (library == nullptr) return -1;
    auto count = reinterpret_cast<int (*)()>(dlsym(library, "sample_live_states"));
    const int n = count != nullptr ? count() : -1;
    dlclose(library);
    return n;
}

Grid nulls_grid()
{
    Grid g = kernel_test::make_grid(9, 6, [](int l, int x) { return (l * 13 + x * 5) % 17; });
    g.lines[3].runs = {{0, 3}, {5, 8}};
    return g;
}

TEST(NodesKernelUser, RangeOfTheWindowTimesItsFactor)
{
    struct Row {
        const char *parameters;
        int rows, columns;
        double factor;
    };
    const Row rows[] = {{"factor=2", 3, 3, 2}, {nullptr, 3, 3, 1}, {"factor=0.5", 1, 5, 0.5}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.parameters != nullptr ? row.parameters : "no parameters");
        const Grid g = nulls_grid();
        {
            Harness h;
            Script script{Unsigned8BitInteger, g.lines};
            funcnode *tree = node_test::make_source(h.pe, &script);
            kernel k =
                user_kernel(VORLAN_SAMPLE_KERNEL, "range", row.parameters, row.rows, row.columns);
            ASSERT_TRUE(vln_pe::guarded(h.pe, [&] {
                setup_kernelnode(&tree, h.pe, nullptr, &k, g.width);
            })) << h.pe->error_text;
            h.build(tree, g.width, PE_ALLOC_RECORDS);
            EXPECT_EQ(live_states(), 0);
            pe_start_trees(h.pe);
            EXPECT_EQ(live_states(), 1);
            for (int j = 0; j + row.rows <= static_cast<int>(g.lines.size()); j++) {
                SCOPED_TRACE(j);
                auto range = [&](int l, int x) {
                    double low = 1e300, high = -1e300;
                    for (int r = 0; r < row.rows; r++)
                        for (int c = 0; c < row.columns; c++) {
                            double v = kernel_test::cell(g, l + r, x - row.columns / 2 + c);
                            low = std::min(low, v);
                            high = std::max(high, v);
                        }
                    return (high - low) * row.factor;
                };
                kernel_test::expect_line(
                    h.read(), kernel_test::window_line(g, j, row.rows, row.columns, range));
            }
        }
        // The final entry released the init's state when the handle closed.
        EXPECT_EQ(live_states(), 0);
    }
}

TEST(NodesKernelUser, AFailedInitEndsTheFirstRead)
{
    Harness h;
    const Grid g = nulls_grid();
    Script script{Unsigned8BitInteger, g.lines};
    funcnode *tree = node_test::make_source(h.pe, &script);
    kernel k = user_kernel(VORLAN_SAMPLE_KERNEL, "refuse");
    ASSERT_TRUE(vln_pe::guarded(h.pe, [&] { setup_kernelnode(&tree, h.pe, nullptr, &k, 9); }));
    h.build(tree, g.width, PE_ALLOC_RECORDS);
    pe_start_trees(h.pe);
    EXPECT_FALSE(vln_pe::guarded(h.pe, [&] { h.read(); }));
    EXPECT_STREQ(h.pe->error_text, "refuse: these parameters are not for me");
    EXPECT_EQ(script.reads, 0);
}

/* A folder of its own, made current for the life of the object. */
class InFolder {
   public:
    InFolder()
    {
        char pattern[] = "/tmp/vln_user_kernel_XXXXXX";
        folder_ = mkdtemp(pattern);
        char *here = getcwd(nullptr, 0);
        saved_ = here;
        free(here);
        EXPECT_EQ(chdir(folder_.c_str()), 0);
    }
    ~InFolder()
    {
        EXPECT_EQ(chdir(saved_.c_str()), 0);
        vln_rmrfdir(folder_.c_str());
    }
    std::string path(const std::string &name) const { return folder_ + "/" + name; }

   private:
    std::string folder_, saved_;
};

TEST(NodesKernelUser, ALibraryIsFoundUnderUsercodeWithItsSuffix)
{
    // A name written through a folder "usercode", with another platform's
    // extension, is looked for in usercode/kernel as a library of ours.
    InFolder here;
    std::filesystem::create_directories(here.path("usercode/kernel"));
    std::ifstream from(VORLAN_SAMPLE_KERNEL, std::ios::binary);
    std::ofstream(here.path("usercode/kernel/sample.so"), std::ios::binary) << from.rdbuf();

    Harness h;
    Script script{Unsigned8BitInteger, nulls_grid().lines};
    funcnode *tree = node_test::make_source(h.pe, &script);
    kernel k = user_kernel("projects\\usercode\\sample.dll", "range");
    EXPECT_TRUE(vln_pe::guarded(h.pe, [&] { setup_kernelnode(&tree, h.pe, nullptr, &k, 9); }))
        << h.pe->error_text;
}

TEST(NodesKernelUser, MissingPiecesFailWithTheirMessages)
{
    InFolder here;
    std::ofstream(here.path("not_a_library.so")) << "text, not code\n";
    const std::string text_file = here.path("not_a_library.so");
    struct Row {
        const char *name;
        std::string file;
        const char *function;
        std::string message;  // the start of the text
    };
    const Row rows[] = {
        {"no file", "", "range", "No object file specified in user kernel.\n"},
        {"no such file", "nowhere/absent.dll", "range",
         "Cannot find usercode kernel object file: nowhere/absent.dll\n"},
        {"no such absolute file", "/no/such/folder/absent.so", "range",
         "Cannot find usercode kernel object file: /no/such/folder/absent.so\n"},
        {"not a library", text_file, "range", "dlopen() failed for " + text_file + "\n"},
        {"no such function", VORLAN_SAMPLE_KERNEL, "median",
         std::string("Could not find symbol median in ") + VORLAN_SAMPLE_KERNEL + "\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Harness h;
        Script script{Unsigned8BitInteger, nulls_grid().lines};
        funcnode *tree = node_test::make_source(h.pe, &script);
        kernel k = user_kernel(row.file.empty() ? nullptr : row.file.c_str(), row.function);
        EXPECT_FALSE(vln_pe::guarded(h.pe, [&] { setup_kernelnode(&tree, h.pe, nullptr, &k, 9); }));
        EXPECT_EQ(std::string(h.pe->error_text).substr(0, row.message.size()), row.message);
    }
}

}  // namespace
