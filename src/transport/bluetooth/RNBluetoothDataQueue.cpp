#include "transport/bluetooth/RNBluetoothDataQueue.hpp"

#include "platform/Log.hpp"

#include <algorithm>
#include <vector>

namespace havrel {

std::shared_ptr<RNBluetoothDataQueueData> RNBluetoothDataQueueData::queuedDataWithData(Bytes data,
                                                                                      std::string characteristicString) {
    auto chunk = std::make_shared<RNBluetoothDataQueueData>();
    chunk->data = std::move(data);
    chunk->characteristicString = std::move(characteristicString);
    return chunk;
}

std::uint64_t RNBluetoothDataQueue::maxDataChunkSize() const {
    return std::max(maxDataChunkSize_, kMinimumChunkSize);
}

void RNBluetoothDataQueue::setHasData(bool value) {
    const bool old = hasData_;
    hasData_ = value;
    if (hasDataObserver_) {
        hasDataObserver_(old, value);
    }
}

std::size_t RNBluetoothDataQueue::chargeOf(const Chunk& chunk) {
    return chunk->data.size() + kChunkBookkeepingBytes;
}

bool RNBluetoothDataQueue::pushData(ByteView data, const std::string& characteristicString,
                                    RNBluetoothDataQueueData::CompletionBlock completionBlock) {
    if (characteristicString.empty()) {
        return true;
    }
    // Departure: the queue has a bound (see kMaximumQueuedBytes); the link's owner is told once.
    const std::size_t chunks = data.size() / maxDataChunkSize() + 1;
    if (overflowed_ ||
        (queuedBytes_ > 0 && queuedBytes_ + data.size() + chunks * kChunkBookkeepingBytes > kMaximumQueuedBytes)) {
        if (!overflowed_) {
            overflowed_ = true;
            logf("Bluetooth data queue: {} bytes wait to be sent — refusing more, the link does not drain",
                 queuedBytes_);
            if (overflowObserver_) {
                overflowObserver_();
            }
        }
        return false;
    }
    const bool lifo = isCharacteristicLIFO(characteristicString);
    const std::uint64_t chunkSize = maxDataChunkSize();
    std::vector<Chunk> batch;
    std::size_t offset = 0;
    // At least one step, so empty data makes one empty chunk.
    do {
        const std::size_t remaining = data.size() - offset;
        const std::size_t length = std::min<std::size_t>(remaining, chunkSize);
        const bool last = remaining <= chunkSize;
        auto chunk = RNBluetoothDataQueueData::queuedDataWithData(Bytes(data.begin() + offset,
                                                                        data.begin() + offset + length),
                                                                  characteristicString);
        chunk->completionBlock = completionBlock;
        chunk->chunkNumberInBatch = batch.size() + 1;
        batch.push_back(chunk);
        if (lifo) {
            // Only the newest value matters: the last chunk replaces everything that waited.
            if (last) {
                removeAllEntriesForCharacteristic(characteristicString);
                queue_.push_back(chunk);
                queuedBytes_ += chargeOf(chunk);
            }
        } else {
            queue_.push_back(chunk);
            queuedBytes_ += chargeOf(chunk);
        }
        offset += length;
        if (last) {
            break;
        }
    } while (true);
    for (const auto& chunk : batch) {
        chunk->numberOfTotalChunksInBatch = batch.size();
    }
    setHasData(true);
    return true;
}

void RNBluetoothDataQueue::removeAllEntriesForCharacteristic(const std::string& characteristicString) {
    std::erase_if(queue_, [&](const Chunk& chunk) {
        if (chunk->characteristicString != characteristicString) {
            return false;
        }
        forget(chunk);
        return true;
    });
}

bool RNBluetoothDataQueue::isCharacteristicLIFO(const std::string& characteristicString) const {
    const auto found = characteristicPriorities_.find(characteristicString);
    return found != characteristicPriorities_.end() && found->second == kLIFOPriority;
}

void RNBluetoothDataQueue::setQueuePriority(std::int32_t priority, const std::string& characteristicString) {
    characteristicPriorities_[characteristicString] = static_cast<std::int8_t>(priority);
}

void RNBluetoothDataQueue::requeueData(ByteView data, const std::string& characteristicString) {
    if (characteristicString.empty()) {
        return;
    }
    handledQueue_.push_front(RNBluetoothDataQueueData::queuedDataWithData(Bytes(data.begin(), data.end()),
                                                                          characteristicString));
    queuedBytes_ += chargeOf(handledQueue_.front());
    setHasData(true);
}

RNBluetoothDataQueue::Chunk RNBluetoothDataQueue::popCharacterisedData() {
    if (!handledQueue_.empty()) {
        return handledQueue_.front();
    }
    if (queue_.empty()) {
        return nullptr;
    }
    auto chunk = queue_.front();
    queue_.pop_front();
    handledQueue_.push_back(chunk);
    return chunk;
}

void RNBluetoothDataQueue::verifySentData(const Chunk& chunk) {
    if (const auto found = std::find(handledQueue_.begin(), handledQueue_.end(), chunk); found != handledQueue_.end()) {
        forget(chunk);
        handledQueue_.erase(found);
    }
    if (chunk && chunk->completionBlock) {
        // Requeued chunks have no callback, so the count is never 0 here.
        chunk->completionBlock(static_cast<float>(chunk->chunkNumberInBatch) /
                               static_cast<float>(chunk->numberOfTotalChunksInBatch));
    }
    setHasData(!queue_.empty() || !handledQueue_.empty());
}

std::size_t RNBluetoothDataQueue::numberOfQueuedChunksForCharacteristicString(
    const std::string& characteristicString) const {
    return static_cast<std::size_t>(std::count_if(queue_.begin(), queue_.end(), [&](const Chunk& chunk) {
        return chunk->characteristicString == characteristicString;
    }));
}

}  // namespace havrel
