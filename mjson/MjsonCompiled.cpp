// Compiled objects: values in slots of a shared key table.
#include "Mjson.h"
#include "MjsonInternal.h"

using namespace mjson::detail;

// ---------------------------------------------------------------------------
// Compiled objects

size_t JsonCompiledObjectContext::AddKey(const std::string& key, unsigned short flags,
                                         JsonCompiledObjectContext* sub) {
  auto it = fIndexOfKey.find(key);
  if (it != fIndexOfKey.end()) return it->second;
  // A nested compiled object without a key table can only be kept as a
  // plain object.
  if ((flags & kCompiledObject) && !sub) flags = (flags & ~kCompiledObject) | kPlainObject;
  size_t index = fKeys.size();
  fKeys.push_back(key);
  fKeyFlags.push_back(flags);
  fSubContexts.push_back(sub);
  fIndexOfKey.emplace(key, index);
  return index;
}

size_t JsonCompiledObjectContext::GetIndexForKey(const std::string& key) const {
  auto it = fIndexOfKey.find(key);
  return it == fIndexOfKey.end() ? sMaxIndex : it->second;
}

JsonCompiledObject::JsonCompiledObject(const JsonCompiledObjectContext* context)
    : JsonValue(CompiledObject),
      fContext(context),
      fCountFilled(0),
      fSlots(context ? context->KeyCount() : 0, nullptr) {}

JsonCompiledObject::JsonCompiledObject(const JsonCompiledObjectContext* context,
                                       mjson::detail::Arena* arena)
    : JsonValue(CompiledObject), fContext(context), fCountFilled(0) {
  const size_t n = context ? context->KeyCount() : 0;
  if (arena) fSlots.Borrow(arena->Array<JsonValue*>(n), n);
  fSlots.assign(n, nullptr);
}

JsonCompiledObject::JsonCompiledObject(const JsonCompiledObject& other)
    : JsonValue(other),
      fContext(other.fContext),
      fCountFilled(other.fCountFilled),
      fSlots(other.fSlots.size(), nullptr) {
  TreeCopier::CopyChildren(this, &other);
}

JsonCompiledObject& JsonCompiledObject::operator=(const JsonCompiledObject& other) {
  if (this == &other) return *this;
  NoteChange();
  JsonCompiledObject copy(other);
  for (JsonValue* v : fSlots)
    if (v) v->Release();
  fContext = copy.fContext;
  fCountFilled = copy.fCountFilled;
  fSlots = std::move(copy.fSlots);
  copy.fSlots.clear();
  return *this;
}

JsonCompiledObject::~JsonCompiledObject() {
  for (JsonValue* v : fSlots)
    if (v) ReleaseChild(v);
}

bool JsonCompiledObject::InsertValueInternal(size_t index, JsonValue* value) {
  if (index >= fSlots.size()) {
    if (value) value->Release();
    return false;
  }
  NoteChange(index);
  JsonValue* old = fSlots[index];
  fSlots[index] = value;
  if (value) ++fCountFilled;
  if (old) {
    old->Release();
    --fCountFilled;
  }
  return true;
}

bool JsonCompiledObject::InsertValue(size_t index, const JsonAutoRefPtr<JsonValue>& value) {
  if (index >= fSlots.size()) return false;
  return InsertValueInternal(index, mjson::detail::NewReference(value));
}

bool JsonCompiledObject::InsertValue(size_t index, const JsonValue& value) {
  if (index >= fSlots.size()) return false;
  return InsertValueInternal(index, CopyNoARefPtr(value));
}

bool JsonCompiledObject::InsertString(size_t index, const std::string& value) {
  if (!IsUTF8(value)) return false;
  return InsertValueInternal(index, new JsonString(std::string(value), JsonString::Trusted{}));
}

bool JsonCompiledObject::InsertInteger(size_t index, long long value) {
  return InsertValueInternal(index, new JsonInteger(value));
}

bool JsonCompiledObject::InsertInteger(size_t index, unsigned long long value) {
  return InsertValueInternal(index, new JsonInteger(value, true));
}

