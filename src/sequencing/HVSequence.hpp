#pragma once
// Gesture sequences: timed control positions played by the one-millisecond scheduler.

#include "model/HVMidiAxisDataWrapper.hpp"
#include "model/HVSequenceLock.hpp"
#include "platform/SharedSlot.hpp"
#include "platform/SerialQueue.hpp"
#include "platform/Timer.hpp"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

// One step of a sequence.
class HVMIDISequenceTimeslice {
public:
    static std::shared_ptr<HVMIDISequenceTimeslice> create(std::optional<std::vector<double>> rangePosition,
                                                           double timePositionInLoop, double timestamp = 0.0);

    // Absent marks the end of a recording.
    std::optional<std::vector<double>> rangePosition;
    // Delay from the previous slice, in seconds.
    double timePositionInLoop = 0.0;
    // Clock value when recorded; 0 for generated slices.
    double timestamp = 0.0;

    std::string description() const;
};

using HVMIDISequenceTimeslicePtr = std::shared_ptr<HVMIDISequenceTimeslice>;

using HVSequenceState = std::int64_t;
inline constexpr HVSequenceState HVSequenceStateIdle = 0;
inline constexpr HVSequenceState HVSequenceStatePlaying = 1;
inline constexpr HVSequenceState HVSequenceStateRecording = 2;

class HVSequence : public std::enable_shared_from_this<HVSequence> {
public:
    using PlayerCallback = std::function<void(const HVMIDISequenceTimeslice& slice)>;

    virtual ~HVSequence() = default;

    bool autoRepeats = false;
    std::vector<HVMIDISequenceTimeslicePtr> timeSlices;
    HVSequenceState state = HVSequenceStateIdle;
    PlayerCallback playerCallback;
    double previousRecordedTime = 0.0;
    double previousPlayedSliceTime = 0.0;
    double loopPlayStartTime = 0.0;
    std::uint64_t indexInSequence = 0;
    double nextTimestamp = 0.0;
    HVMIDISequenceTimeslicePtr nextSlice;
    HVMIDISequenceTimeslicePtr previouslyRecordedSlice;

    // Does nothing without slices.
    void playWithPlayerCallback(PlayerCallback callback);
    void stopPlayback();
    void playbackTick();
};

using HVSequencePtr = std::shared_ptr<HVSequence>;

// Records the movements of one axis of one control and replays them.
class HVComponentSequence final : public HVSequence {
public:
    static std::shared_ptr<HVComponentSequence> sequenceWithDataWrapper(const HVMidiAxisDataWrapperPtr& dataWrapper,
                                                                        const HVMidiAxisDataPtr& axisData,
                                                                        bool autoRepeats = false);

    std::weak_ptr<HVMidiAxisDataWrapper> dataWrapper;
    std::weak_ptr<HVMidiAxisData> axisData;
    std::weak_ptr<HVComponentSequence> parent;

    void addPosition(std::optional<std::vector<double>> position);
    void startRecording();
    void stopRecording();
    std::string description() const;
};

// The process-wide scheduler: a one-millisecond timer on the serial queue
// "com.havrelapps.havrel.playback" plays the next slice of each playing sequence that is due.
// The timer runs only while a sequence plays or records.
// Its monitor is the recursive lock that axis and container code share.
class HVSequenceManager : public std::enable_shared_from_this<HVSequenceManager> {
public:
    static constexpr const char* kPlaybackQueueLabel = "com.havrelapps.havrel.playback";

    static std::shared_ptr<HVSequenceManager> sharedInstance();
    // Made on first use, on the clock the main queue has then (a manual one in test mode). For
    // tests: stops the shared instance's timer and forgets it, so the next use makes a new one.
    static void resetSharedInstanceForTesting();

    bool timerIsPaused() const;
    std::vector<HVSequencePtr> playingSequences() const;
    std::vector<HVSequencePtr> recordingSequences() const;
    // Seconds of the monotonic clock (the queue's clock), read at each call.
    double currentTime() const;

    void requestRecord(const HVSequencePtr& sequence);
    void requestStopRecording(const HVSequencePtr& sequence);
    void requestPlayback(const HVSequencePtr& sequence);
    void requestStopPlayback(const HVSequencePtr& sequence);
    bool shouldPauseTimer() const;
    void cancelAllSequences();
    // How often the timer was started, and how often it has fired, in all: for the host's
    // status and for tests.
    std::uint64_t timerStarts() const;
    std::uint64_t timerFires() const;
    void timerCalled();

    ~HVSequenceManager();

private:
    HVSequenceManager() = default;
    static SharedSlot<HVSequenceManager>& sharedSlot();
    void start();
    void resumeTimer();
    void pauseTimer();

    bool timerIsPaused_ = true;
    std::vector<HVSequencePtr> playingSequences_;
    std::vector<HVSequencePtr> recordingSequences_;
    double previousTime_ = 0.0;
    std::shared_ptr<SerialQueue> playbackQueue_;
    std::shared_ptr<Timer> timer_;
    std::uint64_t timerStarts_ = 0;
    std::atomic<std::uint64_t> timerFires_{0};
};

// Milliseconds per note of length n (4 a quarter note) at tempo b.
double HVMIDINoteLengthToRate(double n, double b);
double rateInSecToTickInterval(double seconds);
double rateInMSToTickInterval(double milliseconds);

}  // namespace havrel
