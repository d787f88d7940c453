#pragma once
// MIDIEvent: the one currency of the MIDI library, a tagged union of 29 cases in five families,
// each family's cases side by side in the order of its type enum:
//   channel voice (ChanVoiceType)    noteOn ... nrpn              MIDIEventChannelVoice.hpp
//   system exclusive (SysExType)     sysEx7 ... universalSysEx8   MIDIEventSysEx.hpp
//   system common (SysCommonType)    timecodeQuarterFrame ... tuneRequest  MIDIEventSystem.hpp
//   system real time (SysRealTimeType)  timingClock ... systemReset       MIDIEventSystem.hpp
//   utility (UtilityType)            noOp, jrClock, jrTimestamp   MIDIEventUtility.hpp
// Each case has a payload struct of the same name; events are plain values, channel-voice
// payloads hold no heap memory. `continue` is a C++ keyword: its constructor is `continue_`.

#include "MIDICore/EnumSet.hpp"
#include "MIDICore/MIDIEventChannelVoice.hpp"
#include "MIDICore/MIDIEventSysEx.hpp"
#include "MIDICore/MIDIEventSystem.hpp"
#include "MIDICore/MIDIEventUtility.hpp"
#include "MIDICore/MIDIUMPTypes.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace MIDICore {

// The first and last payload of each family; the cases between them follow its type enum.
template <class Type>
struct EventFamily;
template <class FirstPayload, class LastPayload>
struct EventFamilyBounds {
    using First = FirstPayload;
    using Last = LastPayload;
};
template <>
struct EventFamily<ChanVoiceType> : EventFamilyBounds<EventPayload::NoteOn, EventPayload::NRPN> {};
template <>
struct EventFamily<SysExType> : EventFamilyBounds<EventPayload::SysEx7, EventPayload::UniversalSysEx8> {};
template <>
struct EventFamily<SysCommonType> : EventFamilyBounds<EventPayload::TimecodeQuarterFrame, EventPayload::TuneRequest> {};
template <>
struct EventFamily<SysRealTimeType> : EventFamilyBounds<EventPayload::TimingClock, EventPayload::SystemReset> {};
template <>
struct EventFamily<UtilityType> : EventFamilyBounds<EventPayload::NoOp, EventPayload::JRTimestamp> {};

class MIDIEvent {
public:
    // The failure of sysEx7(rawBytes) and sysEx7(rawHexString), the only MIDI parsing that
    // reports errors.
    class ParseError : public std::exception {
    public:
        enum Kind { rawBytesEmpty, malformed, invalidType };
        explicit ParseError(Kind kind) : kind_(kind) {}
        Kind kind() const { return kind_; }
        // "Raw bytes empty." / "Malformed." / "Invalid type."
        const char* errorDescription() const noexcept;
        const char* what() const noexcept override { return errorDescription(); }

    private:
        Kind kind_;
    };

    using SysExManufacturer = MIDICore::SysExManufacturer;
    using SysExID = MIDICore::SysExID;
    using UniversalSysExType = MIDICore::UniversalSysExType;

    // The payloads, under the names of their cases.
    using NoteOn = EventPayload::NoteOn;
    using NoteOff = EventPayload::NoteOff;
    using NoteCC = EventPayload::NoteCC;
    using NotePitchBend = EventPayload::NotePitchBend;
    using NotePressure = EventPayload::NotePressure;
    using NoteManagement = EventPayload::NoteManagement;
    using CC = EventPayload::CC;
    using ProgramChange = EventPayload::ProgramChange;
    using PitchBend = EventPayload::PitchBend;
    using Pressure = EventPayload::Pressure;
    using RPN = EventPayload::RPN;
    using NRPN = EventPayload::NRPN;
    using SysEx7 = EventPayload::SysEx7;
    using UniversalSysEx7 = EventPayload::UniversalSysEx7;
    using SysEx8 = EventPayload::SysEx8;
    using UniversalSysEx8 = EventPayload::UniversalSysEx8;
    using TimecodeQuarterFrame = EventPayload::TimecodeQuarterFrame;
    using SongPositionPointer = EventPayload::SongPositionPointer;
    using SongSelect = EventPayload::SongSelect;
    using TuneRequest = EventPayload::TuneRequest;
    using TimingClock = EventPayload::TimingClock;
    using Start = EventPayload::Start;
    using Continue = EventPayload::Continue;
    using Stop = EventPayload::Stop;
    using ActiveSensing = EventPayload::ActiveSensing;
    using SystemReset = EventPayload::SystemReset;
    using NoOp = EventPayload::NoOp;
    using JRClock = EventPayload::JRClock;
    using JRTimestamp = EventPayload::JRTimestamp;

