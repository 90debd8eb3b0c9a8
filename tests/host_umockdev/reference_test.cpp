// Discovery's outputs held byte for byte to references recorded from an
// earlier build: the answers and events of two identifications, the
// "devices" file and the "bang1.txt" trace. On every fixture machine the
// references are kept whole beside the fixture; on the generated largest
// machines (1,016 and 4,064 devices) as SHA-256 sums in
// tests/fixtures/largest/reference.txt. Both roads, both modes.
//
// A deliberate change of output is recorded anew with the variable
// ZORBUS_WRITE_REFERENCES set, running this program alone (not under ctest
// -j, which would write the sums file from two processes).
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "Host.h"
#include "fixtures/largest/LargestMachines.h"

namespace {

const std::string tests = std::string(ZORBUS_SOURCE_DIR) + "/tests/";

enum class Road { devicesFile, lsusb };

struct Machine {
    const char* name;
    Road road;
    const char* fixture;  // folder under tests/fixtures copied whole, or empty
    const char* text;     // under tests/: the kernel's devices file or lsusb's output; empty: the fixture's own
    const char* stem;     // under tests/: reference file name up to the mode
    int buses;            // a generated largest machine when not 0
};

struct Case {
    Machine machine;
    bool factory;
};

void PrintTo(const Case& c, std::ostream* out) { *out << c.machine.name << (c.factory ? " factory" : " field"); }

bool Writing() { return std::getenv("ZORBUS_WRITE_REFERENCES") != nullptr; }

std::string Mode(bool factory) { return factory ? "factory" : "field"; }

struct Outputs {
    std::vector<std::string> ids;  // per identification: its answer and events
    std::string devices, trace;
};

// The machine in a fresh host: mode, identifications, then what the working
// directory holds. False when this machine's own files would show through.
bool Discover(const Case& c, int identifications, Outputs& out) {
    const Machine& m = c.machine;
    FakeMachine machine(m.fixture);
    const std::string text = m.buses
                                 ? (m.road == Road::lsusb ? largest::LsusbText(m.buses) : largest::DevicesFile(m.buses))
                             : *m.text ? ReadText(tests + m.text)
                                       : "";
    EXPECT_TRUE(!text.empty() || (!*m.text && !m.buses)) << "no text for " << m.name;
    if (m.road == Road::lsusb) {
        if (!machine.Remove("testbed/proc/bus/usb/devices")) return false;
        machine.Write("data/lsusb", text);
    } else if (!text.empty()) {
        machine.Write("testbed/proc/bus/usb/devices", text);
    }
    const Session s = machine.Run(Opening(c.factory, Strings(identifications, "run <id/>")));
    for (int i = 0; i < identifications; ++i) {
        const Step& step = s.Nth("run <id/>", i);
        std::string record = largest::Record("answer", step.answer);
        for (const std::string& event : step.events) record += largest::Record("event", event);
        out.ids.push_back(record);
    }
    out.devices = largest::FileRecord(machine.folder + "/work/devices");
    out.trace = largest::FileRecord(machine.folder + "/work/bang1.txt");
    return true;
}

class FixtureReference : public ::testing::TestWithParam<Case> {};
class LargestReference : public ::testing::TestWithParam<Case> {};

const Machine fixtures[] = {
    {"ehci_uhci_stick", Road::devicesFile, "ehci_uhci_stick", "", "fixtures/ehci_uhci_stick/reference/", 0},
    {"external_hub", Road::devicesFile, "external_hub", "", "fixtures/external_hub/reference/", 0},
    {"example", Road::devicesFile, "example", "", "fixtures/example/reference/", 0},
    {"empty", Road::devicesFile, "empty", "", "fixtures/empty/reference/", 0},
    {"orphan", Road::devicesFile, "orphan", "", "fixtures/orphan/reference/", 0},
    {"storage_one", Road::devicesFile, "storage_one", "", "fixtures/storage_one/reference/", 0},
    {"storage_two", Road::devicesFile, "storage_two", "", "fixtures/storage_two/reference/", 0},
    {"kernel_paths", Road::devicesFile, "", "fixtures/kernel_paths/debug/usb/devices",
     "fixtures/kernel_paths/reference/", 0},
    {"data_ehci_uhci_stick", Road::devicesFile, "", "usb/data/ehci_uhci_stick.devices",
     "usb/data/reference/ehci_uhci_stick.", 0},
    {"data_modern_xhci", Road::devicesFile, "", "usb/data/modern_xhci.devices", "usb/data/reference/modern_xhci.", 0},
    {"data_ohci_and_unknown", Road::devicesFile, "", "usb/data/ohci_and_unknown.txt",
     "usb/data/reference/ohci_and_unknown.", 0},
    {"data_uhci_external_hub", Road::devicesFile, "", "usb/data/uhci_external_hub.devices",
     "usb/data/reference/uhci_external_hub.", 0},
    {"data_unknown_versions", Road::devicesFile, "", "usb/data/unknown_versions.txt",
     "usb/data/reference/unknown_versions.", 0},
    {"lsusb_machine", Road::lsusb, "", "fixtures/lsusb_texts/machine.txt", "fixtures/lsusb_texts/reference/machine.",
     0},
    {"lsusb_cut_off_block", Road::lsusb, "", "fixtures/lsusb_texts/with_cut_off_block.txt",
     "fixtures/lsusb_texts/reference/with_cut_off_block.", 0},
    {"lsusb_real", Road::lsusb, "", "fixtures/lsusb_real/machine.lsusb", "fixtures/lsusb_real/reference/machine.", 0},
};

const Machine generated[] = {
    {"devices_8", Road::devicesFile, "", "", "", 8},
    {"devices_32", Road::devicesFile, "", "", "", 32},
    {"lsusb_8", Road::lsusb, "", "", "", 8},
    {"lsusb_32", Road::lsusb, "", "", "", 32},
};  // named as largest::MachineName names them

std::vector<Case> Cases(const Machine* begin, const Machine* end) {
    std::vector<Case> cases;
    for (const Machine* m = begin; m != end; ++m)
        for (const bool factory : {false, true}) cases.push_back({*m, factory});
    return cases;
}

const std::string sumsFile = tests + "fixtures/largest/reference.txt";

}  // namespace

