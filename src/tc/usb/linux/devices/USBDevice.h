// The device that stands for one USBnode of the devices-file road: a host
// controller, a hub, a plugged-in device or, in factory mode, an empty port.
// It publishes what the tree knows and, as a controller, offers the tests.
//
// The USBnode tree is shared by all devices of one discovery: each device
// holds the tree's top node (USBnode::Hold), and the last one to go deletes
// the tree.
#pragma once

#include <string>

#include "tc/framework/Device.h"
#include "tc/usb/linux/records/USBRecords.h"

class USBDevice : public Device {
public:
    USBnode* node = nullptr;  // not owned; null on the catalogue's template
    int32_t totalPorts = 0;
    bool isController = false;
    int32_t hubType = 0;

    // Process-wide and never reset: a second identification goes on
    // counting. They rely on devices being identified in creation order.
    static int fieldDeviceCounter;
    static int fieldHubCounter;
    static int factoryHubCounter;
    static int factoryPortCounter;
    static int VersionNumber;

    // The registry's default object: no node.
    USBDevice();
    // A device with a unique name made from `name`, standing for `node`.
    USBDevice(const std::string& name, USBnode* node, bool isController);
    USBDevice(const USBDevice& other);
    USBDevice& operator=(const USBDevice&) = delete;
    ~USBDevice() override;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "USBDevice"; }
    Persistent* CreateCopy() const override { return new USBDevice(*this); }

    const char* GetClassName() const override;
    // Nothing to prepare.
    void Initialize() override;
    void DoID(XmlObject& xml, bool isCatalog) override;

    virtual int GetTotalNumberOfPorts();
    virtual int GetHubType();
    virtual void SetTotalNumberOfPorts(int ports);
    // Does nothing.
    virtual void GetDevInformation();
    // The template form: what such a device looks like and which tests it has.
    virtual void catalog(XmlObject& xml);
    // This device on this machine, in the form the mode asks for.
    virtual void id(XmlObject& xml);
    virtual void id_factory(XmlObject& xml);
    virtual void id_field(XmlObject& xml);

    // True when the first root hub's usbfs node opens for reading and writing.
    bool checkRootHub();

    // The top node of the tree this device holds (null without a node).
    USBnode* TreeTop() const { return top; }

private:
    void AddTests(XmlObject& xml, bool factory, bool forCatalog);
    USBnode* top = nullptr;
};
