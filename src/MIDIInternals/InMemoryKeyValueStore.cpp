#include "MIDIInternals/InMemoryKeyValueStore.hpp"

#include <utility>

namespace MIDIInternals {

bool InMemoryKeyValueStore::contains(const std::string& key) const {
    std::lock_guard lock(mutex_);
    return values_.contains(key);
}

std::optional<std::int64_t> InMemoryKeyValueStore::integer(const std::string& key) const {
    std::lock_guard lock(mutex_);
    auto it = values_.find(key);
    return it == values_.end() ? std::nullopt : std::optional<std::int64_t>(it->second);
}

void InMemoryKeyValueStore::setInteger(const std::string& key, std::int64_t value) {
    std::lock_guard lock(mutex_);
    values_[key] = value;
}

void InMemoryKeyValueStore::remove(const std::string& key) {
    std::lock_guard lock(mutex_);
    values_.erase(key);
}

}  // namespace MIDIInternals
