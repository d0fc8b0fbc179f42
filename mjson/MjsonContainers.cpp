// The two containers: JsonObject (members in insertion order, with an
// open-addressing index that falls back to a keyed hash under chosen keys)
// and JsonArray; and the proxies that name one member or element.
#include <string.h>

#include <algorithm>
#include <random>

#include "Mjson.h"
#include "MjsonInternal.h"
#include "MjsonScratch.h"

using namespace mjson::detail;

// ---------------------------------------------------------------------------
// JsonObject

namespace {

constexpr size_t kIndexThreshold = 8;

// With the index at most half full, probe runs of ordinary keys stay short;
// a run this long means the keys were chosen to collide.
constexpr size_t kMaxProbeRun = 64;

// Index header: the slot mask, then the hash in use (with a flag for an
// index in memory that is not the object's to free: an arena's, or a
// parser's table); the slots follow.
constexpr size_t kIndexHeader = 2;
enum IndexHash : uint32_t { kFastHash = 0, kKeyedHash = 1 };
constexpr uint32_t kHashBits = 1;
constexpr uint32_t kIndexBorrowed = 2;

// Slots for `members` members: a power of two, at most half full.
size_t IndexCapacity(size_t members) {
  size_t capacity = 16;
  while (capacity < members * 2) capacity *= 2;
  return capacity;
}

// An empty index of `capacity` slots at `index`, its hash word `hashWord`.
void InitIndex(uint32_t* index, size_t capacity, uint32_t hashWord) {
  memset(index + kIndexHeader, 0, capacity * sizeof(uint32_t));
  index[0] = static_cast<uint32_t>(capacity - 1);
  index[1] = hashWord;
}

}  // namespace

uint64_t mjson::detail::FastKeyHash(const char* p, size_t n) {
  // Multiply-mix over 8-byte words: fast for the short keys of real
  // documents, and good enough spread for an open-addressing table.
  // The last word is loaded whole, in register-sized pieces: assembled on
  // the stack byte by byte it would stall on its own stores.
  const size_t length = n;
  uint64_t h = 0x9E3779B97F4A7C15ull ^ (n * 0xC2B2AE3D27D4EB4Full);
  while (n > 8) {
    uint64_t w;
    memcpy(&w, p, 8);
    h = (h ^ w) * 0xFF51AFD7ED558CCDull;
    h ^= h >> 32;
    p += 8;
    n -= 8;
  }
  uint64_t w = 0;
  if (length >= 8) {
    memcpy(&w, p + n - 8, 8);  // overlaps the previous word when n < 8
  } else if (n >= 4) {
    uint32_t a, b;
    memcpy(&a, p, 4);
    memcpy(&b, p + n - 4, 4);
    w = (static_cast<uint64_t>(a) << 32) | b;
  } else if (n) {
    w = (static_cast<uint64_t>(static_cast<unsigned char>(p[0])) << 16) |
        (static_cast<uint64_t>(static_cast<unsigned char>(p[n / 2])) << 8) |
        static_cast<unsigned char>(p[n - 1]);
  }
  h = (h ^ w) * 0xC4CEB9FE1A85EC53ull;
  h ^= h >> 29;
  return h;
}

