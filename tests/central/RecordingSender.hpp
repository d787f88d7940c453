#pragma once
// A MIDI sender that records every send as one line of text.

#include "central/HVMIDISender.hpp"

#include <fmt/format.h>

#include <string>
#include <vector>

namespace havrel::testing {

class RecordingSender final : public HVMIDISender {
public:
    std::vector<std::string> calls;
    void sendWithController(std::uint8_t controller, std::uint8_t value, std::uint8_t channel, bool v) override {
        calls.push_back(fmt::format("CC {} {} ch{} virtual={}", controller, value, channel, v));
    }
    void sendWithNoteOn(std::uint8_t note, std::uint8_t velocity, std::uint8_t channel, bool v) override {
        calls.push_back(fmt::format("On {} {} ch{} virtual={}", note, velocity, channel, v));
    }
    void sendWithNoteOff(std::uint8_t note, std::uint8_t velocity, std::uint8_t channel, bool v) override {
        calls.push_back(fmt::format("Off {} {} ch{} virtual={}", note, velocity, channel, v));
    }
    void sendWithProgramChange(std::uint8_t program, std::uint8_t channel, bool v) override {
        calls.push_back(fmt::format("PC {} ch{} virtual={}", program, channel, v));
    }
    void sendWithPitchBend(std::uint16_t value, std::uint8_t channel, bool v) override {
        calls.push_back(fmt::format("Bend {} ch{} virtual={}", value, channel, v));
    }
    std::string description() const override { return "<RecordingSender>"; }
};

}  // namespace havrel::testing
