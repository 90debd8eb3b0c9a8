// The device that stands for one USB device when discovery read the output
// of `lsusb -v`: it keeps the device's text, parses it into descriptor
// records each time it is identified, and publishes caption, description,
// properties, hub data and, on a host controller's root hub, the tests.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tc/framework/Device.h"
#include "tc/usb/linux/records/LsusbRecords.h"

class newUSBDevice : public Device {
public:
    USBDevicesNode* devicesNode = nullptr;  // owned; null until the first parse
    // Reformatted lines from the device's first line through "Device Status:".
    std::string deviceInfo;
    // Filled by id from the records; they own nothing and are not stored.
    std::vector<USBConfiguration*> vecConfigurations;
    std::vector<USBInterfaces*> vecInterfaces;
    std::vector<USBHub*> vecHubs;
    std::vector<std::string> vecPortBlocks;

    // Running number of the captions; only grows (a stored device brings its
    // value back).
    static int32_t index;
    // The characters that count as letters in a one-character product name.
    static const char* const ALPHABET;
    // Which level's collect operation may store values. One set for all
    // devices: a device's parse starts with what the one before left here.
    static bool bDeviceDescriptor;
    static bool bConfigurationDescriptor;
    static bool bInterfaceDescriptor;
    static bool bEndpointDescriptor;
    static bool bHubDescriptor;
    static bool bHidDeviceDescriptor;

    // Odd text must not make a device's records grow without bound: every
    // level searches the whole text, so the record count is the product of
    // the block counts. Past this many records a parse makes no more.
    static const int maxRecordsPerParse = 16384;

    // The registry's default object: no text, no node.
    newUSBDevice();
    explicit newUSBDevice(std::string deviceInfo);
    // The Device part and the text; no node, empty working lists.
    newUSBDevice(const newUSBDevice& other);
    newUSBDevice& operator=(const newUSBDevice&) = delete;
    ~newUSBDevice() override;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "newUSBDevice"; }
    Persistent* CreateCopy() const override { return new newUSBDevice(*this); }
    const char* GetClassName() const override;

    // Parses the text afresh, then publishes the template or the device.
    void DoID(XmlObject& xml, bool forCatalogue) override;
    // The template of the catalogue.
    virtual void catalog(XmlObject& xml);
    // This device as its records describe it.
    virtual void id(XmlObject& xml);

    // True when the first root hub's usbfs node opens.
    bool checkRootHub();

    // ---- the parser ----
    // Parses a copy of deviceInfo into a new node, replacing the old one.
    void processDeviceInfo();
    USBDevicesNode* createDevicesNode();
    // The blocks of `text` from a line holding `startKey` through the next
    // line holding `endKey`; a block still open at the end is dropped.
    std::vector<std::string> getVecInfo(std::string text, std::string startKey, std::string endKey);

    // Node operations: collect this level, then make a child for each block
    // of the next level found in the whole text and go down.
    void addInformationToDeviceNode(std::string text, USBDevicesNode* node);
    void addInformationToConfigNode(std::string block, USBConfiguration* configuration, std::string text);
    void addInformationToInterfaceNode(std::string block, USBInterfaces* interface, std::string text);
    void addInformationToEndpointNode(std::string block, USBEndpoints* endpoint, std::string text);
    void addInformationToHubNode(std::string block, USBHub* hub, std::string text);
    void addInformationToHidNode(std::string block, USBHidDevices* hid, std::string text);

    // Collect operations: fill one record from the keyword lines of a block.
    void addInformationToDevice(std::string text, USBDevicesNode* node);
    void addInformationToConfig(std::string block, USBConfiguration* configuration);
    void addInformationToInterface(std::string block, USBInterfaces* interface);
    void addInformationToEndpoint(std::string block, USBEndpoints* endpoint);
    void addInformationToHub(std::string block, USBHub* hub);
    void addInformationToHid(std::string block, USBHidDevices* hid);

    // A run of lines of a text, each without its newline, and for each the
    // keywords it holds (bit k for lsusbKeywords[k]).
    struct Lines {
        const std::string_view* begin;
        const std::string_view* end;
        const uint64_t* keywords;
    };

private:
    struct Text;  // one device text cut into lines, with the blocks found in it

    // The parse on lines: `text` is the whole device text that every level
    // searches, `block` the lines of the record at hand.
    void ParseDeviceNode(Text& text, USBDevicesNode* node);
    void ParseConfigNode(const Lines& block, USBConfiguration* configuration, Text& text);
    void ParseInterfaceNode(const Lines& block, USBInterfaces* interface, Text& text);
    void ParseEndpointNode(const Lines& block, USBEndpoints* endpoint);
    void ParseHubNode(const Lines& block, USBHub* hub, Text& text);
    // Takes one record from the parse's allowance; false when it is used up.
    bool Allow();

    int recordsLeft = maxRecordsPerParse;
};