namespace {

// SipHash-1-3 with a key drawn once per process: what an object's index
// falls back to when its keys collide under the fast hash. Without the key,
// nobody can choose keys that collide under it.
struct SipKey {
  uint64_t k0, k1;
};

const SipKey& ProcessSipKey() {
  static const SipKey key = [] {
    std::random_device device;
    auto word = [&] { return (static_cast<uint64_t>(device()) << 32) ^ device(); };
    return SipKey{word(), word()};
  }();
  return key;
}

inline uint64_t Rotl(uint64_t x, int b) {
  return (x << b) | (x >> (64 - b));
}

struct SipState {
  uint64_t v0, v1, v2, v3;
  void Round() {
    v0 += v1;
    v1 = Rotl(v1, 13);
    v1 ^= v0;
    v0 = Rotl(v0, 32);
    v2 += v3;
    v3 = Rotl(v3, 16);
    v3 ^= v2;
    v0 += v3;
    v3 = Rotl(v3, 21);
    v3 ^= v0;
    v2 += v1;
    v1 = Rotl(v1, 17);
    v1 ^= v2;
    v2 = Rotl(v2, 32);
  }
  void Absorb(uint64_t m) {
    v3 ^= m;
    Round();
    v0 ^= m;
  }
};

uint64_t KeyedHash(const char* p, size_t n) {
  const SipKey& key = ProcessSipKey();
  SipState s{key.k0 ^ 0x736f6d6570736575ull, key.k1 ^ 0x646f72616e646f6dull,
             key.k0 ^ 0x6c7967656e657261ull, key.k1 ^ 0x7465646279746573ull};
  const uint64_t length = n;
  while (n >= 8) {
    uint64_t m;
    memcpy(&m, p, 8);
    s.Absorb(m);
    p += 8;
    n -= 8;
  }
  uint64_t last = length << 56;
  for (size_t i = 0; i < n; ++i)
    last |= static_cast<uint64_t>(static_cast<unsigned char>(p[i])) << (8 * i);
  s.Absorb(last);
  s.v2 ^= 0xff;
  s.Round();
  s.Round();
  s.Round();
  return s.v0 ^ s.v1 ^ s.v2 ^ s.v3;
}

inline uint64_t IndexHashOf(uint32_t which, const char* p, size_t n) {
  return (which & kHashBits) == kFastHash ? mjson::detail::FastKeyHash(p, n) : KeyedHash(p, n);
}

inline bool SameKey(const CompactString& a, std::string_view b) {
  return a == b;
}

}  // namespace

JsonObject::JsonObject(bool keepOrder) : JsonValue(Object) {
  fAux8 = keepOrder;
}

JsonObject::JsonObject(const JsonObject& other) : JsonValue(other) {
  fMembers.reserve(other.fMembers.size());
  TreeCopier::CopyChildren(this, &other);
}

JsonObject& JsonObject::operator=(const JsonObject& other) {
  if (this == &other) return *this;
  JsonObject copy(other);
  *this = std::move(copy);
  return *this;
}

JsonObject& JsonObject::operator=(JsonObject&& other) noexcept {
  if (this == &other) return *this;
  NoteChange();
  ClearMembers();
  if (other.InArena()) {
    // The source's member list, keys and index are its arena's memory, and
    // its children the arena's nodes: this object takes copies of the keys
    // and shares the children (which the arena counts), and the source lets
    // go of its own references.
    other.NoteChange();
    fMembers.reserve(other.fMembers.size());
    for (const Member& m : other.fMembers) {
      m.value->AddRef();
      fMembers.emplace_back(m.key.Data(), m.key.Size()).value = m.value;
    }
    fAux8 = other.fAux8;
    other.ClearMembers();
    RebuildIndex();
    return *this;
  }
  fMembers = std::move(other.fMembers);
  SetIndex(other.Index());
  fAux8 = other.fAux8;
  other.fMembers.clear();
  other.SetIndex(nullptr);
  return *this;
}

JsonObject::~JsonObject() {
  ClearMembers();
}

void JsonObject::ClearMembers() {
  for (Member& m : fMembers) ReleaseChild(m.value);
  fMembers.clear();
  DropIndex();
}

// Index memory comes from the object's arena, or is a heap block of the
// object's own, or one an arena keeps: the last has room in front for the
// arena's list of such blocks.
uint32_t* JsonObject::AllocateIndex(size_t words, mjson::detail::Arena* arena, bool side) {
  if (arena) return arena->Array<uint32_t>(words);
  const size_t front = side ? mjson::detail::Arena::kSideHeader : 0;
  return reinterpret_cast<uint32_t*>(static_cast<char*>(::operator new(front + words * 4)) + front);
}

