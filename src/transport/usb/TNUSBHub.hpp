#pragma once
// The client of the USB multiplexer daemon: one socket that listens for attach and detach
// broadcasts and turns them into notifications, and a further socket for each device connection
// that becomes a byte tunnel to a port on the device once the daemon accepts the Connect.
//
// A hub listens once. When its socket cannot open or ends, it is not opened again and a later
// listenOnQueue() reports success without doing anything: broadcasts stop for the life of that
// hub. A new hub (setSharedHubForTesting(nullptr), then sharedHub()) listens afresh.

#include "platform/Types.hpp"
#include "platform/WorkQueue.hpp"
#include "transport/usb/TNError.hpp"
#include "transport/usb/TNUSBDeviceConnector.hpp"

#include <cstdint>
#include <functional>
#include <memory>

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
    // the outcome, onEnd the socket's end. With a socket already made, only calls onStart
    // with no error.
    void listenOnQueue(WorkQueue& queue, std::function<void(const TNOptionalError&)> onStart,
                       std::function<void(const TNOptionalError&)> onEnd);
    // Opens a socket of its own on the main queue and sends Connect. Any thread.
    void connectToDevice(std::int64_t deviceID, std::int32_t port, StartCallback onStart) override;
    // Posts "Attached" and "Detached" broadcasts as notifications; logs any other.
    void handleBroadcastPacket(const Dictionary& packet);

private:
    TNUSBHub() = default;

    std::shared_ptr<TNUSBChannel> channel_;  // the listening socket; stays once made
};

}  // namespace havrel
