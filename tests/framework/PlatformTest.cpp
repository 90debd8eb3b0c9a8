// Threads, mutexes, library helpers and the host-service fallbacks.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <stdexcept>

#include "FrameworkSupport.h"
#include "platform/HostServices.h"
#include "platform/Mutex.h"
#include "platform/SystemHelpers.h"
#include "platform/Thread.h"

using fw::eventually;

namespace {

class Body : public Thread {
public:
    std::atomic<bool> ran{false}, exited{false};
    bool fail = false;
    void run() override {
        // Thread-local objects go after the thread wrapper is done with the
        // Thread and its manager: the flag tells the thread has really ended.
        struct ExitFlag {
            std::atomic<bool>* flag = nullptr;
            ~ExitFlag() { *flag = true; }
        };
        static thread_local ExitFlag exitFlag;
        exitFlag.flag = &exited;
        ran = true;
        if (fail) throw std::runtime_error("body failed");
    }
    ~Body() override { EXPECT_TRUE(eventually([this] { return exited.load(); })); }
};

TEST(Thread, DetachedStartAndAThrowingBody) {
    for (bool fail : {false, true}) {
        Body body;
        body.fail = fail;
        body.start();
        ASSERT_NE(body.manager, nullptr);
        EXPECT_TRUE(body.manager->GetAttr(ThreadPhoManager::Detached));
        body.manager->WaitForCompletion();  // returns at once
        EXPECT_TRUE(eventually([&] { return body.ran && body.manager->GetState() == 0; }));
        EXPECT_EQ(body.finished, !fail);
        EXPECT_FALSE(body.manager->Cancel());  // idle
    }
}

std::atomic<int> joinableRuns{0};

TEST(Thread, JoinableThreadIsWaitedForAndExecuteRefusesWhileBusy) {
    std::unique_ptr<ThreadPhoManager> manager(ThreadPhoManager::Create([](void*) -> void* {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return ++joinableRuns, nullptr;
    }));
    manager->SetAttr(ThreadPhoManager::Detached, false);
    ASSERT_TRUE(manager->Execute(nullptr));
    EXPECT_FALSE(manager->Execute(nullptr));
    manager->WaitForCompletion();
    EXPECT_EQ(joinableRuns, 1);
    EXPECT_EQ(manager->GetState(), 0);

    manager.reset(ThreadPhoManager::Create(nullptr));
    EXPECT_FALSE(manager->Execute(nullptr));
    EXPECT_EQ(manager->GetState(), 1);
    EXPECT_FALSE(manager->Cancel());  // no thread to cancel
}

TEST(Mutex, TimeOutsAndASingleUnlockOfTheHolder) {
    Mutex m;
    try {
        m.Lock(0, 12, "f.cpp");  // no attempt at all, even on a free mutex
        ADD_FAILURE() << "locked";
    } catch (std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Mutex Locking ErrorFile: f.cpp   Line: 12");
    }
    m.Lock(1, 20, nullptr);
    auto start = std::chrono::steady_clock::now();
    EXPECT_THROW(m.Lock(1, 21, nullptr), std::runtime_error);  // not recursive
    double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GT(waited, 0.9);
    EXPECT_LT(waited, 5.0);
    m.Unlock();
    {
        MutexLock lock(m, 1, 5);
        EXPECT_EQ(m.lockLine, 5);
        lock.Unlock();
        lock.Unlock();
        m.Lock(1, 6, nullptr);
    }  // the holder's destructor must not release our lock
    EXPECT_EQ(m.lockLine, 6);
    EXPECT_NE(pthread_mutex_trylock(m.handle), 0);
    m.Unlock();
    EXPECT_EQ(m.lockLine, 0);
}

TEST(SystemHelpers, LibraryNamesAndFileLocks) {
    const std::string longPath = "/" + std::string(300, 'd') + "/lib" + std::string(300, 'n') + ".so.2";
    const std::pair<std::string, std::string> names[] = {
        {"/usr/lib/libfoo.so.1", "foo"}, {"foo.so", "foo"}, {"bar", "bar"}, {"", ""}, {"/usr/lib/", ""},
        {"mylib.so", "mylib"}, {"lib/x.so/libz.sox", "z"}, {longPath, std::string(300, 'n')},
    };
    for (const auto& n : names) EXPECT_EQ(GetLibName(n.first.c_str()), n.second) << n.first;

    char path[] = "/tmp/zorbus-lockXXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "0123456789", 10), 10);
    ASSERT_EQ(lseek(fd, 3, SEEK_SET), 3);
    EXPECT_EQ(lockfile(fd), 0);
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 3);  // the position is kept
    EXPECT_EQ(unlockfile(fd), 0);
    close(fd);
    unlink(path);
}

TEST(HostServices, FallbacksDescribeThisProcess) {
    EXPECT_EQ(nvxIsFactory() + nvxIsDiagsCD(), 0);
    uint64_t mask = nvxGetCpuAvailMask();
    int cpu = nvxGetCurrentCPU();
    EXPECT_TRUE(cpu >= 64 || (mask & (uint64_t(1) << cpu)));
    EXPECT_EQ(nvxSetTaskAffinity(mask), 0);
    EXPECT_EQ(nvxGetCpuAvailMask(), mask);
}

}  // namespace
