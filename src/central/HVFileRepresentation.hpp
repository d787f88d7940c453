#pragma once
// One file in transit over USB: its name and its bytes, the bytes as base64 text on the wire.

#include "model/HVSerializeable.hpp"

#include <memory>
#include <optional>
#include <string>

namespace havrel {

class HVFileRepresentation final : public HVSerializeable {
public:
    static std::shared_ptr<HVFileRepresentation> create();
    // "filename" when a string; "data" decoded from base64 text, absent when the text is not
    // valid base64 (standard alphabet, padded, no line breaks) or not a string.
    static std::shared_ptr<HVFileRepresentation> initFromDictionary(const Dictionary& dictionary);

    std::optional<std::string> filename;
    std::optional<Bytes> data;

    // "filename" and the base64 text of "data" without line breaks. Both fields must be set:
    // writing an incomplete file is a programming fault.
    Dictionary dictionary() const override;
    std::string className() const override { return "HVFileRepresentation"; }
};

// Base64 text of the bytes (standard alphabet, padded, no line breaks).
std::string base64EncodedString(ByteView data);
// The bytes of base64 text; nothing for any character outside the alphabet, a length that is
// not a multiple of four, or misplaced padding.
std::optional<Bytes> base64DecodedData(std::string_view text);

}  // namespace havrel
