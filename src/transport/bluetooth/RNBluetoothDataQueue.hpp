#pragma once
// The send queue of one Bluetooth link: data cut into chunks of at most the link's write size,
// held in order, each chunk kept until its send is confirmed. A characteristic may be marked
// last in, first out: a new value then replaces everything still waiting for it, so only the
// newest gets through. Works on bytes and characteristic texts only; main queue, no lock.

#include "platform/Types.hpp"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace havrel {

// One chunk.
struct RNBluetoothDataQueueData {
    using CompletionBlock = std::function<void(float progress)>;

    std::string characteristicString;
    Bytes data;
    // Shared by every chunk of a push; may be empty.
    CompletionBlock completionBlock;
    std::uint64_t numberOfTotalChunksInBatch = 0;
    // The chunk's place in its push, from 1.
    std::uint64_t chunkNumberInBatch = 0;

    static std::shared_ptr<RNBluetoothDataQueueData> queuedDataWithData(Bytes data,
                                                                        std::string characteristicString);
};

class RNBluetoothDataQueue {
public:
    using Chunk = std::shared_ptr<RNBluetoothDataQueueData>;
    // Told of every assignment of hasData, with the value before and after.
    using HasDataObserver = std::function<void(bool oldValue, bool newValue)>;
    // Told once, when a push is refused for the bound: the link should end.
    using OverflowObserver = std::function<void()>;

    // What may wait, unsent or unconfirmed, in bytes (each chunk charged kChunkBookkeepingBytes
    // beside its data). A push that would pass it is refused with one log line, and so is every
    // push after it: a link that does not drain cannot grow our memory. A push into an empty
    // queue always goes.
    static constexpr std::size_t kMaximumQueuedBytes = std::size_t{1} << 20;
    static constexpr std::size_t kChunkBookkeepingBytes = 128;

    static constexpr std::uint64_t kMinimumChunkSize = 20;
    // The priority that makes a characteristic last in, first out.
    static constexpr std::int8_t kLIFOPriority = 1;

    // Something waits or is unconfirmed.
    bool hasData() const { return hasData_; }
    void observeHasData(HasDataObserver observer) { hasDataObserver_ = std::move(observer); }
    void observeOverflow(OverflowObserver observer) { overflowObserver_ = std::move(observer); }
    std::size_t queuedBytes() const { return queuedBytes_; }

    // The larger of the stored size and 20: a link can widen chunks, never narrow them.
    std::uint64_t maxDataChunkSize() const;
    void setMaxDataChunkSize(std::uint64_t size) { maxDataChunkSize_ = size; }

    // Cuts the data into chunks and queues them (on a last-in, first-out characteristic only the
    // last chunk, replacing what waited there). Empty data makes one empty chunk; an empty
    // characteristic text does nothing. False when the push was refused for the bound.
    bool pushData(ByteView data, const std::string& characteristicString,
                  RNBluetoothDataQueueData::CompletionBlock completionBlock = {});
    // Drops the waiting chunks of the characteristic; handed-out chunks stay.
    void removeAllEntriesForCharacteristic(const std::string& characteristicString);
    bool isCharacteristicLIFO(const std::string& characteristicString) const;
    // Stored as a signed 8-bit number.
    void setQueuePriority(std::int32_t priority, const std::string& characteristicString);
    // A chunk without callback or counts, handed out before anything else; nothing for an empty
    // characteristic text.
    void requeueData(ByteView data, const std::string& characteristicString);
    // The next chunk to send: the oldest unconfirmed one again, else the next waiting one
    // (which becomes unconfirmed), else nullptr.
    Chunk popCharacterisedData();
    // Confirms a handed-out chunk and reports its batch progress.
    void verifySentData(const Chunk& chunk);
    // Waiting chunks of the characteristic; handed-out ones are not counted.
    std::size_t numberOfQueuedChunksForCharacteristicString(const std::string& characteristicString) const;

    const std::deque<Chunk>& queue() const { return queue_; }
    const std::deque<Chunk>& handledQueue() const { return handledQueue_; }
    const std::map<std::string, std::int8_t>& characteristicPriorities() const { return characteristicPriorities_; }

private:
    void setHasData(bool value);
    static std::size_t chargeOf(const Chunk& chunk);
    void forget(const Chunk& chunk) { queuedBytes_ -= chargeOf(chunk); }

    bool hasData_ = false;
    HasDataObserver hasDataObserver_;
    std::map<std::string, std::int8_t> characteristicPriorities_;
    std::uint64_t maxDataChunkSize_ = kMinimumChunkSize;
    std::deque<Chunk> queue_;
    std::deque<Chunk> handledQueue_;
    std::size_t queuedBytes_ = 0;  // of the chunks in both queues
    bool overflowed_ = false;
    OverflowObserver overflowObserver_;
};

}  // namespace havrel