TEST_P(FixtureReference, TwoIdentificationsAndTheWorkingFilesAreAsRecorded) {
    const Case& c = GetParam();
    Outputs out;
    if (!Discover(c, 2, out)) GTEST_SKIP() << "this machine has /proc/bus/usb/devices";
    const std::string got =
        "first\n" + out.ids[0] + "second\n" + out.ids[1] + "devices\n" + out.devices + "bang1.txt\n" + out.trace;
    const std::string path = tests + c.machine.stem + Mode(c.factory) + ".txt";
    if (Writing()) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << got;
    }
    ASSERT_TRUE(std::filesystem::exists(path)) << path;
    EXPECT_EQ(got, ReadText(path));
}

TEST_P(LargestReference, IdentificationAndTheWorkingFilesHaveTheRecordedSums) {
    const Case& c = GetParam();
    Outputs out;
    if (!Discover(c, 1, out)) GTEST_SKIP() << "this machine has /proc/bus/usb/devices";
    const std::string prefix = std::string(c.machine.name) + " " + Mode(c.factory) + " ";
    const Strings got = largest::SumLines(c.machine.name, c.factory, out.ids[0], out.devices, out.trace);
    if (Writing()) {
        Strings lines;
        largest::SumFileLines(sumsFile, prefix, &lines);
        lines.insert(lines.end(), got.begin(), got.end());
        std::sort(lines.begin(), lines.end());
        std::ofstream sums(sumsFile, std::ios::binary);
        for (const std::string& line : lines) sums << line << "\n";
    }
    EXPECT_EQ(got, largest::SumFileLines(sumsFile, prefix));
}

std::string CaseName(const ::testing::TestParamInfo<Case>& info) {
    return std::string(info.param.machine.name) + "_" + Mode(info.param.factory);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, FixtureReference,
                         ::testing::ValuesIn(Cases(std::begin(fixtures), std::end(fixtures))), CaseName);
INSTANTIATE_TEST_SUITE_P(Generated, LargestReference,
                         ::testing::ValuesIn(Cases(std::begin(generated), std::end(generated))), CaseName);
