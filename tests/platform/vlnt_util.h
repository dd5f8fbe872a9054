// Helpers shared by the platform tests: polling with a generous deadline,
// capturing the library's standard error, reading a pipe to its end.
#ifndef VORLAN_TESTS_PLATFORM_VLNT_UTIL_H
#define VORLAN_TESTS_PLATFORM_VLNT_UTIL_H

#include "vld_core.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace vlnt {

// Polls `done` every 5 ms for up to 30 seconds: generous on a loaded machine.
template <typename F>
bool eventually(F done)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
        if (done()) return true;
        usleep(5000);
    }
    return done();
}

// Redirects the library's standard error into a temporary file.
class StderrCapture {
   public:
    StderrCapture() : file_(tmpfile()) { vln_SetStdErr(file_); }
    ~StderrCapture()
    {
        vln_SetStdErr(nullptr);
        fclose(file_);
    }
    std::string text()
    {
        fflush(file_);
        rewind(file_);
        std::string s;
        for (int c; (c = fgetc(file_)) != EOF;) s += static_cast<char>(c);
        return s;
    }
    StderrCapture(const StderrCapture &) = delete;
    StderrCapture &operator=(const StderrCapture &) = delete;

   private:
    FILE *file_;
};

// Reads until end of file, giving up after 30 seconds without data.
inline std::string read_all(int fd)
{
    std::string out;
    char buffer[4096];
    for (;;) {
        pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, 30000) <= 0) break;
        ssize_t n = read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        out.append(buffer, static_cast<size_t>(n));
    }
    return out;
}

}  // namespace vlnt

#endif
