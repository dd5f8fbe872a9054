/* The tree dump of a handful of algorithms, against golden text. The dump's
 * switch is read once per process, at the end of the first open, so this
 * suite runs in a process of its own with VLN_PE_DUMP set (the test
 * engine_dump); elsewhere it is skipped. */
#include <cstdio>
#include <fstream>
#include <sstream>

#include "engine_fixture.h"

namespace {

std::string slurp(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream o;
    o << in.rdbuf();
    return o.str();
}

TEST(EngineDump, TreesMatchGoldenText)
{
    if (std::getenv("VLN_PE_DUMP") == nullptr) GTEST_SKIP() << "run by the test engine_dump";
    eng::TempDir dir;
    std::string small = eng::write_dataset(dir, "small", 20, 15, 2);
    std::string wide = eng::write_dataset(dir, "wide", 60, 45);
    const eng::AlgDoc docs[] = {
        {0, 0, 20, 15, 20, 15, false, Unsigned16BitInteger, {{small}}},
        {0, 0, 20, 15, 40, 30, false, IEEE4ByteReal, {{small}}},
        {0, 0, 60, 45, 20, 15, false, Unsigned8BitInteger, {{wide}}},
        {0, 0, 20, 15, 40, 30, true, Unsigned16BitInteger, {{small}}},
        {0, 0, 20, 15, 20, 15, false, Unsigned16BitInteger, {{small, 1, "a"}, {small, 2, "b"}}},
    };
    std::string out_path = dir.file("dump.txt");
    FILE *out = std::fopen(out_path.c_str(), "w");
    ASSERT_NE(out, nullptr);
    vln_SetStdErr(out);
    for (const eng::AlgDoc &doc : docs) {
        eng::Open open(dir, doc);
        EXPECT_EQ(open.status, 0) << open.error();
    }
    vln_SetStdErr(nullptr);
    std::fclose(out);
    const std::string golden_path = std::string(VORLAN_TEST_DATA_DIR) + "/engine/dump.golden";
    if (std::getenv("VORLAN_UPDATE_GOLDEN") != nullptr)
        std::ofstream(golden_path) << slurp(out_path);
    EXPECT_EQ(slurp(out_path), slurp(golden_path));
}

}  // namespace
