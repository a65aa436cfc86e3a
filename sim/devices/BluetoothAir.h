#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/Journal.h"

namespace sim {

/// The remote devices around the terminal, and the serial links between them and its Bluetooth
/// modules. Addresses are texts such as "00:1A:7D:DA:71:13"; case does not matter.
///
/// Any thread may use it. The module models call in with their own locks held; they are called
/// without the air's lock, on the thread that caused the call: from within their own calls too.
class BluetoothAir {
public:
    struct Remote {
        enum Service {
            Echo,  ///< sends back what it gets
            Sink   ///< keeps what it gets
        };
        enum Mood {
            Normal,
            Refusing,  ///< hears a call and refuses it
            Deaf       ///< is found, but answers no call
        };

        std::string address;
        std::string name;
        std::string pin;  ///< that a caller must have; empty: any or none will do
        Service service = Echo;
        std::string greeting;  ///< what it sends by itself as soon as a link is up
        int dBm = -60;         ///< the strength of its signal
        unsigned deviceClass = 0x1F00;
        Mood mood = Normal;
        int link = 0;          ///< the number of the link it has; 0: none
        std::string received;  ///< by a sink, over all its links
    };

    /// A module of the terminal, as the air sees it.
    class Module {
    public:
        /// A remote device calls. True: it takes the call, and `link` is up.
        virtual bool linkOffered(int link, const Remote& caller, int port) = 0;
        virtual void linkData(int link, std::string_view bytes) = 0;
        /// The link is down by the other side's doing.
        virtual void linkLost(int link) = 0;

    protected:
        ~Module() = default;
    };

    enum class Outcome { Connected, WrongPin, Refused, NoAnswer };

    explicit BluetoothAir(Journal& eventJournal) : journal(eventJournal) {}

    // ---- The world: for tests and the console.

    /// A device comes into reach, or is changed; a link it has stays.
    void present(Remote remote);
    void present(const std::string& address, const std::string& name);
    void takeAway(const std::string& address);  ///< its link drops
    void setSignal(const std::string& address, int dBm);

    /// It calls port `port` of the terminal. Whether a module has taken the call.
    bool ring(const std::string& address, int port = 1);
    /// It sends bytes over its link. False when it has none.
    bool sendFrom(const std::string& address, std::string_view bytes);
    /// It ends its link. False when it has none.
    bool drop(const std::string& address);

    /// The devices in reach, by address.
    std::vector<Remote> remotes() const;
    std::optional<Remote> find(const std::string& address) const;

    // ---- For the models of the modules.

    /// Calls from remote devices are offered to the modules in the order they were added.
    void addModule(Module& module);

    /// Calls a device. `link` is set when connected.
    Outcome call(Module& caller, const std::string& address, const std::string& pin, int& link);
    /// The module is ready for what the device sends by itself as soon as a link is up.
    void greet(int link);
    /// False when there is no such link.
    bool send(int link, std::string_view bytes);
    /// The terminal's side ends a link; no linkLost() follows. False when there is no such link.
    bool close(int link);
    void closeAll(const Module& module);  ///< as when it loses its power
    /// The device at the other end of a link.
    std::optional<Remote> remoteOf(int link) const;

    /// The text of 6 address bytes, the most significant first.
    static std::string addressText(const std::array<uint8_t, 6>& bytes);
    static std::array<uint8_t, 6> addressBytes(const std::string& text);

private:
    Remote* findByLink(int link);
    bool end(Remote& remote, Module*& module, int& link);

    Journal& journal;

    mutable std::mutex mutex;  // guards what follows
    std::map<std::string, Remote> reachable;
    std::map<int, Module*> links;
    std::vector<Module*> modules;
    int lastLink = 0;
};

}  // namespace sim
