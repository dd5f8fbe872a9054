// Lookups that go with formulae (word tables, band descriptions, variable
// values) and the installing of a formula in a stream.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "formula_fixture.h"

namespace {

TEST(FormulaLookup, WordTablesBothWays)
{
    const struct {
        int (*find)(const char *);
        const char *(*text)(int);
        const char *word;
        int type;
    } rows[] = {
        {find_dctype, dctype_text, "mean", DC_MEAN},
        {find_dctype, dctype_text, "INVPC_CORR", DC_INVPC_CORR},
        {find_dctype, dctype_text, "NRLINES", DC_NRROWS},
        {find_dctype, dctype_text, "AVERAGE", 0},
        {find_sctype, sctype_text, "pi", SC_PI},
        {find_sctype, sctype_text, "E", SC_E},
        {find_optype, optype_text, "<=", OP_LE},
        {find_optype, optype_text, "-", OP_SUBTRACT},
        {find_optype, optype_text, "not", OP_NOT},
        {find_optype, optype_text, "<>", 0},
        {find_fftype, fftype_text, "log10", FF_LOG10},
        {find_fftype, fftype_text, "CEIL", FF_CEIL},
        {find_fftype, fftype_text, "", 0},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.find(row.word), row.type) << row.word;
        if (row.type != 0 && strcmp(row.word, "NRLINES") != 0) {
            EXPECT_EQ(strcasecmp(row.text(row.type), row.word), 0) << row.word;
        }
    }
    EXPECT_STREQ(dctype_text(DC_NRROWS), "NRROWS");
    EXPECT_EQ(find_dctype(nullptr), 0);
    EXPECT_STREQ(dctype_text(28), "Unknown dataset constant type: 28");
    EXPECT_STREQ(sctype_text(0), "Unknown symbolic constant type: 0");
    EXPECT_STREQ(optype_text(-3), "Unknown operator type: -3");
    EXPECT_STREQ(fftype_text(99), "Unknown formula function type: 99");
}

/* A raster header with the given bands (value, units); a null value leaves a
 * band's strings unset. */
dshdr *raster(std::initializer_list<std::pair<const char *, const char *>> bands,
              bool with_records = true)
{
    dshdr *h = nullptr;
    ea_dshdr(&h);
    h->data_type = DT_Raster;
    h->info.r.nr_bands = static_cast<int32_t>(bands.size());
    if (!with_records) return h;
    h->info.r.bandids = static_cast<bandid *>(malloc_or_die(bands.size() * sizeof(bandid)));
    memset(h->info.r.bandids, 0, bands.size() * sizeof(bandid));
    int i = 0;
    for (const auto &b : bands) {
        h->info.r.bandids[i].value = b.first ? strsave(b.first) : nullptr;
        h->info.r.bandids[i].units = b.second ? strsave(b.second) : nullptr;
        i++;
    }
    return h;
}

TEST(FormulaLookup, BandIndexFromDescription)
{
    dshdr *h = raster({{"Red", nullptr}, {"0.85", "um"}, {"Thermal", "K"}, {nullptr, nullptr}});
    const struct {
        const char *description;
        int index;
    } rows[] = {
        {"red", 0},   {"0.85 um", 1},   {"0.85_um", 1},   {"0.85\t  um  ", 1},
        {"0.85", -1}, {"Thermal K", 2}, {"thermal_k", 2}, {"", 3},
        {"Blue", -1}, {"Red nm", -1},   {nullptr, -1},
    };
    for (const auto &row : rows)
        EXPECT_EQ(find_band_index(h, row.description), row.index)
            << (row.description ? row.description : "(null)");

    char *d = find_band_desc(h, 1);
    EXPECT_STREQ(d, "0.85 um");
    EXPECT_EQ(find_band_index(h, d), 1);
    safe_free(d);
    d = find_band_desc(h, 0);
    EXPECT_STREQ(d, "Red");
    safe_free(d);
    EXPECT_EQ(find_band_desc(h, 4), nullptr);
    EXPECT_EQ(find_band_desc(h, -1), nullptr);
    ef_dshdr(h);

    dshdr *one = raster({{"None", nullptr}});
    EXPECT_EQ(find_band_index(one, nullptr), 0);
    EXPECT_EQ(find_band_desc(one, 0), nullptr);
    ef_dshdr(one);

    dshdr *bare = raster({{"a", nullptr}, {"b", nullptr}}, false);
    EXPECT_EQ(find_band_index(bare, "a"), -1);
    EXPECT_EQ(find_band_desc(bare, 0), nullptr);
    bandid any{};
    EXPECT_EQ(find_bandindex_from_bandid(&bare->info.r, &any), -1);
    bare->data_type = DT_Vector;
    EXPECT_EQ(find_band_index(bare, nullptr), -1);
    ef_dshdr(bare);
}

TEST(FormulaLookup, VariableValuesIgnoreCase)
{
    variablearg vars[] = {{const_cast<char *>("Gain"), 2.0}, {const_cast<char *>("bias"), -1.0}};
    double value = 0;
    EXPECT_EQ(find_variable_value("GAIN", 2, vars, &value), 1);
    EXPECT_EQ(value, 2.0);
    EXPECT_EQ(find_variable_value("bias", 2, vars, nullptr), 1);
    EXPECT_EQ(find_variable_value("bias", 1, vars, &value), 0);
    EXPECT_EQ(set_variable_value("BIAS", 2, vars, 7.5), 1);
    EXPECT_EQ(vars[1].value, 7.5);
    EXPECT_EQ(set_variable_value("other", 2, vars, 1.0), 0);
}

