// The record framework on a record made for the purpose: every storage kind,
// synonyms, legacy keywords, writing conditions, nested blocks, deep copies.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "vld_record_internal.h"

namespace {

using vld::Field;
using vld::Kind;
using vld::Record;

/* ---------------------------------------------------------------- a nested record */

struct Inner {
    double a;
    int32_t b;
};

enum : uint32_t { IN_A = 1, IN_B };
const VLD_KEYWORD inner_keywords[] = {
    {IN_A, "A", VTYPE_FLOAT, nullptr}, {IN_B, "B", VTYPE_INT, nullptr}, {0, nullptr, 0, nullptr}};
const Field inner_fields[] = {
    {.code = IN_A, .kind = Kind::Double, .offset = offsetof(Inner, a)},
    {.code = IN_B, .kind = Kind::Int32, .offset = offsetof(Inner, b)},
};
int inner_before_reads = 0;
void inner_before_read(void *, const void *)
{
    inner_before_reads++;
}
/* A negative B is refused after the parse, as a coordinate space refuses a
 * missing datum. */
int inner_after_read(void *r, const void *)
{
    return static_cast<Inner *>(r)->b < 0
               ? VLD_setup_error(VLD_ERR_INVALID_COORDSPACE, "negative B")
               : 0;
}
bool inner_empty(const void *r, const void *)
{
    auto *i = static_cast<const Inner *>(r);
    return i->a == 0.0 && i->b == 0;
}
const Record inner_record = {.block = "Inner",
                             .keywords = inner_keywords,
                             .fields = inner_fields,
                             .nfields = vld::count_of(inner_fields),
                             .size = sizeof(Inner),
                             .before_read = inner_before_read,
                             .after_read = inner_after_read,
                             .empty = inner_empty};
const Record &inner_rec()
{
    return inner_record;
}

/* ---------------------------------------------------------------- a list element */

struct Node {
    Node *next;
    char *name;
};
enum : uint32_t { ND_NAME = 1 };
const VLD_KEYWORD node_keywords[] = {{ND_NAME, "Name", VTYPE_STRING, nullptr},
                                     {0, nullptr, 0, nullptr}};
const Field node_fields[] = {
    {.code = ND_NAME, .kind = Kind::String, .offset = offsetof(Node, name)}};
const Record node_record = {.block = "Node",
                            .keywords = node_keywords,
                            .fields = node_fields,
                            .nfields = 1,
                            .size = sizeof(Node)};
const Record &node_rec()
{
    return node_record;
}

/* ---------------------------------------------------------------- the record under test */

struct Sample {
    int32_t count;
    double scale;
    int32_t flag;
    uint8_t flag8;
    int32_t kind;
    int32_t when;
    char *title;
    char *note;
    char *band;
    char *path;
    double angle;
    double bearing;
    uint8_t rgb[3];
    textnode *items;
    Inner inner;
    Inner *optional;
    Node *nodes;
    int32_t twice; /* Custom: written and read as twice its value */
    int32_t legacy_seen;
};

enum : uint32_t {
    COUNT = 1,
    SCALE,
    FLAG,
    FLAG8,
    KIND,
    WHEN,
    TITLE,
    NOTE,
    BAND,
    PATH,
    ANGLE,
    BEARING,
    COLOUR,
    ITEMS,
    INNER,
    OPTIONAL,
    NODE,
    TWICE,
    OLDBLOCK,
    OBSOLETE,
    LEGACY
};

const VLD_ENUM ev_kind[] = {{0, "None"}, {1, "Small"}, {2, "Large"}, {2, "Big"}, {0, nullptr}};

const VLD_KEYWORD sample_keywords[] = {{COUNT, "Count", VTYPE_INT, nullptr},
                                       {COUNT, "OldCount", VTYPE_INT, nullptr},
                                       {SCALE, "Scale", VTYPE_FLOAT, nullptr},
                                       {FLAG, "Flag", VTYPE_YN, nullptr},
                                       {FLAG8, "Flag8", VTYPE_YN, nullptr},
                                       {KIND, "Kind", VTYPE_ENUM, ev_kind},
                                       {WHEN, "When", VTYPE_DATETIME, nullptr},
                                       {TITLE, "Title", VTYPE_STRING, nullptr},
                                       {NOTE, "Note", VTYPE_STRING, nullptr},
                                       {BAND, "Band", VTYPE_BANDID, nullptr},
                                       {PATH, "Path", VTYPE_FILENAME, nullptr},
                                       {ANGLE, "Angle", VTYPE_FLOAT, nullptr},
                                       {BEARING, "Bearing", VTYPE_DMS, nullptr},
                                       {COLOUR, "Colour", VTYPE_TRIPLE, nullptr},
                                       {ITEMS, "Items", VTYPE_LIST, nullptr},
                                       {INNER, "Inner", VTYPE_BLOCK, nullptr},
                                       {OPTIONAL, "Optional", VTYPE_BLOCK, nullptr},
                                       {NODE, "Node", VTYPE_BLOCK, nullptr},
                                       {TWICE, "Twice", VTYPE_INT, nullptr},
                                       {OLDBLOCK, "OldBlock", VTYPE_BLOCK, nullptr},
                                       {OBSOLETE, "Obsolete", VTYPE_STRING, nullptr},
                                       {LEGACY, "Legacy", VTYPE_INT, nullptr},
                                       {0, nullptr, 0, nullptr}};

void read_twice(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    static_cast<Sample *>(ctx.record)->twice = st->value.i / 2;
}
void write_twice(const vld::WriteContext &ctx)
{
    int32_t doubled = static_cast<const Sample *>(ctx.record)->twice * 2;
    vld::rec_write_line(ctx, &doubled);
}
bool omit_zero_scale(const void *r, const void *)
{
    return static_cast<const Sample *>(r)->scale == 0;
}

#define S(m) offsetof(Sample, m)
const Field sample_fields[] = {
    {.code = COUNT, .kind = Kind::Int32, .offset = S(count)},
    {.code = SCALE, .kind = Kind::Double, .offset = S(scale), .omit = omit_zero_scale},
    {.code = FLAG, .kind = Kind::YesNo, .offset = S(flag)},
    {.code = FLAG8, .kind = Kind::YesNo8, .offset = S(flag8)},
    {.code = KIND, .kind = Kind::Enum, .offset = S(kind)},
    {.code = WHEN, .kind = Kind::Time, .offset = S(when)},
    {.code = TITLE, .kind = Kind::String, .offset = S(title)},
    {.code = NOTE, .kind = Kind::String, .offset = S(note), .unescape = true},
    {.code = BAND, .kind = Kind::BandIdText, .offset = S(band)},
    {.code = PATH, .kind = Kind::Filename, .offset = S(path)},
    {.code = ANGLE, .kind = Kind::Angle, .offset = S(angle)},
    {.code = BEARING, .kind = Kind::Angle, .offset = S(bearing)},
    {.code = COLOUR, .kind = Kind::Rgb, .offset = S(rgb)},
    {.code = ITEMS, .kind = Kind::List, .offset = S(items)},
    {.code = INNER, .kind = Kind::Block, .offset = S(inner), .sub = inner_rec},
    {.code = OPTIONAL, .kind = Kind::BlockPtr, .offset = S(optional), .sub = inner_rec},
    {.code = NODE, .kind = Kind::BlockList, .offset = S(nodes), .sub = node_rec},
    {.code = TWICE, .kind = Kind::Custom, .read = read_twice, .write = write_twice},
    {.code = OLDBLOCK, .kind = Kind::Discard, .sub = inner_rec},
    {.code = OBSOLETE, .kind = Kind::Ignore},
    {.code = LEGACY, .kind = Kind::Int32, .offset = S(legacy_seen), .read_only = true},
};
#undef S

const Record sample_record = {.block = "Sample",
                              .keywords = sample_keywords,
                              .fields = sample_fields,
                              .nfields = vld::count_of(sample_fields),
                              .size = sizeof(Sample)};

const char *const kDocument = R"(Sample Begin
	OldCount = 7
	Scale = 2.5
	Flag = yes
	Flag8 = True
	Kind = Big
	When = Mon Jan  2 15:04:05 GMT 2006
	Title = "a \"quoted\" title"
	Note = "line one\nline two"
	Band = 1:2:3
	Angle = 90
	Bearing = -10:30:0
	Colour = 255,128,0
	Items = { 1 two "three 3" }
	Inner Begin
		A = 1.5
		B = 3
	Inner End
	Optional Begin
		B = 4
	Optional End
	Node Begin
		Name = "first"
	Node End
	Node Begin
		Name = "second"
	Node End
	Twice = 10
	OldBlock Begin
		A = 9
	OldBlock End
	Obsolete = "gone"
	Legacy = 5
Sample End
)";

