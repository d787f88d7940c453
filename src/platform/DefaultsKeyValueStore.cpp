#include "platform/DefaultsKeyValueStore.hpp"

#include "platform/DefaultsStore.hpp"

namespace havrel {

bool DefaultsKeyValueStore::contains(const std::string& key) const { return DefaultsStore::standard()->contains(key); }

std::optional<std::int64_t> DefaultsKeyValueStore::integer(const std::string& key) const {
    return DefaultsStore::standard()->integer(key);
}

void DefaultsKeyValueStore::setInteger(const std::string& key, std::int64_t value) {
    DefaultsStore::standard()->set(key, value);
}

void DefaultsKeyValueStore::remove(const std::string& key) { DefaultsStore::standard()->remove(key); }

}  // namespace havrel
