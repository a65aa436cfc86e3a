#pragma once

/// What a connection tells about its link.
enum NetworkEvent : int { NETWORK_DOWN = 0, NETWORK_CONNECTING = 1, NETWORK_UP = 2 };

/// Told by a NetworkConnection what happens to its link. Implemented by the application; not
/// destroyed through this interface.
///
/// The calls come from the connection's worker, or from whichever thread calls the connection, with
/// the lock of the listener list held: a listener must not add or remove listeners of the same
/// connection, nor call its operations that report something, nor wait for the windowing library's
/// lock. The texts are the connection's own and stay valid.
class NetworkEventListener {
public:
    /// The link goes up or down, or is being worked at.
    virtual void networkEvent(NetworkEvent event) = 0;

    /// 0 to 100, 0 while not registered or associated; -28 upwards of a Bluetooth link.
    virtual void signalQuality(int percent) = 0;

    /// A step has failed, or cannot be done.
    virtual void errorMessage(const char* text) = 0;

    /// A step begins or is done.
    virtual void statusMessage(const char* text) = 0;

protected:
    ~NetworkEventListener() = default;
};