int read_sample(void *address, const char *filename)
{
    return vld::rec_read(*static_cast<void **>(address), filename, sample_record);
}
int write_sample(void *record, const char *filename)
{
    return vld::rec_write(record, filename, sample_record);
}

/* Reads `text` into a new record; the status goes to `*status`. */
Sample *parse(const char *text, int *status)
{
    void *record = vld::rec_alloc(sample_record);
    *status = eg_from_buffer(text, read_sample, &record);
    return static_cast<Sample *>(record);
}

std::string unparse(const Sample *s)
{
    char *text = nullptr;
    EXPECT_EQ(ep_to_buffer(const_cast<Sample *>(s), write_sample, &text), 0);
    std::string out = text ? text : "";
    safe_free(text);
    return out;
}

struct SampleDeleter {
    void operator()(Sample *s) const { vld::rec_free(s, sample_record); }
};
using SamplePtr = std::unique_ptr<Sample, SampleDeleter>;

SamplePtr parse_ok(const char *text)
{
    int status = -1;
    SamplePtr s(parse(text, &status));
    EXPECT_EQ(status, 0) << (VLD_error.text ? VLD_error.text : "");
    return s;
}

TEST(RecordTest, ReadStoresEveryKindByItsField)
{
    SamplePtr s = parse_ok(kDocument);
    EXPECT_EQ(s->count, 7);  // through the synonym
    EXPECT_EQ(s->scale, 2.5);
    EXPECT_EQ(s->flag, 1);
    EXPECT_EQ(s->flag8, 1);
    EXPECT_EQ(s->kind, 2);
    EXPECT_EQ(s->when, 1136214245);
    EXPECT_STREQ(s->title, "a \"quoted\" title");
    EXPECT_STREQ(s->note, "line one\nline two");  // unescaped on request
    EXPECT_STREQ(s->band, "1:2:3");
    EXPECT_DOUBLE_EQ(s->angle, M_PI / 2);
    EXPECT_DOUBLE_EQ(s->bearing, -10.5 * M_PI / 180);
    EXPECT_EQ(s->rgb[0], 255);
    EXPECT_EQ(s->rgb[1], 128);
    EXPECT_EQ(s->rgb[2], 0);
    ASSERT_NE(s->items, nullptr);
    EXPECT_STREQ(s->items->next->next->text, "three 3");
    EXPECT_EQ(s->inner.a, 1.5);
    EXPECT_EQ(s->inner.b, 3);
    ASSERT_NE(s->optional, nullptr);
    EXPECT_EQ(s->optional->b, 4);
    ASSERT_NE(s->nodes, nullptr);
    EXPECT_STREQ(s->nodes->name, "first");
    ASSERT_NE(s->nodes->next, nullptr);
    EXPECT_STREQ(s->nodes->next->name, "second");
    EXPECT_EQ(s->nodes->next->next, nullptr);
    EXPECT_EQ(s->twice, 5);
    EXPECT_EQ(s->legacy_seen, 5);  // read, though never written
}

