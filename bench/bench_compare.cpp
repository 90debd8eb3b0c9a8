// The read-back compare of the storage tests, and the whole drive cycle of
// the file write compare test (save, write, read-back compare, restore,
// verify), each measured beside `cmp` of the same two files in the same run,
// with their repetitions interleaved. Files live on /dev/shm (tmpfs) where
// it can be written, so that the disk under /tmp does not set the pace.
//   - compare of a 256 MiB reference: at most 1.3 times cmp;
//   - cycle of a 64 MiB reference on a file standing in for the drive: at
//     most 4 times cmp (the cycle reads and writes the region several times),
//     and its peak memory, measured in a process of its own, under 16 MiB.
// Beside them, what the cycle's saved copy costs the file system alone: a
// new 64 MiB file filled and removed (cmp makes no file).
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tc/usb/linux/storage/DriveCycle.h"
#include "tc/usb/linux/storage/FileCompare.h"

namespace {

const size_t compareSize = size_t(256) << 20;
const size_t cycleSize = size_t(64) << 20;
const size_t smallCycleSize = size_t(1) << 20;
const size_t driveTail = size_t(1) << 20;  // the drive is longer than the reference

// Writes `size` bytes of a fixed random stream, in pieces; the byte at
// `flip` (if inside) is changed. Returns false when the file is not whole.
bool WriteStream(const std::string& path, size_t size, size_t flip = SIZE_MAX) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    std::mt19937 random(7);
    std::vector<uint32_t> piece(1 << 18);
    bool whole = true;
    for (size_t done = 0; done < size && whole;) {
        for (uint32_t& word : piece) word = random();
        char* bytes = reinterpret_cast<char*>(piece.data());
        const size_t n = std::min(piece.size() * 4, size - done);
        if (flip >= done && flip < done + n) bytes[flip - done] ^= 0x5a;
        whole = write(fd, bytes, n) == static_cast<ssize_t>(n);
        done += n;
    }
    return close(fd) == 0 && whole;
}

struct Files {
    std::string folder;
    Files() {
        const char* base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        std::string pattern = std::string(base) + "/zorbus-bench-XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        if (!mkdtemp(buffer.data())) std::abort();
        folder = buffer.data();
        // The compare's two equal files; the cycle's reference, and its drive
        // that differs in the region's last byte (so cmp reads all of both and
        // the restore has a byte to put back), for two reference lengths.
        if (!WriteStream(Path("SSO.DAT"), compareSize) || !WriteStream(Path("copy"), compareSize) ||
            !WriteStream(Path("ref64"), cycleSize) ||
            !WriteStream(Path("drive64"), cycleSize + driveTail, cycleSize - 1) ||
            !WriteStream(Path("ref1"), smallCycleSize) ||
            !WriteStream(Path("drive1"), smallCycleSize + driveTail, smallCycleSize - 1))
            std::abort();
    }
    ~Files() {
        for (const char* name : {"SSO.DAT", "copy", "ref64", "drive64", "ref1", "drive1"}) unlink(Path(name).c_str());
        rmdir(folder.c_str());
    }
    std::string Path(const std::string& name) const { return folder + "/" + name; }
};

Files* files = nullptr;

// One drive's try as the test makes it; false when any step fails or the
// drive does not end as it began.
bool RunCycle(const std::string& folder, const std::string& reference, const std::string& drive) {
    try {
        DriveCycle cycle(reference, drive, "BENCH0001", folder, "bench");
        cycle.Claim();
        cycle.Save();
        if (!cycle.Write()) return false;
        if (!cycle.ReadsBackAsReference()) CompareFileContents(reference, drive, "bench", CompareSpan::firstLength);
        cycle.Restore();
        return true;
    } catch (...) {
        return false;
    }
}