void* JsonObject::SideBlockOf(uint32_t* index) {
  return reinterpret_cast<char*>(index) - mjson::detail::Arena::kSideHeader;
}

void JsonObject::FreeIndex(uint32_t* index, bool side) {
  ::operator delete(side ? SideBlockOf(index) : index);
}

void JsonObject::DropIndex() {
  uint32_t* index = Index();
  if (index && !(index[1] & kIndexBorrowed)) FreeIndex(index, false);
  SetIndex(nullptr);
}

size_t JsonObject::Find(std::string_view key) const {
  const uint32_t* index = fIndex.load(std::memory_order_acquire);
  if (!index) {
    if (fMembers.size() <= kIndexThreshold) {
      for (size_t i = 0; i < fMembers.size(); ++i)
        if (SameKey(fMembers[i].key, key)) return i;
      return kNotFound;
    }
    index = LookupIndex();
  }
  size_t mask = index[0];
  const uint32_t* slots = index + kIndexHeader;
  for (size_t slot = IndexHashOf(index[1], key.data(), key.size()) & mask;;
       slot = (slot + 1) & mask) {
    uint32_t e = slots[slot];
    if (e == 0) return kNotFound;
    if (SameKey(fMembers[e - 1].key, key)) return e - 1;
  }
}

// The index of an object built without one (by a parser), made on its first
// lookup by whichever reader comes first: readers that race to it keep the
// index published first. An object of an arena hands its index to the
// arena, which frees it with the rest, so a lookup costs the document
// nothing of its one-step end.
const uint32_t* JsonObject::LookupIndex() const {
  const bool kept = InArena();
  uint32_t* built = BuildIndex(kFastHash, nullptr, kept);
  uint32_t* published = nullptr;
  if (!fIndex.compare_exchange_strong(published, built, std::memory_order_acq_rel,
                                      std::memory_order_acquire)) {
    FreeIndex(built, kept);
    return published;
  }
  if (kept) mjson::detail::Arena::Of(this)->Keep(SideBlockOf(built));
  return built;
}

void JsonObject::RebuildIndex() {
  uint32_t* index = Index();
  RebuildIndex(index ? index[1] & kHashBits : kFastHash);
}

// A copy's members sit at the positions of the source's, so the source's
// index serves it as it is; a source without one gives a copy without one,
// to be made on its first lookup.
void JsonObject::CopyIndex(const JsonObject& source, mjson::detail::Arena* arena) {
  DropIndex();
  const uint32_t* from = source.fIndex.load(std::memory_order_acquire);
  if (!from) return;
  const size_t words = from[0] + 1 + kIndexHeader;
  uint32_t* index = AllocateIndex(words, arena, false);
  memcpy(index, from, words * sizeof(uint32_t));
  index[1] = (index[1] & kHashBits) | (arena ? kIndexBorrowed : 0);
  SetIndex(index);
}

void JsonObject::RebuildIndex(uint32_t hash, mjson::detail::Arena* arena) {
  DropIndex();
  if (fMembers.size() > kIndexThreshold) SetIndex(BuildIndex(hash, arena));
}

// An index of the members with the given hash, from `arena` if given. A
// fast index whose keys pile up in one long probe run is built again with
// the keyed hash, which then stays.
uint32_t* JsonObject::BuildIndex(uint32_t hash, mjson::detail::Arena* arena, bool side) const {
  uint32_t* index = NewIndex(hash, std::max(fMembers.size(), fMembers.capacity()), arena, side);
  uint32_t* slots = index + kIndexHeader;
  size_t mask = index[0];
  for (size_t i = 0; i < fMembers.size(); ++i) {
    std::string_view k = fMembers[i].key;
    size_t slot = IndexHashOf(hash, k.data(), k.size()) & mask;
    for (size_t run = 0; slots[slot]; slot = (slot + 1) & mask) {
      if (++run == kMaxProbeRun && hash == kFastHash) {
        if (!arena) FreeIndex(index, side);
        return BuildIndex(kKeyedHash, arena, side);
      }
    }
    slots[slot] = static_cast<uint32_t>(i + 1);
  }
  return index;
}

