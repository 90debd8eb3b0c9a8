// Streams that carry an object graph to and from the state file, and the
// registry that re-creates objects by class name. The byte format is told in
// Persistent.h.
#include "common/Persistent.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include <sys/stat.h>

namespace {

const char kMagic[8] = {'Z', 'O', 'R', 'B', 'U', 'S', 'P', 'T'};
const uint32_t kFormat = 1;
const size_t kHeaderSize = sizeof kMagic + 4;

enum : uint32_t { kTagNull = 0, kTagNew = 1, kTagKnown = 2 };

// Far deeper than any real graph (the USB tree is at most a few dozen levels),
// shallow enough that a hostile file cannot exhaust the host thread's stack.
const unsigned kMaxDepth = 256;

// Every object takes at least a tag, a name length and one name byte; this
// bounds how many objects a stream can hold, so the index table is reserved
// once. The cap keeps a huge file from reserving more than it is likely to use.
const size_t kMinObjectBytes = 9;
const size_t kReserveCap = 1 << 16;

// Slots of the writer's address table at first; doubles as it fills.
const size_t kFirstTableSize = 1024;

size_t AddressHash(const Persistent* object) {
    // Fibonacci hashing; heap addresses differ mostly in their middle bits.
    const uint64_t a = reinterpret_cast<uintptr_t>(object);
    return static_cast<size_t>((a * 0x9e3779b97f4a7c15ull) >> 20);
}

void PutU32(std::string& out, uint32_t v) {
    const char bytes[4] = {static_cast<char>(v & 0xff), static_cast<char>((v >> 8) & 0xff),
                           static_cast<char>((v >> 16) & 0xff), static_cast<char>((v >> 24) & 0xff)};
    out.append(bytes, 4);
}

uint32_t GetU32(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

bool ReadWholeFile(const std::string& path, std::string& out) {
    std::FILE* file = std::fopen(path.c_str(), "rbe");
    if (!file) return false;
    // A directory opens for reading too; only a regular file holds state.
    struct stat status;
    if (fstat(fileno(file), &status) != 0 || !S_ISREG(status.st_mode)) {
        std::fclose(file);
        return false;
    }
    std::string bytes;
    if (status.st_size > 0 && static_cast<uint64_t>(status.st_size) < bytes.max_size())
        bytes.reserve(static_cast<size_t>(status.st_size));
    char chunk[64 * 1024];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) bytes.append(chunk, got);
    const bool failed = std::ferror(file) != 0;
    std::fclose(file);
    if (failed) return false;
    out = std::move(bytes);
    return true;
}

bool WriteWholeFile(const std::string& path, const std::string& bytes) {
    std::FILE* file = std::fopen(path.c_str(), "wbe");
    if (!file) return false;
    bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (std::fclose(file) != 0) written = false;
    return written;
}

// Keeps the nesting count right on every way out of a nested read.
class DepthGuard {
public:
    explicit DepthGuard(unsigned& depth) : depth(depth) {
        if (depth >= kMaxDepth)
            throw PersistenceError("objects nested deeper than " + std::to_string(kMaxDepth) + " levels");
        ++depth;
    }
    ~DepthGuard() { --depth; }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;

private:
    unsigned& depth;
};

}  // namespace

PersistenceError::PersistenceError(const std::string& detail) : TvkError("Damaged state file", detail, "") {}

// ---- optstream ----

optstream::optstream(const std::string& path) : path(path), toFile(true) {
    ok = true;
    buffer.append(kMagic, sizeof kMagic);
    PutU32(buffer, kFormat);
}

optstream::optstream() {
    ok = true;
    buffer.append(kMagic, sizeof kMagic);
    PutU32(buffer, kFormat);
}

optstream::~optstream() { close(); }

bool optstream::close() {
    if (closed) return ok;
    closed = true;
    std::vector<const Persistent*>().swap(written);
    std::vector<uint32_t>().swap(slots);
    if (toFile && !WriteWholeFile(path, buffer)) ok = false;
    return ok;
}

void optstream::WriteRaw(const void* data, size_t size) { buffer.append(static_cast<const char*>(data), size); }

optstream& optstream::operator<<(int32_t v) {
    PutU32(buffer, static_cast<uint32_t>(v));
    return *this;
}

optstream& optstream::operator<<(uint32_t v) {
    PutU32(buffer, v);
    return *this;
}

