// The read-back compare of the storage tests on a 256 MiB reference file on
// tmpfs, measured beside `cmp` of the same two files in the same run. The
// compare should take at most 1.3 times as long as cmp.
#include <benchmark/benchmark.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "tc/usb/linux/FileCompare.h"

namespace {

const size_t fileSize = size_t(256) << 20;

struct Files {
    std::string folder, reference, copy;
    Files() {
        const char* base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        std::string pattern = std::string(base) + "/zorbus-bench-XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        if (!mkdtemp(buffer.data())) std::abort();
        folder = buffer.data();
        reference = folder + "/SSO.DAT";
        copy = folder + "/drive";
        std::vector<char> data(fileSize);
        std::mt19937 random(7);
        for (size_t i = 0; i < data.size(); i += 4) {
            const uint32_t word = random();
            std::memcpy(&data[i], &word, 4);
        }
        for (const std::string& path : {reference, copy}) {
            std::ofstream out(path, std::ios::binary);
            out.write(data.data(), static_cast<std::streamsize>(data.size()));
        }
    }
    ~Files() {
        std::remove(reference.c_str());
        std::remove(copy.c_str());
        rmdir(folder.c_str());
    }
};

Files* files = nullptr;

void BM_CompareFileContents(benchmark::State& state) {
    for (auto _ : state) CompareFileContents(files->reference, files->copy, "bench", CompareSpan::whole);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * fileSize));
}

void BM_Cmp(benchmark::State& state) {
    for (auto _ : state) {
        const pid_t child = fork();
        if (child == 0) {
            execlp("cmp", "cmp", "-s", files->reference.c_str(), files->copy.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) state.SkipWithError("cmp failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * fileSize));
}

BENCHMARK(BM_CompareFileContents)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_Cmp)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

}  // namespace

int main(int argc, char** argv) {
    Files made;
    files = &made;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    files = nullptr;
    return 0;
}
