#pragma once
// The channel-voice payloads of MIDIEvent, in the order of ChanVoiceType. Plain values that hold
// no heap memory.

#include "MIDICore/ChanVoiceValues.hpp"
#include "MIDICore/Controller.hpp"
#include "MIDICore/EventFields.hpp"
#include "MIDICore/MIDINote.hpp"
#include "MIDICore/MIDIUnsignedInteger.hpp"
#include "MIDICore/NoteAttribute.hpp"
#include "MIDICore/ParameterNumber.hpp"
#include "MIDICore/PerNoteController.hpp"

#include <cstdint>
#include <optional>

namespace MIDICore {

enum class ChanVoiceType : std::uint8_t {
    noteOn, noteOff, noteCC, notePitchBend, notePressure, noteManagement, cc, programChange, pitchBend,
    pressure, rpn, nrpn,
};

// The data bytes of a MIDI 1.0 message: data2 is absent for the one-byte forms.
struct MIDI1DataBytes {
    std::uint8_t data1 = 0;
    std::optional<std::uint8_t> data2;
    friend constexpr bool operator==(const MIDI1DataBytes&, const MIDI1DataBytes&) = default;
};

namespace EventPayload {

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

}  // namespace EventPayload

}  // namespace MIDICore
