// Binary data owned by the module: the result of functions that return
// "DATAREF" (the MessagePack form of a document, for instance).
#pragma once

#include <string>
#include <string_view>

#include "ZentorSDK.h"

namespace Zentor {

class Data final : public InterfaceImpl<IDataRef> {
 public:
  Data() = default;
  explicit Data(std::string_view bytes) : fBytes(bytes) {}
  explicit Data(std::string&& bytes) : fBytes(std::move(bytes)) {}

  unsigned long long Interface_GetSize() const override { return fBytes.size(); }
  void Interface_Assign(const char* data, unsigned long long size) override;
  unsigned long long Interface_Read(char* out, unsigned long long size,
                                    unsigned long long offset) const override;
  bool Interface_IsEqual(IDataRef* other) const override;
  IDataRef* Interface_Clone() const override { return new Data(std::string_view(fBytes)); }
  const void* Interface_GetData() const override { return fBytes.data(); }

 private:
  ~Data() override = default;

  std::string fBytes;
};

}  // namespace Zentor

// New data that takes the bytes over.
inline Zentor::AutoRefPtr<Zentor::IDataRef> NewData(std::string&& bytes) {
  return Zentor::AutoRefPtr<Zentor::IDataRef>(new Zentor::Data(std::move(bytes)));
}
