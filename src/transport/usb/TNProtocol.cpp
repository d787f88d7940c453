#include "transport/usb/TNProtocol.hpp"

#include "platform/Assert.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"

#include <cerrno>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace havrel {

namespace {

struct QueueProtocol {
    const WorkQueue* queue;
    std::weak_ptr<WorkQueue> owner;
    std::shared_ptr<TNProtocol> protocol;
};

std::mutex& registryMutex() {
    static std::mutex mutex;
    return mutex;
}

std::vector<QueueProtocol>& registry() {
    static std::vector<QueueProtocol> entries;
    return entries;
}

TNOptionalError posixErrorOrNone(int errorNumber) {
    return errorNumber != 0 ? TNOptionalError(TNError::posix(errorNumber)) : std::nullopt;
}

}  // namespace

std::shared_ptr<TNProtocol> TNProtocol::sharedProtocolForQueue(WorkQueue& queue) {
    std::vector<QueueProtocol> released;  // protocols of queues that are gone, dropped after the lock
    std::lock_guard lock(registryMutex());
    auto& entries = registry();
    for (auto it = entries.begin(); it != entries.end();) {
        if (it->owner.expired()) {
            released.push_back(std::move(*it));
            it = entries.erase(it);
        } else {
            ++it;
        }
    }
    for (const auto& entry : entries) {
        if (entry.queue == &queue) {
            return entry.protocol;
        }
    }
    auto owner = queue.weak_from_this();
    HV_ASSERT(!owner.expired());
    auto protocol = std::make_shared<RQueueLocalIOFrameProtocol>(owner);
    entries.push_back(QueueProtocol{&queue, owner, protocol});
    return protocol;
}

std::shared_ptr<TNProtocol> TNProtocol::initWithDispatchQueue(WorkQueue& queue) {
    return std::make_shared<TNProtocol>(queue.weak_from_this());
}

std::shared_ptr<TNProtocol> TNProtocol::create() {
    return initWithDispatchQueue(MainQueue::shared());
}

TNProtocol::TNProtocol(std::weak_ptr<WorkQueue> queue) : queue_(std::move(queue)) {}

void TNProtocol::setQueue(WorkQueue& queue) {
    queue_ = queue.weak_from_this();
}

std::uint32_t TNProtocol::newTag() {
    return ++nextFrameTag_;
}

TNDispatchData TNProtocol::createDispatchDataWithFrameOfType(std::uint32_t type, std::uint32_t tag,
                                                             std::shared_ptr<const Bytes> payload) const {
    std::uint32_t payloadSize = 0;
    if (payload) {
        HV_ASSERT(payload->size() <= UINT32_MAX);
        payloadSize = static_cast<std::uint32_t>(payload->size());
    }
    const auto header = encodeFrameHeader(TNFrameHeader{kTNFrameProtocolVersion, type, tag, payloadSize});
    TNDispatchData frame;
    frame.push_back(std::make_shared<const Bytes>(header.begin(), header.end()));
    if (payload && payloadSize != 0) {
        frame.push_back(std::move(payload));
    }
    return frame;
}

void TNProtocol::sendFrameOfType(std::uint32_t type, std::uint32_t tag, std::shared_ptr<const Bytes> payload,
                                 const std::shared_ptr<TNStreamChannel>& channel, ErrorCallback callback) {
    channel->write(createDispatchDataWithFrameOfType(type, tag, std::move(payload)),
                   [callback = std::move(callback)](bool done, int errorNumber) {
                       if (done && callback) {
                           callback(posixErrorOrNone(errorNumber));
                       }
                   });
}

