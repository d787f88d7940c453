#include "midi_service/HVMIDIEntityObserver.hpp"
#include "midi_service/ThreadSafeCollection.hpp"

#include "platform/MainQueue.hpp"

#include <gtest/gtest.h>

#include <thread>
#include <utility>
#include <vector>

namespace havrel {
namespace {

using namespace std::chrono_literals;
using Change = std::pair<std::optional<std::string>, std::optional<std::string>>;

// The changes reported, and whether each came on the monitoring queue.
struct Changes {
    ThreadSafeCollection<Change> changes;
    ThreadSafeCollection<bool> onQueue;

    HVMIDIEntityObserver::ChangeBlock block() {
        return [this](std::optional<std::string> newValue, std::optional<std::string> oldValue) {
            auto* queue = WorkQueue::current();
            onQueue.append(queue != nullptr && queue->label() == "com.havrel.midimonitoring");
            changes.append({std::move(newValue), std::move(oldValue)});
        };
    }
};

TEST(EntityObserver, ReportsOnlyTheStartWhenNoStringIsEverSetOrWhenDestroyedAtOnce) {
    ManualClockScope clock;
    Changes seen;
    {
        HVMIDIEntityObserver observer(seen.block());
        clock.advance(0s);
        EXPECT_EQ(seen.changes.elements(), (std::vector<Change>{{std::nullopt, std::nullopt}}));
        clock.advance(10s);
        EXPECT_EQ(seen.changes.count(), 1u);
    }
    EXPECT_EQ(seen.onQueue.elements(), std::vector<bool>{true});

    // Destroyed at once with a string set, it still starts, and then stops.
    Changes early;
    {
        HVMIDIEntityObserver observer(early.block());
        observer.setConnectionString("Session 1");
    }
    clock.advance(5s);
    EXPECT_EQ(early.changes.elements(), (std::vector<Change>{{std::nullopt, std::nullopt}}));
}

TEST(EntityObserver, ReportsAStringSetFromOutsideOnceAsGone) {
    ManualClockScope clock;
    Changes seen;
    HVMIDIEntityObserver observer(seen.block());
    clock.advance(0s);
    observer.setConnectionString("Session 1");
    clock.advance(999ms);
    EXPECT_EQ(observer.connectionString(), "Session 1");
    clock.advance(1ms);
    EXPECT_EQ(observer.connectionString(), std::nullopt);
    clock.advance(5s);
    EXPECT_EQ(seen.changes.elements(),
              (std::vector<Change>{{std::nullopt, std::nullopt}, {std::nullopt, "Session 1"}}));
    EXPECT_EQ(seen.onQueue.elements(), (std::vector<bool>{true, true}));
}

TEST(ThreadSafeCollection, KeepsEveryAppendOfConcurrentWritersInTheirOrder) {
    ThreadSafeCollection<std::pair<int, int>> collection;
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 4; ++writer) {
        writers.emplace_back([&collection, writer] {
            for (int i = 0; i < 1000; ++i) {
                collection.append({writer, i});
                (void)collection.count();
            }
        });
    }
    for (auto& writer : writers) {
        writer.join();
    }
    auto elements = collection.elements();
    ASSERT_EQ(elements.size(), 4000u);
    std::vector<int> next(4, 0);
    for (const auto& [writer, i] : elements) {
        EXPECT_EQ(i, next[static_cast<std::size_t>(writer)]++);
    }
    collection.removeAll();
    EXPECT_EQ(collection.count(), 0u);
}

}  // namespace
}  // namespace havrel