    using Payload = std::variant<NoteOn, NoteOff, NoteCC, NotePitchBend, NotePressure, NoteManagement, CC,
                                 ProgramChange, PitchBend, Pressure, RPN, NRPN, SysEx7, UniversalSysEx7, SysEx8,
                                 UniversalSysEx8, TimecodeQuarterFrame, SongPositionPointer, SongSelect, TuneRequest,
                                 TimingClock, Start, Continue, Stop, ActiveSensing, SystemReset, NoOp, JRClock,
                                 JRTimestamp>;
    static_assert(std::variant_size_v<Payload> == 29);
    template <class P>
    static constexpr bool isPayload = []<std::size_t... I>(std::index_sequence<I...>) {
        return (std::is_same_v<P, std::variant_alternative_t<I, Payload>> || ...);
    }(std::make_index_sequence<std::variant_size_v<Payload>>{});
    // The position of a payload in the union.
    template <class P>
        requires isPayload<P>
    static constexpr std::size_t indexOf = []<std::size_t... I>(std::index_sequence<I...>) {
        std::size_t found = 0;
        ((std::is_same_v<P, std::variant_alternative_t<I, Payload>> ? found = I : 0), ...);
        return found;
    }(std::make_index_sequence<std::variant_size_v<Payload>>{});

    template <class P>
        requires isPayload<P>
    MIDIEvent(P payload) : payload_(std::move(payload)) {}

