#include "MIDICore/MIDIEventFilter.hpp"

#include <algorithm>

namespace MIDICore {

namespace detail {
bool passesPrefix(int prefix, bool inClass, bool matches) {
    switch (prefix) {
        case 0: return inClass && matches;
        case 1: return !inClass || matches;
        default: return !(inClass && matches);
    }
}
}  // namespace detail

namespace {

template <class T>
bool contains(const std::vector<T>& values, const T& value) {
    return std::find(values.begin(), values.end(), value) != values.end();
}

std::vector<MIDIEvent> keepIf(const std::vector<MIDIEvent>& events, auto&& passes) {
    std::vector<MIDIEvent> kept;
    for (const auto& event : events) {
        if (passes(event)) {
            kept.push_back(event);
        }
    }
    return kept;
}

}  // namespace

ChanVoiceTypes ChanVoiceTypes::withTypes(Case kind, EnumSet<ChanVoiceType> types) {
    ChanVoiceTypes selector(kind);
    selector.types_ = types;
    return selector;
}

ChanVoiceTypes ChanVoiceTypes::withChannels(Case kind, std::vector<UInt4> channels) {
    ChanVoiceTypes selector(kind);
    selector.channels_ = std::move(channels);
    return selector;
}

ChanVoiceTypes ChanVoiceTypes::withCCs(Case kind, std::vector<Controller> controllers) {
    ChanVoiceTypes selector(kind);
    selector.controllers_ = std::move(controllers);
    return selector;
}

ChanVoiceTypes ChanVoiceTypes::withRanges(Case kind, std::vector<NoteRange> ranges) {
    ChanVoiceTypes selector(kind);
    selector.ranges_ = std::move(ranges);
    return selector;
}

std::vector<Controller> ChanVoiceTypes::toControllers(const std::vector<UInt7>& numbers) {
    std::vector<Controller> controllers;
    controllers.reserve(numbers.size());
    for (auto number : numbers) {
        controllers.emplace_back(number);
    }
    return controllers;
}

bool ChanVoiceTypes::passes(const MIDIEvent& event) const {
    if (case_ == Case::only) {
        return event.isChannelVoice();
    }
    if (case_ == Case::drop) {
        return !event.isChannelVoice();
    }
    int index = static_cast<int>(case_);
    int prefix = index / 8;
    bool inClass = false;
    bool matches = false;
    switch ((index % 8) / 2) {
        case 0:  // Type, Types
            inClass = event.isChannelVoice();
            matches = inClass && types_.contains(*event.chanVoiceType());
            break;
        case 1:  // Channel, Channels
            inClass = event.isChannelVoice();
            matches = inClass && contains(channels_, *event.channel());
            break;
        case 2:  // CC, CCs
            if (const auto* cc = event.get<MIDIEvent::CC>()) {
                inClass = true;
                matches = contains(controllers_, cc->controller);
            }
            break;
        default: {  // NotesInRange, NotesInRanges
            std::optional<UInt7> note;
            if (const auto* on = event.get<MIDIEvent::NoteOn>()) {
                note = on->note.number();
            } else if (const auto* off = event.get<MIDIEvent::NoteOff>()) {
                note = off->note.number();
            }
            inClass = note.has_value();
            matches = inClass && std::any_of(ranges_.begin(), ranges_.end(),
                                             [&](const NoteRange& range) { return range.contains(*note); });
            break;
        }
    }
    return detail::passesPrefix(prefix, inClass, matches);
}

bool MIDIEventFilter::passes(const MIDIEvent& event) const {
    return std::visit(
        [&](const auto& selector) {
            using S = std::decay_t<decltype(selector)>;
            if constexpr (std::is_same_v<S, Group>) {
                return event.group() == selector.group;
            } else if constexpr (std::is_same_v<S, Groups>) {
                return contains(selector.groups, event.group());
            } else {
                return selector.passes(event);
            }
        },
        selector_);
}

std::vector<MIDIEvent> MIDIEventFilter::apply(const std::vector<MIDIEvent>& events) const {
    return keepIf(events, [this](const MIDIEvent& event) { return passes(event); });
}

std::vector<MIDIEvent> MIDIEventFilterGroup::filter(const std::vector<MIDIEvent>& events) const {
    std::vector<MIDIEvent> result = events;
    for (const auto& each : filters) {
        result = each.apply(result);
    }
    return result;
}

std::vector<MIDIEvent> filter(const std::vector<MIDIEvent>& events, const ChanVoiceTypes& chanVoice) {
    return MIDIEventFilter::chanVoice(chanVoice).apply(events);
}
std::vector<MIDIEvent> filter(const std::vector<MIDIEvent>& events, const SysExTypes& sysEx) {
    return MIDIEventFilter::sysEx(sysEx).apply(events);
}
std::vector<MIDIEvent> filter(const std::vector<MIDIEvent>& events, const SysCommonTypes& sysCommon) {
    return MIDIEventFilter::sysCommon(sysCommon).apply(events);
}
std::vector<MIDIEvent> filter(const std::vector<MIDIEvent>& events, const SysRealTimeTypes& sysRealTime) {
    return MIDIEventFilter::sysRealTime(sysRealTime).apply(events);
}
std::vector<MIDIEvent> filter(const std::vector<MIDIEvent>& events, const UtilityTypes& utility) {
    return MIDIEventFilter::utility(utility).apply(events);
}
std::vector<MIDIEvent> filter(const std::vector<MIDIEvent>& events, UInt4 group) {
    return MIDIEventFilter::group(group).apply(events);
}
std::vector<MIDIEvent> filter(const std::vector<MIDIEvent>& events, const std::vector<UInt4>& groups) {
    return MIDIEventFilter::groups(groups).apply(events);
}
std::vector<MIDIEvent> drop(const std::vector<MIDIEvent>& events, UInt4 group) {
    return keepIf(events, [&](const MIDIEvent& event) { return event.group() != group; });
}
std::vector<MIDIEvent> drop(const std::vector<MIDIEvent>& events, const std::vector<UInt4>& groups) {
    return keepIf(events, [&](const MIDIEvent& event) { return !contains(groups, event.group()); });
}

}  // namespace MIDICore
