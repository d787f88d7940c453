#pragma once
// Global operator new, counted: a benchmark linked with havrel_bench_allocations reads how many
// heap allocations its loop made.

#include <cstddef>

namespace havrel::bench {

// Allocations through global operator new since the program started, on every thread.
std::size_t allocationCount();

}  // namespace havrel::bench
