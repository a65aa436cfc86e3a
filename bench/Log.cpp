// One line into a log file against fopen, fputs and fclose of the same line.

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "bench/Ratio.h"
#include "config/LogFile.h"

namespace {

/// A file that is emptied before each benchmark and removed at the end.
class File {
public:
    File() { close(mkstemp(name.data())); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() { unlink(path()); }

    void empty() const { close(::open(path(), O_WRONLY | O_TRUNC)); }
    const char* path() const { return name.c_str(); }

private:
    std::string name = "/tmp/handheld-bench-XXXXXX";
};

const File& file() {
    static const File theFile;
    return theFile;
}

void logLine(benchmark::State& state) {
    file().empty();
    LogFile log(file().path());
    for (auto _ : state) {
        if (!log.logPrintf(LogFile::LEVEL_INFO, "gprs", "attached, signal quality %d", 17))
            state.SkipWithError("not logged");
    }
}
BENCHMARK(logLine);

void bareLine(benchmark::State& state) {
    file().empty();
    for (auto _ : state) {
        FILE* const stream = fopen(file().path(), "a");
        if (!stream) {
            state.SkipWithError("not opened");
            return;
        }
        fputs("2011-03-04T05:06:07+0100|I|gprs|attached, signal quality 17\r\n", stream);
        fclose(stream);
    }
}
BENCHMARK(bareLine);

}  // namespace

int main(int argc, char** argv) {
    // What the log shows on standard output does not count, and would bury the result.
    const int output = dup(STDOUT_FILENO);
    if (!freopen("/dev/null", "w", stdout))
        return 1;
    bench::RatioReporter reporter;
    bench::runAll(argc, argv, reporter);
    fflush(stdout);
    dup2(output, STDOUT_FILENO);
    reporter.printTimes("logLine", "bareLine", 1.3);
    return reporter.status();
}
