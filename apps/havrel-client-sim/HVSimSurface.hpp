#pragma once
// The control surface the simulator plays: a configuration document and the controls a script
// can name. The built-in surface has six controls with fixed wrapper numbers; a surface read
// from a document names its controls by wrapper number only.

#include "model/HVEncodedConfiguration.hpp"
#include "platform/Types.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace havrel {

// Wrapper numbers of the built-in surface.
inline constexpr std::uint64_t kHVSimFaderID = 1;    // CC 7, channel 1
inline constexpr std::uint64_t kHVSimXYID = 2;       // CC 1 (x) and CC 2 (y), channel 1
inline constexpr std::uint64_t kHVSimPadID = 3;      // note 60, channel 1; 0.5 s glide into 1.0
inline constexpr std::uint64_t kHVSimProgramID = 4;  // program change, channel 1
inline constexpr std::uint64_t kHVSimPitchID = 5;    // pitch bend, channel 1
inline constexpr std::uint64_t kHVSimRadialID = 6;   // CC 74 by distance from the centre, channel 1

struct HVSimControl {
    std::string name;  // the word of the built-in surface; empty for a control known by number
    std::uint64_t numericID = 0;
    std::size_t axes = 0;

    bool operator==(const HVSimControl&) const = default;
};

class HVSimSurface {
public:
    static HVSimSurface builtIn();
    // A configuration document as JSON text, gzip-compressed or not. Throws HVSimError when it
    // does not inflate, is not a JSON object, or has no wrapper with a number and an axis.
    static HVSimSurface fromDocument(ByteView bytes);

    const HVEncodedConfigurationPtr& configuration() const { return configuration_; }
    const std::vector<HVSimControl>& controls() const { return controls_; }
    bool isBuiltIn() const { return builtIn_; }

    // A control by its word (built-in surface) or by its wrapper number; nothing when the
    // surface has no such control.
    std::optional<HVSimControl> controlNamed(std::string_view word) const;

    // The payload of the sync frame: the document as gzip-compressed JSON text. A document read
    // from a file travels as its own text.
    Bytes syncPayload() const;

private:
    HVEncodedConfigurationPtr configuration_;
    std::vector<HVSimControl> controls_;
    std::string documentText_;
    bool builtIn_ = false;
};

}  // namespace havrel
