// Transverse Mercator, UTM and Mercator against the independent projection
// library, forward and backward, and their edge cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>

#include "gdt_fixture.h"
#include "gdt_proj_internal.h"
#include "proj_peer.h"

namespace {

using gdt_test::Engine;
using gdt_test::kDeg;
using gdt_test::kPi;
using gdt_test::Peer;
using gdt_test::Points;

struct Member {
    const char *datum, *projection;
    const char *peer;
    double centre_lon;     /* degrees */
    double half_width;     /* degrees of longitude each side of the centre */
    double lat_lo, lat_hi; /* degrees */
    double tolerance;      /* metres */
    /* The peer inverts by a truncated series (its authalic latitude, about a
     * millimetre) or not everywhere: the backward result is held to the
     * point the peer's forward came from instead. */
    bool peer_inverse_series = false;
};

// The series members agree to 1 cm within 3.5 degrees of the central
// meridian (the peer's series form); closed forms to 1 mm.
const Member kMembers[] = {
    {"WGS84", "NUTM31", "+proj=utm +zone=31 +ellps=WGS84 +approx", 3, 3.5, 0, 84, 0.01},
    {"WGS84", "SUTM55", "+proj=utm +zone=55 +south +ellps=WGS84 +approx", 147, 3.5, -80, 0, 0.01},
    {"WGS84", "NUTM1", "+proj=utm +zone=1 +ellps=WGS84 +approx", -177, 3.5, 0, 84, 0.01},
    {"WGS84", "NUTM60", "+proj=utm +zone=60 +ellps=WGS84 +approx", 177, 3.5, 0, 84, 0.01},
    {"AGD66", "TMAMG55",
     "+proj=tmerc +lon_0=147 +k=0.9996 +x_0=500000 +y_0=10000000 +a=6378160 +rf=298.25 +approx",
     147, 3.5, -45, -10, 0.01},
    {"GDA94", "MGA50",
     "+proj=tmerc +lon_0=117 +k=0.9996 +x_0=500000 +y_0=10000000 +ellps=GRS80 +approx", 117, 3.5,
     -40, -10, 0.01},
    {"OSGB36", "BNG",
     "+proj=tmerc +lat_0=49 +lon_0=-2 +k=0.9996012717 +x_0=400000 +y_0=-100000 +ellps=airy "
     "+approx",
     -2, 3.5, 49, 61, 0.01},
    {"DHDN", "GK3", "+proj=tmerc +lon_0=9 +k=1 +x_0=3500000 +ellps=bessel +approx", 9, 3.5, 47, 56,
     0.01},
    {"SPHERE", "NUTM31", "+proj=tmerc +lon_0=3 +k=0.9996 +x_0=500000 +R=6371000", 3, 30, -80, 80,
     0.001},
    {"WGS84", "MERCATOR", "+proj=merc +ellps=WGS84", 0, 180, -85, 85, 0.001},
    {"SPHERE", "MERCATOR", "+proj=merc +R=6371000", 0, 180, -85, 85, 0.001},
    {"WGS84", "PLATECARREE", "+proj=eqc +R=6378137", 0, 180, -90, 90, 0.001},
    {"WGS84", "MILLER", "+proj=mill +R=6378137", 0, 180, -89, 89, 0.001},
    {"SPHERE", "SINUSOIDAL", "+proj=sinu +R=6371000", 0, 180, -89, 89, 0.001},
    {"WGS84", "SINUSOIDAL", "+proj=sinu +ellps=WGS84", 0, 180, -89, 89, 0.01},
    {"SPHERE", "MOLLWEIDE", "+proj=moll +R=6371000", 0, 180, -90, 90, 0.001},
    {"WGS84", "MOLLWEIDE", "+proj=moll +R=6378137", 0, 180, -90, 90, 0.001},
    {"SPHERE", "ECKERT4", "+proj=eck4 +R=6371000", 0, 180, -90, 90, 0.001},
    {"SPHERE", "ECKERT6", "+proj=eck6 +R=6371000", 0, 180, -90, 90, 0.001},
    {"SPHERE", "ORTHO_EQ", "+proj=ortho +R=6371000", 0, 80, -80, 80, 0.001},
    {"SPHERE", "GNOMONIC_EQ", "+proj=gnom +R=6371000", 0, 60, -60, 60, 0.001},
    {"RGF93", "LAMBERT93",
     "+proj=lcc +lat_1=49 +lat_2=44 +lat_0=46.5 +lon_0=3 +x_0=700000 +y_0=6600000 +ellps=GRS80", 3,
     8, 41, 52, 0.001},
    {"SPHERE", "LAMBERT93",
     "+proj=lcc +lat_1=49 +lat_2=44 +lat_0=46.5 +lon_0=3 +x_0=700000 +y_0=6600000 +R=6371000", 3, 8,
     41, 52, 0.001},
    {"GDA94", "ALBERS_AU", "+proj=aea +lat_1=-18 +lat_2=-36 +lat_0=0 +lon_0=132 +ellps=GRS80", 132,
     22, -44, -10, 0.001},
    {"NAD83", "ALBERS_US", "+proj=aea +lat_1=29.5 +lat_2=45.5 +lat_0=23 +lon_0=-96 +ellps=GRS80",
     -96, 30, 20, 50, 0.001},
    {"WGS84", "UPS_NORTH",
     "+proj=stere +lat_0=90 +lon_0=0 +k=0.994 +x_0=2000000 +y_0=2000000 +ellps=WGS84", 0, 180, 60,
     90, 0.001},
    {"WGS84", "UPS_SOUTH",
     "+proj=stere +lat_0=-90 +lon_0=0 +k=0.994 +x_0=2000000 +y_0=2000000 +ellps=WGS84", 0, 180, -90,
     -60, 0.001},
    {"WGS84", "ANTARCTIC_PS", "+proj=stere +lat_0=-90 +lat_ts=-71 +lon_0=0 +ellps=WGS84", 0, 180,
     -90, -55, 0.001},
    {"AMERSFOORT", "STEREO_NL",
     "+proj=stere +lat_0=52.15616055555555 +lon_0=5.38763888888889 +k=0.9999079 +x_0=155000 "
     "+y_0=463000 +ellps=bessel",
     5.4, 30, 20, 80, 0.001},
    {"SPHERE", "STEREO_NL",
     "+proj=stere +lat_0=52.15616055555555 +lon_0=5.38763888888889 +k=0.9999079 +x_0=155000 "
     "+y_0=463000 +R=6371000",
     5.4, 30, 20, 80, 0.001},
    {"SPHERE", "UPS_SOUTH",
     "+proj=stere +lat_0=-90 +lon_0=0 +k=0.994 +x_0=2000000 +y_0=2000000 +R=6371000", 0, 180, -90,
     -60, 0.001},
    {"ETRS89", "LAEA_EUROPE",
     "+proj=laea +lat_0=52 +lon_0=10 +x_0=4321000 +y_0=3210000 +ellps=GRS80", 10, 40, 25, 75, 0.001,
     true},
    {"SPHERE", "LAEA_EUROPE", "+proj=laea +lat_0=52 +lon_0=10 +x_0=4321000 +y_0=3210000 +R=6371000",
     10, 40, 25, 75, 0.001},
    {"WGS84", "LAEA_NORTH", "+proj=laea +lat_0=90 +lon_0=-40 +ellps=WGS84", 0, 180, 30, 90, 0.001,
     true},
    {"DHDN", "SOLDNER_BERLIN",
     "+proj=cass +lat_0=52.41864827777778 +lon_0=13.62720366666667 +x_0=40000 +y_0=10000 "
     "+ellps=bessel",
     13.6, 3, 48, 56, 0.01},
    {"SPHERE", "SOLDNER_BERLIN",
     "+proj=cass +lat_0=52.41864827777778 +lon_0=13.62720366666667 +x_0=40000 +y_0=10000 "
     "+R=6371000",
     13.6, 10, 30, 70, 0.001},
    {"WGS84", "BONNE_EUROPE", "+proj=bonne +lat_1=45 +lon_0=10 +ellps=WGS84", 10, 40, 30, 70, 0.01},
    {"SPHERE", "BONNE_EUROPE", "+proj=bonne +lat_1=45 +lon_0=10 +R=6371000", 10, 40, 30, 70, 0.001},
    {"WGS84", "EQDC_RUSSIA", "+proj=eqdc +lat_0=55 +lon_0=100 +lat_1=47 +lat_2=62 +ellps=WGS84",
     100, 60, 40, 75, 0.01},
    {"SPHERE", "EQDC_RUSSIA", "+proj=eqdc +lat_0=55 +lon_0=100 +lat_1=47 +lat_2=62 +R=6371000", 100,
     60, 40, 75, 0.001},
    {"WGS84", "WINKEL_TRIPEL", "+proj=wintri +R=6378137", 0, 179, -89, 89, 0.001},
    {"WGS84", "POLYCONIC_BRAZIL", "+proj=poly +lon_0=-54 +x_0=5000000 +y_0=10000000 +ellps=WGS84",
     -54, 20, -33, 5, 0.01},
    {"SPHERE", "POLYCONIC_BRAZIL", "+proj=poly +lon_0=-54 +x_0=5000000 +y_0=10000000 +R=6371000",
     -54, 20, -33, 5, 0.001},
    // The bridge to GCTP, whose spheroid argument is fixed at 0 (Clarke 1866);
    // numbers not given are 0.
    {"WGS84", "USGS 1 31", "+proj=utm +zone=31 +ellps=clrk66 +approx", 3, 3.5, 0, 84, 0.01},
    {"WGS84", "USGS 1 -55", "+proj=utm +zone=55 +south +ellps=clrk66 +approx", 147, 3.5, -80, 0,
     0.01},
    {"WGS84", "USGS 5 0 0 0 0 0 0 0 500000", "+proj=merc +ellps=clrk66 +x_0=500000", 0, 180, -80,
     80, 0.001},
    {"SPHERE", "ALBERS_US", "+proj=aea +lat_1=29.5 +lat_2=45.5 +lat_0=23 +lon_0=-96 +R=6371000",
     -96, 30, 20, 50, 0.001},
    // Van der Grinten: the peer's closed form cancels digits near the
    // central meridian and the equator (a decimetre at worst, millimetres
    // over this domain); ours is held to the exact meridian near it below.
    {"SPHERE", "VANDERGRINTEN", "+proj=vandg +R=6371000", 0, 180, -89, 89, 0.01},
    {"WGS84", "VANDERGRINTEN", "+proj=vandg +R=6378137", 0, 180, -89, 89, 0.01},
    {"SPHERE", "AZEQ_WORLD", "+proj=aeqd +R=6371000", 0, 179, -89, 89, 0.001},
    {"SPHERE", "AZEQ_EUROPE", "+proj=aeqd +lat_0=52 +lon_0=10 +R=6371000", 10, 170, -30, 89, 0.001},
    {"WGS84", "AZEQ_NORTH", "+proj=aeqd +lat_0=90 +ellps=WGS84", 0, 180, 0, 90, 0.001},
    {"WGS84", "AZEQ_SOUTH", "+proj=aeqd +lat_0=-90 +ellps=WGS84", 0, 180, -90, 0, 0.001},
    {"WGS84", "AZEQ_EUROPE", "+proj=aeqd +lat_0=52 +lon_0=10 +ellps=WGS84", 10, 40, 25, 75, 0.001},
    {"WGS84", "AZEQ_WORLD", "+proj=aeqd +ellps=WGS84", 0, 90, -60, 60, 0.001},
    {"NTF", "NTF_LAMBERT_IIE",
     "+proj=lcc +lat_1=46.8 +lat_0=46.8 +lon_0=2.337229166666667 +k_0=0.99987742 +x_0=600000 "
     "+y_0=2200000 +a=6378249.2 +rf=293.4660212936269",
     2.3, 8, 41, 52, 0.001},
    {"WGS84", "JAMAICA_GRID",
     "+proj=lcc +lat_1=18 +lat_0=18 +lon_0=-77 +k_0=1 +x_0=750000 +y_0=650000 +ellps=WGS84", -77, 3,
     16, 20, 0.001},
    {"NAD83", "OMALSK1M",
     "+proj=omerc +lat_0=57 +lonc=-133.6666666666667 +alpha=323.1301023611111 "
     "+gamma=323.1301023611111 +k=0.9999 +x_0=5000000 +y_0=-5000000 +ellps=GRS80",
     -134, 8, 52, 62, 0.001},
    {"SPHERE", "OMALSK1M",
     "+proj=omerc +lat_0=57 +lonc=-133.6666666666667 +alpha=323.1301023611111 "
     "+gamma=323.1301023611111 +k=0.9999 +x_0=5000000 +y_0=-5000000 +R=6371000",
     -134, 30, 30, 80, 0.001},
    {"ED50", "NAKHL_E_TAQI",
     "+proj=omerc +no_uoff +lat_0=27.51882880555555 +lonc=52.60353916666667 "
     "+alpha=0.5716611944444444 +gamma=0.5716611944444444 +k=0.999895934 +x_0=658377.437 "
     "+y_0=3044969.194 +ellps=intl",
     52.6, 5, 24, 31, 0.001},
    {"TIMBALAI1948", "RSO_BORNEO",
     "+proj=omerc +lat_0=4 +lonc=115 +alpha=53.31582047222222 +gamma=53.13010236111111 "
     "+k=0.99984 +x_0=590476.87 +y_0=442857.65 +a=6377298.556 +rf=300.8017",
     115, 6, 0, 8, 0.001},
    {"AMERSFOORT", "RD_NEW",
     "+proj=sterea +lat_0=52.15616055555555 +lon_0=5.38763888888889 +k=0.9999079 +x_0=155000 "
     "+y_0=463000 +ellps=bessel",
     5.4, 4, 50, 54, 0.001},
    {"CH1903", "SWISS_LV03",
     "+proj=somerc +lat_0=46.95240555555556 +lon_0=7.439583333333333 +k_0=1 +x_0=600000 "
     "+y_0=200000 +ellps=bessel",
     8, 4, 45, 48.5, 0.001},
    {"NZGD49", "NZMG", "+proj=nzmg +lat_0=-41 +lon_0=173 +x_0=2510000 +y_0=6023150 +ellps=intl",
     172, 7, -47.5, -34, 0.001},
    {"NAD83", "LM2CONNM",
     "+proj=lcc +lat_1=41.86666666666667 +lat_2=41.2 +lat_0=40.83333333333334 +lon_0=-72.75 "
     "+x_0=304800.6096 +y_0=152400.3048 +ellps=GRS80",
     -72.75, 4, 39, 44, 0.001},
    {"NAD83", "LM2TXCM",
     "+proj=lcc +lat_1=31.88333333333333 +lat_2=30.11666666666667 +lat_0=29.66666666666667 "
     "+lon_0=-100.3333333333333 +x_0=700000 +y_0=3000000 +ellps=GRS80",
     -100.3, 15, 20, 50, 0.001},
    {"SPHERE", "LM2TXCM",
     "+proj=lcc +lat_1=31.88333333333333 +lat_2=30.11666666666667 +lat_0=29.66666666666667 "
     "+lon_0=-100.3333333333333 +x_0=700000 +y_0=3000000 +R=6371000",
     -100.3, 60, 0, 85, 0.001},
    {"NTF", "NTF_LAMBERT_I",
     "+proj=lcc +lat_1=49.5 +lat_0=49.5 +lon_0=2.337229166666667 +k_0=0.99987734 +x_0=600000 "
     "+y_0=200000 +a=6378249.2 +rf=293.4660212936269",
     2.3, 8, 45, 55, 0.001},
    // The peer inverts Laborde's series by a truncated series of its own
    // (centimetres); ours inverts the forward exactly.
    {"TANANARIVE", "LABORDE_MADAGASCAR",
     "+proj=labrd +lat_0=-18.9 +lon_0=46.43722916666667 +azi=18.9 +k_0=0.9995 +x_0=400000 "
     "+y_0=800000 +ellps=intl",
     46.9, 4, -26, -11.5, 0.001, true},
    // The peer stops its inverse at 1e-10 of the radius (0.6 mm).
    {"ED50", "IMW_NL32", "+proj=imw_p +lat_1=44 +lat_2=48 +lon_0=9 +ellps=intl", 9, 4, 43, 49,
     0.001},
    {"SPHERE", "IMW_NL32", "+proj=imw_p +lat_1=44 +lat_2=48 +lon_0=9 +R=6371000", 9, 4, 43, 49,
     0.001},
    {"SPHERE", "MILLER_OS", "+proj=mil_os +R=6371000", 20, 60, -35, 70, 0.001},
    // The peer holds Clarke 1866 for these with e^2 rounded to 0.00676866,
    // about 2e-9 from the datum's: a few millimetres on the map.
    {"NAD27", "GS50", "+proj=gs50 +ellps=clrk66", -120, 30, 25, 65, 0.01},
    {"NAD27", "ALASKA_MS", "+proj=alsk +ellps=clrk66", -152, 20, 52, 72, 0.01},
    {"SPHERE", "JAMAICA_GRID",
     "+proj=lcc +lat_1=18 +lat_0=18 +lon_0=-77 +k_0=1 +x_0=750000 +y_0=650000 +R=6371000", -77, 40,
     -10, 80, 0.001},
};

class ProjTranmerc : public Engine, public ::testing::WithParamInterface<Member> {};

TEST_P(ProjTranmerc, AgreesWithThePeerAndRoundTrips)
{
    const Member &m = GetParam();
    Peer peer(m.peer);
    ASSERT_TRUE(peer.ok()) << m.peer;
    int ll = system(m.datum, "GEODETIC", "radians");
    int en = system(m.datum, m.projection);
    ASSERT_GT(ll, 0);
    ASSERT_GT(en, 0);
    double radius = 6.4e6;
    Points points(std::hash<std::string>{}(m.projection) ^ 0x9e3779b97f4a7c15ULL);
    double worst_forward = 0, worst_backward = 0, worst_trip = 0;
    int compared = 0;
    for (int i = 0; i < 1200; i++) {
        double lon = (m.centre_lon + points.uniform(-m.half_width, m.half_width)) * kDeg;
        double lat = points.uniform(m.lat_lo, m.lat_hi) * kDeg;
        lon = gdt_normal_pi(lon);
        double x, y, px, py;
        ASSERT_EQ(carry(ll, en, lon, lat, x, y), 0) << lon / kDeg << " " << lat / kDeg;
        ASSERT_TRUE(peer.forward(lon, lat, px, py));
        worst_forward = std::max({worst_forward, std::fabs(x - px), std::fabs(y - py)});
        double blon, blat, plon, plat;
        ASSERT_EQ(carry(en, ll, px, py, blon, blat), 0) << lon / kDeg << " " << lat / kDeg;
        if (m.peer_inverse_series) {
            plon = lon;
            plat = lat;
        } else {
            ASSERT_TRUE(peer.backward(px, py, plon, plat));
        }
        double dlon = std::remainder(blon - plon, 2 * kPi) * std::cos(plat);
        worst_backward =
            std::max({worst_backward, std::fabs(dlon) * radius, std::fabs(blat - plat) * radius});
        double tlon, tlat;
        ASSERT_EQ(carry(en, ll, x, y, tlon, tlat), 0);
        // Longitude differences count at the size they have on the ground.
        worst_trip =
            std::max({worst_trip, std::fabs(std::remainder(tlon - lon, 2 * kPi)) * std::cos(lat),
                      std::fabs(tlat - lat)});
        compared++;
    }
    EXPECT_GE(compared, 1000);
    EXPECT_LT(worst_forward, m.tolerance) << m.projection << " on " << m.datum;
    EXPECT_LT(worst_backward, m.tolerance) << m.projection << " on " << m.datum;
    EXPECT_LT(worst_trip, 1e-9) << m.projection << " on " << m.datum;
    RecordProperty("worst_forward_m", std::to_string(worst_forward));
    RecordProperty("worst_backward_m", std::to_string(worst_backward));
    std::printf("%-8s %-8s forward %.3g m, backward %.3g m, round trip %.3g rad\n", m.datum,
                m.projection, worst_forward, worst_backward, worst_trip);
}

INSTANTIATE_TEST_SUITE_P(Members, ProjTranmerc, ::testing::ValuesIn(kMembers),
                         [](const ::testing::TestParamInfo<Member> &info) {
                             std::string name =
                                 std::string(info.param.datum) + "_" + info.param.projection;
                             for (char &c : name)
                                 if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                             return name;
                         });

using ProjEdges = Engine;

TEST_F(ProjEdges, PolesInfiniteLinesAndZoneCentres)
{
    int wgs = system("WGS84", "GEODETIC", "radians");
    int sphere = system("SPHERE", "GEODETIC", "radians");
    int amersfoort = system("AMERSFOORT", "GEODETIC", "radians");
    int ch1903 = system("CH1903", "GEODETIC", "radians");
    int nzgd49 = system("NZGD49", "GEODETIC", "radians");
    struct Case {
        int source;
        const char *datum, *projection;
        double lon, lat; /* degrees */
        int status;
        double x, y; /* expected, where NaN is not checked */
    } cases[] = {
        // At the pole the ellipsoidal series gives the central meridian.
        {wgs, "WGS84", "NUTM31", 40, 90, 0, 500000, NAN},
        {wgs, "WGS84", "NUTM31", -100, -90, 0, 500000, NAN},
        {sphere, "SPHERE", "NUTM31", 40, 90, 0, 500000, NAN},
        // A point 90 degrees from the centre on the equator is on the sphere's infinite line.
        {sphere, "SPHERE", "NUTM31", 93, 0, 2, NAN, NAN},
        {sphere, "SPHERE", "NUTM31", -87, 0, 2, NAN, NAN},
        // Zone 1 is centred on -177 degrees, zone 60 on 177.
        {wgs, "WGS84", "NUTM1", -177, 10, 0, 500000, NAN},
        {wgs, "WGS84", "NUTM60", 177, 10, 0, 500000, NAN},
        {wgs, "WGS84", "SUTM60", 177, 0, 0, 500000, 10000000},
        {wgs, "WGS84", "MERCATOR", 10, 90, 2, NAN, NAN},
        // Beyond the horizon of the perspective views.
        {sphere, "SPHERE", "ORTHO_EQ", 100, 0, 1, NAN, NAN},
        {sphere, "SPHERE", "ORTHO_EUROPE", -170, -40, 1, NAN, NAN},
        {sphere, "SPHERE", "ORTHO_EQ", 89, 0, 0, NAN, 0},
        {sphere, "SPHERE", "GNOMONIC_EQ", 90, 10, 1, NAN, NAN},
        {sphere, "SPHERE", "GNOMONIC_NP", 30, -5, 1, NAN, NAN},
        {sphere, "SPHERE", "GNOMONIC_NP", 30, 90, 0, 0, 0},
        // The stereographic views' antipodes.
        {wgs, "WGS84", "UPS_NORTH", 30, -90, 4, NAN, NAN},
        {sphere, "SPHERE", "STEREO_NL", 5.38763888888889 - 180, -52.15616055555555, 4, NAN, NAN},
        {wgs, "WGS84", "UPS_NORTH", 30, 90, 0, 2000000, 2000000},
        {sphere, "SPHERE", "LAEA_EUROPE", -170, -52, 4, NAN, NAN},
        {wgs, "WGS84", "LAEA_NORTH", -40, 90, 0, 0, 0},
        // The cone's apex, and its far pole at infinity.
        {wgs, "WGS84", "LAMBERT93", 3, 90, 0, 700000, NAN},
        {wgs, "WGS84", "LAMBERT93", 3, -90, 1, NAN, NAN},
        {wgs, "WGS84", "JAMAICA_GRID", -77, -90, 1, NAN, NAN},
        // The national grids' origins.
        {amersfoort, "AMERSFOORT", "RD_NEW", 5.38763888888889, 52.15616055555555, 0, 155000,
         463000},
        {ch1903, "CH1903", "SWISS_LV03", 7.439583333333333, 46.95240555555556, 0, 600000, 200000},
        {nzgd49, "NZGD49", "NZMG", 173, -41, 0, 2510000, 6023150},
        // The oblique Mercator's central point, and its line at infinity
        // (the central line's poles on the aposphere, 90 degrees away).
        {wgs, "WGS84", "OMALSK1M", -133.6666666666667, 57, 0, 5000000, -5000000},
        {sphere, "SPHERE", "NAKHL_E_TAQI", 142.339401887888, -0.506981104248, 2, NAN, NAN},
        {wgs, "WGS84", "JAMAICA_GRID", -77, 18, 0, 750000, 650000},
        // The world maps' corners: the pole and the edge of the equator.
        {sphere, "SPHERE", "VANDERGRINTEN", 40, 90, 0, 0, kPi * 6371000},
        // A hair off the central meridian, where the closed form would lose
        // kilometres: the meridian's own northing, pi R tan(theta / 2).
        {sphere, "SPHERE", "VANDERGRINTEN", 1e-7, 60, 0, NAN,
         kPi * 6371000 * std::tan(std::asin(2.0 / 3) / 2)},
        {sphere, "SPHERE", "VANDERGRINTEN", -1e-9, -5, 0, NAN,
         -kPi * 6371000 * std::tan(std::asin(1.0 / 18) / 2)},
        {sphere, "SPHERE", "VANDERGRINTEN", -180, 0, 0, -kPi * 6371000, 0},
        {wgs, "WGS84", "ROBINSON", -180, -90, 0, -0.8487 * 6378137 * 0.5322 * kPi,
         -1.3523 * 6378137},
        // The azimuthal equidistant views' antipodes, and their origins.
        {wgs, "WGS84", "AZEQ_NORTH", 0, -90, 4, NAN, NAN},
        {wgs, "WGS84", "AZEQ_NORTH", 30, 90, 0, 0, 0},
        {sphere, "SPHERE", "AZEQ_EUROPE", -170, -52, 4, NAN, NAN},
        {wgs, "WGS84", "AZEQ_EUROPE", 10, 52, 0, 0, 0},
    };
    for (const Case &c : cases) {
        int target = system(c.datum, c.projection);
        double x = NAN, y = NAN;
        int status = carry(c.source, target, c.lon * kDeg, c.lat * kDeg, x, y);
        EXPECT_EQ(status, c.status) << c.projection << " " << c.lon << " " << c.lat;
        if (!std::isnan(c.x)) {
            EXPECT_NEAR(x, c.x, 1e-6) << c.projection;
        }
        if (!std::isnan(c.y)) {
            EXPECT_NEAR(y, c.y, 1e-6) << c.projection;
        }
    }
}

TEST_F(ProjEdges, RobinsonAtTheRowsOfItsTableAndBetween)
{
    // The peer interpolates the table by its own polynomials: the two agree
    // only at the rows of the published table, every 5 degrees, and there up
    // to the peer's copy of the table, held in single precision (a relative
    // 2^-24 of each value). Our values at the rows are the published ones.
    Peer peer("+proj=robin +R=6378137");
    ASSERT_TRUE(peer.ok());
    int ll = system("WGS84", "GEODETIC", "radians");
    int en = system("WGS84", "ROBINSON");
    Points points(7);
    double worst_forward = 0, worst_backward = 0, worst_trip = 0;
    int compared = 0;
    for (int row = -18; row <= 18; row++) {
        for (int i = 0; i < 30; i++) {
            double lon = points.uniform(-179.9, 179.9) * kDeg, lat = row * 5 * kDeg;
            double x, y, px, py, blon, blat;
            ASSERT_EQ(carry(ll, en, lon, lat, x, y), 0);
            ASSERT_TRUE(peer.forward(lon, lat, px, py));
            double single = 1.2e-7;
            EXPECT_NEAR(x, px, std::fabs(px) * single + 0.001) << row * 5;
            EXPECT_NEAR(y, py, std::fabs(py) * single + 0.001) << row * 5;
            // The table itself: x = 0.8487 R X lon, y = 1.3523 R Y.
            int k = std::abs(row);
            const double length[] = {1.0000, 0.9986, 0.9954, 0.9900, 0.9822, 0.9730, 0.9600,
                                     0.9427, 0.9216, 0.8962, 0.8679, 0.8350, 0.7986, 0.7597,
                                     0.7186, 0.6732, 0.6213, 0.5722, 0.5322};
            const double distance[] = {0.0000, 0.0620, 0.1240, 0.1860, 0.2480, 0.3100, 0.3720,
                                       0.4340, 0.4958, 0.5571, 0.6176, 0.6769, 0.7346, 0.7903,
                                       0.8435, 0.8936, 0.9394, 0.9761, 1.0000};
            double tx = 0.8487 * 6378137 * length[k] * lon;
            double ty = (row < 0 ? -1 : 1) * 1.3523 * 6378137 * distance[k];
            worst_forward = std::max({worst_forward, std::fabs(x - tx), std::fabs(y - ty)});
            // Backward from the peer's point, to the peer's rounding.
            ASSERT_EQ(carry(en, ll, px, py, blon, blat), 0);
            EXPECT_NEAR(blon, lon, std::fabs(lon) * single + 1e-9) << row * 5;
            EXPECT_NEAR(blat, lat, std::fabs(lat) * single + 1e-9) << row * 5;
            // Backward from the table's point, exactly.
            ASSERT_EQ(carry(en, ll, tx, ty, blon, blat), 0);
            double dlon = std::remainder(blon - lon, 2 * kPi) * std::cos(lat);
            worst_backward = std::max(
                {worst_backward, std::fabs(dlon) * 6378137, std::fabs(blat - lat) * 6378137});
            compared++;
        }
    }
    // Between the rows the interpolation must still be continuous and
    // invertible: round trips at random points.
    for (int i = 0; i < 1000; i++) {
        double lon = points.uniform(-179.9, 179.9) * kDeg, lat = points.uniform(-90, 90) * kDeg;
        double x, y, tlon, tlat;
        ASSERT_EQ(carry(ll, en, lon, lat, x, y), 0);
        ASSERT_EQ(carry(en, ll, x, y, tlon, tlat), 0);
        worst_trip =
            std::max({worst_trip, std::fabs(std::remainder(tlon - lon, 2 * kPi)) * std::cos(lat),
                      std::fabs(tlat - lat)});
    }
    EXPECT_GE(compared, 1000);
    EXPECT_LT(worst_forward, 0.001);
    EXPECT_LT(worst_backward, 0.001);
    EXPECT_LT(worst_trip, 1e-9);
    std::printf("WGS84    ROBINSON forward %.3g m, backward %.3g m, round trip %.3g rad\n",
                worst_forward, worst_backward, worst_trip);
}

TEST_F(ProjEdges, SouthOrientedGridNegatesTranmerc)
{
    // stm has no published system in the tables; its block is tranmerc's with
    // the sign flag, so one block run both ways shows the convention.
    int id = system("WGS84", "GEODETIC", "degrees");
    int tm = gdt::find_base("tranmerc"), stm = gdt::find_base("stm");
    gdt_delete_coord_sys(&id);
    ASSERT_GE(stm, 0);
    const gdt::Base *a = gdt::base_at(tm), *b = gdt::base_at(stm);
    std::vector<char> block_a(a->block_size), block_b(b->block_size);
    const char *names[] = {"scale_factor", "spheroid.radius", "spheroid.eccentricity",
                           "centre_merid"};
    const double values[] = {1.0, 6378137.0, 0.0818191908426215, 25 * kDeg};
    for (int i = 0; i < 4; i++) {
        std::memcpy(block_a.data() + struct_offset(a->description, names[i]), &values[i], 8);
        std::memcpy(block_b.data() + struct_offset(b->description, names[i]), &values[i], 8);
    }
    ASSERT_EQ(a->init(block_a.data()), 0);
    ASSERT_EQ(b->init(block_b.data()), 0);
    double x1, y1, x2, y2, lon, lat;
    ASSERT_EQ(a->forward(block_a.data(), 27 * kDeg, -30 * kDeg, &x1, &y1), 0);
    ASSERT_EQ(b->forward(block_b.data(), 27 * kDeg, -30 * kDeg, &x2, &y2), 0);
    EXPECT_EQ(x2, -x1);
    EXPECT_EQ(y2, -y1);
    ASSERT_EQ(b->backward(block_b.data(), x2, y2, &lon, &lat), 0);
    EXPECT_NEAR(lon, 27 * kDeg, 1e-10);
    EXPECT_NEAR(lat, -30 * kDeg, 1e-10);
}

}  // namespace

