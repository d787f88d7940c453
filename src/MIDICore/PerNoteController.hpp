#pragma once
// The controller of a per-note control change: registered (by byte number, 22 named and every
// other byte undefined) or assignable (any byte).

#include "MIDICore/MIDIUnsignedInteger.hpp"

#include <cstdint>
#include <string>

namespace MIDICore {

// A pitch of 7 bits of semitone and 25 bits of fraction.
struct Pitch7_25 {
    UInt7 coarse;
    UInt25 fine;
    friend constexpr bool operator==(const Pitch7_25&, const Pitch7_25&) = default;
};

#define MIDICORE_PER_NOTE_REGISTERED(X)                                                \
    X(modWheel, 1, "Modulation Wheel")                                                 \
    X(breath, 2, "Breath Controller")                                                  \
    X(pitch7_25, 3, "Pitch 7.25")                                                      \
    X(volume, 7, "Volume")                                                             \
    X(balance, 8, "Balance")                                                           \
    X(pan, 10, "Pan")                                                                  \
    X(expression, 11, "Expression")                                                    \
    X(soundCtrl1_soundVariation, 70, "Sound Control 1 - Sound Variation")              \
    X(soundCtrl2_timbreIntensity, 71, "Sound Control 2 - Timbre/Harmonic Intensity")   \
    X(soundCtrl3_releaseTime, 72, "Sound Control 3 - Release Time")                    \
    X(soundCtrl4_attackTime, 73, "Sound Control 4 - Attack Time")                      \
    X(soundCtrl5_brightness, 74, "Sound Control 5 - Brightness")                       \
    X(soundCtrl6_decayTime, 75, "Sound Control 6 - Decay Time")                        \
    X(soundCtrl7_vibratoRate, 76, "Sound Control 7 - Vibrato Rate")                    \
    X(soundCtrl8_vibratoDepth, 77, "Sound Control 8 - Vibrato Depth")                  \
    X(soundCtrl9_vibratoDelay, 78, "Sound Control 9 - Vibrato Delay")                  \
    X(soundCtrl10_defaultUndefined, 79, "Sound Control 10 - Default Undefined")        \
    X(effects1Depth_reverbSendLevel, 91, "Effects 1 Depth - Reverb Send Level")        \
    X(effects2Depth, 92, "Effects 2 Depth")                                            \
    X(effects3Depth_chorusSendLevel, 93, "Effects 3 Depth - Chorus Send Level")        \
    X(effects4Depth, 94, "Effects 4 Depth")                                            \
    X(effects5Depth, 95, "Effects 5 Depth")

class PerNoteController {
public:
    // A registered per-note controller, identified by its byte. The bytes without a name are
    // the undefined case (its 234 cases cc0, cc4, ... are the numbers themselves).
    class Registered {
    public:
        enum class Case : std::uint8_t {
            undefined,
#define MIDICORE_X(name, number, text) name,
            MIDICORE_PER_NOTE_REGISTERED(MIDICORE_X)
#undef MIDICORE_X
        };
#define MIDICORE_X(name, number, text) static const Registered name;
        MIDICORE_PER_NOTE_REGISTERED(MIDICORE_X)
#undef MIDICORE_X
        constexpr Registered() = default;
        constexpr explicit Registered(std::uint8_t number) : number_(number) {}

        constexpr std::uint8_t number() const { return number_; }
        Case kind() const;
        // The text of the named cases; "Undefined Per-Note CC" otherwise.
        std::string name() const;
        friend constexpr bool operator==(const Registered&, const Registered&) = default;

    private:
        std::uint8_t number_ = 0;
    };

    constexpr PerNoteController() = default;
    static constexpr PerNoteController registered(Registered controller) { return {true, controller.number()}; }
    static constexpr PerNoteController registered(std::uint8_t number) { return {true, number}; }
    static constexpr PerNoteController assignable(std::uint8_t number) { return {false, number}; }

    constexpr bool isRegistered() const { return registered_; }
    constexpr std::uint8_t number() const { return number_; }
    std::string name() const;
    std::string description() const;
    friend constexpr bool operator==(const PerNoteController&, const PerNoteController&) = default;

private:
    constexpr PerNoteController(bool registered, std::uint8_t number) : registered_(registered), number_(number) {}
    bool registered_ = true;
    std::uint8_t number_ = 0;
};

#define MIDICORE_X(name, number, text) \
    inline constexpr PerNoteController::Registered PerNoteController::Registered::name = PerNoteController::Registered(number);
MIDICORE_PER_NOTE_REGISTERED(MIDICORE_X)
#undef MIDICORE_X

}  // namespace MIDICore