TEST(RecordTest, StringsStayRawUnlessTheFieldAsks)
{
    SamplePtr s = parse_ok("Sample Begin\n Title = \"a\\tb\"\n Note = \"a\\tb\"\nSample End\n");
    EXPECT_STREQ(s->title, "a\\tb");
    EXPECT_STREQ(s->note, "a\tb");
}

TEST(RecordTest, WriterUsesTheFirstSynonymAndLeavesOutWhatIsOnlyRead)
{
    SamplePtr s = parse_ok(kDocument);
    std::string text = unparse(s.get());
    EXPECT_NE(text.find("\tCount\t"), std::string::npos) << text;
    EXPECT_NE(text.find("Twice\t\t= 10\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\tAngle\t\t= 90\n"), std::string::npos) << text;
    for (const char *absent : {"OldCount", "OldBlock", "Obsolete", "Legacy"})
        EXPECT_EQ(text.find(absent), std::string::npos) << absent << " in\n" << text;
    // Nested blocks take the keyword's name and one more level of indentation.
    EXPECT_NE(text.find("\tOptional Begin\n\t\tA\t\t\t= 0\n\t\tB\t\t\t= 4\n\tOptional End\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("\tNode Begin\n\t\tName\t\t= \"first\"\n\tNode End\n\tNode Begin"),
              std::string::npos)
        << text;
}

