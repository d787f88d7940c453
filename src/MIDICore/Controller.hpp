#pragma once
// The controller of a control change: every number 0...127 is exactly one case, so a
// Controller is its number. Named cases are constants (`Controller::modWheel`); the families
// are built with `Controller::lsb(LSB)`, `Controller::mode(Mode)`, `Controller::undefined(...)`.
// `kind()` gives the case in the order of the union: lsb, mode, undefined, then the named ones.

#include "MIDICore/MIDIUnsignedInteger.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace MIDICore {

// name, number, text
#define MIDICORE_CONTROLLER_NAMED(X)                                                  \
    X(bankSelect, 0, "Bank Select")                                                   \
    X(modWheel, 1, "Modulation Wheel")                                                \
    X(breath, 2, "Breath Controller")                                                 \
    X(footController, 4, "Foot Controller")                                           \
    X(portamentoTime, 5, "Portamento Time")                                           \
    X(dataEntry, 6, "Data Entry")                                                     \
    X(volume, 7, "Channel Volume")                                                    \
    X(balance, 8, "Balance")                                                          \
    X(pan, 10, "Pan")                                                                 \
    X(expression, 11, "Expression Controller")                                        \
    X(effectControl1, 12, "Effect Control 1")                                         \
    X(effectControl2, 13, "Effect Control 2")                                         \
    X(generalPurpose1, 16, "General Purpose Controller 1")                            \
    X(generalPurpose2, 17, "General Purpose Controller 2")                            \
    X(generalPurpose3, 18, "General Purpose Controller 3")                            \
    X(generalPurpose4, 19, "General Purpose Controller 4")                            \
    X(sustainPedal, 64, "Sustain Pedal")                                              \
    X(portamento, 65, "Portamento")                                                   \
    X(sostenutoPedal, 66, "Sostenuto Pedal")                                          \
    X(softPedal, 67, "Soft Pedal")                                                    \
    X(legatoFootswitch, 68, "Legato Footswitch")                                      \
    X(hold2, 69, "Hold 2")                                                            \
    X(soundCtrl1_soundVariation, 70, "Sound Control 1 - Sound Variation")             \
    X(soundCtrl2_timbreIntensity, 71, "Sound Control 2 - Timbre/Harmonic Intensity")  \
    X(soundCtrl3_releaseTime, 72, "Sound Control 3 - Release Time")                   \
    X(soundCtrl4_attackTime, 73, "Sound Control 4 - Attack Time")                     \
    X(soundCtrl5_brightness, 74, "Sound Control 5 - Brightness")                      \
    X(soundCtrl6_decayTime, 75, "Sound Control 6 - Decay Time")                       \
    X(soundCtrl7_vibratoRate, 76, "Sound Control 7 - Vibrato Rate")                   \
    X(soundCtrl8_vibratoDepth, 77, "Sound Control 8 - Vibrato Depth")                 \
    X(soundCtrl9_vibratoDelay, 78, "Sound Control 9 - Vibrato Delay")                 \
    X(soundCtrl10_defaultUndefined, 79, "Sound Control 10 - Default Undefined")       \
    X(generalPurpose5, 80, "General Purpose Controller 5")                            \
    X(generalPurpose6, 81, "General Purpose Controller 6")                            \
    X(generalPurpose7, 82, "General Purpose Controller 7")                            \
    X(generalPurpose8, 83, "General Purpose Controller 8")                            \
    X(portamentoControl, 84, "Portamento Control")                                    \
    X(highResolutionVelocityPrefix, 88, "High Resolution Velocity Prefix")            \
    X(effects1Depth_reverbSendLevel, 91, "Effects 1 Depth - Reverb Send Level")       \
    X(effects2Depth, 92, "Effects 2 Depth")                                           \
    X(effects3Depth_chorusSendLevel, 93, "Effects 3 Depth - Chorus Send Level")       \
    X(effects4Depth, 94, "Effects 4 Depth")                                           \
    X(effects5Depth, 95, "Effects 5 Depth")                                           \
    X(dataIncrement, 96, "Data Increment")                                            \
    X(dataDecrement, 97, "Data Decrement")                                            \
    X(nrpnLSB, 98, "NRPN LSB")                                                        \
    X(nrpnMSB, 99, "NRPN MSB")                                                        \
    X(rpnLSB, 100, "RPN LSB")                                                         \
    X(rpnMSB, 101, "RPN MSB")

// The MSBs that have a named LSB (number + 32): name, MSB number, text.
#define MIDICORE_CONTROLLER_LSB_NAMED(X)                  \
    X(bankSelect, 0, "BankSelect LSB")                    \
    X(modWheel, 1, "ModWheel LSB")                        \
    X(breath, 2, "Breath LSB")                            \
    X(footController, 4, "FootController LSB")            \
    X(portamentoTime, 5, "PortamentoTime LSB")            \
    X(dataEntry, 6, "DataEntry LSB")                      \
    X(channelVolume, 7, "ChannelVolume LSB")              \
    X(balance, 8, "Balance LSB")                          \
    X(pan, 10, "Pan LSB")                                 \
    X(expression, 11, "Expression LSB")                   \
    X(effectControl1, 12, "EffectControl1 LSB")           \
    X(effectControl2, 13, "EffectControl2 LSB")           \
    X(generalPurpose1, 16, "GeneralPurpose1 LSB")         \
    X(generalPurpose2, 17, "GeneralPurpose2 LSB")         \
    X(generalPurpose3, 18, "GeneralPurpose3 LSB")         \
    X(generalPurpose4, 19, "GeneralPurpose4 LSB")

