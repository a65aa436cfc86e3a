#pragma once

#include <sys/types.h>

#include <csignal>
#include <mutex>

#include "sim/Programs.h"
#include "sim/devices/NetworkInterface.h"

namespace sim {

/// The link that the PPP daemon makes: "ppp0", there and up while a daemon that has raised it runs.
/// Any thread may use it; what the daemon is told counts from its next start on.
class PppLink final : public NetworkInterface {
public:
    PppLink(Journal& journal, Programs& programs);

    void setNeverUp(bool neverUp);  ///< it dials, and the link does not come up
    void setStubborn(bool ignoresTermination);
    void setWithoutPidFile(bool without);

    /// Kills the daemon without a chance to tidy up.
    void crash() { programs.signalRunning(Daemon, SIGKILL); }
    bool isRunning() const { return !programs.running(Daemon).empty(); }

    bool isPresent() const override;
    int ioctl(unsigned long request, void* given) override;

private:
    static constexpr char Daemon[] = "pppd";

    void setOwner(pid_t daemon);
    Words answerDaemon(const Words& question);

    Programs& programs;

    mutable std::mutex mutex;  // guards what follows
    pid_t owner = 0;           // the daemon that has raised it
    bool isNeverUp = false;
    bool isStubborn = false;
    bool hasNoPidFile = false;
};

}  // namespace sim
