// One pass over the kernel's USB devices file that finds the mass storage
// interfaces below one host controller: the scan starts at the root hub
// whose serial number is the controller's and ends where its bus ends.
#pragma once

#include <string>
#include <vector>

#include "tc/usb/linux/readers/USBInfoReader.h"

// A mass storage interface found below the root hub.
struct USBDriveNode {
    std::string serial;
    int port = 0;            // "Port=" of the device's line
    int speed = 0;           // "Spd=" of the device's line, in Mbps
    std::string mountPoint;  // the port test's: the partition to mount
};

class UsbFileParser : public USBInfoReader {
public:
    int rootBus = 0;
    int rootSpeed = 0;
    std::string rootHubSerial;
    int nodeCount = 0;
    bool searchOver = false;
    bool rootHubFound = false;
    USBDriveNode currentNode;  // filled line by line, never reset between devices
    std::vector<USBDriveNode> nodes;

    UsbFileParser() = default;
    explicit UsbFileParser(std::string serial);
    ~UsbFileParser() override;

    // The whole scan; the caller has set the source and opened it.
    void ParseProcBusUsbDeviceFile();
    // One line that ends in a newline; the newline is cut here.
    void usb_parse_line(char* line);
    // 0 for an empty line or one without `key`; held to 32 bits as the tree
    // parser holds it.
    int GetInt(const char* line, const char* key, int base);
    // `out` unchanged for an empty line or one without `key`.
    void GetString(std::string* out, const char* line, const char* key, size_t maxLength);
    bool matchRootHUBSerial(const char* line);
    bool checkUSBFlashDeviceClass(const char* line);
    void getRootDeviceInfo(const char* line);
    void getUSBDeviceInfo(const char* line);
    void getUsbDeviceSerial(const char* line);
    void AddUSBNode();
};
