#pragma once
// A property a fuzz target checks on what it read: a violation stops the run with a crash the
// fuzzer records, with the condition as its message.

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition)                                                   \
    do {                                                                        \
        if (!(condition)) {                                                     \
            std::fprintf(stderr, "fuzz property violated: %s\n", #condition);  \
            std::abort();                                                       \
        }                                                                       \
    } while (false)
