// The hand-off marker at the program's end.

#include "core/HVCentralConnectionManager.hpp"
#include "core/HVHandoffMarker.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/MainQueue.hpp"
#include "platform/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

namespace havrel {
namespace {

TEST(HandoffMarkerTest, AWriteWaitingForItsSecondIsMadeWhenTheMarkerEnds) {
    ManualClockScope clock;
    testing::TemporaryFolder folder;
    const auto store = std::make_shared<DefaultsStore>(folder.path() / "defaults.json");
    DefaultsStore::setStandard(store);

    auto marker = HVHandoffMarker::create();
    marker->markConnection();
    MainQueue::shared().poll();
    for (int turn = 0; turn < 5000 && marker->writeCount() == 0; ++turn) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_EQ(marker->writeCount(), 1u);
    store->set(kLastConnectedAtKey, std::string("before"));

    // Within the second of the first write: due later, and the program ends first.
    marker->markConnection();
    MainQueue::shared().poll();
    marker.reset();
    const auto written = store->string(kLastConnectedAtKey);
    ASSERT_TRUE(written.has_value());
    EXPECT_NE(*written, "before");

    DefaultsStore::setStandard(nullptr);
}

}  // namespace
}  // namespace havrel
