#include "tc/usb/linux/devices/RootHubProbe.h"

#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "common/Debug.h"
#include "common/StringUtil.h"
#include "platform/SystemHelpers.h"
#include "tc/usb/linux/storage/ExternalTool.h"

const char* const rootHubNodePath = "/proc/bus/usb/001/001";

namespace {
const int maxAttempts = 50;
const unsigned int requestTimeoutMs = 100;
}  // namespace

int OpenHandle() {
    const int handle = ::open(rootHubNodePath, O_RDWR | O_CLOEXEC);
    if (handle == -1) {
        dbgprintf(" Error!  Have you logged in as root?\n");
        return -1;
    }
    unsigned char buffer[1024];
    std::memset(buffer, 0, sizeof buffer);
    usbdevfs_ctrltransfer request;
    std::memset(&request, 0, sizeof request);
    request.bRequestType = 0x80;  // device to host, standard, to the device
    request.bRequest = 6;         // GET_DESCRIPTOR
    request.wValue = 0x0200;      // configuration descriptor, index 0
    request.wIndex = 0;
    request.wLength = 9;  // the head of a configuration descriptor
    request.timeout = requestTimeoutMs;
    request.data = buffer;

    int result = -1;
    int attempts = 0;
    do {
        ++attempts;
        errno = 0;
        result = ::ioctl(handle, USBDEVFS_CONTROL, &request);
        dbgprintf("control request attempt %d: result %d errno %d\n", attempts, result, errno);
    } while (result == -1 && errno == ETIMEDOUT && attempts < maxAttempts);
    dbgprintf("control request result %d after %d attempts\n", result, attempts);
    dbgprintf("buf = %x %x %x %x %x %x \n", buffer[0], buffer[1], buffer[2], buffer[3], buffer[4], buffer[5]);
    // The answer does not matter: the node opened.
    return handle;
}

void CloseHandle(int handle) { ::close(handle); }

int RunDescriptorTestExternal(char** vendorIds, char** productIds) {
    // "./testlibusb>usbresult.out" without a shell; RunTool waits for the
    // program, so its output is complete when it is read.
    const int out = OpenOwnFile("usbresult.out", O_TRUNC, 0666);
    if (out < 0) return -1;
    RunTool({"./testlibusb"}, out);
    ::close(out);
    std::FILE* output = std::fopen("usbresult.out", "re");
    if (!output) return -1;
    std::unique_ptr<char[]> line(new (std::nothrow) char[256]);
    if (!line) {
        std::fclose(output);
        return -2;
    }
    for (int i = 0; std::fgets(line.get(), 256, output); ++i) {
        const size_t length = std::strlen(line.get());
        if (length == 0 || line[length - 1] != '\n') continue;
        const std::string mark = strprintf("00%d/", i);
        const char* found = std::strstr(line.get(), mark.c_str());
        // Both fields must lie inside the line.
        if (!found || std::strlen(found) < 21) continue;
        if (vendorIds && vendorIds[i]) std::memcpy(vendorIds[i], found + 12, 4);
        if (productIds && productIds[i]) std::memcpy(productIds[i], found + 17, 4);
    }
    std::fclose(output);
    return 0;
}
