/* Virtual datasets through their interface: the dataset layout of an open,
 * a virtual dataset read by an enclosing algorithm, the end of the lines, and
 * the failures of opens and reads, each closing cleanly. */
#include <cstdio>
#include <fstream>

#include "engine_fixture.h"
#include <atomic>
#include <thread>

#include <pthread.h>

#include "capture.h"
#include "vln_thread.h"
#include "vln_vds.h"

namespace {

using eng::AlgDoc;
using eng::StreamDoc;
using eng::TempDir;

void init_engine()
{
    setenv("VORLAN", VORLAN_SHARE_DIR, 0);
    setenv("VLN_MACHINE_TYPE", "linux", 0);
    ASSERT_EQ(PE_initialise("vds tests"), 0);
}

/* An algorithm written from `doc` and read back, or null. */
algorithm *read_alg(const TempDir &dir, const AlgDoc &doc, const std::string &name)
{
    std::ofstream(dir.file(name)) << eng::alg_text(doc);
    algorithm *alg = nullptr;
    EXPECT_EQ(eg_algorithm_with_transients(&alg, dir.file(name).c_str()), 0)
        << (VLD_error.text ? VLD_error.text : "");
    return alg;
}

/* Every line of every band of an open handle, band after band in each line. */
template <class Cell = uint16_t>
std::vector<std::vector<Cell>> read_all(Vds *vds, int bands, int cells, int lines)
{
    std::vector<std::vector<Cell>> out(static_cast<size_t>(bands * lines),
                                       std::vector<Cell>(static_cast<size_t>(cells)));
    std::vector<rlseg *> runs(static_cast<size_t>(bands), nullptr);
    for (int y = 0; y < lines; y++) {
        std::vector<void *> ptrs;
        for (int b = 0; b < bands; b++) ptrs.push_back(out[static_cast<size_t>(y * bands + b)].data());
        const int status = vds_read(vds, ptrs.data(), runs.data(), 0);
        EXPECT_EQ(status, 0) << "line " << y << ": " << (vds_error_text(vds) ?: "");
        if (status != 0) break;
    }
    // After the last line every read gives -1 and hands back no lists.
    std::vector<void *> ptrs(static_cast<size_t>(bands), out[0].data());
    for (int k = 0; k < 2; k++) {
        EXPECT_EQ(vds_read(vds, ptrs.data(), runs.data(), 0), -1);
        for (rlseg *r : runs) EXPECT_EQ(r, nullptr);
    }
    return out;
}

TEST(Vds, DatasetOpenGivesEachBandInItsOrder)
{
    init_engine();
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "three", 12, 9, 3);
    AlgDoc doc{0, 0, 12, 9, 12, 9, false, Unsigned16BitInteger,
               {{ds, 3, "c"}, {ds, 1, "a"}}};
    algorithm *alg = read_alg(dir, doc, "bands.alg");
    ASSERT_NE(alg, nullptr);
    char *errmsg = reinterpret_cast<char *>(1);  // set to null on entry
    Vds *vds = vds_open_alg_tods(alg, &errmsg, nullptr, nullptr);
    ASSERT_NE(vds, nullptr) << errmsg;
    EXPECT_EQ(errmsg, nullptr);
    auto lines = read_all(vds, 2, 12, 9);
    for (int y = 0; y < 9; y++)
        for (int x = 0; x < 12; x++) {
            ASSERT_EQ(lines[y * 2][x], eng::value16(2, y, x));
            ASSERT_EQ(lines[y * 2 + 1][x], eng::value16(0, y, x));
        }
    vds_close(&vds);
    EXPECT_EQ(vds, nullptr);
    vds_close(&vds);  // a null handle changes nothing
    vds_close(nullptr);
    ef_algorithm(alg);
}

/* A header that holds an algorithm reads, inside an enclosing algorithm, as
 * the cells of that algorithm opened directly. */
