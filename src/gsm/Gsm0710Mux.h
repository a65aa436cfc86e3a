#pragma once

#include <bitset>
#include <string>

#include "foundation/Mutex.h"
#include "foundation/PowerEventListener.h"
#include "foundation/Thread.h"
#include "foundation/TimeLimit.h"
#include "gsm/Gsm0710FrameQueue.h"
#include "io/FileDescriptor.h"

class Gsm0710Buffer;
class Gsm0710Frame;

/// Lets several programs use the radio module at once over its one serial line, with the basic
/// option of 3GPP TS 27.010 (GSM 07.10). Each program opens the slave of a pseudo-terminal whose
/// master the engine holds: what it writes leaves as frames on a channel of its own, what the
/// module sends on that channel it can read.
///
/// The application's thread starts, stops and destroys an engine; a worker of its own does all
/// reading, writing and frame handling. Between startMux() and stopMux() the engine is a listener
/// of the power manager, which exists that long: around a suspend it closes the multiplexer down
/// and builds it up again, whichever thread changes the power state.
///
/// Once it multiplexes, the worker never waits for the module: what the line does not take is kept,
/// at most one read of a program's data, and no more is read from the programs until it has gone.
/// For a program it waits, as long as that takes something each second; after that it drops that
/// channel's data until the program reads again. Data for a port that its program has closed is
/// dropped; what comes before a program has opened the port waits for it.
class Gsm0710Mux : public PowerEventListener, public Thread {
public:
    /// Why the worker has ended its work.
    enum StopType : int {
        Running = 0,        ///< has not, or was asked to stop
        Refused = 1,        ///< the module refused channel 0
        ClosedByModule = 2  ///< the module closed the multiplexer down
    };

    Gsm0710Mux() = default;

    /// Stops an engine that was started.
    ~Gsm0710Mux() override;

    /// Opens the module's line and the masters, up to four paths ended by a null, and starts the
    /// worker. Of each master's path the first 32 characters count. False, with nothing changed,
    /// when the engine is started already or the line cannot be opened.
    ///
    /// Returns before the module has answered, and reports neither a module that does not nor a
    /// master that cannot be opened: their channels stay silent. A master is tried again and again.
    bool startMux(const char* physicalPath, const char** virtualPaths);

    /// Closes the multiplexer, the masters and the line, also after the worker has ended by itself.
    /// True. Takes half a second; up to ten while the line or a program takes nothing.
    bool stopMux();

    /// Closes the multiplexer before a suspend, as stopMux() does, and lets the line's DTR drop;
    /// after it raises DTR and starts anew. True.
    bool powerStateChange(PowerState from, PowerState to) override;

    void run() override;

private:
    static constexpr int MaxVirtualPorts = 4;
    static constexpr int MaxDescriptors = MaxVirtualPorts + 1;
    static constexpr int ChannelCount = 64;  // that an address can tell

    bool openPhysicalPort(const char* path);
    bool openVirtualPort(int index);
    void openVirtualPorts();
    void closeVirtualPorts();

    bool sendAT(const char* command, int timeoutMs);
    bool initMux();
    void closeMux();

    short waitFor(int fd, short events, int timeoutMs);
    bool isOutputReady(int fd, int timeoutMs);
    int getPendingFds(int* fds, int timeoutMs);

    bool isCongested();
    bool flushOutput();
    void drainOutput();
    unsigned int writeToPhysical(int channel, const unsigned char* data, unsigned int length,
                                 unsigned char control);
    unsigned int writeToVirtual(const unsigned char* data, unsigned int length, int channel);
    bool isListening(int channel);

    void handlePhysicalInput(Gsm0710Buffer& buffer, StopType& stopType);
    void handleSerialFrames(Gsm0710Buffer& buffer, StopType& stopType);
    void handleFrame(Gsm0710Frame& frame, StopType& stopType);
    void handleCommand(Gsm0710Frame& frame, StopType& stopType);
    void handleVirtualInput(int fd);

    void rest(int channel);
    int endRest(int timeoutMs);

    // Written while no worker runs, or by the worker.
    int channelCount = 0;  // channel n, from 1, belongs to virtual port n - 1
    io::FileDescriptor virtualFds[MaxVirtualPorts];
    std::string virtualNames[MaxVirtualPorts];
    io::FileDescriptor physicalFd;
    std::string physicalName;
    std::bitset<ChannelCount> channelOpen;  // also those that no program has

    Mutex writeMutex;            // one frame after the other
    gsm0710::FrameQueue output;  // guarded by writeMutex

    // The worker's own, by channel; 0 stands for the line. A descriptor that had nothing to read
    // although it was ready (its other end is closed) rests: it is left out of the polling until
    // all that rest are looked at again. A master that could not be opened rests as well.
    std::bitset<MaxDescriptors> resting;
    foundation::TimeLimit restLimit{0};
    std::bitset<MaxDescriptors> abandoned;  // no program had the port open when last looked at
    std::bitset<MaxDescriptors> unread;     // the program has not taken its data within the second
};
