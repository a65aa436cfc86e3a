#pragma once

#include <sys/un.h>

#include <memory>

/// The control connection to a wpa_supplicant daemon: text commands and their replies, one datagram
/// each, between two Unix-domain sockets.
///
/// One thread uses a connection at a time; connections do not disturb one another, each has a local
/// path of its own. Whoever opens one closes it: an unclosed one leaves a descriptor and the file
/// of its local path. Nothing here logs or retries.
struct WPA_CONTROL {
    int socket;          ///< never inherited by a started program
    sockaddr_un local;   ///< "/tmp/wpa_ctrl_<process>-<count>"
    sockaddr_un remote;  ///< "<dir>/<name>"
};

/// Connects to the daemon's socket `name` in its control directory `dir`. A local path left by an
/// earlier process of the same number is taken over. Null on any failure, with nothing left behind:
/// among others when a path does not fit into a socket address (107 characters), when nobody
/// listens, or when the process has more descriptors than select() can wait for.
WPA_CONTROL* wpa_ctrl_open(const char* dir, const char* name);

/// Sends a command and waits for its reply, of which at most `*replyLen` bytes are kept; the rest
/// is lost. 0 when it has come, with its length in `*replyLen` and no terminator; -1 when the
/// command could not be sent; -2 when nothing came within 2 seconds or a signal ended the wait; or
/// the negative result of receiving.
///
/// What begins with '<' is an event of the daemon and no reply. It is cut to fit, terminated within
/// `reply` and handed to `msgCallback`, unless that is null, and the wait begins anew: but once 10
/// seconds have passed since the command was sent, an event ends it with -2 as well.
///
/// Blocks up to 2 seconds for sending and up to 12 for the reply. After -2 the connection is best
/// closed: a reply that comes late would be taken for that to the next command.
int wpa_ctrl_request(WPA_CONTROL* ctrl, const char* cmd, unsigned int cmdLen, char* reply,
                     unsigned int* replyLen, void (*msgCallback)(char*, unsigned int));

/// Removes the local path and closes the connection; `ctrl` is gone then. Null is left alone.
void wpa_ctrl_close(WPA_CONTROL* ctrl);

/// The deleter of WpaControlOwner.
struct WpaControlCloser {
    /// Closes a connection.
    void operator()(WPA_CONTROL* control) const { wpa_ctrl_close(control); }
};

/// Owns a control connection and closes it, also when the owning worker is cancelled.
using WpaControlOwner = std::unique_ptr<WPA_CONTROL, WpaControlCloser>;
