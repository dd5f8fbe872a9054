/* Editing the surface and stream lists of an algorithm. */
#include <gtest/gtest.h>

#include <functional>

#include "alg_fixture.h"

using algfix::Alg;
using algfix::order;
using algfix::surface_order;

namespace {

std::vector<algfix::SurfaceSpec> layout()
{
    return {
        {"A", CM_PSEUDO, false, {{"a1", ST_Pseudo}, {"a2", ST_Intensity}, {"a3", ST_Red}}},
        {"B", CM_RGB, false, {{"b1", ST_Red}}},
        {"C", CM_RGB, false, {}},
    };
}

TEST(AlgEdit, Moves)
{
    using Op = std::function<int(Alg &)>;
    struct Case {
        const char *what;
        Op op;
        const char *streams;  /* of A, after */
        const char *surfaces; /* after */
    };
    stream stray{};
    const Case cases[] = {
        // Streams: up swaps with the next, down with the previous.
        {"stream up", [](Alg &f) { return move_stream_up(f.alg, f.st("a1")); }, "a2 a1 a3",
         "A B C"},
        {"stream up at tail", [](Alg &f) { return move_stream_up(f.alg, f.st("a3")); }, "a1 a2 a3",
         "A B C"},
        {"stream down", [](Alg &f) { return move_stream_down(f.alg, f.st("a3")); }, "a1 a3 a2",
         "A B C"},
        {"stream down at head", [](Alg &f) { return move_stream_down(f.alg, f.st("a1")); },
         "a1 a2 a3", "A B C"},
        // "first" goes to the tail of the list, "last" to the head.
        {"stream first", [](Alg &f) { return move_stream_first(f.alg, f.st("a1")); }, "a2 a3 a1",
         "A B C"},
        {"stream first at tail", [](Alg &f) { return move_stream_first(f.alg, f.st("a3")); },
         "a1 a2 a3", "A B C"},
        {"stream last", [](Alg &f) { return move_stream_last(f.alg, f.st("a3")); }, "a3 a1 a2",
         "A B C"},
        {"stream last of middle", [](Alg &f) { return move_stream_last(f.alg, f.st("a2")); },
         "a2 a1 a3", "A B C"},
        {"stream last at head", [](Alg &f) { return move_stream_last(f.alg, f.st("a1")); },
         "a1 a2 a3", "A B C"},
        {"only stream first", [](Alg &f) { return move_stream_first(f.alg, f.st("b1")); },
         "a1 a2 a3", "A B C"},
        {"stream of null alg", [](Alg &f) { return move_stream_up(nullptr, f.st("a1")); },
         "a1 a2 a3", "A B C"},
        {"null stream", [](Alg &f) { return move_stream_last(f.alg, nullptr); }, "a1 a2 a3",
         "A B C"},
        {"stranger stream", [&](Alg &f) { return move_stream_first(f.alg, &stray); }, "a1 a2 a3",
         "A B C"},
        // Surfaces: up swaps with the previous, down with the next.
        {"surface up", [](Alg &f) { return move_surface_up(f.alg, f.sf("B")); }, "a1 a2 a3",
         "B A C"},
        {"surface up at head", [](Alg &f) { return move_surface_up(f.alg, f.sf("A")); }, "a1 a2 a3",
         "A B C"},
        {"surface down", [](Alg &f) { return move_surface_down(f.alg, f.sf("A")); }, "a1 a2 a3",
         "B A C"},
        {"surface down at tail", [](Alg &f) { return move_surface_down(f.alg, f.sf("C")); },
         "a1 a2 a3", "A B C"},
        {"surface first", [](Alg &f) { return move_surface_first(f.alg, f.sf("A")); }, "a1 a2 a3",
         "B C A"},
        {"surface first at tail", [](Alg &f) { return move_surface_first(f.alg, f.sf("C")); },
         "a1 a2 a3", "A B C"},
        {"surface last", [](Alg &f) { return move_surface_last(f.alg, f.sf("C")); }, "a1 a2 a3",
         "C A B"},
        {"surface last of middle", [](Alg &f) { return move_surface_last(f.alg, f.sf("B")); },
         "a1 a2 a3", "B A C"},
        {"null surface", [](Alg &f) { return move_surface_down(f.alg, nullptr); }, "a1 a2 a3",
         "A B C"},
        {"reverse A", [](Alg &f) { return reverse_streams_in_surface(f.sf("A")) - 1; }, "a3 a2 a1",
         "A B C"},
        {"reverse empty C", [](Alg &f) { return reverse_streams_in_surface(f.sf("C")); },
         "a1 a2 a3", "A B C"},
        {"reverse null", [](Alg &) { return reverse_streams_in_surface(nullptr); }, "a1 a2 a3",
         "A B C"},
        {"reverse all", [](Alg &f) { return reverse_streams_in_alg(f.alg) - 1; }, "a3 a2 a1",
         "A B C"},
    };
    for (const Case &c : cases) {
        Alg f(layout());
        EXPECT_EQ(c.op(f), 0) << c.what;
        EXPECT_EQ(order(f.sf("A")), c.streams) << c.what;
        EXPECT_EQ(order(f.sf("B")), "b1") << c.what;
        EXPECT_EQ(surface_order(f.alg), c.surfaces) << c.what;
    }
    EXPECT_EQ(reverse_streams_in_alg(nullptr), 0);
}

TEST(AlgEdit, DeleteSurfaceMovesTheSelection)
{
    struct Case {
        const char *current; /* the selected surface */
        const char *deleted;
        const char *left;
        const char *now_current;
        const char *now_stream;
    };
    const Case cases[] = {
        {"A", "A", "B C", "B", "b1"},
        {"C", "C", "A B", "B", "b1"},  // no next: the previous one
        {"A", "B", "A C", "A", "a2"},  // not current: the selection stays
        {"B", "B", "A C", "C", "null"},
    };
    for (const Case &c : cases) {
        Alg f(layout());
        f.alg->current_surface = f.sf(c.current);
        f.alg->current_stream = f.st("a2");
        if (std::string(c.current) == "B") f.alg->current_stream = f.st("b1");
        EXPECT_EQ(delete_surface(f.alg, f.sf(c.deleted)), 0) << c.deleted;
        EXPECT_EQ(surface_order(f.alg), c.left);
        EXPECT_STREQ(f.alg->current_surface->name, c.now_current);
        EXPECT_EQ(algfix::name_of(f.alg->current_stream), c.now_stream);
    }
}

TEST(AlgEdit, DeleteSurfaceRefusesTheLastOne)
{
    Alg f({{"A", CM_PSEUDO, false, {{"a1", ST_Pseudo}}}});
    surface stray{};
    EXPECT_EQ(delete_surface(f.alg, f.sf("A")), 1);
    EXPECT_EQ(delete_surface(f.alg, nullptr), 1);
    EXPECT_EQ(delete_surface(nullptr, f.sf("A")), 1);
    EXPECT_EQ(surface_order(f.alg), "A");
    Alg two(layout());
    EXPECT_EQ(delete_surface(two.alg, &stray), 1);
    EXPECT_EQ(surface_order(two.alg), "A B C");
}

TEST(AlgEdit, InsertAndCopySurfaces)
{
    Alg f(layout());
    surface *added = algfix::zalloc<surface>();
    added->name = strsave("N");
    EXPECT_EQ(insert_surface_into_alg(f.alg, added, f.sf("B")), 0);
    EXPECT_EQ(surface_order(f.alg), "A B N C");

    // Without a surface a default one is made; without a place it is the head.
    EXPECT_EQ(insert_surface_into_alg(f.alg, nullptr, nullptr), 0);
    EXPECT_EQ(nr_surfaces_in_alg(f.alg), 5);
    EXPECT_EQ(surface_index_in_alg(f.alg, f.sf("A")), 1);
    EXPECT_EQ(f.alg->surfaces->prev, nullptr);

    surface *copy = cp_surface_in_alg(f.alg, f.sf("A"));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->prev, f.sf("A"));
    EXPECT_EQ(order(copy), "a1 a2 a3");
    EXPECT_NE(copy->first_stream, f.st("a1"));
    EXPECT_EQ(cp_surface_in_alg(f.alg, nullptr), nullptr);

