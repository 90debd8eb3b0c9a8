// --kernel-paths on a fixture machine of today's kernels: the devices text and
// usbfs nodes come from fixture files and stand under /proc/bus/usb in the
// program's own mount namespace only.
#include <sched.h>

#include <filesystem>

#include "HostProgram.h"

namespace {

std::string ProcBus() {
    std::string names;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/bus")) names += entry.path().string() + "\n";
    return names;
}

class KernelPaths : public ::testing::Test {
protected:
    void SetUp() override {
        if (!HostUnavailable().empty()) GTEST_SKIP() << HostUnavailable();
        // Tried in a child, so that this process keeps the machine's namespace.
        const pid_t child = fork();
        if (child == 0) _exit(unshare(CLONE_NEWNS) == 0 ? 0 : 1);
        int status = 0;
        waitpid(child, &status, 0);
        if (geteuid() != 0 || status != 0) GTEST_SKIP() << "no root, or unshare(CLONE_NEWNS) is refused here";
        // A copy, since the root hub probe opens the nodes for writing.
        std::filesystem::copy(ZORBUS_SOURCE_DIR "/tests/fixtures/kernel_paths", machine,
                              std::filesystem::copy_options::recursive);
        procBus = ProcBus();
    }
    void TearDown() override {
        if (!IsSkipped()) {
            EXPECT_EQ(ProcBus(), procBus) << "the machine's /proc/bus changed";
        }
    }
    HostRun Run(Args args) const {
        args.insert(args.begin(), {"--kernel-paths", "--devices-source", machine + "/debug/usb/devices",
                                   "--usbfs-source", machine + "/dev/bus/usb"});
        return RunHost(args);
    }
    const std::string machine = TemporaryFolder();
    std::string procBus;
};

}  // namespace

TEST_F(KernelPaths, DevicesTextAndNodesStandWhereTheComponentReadsThem) {
    const HostRun run = Run({"id", "test", "usbDevice0", "rootHubTest", "test", "usbDevice2", "rootHubTest"});
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_EQ(run.out.find("kernel paths: /proc/bus/usb/devices <- " + machine +
                           "/debug/usb/devices\n"
                           "kernel paths: /proc/bus/usb/BBB <- " +
                           machine + "/dev/bus/usb/BBB (2 buses)\n"),
              0u)
        << run.out;
    EXPECT_HAS(run.out, "Discovered: 4 devices\n", "\nusbDevice2  USB Device 3  xHCI Host Controller\n",
               "\nusbDevice3  USB Device 4  SanDisk  Ultra Fit\n", "PASS rootHubTest on usbDevice0: passed",
               "PASS rootHubTest on usbDevice2: passed");

    // Without the first root hub's node the root hub test fails.
    ASSERT_TRUE(std::filesystem::remove_all(machine + "/dev/bus/usb/001"));
    const HostRun failed = Run({"id", "test", "usbDevice0", "rootHubTest", "retries=0"});
    EXPECT_EQ(failed.status, 1) << failed.out << failed.err;
    EXPECT_HAS(failed.out, "kernel paths: /proc/bus/usb/BBB <- " + machine + "/dev/bus/usb/BBB (1 bus)\n",
               "  error: Device, Unable to detect root hub, Ran on CPU ");

    ASSERT_TRUE(std::filesystem::remove_all(machine + "/dev/bus/usb"));
    const HostRun none = Run({"id"});
    EXPECT_EQ(none.status, 0);
    EXPECT_HAS(none.out, "kernel paths: no usbfs nodes under " + machine +
                             "/dev/bus/usb: the root hub and port tests will not find them\n");
}

TEST_F(KernelPaths, MissingSourcesOrRightsAreToldClearly) {
    const HostRun noSource = RunHost({"--kernel-paths", "--devices-source", machine + "/no/devices", "id"});
    EXPECT_EQ(noSource.status, 5);
    EXPECT_EQ(noSource.err,
              "zorbus-host: cannot read the devices text " + machine + "/no/devices: No such file or directory\n");
    EXPECT_EQ(noSource.out, "");

    if (system("command -v setpriv >/dev/null") != 0) GTEST_SKIP() << "setpriv is not installed";
    const HostRun notRoot =
        RunHost({"--kernel-paths", "id"}, "", "setpriv --reuid=65534 --regid=65534 --clear-groups ", "/");
    if (notRoot.status == 126 || notRoot.status == 127) GTEST_SKIP() << "nobody cannot start the program";
    EXPECT_EQ(notRoot.status, 5) << notRoot.err;
    EXPECT_HAS(notRoot.err, "zorbus-host: --kernel-paths needs root");
}
