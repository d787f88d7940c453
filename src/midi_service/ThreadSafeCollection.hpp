#pragma once
// A list of elements that any thread may append to and read a copy of.

#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

namespace havrel {

template <class Element>
class ThreadSafeCollection {
public:
    void append(Element element) {
        std::lock_guard lock(mutex_);
        elements_.push_back(std::move(element));
    }

    // A copy of the elements as they stand, in order of appending.
    std::vector<Element> elements() const {
        std::lock_guard lock(mutex_);
        return elements_;
    }

    std::size_t count() const {
        std::lock_guard lock(mutex_);
        return elements_.size();
    }

    void removeAll() {
        std::lock_guard lock(mutex_);
        elements_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::vector<Element> elements_;
};

}  // namespace havrel
