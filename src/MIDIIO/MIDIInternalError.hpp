#pragma once
// Failures of building packets and packet lists to send.

#include <cstddef>
#include <exception>
#include <optional>
#include <string>

namespace MIDIIO {

class MIDIInternalError : public std::exception {
public:
    enum class Case { packetTooLarge, packetBuildError, umpEmpty, umpTooLarge };

    static MIDIInternalError packetTooLarge(std::size_t bufferByteCount);
    static MIDIInternalError packetBuildError(std::optional<std::string> underlyingError);
    static MIDIInternalError umpEmpty() { return MIDIInternalError(Case::umpEmpty, 0, std::nullopt); }
    static MIDIInternalError umpTooLarge() { return MIDIInternalError(Case::umpTooLarge, 0, std::nullopt); }

    Case kind() const { return case_; }
    std::size_t bufferByteCount() const { return bufferByteCount_; }
    const std::optional<std::string>& underlyingError() const { return underlyingError_; }

    const std::string& description() const { return text_; }
    const char* what() const noexcept override { return text_.c_str(); }

private:
    MIDIInternalError(Case kind, std::size_t bufferByteCount, std::optional<std::string> underlyingError);

    Case case_;
    std::size_t bufferByteCount_;
    std::optional<std::string> underlyingError_;
    std::string text_;
};

}  // namespace MIDIIO
