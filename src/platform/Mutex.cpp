#include "platform/Mutex.h"

#include <cstring>
#include <stdexcept>

#include "common/StringUtil.h"
#include "common/TickTimer.h"

Mutex::Mutex() : handle(new pthread_mutex_t), lockLine(0) {
    std::memset(handle, 0, sizeof(*handle));
    if (pthread_mutex_init(handle, nullptr) != 0) {
        delete handle;
        handle = nullptr;
    }
}

Mutex::Mutex(const Mutex& other) : handle(nullptr), lockLine(other.lockLine) {
    if (other.handle) {
        handle = new pthread_mutex_t;
        std::memcpy(handle, other.handle, sizeof(*handle));
    }
}

Mutex::~Mutex() {
    if (!handle) return;
    pthread_mutex_destroy(handle);
    delete handle;
}

void Mutex::Lock(unsigned int seconds, int line, const char* file) {
    if (!handle) return;
    // Polling rather than pthread_mutex_timedlock keeps the time-out in
    // whole attempts, the same on every platform.
    const unsigned long long attempts = static_cast<unsigned long long>(seconds) * 100;
    for (unsigned long long i = 0; i < attempts; ++i) {
        if (pthread_mutex_trylock(handle) == 0) {
            lockLine = line;
            return;
        }
        SleepMS(10);
    }
    if (file) throw std::runtime_error(strprintf("Mutex Locking ErrorFile: %s   Line: %d", file, line));
    throw std::runtime_error(strprintf("Mutex Locking Error   Line: %d", line));
}

void Mutex::Unlock() {
    if (!handle) return;
    lockLine = 0;
    pthread_mutex_unlock(handle);
}

MutexLock::MutexLock(Mutex& m, unsigned int seconds, int line) : mutex(&m), locked(false) {
    m.Lock(seconds, line, nullptr);
    locked = true;
}

MutexLock::~MutexLock() { Unlock(); }

void MutexLock::Unlock() {
    if (!mutex || !locked) return;
    locked = false;
    mutex->Unlock();
}