// An empty index with room for `members` members (see AllocateIndex).
uint32_t* JsonObject::NewIndex(uint32_t hash, size_t members, mjson::detail::Arena* arena,
                               bool side) {
  const size_t capacity = IndexCapacity(members);
  uint32_t* index = AllocateIndex(capacity + kIndexHeader, arena, side);
  InitIndex(index, capacity, hash | (arena || side ? kIndexBorrowed : 0));
  return index;
}

void JsonObject::Store(CompactString&& key, JsonValue* value) {
  if (InArena()) [[unlikely]] {
    if (mjson::detail::Arena* arena = GrowthArena()) {
      // The arena records where the change is; a new member finds its
      // room in the arena.
      const size_t pos = Find(key);
      NoteChange(pos == kNotFound ? fMembers.size() : pos);
      if (pos == kNotFound && fMembers.size() == fMembers.capacity()) arena->Grow(fMembers);
    } else {
      NoteChange();
    }
  }
  Store(std::move(key), value, nullptr);
}

// Stores with the index, when it must be built, from `arena` if given.
void JsonObject::Store(CompactString&& key, JsonValue* value, mjson::detail::Arena* arena) {
  uint32_t* const index = Index();
  if (!index) {
    for (Member& m : fMembers) {
      if (m.key == key) {
        JsonValue* old = m.value;
        m.value = value;
        old->Release();
        return;
      }
    }
    fMembers.push_back({std::move(key), value});
    if (fMembers.size() > kIndexThreshold) RebuildIndex(kFastHash, arena);
    return;
  }
  // One probe finds either the key or the free slot it would take.
  size_t mask = index[0];
  uint32_t* slots = index + kIndexHeader;
  size_t slot = IndexHashOf(index[1], key.Data(), key.Size()) & mask;
  size_t run = 0;
  for (; slots[slot]; slot = (slot + 1) & mask, ++run) {
    Member& m = fMembers[slots[slot] - 1];
    if (m.key == key) {
      JsonValue* old = m.value;
      m.value = value;
      old->Release();
      return;
    }
  }
  fMembers.push_back({std::move(key), value});
  if (fMembers.size() * 2 > mask + 1)
    RebuildIndex(index[1] & kHashBits, arena);
  else if (run >= kMaxProbeRun && (index[1] & kHashBits) == kFastHash)
    RebuildIndex(kKeyedHash, arena);
  else
    slots[slot] = static_cast<uint32_t>(fMembers.size());
}

void JsonObject::EraseAt(size_t pos) {
  NoteChange(pos);
  JsonValue* old = fMembers[pos].value;
  fMembers.erase(fMembers.begin() + static_cast<ptrdiff_t>(pos));
  if (Index()) RebuildIndex();
  old->Release();
}

void JsonObject::AdoptMembers(Member* first, size_t count) {
  fMembers.reserve(fMembers.size() + count);
  for (size_t i = 0; i < count; ++i) Store(std::move(first[i].key), first[i].value);
}

void JsonObject::AdoptMembers(Member* first, size_t count, mjson::detail::Arena* arena) {
  if (!arena) return AdoptMembers(first, count);
  // A fresh object: its members fit the arena's storage however many of
  // the keys repeat, so the list never grows out of it.
  fMembers.Borrow(arena->Array<Member>(count), count);
  if (count <= kIndexThreshold) {
    for (size_t i = 0; i < count; ++i) Store(std::move(first[i].key), first[i].value, arena);
    return;
  }
  // Repeated keys are found through an index in a table the thread reuses
  // from object to object, made once at the size of all the members; the
  // object gets an index of its own on its first lookup, if it has one.
  // (Keys chosen to collide make Store build a keyed index in the arena,
  // which the object then keeps.)
  mjson::detail::Scratch<uint32_t, mjson::detail::ScratchUse::kKeyTable> scratch;
  std::vector<uint32_t>& table = scratch.Get();
  const size_t capacity = IndexCapacity(count);
  table.resize(capacity + kIndexHeader);
  InitIndex(table.data(), capacity, kFastHash | kIndexBorrowed);
  SetIndex(table.data());
  for (size_t i = 0; i < count; ++i) Store(std::move(first[i].key), first[i].value, arena);
  if (Index() == table.data()) SetIndex(nullptr);
}

