#include "sequencing/HVSequence.hpp"

#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/SharedSlot.hpp"
#include "platform/ThreadPriority.hpp"
#include "sequencing/HVRangeContainerSequence.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace havrel {

namespace {


std::string positionText(const std::optional<std::vector<double>>& position) {
    return position ? Dictionary(*position).dump() : std::string("(null)");
}

}  // namespace

std::shared_ptr<HVMIDISequenceTimeslice> HVMIDISequenceTimeslice::create(std::optional<std::vector<double>> rangePosition,
                                                                         double timePositionInLoop, double timestamp) {
    auto slice = std::make_shared<HVMIDISequenceTimeslice>();
    slice->rangePosition = std::move(rangePosition);
    slice->timePositionInLoop = timePositionInLoop;
    slice->timestamp = timestamp;
    return slice;
}

std::string HVMIDISequenceTimeslice::description() const {
    return fmt::format("HVMIDISequenceTimeslice: rangePosition: {} timePositionInLoop:{:f} timestamp: {:f}",
                       positionText(rangePosition), timePositionInLoop, timestamp);
}

void HVSequence::playWithPlayerCallback(PlayerCallback callback) {
    if (timeSlices.empty()) {
        return;
    }
    auto manager = HVSequenceManager::sharedInstance();
    std::lock_guard lock(HVSequenceManagerLock());
    manager->requestPlayback(shared_from_this());
    const double now = manager->currentTime();
    previousPlayedSliceTime = now;
    playerCallback = std::move(callback);
    state = HVSequenceStatePlaying;
    loopPlayStartTime = now;
    indexInSequence = 0;
    nextSlice = timeSlices.front();
}

void HVSequence::stopPlayback() {
    HVSequenceManager::sharedInstance()->requestStopPlayback(shared_from_this());
}

void HVSequence::playbackTick() {
    if (!nextSlice) {
        return;
    }
    if (nextSlice->rangePosition && playerCallback) {
        playerCallback(*nextSlice);
    }
    previousPlayedSliceTime += nextSlice->timePositionInLoop;
    indexInSequence += 1;
    if (indexInSequence >= timeSlices.size()) {
        if (!autoRepeats) {
            state = HVSequenceStateIdle;
            stopPlayback();
            return;
        }
        indexInSequence = 0;
    }
    if (!timeSlices.empty()) {
        nextSlice = timeSlices[indexInSequence];
    }
}

std::shared_ptr<HVComponentSequence> HVComponentSequence::sequenceWithDataWrapper(
    const HVMidiAxisDataWrapperPtr& dataWrapper, const HVMidiAxisDataPtr& axisData, bool autoRepeats) {
    auto sequence = std::make_shared<HVComponentSequence>();
    sequence->dataWrapper = dataWrapper;
    sequence->axisData = axisData;
    sequence->autoRepeats = autoRepeats;
    return sequence;
}

void HVComponentSequence::addPosition(std::optional<std::vector<double>> position) {
    const double now = HVSequenceManager::sharedInstance()->currentTime();
    const double delay = previouslyRecordedSlice ? now - previouslyRecordedSlice->timestamp : 0.0;
    auto slice = HVMIDISequenceTimeslice::create(std::move(position), delay, now);
    timeSlices.push_back(slice);
    previouslyRecordedSlice = slice;
}

void HVComponentSequence::startRecording() {
    auto manager = HVSequenceManager::sharedInstance();
    std::lock_guard lock(HVSequenceManagerLock());
    state = HVSequenceStateRecording;
    manager->requestRecord(shared_from_this());
    previousRecordedTime = manager->currentTime();
    previouslyRecordedSlice.reset();
}

void HVComponentSequence::stopRecording() {
    auto manager = HVSequenceManager::sharedInstance();
    std::lock_guard lock(HVSequenceManagerLock());
    addPosition(std::nullopt);
    state = HVSequenceStateIdle;
    manager->requestStopRecording(shared_from_this());
}

std::string HVComponentSequence::description() const {
    auto wrapper = dataWrapper.lock();
    std::string text = fmt::format("HVSequence: dataWrapper: {} state:{}\n\nTime slices:\n",
                                   wrapper ? wrapper->uuid() : std::string("(null)"), state);
    for (const auto& slice : timeSlices) {
        text += slice->description() + "\n";
    }
    return text;
}

SharedSlot<HVSequenceManager>& HVSequenceManager::sharedSlot() {
    static SharedSlot<HVSequenceManager> slot([] {
        auto manager = std::shared_ptr<HVSequenceManager>(new HVSequenceManager());
        manager->start();
        return manager;
    });
    return slot;
}

std::shared_ptr<HVSequenceManager> HVSequenceManager::sharedInstance() {
    return sharedSlot().get();
}

void HVSequenceManager::resetSharedInstanceForTesting() {
    if (auto old = sharedSlot().take(); old && old->timer_) {
        old->timer_->invalidate();
    }
}

