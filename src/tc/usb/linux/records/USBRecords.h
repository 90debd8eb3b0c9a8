// The in-memory model of the kernel's devices file: a tree of USBnode
// records (root hubs, hubs, devices) with their configurations, interfaces,
// endpoints and the bus bandwidth line. Every collection has 32 numbered
// slots, null for an empty one; room is made only for slots that were filled.
//
// Ownership: a node owns its bandwidth record, configurations and children;
// a configuration owns its interfaces, an interface its endpoints. `parent`
// is a plain back pointer. The tree's top node (the artificial root of a
// parse, or a node standing alone) carries a count of the USBDevice objects
// that point into the tree; the last one to let go deletes the tree.
//
// Stored form: the tree is written from its top down, children and nested
// records as owned objects and `parent` as a reference to a node already in
// the stream, so a damaged file can give no record two owners.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

#include "common/Persistent.h"

class USBconfig;
class USBinterface;
class USBendpoint;
class USBbandwidth;

// Slots in every collection of the tree, and the bound of a topology level.
const int usbMaxSlots = 32;

// usbMaxSlots numbered slots, each null or a record. A large machine has
// thousands of nodes and most of their slots stay empty (a device's
// children, its configurations past the first), so room is made only up to
// the highest slot filled so far. The slots do not own the records: their
// owner deletes them.
template <class T>
class UsbSlots {
public:
    UsbSlots() = default;
    ~UsbSlots() { delete[] items; }
    UsbSlots(const UsbSlots&) = delete;
    UsbSlots& operator=(const UsbSlots&) = delete;

    // Null for an empty slot and for a number outside 0..usbMaxSlots-1.
    T* operator[](int i) const { return i >= 0 && i < room ? items[i] : nullptr; }
    // Fills slot i, 0..usbMaxSlots-1 (std::out_of_range for another).
    void Set(int i, T* item);
    // Every slot empty again and the room given back; records not deleted.
    void Clear() {
        delete[] items;
        items = nullptr;
        room = 0;
    }
    // The slots below this number may hold a record; those above are empty.
    int Room() const { return room; }
    // Exchanges all slots with `other`.
    void Swap(UsbSlots& other) noexcept {
        std::swap(items, other.items);
        std::swap(room, other.room);
    }

    // All usbMaxSlots slots in order, empty ones as null.
    class const_iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T*;
        using difference_type = std::ptrdiff_t;
        using pointer = T* const*;
        using reference = T*;
        const_iterator(const UsbSlots* slots, int i) : slots(slots), i(i) {}
        T* operator*() const { return (*slots)[i]; }
        const_iterator& operator++() {
            ++i;
            return *this;
        }
        const_iterator operator++(int) {
            const_iterator before = *this;
            ++i;
            return before;
        }
        bool operator==(const const_iterator& other) const { return i == other.i; }
        bool operator!=(const const_iterator& other) const { return i != other.i; }

    private:
        const UsbSlots* slots;
        int i;
    };
    const_iterator begin() const { return const_iterator(this, 0); }
    const_iterator end() const { return const_iterator(this, usbMaxSlots); }

private:
    T** items = nullptr;
    int room = 0;
};

template <class T>
void UsbSlots<T>::Set(int i, T* item) {
    if (i < 0 || i >= usbMaxSlots) throw std::out_of_range("USB slot number out of range");
    if (i >= room) {
        if (!item) return;
        // Doubling: ports and controllers are mostly filled in rising order.
        int grown = room > 0 ? room : 1;
        while (grown <= i) grown *= 2;
        if (grown > usbMaxSlots) grown = usbMaxSlots;
        T** more = new T*[grown]();
        for (int k = 0; k < room; ++k) more[k] = items[k];
        delete[] items;
        items = more;
        room = grown;
    }
    items[i] = item;
}

class USBendpoint : public Persistent {
public:
    bool in = false;
    int32_t address = 0;
    int32_t attribute = 0;
    int32_t maxPacketSize = 0;
    std::string type;
    std::string interval;

    USBendpoint() = default;
    void Display() const;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "USBendpoint"; }
    Persistent* CreateCopy() const override { return new USBendpoint(*this); }
};

