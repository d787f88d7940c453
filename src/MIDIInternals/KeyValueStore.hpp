#pragma once
// A small persistent key-value store of integers, where the MIDI library keeps what must
// survive to the next run (the unique IDs of virtual endpoints). The host implements it over its
// own settings; the default is an InMemoryKeyValueStore, which keeps values for the process
// only.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace MIDIInternals {

class KeyValueStore {
public:
    virtual ~KeyValueStore() = default;

    // Whether the key holds any value at all.
    virtual bool contains(const std::string& key) const = 0;
    // The value at the key when it is an integer; nothing when absent or of another kind.
    virtual std::optional<std::int64_t> integer(const std::string& key) const = 0;
    virtual void setInteger(const std::string& key, std::int64_t value) = 0;
    virtual void remove(const std::string& key) = 0;

    // The process's store: the installed one, else an in-memory store made on first use.
    static std::shared_ptr<KeyValueStore> standard();
    // Replaces the process's store; nullptr goes back to a fresh in-memory store.
    static void setStandard(std::shared_ptr<KeyValueStore> store);
};

}  // namespace MIDIInternals
