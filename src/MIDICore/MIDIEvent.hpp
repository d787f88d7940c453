#pragma once
// MIDIEvent: the one currency of the MIDI library, a tagged union of 29 cases in this order
// (the class predicates are index ranges of it):
//   0 noteOn  1 noteOff  2 noteCC  3 notePitchBend  4 notePressure  5 noteManagement  6 cc
//   7 programChange  8 pitchBend  9 pressure  10 rpn  11 nrpn            (channel voice)
//   12 sysEx7  13 universalSysEx7  14 sysEx8  15 universalSysEx8          (system exclusive)
//   16 timecodeQuarterFrame  17 songPositionPointer  18 songSelect  19 tuneRequest (common)
//   20 timingClock  21 start  22 continue  23 stop  24 activeSensing  25 systemReset (real time)
//   26 noOp  27 jrClock  28 jrTimestamp                                   (utility)
// Each case has a payload struct of the same name; events are plain values, channel-voice
// payloads hold no heap memory. `continue` is a C++ keyword: its constructor is `continue_`.

#include "MIDICore/ChanVoiceValues.hpp"
#include "MIDICore/Controller.hpp"
#include "MIDICore/EnumSet.hpp"
#include "MIDICore/EventFields.hpp"
#include "MIDICore/MIDINote.hpp"
#include "MIDICore/MIDIUMPTypes.hpp"
#include "MIDICore/MIDIUnsignedInteger.hpp"
#include "MIDICore/NoteAttribute.hpp"
#include "MIDICore/ParameterNumber.hpp"
#include "MIDICore/PerNoteController.hpp"
#include "MIDICore/SysExID.hpp"

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

enum class ChanVoiceType : std::uint8_t {
    noteOn, noteOff, noteCC, notePitchBend, notePressure, noteManagement, cc, programChange, pitchBend,
    pressure, rpn, nrpn,
};
enum class SysExType : std::uint8_t { sysEx7, universalSysEx7, sysEx8, universalSysEx8 };
enum class SysCommonType : std::uint8_t { timecodeQuarterFrame, songPositionPointer, songSelect, tuneRequest };
enum class SysRealTimeType : std::uint8_t { timingClock, start, continue_, stop, activeSensing, systemReset };
enum class UtilityType : std::uint8_t { noOp, jrClock, jrTimestamp };

