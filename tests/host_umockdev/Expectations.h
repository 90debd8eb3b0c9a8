// What a host must see of the fixture machines: the devices each one
// publishes (as functions of the process-wide counters before the
// identification, since a second identification goes on counting), and
// checks of answers and events element by element.
#pragma once

#include <string>
#include <vector>

#include "Machine.h"
#include "Xml.h"

struct Prop {
    std::string name, caption, value;
};

struct Dev {
    std::string caption, description;
    std::vector<Prop> properties;
    bool controller = false;
};

// Counters before an identification: field mode counts devices and hubs,
// factory mode controllers.
struct Counters {
    int devices = 0;
    int hubs = 0;
    int controllers = 0;
};

// A machine's devices in set order, and what identifying them adds to the
// counters.
struct Published {
    std::vector<Dev> devices;
    Counters after;
};
using MachineTable = Published (*)(bool factory, Counters before);

Published EhciUhciStick(bool factory, Counters before);
Published ExternalHub(bool factory, Counters before);
Published Example(bool factory, Counters before);
// The devices of EhciUhciStick as a restored component publishes them: the
// state file keeps neither a node's hub flag nor its kind.
Published EhciUhciStickRestored(bool factory, Counters before);

// Two tables one after the other, as a second identification publishes the
// devices of the first beside the new ones.
Published Twice(MachineTable table, bool factory, Counters before);

// The names of the tests a controller offers, in order.
std::vector<std::string> OfferedTests(bool factory, bool catalog);

// "<diagEvent component=... caption=... description=.../>" as the library
// writes it for the component "libzorbus.so".
std::string LogEvent(const std::string& caption, const std::string& description);
std::string TestUpdate(const std::string& device, int percent, const std::string& state);

void ExpectIdAnswer(const std::string& answer, const std::vector<Dev>& expected, bool factory);
void ExpectCatalogAnswer(const std::string& answer, bool factory);
void ExpectRootHubTestElement(const Element& test);
// "Device Discovery Started", then one "Device Discovered" per device.
void ExpectDiscoveryEvents(const Step& step, size_t devices);
// A rootHubTest result: passed, or failed with "Unable to detect root hub".
void ExpectRootHubResult(const Step& step, const std::string& device, bool passed);

// The stub calls of discovery from the devices file: mount, then sync.
std::vector<std::string> DevicesFileToolCalls(int discoveries);

std::string Joined(const std::vector<std::string>& lines);