optstream& optstream::operator<<(bool v) {
    const char byte = v ? 1 : 0;
    WriteRaw(&byte, 1);
    return *this;
}

void optstream::WriteString(const std::string& text) {
    // Only a 64-bit build can hold a longer string.
    if (sizeof(size_t) > 4 && (static_cast<uint64_t>(text.size()) >> 32) != 0)
        throw TvkError("String too long to store", std::to_string(text.size()), "");
    PutU32(buffer, static_cast<uint32_t>(text.size()));
    buffer.append(text);
}

optstream& optstream::operator<<(const Persistent* object) {
    if (!object) {
        PutU32(buffer, kTagNull);
        return *this;
    }
    // Entered before its fields, so that objects inside it can refer back.
    uint32_t index;
    if (Enter(object, index)) {
        PutU32(buffer, kTagKnown);
        PutU32(buffer, index);
        return *this;
    }
    PutU32(buffer, kTagNew);
    const char* name = object->GetRealClassName();
    WriteString(name ? name : "");
    // Writing leaves the object as it is; ReadAndWrite serves both directions.
    const_cast<Persistent*>(object)->ReadAndWrite(*this, ptWrite, 0);
    return *this;
}

optstream& optstream::operator<<(const Persistent& object) {
    const_cast<Persistent&>(object).ReadAndWrite(*this, ptWrite, 0);
    return *this;
}

void optstream::WriteReference(const Persistent* object) {
    uint32_t index;
    if (!object || !Find(object, index)) {
        PutU32(buffer, kTagNull);
        return;
    }
    PutU32(buffer, kTagKnown);
    PutU32(buffer, index);
}

bool optstream::Find(const Persistent* object, uint32_t& index) const {
    if (slots.empty()) return false;
    const size_t mask = slots.size() - 1;
    for (size_t slot = AddressHash(object) & mask; slots[slot]; slot = (slot + 1) & mask) {
        if (written[slots[slot] - 1] == object) {
            index = slots[slot] - 1;
            return true;
        }
    }
    return false;
}

bool optstream::Enter(const Persistent* object, uint32_t& index) {
    // Kept at most half full, so that probe runs stay short.
    if ((written.size() + 1) * 2 > slots.size()) {
        slots.assign(std::max(slots.size() * 2, kFirstTableSize), 0);
        const size_t mask = slots.size() - 1;
        for (size_t i = 0; i < written.size(); ++i) {
            size_t slot = AddressHash(written[i]) & mask;
            while (slots[slot]) slot = (slot + 1) & mask;
            slots[slot] = static_cast<uint32_t>(i + 1);
        }
    }
    const size_t mask = slots.size() - 1;
    size_t slot = AddressHash(object) & mask;
    for (; slots[slot]; slot = (slot + 1) & mask) {
        if (written[slots[slot] - 1] == object) {
            index = slots[slot] - 1;
            return true;
        }
    }
    index = static_cast<uint32_t>(written.size());
    written.push_back(object);
    slots[slot] = index + 1;
    return false;
}

// ---- iptstream ----

iptstream::iptstream(const std::string& path) {
    if (ReadWholeFile(path, data)) CheckHeader();
}

iptstream iptstream::FromMemory(const std::string& bytes) {
    iptstream stream;
    stream.data = bytes;
    stream.CheckHeader();
    return stream;
}

void iptstream::CheckHeader() {
    position = 0;
    ok = data.size() >= kHeaderSize && std::memcmp(data.data(), kMagic, sizeof kMagic) == 0 &&
         GetU32(reinterpret_cast<const unsigned char*>(data.data()) + sizeof kMagic) == kFormat;
    if (!ok) {
        std::string().swap(data);
        return;
    }
    position = kHeaderSize;
    table.reserve(std::min(Remaining() / kMinObjectBytes, kReserveCap));
}

void iptstream::close() {
    ok = false;
    std::string().swap(data);
    position = 0;
    std::vector<Persistent*>().swap(table);
}

void iptstream::ReadRaw(void* out, size_t size) {
    if (!ok) throw PersistenceError("not a readable state file");
    if (size > Remaining()) throw PersistenceError("unexpected end of data");
    std::memcpy(out, data.data() + position, size);
    position += size;
}

