#include "central/HVFileRepresentation.hpp"

#include "model/HVDictionaryReading.hpp"
#include "platform/Assert.hpp"

#include <array>

namespace havrel {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kInvalid = 0xFF;

constexpr std::array<std::uint8_t, 256> decodingTable() {
    std::array<std::uint8_t, 256> table{};
    table.fill(kInvalid);
    for (std::uint8_t i = 0; i < 64; ++i) {
        table[static_cast<unsigned char>(kAlphabet[i])] = i;
    }
    return table;
}

}  // namespace

std::string base64EncodedString(ByteView data) {
    std::string text;
    text.reserve((data.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < data.size(); i += 3) {
        const std::size_t remaining = data.size() - i;
        const std::uint32_t group = (static_cast<std::uint32_t>(data[i]) << 16) |
                                    (remaining > 1 ? static_cast<std::uint32_t>(data[i + 1]) << 8 : 0) |
                                    (remaining > 2 ? data[i + 2] : 0);
        text += kAlphabet[(group >> 18) & 63];
        text += kAlphabet[(group >> 12) & 63];
        text += remaining > 1 ? kAlphabet[(group >> 6) & 63] : '=';
        text += remaining > 2 ? kAlphabet[group & 63] : '=';
    }
    return text;
}

std::optional<Bytes> base64DecodedData(std::string_view text) {
    static constexpr auto table = decodingTable();
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    Bytes bytes;
    bytes.reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        // Padding only at the end of the last group: "xx==" or "xxx=".
        const std::size_t padding = last ? (text[i + 3] == '=') + (text[i + 3] == '=' && text[i + 2] == '=') : 0;
        std::uint32_t group = 0;
        for (std::size_t j = 0; j < 4; ++j) {
            if (j >= 4 - padding) {
                group <<= 6;
                continue;
            }
            const std::uint8_t value = table[static_cast<unsigned char>(text[i + j])];
            if (value == kInvalid) {
                return std::nullopt;
            }
            group = (group << 6) | value;
        }
        bytes.push_back(static_cast<std::uint8_t>(group >> 16));
        if (padding < 2) {
            bytes.push_back(static_cast<std::uint8_t>(group >> 8));
        }
        if (padding < 1) {
            bytes.push_back(static_cast<std::uint8_t>(group));
        }
    }
    return bytes;
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
