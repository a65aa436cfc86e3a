// One AT command and its answer through GsmModule on the module's own line: time and processor time
// beyond the pause of 20 ms before the command and the module's time to answer, and how often the
// thread wakes. The limit named is the least that does the same: a sleep, the two flushes, two
// writes, and a poll() and a read() of whatever there is until the answer's end.

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "foundation/Thread.h"
#include "gsm/GsmModule.h"
#include "io/FileDescriptor.h"
#include "power/PowerManager.h"
#include "sim/Terminal.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int Exchanges = 200;
constexpr int Pause = 20;
constexpr auto AnswerTime = milliseconds(10);
constexpr int Limit = 1000;
constexpr char Path[] = "/dev/ttyAT1";

/// What a thread has used.
struct Usage {
    double cpuMs;
    long wakeUps;

    static Usage now() {
        rusage used{};
        getrusage(RUSAGE_THREAD, &used);
        const auto ms = [](const timeval& time) {
            return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
        };
        return {ms(used.ru_utime) + ms(used.ru_stime), used.ru_nvcsw};
    }
};

/// Exchanges one after the other, and a line about them.
template <class Exchange> bool measure(const char* what, Exchange exchange) {
    std::vector<double> beyond;
    const Usage before = Usage::now();
    for (int i = 0; i < Exchanges; ++i) {
        const auto begin = steady_clock::now();
        if (!exchange())
            return false;
        const auto took = steady_clock::now() - begin - milliseconds(Pause) - AnswerTime;
        beyond.push_back(std::chrono::duration<double, std::milli>(took).count());
    }
    const Usage after = Usage::now();
    std::sort(beyond.begin(), beyond.end());
    printf("%-9s beyond pause and answer: median %.3f ms, worst %.3f ms; %.3f ms of processor time "
           "and %.1f wake-ups each\n",
           what, beyond[beyond.size() / 2], beyond.back(), (after.cpuMs - before.cpuMs) / Exchanges,
           static_cast<double>(after.wakeUps - before.wakeUps) / Exchanges);
    return true;
}

bool throughTheDriver() {
    GsmModule module(Path);
    if (!module.open())
        return false;
    module.lock();
    const bool isWhole = measure("GsmModule", [&] {
        std::string answer;
        return module.writeCommand("AT+CSQ") && module.readAnswer(&answer, Limit) == 0;
    });
    module.unlock();
    return isWhole;
}

bool bare() {
    const io::FileDescriptor line(::open(Path, O_RDWR | O_NOCTTY | O_NONBLOCK));
    termios settings{};
    tcgetattr(line.get(), &settings);
    cfmakeraw(&settings);
    cfsetspeed(&settings, B115200);
    tcsetattr(line.get(), TCSANOW, &settings);
    return measure("bare", [&] {
        Thread::sleep(Pause);
        tcflush(line.get(), TCIFLUSH);
        tcflush(line.get(), TCOFLUSH);
        if (::write(line.get(), "AT+CSQ", 6) != 6 || ::write(line.get(), "\r", 1) != 1)
            return false;
        std::string answer;
        while (answer.find("\nOK\r\n") == std::string::npos) {
            pollfd ready{line.get(), POLLIN, 0};
            char octets[128];
            if (::poll(&ready, 1, Limit) <= 0)
                return false;
            answer.append(
                octets, static_cast<size_t>(std::max<ssize_t>(::read(line.get(), octets, 128), 0)));
        }
        return true;
    });
}

}  // namespace

int main() {
    sim::Terminal terminal;
    if (!PowerManager::initPowerManager())
        return 1;
    terminal.radio().setOn(true);
    terminal.radio().setAnswerTime(AnswerTime);
    const bool isWhole = bare() && throughTheDriver();
    PowerManager::deinitPowerManager();
    return isWhole ? 0 : 1;
}