    // Channel voice. The note is a MIDINote or a bare UInt7 number.
    static MIDIEvent noteOn(MIDINote note, ChanVoice7Bit16BitValue velocity, NoteAttribute attribute, UInt4 channel,
                            UInt4 group = UInt4(0), bool midi1ZeroVelocityAsNoteOff = true) {
        return NoteOn{note, velocity, attribute, channel, group, midi1ZeroVelocityAsNoteOff};
    }
    static MIDIEvent noteOn(MIDINote note, ChanVoice7Bit16BitValue velocity, UInt4 channel, UInt4 group = UInt4(0),
                            bool midi1ZeroVelocityAsNoteOff = true) {
        return noteOn(note, velocity, NoteAttribute(), channel, group, midi1ZeroVelocityAsNoteOff);
    }
    static MIDIEvent noteOn(UInt7 note, ChanVoice7Bit16BitValue velocity, NoteAttribute attribute, UInt4 channel,
                            UInt4 group = UInt4(0), bool midi1ZeroVelocityAsNoteOff = true) {
        return noteOn(MIDINote(note), velocity, attribute, channel, group, midi1ZeroVelocityAsNoteOff);
    }
    static MIDIEvent noteOn(UInt7 note, ChanVoice7Bit16BitValue velocity, UInt4 channel, UInt4 group = UInt4(0),
                            bool midi1ZeroVelocityAsNoteOff = true) {
        return noteOn(MIDINote(note), velocity, NoteAttribute(), channel, group, midi1ZeroVelocityAsNoteOff);
    }
    static MIDIEvent noteOff(MIDINote note, ChanVoice7Bit16BitValue velocity, NoteAttribute attribute, UInt4 channel,
                             UInt4 group = UInt4(0)) {
        return NoteOff{note, velocity, attribute, channel, group};
    }
    static MIDIEvent noteOff(MIDINote note, ChanVoice7Bit16BitValue velocity, UInt4 channel, UInt4 group = UInt4(0)) {
        return noteOff(note, velocity, NoteAttribute(), channel, group);
    }
    static MIDIEvent noteOff(UInt7 note, ChanVoice7Bit16BitValue velocity, NoteAttribute attribute, UInt4 channel,
                             UInt4 group = UInt4(0)) {
        return noteOff(MIDINote(note), velocity, attribute, channel, group);
    }
    static MIDIEvent noteOff(UInt7 note, ChanVoice7Bit16BitValue velocity, UInt4 channel, UInt4 group = UInt4(0)) {
        return noteOff(MIDINote(note), velocity, NoteAttribute(), channel, group);
    }
    static MIDIEvent noteCC(MIDINote note, PerNoteController controller, ChanVoice32BitValue value, UInt4 channel,
                            UInt4 group = UInt4(0)) {
        return NoteCC{note, controller, value, channel, group};
    }
    static MIDIEvent notePitchBend(MIDINote note, ChanVoice32BitValue value, UInt4 channel, UInt4 group = UInt4(0)) {
        return NotePitchBend{note, value, channel, group};
    }
    static MIDIEvent notePressure(MIDINote note, ChanVoice7Bit32BitValue amount, UInt4 channel, UInt4 group = UInt4(0)) {
        return NotePressure{note, amount, channel, group};
    }
    static MIDIEvent noteManagement(MIDINote note, OptionFlags flags, UInt4 channel, UInt4 group = UInt4(0)) {
        return NoteManagement{note, flags, channel, group};
    }
    static MIDIEvent cc(Controller controller, ChanVoice7Bit32BitValue value, UInt4 channel, UInt4 group = UInt4(0)) {
        return CC{controller, value, channel, group};
    }
    static MIDIEvent cc(UInt7 controller, ChanVoice7Bit32BitValue value, UInt4 channel, UInt4 group = UInt4(0)) {
        return cc(Controller(controller), value, channel, group);
    }
    static MIDIEvent programChange(UInt7 program, Bank bank, UInt4 channel, UInt4 group = UInt4(0)) {
        return ProgramChange{program, bank, channel, group};
    }
    static MIDIEvent programChange(UInt7 program, UInt4 channel, UInt4 group = UInt4(0)) {
        return ProgramChange{program, Bank::noBankSelect(), channel, group};
    }
    static MIDIEvent pitchBend(ChanVoice14Bit32BitValue value, UInt4 channel, UInt4 group = UInt4(0)) {
        return PitchBend{value, channel, group};
    }
    static MIDIEvent pressure(ChanVoice7Bit32BitValue amount, UInt4 channel, UInt4 group = UInt4(0)) {
        return Pressure{amount, channel, group};
    }

    // Parameter numbers: from the parameter, or from parameter bytes and data. A UInt14 data
    // value is split into MSB and LSB; a 32-bit data value keeps its top 14 bits (>> 18). The
    // byte forms recognise the named cases; in the NRPN forms 127, 127 is always null.
    static MIDIEvent rpn(RegisteredController parameter, MIDI2ParameterNumberChange change, UInt4 channel,
                         UInt4 group = UInt4(0)) {
        return RPN{parameter, change, channel, group};
    }
    static MIDIEvent rpn(UInt7Pair parameter, DataEntryBytes data, MIDI2ParameterNumberChange change, UInt4 channel,
                         UInt4 group = UInt4(0)) {
        return rpn(RegisteredController(parameter, data), change, channel, group);
    }
    static MIDIEvent rpn(UInt7Pair parameter, UInt14 data, MIDI2ParameterNumberChange change, UInt4 channel,
                         UInt4 group = UInt4(0)) {
        return rpn(parameter, dataBytes(data), change, channel, group);
    }
    static MIDIEvent rpn(UInt7Pair parameter, std::uint32_t data, MIDI2ParameterNumberChange change, UInt4 channel,
                         UInt4 group = UInt4(0)) {
        return rpn(parameter, dataBytes(data), change, channel, group);
    }
    static MIDIEvent nrpn(AssignableController parameter, MIDI2ParameterNumberChange change, UInt4 channel,
                          UInt4 group = UInt4(0)) {
        return NRPN{parameter, change, channel, group};
    }
    static MIDIEvent nrpn(UInt7Pair parameter, DataEntryBytes data, MIDI2ParameterNumberChange change, UInt4 channel,
                          UInt4 group = UInt4(0)) {
        return nrpn(AssignableController(parameter, data), change, channel, group);
    }
    static MIDIEvent nrpn(UInt7Pair parameter, UInt14 data, MIDI2ParameterNumberChange change, UInt4 channel,
                          UInt4 group = UInt4(0)) {
        return nrpn(parameter, dataBytes(data), change, channel, group);
    }
    static MIDIEvent nrpn(UInt7Pair parameter, std::uint32_t data, MIDI2ParameterNumberChange change, UInt4 channel,
                          UInt4 group = UInt4(0)) {
        return nrpn(parameter, dataBytes(data), change, channel, group);
    }
    // The cc events that carry a parameter number in MIDI 1.0: parameter MSB, parameter LSB,
    // then data entry MSB (6) and LSB (38) where present.
    static std::vector<MIDIEvent> midi1RPN(const RegisteredController& parameter,
                                           MIDI2ParameterNumberChange change, UInt4 channel, UInt4 group = UInt4(0));
    static std::vector<MIDIEvent> midi1NRPN(const AssignableController& parameter,
                                            MIDI2ParameterNumberChange change, UInt4 channel, UInt4 group = UInt4(0));

