// The host data type "JSON": a user-defined host object that owns one JSON
// value tree.
#pragma once

#include <string>

#include "JsonAutoRefPtr.h"
#include "Mjson.h"
#include "ZentorSDK.h"

// The name under which the type is declared, and the source of every error
// that the module reports.
extern const std::string kJSONName;

class JSONObj : public Zentor::CustomType<JSONObj> {
 public:
  // The only format of the binary handle (see Interface_ToBinaryData).
  static constexpr unsigned long long kBinaryHandleFormat = 10900;

  // Root: null.
  JSONObj(unsigned int typeId, Zentor::IContext* context);
  // Root: an empty value of `type`. There is no empty compiled object (it
  // would need a key table), so that type gives null like every other type
  // without an empty form.
  JSONObj(unsigned int typeId, JsonValue::EJsonValueType type, Zentor::IContext* context);
  // Deep copy: the two objects share no node.
  JSONObj(const JSONObj& other);

  // Orders by compact text, so documents that print alike are equivalent.
  bool Interface_LessThan(const Zentor::IUserDefinedType* other) const override;

  // Conversion to and from the host's native JSON interface, defined with
  // the interface's implementation (wrapper/JSONObjInterface.cpp).
  using Zentor::CustomType<JSONObj>::Interface_Deserialize;
  bool Interface_Deserialize(const Zentor::IJSON* json, Zentor::IContext* context) override;
  using Zentor::CustomType<JSONObj>::Interface_Serialize;
  Zentor::IJSON* Interface_Serialize(Zentor::IContext* context) const override;

  // The in-process handle: the address of the root smart pointer, through
  // which another object of this module shares the tree without
  // serialising it. Valid only inside the process and while the source
  // object lives.
  bool Interface_FromBinaryData(const void* data, unsigned long long size,
                                unsigned long long format) override;
  unsigned long long Interface_ToBinaryData(void** out, unsigned long long format) const override;

  // The document. Script functions work on it directly; it is empty only
  // after a failed MessagePack decoding.
  JsonAutoRefPtr<JsonValue> fRoot;

 protected:
  ~JSONObj() override;
};

// A "JSON" value that the module receives from a host function it calls:
// the object may come from another JSON implementation, so it is held by
// its interface only.
class JSONObjPtr {
 public:
  JSONObjPtr() = default;
  JSONObjPtr(const Zentor::AutoRefPtr<Zentor::IUserDefinedType>& object) : fObject(object) {}
  JSONObjPtr& operator=(const Zentor::AutoRefPtr<Zentor::IUserDefinedType>& object) {
    fObject = object;
    return *this;
  }

  const Zentor::AutoRefPtr<Zentor::IUserDefinedType>& Get() const { return fObject; }
  Zentor::IUserDefinedType* operator->() const { return fObject.get(); }
  explicit operator bool() const { return static_cast<bool>(fObject); }

 private:
  Zentor::AutoRefPtr<Zentor::IUserDefinedType> fObject;
};

// The type id under which the host registered "JSON" (kTypeInvalid without
// a context).
unsigned int FindJSONTypeId(Zentor::IContext* context);

// New JSON values, owned by the returned handle.
Zentor::AutoRefPtr<JSONObj> NewJSONObj(unsigned int typeId, Zentor::IContext* context);
Zentor::AutoRefPtr<JSONObj> NewJSONObj(unsigned int typeId, JsonValue::EJsonValueType type,
                                       Zentor::IContext* context);
Zentor::AutoRefPtr<JSONObj> NewJSONObj(const JSONObj& other);
