#include "platform/Thread.h"

#include <cxxabi.h>

// ---- Thread ----

Thread::~Thread() { delete manager; }

void Thread::start() {
    if (!manager) manager = ThreadPhoManager::Create(spawner);
    if (manager) manager->Execute(this);
}

void Thread::cancel() {
    if (manager) manager->Cancel();
}

void Thread::go() {
    run();
    finished = true;
}

void* spawner(void* thread) {
    static_cast<Thread*>(thread)->go();
    return nullptr;
}

// ---- ThreadPhoManager ----

void ThreadPhoManager::ThreadExitEvent(void*) {}

ThreadPhoManager* ThreadPhoManager::Create(ThreadFunction function) { return new ThreadPhoManagerLinux(function); }

bool ThreadPhoManager::Execute(void* threadArgument) {
    if (state != 0) return false;
    state = 1;
    return StartThread(threadArgument);
}

bool ThreadPhoManager::Cancel() {
    if (state == 0) return false;
    if (!CancelThread()) return false;
    state = 0;
    return true;
}

void ThreadPhoManager::WaitForCompletion() {
    if (state == 0 || GetAttr(Detached)) return;
    WaitForThreadCompletion();
    state = 0;
}

void ThreadPhoManager::SetAttr(int bit, bool on) {
    if (on)
        attributes |= bit;
    else
        attributes &= ~bit;
}

void* ThreadPhoManager::PhoWrapper(void* managerArgument) {
    ThreadPhoManager* self = static_cast<ThreadPhoManager*>(managerArgument);
    if (!self->function) return nullptr;
    self->state = 2;
    void* result = nullptr;
    try {
        result = self->function(self->argument);
    } catch (abi::__forced_unwind&) {
        // A cancel unwinds the thread; swallowing that would abort the process.
        throw;
    } catch (...) {
        result = nullptr;
    }
    self->state = 0;
    self->ThreadExitEvent(result);
    return result;
}

// ---- ThreadPhoManagerLinux ----

bool ThreadPhoManagerLinux::StartThread(void* threadArgument) {
    pthread_attr_t attr;
    bool haveAttr = false;
    bool ok = true;
    if (attributes != 0) {
        if (pthread_attr_init(&attr) != 0) {
            ok = false;
        } else {
            haveAttr = true;
            if (GetAttr(Detached) && pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED) != 0) ok = false;
        }
    }
    argument = threadArgument;
    bool created = false;
    if (function && ok) {
        pthread_t handle;
        created = pthread_create(&handle, haveAttr ? &attr : nullptr, &ThreadPhoManager::PhoWrapper, this) == 0;
        if (created) thread = handle;
    }
    if (haveAttr) pthread_attr_destroy(&attr);
    return created;
}

bool ThreadPhoManagerLinux::CancelThread() {
    // A manager whose start failed has no thread to cancel.
    if (!Created()) return false;
    return pthread_cancel(thread) == 0;
}

void ThreadPhoManagerLinux::WaitForThreadCompletion() {
    if (GetAttr(Detached) || !Created()) return;
    pthread_join(thread, nullptr);
}

void ThreadPhoManagerLinux::ThreadExitEvent(void* result) { pthread_exit(result); }

pthread_t GetThreadID() { return pthread_self(); }
