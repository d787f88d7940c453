#pragma once
// Event filters. A selector fixes a class of events and a match within it; its prefix says
// what passes:
//   only...  the class events that match; everything else is dropped
//   keep...  the class events that match, and every event of another class
//   drop...  everything except the class events that match
// The class is channel voice for ...Type(s) and ...Channel(s), `cc` events for ...CC(s), note on
// and note off for ...NotesInRange(s) (closed ranges); for the system and utility selectors it
// is the selector's class. `only` passes exactly the class, `drop` exactly the rest. An empty
// list matches nothing: onlyCCs({}) drops all, keepCCs({}) drops every cc event, dropCCs({})
// keeps all.

#include "MIDICore/MIDIEvent.hpp"
#include "MIDIInternals/Ranges.hpp"

#include <cstddef>
#include <cstdint>
#include <variant>
#include <vector>

namespace MIDICore {

using NoteRange = MIDIInternals::ClosedRange<UInt7>;

#define MIDICORE_CHANVOICE_SELECTORS(prefix)                                                           \
    static ChanVoiceTypes prefix##Type(ChanVoiceType type) { return withTypes(Case::prefix##Type, {type}); } \
    static ChanVoiceTypes prefix##Types(EnumSet<ChanVoiceType> types) { return withTypes(Case::prefix##Types, types); } \
    static ChanVoiceTypes prefix##Channel(UInt4 channel) { return withChannels(Case::prefix##Channel, {channel}); } \
    static ChanVoiceTypes prefix##Channels(std::vector<UInt4> channels) {                              \
        return withChannels(Case::prefix##Channels, std::move(channels));                              \
    }                                                                                                  \
    static ChanVoiceTypes prefix##CC(Controller controller) { return withCCs(Case::prefix##CC, {controller}); } \
    static ChanVoiceTypes prefix##CC(UInt7 number) { return withCCs(Case::prefix##CC, {Controller(number)}); } \
    static ChanVoiceTypes prefix##CCs(std::vector<Controller> controllers) {                           \
        return withCCs(Case::prefix##CCs, std::move(controllers));                                     \
    }                                                                                                  \
    static ChanVoiceTypes prefix##CCs(const std::vector<UInt7>& numbers) {                             \
        return withCCs(Case::prefix##CCs, toControllers(numbers));                                     \
    }                                                                                                  \
    static ChanVoiceTypes prefix##NotesInRange(NoteRange range) {                                      \
        return withRanges(Case::prefix##NotesInRange, {range});                                        \
    }                                                                                                  \
    static ChanVoiceTypes prefix##NotesInRanges(std::vector<NoteRange> ranges) {                       \
        return withRanges(Case::prefix##NotesInRanges, std::move(ranges));                            \
    }

class ChanVoiceTypes {
public:
    enum class Case : std::uint8_t {
        onlyType, onlyTypes, onlyChannel, onlyChannels, onlyCC, onlyCCs, onlyNotesInRange, onlyNotesInRanges,
        keepType, keepTypes, keepChannel, keepChannels, keepCC, keepCCs, keepNotesInRange, keepNotesInRanges,
        dropType, dropTypes, dropChannel, dropChannels, dropCC, dropCCs, dropNotesInRange, dropNotesInRanges,
        only, drop,
    };

    MIDICORE_CHANVOICE_SELECTORS(only)
    MIDICORE_CHANVOICE_SELECTORS(keep)
    MIDICORE_CHANVOICE_SELECTORS(drop)
    static ChanVoiceTypes only() { return ChanVoiceTypes(Case::only); }
    static ChanVoiceTypes drop() { return ChanVoiceTypes(Case::drop); }

    Case kind() const { return case_; }
    bool passes(const MIDIEvent& event) const;

private:
    explicit ChanVoiceTypes(Case kind) : case_(kind) {}
    static ChanVoiceTypes withTypes(Case kind, EnumSet<ChanVoiceType> types);
    static ChanVoiceTypes withChannels(Case kind, std::vector<UInt4> channels);
    static ChanVoiceTypes withCCs(Case kind, std::vector<Controller> controllers);
    static ChanVoiceTypes withRanges(Case kind, std::vector<NoteRange> ranges);
    static std::vector<Controller> toControllers(const std::vector<UInt7>& numbers);

    Case case_;
    EnumSet<ChanVoiceType> types_;
    std::vector<UInt4> channels_;
    std::vector<Controller> controllers_;
    std::vector<NoteRange> ranges_;
};
#undef MIDICORE_CHANVOICE_SELECTORS

namespace detail {
// The prefix rule: whether an event passes, given whether it is of the selector's class and
// whether it matches. prefix 0 only, 1 keep, 2 drop.
bool passesPrefix(int prefix, bool inClass, bool matches);
}  // namespace detail

// The selectors of one system or utility class, the family of events of type Type.
template <class Type>
class SystemTypes {
public:
    enum class Case : std::uint8_t { onlyType, onlyTypes, keepType, keepTypes, dropType, dropTypes, only, drop };