TEST(Vds, VirtualDatasetReadsAsItsAlgorithm)
{
    init_engine();
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "base", 16, 10, 2);
    AlgDoc inner{0, 0, 16, 10, 16, 10, false, Unsigned16BitInteger,
                 {{ds, 2, "second"}, {ds, 1, "first"}}};
    algorithm *direct = read_alg(dir, inner, "inner.alg");
    ASSERT_NE(direct, nullptr);
    char *errmsg = nullptr;
    Vds *vds = vds_open_alg_tods(direct, &errmsg, nullptr, nullptr);
    ASSERT_NE(vds, nullptr) << errmsg;
    auto expected = read_all(vds, 2, 16, 10);
    vds_close(&vds);
    ef_algorithm(direct);

    for (int band : {1, 2}) {
        SCOPED_TRACE(band);
        AlgDoc outer{0, 0, 16, 10, 16, 10, false, Unsigned16BitInteger,
                     {{dir.file("inner.alg"), band, "via"}}};
        algorithm *alg = read_alg(dir, outer, "outer.alg");
        ASSERT_NE(alg, nullptr);
        vds = vds_open_alg_tods(alg, &errmsg, nullptr, nullptr);
        ASSERT_NE(vds, nullptr) << errmsg;
        auto got = read_all(vds, 1, 16, 10);
        for (int y = 0; y < 10; y++) ASSERT_EQ(got[y], expected[y * 2 + band - 1]) << "line " << y;
        vds_close(&vds);
        ef_algorithm(alg);
    }
}

/* vds_vopen reads a rectangle of a virtual dataset's header, band by band,
 * in the header's cell type (a virtual header's cells are reals). */
TEST(Vds, RectangleOfAVirtualDataset)
{
    init_engine();
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "rect", 20, 14, 2);
    AlgDoc inner{0, 0, 20, 14, 20, 14, false, Unsigned16BitInteger,
                 {{ds, 1, "one"}, {ds, 2, "two"}}};
    std::ofstream(dir.file("rect.alg")) << eng::alg_text(inner);
    dshdr *dsh = nullptr;
    ASSERT_EQ(eg_dshdr(&dsh, dir.file("rect.alg").c_str()), 0) << VLD_error_text();
    ASSERT_NE(dsh->algorithm, nullptr);
    ASSERT_EQ(dsh->info.r.cell_type, IEEE8ByteReal);
    ASSERT_EQ(dsh->info.r.nr_bands, 2);
    // The header's second band is the layer of that name, whichever it is.
    const int source_band = std::string(dsh->info.r.bandids[1].value) == "one" ? 0 : 1;
    const int bands[] = {1};
    char *errmsg = nullptr;
    Vds *vds = vds_vopen(dsh, 3, 5, 4, 10, bands, 1, &errmsg);
    ASSERT_NE(vds, nullptr) << errmsg;
    EXPECT_EQ(vds->owns_algorithm, 1);
    EXPECT_NE(vds->algorithm, dsh->algorithm);
    auto got = read_all<double>(vds, 1, 10, 5);
    for (int y = 0; y < 5; y++)
        for (int x = 0; x < 10; x++)
            ASSERT_EQ(got[y][x], eng::value16(source_band, y + 3, x + 4)) << x << ", " << y;
    vds_close(&vds);

    // The same through the band names of vds_open, counted from 1.
    char two[] = "2";
    char *names[] = {two};
    vds = vds_open(dsh, 3, 5, 4, 10, names, 1, &errmsg);
    ASSERT_NE(vds, nullptr) << errmsg;
    EXPECT_EQ(read_all<double>(vds, 1, 10, 5), got);
    vds_close(&vds);
    ef_dshdr(dsh);
}

struct OpenFailure {
    const char *name;
    AlgDoc doc;
    const char *text;
};

TEST(Vds, FailedOpensGiveTheirTextAndNoHandle)
{
    init_engine();
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "fail", 8, 8);
    const OpenFailure cases[] = {
        {"no width", {0, 0, 8, 8, 0, 8, false, Unsigned16BitInteger, {{ds}}},
         "Image window has 0 width\n"},
        {"missing dataset",
         {0, 0, 8, 8, 8, 8, false, Unsigned16BitInteger, {{dir.file("gone.vld")}}},
         nullptr},
    };
    for (const OpenFailure &c : cases) {
        SCOPED_TRACE(c.name);
        std::ofstream(dir.file("f.alg")) << eng::alg_text(c.doc);
        algorithm *alg = nullptr;
        if (eg_algorithm_with_transients(&alg, dir.file("f.alg").c_str()) != 0) {
            // A document whose dataset is missing may fail at reading already.
            EXPECT_EQ(c.text, nullptr);
            ef_algorithm(alg);
            continue;
        }
        char *errmsg = nullptr;
        Vds *vds = vds_open_alg_tods(alg, &errmsg, nullptr, nullptr);
        EXPECT_EQ(vds, nullptr);
        ASSERT_NE(errmsg, nullptr);
        if (c.text != nullptr) {
            EXPECT_STREQ(errmsg, c.text);
        }
        safe_free(errmsg);
        ef_algorithm(alg);
    }
}

