#pragma once
// A D-Bus connection with a thread of its own. Every use of the connection (calls, replies,
// signal handlers, exported objects) happens on that thread, so nothing else ever waits on the
// bus: other threads hand it work with post(). The thread runs its own poll loop over the
// connection and a wake-up descriptor. When the connection fails (the bus daemon went away) the
// thread reports it once through onLost and drops all later work.
//
// Busy tokens count what is under way: each posted item holds one until it has run, and work
// that continues elsewhere (an asynchronous call's reply, a result posted to the main queue)
// keeps one in its closure. pending() falls to zero only when everything has settled.

#include <sdbus-c++/sdbus-c++.h>

#include <atomic>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace havrel {

class DBusConnectionThread {
public:
    using Work = std::function<void(sdbus::IConnection&)>;
    using BusyToken = std::shared_ptr<void>;

    // Connects to the bus at the address ("unix:path=..."), or to the system bus when the
    // address is empty; with a name, requests it. Throws sdbus::Error when that fails.
    // onLost is called on the bus thread, once, with the reason.
    static std::unique_ptr<DBusConnectionThread> open(const std::string& address, const std::string& name,
                                                      std::function<void(const std::string&)> onLost);
    ~DBusConnectionThread();
    DBusConnectionThread(const DBusConnectionThread&) = delete;
    DBusConnectionThread& operator=(const DBusConnectionThread&) = delete;

    // Runs the work on the bus thread, in order of posting. Any thread. An sdbus::Error it throws
    // is logged.
    void post(Work work);
    // Runs the work on the bus thread and waits for it; false when the connection is lost.
    // Never from the bus thread itself.
    bool runAndWait(Work work);
    // Stops the thread and waits for it; the connection is then left to the calling thread
    // (to destroy what was made on it). Idempotent; the destructor stops too.
    void stop();
    bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }
    bool lost() const { return lost_; }

    // A token that counts as work under way for as long as a copy of it lives.
    BusyToken busy() const;
    std::size_t pending() const { return *busy_; }

    struct Private {};
    DBusConnectionThread(Private, std::unique_ptr<sdbus::IConnection> connection,
                         std::function<void(const std::string&)> onLost);

private:
    void loop();
    void runPostedWork();
    void wake();
    void markLost(const std::string& reason);

    std::unique_ptr<sdbus::IConnection> connection_;
    std::function<void(const std::string&)> onLost_;
    std::shared_ptr<std::atomic<std::size_t>> busy_ = std::make_shared<std::atomic<std::size_t>>(0);
    int wakeFd_ = -1;
    std::mutex mutex_;
    std::deque<std::pair<Work, BusyToken>> work_;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> lost_{false};
    std::thread thread_;
};

}  // namespace havrel
