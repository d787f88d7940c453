#include "central/HVConnectionTypeConfiguration.hpp"

#include "platform/SharedSlot.hpp"

namespace havrel {

namespace {

// Empty until a configuration is set as current.
SharedSlot<HVConnectionTypeConfiguration>& currentSlot() {
    static SharedSlot<HVConnectionTypeConfiguration> slot;
    return slot;
}

}  // namespace

std::shared_ptr<HVConnectionTypeConfiguration> HVConnectionTypeConfiguration::create() {
    return std::make_shared<HVConnectionTypeConfiguration>();
}

std::shared_ptr<HVConnectionTypeConfiguration> HVConnectionTypeConfiguration::defaultConfiguration() {
    auto configuration = create();
    configuration->usbEnabled = true;
    configuration->btEnabled = true;
    configuration->midiEnabled = true;
    configuration->vmEnabled = true;
    configuration->loggerEnabled = true;
    return configuration;
}

std::shared_ptr<HVConnectionTypeConfiguration> HVConnectionTypeConfiguration::currentConfiguration() {
    return currentSlot().get();
}

void HVConnectionTypeConfiguration::setAsCurrent() {
    currentSlot().set(shared_from_this());
}

}  // namespace havrel
