#include "FrameTestSupport.hpp"

#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/SerialQueue.hpp"
#include "transport/usb/TNData.hpp"
#include "transport/usb/TNFrameHeader.hpp"
#include "transport/usb/TNPropertyListPayload.hpp"
#include "transport/usb/TNProtocol.hpp"

#include <gtest/gtest.h>

#include <cerrno>

namespace havrel {
namespace {

using testing::shared;

TEST(TNFrameHeaderTest, FieldsTravelBigEndianAndShortInputDecodesToNothing) {
    const auto bytes = encodeFrameHeader(TNFrameHeader{1, 0x01020304, 0xA0B0C0D0, 7});
    const Bytes expected{0, 0, 0, 1, 1, 2, 3, 4, 0xA0, 0xB0, 0xC0, 0xD0, 0, 0, 0, 7};
    EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), expected);
    EXPECT_EQ(decodeFrameHeader(expected), (TNFrameHeader{1, 0x01020304, 0xA0B0C0D0, 7}));
    EXPECT_EQ(decodeFrameHeader(ByteView(expected).first(15)), std::nullopt);
    EXPECT_EQ(decodeFrameHeader({}), std::nullopt);
}

TEST(TNFrameHeaderTest, DoneReportRulesApplyInOrder) {
    const Bytes good = testing::rawFrame(108, 9, {}, 1, 300);
    const auto version2 = testing::rawFrame(108, 9, {}, 2);
    using P = TNProtocol;

    // A stream error wins over everything.
    auto report = P::headerReportForDoneReport(ECONNRESET, false, good);
    EXPECT_EQ(report.error, TNError::posix(ECONNRESET));
    EXPECT_EQ(report.type, 0u);

    // An empty final piece is end of stream, even after part of a header.
    report = P::headerReportForDoneReport(0, true, ByteView(good).first(5));
    EXPECT_EQ(report.error, std::nullopt);
    EXPECT_EQ(report.type, 0u);
    EXPECT_EQ(report.payloadSize, 0u);

    // A short header with data in the final piece is a protocol error.
    report = P::headerReportForDoneReport(0, false, ByteView(good).first(15));
    EXPECT_EQ(report.error, TNError::make(kTNProtocolErrorDomain, 0));

    report = P::headerReportForDoneReport(0, false, version2);
    EXPECT_EQ(report.error, TNError::make(kTNProtocolErrorDomain, 0));

    report = P::headerReportForDoneReport(0, false, good);
    EXPECT_EQ(report.error, std::nullopt);
    EXPECT_EQ(report.type, 108u);
    EXPECT_EQ(report.tag, 9u);
    EXPECT_EQ(report.payloadSize, 300u);

    // The payload limit is inclusive.
    report = P::headerReportForDoneReport(0, false, testing::rawFrame(1, 1, {}, 1, kTNMaximumFramePayloadSize));
    EXPECT_EQ(report.error, std::nullopt);
    EXPECT_EQ(report.payloadSize, kTNMaximumFramePayloadSize);
    report = P::headerReportForDoneReport(0, false, testing::rawFrame(1, 1, {}, 1, kTNMaximumFramePayloadSize + 1));
    EXPECT_EQ(report.error, TNError::make(kTNProtocolErrorDomain, kTNProtocolErrorPayloadTooLarge));
    EXPECT_TRUE(report.payloadTooLarge);
    EXPECT_EQ(report.payloadSize, 0u);
}

TEST(TNProtocolTest, TagsStartAtOneAndTheQueueProtocolIsSharedPerQueue) {
    auto fresh = TNProtocol::create();
    EXPECT_EQ(fresh->newTag(), 1u);
    EXPECT_EQ(fresh->newTag(), 2u);
    EXPECT_EQ(fresh->queue().get(), &MainQueue::shared());

    auto& main = MainQueue::shared();
    auto mainProtocol = TNProtocol::sharedProtocolForQueue(main);
    EXPECT_EQ(TNProtocol::sharedProtocolForQueue(main), mainProtocol);
    const auto tag = mainProtocol->newTag();
    EXPECT_EQ(TNProtocol::sharedProtocolForQueue(main)->newTag(), tag + 1);

    auto serial = SerialQueue::create("tn.protocol.test");
    auto serialProtocol = TNProtocol::sharedProtocolForQueue(*serial);
    EXPECT_NE(serialProtocol, mainProtocol);
    EXPECT_EQ(serialProtocol->queue(), serial);

    // The queue-local protocol keeps its queue; a plain one can be moved.
    serialProtocol->setQueue(main);
    EXPECT_EQ(serialProtocol->queue(), serial);
    fresh->setQueue(*serial);
    EXPECT_EQ(fresh->queue(), serial);

    // Once its queue is gone, a queue-local protocol no longer refers to it.
    serial.reset();
    EXPECT_EQ(serialProtocol->queue(), nullptr);
}

TEST(TNProtocolTest, FrameIsHeaderPlusReferencedPayload) {
    auto protocol = TNProtocol::create();
    const Bytes header{0, 0, 0, 1, 0, 0, 0, 102, 0, 0, 0, 5, 0, 0, 0, 0};
    for (auto payload : {std::shared_ptr<const Bytes>(), shared({})}) {
        auto frame = protocol->createDispatchDataWithFrameOfType(102, 5, payload);
        ASSERT_EQ(frame.size(), 1u);
        EXPECT_EQ(*frame[0], header);
    }
    auto payload = shared({9, 8, 7});
    auto frame = protocol->createDispatchDataWithFrameOfType(108, 0x10000, payload);
    ASSERT_EQ(frame.size(), 2u);
    EXPECT_EQ(*frame[0], (Bytes{0, 0, 0, 1, 0, 0, 0, 108, 0, 1, 0, 0, 0, 0, 0, 3}));
    EXPECT_EQ(frame[1].get(), payload.get()) << "the payload is sent from its own buffer";
}

TEST(TNPropertyListPayloadTest, BinaryOutAnyFormatInGarbageIsNothing) {
    ScopedLogCapture log;
    const Dictionary info = {{"usbClient", {{"name", "pad"}, {"number", 3}}}};
    auto payload = createReferencingDispatchData(info);
    ASSERT_NE(payload, nullptr);
    EXPECT_EQ(std::string(payload->begin(), payload->begin() + 6), "bplist");
    EXPECT_EQ(dictionaryWithContentsOfDispatchData(payload), info);
    EXPECT_EQ(dictionaryWithContentsOfDispatchData(TNData::dataWithContentsOfDispatchData(payload)), info);

    const std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><array><string>a</string></array></plist>";
    EXPECT_EQ(dictionaryWithContentsOfDispatchData(shared(Bytes(xml.begin(), xml.end()))), Dictionary::array({"a"}));

    EXPECT_EQ(dictionaryWithContentsOfDispatchData(std::shared_ptr<const Bytes>()), std::nullopt);
    EXPECT_EQ(dictionaryWithContentsOfDispatchData(std::shared_ptr<TNData>()), std::nullopt);
    EXPECT_EQ(dictionaryWithContentsOfDispatchData(shared({0xde, 0xad, 0xbe, 0xef, 0x00})), std::nullopt);
    EXPECT_TRUE(log.lines().empty());

    EXPECT_EQ(createReferencingDispatchData(Dictionary{{"bad", nullptr}}), nullptr);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].rfind("Failed to serialize property list: ", 0), 0u);
}

}  // namespace
}  // namespace havrel
