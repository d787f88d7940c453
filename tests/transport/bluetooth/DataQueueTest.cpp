// The send queue of a Bluetooth link: how data is cut, which chunk goes next, what a
// last-in, first-out characteristic keeps, and when the queue says it has data.

#include "transport/bluetooth/RNBluetoothDataQueue.hpp"

#include <gtest/gtest.h>

#include <numeric>
#include <utility>
#include <vector>

namespace havrel {
namespace {

Bytes counting(std::size_t length) {
    Bytes bytes(length);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    return bytes;
}

TEST(DataQueueTest, CutsIntoChunksAndReportsProgressOnEachConfirmation) {
    RNBluetoothDataQueue queue;
    queue.setMaxDataChunkSize(10);  // a link that tells less than twenty still gets chunks of twenty
    std::vector<float> progress;
    queue.pushData(counting(45), "A", [&](float value) { progress.push_back(value); });
    ASSERT_EQ(queue.queue().size(), 3u);
    std::vector<std::size_t> sizes;
    for (std::uint64_t number = 1; number <= 3; ++number) {
        auto chunk = queue.popCharacterisedData();
        ASSERT_NE(chunk, nullptr);
        EXPECT_EQ(chunk->chunkNumberInBatch, number);
        EXPECT_EQ(chunk->numberOfTotalChunksInBatch, 3u);
        EXPECT_EQ(chunk->characteristicString, "A");
        sizes.push_back(chunk->data.size());
        // Unconfirmed, the same chunk comes again.
        EXPECT_EQ(queue.popCharacterisedData(), chunk);
        queue.verifySentData(chunk);
    }
    EXPECT_EQ(sizes, (std::vector<std::size_t>{20, 20, 5}));
    EXPECT_EQ(progress, (std::vector<float>{1.0f / 3.0f, 2.0f / 3.0f, 1.0f}));
    EXPECT_FALSE(queue.hasData());
    EXPECT_EQ(queue.popCharacterisedData(), nullptr);

    // Exact multiples, empty data.
    queue.pushData(counting(20), "B");
    EXPECT_EQ(queue.queue().size(), 1u);
    queue.pushData(counting(40), "C");
    EXPECT_EQ(queue.numberOfQueuedChunksForCharacteristicString("C"), 2u);
    queue.pushData({}, "D");
    EXPECT_EQ(queue.numberOfQueuedChunksForCharacteristicString("D"), 1u);
    EXPECT_TRUE(queue.queue().back()->data.empty());
    // No characteristic, nothing queued.
    queue.pushData(counting(3), "");
    EXPECT_EQ(queue.queue().size(), 4u);
}

TEST(DataQueueTest, LastInFirstOutKeepsOnlyTheNewestTailButNotHandedOutChunks) {
    RNBluetoothDataQueue queue;
    queue.setQueuePriority(1, "L");
    queue.setQueuePriority(2, "F");
    queue.setQueuePriority(256 + 1, "W");  // stored in 8 bits: 1
    EXPECT_TRUE(queue.isCharacteristicLIFO("L"));
    EXPECT_FALSE(queue.isCharacteristicLIFO("F"));
    EXPECT_FALSE(queue.isCharacteristicLIFO("none"));
    EXPECT_TRUE(queue.isCharacteristicLIFO("W"));

    const Bytes fifty = counting(50);
    queue.pushData(fifty, "L");
    ASSERT_EQ(queue.queue().size(), 1u);
    const auto tail = queue.queue().front();
    EXPECT_EQ(tail->data, Bytes(fifty.begin() + 40, fifty.end()));
    EXPECT_EQ(tail->chunkNumberInBatch, 3u);
    EXPECT_EQ(tail->numberOfTotalChunksInBatch, 3u);

    // Handed out and unconfirmed: survives the next push, which replaces only what waits.
    auto handed = queue.popCharacterisedData();
    queue.pushData(Bytes{1}, "L");
    queue.pushData(Bytes{2}, "L");
    queue.pushData(Bytes{9}, "F");
    queue.pushData(Bytes{10}, "F");
    EXPECT_EQ(queue.numberOfQueuedChunksForCharacteristicString("L"), 1u);
    EXPECT_EQ(queue.numberOfQueuedChunksForCharacteristicString("F"), 2u);
    EXPECT_EQ(queue.popCharacterisedData(), handed);
    queue.removeAllEntriesForCharacteristic("L");
    EXPECT_EQ(queue.popCharacterisedData(), handed);
    queue.verifySentData(handed);
    EXPECT_EQ(queue.popCharacterisedData()->data, Bytes{9});
}

TEST(DataQueueTest, HasDataFollowsWaitingAndUnconfirmedChunksAndRequeuedDataGoesFirst) {
    RNBluetoothDataQueue queue;
    std::vector<std::pair<bool, bool>> changes;
    queue.observeHasData([&](bool oldValue, bool newValue) { changes.emplace_back(oldValue, newValue); });

    EXPECT_EQ(queue.popCharacterisedData(), nullptr);
    EXPECT_TRUE(changes.empty());

    queue.pushData(Bytes{1}, "A");
    auto chunk = queue.popCharacterisedData();
    EXPECT_TRUE(queue.queue().empty());
    EXPECT_TRUE(queue.hasData());  // unconfirmed
    queue.requeueData(Bytes{7, 7}, "B");
    auto requeued = queue.popCharacterisedData();
    EXPECT_EQ(requeued->data, (Bytes{7, 7}));
    EXPECT_EQ(requeued->numberOfTotalChunksInBatch, 0u);
    queue.verifySentData(requeued);
    EXPECT_TRUE(queue.hasData());
    EXPECT_EQ(queue.popCharacterisedData(), chunk);
    queue.verifySentData(chunk);
    EXPECT_FALSE(queue.hasData());
    EXPECT_EQ(changes, (std::vector<std::pair<bool, bool>>{{false, true}, {true, true}, {true, true}, {true, false}}));
}

TEST(DataQueueTest, ALinkThatDoesNotDrainIsRefusedPastTheBoundAndItsOwnerToldOnce) {
    RNBluetoothDataQueue queue;
    int overflows = 0;
    queue.observeOverflow([&] { ++overflows; });
    // A push into an empty queue goes whatever its size; confirmed, it leaves nothing counted.
    EXPECT_TRUE(queue.pushData(counting(RNBluetoothDataQueue::kMaximumQueuedBytes), "A"));
    while (auto chunk = queue.popCharacterisedData()) {
        queue.verifySentData(chunk);
    }
    EXPECT_EQ(queue.queuedBytes(), 0u);
    // A last-in, first-out characteristic replaces what waited: it never reaches the bound.
    queue.setQueuePriority(RNBluetoothDataQueue::kLIFOPriority, "L");
    for (int i = 0; i < 100000; ++i) {
        ASSERT_TRUE(queue.pushData(counting(8), "L"));
    }
    EXPECT_EQ(queue.queue().size(), 1u);
    // Values nobody sends stop at the bound, and the queue refuses from then on.
    std::size_t accepted = 0;
    while (queue.pushData(counting(8), "A")) {
        ++accepted;
    }
    EXPECT_LE(queue.queuedBytes(), RNBluetoothDataQueue::kMaximumQueuedBytes);
    EXPECT_GT(accepted, 1000u);
    EXPECT_FALSE(queue.pushData(counting(8), "A"));
    EXPECT_EQ(overflows, 1);
}

}  // namespace
}  // namespace havrel
