// Dates and angles as block text writes them, checked against the C
// library's own Greenwich calendar and against hand-worked values.
#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "vld_blocktext.h"

namespace {

// Our calendar against timegm/gmtime over the whole 32-bit range.
TEST(Dates, AgreeWithTheCLibrary)
{
    std::mt19937 random(1);
    std::vector<int32_t> times = {0, -1, 951782400 /* 29 Feb 2000 */, INT32_MAX, INT32_MIN};
    for (int i = 0; i < 20000; i++) times.push_back(static_cast<int32_t>(random()));
    for (int32_t t : times) {
        char ours[32], theirs[64];
        time_t tt = t;
        struct tm tm;
        gmtime_r(&tt, &tm);
        strftime(theirs, sizeof theirs, "%a %b %e %H:%M:%S GMT %Y", &tm);
        ASSERT_STREQ(wdate(t, ours), theirs) << t;
        ASSERT_EQ(rdate(ours), t) << ours;
    }
}

TEST(Dates, TextsThatAreNotDates)
{
    const char *texts[] = {
        "",
        "Mon Foo  2 15:04:05 GMT 2006",
        "Mon Feb 29 00:00:00 GMT 2001",
        "Mon Jan  2 24:00:00 GMT 2006",
        "Mon Jan  2 15:04 GMT 2006",
        "Wed Jan 20 00:00:00 GMT 2038",  // beyond 32 bits
        "Thu Dec 12 00:00:00 GMT 1901",
    };
    for (const char *t : texts) EXPECT_EQ(rdate(t), -1) << t;
    EXPECT_EQ(rdate(nullptr), -1);
    // The weekday is not checked, and case doesn't matter.
    EXPECT_EQ(rdate("xyz JAN  1 00:00:10 gmt 1970"), 10);
}

TEST(Angles, DmsText)
{
    struct Case {
        double value;
        int places;
        const char *text;
    } cases[] = {
        {10.5, 9, "10:30:0.0"},
        {-0.5, 9, "-0:30:0.0"},
        {1.0 / 3600, 9, "0:0:1.0"},
        {45.25 + 7.125 / 3600, 9, "45:15:7.125"},
        {59.9999999999999, 9, "60:0:0.0"},  // seconds carry into minutes and degrees
        {1.6 / 3600, 0, "0:0:2"},
        {-179.99, 2, "-179:59:24.0"},
        {HUGE_VAL, 9, "INF"},
    };
    for (const Case &c : cases) {
        char buffer[64];
        EXPECT_STREQ(d_to_dmsstr_spec(buffer, c.value, c.places), c.text) << c.value;
    }
    char buffer[64];
    EXPECT_STREQ(d_to_dmsstr(buffer, 12.75), "12:45:0.0");
}

TEST(Angles, DmsValues)
{
    struct Case {
        const char *text;
        double value;
    } cases[] = {
        {"10:30:0", 10.5}, {"-10:30:0", -10.5}, {"10:-30:0", -10.5}, {"0:0:-36", -0.01},
        {"+1:0:0", 1.0},   {"1:30.9:0", 1.5},   {"2", 2.0},          {"0:0:.36", 0.0001},
    };
    for (const Case &c : cases) EXPECT_DOUBLE_EQ(dmsstr_to_d(c.text), c.value) << c.text;
    for (double v : {0.0, 1e-9, 12.3456789, -179.999999, 359.5}) {
        char buffer[64];
        EXPECT_NEAR(dmsstr_to_d(d_to_dmsstr(buffer, v)), v, 1e-12) << buffer;
    }
}

}  // namespace
