// String helpers: null rules, in-place edits, number formatting, expansion.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "capture.h"
#include "vld_core.h"

namespace {

TEST(String, CaseBlindCompareNullRules)
{
    EXPECT_EQ(VLD_strcasecmp(nullptr, nullptr), 0);
    EXPECT_EQ(VLD_strcasecmp(nullptr, "a"), -1);
    EXPECT_EQ(VLD_strcasecmp("a", nullptr), 1);
    EXPECT_EQ(VLD_strcasecmp("ABC", "abc"), 0);
    EXPECT_LT(VLD_strcasecmp("abc", "ABD"), 0);

    struct Case {
        const char *a, *b;
        int n, expected;
    } cases[] = {
        {nullptr, nullptr, 3, 0}, {nullptr, "a", 3, -1},   {"a", nullptr, 3, 1},
        {"ABCx", "abcy", 3, 0},   {"ABCx", "abcy", 4, -1}, {"b", "A", 1, 1},
        {"abc", "abcd", 10, -1},  {"same", "SAME", 10, 0}, {"x", "y", 0, 0},
        {"zzzzz", "A", 5, 1},
    };
    for (const Case &c : cases)
        EXPECT_EQ(VLD_strncasecmp(c.a, c.b, c.n), c.expected)
            << (c.a ? c.a : "null") << " / " << (c.b ? c.b : "null") << " n=" << c.n;
}

TEST(String, InPlaceEdits)
{
    char s[] = "MiXed 1_x";
    EXPECT_STREQ(VLD_toupper(s), "MIXED 1_X");
    EXPECT_STREQ(VLD_tolower(s), "mixed 1_x");
    EXPECT_EQ(VLD_toupper(nullptr), nullptr);
    EXPECT_STREQ(VLD_strchar_convert(s, '_', '-'), "mixed 1-x");
    EXPECT_STREQ(VLD_strchar_convert(s, 0, 'q'), "mixed 1-x");
    EXPECT_EQ(VLD_strchar_convert(nullptr, 'a', 'b'), nullptr);

    struct Case {
        const char *in, *stripped, *no_space;
        int removed;
    } cases[] = {
        {"  a b  ", "a b", "ab", 5}, {"\t\n x\r\n", "x", "x", 5},          {"", "", "", 0},
        {"   ", "", "", 3},          {"nospace", "nospace", "nospace", 0},
    };
    for (const Case &c : cases) {
        std::string a = c.in, b = c.in;
        EXPECT_STREQ(VLD_stripblanks(a.data()), c.stripped) << '"' << c.in << '"';
        EXPECT_EQ(strip_whitespace2(b.data()), c.removed) << '"' << c.in << '"';
        EXPECT_STREQ(b.c_str(), c.no_space);
        EXPECT_EQ(string_is_blank(c.in), *c.stripped == '\0' ? 1 : 0);
    }
    EXPECT_EQ(string_is_blank(nullptr), 1);
    EXPECT_EQ(VLD_stripblanks(nullptr), nullptr);
    EXPECT_EQ(strip_whitespace(nullptr), nullptr);
}

TEST(String, SubstringReplacement)
{
    char *s = strsave("a-b-c");
    EXPECT_EQ(VLD_strstr_convert(&s, "-", "--"), 1);
    EXPECT_STREQ(s, "a--b--c");
    EXPECT_EQ(VLD_strstr_convert(&s, "--", ""), 1);
    EXPECT_STREQ(s, "abc");
    EXPECT_EQ(VLD_strstr_convert(&s, "zz", "y"), 0);
    EXPECT_EQ(VLD_strstr_convert(&s, nullptr, "y"), 0);
    EXPECT_EQ(VLD_strstr_convert(&s, "a", nullptr), 0);
    EXPECT_EQ(VLD_strstr_convert(&s, "", "y"), 0);
    EXPECT_EQ(VLD_strstr_convert(nullptr, "a", "b"), 0);
    EXPECT_STREQ(s, "abc");
    safe_free(s);
}

TEST(String, ExpandedStrtokKeepsEmptyTokens)
{
    char text[] = "a,,b;c,";
    std::vector<std::string> tokens;
    for (char *t = VLD_expanded_strtok(text, ",;"); t != nullptr;
         t = VLD_expanded_strtok(nullptr, ",;"))
        tokens.push_back(t);
    EXPECT_EQ(tokens, (std::vector<std::string>{"a", "", "b", "c", ""}));
    EXPECT_EQ(VLD_expanded_strtok(text, nullptr), nullptr);
    char empty[] = "";
    EXPECT_STREQ(VLD_expanded_strtok(empty, ","), "");
    EXPECT_EQ(VLD_expanded_strtok(nullptr, ","), nullptr);
}

TEST(String, SmallHelpers)
{
    char dst[32];
    EXPECT_EQ(strcpylint(dst, "a\x01 b\tc\x7f!\n"), 0);
    EXPECT_STREQ(dst, "a bc!");
    strcpylint(dst, nullptr);
    EXPECT_STREQ(dst, "");

    char buf[8] = "abc";
    safe_strcat(buf, "defgh", 8);
    EXPECT_STREQ(buf, "abcdefg");
    safe_strcat(buf, "x", 8);
    EXPECT_STREQ(buf, "abcdefg");
    char small[8] = "abc";
    safe_strcat(small, "d", 4);  // already at limit - 1 characters
    EXPECT_STREQ(small, "abc");

    EXPECT_EQ(vln_sumstring(nullptr), 0);
    EXPECT_EQ(vln_sumstring("AB"), 65 + 66);
    EXPECT_EQ(vln_sumstring("\xff"), 255);

    struct Case {
        const char *in, *quoted, *unquoted;
    } cases[] = {
        {"x", "\"x\"", "x"},    {"\"x\"", "\"\"x\"\"", "x"}, {"\"x", "\"\"x\"", "\"x"},
        {"\"", "\"\"\"", "\""}, {"\"\"", "\"\"\"\"", ""},    {nullptr, "\"\"", ""},
    };
    for (const Case &c : cases) {
        Owned q(quote_string(c.in)), u(unquote_string(c.in));
        EXPECT_STREQ(q.p, c.quoted);
        EXPECT_STREQ(u.p, c.unquoted);
    }
}

TEST(String, BackquotedCharacters)
{
    struct Case {
        const char *in, *out;
    } cases[] = {
        {"a\\nb", "a\nb"}, {"a\\tb", "a\tb"}, {"a\\\\b", "a\\b"}, {"a\\\"b", "a\"b"},
        {"a\\qb", "aqb"},  {"end\\", "end"},  {"", ""},           {"\\n\\n", "\n\n"},
    };
    for (const Case &c : cases) {
        std::string s = c.in;
        EXPECT_STREQ(convert_backquoted_chars(s.data()), c.out) << c.in;
    }
    EXPECT_EQ(convert_backquoted_chars(nullptr), nullptr);
}

TEST(String, EnvironmentExpansion)
{
    setenv("VLDT_A", "/alpha", 1);
    setenv("VLDT_B", "$VLDT_A", 1);
    unsetenv("VLDT_UNSET");
    struct Case {
        const char *in, *out, *input_after;
    } cases[] = {
        {"$VLDT_A/x", "/alpha/x", "$VLDT_A/x"},
        {"p$VLDT_A$VLDT_A", "p/alpha/alpha", "p$VLDT_A$VLDT_A"},
        {"$/keep", "$/keep", "$/keep"},
        {"$\\keep", "$\\keep", "$\\keep"},
        {"$VLDT_B", "$VLDT_A", "$VLDT_B"},  // values are not expanded again
        {"$VLDT_UNSET", "", "$VLDT_UNSET"},
        // An unset name ends the expansion, and its end stays cut in the input.
        {"a$VLDT_UNSET/b$VLDT_A", "a", "a$VLDT_UNSET"},
        {"no vars", "no vars", "no vars"},
        {"trailing$", "trailing", "trailing$"},
    };
    for (const Case &c : cases) {
        std::string s = c.in;
        Owned out(VLD_expand_env_vars(s.data()));
        ASSERT_NE(out.p, nullptr) << c.in;
        EXPECT_STREQ(out.p, c.out) << c.in;
        EXPECT_STREQ(s.c_str(), c.input_after) << c.in;
    }
    EXPECT_EQ(VLD_expand_env_vars(nullptr), nullptr);
    char empty[] = "";
    EXPECT_EQ(VLD_expand_env_vars(empty), nullptr);
}

TEST(String, NumberFormatting)
{
    struct Case {
        double value;
        int places;
        const char *f2, *f3, *g;
    } cases[] = {
        {1.5, 3, "1.5", "1.500", "1.5"},
        {2.0, 3, "2", "2.000", "2"},
        {2.0, 0, "2", "2", "2"},
        {10.0, 0, "10", "10", "1E+01"},
        {100.0, 2, "100", "100.00", "1E+02"},
        {0.125, 2, "0.13", "0.13", "0.13"},
        {-1.25, 1, "-1.2", "-1.2", "-1"},  // floor(-12.5 + 0.5) = -12
        {1234.5678, 2, "1234.57", "1234.57", "1.2E+03"},
    };
    for (const Case &c : cases) {
        char buf[64];
        EXPECT_STREQ(format_float2(buf, c.value, c.places), c.f2) << c.value << " " << c.places;
        EXPECT_STREQ(format_float3(buf, c.value, c.places), c.f3) << c.value << " " << c.places;
        EXPECT_STREQ(format_float2_G(buf, c.value, c.places), c.g) << c.value << " " << c.places;
    }
    char buf[64];
    EXPECT_STREQ(format_float(buf, 0.1), "0.1");
    EXPECT_STREQ(format_float(buf, 1.0 / 3.0), "0.3333333333333");
    EXPECT_STREQ(format_float(buf, 1e20), "1E+20");
}

TEST(String, NearestInteger)
{
    struct Case {
        double in;
        int64_t nint;
        double anint;
    } cases[] = {
        {0.5, 1, 1.0}, {-0.5, -1, -1.0}, {1.49, 1, 1.0}, {-1.49, -1, -1.0},
        {2.5, 3, 3.0}, {-2.5, -3, -3.0}, {0.0, 0, 0.0},  {1e15 + 0.5, 1000000000000001LL, 1e15 + 1},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(vln_nint(c.in), c.nint) << c.in;
        EXPECT_EQ(vln_anint(c.in), c.anint) << c.in;
    }
    EXPECT_EQ(vln_nint(1e300), INT64_MAX);
    EXPECT_EQ(vln_nint(-1e300), INT64_MIN);
    EXPECT_DOUBLE_EQ(vln_exp10(3.0), 1000.0);
    EXPECT_DOUBLE_EQ(vln_exp10(-2.0), 0.01);
}

}  // namespace
