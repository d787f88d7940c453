#include "transport/usb/TNPropertyListPayload.hpp"

#include "platform/Log.hpp"
#include "platform/PropertyList.hpp"
#include "transport/usb/TNFrameHeader.hpp"

namespace havrel {

namespace {

std::optional<Dictionary> propertyListOfPayload(ByteView bytes) {
    // Payloads that arrived as frames are within the frame limit; others are held to it too.
    if (bytes.size() > kTNMaximumFramePayloadSize) {
        return std::nullopt;
    }
    return propertyListFromData(bytes);
}

}  // namespace

std::shared_ptr<const Bytes> createReferencingDispatchData(const Dictionary& dictionary) {
    auto result = propertyListData(dictionary, PropertyListFormat::binary);
    if (!result.data) {
        logf("Failed to serialize property list: {}", result.error);
        return nullptr;
    }
    return std::make_shared<const Bytes>(std::move(*result.data));
}

std::optional<Dictionary> dictionaryWithContentsOfDispatchData(const std::shared_ptr<TNData>& payload) {
    if (!payload) {
        return std::nullopt;
    }
    return propertyListOfPayload(payload->bytes());
}

std::optional<Dictionary> dictionaryWithContentsOfDispatchData(const std::shared_ptr<const Bytes>& dispatchData) {
    if (!dispatchData) {
        return std::nullopt;
    }
    return propertyListOfPayload(*dispatchData);
}

}  // namespace havrel
