// Fuzz target of the datum and projection tables: any bytes become one table
// of the engine's table directory, the others being the installed ones. The
// first byte chooses which table it replaces; every row found is then read
// through the table layer and, as a datum or projection, built into a
// coordinate system that carries one point.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include "gdt_coords.h"
#include "gdt_internal.h"

namespace {

const char *const kTables[] = {
    "datum_sp", "project",  "tranmerc", "utm",        "datumcha", "bursawol", "stereo",
    "lambazea", "cassini",  "regpol",   "winktrip",   "albersea", "lamcon2",  "bonne",
    "coniced",  "robinson", "grinten",  "azimuted",   "lamcon1",  "obmerc_b", "obmerc_c",
    "borneo",   "dutch",    "swiss",    "nzmapgrd",   "lambert1", "lambert2", "modpol",
    "bioconco", "modstero", "labordom", "danish_uts", "field"};

std::string directory;

void quiet(const char *) {}

void copy_installed_tables()
{
    char pattern[] = "/tmp/vln_fuzz_gdt_XXXXXX";
    directory = mkdtemp(pattern);
    for (const auto &entry :
         std::filesystem::directory_iterator(std::string(VORLAN_SHARE_DIR) + "/GDT_DATA")) {
        if (entry.path().extension() != ".dat") continue;
        std::ifstream in(entry.path(), std::ios::binary);
        std::ofstream(directory + "/" + entry.path().filename().string(), std::ios::binary)
            << in.rdbuf();
    }
    // A field projection over a UTM zone, so that the field table is read too.
    std::ofstream(directory + "/project.dat", std::ios::app) << "FLDTEST,field,1.0\n";
    std::ofstream(directory + "/field.dat")
        << "name,ref_proj_name,ref_datum_name,map_x_offset,map_y_offset,map_x_xfact,map_x_yfact\n"
           "FLDTEST,NUTM32,WGS84,100,200,0.8,0.6\n";
    setenv("GDT_DATA_PATH", directory.c_str(), 1);
    gdt_install_error(quiet);
}

void carry(int a, int b)
{
    double x = 0.1, y = 0.7, z = 0, ox, oy, oz;
    if (gdt_set_source(&a) == 0 && gdt_set_target(&b) == 0)
        gdt_transform(&x, &y, &z, &ox, &oy, &oz);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (directory.empty()) copy_installed_tables();
    if (size == 0) return 0;
    const char *table = kTables[data[0] % (sizeof kTables / sizeof kTables[0])];
    std::string path = directory + "/" + table + ".dat";
    std::string saved;
    {
        std::ifstream in(path, std::ios::binary);
        saved.assign(std::istreambuf_iterator<char>(in), {});
    }
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char *>(data + 1), static_cast<std::streamsize>(size - 1));

    gdt::engine_reset();
    if (gdb_set_table(table) == 0) {
        char key[20], column[512], value[512];
        int rows = 0;
        while (gdb_next_name_key(key) == 0 && rows++ < 64) {
            gdb_next_column_name(nullptr);
            while (gdb_next_column_name(column) == 0) {
                double d;
                int32_t l;
                char c;
                gdb_load(column, "s", value);
                gdb_load(column, "d", &d);
                gdb_load(column, "l", &l);
                gdb_load(column, "c", &c);
            }
            std::string name = key;
            gdb_set_name_key(name.c_str());
            int geodetic = gdt_crelock_coord_sys(name.c_str(), "GEODETIC", "radians");
            int projected = gdt_crelock_coord_sys("WGS84", name.c_str(), "metres");
            int wgs = gdt_crelock_coord_sys("WGS84", "GEODETIC", "radians");
            carry(geodetic, wgs);
            carry(wgs, projected);
            carry(projected, wgs);
            for (int id : {geodetic, projected, wgs})
                if (id > 0) gdt_delete_coord_sys(&id);
            if (gdb_set_table(table) != 0) break;
            gdb_set_name_key(name.c_str());
        }
    }
    gdt::engine_reset();
    std::ofstream(path, std::ios::binary | std::ios::trunc) << saved;
    return 0;
}
