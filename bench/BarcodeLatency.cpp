// From the last byte of a code on the line to the event at the application: what it takes beyond
// the 100 ms of silence that end a code. The limit named is a bare poll() of the same silence on
// the same machine in the same run: how late the system itself ends such a wait.

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

#include "gui/GuiLibrary.h"
#include "gui/GuiWindow.h"
#include "power/PowerManager.h"
#include "power/SystemEvents.h"
#include "scanner/BarcodeReader.h"
#include "sim/Terminal.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int Codes = 200;
constexpr auto Silence = std::chrono::milliseconds(100);

class Arrivals : public GuiWindow {
public:
    Arrivals() : GuiWindow(0) {}

    void onSystemEvent(int code, void*) override {
        if (code != events::ScannedCode)
            return;
        const std::lock_guard<std::mutex> held(mutex);
        at = Clock::now();
        arrived = true;
        condition.notify_all();
    }

    Clock::time_point await() {
        std::unique_lock<std::mutex> held(mutex);
        condition.wait(held, [this] { return arrived; });
        arrived = false;
        return at;
    }

private:
    std::mutex mutex;
    std::condition_variable condition;
    Clock::time_point at;
    bool arrived = false;
};

double milliseconds(Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

void print(const char* what, std::vector<double> times) {
    std::sort(times.begin(), times.end());
    printf("%s: median %.3f ms, worst %.3f ms of %zu\n", what, times[times.size() / 2],
           times.back(), times.size());
}

}  // namespace

int main() {
    sim::Terminal terminal;
    if (!PowerManager::initPowerManager())
        return 1;
    {
        Arrivals window;
        BarcodeReader reader;
        if (!reader.initialize())
            return 1;
        std::vector<double> event, bare;
        for (int i = 0; i < Codes; ++i) {
            const auto sent = Clock::now();
            terminal.barcode().transmit("4006381333931\r\n");
            event.push_back(milliseconds(window.await() - sent - Silence));

            int quiet[2];
            if (pipe(quiet) != 0)
                return 1;
            pollfd file{quiet[0], POLLIN, 0};
            const auto began = Clock::now();
            poll(&file, 1, 100);
            bare.push_back(milliseconds(Clock::now() - began - Silence));
            close(quiet[0]);
            close(quiet[1]);
        }
        print("last byte to event, beyond the silence", event);
        print("a bare poll of the same silence       ", bare);
        reader.shutdown();
    }
    PowerManager::deinitPowerManager();
}