class Controller {
public:
    enum class Case : std::uint8_t {
        lsb,
        mode,
        undefined,
#define MIDICORE_X(name, number, text) name,
        MIDICORE_CONTROLLER_NAMED(MIDICORE_X)
#undef MIDICORE_X
    };

    enum class Mode : std::uint8_t {
        allSoundOff = 120,
        resetAllControllers = 121,
        localControl = 122,
        allNotesOff = 123,
        omniModeOff = 124,
        omniModeOn = 125,
        monoModeOn = 126,
        polyModeOn = 127,
    };

    // The 39 numbers with no assignment.
    enum class Undefined : std::uint8_t {
        cc3 = 3, cc9 = 9, cc14 = 14, cc15 = 15,
        cc20 = 20, cc21, cc22, cc23, cc24, cc25, cc26, cc27, cc28, cc29, cc30, cc31,
        cc85 = 85, cc86, cc87, cc89 = 89, cc90,
        cc102 = 102, cc103, cc104, cc105, cc106, cc107, cc108, cc109, cc110, cc111, cc112,
        cc113, cc114, cc115, cc116, cc117, cc118, cc119,
    };

    // The LSB controller (32...63) of an MSB: named, or `undefined` for the MSBs that are
    // undefined (cases named by the MSB number).
    class LSB {
    public:
        enum class Case : std::uint8_t {
            undefined,
#define MIDICORE_X(name, number, text) name,
            MIDICORE_CONTROLLER_LSB_NAMED(MIDICORE_X)
#undef MIDICORE_X
        };
        enum class Undefined : std::uint8_t {
            cc3 = 3, cc9 = 9, cc14 = 14, cc15 = 15,
            cc20 = 20, cc21, cc22, cc23, cc24, cc25, cc26, cc27, cc28, cc29, cc30, cc31,
        };
#define MIDICORE_X(name, number, text) static const LSB name;
        MIDICORE_CONTROLLER_LSB_NAMED(MIDICORE_X)
#undef MIDICORE_X
        static constexpr LSB undefined(Undefined msb) { return LSB(static_cast<std::uint8_t>(msb)); }
        // Of an undefined LSB: its controller number (MSB + 32) and its MSB number.
        static constexpr UInt7 controller(Undefined msb) { return UInt7::fromStorage(static_cast<std::uint8_t>(static_cast<std::uint8_t>(msb) + 32)); }
        static constexpr UInt7 msb(Undefined msb) { return UInt7::fromStorage(static_cast<std::uint8_t>(msb)); }

        constexpr UInt7 msbNumber() const { return UInt7::fromStorage(msb_); }
        constexpr UInt7 controllerNumber() const { return UInt7::fromStorage(static_cast<std::uint8_t>(msb_ + 32)); }
        Case kind() const;
        std::optional<Undefined> undefinedValue() const;
        std::string name() const;
        friend constexpr bool operator==(const LSB&, const LSB&) = default;

    private:
        friend class Controller;
        constexpr explicit LSB(std::uint8_t msb) : msb_(msb) {}
        std::uint8_t msb_;
    };

#define MIDICORE_X(name, number, text) static const Controller name;
    MIDICORE_CONTROLLER_NAMED(MIDICORE_X)
#undef MIDICORE_X

    static constexpr Controller lsb(LSB lsb) { return Controller(lsb.controllerNumber()); }
    static constexpr Controller mode(Mode mode) { return Controller(UInt7::fromStorage(static_cast<std::uint8_t>(mode))); }
    static constexpr Controller undefined(Undefined undefined) {
        return Controller(UInt7::fromStorage(static_cast<std::uint8_t>(undefined)));
    }
    // Every number is a case.
    constexpr Controller() = default;
    explicit constexpr Controller(UInt7 number) : number_(number.storage()) {}
    static std::array<Controller, 128> allCases();

    constexpr UInt7 number() const { return UInt7::fromStorage(number_); }
    Case kind() const;
    std::optional<LSB> lsbValue() const;
    std::optional<Mode> modeValue() const;
    std::optional<Undefined> undefinedValue() const;
    std::string name() const;
    std::string description() const { return name(); }

    friend constexpr bool operator==(const Controller&, const Controller&) = default;
    template <PlainInteger I>
    friend constexpr bool operator==(const Controller& controller, I number) {
        return std::cmp_equal(controller.number_, number);
    }

private:
    std::uint8_t number_ = 0;
};

#define MIDICORE_X(name, number, text) \
    inline constexpr Controller::LSB Controller::LSB::name = Controller::LSB(number);
MIDICORE_CONTROLLER_LSB_NAMED(MIDICORE_X)
#undef MIDICORE_X
#define MIDICORE_X(name, number, text) \
    inline constexpr Controller Controller::name = Controller(UInt7::fromStorage(number));
MIDICORE_CONTROLLER_NAMED(MIDICORE_X)
#undef MIDICORE_X

}  // namespace MIDICore