bool JsonObject::InsertValueWithNonUTF8KeyInternal(std::string&& key, JsonValue* value) {
  if (!value) {
    Erase(key);
    return true;
  }
  Store(CompactString(key), value);
  return true;
}

bool JsonObject::InsertValueWithNonUTF8KeyInternal(const std::string& key, JsonValue* value) {
  return InsertValueWithNonUTF8KeyInternal(std::string(key), value);
}

bool JsonObject::InsertValueInternal(std::string&& key, JsonValue* value, bool keyIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) {
    if (value) value->Release();
    return false;
  }
  return InsertValueWithNonUTF8KeyInternal(std::move(key), value);
}

bool JsonObject::InsertValueInternal(const std::string& key, JsonValue* value, bool keyIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) {
    if (value) value->Release();
    return false;
  }
  return InsertValueWithNonUTF8KeyInternal(std::string(key), value);
}

bool JsonObject::InsertValue(const std::string& key, const JsonAutoRefPtr<JsonValue>& value,
                             bool keyIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) return false;
  return InsertValueWithNonUTF8KeyInternal(std::string(key), mjson::detail::NewReference(value));
}

bool JsonObject::InsertValue(std::string&& key, const JsonAutoRefPtr<JsonValue>& value,
                             bool keyIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) return false;
  return InsertValueWithNonUTF8KeyInternal(std::move(key), mjson::detail::NewReference(value));
}

bool JsonObject::InsertValue(const std::string& key, JsonAutoRefPtr<JsonValue>&& value,
                             bool keyIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) return false;
  return InsertValueWithNonUTF8KeyInternal(std::string(key), value.release());
}

bool JsonObject::InsertValue(std::string&& key, JsonAutoRefPtr<JsonValue>&& value, bool keyIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) return false;
  return InsertValueWithNonUTF8KeyInternal(std::move(key), value.release());
}

bool JsonObject::InsertValue(const std::string& key, const JsonValue& value, bool keyIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) return false;
  return InsertValueWithNonUTF8KeyInternal(std::string(key), CopyNoARefPtr(value));
}

bool JsonObject::InsertValueWithNonUTF8Key(const std::string& key,
                                           const JsonAutoRefPtr<JsonValue>& value) {
  return InsertValueWithNonUTF8KeyInternal(std::string(key), mjson::detail::NewReference(value));
}

bool JsonObject::InsertValueWithNonUTF8Key(std::string&& key, JsonAutoRefPtr<JsonValue>&& value) {
  return InsertValueWithNonUTF8KeyInternal(std::move(key), value.release());
}

bool JsonObject::InsertValueWithNonUTF8Key(const std::string& key, const JsonValue& value) {
  return InsertValueWithNonUTF8KeyInternal(std::string(key), CopyNoARefPtr(value));
}

bool JsonObject::InsertString(const std::string& key, const std::string& value, bool keyIsUTF8,
                              bool valueIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) return false;
  if (!valueIsUTF8 && !IsUTF8(value)) return false;
  return InsertValueWithNonUTF8KeyInternal(
      std::string(key), new JsonString(std::string(value), JsonString::Trusted{}));
}

