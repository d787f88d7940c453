#pragma once
// A KeyValueStore that keeps its values in memory, for the life of the object. Thread-safe.

#include "MIDIInternals/KeyValueStore.hpp"

#include <map>
#include <mutex>

namespace MIDIInternals {

class InMemoryKeyValueStore final : public KeyValueStore {
public:
    bool contains(const std::string& key) const override;
    std::optional<std::int64_t> integer(const std::string& key) const override;
    void setInteger(const std::string& key, std::int64_t value) override;
    void remove(const std::string& key) override;

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::int64_t> values_;
};

}  // namespace MIDIInternals