namespace {

TEST_F(ProjEdges, PointsOffTheMapGoingBackward)
{
    int ll = system("WGS84", "GEODETIC", "radians");
    struct Case {
        const char *projection;
        double x, y;
        int status;
    } cases[] = {
        {"WINKEL_TRIPEL", 5e7, 5e7, -2},       // no convergence of the generic solver
        {"MOLLWEIDE", 0, 1e8, 1},              // beyond the ellipse
        {"ORTHO_EQ", 7e6, 0, 1},               // beyond the disc of the globe
        {"SOLDNER_BERLIN", 1e12, 1e12, -2},    // the scaled solver leaves the map
        {"ROBINSON", 0, 9e6, 1},               // beyond the pole's line
        {"ROBINSON", 2e7, 0, 1},               // beyond the edge of the equator
        {"VANDERGRINTEN", 2.1e7, 0, 1},        // beyond the circle of the world
        {"AZEQ_WORLD", 0, 2.1e7, 1},           // past the antipode, on the ellipsoid
        {"AZEQ_NORTH", 0, 4.1e7, 1},           // past the south pole's circle
        {"NZMG", 1e9, 1e9, -2},                // the complex series diverges
        {"RD_NEW", 1e9, -1e9, -2},             // the generic solver leaves the globe
        {"LABORDE_MADAGASCAR", 1e9, 1e9, -2},  // likewise
        {"IMW_NL32", 1e9, 1e9, -2},            // the secant iteration leaves the globe
        {"BIPOLAR_AMERICAS", 1e9, 1e9, 1},     // beyond both cones
        {"SWISS_LV03", 1e9, 1e9, 1},           // beyond the cut of the cylinder
    };
    for (const Case &c : cases) {
        int en =
            system(strcmp(c.projection, "SOLDNER_BERLIN") == 0 ? "DHDN" : "WGS84", c.projection);
        double lon, lat;
        EXPECT_EQ(carry(en, ll, c.x, c.y, lon, lat), c.status) << c.projection;
    }
}

}  // namespace

