#pragma once
// The client of the USB multiplexer daemon: one socket that listens for attach and detach
// broadcasts and turns them into notifications, and a further socket for each device connection
// that becomes a byte tunnel to a port on the device once the daemon accepts the Connect.
//
// The daemon comes and goes on Linux: it is started when a device is plugged in and exits when
// the last one leaves. So, unlike a hub that listens once for the life of the process, the
// shared hub follows the daemon (followDaemon): while no daemon listens to it, it tries again
// whenever an entry appears in the socket's folder and at least every kMaxRetryInterval; when
// its socket ends, the devices the old daemon announced are reported detached (one log line
// each) and a new socket sends Listen afresh, so that the new daemon's Attached messages bring
// them back.

#include "platform/FolderWatcher.hpp"
#include "platform/Timer.hpp"
#include "platform/Types.hpp"
#include "platform/WorkQueue.hpp"
#include "transport/usb/TNError.hpp"
#include "transport/usb/TNUSBDeviceConnector.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>

namespace havrel {

class TNUSBChannel;

// Posted on NotificationCenter::defaultCenter() with the hub's address as sender and the whole
// broadcast packet as user info.
inline constexpr const char* TNUSBDeviceDidAttachNotification = "TNUSBDeviceDidAttachNotification";
inline constexpr const char* TNUSBDeviceDidDetachNotification = "TNUSBDeviceDidDetachNotification";

class TNUSBHub : public TNUSBDeviceConnector, public std::enable_shared_from_this<TNUSBHub> {
public:
    // The one hub of the process. The first call creates it and starts its listening on the
    // main queue (posted there, so any thread may ask), logging the outcome and the socket's end.
    static std::shared_ptr<TNUSBHub> sharedHub();
    // Replaces the shared hub; nullptr: the next sharedHub() makes a new one.
    static void setSharedHubForTesting(std::shared_ptr<TNUSBHub> hub);
    static std::shared_ptr<TNUSBHub> create();
    ~TNUSBHub() override;

    // Opens the listening socket on the queue (called there) and sends Listen; onStart gets
    // the outcome, onEnd the socket's end. With a socket open or opening, only calls onStart
    // with no error; after a failed open or an end, opens a new one.
    void listenOnQueue(WorkQueue& queue, std::function<void(const TNOptionalError&)> onStart,
                       std::function<void(const TNOptionalError&)> onEnd);
    // Listens on the queue (called there) now and whenever the listening socket is lost, as
    // described above, logging each outcome. A second call does nothing.
    void followDaemon(WorkQueue& queue);
    static constexpr std::chrono::milliseconds kMinRetryInterval{50};
    static constexpr std::chrono::milliseconds kMaxRetryInterval{2000};
    // For tests and the host: a socket to the daemon is open and its Listen accepted.
    bool isListening() const { return listening_; }
    // Opens a socket of its own on the main queue and sends Connect. Any thread.
    void connectToDevice(std::int64_t deviceID, std::int32_t port, StartCallback onStart) override;
    // Posts "Attached" and "Detached" broadcasts as notifications; logs any other.
    void handleBroadcastPacket(const Dictionary& packet);

private:
    TNUSBHub() = default;
    void tryListening();
    void didLoseDaemon(const std::shared_ptr<TNUSBChannel>& channel, const TNOptionalError& error, bool ended);
    void scheduleRetry();
    // Reports every device the daemon announced as detached.
    void forgetDevices();

    std::shared_ptr<TNUSBChannel> channel_;  // the listening socket, open or opening
    bool listening_ = false;
    std::set<std::int64_t> attachedDevices_;  // as the daemon's broadcasts left them
    // Following the daemon.
    WorkQueue* queue_ = nullptr;
    std::shared_ptr<FolderWatcher> watcher_;
    std::shared_ptr<Timer> retryTimer_;
    std::chrono::milliseconds retryInterval_ = kMinRetryInterval;
    TNOptionalError lastFailure_;  // logged once until the outcome changes
};

}  // namespace havrel
