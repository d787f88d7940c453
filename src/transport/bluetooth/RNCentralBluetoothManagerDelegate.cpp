#include "transport/bluetooth/RNCentralBluetoothManagerDelegate.hpp"

namespace havrel {

RNCentralBluetoothManagerDelegate::~RNCentralBluetoothManagerDelegate() = default;

}  // namespace havrel