namespace {

TEST_F(ProjEdges, DanishSystemsRefuseNamingTheMissingCoefficients)
{
    for (const char *name : {"S34J", "S34S", "S45B"}) {
        gdt_test::messages.clear();
        EXPECT_LE(gdt_crelock_coord_sys("ED50", name, "metres"), 0) << name;
        EXPECT_TRUE(gdt_test::said("polynomial coefficients")) << name;
        EXPECT_TRUE(gdt_test::said("s34j, s34s and s45b")) << name;
    }
}

}  // namespace

namespace {

TEST_F(ProjEdges, LambertConeOfParallelsAboutTheEquatorIsMercator)
{
    // Parallels symmetric about the equator give no cone: the member maps as
    // Mercator true at those parallels, which the peer has.
    int id = system("WGS84", "GEODETIC", "degrees");
    gdt_delete_coord_sys(&id);
    const gdt::Base *base = gdt::base_at(gdt::find_base("lambert2"));
    ASSERT_NE(base, nullptr);
    std::vector<char> block(base->block_size);
    const char *names[] = {"scale_factor", "spheroid.radius", "spheroid.eccentricity",
                           "centre_merid", "first_paral",     "second_paral"};
    const double values[] = {1.0, 6378137.0, 0.0818191908426215, 20 * kDeg, 30 * kDeg, -30 * kDeg};
    for (int i = 0; i < 6; i++)
        std::memcpy(block.data() + struct_offset(base->description, names[i]), &values[i], 8);
    ASSERT_EQ(base->init(block.data()), 0);
    Peer peer("+proj=merc +lat_ts=30 +lon_0=20 +ellps=WGS84");
    Points points(11);
    for (int i = 0; i < 200; i++) {
        double lon = points.uniform(-160, 200) * kDeg, lat = points.uniform(-85, 85) * kDeg;
        double x, y, px, py, blon, blat;
        ASSERT_EQ(base->forward(block.data(), lon, lat, &x, &y), 0);
        ASSERT_TRUE(peer.forward(gdt_normal_pi(lon), lat, px, py));
        EXPECT_NEAR(x, px, 0.001);
        EXPECT_NEAR(y, py, 0.001);
        ASSERT_EQ(base->backward(block.data(), x, y, &blon, &blat), 0);
        EXPECT_NEAR(std::remainder(blon - lon, 2 * kPi), 0, 1e-9);
        EXPECT_NEAR(blat, lat, 1e-9);
    }
    double x, y;
    EXPECT_EQ(base->forward(block.data(), 0, 90 * kDeg, &x, &y), 1);
}

}  // namespace

