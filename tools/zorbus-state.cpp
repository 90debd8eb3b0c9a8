// zorbus-state: looks into a component's state file.
//   zorbus-state show FILE       the component, its devices and their tests
//   zorbus-state copy FILE OUT   reads FILE and writes it again to OUT
// A state file read and written again by another build (32- or 64-bit)
// must come out byte for byte the same.
#include <cstdio>
#include <memory>
#include <string>

#include "common/Persistent.h"
#include "tc/frame/TestComponent.h"
#include "tc/framework/Test.h"

namespace {

std::unique_ptr<TestComponent> load(const char* path) {
    iptstream in(path);
    if (!in.good()) throw PersistenceError(std::string("not a state file: ") + path);
    TestComponent* component = nullptr;
    in.ReadOwned(component);
    if (!component) throw PersistenceError("the file holds no component");
    return std::unique_ptr<TestComponent>(component);
}

void show(const TestComponent& component) {
    printf("%s name=\"%s\" devices=%zu\n", component.GetRealClassName(), component.componentName.c_str(),
           component.devices.size());
    for (const Device* d : component.devices) {
        printf("  %s %s locked=%d caption=\"%s\" description=\"%s\" interfaces=%zu diagnoses=%zu\n",
               d->GetRealClassName(), d->name.c_str(), d->locked ? 1 : 0, d->caption.c_str(),
               d->description.c_str(), d->interfaces.size(), d->diagnoses.size());
        for (const Test* t : d->tests)
            if (t) printf("    %s %s state=\"%s\"\n", t->GetRealClassName(), t->name.c_str(), t->currentState.c_str());
    }
}

int usage() {
    fprintf(stderr, "usage: zorbus-state show FILE | zorbus-state copy FILE OUT\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) return usage();
    const std::string command = argv[1];
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
    } catch (const std::exception& e) {
        fprintf(stderr, "zorbus-state: %s\n", e.what());
        return 1;
    }
    return usage();
}
