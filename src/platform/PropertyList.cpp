#include "platform/PropertyList.hpp"

#include <plist/plist.h>

#include <cstdlib>
#include <memory>

namespace havrel {

namespace {

struct PlistFree {
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistFree>;

// Converts a JSON value to a new plist node; nullptr and an error text on failure.
plist_t toPlist(const Dictionary& value, std::string& error, int depth) {
    if (depth > 512) {
        error = "nesting too deep";
        return nullptr;
    }
    switch (value.type()) {
    case Dictionary::value_t::object: {
        plist_t dict = plist_new_dict();
        for (const auto& [key, item] : value.items()) {
            plist_t child = toPlist(item, error, depth + 1);
            if (child == nullptr) {
                plist_free(dict);
                return nullptr;
            }
            plist_dict_set_item(dict, key.c_str(), child);
        }
        return dict;
    }
    case Dictionary::value_t::array: {
        plist_t array = plist_new_array();
        for (const auto& item : value) {
            plist_t child = toPlist(item, error, depth + 1);
            if (child == nullptr) {
                plist_free(array);
                return nullptr;
            }
            plist_array_append_item(array, child);
        }
        return array;
    }
    case Dictionary::value_t::string:
        return plist_new_string(value.get_ref<const std::string&>().c_str());
    case Dictionary::value_t::boolean:
        return plist_new_bool(value.get<bool>() ? 1 : 0);
    case Dictionary::value_t::number_integer: {
        auto n = value.get<std::int64_t>();
        return plist_new_uint(static_cast<std::uint64_t>(n));
    }
    case Dictionary::value_t::number_unsigned:
        return plist_new_uint(value.get<std::uint64_t>());
    case Dictionary::value_t::number_float:
        return plist_new_real(value.get<double>());
    case Dictionary::value_t::binary: {
        const auto& bin = value.get_binary();
        return plist_new_data(reinterpret_cast<const char*>(bin.data()), bin.size());
    }
    case Dictionary::value_t::null:
        error = "a null value has no property-list form";
        return nullptr;
    case Dictionary::value_t::discarded:
        error = "a discarded value has no property-list form";
        return nullptr;
    }
    error = "unknown value kind";
    return nullptr;
}

std::optional<Dictionary> fromPlist(plist_t node, int depth) {
    if (node == nullptr || depth > 512) {
        return std::nullopt;
    }
    switch (plist_get_node_type(node)) {
    case PLIST_DICT: {
        Dictionary object = Dictionary::object();
        plist_dict_iter iter = nullptr;
        plist_dict_new_iter(node, &iter);
        if (iter == nullptr) {
            return object;
        }
        for (;;) {
            char* key = nullptr;
            plist_t child = nullptr;
            plist_dict_next_item(node, iter, &key, &child);
            if (child == nullptr) {
                std::free(key);
                break;
            }
            auto converted = fromPlist(child, depth + 1);
            if (converted && key != nullptr) {
                object[key] = std::move(*converted);
            }
            std::free(key);
            if (!converted) {
                std::free(iter);
                return std::nullopt;
            }
        }
        std::free(iter);
        return object;
    }
    case PLIST_ARRAY: {
        Dictionary array = Dictionary::array();
        std::uint32_t count = plist_array_get_size(node);
        for (std::uint32_t i = 0; i < count; ++i) {
            auto converted = fromPlist(plist_array_get_item(node, i), depth + 1);
            if (!converted) {
                return std::nullopt;
            }
            array.push_back(std::move(*converted));
        }
        return array;
    }
    case PLIST_STRING: {
        // By pointer and length: a string may hold NUL bytes.
        std::uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        return Dictionary(text != nullptr ? std::string(text, length) : std::string());
    }
    case PLIST_KEY: {
        char* text = nullptr;
        plist_get_key_val(node, &text);
        std::string result = text != nullptr ? text : "";
        std::free(text);
        return Dictionary(result);
    }
    case PLIST_BOOLEAN: {
        std::uint8_t flag = 0;
        plist_get_bool_val(node, &flag);
        return Dictionary(flag != 0);
    }
    case PLIST_UINT: {
        std::uint64_t value = 0;
        plist_get_uint_val(node, &value);
        // Property-list integers carry their sign in two's complement.
        return Dictionary(static_cast<std::int64_t>(value));
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return Dictionary(value);
    }
    case PLIST_DATA: {
        char* bytes = nullptr;
        std::uint64_t length = 0;
        plist_get_data_val(node, &bytes, &length);
        Dictionary::binary_t binary;
        if (bytes != nullptr) {
            binary.assign(reinterpret_cast<std::uint8_t*>(bytes),
                          reinterpret_cast<std::uint8_t*>(bytes) + length);
        }
        std::free(bytes);
        return Dictionary::binary(std::move(binary));
    }
    case PLIST_DATE: {
        std::int32_t seconds = 0;
        std::int32_t microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        return Dictionary(static_cast<double>(seconds) + microseconds / 1e6);
    }
    case PLIST_UID: {
        std::uint64_t value = 0;
        plist_get_uid_val(node, &value);
        return Dictionary(value);
    }
    default:
        return std::nullopt;
    }
}

}  // namespace

PropertyListWriteResult propertyListData(const Dictionary& value, PropertyListFormat format) {
    PropertyListWriteResult result;
    PlistPtr root(toPlist(value, result.error, 0));
    if (!root) {
        return result;
    }
    char* out = nullptr;
    std::uint32_t length = 0;
    if (format == PropertyListFormat::xml) {
        plist_to_xml(root.get(), &out, &length);
    } else {
        plist_to_bin(root.get(), &out, &length);
    }
    if (out == nullptr) {
        result.error = "the property list could not be written";
        return result;
    }
    result.data = Bytes(reinterpret_cast<std::uint8_t*>(out), reinterpret_cast<std::uint8_t*>(out) + length);
    if (format == PropertyListFormat::xml) {
        plist_to_xml_free(out);
    } else {
        plist_to_bin_free(out);
    }
    return result;
}

std::optional<Dictionary> propertyListFromData(ByteView data) {
    if (data.empty() || data.size() > UINT32_MAX) {
        return std::nullopt;
    }
    plist_t root = nullptr;
    plist_from_memory(reinterpret_cast<const char*>(data.data()), static_cast<std::uint32_t>(data.size()),
                      &root);
    PlistPtr owner(root);
    return fromPlist(root, 0);
}

}  // namespace havrel
