#include "MIDICore/MIDIEvent.hpp"

#include "MIDIInternals/TextHelpers.hpp"

#include <initializer_list>

namespace MIDICore {

namespace {

template <class Parameter>
std::vector<MIDIEvent> midi1ParameterEvents(const Parameter& parameter, UInt4 channel, UInt4 group) {
    auto [msbController, lsbController] = controllers(parameter.type());
    auto bytes = parameter.parameterBytes();
    auto data = parameter.dataEntryBytes();
    std::vector<MIDIEvent> events{
        MIDIEvent::cc(msbController, ChanVoice7Bit32BitValue::midi1(bytes.msb), channel, group),
        MIDIEvent::cc(lsbController, ChanVoice7Bit32BitValue::midi1(bytes.lsb), channel, group),
    };
    if (data.msb) {
        events.push_back(MIDIEvent::cc(Controller::dataEntry, ChanVoice7Bit32BitValue::midi1(*data.msb), channel, group));
    }
    if (data.lsb) {
        events.push_back(MIDIEvent::cc(Controller::lsb(Controller::LSB::dataEntry),
                                       ChanVoice7Bit32BitValue::midi1(*data.lsb), channel, group));
    }
    return events;
}

std::string call(const char* name, std::initializer_list<std::string> arguments) {
    std::string text = std::string(name) + "(";
    bool first = true;
    for (const auto& argument : arguments) {
        text += (first ? "" : ", ") + argument;
        first = false;
    }
    return text + ")";
}

std::string field(const char* label, const std::string& value) {
    return std::string(label) + ": " + value;
}

std::string noteText(const MIDINote& note) {
    return field("note", note.number().description());
}

std::string bytesText(const std::vector<std::uint8_t>& data) {
    return field("data", MIDIInternals::hexStringArrayLiteral(data, 2));
}

std::string changeText(MIDI2ParameterNumberChange change) {
    return field("change", change == MIDI2ParameterNumberChange::absolute ? "absolute" : "relative");
}

std::string universalText(UniversalSysExType type) {
    return field("universalType", type == UniversalSysExType::realTime ? "realTime" : "nonRealTime");
}

std::string channelText(UInt4 channel) { return field("channel", channel.description()); }
std::string groupText(UInt4 group) { return field("group", group.description()); }

struct Describe {
    std::string operator()(const MIDIEvent::NoteOn& p) const {
        return call("noteOn", {noteText(p.note), field("velocity", p.velocity().description()),
                               field("attribute", p.attribute.description()), channelText(p.channel),
                               groupText(p.group),
                               field("midi1ZeroVelocityAsNoteOff", p.midi1ZeroVelocityAsNoteOff ? "true" : "false")});
    }
    std::string operator()(const MIDIEvent::NoteOff& p) const {
        return call("noteOff", {noteText(p.note), field("velocity", p.velocity().description()),
                                field("attribute", p.attribute.description()), channelText(p.channel),
                                groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::NoteCC& p) const {
        return call("noteCC", {noteText(p.note), field("controller", p.controller.description()),
                               field("value", p.value().description()), channelText(p.channel), groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::NotePitchBend& p) const {
        return call("notePitchBend", {noteText(p.note), field("value", p.value().description()),
                                      channelText(p.channel), groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::NotePressure& p) const {
        return call("notePressure", {noteText(p.note), field("amount", p.amount().description()),
                                     channelText(p.channel), groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::NoteManagement& p) const {
        return call("noteManagement", {noteText(p.note), field("flags", std::to_string(p.flags.byte())),
                                       channelText(p.channel), groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::CC& p) const {
        return call("cc", {field("controller", p.controller.number().description() + " " + p.controller.name()),
                           field("value", p.value().description()), channelText(p.channel), groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::ProgramChange& p) const {
        return call("programChange", {field("program", p.program.description()), field("bank", p.bank.description()),
                                      channelText(p.channel), groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::PitchBend& p) const {
        return call("pitchBend", {field("value", p.value().description()), channelText(p.channel), groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::Pressure& p) const {
        return call("pressure", {field("amount", p.amount().description()), channelText(p.channel), groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::RPN& p) const {
        return call("rpn", {p.parameter.description(), changeText(p.change), channelText(p.channel), groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::NRPN& p) const {
        return call("nrpn", {p.parameter.description(), changeText(p.change), channelText(p.channel), groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::SysEx7& p) const {
        return call("sysEx7", {field("manufacturer", p.manufacturer.description()), bytesText(p.data), groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::UniversalSysEx7& p) const {
        return call("universalSysEx7", {universalText(p.universalType), field("deviceID", p.deviceID.description()),
                                        field("subID1", p.subID1.description()), field("subID2", p.subID2.description()),
                                        bytesText(p.data), groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::SysEx8& p) const {
        return call("sysEx8", {field("manufacturer", p.manufacturer.description()), bytesText(p.data),
                               field("streamID", std::to_string(p.streamID)), groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::UniversalSysEx8& p) const {
        return call("universalSysEx8", {universalText(p.universalType), field("deviceID", p.deviceID.description()),
                                        field("subID1", p.subID1.description()), field("subID2", p.subID2.description()),
                                        bytesText(p.data), field("streamID", std::to_string(p.streamID)),
                                        groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::TimecodeQuarterFrame& p) const {
        return call("timecodeQuarterFrame", {field("dataByte", p.dataByte.description()), groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::SongPositionPointer& p) const {
        return call("songPositionPointer", {field("midiBeat", p.midiBeat.description()), groupText(p.group)});
    }
    std::string operator()(const MIDIEvent::SongSelect& p) const {
        return call("songSelect", {field("number", p.number.description()), groupText(p.group)});
    }
    template <auto Case>
    std::string operator()(const EventPayload::StatusOnly<Case>& p) const {
        return call(caseName(Case), {groupText(p.group)});
    }
    template <UtilityType Case>
    std::string operator()(const EventPayload::JRTime<Case>& p) const {
        return call(caseName(Case), {field("time", std::to_string(p.time)), groupText(p.group)});
    }

private:
    static const char* caseName(SysCommonType type) {
        switch (type) {
            case SysCommonType::timecodeQuarterFrame: return "timecodeQuarterFrame";
            case SysCommonType::songPositionPointer: return "songPositionPointer";
            case SysCommonType::songSelect: return "songSelect";
            case SysCommonType::tuneRequest: return "tuneRequest";
        }
        return "";
    }
    static const char* caseName(SysRealTimeType type) {
        switch (type) {
            case SysRealTimeType::timingClock: return "timingClock";
            case SysRealTimeType::start: return "start";
            case SysRealTimeType::continue_: return "continue";
            case SysRealTimeType::stop: return "stop";
            case SysRealTimeType::activeSensing: return "activeSensing";
            case SysRealTimeType::systemReset: return "systemReset";
        }
        return "";
    }
    static const char* caseName(UtilityType type) {
        switch (type) {
            case UtilityType::noOp: return "noOp";
            case UtilityType::jrClock: return "jrClock";
            case UtilityType::jrTimestamp: return "jrTimestamp";
        }
        return "";
    }
};

}  // namespace

std::vector<MIDIEvent> MIDIEvent::midi1RPN(const RegisteredController& parameter, MIDI2ParameterNumberChange,
                                           UInt4 channel, UInt4 group) {
    return midi1ParameterEvents(parameter, channel, group);
}

std::vector<MIDIEvent> MIDIEvent::midi1NRPN(const AssignableController& parameter, MIDI2ParameterNumberChange,
                                            UInt4 channel, UInt4 group) {
    return midi1ParameterEvents(parameter, channel, group);
}

MIDIEvent MIDIEvent::deviceInquiryRequest(UInt7 deviceID, UInt4 group) {
    return universalSysEx7(UniversalSysExType::nonRealTime, deviceID, UInt7(0x06), UInt7(0x01), {}, group);
}

MIDIEvent MIDIEvent::deviceInquiryResponse(UInt7 deviceID, SysExManufacturer manufacturer, UInt14 deviceFamilyCode,
                                           UInt14 deviceFamilyMemberCode, std::array<UInt7, 4> softwareRevisionLevel,
                                           UInt4 group) {
    std::vector<std::uint8_t> data = manufacturer.sysEx7RawBytes();
    for (UInt14 code : {deviceFamilyCode, deviceFamilyMemberCode}) {
        auto pair = code.bytePair();
        data.push_back(pair.lsb);
        data.push_back(pair.msb);
    }
    for (UInt7 revision : softwareRevisionLevel) {
        data.push_back(revision.storage());
    }
    return universalSysEx7(UniversalSysExType::nonRealTime, deviceID, UInt7(0x06), UInt7(0x01), std::move(data), group);
}

std::string MIDIEvent::description() const {
    return std::visit(Describe{}, payload_);
}

}  // namespace MIDICore
