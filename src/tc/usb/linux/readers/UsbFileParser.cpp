#include "tc/usb/linux/readers/UsbFileParser.h"

#include <cstring>

#include "common/Debug.h"
#include "tc/usb/linux/readers/DevicesFileLines.h"

UsbFileParser::UsbFileParser(std::string serial) : rootHubSerial(std::move(serial)) {}

UsbFileParser::~UsbFileParser() = default;

void UsbFileParser::ParseProcBusUsbDeviceFile() {
    rootHubFound = false;
    searchOver = false;
    dbgprintf("Parsing /proc/bus/usb/devices");
    char buffer[lineBufferSize];
    devicesfile::ScanLines(*this, buffer, [this](char* line) {
        usb_parse_line(line);
        return !searchOver;
    });
}

void UsbFileParser::usb_parse_line(char* line) {
    if (!devicesfile::CutNewline(line)) return;
    // Unlike the tree parser: one bus, by its T, S and I lines, no topology.
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
        default: break;
    }
}

int UsbFileParser::GetInt(const char* line, const char* key, int base) {
    return devicesfile::IntAfterKey(line, key, base);
}

void UsbFileParser::GetString(std::string* out, const char* line, const char* key, size_t maxLength) {
    devicesfile::StringAfterKey(*out, line, key, maxLength);
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
