#pragma once
// The keyed archiver offered to the host: an object graph to bytes and back.
//
// Format: a binary property list {"class": <className>, "root": <dictionary>}. Nested model
// objects travel inside the root dictionary, the way every model object serialises; the class
// named at the top is rebuilt through its registered factory, which rebuilds the rest.

#include "model/HVSerializeable.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace havrel {

using HVArchiveFactory = std::function<std::shared_ptr<HVSerializeable>(const Dictionary&)>;

// Makes a class restorable by HVUnarchiveObject. Registering a name again replaces its factory.
void HVRegisterArchivableClass(const std::string& className, HVArchiveFactory factory);

// Nothing for no object; on failure logs "[HVKeyedArchiving] could not archive <class>: <error>".
std::optional<Bytes> HVArchiveObject(const std::shared_ptr<const HVSerializeable>& object);

// Nothing for no data; a failure to read logs "[HVKeyedArchiving] could not read archive: <error>".
std::shared_ptr<HVSerializeable> HVUnarchiveObject(const std::optional<Bytes>& data);

}  // namespace havrel
