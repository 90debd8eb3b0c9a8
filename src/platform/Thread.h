// A small layer over operating system threads. A class derives from Thread
// to run its body on a thread of its own; ThreadPhoManager holds the
// platform-neutral state of one thread and ThreadPhoManagerLinux the POSIX
// calls.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

class ThreadPhoManager;

class Thread {
public:
    std::atomic<bool> finished{false};    // run() has returned normally
    ThreadPhoManager* manager = nullptr;  // owned; made by start()

    Thread() = default;
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    virtual void run() = 0;
    // Deletes the manager; neither cancels nor joins the thread.
    virtual ~Thread();

    // Starts the body on a new thread (detached unless the manager's
    // attributes say otherwise). A second call reuses the manager, which
    // refuses while a thread of it is still under way.
    void start();
    void cancel();
    // run(), then `finished`; an exception out of run() leaves it false.
    void go();
};

// The body of every Thread: go() on the given Thread.
void* spawner(void* thread);

class ThreadPhoManager {
public:
    enum { AllClear = 0, Detached = 1 };
    typedef void* (*ThreadFunction)(void*);

    ThreadFunction function;
    std::atomic<int32_t> state{0};  // 0 idle, 1 starting, 2 running
    void* argument = nullptr;
    int32_t attributes = Detached;

    explicit ThreadPhoManager(ThreadFunction function) : function(function) {}
    ThreadPhoManager(const ThreadPhoManager&) = delete;
    ThreadPhoManager& operator=(const ThreadPhoManager&) = delete;
    virtual ~ThreadPhoManager() = default;

    virtual bool StartThread(void* argument) = 0;
    virtual bool CancelThread() = 0;
    virtual void WaitForThreadCompletion() = 0;
    // Called last on the thread itself. Default implementation does nothing.
    virtual void ThreadExitEvent(void* result);

    // The platform's manager; the caller deletes it.
    static ThreadPhoManager* Create(ThreadFunction function);
    bool Execute(void* argument);
    bool Cancel();
    // Joins a joinable thread; a detached one cannot be waited for.
    void WaitForCompletion();
    int GetState() const { return state; }
    bool GetAttr(int bit) const { return (attributes & bit) != 0; }
    void SetAttr(int bit, bool on);

    // What the operating system thread runs.
    static void* PhoWrapper(void* manager);
};

class ThreadPhoManagerLinux : public ThreadPhoManager {
public:
    pthread_t thread{};  // stays zero until pthread_create succeeded

    explicit ThreadPhoManagerLinux(ThreadFunction function) : ThreadPhoManager(function) {}

    bool StartThread(void* argument) override;
    bool CancelThread() override;
    void WaitForThreadCompletion() override;
    void ThreadExitEvent(void* result) override;

    // Whether a thread was created. glibc's handles are never zero.
    bool Created() const { return thread != pthread_t(); }
};

pthread_t GetThreadID();
