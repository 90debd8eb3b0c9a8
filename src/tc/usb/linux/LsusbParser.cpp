// The parser of one device's `lsusb -v` text (reformatted: single blanks,
// one leading blank on every line but the first). Sections are told apart by
// their marker lines alone, in the order lsusb prints them; the gates decide
// which record a level's values may go into.
#include <functional>

#include "common/StringTokenizer.h"
#include "common/TvkError.h"
#include "tc/usb/linux/USBInfoReader.h"
#include "tc/usb/linux/newUSBDevice.h"
#include "tc/usb/linux/usbxml.h"

namespace {

const char* const enumerationFailure = "Device Failed Enumeration";

struct Field {
    LsusbKeyword key;
    std::string* value;
};

bool Has(const std::string& line, LsusbKeyword key) { return line.find(lsusbKeywords[key]) != std::string::npos; }

// Calls `visit` with each line of `text` until it answers false.
void ForEachLine(const std::string& text, const std::function<bool(const std::string&)>& visit) {
    StringTokenizer lines(text, "\n");
    while (lines.HasMoreTokens())
        if (!visit(lines.NextToken())) return;
}

// Every keyword of the line stores its value when the gate is open; the last
// line with a keyword wins.
template <size_t N>
void Store(const std::string& line, bool gate, const Field (&fields)[N]) {
    if (!gate) return;
    for (const Field& field : fields)
        if (Has(line, field.key))
            *field.value = USBInfoReader::extractStringIn(line, lsusbKeywords[field.key]);
}

template <class T>
void Refuse(const T* record) {
    if (!record) throw TvkError(enumerationFailure, "", "");
}

}  // namespace

void newUSBDevice::processDeviceInfo() {
    const std::string text = deviceInfo;
    cutCache.clear();
    recordsLeft = maxRecordsPerParse;
    USBDevicesNode* node = createDevicesNode();
    try {
        addInformationToDeviceNode(text, node);
    } catch (...) {
        cutCache.clear();
        throw;
    }
    cutCache.clear();
}

USBDevicesNode* newUSBDevice::createDevicesNode() {
    USBDevicesNode* node = new USBDevicesNode();
    delete devicesNode;
    devicesNode = node;
    return node;
}

std::vector<std::string> newUSBDevice::getVecInfo(std::string text, std::string startKey, std::string endKey) {
    std::vector<std::string> blocks;
    std::string buffer;
    bool open = false;
    ForEachLine(text, [&](const std::string& line) {
        if (line.find(startKey) != std::string::npos) open = true;
        if (open) {
            buffer += line;
            buffer += '\n';
        }
        if (open && line.find(endKey) != std::string::npos) {
            blocks.push_back(buffer);
            buffer.clear();
            open = false;
        }
        return true;
    });
    return blocks;
}

const std::vector<std::string>& newUSBDevice::Blocks(const std::string& text, const char* startKey,
                                                     const char* endKey) {
    for (const CutBlocks& cut : cutCache)
        if (cut.startKey == startKey && cut.endKey == endKey && cut.text == text) return cut.blocks;
    cutCache.push_back(CutBlocks{startKey, endKey, text, getVecInfo(text, startKey, endKey)});
    return cutCache.back().blocks;
}

bool newUSBDevice::Allow() {
    if (recordsLeft <= 0) return false;
    --recordsLeft;
    return true;
}

// ---- node operations ----

void newUSBDevice::addInformationToDeviceNode(std::string text, USBDevicesNode* node) {
    Refuse(node);
    addInformationToDevice(text, node);
    for (const std::string& block :
         Blocks(text, lsusbKeywords[kwConfigurationDescriptor], lsusbKeywords[kwInterfaceDescriptor])) {
        if (!Allow()) break;
        USBConfiguration* configuration = node->createUSBConfiguration();
        addInformationToConfigNode(block, configuration, text);
        node->addObjectToVector(configuration);
    }
}

void newUSBDevice::addInformationToConfigNode(std::string block, USBConfiguration* configuration,
                                              std::string text) {
    Refuse(configuration);
    addInformationToConfig(block, configuration);
    for (const std::string& interfaceBlock :
         Blocks(text, lsusbKeywords[kwInterfaceDescriptor], lsusbKeywords[kwEndpointDescriptor])) {
        if (!Allow()) break;
        USBInterfaces* interface = configuration->createUSBInterfaces();
        addInformationToInterfaceNode(interfaceBlock, interface, text);
        configuration->addObjectToVector(interface);
    }
}

