#include "transport/usb/RNUSBConnectionManager.hpp"

#include "platform/Log.hpp"
#include "platform/PropertyList.hpp"
#include "transport/usb/TNFrameType.hpp"

#include <string>

namespace havrel {

bool RNUSBConnectionManager::ioFrameChannelShouldAcceptFrameOfType(const std::shared_ptr<TNChannel>& channel,
                                                                   std::uint32_t type, std::uint32_t /*tag*/,
                                                                   std::uint32_t /*payloadSize*/) {
    if (TNFrameTypeIsKnown(type)) {
        return true;
    }
    logf("Unexpected frame of type {} — closing channel", type);
    channel->close();
    return false;
}

Dictionary RNUSBConnectionManager::infoFromDeviceInfoPayload(ByteView payload) {
    std::string text;
    if (auto decoded = propertyListFromData(payload)) {
        auto xml = propertyListData(*decoded, PropertyListFormat::xml);
        if (xml.data) {
            text.assign(xml.data->begin(), xml.data->end());
        }
    }
    return Dictionary{{"info", text}};
}

void RNUSBConnectionManager::ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<TNChannel>& channel,
                                                                 std::uint32_t type, std::uint32_t /*tag*/,
                                                                 const std::shared_ptr<TNData>& payload) {
    if (type != TNFrameTypeDeviceInfo || !payload) {
        return;
    }
    const Dictionary info = infoFromDeviceInfoPayload(payload->bytes());
    if (auto target = delegateOrNull()) {
        target->RNUSBConnectionManagerDidConnectToDeviceID(*this, channel->deviceID, info, channel);
    }
}

}  // namespace havrel
