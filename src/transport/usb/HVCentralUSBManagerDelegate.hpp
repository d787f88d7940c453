#pragma once
// What the USB transport asks of the client registry: the verdict on a client that has sent
// its first frame, the news of a channel's end, and the record that frames of a device belong
// to. A device number is absent for the local IPv4 path; the channel tells the connections
// apart there (nullptr where a caller has none). Called on the main queue.

#include "platform/Types.hpp"

#include <cstdint>
#include <memory>
#include <optional>

namespace havrel {

class HVCentralUSBManager;
class RNUSBClient;
class TNChannel;

class HVCentralUSBManagerDelegate {
public:
    virtual ~HVCentralUSBManagerDelegate() = default;

    // info holds "info": the XML property-list text of the client's first frame.
    virtual void HVCentralUSBManagerDidConnectToDeviceID(HVCentralUSBManager* manager,
                                                        std::optional<std::int64_t> deviceID,
                                                        const Dictionary& info,
                                                        const std::shared_ptr<TNChannel>& channel) = 0;
    virtual void HVCentralUSBManagerDidDisconnectFromDeviceID(HVCentralUSBManager* manager,
                                                             std::optional<std::int64_t> deviceID,
                                                             const Dictionary& info,
                                                             const std::shared_ptr<TNChannel>& channel) = 0;
    virtual std::shared_ptr<RNUSBClient> usbClientWithDeviceID(std::optional<std::int64_t> deviceID) = 0;
    // The USB record that the channel's first frame made, or nullptr.
    virtual std::shared_ptr<RNUSBClient> usbClientForChannel(const std::shared_ptr<TNChannel>& channel) = 0;
};

}  // namespace havrel