    // Records made by the library go back through its own free functions.
    surface *made = f.alg->surfaces;
    for (surface *s : {made, copy}) {
        if (s->prev) s->prev->next = s->next;
        if (s->next) s->next->prev = s->prev;
        if (f.alg->surfaces == s) f.alg->surfaces = s->next;
        s->prev = s->next = nullptr;
        ef_surface(s);
    }
    EXPECT_EQ(surface_order(f.alg), "A B N C");
}

TEST(AlgEdit, DeleteOutputTransforms)
{
    Alg f(layout());
    Alg::add_transforms(f.st("a1"), 3);
    Alg::add_transforms(f.st("b1"), 1);
    Alg::add_inputs(f.st("a1"), 1);
    transform *kept = algfix::zalloc<transform>();
    f.st("a1")->stream_inputs->transforms = kept;
    EXPECT_EQ(delete_output_transforms_in_alg(f.alg), 0);
    EXPECT_EQ(f.st("a1")->transforms, nullptr);
    EXPECT_EQ(f.st("b1")->transforms, nullptr);
    EXPECT_EQ(f.st("a1")->stream_inputs->transforms, kept);  // input transforms stay
    f.st("a1")->stream_inputs->transforms = nullptr;
    safe_free(kept);
    EXPECT_EQ(delete_output_transforms_in_alg(nullptr), 0);
}

