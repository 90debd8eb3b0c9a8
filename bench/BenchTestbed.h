// The end-to-end benchmarks run themselves again inside a temporary folder
// under umockdev-wrapper, with stub tools first on PATH, and report how
// their cost grows with the machine; the pieces they share.
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
#include <map>
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

// Prints, after the table, each mode's 32-bus (4,064 devices) against its
// 8-bus (1,016 devices) run, for benchmarks whose arguments are
// "buses:N/factory:M": the growth (target at most 4.5x) and, where a limit
// is given, the large machine's time against it.
class ScalingReporter : public benchmark::ConsoleReporter {
public:
    explicit ScalingReporter(double largeLimitMs = 0) : largeLimitMs(largeLimitMs) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) continue;
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.run_type != Run::RT_Iteration && !median) continue;
            Times& t = times[Key(run.run_name.args)];
            if (t.fromMedian && !median) continue;
            t = Times{run.GetAdjustedRealTime(), run.GetAdjustedCPUTime(), median};  // in ms
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        for (const char* mode : {"0", "1"}) {
            const auto small = times.find(std::string("8/") + mode);
            const auto large = times.find(std::string("32/") + mode);
            if (small == times.end() || large == times.end()) continue;
            const double wallRatio = large->second.wall / small->second.wall;
            const double cpuRatio = large->second.cpu / small->second.cpu;
            std::printf("%-7s mode: 4064 devices %.1f ms wall, %.1f ms processor", mode[0] == '1' ? "factory" : "field",
                        large->second.wall, large->second.cpu);
            if (largeLimitMs > 0)
                std::printf(" (target <= %.0f ms: %s)", largeLimitMs, large->second.wall <= largeLimitMs ? "met" : "MISSED");
            std::printf("; 1016 devices %.1f ms wall, %.1f ms processor; ratio %.2f wall (target <= 4.5: %s), "
                        "%.2f processor\n",
                        small->second.wall, small->second.cpu, wallRatio, wallRatio <= 4.5 ? "met" : "MISSED", cpuRatio);
        }
    }

private:
    struct Times {
        double wall = 0, cpu = 0;
        bool fromMedian = false;
    };
    // "buses:8/factory:0" -> "8/0"
    static std::string Key(const std::string& args) {
        std::string key;
        bool inValue = false;
        for (char c : args) {
            if (c == ':') inValue = true;
            else if (c == '/') inValue = false, key += '/';
            else if (inValue) key += c;
        }
        return key;
    }
    double largeLimitMs;
    std::map<std::string, Times> times;
};

}  // namespace benchtestbed