bool JsonCompiledObject::InsertReal(size_t index, double value) {
  return InsertValueInternal(index, new JsonReal(value, 0));
}

bool JsonCompiledObject::InsertBool(size_t index, bool value) {
  return InsertValueInternal(index,
                             value ? static_cast<JsonValue*>(new JsonTrue()) : new JsonFalse());
}

bool JsonCompiledObject::InsertNull(size_t index) {
  return InsertValueInternal(index, new JsonNull());
}

JsonAutoRefPtr<JsonValue> JsonCompiledObject::At(size_t index) const {
  if (index >= fSlots.size() || !fSlots[index]) return {};
  fSlots[index]->AddRef();
  return JsonAutoRefPtr<JsonValue>(fSlots[index]);
}

JsonAutoRefPtr<JsonValue> JsonCompiledObject::At(const std::string& key) const {
  if (!fContext) return {};
  return At(fContext->GetIndexForKey(key));
}

bool JsonCompiledObject::Erase(size_t index) {
  if (index >= fSlots.size() || !fSlots[index]) return false;
  NoteChange(index);
  JsonValue* old = fSlots[index];
  fSlots[index] = nullptr;
  // The filled count is deliberately left as it was.
  old->Release();
  return true;
}

bool JsonCompiledObject::Erase(const std::string& key) {
  if (!fContext) return false;
  return Erase(fContext->GetIndexForKey(key));
}

bool JsonCompiledObject::HasKey(const std::string& key) const {
  if (!fContext) return false;
  return HasKey(fContext->GetIndexForKey(key));
}

std::string JsonCompiledObject::KeyName(size_t index) const {
  if (!fContext || index >= fSlots.size()) return std::string();
  return fContext->Key(index);
}

std::string JsonCompiledObject::KeyValAsString(size_t index) const {
  return HasKey(index) ? fSlots[index]->GetAsString() : std::string();
}

long long JsonCompiledObject::KeyValAsInteger(size_t index) const {
  return HasKey(index) ? fSlots[index]->GetAsInteger() : 0;
}

double JsonCompiledObject::KeyValAsReal(size_t index) const {
  return HasKey(index) ? fSlots[index]->GetAsReal() : 0.0;
}

bool JsonCompiledObject::KeyValAsBool(size_t index) const {
  return HasKey(index) ? fSlots[index]->GetAsBool() : false;
}

JsonAutoRefPtr<JsonObject> JsonCompiledObject::KeyValAsObject(size_t index) const {
  return ConvertToObject(At(index));
}

JsonAutoRefPtr<JsonCompiledObject> JsonCompiledObject::KeyValAsCompObject(size_t index) const {
  return ConvertToCompiledObject(At(index));
}

JsonAutoRefPtr<JsonArray> JsonCompiledObject::KeyValAsArray(size_t index) const {
  return ConvertToArray(At(index));
}

bool JsonCompiledObject::Completed() const {
  if (!fContext) return true;
  for (size_t i = 0; i < fSlots.size(); ++i)
    if ((fContext->KeyFlags(i) & JsonCompiledObjectContext::kRequired) && !fSlots[i]) return false;
  return true;
}

JsonValue* JsonCompiledObject::GetSubNode(const std::string& key) {
  if (!fContext) return nullptr;
  size_t index = fContext->GetIndexForKey(key);
  return index < fSlots.size() ? fSlots[index] : nullptr;
}

void JsonCompiledObject::ForEach(
    const std::function<void(size_t, const JsonAutoRefPtr<JsonValue>&)>& fn) const {
  if (!fn) return;
  for (size_t i = 0; i < fSlots.size(); ++i) {
    if (!fSlots[i]) continue;
    JsonAutoRefPtr<JsonValue> v(fSlots[i]);
    v->AddRef();
    fn(i, v);
  }
}

bool JsonCompiledObject::IsEqual(const JsonCompiledObject& other) const {
  return static_cast<const JsonValue&>(*this) == static_cast<const JsonValue&>(other);
}
