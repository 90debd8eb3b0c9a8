#include "tc/usb/linux/UsbFileParser.h"

#include <cstdlib>
#include <cstring>

#include "common/Debug.h"

UsbFileParser::UsbFileParser(std::string serial) : rootHubSerial(std::move(serial)) {}

UsbFileParser::~UsbFileParser() = default;

void UsbFileParser::ParseProcBusUsbDeviceFile() {
    rootHubFound = false;
    searchOver = false;
    dbgprintf("Parsing /proc/bus/usb/devices");
    char buffer[lineBufferSize];
    for (;;) {
        std::memset(buffer, 0, sizeof buffer);
        if (!readLine(buffer)) break;  // the end, or a read error that would never reach it
        buffer[lineBufferSize - 1] = '\0';
        const size_t length = std::strlen(buffer);
        // Only the last piece of an over-long line ends in a newline.
        if (length > 0 && buffer[length - 1] == '\n') usb_parse_line(buffer);
        if (noMoreLines() || searchOver) break;
    }
}

void UsbFileParser::usb_parse_line(char* line) {
    const size_t length = std::strlen(line);
    if (length == 0) return;
    line[length - 1] = '\0';
    switch (line[0]) {
    case 'T':
        if (rootHubFound)
            getUSBDeviceInfo(line);
        else
            getRootDeviceInfo(line);
        break;
    case 'S':
        if (rootHubFound) {
            getUsbDeviceSerial(line);
        } else if (matchRootHUBSerial(line)) {
            dbgprintf(" Root Hub Found\n");
            rootHubFound = true;
        }
        break;
    case 'I':
        if (rootHubFound && checkUSBFlashDeviceClass(line)) AddUSBNode();
        break;
    default:
        break;
    }
}

int UsbFileParser::GetInt(const char* line, const char* key, int base) {
    if (!line || !*line) return 0;
    const char* at = std::strstr(line, key);
    if (!at) return 0;
    return static_cast<int>(std::strtol(at + std::strlen(key), nullptr, base));
}

void UsbFileParser::GetString(std::string* out, const char* line, const char* key, size_t maxLength) {
    if (!line || !*line) return;
    const char* at = std::strstr(line, key);
    if (!at) return;
    *out = std::string(at + std::strlen(key)).substr(0, maxLength);
}

bool UsbFileParser::matchRootHUBSerial(const char* line) {
    std::string serial;
    GetString(&serial, line, "SerialNumber=", 254);
    return serial == rootHubSerial;
}

bool UsbFileParser::checkUSBFlashDeviceClass(const char* line) { return GetInt(line, "Cls=", 10) == 8; }

void UsbFileParser::getRootDeviceInfo(const char* line) {
    rootBus = GetInt(line, "Bus=", 10);
    rootSpeed = GetInt(line, "Spd=", 10);
}

void UsbFileParser::getUSBDeviceInfo(const char* line) {
    if (GetInt(line, "Bus=", 10) == rootBus) {
        currentNode.port = GetInt(line, "Port=", 10);
        currentNode.speed = GetInt(line, "Spd=", 10);
    } else {
        dbgprintf(" Port Searching over\n");
        searchOver = true;
    }
}

void UsbFileParser::getUsbDeviceSerial(const char* line) {
    if (*line && std::strstr(line, "SerialNumber=")) GetString(&currentNode.serial, line, "SerialNumber=", 254);
}

void UsbFileParser::AddUSBNode() {
    ++nodeCount;
    nodes.push_back(currentNode);
    dbgprintf(" USB device found: %d", nodeCount);
}
