#include "MIDIInternals/PThreadRWLock.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace MIDIInternals {

const char* pthreadErrorName(int error) {
    switch (error) {
        case EAGAIN: return "EAGAIN";
        case EBUSY: return "EBUSY";
        case EDEADLK: return "EDEADLK";
        case EINVAL: return "EINVAL";
        case ENOMEM: return "ENOMEM";
        case EPERM: return "EPERM";
        default: return "<unknown>";
    }
}

std::string pthreadFailureText(const char* callText, int error) {
    char buffer[256];
    std::snprintf(buffer, sizeof buffer, "'%s' failed with error '%s'(%d)\n", callText,
                  pthreadErrorName(error), error);
    return buffer;
}

void checkPThreadCall(int result, const char* callText) {
    if (result == 0) {
        return;
    }
    std::fputs(pthreadFailureText(callText, result).c_str(), stderr);
    std::fflush(stderr);
    std::abort();
}

PThreadRWLock::PThreadRWLock() {
    MIDIINTERNALS_PTHREAD_CHECKED(pthread_rwlock_init(&rwlock, nullptr));
}

PThreadRWLock::~PThreadRWLock() {
    MIDIINTERNALS_PTHREAD_CHECKED(pthread_rwlock_destroy(&rwlock));
}

void PThreadRWLock::readLock() {
    MIDIINTERNALS_PTHREAD_CHECKED(pthread_rwlock_rdlock(&rwlock));
}

void PThreadRWLock::writeLock() {
    MIDIINTERNALS_PTHREAD_CHECKED(pthread_rwlock_wrlock(&rwlock));
}

bool PThreadRWLock::tryReadLock() {
    int result = pthread_rwlock_tryrdlock(&rwlock);
    if (result == EBUSY) {
        return false;
    }
    checkPThreadCall(result, "pthread_rwlock_tryrdlock(&rwlock)");
    return true;
}

bool PThreadRWLock::tryWriteLock() {
    int result = pthread_rwlock_trywrlock(&rwlock);
    if (result == EBUSY) {
        return false;
    }
    checkPThreadCall(result, "pthread_rwlock_trywrlock(&rwlock)");
    return true;
}

void PThreadRWLock::unlock() {
    MIDIINTERNALS_PTHREAD_CHECKED(pthread_rwlock_unlock(&rwlock));
}

}  // namespace MIDIInternals