void HVSequenceManager::start() {
    playbackQueue_ = SerialQueue::create(kPlaybackQueueLabel);
    // Glide steps are heard: their thread runs at real-time priority where the system allows.
    playbackQueue_->post([] {
        if (const auto refusal = raiseCurrentThreadToRealTimePriority(); !refusal.empty()) {
            logf("[HVSequenceManager] {} runs at normal priority: real-time priority refused ({})", kPlaybackQueueLabel,
                 refusal);
        }
    });
    std::weak_ptr<HVSequenceManager> weak = weak_from_this();
    timer_ = Timer::create(*playbackQueue_, std::chrono::milliseconds(1), true, [weak] {
        if (auto manager = weak.lock()) {
            manager->timerCalled();
        }
    });
}

HVSequenceManager::~HVSequenceManager() {
    if (timer_) {
        timer_->invalidate();
    }
}

bool HVSequenceManager::timerIsPaused() const {
    std::lock_guard lock(HVSequenceManagerLock());
    return timerIsPaused_;
}

std::vector<HVSequencePtr> HVSequenceManager::playingSequences() const {
    std::lock_guard lock(HVSequenceManagerLock());
    return playingSequences_;
}

std::vector<HVSequencePtr> HVSequenceManager::recordingSequences() const {
    std::lock_guard lock(HVSequenceManagerLock());
    return recordingSequences_;
}

double HVSequenceManager::currentTime() const {
    auto since = playbackQueue_->now().time_since_epoch();
    return std::chrono::duration<double>(since).count();
}

void HVSequenceManager::requestRecord(const HVSequencePtr& sequence) {
    std::lock_guard lock(HVSequenceManagerLock());
    resumeTimer();
    recordingSequences_.push_back(sequence);
}

void HVSequenceManager::requestStopRecording(const HVSequencePtr& sequence) {
    std::lock_guard lock(HVSequenceManagerLock());
    recordingSequences_.erase(std::remove(recordingSequences_.begin(), recordingSequences_.end(), sequence),
                              recordingSequences_.end());
    if (shouldPauseTimer()) {
        pauseTimer();
    }
}

void HVSequenceManager::requestPlayback(const HVSequencePtr& sequence) {
    std::lock_guard lock(HVSequenceManagerLock());
    resumeTimer();
    playingSequences_.push_back(sequence);
}

void HVSequenceManager::requestStopPlayback(const HVSequencePtr& sequence) {
    std::lock_guard lock(HVSequenceManagerLock());
    playingSequences_.erase(std::remove(playingSequences_.begin(), playingSequences_.end(), sequence),
                            playingSequences_.end());
    if (sequence->state == HVSequenceStatePlaying) {
        sequence->state = HVSequenceStateIdle;
    }
    if (auto attached = std::dynamic_pointer_cast<HVRangeContainerSequence>(sequence)) {
        if (auto container = attached->rangeContainer()) {
            container->removeSequence(attached.get());
        }
    }
    if (shouldPauseTimer()) {
        pauseTimer();
    }
}

// The text's timer fires every millisecond for the life of the process and only skips its work
// while paused; here pausing stops it, so that a program with nothing playing never wakes for it.
void HVSequenceManager::resumeTimer() {
    if (!timerIsPaused_) {
        return;
    }
    timerIsPaused_ = false;
    if (timer_) {
        ++timerStarts_;
        timer_->schedule();
    }
}

void HVSequenceManager::pauseTimer() {
    if (timerIsPaused_) {
        return;
    }
    timerIsPaused_ = true;
    if (timer_) {
        timer_->invalidate();
        logDiagf("[HVSequenceManager] playback timer stopped after {} fires", timerFires_.load());
    }
}

std::uint64_t HVSequenceManager::timerStarts() const {
    std::lock_guard lock(HVSequenceManagerLock());
    return timerStarts_;
}

std::uint64_t HVSequenceManager::timerFires() const {
    return timerFires_.load();
}

bool HVSequenceManager::shouldPauseTimer() const {
    std::lock_guard lock(HVSequenceManagerLock());
    return playingSequences_.empty() && recordingSequences_.empty();
}

void HVSequenceManager::cancelAllSequences() {
    std::lock_guard lock(HVSequenceManagerLock());
    for (const auto& sequence : std::vector(playingSequences_)) {
        requestStopPlayback(sequence);
    }
    for (const auto& sequence : std::vector(recordingSequences_)) {
        requestStopRecording(sequence);
    }
}

void HVSequenceManager::timerCalled() {
    timerFires_.fetch_add(1);
    std::lock_guard lock(HVSequenceManagerLock());
    if (timerIsPaused_) {
        return;
    }
    previousTime_ = currentTime();
    for (const auto& sequence : std::vector(playingSequences_)) {
        if (sequence->state != HVSequenceStatePlaying || !sequence->nextSlice) {
            continue;
        }
        const double t = sequence->nextSlice->timePositionInLoop;
        const double now = currentTime();
        if (t - (now - sequence->previousPlayedSliceTime) <= 0) {
            sequence->playbackTick();
        }
    }
}

double HVMIDINoteLengthToRate(double n, double b) {
    return (60000.0 / b) * 4.0 / n;
}

double rateInSecToTickInterval(double seconds) {
    return seconds * 1000.0;
}

double rateInMSToTickInterval(double milliseconds) {
    return milliseconds;
}

}  // namespace havrel
