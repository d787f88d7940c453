#pragma once
// A script as the frames it sends: each frame with its time from the start of the performance.

#include "havrel-client-sim/HVSimScript.hpp"
#include "platform/Types.hpp"
#include "transport/usb/TNFrameType.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace havrel {


struct HVSimFrame {
    double time = 0.0;  // seconds from the start of the performance
    std::uint32_t type = 0;
    Bytes payload;
    // The command as written, on the first frame of each command; empty on the rest.
    std::string cue;
};

class HVSimPerformance {
public:
    // A script that would make more frames is refused, so a long sweep at a high rate cannot
    // exhaust memory.
    static constexpr std::size_t kMaximumFrames = 1'000'000;

    // Frames in time order. A sweep sends round(seconds * rate) + 1 positions, the first at its
    // start and the last, its end, after its seconds. Throws HVSimScriptError (at the command
    // that passes the frame limit).
    static std::vector<HVSimFrame> frames(const std::vector<HVSimStep>& steps, double rate,
                                          std::size_t maximumFrames = kMaximumFrames);

    // The length of the performance: the time of its last frame, or of the end of a wait after it.
    static double duration(const std::vector<HVSimStep>& steps);

    // A range command that puts every axis of the control at its position.
    static Bytes rangePayload(const HVSimControl& control, const std::vector<double>& positions);
};

}  // namespace havrel
