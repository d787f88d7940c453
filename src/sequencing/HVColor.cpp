#include "sequencing/HVColor.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>

namespace havrel {

HVColor HVColor::rgba(double red, double green, double blue, double alpha) {
    return HVColor({red, green, blue, alpha});
}

HVColor HVColor::grey(double white, double alpha) {
    return HVColor({white, alpha});
}

HVColor HVColor::hx_colorWith8BitRed(int red, int green, int blue, double alpha) {
    return rgba(red / 255.0, green / 255.0, blue / 255.0, alpha);
}

namespace {

std::string withPound(std::string_view text) {
    std::string result(text);
    if (result.empty() || result.front() != '#') {
        result.insert(result.begin(), '#');
    }
    return result;
}

// A digit pair scanned as hexadecimal; 0 when it does not scan.
int scanPair(std::string_view pair) {
    int value = 0;
    for (char c : pair) {
        int digit;
        if (c >= '0' && c <= '9') {
            digit = c - '0';
        } else if (c >= 'a' && c <= 'f') {
            digit = c - 'a' + 10;
        } else if (c >= 'A' && c <= 'F') {
            digit = c - 'A' + 10;
        } else {
            return 0;
        }
        value = value * 16 + digit;
    }
    return value;
}

}  // namespace

HVColor HVColor::hx_colorWithHexString(std::string_view text) {
    std::string colour = withPound(text);
    double alpha = 1.0;
    if (colour.size() == 5 || colour.size() == 9) {
        const std::size_t digits = colour.size() == 5 ? 1 : 2;
        std::string alphaText = colour.substr(1, digits);
        if (digits == 1) {
            alphaText += alphaText;
        }
        alpha = scanPair(alphaText) / 255.0;
        colour = "#" + colour.substr(1 + digits);
    }
    return hx_colorWithHexString(colour, alpha);
}

HVColor HVColor::hx_colorWithHexString(std::string_view text, double alpha) {
    if (text.empty()) {
        return white();
    }
    std::string colour = withPound(text);
    if (colour.size() != 7 && colour.size() != 4) {
        return white();
    }
    if (colour.size() == 4) {
        colour = std::string{'#', colour[1], colour[1], colour[2], colour[2], colour[3], colour[3]};
    }
    const std::string_view digits(colour);
    return hx_colorWith8BitRed(scanPair(digits.substr(1, 2)), scanPair(digits.substr(3, 2)),
                               scanPair(digits.substr(5, 2)), alpha);
}

HVColor HVColor::randomColor() {
    static thread_local std::mt19937 generator{std::random_device{}()};
    std::uniform_int_distribution<int> component(0, 254);
    return hx_colorWith8BitRed(component(generator), component(generator), component(generator));
}

std::string HVColor::hxValue() const {
    double red = 0, green = 0, blue = 0;
    if (components_.size() >= 3) {
        red = components_[0];
        green = components_[1];
        blue = components_[2];
    } else if (!components_.empty()) {
        red = green = blue = components_[0];
    }
    auto byte = [](double component) {
        const double scaled = std::round(component * 255.0);
        return static_cast<long>(std::isfinite(scaled) ? std::clamp(scaled, 0.0, 255.0) : 0.0);
    };
    return fmt::format("#{:02X}{:02X}{:02X}", byte(red), byte(green), byte(blue));
}

std::string HVColor::hxValueNoPound() const {
    return hxValue().substr(1);
}

bool HVColor::isColorBright() const {
    if (components_.size() != 4) {
        return false;
    }
    if (components_[3] < 0.5) {
        return false;
    }
    return (components_[0] * 299 + components_[1] * 587 + components_[2] * 114) / 1000 >= 0.5;
}

HVColor HVColor::changeBrightness(double amount) const {
    double red, green, blue, alpha;
    if (components_.size() == 4) {
        red = components_[0];
        green = components_[1];
        blue = components_[2];
        alpha = components_[3];
    } else {
        red = green = blue = components_.empty() ? 0.0 : components_[0];
        alpha = components_.size() == 2 ? components_[1] : 1.0;
    }
    // Hue, saturation and brightness of the colour.
    const double maximum = std::max({red, green, blue});
    const double minimum = std::min({red, green, blue});
    const double delta = maximum - minimum;
    double hue = 0.0;
    if (delta > 0) {
        if (maximum == red) {
            hue = std::fmod((green - blue) / delta, 6.0);
        } else if (maximum == green) {
            hue = (blue - red) / delta + 2.0;
        } else {
            hue = (red - green) / delta + 4.0;
        }
        hue /= 6.0;
        if (hue < 0) {
            hue += 1.0;
        }
    }
    const double saturation = maximum > 0 ? delta / maximum : 0.0;
    const double brightness = std::clamp(maximum + amount - 1.0, 0.0, 1.0);
    // Back to red, green and blue.
    const double sector = hue * 6.0;
    const int index = static_cast<int>(std::floor(sector)) % 6;
    const double fraction = sector - std::floor(sector);
    const double p = brightness * (1 - saturation);
    const double q = brightness * (1 - saturation * fraction);
    const double t = brightness * (1 - saturation * (1 - fraction));
    switch (index) {
        case 0: return rgba(brightness, t, p, alpha);
        case 1: return rgba(q, brightness, p, alpha);
        case 2: return rgba(p, brightness, t, alpha);
        case 3: return rgba(p, q, brightness, alpha);
        case 4: return rgba(t, p, brightness, alpha);
        default: return rgba(brightness, p, q, alpha);
    }
}

}  // namespace havrel