namespace {

TEST_F(ProjEdges, BipolarConicRoundTripsAndJoinsItsCones)
{
    // The peer's version of this map differs from the published construction
    // (its correction along the seam and its turn of the plane), so the map
    // is held to its own properties: it inverts, and the two cones meet
    // without a break along the line through the poles where the forward
    // changes cone.
    int ll = system("SPHERE", "GEODETIC", "radians");
    int en = system("SPHERE", "BIPOLAR_AMERICAS");
    Points points(5);
    double worst_trip = 0;
    for (int i = 0; i < 1000; i++) {
        double lon = points.uniform(-125, -35) * kDeg, lat = points.uniform(-50, 70) * kDeg;
        double x, y, tlon, tlat;
        if (carry(ll, en, lon, lat, x, y) != 0) continue; /* beyond both cones */
        ASSERT_EQ(carry(en, ll, x, y, tlon, tlat), 0) << lon / kDeg << " " << lat / kDeg;
        worst_trip =
            std::max({worst_trip, std::fabs(tlon - lon) * std::cos(lat), std::fabs(tlat - lat)});
    }
    EXPECT_LT(worst_trip, 1e-9);
    // Along the great circle from A (20 S, 110 W) to B (45 N, 19 59 36 W),
    // where the choice of cone flips, points a hair apart stay close.
    double lat_a = -20 * kDeg, lon_a = -110 * kDeg, lat_b = 45 * kDeg,
           lon_b = -(19 + 59 / 60.0 + 36 / 3600.0) * kDeg;
    for (double f : {0.2, 0.35, 0.5, 0.65, 0.8}) {
        // A point a fraction f of the way, by spherical interpolation.
        double ax = std::cos(lat_a) * std::cos(lon_a), ay = std::cos(lat_a) * std::sin(lon_a),
               az = std::sin(lat_a);
        double bx = std::cos(lat_b) * std::cos(lon_b), by = std::cos(lat_b) * std::sin(lon_b),
               bz = std::sin(lat_b);
        double omega = std::acos(ax * bx + ay * by + az * bz);
        double wa = std::sin((1 - f) * omega) / std::sin(omega),
               wb = std::sin(f * omega) / std::sin(omega);
        double px = wa * ax + wb * bx, py = wa * ay + wb * by, pz = wa * az + wb * bz;
        double lon = std::atan2(py, px), lat = std::atan2(pz, std::hypot(px, py));
        // The step across the line is as long as the same step beside it, to
        // the metre by which the published construction leaves the cones
        // apart: its poles lie 104.00001 degrees apart, not 104.
        double x1, y1, x2, y2, x3, y3;
        ASSERT_EQ(carry(ll, en, lon - 1e-7, lat, x1, y1), 0) << f;
        ASSERT_EQ(carry(ll, en, lon + 1e-7, lat, x2, y2), 0) << f;
        ASSERT_EQ(carry(ll, en, lon + 3e-7, lat, x3, y3), 0) << f;
        EXPECT_NEAR(std::hypot(x2 - x1, y2 - y1), std::hypot(x3 - x2, y3 - y2), 2) << f;
    }
}

}  // namespace

