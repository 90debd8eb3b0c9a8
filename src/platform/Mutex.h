// A polling lock that gives up after a time-out, and a scope holder for it.
#pragma once

#include <pthread.h>

class Mutex {
public:
    pthread_mutex_t* handle;
    int lockLine;  // source line of the holder, 0 when free

    Mutex();
    // A new handle holding a byte copy of the other's mutex.
    Mutex(const Mutex& other);
    Mutex& operator=(const Mutex&) = delete;
    ~Mutex();

    // Tries seconds * 100 times, 10 ms apart; throws std::runtime_error when
    // every attempt failed. Zero seconds make no attempt at all.
    void Lock(unsigned int seconds, int line, const char* file);
    void Unlock();
};

class MutexLock {
public:
    Mutex* mutex;
    bool locked;

    MutexLock(Mutex& mutex, unsigned int seconds, int line);
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;
    ~MutexLock();

    // May be called early; only the first call has an effect.
    void Unlock();
};
