#include "tc/usb/linux/records/LsusbRecords.h"

#include <algorithm>
#include <initializer_list>

namespace {

// The string fields of a record, in stored order.
void Strings(ptstream& stream, direction dir, std::initializer_list<std::string*> fields) {
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        for (std::string* field : fields) in >> *field;
    } else {
        optstream& out = static_cast<optstream&>(stream);
        for (std::string* field : fields) out << *field;
    }
}

// The parser adds each child right after making it, so the current child
// is normally the last entry: look there first.
template <class T>
bool Holds(const std::vector<T*>& list, const T* child) {
    if (!list.empty() && list.back() == child) return true;
    return std::find(list.begin(), list.end(), child) != list.end();
}

// Deletes the list's children and a current child that never made it into
// the list.
template <class T>
void FreeChildren(std::vector<T*>& list, T*& current) {
    if (current && !Holds(list, current)) delete current;
    current = nullptr;
    for (T* child : list) delete child;
    list.clear();
}

// A fresh current child; one made before and never added is not leaked.
template <class T>
T* MakeCurrent(const std::vector<T*>& list, T*& current) {
    T* child = new T();
    if (current && !Holds(list, current)) delete current;
    current = child;
    return child;
}

// Appends a child; adding the last one again would give it two owners.
template <class T>
void Append(std::vector<T*>& list, T* child) {
    if (!child || (!list.empty() && list.back() == child)) return;
    list.push_back(child);
}

}  // namespace

// ---- USBEndpoints ----

USBEndpoints& USBEndpoints::operator=(const USBEndpoints& other) {
    CopyFromPointer(&other);
    return *this;
}

void USBEndpoints::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    Strings(stream, dir,
            {&bLength, &bDescriptorType, &bEndpointAddress, &bmAttributes, &transferType, &synchType, &usageType,
             &wMaxPacketSize, &bInterval});
}

void USBEndpoints::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

// ---- USBHidDevices ----

USBHidDevices& USBHidDevices::operator=(const USBHidDevices& other) {
    CopyFromPointer(&other);
    return *this;
}

void USBHidDevices::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    Strings(stream, dir, {&bLength, &bDescriptorType, &bcdHID, &bCountryCode, &bNumDescriptors, &wDescriptorLength});
}

void USBHidDevices::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

// ---- USBHub ----

USBHub::USBHub(const USBHub& other)
    : Persistent(other),
      bLength(other.bLength),
      bDescriptorType(other.bDescriptorType),
      nNbrPorts(other.nNbrPorts),
      wHubCharacteristic(other.wHubCharacteristic),
      bPwrOn2PwrGood(other.bPwrOn2PwrGood),
      bHubContrCurrent(other.bHubContrCurrent),
      DeviceRemovable(other.DeviceRemovable),
      PortPwrCtrlMask(other.PortPwrCtrlMask) {}

USBHub& USBHub::operator=(const USBHub& other) {
    CopyFromPointer(&other);
    return *this;
}

void USBHub::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) portStatusBlocks.clear();
    Strings(stream, dir,
            {&bLength, &bDescriptorType, &nNbrPorts, &wHubCharacteristic, &bPwrOn2PwrGood, &bHubContrCurrent,
             &DeviceRemovable, &PortPwrCtrlMask});
}

void USBHub::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

void USBHub::addObjectToVector(const std::string& block) { portStatusBlocks.push_back(block); }

int USBHub::getNumObjects() const { return static_cast<int>(portStatusBlocks.size()); }

// ---- USBInterfaces ----

USBInterfaces::USBInterfaces(const USBInterfaces& other)
    : Persistent(other),
      bLength(other.bLength),
      bDescriptorType(other.bDescriptorType),
      bInterfaceNumber(other.bInterfaceNumber),
      bAlternateSetting(other.bAlternateSetting),
      bNumEndpoints(other.bNumEndpoints),
      bInterfaceClass(other.bInterfaceClass),
      bInterfaceSubClass(other.bInterfaceSubClass),
      bInterfaceProtocol(other.bInterfaceProtocol),
      iInterface(other.iInterface) {}

USBInterfaces& USBInterfaces::operator=(const USBInterfaces& other) {
    CopyFromPointer(&other);
    return *this;
}

USBInterfaces::~USBInterfaces() {
    FreeChildren(endpoints, currentEndpoint);
    FreeChildren(hidDevices, currentHidDevice);
    FreeChildren(hubs, currentHub);
}

void USBInterfaces::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    Strings(stream, dir,
            {&bLength, &bDescriptorType, &bInterfaceNumber, &bAlternateSetting, &bNumEndpoints, &bInterfaceClass,
             &bInterfaceSubClass, &bInterfaceProtocol, &iInterface});
}

