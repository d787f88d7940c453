#include "transport/usb/TNError.hpp"

#include <gtest/gtest.h>

#include <cerrno>

namespace havrel {
namespace {

TEST(TNErrorTest, DescriptionsNameDomainCodeAndText) {
    EXPECT_EQ(TNError::make(TNUSBHubErrorDomain, 3, "connection refused").description(),
              "Error Domain=TNUSBHubError Code=3 \"connection refused\"");
    EXPECT_EQ(TNError::make(kTNProtocolErrorDomain, 0).description(), "Error Domain=TNProtocolError Code=0");
    EXPECT_NE(TNError::posix(EPIPE).description().find("Code=32"), std::string::npos);
    EXPECT_EQ(describe(std::nullopt), "(null)");
    EXPECT_NE(TNError::posix(1), TNError::make(kTNErrorDomain, 1));
}

}  // namespace
}  // namespace havrel