/* The dataset layout sets every surface to DATASET for the open alone. */
/* A formula that reads a stream input the stream doesn't declare fails the
 * open with its text, whether the formula is a plain input or not. */
TEST(Vds, FormulaInputWithoutAStreamInputFailsTheOpen)
{
    init_engine();
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "base", 8, 6, 2);
    for (const char *formula : {"INPUT1", "INPUT1 * 2"}) {
        SCOPED_TRACE(formula);
        std::string text = eng::alg_text({0, 0, 8, 6, 8, 6, false, Unsigned16BitInteger, {{ds, 1, "a"}}});
        const std::string block = "\t\t\tStreamInput Begin\n\t\t\t\tStreamInputID = 1\n\t\t\tStreamInput End\n";
        ASSERT_NE(text.find(block), std::string::npos);
        text.erase(text.find(block), block.size());
        text.replace(text.find("Formula = \"INPUT1\""), 18, std::string("Formula = \"") + formula + "\"");
        std::ofstream(dir.file("lost.alg")) << text;
        algorithm *alg = nullptr;
        ASSERT_EQ(eg_algorithm_with_transients(&alg, dir.file("lost.alg").c_str()), 0);
        char *errmsg = nullptr;
        Vds *vds = vds_open_alg_tods(alg, &errmsg, nullptr, nullptr);
        EXPECT_EQ(vds, nullptr);
        ASSERT_NE(errmsg, nullptr);
        EXPECT_NE(std::string(errmsg).find("Formula Input 1 is not set up"), std::string::npos) << errmsg;
        safe_free(errmsg);
        vds_close(&vds);
        ef_algorithm(alg);
    }
}

TEST(Vds, DatasetOpenPutsTheSurfaceModesBack)
{
    init_engine();
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "modes", 8, 8);
    for (int width : {8, 0}) {
        AlgDoc doc{0, 0, 8, 8, width, 8, false, Unsigned16BitInteger, {{ds}}};
        algorithm *alg = read_alg(dir, doc, "m.alg");
        ASSERT_NE(alg, nullptr);
        alg->surfaces->color_mode = CM_PSEUDO;
        char *errmsg = nullptr;
        Vds *vds = vds_open_alg_tods(alg, &errmsg, nullptr, nullptr);
        EXPECT_EQ(vds == nullptr, width == 0);
        EXPECT_EQ(alg->surfaces->color_mode, CM_PSEUDO);
        vds_close(&vds);
        safe_free(errmsg);
        ef_algorithm(alg);
    }
}

/* A dataset removed after the open: its file opens at the first read, which
 * fails with the text of the failed open in the handle's context (the open is
 * a failure of the tree, not of a read), and the handle closes. */
TEST(Vds, DatasetRemovedAfterTheOpenFailsTheRead)
{
    init_engine();
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "removed", 10, 6);
    AlgDoc doc{0, 0, 10, 6, 10, 6, false, Unsigned16BitInteger, {{ds}}};
    algorithm *alg = read_alg(dir, doc, "r.alg");
    ASSERT_NE(alg, nullptr);
    char *errmsg = nullptr;
    Vds *vds = vds_open_alg_tods(alg, &errmsg, nullptr, nullptr);
    ASSERT_NE(vds, nullptr) << errmsg;
    ASSERT_EQ(std::remove(dir.file("removed").c_str()), 0);
    std::vector<uint16_t> line(10);
    void *lines[] = {line.data()};
    rlseg *runs[] = {nullptr};
    EXPECT_EQ(vds_read(vds, lines, runs, 0), 1);
    EXPECT_EQ(vds_error_text(vds), nullptr);
    EXPECT_NE(std::string(vds->context->error_text).find("removed"), std::string::npos)
        << vds->context->error_text;
    vds_close(&vds);
    ef_algorithm(alg);
}

/* A read with no tree of its kind gives -1; registered files go at the close,
 * a file registered twice without a warning. */
