#pragma once

#include <atomic>
#include <cerrno>
#include <chrono>
#include <random>
#include <string>
#include <thread>

#include "sim/HostTime.h"
#include "sim/Terminal.h"
#include "sim/console/Console.h"

namespace bench {

class Chance {
public:
    explicit Chance(unsigned seed) : engine(seed) {}
    int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(engine); }

private:
    std::mt19937 engine;
};

inline std::chrono::steady_clock::time_point hostNow() {
    const sim::HostTime hostTime;
    return std::chrono::steady_clock::now();
}

/// What surrounds a terminal, and does its worst to it from time to time: on a thread of its own,
/// in an order that the seed decides. Made and used by one thread.
class World {
public:
    World(sim::Terminal& surrounded, unsigned seed) : terminal(surrounded), chance(seed) {}
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    ~World() { turnGood(); }

    void turnBad() {
        isBad = true;
        thread = std::thread([this] { misbehave(); });
    }

    /// Whatever has been done to the devices is undone.
    void turnGood() {
        isBad = false;
        if (!thread.joinable())
            return;
        thread.join();
        terminal.faults().clear();
        sim::Console console(terminal);
        for (const char* command : Repairs)
            console.execute(command);
    }

    long faults() const { return count; }

private:
    static constexpr int LongestPauseMs = 300;

    static constexpr const char* Misdeeds[] = {"barcode present 4006381333931",
                                               "trigger",
                                               "mute barcode on",
                                               "mute barcode off",
                                               "line barcode hangup",
                                               "line barcode garble 7",
                                               "rfid present E2003412 pallet",
                                               "rfid remove",
                                               "rfid type ams",
                                               "rfid type nxp",
                                               "rfid type none",
                                               "scanners 1",
                                               "scanners 12",
                                               "key 30",
                                               "key 28",
                                               "battery 3300",
                                               "battery 4100",
                                               "temperature -4000",
                                               "light 3",
                                               "usb on",
                                               "usb off",
                                               "card pull",
                                               "card push",
                                               "radio signal -110",
                                               "radio signal -60",
                                               "radio network none",
                                               "radio network home",
                                               "radio network denied",
                                               "radio sim absent",
                                               "radio sim pin",
                                               "radio fail AT+CPIN? 10",
                                               "radio fail AT+CGATT=1 100",
                                               "radio fail AT+CREG? 3",
                                               "radio say RING",
                                               "radio say NO CARRIER",
                                               "radio drop",
                                               "radio close",
                                               "mute radio on",
                                               "mute radio off",
                                               "line radio hangup",
                                               "line radio garble 7",
                                               "ppp down",
                                               "ppp crash",
                                               "ppp never",
                                               "ppp stubborn",
                                               "ppp normal",
                                               "wlan network",
                                               "wlan network Warehouse forklift-7",
                                               "wlan drop",
                                               "wlan appear never",
                                               "wlan appear 1",
                                               "wlan associate never",
                                               "wlan associate 2",
                                               "supplicant silent",
                                               "supplicant normal",
                                               "supplicant die",
                                               "dhcp fail",
                                               "dhcp answer",
                                               "bt away 00:1A:7D:DA:71:13",
                                               "bt present 00:1A:7D:DA:71:13 Label printer",
                                               "bt mood 00:1A:7D:DA:71:13 deaf",
                                               "bt mood 00:1A:7D:DA:71:13 refusing",
                                               "bt mood 00:1A:7D:DA:71:13 normal",
                                               "bt pin 00:1A:7D:DA:71:13 4711",
                                               "bt ring 00:1A:7D:DA:71:13",
                                               "bt drop 00:1A:7D:DA:71:13",
                                               "bt send 00:1A:7D:DA:71:13 unasked",
                                               "bt refuse CALL*",
                                               "bt say NO CARRIER 0 ERROR 0",
                                               "mute bt on",
                                               "mute bt off",
                                               "line bt hangup",
                                               "line bt garble 7",
                                               "packet refuse 06",
                                               "packet refuse 0E",
                                               "mute packet on",
                                               "mute packet off",
                                               "line packet hangup",
                                               "line packet garble 7",
                                               "program pppd 1",
                                               "program wpa_supplicant 1",
                                               "program insmod 1",
                                               "missing /dev/ttyAT2",
                                               "present /dev/ttyAT2",
                                               "missing /dev/rtc",
                                               "present /dev/rtc",
                                               "missing /dev/oled",
                                               "present /dev/oled",
                                               "missing /dev/ttyAT1",
                                               "present /dev/ttyAT1"};

    static constexpr const char* Repairs[] = {"mute barcode off",
                                              "mute radio off",
                                              "mute bt off",
                                              "mute packet off",
                                              "rfid type ams",
                                              "scanners 12",
                                              "card push",
                                              "radio network home",
                                              "radio sim pin",
                                              "ppp normal",
                                              "wlan network Warehouse forklift-7",
                                              "wlan appear 1",
                                              "wlan associate 2",
                                              "supplicant normal",
                                              "dhcp answer",
                                              "bt present 00:1A:7D:DA:71:13 Label printer",
                                              "bt mood 00:1A:7D:DA:71:13 normal",
                                              "present /dev/ttyAT2",
                                              "present /dev/rtc",
                                              "present /dev/oled",
                                              "present /dev/ttyAT1"};

    void misbehave() {
        const sim::HostTime hostTime;
        sim::Console console(terminal);
        while (isBad) {
            if (chance.below(4) == 0)
                failCall();
            else
                console.execute(Misdeeds[chance.below(static_cast<int>(std::size(Misdeeds)))]);
            ++count;
            std::this_thread::sleep_for(std::chrono::milliseconds(chance.below(LongestPauseMs)));
        }
    }

    /// One of the next calls of the system on something of the terminal's fails.
    void failCall() {
        static constexpr int Errors[] = {EIO, EINTR, ENOMEM, EAGAIN, ENODEV};
        terminal.faults().failNth(1 + chance.below(50), Errors[chance.below(std::size(Errors))]);
    }

    sim::Terminal& terminal;
    Chance chance;  // the thread's, while there is one
    std::atomic<bool> isBad{false};
    std::atomic<long> count{0};
    std::thread thread;
};

}  // namespace bench
