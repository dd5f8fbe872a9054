/* Counting, finding and walking the members of an algorithm. */
#include <gtest/gtest.h>

#include <functional>

#include "alg_fixture.h"

using algfix::Alg;
using algfix::name_of;

namespace {

/* Three surfaces, the middle one off, with streams of mixed types, some off.
 * Each list runs in the order written. */
std::vector<algfix::SurfaceSpec> layout()
{
    return {
        {"A", CM_PSEUDO, false, {{"a1", ST_Pseudo}, {"a2", ST_Intensity, true}, {"a3", ST_Red}}},
        {"B", CM_RGB, true, {{"b1", ST_Red}, {"b2", ST_Intensity}, {"b3", ST_Pseudo}}},
        {"C",
         CM_RGB,
         false,
         {{"c1", ST_Green, true},
          {"c2", ST_DynamicLink},
          {"c3", ST_Height},
          {"c4", ST_Pseudo, true}}},
    };
}

/* Layers with headers: rasters on b1, c2 (a link) and c3, a vector on a1. */
struct WithHeaders : Alg {
    dshdr raster{}, vector{};
    WithHeaders() : Alg(layout())
    {
        raster.data_type = DT_Raster;
        vector.data_type = DT_Vector;
        st("a1")->dshdr = &vector;
        st("b1")->dshdr = st("c2")->dshdr = st("c3")->dshdr = &raster;
    }
    ~WithHeaders()
    {
        for (const char *n : {"a1", "b1", "c2", "c3"}) st(n)->dshdr = nullptr;
    }
};

TEST(AlgWalk, FindsStreamsAndSurfaces)
{
    WithHeaders f;
    const algorithm *a = f.alg;
    stream stray{};
    surface stray_surface{};
    f.st("c2")->being_annotated = 1;

    struct Case {
        const char *what;
        std::function<std::string()> got;
        const char *want;
    };
    auto str = [](int v) { return std::to_string(v); };
    const Case cases[] = {
        {"surfaces", [&] { return str(nr_surfaces_in_alg(a)); }, "3"},
        {"streams", [&] { return str(nr_streams_in_alg(a)); }, "10"},
        {"streams of C", [&] { return str(nr_streams_in_surface(f.sf("C"))); }, "4"},
        {"streams of null alg", [&] { return str(nr_streams_in_alg(nullptr)); }, "0"},
        {"index of C", [&] { return str(surface_index_in_alg(a, f.sf("C"))); }, "2"},
        {"index in null alg", [&] { return str(surface_index_in_alg(nullptr, f.sf("A"))); }, "-1"},
        {"index of stranger", [&] { return str(surface_index_in_alg(a, &stray_surface)); }, "-1"},
        {"surface of c2", [&] { return std::string(surface_of_stream(a, f.st("c2"))->name); }, "C"},
        {"surface of stranger", [&] { return str(surface_of_stream(a, &stray) != nullptr); }, "0"},
        {"id of a1", [&] { return str(stream_id(f.st("a1"))); }, "1"},
        {"id of c4", [&] { return str(stream_id(f.st("c4"))); }, "4"},
        {"id of null", [&] { return str(stream_id(nullptr)); }, "0"},
        {"first in alg", [&] { return name_of(first_stream_in_alg(a)); }, "a1"},
        {"last in alg", [&] { return name_of(last_stream_in_alg(a)); }, "c4"},
        {"last of B", [&] { return name_of(get_last_stream_in_surface(f.sf("B"))); }, "b3"},
        {"first of null", [&] { return name_of(first_stream_in_surface(nullptr)); }, "null"},
        {"next of a3", [&] { return name_of(next_stream(f.st("a3"))); }, "null"},
        {"prev of a2", [&] { return name_of(prev_stream(f.st("a2"))); }, "a1"},
        {"first active", [&] { return name_of(first_active_stream_in_alg(a)); }, "a1"},
        {"first active of C", [&] { return name_of(first_active_stream_in_surface(f.sf("C"))); },
         "c2"},
        {"next active after a1", [&] { return name_of(next_active_stream_in_alg(a, f.st("a1"))); },
         "a3"},
        // B is off: its streams are passed over.
        {"next active after a3", [&] { return name_of(next_active_stream_in_alg(a, f.st("a3"))); },
         "c2"},
        {"next active after c3", [&] { return name_of(next_active_stream_in_alg(a, f.st("c3"))); },
         "null"},
        {"next active, stranger", [&] { return name_of(next_active_stream_in_alg(a, &stray)); },
         "null"},
        // The surface argument isn't used.
        {"next active in list",
         [&] { return name_of(next_active_stream_in_surface(nullptr, f.st("c1"))); }, "c2"},
        // a1 is a vector, c2 a link, b1 on a surface that is off.
        {"first active raster", [&] { return name_of(first_active_raster_stream_in_alg(a)); },
         "c3"},
        {"first active raster of B",
         [&] { return name_of(first_active_raster_stream_in_Surface(f.sf("B"))); }, "b1"},
        // b2 is on, in a surface that is off; a2 is off.
        {"intensity in alg", [&] { return str(got_active_intensity_stream_in_alg(a)); }, "1"},
        {"intensity in A", [&] { return str(got_active_intensity_stream_in_surface(f.sf("A"))); },
         "0"},
        {"rtshade in alg", [&] { return name_of(first_rtshade_stream_in_alg(a)); }, "a1"},
        {"rtshade in C, off", [&] { return name_of(first_rtshade_stream_in_surface(f.sf("C"))); },
         "c4"},
        {"annotated", [&] { return name_of(get_annot_edit_stream(a)); }, "c2"},
        {"raster stream c3", [&] { return str(is_raster_stream(f.st("c3"))); }, "1"},
        {"raster stream c2", [&] { return str(is_raster_stream(f.st("c2"))); }, "0"},
    };
    for (const Case &c : cases) EXPECT_EQ(c.got(), c.want) << c.what;
}

TEST(AlgWalk, RtshadeOfAlgLooksOnlyAtFirstSurface)
{
    Alg f({{"A", CM_RGB, false, {{"r", ST_Red}}}, {"B", CM_PSEUDO, false, {{"p", ST_Pseudo}}}});
    EXPECT_EQ(first_rtshade_stream_in_alg(f.alg), nullptr);
    EXPECT_EQ(name_of(first_rtshade_stream_in_surface(f.sf("B"))), "p");
}

TEST(AlgWalk, ListsHangingOnAStream)
{
    Alg f({{"A", CM_PSEUDO, false, {{"s", ST_Pseudo}}}});
    stream *s = f.st("s");
    Alg::add_inputs(s, 3);
    Alg::add_transforms(s, 2);
    Alg::add_kernels(&s->kernels, 3);

    EXPECT_EQ(nth_stream_input(s, 0), nullptr);
    EXPECT_EQ(nth_stream_input(s, 3)->id, 3);
    EXPECT_EQ(nth_stream_input(s, 4), nullptr);
    EXPECT_EQ(prev_stream_input(last_stream_input(s))->id, 2);

    // Kernels have no prev link: the previous one is searched for.
    kernel *k1 = first_stream_output_kernel(s), *k3 = last_stream_output_kernel(s);
    EXPECT_EQ(prev_stream_output_kernel(s, k1), nullptr);
    EXPECT_EQ(prev_stream_output_kernel(s, k3)->rows, 2);
    EXPECT_EQ(prev_stream_output_kernel(s, nullptr), nullptr);

    // The address forms insert without knowing the owner.
    kernel *added = algfix::zalloc<kernel>();
    added->rows = 9;
    added->next = *p_next_stream_output_kernel(k1);
    *p_next_stream_output_kernel(k1) = added;
    EXPECT_EQ(prev_stream_output_kernel(s, added), k1);
    EXPECT_EQ(p_first_stream_output_kernel(nullptr), nullptr);

    EXPECT_EQ(prev_stream_output_transform(last_stream_output_transform(s)),
              first_stream_output_transform(s));
    EXPECT_EQ(last_stream_input_transform(nullptr), nullptr);
}

TEST(AlgWalk, StreamTypesAgainstModes)
{
    struct Case {
        int type;
        const char *check; /* check_stream_type for modes 1 to 7 */
        const char *valid; /* stream_is_valid for modes 1 to 7 */
    };
    const Case cases[] = {
        {ST_Red, "0100110", "0100110"},         {ST_Blue, "0100110", "0100110"},
        {ST_Hue, "0010110", "0010110"},         {ST_Intensity, "0111110", "0111110"},
        {ST_Pseudo, "0001110", "0001110"},      {ST_Height, "0111110", "1111111"},
        {ST_DynamicLink, "0111110", "1111111"}, {ST_DatasetVector, "0111110", "0000000"},
        {ST_DatasetBand, "0000000", "0000000"}, {ST_Unknown, "0000000", "0000000"},
    };
    for (const Case &c : cases) {
        stream st{};
        st.type = c.type;
        std::string check, valid;
        for (int mode = 1; mode <= 7; mode++) {
            check += std::to_string(check_stream_type(mode, &st));
            valid += std::to_string(stream_is_valid(&st, mode));
        }
        EXPECT_EQ(check, c.check) << "type " << c.type;
        EXPECT_EQ(valid, c.valid) << "type " << c.type;
    }
    EXPECT_EQ(check_stream_type(CM_RGB, nullptr), 0);
    EXPECT_EQ(stream_is_valid(nullptr, CM_DATASET), 0);
}

TEST(AlgWalk, LayerDescriptions)
{
    struct Case {
        int type;
        const char *before; /* null: no description */
        const char *after;
    };
    const Case cases[] = {
        {ST_Red, "Copy of My layer", "Red Layer"},
        {ST_Red, "copy of x", "Red Layer"},
        {ST_Green, "pseudo layer", "Green Layer"},
        {ST_Green, "PSEUDO", "Green Layer"},
        {ST_Blue, "Annotation Layer", "Blue Layer"},
        {ST_DynamicLink, "Class Display Layer", "Annotation Layer"},
        {ST_DatasetBand, "Unknown Layer", "Unknown Layer"},
        {ST_Red, "Pseudo Layers", "Pseudo Layers"},
        {ST_Red, "My own layer", "My own layer"},
        {ST_Red, nullptr, nullptr},
    };
    for (const Case &c : cases) {
        stream st{};
        st.type = c.type;
        st.description = c.before ? strsave(c.before) : nullptr;
        check_for_default_layer_desc(&st);
        EXPECT_STREQ(st.description, c.after) << (c.before ? c.before : "null");
        safe_free(st.description);
    }
    check_for_default_layer_desc(nullptr);

    char *plain = get_default_layer_description(ST_ClassificationDisplay, 0);
    char *worded = get_default_layer_description(42, 1);
    EXPECT_STREQ(plain, "Class Display");
    EXPECT_STREQ(worded, "Unknown Layer");
    safe_free(plain);
    safe_free(worded);
}

TEST(AlgWalk, StreamTypeNames)
{
    const char *word = "unset";
    EXPECT_EQ(stream_type_name(&word, ST_Intensity), 0);
    EXPECT_STREQ(word, "Intensity");
    EXPECT_EQ(stream_type_name(&word, ST_Pseudo), 0);
    EXPECT_STREQ(word, "Pseudo");
    EXPECT_EQ(stream_type_name(&word, 77), 22);
    EXPECT_EQ(word, nullptr);
}

}  // namespace
