// The devices-file parser: turns the text of the kernel's USB devices file,
// as a USBInfoReader delivers it, into a tree of USBnode records, names the
// nodes and picks out the high-speed storage devices.
//
// A line-oriented scan: the first character of a line says what the line
// is, and every value is found by searching the line for its key ("Bus=",
// "Lev=", ...), so the order of keys on a line does not matter.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "tc/usb/linux/records/USBRecords.h"

class USBInfoReader;

// Thrown for a device without a parent hub and for text that does not fit
// the tree (a port or controller beyond its arrays).
extern const char* const usbDiscoveryFailure;
// Thrown for a topology level outside 0..31.
extern const char* const usbLevelFailure;

class USBtree {
public:
    USBnode* root = nullptr;
    USBnode* current = nullptr;
    USBnode* hubAtLevel[usbMaxSlots] = {};
    int keyboardCount = 0;
    bool endpointPending = false;
    // Selected by CountUsb20Device, in order of discovery; not owned.
    std::list<USBnode*> usb20Devices;

    // The tree stays when the parser goes: the devices made from it hold it
    // (see USBnode::Hold), or ChopUSBtree/FinishTest drop it.
    USBtree() = default;
    USBtree(const USBtree&) = delete;
    USBtree& operator=(const USBtree&) = delete;

    // Parses the reader's text, names the nodes and returns the root; null
    // when the text cannot be opened even after a mount attempt. A failure
    // leaves no tree behind.
    USBnode* GrowUSBtree(USBInfoReader* reader);
    // Parses the source that a fresh reader chooses and counts keyboards:
    // -1 when it cannot be opened, -2 without memory for the line buffer.
    int RunDescriptorTest();
    // The same on a reader the caller has set up.
    int RunDescriptorTest(USBInfoReader& reader);
    // One line that ends in a newline, changed in place.
    void usb_parse_line(char* line);
    // Drops any old tree (unless devices hold it) and makes a new root.
    void usb_initialize_list();
    // Drops the whole tree; the argument is ignored.
    void ChopUSBtree(USBnode* ignored);
    void FinishTest();

    // `target` becomes at most `maxLength` characters right behind `key`;
    // unchanged when the line has no such key.
    static void GetString(std::string& target, const char* line, const char* key, size_t maxLength);
    // strtol of the text behind `key`, held to 32 bits; 0 without the key.
    static int GetInt(const char* line, const char* key, int base);

    // Per-line steps; all but AddDevice do nothing without a node.
    USBnode* AddDevice(const char* line);
    void GetBandwidth(const char* line, USBnode* node);
    void AddConfig(const char* line, USBnode* node);
    void GetDeviceInformation(const char* line, USBnode* node);
    void AddEndpoint(const char* line, USBnode* node);
    void GetMoreDeviceInformation(const char* line, USBnode* node);
    void GetDeviceString(const char* line, USBnode* node);

    // ---- naming and counting ----
    void usb_name_devices();
    void NameDevice(USBnode* node);
    int usb_name_devices_alt();
    int NameDeviceAlt(USBnode* node);
    void CountUsb20Device(USBnode* node);
    static bool IfTapeDrive(std::string text);
    static bool CheckForUSBDriveKeyMatch(unsigned int vendor, unsigned int product);
    static std::string DecodeUSBClass08(unsigned int usbClass, unsigned int subclass, unsigned int protocol,
                                        unsigned long vendor, unsigned long product);
    static std::string DecodeUSBClass03(unsigned int usbClass, unsigned int subclass, unsigned int protocol,
                                        unsigned long vendor, unsigned long product);

private:
    // Nodes whose port a later device took; no device reaches them.
    std::vector<std::unique_ptr<USBnode>> displaced;

    void DropTree();
    // Reads and parses every line; the caller opened the reader.
    void ParseAllLines(USBInfoReader* reader, char* buffer);
};

// A tree parsed for one test run is nobody else's: drop it on every way out.
class TreeFinisher {
public:
    explicit TreeFinisher(USBtree& tree) : tree(tree) {}
    ~TreeFinisher() { tree.FinishTest(); }
    TreeFinisher(const TreeFinisher&) = delete;
    TreeFinisher& operator=(const TreeFinisher&) = delete;

private:
    USBtree& tree;
};
