// The component's version, in the forms the host reads.
#pragma once

#define ZORBUS_COMPONENT_VERSION "8.6.0.3755A"

// The answer to "getDiagVersion"; the failure log file records it too.
constexpr const char* diagVersionRecord = "<diagVersion>" ZORBUS_COMPONENT_VERSION "</diagVersion>";
