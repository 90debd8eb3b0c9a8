#include "tc/usb/linux/records/USBRecords.h"

#include "common/Debug.h"

namespace {

// Longer than any parent chain that a parse (levels 0..31 under the root) or
// a stored file (nesting is bounded by the stream) can produce.
const int maxParentWalk = 300;

template <class T>
void DeleteSlots(UsbSlots<T>& slots) {
    for (int i = 0; i < slots.Room(); ++i) delete slots[i];
    slots.Clear();
}

// Deep copies; `to` is empty.
template <class T>
void CopySlots(UsbSlots<T>& to, const UsbSlots<T>& from) {
    for (int i = 0; i < from.Room(); ++i) {
        if (!from[i]) continue;
        T* copy = new T(*from[i]);
        try {
            to.Set(i, copy);
        } catch (...) {
            delete copy;
            throw;
        }
    }
}

// Always all usbMaxSlots slots, empty ones as null: the stored form does not
// depend on how much room the slots had.
template <class T>
void WriteSlots(optstream& out, const UsbSlots<T>& slots) {
    for (const T* slot : slots) out << static_cast<const Persistent*>(slot);
}

// Every slot is an owned object: a reference in its place is refused.
// `slots` is empty; a record read is in its slot before anything else can
// fail, so that its owner frees it.
template <class T>
void ReadSlots(iptstream& in, UsbSlots<T>& slots) {
    for (int i = 0; i < usbMaxSlots; ++i) {
        T* slot = nullptr;
        in.ReadOwned(slot);
        if (!slot) continue;
        try {
            slots.Set(i, slot);
        } catch (...) {
            delete slot;
            throw;
        }
    }
}

}  // namespace

// ---- USBendpoint ----

void USBendpoint::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) {
        iptstream& is = static_cast<iptstream&>(stream);
        is >> in >> address >> attribute >> maxPacketSize >> type >> interval;
    } else {
        optstream& out = static_cast<optstream&>(stream);
        out << in << address << attribute << maxPacketSize << type << interval;
    }
}

void USBendpoint::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

void USBendpoint::Display() const {
    dbgprintf("      Endpoint: in=%d address=0x%02x attribute=0x%02x maxPacketSize=%d type=%s interval=%s\n",
              in ? 1 : 0, address, attribute, maxPacketSize, type.c_str(), interval.c_str());
}

// ---- USBinterface ----

USBinterface::USBinterface(const USBinterface& other)
    : Persistent(other),
      name(other.name),
      class_x(other.class_x),
      interfaceNumber(other.interfaceNumber),
      alternateNumber(other.alternateNumber),
      numEndpoints(other.numEndpoints),
      subClass(other.subClass),
      protocol(other.protocol),
      driverAttached(other.driverAttached) {
    CopySlots(endpoints, other.endpoints);
}

USBinterface::~USBinterface() { DeleteSlots(endpoints); }

void USBinterface::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        DeleteSlots(endpoints);
        in >> name >> class_x >> interfaceNumber >> alternateNumber >> numEndpoints >> subClass >> protocol >>
            driverAttached;
        ReadSlots(in, endpoints);
    } else {
        optstream& out = static_cast<optstream&>(stream);
        out << name << class_x << interfaceNumber << alternateNumber << numEndpoints << subClass << protocol
            << driverAttached;
        WriteSlots(out, endpoints);
    }
}

void USBinterface::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

void USBinterface::Display() const {
    dbgprintf("    Interface: name=%s class=%s number=%d alternate=%d endpoints=%d subClass=%d protocol=%d driver=%d\n",
              name.c_str(), class_x.c_str(), interfaceNumber, alternateNumber, numEndpoints, subClass, protocol,
              driverAttached ? 1 : 0);
    for (const USBendpoint* e : endpoints)
        if (e) e->Display();
}

// ---- USBconfig ----

USBconfig::USBconfig(const USBconfig& other)
    : Persistent(other),
      configNumber(other.configNumber),
      numInterfaces(other.numInterfaces),
      attributes(other.attributes),
      maxPower(other.maxPower) {
    CopySlots(interfaces, other.interfaces);
}

