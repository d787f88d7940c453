#include "central/HVConnectionTypeConfiguration.hpp"

#include <mutex>

namespace havrel {

namespace {

std::mutex currentMutex;
std::shared_ptr<HVConnectionTypeConfiguration> current;

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
    std::lock_guard lock(currentMutex);
    return current;
}

void HVConnectionTypeConfiguration::setAsCurrent() {
    auto self = shared_from_this();
    std::lock_guard lock(currentMutex);
    current = std::move(self);
}

}  // namespace havrel
