#include "havrel-client-sim/HVSimSurface.hpp"

#include "havrel-client-sim/HVSimError.hpp"
#include "model/HVDataHelpers.hpp"
#include "model/HVDictionaryReading.hpp"

#include <charconv>

namespace havrel {

namespace {

HVMidiAxisDataWrapperPtr numbered(std::uint64_t numericID, std::vector<HVMidiAxisDataPtr> axes) {
    auto wrapper = HVMidiAxisDataWrapper::midiAxisWrapperWithAxisArray(std::move(axes));
    wrapper->numericID = numericID;
    return wrapper;
}

HVMidiAxisDataPtr axisWith(const HVMidiRangeContainerPtr& container) {
    auto axis = HVMidiAxisData::create();
    axis->addRangeContainer(container);
    return axis;
}

HVMidiRangeContainerPtr titled(HVMidiRangeContainerPtr container, std::string title) {
    container->title = std::move(title);
    return container;
}

}  // namespace

HVSimSurface HVSimSurface::builtIn() {
    auto fader = titled(HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 7, false), "Volume");

    auto x = titled(HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 1, false), "XY x");
    auto y = titled(HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 2, false), "XY y");

    auto pad = titled(HVMidiRangeContainer::containerWithChannel(
                          1, 60, true,
                          {HVMidiRangeValue::valueWithRangePosition(0.0, 0),
                           HVMidiRangeValue::valueWithRangePosition(1.0, 127, 0.5)}),
                      "Pad");

    auto program = titled(HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 0, false), "Program");
    program->signalType = HVSignalTypePC;

    auto pitch = titled(HVMidiRangeContainer::containerWithChannel(
                            1, 0, false,
                            {HVMidiRangeValue::valueWithRangePosition(0.0, 0),
                             HVMidiRangeValue::valueWithRangePosition(1.0, 16383)}),
                        "Pitch");
    pitch->signalType = HVSignalTypePitch;

    // The radial pad reads its two axes as a point: the centre stop (127) sits in the middle of
    // the field, the outer stop (0) holds on and beyond a circle of radius 0.5.
    auto outer = HVMidiRangeValue::valueWithRangePosition(0.0, 0);
    outer->setLength(0.5);
    auto centre = HVMidiRangeValue::valueWithRangePosition(1.0, 127);
    centre->setRadialX(0.5);
    centre->setRadialY(0.5);
    auto radial = titled(HVMidiRangeContainer::containerWithChannel(1, 74, false, {outer, centre}), "Radial");
    radial->containerType = HVContainerTypeRadial;
    auto radialWrapper = numbered(kHVSimRadialID, {HVMidiAxisData::create(), HVMidiAxisData::create()});
    radialWrapper->addMultiAxialRangeContainer(radial, radialWrapper->midiAxis());

    HVSimSurface surface;
    surface.builtIn_ = true;
    surface.configuration_ = HVEncodedConfiguration::create();
    surface.configuration_->dataWrappers = {
        numbered(kHVSimFaderID, {axisWith(fader)}),     numbered(kHVSimXYID, {axisWith(x), axisWith(y)}),
        numbered(kHVSimPadID, {axisWith(pad)}),         numbered(kHVSimProgramID, {axisWith(program)}),
        numbered(kHVSimPitchID, {axisWith(pitch)}),     radialWrapper,
    };
    surface.controls_ = {
        {"fader", kHVSimFaderID, 1}, {"xy", kHVSimXYID, 2},       {"pad", kHVSimPadID, 1},
        {"program", kHVSimProgramID, 1}, {"pitch", kHVSimPitchID, 1}, {"radial", kHVSimRadialID, 2},
    };
    return surface;
}

HVSimSurface HVSimSurface::fromDocument(ByteView bytes) {
    std::optional<Bytes> inflated;
    if (isGzipData(bytes)) {
        inflated = gzipInflate(bytes);
        if (!inflated) {
            throw HVSimError("the configuration is gzip data that does not inflate");
        }
        bytes = *inflated;
    }
    Dictionary document = parseJSONFromOutside(bytes, "configuration");
    if (document.is_discarded()) {
        throw HVSimError("the configuration is not JSON");
    }
    if (!document.is_object()) {
        throw HVSimError("the configuration is not a JSON object");
    }

    HVSimSurface surface;
    surface.configuration_ = HVEncodedConfiguration::initFromDictionary(document);
    surface.documentText_.assign(bytes.begin(), bytes.end());
    for (const auto& wrapper : surface.configuration_->dataWrappers) {
        if (wrapper->numericID != 0 && wrapper->numberOfAxes() > 0) {
            surface.controls_.push_back({"", wrapper->numericID, wrapper->numberOfAxes()});
        }
    }
    return surface;
}

std::optional<HVSimControl> HVSimSurface::controlNamed(std::string_view word) const {
    std::uint64_t number = 0;
    auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    bool isNumber = error == std::errc() && end == word.data() + word.size() && !word.empty();
    std::optional<HVSimControl> found;
    for (const auto& control : controls_) {
        // The last of equal numbers, as the Central finds a wrapper.
        if (isNumber ? control.numericID == number : control.name == word) {
            found = control;
        }
    }
    return found;
}

Bytes HVSimSurface::syncPayload() const {
    if (builtIn_) {
        return configuration_->zippedData().value_or(Bytes{});
    }
    auto text = ByteView(reinterpret_cast<const std::uint8_t*>(documentText_.data()), documentText_.size());
    return gzipDeflate(text).value_or(Bytes{});
}

}  // namespace havrel
