#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "io/FileDescriptor.h"

#ifdef HANDHELD_COVERAGE
extern "C" void __gcov_dump();
#endif

namespace test {

/// What `report` returns in a child process, where nothing has been asked, read or kept before but
/// by this one. "died" and what the child has left of it when it does not end well.
template <class Report> std::string inFreshProcess(Report report) {
    int ends[2] = {};
    if (::pipe(ends) != 0)
        throw std::runtime_error("no pipe");
    const io::FileDescriptor readEnd(ends[0]);
    io::FileDescriptor writeEnd(ends[1]);
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        const std::string text = report();
#ifdef HANDHELD_COVERAGE
        __gcov_dump();
#endif
        const bool told = ::write(ends[1], text.data(), text.size()) == ssize_t(text.size());
        ::_exit(told ? 0 : 1);
    }
    writeEnd.reset();
    std::string text;
    char part[512];
    for (ssize_t count = 0; (count = ::read(readEnd.get(), part, sizeof part)) > 0;)
        text.append(part, static_cast<size_t>(count));
    int status = 0;
    return ::waitpid(child, &status, 0) == child && status == 0 ? text : "died " + text;
}

}  // namespace test