    // System exclusive.
    static MIDIEvent sysEx7(SysExManufacturer manufacturer, std::vector<std::uint8_t> data, UInt4 group = UInt4(0)) {
        return SysEx7{manufacturer, std::move(data), group};
    }
    static MIDIEvent universalSysEx7(UniversalSysExType universalType, UInt7 deviceID, UInt7 subID1, UInt7 subID2,
                                     std::vector<std::uint8_t> data, UInt4 group = UInt4(0)) {
        return UniversalSysEx7{universalType, deviceID, subID1, subID2, std::move(data), group};
    }
    static MIDIEvent sysEx8(SysExManufacturer manufacturer, std::vector<std::uint8_t> data, std::uint8_t streamID = 0,
                            UInt4 group = UInt4(0)) {
        return SysEx8{manufacturer, std::move(data), streamID, group};
    }
    static MIDIEvent universalSysEx8(UniversalSysExType universalType, UInt7 deviceID, UInt7 subID1, UInt7 subID2,
                                     std::vector<std::uint8_t> data, std::uint8_t streamID = 0, UInt4 group = UInt4(0)) {
        return UniversalSysEx8{universalType, deviceID, subID1, subID2, std::move(data), streamID, group};
    }
    // A non-real-time universal message, sub IDs 6 and 1, no data.
    static MIDIEvent deviceInquiryRequest(UInt7 deviceID, UInt4 group = UInt4(0));
    // Sub IDs 6 and 1 as in the request (kept so on purpose). Data: the manufacturer bytes, the
    // family code and the member code (each LSB first, 7 bits each), the software revision.
    static MIDIEvent deviceInquiryResponse(UInt7 deviceID, SysExManufacturer manufacturer, UInt14 deviceFamilyCode,
                                           UInt14 deviceFamilyMemberCode, std::array<UInt7, 4> softwareRevisionLevel,
                                           UInt4 group = UInt4(0));

    // A complete SysEx message: 0xF0, the ID, data, and an optional trailing 0xF7. Throws
    // ParseError: rawBytesEmpty for no bytes, malformed for a bad ID, a short universal header or
    // a byte with its high bit set in the body (0xF7 is allowed only as the last byte).
    static MIDIEvent sysEx7(std::span<const std::uint8_t> rawBytes, UInt4 group = UInt4(0));
    // The same from hexadecimal text ("F0 41 01 F7"); white space is ignored.
    static MIDIEvent sysEx7(std::string_view rawHexString, UInt4 group = UInt4(0));
    // A complete SysEx8 payload: the two-byte ID (0x00 0x7E / 0x00 0x7F and three universal
    // bytes, or a manufacturer) and the data. Throws ParseError.
    static MIDIEvent sysEx8(std::span<const std::uint8_t> rawBytes, std::uint8_t streamID = 0, UInt4 group = UInt4(0));