TEST(Vds, VectorTreeAbsentAndTemporaryFilesRemoved)
{
    init_engine();
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "tmp", 6, 4);
    AlgDoc doc{0, 0, 6, 4, 6, 4, false, Unsigned16BitInteger, {{ds}}};
    algorithm *alg = read_alg(dir, doc, "t.alg");
    ASSERT_NE(alg, nullptr);
    char *errmsg = nullptr;
    Vds *vds = vds_open_alg_tods(alg, &errmsg, nullptr, nullptr);
    ASSERT_NE(vds, nullptr) << errmsg;
    std::vector<uint16_t> line(6);
    void *lines[] = {line.data()};
    EXPECT_EQ(vds_read(vds, lines, nullptr, 1), -1);
    EXPECT_EQ(vds_read(nullptr, lines, nullptr, 0), -1);
    const std::string scratch = dir.file("scratch");
    std::ofstream(scratch) << "x";
    register_file_to_delete_on_close(vds->context, scratch.c_str());
    register_file_to_delete_on_close(vds->context, scratch.c_str());
    register_file_to_delete_on_close(vds->context, nullptr);
    register_file_to_delete_on_close(nullptr, scratch.c_str());
    StreamCapture capture(StreamCapture::Err);
    vds_close(&vds);
    EXPECT_EQ(capture.text(), "");
    EXPECT_FALSE(std::ifstream(scratch).good());
    ef_algorithm(alg);
}

}  // namespace

namespace {

/* The mapped reader over a virtual dataset goes forwards through an inner
 * handle; a line behind it opens the inner handle again from that line. */
TEST(Vds, MappedReaderOfAVirtualDatasetGoesBackByReopening)
{
    init_engine();
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "mm", 9, 8);
    AlgDoc inner{0, 0, 9, 8, 9, 8, false, Unsigned16BitInteger, {{ds, 1, "only"}}};
    std::ofstream(dir.file("mm.alg")) << eng::alg_text(inner);
    dshdr *dsh = nullptr;
    ASSERT_EQ(eg_dshdr(&dsh, dir.file("mm.alg").c_str()), 0) << VLD_error_text();
    const int bands[] = {0};
    Vds *h = nullptr;
    ASSERT_EQ(vds_mmopen(&h, dsh, 2, 5, 1, 7, bands, 1, Unsigned16BitInteger), 0)
        << VLD_error_text();
    std::vector<uint16_t> line(7);
    void *lines[] = {line.data()};
    rlseg *runs[] = {nullptr};
    for (int y : {3, 4, 1, 1, 0, 4}) {
        SCOPED_TRACE(y);
        ASSERT_EQ(vds_mmread(h, lines, runs, y, 0), 0) << VLD_error_text();
        for (int x = 0; x < 7; x++) ASSERT_EQ(line[x], eng::value16(0, y + 2, x + 1));
        ASSERT_NE(runs[0], nullptr);
        EXPECT_EQ(runs[0]->first, 0);
        EXPECT_EQ(runs[0]->last, 6);
    }
    EXPECT_EQ(vds_mmclose(&h), 0);
    EXPECT_EQ(h, nullptr);
    ef_dshdr(dsh);
}

}  // namespace