    static SystemTypes onlyType(Type type) { return {Case::onlyType, {type}}; }
    static SystemTypes onlyTypes(EnumSet<Type> types) { return {Case::onlyTypes, types}; }
    static SystemTypes keepType(Type type) { return {Case::keepType, {type}}; }
    static SystemTypes keepTypes(EnumSet<Type> types) { return {Case::keepTypes, types}; }
    static SystemTypes dropType(Type type) { return {Case::dropType, {type}}; }
    static SystemTypes dropTypes(EnumSet<Type> types) { return {Case::dropTypes, types}; }
    static SystemTypes only() { return {Case::only, {}}; }
    static SystemTypes drop() { return {Case::drop, {}}; }

    Case kind() const { return case_; }
    bool passes(const MIDIEvent& event) const {
        const auto type = event.typeIn<Type>();
        const bool inClass = type.has_value();
        switch (case_) {
            case Case::only: return inClass;
            case Case::drop: return !inClass;
            default: {
                bool matches = inClass && types_.contains(*type);
                return detail::passesPrefix(static_cast<int>(case_) / 2, inClass, matches);
            }
        }
    }

private:
    SystemTypes(Case kind, EnumSet<Type> types) : case_(kind), types_(types) {}
    Case case_;
    EnumSet<Type> types_;
};

using SysExTypes = SystemTypes<SysExType>;
using SysCommonTypes = SystemTypes<SysCommonType>;
using SysRealTimeTypes = SystemTypes<SysRealTimeType>;
using UtilityTypes = SystemTypes<UtilityType>;

class MIDIEventFilter {
public:
    struct Group {
        UInt4 group;
    };
    struct Groups {
        std::vector<UInt4> groups;
    };
    using Selector = std::variant<ChanVoiceTypes, SysExTypes, SysCommonTypes, SysRealTimeTypes, UtilityTypes, Group, Groups>;

    static MIDIEventFilter chanVoice(ChanVoiceTypes types) { return MIDIEventFilter(std::move(types)); }
    static MIDIEventFilter sysEx(SysExTypes types) { return MIDIEventFilter(types); }
    static MIDIEventFilter sysCommon(SysCommonTypes types) { return MIDIEventFilter(types); }
    static MIDIEventFilter sysRealTime(SysRealTimeTypes types) { return MIDIEventFilter(types); }
    static MIDIEventFilter utility(UtilityTypes types) { return MIDIEventFilter(types); }
    // Only the events of the group(s).
    static MIDIEventFilter group(UInt4 group) { return MIDIEventFilter(Group{group}); }
    static MIDIEventFilter groups(std::vector<UInt4> groups) { return MIDIEventFilter(Groups{std::move(groups)}); }

    const Selector& selector() const { return selector_; }
    bool passes(const MIDIEvent& event) const;
    // The events that pass, in their order.
    std::vector<MIDIEvent> apply(const std::vector<MIDIEvent>& events) const;

private:
    explicit MIDIEventFilter(Selector selector) : selector_(std::move(selector)) {}
    Selector selector_;
};

// Filters applied in turn, each to the result of the one before. No filters pass everything.
class MIDIEventFilterGroup {
public:
    MIDIEventFilterGroup() = default;
    explicit MIDIEventFilterGroup(std::vector<MIDIEventFilter> filters) : filters(std::move(filters)) {}
    explicit MIDIEventFilterGroup(MIDIEventFilter filter) : filters{std::move(filter)} {}

    std::vector<MIDIEventFilter> filters;
    std::vector<MIDIEvent> filter(const std::vector<MIDIEvent>& events) const;
};

// Over a list of events: the filter forms keep what passes; the drop forms keep what the
// filter forms remove.
std::vector<MIDIEvent> filter(const std::vector<MIDIEvent>& events, const ChanVoiceTypes& chanVoice);
std::vector<MIDIEvent> filter(const std::vector<MIDIEvent>& events, const SysExTypes& sysEx);
std::vector<MIDIEvent> filter(const std::vector<MIDIEvent>& events, const SysCommonTypes& sysCommon);
std::vector<MIDIEvent> filter(const std::vector<MIDIEvent>& events, const SysRealTimeTypes& sysRealTime);
std::vector<MIDIEvent> filter(const std::vector<MIDIEvent>& events, const UtilityTypes& utility);
std::vector<MIDIEvent> filter(const std::vector<MIDIEvent>& events, UInt4 group);
std::vector<MIDIEvent> filter(const std::vector<MIDIEvent>& events, const std::vector<UInt4>& groups);
std::vector<MIDIEvent> drop(const std::vector<MIDIEvent>& events, UInt4 group);
std::vector<MIDIEvent> drop(const std::vector<MIDIEvent>& events, const std::vector<UInt4>& groups);

}  // namespace MIDICore
