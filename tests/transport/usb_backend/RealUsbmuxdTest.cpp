// Against the usbmuxd of this machine. Each test runs a daemon of its own as a direct child,
// in a private mount namespace whose /run and /var/lib/lockdown are fresh folders, so that its
// socket is <folder>/run/usbmuxd outside. Skipped with the reason where that cannot be had.

#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/TemporaryFolder.hpp"
#include "support/MainQueueWaiting.hpp"
#include "transport/usb/TNUSBHub.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace havrel {
namespace {

using testing::runMainQueueUntil;

constexpr const char* kDaemon = "/usr/sbin/usbmuxd";

// Exit codes of the child before the daemon runs: the namespace could not be made.
constexpr int kNoNamespace = 71;
constexpr int kNoMount = 72;

class RealDaemon {
public:
    // Starts a daemon whose folders live in the given one; nothing (and the reason) when this
    // machine cannot run one.
    static std::unique_ptr<RealDaemon> start(const std::filesystem::path& folder, std::string& whyNot) {
        if (::geteuid() != 0) {
            whyNot = "not root: a private mount namespace for the daemon needs root";
            return nullptr;
        }
        if (::access(kDaemon, X_OK) != 0) {
            whyNot = std::string("no usbmuxd binary at ") + kDaemon;
            return nullptr;
        }
        auto daemon = std::unique_ptr<RealDaemon>(new RealDaemon(folder));
        if (!daemon->launch(whyNot)) {
            return nullptr;
        }
        return daemon;
    }

    ~RealDaemon() { stop(SIGTERM); }

    std::string socketAddress() const { return "UNIX:" + socketPath().string(); }

    // Ends the daemon with the signal and waits for it.
    void stop(int signal) {
        if (pid_ > 0) {
            ::kill(pid_, signal);
            int status = 0;
            ::waitpid(pid_, &status, 0);
            pid_ = -1;
        }
    }

private:
    explicit RealDaemon(std::filesystem::path folder) : folder_(std::move(folder)) {}

    std::filesystem::path socketPath() const { return folder_ / "run" / "usbmuxd"; }

    bool launch(std::string& whyNot) {
        const auto run = folder_ / "run";
        // Where /var/lib/lockdown does not exist, a fresh /var/lib gives the daemon room to make it.
        const bool haveLockdown = std::filesystem::is_directory("/var/lib/lockdown");
        const auto lockdown = folder_ / (haveLockdown ? "lockdown" : "varlib");
        const std::string lockdownTarget = haveLockdown ? "/var/lib/lockdown" : "/var/lib";
        std::filesystem::create_directories(run);
        std::filesystem::create_directories(lockdown);
        std::filesystem::remove(socketPath());
        std::filesystem::remove(run / "usbmuxd.pid");
        const std::string runText = run.string();
        const std::string lockdownText = lockdown.string();
        const int logFile = ::open((folder_ / "usbmuxd.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);

        pid_ = ::fork();
        if (pid_ == 0) {
            // Only system calls from here to exec.
            if (logFile >= 0) {
                ::dup2(logFile, STDOUT_FILENO);
                ::dup2(logFile, STDERR_FILENO);
            }
            if (::unshare(CLONE_NEWNS) != 0) {
                ::_exit(kNoNamespace);
            }
            if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                ::mount(runText.c_str(), "/run", nullptr, MS_BIND, nullptr) != 0 ||
                ::mount(lockdownText.c_str(), lockdownTarget.c_str(), nullptr, MS_BIND, nullptr) != 0) {
                ::_exit(kNoMount);
            }
            ::execl(kDaemon, kDaemon, "-f", "-v", static_cast<char*>(nullptr));
            ::_exit(127);
        }
        if (logFile >= 0) {
            ::close(logFile);
        }
        if (pid_ < 0) {
            whyNot = "fork failed";
            return false;
        }
        // The socket appears within tens of milliseconds; allow far more on a busy machine.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline) {
            int status = 0;
            if (::waitpid(pid_, &status, WNOHANG) == pid_) {
                pid_ = -1;
                const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
                whyNot = code == kNoNamespace ? "no private mount namespace here (unshare failed)"
                         : code == kNoMount   ? "the daemon's folders could not be mounted in its namespace"
                                              : "usbmuxd exited at start with status " + std::to_string(code);
                return false;
            }
            // The socket's file appears when it is bound, a moment before the daemon listens:
            // ready once a connect is accepted.
            if (std::filesystem::exists(socketPath()) && accepts()) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        whyNot = "usbmuxd made no socket within 10 s";
        return false;
    }

    bool accepts() const {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0) {
            return false;
        }
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = socketPath().string();
        std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", path.c_str());
        const bool connected = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
        ::close(fd);
        return connected;
    }

