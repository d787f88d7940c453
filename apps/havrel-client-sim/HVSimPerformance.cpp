#include "havrel-client-sim/HVSimPerformance.hpp"

#include "central/HVEncodedRangeCommand.hpp"
#include "central/RNBluetoothMIDICommandPure.hpp"
#include "havrel-client-sim/HVSimError.hpp"

#include <fmt/format.h>

#include <cmath>

namespace havrel {

namespace {

std::size_t sweepIntervals(double seconds, double rate) {
    return std::max<std::size_t>(1, static_cast<std::size_t>(std::llround(seconds * rate)));
}

}  // namespace

Bytes HVSimPerformance::rangePayload(const HVSimControl& control, const std::vector<double>& positions) {
    std::vector<HVEncodedRangeValue> values;
    for (std::size_t axis = 0; axis < positions.size(); ++axis) {
        values.push_back(HVEncodedRangeValue::rangeValueWithDataWraperID(
            control.numericID, static_cast<std::uint8_t>(axis), positions[axis]));
    }
    return HVEncodedRangeCommand::rangeCommandWithRangeValues(std::move(values)).data().value_or(Bytes{});
}

std::vector<HVSimFrame> HVSimPerformance::frames(const std::vector<HVSimStep>& steps, double rate,
                                                 std::size_t maximumFrames) {
    std::vector<HVSimFrame> frames;
    double time = 0.0;
    for (const auto& step : steps) {
        bool first = true;
        auto emit = [&](double at, std::uint32_t type, Bytes payload) {
            if (frames.size() == maximumFrames) {
                throw HVSimScriptError(step.line, fmt::format("the script makes more than {} frames", maximumFrames));
            }
            frames.push_back(HVSimFrame{at, type, std::move(payload), first ? step.text : std::string()});
            first = false;
        };
        switch (step.kind) {
            case HVSimStepKind::set:
                emit(time, TNFrameTypeRangeData, rangePayload(step.control, step.to));
                break;
            case HVSimStepKind::sweep: {
                const std::size_t intervals = sweepIntervals(step.seconds, rate);
                std::vector<double> positions(step.from.size());
                for (std::size_t index = 0; index <= intervals; ++index) {
                    const double fraction = static_cast<double>(index) / static_cast<double>(intervals);
                    for (std::size_t axis = 0; axis < positions.size(); ++axis) {
                        positions[axis] = step.from[axis] + (step.to[axis] - step.from[axis]) * fraction;
                    }
                    emit(time + step.seconds * fraction, TNFrameTypeRangeData,
                         rangePayload(step.control, positions));
                }
                time += step.seconds;
                break;
            }
            case HVSimStepKind::tap: {
                emit(time, TNFrameTypeRangeData,
                     rangePayload(step.control, std::vector<double>(step.control.axes, 1.0)));
                time += step.seconds;
                emit(time, TNFrameTypeRangeData,
                     rangePayload(step.control, std::vector<double>(step.control.axes, 0.0)));
                break;
            }
            case HVSimStepKind::wait:
                time += step.seconds;
                break;
            case HVSimStepKind::midi: {
                const auto& bytes = step.payload;
                auto command = RNBluetoothMIDICommandPure::MIDICommandWithStatus(
                    bytes[0], bytes.size() > 1 ? bytes[1] : 0, bytes.size() > 2 ? bytes[2] : 0);
                emit(time, TNFrameTypePureMIDIData, *command.data());
                break;
            }
            case HVSimStepKind::change:
                emit(time, TNFrameTypeChangeData, step.payload);
                break;
            case HVSimStepKind::file:
                emit(time, TNFrameTypeConfigurationDataFromCentral, step.payload);
                break;
        }
    }
    return frames;
}

double HVSimPerformance::duration(const std::vector<HVSimStep>& steps) {
    double time = 0.0;
    for (const auto& step : steps) {
        if (step.kind == HVSimStepKind::sweep || step.kind == HVSimStepKind::tap || step.kind == HVSimStepKind::wait) {
            time += step.seconds;
        }
    }
    return time;
}

}  // namespace havrel