TEST(AlgEdit, ReverseStackGroupsByBandAndType)
{
    struct Case {
        std::vector<algfix::StreamSpec> streams;
        const char *want;
    };
    const Case cases[] = {
        // Groups by description; each group last member first; then the
        // types in the order ClassificationDisplay, others, Classification,
        // DynamicLink.
        {{{"x", ST_Pseudo},
          {"y", ST_Classification},
          {"x", ST_Intensity},
          {"z", ST_ClassificationDisplay},
          {"w", ST_DynamicLink}},
         "z x x y w"},
        {{{"p", ST_Red}, {"q", ST_Green}, {"r", ST_Blue}}, "p q r"},
        // A spectrum: each real part followed by its imaginary part.
        {{{"(Im) FFT - b", ST_Pseudo},
          {"(Re) FFT - b", ST_Pseudo},
          {"plain", ST_Pseudo},
          {"(Re) FFT - a", ST_Pseudo}},
         "(Re) FFT - b (Im) FFT - b (Re) FFT - a plain"},
    };
    for (const Case &c : cases) {
        // Names in the fixture must be unique, so the descriptions are set after.
        std::vector<algfix::StreamSpec> specs;
        std::vector<std::string> keys;
        for (size_t i = 0; i < c.streams.size(); i++) keys.push_back("s" + std::to_string(i));
        for (size_t i = 0; i < c.streams.size(); i++)
            specs.push_back({keys[i].c_str(), c.streams[i].type});
        Alg f({{"A", CM_DATASET, false, specs}});
        for (size_t i = 0; i < c.streams.size(); i++) {
            safe_free(f.st(keys[i])->description);
            f.st(keys[i])->description = strsave(c.streams[i].name);
        }
        stream *first_x = f.st("s0");
        EXPECT_EQ(reverse_alg_stack(f.alg), 0);
        EXPECT_EQ(order(f.sf("A")), c.want);
        if (std::string(c.want) == "z x x y w") {
            EXPECT_EQ(f.sf("A")->first_stream->next->next, first_x);
        }
    }
}

}  // namespace
