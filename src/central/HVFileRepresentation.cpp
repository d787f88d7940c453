#include "central/HVFileRepresentation.hpp"

#include "model/HVDictionaryReading.hpp"
#include "platform/Assert.hpp"

#include <websocketpp/base64/base64.hpp>

#include <algorithm>

namespace havrel {

std::string base64EncodedString(ByteView data) {
    return websocketpp::base64_encode(data.data(), data.size());
}

std::optional<Bytes> base64DecodedData(std::string_view text) {
    // The library's decoder is lenient (it stops at the first character outside the alphabet and
    // takes any length): only whole groups, padded at the end alone, are handed to it.
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    const std::string_view body = text.substr(0, text.size() - padding);
    if (!std::all_of(body.begin(), body.end(), [](char c) { return websocketpp::is_base64(static_cast<unsigned char>(c)); })) {
        return std::nullopt;
    }
    const std::string decoded = websocketpp::base64_decode(std::string(text));
    return Bytes(decoded.begin(), decoded.end());
}

std::shared_ptr<HVFileRepresentation> HVFileRepresentation::create() {
    return std::make_shared<HVFileRepresentation>();
}

std::shared_ptr<HVFileRepresentation> HVFileRepresentation::initFromDictionary(const Dictionary& dictionary) {
    auto file = create();
    file->filename = stringValue(dictionary, "filename");
    if (auto text = stringValue(dictionary, "data")) {
        file->data = base64DecodedData(*text);
    }
    return file;
}

Dictionary HVFileRepresentation::dictionary() const {
    HV_ASSERT(filename.has_value() && data.has_value());
    return Dictionary{{"filename", *filename}, {"data", base64EncodedString(*data)}};
}

}  // namespace havrel
