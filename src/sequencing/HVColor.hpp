#pragma once
// Display colours of sequences, with the hexadecimal text form in which they persist
// ("#B62F33"). Components run from 0 to 1; a colour is either red, green, blue and alpha, or a
// grey level and alpha.

#include <string>
#include <string_view>
#include <vector>

namespace havrel {

class HVColor {
public:
    HVColor() : HVColor(plainRed()) {}

    static HVColor rgba(double red, double green, double blue, double alpha = 1.0);
    static HVColor grey(double white, double alpha = 1.0);
    static HVColor plainRed() { return rgba(1.0, 0.0, 0.0, 1.0); }
    static HVColor white() { return rgba(1.0, 1.0, 1.0, 1.0); }

    static HVColor hx_colorWith8BitRed(int red, int green, int blue, double alpha = 1.0);
    // Alpha comes from the text when it carries one ("80FF0000", "8F00").
    static HVColor hx_colorWithHexString(std::string_view text);
    static HVColor hx_colorWithHexString(std::string_view text, double alpha);
    // Components uniform from 0 to 254, / 255; alpha 1.
    static HVColor randomColor();

    // "#RRGGBB", upper case; alpha plays no part.
    std::string hxValue() const;
    std::string hxValueNoPound() const;
    bool isEqualToColor(const HVColor& other) const { return hxValue() == other.hxValue(); }
    bool isColorBright() const;
    // Brightness + amount − 1, held within 0 to 1; an amount of 1 changes nothing.
    HVColor changeBrightness(double amount) const;

    const std::vector<double>& components() const { return components_; }
    bool operator==(const HVColor&) const = default;

private:
    explicit HVColor(std::vector<double> components) : components_(std::move(components)) {}
    std::vector<double> components_;
};

}  // namespace havrel
