#include "sequencing/HVMusicalTypes.hpp"

#include "platform/Assert.hpp"

#include <array>

namespace havrel {

std::string HVMIDINoteLengthStringValue(HVMIDINoteLength length) {
    switch (length) {
        case HVMIDINoteLength1_32: return "1/32";
        case HVMIDINoteLength1_32T: return "1/32T";
        case HVMIDINoteLength1_16: return "1/16";
        case HVMIDINoteLength1_16T: return "1/16T";
        case HVMIDINoteLength1_8: return "1/8";
        case HVMIDINoteLength1_8T: return "1/8T";
        case HVMIDINoteLength1_4: return "1/4";
        case HVMIDINoteLength1_4T: return "1/4T";
        case HVMIDINoteLength1_2: return "1/2";
        case HVMIDINoteLength1_2T: return "1/2T";
        case HVMIDINoteLength1: return "1";
        default: return "";
    }
}

namespace {

struct DurationRow {
    const char* description;
    double multiplier;
};

constexpr std::array<DurationRow, 12> kDurations{{
    {"1/32", 0.03125}, {"1/32 D", 0.046875}, {"1/16", 0.0625}, {"1/16 D", 0.09375},
    {"1/8", 0.125},    {"1/8 D", 0.1875},    {"1/4", 0.25},    {"1/4 D", 0.375},
    {"1/2", 0.5},      {"1/2 D", 0.75},      {"1", 1.0},       {"1 D", 1.5},
}};

}  // namespace

std::optional<HVMusicalDuration> HVMusicalDuration::fromRawValue(std::int64_t raw) {
    if (raw < 0 || raw >= static_cast<std::int64_t>(kDurations.size())) {
        return std::nullopt;
    }
    return HVMusicalDuration(raw);
}

double HVMusicalDuration::multiplier() const {
    return kDurations[static_cast<std::size_t>(raw_)].multiplier;
}

std::string HVMusicalDuration::description() const {
    return kDurations[static_cast<std::size_t>(raw_)].description;
}

std::optional<HVSequencerStepShape> HVSequencerStepShapeFromRawValue(std::int64_t raw) {
    if (raw < 0 || raw > 2) {
        return std::nullopt;
    }
    return static_cast<HVSequencerStepShape>(raw);
}

std::optional<std::uint8_t> HVCCOrNote::checkedOctaveUp(std::uint8_t value, std::int64_t octaves) {
    if (octaves < 0 || octaves * 12 > 255 || value + octaves * 12 > 255) {
        return std::nullopt;
    }
    return static_cast<std::uint8_t>(std::min<std::int64_t>(value + octaves * 12, 127));
}

HVCCOrNote HVCCOrNote::up(std::uint8_t octaves) const {
    const auto raised = checkedOctaveUp(value, octaves);
    HV_ASSERT(raised.has_value());
    return HVCCOrNote{*raised, 1};
}

HVCCOrNote HVCCOrNote::down(std::uint8_t octaves) const {
    HV_ASSERT(octaves * 12 <= 255);
    HV_ASSERT(value >= octaves * 12);
    return HVCCOrNote{static_cast<std::uint8_t>(value - octaves * 12), 1};
}

void HVCCOrNote::changeUp(std::uint8_t octaves) {
    value = up(octaves).value;
}

void HVCCOrNote::changeDown(std::uint8_t octaves) {
    value = down(octaves).value;
}

}  // namespace havrel
