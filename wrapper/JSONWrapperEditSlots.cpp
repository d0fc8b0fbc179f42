// The slots of the native JSON interface that change a document in place,
// in the interface's order: pushing to and removing from arrays and
// objects, setting members, replacing elements. Every sharer of the
// document sees the change.
#include <string>

#include "JSONCommon.h"
#include "JSONWrapper.h"

namespace Zentor {
namespace JSON {

namespace {

const char kNotAnArrayPush[] = "Couldn't push back to JSON array, JSON object is not an array";

}  // namespace

bool JSONWrapper::Interface_PushBackBool(unsigned char value) {
  State().ClearError();
  if (!Root()) return false;
  JsonArray* array = AsArray(Root());
  if (!array) {
    State().SetWarning(kNotAnArrayPush);
    return false;
  }
  array->AddBool(value != 0);
  return true;
}

bool JSONWrapper::Interface_PushBackString(const char* text) {
  static const char kInvalidValue[] = "Couldn't push back invalid value to JSON array";
  State().ClearError();
  if (!Root()) return false;
  JsonArray* array = AsArray(Root());
  if (!text) {
    State().SetWarning(kInvalidValue);
    return false;
  }
  if (!array) {
    State().SetWarning(kNotAnArrayPush);
    return false;
  }
  bool added = false;
  array->AddString(std::string(text), &added);
  // Text that is not UTF-8 is an invalid value like a null text.
  if (!added) State().SetWarning(kInvalidValue);
  return added;
}

bool JSONWrapper::Interface_PushBackDouble(double value) {
  State().ClearError();
  if (!Root()) return false;
  JsonArray* array = AsArray(Root());
  if (!array) {
    State().SetWarning(kNotAnArrayPush);
    return false;
  }
  array->AddReal(value);
  return true;
}

// The start of the slots that put another document into this one's array:
// a fresh error state, both documents there, this one an array (else a
// warning). The array, or null when the slot gives up.
JsonArray* JSONWrapper::ArrayTakingFrom(const IJSON* other, const JSONWrapper*& that) {
  State().ClearError();
  if (!Root()) return nullptr;
  that = CastFromIJSON(other);
  if (!that || !that->Root()) return nullptr;
  JsonArray* array = AsArray(Root());
  if (!array) State().SetWarning("JSON object is not an array");
  return array;
}

bool JSONWrapper::Interface_PushBackJSON(const IJSON* other) {
  const JSONWrapper* that = nullptr;
  JsonArray* array = ArrayTakingFrom(other, that);
  if (!array) return false;
  // Copied, so that the appended document and this one never share nodes
  // (appending a document to itself included).
  array->AddValue(*that->Root());
  return true;
}

IJSON* JSONWrapper::Interface_RemoveIndex(unsigned long long index) {
  State().ClearError();
  const ValuePtr root = Root();
  if (!root) return nullptr;
  const std::string failed = "Couldn't remove element at position " + std::to_string(index);
  JsonArray* array = AsArray(root);
  if (!array) {
    State().SetWarning(failed + ", JSON object is not an array");
    return nullptr;
  }
  ValuePtr element = array->AtIndex(static_cast<size_t>(index));
  if (!element) {
    State().SetWarning(failed);
    return nullptr;
  }
  IJSON* removed = NewNodeWrapper(element);
  if (array->Erase(static_cast<size_t>(index), 1) != 1) State().SetWarning(failed);
  return removed;
}

IJSON* JSONWrapper::Interface_RemoveKey(const char* key) {
  State().ClearError();
  const ValuePtr root = Root();
  if (!root || !key) return nullptr;
  const std::string failed = std::string("Couldn't remove element with key ") + key;
  if (!IsObjectLike(root)) {
    State().SetWarning(failed + ", JSON object is not an object");
    return nullptr;
  }
  ValuePtr member = MemberOf(root, key);
  if (!member) {
    State().SetWarning(failed);
    return nullptr;
  }
  IJSON* removed = NewNodeWrapper(member);
  if (!EraseMember(*root, key)) State().SetWarning(failed);
  return removed;
}

template <class Insert>
bool JSONWrapper::SetMember(const char* key, Insert&& insert) {
  State().ClearError();
  if (!Root() || !key) {
    State().SetError("Can't set key/value pair into JSON");
    return false;
  }
  // A null document becomes an object on its first set.
  if (IsType(Root(), JsonValue::Null)) State().fRoot = ValuePtr(new JsonObject(false));
  if (!IsType(Root(), JsonValue::Object)) {
    State().SetError("Can't set key/value pair into JSON, JSON element is not a JSON object");
    return false;
  }
  return insert(*static_cast<JsonObject*>(Root().get()), std::string(key));
}

namespace {

// The typed inserts check the key for UTF-8 (keyIsUTF8 false).
template <class Insert>
auto KeyChecked(JSONData& state, Insert&& insert) {
  return [&state, insert](JsonObject& object, const std::string& key) {
    if (insert(object, key)) return true;
    state.SetError("Can't set key/value pair into JSON, JSON key is not a valid UTF8-string");
    return false;
  };
}

}  // namespace

bool JSONWrapper::Interface_SetBool(const char* key, unsigned char value) {
  return SetMember(key, KeyChecked(State(), [value](JsonObject& object, const std::string& name) {
                     return object.InsertBool(name, value != 0, false);
                   }));
}

bool JSONWrapper::Interface_SetDouble(const char* key, double value) {
  return SetMember(key, KeyChecked(State(), [value](JsonObject& object, const std::string& name) {
                     return object.InsertReal(name, value, false);
                   }));
}

bool JSONWrapper::Interface_SetInt(const char* key, int value) {
  return SetMember(key, KeyChecked(State(), [value](JsonObject& object, const std::string& name) {
                     return object.InsertInteger(name, value, false);
                   }));
}

bool JSONWrapper::Interface_SetUInt(const char* key, unsigned int value) {
  return SetMember(key, KeyChecked(State(), [value](JsonObject& object, const std::string& name) {
                     return object.InsertInteger(name, static_cast<long long>(value), false);
                   }));
}

bool JSONWrapper::Interface_SetInt64(const char* key, long long value) {
  return SetMember(key, KeyChecked(State(), [value](JsonObject& object, const std::string& name) {
                     return object.InsertInteger(name, value, false);
                   }));
}

bool JSONWrapper::Interface_SetUInt64(const char* key, unsigned long long value) {
  return SetMember(key, KeyChecked(State(), [value](JsonObject& object, const std::string& name) {
                     return object.InsertInteger(name, value, false);
                   }));
}

bool JSONWrapper::Interface_SetString(const char* key, const char* value) {
  if (!value) {
    State().ClearError();
    State().SetError("Can't set key/value pair into JSON");
    return false;
  }
  return SetMember(key, [this, value](JsonObject& object, const std::string& name) {
    if (object.InsertString(name, std::string(value), false, false)) return true;
    State().SetError("Can't set key/value pair into JSON, value for key \"" + name +
                     "\" key and/or value is not a valid UTF8-string");
    return false;
  });
}

bool JSONWrapper::Interface_SetJSON(const char* key, const IJSON* value) {
  // Only this module's documents can be stored; a foreign one is refused
  // like a missing one, as the array operations do.
  const JSONWrapper* that = CastFromIJSON(value);
  const ValuePtr source = that ? that->Root() : ValuePtr();
  if (!source) {
    State().ClearError();
    State().SetError("Can't set key/value pair into JSON");
    return false;
  }
  // Copied: storing a shared node would let a document contain itself.
  return SetMember(key, KeyChecked(State(), [source](JsonObject& object, const std::string& name) {
                     return object.InsertValue(name, *source, false);
                   }));
}

bool JSONWrapper::Interface_SetNull(const char* key) {
  return SetMember(key, KeyChecked(State(), [](JsonObject& object, const std::string& name) {
                     return object.InsertNull(name, false);
                   }));
}

bool JSONWrapper::Interface_ReplaceIndex(unsigned long long index, const IJSON* value) {
  const JSONWrapper* that = nullptr;
  JsonArray* array = ArrayTakingFrom(value, that);
  if (!array) return false;
  // Shared, not copied; an index past the end stores nothing.
  array->SetValueAtIndex(static_cast<size_t>(index), that->Root());
  return true;
}

}  // namespace JSON
}  // namespace Zentor
