#include "transport/bluetooth/RNCentralBluetoothConnection.hpp"

#include "central/HVStringOperations.hpp"
#include "central/RNCentral.hpp"
#include "model/HVDictionaryReading.hpp"
#include "platform/HostPrompts.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "transport/bluetooth/RNBluetoothPlatform.hpp"
#include "transport/bluetooth/RNCentralBluetoothManager.hpp"

#include <algorithm>
#include <utility>

namespace havrel {

RNCentralBluetoothConnectionDelegate::~RNCentralBluetoothConnectionDelegate() = default;

std::shared_ptr<RNCentralBluetoothConnection> RNCentralBluetoothConnection::bluetoothConnection() {
    auto connection = std::make_shared<RNCentralBluetoothConnection>(Key{});
    std::weak_ptr<RNCentralBluetoothConnection> weak = connection;
    // The first chunk pushed into an idle queue starts the send loop, which drains it.
    connection->dataQueue_.observeHasData([weak](bool oldValue, bool) {
        if (!oldValue) {
            if (auto self = weak.lock()) {
                self->startSendingData();
            }
        }
    });
    // A link whose queue passes its bound ends as if the client had asked, in a turn of its own:
    // the push that overflowed is still under way.
    connection->dataQueue_.observeOverflow([weak] {
        MainQueue::shared().post([weak] {
            auto self = weak.lock();
            if (!self) {
                return;
            }
            if (auto target = self->delegate.lock()) {
                target->RNCentralBluetoothConnectionDidReceiveDisconnectRequest(*self);
            }
        });
    });
    return connection;
}

RNCentralBluetoothConnection::RNCentralBluetoothConnection(Key) {}

void RNCentralBluetoothConnection::setPeripheral(std::shared_ptr<RNBluetoothPeripheral> peripheral) {
    peripheral_ = std::move(peripheral);
    const auto length = peripheral_ ? peripheral_->maximumWriteValueLengthForType(CBCharacteristicWriteWithoutResponse)
                                    : std::nullopt;
    dataQueue_.setMaxDataChunkSize(length.value_or(RNBluetoothDataQueue::kMinimumChunkSize));
}

bool RNCentralBluetoothConnection::isConnected() const {
    return peripheral_ && peripheral_->state() == CBPeripheralStateConnected;
}

void RNCentralBluetoothConnection::startSendingData() {
    if (auto manager = bluetoothManager.lock()) {
        manager->sendData(*this);
    }
}

void RNCentralBluetoothConnection::isReceivingInData(ByteView value) {
    receive(value, isReceivingInData_, inData_, "in", &RNCentralBluetoothConnection::didFinishReceivingInData);
}

void RNCentralBluetoothConnection::isReceivingRealtimeData(ByteView value) {
    logDiag("Receiving realtime characteristics");
    receive(value, isReceivingRealtimeData_, realtimeData_, "realtime",
            &RNCentralBluetoothConnection::didFinishReceivingRealtimeData);
}

void RNCentralBluetoothConnection::receive(ByteView value, bool& isReceiving, Bytes& buffer,
                                           const char* characteristicName, Finish finish) {
    if (!isReceiving) {
        isReceiving = true;
        buffer.clear();
    }
    const ByteView marker = RNCentralBluetoothManager::endTransmissionDataPacket();
    const bool ends = value.size() >= marker.size() && std::equal(marker.begin(), marker.end(),
                                                                  value.end() - static_cast<std::ptrdiff_t>(marker.size()));
    const ByteView body = ends ? value.first(value.size() - marker.size()) : value;
    if (buffer.size() + body.size() > kRNBluetoothMaximumMessageSize) {
        logf("Bluetooth message on {} grew past {} bytes without an end marker \u2014 dropped", characteristicName,
             kRNBluetoothMaximumMessageSize);
        isReceiving = false;
        Bytes().swap(buffer);
        return;
    }
    buffer.insert(buffer.end(), body.begin(), body.end());
    if (ends) {
        // The finish may reset the manager, which drops this connection: keep it until done.
        const auto keep = shared_from_this();
        const Bytes message = buffer;
        (this->*finish)(message);
        isReceiving = false;
        Bytes().swap(buffer);
    }
}

void RNCentralBluetoothConnection::didFinishReceivingInData(ByteView message) {
    if (message.empty()) {
        return;
    }
    const auto delegateObject = delegate.lock();
    const std::uint8_t command = message[0];
    if (command == RNBluetoothCommandDisconnectRequest) {
        if (delegateObject) {
            delegateObject->RNCentralBluetoothConnectionDidReceiveDisconnectRequest(*this);
        }
        return;
    }
    const ByteView body = message.subspan(1);
    if (body.empty()) {
        return;
    }
    switch (command) {
    case RNBluetoothCommandClientData:
        handleClientData(body);
        break;
    case RNBluetoothCommandSyncData:
        if (delegateObject) {
            delegateObject->RNCentralBluetoothConnectionDidReceiveSyncData(*this, body);
        }
        break;
    case RNBluetoothCommandChangeData:
        if (delegateObject) {
            delegateObject->RNCentralBluetoothConnectionDidReceiveChangeData(*this, body);
        }
        break;
    case RNBluetoothCommandPureMIDIData:
        if (delegateObject) {
            delegateObject->RNCentralBluetoothConnectionDidReceivePureMIDIData(*this, body);
        }
        break;
    default:
        break;  // unknown commands are dropped
    }
}

void RNCentralBluetoothConnection::didFinishReceivingRealtimeData(ByteView message) {
    if (auto delegateObject = delegate.lock()) {
        delegateObject->RNCentralBluetoothConnectionDidReceiveRangeData(*this, message);
    }
}

void RNCentralBluetoothConnection::didReceiveProductTypeData(ByteView data) {
    productTypeName = std::string(data.begin(), data.end());
}

void RNCentralBluetoothConnection::didReceiveSceneSyncData(ByteView data) {
    if (auto delegateObject = delegate.lock()) {
        delegateObject->RNCentralBluetoothConnectionDidReceiveSyncData(*this, data);
    }
}

void RNCentralBluetoothConnection::handleClientData(ByteView data) {
    // Any JSON value parses; only an object describes a client.
    std::string error;
    const Dictionary dictionary = parseJSONFromOutside(data, "client handshake", &error);
    if (dictionary.is_discarded()) {
        logf("client handshake JSON was malformed ({}) \u2014 connection cannot complete", error);
        return;
    }
    if (!dictionary.is_object()) {
        logf("client handshake JSON was malformed (not a dictionary but {}) \u2014 connection cannot complete",
             dictionary.type_name());
        return;
    }
    if (introduced_) {
        if (!std::exchange(repeatLogged_, true)) {
            log("client handshake again on this link \u2014 only the first is acted on, later ones are dropped");
        }
        return;
    }
    const auto manager = bluetoothManager.lock();
    const auto apiVersion = dictionary.find("apiVersion");
    if (apiVersion != dictionary.end() && apiVersion->is_string() &&
        isNewerThanVersion(apiVersion->get_ref<const std::string&>(), kCentralAPIVersion)) {
        log("update needed!");
        introduced_ = true;
        if (manager) {
            manager->cleanup();
        }
        HostPrompts::shared()->showAlert("Update required.", kCentralUpdateRequiredText, "OK");
        return;
    }
    // The dictionary's "type" chooses the class; a client is expected to say "RNBluetoothClient".
    auto received = std::dynamic_pointer_cast<RNBluetoothClient>(RNClient::clientFromDictionary(dictionary));
    if (!received) {
        const auto type = dictionary.find("type");
        logf("client handshake of type {} is not a Bluetooth client \u2014 connection cannot complete",
             type == dictionary.end() ? std::string("(null)") : type->dump());
        return;
    }
    introduced_ = true;
    client = received;
    client->peripheral = peripheral_;
    if (manager) {
        manager->sendCentralMinApiVersionString(kCentralAPIVersion, peripheral_);
    }
    if (auto delegateObject = delegate.lock()) {
        delegateObject->RNCentralBluetoothConnectionDidReceiveClient(*this, client);
    }
}

}  // namespace havrel