void USBInterfaces::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

USBEndpoints* USBInterfaces::createUSBEndpoints() { return MakeCurrent(endpoints, currentEndpoint); }
USBHidDevices* USBInterfaces::createUSBHidDevices() { return MakeCurrent(hidDevices, currentHidDevice); }
USBHub* USBInterfaces::createUSBHub() { return MakeCurrent(hubs, currentHub); }
void USBInterfaces::addObjectToEndpointVector(USBEndpoints* endpoint) { Append(endpoints, endpoint); }
void USBInterfaces::addObjectToHidVector(USBHidDevices* hid) { Append(hidDevices, hid); }
void USBInterfaces::addObjectToHubVector(USBHub* hub) { Append(hubs, hub); }
int USBInterfaces::getNumEndpointObjects() const { return static_cast<int>(endpoints.size()); }
int USBInterfaces::getNumHidObjects() const { return static_cast<int>(hidDevices.size()); }
int USBInterfaces::getNumHubObjects() const { return static_cast<int>(hubs.size()); }

// ---- USBConfiguration ----

USBConfiguration::USBConfiguration(const USBConfiguration& other)
    : Persistent(other),
      bLength(other.bLength),
      bDescriptorType(other.bDescriptorType),
      wTotalLength(other.wTotalLength),
      bNumInterfaces(other.bNumInterfaces),
      bConfigurationValue(other.bConfigurationValue),
      iConfiguration(other.iConfiguration),
      bmAttributes(other.bmAttributes),
      MaxPower(other.MaxPower) {}

USBConfiguration& USBConfiguration::operator=(const USBConfiguration& other) {
    CopyFromPointer(&other);
    return *this;
}

USBConfiguration::~USBConfiguration() { FreeChildren(interfaces, currentInterface); }

void USBConfiguration::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    Strings(stream, dir,
            {&bLength, &bDescriptorType, &wTotalLength, &bNumInterfaces, &bConfigurationValue, &iConfiguration,
             &bmAttributes, &MaxPower});
}

void USBConfiguration::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

USBInterfaces* USBConfiguration::createUSBInterfaces() { return MakeCurrent(interfaces, currentInterface); }
void USBConfiguration::addObjectToVector(USBInterfaces* interface) { Append(interfaces, interface); }
int USBConfiguration::getNumObjects() const { return static_cast<int>(interfaces.size()); }

// ---- USBDevicesNode ----

USBDevicesNode::USBDevicesNode(const USBDevicesNode& other)
    : Persistent(other),
      bLength(other.bLength),
      bDescriptorType(other.bDescriptorType),
      bcdUSB(other.bcdUSB),
      bDeviceClass(other.bDeviceClass),
      bDeviceSubClass(other.bDeviceSubClass),
      bDeviceProtocol(other.bDeviceProtocol),
      bMaxPacketSize0(other.bMaxPacketSize0),
      idVendor(other.idVendor),
      idProduct(other.idProduct),
      bcdDevice(other.bcdDevice),
      iManufacturer(other.iManufacturer),
      iProduct(other.iProduct),
      iSerial(other.iSerial),
      bNumConfigurations(other.bNumConfigurations),
      deviceStatus(other.deviceStatus) {}

USBDevicesNode& USBDevicesNode::operator=(const USBDevicesNode& other) {
    CopyFromPointer(&other);
    return *this;
}

USBDevicesNode::~USBDevicesNode() { FreeChildren(configurations, currentConfiguration); }

void USBDevicesNode::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    Strings(
        stream, dir,
        {&bLength, &bDescriptorType, &bcdUSB, &bDeviceClass, &bDeviceSubClass, &bDeviceProtocol, &bMaxPacketSize0,
         &idVendor, &idProduct, &bcdDevice, &iManufacturer, &iProduct, &iSerial, &bNumConfigurations, &deviceStatus});
}

void USBDevicesNode::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

USBConfiguration* USBDevicesNode::createUSBConfiguration() { return MakeCurrent(configurations, currentConfiguration); }
void USBDevicesNode::addObjectToVector(USBConfiguration* configuration) { Append(configurations, configuration); }
int USBDevicesNode::getNumObjects() const { return static_cast<int>(configurations.size()); }

static ClassRegistrar<USBDevicesNode> USBDevicesNodeClassRegistrar;
static ClassRegistrar<USBConfiguration> USBConfigurationClassRegistrar;
static ClassRegistrar<USBInterfaces> USBInterfacesClassRegistrar;
static ClassRegistrar<USBEndpoints> USBEndpointsClassRegistrar;
static ClassRegistrar<USBHidDevices> USBHidDevicesClassRegistrar;
static ClassRegistrar<USBHub> USBHubClassRegistrar;
