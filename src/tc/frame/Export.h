// The library is built with hidden visibility and a version script that
// keeps every other name local: only what carries this mark reaches a host.
#pragma once

#define ZORBUS_EXPORT __attribute__((visibility("default")))