void newUSBDevice::addInformationToInterfaceNode(std::string block, USBInterfaces* interface, std::string text) {
    Refuse(interface);
    addInformationToInterface(block, interface);
    for (const std::string& endpointBlock :
         Blocks(text, lsusbKeywords[kwEndpointDescriptor], lsusbKeywords[kwbInterval])) {
        if (!Allow()) break;
        USBEndpoints* endpoint = interface->createUSBEndpoints();
        addInformationToEndpointNode(endpointBlock, endpoint, text);
        interface->addObjectToEndpointVector(endpoint);
    }
    // The class decides by its digits alone, on the raw value: a 3 anywhere
    // is HID, else a 9 anywhere is a hub.
    if (interface->bInterfaceClass.find('3') != std::string::npos) {
        for (const std::string& hidBlock :
             Blocks(text, lsusbKeywords[kwHIDDeviceDescriptor], lsusbKeywords[kwEndpointDescriptor])) {
            if (!Allow()) break;
            USBHidDevices* hid = interface->createUSBHidDevices();
            addInformationToHidNode(hidBlock, hid, text);
            interface->addObjectToHidVector(hid);
        }
    } else if (interface->bInterfaceClass.find('9') != std::string::npos) {
        for (const std::string& hubBlock : Blocks(text, lsusbKeywords[kwHubDescriptor], lsusbKeywords[kwDeviceStatus])) {
            if (!Allow()) break;
            USBHub* hub = interface->createUSBHub();
            addInformationToHubNode(hubBlock, hub, text);
            interface->addObjectToHubVector(hub);
        }
    }
}

void newUSBDevice::addInformationToEndpointNode(std::string block, USBEndpoints* endpoint, std::string) {
    Refuse(endpoint);
    addInformationToEndpoint(block, endpoint);
    bEndpointDescriptor = false;
    bHubDescriptor = true;
    bHidDeviceDescriptor = true;
}

void newUSBDevice::addInformationToHubNode(std::string block, USBHub* hub, std::string text) {
    Refuse(hub);
    addInformationToHub(block, hub);
    for (const std::string& portBlock :
         Blocks(text, lsusbKeywords[kwHubPortStatus], lsusbKeywords[kwDeviceStatus])) {
        if (!Allow()) break;
        hub->addObjectToVector(portBlock);
    }
}

void newUSBDevice::addInformationToHidNode(std::string block, USBHidDevices* hid, std::string) {
    Refuse(hid);
    addInformationToHid(block, hid);
}

// ---- collect operations ----

void newUSBDevice::addInformationToDevice(std::string text, USBDevicesNode* node) {
    Refuse(node);
    const Field fields[] = {{kwbLength, &node->bLength},
                            {kwbDescriptorType, &node->bDescriptorType},
                            {kwbcdUSB, &node->bcdUSB},
                            {kwbDeviceClass, &node->bDeviceClass},
                            {kwbDeviceSubClass, &node->bDeviceSubClass},
                            {kwbDeviceProtocol, &node->bDeviceProtocol},
                            {kwbMaxPacketSize0, &node->bMaxPacketSize0},
                            {kwidVendor, &node->idVendor},
                            {kwidProduct, &node->idProduct},
                            {kwbcdDevice, &node->bcdDevice},
                            {kwiManufacturer, &node->iManufacturer},
                            {kwiProduct, &node->iProduct},
                            {kwiSerial, &node->iSerial},
                            {kwbNumConfigurations, &node->bNumConfigurations},
                            {kwDeviceStatus, &node->deviceStatus}};
    ForEachLine(text, [&](const std::string& line) {
        if (Has(line, kwDeviceDescriptor)) bDeviceDescriptor = true;
        Store(line, bDeviceDescriptor, fields);
        if (!Has(line, kwConfigurationDescriptor)) return true;
        bDeviceDescriptor = false;
        bConfigurationDescriptor = true;
        return false;
    });
}

