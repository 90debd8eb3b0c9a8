// What `lsusb -v` says about one device, level by level as the USB
// descriptors nest: the device, its configurations, their interfaces, and
// under an interface its endpoints, HID descriptors and hub descriptors.
// Every field is the raw text cut from its line (a leading blank, the
// number, any words lsusb printed behind it); nothing is converted here.
//
// A record owns its children, those in its lists and its current child. The
// lists and current children are not stored: a record read back from a
// state file has its strings and no children.
#pragma once

#include <string>
#include <vector>

#include "common/Persistent.h"

class USBEndpoints : public Persistent {
public:
    std::string bLength, bDescriptorType, bEndpointAddress, bmAttributes, transferType, synchType, usageType,
        wMaxPacketSize, bInterval;

    USBEndpoints() = default;
    // Copies the strings.
    USBEndpoints(const USBEndpoints& other) = default;
    USBEndpoints& operator=(const USBEndpoints& other);

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "USBEndpoints"; }
    Persistent* CreateCopy() const override { return new USBEndpoints(*this); }
};

class USBHidDevices : public Persistent {
public:
    std::string bLength, bDescriptorType, bcdHID, bCountryCode, bNumDescriptors, wDescriptorLength;

    USBHidDevices() = default;
    USBHidDevices(const USBHidDevices& other) = default;
    USBHidDevices& operator=(const USBHidDevices& other);

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "USBHidDevices"; }
    Persistent* CreateCopy() const override { return new USBHidDevices(*this); }
};

class USBHub : public Persistent {
public:
    std::string bLength, bDescriptorType, nNbrPorts, wHubCharacteristic, bPwrOn2PwrGood, bHubContrCurrent,
        DeviceRemovable, PortPwrCtrlMask;
    // Each one whole block from a "Hub Port Status:" line to a
    // "Device Status:" line.
    std::vector<std::string> portStatusBlocks;

    USBHub() = default;
    // Copies the strings, not the port blocks.
    USBHub(const USBHub& other);
    USBHub& operator=(const USBHub& other);

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "USBHub"; }
    Persistent* CreateCopy() const override { return new USBHub(*this); }

    void addObjectToVector(const std::string& block);
    int getNumObjects() const;
    std::vector<std::string> getVecPortStatusBlocks() const { return portStatusBlocks; }
};

class USBInterfaces : public Persistent {
public:
    std::string bLength, bDescriptorType, bInterfaceNumber, bAlternateSetting, bNumEndpoints, bInterfaceClass,
        bInterfaceSubClass, bInterfaceProtocol, iInterface;
    USBEndpoints* currentEndpoint = nullptr;
    USBHidDevices* currentHidDevice = nullptr;
    USBHub* currentHub = nullptr;
    std::vector<USBEndpoints*> endpoints;
    std::vector<USBHidDevices*> hidDevices;
    std::vector<USBHub*> hubs;

    USBInterfaces() = default;
    // Copies the strings; the copy has no children.
    USBInterfaces(const USBInterfaces& other);
    USBInterfaces& operator=(const USBInterfaces& other);
    ~USBInterfaces() override;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "USBInterfaces"; }
    Persistent* CreateCopy() const override { return new USBInterfaces(*this); }

    // A new empty record that becomes the current child; not yet in the list.
    USBEndpoints* createUSBEndpoints();
    USBHidDevices* createUSBHidDevices();
    USBHub* createUSBHub();
    void addObjectToEndpointVector(USBEndpoints* endpoint);
    void addObjectToHidVector(USBHidDevices* hid);
    void addObjectToHubVector(USBHub* hub);
    int getNumEndpointObjects() const;
    int getNumHidObjects() const;
    int getNumHubObjects() const;
    std::vector<USBEndpoints*> getVecUSBEndpointsPtr() const { return endpoints; }
    std::vector<USBHidDevices*> getVecUSBHidDevicesPtr() const { return hidDevices; }
    std::vector<USBHub*> getVecUSBHubPtr() const { return hubs; }
};

class USBConfiguration : public Persistent {
public:
    std::string bLength, bDescriptorType, wTotalLength, bNumInterfaces, bConfigurationValue, iConfiguration,
        bmAttributes, MaxPower;
    USBInterfaces* currentInterface = nullptr;
    std::vector<USBInterfaces*> interfaces;

    USBConfiguration() = default;
    USBConfiguration(const USBConfiguration& other);
    USBConfiguration& operator=(const USBConfiguration& other);
    ~USBConfiguration() override;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "USBConfiguration"; }
    Persistent* CreateCopy() const override { return new USBConfiguration(*this); }

    USBInterfaces* createUSBInterfaces();
    void addObjectToVector(USBInterfaces* interface);
    int getNumObjects() const;
    std::vector<USBInterfaces*> getVecUSBInterfacesPtr() const { return interfaces; }
};

class USBDevicesNode : public Persistent {
public:
    std::string bLength, bDescriptorType, bcdUSB, bDeviceClass, bDeviceSubClass, bDeviceProtocol, bMaxPacketSize0,
        idVendor, idProduct, bcdDevice, iManufacturer, iProduct, iSerial, bNumConfigurations, deviceStatus;
    USBConfiguration* currentConfiguration = nullptr;
    std::vector<USBConfiguration*> configurations;

    USBDevicesNode() = default;
    USBDevicesNode(const USBDevicesNode& other);
    USBDevicesNode& operator=(const USBDevicesNode& other);
    ~USBDevicesNode() override;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "USBDevicesNode"; }
    Persistent* CreateCopy() const override { return new USBDevicesNode(*this); }

    USBConfiguration* createUSBConfiguration();
    void addObjectToVector(USBConfiguration* configuration);
    int getNumObjects() const;
    std::vector<USBConfiguration*> getVecUSBConfigurationPtr() const { return configurations; }
};
