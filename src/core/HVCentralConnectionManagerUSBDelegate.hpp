#pragma once
// What the host hears of USB clients from the client registry: a client accepted, a client
// gone, a client refused. Called on the main queue.

#include <memory>

namespace havrel {

class HVCentralConnectionManager;
class RNClient;

class HVCentralConnectionManagerUSBDelegate {
public:
    virtual ~HVCentralConnectionManagerUSBDelegate() = default;

    virtual void HVCentralConnectionManagerDidConnectToUSBClient(HVCentralConnectionManager* manager,
                                                                 const std::shared_ptr<RNClient>& client) = 0;
    // client is nullptr when the device that left had no record.
    virtual void HVCentralConnectionManagerDidDisconnectFromUSBClient(HVCentralConnectionManager* manager,
                                                                      const std::shared_ptr<RNClient>& client) = 0;
    // A client too new for this Central, or one whose first frame did not describe it.
    virtual void HVCentralConnectionManagerDidRefuseToConnectUSBClient(HVCentralConnectionManager* manager,
                                                                       const std::shared_ptr<RNClient>& client) = 0;
};

}  // namespace havrel
