#pragma once
// What the dictionary readers' targets share: a log that says nothing (a refusal logs a line
// per input), and written forms compared across two reads without their identifiers, which
// are new at every read.

#include "platform/Log.hpp"
#include "platform/Types.hpp"

#include <memory>
#include <string_view>

namespace havrel::fuzz {

class DiscardingSink final : public LogSink {
public:
    void write(std::string_view) override {}
};

inline Dictionary withoutIdentifiers(Dictionary value) {
    if (value.is_object()) {
        value.erase("UUID");
        for (auto& [key, element] : value.items()) {
            element = withoutIdentifiers(element);
        }
    } else if (value.is_array()) {
        for (auto& element : value) {
            element = withoutIdentifiers(element);
        }
    }
    return value;
}

}  // namespace havrel::fuzz