    std::filesystem::path folder_;
    pid_t pid_ = -1;
};

class RealUsbmuxdTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string whyNot;
        daemon_ = RealDaemon::start(folder_.path(), whyNot);
        if (!daemon_) {
            GTEST_SKIP() << whyNot;
        }
        address_.emplace("USBMUXD_SOCKET_ADDRESS", daemon_->socketAddress());
    }
    void TearDown() override {
        TNUSBHub::setSharedHubForTesting(nullptr);
        MainQueue::shared().poll();
    }

    testing::TemporaryFolder folder_;
    std::unique_ptr<RealDaemon> daemon_;
    std::optional<testing::ScopedEnvironment> address_;
    ScopedLogCapture log_;
};

TEST_F(RealUsbmuxdTest, ListenSucceedsAndAConnectToAnUnknownDeviceIsRefused) {
    auto hub = TNUSBHub::create();
    std::optional<TNOptionalError> started;
    bool ended = false;
    hub->listenOnQueue(
        MainQueue::shared(), [&](const TNOptionalError& error) { started = error; },
        [&](const TNOptionalError&) { ended = true; });
    ASSERT_TRUE(runMainQueueUntil([&] { return started.has_value(); }));
    EXPECT_FALSE(*started) << (*started)->description();

    std::optional<std::pair<TNOptionalError, int>> connected;
    hub->connectToDevice(1, 4699, [&](TNOptionalError error, int fd) { connected.emplace(error, fd); });
    ASSERT_TRUE(runMainQueueUntil([&] { return connected.has_value(); }));
    EXPECT_EQ(connected->first, TNError::make(TNUSBHubErrorDomain, 2, "unknown device"));
    EXPECT_EQ(connected->second, -1);
    // The connect had a socket of its own: the listening one is still open.
    MainQueue::shared().poll();
    EXPECT_FALSE(ended);
}

// The daemon as Debian runs it: absent when the program starts (here: ended, its stale socket
// left behind), started seconds later, killed and started again. The one shared hub listens to
// each daemon in turn.
TEST_F(RealUsbmuxdTest, TheSharedHubListensToEachDaemonThatStartsAfterIt) {
    daemon_->stop(SIGTERM);
    TNUSBHub::setSharedHubForTesting(nullptr);
    auto hub = TNUSBHub::sharedHub();
    ASSERT_TRUE(runMainQueueUntil([&] { return log_.contains("TNUSBHub failed to initialize: "); }));
    MainQueue::shared().runFor(std::chrono::seconds(3));
    EXPECT_FALSE(hub->isListening());

    for (int daemon = 1; daemon <= 2; ++daemon) {
        SCOPED_TRACE(daemon);
        std::string whyNot;
        daemon_ = RealDaemon::start(folder_.path(), whyNot);
        ASSERT_TRUE(daemon_) << whyNot;
        ASSERT_TRUE(runMainQueueUntil([&] { return hub->isListening(); }));
        EXPECT_EQ(log_.count("TNUSBHub listen started successfully"), static_cast<std::size_t>(daemon));
        daemon_->stop(SIGKILL);
        ASSERT_TRUE(runMainQueueUntil([&] { return !hub->isListening(); }));
    }
    EXPECT_EQ(log_.count("TNUSBHub sharedHub initializing"), 1u);
    EXPECT_EQ(log_.count("TNUSBHub channel ended: "), 2u);
}

}  // namespace
}  // namespace havrel
