// --kernel-paths on a fixture machine of today's kernels: the devices text and
// usbfs nodes come from fixture files and stand under /proc/bus/usb in the
// program's own mount namespace only.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <set>

#include "HostProgram.h"

namespace {

std::set<std::string> Listing(const std::string& folder) {
    std::set<std::string> names;
    if (DIR* dir = opendir(folder.c_str())) {
        while (dirent* entry = readdir(dir)) names.insert(entry->d_name);
        closedir(dir);
    }
    return names;
}

// Whether this process may make a mount namespace: tried in a child, so that
// this one keeps the machine's.
std::string NamespaceRefused() {
    if (geteuid() != 0) return "not root";
    const pid_t child = fork();
    if (child == 0) _exit(unshare(CLONE_NEWNS) == 0 ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "" : "unshare(CLONE_NEWNS) is refused here";
}

class KernelPaths : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string why = HostUnavailable();
        if (!why.empty()) GTEST_SKIP() << why;
        const std::string refused = NamespaceRefused();
        if (!refused.empty()) GTEST_SKIP() << "--kernel-paths cannot run: " << refused;
        // A copy, since the root hub probe opens the nodes for writing.
        machine = TemporaryFolder();
        const std::string copy =
            "cp -r '" + std::string(ZORBUS_SOURCE_DIR) + "/tests/fixtures/kernel_paths/.' '" + machine + "/'";
        ASSERT_EQ(std::system(copy.c_str()), 0);
        procBusBefore = Listing("/proc/bus");
    }
    void TearDown() override {
        if (!IsSkipped()) {
            EXPECT_EQ(Listing("/proc/bus"), procBusBefore) << "the machine's /proc/bus changed";
        }
    }
    HostRun Run(std::vector<std::string> args) const {
        HostCall call;
        call.args = {"--kernel-paths", "--devices-source", machine + "/debug/usb/devices", "--usbfs-source",
                     machine + "/dev/bus/usb"};
        call.args.insert(call.args.end(), args.begin(), args.end());
        return RunHost(call);
    }
    std::string machine;
    std::set<std::string> procBusBefore;
};

TEST_F(KernelPaths, DevicesTextAndNodesStandWhereTheComponentReads) {
    const HostRun run = Run({"id", "test", "usbDevice0", "rootHubTest", "test", "usbDevice2", "rootHubTest"});
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_EQ(run.out.find("kernel paths: /proc/bus/usb/devices <- " + machine + "/debug/usb/devices\n"
                           "kernel paths: /proc/bus/usb/BBB <- " + machine + "/dev/bus/usb/BBB (2 buses)\n"),
              0u)
        << run.out;
    EXPECT_NE(run.out.find("Discovered: 4 devices\n"), std::string::npos);
    EXPECT_NE(run.out.find("\nusbDevice2  USB Device 3  xHCI Host Controller\n"), std::string::npos);
    EXPECT_NE(run.out.find("\nusbDevice3  USB Device 4  SanDisk  Ultra Fit\n"), std::string::npos);
    EXPECT_NE(run.out.find("Result: rootHubTest on usbDevice0: passed"), std::string::npos);
    EXPECT_NE(run.out.find("Result: rootHubTest on usbDevice2: passed"), std::string::npos);
}

TEST_F(KernelPaths, WithoutTheFirstRootHubNodeTheRootHubTestFails) {
    ASSERT_EQ(std::system(("rm -r '" + machine + "/dev/bus/usb/001'").c_str()), 0);
    const HostRun run = Run({"id", "test", "usbDevice0", "rootHubTest", "retries=0"});
    EXPECT_EQ(run.status, 1) << run.out << run.err;
    EXPECT_NE(run.out.find("kernel paths: /proc/bus/usb/BBB <- " + machine + "/dev/bus/usb/BBB (1 bus)\n"),
              std::string::npos);
    EXPECT_NE(run.out.find("  error: Device, Unable to detect root hub, Ran on CPU "), std::string::npos) << run.out;

    ASSERT_EQ(std::system(("rm -r '" + machine + "/dev/bus/usb'").c_str()), 0);
    const HostRun none = Run({"id"});
    EXPECT_EQ(none.status, 0);
    EXPECT_NE(none.out.find("kernel paths: no usbfs nodes under " + machine +
                            "/dev/bus/usb: the root hub and port tests will not find them\n"),
              std::string::npos)
        << none.out;
}

TEST_F(KernelPaths, MissingRightsOrSourcesAreToldClearly) {
    HostCall missing;
    missing.args = {"--kernel-paths", "--devices-source", machine + "/no/devices", "id"};
    const HostRun noSource = RunHost(missing);
    EXPECT_EQ(noSource.status, 5);
    EXPECT_EQ(noSource.err, "zorbus-host: cannot read the devices text " + machine +
                                "/no/devices: No such file or directory\n");
    EXPECT_EQ(noSource.out, "");

    if (!OnPath("setpriv")) GTEST_SKIP() << "setpriv is not installed";
    HostCall unprivileged;
    unprivileged.prefix = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    unprivileged.args = {"--kernel-paths", "id"};
    unprivileged.folder = "/";
    const HostRun notRoot = RunHost(unprivileged);
    if (notRoot.status == 126 || notRoot.status == 127) GTEST_SKIP() << "nobody cannot start the program: " << notRoot.err;
    EXPECT_EQ(notRoot.status, 5) << notRoot.err;
    EXPECT_NE(notRoot.err.find("zorbus-host: --kernel-paths needs root"), std::string::npos) << notRoot.err;
}

}  // namespace
