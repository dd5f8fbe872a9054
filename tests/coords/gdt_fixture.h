/* gdt_fixture.h: what the suites of the coordinate module share: the engine's
 * messages captured, tables written to a folder of a test's own, and a fresh
 * engine over the installed tables or over those. */
#ifndef VORLAN_TESTS_GDT_FIXTURE_H
#define VORLAN_TESTS_GDT_FIXTURE_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <string>
#include <vector>

#include "gdt_coords.h"
#include "gdt_internal.h"
#include "temp_dir.h"

namespace gdt_test {

inline std::vector<std::string> messages;

inline void capture(const char *message)
{
    messages.push_back(message);
}

inline bool said(const std::string &part)
{
    for (const std::string &m : messages)
        if (m.find(part) != std::string::npos) return true;
    return false;
}

constexpr double kPi = 3.14159265358979323846;
constexpr double kDeg = kPi / 180;

/* A fresh engine over the installed tables, its messages captured. */
class Engine : public ::testing::Test {
   protected:
    void SetUp() override
    {
        unsetenv("GDT_DATA_PATH");
        gdt::engine_reset();
        messages.clear();
        gdt_install_error(capture);
    }
    void TearDown() override
    {
        gdt::engine_reset();
        gdt_install_error(nullptr);
    }
    /* A locked system, or a failed test. */
    int system(const char *datum, const char *projection, const char *units = "metres")
    {
        int id = gdt_crelock_coord_sys(datum, projection, units);
        EXPECT_GT(id, 0) << datum << " " << projection << ": "
                         << (messages.empty() ? "" : messages.back());
        return id;
    }
    /* One point from system a to b; the status of the transform. */
    int carry(int a, int b, double x, double y, double &ox, double &oy, int mode = 0)
    {
        gdt_set_source(&a);
        gdt_set_target(&b);
        if (mode) gdt_mod_trans_mode(&mode);
        double z = 0, oz = 0;
        return gdt_transform(&x, &y, &z, &ox, &oy, &oz);
    }
};

/* An engine over tables written by the test into a folder of its own. */
class OwnTables : public Engine {
   protected:
    test_support::TempDir dir{"vln_gdt"};
    void SetUp() override
    {
        Engine::SetUp();
        setenv("GDT_DATA_PATH", dir.file("").c_str(), 1);
    }
    void TearDown() override
    {
        Engine::TearDown();
        unsetenv("GDT_DATA_PATH");
        gdt::gdb_reset();
    }
    void table(const std::string &name, const std::string &text)
    {
        std::ofstream(dir.file(name + ".dat"), std::ios::binary) << text;
    }
};

}  // namespace gdt_test

#endif