USBconfig::~USBconfig() { DeleteSlots(interfaces); }

void USBconfig::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        DeleteSlots(interfaces);
        in >> configNumber >> numInterfaces >> attributes >> maxPower;
        ReadSlots(in, interfaces);
    } else {
        optstream& out = static_cast<optstream&>(stream);
        out << configNumber << numInterfaces << attributes << maxPower;
        WriteSlots(out, interfaces);
    }
}

void USBconfig::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

void USBconfig::Display() const {
    dbgprintf("  Config: number=%d interfaces=%d attributes=0x%02x maxPower=%s\n", configNumber, numInterfaces,
              attributes, maxPower.c_str());
    for (const USBinterface* i : interfaces)
        if (i) i->Display();
}

// ---- USBbandwidth ----

void USBbandwidth::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        in >> allocated >> total >> percent >> irq >> isocrq;
    } else {
        optstream& out = static_cast<optstream&>(stream);
        out << allocated << total << percent << irq << isocrq;
    }
}

void USBbandwidth::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

void USBbandwidth::Display() const {
    dbgprintf("  Bandwidth: allocated=%d total=%d percent=%d irq=%d isocrq=%d\n", allocated, total, percent, irq,
              isocrq);
}

// ---- USBnode ----

USBnode::USBnode(const USBnode& other)
    : Persistent(other),
      name(other.name),
      speed(other.speed),
      version(other.version),
      class_x(other.class_x),
      subClass(other.subClass),
      protocol(other.protocol),
      vendorId(other.vendorId),
      productId(other.productId),
      revisionNumber(other.revisionNumber),
      manufacturer(other.manufacturer),
      product(other.product),
      serialNumber(other.serialNumber),
      busNumber(other.busNumber),
      level(other.level),
      parentNumber(other.parentNumber),
      portNumber(other.portNumber),
      connectorNumber(other.connectorNumber),
      count(other.count),
      deviceNumber(other.deviceNumber),
      maxChildren(other.maxChildren),
      maxPacketSize(other.maxPacketSize),
      numConfigs(other.numConfigs),
      hubFlag(other.hubFlag),
      kind(other.kind) {
    CopyRecordsFrom(other);
}

USBnode::~USBnode() { DeleteRecords(); }

void USBnode::DeleteRecords() {
    DeleteSlots(configurations);
    DeleteSlots(children);
    delete bandwidth;
    bandwidth = nullptr;
}

void USBnode::CopyRecordsFrom(const USBnode& other) {
    CopySlots(configurations, other.configurations);
    CopySlots(children, other.children);
    for (int i = 0; i < children.Room(); ++i)
        if (children[i]) children[i]->parent = this;
    bandwidth = other.bandwidth ? new USBbandwidth(*other.bandwidth) : nullptr;
}

void USBnode::CopyFromPointer(const Persistent* other) {
    const USBnode* source = dynamic_cast<const USBnode*>(other);
    if (!source || source == this) return;
    // Copied first: the source may lie below this node.
    USBnode copy(*source);
    DeleteRecords();
    name = copy.name;
    speed = copy.speed;
    version = copy.version;
    class_x = copy.class_x;
    subClass = copy.subClass;
    protocol = copy.protocol;
    vendorId = copy.vendorId;
    productId = copy.productId;
    revisionNumber = copy.revisionNumber;
    manufacturer = copy.manufacturer;
    product = copy.product;
    serialNumber = copy.serialNumber;
    busNumber = copy.busNumber;
    level = copy.level;
    parentNumber = copy.parentNumber;
    portNumber = copy.portNumber;
    connectorNumber = copy.connectorNumber;
    count = copy.count;
    deviceNumber = copy.deviceNumber;
    maxChildren = copy.maxChildren;
    maxPacketSize = copy.maxPacketSize;
    numConfigs = copy.numConfigs;
    hubFlag = copy.hubFlag;
    kind = copy.kind;
    // Take over the copy's records instead of copying them again.
    configurations.Swap(copy.configurations);
    children.Swap(copy.children);
    for (int i = 0; i < children.Room(); ++i)
        if (children[i]) children[i]->parent = this;
    bandwidth = copy.bandwidth;
    copy.bandwidth = nullptr;
}