// cmp's exit status for the two files, over `bytes` when not zero.
int Cmp(const std::string& a, const std::string& b, size_t bytes = 0) {
    const pid_t child = fork();
    if (child == 0) {
        const std::string limit = std::to_string(bytes);
        if (bytes)
            execlp("cmp", "cmp", "-s", "-n", limit.c_str(), a.c_str(), b.c_str(), static_cast<char*>(nullptr));
        else
            execlp("cmp", "cmp", "-s", a.c_str(), b.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void BM_CompareFileContents(benchmark::State& state) {
    for (auto _ : state) CompareFileContents(files->Path("SSO.DAT"), files->Path("copy"), "bench", CompareSpan::whole);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * compareSize));
}

void BM_CmpCompareFiles(benchmark::State& state) {
    for (auto _ : state)
        if (Cmp(files->Path("SSO.DAT"), files->Path("copy")) != 0) state.SkipWithError("cmp failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * compareSize));
}

void BM_DriveCycle(benchmark::State& state) {
    for (auto _ : state)
        if (!RunCycle(files->folder, files->Path("ref64"), files->Path("drive64"))) state.SkipWithError("cycle failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * cycleSize));
}

void BM_CmpCycleFiles(benchmark::State& state) {
    // The region's last byte differs: cmp reads everything, then answers 1.
    for (auto _ : state)
        if (Cmp(files->Path("ref64"), files->Path("drive64"), cycleSize) != 1) state.SkipWithError("cmp failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * cycleSize));
}

void BM_NewFileOfTheRegion(benchmark::State& state) {
    std::vector<char> chunk(size_t(1) << 20, 's');
    const std::string path = files->Path("new");
    for (auto _ : state) {
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0 || fallocate(fd, 0, 0, static_cast<off_t>(cycleSize)) != 0) state.SkipWithError("no file");
        const ssize_t whole = static_cast<ssize_t>(chunk.size());
        for (size_t done = 0; done < cycleSize; done += chunk.size())
            if (write(fd, chunk.data(), chunk.size()) != whole) state.SkipWithError("write");
        fsync(fd);
        close(fd);
        unlink(path.c_str());
    }
}

BENCHMARK(BM_CompareFileContents)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0)->Repetitions(5);
BENCHMARK(BM_CmpCompareFiles)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0)->Repetitions(5);
BENCHMARK(BM_DriveCycle)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0)->Repetitions(5);
BENCHMARK(BM_CmpCycleFiles)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0)->Repetitions(5);
BENCHMARK(BM_NewFileOfTheRegion)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0)->Repetitions(5);

// The table, then each pair's ratio of median wall times against its target.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs)
            if (!run.error_occurred && run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
                medians[run.run_name.function_name] = run.GetAdjustedRealTime();
        ConsoleReporter::ReportRuns(runs);
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        Ratio("compare (256 MiB)", "BM_CompareFileContents", "BM_CmpCompareFiles", 1.3);
        Ratio("drive cycle (64 MiB)", "BM_DriveCycle", "BM_CmpCycleFiles", 4.0);
        if (medians.count("BM_NewFileOfTheRegion") && medians.count("BM_DriveCycle"))
            std::printf("of the cycle, a new 64 MiB file filled and removed on this file system: %.1f ms\n",
                        medians["BM_NewFileOfTheRegion"]);
    }

private:
    void Ratio(const char* what, const char* ours, const char* cmp, double target) {
        if (!medians.count(ours) || !medians.count(cmp)) return;
        const double ratio = medians[ours] / medians[cmp];
        std::printf("%s: %.1f ms beside cmp %.1f ms, ratio %.2f (target <= %.1f: %s)\n", what, medians[ours],
                    medians[cmp], ratio, target, ratio <= target ? "met" : "MISSED");
    }
    std::map<std::string, double> medians;
};

// Peak resident memory (MiB) of a fresh process of this program that runs
// one cycle; negative when the cycle failed.
double CyclePeak(const std::string& reference, const std::string& drive) {
    char self[4096];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) return -1;
    self[length] = '\0';
    const pid_t child = fork();
    if (child == 0) {
        execl(self, self, "--one-cycle", files->folder.c_str(), reference.c_str(), drive.c_str(),
              static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return -1;
    return usage.ru_maxrss / 1024.0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 5 && std::strcmp(argv[1], "--one-cycle") == 0) return RunCycle(argv[2], argv[3], argv[4]) ? 0 : 1;
    Files made;
    files = &made;
    // Repetitions of the benchmarks alternate, so that a busy moment of the
    // machine meets both sides of a ratio.
    std::vector<char*> args(argv, argv + argc);
    std::string interleave = "--benchmark_enable_random_interleaving=true";
    args.insert(args.begin() + 1, &interleave[0]);
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    const double peak = CyclePeak(made.Path("ref64"), made.Path("drive64"));
    const double small = CyclePeak(made.Path("ref1"), made.Path("drive1"));
    std::printf("peak memory of one drive cycle: %.1f MiB for a 64 MiB reference (target < 16: %s), "
                "%.1f MiB for 1 MiB\n",
                peak, peak >= 0 && peak < 16 ? "met" : "MISSED", small);
    files = nullptr;
    return 0;
}