bool JsonObject::InsertString(std::string&& key, std::string&& value, bool keyIsUTF8,
                              bool valueIsUTF8) {
  if (!keyIsUTF8 && !IsUTF8(key)) return false;
  if (!valueIsUTF8 && !IsUTF8(value)) return false;
  return InsertValueWithNonUTF8KeyInternal(std::move(key),
                                           new JsonString(std::move(value), JsonString::Trusted{}));
}

bool JsonObject::InsertInteger(const std::string& key, long long value, bool keyIsUTF8) {
  return InsertValueInternal(key, new JsonInteger(value), keyIsUTF8);
}

bool JsonObject::InsertInteger(const std::string& key, unsigned long long value, bool keyIsUTF8) {
  return InsertValueInternal(key, new JsonInteger(value, true), keyIsUTF8);
}

bool JsonObject::InsertInteger(const std::string& key, int value, bool keyIsUTF8) {
  return InsertValueInternal(key, new JsonInteger(static_cast<long long>(value)), keyIsUTF8);
}

bool JsonObject::InsertReal(const std::string& key, double value, bool keyIsUTF8) {
  return InsertValueInternal(key, new JsonReal(value, 0), keyIsUTF8);
}

bool JsonObject::InsertBool(const std::string& key, bool value, bool keyIsUTF8) {
  return InsertValueInternal(key, value ? static_cast<JsonValue*>(new JsonTrue()) : new JsonFalse(),
                             keyIsUTF8);
}

bool JsonObject::InsertNull(const std::string& key, bool keyIsUTF8) {
  return InsertValueInternal(key, new JsonNull(), keyIsUTF8);
}

bool JsonObject::Erase(const std::string& key) {
  size_t pos = Find(key);
  if (pos == kNotFound) return false;
  EraseAt(pos);
  return true;
}

JsonAutoRefPtr<JsonValue> JsonObject::At(const std::string& key) const {
  size_t pos = Find(key);
  if (pos == kNotFound) return {};
  JsonValue* v = fMembers[pos].value;
  v->AddRef();
  return JsonAutoRefPtr<JsonValue>(v);
}

JsonValue* JsonObject::GetSubNode(const std::string& key) {
  size_t pos = Find(key);
  return pos == kNotFound ? nullptr : fMembers[pos].value;
}

std::string JsonObject::KeyValAsString(const std::string& key) const {
  size_t pos = Find(key);
  return pos == kNotFound ? std::string() : fMembers[pos].value->GetAsString();
}

long long JsonObject::KeyValAsInteger(const std::string& key) const {
  size_t pos = Find(key);
  return pos == kNotFound ? 0 : fMembers[pos].value->GetAsInteger();
}

double JsonObject::KeyValAsReal(const std::string& key) const {
  size_t pos = Find(key);
  return pos == kNotFound ? 0.0 : fMembers[pos].value->GetAsReal();
}

bool JsonObject::KeyValAsBool(const std::string& key) const {
  size_t pos = Find(key);
  return pos == kNotFound ? false : fMembers[pos].value->GetAsBool();
}

JsonAutoRefPtr<JsonObject> JsonObject::KeyValAsObject(const std::string& key) const {
  return ConvertToObject(At(key));
}

JsonAutoRefPtr<JsonArray> JsonObject::KeyValAsArray(const std::string& key) const {
  return ConvertToArray(At(key));
}

void JsonObject::ForEach(
    const std::function<void(const std::string&, const JsonAutoRefPtr<JsonValue>&)>& fn) const {
  if (!fn) return;
  for (size_t i = 0; i < fMembers.size(); ++i) {
    JsonAutoRefPtr<JsonValue> v(fMembers[i].value);
    v->AddRef();
    fn(fMembers[i].key.Str(), v);
  }
}

bool JsonObject::IsEqual(const JsonObject& other) const {
  return static_cast<const JsonValue&>(*this) == static_cast<const JsonValue&>(other);
}

std::string ObjectStepper::Key() const {
  return fObject->fMembers[fIndex].key.Str();
}