void USBnode::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        DeleteRecords();
        in >> name >> speed >> version >> class_x >> subClass >> protocol >> vendorId >> productId >> revisionNumber >>
            manufacturer >> product >> serialNumber;
        in >> busNumber >> level >> parentNumber >> portNumber >> connectorNumber >> count >> deviceNumber >>
            maxChildren >> maxPacketSize >> numConfigs;
        ReadSlots(in, configurations);
        in.ReadReference(parent);
        for (int i = 0; i < usbMaxSlots; ++i) {
            USBnode* child = nullptr;
            in.ReadOwned(child);
            if (!child) continue;
            try {
                children.Set(i, child);
            } catch (...) {
                delete child;
                throw;
            }
            // The child is this node's now (and goes with it on a failure);
            // its back pointer must say so.
            if (child->parent != this) throw PersistenceError("USB node stored under a node not its parent");
        }
        in.ReadOwned(bandwidth);
    } else {
        optstream& out = static_cast<optstream&>(stream);
        out << name << speed << version << class_x << subClass << protocol << vendorId << productId << revisionNumber
            << manufacturer << product << serialNumber;
        out << busNumber << level << parentNumber << portNumber << connectorNumber << count << deviceNumber
            << maxChildren << maxPacketSize << numConfigs;
        WriteSlots(out, configurations);
        out.WriteReference(parent);
        WriteSlots(out, children);
        out << static_cast<const Persistent*>(bandwidth);
    }
}

void USBnode::Display() const {
    dbgprintf("Node: name=%s speed=%s version=%s class=%s subClass=%s protocol=%s\n", name.c_str(), speed.c_str(),
              version.c_str(), class_x.c_str(), subClass.c_str(), protocol.c_str());
    dbgprintf("  vendor=%s product=%s revision=%s manufacturer=%s productName=%s serial=%s\n", vendorId.c_str(),
              productId.c_str(), revisionNumber.c_str(), manufacturer.c_str(), product.c_str(), serialNumber.c_str());
    dbgprintf("  bus=%d level=%d parent=%d port=%d connector=%d count=%d device=%d maxChildren=%d maxPacketSize=%d "
              "configs=%d\n",
              busNumber, level, parentNumber, portNumber, connectorNumber, count, deviceNumber, maxChildren,
              maxPacketSize, numConfigs);
    if (bandwidth) bandwidth->Display();
    for (int i = 0; i < numConfigs && i < usbMaxSlots; ++i)
        if (configurations[i]) configurations[i]->Display();
    for (const USBnode* child : children)
        if (child) child->Display();
}

USBnode* USBnode::TopOf(USBnode* node) {
    for (int steps = 0; node; ++steps) {
        if (!node->parent) return node;
        if (steps >= maxParentWalk) return nullptr;
        node = node->parent;
    }
    return nullptr;
}

void USBnode::Hold(USBnode* top) {
    if (top) ++top->holders;
}

void USBnode::Release(USBnode* top) {
    if (!top) return;
    if (--top->holders <= 0) delete top;
}

// ---- USBcontroller ----

void USBcontroller::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        for (std::string& t : texts) in >> t;
        for (int32_t& n : numbers) in >> n;
    } else {
        optstream& out = static_cast<optstream&>(stream);
        for (const std::string& t : texts) out << t;
        for (int32_t n : numbers) out << n;
    }
}

void USBcontroller::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

void USBcontroller::Display() const {}

static ClassRegistrar<USBnode> USBnodeClassRegistrar;
static ClassRegistrar<USBconfig> USBconfigClassRegistrar;
static ClassRegistrar<USBinterface> USBinterfaceClassRegistrar;
static ClassRegistrar<USBendpoint> USBendpointClassRegistrar;
static ClassRegistrar<USBbandwidth> USBbandwidthClassRegistrar;
static ClassRegistrar<USBcontroller> USBcontrollerClassRegistrar;
