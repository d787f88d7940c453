#pragma once
// Property lists (XML and binary) to and from JSON values.
//
// Mapping: dictionary <-> object, array <-> array, string <-> string, integer <-> integer,
// real <-> float, boolean <-> boolean, data <-> binary. A plist date reads as a float (seconds
// since 2001-01-01). A JSON null has no property-list form: writing one fails.

#include "platform/Types.hpp"

#include <optional>
#include <string>

namespace havrel {

enum class PropertyListFormat { xml, binary };

struct PropertyListWriteResult {
    std::optional<Bytes> data;  // absent on failure
    std::string error;          // why it failed
};

// Serialises a JSON value as a property list. Fails on null values.
PropertyListWriteResult propertyListData(const Dictionary& value, PropertyListFormat format);

// Reads a property list of any form (XML, binary). Nothing when the bytes are not one.
// Input size is bounded by the caller.
std::optional<Dictionary> propertyListFromData(ByteView data);

}  // namespace havrel
