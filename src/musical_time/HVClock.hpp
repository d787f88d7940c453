#pragma once
// The one musical clock: 24 ticks a quarter note from its own timer at the tempo it holds, until
// MIDI clock arrives; from then on it follows the MIDI tick count. Every tick is posted on the
// main queue as the notification "MIDIQN" with the count under the key "MIDIQN".
//
// The internal timer runs on the serial queue "com.havrelapps.clock" and fires on absolute
// deadlines, start + k × period, so it never drifts; its thread asks for real-time priority and
// says in one log line when the system refuses.

#include "platform/Clock.hpp"
#include "platform/SharedSlot.hpp"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

namespace havrel {

class SerialQueue;

enum class HVClockSource : std::int64_t { internalClock = 0, externalClock = 1 };

inline constexpr const char* HVMIDIQNNotification = "MIDIQN";

// Ticks a minute at the tempo.
inline double bpmToQuantiom(double bpm) {
    return bpm * 24.0;
}
// Seconds a tick at so many ticks a minute.
inline double quantiomToSecondsInterval(double quantiom) {
    return 60.0 / quantiom;
}

class HVClock : public std::enable_shared_from_this<HVClock> {
public:
    static constexpr const char* kQueueLabel = "com.havrelapps.clock";
    // How long before a tick's deadline its thread wakes, to wait out the rest itself (real
    // clocks only).
    static constexpr std::chrono::microseconds kWakeAhead{250};

    // Made on first use; registers with the MIDI manager there is then.
    static std::shared_ptr<HVClock> shared();
    // For tests: replaces the shared clock (nullptr: the next use makes a new one).
    static void setShared(std::shared_ptr<HVClock> clock);
    // A clock registered for the external ticks, tempo and position of the shared MIDI manager,
    // when there is one.
    static std::shared_ptr<HVClock> create();
    ~HVClock();

    HVClockSource clockSource() const;
    // External: the internal timer is cancelled and cleared.
    void setClockSource(HVClockSource source);
    bool isRunning() const { return isRunning_.load(); }
    double bpm() const;
    // On a running clock the timer starts again at once at the new rate, its phase from now.
    void setBpm(double bpm);
    std::uint64_t midiQN() const { return midiQN_.load(); }

    // Starts the internal timer unless one exists; the first tick is now.
    void start();
    // Stops the internal timer; midiQN stays, and a later start goes on from it.
    void pause();

    // What MIDI clock does to the clock (called on the MIDI receive thread with the parser's
    // count): the source becomes external and the count is taken over.
    void externalTick(std::uint64_t total);

    // For measurement: called on the clock's queue at each internal tick with the deadline it was
    // due at. Set before start.
    std::function<void(Clock::TimePoint deadline)> internalTickObserver;
    // For the host: told on the main queue whenever isRunning is set (start, pause, and the
    // start-stop callback of the MIDI manager's registration).
    void addRunningObserver(std::function<void(bool running)> observer);

    bool hasTimer() const;

    HVClock() = default;

private:
    void internalTick(Clock::TimePoint deadline);
    void fire(std::uint64_t generation, std::uint64_t k);
    void schedule(std::uint64_t generation, std::uint64_t k);
    void cancelTimerLocked();
    bool isCurrentTimer(std::uint64_t generation) const;
    void postTick(std::uint64_t value);
    void setRunning(bool running);
    static SharedSlot<HVClock>& sharedSlot();

    std::atomic<bool> isRunning_{false};
    std::atomic<std::uint64_t> midiQN_{0};
    mutable std::mutex mutex_;
    HVClockSource clockSource_ = HVClockSource::internalClock;
    double bpm_ = 120.0;
    std::shared_ptr<SerialQueue> queue_;
    // The timer: its generation (bumped by every cancel), start and period.
    bool timerActive_ = false;
    std::uint64_t generation_ = 0;
    Clock::TimePoint timerStart_{};
    double periodSeconds_ = 0.0;
    std::vector<std::function<void(bool)>> runningObservers_;
};

}  // namespace havrel
