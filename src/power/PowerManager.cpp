#include "power/PowerManager.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

#include "foundation/Thread.h"
#include "gui/GuiLibrary.h"
#include "io/FileDescriptor.h"
#include "power/BoardProtocol.h"

namespace {

constexpr int SettleMs = 10;
constexpr int ResetMs = 100;
constexpr int PowerOnKeyMs = 1000;
constexpr int PowerOnPulses = 3;
constexpr int PowerOffKeyMs = 2000;
constexpr int PowerOffPolls = 100;
constexpr int PowerOffPollMs = 100;

void closeDevice(int& descriptor) {
    if (descriptor >= 0)
        ::close(descriptor);
    descriptor = -1;
}

}  // namespace

std::atomic<PowerManager*> PowerManager::powerManager{nullptr};

bool PowerManager::initPowerManager() {
    if (powerManager)
        return false;
    powerManager = new PowerManager;
    if (getPowerManager()->initialize())
        return true;
    delete powerManager.exchange(nullptr);
    return false;
}

bool PowerManager::deinitPowerManager() {
    if (!powerManager || !getPowerManager()->deinitialize())
        return false;
    delete powerManager.exchange(nullptr);
    return true;
}

PowerManager* PowerManager::getPowerManager() { return powerManager; }

bool PowerManager::initialize() {
    closeDevices();  // of an earlier one
    powerControlDevice = io::openAtOnce(board::PowerControlPath, O_RDWR | O_NONBLOCK);
    if (powerControlDevice == -1)
        return false;
    speaker = findSpeakerDevice();
    if (speaker == -1)
        return false;
    clockDevice = io::openAtOnce(board::ClockPath, O_RDWR | O_NONBLOCK);
    if (clockDevice < 0)
        return false;
    if (!rtcGetTime(nullptr))
        repairClock();
    {
        MutexGuard held(idleLock);
        lastActivity = nowSeconds();
    }
    gprsSetDTR(true);
    oledEnable(true);
    oledFreeze(false);
    setPowerMode(POWER_ON);
    s_ovalis_set_idle_func(kickIdleProc);
    return true;
}

bool PowerManager::deinitialize() {
    s_ovalis_set_idle_func(nullptr);
    oledFreeze(true);
    closeDevices();
    return true;
}

void PowerManager::closeDevices() {
    closeDevice(speaker);
    closeDevice(powerControlDevice);
    closeDevice(clockDevice);
}

int PowerManager::findSpeakerDevice() {
    for (int number = 0; number < board::InputDevices; ++number) {
        char path[sizeof board::InputPathFormat + 2];
        std::snprintf(path, sizeof path, board::InputPathFormat, number);
        const int device = io::openAtOnce(path, O_RDWR | O_NONBLOCK);
        if (device == -1)
            continue;
        uint32_t types = 0;
        if (::ioctl(device, board::GetEventTypes, &types) < 0)
            ::close(device);
        else if (types & 1U << board::InputSound)
            return device;
    }
    return -1;
}

int PowerManager::powerControl(unsigned request, unsigned argument) {
    return ::ioctl(powerControlDevice, request, static_cast<unsigned long>(argument));
}

int PowerManager::setLine(unsigned line, bool high) {
    return powerControl(high ? board::LineHigh : board::LineLow, line);
}

bool PowerManager::scannerSetAim(bool on) { return setLine(board::LineScannerAim, !on) == 0; }

bool PowerManager::scannerPowerUp() {
    return setLine(board::LineScannerAim, true) == 0 &&
           setLine(board::LineScannerControl, false) == 0 &&
           powerControl(board::SupplyOn, board::SupplyScanner) == 0;
}

bool PowerManager::scannerPowerDown() {
    return setLine(board::LineScannerControl, true) == 0 &&
           setLine(board::LineScannerAim, false) == 0 &&
           powerControl(board::SupplyOff, board::SupplyScanner) == 0;
}

bool PowerManager::gprsGetPower() {
    return powerControl(board::ReadLine, board::LineGprsPowerStatus) == 1;
}

int PowerManager::gprsSetDTR(bool on) { return setLine(board::LineGprsDtr, !on); }

int PowerManager::gprsReset() {
    setLine(board::LineGprsReset, true);
    Thread::sleep(ResetMs);
    return setLine(board::LineGprsReset, false);
}

bool PowerManager::gprsPowerOn() {
    setLine(board::LineGprsControl, true);
    Thread::sleep(SettleMs);
    if (powerControl(board::SupplyOn, board::SupplyGprs) != 0)
        return false;
    bool running = gprsGetPower();
    for (int pulse = 0; pulse < PowerOnPulses && !running; ++pulse) {
        setLine(board::LineGprsPowerKey, true);
        Thread::sleep(PowerOnKeyMs);
        setLine(board::LineGprsPowerKey, false);
        running = gprsGetPower();
    }
    return running;
}

bool PowerManager::gprsPowerOff() {
    if (powerControl(board::SupplyOff, board::SupplyGprs) != 0)
        return false;
    if (gprsGetPower()) {
        setLine(board::LineGprsPowerKey, true);
        Thread::sleep(PowerOffKeyMs);
        setLine(board::LineGprsPowerKey, false);
        for (int poll = 0; poll < PowerOffPolls; ++poll) {
            if (powerControl(board::ReadLine, board::LineGprsPowerStatus) == 0)
                return true;
            Thread::sleep(PowerOffPollMs);
        }
    }
    // Off already, or forced off now.
    setLine(board::LineGprsControl, false);
    return true;
}

bool PowerManager::btPowerOn() {
    setLine(board::LineBluetoothEnable, true);
    Thread::sleep(SettleMs);
    if (powerControl(board::SupplyOn, board::SupplyBluetooth) != 0)
        return false;
    setLine(board::LineBluetoothReset, true);
    Thread::sleep(ResetMs);
    setLine(board::LineBluetoothReset, false);
    return true;
}

bool PowerManager::btPowerOff() {
    if (powerControl(board::SupplyOff, board::SupplyBluetooth) != 0)
        return false;
    setLine(board::LineBluetoothReset, true);
    Thread::sleep(ResetMs);
    setLine(board::LineBluetoothEnable, false);
    return true;
}

int PowerManager::mpciEnable3V3(bool on) { return setLine(board::LineMpci3V3, on); }

int PowerManager::mpciEnableRadio(bool on) { return setLine(board::LineMpciRadio, on); }

int PowerManager::ledEnable(bool a, bool b) {
    setLine(board::LineFirstLed, !a);
    return setLine(board::LineSecondLed, !b);
}

int PowerManager::keybSetBackLight(unsigned char level) {
    return powerControl(board::SetKeyboardLight, level);
}

int PowerManager::keybFadeBackLight(unsigned char level) {
    return powerControl(board::FadeKeyboardLight, level);
}
