#include "model/HVUUID.hpp"

#include <cstdint>
#include <random>

namespace havrel {

std::string randomDecimalIdentifier() {
    thread_local std::mt19937 engine{std::random_device{}()};
    return std::to_string(static_cast<std::uint32_t>(engine()));
}

}  // namespace havrel
