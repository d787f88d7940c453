#pragma once
// A set of the cases of a small enumeration (at most 32 cases, numbered from 0), as a bit mask:
// no heap, copied by value.

#include <cstdint>
#include <initializer_list>

namespace MIDICore {

template <class E>
class EnumSet {
public:
    constexpr EnumSet() = default;
    constexpr EnumSet(std::initializer_list<E> cases) {
        for (E value : cases) {
            insert(value);
        }
    }
    constexpr void insert(E value) { bits_ |= bit(value); }
    constexpr void remove(E value) { bits_ &= ~bit(value); }
    constexpr bool contains(E value) const { return (bits_ & bit(value)) != 0; }
    constexpr bool empty() const { return bits_ == 0; }
    constexpr std::uint32_t bits() const { return bits_; }
    friend constexpr bool operator==(const EnumSet&, const EnumSet&) = default;

private:
    static constexpr std::uint32_t bit(E value) { return std::uint32_t{1} << static_cast<unsigned>(value); }
    std::uint32_t bits_ = 0;
};

}  // namespace MIDICore