JsonAutoRefPtr<JsonValue> ObjectStepper::Value() const {
  JsonValue* v = fObject->fMembers[fIndex].value;
  if (!v) return JsonAutoRefPtr<JsonValue>(new JsonNull());
  v->AddRef();
  return JsonAutoRefPtr<JsonValue>(v);
}

// ---------------------------------------------------------------------------
// JsonArray

JsonArray::JsonArray(const JsonArray& other) : JsonValue(other) {
  fValues.reserve(other.fValues.size());
  TreeCopier::CopyChildren(this, &other);
}

JsonArray& JsonArray::operator=(const JsonArray& other) {
  if (this == &other) return *this;
  NoteChange();
  JsonArray copy(other);
  for (JsonValue* v : fValues) v->Release();
  fValues = std::move(copy.fValues);
  copy.fValues.clear();
  return *this;
}

JsonArray::~JsonArray() {
  for (JsonValue* v : fValues)
    if (v) ReleaseChild(v);
}

void JsonArray::Append(JsonValue* value) {
  NoteChange(fValues.size());
  if (fValues.size() == fValues.capacity()) [[unlikely]]
    if (mjson::detail::Arena* arena = GrowthArena()) arena->Grow(fValues);
  fValues.push_back(value);
}

void JsonArray::AdoptValues(JsonValue* const* first, size_t count, mjson::detail::Arena* arena) {
  if (!arena) return AdoptValues(first, count);
  JsonValue** storage = arena->Array<JsonValue*>(count);
  for (size_t i = 0; i < count; ++i) storage[i] = first[i];  // mostly a handful
  fValues.BorrowFilled(storage, count);
}

void JsonArray::AdoptValues(JsonValue* const* first, size_t count) {
  NoteChange(fValues.size());
  if (fValues.empty())
    fValues.assign(first, first + count);  // exact storage, no growth path
  else
    fValues.insert(fValues.end(), first, first + count);
}

void JsonArray::AddValue(const JsonAutoRefPtr<JsonValue>& value) {
  if (value) Append(mjson::detail::NewReference(value));
}

void JsonArray::AddValue(JsonAutoRefPtr<JsonValue>&& value) {
  if (value) Append(value.release());
}

void JsonArray::AddValue(const JsonValue& value) {
  Append(CopyNoARefPtr(value));
}

void JsonArray::AddValueInternal(JsonValue* value) {
  if (value) Append(value);
}

void JsonArray::AddString(const std::string& s, bool* added, bool isUTF8) {
  AddString(std::string(s), added, isUTF8);
}

void JsonArray::AddString(std::string&& s, bool* added, bool isUTF8) {
  bool ok = isUTF8 || IsUTF8(s);
  if (added) *added = ok;
  if (ok) Append(new JsonString(std::move(s), JsonString::Trusted{}));
}

void JsonArray::AddInteger(long long v) {
  Append(new JsonInteger(v));
}
void JsonArray::AddReal(double v) {
  Append(new JsonReal(v, 0));
}
void JsonArray::AddBool(bool v) {
  Append(v ? static_cast<JsonValue*>(new JsonTrue()) : new JsonFalse());
}
void JsonArray::AddNull() {
  Append(new JsonNull());
}

void JsonArray::InsertValueAtIndex(size_t index, const JsonAutoRefPtr<JsonValue>& value) {
  // Appending is AddValue's job; an index at or past the end does nothing.
  if (!value || index >= fValues.size()) return;
  NoteChange(index);
  if (fValues.size() == fValues.capacity())
    if (mjson::detail::Arena* arena = GrowthArena()) arena->Grow(fValues);
  fValues.insert(fValues.begin() + static_cast<ptrdiff_t>(index),
                 mjson::detail::NewReference(value));
}

void JsonArray::SetValueAtIndexInternal(size_t index, JsonValue* value) {
  if (index >= fValues.size()) {
    if (value) value->Release();
    return;
  }
  NoteChange(index);
  JsonValue* old = fValues[index];
  if (value) {
    fValues[index] = value;
  } else if (index + 1 == fValues.size()) {
    fValues.pop_back();
  } else {
    fValues[index] = new JsonNull();
  }
  if (old) old->Release();
}

