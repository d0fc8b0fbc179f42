// A deliberately minimal IJSON of the host's own: it holds a JSON text and
// answers nothing but ToString (and Parse, which replaces the text). Every
// query fails. Handing it to a user-defined type's Deserialize shows how
// the type copes with an IJSON that is not its own implementation.
#pragma once

#include <string>

#include "ZentorJSON.h"

namespace zhost {

class HostTextJSON : public Zentor::InterfaceImpl<Zentor::IJSON> {
 public:
  explicit HostTextJSON(std::string text) : fText(std::move(text)) {}

  bool Interface_Parse(const char* text) override {
    if (text) fText = text;
    return true;
  }
  bool Interface_LessThan(const IJSON*) const override { return false; }
  bool Interface_Equals(const IJSON*) const override { return false; }
  unsigned long long Interface_ToString(const char*, char* buffer,
                                        unsigned long long size) const override {
    if (buffer && fText.size() < size) {
      fText.copy(buffer, fText.size());
      buffer[fText.size()] = '\0';
    }
    return fText.size() + 1;
  }
  unsigned long long Interface_ToCachedString(const char* indent, char* buffer,
                                              unsigned long long size) override {
    return Interface_ToString(indent, buffer, size);
  }
  IJSON* Interface_FindNodePath(const char*) const override { return nullptr; }
  IJSON* Interface_ElementMatchingString(const char*, const char*) const override {
    return nullptr;
  }
  IJSON* Interface_ElementMatchingDouble(const char*, double) const override { return nullptr; }
  unsigned long long Interface_Size() const override { return 0; }
  bool Interface_Empty() const override { return fText.empty(); }
  unsigned long long Interface_GetString(const char*, char*, unsigned long long,
                                         unsigned char*) const override {
    return 0;
  }
  bool Interface_GetDouble(const char*, double*) const override { return false; }
  bool Interface_GetInt(const char*, int*) const override { return false; }
  bool Interface_GetUInt(const char*, unsigned int*) const override { return false; }
  bool Interface_GetInt64(const char*, long long*) const override { return false; }
  bool Interface_GetUInt64(const char*, unsigned long long*) const override { return false; }
  bool Interface_GetBoolean(const char*, unsigned char*) const override { return false; }
  IJSON* Interface_Get(const char*) const override { return nullptr; }
  bool Interface_Has(const char*) const override { return false; }
  IJSON* Interface_At(unsigned long long) const override { return nullptr; }
  bool Interface_PushBackBool(unsigned char) override { return false; }
  bool Interface_PushBackString(const char*) override { return false; }
  bool Interface_PushBackDouble(double) override { return false; }
  bool Interface_PushBackJSON(const IJSON*) override { return false; }
  IJSON* Interface_RemoveIndex(unsigned long long) override { return nullptr; }
  IJSON* Interface_RemoveKey(const char*) override { return nullptr; }
  bool Interface_AsBool(unsigned char*) const override { return false; }
  bool Interface_AsDouble(double*) const override { return false; }
  bool Interface_AsInt(int*) const override { return false; }
  bool Interface_AsUInt(unsigned int*) const override { return false; }
  bool Interface_AsInt64(long long*) const override { return false; }
  bool Interface_AsUInt64(unsigned long long*) const override { return false; }
  unsigned long long Interface_AsString(char*, unsigned long long,
                                        unsigned char* complete) const override {
    if (complete) *complete = 0;
    return 0;
  }
  bool Interface_IsNull() const override { return false; }
  bool Interface_IsBool() const override { return false; }
  bool Interface_IsNumber() const override { return false; }
  bool Interface_IsDouble() const override { return false; }
  bool Interface_IsInt() const override { return false; }
  bool Interface_IsUInt() const override { return false; }
  bool Interface_IsInt64() const override { return false; }
  bool Interface_IsUInt64() const override { return false; }
  bool Interface_IsString() const override { return false; }
  bool Interface_IsArray() const override { return false; }
  bool Interface_IsObject() const override { return false; }
  bool Interface_SetBool(const char*, unsigned char) override { return false; }
  bool Interface_SetDouble(const char*, double) override { return false; }
  bool Interface_SetInt(const char*, int) override { return false; }
  bool Interface_SetUInt(const char*, unsigned int) override { return false; }
  bool Interface_SetInt64(const char*, long long) override { return false; }
  bool Interface_SetUInt64(const char*, unsigned long long) override { return false; }
  bool Interface_SetString(const char*, const char*) override { return false; }
  bool Interface_SetJSON(const char*, const IJSON*) override { return false; }
  bool Interface_SetNull(const char*) override { return false; }
  bool Interface_ReplaceIndex(unsigned long long, const IJSON*) override { return false; }
  bool Interface_ForEach(ForEachCallback, void*) const override { return false; }
  bool Interface_ForEach(ForEachErrorCallback, void*, char*, unsigned int) const override {
    return false;
  }
  bool Interface_ForEach(ForEachContextCallback, void*, Zentor::IContext*) const override {
    return false;
  }
  IJSON* Interface_Clone() const override { return new HostTextJSON(fText); }
  unsigned long long Interface_SerializedSize() override { return fText.size() + 8; }
  unsigned long long Interface_Deserialize(const char*, unsigned long long) override {
    return kInvalidSize;
  }
  unsigned long long Interface_Serialize(char*, unsigned long long) override {
    return kInvalidSize;
  }
  Status Interface_GetErrorStatus() const override { return kStatusNone; }
  unsigned long long Interface_GetErrorMessage(char* buffer, unsigned long long size,
                                               unsigned char* complete) const override {
    if (complete) *complete = size >= 1 ? 1 : 0;
    if (buffer && size >= 1) buffer[0] = '\0';
    return 1;
  }

 private:
  std::string fText;
};

}  // namespace zhost
