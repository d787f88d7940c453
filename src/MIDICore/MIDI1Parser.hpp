#pragma once
// MIDI1Parser turns a MIDI 1.0 byte stream, one packet at a time, into events.
//
// The only state that survives between calls is the running status: the last channel-voice
// status byte, cleared by any byte 0xF0...0xF7 and untouched by real-time bytes. Everything
// else of a message must arrive within one call: a message cut short at the end of a packet
// yields nothing, and SysEx is not joined across packets. Real-time bytes come out at once, so
// one that interrupts a message comes out ahead of it. Malformed input yields no event and is
// never reported. A SysEx message larger than 1 MiB is dropped.
//
// One parser belongs to one receiver and is called one call at a time. Its two fields are
// atomics, so changing the zero-velocity switch from another thread is safe; two concurrent
// parsedEvents calls on one parser would interleave their running status, and callers do not
// do that.

#include "MIDICore/MIDI1Wire.hpp"
#include "MIDICore/MIDIEvent.hpp"

#include <array>
#include <new>
#include <type_traits>
#include <utility>

#include <atomic>
#include <cstdint>
#include <span>
#include <vector>

namespace MIDICore {

namespace detail {

// What the message being collected still expects of a data byte.
enum class Expect : std::uint8_t { none, one, two, unbounded };

inline Expect expectFor(std::uint8_t status) {
    switch (midi1DataByteCount(status)) {
        case 1: return Expect::one;
        case 2: return Expect::two;
        default: return Expect::none;
    }
}

// The message being collected: up to three bytes, or a SysEx of any length up to the bound.
template <class Out>
class MessageBuffer {
public:
    MessageBuffer(UInt4 group, bool translate, Out& out)
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
            if (sysEx_.size() >= maximumSysExSize) {
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
                decodeMIDI1Message(sysEx_, group_, translate_, out_);
            }
            sysEx_.clear();
            inSysEx_ = false;
        } else if (length_ != 0) {
            decodeMIDI1Message(std::span<const std::uint8_t>(bytes_.data(), length_), group_, translate_, out_);
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
    Out& out_;
    std::array<std::uint8_t, 3> bytes_{};
    std::uint8_t length_ = 0;
    bool inSysEx_ = false;
    bool tooLarge_ = false;
    std::vector<std::uint8_t> sysEx_;
};

// Hands each event to a callable as it is decoded, instead of collecting them. The event is
// built in place from its payload; when that payload owns nothing and the sink left the event
// holding the same kind, the event is not destroyed through the generic variant destructor,
// which is a table jump per event and most of the cost of the channel-voice path.
template <class Sink>
class SinkOut {
public:
    explicit SinkOut(Sink& sink) : sink_(sink) {}
    template <class P>
    void emplace_back(P&& payload) {
        alignas(MIDIEvent) unsigned char storage[sizeof(MIDIEvent)];
        MIDIEvent* event = ::new (static_cast<void*>(storage)) MIDIEvent(std::forward<P>(payload));
        if constexpr (std::is_trivially_destructible_v<std::remove_cvref_t<P>>) {
            const std::size_t kind = event->index();
            sink_(std::move(*event));
            if (event->index() != kind) {
                event->~MIDIEvent();
            }
        } else {
            sink_(std::move(*event));
            event->~MIDIEvent();
        }
    }
    void push_back(MIDIEvent&& event) { sink_(std::move(event)); }

private:
    Sink& sink_;
};

}  // namespace detail

class MIDI1Parser {
public:
    MIDI1Parser() = default;

    // True by default: a note on with velocity 0 is delivered as a noteOff.
    bool translateNoteOnZeroVelocityToNoteOff() const { return translate_.load(std::memory_order_relaxed); }
    void setTranslateNoteOnZeroVelocityToNoteOff(bool translate) { translate_.store(translate, std::memory_order_relaxed); }

    // The events of one packet, in stream order except for real-time bytes; `umpGroup` is
    // stamped on every event.
    std::vector<MIDIEvent> parsedEvents(std::span<const std::uint8_t> bytes, UInt4 umpGroup = UInt4(0));
    // A packet value with a `bytes` field.
    template <class Packet>
        requires requires(const Packet& packet) { std::span<const std::uint8_t>(packet.bytes); }
    std::vector<MIDIEvent> parsedEvents(const Packet& packet, UInt4 umpGroup = UInt4(0)) {
        return parsedEvents(std::span<const std::uint8_t>(packet.bytes), umpGroup);
    }

    // The same events as parsedEvents, in the same order, each handed to `sink` (called with a
    // MIDIEvent&&) as soon as it is decoded: no list is built.
    template <class Sink>
    void parse(std::span<const std::uint8_t> bytes, UInt4 umpGroup, Sink&& sink) {
        detail::SinkOut<std::remove_reference_t<Sink>> out(sink);
        parseInto(bytes, umpGroup, out);
    }

private:
    template <class Out>
    void parseInto(std::span<const std::uint8_t> bytes, UInt4 umpGroup, Out& out) {
        if (bytes.empty()) {
            return;
        }
        std::uint8_t runningStatus = runningStatus_.load(std::memory_order_relaxed);
        const bool translate = translateNoteOnZeroVelocityToNoteOff();
        detail::MessageBuffer<Out> buffer(umpGroup, translate, out);
        detail::Expect expect = runningStatus != 0 ? detail::expectFor(runningStatus) : detail::Expect::none;

        const std::uint8_t* data = bytes.data();
        const std::size_t size = bytes.size();
        for (std::size_t i = 0; i < size; ++i) {
            const std::uint8_t byte = data[i];
            // Fast path: a whole channel message with nothing pending, by running status or with its
            // own status byte, decodes at once, as the general path below would decode it.
            if (buffer.empty()) {
                if (byte < 0x80 && runningStatus != 0) {
                    if (expect == detail::Expect::one) {
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
                        expect = count == 1 ? detail::Expect::one : detail::Expect::two;
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
                    case detail::Expect::none: break;
                    case detail::Expect::unbounded: buffer.append(byte); break;
                    case detail::Expect::one:
                    case detail::Expect::two:
                        buffer.append(byte);
                        if (buffer.length() == (expect == detail::Expect::one ? 2 : 3)) {
                            buffer.flush();
                        }
                        break;
                }
            } else if (byte < 0xF0) {
                buffer.flush();
                expect = detail::expectFor(byte);
                buffer.start(byte);
                runningStatus = byte;
            } else if (byte < 0xF8) {
                buffer.flush();
                runningStatus = 0;
                expect = detail::Expect::none;
                switch (byte) {
                    case 0xF0:
                        buffer.startSysEx();
                        expect = detail::Expect::unbounded;
                        break;
                    case 0xF1:
                    case 0xF2:
                    case 0xF3:
                        buffer.start(byte);
                        expect = detail::expectFor(byte);
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
    }

    std::atomic<bool> translate_{true};
    // A channel status byte, or 0 for none.
    std::atomic<std::uint8_t> runningStatus_{0};
};

}  // namespace MIDICore
