// A command's round trip through the entry points, beside a bare pugixml
// parse and serialise of the same command text in the same run. On a busy
// machine compare medians of interleaved runs:
//   bench_dispatch --benchmark_enable_random_interleaving=true --benchmark_repetitions=12
// Also the peak memory of the costliest command text accepted, against its
// size (target: at most 20 times).
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <pugixml.hpp>
#include <string>

#include "tc/frame/EntryPoints.h"

namespace {

char* dropEvent(const char*) { return nullptr; }

struct Component {
    Component() {
        Initialize("<init component=\"libzorbus\"/>");
        SetCallback(&dropEvent);
        FreeLastSetCallbackResult();
    }
    ~Component() { Uninitialize(nullptr); }
};

struct StringWriter : pugi::xml_writer {
    std::string text;
    void write(const void* data, size_t size) override { text.append(static_cast<const char*>(data), size); }
};

void bareParseAndSerialise(benchmark::State& state, const char* command) {
    for (auto _ : state) {
        pugi::xml_document doc;
        doc.load_string(command);
        StringWriter out;
        doc.save(out, "", pugi::format_raw | pugi::format_no_declaration);
        benchmark::DoNotOptimize(out.text);
    }
}

void roundTrip(benchmark::State& state, const char* command) {
    static Component component;
    for (auto _ : state) {
        char* answer = ExecuteXMLCommand(command);
        benchmark::DoNotOptimize(answer);
        FreeLastExecuteXMLCommandResult();
    }
}

// 16 MiB, the most a command may be: nearly as many empty elements with text
// between them and as many attributes as are accepted, the rest one long
// value; a run command, so that the whole element is converted too.
std::string CostliestAcceptedCommand() {
    const size_t limit = 16u << 20;
    std::string text = "<runTest device=\"usbDevice0\" test=\"rootHubTest\"";
    for (int i = 0; i < 1048000; ++i) text += " b" + std::to_string(i) + "=\"\"";
    std::string elements = "\">";
    for (int i = 0; i < 524000; ++i) elements += "<a/>x";
    elements += "</runTest>";
    text += " pad=\"" + std::string(limit - text.size() - 6 - elements.size(), 'p') + elements;
    return text;
}

// Peak resident memory a command adds, over its size; each in a fresh
// process, since the peak of a process never goes down.
void PeakMemoryOfTheCostliestCommand(benchmark::State& state) {
    static const std::string text = CostliestAcceptedCommand();
    double ratio = 0;
    for (auto _ : state) {
        int pipeFds[2];
        if (pipe(pipeFds) != 0) state.SkipWithError("pipe");
        const pid_t child = fork();
        if (child == 0) {
            Component component;
            rusage before{}, after{};
            getrusage(RUSAGE_SELF, &before);
            ExecuteXMLCommand(text.c_str());
            getrusage(RUSAGE_SELF, &after);
            const double grown = 1024.0 * static_cast<double>(after.ru_maxrss - before.ru_maxrss) / text.size();
            _exit(write(pipeFds[1], &grown, sizeof grown) == sizeof grown ? 0 : 1);
        }
        close(pipeFds[1]);
        if (read(pipeFds[0], &ratio, sizeof ratio) != sizeof ratio) state.SkipWithError("no figure from the child");
        close(pipeFds[0]);
        waitpid(child, nullptr, 0);
    }
    state.counters["bytes"] = static_cast<double>(text.size());
    state.counters["peak_per_byte"] = ratio;
    state.counters["target"] = 20;
}

const char* const version = "<getDiagVersion component=\"libzorbus\"/>";
const char* const unknown = "<noSuchCommand component=\"libzorbus\"/>";

BENCHMARK_CAPTURE(bareParseAndSerialise, getDiagVersion, version);
BENCHMARK_CAPTURE(roundTrip, getDiagVersion, version);
BENCHMARK_CAPTURE(bareParseAndSerialise, unknownCommand, unknown);
BENCHMARK_CAPTURE(roundTrip, unknownCommand, unknown);
BENCHMARK(PeakMemoryOfTheCostliestCommand)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
