#pragma once
// The local wall-clock time of day as people read it in a list: "HH:MM:SS".

#include <ctime>
#include <string>

namespace havrel {

inline std::string localTimeOfDay() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    char text[16];
    return std::string(text, std::strftime(text, sizeof text, "%H:%M:%S", &local));
}

}  // namespace havrel
