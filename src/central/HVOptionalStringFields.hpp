#pragma once
// Records whose wire form is a set of optional strings, each under its key: a key is read only
// when present as a string, and written only when its field is present.

#include "model/HVDictionaryReading.hpp"
#include "platform/Types.hpp"

#include <optional>
#include <string>
#include <utility>

namespace havrel {

// Fields is a range of (key, pointer to std::optional<std::string>) pairs.
template <typename Fields>
void readOptionalStrings(const Dictionary& dictionary, const Fields& fields) {
    for (const auto& [key, field] : fields) {
        if (auto value = stringValue(dictionary, key)) {
            *field = std::move(value);
        }
    }
}

template <typename Fields>
void writeOptionalStrings(Dictionary& dictionary, const Fields& fields) {
    for (const auto& [key, field] : fields) {
        if (*field) {
            dictionary[key] = **field;
        }
    }
}

}  // namespace havrel
