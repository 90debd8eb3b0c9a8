// A hand-made control request to the first root hub through its usbfs node,
// and an older route that reads device identifiers from an external
// program's output.
#pragma once

// The usbfs node of bus 1, device 1, whatever device the caller stands for.
extern const char* const rootHubNodePath;

// Opens the node and sends GET_DESCRIPTOR (configuration) to it, retrying
// while the request times out. The open descriptor, whatever the request
// did, or -1 when the node does not open.
int OpenHandle();
void CloseHandle(int handle);

// Runs "./testlibusb" into "usbresult.out" and copies, for line i, the four
// characters of the vendor and of the product behind "00<i>/" into
// vendorIds[i] and productIds[i] (no terminator; the caller's buffers hold
// at least 4 characters each and one entry per line). 0, or -1 when the
// program or its output cannot be opened, -2 without memory.
int RunDescriptorTestExternal(char** vendorIds, char** productIds);