    // System common, real time and utility.
    static MIDIEvent timecodeQuarterFrame(UInt7 dataByte, UInt4 group = UInt4(0)) { return TimecodeQuarterFrame{dataByte, group}; }
    static MIDIEvent songPositionPointer(UInt14 midiBeat, UInt4 group = UInt4(0)) { return SongPositionPointer{midiBeat, group}; }
    static MIDIEvent songSelect(UInt7 number, UInt4 group = UInt4(0)) { return SongSelect{number, group}; }
    static MIDIEvent tuneRequest(UInt4 group = UInt4(0)) { return TuneRequest{group}; }
    static MIDIEvent timingClock(UInt4 group = UInt4(0)) { return TimingClock{group}; }
    static MIDIEvent start(UInt4 group = UInt4(0)) { return Start{group}; }
    static MIDIEvent continue_(UInt4 group = UInt4(0)) { return Continue{group}; }
    static MIDIEvent stop(UInt4 group = UInt4(0)) { return Stop{group}; }
    static MIDIEvent activeSensing(UInt4 group = UInt4(0)) { return ActiveSensing{group}; }
    static MIDIEvent systemReset(UInt4 group = UInt4(0)) { return SystemReset{group}; }
    static MIDIEvent noOp(UInt4 group = UInt4(0)) { return NoOp{group}; }
    static MIDIEvent jrClock(std::uint16_t time, UInt4 group = UInt4(0)) { return JRClock{time, group}; }
    static MIDIEvent jrTimestamp(std::uint16_t time, UInt4 group = UInt4(0)) { return JRTimestamp{time, group}; }

    const Payload& payload() const { return payload_; }
    Payload& payload() { return payload_; }
    std::size_t index() const { return payload_.index(); }
    template <class P>
    const P* get() const { return std::get_if<P>(&payload_); }
    template <class P>
    P* get() { return std::get_if<P>(&payload_); }

    // The channel of the twelve channel-voice cases; absent for the others.
    std::optional<UInt4> channel() const {
        return std::visit(
            [](const auto& p) -> std::optional<UInt4> {
                if constexpr (requires { p.channel; }) {
                    return p.channel;
                } else {
                    return std::nullopt;
                }
            },
            payload_);
    }
    UInt4 group() const {
        return std::visit([](const auto& p) { return p.group; }, payload_);
    }

    bool isChannelVoice() const { return typeIn<ChanVoiceType>().has_value(); }
    bool isSystemExclusive() const { return typeIn<SysExType>().has_value(); }
    bool isSystemCommon() const { return typeIn<SysCommonType>().has_value(); }
    bool isSystemRealTime() const { return typeIn<SysRealTimeType>().has_value(); }
    bool isUtility() const { return typeIn<UtilityType>().has_value(); }

    std::optional<ChanVoiceType> chanVoiceType() const { return typeIn<ChanVoiceType>(); }
    std::optional<SysExType> sysExType() const { return typeIn<SysExType>(); }
    std::optional<SysCommonType> sysCommonType() const { return typeIn<SysCommonType>(); }
    std::optional<SysRealTimeType> sysRealTimeType() const { return typeIn<SysRealTimeType>(); }
    std::optional<UtilityType> utilityType() const { return typeIn<UtilityType>(); }

    // The type of the event within the family of Type; absent for an event of another family.
    template <class Type>
    std::optional<Type> typeIn() const {
        constexpr std::size_t first = indexOf<typename EventFamily<Type>::First>;
        constexpr std::size_t last = indexOf<typename EventFamily<Type>::Last>;
        const std::size_t i = index();
        if (i < first || i > last) {
            return std::nullopt;
        }
        return static_cast<Type>(i - first);
    }

