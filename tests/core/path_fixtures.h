/* path_fixtures.h: scratch directories and environment guards for the path tests. */
#ifndef VORLAN_TESTS_PATH_FIXTURES_H
#define VORLAN_TESTS_PATH_FIXTURES_H

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "vln_path.h"

/* A fresh directory, removed with all it holds at the end of the test. */
class ScratchDir {
   public:
    ScratchDir()
    {
        char pattern[] = "/tmp/vln_path_testXXXXXX";
        path_ = mkdtemp(pattern) != nullptr ? pattern : "/nonexistent";
    }
    ~ScratchDir() { vln_rmrfdir(path_.c_str()); }
    ScratchDir(const ScratchDir &) = delete;
    ScratchDir &operator=(const ScratchDir &) = delete;

    const std::string &path() const { return path_; }
    std::string at(const std::string &rel) const { return path_ + "/" + rel; }
    std::string touch(const std::string &rel, mode_t mode = 0644) const
    {
        std::string p = at(rel);
        if (FILE *f = fopen(p.c_str(), "w")) fclose(f);
        chmod(p.c_str(), mode);
        return p;
    }
    std::string mkdir(const std::string &rel) const
    {
        ::mkdir(at(rel).c_str(), 0755);
        return at(rel);
    }

   private:
    std::string path_;
};

/* Sets (or, with null, unsets) a variable for the life of the guard. */
class EnvGuard {
   public:
    EnvGuard(const char *name, const char *value) : name_(name)
    {
        if (const char *old = getenv(name)) old_ = old;
        value != nullptr ? setenv(name, value, 1) : unsetenv(name);
    }
    ~EnvGuard() { old_ ? setenv(name_.c_str(), old_->c_str(), 1) : unsetenv(name_.c_str()); }
    EnvGuard(const EnvGuard &) = delete;
    EnvGuard &operator=(const EnvGuard &) = delete;

   private:
    std::string name_;
    std::optional<std::string> old_;
};

/* The text of a library string, "<null>" for null; frees it. */
inline std::string take(char *s)
{
    std::string out = s != nullptr ? s : "<null>";
    safe_free(s);
    return out;
}

#endif
