/* coords_fixture.h: datasets, spaces and a stand-in coordinate engine for the
 * coordinate suites.
 *
 * The stand-in knows two flat projections on a sphere ("FLAT": easting
 * R*lon + 500000, northing R*lat; "FLAT2": the same with a false easting of
 * 1000000), in "METERS" or "FEET", "WRAP" (as "FLAT", but longitudes past
 * half a turn come back wrapped, so that points far east don't return), and
 * "GEODETIC" (radians when the units say so, else degrees). Datums are only
 * names with a radius (kRadius, and "AGD66" a little more), except that
 * creating a system on datum "BAD" fails, and has no radius, and one on "NOTE"
 * sends a note of class P. A point beyond the pole fails to transform. It
 * records what the conversions asked of it. */
#ifndef VORLAN_TESTS_COORDS_FIXTURE_H
#define VORLAN_TESTS_COORDS_FIXTURE_H

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "vld_coords.h"
#include "vld_coords_internal.h"

namespace coords {

constexpr double kPi = 3.14159265358979323846;
constexpr double kRad = kPi / 180.0;
constexpr double kRadius = 6378137.0;
constexpr double kAgdRadius = 6378160.0;

/* A space whose strings live as long as the object. */
struct Space {
    std::string datum, projection, units;
    coordspace cs{};
    Space(int type, std::string d, std::string p, std::string u = "METERS", double rot = 0.0,
          double factor = 1.0)
        : datum(std::move(d)), projection(std::move(p)), units(std::move(u))
    {
        cs.coordsystype = type;
        cs.rotation = rot;
        cs.meter_factor = factor;
        cs.datum = datum.data();
        cs.projection = projection.data();
        cs.units = units.data();
    }
    Space(const Space &) = delete;
};

/* A raster header over `space` that owns nothing. */
inline dshdr raster(const coordspace &space, double xd, double yd, double rx, double ry,
                    dscoord reg)
{
    dshdr d{};
    d.data_type = DT_Raster;
    d.coordspace = space;
    d.info.r.cellinfo.x_dimension = xd;
    d.info.r.cellinfo.y_dimension = yd;
    d.info.r.registration_cell_x = rx;
    d.info.r.registration_cell_y = ry;
    d.info.r.registration_coord = reg;
    return d;
}

inline dscoord at(double x, double y)
{
    return dscoord{x, y, std::nan("")};
}

/* ---------------------------------------------------------------- the stand-in engine */

struct FakeEngine {
    struct System {
        std::string datum, projection, units;
    };
    std::map<int, System> live;
    int next_id = 1;
    std::vector<std::string> created;  // "datum/projection/units" of each creation
    std::vector<int> deleted;
    std::vector<int> modes;          // every mode asked for
    std::vector<std::string> radii;  // the datum of each radius asked for
    bool refuse_mode_1 = false;
    int source = 0, target = 0;
    void (*handler)(const char *) = nullptr;

    void say(const char *message)
    {
        if (handler) handler(message);
    }
};

inline FakeEngine *fake = nullptr;

inline bool is_geodetic(const FakeEngine::System &s)
{
    return s.projection == "GEODETIC";
}

/* System coordinates to radians, and back. */
inline bool to_geodetic(const FakeEngine::System &s, double x, double y, double &lon, double &lat)
{
    if (is_geodetic(s)) {
        double k = s.units == "radians" ? 1.0 : kRad;
        lon = x * k;
        lat = y * k;
        return true;
    }
    double f = s.units == "FEET" ? 0.3048 : 1.0;
    double fe = s.projection == "FLAT2" ? 1000000.0 : 500000.0;
    lon = (x * f - fe) / kRadius;
    lat = y * f / kRadius;
    if (s.projection == "WRAP" && std::fabs(lon) > kPi) lon = std::remainder(lon, 2 * kPi);
    return true;
}

inline void from_geodetic(const FakeEngine::System &s, double lon, double lat, double &x, double &y)
{
    if (is_geodetic(s)) {
        double k = s.units == "radians" ? 1.0 : kRad;
        x = lon / k;
        y = lat / k;
        return;
    }
    double f = s.units == "FEET" ? 0.3048 : 1.0;
    double fe = s.projection == "FLAT2" ? 1000000.0 : 500000.0;
    x = (kRadius * lon + fe) / f;
    y = kRadius * lat / f;
}

inline const vld::CoordEngine kFakeTable = {
    [](const char *d, const char *p, const char *u) -> int {
        fake->created.push_back(std::string(d) + "/" + p + "/" + u);
        if (std::strcmp(d, "BAD") == 0) {
            fake->say("U1:Unknown datum BAD");
            return -1;
        }
        if (std::strcmp(d, "NOTE") == 0) fake->say("P:Inconsistent datum/projection pair");
        int id = fake->next_id++;
        fake->live[id] = {d, p, u};
        return id;
    },
    [](int *id) -> int {
        fake->deleted.push_back(*id);
        fake->live.erase(*id);
        return 0;
    },
    [](int *id) -> int {
        if (!fake->live.count(*id)) return -1;
        fake->source = *id;
        return 0;
    },
    [](int *id) -> int {
        if (!fake->live.count(*id)) return -1;
        fake->target = *id;
        return 0;
    },
    [](int *mode) -> int {
        fake->modes.push_back(*mode);
        return *mode == 1 && fake->refuse_mode_1 ? -1 : 0;
    },
    [](double *x, double *y, double *z, double *ox, double *oy, double *oz) -> int {
        const auto &s = fake->live.at(fake->source);
        const auto &t = fake->live.at(fake->target);
        double lon, lat;
        to_geodetic(s, *x, *y, lon, lat);
        if (std::fabs(lat) > kPi / 2 + 1e-12) {
            fake->say("U2:Latitude beyond the pole");
            return -1;
        }
        from_geodetic(t, lon, lat, *ox, *oy);
        *oz = *z;
        return 0;
    },
    [](int *id, const char *entity, const char *attribute, const char *, void *out, int) -> int {
        const auto &s = fake->live.at(*id);
        if (std::strcmp(entity, "units") != 0) return -1;
        bool feet = s.units == "FEET";
        if (std::strcmp(attribute, "horizontal_factor") == 0) {
            *static_cast<double *>(out) = feet ? 0.3048 : 1.0;
            return 0;
        }
        std::strcpy(static_cast<char *>(out), feet ? "Feet" : "Meters");
        return 0;
    },
    [](void (*h)(const char *)) -> int {
        fake->handler = h;
        return 0;
    },
    [](const char *datum, double *radius) -> int {
        fake->radii.push_back(datum);
        if (std::strcmp(datum, "BAD") == 0) return -1;
        *radius = std::strcmp(datum, "AGD66") == 0 ? kAgdRadius : kRadius;
        return 0;
    },
};

/* Installs the stand-in for one test, and takes it away afterwards. */
class WithEngine : public ::testing::Test {
   protected:
    FakeEngine engine;
    void SetUp() override
    {
        fake = &engine;
        vld::set_coord_engine(&kFakeTable);
    }
    void TearDown() override
    {
        vld::set_coord_engine(nullptr);
        fake = nullptr;
    }
};

}  // namespace coords

#endif