namespace {

/* Every byte of every line of a dataset open of the document at `path`,
 * bands of a line one after the other. */
std::string read_document_bytes(const std::string &path, int bands, int cells, int lines)
{
    algorithm *alg = nullptr;
    if (eg_algorithm_with_transients(&alg, path.c_str()) != 0) {
        ef_algorithm(alg);
        return "read failed";
    }
    char *errmsg = nullptr;
    Vds *vds = vds_open_alg_tods(alg, &errmsg, nullptr, nullptr);
    std::string bytes;
    if (vds == nullptr) {
        bytes = errmsg != nullptr ? errmsg : "open failed";
        safe_free(errmsg);
    } else {
        std::vector<float> cells_of(static_cast<size_t>(bands * cells));
        std::vector<void *> ptrs;
        for (int b = 0; b < bands; b++) ptrs.push_back(cells_of.data() + b * cells);
        std::vector<rlseg *> runs(static_cast<size_t>(bands), nullptr);
        for (int y = 0; y < lines && vds_read(vds, ptrs.data(), runs.data(), 0) == 0; y++)
            bytes.append(reinterpret_cast<const char *>(cells_of.data()),
                         cells_of.size() * sizeof(float));
        vds_close(&vds);
    }
    ef_algorithm(alg);
    return bytes;
}

/* Two handles on two threads, each over its own read of one document, give
 * the bytes of one handle alone. Under ThreadSanitizer this also shows state
 * that two handles share without a lock. */
TEST(VdsThreads, TwoHandlesReadOneDocumentAtOnce)
{
    ASSERT_EQ(vln_thread_init(), 1);
    init_engine();
    TempDir dir;
    std::string a = eng::write_dataset(dir, "left", 30, 20, 2);
    std::string b = eng::write_dataset(dir, "right", 30, 20, 1, 30, 0);
    AlgDoc doc{0, 0, 60, 20, 90, 30, false, IEEE4ByteReal,
               {{a, 2, "first"}, {b, 1, "second"}, {a, 1, "third"}}};
    std::ofstream(dir.file("shared.alg")) << eng::alg_text(doc);
    const std::string alone = read_document_bytes(dir.file("shared.alg"), 3, 90, 30);
    ASSERT_EQ(alone.size(), size_t{3} * 90 * 30 * sizeof(float)) << alone.substr(0, 200);
    std::atomic<int> differing{0};
    auto reader = [&] {
        for (int k = 0; k < 20; k++)
            if (read_document_bytes(dir.file("shared.alg"), 3, 90, 30) != alone) differing++;
    };
    std::thread one(reader), two(reader);
    one.join();
    two.join();
    EXPECT_EQ(differing.load(), 0);
}

/* Reads may run on threads with small stacks: a document three virtual
 * datasets deep, over a three-layer mosaic, reads on a 512 KB stack the same
 * bytes as on the main thread. */
TEST(VdsThreads, NestedVirtualDatasetsReadOnASmallStack)
{
    ASSERT_EQ(vln_thread_init(), 1);
    init_engine();
    TempDir dir;
    std::string a = eng::write_dataset(dir, "left", 30, 20, 2);
    std::string b = eng::write_dataset(dir, "right", 30, 20, 1, 30, 0);
    AlgDoc base{0, 0, 60, 20, 60, 20, false, IEEE4ByteReal,
                {{a, 2, "first"}, {b, 1, "second"}, {a, 1, "third"}}};
    std::ofstream(dir.file("level0.alg")) << eng::alg_text(base);
    for (int level = 1; level <= 3; level++) {
        AlgDoc over{0, 0, 60, 20, 60, 20, false, IEEE4ByteReal,
                    {{dir.file("level" + std::to_string(level - 1) + ".alg"), 1, "via"}}};
        std::ofstream(dir.file("level" + std::to_string(level) + ".alg")) << eng::alg_text(over);
    }
    const std::string path = dir.file("level3.alg");
    const std::string on_main = read_document_bytes(path, 1, 60, 20);
    ASSERT_EQ(on_main.size(), size_t{60} * 20 * sizeof(float)) << on_main.substr(0, 200);

    std::string on_small;
    pthread_attr_t attr;
    ASSERT_EQ(pthread_attr_init(&attr), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attr, 512 * 1024), 0);
    struct Job {
        const std::string *path;
        std::string *out;
    } job{&path, &on_small};
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, &attr,
                  [](void *arg) -> void * {
                      auto *j = static_cast<Job *>(arg);
                      *j->out = read_document_bytes(*j->path, 1, 60, 20);
                      return nullptr;
                  },
                  &job),
              0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
    EXPECT_EQ(on_small, on_main);
}

}  // namespace

namespace {

/* A view of half the cells and lines of a raster, over it as its source: each
 * line reads the source line under it, and each cell the source cell. */
TEST(Vds, MappedReaderOfAResampledView)
{
    TempDir dir;
    std::string header = eng::write_dataset(dir, "full", 20, 12, 2);
    dshdr *source = nullptr;
    ASSERT_EQ(eg_dshdr(&source, header.c_str()), 0);
    dshdr *view = nullptr;
    ASSERT_EQ(cp_dshdr(&view, source), 0);
    view->info.r.nr_cells = 10;
    view->info.r.nr_lines = 6;
    view->info.r.cellinfo.x_dimension = view->info.r.cellinfo.y_dimension = 2.0;
    view->source_dsh = source;
    struct Case {
        int first_line, nr_lines, first_cell, nr_cells, out_type;
    } cases[] = {{0, 6, 0, 10, Unsigned16BitInteger}, {1, 4, 2, 7, IEEE4ByteReal}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.first_cell);
        const int bands[] = {0, 1};
        Vds *h = nullptr;
        ASSERT_EQ(vds_mmopen(&h, view, c.first_line, c.nr_lines, c.first_cell, c.nr_cells, bands, 2,
                             c.out_type),
                  0)
            << VLD_error_text();
        EXPECT_EQ(h->mode, 1);
        void *lines[] = {nullptr, nullptr};
        rlseg *runs[] = {nullptr, nullptr};
        for (int y = 0; y < c.nr_lines; y++) {
            ASSERT_EQ(vds_mmread(h, lines, runs, y, 0), 0) << VLD_error_text();
            for (int b = 0; b < 2; b++)
                for (int x = 0; x < c.nr_cells; x++) {
                    const double want =
                        eng::value16(bands[b], 2 * (y + c.first_line), 2 * (x + c.first_cell));
                    const double got = c.out_type == IEEE4ByteReal
                                           ? static_cast<float *>(lines[b])[x]
                                           : static_cast<uint16_t *>(lines[b])[x];
                    ASSERT_EQ(got, want) << "band " << b << " cell " << x << " line " << y;
                }
        }
        vds_mmclose(&h);
    }
    ef_dshdr(view);  // and its source with it
}

}  // namespace

