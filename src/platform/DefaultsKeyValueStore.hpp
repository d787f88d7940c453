#pragma once
// The MIDI library's key-value store over the application's defaults store: each call goes to
// the process's standard DefaultsStore as it is at that moment, so a host or test that replaces
// the defaults store needs to do nothing more.

#include "MIDIInternals/KeyValueStore.hpp"

namespace havrel {

class DefaultsKeyValueStore final : public MIDIInternals::KeyValueStore {
public:
    bool contains(const std::string& key) const override;
    std::optional<std::int64_t> integer(const std::string& key) const override;
    void setInteger(const std::string& key, std::int64_t value) override;
    void remove(const std::string& key) override;
};

}  // namespace havrel