void newUSBDevice::addInformationToConfig(std::string block, USBConfiguration* configuration) {
    Refuse(configuration);
    const Field fields[] = {{kwbLength, &configuration->bLength},
                            {kwbDescriptorType, &configuration->bDescriptorType},
                            {kwwTotalLength, &configuration->wTotalLength},
                            {kwbNumInterfaces, &configuration->bNumInterfaces},
                            {kwbConfigurationValue, &configuration->bConfigurationValue},
                            {kwiConfiguration, &configuration->iConfiguration},
                            {kwbmAttributes, &configuration->bmAttributes},
                            {kwMaxPower, &configuration->MaxPower}};
    ForEachLine(block, [&](const std::string& line) {
        Store(line, bConfigurationDescriptor, fields);
        if (!Has(line, kwInterfaceDescriptor)) return true;
        bConfigurationDescriptor = false;
        bInterfaceDescriptor = true;
        return false;
    });
}

void newUSBDevice::addInformationToInterface(std::string block, USBInterfaces* interface) {
    Refuse(interface);
    const Field fields[] = {{kwbLength, &interface->bLength},
                            {kwbDescriptorType, &interface->bDescriptorType},
                            {kwbInterfaceNumber, &interface->bInterfaceNumber},
                            {kwbAlternateSetting, &interface->bAlternateSetting},
                            {kwbNumEndpoints, &interface->bNumEndpoints},
                            {kwbInterfaceClass, &interface->bInterfaceClass},
                            {kwbInterfaceSubClass, &interface->bInterfaceSubClass},
                            {kwbInterfaceProtocol, &interface->bInterfaceProtocol},
                            {kwiInterface, &interface->iInterface}};
    ForEachLine(block, [&](const std::string& line) {
        Store(line, bInterfaceDescriptor, fields);
        if (!Has(line, kwEndpointDescriptor)) return true;
        bInterfaceDescriptor = false;
        bEndpointDescriptor = true;
        return false;
    });
}

void newUSBDevice::addInformationToEndpoint(std::string block, USBEndpoints* endpoint) {
    Refuse(endpoint);
    const Field fields[] = {{kwbLength, &endpoint->bLength},
                            {kwbDescriptorType, &endpoint->bDescriptorType},
                            {kwbEndpointAddress, &endpoint->bEndpointAddress},
                            {kwbmAttributes, &endpoint->bmAttributes},
                            {kwTransferType, &endpoint->transferType},
                            {kwSynchType, &endpoint->synchType},
                            {kwUsageType, &endpoint->usageType},
                            {kwwMaxPacketSize, &endpoint->wMaxPacketSize},
                            {kwbInterval, &endpoint->bInterval}};
    ForEachLine(block, [&](const std::string& line) {
        Store(line, bEndpointDescriptor, fields);
        return true;
    });
}

void newUSBDevice::addInformationToHub(std::string block, USBHub* hub) {
    Refuse(hub);
    const Field fields[] = {{kwbLength, &hub->bLength},
                            {kwbDescriptorType, &hub->bDescriptorType},
                            {kwnNbrPorts, &hub->nNbrPorts},
                            {kwwHubCharacteristic, &hub->wHubCharacteristic},
                            {kwbPwrOn2PwrGood, &hub->bPwrOn2PwrGood},
                            {kwbHubContrCurrent, &hub->bHubContrCurrent},
                            {kwDeviceRemovable, &hub->DeviceRemovable},
                            {kwPortPwrCtrlMask, &hub->PortPwrCtrlMask}};
    ForEachLine(block, [&](const std::string& line) {
        Store(line, bHubDescriptor, fields);
        if (!Has(line, kwDeviceStatus)) return true;
        bHubDescriptor = false;
        bHidDeviceDescriptor = true;
        return false;
    });
}

void newUSBDevice::addInformationToHid(std::string block, USBHidDevices* hid) {
    Refuse(hid);
    const Field fields[] = {{kwbLength, &hid->bLength},
                            {kwbDescriptorType, &hid->bDescriptorType},
                            {kwbcdHID, &hid->bcdHID},
                            {kwbCountryCode, &hid->bCountryCode},
                            {kwbNumDescriptors, &hid->bNumDescriptors},
                            {kwwDescriptorLength, &hid->wDescriptorLength}};
    ForEachLine(block, [&](const std::string& line) {
        Store(line, bHidDeviceDescriptor, fields);
        if (!Has(line, kwEndpointDescriptor)) return true;
        bHidDeviceDescriptor = false;
        bHubDescriptor = true;
        return false;
    });
}
