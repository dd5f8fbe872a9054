/* capture.h: catching what the library writes to its own streams. */
#ifndef VORLAN_TESTS_CAPTURE_H
#define VORLAN_TESTS_CAPTURE_H

#include <cstdio>
#include <string>

#include "vld_core.h"

/* Redirects the library's stdout or stderr to a temporary file for its lifetime. */
class StreamCapture {
   public:
    enum Which { Out, Err };
    explicit StreamCapture(Which which) : which_(which), file_(tmpfile())
    {
        if (which_ == Out)
            vln_SetStdOut(file_);
        else
            vln_SetStdErr(file_);
    }
    ~StreamCapture()
    {
        if (which_ == Out)
            vln_SetStdOut(nullptr);
        else
            vln_SetStdErr(nullptr);
        fclose(file_);
    }
    /* Everything written so far. */
    std::string text()
    {
        fflush(file_);
        std::string out;
        rewind(file_);
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, file_)) > 0) out.append(buffer, n);
        fseek(file_, 0, SEEK_END);
        return out;
    }

   private:
    Which which_;
    FILE *file_;
};

/* Owns a string the library handed out. */
struct Owned {
    char *p;
    explicit Owned(char *s) : p(s) {}
    ~Owned() { safe_free(p); }
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;
    std::string str() const { return p != nullptr ? std::string(p) : std::string("<null>"); }
};

#endif
