#pragma once
// Frames over a byte stream: a 16-byte header (see TNFrameHeader.hpp) and a payload. Writes one
// frame at a time and reads one at a time; the read loop drives a reader that handles each
// frame's payload and then resumes.
//
// Reads follow the stream's done report. A header read reports, in this order: the stream's
// error (POSIX domain); end of stream (an empty final piece) as a frame of type 0 with no error;
// a short header as "TNProtocolError" code 0; a version other than 1 as "TNProtocolError" code
// 0; a payload above kTNMaximumFramePayloadSize as "TNProtocolError" code 1 with a log line.
//
// Every completion runs on the stream's queue. The tag counter is not synchronised: it belongs
// to the queue of the channels that use the protocol.

#include "platform/Types.hpp"
#include "platform/WorkQueue.hpp"
#include "transport/usb/TNError.hpp"
#include "transport/usb/TNFrameHeader.hpp"
#include "transport/usb/TNStreamChannel.hpp"

#include <cstdint>
#include <functional>
#include <memory>

namespace havrel {

// Code of the "TNProtocolError" for a frame whose payload is above the size limit.
inline constexpr std::int64_t kTNProtocolErrorPayloadTooLarge = 1;

class TNProtocol : public std::enable_shared_from_this<TNProtocol> {
public:
    using ErrorCallback = std::function<void(const TNOptionalError&)>;
    using HeaderCallback =
        std::function<void(const TNOptionalError&, std::uint32_t type, std::uint32_t tag, std::uint32_t payloadSize)>;
    // buffer nullptr: none (an error, or end of stream when there is no error).
    using PayloadCallback = std::function<void(const TNOptionalError&, std::shared_ptr<const Bytes> buffer)>;
    using DiscardCallback = std::function<void(const TNOptionalError&, bool endOfStream)>;
    using ResumeCallback = std::function<void()>;
    using FrameCallback = std::function<void(const TNOptionalError&, std::uint32_t type, std::uint32_t tag,
                                             std::uint32_t payloadSize, ResumeCallback resume)>;

    // The one protocol of the queue, made on first use; every channel on the queue shares it and
    // so its tags. It lives as long as the queue.
    static std::shared_ptr<TNProtocol> sharedProtocolForQueue(WorkQueue& queue);
    static std::shared_ptr<TNProtocol> initWithDispatchQueue(WorkQueue& queue);
    // A protocol on the main queue.
    static std::shared_ptr<TNProtocol> create();

    virtual ~TNProtocol() = default;

    // The queue, or nullptr once it is gone.
    std::shared_ptr<WorkQueue> queue() const { return queue_.lock(); }
    virtual void setQueue(WorkQueue& queue);

    // 1 on a fresh protocol, then 2, 3, ...; wraps at 32 bits.
    std::uint32_t newTag();

    // The frame as its header buffer followed, when the payload is not empty, by the payload
    // itself (referenced, not copied). payload nullptr: no payload.
    TNDispatchData createDispatchDataWithFrameOfType(std::uint32_t type, std::uint32_t tag,
                                                     std::shared_ptr<const Bytes> payload) const;
    // Writes the frame; the callback, if any, runs once the write is done.
    void sendFrameOfType(std::uint32_t type, std::uint32_t tag, std::shared_ptr<const Bytes> payload,
                         const std::shared_ptr<TNStreamChannel>& channel, ErrorCallback callback);

    void readFrameOverChannel(const std::shared_ptr<TNStreamChannel>& channel, HeaderCallback callback);
    // The buffer grows as bytes arrive; nothing is reserved for the requested size.
    void readPayloadOfSize(std::size_t size, const std::shared_ptr<TNStreamChannel>& channel,
                           PayloadCallback callback);
    void readAndDiscardDataOfSize(std::size_t size, const std::shared_ptr<TNStreamChannel>& channel,
                                  DiscardCallback callback);
    // The read loop: reads a header, hands it to onFrame with a resume callback, and reads the
    // next header when resume is called, unless the frame had type 0. onFrame positions the
    // stream at the next header (reads or discards the payload) before resuming; not calling
    // resume ends the loop.
    void readFramesOverChannel(const std::shared_ptr<TNStreamChannel>& channel, FrameCallback onFrame);

    // What a header read reports, from the stream's done report and the bytes gathered before
    // and with it. Pure.
    struct HeaderReport {
        TNOptionalError error;
        std::uint32_t type = 0;
        std::uint32_t tag = 0;
        std::uint32_t payloadSize = 0;
        bool payloadTooLarge = false;  // refused for its declared size
    };
    static HeaderReport headerReportForDoneReport(int errorNumber, bool finalPieceEmpty, ByteView accumulated);

    explicit TNProtocol(std::weak_ptr<WorkQueue> queue);

protected:
    std::weak_ptr<WorkQueue> queue_;

private:
    std::uint32_t nextFrameTag_ = 0;
};

// The protocol that belongs to one queue: its queue never changes.
class RQueueLocalIOFrameProtocol final : public TNProtocol {
public:
    using TNProtocol::TNProtocol;
    void setQueue(WorkQueue&) override {}
};

}  // namespace havrel
