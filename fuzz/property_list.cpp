// Reads arbitrary bytes as a property list (XML or binary); must never crash.
#include "platform/PropertyList.hpp"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto value = havrel::propertyListFromData(havrel::ByteView(data, size));
    if (value && !value->is_null()) {
        // Whatever was read writes back in both forms.
        (void)havrel::propertyListData(*value, havrel::PropertyListFormat::binary);
        (void)havrel::propertyListData(*value, havrel::PropertyListFormat::xml);
    }
    return 0;
}
