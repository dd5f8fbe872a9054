// The statistics report: its text against a golden file, for regions with
// full statistics, a band list and a format, and the regions that can't be
// shown; and the failures of its arguments.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "stats_fixture.h"
#include "vln_stats.h"

namespace {

std::string read_file(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

/* The report, with the temporary folder's name replaced by "DIR". */
std::string report(const st::TempDir &dir, const std::string &dataset, const char *classes,
                   const char *bands, const char *format)
{
    std::string path = dir.file("report.txt");
    FILE *out = std::fopen(path.c_str(), "w");
    int status = region_statistics_report(dataset.c_str(), classes, bands, format, out);
    std::fclose(out);
    EXPECT_EQ(status, 0) << st::error_text();
    std::string text = read_file(path);
    std::string folder = dir.file("");
    for (size_t at; (at = text.find(folder)) != std::string::npos;)
        text.replace(at, folder.size(), "DIR/");
    return text;
}

TEST(StatsReport, MatchesTheGoldenFile)
{
    st::TempDir dir;
    st::Grid g;
    g.lines = 6;
    g.cells = 8;
    g.bands = 3;
    g.has_null = true;
    g.null_value = 0;
    g.fill([](int b, int l, int c) {
        return b == 2 && l == 1 && c == 1 ? 0.0 : (l * 8 + c) * (b + 1) % 23 + b * l + 1.0;
    });
    g.write(dir, "img", 30.0);
    st::add_polygon(g.d, "Field", {{0.4, 0.2}, {7.1, 1.3}, {5.2, 5.9}, {1.1, 4.4}});
    st::add_polygon(g.d, " ", {{2, 2}, {6, 2}, {6, 5}, {2, 5}});
    ASSERT_EQ(calc_stats(g.d, 0), 0) << st::error_text();
    // Regions the report can't show in full.
    st::add_polygon(g.d, "Late", {{0, 0}, {3, 0}, {3, 3}});
    st::add_polygon(g.d, "NoCov", {{0, 0}, {3, 0}, {3, 3}});
    cp_msstats(&st::find_region(g.d, "NoCov")->stats, st::find_region(g.d, "Field")->stats);
    regioninfo *nocov = st::find_region(g.d, "NoCov");
    safe_free(nocov->stats->covariance);
    nocov->stats->covariance = nullptr;
    st::add_polygon(g.d, "TwoBands", {{0, 0}, {3, 0}, {3, 3}});
    ea_msstats_spec(&st::find_region(g.d, "TwoBands")->stats, 2);
    st::add_polygon(g.d, "Flat", {{0, 0}, {3, 0}, {3, 3}});
    cp_msstats(&st::find_region(g.d, "Flat")->stats, st::find_region(g.d, "Field")->stats);
    for (int i = 0; i < 3; i++) {
        msstats *flat = st::find_region(g.d, "Flat")->stats;
        flat->covariance[i] = flat->covariance[i * 3] = 0.0;
    }
    ASSERT_EQ(ep_dshdr(g.d, g.header.c_str()), 0) << st::error_text();

    std::string text = report(dir, g.header, nullptr, nullptr, nullptr) +
                       report(dir, g.header, "classes.vld", "3, 1", "%9.2f");
    std::string golden = std::string(VORLAN_TEST_DATA_DIR) + "/stats/report.txt";
    if (std::getenv("VORLAN_UPDATE_GOLDEN")) std::ofstream(golden) << text;
    EXPECT_EQ(text, read_file(golden));
}

TEST(StatsReport, BadArguments)
{
    st::TempDir dir;
    st::Grid g;
    g.fill([](int b, int l, int c) { return b + l + c; });
    g.write(dir, "img");
    struct Case {
        const char *dataset, *bands;
        int status;
        const char *text;
    } cases[] = {
        {nullptr, nullptr, VLD_ERR_MESSAGE, "Dataset not specified"},
        {"", nullptr, VLD_ERR_MESSAGE, "Dataset not specified"},
        {"img.vld", "1 3", VLD_ERR_MESSAGE, "Bad band list: \"1 3\""},
        {"img.vld", "0", VLD_ERR_MESSAGE, "Bad band list: \"0\""},
        {"img.vld", "2-1", VLD_ERR_MESSAGE, "Bad band list: \"2-1\""},
        {"img.vld", "x", VLD_ERR_MESSAGE, "Bad band list: \"x\""},
        {"missing.vld", nullptr, VLD_ERR_CANNOT_OPEN_FILE, nullptr},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.dataset ? c.dataset : "(null)");
        std::string name = c.dataset && *c.dataset ? dir.file(c.dataset) : "";
        FILE *out = std::tmpfile();
        EXPECT_EQ(region_statistics_report(c.dataset ? name.c_str() : nullptr, nullptr, c.bands,
                                           nullptr, out),
                  c.status);
        if (c.text) {
            EXPECT_EQ(st::error_text(), c.text);
        }
        std::fclose(out);
    }
}

}  // namespace
