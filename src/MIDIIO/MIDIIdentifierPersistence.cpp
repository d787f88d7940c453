#include "MIDIIO/MIDIIdentifierPersistence.hpp"

#include <limits>

namespace MIDIIO {

namespace {
std::shared_ptr<MIDIInternals::KeyValueStore> suiteOf(const MIDIIdentifierPersistence::UserDefaultsManaged& managed) {
    return managed.suite ? managed.suite : MIDIInternals::KeyValueStore::standard();
}
}  // namespace

std::optional<MIDIUniqueID> MIDIIdentifierPersistence::readID() const {
    struct Read {
        std::optional<MIDIUniqueID> operator()(const Unmanaged& p) const { return p.id; }
        std::optional<MIDIUniqueID> operator()(const UserDefaultsManaged& p) const {
            auto suite = suiteOf(p);
            if (!suite->contains(p.key)) {
                return std::nullopt;
            }
            auto value = suite->integer(p.key);
            if (!value || *value < std::numeric_limits<MIDIUniqueID>::min() ||
                *value > std::numeric_limits<MIDIUniqueID>::max()) {
                return std::nullopt;
            }
            return static_cast<MIDIUniqueID>(*value);
        }
        std::optional<MIDIUniqueID> operator()(const ManagedStorage& p) const {
            return p.readHandler ? p.readHandler() : std::nullopt;
        }
        std::optional<MIDIUniqueID> operator()(const AdHoc&) const { return std::nullopt; }
    };
    return std::visit(Read{}, storage_);
}

void MIDIIdentifierPersistence::writeID(std::optional<MIDIUniqueID> id) const {
    struct Write {
        std::optional<MIDIUniqueID> id;
        void operator()(const Unmanaged&) const {}
        void operator()(const UserDefaultsManaged& p) const {
            auto suite = suiteOf(p);
            if (id) {
                suite->setInteger(p.key, *id);
            } else {
                suite->remove(p.key);
            }
        }
        void operator()(const ManagedStorage& p) const {
            if (p.storeHandler) {
                p.storeHandler(id);
            }
        }
        void operator()(const AdHoc&) const {}
    };
    std::visit(Write{id}, storage_);
}

}  // namespace MIDIIO
