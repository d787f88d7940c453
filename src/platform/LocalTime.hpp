#pragma once
// The local wall-clock time of day as people read it in a list: "HH:MM:SS".

#include <fmt/chrono.h>

#include <ctime>
#include <string>

namespace havrel {

inline std::string localTimeOfDay() { return fmt::format("{:%H:%M:%S}", fmt::localtime(std::time(nullptr))); }

}  // namespace havrel
