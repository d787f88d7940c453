#pragma once
// Programming faults: the condition text is printed and the process ends. Never reachable from
// outside input; such input is refused with a log line instead.

#include <cstdio>
#include <cstdlib>

#define HV_ASSERT(condition)                                                              \
    do {                                                                                  \
        if (!(condition)) {                                                               \
            std::fprintf(stderr, "Assertion failed: %s (%s:%d)\n", #condition, __FILE__, \
                         __LINE__);                                                       \
            std::abort();                                                                 \
        }                                                                                 \
    } while (false)