/* A stream on a dataset of `bands` bands, with a formula installed. */
struct StreamFixture : ::testing::Test {
    stream *st = nullptr;
    void SetUp() override
    {
        ea_stream(&st);
        st->dataset = strsave("/data/scene.vld");
        st->dshdr = raster({{"1", nullptr}, {"2", nullptr}, {"3", nullptr}});
    }
    void TearDown() override { ef_stream(st); }
    int nr_inputs() const
    {
        int n = 0;
        for (streaminput *in = st->stream_inputs; in; in = in->next) n++;
        return n;
    }
};

TEST_F(StreamFixture, GenericFormulaBindsInputsRegionsDatasetsAndVariables)
{
    ASSERT_EQ(new_generic_formula(st, "SIGMA(I1..I4 | I?) * Gain + MEAN(D1, R1) + INREGION(R2)"),
              0);
    const formula &f = st->formula;
    EXPECT_STREQ(f.formula, "SIGMA(I1..I4 | I?) * Gain + MEAN(D1, R1) + INREGION(R2)");
    ASSERT_EQ(f.nr_args, 4);
    EXPECT_EQ(nr_inputs(), 4);
    // Inputs beyond the dataset's last band fall back to band 1.
    const char *bands[] = {"1", "2", "3", "1"};
    for (int i = 0; i < 4; i++) EXPECT_STREQ(f.args[i].band_number, bands[i]) << i;
    ASSERT_EQ(f.nr_region_args, 2);
    EXPECT_STREQ(f.region_args[1].region_name, "All");
    ASSERT_EQ(f.nr_dataset_args, 1);
    EXPECT_STREQ(f.dataset_args[0].dataset_name, "/data/scene.vld");
    ASSERT_EQ(f.nr_variable_args, 1);
    EXPECT_STREQ(f.variable_args[0].name, "Gain");

    // Editing keeps the bindings and variable values the user chose.
    st->formula.variable_args[0].value = 3.5;
    ASSERT_EQ(new_formula_band(&st->formula, 2, 3, st->dshdr), 0);
    ASSERT_EQ(new_generic_formula(st, "I1 + I2 * GAIN"), 0);
    EXPECT_EQ(st->formula.nr_args, 2);
    EXPECT_STREQ(st->formula.args[1].band_number, "3");
    EXPECT_EQ(st->formula.variable_args[0].value, 3.5);
    EXPECT_EQ(st->formula.nr_region_args, 0);
    EXPECT_EQ(nr_inputs(), 4);  // stream inputs are reused, not removed
}

TEST_F(StreamFixture, Failures)
{
    EXPECT_EQ(new_generic_formula(st, nullptr), 87);
    EXPECT_STREQ(VLD_error.text, "Syntax error in generic formula:  Generic formula is NULL");
    EXPECT_EQ(new_generic_formula(st, "I1 +"), 87);
    EXPECT_STREQ(VLD_error.text,
                 "Syntax error in generic formula:  parse error - near end of formula.");

    ASSERT_EQ(new_generic_formula(st, "I1 + I2"), 0);
    dshdr *vector = nullptr;
    ea_dshdr(&vector);
    vector->data_type = DT_Vector;
    const struct {
        formula *f;
        int input, band;
        const dshdr *h;
        int status;
    } rows[] = {
        {nullptr, 1, 1, st->dshdr, 91},       {&st->formula, 1, 1, nullptr, 117},
        {&st->formula, 1, 1, vector, 118},    {&st->formula, 1, 4, st->dshdr, 122},
        {&st->formula, 1, 0, st->dshdr, 122}, {&st->formula, 3, 1, st->dshdr, 90},
        {&st->formula, 0, 1, st->dshdr, 90},  {&st->formula, 2, 1, st->dshdr, 0},
    };
    for (const auto &row : rows)
        EXPECT_EQ(new_formula_band(row.f, row.input, row.band, row.h), row.status);
    ef_dshdr(vector);
}

TEST(FormulaNames, DatasetNamesBecomeRelativeAndAbsolute)
{
    char dir[] = "/tmp/vorlan_formula_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string file = std::string(dir) + "/scene.vld";
    FILE *fp = fopen(file.c_str(), "w");
    ASSERT_NE(fp, nullptr);
    fclose(fp);

    // Every quoted string equal to a dataset name is rewritten, as a text
    // replacement would; other strings are left alone.
    auto formula_with = [](const std::string &name) {
        return "MEAN('" + name + "', R1) + u_f1(USERSTATS('" + name + "', 'r', I1)) + INREGION('" +
               name + "') + MEAN('other')";
    };
    char *text = strsave(formula_with(file).c_str());
    VLNfrm_convert_to_rel(&text, dir);
    std::string relative = text;
    EXPECT_EQ(relative.find(dir), std::string::npos) << relative;
    EXPECT_NE(relative.find("scene.vld"), std::string::npos) << relative;
    EXPECT_NE(relative.find("'other'"), std::string::npos) << relative;
    VLNfrm_convert_to_abs(&text, dir);
    EXPECT_EQ(std::string(text), formula_with(file));
    safe_free(text);

    text = strsave("MEAN('/data/a/x.vld' +");
    VLNfrm_convert_to_rel(&text, "/data/a");
    EXPECT_STREQ(text, "MEAN('/data/a/x.vld' +");
    safe_free(text);
    remove(file.c_str());
    rmdir(dir);
}

}  // namespace
