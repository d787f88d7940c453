#include "backends/bluetooth_bluez/DBusConnectionThread.hpp"

#include "platform/Assert.hpp"
#include "platform/Log.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <future>

namespace havrel {

std::unique_ptr<DBusConnectionThread> DBusConnectionThread::open(const std::string& address, const std::string& name,
                                                                 std::function<void(const std::string&)> onLost) {
    std::unique_ptr<sdbus::IConnection> connection =
        address.empty() ? sdbus::createSystemBusConnection() : sdbus::createSessionBusConnectionWithAddress(address);
    if (!name.empty()) {
        connection->requestName(name);
    }
    return std::make_unique<DBusConnectionThread>(Private{}, std::move(connection), std::move(onLost));
}

DBusConnectionThread::DBusConnectionThread(Private, std::unique_ptr<sdbus::IConnection> connection,
                                           std::function<void(const std::string&)> onLost)
    : connection_(std::move(connection)), onLost_(std::move(onLost)) {
    wakeFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd_ < 0) {
        throw sdbus::Error("org.freedesktop.DBus.Error.NoMemory", "no event descriptor for the bus thread");
    }
    thread_ = std::thread([this] { loop(); });
}

DBusConnectionThread::~DBusConnectionThread() {
    stop();
    {
        std::lock_guard lock(mutex_);
        work_.clear();
    }
    ::close(wakeFd_);
}

void DBusConnectionThread::stop() {
    stopping_ = true;
    wake();
    if (thread_.joinable() && !isCurrent()) {
        thread_.join();
    }
}

DBusConnectionThread::BusyToken DBusConnectionThread::busy() const {
    ++*busy_;
    return BusyToken(nullptr, [counter = busy_](void*) { --*counter; });
}

void DBusConnectionThread::post(Work work) {
    {
        std::lock_guard lock(mutex_);
        if (lost_ || stopping_) {
            return;
        }
        work_.emplace_back(std::move(work), busy());
    }
    wake();
}

bool DBusConnectionThread::runAndWait(Work work) {
    // Waiting on itself would never end.
    HV_ASSERT(!isCurrent());
    auto done = std::make_shared<std::promise<bool>>();
    auto result = done->get_future();
    post([done, work = std::move(work)](sdbus::IConnection& connection) {
        struct Finish {
            std::shared_ptr<std::promise<bool>> promise;
            ~Finish() { promise->set_value(true); }
        } finish{done};
        work(connection);
    });
    if (lost_) {
        return false;
    }
    // A lost connection drops the work without running it: the promise breaks.
    try {
        return result.get();
    } catch (const std::future_error&) {
        return false;
    }
}

void DBusConnectionThread::wake() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(wakeFd_, &one, sizeof one);
}

void DBusConnectionThread::markLost(const std::string& reason) {
    {
        std::lock_guard lock(mutex_);
        lost_ = true;
        work_.clear();
    }
    if (onLost_) {
        onLost_(reason);
    }
}

void DBusConnectionThread::runPostedWork() {
    for (;;) {
        std::pair<Work, BusyToken> item;
        {
            std::lock_guard lock(mutex_);
            if (work_.empty() || lost_) {
                return;
            }
            item = std::move(work_.front());
            work_.pop_front();
        }
        try {
            item.first(*connection_);
        } catch (const sdbus::Error& error) {
            logf("D-Bus: {} ({})", error.getMessage(), error.getName());
        }
    }
}

void DBusConnectionThread::loop() {
    while (!stopping_) {
        if (lost_) {
            pollfd wakeOnly{wakeFd_, POLLIN, 0};
            ::poll(&wakeOnly, 1, -1);
            std::uint64_t count = 0;
            [[maybe_unused]] const auto read = ::read(wakeFd_, &count, sizeof count);
            std::lock_guard lock(mutex_);
            work_.clear();
            continue;
        }
        runPostedWork();
        try {
            while (!stopping_ && connection_->processPendingRequest()) {
                runPostedWork();
            }
            const auto data = connection_->getEventLoopPollData();
            pollfd descriptors[2] = {{data.fd, data.events, 0}, {wakeFd_, POLLIN, 0}};
            int timeout = -1;
            if (const auto relative = data.getRelativeTimeout()) {
                timeout = static_cast<int>(std::min<std::int64_t>((relative->count() + 999) / 1000, 60'000));
            }
            const int ready = ::poll(descriptors, 2, timeout);
            if (ready < 0 && errno != EINTR) {
                markLost("poll failed");
                continue;
            }
            if (descriptors[1].revents & POLLIN) {
                std::uint64_t count = 0;
                [[maybe_unused]] const auto read = ::read(wakeFd_, &count, sizeof count);
            }
            if (descriptors[0].revents & (POLLHUP | POLLERR | POLLNVAL)) {
                // Read what is left; a closed connection then throws.
                while (connection_->processPendingRequest()) {
                }
                markLost("the bus closed the connection");
            }
        } catch (const sdbus::Error& error) {
            markLost(error.getMessage());
        }
    }
}

}  // namespace havrel
