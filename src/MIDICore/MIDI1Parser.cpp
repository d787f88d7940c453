#include "MIDICore/MIDI1Parser.hpp"

#include "MIDICore/MIDI1Wire.hpp"

namespace MIDICore {

namespace {

// What the message being collected still expects of a data byte.
enum class Expect : std::uint8_t { none, one, two, unbounded };

Expect expectFor(std::uint8_t status) {
    switch (detail::midi1DataByteCount(status)) {
        case 1: return Expect::one;
        case 2: return Expect::two;
        default: return Expect::none;
    }
}

// The message being collected: up to three bytes, or a SysEx of any length up to the bound.
class MessageBuffer {
public:
    MessageBuffer(UInt4 group, bool translate, std::vector<MIDIEvent>& out)
        : group_(group), translate_(translate), out_(out) {}

    bool empty() const { return length_ == 0 && !inSysEx_; }
    std::uint8_t length() const { return length_; }

    void start(std::uint8_t status) {
        bytes_[0] = status;
        length_ = 1;
    }
    void startSysEx() {
        inSysEx_ = true;
        tooLarge_ = false;
        sysEx_.push_back(0xF0);
    }
    void append(std::uint8_t byte) {
        if (inSysEx_) {
            if (tooLarge_) {
                return;
            }
            if (sysEx_.size() >= detail::maximumSysExSize) {
                tooLarge_ = true;
                std::vector<std::uint8_t>().swap(sysEx_);
                return;
            }
            sysEx_.push_back(byte);
        } else if (length_ < bytes_.size()) {
            bytes_[length_++] = byte;
        }
    }
    // Decodes what has been collected, if anything, and empties the buffer.
    void flush() {
        if (inSysEx_) {
            if (!tooLarge_) {
                detail::decodeMIDI1Message(sysEx_, group_, translate_, out_);
            }
            sysEx_.clear();
            inSysEx_ = false;
        } else if (length_ != 0) {
            detail::decodeMIDI1Message(std::span<const std::uint8_t>(bytes_.data(), length_), group_, translate_, out_);
            length_ = 0;
        }
    }
    void clear() {
        length_ = 0;
        inSysEx_ = false;
        sysEx_.clear();
    }

private:
    UInt4 group_;
    bool translate_;
    std::vector<MIDIEvent>& out_;
    std::array<std::uint8_t, 3> bytes_{};
    std::uint8_t length_ = 0;
    bool inSysEx_ = false;
    bool tooLarge_ = false;
    std::vector<std::uint8_t> sysEx_;
};

}  // namespace

std::vector<MIDIEvent> MIDI1Parser::parsedEvents(std::span<const std::uint8_t> bytes, UInt4 umpGroup) {
    std::vector<MIDIEvent> out;
    if (bytes.empty()) {
        return out;
    }
    out.reserve(bytes.size() / 2 + 1);
    std::uint8_t runningStatus = runningStatus_.load(std::memory_order_relaxed);
    const bool translate = translateNoteOnZeroVelocityToNoteOff();
    MessageBuffer buffer(umpGroup, translate, out);
    Expect expect = runningStatus != 0 ? expectFor(runningStatus) : Expect::none;

    const std::uint8_t* data = bytes.data();
    const std::size_t size = bytes.size();
    for (std::size_t i = 0; i < size; ++i) {
        const std::uint8_t byte = data[i];
        // Fast path: a whole channel message with nothing pending, by running status or with its
        // own status byte, decodes at once, as the general path below would decode it.
        if (buffer.empty()) {
            if (byte < 0x80 && runningStatus != 0) {
                if (expect == Expect::one) {
                    detail::emitChannelVoice(runningStatus, byte, 0, umpGroup, translate, out);
                    continue;
                }
                if (i + 1 < size && data[i + 1] < 0x80) {
                    detail::emitChannelVoice(runningStatus, byte, data[i + 1], umpGroup, translate, out);
                    ++i;
                    continue;
                }
            } else if (byte >= 0x80 && byte < 0xF0) {
                std::uint8_t count = detail::midi1DataByteCount(byte);
                if (i + count < size && data[i + 1] < 0x80 && (count == 1 || data[i + 2] < 0x80)) {
                    runningStatus = byte;
                    expect = count == 1 ? Expect::one : Expect::two;
                    detail::emitChannelVoice(byte, data[i + 1], count == 2 ? data[i + 2] : 0, umpGroup, translate, out);
                    i += count;
                    continue;
                }
            }
        }
        if (byte < 0x80) {
            if (buffer.empty() && runningStatus != 0) {
                buffer.start(runningStatus);
            }
            switch (expect) {
                case Expect::none: break;
                case Expect::unbounded: buffer.append(byte); break;
                case Expect::one:
                case Expect::two:
                    buffer.append(byte);
                    if (buffer.length() == (expect == Expect::one ? 2 : 3)) {
                        buffer.flush();
                    }
                    break;
            }
        } else if (byte < 0xF0) {
            buffer.flush();
            expect = expectFor(byte);
            buffer.start(byte);
            runningStatus = byte;
        } else if (byte < 0xF8) {
            buffer.flush();
            runningStatus = 0;
            expect = Expect::none;
            switch (byte) {
                case 0xF0:
                    buffer.startSysEx();
                    expect = Expect::unbounded;
                    break;
                case 0xF1:
                case 0xF2:
                case 0xF3:
                    buffer.start(byte);
                    expect = expectFor(byte);
                    break;
                case 0xF6: buffer.start(byte); break;
                default: buffer.clear(); break;  // 0xF7 decodes to nothing; 0xF4, 0xF5 are undefined
            }
        } else if (auto event = detail::midi1RealTimeEvent(byte, umpGroup)) {
            out.push_back(std::move(*event));
        }
    }
    buffer.flush();
    runningStatus_.store(runningStatus, std::memory_order_relaxed);
    return out;
}

}  // namespace MIDICore
