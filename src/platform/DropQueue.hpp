#pragma once
// A bounded queue between threads that never waits: any number of threads put items in, one
// thread takes them out, and no lock is shared between them. A put into a full queue drops the
// item and counts it, so a producer on a time-critical path costs the same whether or not the
// consumer keeps up. Items are plain values copied into slots made once, at construction:
// nothing is allocated after it.
//
// Each slot carries a sequence number that tells producers and the consumer whose turn it is
// (the classic bounded ring with per-slot turns); the capacity is rounded up to a power of two.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

namespace havrel {

template <typename T>
class DropQueue {
    static_assert(std::is_trivially_copyable_v<T>, "items are copied into fixed slots");

public:
    explicit DropQueue(std::size_t capacity) : mask_(roundUp(capacity) - 1), slots_(new Slot[mask_ + 1]) {
        for (std::size_t i = 0; i <= mask_; ++i) {
            slots_[i].turn.store(i, std::memory_order_relaxed);
        }
    }
    DropQueue(const DropQueue&) = delete;
    DropQueue& operator=(const DropQueue&) = delete;

    std::size_t capacity() const { return mask_ + 1; }

    // Any thread. fill(T&) writes the item in its slot; false (and counted) when the queue is full.
    template <typename Fill>
    bool pushWith(Fill&& fill) {
        std::size_t position = tail_.load(std::memory_order_relaxed);
        for (;;) {
            Slot& slot = slots_[position & mask_];
            const std::size_t turn = slot.turn.load(std::memory_order_acquire);
            const auto difference = static_cast<std::ptrdiff_t>(turn) - static_cast<std::ptrdiff_t>(position);
            if (difference == 0) {
                if (tail_.compare_exchange_weak(position, position + 1, std::memory_order_relaxed)) {
                    fill(slot.value);
                    slot.turn.store(position + 1, std::memory_order_release);
                    return true;
                }
            } else if (difference < 0) {
                dropped_.fetch_add(1, std::memory_order_relaxed);
                return false;
            } else {
                position = tail_.load(std::memory_order_relaxed);
            }
        }
    }
    bool push(const T& item) {
        return pushWith([&](T& slot) { slot = item; });
    }

    // The consumer's thread only. The oldest item, or false when there is none ready.
    bool pop(T& item) {
        Slot& slot = slots_[head_ & mask_];
        if (slot.turn.load(std::memory_order_acquire) != head_ + 1) {
            return false;
        }
        item = slot.value;
        slot.turn.store(head_ + mask_ + 1, std::memory_order_release);
        ++head_;
        return true;
    }

    // Items dropped for a full queue, in all.
    std::uint64_t dropped() const { return dropped_.load(std::memory_order_relaxed); }

private:
    struct Slot {
        std::atomic<std::size_t> turn{0};
        T value{};
    };
    static std::size_t roundUp(std::size_t capacity) {
        std::size_t size = 2;
        while (size < capacity) {
            size <<= 1;
        }
        return size;
    }

    const std::size_t mask_;
    const std::unique_ptr<Slot[]> slots_;
    alignas(64) std::atomic<std::size_t> tail_{0};
    alignas(64) std::atomic<std::uint64_t> dropped_{0};
    alignas(64) std::size_t head_ = 0;
};

}  // namespace havrel
