#pragma once
// A stand-in for the USB multiplexer daemon, for tests and benchmarks: it serves the daemon's
// packet protocol on a Unix socket from a thread of its own.
//
// - "Listen": replies Number 0, sends "Attached" for each device already attached, and from
//   then on an "Attached" or "Detached" broadcast (tag 0) to every listener as devices come and
//   go.
// - "ListDevices": replies {"DeviceList": [the attach packets]}.
// - "Connect": Number 2 for a device that is not attached; otherwise it connects to
//   127.0.0.1:<the device's tunnel port>, replying Number 3 if that is refused, else Number 0,
//   after which it splices bytes both ways between the client's socket and that connection.
//   The requested "PortNumber" stands for the device's port and is not used.
// - Any other message type: Number 1. Packets it cannot read close the client's socket.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace havrel::testing {

class UsbmuxStandIn {
public:
    explicit UsbmuxStandIn(std::filesystem::path socketPath);  // starts serving at once
    ~UsbmuxStandIn();                                          // stops, closes everything
    UsbmuxStandIn(const UsbmuxStandIn&) = delete;
    UsbmuxStandIn& operator=(const UsbmuxStandIn&) = delete;

    // "UNIX:<path>", the form of USBMUXD_SOCKET_ADDRESS.
    std::string socketAddress() const;

    void attachDevice(std::int64_t deviceID, std::uint16_t tunnelPort, std::string connectionType = "USB");
    void detachDevice(std::int64_t deviceID);

    // Clients that have sent Listen and are still connected.
    std::size_t listenerCount() const;
    // Connects currently spliced.
    std::size_t tunnelCount() const;

    // Waits until listenerCount() reaches the count; false at the deadline. For a client that
    // runs on another thread; a client on the test's own main queue needs that queue run.
    bool waitForListenerCount(std::size_t count, std::chrono::milliseconds timeout) const;

private:
    struct Impl;
    std::shared_ptr<Impl> impl_;
};

}  // namespace havrel::testing
