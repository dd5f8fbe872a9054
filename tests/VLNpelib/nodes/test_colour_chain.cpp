// The image chain end to end: 8-bit datasets on pseudocolour surfaces,
// planned by the engine, coloured through the installed grey table and
// blended into 32-bit pixels under a probe in place of the window's root.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "engine_fixture.h"
#include "node_harness.h"
#include "vln_nodes.h"
#include "vln_pe_plan.h"

namespace {

using node_test::Runs;

constexpr int kCells = 4, kLines = 3;

/* An 8-bit raster whose cell (line, cell) holds base + 16 line + 3 cell. */
std::string write_bytes(const eng::TempDir &dir, const std::string &stem, int base)
{
    std::string header = dir.file(stem + ".vld");
    dshdr *d = nullptr;
    df_raster_dshdr(&d, header.c_str(), kCells, kLines, 1, Unsigned8BitInteger);
    d->info.r.cellinfo.x_dimension = d->info.r.cellinfo.y_dimension = 1.0;
    EXPECT_EQ(ep_dshdr(d, header.c_str()), 0);
    ef_dshdr(d);
    std::string bytes;
    for (int l = 0; l < kLines; l++)
        for (int c = 0; c < kCells; c++) bytes.push_back(static_cast<char>(base + 16 * l + 3 * c));
    std::ofstream(dir.file(stem), std::ios::binary) << bytes;
    return header;
}

/* A document of one pseudocolour surface per dataset, in 32-bit colour. */
struct Chain {
    algorithm *alg = nullptr;
    pe_context *pe = nullptr;
    funcnode *root = nullptr;
    std::vector<uint32_t> line = std::vector<uint32_t>(kCells);

    Chain(const eng::TempDir &dir, const std::vector<std::string> &datasets,
          const std::vector<double> &transparency, int cell_type = Unsigned32BitInteger)
    {
        setenv("VORLAN", VORLAN_SHARE_DIR, 0);
        setenv("VLN_MACHINE_TYPE", "linux", 0);
        EXPECT_EQ(PE_initialise("colour tests"), 0);
        // One surface per dataset: the fixture's text, its surface repeated.
        eng::AlgDoc doc{0, 0, kCells, kLines, kCells, kLines, false, Unsigned8BitInteger, {}};
        doc.streams.push_back({datasets[0]});
        std::string text = eng::alg_text(doc);
        const size_t from = text.find("\tSurface Begin"), to = text.find("\tSurface End\n") + 13;
        const std::string block = text.substr(from, to - from);
        for (size_t k = 1; k < datasets.size(); k++) {
            std::string more = block;
            more.replace(more.find(datasets[0]), datasets[0].size(), datasets[k]);
            text.insert(text.find("Algorithm End"), more);
        }
        const std::string path = dir.file("chain.alg");
        std::ofstream(path) << text;
        EXPECT_EQ(eg_algorithm_with_transients(&alg, path.c_str()), 0);
        alg->colour24 = cell_type == Unsigned32BitInteger;
        alg->dots_per_inch_across = alg->dots_per_inch_down = 72;
        alg->background_colour[0] = 1, alg->background_colour[1] = 2;
        alg->background_colour[2] = 3;
        size_t k = 0;
        for (surface *s = alg->surfaces; s != nullptr; s = s->next, k++) {
            s->color_mode = CM_PSEUDO;
            safe_free(s->lookup_table);
            s->lookup_table = strsave("greyscale");
            s->transparency = transparency[k];
        }
        pe = pe_create_context();
        const bool built = vln_pe::guarded(pe, [&] {
            prepare_alg(alg, pe);
            funcnode *tree = nullptr;
            setup_transpnode(&tree, pe, PV_None, 0, cell_type);
            vln_pe::new_private_node<node_test::ProbePrivate>(pe, FN_CCOUNT, 1, &root);
            root->read = node_test::probe_read;
            setup_fninput(pe, &root->inputs[0], tree, 1, kCells, 0, PE_ALLOC_RECORDS);
            vln_pe::priv<node_test::ProbePrivate>(root)->target = line.data();
            pe->raster_root = root;
            finish_setting_up_dsinputs(pe);
            init_funcnode(root, nullptr, nullptr);
            init_pass4(pe, root);
            init_pass5(root);
        });
        EXPECT_TRUE(built) << pe->error_text;
        if (built) pe_start_trees(pe);
    }
    ~Chain()
    {
        pe_destroy_context(pe);
        ef_algorithm(alg);
    }
    Chain(const Chain &) = delete;
    Chain &operator=(const Chain &) = delete;