    bool isChannelVoice(ChanVoiceType type) const { return chanVoiceType() == type; }
    bool isChannelVoice(EnumSet<ChanVoiceType> types) const { return chanVoiceType() && types.contains(*chanVoiceType()); }
    bool isSystemExclusive(SysExType type) const { return sysExType() == type; }
    bool isSystemExclusive(EnumSet<SysExType> types) const { return sysExType() && types.contains(*sysExType()); }
    bool isSystemCommon(SysCommonType type) const { return sysCommonType() == type; }
    bool isSystemCommon(EnumSet<SysCommonType> types) const { return sysCommonType() && types.contains(*sysCommonType()); }
    bool isSystemRealTime(SysRealTimeType type) const { return sysRealTimeType() == type; }
    bool isSystemRealTime(EnumSet<SysRealTimeType> types) const {
        return sysRealTimeType() && types.contains(*sysRealTimeType());
    }
    bool isUtility(UtilityType type) const { return utilityType() == type; }
    bool isUtility(EnumSet<UtilityType> types) const { return utilityType() && types.contains(*utilityType()); }

    // The MIDI 1.0 bytes of the event; empty for the events that exist only in MIDI 2.0
    // (per-note events, SysEx8, utility messages).
    std::vector<std::uint8_t> midi1RawBytes() const;
    // The first byte of midi1RawBytes(); absent for the MIDI 2.0-only events and for rpn/nrpn,
    // which are several messages.
    std::optional<std::uint8_t> midi1RawStatusByte() const;
    // data1 and data2 of the two-byte forms, data1 alone for the one-byte forms; absent for
    // the status-only forms, SysEx, rpn/nrpn and the MIDI 2.0-only events.
    std::optional<MIDI1DataBytes> midi1RawDataBytes() const;

    // The Universal MIDI Packets of the event for a protocol: a list of packets of 1, 2 or 4
    // words each.
    std::vector<std::vector<std::uint32_t>> umpRawWords(MIDIProtocolVersion protocol) const;
    std::vector<std::vector<std::uint32_t>> midi2RawUMPWords(MIDIProtocolVersion protocol) const {
        return umpRawWords(protocol);
    }
    // The same packets appended to a flat word list, one after another, without allocating
    // when the list has room: the form for send paths that build event lists.
    void appendUMPWords(MIDIProtocolVersion protocol, std::vector<std::uint32_t>& words) const;

    // Text in the form of the constructor, as "timingClock(group: 0)".
    std::string description() const;
    std::string debugDescription() const { return description(); }

    friend bool operator==(const MIDIEvent&, const MIDIEvent&) = default;

private:
    static DataEntryBytes dataBytes(UInt14 data) {
        auto pair = data.midiUInt7Pair();
        return DataEntryBytes{pair.msb, pair.lsb};
    }
    static DataEntryBytes dataBytes(std::uint32_t data) {
        return dataBytes(UInt14::fromStorage(static_cast<std::uint16_t>(data >> 18)));
    }

    Payload payload_;
};

namespace detail {
template <class Type>
constexpr std::size_t firstIndex = MIDIEvent::indexOf<typename EventFamily<Type>::First>;
template <class Type>
constexpr std::size_t lastIndex = MIDIEvent::indexOf<typename EventFamily<Type>::Last>;
// The family holds one payload per case of its enum, up to LastCase.
template <class Type, Type LastCase>
constexpr bool spansItsCases = lastIndex<Type> - firstIndex<Type> == static_cast<std::size_t>(LastCase);
template <class Type, class Next>
constexpr bool isFollowedBy = lastIndex<Type> + 1 == firstIndex<Next>;
}  // namespace detail

// The families fill the union one after another, each in the order of its type enum.
static_assert(detail::firstIndex<ChanVoiceType> == 0 &&
              detail::lastIndex<UtilityType> + 1 == std::variant_size_v<MIDIEvent::Payload>);
static_assert(detail::spansItsCases<ChanVoiceType, ChanVoiceType::nrpn> &&
              detail::spansItsCases<SysExType, SysExType::universalSysEx8> &&
              detail::spansItsCases<SysCommonType, SysCommonType::tuneRequest> &&
              detail::spansItsCases<SysRealTimeType, SysRealTimeType::systemReset> &&
              detail::spansItsCases<UtilityType, UtilityType::jrTimestamp>);
static_assert(detail::isFollowedBy<ChanVoiceType, SysExType> && detail::isFollowedBy<SysExType, SysCommonType> &&
              detail::isFollowedBy<SysCommonType, SysRealTimeType> && detail::isFollowedBy<SysRealTimeType, UtilityType>);

}  // namespace MIDICore
