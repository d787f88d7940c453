#pragma once
// Where a virtual endpoint's unique ID is kept between runs.

#include "MIDIIO/MIDIPlatform.hpp"
#include "MIDIInternals/KeyValueStore.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace MIDIIO {

class MIDIIdentifierPersistence {
public:
    using ReadHandler = std::function<std::optional<MIDIUniqueID>()>;
    using StoreHandler = std::function<void(std::optional<MIDIUniqueID>)>;

    struct Unmanaged { MIDIUniqueID id; };
    struct UserDefaultsManaged { std::string key; std::shared_ptr<MIDIInternals::KeyValueStore> suite; };
    struct ManagedStorage { ReadHandler readHandler; StoreHandler storeHandler; };
    struct AdHoc {};
    using Storage = std::variant<Unmanaged, UserDefaultsManaged, ManagedStorage, AdHoc>;

    static MIDIIdentifierPersistence unmanaged(MIDIUniqueID id) { return MIDIIdentifierPersistence(Unmanaged{id}); }
    // A null suite means the process's standard store (MIDIInternals::KeyValueStore::standard()).
    static MIDIIdentifierPersistence userDefaultsManaged(std::string key,
                                                         std::shared_ptr<MIDIInternals::KeyValueStore> suite = nullptr) {
        return MIDIIdentifierPersistence(UserDefaultsManaged{std::move(key), std::move(suite)});
    }
    static MIDIIdentifierPersistence managedStorage(ReadHandler readHandler, StoreHandler storeHandler) {
        return MIDIIdentifierPersistence(ManagedStorage{std::move(readHandler), std::move(storeHandler)});
    }
    static MIDIIdentifierPersistence adHoc() { return MIDIIdentifierPersistence(AdHoc{}); }

    const Storage& storage() const { return storage_; }
    std::optional<MIDIUniqueID> readID() const;
    void writeID(std::optional<MIDIUniqueID> id) const;

private:
    explicit MIDIIdentifierPersistence(Storage storage) : storage_(std::move(storage)) {}
    Storage storage_;
};

}  // namespace MIDIIO
