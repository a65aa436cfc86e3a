#include "Show.h"

#include <ctime>

#include "config/LogFile.h"

void demo::show(const char* text) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char date[32];
    std::strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &local);
    std::printf("%s.%03ld  application: %s\n", date, now.tv_nsec / 1'000'000, text);
    std::fflush(stdout);
}

void demo::note(const char* text) {
    show(text);
    static LogFile log("/mnt/mmc/demo.log");
    log.logPrintf(LogFile::LEVEL_INFO, "demo", "%s", text);
    std::fflush(stdout);
}
