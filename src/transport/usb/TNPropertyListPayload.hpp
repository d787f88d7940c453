#pragma once
// Property lists as frame payloads: written in binary form, read in any form.

#include "platform/Types.hpp"
#include "transport/usb/TNData.hpp"

#include <memory>
#include <optional>

namespace havrel {

// The dictionary as a binary property list, ready to send. On failure logs
// "Failed to serialize property list: <reason>" and gives nullptr.
std::shared_ptr<const Bytes> createReferencingDispatchData(const Dictionary& dictionary);

// The property list (XML or binary) in a payload; nothing for no payload or bytes that are not
// a property list, without a log line. The root is returned whatever its kind.
std::optional<Dictionary> dictionaryWithContentsOfDispatchData(const std::shared_ptr<TNData>& payload);
std::optional<Dictionary> dictionaryWithContentsOfDispatchData(const std::shared_ptr<const Bytes>& dispatchData);

}  // namespace havrel
