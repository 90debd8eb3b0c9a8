// Debug output, off by default; it carries no behaviour.
#pragma once

void dbgprintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
void EnableDebugOutput(bool on);
bool IsDebugOutputEnabled();
