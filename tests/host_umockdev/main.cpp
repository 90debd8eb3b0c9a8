// One program, two roles: the GoogleTest program that builds fake machines
// and checks what a host sees, and (with --host-session) the host process
// that the tests start under umockdev-wrapper for each session.
#include <gtest/gtest.h>

#include <cstring>

#include "HostSession.h"

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], "--host-session") == 0) return RunHostSession(argv[2], argv[3]);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