namespace {

/* A member's block with the given attributes set; the rest are zero. */
struct Setting {
    const char *name;
    double value;
};
std::vector<char> member_block(const gdt::Base *base, std::initializer_list<Setting> settings)
{
    std::vector<char> block(base->block_size);
    for (const Setting &s : settings) {
        int offset = struct_offset(base->description, s.name);
        EXPECT_GE(offset, 0) << s.name;
        if (offset < 0) continue;
        if (std::strcmp(s.name, "num_const") == 0) {
            int32_t v = static_cast<int32_t>(s.value);
            std::memcpy(block.data() + offset, &v, sizeof v);
        } else {
            std::memcpy(block.data() + offset, &s.value, sizeof s.value);
        }
    }
    return block;
}

TEST_F(ProjEdges, InitialiseRefusesParametersThatMakeNoMap)
{
    int id = system("WGS84", "GEODETIC", "degrees");
    gdt_delete_coord_sys(&id);
    const double a = 6378137, e = 0.0818191908426215;
    struct Case {
        const char *base;
        std::initializer_list<Setting> settings;
    } cases[] = {
        // A cone on the equator is no cone; a parallel at the pole is its apex.
        {"lamcon1", {{"spheroid.radius", a}, {"scale_factor", 1}, {"centre_lat", 0}}},
        {"lambert1", {{"spheroid.radius", a}, {"scale_factor", 1}, {"centre_lat", 0}}},
        {"lambert2",
         {{"spheroid.radius", a},
          {"scale_factor", 1},
          {"first_paral", kPi / 2},
          {"second_paral", 0.5}}},
        // The oblique Mercator's centre at a pole has no central line.
        {"obmerc_b", {{"spheroid.radius", a}, {"scale_factor", 1}, {"origin_lat", kPi / 2}}},
        {"modstero", {{"spheroid.radius", a}, {"num_const", 0}, {"coeff_a1", 1}}},
        {"modstero", {{"spheroid.radius", a}, {"num_const", 11}, {"coeff_a1", 1}}},
        {"modstero", {{"spheroid.radius", a}, {"num_const", 2}}},
        // One true parallel, or two symmetric about the equator, make no sheet.
        {"modpol", {{"spheroid.radius", a}, {"first_paral", 0.8}, {"second_paral", 0.8}}},
        {"modpol", {{"spheroid.radius", a}, {"first_paral", -0.3}, {"second_paral", 0.3}}},
        {"swiss", {{"spheroid.radius", a}, {"spheroid.eccentricity", e}, {"centre_lat", kPi / 2}}},
        {"labordom", {{"spheroid.radius", a}, {"scale_factor", 1}, {"origin_lat", kPi / 2}}},
        {"azimuted", {{"spheroid.radius", a}, {"origin_lat", 2.0}}},
        {"robinson", {{"spheroid.radius", 0}}},
        {"danish_uts", {{"sub_proj_type", 0}}},
    };
    for (const Case &c : cases) {
        const gdt::Base *base = gdt::base_at(gdt::find_base(c.base));
        ASSERT_NE(base, nullptr) << c.base;
        std::vector<char> block = c.base == std::string("danish_uts")
                                      ? std::vector<char>(base->block_size)
                                      : member_block(base, c.settings);
        EXPECT_EQ(base->init(block.data()), -1) << c.base;
    }
}

TEST_F(ProjEdges, HotineVariantsDifferOnlyInTheirOriginOnTheCentralLine)
{
    // The same line, the same grid: only where its origin lies differs, so
    // the two grids differ by one constant shift.
    int id = system("WGS84", "GEODETIC", "degrees");
    gdt_delete_coord_sys(&id);
    const gdt::Base *b = gdt::base_at(gdt::find_base("obmerc_b"));
    const gdt::Base *c = gdt::base_at(gdt::find_base("obmerc_c"));
    ASSERT_NE(b, nullptr);
    ASSERT_NE(c, nullptr);
    auto settings = {Setting{"spheroid.radius", 6378137.0},
                     Setting{"spheroid.eccentricity", 0.0818191908426215},
                     Setting{"scale_factor", 0.9996},
                     Setting{"azimuth_angl", 0.6},
                     Setting{"origin_lat", 0.9},
                     Setting{"origin_long", -2.0}};
    std::vector<char> block_b = member_block(b, settings), block_c = member_block(c, settings);
    ASSERT_EQ(b->init(block_b.data()), 0);
    ASSERT_EQ(c->init(block_c.data()), 0);
    double xb, yb, xc, yc, dx = NAN, dy = NAN;
    Points points(3);
    for (int i = 0; i < 50; i++) {
        double lon = -2.0 + points.uniform(-0.2, 0.2), lat = 0.9 + points.uniform(-0.2, 0.2);
        ASSERT_EQ(b->forward(block_b.data(), lon, lat, &xb, &yb), 0);
        ASSERT_EQ(c->forward(block_c.data(), lon, lat, &xc, &yc), 0);
        if (i == 0) {
            dx = xc - xb;
            dy = yc - yb;
            // The centre is the origin of obmerc_b, and far from obmerc_c's.
            EXPECT_GT(std::hypot(dx, dy), 1e5);
        }
        EXPECT_NEAR(xc - xb, dx, 1e-6);
        EXPECT_NEAR(yc - yb, dy, 1e-6);
    }
    ASSERT_EQ(b->forward(block_b.data(), -2.0, 0.9, &xb, &yb), 0);
    EXPECT_NEAR(xb, 0, 1e-6);
    EXPECT_NEAR(yb, 0, 1e-6);
}

}  // namespace