iptstream& iptstream::operator>>(uint32_t& v) {
    unsigned char bytes[4];
    ReadRaw(bytes, 4);
    v = GetU32(bytes);
    return *this;
}

iptstream& iptstream::operator>>(int32_t& v) {
    uint32_t u;
    *this >> u;
    v = static_cast<int32_t>(u);
    return *this;
}

iptstream& iptstream::operator>>(bool& v) {
    unsigned char byte;
    ReadRaw(&byte, 1);
    v = byte != 0;
    return *this;
}

std::string iptstream::ReadString() {
    uint32_t length;
    *this >> length;
    if (length > Remaining()) throw PersistenceError("string length " + std::to_string(length) + " exceeds the data");
    std::string text(data, position, length);
    position += length;
    return text;
}

uint32_t iptstream::ReadCount(uint32_t minBytes) {
    uint32_t count;
    *this >> count;
    // Division, not multiplication: count * minBytes can overflow.
    if (count > Remaining() / std::max<uint32_t>(minBytes, 1))
        throw PersistenceError("count " + std::to_string(count) + " exceeds the data");
    return count;
}

void iptstream::Discard(Persistent* object) {
    if (!object) return;
    // The object and everything read inside it sit at the end of the table.
    for (size_t i = table.size(); i-- > 0;) {
        if (table[i] == object) {
            std::fill(table.begin() + static_cast<std::ptrdiff_t>(i), table.end(), nullptr);
            break;
        }
    }
    delete object;
}

Persistent* iptstream::ReadPointer(Kind kind) {
    uint32_t tag;
    *this >> tag;
    switch (tag) {
        case kTagNull: return nullptr;
        case kTagKnown: {
            if (kind == Kind::Owned) throw PersistenceError("reference where an owned object is expected");
            uint32_t index;
            *this >> index;
            if (index >= table.size())
                throw PersistenceError("reference to object " + std::to_string(index) + " not read yet");
            if (!table[index]) throw PersistenceError("reference to released object " + std::to_string(index));
            return table[index];
        }
        case kTagNew: {
            if (kind == Kind::Reference) throw PersistenceError("new object where a reference is expected");
            const std::string name = ReadString();
            DepthGuard guard(depth);
            Persistent* object = PersistentClassRegistry::Create(name);
            if (!object) throw PersistenceError("unknown class " + name);
            const size_t index = table.size();
            try {
                table.push_back(object);
                reading.push_back(object);
                object->ReadAndWrite(*this, ptRead, 0);
                reading.pop_back();
            } catch (...) {
                reading.pop_back();
                // What was read inside the object went with it (or was never
                // kept); no later reference may reach any of it.
                if (index < table.size())
                    std::fill(table.begin() + static_cast<std::ptrdiff_t>(index), table.end(), nullptr);
                delete object;
                throw;
            }
            return object;
        }
        default: throw PersistenceError("unknown pointer tag " + std::to_string(tag));
    }
}

bool iptstream::BeingRead(const Persistent* object) const {
    return std::find(reading.begin(), reading.end(), object) != reading.end();
}

iptstream& iptstream::operator>>(Persistent*& object) {
    object = ReadPointer(Kind::Any);
    return *this;
}

iptstream& iptstream::operator>>(Persistent& object) {
    DepthGuard guard(depth);
    object.ReadAndWrite(*this, ptRead, 0);
    return *this;
}

// ---- registry ----

std::map<std::string, ClassRegistration>& PersistentClassRegistry::Table() {
    // Built on first use: registrars run during static initialisation, in no
    // fixed order across files.
    static std::map<std::string, ClassRegistration> table;
    return table;
}

void PersistentClassRegistry::RegisterPersistentClass(const ClassRegistration& registration) {
    if (registration.name.empty() || !registration.create) return;
    // The first registration of a name stays.
    Table().emplace(registration.name, registration);
}

Persistent* PersistentClassRegistry::Create(const std::string& name) {
    const auto& table = Table();
    const auto found = table.find(name);
    if (found == table.end()) return nullptr;
    return found->second.create();
}

bool PersistentClassRegistry::IsRegistered(const std::string& name) { return Table().count(name) != 0; }

std::vector<std::string> PersistentClassRegistry::RegisteredNames() {
    std::vector<std::string> names;
    names.reserve(Table().size());
    for (const auto& entry : Table()) names.push_back(entry.first);
    return names;
}
