#pragma once

/// How GprsPpp::start() runs the daemon.
struct GPRSPPP_PARAMETERS {
    bool useAuth;          ///< pass user and password on
    const char* user;      ///< used with useAuth only
    const char* password;  ///< used with useAuth only
    bool debug;            ///< messages, recorded traffic and a log file, in "/tmp"
    bool persist;          ///< let the daemon dial again without limit
};

/// Starts and stops the PPP daemon that carries the GPRS session as interface "ppp0".
///
/// The daemon is found by its pid file, "/var/run/ppp0.pid", so that one left over by an earlier
/// run is recognised and stopped too. The calls block; one thread at a time may start or stop.
class GprsPpp {
public:
    /// Starts the daemon on a terminal device and waits for "ppp0" to be up: 30 seconds at most,
    /// and up to 10 more to end a daemon that has not got there. True when it is up; otherwise the
    /// daemon is gone, and its pid file too. That a daemon runs already is not looked at.
    ///
    /// A caller that is cancelled while it waits takes the daemon with it.
    static bool start(const char* device, GPRSPPP_PARAMETERS* parameters);

    /// Ends the daemon, by force when it is still there after 10 seconds. False when there is none.
    /// A pid file that cannot name a daemon is deleted, nothing is signalled; one with a negative
    /// number counts as none and stays.
    static bool stop();

    /// Whether there is a pid file, whatever it holds but a negative number. A file that a dead
    /// daemon has left behind counts until stop() deletes it.
    static bool isRunning();

    /// The number in the pid file: 0 when it holds none, -1 when there is no file.
    static int getDaemonPID();
};
