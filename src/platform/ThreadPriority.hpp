#pragma once
// Real-time scheduling for the threads whose timing is the product: the musical clock and the
// gesture scheduler.

#include <string>

namespace havrel {

// Puts the calling thread under the round-robin real-time policy at a middle priority. Returns
// an empty string on success, else why the system refused (for one log line).
std::string raiseCurrentThreadToRealTimePriority();

}  // namespace havrel