void JsonArray::SetValueAtIndex(size_t index, const JsonAutoRefPtr<JsonValue>& value) {
  if (index >= fValues.size()) return;
  SetValueAtIndexInternal(index, mjson::detail::NewReference(value));
}

void JsonArray::EraseAtIndex(size_t index) {
  Erase(index, 1);
}

size_t JsonArray::Erase(size_t first, size_t count) {
  if (first >= fValues.size() || first >= 9223372036854775807ull) return 0;
  size_t n = std::min(count, fValues.size() - first);
  NoteChange(first);
  std::vector<JsonValue*> removed(fValues.begin() + static_cast<ptrdiff_t>(first),
                                  fValues.begin() + static_cast<ptrdiff_t>(first + n));
  fValues.erase(fValues.begin() + static_cast<ptrdiff_t>(first),
                fValues.begin() + static_cast<ptrdiff_t>(first + n));
  for (JsonValue* v : removed)
    if (v) v->Release();
  return n;
}

JsonAutoRefPtr<JsonValue> JsonArray::AtIndex(size_t index) const {
  if (index >= fValues.size() || !fValues[index]) return {};
  fValues[index]->AddRef();
  return JsonAutoRefPtr<JsonValue>(fValues[index]);
}

JsonValue* JsonArray::GetSubNode(const std::string& key) {
  if (key.empty() || key[0] < '0' || key[0] > '9') return nullptr;
  size_t index = strtoull(key.c_str(), nullptr, 10);
  return index < fValues.size() ? fValues[index] : nullptr;
}

std::string JsonArray::AtIndexAsString(size_t index) const {
  return index < fValues.size() && fValues[index] ? fValues[index]->GetAsString() : std::string();
}

long long JsonArray::AtIndexAsInteger(size_t index) const {
  return index < fValues.size() && fValues[index] ? fValues[index]->GetAsInteger() : 0;
}

double JsonArray::AtIndexAsReal(size_t index) const {
  return index < fValues.size() && fValues[index] ? fValues[index]->GetAsReal() : 0.0;
}

bool JsonArray::AtIndexAsBool(size_t index) const {
  return index < fValues.size() && fValues[index] ? fValues[index]->GetAsBool() : false;
}

JsonAutoRefPtr<JsonObject> JsonArray::AtIndexAsObject(size_t index) const {
  return ConvertToObject(AtIndex(index));
}

JsonAutoRefPtr<JsonArray> JsonArray::AtIndexAsArray(size_t index) const {
  return ConvertToArray(AtIndex(index));
}

void JsonArray::ForEach(
    const std::function<void(size_t, const JsonAutoRefPtr<JsonValue>&)>& fn) const {
  if (!fn) return;
  for (size_t i = 0; i < fValues.size(); ++i) {
    JsonAutoRefPtr<JsonValue> v(fValues[i]);
    if (v) v->AddRef();
    fn(i, v);
  }
}

bool JsonArray::ForEachWithUserData(
    const std::function<void(size_t, const JsonValue*, void*, bool&, std::string*)>& fn,
    void* userData, std::string* errors) const {
  bool ok = true;
  size_t recorded = 0;
  for (size_t i = 0; i < fValues.size(); ++i) {
    std::string error;
    fn(i, fValues[i], userData, ok, &error);
    if (!error.empty() && errors && recorded < 20) {
      if (!errors->empty()) errors->append(", ");
      errors->append("Item '").append(std::to_string(i + 1)).append("' has error '");
      errors->append(error).append("'");
      ++recorded;
    }
  }
  return ok;
}

bool JsonArray::IsEqual(const JsonArray& other) const {
  return static_cast<const JsonValue&>(*this) == static_cast<const JsonValue&>(other);
}
