// Stored state: the base of every stored object, the streams that carry an
// object graph to and from a file, and the registry that re-creates objects
// by class name.
//
// Byte format (ours; both the 32- and the 64-bit build read and write it):
//   header   "ZORBUSPT" then a 4-byte format number (1)
//   integer  4 bytes, little-endian (the machine order of every target)
//   bool     1 byte, 0 or 1; any other value reads as true
//   string   4-byte length, then the bytes
//   pointer  4-byte tag: 0 null; 1 a new object: class name as a string,
//            then the object's fields; 2 an object already in this stream:
//            4-byte index (objects are numbered from 0 in order of first
//            appearance)
//
// Reading trusts nothing: every count and length is checked against the
// bytes that are left, nesting is bounded, an unknown class or a class of the
// wrong kind is refused. Any such fault throws PersistenceError and the
// objects made so far by the failing read are released.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "common/TvkError.h"

class ptstream;
class iptstream;
class optstream;

// 0 reads from the stream, any other value writes to it.
enum direction { ptRead = 0, ptWrite = 1 };

class Persistent {
public:
    virtual ~Persistent() = default;
    // Version of the stored form. Default implementation returns 0.
    virtual unsigned int Version() const { return 0; }
    virtual void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) = 0;
    // Makes this object a copy of `other`; null, the object itself or an
    // object of another class leave it as it is.
    virtual void CopyFromPointer(const Persistent* other) = 0;
    virtual const char* GetRealClassName() const = 0;
    // A new copy on the heap, owned by the caller.
    virtual Persistent* CreateCopy() const = 0;
};

// The CopyFromPointer of every concrete class T: destroy in place and
// copy-construct from `other`.
template <class T>
void PersistentCopyFrom(T* self, const Persistent* other) {
    const T* source = dynamic_cast<const T*>(other);
    if (!source || source == self) return;
    self->~T();
    new (self) T(*source);
}

class PersistenceError : public TvkError {
public:
    explicit PersistenceError(const std::string& detail);
};

struct indexed_pointer {
    uint32_t index;
    const Persistent* pointer;
    struct by_address {
        bool operator()(const indexed_pointer& a, const indexed_pointer& b) const { return a.pointer < b.pointer; }
    };
    struct by_index {
        bool operator()(const indexed_pointer& a, const indexed_pointer& b) const { return a.index < b.index; }
    };
};

class ptstream {
public:
    virtual ~ptstream() = default;
    // False when the file could not be opened or its header is not ours.
    bool good() const { return ok; }

protected:
    bool ok = false;
};

class optstream : public ptstream {
public:
    // Writes to `path` (binary, replacing what it held) when closed.
    explicit optstream(const std::string& path);
    // Writes to memory only; see GetBuffer().
    optstream();
    ~optstream() override;
    // A copy would write the file twice.
    optstream(const optstream&) = delete;
    optstream& operator=(const optstream&) = delete;

    // Flushes to the file; false when the file could not be written.
    bool close();
    const std::string& GetBuffer() const { return buffer; }

    optstream& operator<<(int32_t v);
    optstream& operator<<(uint32_t v);
    optstream& operator<<(bool v);
    optstream& operator<<(const std::string& v) {
        WriteString(v);
        return *this;
    }
    // Without this a string literal would pick the bool form.
    optstream& operator<<(const char* v) {
        WriteString(v ? v : "");
        return *this;
    }
    optstream& operator<<(const Persistent* object);  // pointer form
    optstream& operator<<(const Persistent& object);  // by-value form
    void WriteString(const std::string& text);
    // A pointer that does not own its target: written as a reference when the
    // target is already in the stream, else as null (it points outside the
    // stored graph).
    void WriteReference(const Persistent* object);

private:
    void WriteRaw(const void* data, size_t size);
    // Looks `object` up by address; a new object is entered with the next
    // index. True when it was there before.
    bool Enter(const Persistent* object, uint32_t& index);
    bool Find(const Persistent* object, uint32_t& index) const;
    std::string path;
    std::string buffer;
    bool toFile = false;
    bool closed = false;
    // Objects written so far, by index, and a hash of their addresses (open
    // addressing, a power of two long; a slot holds index + 1, 0 when empty).
    // No allocation per object, and little memory to touch.
    std::vector<const Persistent*> written;
    std::vector<uint32_t> slots;
};

class iptstream : public ptstream {
public:
    // Reads the whole file at `path`.
    explicit iptstream(const std::string& path);
    // Reads from a memory copy of `bytes` (tests, fuzzing).
    static iptstream FromMemory(const std::string& bytes);
    iptstream(iptstream&&) = default;
    ~iptstream() override = default;

    void close();

    iptstream& operator>>(int32_t& v);
    iptstream& operator>>(uint32_t& v);
    iptstream& operator>>(bool& v);
    iptstream& operator>>(std::string& v) {
        v = ReadString();
        return *this;
    }
    // Pointer form: a new object, a reference to one read before, or null.
    iptstream& operator>>(Persistent*& object);
    // By-value form: fills the existing object.
    iptstream& operator>>(Persistent& object);
    std::string ReadString();

