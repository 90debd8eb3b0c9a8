// A command's round trip through the entry points, beside a bare pugixml
// parse and serialise of the same command text in the same run. On a busy
// machine compare medians of interleaved runs:
//   bench_dispatch --benchmark_enable_random_interleaving=true --benchmark_repetitions=12
#include <benchmark/benchmark.h>

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

const char* const version = "<getDiagVersion component=\"libzorbus\"/>";
const char* const unknown = "<noSuchCommand component=\"libzorbus\"/>";

BENCHMARK_CAPTURE(bareParseAndSerialise, getDiagVersion, version);
BENCHMARK_CAPTURE(roundTrip, getDiagVersion, version);
BENCHMARK_CAPTURE(bareParseAndSerialise, unknownCommand, unknown);
BENCHMARK_CAPTURE(roundTrip, unknownCommand, unknown);

}  // namespace

BENCHMARK_MAIN();
