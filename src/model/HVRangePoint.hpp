#pragma once
// A position in a range container's space: one value per axis the container follows. Up to two
// values (every one-axis and two-axis control) are kept inside the object, so that accepting a
// position and posting its change need no heap work; more go to the heap.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

namespace havrel {

class HVRangePoint {
public:
    static constexpr std::size_t kInlineCount = 2;

    HVRangePoint() = default;
    HVRangePoint(std::initializer_list<double> values) : HVRangePoint(std::span<const double>(values.begin(), values.size())) {}
    HVRangePoint(const std::vector<double>& values) : HVRangePoint(std::span<const double>(values)) {}
    explicit HVRangePoint(std::span<const double> values) { assign(values); }

    void assign(std::span<const double> values) {
        size_ = values.size();
        if (size_ <= kInlineCount) {
            heap_.clear();
            std::copy(values.begin(), values.end(), inline_.begin());
        } else {
            heap_.assign(values.begin(), values.end());
        }
    }

    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    const double* data() const { return size_ <= kInlineCount ? inline_.data() : heap_.data(); }
    const double* begin() const { return data(); }
    const double* end() const { return data() + size_; }
    double operator[](std::size_t index) const { return data()[index]; }
    double front() const { return data()[0]; }
    std::span<const double> span() const { return {data(), size_}; }
    std::vector<double> toVector() const { return {begin(), end()}; }

    friend bool operator==(const HVRangePoint& a, const HVRangePoint& b) {
        return a.size_ == b.size_ && std::equal(a.begin(), a.end(), b.begin());
    }

private:
    std::array<double, kInlineCount> inline_{};
    std::vector<double> heap_;
    std::size_t size_ = 0;
};

}  // namespace havrel
