// What an idle application costs, with barcode reader and system monitor running: wake-ups per
// second of its threads over ten seconds, against those that the fixed polls ask for, and resident
// memory.

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "gui/GuiLibrary.h"
#include "power/PowerManager.h"
#include "power/SystemMonitor.h"
#include "scanner/BarcodeReader.h"
#include "sim/Terminal.h"

namespace {

constexpr int Seconds = 10;
constexpr double AskedFor = 1000.0 / 200 + 1;  // the reader's wait for input, the monitor's tick

/// The number behind `label` in a file of /proc.
long valueIn(const std::string& path, const std::string& label) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, label.size(), label) == 0)
            return atol(line.c_str() + label.size());
    }
    return 0;
}

/// Of all threads but the one that measures.
long wakeUps() {
    long sum = 0;
    DIR* const tasks = opendir("/proc/self/task");
    while (const dirent* task = readdir(tasks)) {
        const std::string name = task->d_name;
        if (name != "." && name != ".." && name != std::to_string(gettid()))
            sum += valueIn("/proc/self/task/" + name + "/status", "voluntary_ctxt_switches:");
    }
    closedir(tasks);
    return sum;
}

}  // namespace

int main() {
    sim::Terminal terminal;
    if (!PowerManager::initPowerManager() || !SystemMonitor::initialize())
        return 1;
    {
        BarcodeReader reader;
        if (!reader.initialize())
            return 1;
        std::thread events([] { GuiLibrary::run(); });
        sleep(1);
        const long before = wakeUps();
        sleep(Seconds);
        const double perSecond = static_cast<double>(wakeUps() - before) / Seconds;
        printf("%.1f wake-ups per second, %.2f times the %.0f that the fixed polls ask for\n",
               perSecond, perSecond / AskedFor, AskedFor);
        printf("resident memory %ld kB, the simulated terminal included\n",
               valueIn("/proc/self/status", "VmRSS:"));
        GuiLibrary::quit();
        events.join();
        reader.shutdown();
    }
    SystemMonitor::shutdown();
    PowerManager::deinitPowerManager();
}
