// The end-to-end benchmarks run themselves again inside a temporary folder
// under umockdev-wrapper, with stub tools first on PATH; the pieces they
// share.
#pragma once

#include <benchmark/benchmark.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace benchtestbed {

// Names the folder inside the run under the testbed.
inline const char* const folderVariable = "ZORBUS_BENCH_TESTBED";

inline bool UnderOwnTestbed() {
    const char* preload = getenv("LD_PRELOAD");
    return getenv(folderVariable) && preload && std::strstr(preload, "umockdev-preload");
}

// Writes the whole file or ends the benchmark: a half-made testbed would
// measure something else.
inline void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out) {
        std::fprintf(stderr, "cannot write %s\n", path.c_str());
        std::exit(1);
    }
}

// A stub tool that runs `body` and succeeds.
inline void MakeStub(const std::string& path, const std::string& body = "") {
    WriteFile(path, "#!/bin/sh\n" + body + "exit 0\n");
    chmod(path.c_str(), 0755);
}

// Runs this program again with its arguments, in folder/work under
// umockdev-wrapper over folder/testbed with folder/stubs first on PATH,
// then removes the folder; gives the run's exit status.
inline int RunInTestbed(const std::string& folder, char** argv) {
    char self[4096];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) return 1;
    self[length] = '\0';
    const std::string path = folder + "/stubs:" + (getenv("PATH") ? getenv("PATH") : "/usr/bin:/bin");

    const pid_t child = fork();
    if (child == 0) {
        if (chdir((folder + "/work").c_str()) != 0) _exit(126);
        setenv(folderVariable, folder.c_str(), 1);
        setenv("UMOCKDEV_DIR", (folder + "/testbed").c_str(), 1);
        setenv("PATH", path.c_str(), 1);
        std::vector<char*> args{const_cast<char*>("umockdev-wrapper"), self};
        for (char** a = argv + 1; *a; ++a) args.push_back(*a);
        args.push_back(nullptr);
        execvp("umockdev-wrapper", args.data());
        std::fprintf(stderr, "cannot start umockdev-wrapper: %s\n", std::strerror(errno));
        _exit(127);
    }
    int status = 1;
    if (child < 0 || waitpid(child, &status, 0) != child) status = 1 << 8;
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

}  // namespace benchtestbed
