// zorbus-state: looks into a component's state file.
//   zorbus-state show FILE       the component, its devices and their tests
//   zorbus-state copy FILE OUT   reads FILE and writes it again to OUT
// A state file read and written again by another build (32- or 64-bit)
// must come out byte for byte the same.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "common/Persistent.h"
#include "tc/frame/TestComponent.h"
#include "tc/framework/Test.h"

namespace {

const char usageLines[] = "usage: zorbus-state show FILE\n"
                          "       zorbus-state copy FILE OUT\n";
const char helpText[] = "\n"
                        "Looks into a state file of the USB test component libzorbus.so, as\n"
                        "zorbus-host --state FILE keeps it.\n"
                        "\n"
                        "  show FILE       list the component, each device and its tests with their\n"
                        "                  states\n"
                        "  copy FILE OUT   read FILE and write it again to OUT\n"
                        "  -h, --help      this text\n"
                        "\n"
                        "Exit status: 0 success; 1 FILE cannot be read (missing, no state file,\n"
                        "damaged) or OUT cannot be written; 2 usage error.\n";

// A file that is not there, or cannot be read, is named as such; the
// stream then tells a file that is no state file from a damaged one.
std::unique_ptr<TestComponent> load(const char* path) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw PersistenceError(std::string(path) + ": " + std::strerror(errno));
    close(fd);
    iptstream in(path);
    if (!in.good()) throw PersistenceError(std::string(path) + ": not a state file of this component");
    TestComponent* component = nullptr;
    in.ReadOwned(component);
    if (!component) throw PersistenceError(std::string(path) + ": the file holds no component");
    return std::unique_ptr<TestComponent>(component);
}

void show(const TestComponent& component) {
    printf("%s name=\"%s\" devices=%zu\n", component.GetRealClassName(), component.componentName.c_str(),
           component.devices.size());
    for (const Device* d : component.devices) {
        printf("  %s %s locked=%d caption=\"%s\" description=\"%s\" interfaces=%zu diagnoses=%zu\n",
               d->GetRealClassName(), d->name.c_str(), d->locked ? 1 : 0, d->caption.c_str(), d->description.c_str(),
               d->interfaces.size(), d->diagnoses.size());
        for (const Test* t : d->tests)
            if (t) printf("    %s %s state=\"%s\"\n", t->GetRealClassName(), t->name.c_str(), t->currentState.c_str());
    }
}

int usage(const char* why) {
    fprintf(stderr, "zorbus-state: %s\n%s(zorbus-state --help says more)\n", why, usageLines);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "--help" || command == "-h") {
        fputs(usageLines, stdout);
        fputs(helpText, stdout);
        return 0;
    }
    if (argc < 2) return usage("no command given");
    try {
        if (command == "show" && argc == 3) {
            show(*load(argv[2]));
            return 0;
        }
        if (command == "copy" && argc == 4) {
            std::unique_ptr<TestComponent> component = load(argv[2]);
            optstream out(argv[3]);
            out << static_cast<const Persistent*>(component.get());
            if (!out.close()) {
                fprintf(stderr, "zorbus-state: cannot write %s\n", argv[3]);
                return 1;
            }
            return 0;
        }
    } catch (const PersistenceError& e) {
        // Everything the stream refuses is a damaged file; the rest says what it is.
        const std::string detail = e.GetDetail();
        const bool named = detail.rfind(argv[2], 0) == 0;
        fprintf(stderr, "zorbus-state: %s%s\n", named ? "" : (std::string(argv[2]) + ": damaged state file: ").c_str(),
                detail.c_str());
        return 1;
    } catch (const std::exception& e) {
        fprintf(stderr, "zorbus-state: %s\n", e.what());
        return 1;
    }
    if (command != "show" && command != "copy") return usage(("unknown command '" + command + "'").c_str());
    return usage(command == "show" ? "show takes one FILE" : "copy takes FILE and OUT");
}
