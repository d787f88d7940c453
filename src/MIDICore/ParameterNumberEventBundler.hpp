#pragma once
// ParameterNumberEventBundler repairs streams in which a device sends the data entry MSB and
// LSB of an RPN or NRPN as two separate messages (as a MIDI 1.0 to 2.0 translation of a
// device that sends CC 6 and CC 38 apart does: first the parameter with LSB 0, then again with
// the real LSB). The first part is held to see whether the second follows.
//
// The rule:
// - An absolute rpn/nrpn whose data entry MSB and LSB are both present and whose LSB is 0 is a
//   first part: it is held, with its time stamp and source.
// - An event of the same kind with the same parameter, channel, group and data entry MSB, also
//   absolute, is its second part: the held event is dropped and the second goes out in its
//   place, carrying both bytes.
// - System real-time and utility events pass by a held event. Every other event, including a
//   relative change or another parameter, first releases the held event, so order is kept;
//   a first part may then be held in its turn.
// - When the time-out passes with an event still held, it goes out alone, with its original
//   time stamp and source, from the expiration queue.
// At most one event is held at a time.

#include "MIDICore/EventHolder.hpp"
#include "MIDICore/MIDIEvent.hpp"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace MIDICore {

template <class TimeStamp, class Source>
class ParameterNumberEventBundler {
    // What the expiration tasks reach: they may outlive a call, not the bundler.
    struct Shared {
        std::mutex mutex;
        std::function<void(std::vector<MIDIEvent>, TimeStamp, std::optional<Source>)> handleEvents;
    };
    std::shared_ptr<Shared> shared_;

public:
    using HandleEvents = std::function<void(std::vector<MIDIEvent> events, TimeStamp timeStamp, std::optional<Source> source)>;
    // Long enough for the second message of a pair sent back to back on a slow link, short
    // enough that a lone first part is not noticeably late.
    static constexpr double defaultTimeOut = 0.05;

    ParameterNumberEventBundler(std::shared_ptr<MIDIInternals::DispatchQueue> queue, HandleEvents handleEvents,
                                double timeOut = defaultTimeOut)
        : shared_(std::make_shared<Shared>()),
          rpnHolder(queue, timeOut, expiredHandler(shared_)),
          nrpnHolder(queue, timeOut, expiredHandler(shared_)) {
        shared_->handleEvents = std::move(handleEvents);
    }

    void setHandleEvents(HandleEvents handleEvents) {
        std::lock_guard lock(shared_->mutex);
        shared_->handleEvents = std::move(handleEvents);
    }
    void setTimeOut(double seconds) {
        rpnHolder.setTimeOut(seconds);
        nrpnHolder.setTimeOut(seconds);
    }

    // Passes the events on through handleEvents, holding and merging as above.
    void process(std::vector<MIDIEvent> events, const TimeStamp& timeStamp, const std::optional<Source>& source) {
        std::vector<MIDIEvent> batch;
        batch.reserve(events.size());
        for (auto& event : events) {
            if (auto rpn = event.template get<MIDIEvent::RPN>()) {
                parameterNumber(rpnHolder, nrpnHolder, *rpn, batch, timeStamp, source);
            } else if (auto nrpn = event.template get<MIDIEvent::NRPN>()) {
                parameterNumber(nrpnHolder, rpnHolder, *nrpn, batch, timeStamp, source);
            } else {
                if (!event.isSystemRealTime() && !event.isUtility()) {
                    release(rpnHolder, batch, timeStamp, source);
                    release(nrpnHolder, batch, timeStamp, source);
                }
                batch.push_back(std::move(event));
            }
        }
        deliver(std::move(batch), timeStamp, source);
    }

    EventHolder<MIDIEvent::RPN, TimeStamp, Source> rpnHolder;
    EventHolder<MIDIEvent::NRPN, TimeStamp, Source> nrpnHolder;

private:
    static auto expiredHandler(const std::shared_ptr<Shared>& shared) {
        std::weak_ptr<Shared> weak = shared;
        return [weak](MIDIEvent event, TimeStamp timeStamp, std::optional<Source> source) {
            if (auto strong = weak.lock()) {
                deliverTo(*strong, {std::move(event)}, timeStamp, source);
            }
        };
    }

    static void deliverTo(Shared& shared, std::vector<MIDIEvent> events, const TimeStamp& timeStamp,
                          const std::optional<Source>& source) {
        if (events.empty()) {
            return;
        }
        HandleEvents handler;
        {
            std::lock_guard lock(shared.mutex);
            handler = shared.handleEvents;
        }
        if (handler) {
            handler(std::move(events), timeStamp, source);
        }
    }

    void deliver(std::vector<MIDIEvent> events, const TimeStamp& timeStamp, const std::optional<Source>& source) {
        deliverTo(*shared_, std::move(events), timeStamp, source);
    }

    // Sends what the batch holds so far, then the held event with its own time stamp.
    template <class Holder>
    void release(Holder& holder, std::vector<MIDIEvent>& batch, const TimeStamp& timeStamp,
                 const std::optional<Source>& source) {
        auto held = holder.take();
        if (!held) {
            return;
        }
        deliver(std::exchange(batch, {}), timeStamp, source);
        deliver({Holder::storedEventWrapper(held->event)}, held->timeStamp, held->source);
    }

    template <class Payload>
    static bool isFirstPart(const Payload& p) {
        auto data = p.parameter.dataEntryBytes();
        return p.change == MIDI2ParameterNumberChange::absolute && data.msb && data.lsb && *data.lsb == 0;
    }

    template <class Payload>
    static bool isSecondPart(const Payload& first, const Payload& p) {
        return p.change == MIDI2ParameterNumberChange::absolute && p.channel == first.channel &&
               p.group == first.group && p.parameter.parameterBytes() == first.parameter.parameterBytes() &&
               p.parameter.dataEntryBytes().msb == first.parameter.dataEntryBytes().msb;
    }

    template <class Holder, class OtherHolder, class Payload>
    void parameterNumber(Holder& holder, OtherHolder& other, const Payload& p, std::vector<MIDIEvent>& batch,
                         const TimeStamp& timeStamp, const std::optional<Source>& source) {
        release(other, batch, timeStamp, source);
        if (auto held = holder.take()) {
            if (isSecondPart(held->event, p)) {
                batch.emplace_back(p);
                return;
            }
            deliver(std::exchange(batch, {}), timeStamp, source);
            deliver({Holder::storedEventWrapper(held->event)}, held->timeStamp, held->source);
        }
        if (isFirstPart(p)) {
            deliver(std::exchange(batch, {}), timeStamp, source);
            holder.hold(p, timeStamp, source);
        } else {
            batch.emplace_back(p);
        }
    }
};

}  // namespace MIDICore