// The data bytes of a MIDI 1.0 message: data2 is absent for the one-byte forms.
struct MIDI1DataBytes {
    std::uint8_t data1 = 0;
    std::optional<std::uint8_t> data2;
    friend constexpr bool operator==(const MIDI1DataBytes&, const MIDI1DataBytes&) = default;
};

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

    struct NoteOn {
        MIDINote note;
        ChanVoice7Bit16BitValue::Validated _velocity;
        NoteAttribute attribute;
        UInt4 channel;
        UInt4 group;
        bool midi1ZeroVelocityAsNoteOff = true;
        ChanVoice7Bit16BitValue velocity() const { return _velocity.wrappedValue(); }
        void setVelocity(ChanVoice7Bit16BitValue value) { _velocity.setWrappedValue(value); }
        // The status byte and data bytes of the MIDI 1.0 form (the first message of it).
        std::uint8_t midi1RawStatusByte() const;
        MIDI1DataBytes midi1RawDataBytes() const;
        friend bool operator==(const NoteOn&, const NoteOn&) = default;
    };
    struct NoteOff {
        MIDINote note;
        ChanVoice7Bit16BitValue::Validated _velocity;
        NoteAttribute attribute;
        UInt4 channel;
        UInt4 group;
        ChanVoice7Bit16BitValue velocity() const { return _velocity.wrappedValue(); }
        void setVelocity(ChanVoice7Bit16BitValue value) { _velocity.setWrappedValue(value); }
        // The status byte and data bytes of the MIDI 1.0 form (the first message of it).
        std::uint8_t midi1RawStatusByte() const;
        MIDI1DataBytes midi1RawDataBytes() const;
        friend bool operator==(const NoteOff&, const NoteOff&) = default;
    };
    struct NoteCC {
        MIDINote note;
        PerNoteController controller;
        ChanVoice32BitValue::Validated _value;
        UInt4 channel;
        UInt4 group;
        ChanVoice32BitValue value() const { return _value.wrappedValue(); }
        void setValue(ChanVoice32BitValue value) { _value.setWrappedValue(value); }
        friend bool operator==(const NoteCC&, const NoteCC&) = default;
    };
    struct NotePitchBend {
        MIDINote note;
        ChanVoice32BitValue::Validated _value;
        UInt4 channel;
        UInt4 group;
        ChanVoice32BitValue value() const { return _value.wrappedValue(); }
        void setValue(ChanVoice32BitValue value) { _value.setWrappedValue(value); }
        friend bool operator==(const NotePitchBend&, const NotePitchBend&) = default;
    };
    struct NotePressure {
        MIDINote note;
        ChanVoice7Bit32BitValue::Validated _amount;
        UInt4 channel;
        UInt4 group;
        ChanVoice7Bit32BitValue amount() const { return _amount.wrappedValue(); }
        void setAmount(ChanVoice7Bit32BitValue value) { _amount.setWrappedValue(value); }
        // The status byte and data bytes of the MIDI 1.0 form (the first message of it).
        std::uint8_t midi1RawStatusByte() const;
        MIDI1DataBytes midi1RawDataBytes() const;
        friend bool operator==(const NotePressure&, const NotePressure&) = default;
    };
    struct NoteManagement {
        MIDINote note;
        OptionFlags flags;
        UInt4 channel;
        UInt4 group;
        friend bool operator==(const NoteManagement&, const NoteManagement&) = default;
    };
    struct CC {
        Controller controller;
        ChanVoice7Bit32BitValue::Validated _value;
        UInt4 channel;
        UInt4 group;
        ChanVoice7Bit32BitValue value() const { return _value.wrappedValue(); }
        void setValue(ChanVoice7Bit32BitValue value) { _value.setWrappedValue(value); }
        // The status byte and data bytes of the MIDI 1.0 form (the first message of it).
        std::uint8_t midi1RawStatusByte() const;
        MIDI1DataBytes midi1RawDataBytes() const;
        friend bool operator==(const CC&, const CC&) = default;
    };
    struct ProgramChange {
        UInt7 program;
        Bank bank;
        UInt4 channel;
        UInt4 group;
        // The status byte and data bytes of the MIDI 1.0 form (the first message of it).
        std::uint8_t midi1RawStatusByte() const;
        MIDI1DataBytes midi1RawDataBytes() const;
        friend bool operator==(const ProgramChange&, const ProgramChange&) = default;
    };
    struct PitchBend {
        ChanVoice14Bit32BitValue::Validated _value;
        UInt4 channel;
        UInt4 group;
        ChanVoice14Bit32BitValue value() const { return _value.wrappedValue(); }
        void setValue(ChanVoice14Bit32BitValue value) { _value.setWrappedValue(value); }
        // The status byte and data bytes of the MIDI 1.0 form (the first message of it).
        std::uint8_t midi1RawStatusByte() const;
        MIDI1DataBytes midi1RawDataBytes() const;
        friend bool operator==(const PitchBend&, const PitchBend&) = default;
    };
    struct Pressure {
        ChanVoice7Bit32BitValue::Validated _amount;
        UInt4 channel;
        UInt4 group;
        ChanVoice7Bit32BitValue amount() const { return _amount.wrappedValue(); }
        void setAmount(ChanVoice7Bit32BitValue value) { _amount.setWrappedValue(value); }
        // The status byte and data bytes of the MIDI 1.0 form (the first message of it).
        std::uint8_t midi1RawStatusByte() const;
        MIDI1DataBytes midi1RawDataBytes() const;
        friend bool operator==(const Pressure&, const Pressure&) = default;
    };
    struct RPN {
        RegisteredController parameter;
        MIDI2ParameterNumberChange change;
        UInt4 channel;
        UInt4 group;
        friend bool operator==(const RPN&, const RPN&) = default;
    };
    struct NRPN {
        AssignableController parameter;
        MIDI2ParameterNumberChange change;
        UInt4 channel;
        UInt4 group;
        friend bool operator==(const NRPN&, const NRPN&) = default;
    };
    struct SysEx7 {
        SysExManufacturer manufacturer;
        std::vector<std::uint8_t> data;
        UInt4 group;
        // 0xF0, the ID bytes, data, 0xF7; the framing bytes only where asked for.
        std::vector<std::uint8_t> midi1RawBytes(bool leadingF0 = true, bool trailingF7 = true) const;
        // The same bytes as two-digit upper-case hexadecimal, no prefix, joined by the separator.
        std::string midi1RawHexString(bool leadingF0 = true, bool trailingF7 = true,
                                      std::optional<std::string_view> separator = " ") const;
        friend bool operator==(const SysEx7&, const SysEx7&) = default;
    };
    struct UniversalSysEx7 {
        UniversalSysExType universalType;
        UInt7 deviceID;
        UInt7 subID1;
        UInt7 subID2;
        std::vector<std::uint8_t> data;
        UInt4 group;
        // 0xF0, the ID bytes, data, 0xF7; the framing bytes only where asked for.
        std::vector<std::uint8_t> midi1RawBytes(bool leadingF0 = true, bool trailingF7 = true) const;
        // The same bytes as two-digit upper-case hexadecimal, no prefix, joined by the separator.
        std::string midi1RawHexString(bool leadingF0 = true, bool trailingF7 = true,
                                      std::optional<std::string_view> separator = " ") const;
        friend bool operator==(const UniversalSysEx7&, const UniversalSysEx7&) = default;
    };
    struct SysEx8 {
        SysExManufacturer manufacturer;
        std::vector<std::uint8_t> data;
        std::uint8_t streamID = 0;
        UInt4 group;
        friend bool operator==(const SysEx8&, const SysEx8&) = default;
    };
    struct UniversalSysEx8 {
        UniversalSysExType universalType;
        UInt7 deviceID;
        UInt7 subID1;
        UInt7 subID2;
        std::vector<std::uint8_t> data;
        std::uint8_t streamID = 0;
        UInt4 group;
        friend bool operator==(const UniversalSysEx8&, const UniversalSysEx8&) = default;
    };
    struct TimecodeQuarterFrame {
        UInt7 dataByte;
        UInt4 group;
        friend bool operator==(const TimecodeQuarterFrame&, const TimecodeQuarterFrame&) = default;
    };
    struct SongPositionPointer {
        UInt14 midiBeat;
        UInt4 group;
        friend bool operator==(const SongPositionPointer&, const SongPositionPointer&) = default;
    };
    struct SongSelect {
        UInt7 number;
        UInt4 group;
        friend bool operator==(const SongSelect&, const SongSelect&) = default;
    };
    // The status-only system messages and the utility no-op: a group and nothing else.
    template <int Index>
    struct GroupOnly {
        UInt4 group;
        friend bool operator==(const GroupOnly&, const GroupOnly&) = default;
    };
    using TuneRequest = GroupOnly<19>;
    using TimingClock = GroupOnly<20>;
    using Start = GroupOnly<21>;
    using Continue = GroupOnly<22>;
    using Stop = GroupOnly<23>;
    using ActiveSensing = GroupOnly<24>;
    using SystemReset = GroupOnly<25>;
    using NoOp = GroupOnly<26>;
    template <int Index>
    struct JRTime {
        std::uint16_t time = 0;
        UInt4 group;
        friend bool operator==(const JRTime&, const JRTime&) = default;
    };
    using JRClock = JRTime<27>;
    using JRTimestamp = JRTime<28>;

    using Payload = std::variant<NoteOn, NoteOff, NoteCC, NotePitchBend, NotePressure, NoteManagement, CC,
                                 ProgramChange, PitchBend, Pressure, RPN, NRPN, SysEx7, UniversalSysEx7, SysEx8,
                                 UniversalSysEx8, TimecodeQuarterFrame, SongPositionPointer, SongSelect, TuneRequest,
                                 TimingClock, Start, Continue, Stop, ActiveSensing, SystemReset, NoOp, JRClock,
                                 JRTimestamp>;
    static_assert(std::variant_size_v<Payload> == 29);
    template <class P>
    static constexpr bool isPayload = []<std::size_t... I>(std::index_sequence<I...>) {
        return (std::is_same_v<P, std::variant_alternative_t<I, Payload>> || ...);
    }(std::make_index_sequence<29>{});

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

    bool isChannelVoice() const { return index() <= 11; }
    bool isSystemExclusive() const { return index() >= 12 && index() <= 15; }
    bool isSystemCommon() const { return index() >= 16 && index() <= 19; }
    bool isSystemRealTime() const { return index() >= 20 && index() <= 25; }
    bool isUtility() const { return index() >= 26; }

    std::optional<ChanVoiceType> chanVoiceType() const { return typeIn<ChanVoiceType>(0, 11); }
    std::optional<SysExType> sysExType() const { return typeIn<SysExType>(12, 15); }
    std::optional<SysCommonType> sysCommonType() const { return typeIn<SysCommonType>(16, 19); }
    std::optional<SysRealTimeType> sysRealTimeType() const { return typeIn<SysRealTimeType>(20, 25); }
    std::optional<UtilityType> utilityType() const { return typeIn<UtilityType>(26, 28); }

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
    template <class E>
    std::optional<E> typeIn(std::size_t first, std::size_t last) const {
        auto i = index();
        if (i < first || i > last) {
            return std::nullopt;
        }
        return static_cast<E>(i - first);
    }
    static DataEntryBytes dataBytes(UInt14 data) {
        auto pair = data.midiUInt7Pair();
        return DataEntryBytes{pair.msb, pair.lsb};
    }
    static DataEntryBytes dataBytes(std::uint32_t data) {
        return dataBytes(UInt14::fromStorage(static_cast<std::uint16_t>(data >> 18)));
    }

    Payload payload_;
};

}  // namespace MIDICore
