// A prompt on a thread of its own, so that a test can keep working while
// the question is open.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/Thread.h"

class Test;

class ConcurrentPrompt : public Thread {
public:
    std::atomic<int32_t> response{-1};  // the chosen position; valid once `finished`
    Test* test;                         // not owned
    std::string text;
    std::vector<std::string> options;
    std::string type;
    std::string width;
    std::string height;

    ConcurrentPrompt(Test* test, const std::string& text, const std::vector<std::string>& options,
                     const std::string& type, const std::string& width, const std::string& height);

    // Asks through the test's PromptUser and keeps the answer.
    void run() override;
    // Waits until the thread, if one was started, has ended: the thread
    // uses the test and this object up to its very last step.
    ~ConcurrentPrompt() override;

    // Signalled when the prompt's thread ends; shared with that thread.
    struct ExitLatch;

private:
    std::shared_ptr<ExitLatch> exitLatch;
};
