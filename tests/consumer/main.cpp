// Says who the terminal is, over the installed headers and library.

#include <cstdio>

#include "config/SysInfo.h"
#include "gui/GuiLibrary.h"
#include "power/PowerManager.h"

int main() {
    if (!PowerManager::initPowerManager())
        return 1;
    GuiLibrary::lock();
    std::puts(SysInfo::getSerialNumber());
    GuiLibrary::unlock();
    return PowerManager::deinitPowerManager() ? 0 : 1;
}
