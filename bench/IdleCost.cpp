// What an idle application costs, with barcode reader and system monitor running: wake-ups per
// second of its threads over ten seconds, against those that the fixed polls ask for, and resident
// memory.

#include <unistd.h>

#include <cstdio>
#include <thread>

#include "bench/Process.h"
#include "gui/GuiLibrary.h"
#include "power/PowerManager.h"
#include "power/SystemMonitor.h"
#include "scanner/BarcodeReader.h"
#include "sim/Terminal.h"

namespace {

constexpr int Seconds = 10;
constexpr double AskedFor = 1000.0 / 200 + 1;  // the reader's wait for input, the monitor's tick

}  // namespace

int main() {
    double perSecond = 0;
    sim::Terminal terminal;
    if (!PowerManager::initPowerManager() || !SystemMonitor::initialize())
        return 1;
    {
        BarcodeReader reader;
        if (!reader.initialize())
            return 1;
        std::thread events([] { GuiLibrary::run(); });
        sleep(1);
        const long before = bench::wakeUps();
        sleep(Seconds);
        perSecond = static_cast<double>(bench::wakeUps() - before) / Seconds;
        printf("%.1f wake-ups per second, %.2f times the %.0f that the fixed polls ask for\n",
               perSecond, perSecond / AskedFor, AskedFor);
        printf("resident memory %ld kB, the simulated terminal included\n", bench::residentKb());
        GuiLibrary::quit();
        events.join();
        reader.shutdown();
    }
    SystemMonitor::shutdown();
    PowerManager::deinitPowerManager();
    return perSecond <= 1.1 * AskedFor ? 0 : 1;
}
