#include "MIDIIO/MIDIIOObjectProperty.hpp"

#include <utility>

namespace MIDIIO {

namespace {
struct Entry {
    std::string_view caseName;
    std::string_view key;
    std::string_view display;
    MIDIIOObjectProperty::Kind kind;
};

constexpr std::array<Entry, MIDIIOObjectProperty::caseCount> entries{{
#define MIDIIO_PROPERTY_ENTRY(caseName, Getter, key, display, kind) \
    {#caseName, key, display, MIDIIOObjectProperty::Kind::kind},
    MIDIIO_OBJECT_PROPERTIES(MIDIIO_PROPERTY_ENTRY)
#undef MIDIIO_PROPERTY_ENTRY
}};
}  // namespace

const std::array<MIDIIOObjectProperty, MIDIIOObjectProperty::caseCount>& MIDIIOObjectProperty::allCases() {
    static const auto all = []<std::size_t... I>(std::index_sequence<I...>) {
        return std::array<MIDIIOObjectProperty, caseCount>{MIDIIOObjectProperty(static_cast<Case>(I))...};
    }(std::make_index_sequence<caseCount>{});
    return all;
}

std::optional<MIDIIOObjectProperty> MIDIIOObjectProperty::fromKey(std::string_view key) {
    for (std::size_t i = 0; i < caseCount; ++i) {
        if (entries[i].key == key) {
            return MIDIIOObjectProperty(static_cast<Case>(i));
        }
    }
    return std::nullopt;
}

std::string_view MIDIIOObjectProperty::key() const { return entries[static_cast<std::size_t>(case_)].key; }
std::string_view MIDIIOObjectProperty::displayName() const { return entries[static_cast<std::size_t>(case_)].display; }
MIDIIOObjectProperty::Kind MIDIIOObjectProperty::valueKind() const { return entries[static_cast<std::size_t>(case_)].kind; }
std::string_view MIDIIOObjectProperty::description() const { return entries[static_cast<std::size_t>(case_)].caseName; }

}  // namespace MIDIIO
