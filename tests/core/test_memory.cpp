// The allocator, its last-resort functions, the copying helpers and the leak layer.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "capture.h"
#include "vld_core.h"

namespace {

int calls_a = 0, calls_b = 0;
int give_twice()
{
    return ++calls_a <= 2 ? 1 : 0;
}
int give_never()
{
    ++calls_b;
    fprintf(stderr, "last resort: a=%d b=%d\n", calls_a, calls_b);
    return 0;
}

TEST(MemoryDeathTest, ExhaustionTriesEachLastResortThenEndsTheThread)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            EXPECT_EQ(register_free_func(give_twice), 1);
            EXPECT_EQ(register_free_func(give_never), 2);
            malloc_or_die(SIZE_MAX / 2);
        },
        testing::ExitedWithCode(1),
        "last resort: a=3 b=1\nFATAL: Could not allocate 2147483647 bytes\n");
}

TEST(MemoryDeathTest, ReallocationFailureIsFatal)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            void *p = malloc_or_die(8);
            realloc_or_die(p, SIZE_MAX / 2);
        },
        testing::ExitedWithCode(1), "FATAL: Could not reallocate 2147483647 bytes");
}

TEST(Memory, BlocksAreZeroedAndNeverNull)
{
    auto *zero = static_cast<unsigned char *>(malloc_or_die(0));
    ASSERT_NE(zero, nullptr);
    EXPECT_EQ(zero[0], 0);
    auto *p = static_cast<unsigned char *>(realloc_or_die(nullptr, 64));
    for (int i = 0; i < 64; i++) ASSERT_EQ(p[i], 0);
    p = static_cast<unsigned char *>(realloc_or_die(p, 0));
    ASSERT_NE(p, nullptr);
    VLDfree(&p);
    EXPECT_EQ(p, nullptr);
    safe_VLDfree(nullptr);
    safe_free(nullptr);
    safe_free(zero);
}

TEST(Memory, CopyingHelpers)
{
    struct Case {
        const char *name;
        char *(*make)();
        const char *expected;
    };
    const Case cases[] = {
        {"strsave null", [] { return strsave(nullptr); }, ""},
        {"VLN_strsave", [] { return VLN_strsave("abc"); }, "abc"},
        {"cat nulls", [] { return strsave_cat(nullptr, nullptr); }, ""},
        {"cat", [] { return strsave_cat("ab", "cd"); }, "abcd"},
        {"cat null b", [] { return strsave_cat("ab", nullptr); }, "ab"},
        {"strip last ext", [] { return strsave_strip_ext("a.b.c"); }, "a.b"},
        {"leading dot only", [] { return strsave_strip_ext(".profile"); }, ".profile"},
        {"no ext", [] { return strsave_strip_ext("name"); }, "name"},
        {"strip ext null", [] { return strsave_strip_ext(nullptr); }, ""},
        {"strip cr", [] { return strsave_strip_cr("a\r\nb\r"); }, "a\nb"},
        {"strip cr null", [] { return strsave_strip_cr(nullptr); }, ""},
        {"backquote", [] { return strsave_backquote_chars("a\tb\nc\"d\\e"); },
         "a\\tb\\nc\\\"d\\\\e"},
        {"backquote null", [] { return strsave_backquote_chars(nullptr); }, ""},
    };
    for (const Case &c : cases) {
        Owned out(c.make());
        ASSERT_NE(out.p, nullptr) << c.name;
        EXPECT_STREQ(out.p, c.expected) << c.name;
    }
}

TEST(Memory, BackquotingRoundTrips)
{
    const char *texts[] = {"plain", "tab\there", "line\nbreak", "q\"uote", "back\\slash", ""};
    for (const char *t : texts) {
        Owned quoted(strsave_backquote_chars(t));
        convert_backquoted_chars(quoted.p);
        EXPECT_STREQ(quoted.p, t);
    }
}

TEST(Memory, PlusAndConcat)
{
    Owned plus(strsaveplus("ab", 5));
    EXPECT_STREQ(plus.p, "ab");
    strcat(plus.p, "cdefg");  // room for five more
    EXPECT_STREQ(plus.p, "abcdefg");

    char *s = nullptr;
    EXPECT_STREQ(strsave_concat(&s, "x"), "x");
    EXPECT_STREQ(strsave_concat(&s, "yz"), "xyz");
    char *same = s;
    EXPECT_EQ(strsave_concat(&s, nullptr), same);
    EXPECT_EQ(strsave_concat(nullptr, "a"), nullptr);
    safe_free(s);
}

TEST(Memory, UsageDump)
{
    StreamCapture out(StreamCapture::Out);
    EXPECT_EQ(memory_allocated(), 0);
    dump_musage("stage");
    dump_musage("a label longer than fifteen");
    EXPECT_EQ(out.text(),
              "          stage: memory allocated = 0 (+0)\n"
              "a label longer : memory allocated = 0 (+0)\n");
}

TEST(Leak, ListsLiveBlocksNewestFirst)
{
    leak_reset();
    StreamCapture out(StreamCapture::Out);
    void *a = leak_malloc("a.c", 10, 0);  // a zero size counts as one byte
    void *b = leak_calloc("b.c", 20, 4, 8);
    char *c = leak_strsave("c.c", 30, "hello");
    leak_print();
    EXPECT_EQ(out.text(), "c.c:30 (6 bytes)\nb.c:20 (32 bytes)\na.c:10 (1 bytes)\n");

    b = leak_realloc("r.c", 40, b, 64);
    leak_free("x.c", 1, a);
    leak_VLDfree("x.c", 2, &c);
    EXPECT_EQ(c, nullptr);
    leak_safe_VLDfree("x.c", 3, nullptr);
    StreamCapture out2(StreamCapture::Out);
    leak_print();
    EXPECT_EQ(out2.text(), "r.c:40 (64 bytes)\n");
    leak_safe_free("x.c", 4, b);

    // A block the layer never saw is simply freed.
    leak_free("x.c", 5, malloc(3));
    void *kept = leak_malloc_or_die("k.c", 1, 16);
    EXPECT_EQ(static_cast<unsigned char *>(kept)[15], 0);
    kept = leak_realloc_or_die("k.c", 2, kept, 32);
    leak_reset();  // forgets without freeing
    StreamCapture out3(StreamCapture::Out);
    leak_print();
    EXPECT_EQ(out3.text(), "");
    free(kept);
}

}  // namespace
