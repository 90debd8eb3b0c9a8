#include "tc/framework/ConcurrentPrompt.h"

#include <condition_variable>
#include <mutex>

#include "tc/framework/Test.h"

struct ConcurrentPrompt::ExitLatch {
    std::mutex mutex;
    std::condition_variable condition;
    bool exited = false;

    void Signal() {
        std::lock_guard<std::mutex> lock(mutex);
        exited = true;
        condition.notify_all();
    }
    void Wait() {
        std::unique_lock<std::mutex> lock(mutex);
        condition.wait(lock, [this] { return exited; });
    }
};

namespace {
// Lives in the prompt's thread. Thread-local objects are destroyed when the
// thread ends, after its body, the thread wrapper and pthread_exit have
// done with the prompt and its manager, so its signal is the last word of
// the thread about them.
struct ThreadExitNotice {
    std::shared_ptr<ConcurrentPrompt::ExitLatch> latch;
    ~ThreadExitNotice() {
        if (latch) latch->Signal();
    }
};
}  // namespace

ConcurrentPrompt::ConcurrentPrompt(Test* promptTest, const std::string& promptText,
                                   const std::vector<std::string>& promptOptions, const std::string& promptType,
                                   const std::string& promptWidth, const std::string& promptHeight)
    : test(promptTest),
      text(promptText),
      options(promptOptions),
      type(promptType),
      width(promptWidth),
      height(promptHeight),
      exitLatch(std::make_shared<ExitLatch>()) {}

ConcurrentPrompt::~ConcurrentPrompt() {
    const ThreadPhoManagerLinux* linuxManager = dynamic_cast<const ThreadPhoManagerLinux*>(manager);
    if (linuxManager && linuxManager->Created()) exitLatch->Wait();
}

void ConcurrentPrompt::run() {
    static thread_local ThreadExitNotice notice;
    notice.latch = exitLatch;
    response = test->PromptUser(text, options, type, width, height);
}
