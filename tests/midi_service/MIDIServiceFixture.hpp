#pragma once
// The loopback fixture as the application runs the MIDI library: the application's services
// installed (its main queue, on a manual clock, as the library's main queue; its serial queues;
// its log sink and defaults store) over the loopback fixture's.

#include "../MIDIIO/LoopbackFixture.hpp"

#include "platform/MIDILibraryServices.hpp"
#include "platform/MainQueue.hpp"

namespace havrel::testing {

class MIDIServiceTest : public MIDIIO::testing::LoopbackTest {
protected:
    MIDIServiceTest() { installMIDILibraryServices(); }
    std::size_t pollMainQueue() override { return MainQueue::shared().poll(); }

    ManualClockScope clock;
};

}  // namespace havrel::testing
