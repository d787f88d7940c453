#include "FrameTestSupport.hpp"
#include "support/MainQueueWaiting.hpp"

#include "platform/MainQueue.hpp"
#include "transport/usb/TNStreamChannel.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

namespace havrel {
namespace {

using testing::pumpIdle;
using testing::runMainQueueUntil;
using testing::shared;

struct ReadLog {
    std::vector<Bytes> pieces;
    bool done = false;
    bool finalEmpty = false;
    int error = 0;

    TNStreamChannel::ReadHandler handler() {
        return [this](bool isDone, ByteView piece, int errorNumber) {
            if (isDone) {
                done = true;
                finalEmpty = piece.empty();
                error = errorNumber;
            }
            if (!piece.empty()) {
                pieces.emplace_back(piece.begin(), piece.end());
            }
        };
    }
    Bytes all() const {
        Bytes bytes;
        for (const auto& piece : pieces) {
            bytes.insert(bytes.end(), piece.begin(), piece.end());
        }
        return bytes;
    }
};

class TNStreamChannelTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, fds_), 0);
        peer_ = fds_[1];
        stream_ = TNStreamChannel::createWithDescriptor(MainQueue::shared(), fds_[0], [this](int errorNumber) {
            ++cleanups_;
            cleanupError_ = errorNumber;
            // The socket is closed before the clean-up runs.
            cleanupSawOpenSocket_ = ::fcntl(fds_[0], F_GETFD) != -1;
        });
        ASSERT_NE(stream_, nullptr);
    }
    void TearDown() override {
        if (stream_ && !stream_->isClosed()) {
            stream_->close(true);
        }
        pumpIdle();
        stream_.reset();
        if (peer_ >= 0) {
            ::close(peer_);
        }
    }
    void send(const Bytes& bytes) { ASSERT_EQ(::send(peer_, bytes.data(), bytes.size(), 0), ssize_t(bytes.size())); }

    ManualClockScope clock_;
    int fds_[2] = {-1, -1};
    int peer_ = -1;
    std::shared_ptr<TNStreamChannel> stream_;
    int cleanups_ = 0;
    int cleanupError_ = -1;
    bool cleanupSawOpenSocket_ = false;
};

TEST_F(TNStreamChannelTest, ReadReportsPiecesThenOneDoneReportAndEndOfStreamIsAnEmptyDone) {
    ReadLog first;
    stream_->read(6, first.handler());
    send({1, 2});
    ASSERT_TRUE(runMainQueueUntil([&] { return !first.pieces.empty(); }));
    EXPECT_FALSE(first.done);
    send({3, 4, 5, 6, 7, 8});
    ASSERT_TRUE(runMainQueueUntil([&] { return first.done; }));
    EXPECT_EQ(first.all(), (Bytes{1, 2, 3, 4, 5, 6}));
    EXPECT_FALSE(first.finalEmpty);
    EXPECT_EQ(first.error, 0);

    // The bytes beyond the first read wait for the next; the peer's close ends it empty.
    ReadLog second;
    stream_->read(10, second.handler());
    ASSERT_TRUE(runMainQueueUntil([&] { return !second.pieces.empty(); }));
    ::close(peer_);
    peer_ = -1;
    ASSERT_TRUE(runMainQueueUntil([&] { return second.done; }));
    EXPECT_EQ(second.all(), (Bytes{7, 8}));
    EXPECT_TRUE(second.finalEmpty);
    EXPECT_EQ(second.error, 0);

    // Reading on after the end gives the end again.
    ReadLog third;
    stream_->read(1, third.handler());
    ASSERT_TRUE(runMainQueueUntil([&] { return third.done; }));
    EXPECT_TRUE(third.finalEmpty);
    EXPECT_EQ(third.error, 0);
}

TEST_F(TNStreamChannelTest, WritesGoOutInOrderAsGatherWrites) {
    std::vector<int> results;
    auto payload = shared({4, 5, 6});
    stream_->write({shared({1, 2, 3}), payload}, [&](bool done, int error) {
        EXPECT_TRUE(done);
        results.push_back(error);
    });
    stream_->write({shared({}), shared({7})}, [&](bool, int error) { results.push_back(error); });
    stream_->write({shared({8})}, nullptr);
    ASSERT_TRUE(runMainQueueUntil([&] { return results.size() == 2; }));
    EXPECT_EQ(results, (std::vector<int>{0, 0}));
    pumpIdle();
    Bytes received(16);
    const auto size = ::recv(peer_, received.data(), received.size(), MSG_DONTWAIT);
    ASSERT_EQ(size, 8);
    received.resize(8);
    EXPECT_EQ(received, (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(TNStreamChannelTest, StoppingCloseCancelsOutstandingWorkThenCleansUpOnceAfterTheSocketCloses) {
    ReadLog pending;
    stream_->read(16, pending.handler());
    stream_->read(16, [](bool, ByteView, int error) { EXPECT_EQ(error, ECANCELED); });
    stream_->close(true);
    stream_->close(true);
    EXPECT_EQ(cleanups_, 0) << "nothing is reported inside close";

    // Operations after the close are refused.
    std::optional<int> late;
    stream_->write({shared({1})}, [&](bool, int error) { late = error; });

    ASSERT_TRUE(runMainQueueUntil([&] { return cleanups_ > 0; }));
    EXPECT_TRUE(pending.done);
    EXPECT_EQ(pending.error, ECANCELED);
    EXPECT_EQ(late, ECANCELED);
    EXPECT_FALSE(cleanupSawOpenSocket_);
    EXPECT_EQ(cleanupError_, 0);
    pumpIdle();
    EXPECT_EQ(cleanups_, 1);
}

TEST_F(TNStreamChannelTest, PlainCloseLetsOutstandingReadsFinish) {
    ReadLog pending;
    stream_->read(3, pending.handler());
    stream_->close(false);
    pumpIdle();
    EXPECT_EQ(cleanups_, 0) << "the read is still outstanding";
    send({1, 2, 3});
    ASSERT_TRUE(runMainQueueUntil([&] { return cleanups_ == 1; }));
    EXPECT_TRUE(pending.done);
    EXPECT_EQ(pending.all(), (Bytes{1, 2, 3}));
    EXPECT_EQ(pending.error, 0);
}

TEST(TNStreamChannelDescriptorTest, OnlyConnectedStreamSocketsAreTaken) {
    ManualClockScope clock;
    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    int error = 0;
    EXPECT_EQ(TNStreamChannel::createWithDescriptor(MainQueue::shared(), pipeFds[0], nullptr, &error), nullptr);
    EXPECT_EQ(error, ENOTSOCK);
    EXPECT_EQ(::fcntl(pipeFds[0], F_GETFD), -1) << "a refused descriptor is closed";
    ::close(pipeFds[1]);

    const int datagram = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    EXPECT_EQ(TNStreamChannel::createWithDescriptor(MainQueue::shared(), datagram, nullptr, &error), nullptr);
    EXPECT_EQ(error, EPROTOTYPE);
    EXPECT_EQ(TNStreamChannel::createWithDescriptor(MainQueue::shared(), -1, nullptr, &error), nullptr);
    EXPECT_EQ(error, EBADF);
}

}  // namespace
}  // namespace havrel
