#pragma once
// The payload of one received frame, as handed to a channel's delegate: a view of the bytes
// that keeps them alive. A delegate that wants the bytes beyond the TNData's life keeps the
// TNData or copies the bytes.

#include "platform/Types.hpp"

#include <cstdint>
#include <memory>
#include <string>

namespace havrel {

class TNData {
public:
    // A view of the whole buffer; nullptr in, nullptr out.
    static std::shared_ptr<TNData> dataWithContentsOfDispatchData(std::shared_ptr<const Bytes> dispatchData);

    ~TNData();
    TNData(const TNData&) = delete;
    TNData& operator=(const TNData&) = delete;

    const std::uint8_t* data() const { return data_; }
    std::uint64_t length() const { return length_; }
    ByteView bytes() const { return ByteView(data_, static_cast<std::size_t>(length_)); }
    // The buffer that owns the bytes.
    const std::shared_ptr<const Bytes>& dispatchData() const { return dispatchData_; }

    // "<TNData: %p (%zu bytes)>"
    std::string description() const;

    explicit TNData(std::shared_ptr<const Bytes> dispatchData);

private:
    std::shared_ptr<const Bytes> dispatchData_;
    const std::uint8_t* data_ = nullptr;
    std::uint64_t length_ = 0;
};

}  // namespace havrel