namespace {

/* A stand-in renderer of 3D views: counts its calls, delivers three lines. */
struct FakeRenderer {
    int opens = 0, reads = 0, closes = 0;
    bool refuse = false;
};
FakeRenderer g_renderer;
int g_handle_3d;

void *open_3d(algorithm *, char **, pe_progress_fn, void *)
{
    g_renderer.opens++;
    if (g_renderer.refuse) return nullptr;
    return &g_handle_3d;
}

int read_3d(void *handle, char **text, void **, rlseg **, int)
{
    EXPECT_EQ(handle, &g_handle_3d);
    if (++g_renderer.reads > 3) {
        *text = strsave("the view ran out");
        return 7;
    }
    return 0;
}

void close_3d(void *handle)
{
    EXPECT_EQ(handle, &g_handle_3d);
    g_renderer.closes++;
}

/* A view that isn't flat goes to the installed renderer, if it takes it; the
 * per-surface layout keeps the renderer out and leaves vectors merged. */
TEST(Vds, ThreeDViewsGoToTheInstalledRenderer)
{
    init_engine();
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "d3", 8, 6);
    AlgDoc doc{0, 0, 8, 6, 8, 6, false, Unsigned16BitInteger, {{ds}}};
    algorithm *alg = read_alg(dir, doc, "d3.alg");
    ASSERT_NE(alg, nullptr);
    alg->view_mode = VM_Perspective3D;
    pe_init_3d_func_ptrs(open_3d, read_3d, close_3d);
    g_renderer = FakeRenderer{};
    char *errmsg = nullptr;
    Vds *vds = vds_open_alg_tods(alg, &errmsg, nullptr, nullptr);
    ASSERT_NE(vds, nullptr) << errmsg;
    EXPECT_EQ(g_renderer.opens, 1);
    EXPECT_EQ(vds->context->raster_root, nullptr) << "no tree of its own";
    std::vector<uint16_t> line(8);
    void *lines[] = {line.data()};
    for (int y = 0; y < 3; y++) EXPECT_EQ(vds_read(vds, lines, nullptr, 0), 0);
    EXPECT_EQ(vds_read(vds, lines, nullptr, 0), 7);
    ASSERT_NE(vds_error_text(vds), nullptr);
    EXPECT_STREQ(vds_error_text(vds), "the view ran out");
    vds_close(&vds);
    EXPECT_EQ(g_renderer.closes, 1);

    // A renderer that declines leaves the ordinary tree.
    g_renderer.refuse = true;
    vds = vds_open_alg_tods(alg, &errmsg, nullptr, nullptr);
    ASSERT_NE(vds, nullptr) << errmsg;
    EXPECT_NE(vds->context->raster_root, nullptr);
    vds_close(&vds);
    EXPECT_EQ(g_renderer.closes, 1);

    // The per-surface layout opens flat, puts the view mode back, and keeps
    // vectors merged with the raster.
    g_renderer = FakeRenderer{};
    alg->view_mode = VM_Flythrough;
    alg->process_vectors = PV_None;
    vds = vds_open_alg_ms_rgbh(alg, &errmsg);
    EXPECT_EQ(g_renderer.opens, 0);
    EXPECT_EQ(alg->view_mode, VM_Flythrough);
    EXPECT_EQ(alg->process_vectors, PV_MergeWithRaster);
    vds_close(&vds);
    safe_free(errmsg);
    pe_init_3d_func_ptrs(nullptr, nullptr, nullptr);
    ef_algorithm(alg);
}

}  // namespace
