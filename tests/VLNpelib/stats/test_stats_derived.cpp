// What is derived from stored statistics: the correlation matrix, the
// eigenvectors of a band subset, and the vldstats of a band list with its
// areas, deviations, determinants and inverse.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "vln_stats.h"

namespace {

TEST(StatsDerived, CorrelationDividesByTheRootsOfTheVariances)
{
    struct Case {
        std::vector<double> covariance, correlation;
    } cases[] = {
        {{4, 2, 2, 9}, {1, 2.0 / 6, 2.0 / 6, 1}},
        {{1, -0.5, 0, -0.5, 0.25, 0.1, 0, 0.1, 16}, {1, -1, 0, -1, 1, 0.1 / 2, 0, 0.1 / 2, 1}},
        // A zero variance gives what the division gives.
        {{0, 0, 0, 1}, {NAN, NAN, NAN, 1}},
        {{0, 1, 1, 1}, {NAN, INFINITY, INFINITY, 1}},
    };
    for (const Case &c : cases) {
        int n = static_cast<int>(std::sqrt(c.covariance.size()));
        std::vector<double> result(c.covariance.size(), -7.0);
        setup_correlation_matrix(result.data(), c.covariance.data(), n);
        std::vector<double> in_place = c.covariance;
        setup_correlation_matrix(in_place.data(), in_place.data(), n);
        for (size_t i = 0; i < result.size(); i++) {
            if (std::isnan(c.correlation[i])) {
                EXPECT_TRUE(std::isnan(result[i])) << i;
            } else {
                EXPECT_DOUBLE_EQ(result[i], c.correlation[i]) << i;
            }
            EXPECT_EQ(std::isnan(in_place[i]), std::isnan(result[i])) << i;
            if (!std::isnan(result[i])) {
                EXPECT_EQ(in_place[i], result[i]) << i;
            }
        }
    }
}

TEST(StatsDerived, EigenvectorsOfABandSubset)
{
    const double m[9] = {5, 1, 2, 1, 7, 0.5, 2, 0.5, 3};
    struct Case {
        std::vector<int> bands;
    } cases[] = {{{0, 1, 2}}, {{2, 0}}, {{1}}};
    for (const Case &c : cases) {
        int n = static_cast<int>(c.bands.size());
        double *values = nullptr, *vectors = nullptr;
        ASSERT_EQ(calc_evec(&values, &vectors, n, c.bands.data(), m, 3), 0);
        for (int k = 0; k < n; k++) {
            if (k > 0) {
                EXPECT_GE(values[k - 1], values[k]);
            }
            // Sub * v = value * v, with v column k.
            for (int i = 0; i < n; i++) {
                double sum = 0.0;
                for (int j = 0; j < n; j++)
                    sum += m[c.bands[i] * 3 + c.bands[j]] * vectors[j * n + k];
                EXPECT_NEAR(sum, values[k] * vectors[i * n + k], 1e-12);
            }
        }
        safe_free(values);
        safe_free(vectors);
    }
    double *values = reinterpret_cast<double *>(1), *vectors = reinterpret_cast<double *>(1);
    const int bad[] = {0, 3};
    EXPECT_NE(calc_evec(&values, &vectors, 2, bad, m, 3), 0);
    EXPECT_EQ(values, nullptr);
    EXPECT_EQ(vectors, nullptr);
}

/* A stored record of three bands. */
msstats *three_bands()
{
    msstats *m = nullptr;
    ea_msstats_spec(&m, 3);
    const double covariance[9] = {4, 1, 0.5, 1, 9, 2, 0.5, 2, 16};
    for (int b = 0; b < 3; b++) {
        m->non_null_cells[b] = 100 * (b + 1);
        m->null_cells[b] = b;
        m->minimum[b] = -b;
        m->maximum[b] = 10 + b;
        m->mean[b] = 5 + b;
        m->median[b] = 4 + b;
    }
    std::copy(covariance, covariance + 9, m->covariance);
    return m;
}

TEST(StatsDerived, VldstatsOfABandList)
{
    msstats *m = three_bands();
    dshdr *d = nullptr;
    df_raster_dshdr(&d, "/tmp/x.vld", 4, 4, 3, Unsigned8BitInteger);
    d->info.r.cellinfo.x_dimension = 30;
    d->info.r.cellinfo.y_dimension = 20;
    const int list[] = {2, 0};
    char *error = nullptr;
    vldstats *s = setup_vldstats(d, "Field", m, list, 2, &error);
    ASSERT_NE(s, nullptr) << (error ? error : "");
    EXPECT_STREQ(s->region_name, "Field");
    EXPECT_STREQ(s->dataset_name, "/tmp/x.vld");
    EXPECT_EQ(s->band_numbers[0], 3);
    EXPECT_EQ(s->band_numbers[1], 1);
    EXPECT_EQ(s->non_null_cells[0], 300);
    EXPECT_EQ(s->mean[1], 5.0);
    EXPECT_DOUBLE_EQ(s->hectares[0], 600.0 * 300 / 10000);
    EXPECT_DOUBLE_EQ(s->acres[1], 600.0 * 100 / 10000 * 2.471054);
    // The covariance of bands 3 and 1, in that order.
    const double sub[4] = {16, 0.5, 0.5, 4};
    for (int i = 0; i < 4; i++) EXPECT_EQ(s->covariance[i], sub[i]);
    EXPECT_DOUBLE_EQ(s->correlation[1], 0.5 / 8);
    EXPECT_DOUBLE_EQ(s->covariance_determinant, 16 * 4 - 0.25);
    EXPECT_DOUBLE_EQ(s->correlation_determinant, 1 - (0.5 / 8) * (0.5 / 8));
    EXPECT_DOUBLE_EQ(s->standard_deviation_nm1[0], 4.0);
    EXPECT_DOUBLE_EQ(s->standard_deviation[0], 4.0 * std::sqrt(299.0 / 300));
    for (int i = 0; i < 2; i++)
        for (int j = 0; j < 2; j++) {
            double product = 0.0;
            for (int k = 0; k < 2; k++)
                product += s->covariance[i * 2 + k] * s->inverse_covariance[k * 2 + j];
            EXPECT_NEAR(product, i == j, 1e-12);
            EXPECT_EQ(s->covariance_eigenvectors_transposed[i * 2 + j],
                      s->covariance_eigenvectors[j * 2 + i]);
        }
    EXPECT_DOUBLE_EQ(s->covariance_eigenvalues[0] + s->covariance_eigenvalues[1], 20.0);
    ef_vldstats(s);

    // Without a covariance the rest is there and the matrices aren't.
    safe_free(m->covariance);
    m->covariance = nullptr;
    s = setup_vldstats(nullptr, nullptr, m, nullptr, 3, nullptr);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->band_numbers[2], 3);
    EXPECT_EQ(s->hectares[2], 300.0 / 10000);
    EXPECT_EQ(s->covariance, nullptr);
    EXPECT_EQ(s->standard_deviation, nullptr);
    ef_vldstats(s);
    ef_vldstats(nullptr);
    ef_msstats(m);
    ef_dshdr(d);
}

TEST(StatsDerived, VldstatsFailures)
{
    msstats *m = three_bands();
    struct Case {
        const msstats *stats;
        std::vector<int> bands;
        const char *text;
    } cases[] = {
        {nullptr, {0}, "Stats not calculated for R"},
        {m, {0, 3}, "Band 4 not in statistics of R"},
    };
    for (const Case &c : cases) {
        char *error = nullptr;
        EXPECT_EQ(setup_vldstats(nullptr, "R", c.stats, c.bands.data(),
                                 static_cast<int>(c.bands.size()), &error),
                  nullptr);
        ASSERT_NE(error, nullptr);
        EXPECT_STREQ(error, c.text);
        safe_free(error);
    }
    // A singular covariance (a constant band) can't be inverted.
    for (int i = 0; i < 3; i++) m->covariance[i * 3 + 1] = m->covariance[3 + i] = 0.0;
    char *error = nullptr;
    EXPECT_EQ(setup_vldstats(nullptr, "R", m, nullptr, 3, &error), nullptr);
    ASSERT_NE(error, nullptr);
    EXPECT_STREQ(error, "ERROR calculating inverse of covariance matrix");
    safe_free(error);
    ef_msstats(m);
}

}  // namespace
