#include "transport/bluetooth/RNBluetoothPlatform.hpp"

#include "MIDIInternals/UUID.hpp"
#include "platform/MainQueue.hpp"

#include <fmt/format.h>

#include <cctype>

namespace havrel {

namespace {

// Managers of a machine without a radio: they report that Bluetooth Low Energy is not
// supported, and every operation does nothing.
class UnsupportedCentralManager final : public RNBluetoothCentralManager {
public:
    std::int64_t state() const override { return CBManagerStateUnsupported; }
    void scanForPeripheralsWithServices(const std::optional<std::vector<std::string>>&, bool) override {}
    void stopScan() override {}
    void connectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>&, bool, bool) override {}
    void cancelPeripheralConnection(const std::shared_ptr<RNBluetoothPeripheral>&) override {}
};

class UnsupportedPlatform final : public RNBluetoothPlatform {
public:
    std::shared_ptr<RNBluetoothCentralManager> makeCentralManager(
        std::weak_ptr<RNBluetoothCentralManagerDelegate> delegate) override {
        MainQueue::shared().post([delegate] {
            if (auto target = delegate.lock()) {
                target->centralManagerDidUpdateState(CBManagerStateUnsupported);
            }
        });
        return std::make_shared<UnsupportedCentralManager>();
    }
};

SharedSlot<RNBluetoothPlatform>& platformSlot() {
    static SharedSlot<RNBluetoothPlatform> slot([] { return std::make_shared<UnsupportedPlatform>(); });
    return slot;
}

}  // namespace

std::string representativeString(ByteView uuidBytes) {
    std::string text;
    for (std::size_t index = 0; index < uuidBytes.size(); ++index) {
        text += fmt::format("{:02x}", uuidBytes[index]);
        if (uuidBytes.size() == 16 && (index == 3 || index == 5 || index == 7 || index == 9)) {
            text += '-';
        }
    }
    for (auto& character : text) {
        character = static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
    }
    return text;
}

RNBluetoothDescriptor::~RNBluetoothDescriptor() = default;

std::string RNBluetoothDescriptor::description() const {
    const Bytes bytes = value();
    return fmt::format("<descriptor {} {} bytes>", UUID(), bytes.size());
}

RNBluetoothCharacteristic::~RNBluetoothCharacteristic() = default;

std::string RNBluetoothCharacteristic::description() const {
    return fmt::format("<characteristic {}{}>", UUID(), isNotifying() ? " notifying" : "");
}

RNBluetoothService::~RNBluetoothService() = default;
RNBluetoothPeripheralDelegate::~RNBluetoothPeripheralDelegate() = default;
RNBluetoothPeripheral::~RNBluetoothPeripheral() = default;

const std::string& RNBluetoothPeripheral::hvIdentifier() {
    if (!hvIdentifier_) {
        hvIdentifier_ = identifier().value_or(MIDIInternals::randomUUIDString());
    }
    return *hvIdentifier_;
}

std::string RNBluetoothPeripheral::description() {
    return fmt::format("<peripheral \"{}\" {}>", name(), hvIdentifier());
}

std::string idFromParipheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral) {
    return peripheral ? peripheral->hvIdentifier() : std::string();
}

RNBluetoothCentralManagerDelegate::~RNBluetoothCentralManagerDelegate() = default;
RNBluetoothCentralManager::~RNBluetoothCentralManager() = default;
RNBluetoothPlatform::~RNBluetoothPlatform() = default;

std::shared_ptr<RNBluetoothPlatform> RNBluetoothPlatform::shared() {
    return platformSlot().get();
}

void RNBluetoothPlatform::setShared(std::shared_ptr<RNBluetoothPlatform> platform) {
    platformSlot().set(std::move(platform));
}

}  // namespace havrel
