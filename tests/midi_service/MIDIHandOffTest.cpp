// The hand-off of received MIDI to the main queue: past its bound it drops and counts instead of
// queuing, and takes work again once the queue has caught up.

#include "midi_service/HVMIDIHandOff.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"

#include <gtest/gtest.h>

#include <thread>

namespace havrel {
namespace {

TEST(MIDIHandOffTest, AQueueThatFallsBehindCostsDropsThatAreCountedNotMemory) {
    ManualClockScope clock;
    ScopedLogCapture capture;
    HVMIDIHandOff handOff(MainQueue::shared(), 8);
    const auto droppedBefore = HVMIDIHandOff::totalDropped();
    int ran = 0;
    std::thread receiver([&] {
        for (int i = 0; i < 1000; ++i) {
            handOff.post([&] { ++ran; });
        }
    });
    receiver.join();
    EXPECT_EQ(handOff.waiting(), 8u);
    EXPECT_EQ(handOff.dropped(), 992u);
    EXPECT_EQ(HVMIDIHandOff::totalDropped() - droppedBefore, 992u);
    EXPECT_EQ(capture.count("dropping until it catches up"), 1u);

    MainQueue::shared().poll();
    EXPECT_EQ(ran, 8);
    EXPECT_EQ(handOff.waiting(), 0u);
    EXPECT_TRUE(handOff.post([&] { ++ran; }));
}

}  // namespace
}  // namespace havrel