TNProtocol::HeaderReport TNProtocol::headerReportForDoneReport(int errorNumber, bool finalPieceEmpty,
                                                               ByteView accumulated) {
    HeaderReport report;
    if (errorNumber != 0) {
        report.error = TNError::posix(errorNumber);
        return report;
    }
    if (finalPieceEmpty) {
        return report;  // end of stream: a frame of type 0
    }
    const auto header = decodeFrameHeader(accumulated);
    if (!header || header->version != kTNFrameProtocolVersion) {
        report.error = TNError::make(kTNProtocolErrorDomain, 0);
        return report;
    }
    if (header->payloadSize > kTNMaximumFramePayloadSize) {
        report.error = TNError::make(kTNProtocolErrorDomain, kTNProtocolErrorPayloadTooLarge);
        report.type = header->type;
        report.tag = header->tag;
        report.payloadTooLarge = true;
        return report;
    }
    report.type = header->type;
    report.tag = header->tag;
    report.payloadSize = header->payloadSize;
    return report;
}

void TNProtocol::readFrameOverChannel(const std::shared_ptr<TNStreamChannel>& channel, HeaderCallback callback) {
    auto accumulator = std::make_shared<Bytes>();
    accumulator->reserve(kTNFrameHeaderSize);
    channel->read(kTNFrameHeaderSize, [accumulator, callback = std::move(callback)](bool done, ByteView piece,
                                                                                   int errorNumber) {
        accumulator->insert(accumulator->end(), piece.begin(), piece.end());
        if (!done) {
            return;
        }
        const auto report = headerReportForDoneReport(errorNumber, piece.empty(), *accumulator);
        if (report.payloadTooLarge) {
            const auto header = decodeFrameHeader(*accumulator);
            logf("Refusing frame of type {} with a payload of {} bytes, above the limit of {} bytes", report.type,
                 header ? header->payloadSize : 0, kTNMaximumFramePayloadSize);
            callback(report.error, 0, 0, 0);
            return;
        }
        callback(report.error, report.type, report.tag, report.payloadSize);
    });
}

void TNProtocol::readPayloadOfSize(std::size_t size, const std::shared_ptr<TNStreamChannel>& channel,
                                   PayloadCallback callback) {
    struct Accumulator {
        Bytes bytes;
        bool outOfMemory = false;
    };
    auto accumulator = std::make_shared<Accumulator>();
    channel->read(size, [accumulator, callback = std::move(callback)](bool done, ByteView piece, int errorNumber) {
        if (!accumulator->outOfMemory) {
            try {
                accumulator->bytes.insert(accumulator->bytes.end(), piece.begin(), piece.end());
            } catch (const std::bad_alloc&) {
                accumulator->outOfMemory = true;
                Bytes().swap(accumulator->bytes);
            }
        }
        if (!done) {
            return;
        }
        if (errorNumber != 0) {
            callback(TNError::posix(errorNumber), nullptr);
        } else if (piece.empty()) {
            callback(std::nullopt, nullptr);
        } else if (accumulator->outOfMemory) {
            callback(TNError::posix(ENOMEM), nullptr);
        } else {
            callback(std::nullopt, std::make_shared<const Bytes>(std::move(accumulator->bytes)));
        }
    });
}

void TNProtocol::readAndDiscardDataOfSize(std::size_t size, const std::shared_ptr<TNStreamChannel>& channel,
                                          DiscardCallback callback) {
    channel->read(size, [callback = std::move(callback)](bool done, ByteView piece, int errorNumber) {
        if (done && callback) {
            callback(posixErrorOrNone(errorNumber), piece.empty());
        }
    });
}

void TNProtocol::readFramesOverChannel(const std::shared_ptr<TNStreamChannel>& channel, FrameCallback onFrame) {
    readFrameOverChannel(channel, [self = shared_from_this(), channel, onFrame](const TNOptionalError& error,
                                                                               std::uint32_t type, std::uint32_t tag,
                                                                               std::uint32_t payloadSize) {
        ResumeCallback resume = [self, channel, onFrame, type] {
            if (type != 0) {
                self->readFramesOverChannel(channel, onFrame);
            }
        };
        onFrame(error, type, tag, payloadSize, std::move(resume));
    });
}

}  // namespace havrel
