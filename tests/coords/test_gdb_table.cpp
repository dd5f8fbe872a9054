// The table layer: finding tables, rows and columns, and its failures.
#include <gtest/gtest.h>

#include <cstring>

#include "gdt_fixture.h"

namespace {

using gdt_test::OwnTables;
using gdt_test::said;

using GdbTable = OwnTables;

TEST_F(GdbTable, RowsAreFoundCaseInsensitivelyAndWholeKeysOnly)
{
    table("t", "key,a,b\nALPHA, 1 ,x\nalphabet,2,y\r\nBeta,\t3\t,\n,4,z\nGAMMA\n");
    ASSERT_EQ(gdb_set_table("t"), 0);
    struct Case {
        const char *key;
        int found;
        int32_t a;
    } cases[] = {{"alpha", 0, 1},   {"ALPHABET", 0, 2}, {"beta", 0, 3},  {"alp", -1, 0},
                 {"alphab", -1, 0}, {"delta", -1, 0},   {"gamma", 0, -7}};
    for (const Case &c : cases) {
        int32_t a = -7;
        ASSERT_EQ(gdb_set_name_key(c.key), c.found) << c.key;
        if (c.found == 0) {
            int loaded = gdb_load("a", "l", &a);
            EXPECT_EQ(loaded, c.a == -7 ? 1 : 0) << c.key;
            EXPECT_EQ(a, c.a) << c.key;
        }
    }
}

TEST_F(GdbTable, FieldsAreTrimmedAndMissingOnesAreEmpty)
{
    table("t", "key, text ,num\nK1,  two words  ,2.5\nK2\n");
    ASSERT_EQ(gdb_set_table("t"), 0);
    ASSERT_EQ(gdb_set_name_key("k1"), 0);
    char text[512] = "";
    ASSERT_EQ(gdb_load("text", "s", text), 0);
    EXPECT_STREQ(text, "two words");
    char c = 0;
    ASSERT_EQ(gdb_load("text", "c", &c), 0);
    EXPECT_EQ(c, 't');
    double d = 0;
    ASSERT_EQ(gdb_load("num", "d", &d), 0);
    EXPECT_EQ(d, 2.5);
    ASSERT_EQ(gdb_set_name_key("K2"), 0);
    d = 9;
    EXPECT_EQ(gdb_load("num", "d", &d), 1);
    EXPECT_EQ(d, 9);
    EXPECT_EQ(gdb_load("none", "d", &d), -1);
    EXPECT_TRUE(said("GDB:Att name not found"));
    EXPECT_EQ(gdb_load("num", "x", &d), -1);
    EXPECT_TRUE(said("GDB:Bad data type"));
}

TEST_F(GdbTable, KeysIterateInFileOrder)
{
    table("t", "key,v\nA,1\n\nB,2\nC,3\n");
    table("empty", "key,v\n");
    ASSERT_EQ(gdb_set_table("t"), 0);
    char key[20];
    std::string seen;
    while (gdb_next_name_key(key) == 0) seen += key;
    EXPECT_EQ(seen, "ABC");
    EXPECT_EQ(gdb_next_name_key(nullptr), 0);
    ASSERT_EQ(gdb_next_name_key(key), 0);
    EXPECT_STREQ(key, "A");
    ASSERT_EQ(gdb_set_table("empty"), 0);
    EXPECT_EQ(gdb_next_name_key(key), 1);

    ASSERT_EQ(gdb_set_table("t"), 0);
    char name[512];
    std::string columns;
    while (gdb_next_column_name(name) == 0) columns += std::string(name) + ";";
    EXPECT_EQ(columns, "key;v;");
}

TEST_F(GdbTable, RefusalsOfNamesKeysAndState)
{
    table("t", "key,v\nA,1\n");
    // Without a table every row operation reports.
    gdt::gdb_reset();
    setenv("GDT_DATA_PATH", dir.file("").c_str(), 1);
    EXPECT_EQ(gdb_set_name_key("A"), -1);
    EXPECT_TRUE(said("GDB:No table in gdb_set_key"));
    char key[20];
    EXPECT_EQ(gdb_next_name_key(key), -1);
    EXPECT_TRUE(said("GDB:No table in gdb_next_name_key"));
    // Names of 20 characters or more are refused before any file is opened.
    gdt_test::messages.clear();
    EXPECT_EQ(gdb_set_table("abcdefghijklmnopqrst"), -1);
    EXPECT_TRUE(gdt_test::messages.empty());
    ASSERT_EQ(gdb_set_table("t"), 0);
    EXPECT_EQ(gdb_set_name_key("ABCDEFGHIJKLMNOPQRST"), -1);
    EXPECT_EQ(gdb_set_table("missing"), -1);
    EXPECT_TRUE(said("GDB:opening the file"));
    // Choosing a table drops the chosen row.
    ASSERT_EQ(gdb_set_table("t"), 0);
    ASSERT_EQ(gdb_set_name_key("A"), 0);
    ASSERT_EQ(gdb_set_table("t"), 0);
    int32_t v;
    EXPECT_EQ(gdb_load("v", "l", &v), -1);
    EXPECT_TRUE(said("GDB:No key for gdb_load"));
    EXPECT_EQ(gdb_set_db(7), -1);
    EXPECT_TRUE(said("GDB:Bad database type"));
}

TEST_F(GdbTable, LongLinesAreCutAndTheSeventhTableReusesTheSixthSlot)
{
    std::string long_value(700, 'x');
    table("t", "key,v,w\nA," + long_value + ",1\nB,2,3\n");
    ASSERT_EQ(gdb_set_table("t"), 0);
    ASSERT_EQ(gdb_set_name_key("A"), 0);
    char v[512];
    ASSERT_EQ(gdb_load("v", "s", v), 0);
    EXPECT_EQ(std::strlen(v), 509u);
    ASSERT_EQ(gdb_set_name_key("B"), 0);

    for (int i = 0; i < 7; i++)
        table("t" + std::to_string(i), "key,v\nK," + std::to_string(i) + "\n");
    for (int i = 0; i < 7; i++) {
        ASSERT_EQ(gdb_set_table(("t" + std::to_string(i)).c_str()), 0) << i;
        ASSERT_EQ(gdb_set_name_key("k"), 0) << i;
        int32_t n = -1;
        ASSERT_EQ(gdb_load("v", "l", &n), 0);
        EXPECT_EQ(n, i);
    }
    // Every table still answers after the churn.
    ASSERT_EQ(gdb_set_table("t"), 0);
    EXPECT_EQ(gdb_set_name_key("b"), 0);
}

TEST(GdbPath, DirectoryRules)
{
    struct Case {
        const char *gdt_data_path;
        const char *vorlan;
        const char *expected;
    } cases[] = {{"/data/gdt", "/v", "/data/gdt/"},
                 {"/data/gdt/", "/v", "/data/gdt/"},
                 {nullptr, "/v", "/v/GDT_DATA/"},
                 {nullptr, nullptr, "/GDT_DATA/"}};
    const char *vorlan = getenv("VORLAN");
    std::string saved = vorlan ? vorlan : "";
    for (const Case &c : cases) {
        gdt::gdb_reset();
        if (c.gdt_data_path)
            setenv("GDT_DATA_PATH", c.gdt_data_path, 1);
        else
            unsetenv("GDT_DATA_PATH");
        if (c.vorlan)
            setenv("VORLAN", c.vorlan, 1);
        else
            unsetenv("VORLAN");
        EXPECT_STREQ(gdb_path(), c.expected);
        EXPECT_STREQ(gdb_grid_path(), c.expected);
    }
    unsetenv("GDT_DATA_PATH");
    if (vorlan) setenv("VORLAN", saved.c_str(), 1);
    gdt::gdb_reset();
}

TEST_F(GdbTable, AMissingDirectoryIsNamedWhenTheEngineStarts)
{
    setenv("GDT_DATA_PATH", "/nonexistent/gdt", 1);
    gdt::gdb_reset();
    EXPECT_EQ(gdt_crelock_coord_sys("WGS84", "GEODETIC", "degrees"), -1);
    EXPECT_TRUE(said("/nonexistent/gdt/")) << gdt_test::messages.back();
}

TEST_F(GdbTable, StructLoadFillsClassOneAttributesAndNeedsEveryColumn)
{
    struct Block {
        double a;
        int32_t n;
        char c;
        double hidden;
    } proto{}, block{};
    ASSERT_EQ(struct_begin("test", &proto), 0);
    struct_add("a", &proto.a, "d");
    struct_add("n", &proto.n, "l");
    struct_add("c", &proto.c, "c");
    struct_add(".hidden", &proto.hidden, "d");
    gdt_struct_desc *d = struct_end();
    ASSERT_NE(d, nullptr);
    table("t",
          "key,a,n,c,hidden\nFULL,1.5,7,S,9\nPART,1.5,,S,9\nHUGE,1,5.7e10,S,9\nNAN,1,nan,S,9\n");
    ASSERT_EQ(gdb_set_table("t"), 0);
    ASSERT_EQ(gdb_set_name_key("full"), 0);
    ASSERT_EQ(gdb_struct_load(d, &block), 0);
    EXPECT_EQ(block.a, 1.5);
    EXPECT_EQ(block.n, 7);
    EXPECT_EQ(block.c, 'S');
    EXPECT_EQ(block.hidden, 0.0);
    ASSERT_EQ(gdb_set_name_key("part"), 0);
    EXPECT_EQ(gdb_struct_load(d, &block), -1);
    // Numbers beyond an integer attribute's range are clamped to it.
    ASSERT_EQ(gdb_set_name_key("huge"), 0);
    ASSERT_EQ(gdb_struct_load(d, &block), 0);
    EXPECT_EQ(block.n, 2147483647);
    ASSERT_EQ(gdb_set_name_key("nan"), 0);
    ASSERT_EQ(gdb_struct_load(d, &block), 0);
    EXPECT_EQ(block.n, 0);
    free(d);
}

}  // namespace

namespace {

TEST_F(GdbTable, LongFieldsOfADatumRowAreCutToTheRecord)
{
    // A text field may be as long as its line; the engine keeps a short copy.
    table("datum_sp",
          "name,code,radius,eccentricity,metre_factor,prime_merid\nLONG,1,6378137,0.08,1," +
              std::string(400, '7') + "\n");
    table("project", "name,type,metre_factor\n");
    table("datumcha", "name,change_type\n");
    table("bursawol", "name,translation_x\n");
    int id = gdt_crelock_coord_sys("LONG", "GEODETIC", "degrees");
    ASSERT_GT(id, 0) << gdt_test::messages.back();
    char attribute[64] = "name", type[4] = "s", name[32];
    ASSERT_EQ(gdt_inq_coord_sys(&id, "datum", attribute, type, name, sizeof name), 0);
    EXPECT_STREQ(name, "LONG");
    gdt_delete_coord_sys(&id);
}

}  // namespace