TEST(RecordTest, WrittenRecordReadsBackEqual)
{
    SamplePtr first = parse_ok(kDocument);
    std::string text = unparse(first.get());
    SamplePtr second = parse_ok(text.c_str());
    EXPECT_EQ(second->legacy_seen, 0);  // a legacy value isn't carried on
    first->legacy_seen = 0;
    EXPECT_TRUE(vld::rec_equal(first.get(), second.get(), sample_record)) << text;
    EXPECT_EQ(unparse(second.get()), text);
}

TEST(RecordTest, OmittedAndEmptyPartsAreNotWritten)
{
    SamplePtr s(static_cast<Sample *>(vld::rec_alloc(sample_record)));
    std::string text = unparse(s.get());
    // Scale is 0 (its omit), Inner is empty (its empty), Optional is null.
    for (const char *absent : {"Scale", "Inner", "Optional", "Node", "Items", "Title"})
        EXPECT_EQ(text.find(absent), std::string::npos) << absent << " in\n" << text;
    EXPECT_NE(text.find("Count"), std::string::npos);
}

TEST(RecordTest, FailureOfANestedBlockReachesTheCaller)
{
    int status = 0;
    Sample *s = parse("Sample Begin\n Inner Begin\n  B = -1\n Inner End\n Count = 3\nSample End\n",
                      &status);
    EXPECT_EQ(status, 30);
    EXPECT_EQ(s->count, 3);  // the parse itself went on
    vld::rec_free(s, sample_record);

    s = parse("Sample Begin\n Count = 2.5\nSample End\n", &status);
    EXPECT_EQ(status, 7);  // a parse error
    vld::rec_free(s, sample_record);
}

TEST(RecordTest, RepeatedBlocksReplaceOrAppend)
{
    inner_before_reads = 0;
    SamplePtr s = parse_ok(
        "Sample Begin\n Optional Begin\n A = 1\n Optional End\n Optional Begin\n B = 2\n"
        " Optional End\n Node Begin\n Node End\nSample End\n");
    ASSERT_NE(s->optional, nullptr);
    EXPECT_EQ(s->optional->a, 0.0);  // the second block stands alone
    EXPECT_EQ(s->optional->b, 2);
    EXPECT_EQ(inner_before_reads, 2);
    ASSERT_NE(s->nodes, nullptr);
    EXPECT_EQ(s->nodes->name, nullptr);
}

TEST(RecordTest, CopyIsDeepAndEqual)
{
    SamplePtr original = parse_ok(kDocument);
    SamplePtr copy(static_cast<Sample *>(vld::rec_dup(original.get(), sample_record)));
    ASSERT_TRUE(vld::rec_equal(original.get(), copy.get(), sample_record));
    EXPECT_NE(copy->title, original->title);
    EXPECT_NE(copy->items, original->items);
    EXPECT_NE(copy->optional, original->optional);
    EXPECT_NE(copy->nodes, original->nodes);
    EXPECT_NE(copy->nodes->next, original->nodes->next);
    copy->title[0] = 'A';
    copy->nodes->next->name[0] = 'S';
    EXPECT_STREQ(original->title, "a \"quoted\" title");
    EXPECT_STREQ(original->nodes->next->name, "second");
    EXPECT_FALSE(vld::rec_equal(original.get(), copy.get(), sample_record));
    EXPECT_EQ(vld::rec_dup(nullptr, sample_record), nullptr);
}