    funcnode *top() const { return root->inputs[0].node; }

    /* One line of pixels and its runs. */
    Runs read()
    {
        EXPECT_EQ(pe_guarded_read(pe, root, root->read), 0) << pe->error_text;
        linebuf *out = root->inputs[0].buffers->buffers[0];
        Runs runs = node_test::runs_of(out->rlsegs);
        pe_free_rlseg_list(pe, &out->rlsegs);
        return runs;
    }
};

uint32_t grey(int v)
{
    return static_cast<uint32_t>(v) * 0x010101u;
}

TEST(ColourChain, OneOpaqueSurfaceIsItsColourStepAlone)
{
    eng::TempDir dir;
    Chain chain(dir, {write_bytes(dir, "a", 10)}, {0.0});
    ASSERT_NE(chain.root, nullptr);
    ASSERT_NE(chain.top(), nullptr);
    EXPECT_EQ(chain.top()->type, FN_RGB24FINAL);
    EXPECT_EQ(chain.top()->inputs[0].node->type, FN_PSEUDOTORGB);
    for (int l = 0; l < kLines; l++) {
        SCOPED_TRACE(l);
        EXPECT_EQ(chain.read(), (Runs{{0, kCells - 1}}));
        for (int c = 0; c < kCells; c++) EXPECT_EQ(chain.line[c], grey(10 + 16 * l + 3 * c)) << c;
    }
    EXPECT_EQ(chain.pe->rlsegs.nr_used, 0);
}

TEST(ColourChain, TwoSurfacesBlendTheFirstOverTheSecond)
{
    eng::TempDir dir;
    Chain chain(dir, {write_bytes(dir, "a", 10), write_bytes(dir, "b", 100)}, {0.5, 0.0});
    ASSERT_NE(chain.top(), nullptr);
    EXPECT_EQ(chain.top()->type, FN_TRANSPARENCY);
    EXPECT_EQ(chain.top()->nr_inputs, 2);
    for (int l = 0; l < kLines; l++) {
        SCOPED_TRACE(l);
        EXPECT_EQ(chain.read(), (Runs{{0, kCells - 1}}));
        for (int c = 0; c < kCells; c++) {
            // Half of each grey, rounded: (a + b + 1) / 2 for whole greys.
            const int a = 10 + 16 * l + 3 * c, b = 100 + 16 * l + 3 * c;
            EXPECT_EQ(chain.line[c], grey((a + b + 1) / 2)) << c;
        }
    }
}

TEST(ColourChain, EightBitPseudocolourIsTheStreamItself)
{
    // No intensity: the values are palette indices already, and nothing is
    // built over the stream's own chain.
    eng::TempDir dir;
    Chain chain(dir, {write_bytes(dir, "a", 10), write_bytes(dir, "b", 100)}, {0.5, 0.0},
                Unsigned8BitInteger);
    ASSERT_NE(chain.top(), nullptr);
    EXPECT_EQ(chain.top()->type, FN_SSYNC);
    EXPECT_EQ(chain.read(), (Runs{{0, kCells - 1}}));
    const auto *bytes = reinterpret_cast<const uint8_t *>(chain.line.data());
    for (int c = 0; c < kCells; c++) EXPECT_EQ(bytes[c], 10 + 3 * c) << c;
}

}  // namespace
