/* temp_dir.h: a folder of its own under /tmp for one test, removed with all
 * it holds when the test's scope ends. */
#ifndef VORLAN_TESTS_TEMP_DIR_H
#define VORLAN_TESTS_TEMP_DIR_H

#include <stdlib.h>

#include <string>

#include "vln_path.h"

namespace test_support {

class TempDir {
   public:
    explicit TempDir(const char *prefix = "vln_test")
    {
        std::string pattern = std::string("/tmp/") + prefix + "_XXXXXX";
        path_ = mkdtemp(pattern.data());
    }
    ~TempDir() { vln_rmrfdir(path_.c_str()); }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    std::string file(const std::string &name) const { return path_ + "/" + name; }

   private:
    std::string path_;
};

}  // namespace test_support

#endif