TEST(RecordTest, EqualityNoticesEachMember)
{
    using Change = void (*)(Sample *);
    const struct {
        const char *what;
        Change change;
    } changes[] = {
        {"int", [](Sample *s) { s->count++; }},
        {"double", [](Sample *s) { s->scale = 2.25; }},
        {"yes/no", [](Sample *s) { s->flag = 0; }},
        {"8-bit yes/no", [](Sample *s) { s->flag8 = 0; }},
        {"time", [](Sample *s) { s->when++; }},
        {"string", [](Sample *s) { s->title[0] = 'x'; }},
        {"band text", [](Sample *s) { s->band[0] = '9'; }},
        {"angle", [](Sample *s) { s->angle = 0; }},
        {"colour", [](Sample *s) { s->rgb[2] = 1; }},
        {"list text", [](Sample *s) { s->items->text[0] = '2'; }},
        {"list length",
         [](Sample *s) {
             VLD_free_textnodes(s->items->next);
             s->items->next = nullptr;
         }},
        {"embedded block", [](Sample *s) { s->inner.b = 99; }},
        {"block pointer",
         [](Sample *s) { vld::rec_free(std::exchange(s->optional, nullptr), inner_record); }},
        {"list of blocks",
         [](Sample *s) { vld::rec_free(std::exchange(s->nodes->next, nullptr), node_record); }},
    };
    SamplePtr original = parse_ok(kDocument);
    for (const auto &c : changes) {
        SamplePtr copy(static_cast<Sample *>(vld::rec_dup(original.get(), sample_record)));
        c.change(copy.get());
        EXPECT_FALSE(vld::rec_equal(original.get(), copy.get(), sample_record)) << c.what;
    }
}

TEST(RecordTest, EqualityTreatsNaNAndEmptyTextAsTheDocumentDoes)
{
    SamplePtr a(static_cast<Sample *>(vld::rec_alloc(sample_record)));
    SamplePtr b(static_cast<Sample *>(vld::rec_alloc(sample_record)));
    a->scale = b->scale = std::nan("");
    a->title = strsave("");  // written as nothing, read back as null
    EXPECT_TRUE(vld::rec_equal(a.get(), b.get(), sample_record));
    // A file name written relative and read again comes back as "dir/./name".
    a->path = strsave("/data/./images//a.vld");
    b->path = strsave("/data/images/a.vld");
    EXPECT_TRUE(vld::rec_equal(a.get(), b.get(), sample_record));
    b->path[7] = 'I';
    EXPECT_FALSE(vld::rec_equal(a.get(), b.get(), sample_record));
    b->path[7] = 'i';
    EXPECT_FALSE(vld::rec_equal(a.get(), nullptr, sample_record));
}

TEST(RecordTest, EnumerateCopiesTheTableWithoutItsEnd)
{
    VLD_KEYWORD *table = nullptr;
    int n = vld::rec_enumerate(&table, sample_record);
    EXPECT_EQ(n, 22);
    EXPECT_STREQ(table[1].name, "OldCount");
    EXPECT_STREQ(table[n - 1].name, "Legacy");
    safe_free(table);
}

TEST(RecordTest, MissingFileIsRowOneAndNullWritesFail)
{
    void *record = nullptr;
    EXPECT_EQ(vld::rec_get(&record, "/nonexistent/sample.txt", sample_record), 1);
    EXPECT_NE(record, nullptr);
    vld::rec_free(record, sample_record);
    EXPECT_EQ(vld::rec_write(nullptr, "/tmp/never-written.txt", sample_record), 12);
    vld::rec_free(nullptr, sample_record);  // does nothing
}

}  // namespace
