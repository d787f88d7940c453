#include "model/HVDictionaryReading.hpp"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace havrel {

namespace {

std::int64_t saturatingTruncate(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    constexpr double lowest = static_cast<double>(std::numeric_limits<std::int64_t>::min());
    constexpr double highest = static_cast<double>(std::numeric_limits<std::int64_t>::max());
    if (value <= lowest) {
        return std::numeric_limits<std::int64_t>::min();
    }
    if (value >= highest) {
        return std::numeric_limits<std::int64_t>::max();
    }
    return static_cast<std::int64_t>(value);
}

// The leading decimal integer of a string, after white space and an optional sign.
std::int64_t leadingInteger(const std::string& text) {
    std::size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) {
        ++i;
    }
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    std::int64_t value = 0;
    constexpr std::int64_t limit = std::numeric_limits<std::int64_t>::max() / 10 - 1;
    while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
        if (value < limit) {
            value = value * 10 + (text[i] - '0');
        }
        ++i;
    }
    return negative ? -value : value;
}

}  // namespace

const Dictionary* dictionaryValue(const Dictionary& dictionary, std::string_view key) {
    if (!dictionary.is_object()) {
        return nullptr;
    }
    auto it = dictionary.find(key);
    return it == dictionary.end() ? nullptr : &*it;
}

std::optional<std::int64_t> integerValue(const Dictionary& value) {
    switch (value.type()) {
    case Dictionary::value_t::number_integer:
        return value.get<std::int64_t>();
    case Dictionary::value_t::number_unsigned:
        return static_cast<std::int64_t>(value.get<std::uint64_t>());
    case Dictionary::value_t::number_float:
        return saturatingTruncate(value.get<double>());
    case Dictionary::value_t::boolean:
        return value.get<bool>() ? 1 : 0;
    case Dictionary::value_t::string:
        return leadingInteger(value.get_ref<const std::string&>());
    default:
        return std::nullopt;
    }
}

std::optional<std::int64_t> integerValue(const Dictionary& dictionary, std::string_view key) {
    const Dictionary* value = dictionaryValue(dictionary, key);
    return value ? integerValue(*value) : std::nullopt;
}

std::optional<std::int32_t> intValue(const Dictionary& value) {
    auto wide = integerValue(value);
    if (!wide) {
        return std::nullopt;
    }
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(*wide)));
}

std::optional<std::int32_t> intValue(const Dictionary& dictionary, std::string_view key) {
    const Dictionary* value = dictionaryValue(dictionary, key);
    return value ? intValue(*value) : std::nullopt;
}

std::optional<double> doubleValue(const Dictionary& value) {
    switch (value.type()) {
    case Dictionary::value_t::number_integer:
    case Dictionary::value_t::number_unsigned:
    case Dictionary::value_t::number_float:
        return value.get<double>();
    case Dictionary::value_t::boolean:
        return value.get<bool>() ? 1.0 : 0.0;
    case Dictionary::value_t::string: {
        const auto& text = value.get_ref<const std::string&>();
        return std::strtod(text.c_str(), nullptr);
    }
    default:
        return std::nullopt;
    }
}

std::optional<double> doubleValue(const Dictionary& dictionary, std::string_view key) {
    const Dictionary* value = dictionaryValue(dictionary, key);
    return value ? doubleValue(*value) : std::nullopt;
}

std::optional<bool> boolValue(const Dictionary& value) {
    switch (value.type()) {
    case Dictionary::value_t::boolean:
        return value.get<bool>();
    case Dictionary::value_t::number_integer:
    case Dictionary::value_t::number_unsigned:
        return value.get<std::int64_t>() != 0;
    case Dictionary::value_t::number_float:
        return value.get<double>() != 0.0;
    case Dictionary::value_t::string: {
        const auto& text = value.get_ref<const std::string&>();
        std::size_t i = 0;
        while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) {
            ++i;
        }
        if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
            ++i;
        }
        while (i < text.size() && text[i] == '0') {
            ++i;
        }
        if (i >= text.size()) {
            return false;
        }
        char c = text[i];
        return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
    }
    default:
        return std::nullopt;
    }
}

std::optional<bool> boolValue(const Dictionary& dictionary, std::string_view key) {
    const Dictionary* value = dictionaryValue(dictionary, key);
    return value ? boolValue(*value) : std::nullopt;
}

std::optional<std::string> stringValue(const Dictionary& dictionary, std::string_view key) {
    const Dictionary* value = dictionaryValue(dictionary, key);
    if (value == nullptr || !value->is_string()) {
        return std::nullopt;
    }
    return value->get<std::string>();
}

const Dictionary* objectValue(const Dictionary& dictionary, std::string_view key) {
    const Dictionary* value = dictionaryValue(dictionary, key);
    return value != nullptr && value->is_object() ? value : nullptr;
}

const Dictionary* arrayValue(const Dictionary& dictionary, std::string_view key) {
    const Dictionary* value = dictionaryValue(dictionary, key);
    return value != nullptr && value->is_array() ? value : nullptr;
}

}  // namespace havrel

#include "platform/Log.hpp"

namespace havrel {

Dictionary parseJSONFromOutside(ByteView text, std::string_view reader, std::string* error) {
    // Nesting is measured before parsing, outside strings, so the parser never builds a tree
    // too deep to copy.
    std::size_t depth = 0;
    bool inString = false;
    bool escaped = false;
    for (std::uint8_t c : text) {
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                inString = false;
            }
            continue;
        }
        if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > kMaximumJSONDepth) {
                logf("{}: JSON nested deeper than {} levels, refused", reader, kMaximumJSONDepth);
                if (error != nullptr) {
                    *error = fmt::format("JSON nested deeper than {} levels", kMaximumJSONDepth);
                }
                return Dictionary(Dictionary::value_t::discarded);
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    if (error == nullptr) {
        return Dictionary::parse(text.begin(), text.end(), nullptr, false);
    }
    // The depth is bounded by now, so the throwing parser is safe and names the fault.
    try {
        return Dictionary::parse(text.begin(), text.end());
    } catch (const Dictionary::exception& exception) {
        *error = exception.what();
        return Dictionary(Dictionary::value_t::discarded);
    }
}

}  // namespace havrel
