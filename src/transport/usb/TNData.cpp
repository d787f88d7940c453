#include "transport/usb/TNData.hpp"

#include "platform/Assert.hpp"

#include <fmt/format.h>

#include <utility>

namespace havrel {

std::shared_ptr<TNData> TNData::dataWithContentsOfDispatchData(std::shared_ptr<const Bytes> dispatchData) {
    if (!dispatchData) {
        return nullptr;
    }
    return std::make_shared<TNData>(std::move(dispatchData));
}

TNData::TNData(std::shared_ptr<const Bytes> dispatchData) : dispatchData_(std::move(dispatchData)) {
    HV_ASSERT(dispatchData_ != nullptr);
    data_ = dispatchData_->data();
    length_ = dispatchData_->size();
}

TNData::~TNData() {
    data_ = nullptr;
    length_ = 0;
}

std::string TNData::description() const {
    return fmt::format("<TNData: {} ({} bytes)>", fmt::ptr(this), length_);
}

}  // namespace havrel
