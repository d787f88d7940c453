#include "platform/PropertyList.hpp"
#include "transport/usb/TNUSBPacket.hpp"
#include "transport/usb/TNUSBPacketReader.hpp"
#include "transport/usb/TNUSBSocketAddress.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace havrel {
namespace {

Bytes rawPacket(std::uint32_t size, std::uint32_t protocol, std::uint32_t type, std::uint32_t tag,
                const std::string& payload = "") {
    const auto header = encodePacketHeader({size, protocol, type, tag});
    Bytes bytes(header.size() + payload.size());
    std::copy(header.begin(), header.end(), bytes.begin());
    std::copy(payload.begin(), payload.end(), bytes.begin() + static_cast<std::ptrdiff_t>(header.size()));
    return bytes;
}

Bytes concat(const Bytes& a, const Bytes& b) {
    Bytes bytes(a.size() + b.size());
    std::copy(b.begin(), b.end(), std::copy(a.begin(), a.end(), bytes.begin()));
    return bytes;
}

Bytes plistPacket(const Dictionary& dictionary, std::uint32_t tag) {
    return *plistPacketData(dictionary, tag).data;
}

struct ReadOutcome {
    std::vector<TNUSBPacketReader::Result> results;
    std::size_t consumed = 0;  // bytes taken before the stream ended or the input ran out
};

// Feeds the stream in chunks of the given size, as a socket would deliver it, stopping where
// a result ends the stream; the end of the input is the end of the stream when endAtEnd.
ReadOutcome readStream(const Bytes& stream, std::size_t chunk, bool endAtEnd = true) {
    TNUSBPacketReader reader;
    ReadOutcome outcome;
    while (outcome.consumed < stream.size()) {
        const auto buffer = reader.nextBuffer();
        const std::size_t count = std::min({buffer.size(), chunk, stream.size() - outcome.consumed});
        std::copy_n(stream.begin() + static_cast<std::ptrdiff_t>(outcome.consumed), count, buffer.begin());
        outcome.consumed += count;
        if (auto result = reader.didRead(count)) {
            outcome.results.push_back(*result);
            if (result->endsStream) {
                return outcome;
            }
        }
    }
    if (endAtEnd) {
        outcome.results.push_back(reader.didReachEnd());
    }
    return outcome;
}

TEST(USBMuxPacketTest, RequestsCarryTheBaseKeysOverTheirPayload) {
    const auto connect = connectRequest(7, 4699);
    EXPECT_EQ(connect["MessageType"], "Connect");
    EXPECT_EQ(connect["DeviceID"], 7);
    EXPECT_EQ(connect["PortNumber"], 23314);
    EXPECT_FALSE(connect.contains("kLibUSBMuxVersion"));
    EXPECT_EQ(usbmuxPortNumber(0x0101), 0x0101);
    EXPECT_EQ(usbmuxPortNumber(0x1234), 0x3412);

    const auto listen = listenRequest();
    EXPECT_EQ(listen["MessageType"], "Listen");
    EXPECT_EQ(listen["kLibUSBMuxVersion"], 3);
    EXPECT_EQ(listen["ProgName"], "havrel-central");
    ASSERT_TRUE(listen["ClientVersionString"].is_string());
    EXPECT_FALSE(listen["ClientVersionString"].get<std::string>().empty());
    EXPECT_EQ(listen.size(), 4u);

    const auto overridden = packetDictionaryWithPacketType("Listen", {{"MessageType", "Connect"}, {"Extra", 1}});
    EXPECT_EQ(overridden["MessageType"], "Listen");
    EXPECT_EQ(overridden["Extra"], 1);
    EXPECT_EQ(overridden["ClientVersionString"], listen["ClientVersionString"]);
}

TEST(USBMuxPacketTest, PacketsHaveLittleEndianHeadersAndAnXMLPayload) {
    const Bytes packet = plistPacket(listenRequest(), 0x01020304);
    ASSERT_GT(packet.size(), 16u);
    EXPECT_EQ(readLittleEndian32(packet.data()), packet.size());
    EXPECT_EQ(Bytes(packet.begin() + 4, packet.begin() + 16),
              (Bytes{1, 0, 0, 0, 8, 0, 0, 0, 4, 3, 2, 1}));
    const std::string payload(packet.begin() + 16, packet.end());
    EXPECT_EQ(payload.rfind("<?xml", 0), 0u);
    EXPECT_EQ(propertyListFromData(ByteView(packet).subspan(16)), listenRequest());

    const TNUSBPacketHeader header{0xA1B2C3D4, 2, 0x80000000, 9};
    EXPECT_EQ(decodePacketHeader(encodePacketHeader(header)), header);
    EXPECT_EQ(encodePacketHeader(header)[0], 0xD4);
}

TEST(USBMuxPacketTest, RepliesMapOntoErrors) {
    TNOptionalError error;
    EXPECT_TRUE(errorFromPlistResponse(Dictionary{{"MessageType", "Result"}, {"Number", 0}}, error));
    EXPECT_FALSE(error);

    const std::vector<std::pair<int, std::string>> texts = {
        {1, "illegal command"}, {2, "unknown device"}, {3, "connection refused"},
        {6, "invalid version"}, {4, "Unspecified error"}, {5, "Unspecified error"}};
    for (const auto& [number, text] : texts) {
        error.reset();
        EXPECT_FALSE(errorFromPlistResponse(Dictionary{{"Number", number}}, error));
        EXPECT_EQ(error, TNError::make(TNUSBHubErrorDomain, number, text)) << number;
    }

    for (const auto& reply : {std::optional<Dictionary>(Dictionary{{"MessageType", "Result"}}),
                              std::optional<Dictionary>(Dictionary{{"Number", "0"}}), std::optional<Dictionary>()}) {
        error.reset();
        EXPECT_FALSE(errorFromPlistResponse(reply, error));
        EXPECT_EQ(error, TNError::make(TNUSBHubErrorDomain, 0));
    }

    // An error that came before the reply stands.
    error = TNError::posix(54);
    EXPECT_TRUE(errorFromPlistResponse(Dictionary{{"Number", 3}}, error));
    EXPECT_EQ(error, TNError::posix(54));
}

TEST(USBMuxPacketTest, SocketAddressComesFromTheEnvironmentValue) {
    const TNUSBSocketAddress fallback;
    EXPECT_EQ(fallback.kind, TNUSBSocketAddress::Kind::unixSocket);
    EXPECT_EQ(fallback.path, "/var/run/usbmuxd");
    for (const char* value : {static_cast<const char*>(nullptr), "", "UNIX:", "localhost", "host:", ":27015",
                              "host:port", "host:0", "host:65536", "host:27015x", "host:-1", "unix:/tmp/x"}) {
        EXPECT_EQ(TNUSBSocketAddress::fromEnvironmentValue(value), fallback) << (value ? value : "(unset)");
    }

    const auto path = TNUSBSocketAddress::fromEnvironmentValue("UNIX:/tmp/a:b/usbmuxd");
    EXPECT_EQ(path.kind, TNUSBSocketAddress::Kind::unixSocket);
    EXPECT_EQ(path.path, "/tmp/a:b/usbmuxd");

    const auto tcp = TNUSBSocketAddress::fromEnvironmentValue("127.0.0.1:27015");
    EXPECT_EQ(tcp.kind, TNUSBSocketAddress::Kind::tcp);
    EXPECT_EQ(tcp.host, "127.0.0.1");
    EXPECT_EQ(tcp.port, 27015);

    const auto bracketed = TNUSBSocketAddress::fromEnvironmentValue("[::1]:27015");
    EXPECT_EQ(bracketed.kind, TNUSBSocketAddress::Kind::tcp);
    EXPECT_EQ(bracketed.host, "::1");
    EXPECT_EQ(bracketed.port, 27015);
    // Split at the last colon.
    EXPECT_EQ(TNUSBSocketAddress::fromEnvironmentValue("fe80::1:65535").host, "fe80::1");
}

TEST(USBMuxPacketReaderTest, ReadsPacketsWhateverTheChunksAndNeverPastTheOneInProgress) {
    Bytes stream = plistPacket({{"MessageType", "Result"}, {"Number", 0}}, 3);
    const Bytes broadcast = plistPacket({{"MessageType", "Attached"}, {"DeviceID", 12}}, 0);
    stream = concat(stream, broadcast);
    const Bytes empty = rawPacket(16, 1, 8, 4);
    stream = concat(stream, empty);

    for (std::size_t chunk : {std::size_t{1}, std::size_t{3}, std::size_t{17}, stream.size()}) {
        const auto outcome = readStream(stream, chunk);
        ASSERT_EQ(outcome.results.size(), 4u) << chunk;
        EXPECT_EQ(outcome.results[0].tag, 3u);
        EXPECT_EQ(outcome.results[0].dictionary, (Dictionary{{"MessageType", "Result"}, {"Number", 0}}));
        EXPECT_EQ(outcome.results[1].tag, 0u);
        EXPECT_EQ((*outcome.results[1].dictionary)["DeviceID"], 12);
        // An empty packet: no dictionary and no error.
        EXPECT_EQ(outcome.results[2].tag, 4u);
        EXPECT_FALSE(outcome.results[2].dictionary);
        EXPECT_FALSE(outcome.results[2].error);
        // A clean end between packets is quiet.
        EXPECT_TRUE(outcome.results[3].endsStream);
        EXPECT_FALSE(outcome.results[3].error);
        for (int i = 0; i < 3; ++i) {
            EXPECT_FALSE(outcome.results[i].endsStream);
        }
    }

    // The reply of a Connect followed by tunnel bytes: the reader asks for the reply alone.
    Bytes tunnel = plistPacket({{"Number", 0}}, 1);
    const std::size_t replySize = tunnel.size();
    tunnel = concat(tunnel, Bytes{'h', 'e', 'l', 'l', 'o'});
    TNUSBPacketReader reader;
    std::size_t offset = 0;
    std::optional<TNUSBPacketReader::Result> reply;
    while (!reply) {
        auto buffer = reader.nextBuffer();
        ASSERT_LE(offset + buffer.size(), replySize);
        std::copy_n(tunnel.begin() + static_cast<std::ptrdiff_t>(offset), buffer.size(), buffer.begin());
        offset += buffer.size();
        reply = reader.didRead(buffer.size());
    }
    EXPECT_EQ(offset, replySize);
    EXPECT_EQ(reply->dictionary, (Dictionary{{"Number", 0}}));
}

TEST(USBMuxPacketReaderTest, RefusesWhatCannotBeFramedAndDropsWhatCannotBeRead) {
    // Sizes that cannot frame a packet end the stream at once, before any payload is taken.
    for (std::uint32_t size : {0u, 8u, 15u, TNUSBPacketReader::kMaximumPacketSize + 1, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
        const auto outcome = readStream(rawPacket(size, 1, 8, 5, "<plist/>"), 64);
        ASSERT_EQ(outcome.results.size(), 1u) << size;
        const auto& result = outcome.results[0];
        EXPECT_TRUE(result.endsStream);
        EXPECT_EQ(outcome.consumed, 4u);
        EXPECT_EQ(result.tag, 0u);
        ASSERT_TRUE(result.error);
        EXPECT_EQ(result.error->domain, TNUSBHubErrorDomain);
        EXPECT_EQ(*result.error, size < 16 ? TNError::make(TNUSBHubErrorDomain, 0, "Received a packet that is too small")
                                           : TNError::make(TNUSBHubErrorDomain, 1, "Received a packet that is too large"));
    }

    // Bad fields and unreadable payloads cost that packet only; the next one still reads.
    const std::string garbage = "<?xml version=\"1.0\"?><plist><dict><key>";
    const std::vector<std::pair<Bytes, std::string>> bad = {
        {rawPacket(16, 2, 8, 6), "Unexpected package protocol"},
        {rawPacket(16, 1, 7, 6), "Unexpected package type"},
        {rawPacket(static_cast<std::uint32_t>(16 + garbage.size()), 1, 8, 6, garbage),
         "The packet's payload is not a property-list dictionary"},
        {plistPacket(Dictionary::array({1, 2}), 6), "The packet's payload is not a property-list dictionary"},
    };
    for (const auto& [packet, text] : bad) {
        const Bytes stream = concat(packet, plistPacket({{"Number", 1}}, 8));
        const auto outcome = readStream(stream, 5);
        ASSERT_EQ(outcome.results.size(), 3u) << text;
        EXPECT_EQ(outcome.results[0].error, TNError::make(TNUSBHubErrorDomain, 0, text));
        EXPECT_EQ(outcome.results[0].tag, 6u);
        EXPECT_FALSE(outcome.results[0].endsStream);
        EXPECT_FALSE(outcome.results[0].dictionary);
        EXPECT_EQ(outcome.results[1].tag, 8u);
        EXPECT_EQ(outcome.results[1].dictionary, (Dictionary{{"Number", 1}}));
    }

    // A stream that ends inside a packet: the tag once its field has arrived, else 0.
    const Bytes whole = plistPacket({{"Number", 0}}, 9);
    const std::vector<std::pair<std::size_t, std::uint32_t>> cuts = {{2, 0}, {10, 0}, {16, 9}, {whole.size() - 1, 9}};
    for (const auto& [length, tag] : cuts) {
        const auto outcome = readStream(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)), 7);
        ASSERT_EQ(outcome.results.size(), 1u);
        EXPECT_TRUE(outcome.results[0].endsStream);
        EXPECT_EQ(outcome.results[0].tag, tag) << length;
        if (length < 4) {
            EXPECT_FALSE(outcome.results[0].error);
        } else {
            EXPECT_EQ(outcome.results[0].error, TNError::make(TNUSBHubErrorDomain, 2, "Connection closed mid-packet"));
        }
    }
}

}  // namespace
}  // namespace havrel
