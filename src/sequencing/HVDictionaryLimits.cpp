#include "sequencing/HVDictionaryLimits.hpp"

#include "model/HVDictionaryReading.hpp"

#include <fmt/format.h>

namespace havrel {

std::optional<std::string> outOfRange(const Dictionary& dictionary, std::string_view key, std::int64_t lowest,
                                      std::int64_t highest) {
    const auto* entry = dictionaryValue(dictionary, key);
    if (!entry) {
        return std::nullopt;
    }
    // Unsigned numbers above the signed range read as out of range too.
    if (entry->is_number_unsigned() && entry->get<std::uint64_t>() > static_cast<std::uint64_t>(highest)) {
        return fmt::format("\"{}\" {} is out of range", key, entry->dump());
    }
    if (entry->is_number_float()) {
        const double number = entry->get<double>();
        if (!(number >= static_cast<double>(lowest) && number < static_cast<double>(highest) + 1.0)) {
            return fmt::format("\"{}\" {} is out of range", key, entry->dump());
        }
        return std::nullopt;
    }
    const auto number = integerValue(*entry);
    if (number && (*number < lowest || *number > highest)) {
        return fmt::format("\"{}\" {} is out of range", key, entry->dump());
    }
    return std::nullopt;
}

}  // namespace havrel
