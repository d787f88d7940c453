// Property maps as BlueZ sends them on the bus, built from arbitrary bytes: every entry a known
// or unknown name with a value of any of the types the bus carries. Reading them must never
// throw or crash; what is kept has the right type and stays within its bounds, and everything
// else is counted as rejected.
#include "FuzzCheck.hpp"
#include "backends/bluetooth_bluez/BluezProperties.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace {

constexpr std::array<const char*, 18> kNames = {
    "Address", "Name",    "Alias", "RSSI",           "UUIDs",     "Connected", "ServicesResolved",
    "Adapter", "UUID",    "Device", "Service",       "Characteristic", "Value", "Notifying",
    "MTU",     "Powered", "Discovering", "Unknown"};

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    bool empty() const { return offset_ >= size_; }
    std::uint8_t byte() { return empty() ? 0 : data_[offset_++]; }
    std::string text() {
        const std::size_t length = std::min<std::size_t>(byte() * 4u, size_ - std::min(offset_, size_));
        std::string read(reinterpret_cast<const char*>(data_ + offset_), length);
        offset_ += length;
        return read;
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t offset_ = 0;
};

sdbus::Variant value(Input& input) {
    switch (input.byte() % 9) {
    case 0:
        return sdbus::Variant(input.byte() % 2 == 1);
    case 1:
        return sdbus::Variant(input.text());
    case 2:
        return sdbus::Variant(static_cast<std::int16_t>(input.byte() << 8 | input.byte()));
    case 3:
        return sdbus::Variant(static_cast<std::uint16_t>(input.byte() << 8 | input.byte()));
    case 4:
        return sdbus::Variant(static_cast<std::uint32_t>(input.byte()));
    case 5:
        return sdbus::Variant(sdbus::ObjectPath("/org/bluez/hci" + std::to_string(input.byte())));
    case 6: {
        std::vector<std::string> texts(input.byte() % 80);
        for (auto& text : texts) {
            text = input.text();
        }
        return sdbus::Variant(texts);
    }
    case 7: {
        const std::string bytes = input.text() + input.text() + input.text();
        return sdbus::Variant(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
    }
    default:
        return sdbus::Variant(static_cast<double>(input.byte()));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const auto interface = static_cast<havrel::BluezInterface>(input.byte() % 6);
    havrel::BluezPropertyMap properties;
    while (!input.empty() && properties.size() < 32) {
        const char* name = kNames[input.byte() % kNames.size()];
        try {
            properties[name] = value(input);
        } catch (const sdbus::Error&) {
            // Not a value the bus could carry: the reader never sees it.
        }
    }
    const auto read = havrel::readBluezProperties(interface, properties);
    FUZZ_CHECK(read.interface == interface);
    FUZZ_CHECK(read.rejected <= properties.size() + 80);
    if (read.name) {
        FUZZ_CHECK(read.name->size() <= havrel::kBluezMaximumNameLength);
    }
    if (read.value) {
        FUZZ_CHECK(read.value->size() <= havrel::kBluezMaximumValueLength);
    }
    if (read.uuids) {
        FUZZ_CHECK(read.uuids->size() <= havrel::kBluezMaximumUUIDCount);
        for (const auto& uuid : *read.uuids) {
            FUZZ_CHECK(uuid.size() == 4 || uuid.size() == 36);
        }
    }
    if (read.uuid) {
        FUZZ_CHECK(read.uuid->size() == 4 || read.uuid->size() == 36);
        FUZZ_CHECK(havrel::platformUUIDText(havrel::bluezUUIDText(*read.uuid)) == read.uuid);
    }
    return 0;
}
