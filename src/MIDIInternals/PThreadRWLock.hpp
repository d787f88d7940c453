#pragma once
// A read-write lock over pthread_rwlock_t. Every pthread call is checked: a non-zero result is
// fatal, reported as "'<call>' failed with error '<EAGAIN|EBUSY|...>'(<number>)".

#include <pthread.h>

#include <string>

namespace MIDIInternals {

// The name of a pthread error number: "EAGAIN", "EBUSY", "EDEADLK", "EINVAL", "ENOMEM", "EPERM",
// or "<unknown>".
const char* pthreadErrorName(int error);
// The fatal text for a failed call, without the process ending; `checkPThreadCall` prints it.
std::string pthreadFailureText(const char* callText, int error);
// Ends the process with the failure text when `result` is not 0.
void checkPThreadCall(int result, const char* callText);

// Runs a pthread call and checks it, with the call's source text in the failure message.
#define MIDIINTERNALS_PTHREAD_CHECKED(call) ::MIDIInternals::checkPThreadCall((call), #call)

class PThreadRWLock {
public:
    PThreadRWLock();
    ~PThreadRWLock();
    PThreadRWLock(const PThreadRWLock&) = delete;
    PThreadRWLock& operator=(const PThreadRWLock&) = delete;

    void readLock();
    void writeLock();
    // True when the lock was taken; false when it is held elsewhere (EBUSY).
    bool tryReadLock();
    bool tryWriteLock();
    void unlock();

private:
    pthread_rwlock_t rwlock;
};

// Holds a read or a write lock for a scope.
class PThreadReadGuard {
public:
    explicit PThreadReadGuard(PThreadRWLock& lock) : lock_(lock) { lock_.readLock(); }
    ~PThreadReadGuard() { lock_.unlock(); }
    PThreadReadGuard(const PThreadReadGuard&) = delete;
    PThreadReadGuard& operator=(const PThreadReadGuard&) = delete;

private:
    PThreadRWLock& lock_;
};

class PThreadWriteGuard {
public:
    explicit PThreadWriteGuard(PThreadRWLock& lock) : lock_(lock) { lock_.writeLock(); }
    ~PThreadWriteGuard() { lock_.unlock(); }
    PThreadWriteGuard(const PThreadWriteGuard&) = delete;
    PThreadWriteGuard& operator=(const PThreadWriteGuard&) = delete;

private:
    PThreadRWLock& lock_;
};

}  // namespace MIDIInternals