    // An owning pointer of class T: null or a new object, never a reference
    // (so no object can get two owners from a damaged file).
    template <class T>
    void ReadOwned(T*& object);
    // A non-owning pointer of class T: null or an object read before.
    template <class T>
    void ReadReference(T*& object);
    // Any pointer of class T; a reference is allowed (shared objects).
    template <class T>
    void ReadShared(T*& object);

    // A count of elements that each take at least `minBytes`; refuses counts
    // that the rest of the stream cannot hold.
    uint32_t ReadCount(uint32_t minBytes = 1);
    // Releases an object that this stream has just made and the caller does
    // not keep (a duplicate, an object of the wrong class). Later references
    // to it, or to anything read inside it, are refused instead of dangling.
    void Discard(Persistent* object);
    size_t Remaining() const { return data.size() - position; }

private:
    iptstream() = default;
    enum class Kind { Any, Owned, Reference };
    Persistent* ReadPointer(Kind kind);
    void ReadRaw(void* out, size_t size);
    void CheckHeader();

    std::string data;
    size_t position = 0;
    unsigned depth = 0;
    std::vector<Persistent*> table;  // by index
    // Objects whose fields are being read right now, outermost first.
    std::vector<const Persistent*> reading;
    bool BeingRead(const Persistent* object) const;
};

template <class T>
void iptstream::ReadOwned(T*& object) {
    Persistent* p = ReadPointer(Kind::Owned);
    if (!p) {
        object = nullptr;
        return;
    }
    T* typed = dynamic_cast<T*>(p);
    if (!typed) {
        Discard(p);
        throw PersistenceError("object of the wrong class");
    }
    object = typed;
}

template <class T>
void iptstream::ReadReference(T*& object) {
    Persistent* p = ReadPointer(Kind::Reference);
    T* typed = p ? dynamic_cast<T*>(p) : nullptr;
    if (p && !typed) throw PersistenceError("reference to an object of the wrong class");
    object = typed;
}

template <class T>
void iptstream::ReadShared(T*& object) {
    const size_t known = table.size();
    Persistent* p = ReadPointer(Kind::Any);
    // A share of an object that is not whole yet would let its new holder
    // release it under the reader's feet.
    if (p && table.size() == known && BeingRead(p)) throw PersistenceError("shared object that is still being read");
    T* typed = p ? dynamic_cast<T*>(p) : nullptr;
    if (p && !typed) {
        // Nobody else holds an object made by this very read.
        if (table.size() > known && table[known] == p) Discard(p);
        throw PersistenceError("shared object of the wrong class");
    }
    object = typed;
}

// ---- container operators: a 4-byte count, then the elements in order ----

template <class T>
optstream& operator<<(optstream& out, const std::vector<T*>& v) {
    out << static_cast<uint32_t>(v.size());
    for (const T* e : v) out << static_cast<const Persistent*>(e);
    return out;
}

template <class T>
iptstream& operator>>(iptstream& in, std::vector<T*>& v) {
    uint32_t n = in.ReadCount(4);
    for (uint32_t i = 0; i < n; ++i) {
        T* e = nullptr;
        in.ReadOwned(e);
        v.push_back(e);
    }
    return in;
}

template <class T, typename std::enable_if<std::is_base_of<Persistent, T>::value, int>::type = 0>
optstream& operator<<(optstream& out, const std::vector<T>& v) {
    out << static_cast<uint32_t>(v.size());
    for (const T& e : v) out << static_cast<const Persistent&>(e);
    return out;
}

template <class T, typename std::enable_if<std::is_base_of<Persistent, T>::value, int>::type = 0>
iptstream& operator>>(iptstream& in, std::vector<T>& v) {
    uint32_t n = in.ReadCount(1);
    for (uint32_t i = 0; i < n; ++i) {
        v.emplace_back();
        in >> static_cast<Persistent&>(v.back());
    }
    return in;
}

template <class T, class C>
optstream& operator<<(optstream& out, const std::set<T*, C>& s) {
    out << static_cast<uint32_t>(s.size());
    for (const T* e : s) out << static_cast<const Persistent*>(e);
    return out;
}

// Inserts by the set's ordering; an element equal to one already there is
// dropped (and released).
template <class T, class C>
iptstream& operator>>(iptstream& in, std::set<T*, C>& s) {
    uint32_t n = in.ReadCount(4);
    for (uint32_t i = 0; i < n; ++i) {
        T* e = nullptr;
        in.ReadOwned(e);
        if (!e) continue;
        if (!s.insert(e).second) in.Discard(e);
    }
    return in;
}

// ---- class registry ----

struct ClassRegistration {
    std::string name;
    Persistent* (*create)();
    int reserved;
};

class PersistentClassRegistry {
public:
    static void RegisterPersistentClass(const ClassRegistration& registration);
    // A new default object of the named class, or null when it is unknown.
    static Persistent* Create(const std::string& name);
    static bool IsRegistered(const std::string& name);
    static std::vector<std::string> RegisteredNames();

private:
    static std::map<std::string, ClassRegistration>& Table();
};

template <class T>
class ClassRegistrar {
public:
    ClassRegistrar() {
        T probe;
        PersistentClassRegistry::RegisterPersistentClass({probe.GetRealClassName(), &CreateObject, 0});
    }
    static Persistent* CreateObject() { return new T(); }
};
