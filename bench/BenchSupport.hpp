#pragma once
// Pieces the benchmarks share: a log sink that drops what it is given (the lines are formatted
// all the same), and percentiles of a latency sample.

#include "platform/Log.hpp"

#include <string_view>
#include <vector>

namespace havrel::bench {

class DiscardingSink final : public LogSink {
public:
    void write(std::string_view line) override { lastSize_ = line.size(); }

private:
    volatile std::size_t lastSize_ = 0;
};

// The p-th percentile (0 to 1) of a sorted sample; 0 for none.
inline double percentile(const std::vector<double>& sorted, double p) {
    return sorted.empty() ? 0.0 : sorted[static_cast<std::size_t>(p * static_cast<double>(sorted.size() - 1))];
}

}  // namespace havrel::bench
