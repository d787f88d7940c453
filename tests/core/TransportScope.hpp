#pragma once
// Keeps the USB transport that the registry starts away from the machine's own usbmux daemon
// for a test (a socket path where nothing listens, unless the test names one), and stops it at
// the end so the next test starts a fresh one.

#include "platform/MainQueue.hpp"
#include "transport/usb/HVCentralUSBManager.hpp"
#include "transport/usb/TNUSBHub.hpp"

#include <cstdlib>
#include <string>

namespace havrel::testing {

class TransportScope {
public:
    explicit TransportScope(const std::string& usbmuxAddress = "UNIX:/nonexistent/havrel-test-usbmuxd") {
        ::setenv("USBMUXD_SOCKET_ADDRESS", usbmuxAddress.c_str(), 1);
        HVCentralUSBManager::resetShared();
        TNUSBHub::setSharedHubForTesting(nullptr);
    }
    ~TransportScope() {
        HVCentralUSBManager::resetShared();
        TNUSBHub::setSharedHubForTesting(nullptr);
        MainQueue::shared().poll();
        ::unsetenv("USBMUXD_SOCKET_ADDRESS");
    }
    TransportScope(const TransportScope&) = delete;
    TransportScope& operator=(const TransportScope&) = delete;
};

}  // namespace havrel::testing