class USBinterface : public Persistent {
public:
    std::string name;
    std::string class_x;
    int32_t interfaceNumber = 0;
    int32_t alternateNumber = 0;
    int32_t numEndpoints = 0;
    int32_t subClass = 0;
    int32_t protocol = 0;
    bool driverAttached = false;
    UsbSlots<USBendpoint> endpoints;

    USBinterface() = default;
    USBinterface(const USBinterface& other);
    USBinterface& operator=(const USBinterface&) = delete;
    ~USBinterface() override;
    void Display() const;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "USBinterface"; }
    Persistent* CreateCopy() const override { return new USBinterface(*this); }
};

class USBconfig : public Persistent {
public:
    int32_t configNumber = 0;
    int32_t numInterfaces = 0;
    int32_t attributes = 0;
    std::string maxPower;
    UsbSlots<USBinterface> interfaces;

    USBconfig() = default;
    USBconfig(const USBconfig& other);
    USBconfig& operator=(const USBconfig&) = delete;
    ~USBconfig() override;
    void Display() const;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "USBconfig"; }
    Persistent* CreateCopy() const override { return new USBconfig(*this); }
};

class USBbandwidth : public Persistent {
public:
    int32_t allocated = 0;
    int32_t total = 0;
    int32_t percent = 0;
    int32_t irq = 0;
    int32_t isocrq = 0;

    USBbandwidth() = default;
    void Display() const;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "USBbandwidth"; }
    Persistent* CreateCopy() const override { return new USBbandwidth(*this); }
};

// Values of USBnode::kind.
enum USBnodeKind { usbKindNone = 0, usbKindHub = 9, usbKindInterfaceDevice = 666, usbKindEmptyPort = 999 };

class USBnode : public Persistent {
public:
    std::string name;
    std::string speed;
    std::string version;
    std::string class_x;
    std::string subClass;
    std::string protocol;
    std::string vendorId;
    std::string productId;
    std::string revisionNumber;
    std::string manufacturer;
    std::string product;
    std::string serialNumber;
    int32_t busNumber = 0;
    int32_t level = -1;
    int32_t parentNumber = 0;
    int32_t portNumber = 0;
    int32_t connectorNumber = 0;
    int32_t count = 0;
    int32_t deviceNumber = 0;
    int32_t maxChildren = 0;
    int32_t maxPacketSize = 0;
    int32_t numConfigs = 0;
    UsbSlots<USBconfig> configurations;
    USBnode* parent = nullptr;
    UsbSlots<USBnode> children;
    USBbandwidth* bandwidth = nullptr;
    // Not stored.
    int32_t hubFlag = 0;
    int32_t kind = usbKindNone;

    USBnode() = default;
    // A deep copy that stands alone: its own records below it, no parent and
    // no holders.
    USBnode(const USBnode& other);
    USBnode& operator=(const USBnode&) = delete;
    ~USBnode() override;
    void Display() const;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    // Replaces this node's fields and the records below it with copies of
    // the other's; the node keeps its place in its tree and its holders.
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "USBnode"; }
    Persistent* CreateCopy() const override { return new USBnode(*this); }

    // ---- shared ownership of a whole tree by the devices that use it ----
    // The top of `node`'s tree (the node itself when it has no parent); null
    // for a null node or a parent chain longer than any real tree.
    static USBnode* TopOf(USBnode* node);
    // Counts one more user of the tree whose top is `top`.
    static void Hold(USBnode* top);
    // Counts one user less; the last one deletes the tree.
    static void Release(USBnode* top);
    int32_t Holders() const { return holders; }

private:
    void DeleteRecords();
    void CopyRecordsFrom(const USBnode& other);
    int32_t holders = 0;  // transient, meaningful on a top node only
};

// Free-standing records of a controller; stored, never filled by discovery.
class USBcontroller : public Persistent {
public:
    std::string texts[5];
    int32_t numbers[5] = {};

    USBcontroller() = default;
    // Does nothing.
    void Display() const;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "USBcontroller"; }
    Persistent* CreateCopy() const override { return new USBcontroller(*this); }
};
