/* dshdr_fixture.h: files and headers for the dataset header suites. */
#ifndef VORLAN_TESTS_DSHDR_FIXTURE_H
#define VORLAN_TESTS_DSHDR_FIXTURE_H

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "vld_dshdr.h"
#include "vld_dshdr_internal.h"
#include "vln_path.h"

namespace dsh {

inline const std::string kDataDir = std::string(VORLAN_TEST_DATA_DIR) + "/dshdr/";

inline std::string slurp(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

/* The text with the value of every LastUpdated line replaced by "*". */
inline std::string masked(const std::string &text)
{
    std::istringstream in(text);
    std::string out, line;
    while (std::getline(in, line)) {
        size_t at = line.find("LastUpdated");
        if (at != std::string::npos && line.find_first_not_of('\t') == at)
            line = line.substr(0, line.find('=') + 1) + " *";
        out += line + "\n";
    }
    return out;
}

inline std::string error_text()
{
    return VLD_error.text ? VLD_error.text : "";
}

/* A directory of its own, removed with what it holds. */
class TempDir {
   public:
    TempDir()
    {
        char pattern[] = "/tmp/vld_dshdr_XXXXXX";
        path_ = mkdtemp(pattern);
    }
    ~TempDir() { vln_rmrfdir(path_.c_str()); }
    std::string file(const std::string &name) const { return path_ + "/" + name; }
    std::string write(const std::string &name, const std::string &content) const
    {
        std::ofstream(file(name), std::ios::binary) << content;
        return file(name);
    }
    /* A copy of a file of the test data. */
    std::string copy(const std::string &name) const { return write(name, slurp(kDataDir + name)); }

   private:
    std::string path_;
};

/* A header read by eg_dshdr, freed at the end of the scope. */
struct Header {
    dshdr *d = nullptr;
    int status = 0;
    explicit Header(const std::string &path) { status = eg_dshdr(&d, path.c_str()); }
    ~Header() { ef_dshdr(d); }
    Header(const Header &) = delete;
    Header &operator=(const Header &) = delete;
    dshdr *operator->() const { return d; }
};

/* A small raster header around a RasterInfo body, or around a whole body. */
inline std::string raster_doc(const std::string &raster_body, const std::string &space = "",
                              const std::string &extra = "")
{
    std::string cs = space.empty() ? "\tCoordinateSpace Begin\n\t\tDatum = \"RAW\"\n"
                                     "\t\tProjection = \"RAW\"\n\t\tCoordinateType = RAW\n"
                                     "\tCoordinateSpace End\n"
                                   : space;
    return "DatasetHeader Begin\n\tVersion = \"7.0\"\n\tDataType = Raster\n" + cs +
           "\tRasterInfo Begin\n" + raster_body + "\tRasterInfo End\n" + extra +
           "DatasetHeader End\n";
}

/* A coordinate space block of the given lines. */
inline std::string space_doc(const std::string &lines)
{
    return "\tCoordinateSpace Begin\n" + lines + "\tCoordinateSpace End\n";
}

}  // namespace dsh

#endif
