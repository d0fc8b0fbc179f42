// The SDK's own logic: reference counting, the smart pointer, and the
// buffer protocols that the non-virtual IJSON and IContext calls hide.
#include <gtest/gtest.h>

#include <sstream>

#include "Host.h"
#include "HostTextJSON.h"
#include "HostValues.h"
#include "ZentorSDK.h"

namespace {

using Zentor::AutoRefPtr;

// Counts destructions, so tests can tell exactly when an object dies.
class Counted final : public Zentor::CustomType<Counted> {
 public:
  explicit Counted(int* deaths) : CustomType(21, "Counted"), fDeaths(deaths) {}
  Counted(const Counted& other) = default;
  ~Counted() override { ++*fDeaths; }
  int* fDeaths;
};

TEST(RefCounting, ReleaseDestroysOnLastReferenceOnly) {
  int deaths = 0;
  auto* object = new Counted(&deaths);
  EXPECT_EQ(object->GetCount(), 1);
  EXPECT_EQ(object->AddRef(), 1) << "AddRef returns the count before";
  EXPECT_EQ(object->Release(), 0);
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(object->Release(), 1) << "the last Release reports the destruction";
  EXPECT_EQ(deaths, 1);
}

TEST(RefCounting, CloneStartsItsOwnCount) {
  int deaths = 0;
  AutoRefPtr<Counted> original(new Counted(&deaths));
  AutoRefPtr<Counted> extra = original;
  auto clone = original->Clone();
  EXPECT_EQ(original->GetCount(), 2);
  EXPECT_EQ(clone->GetCount(), 1);
  EXPECT_STREQ(clone->GetName(), "Counted");
  EXPECT_EQ(clone->GetType(), 21u);
  // The defaults every custom type inherits.
  void* out = nullptr;
  EXPECT_FALSE(clone->LessThan(original.get()));
  EXPECT_EQ(clone->ToBinaryData(&out, 10900), 0u);
  EXPECT_FALSE(clone->FromBinaryData("x", 1, 10900));
  EXPECT_FALSE(clone->Serialize());
  EXPECT_FALSE(clone->Deserialize(nullptr));
  clone.reset();
  EXPECT_EQ(deaths, 1);
}

TEST(AutoRefPtr, OwnershipOperations) {
  int deaths = 0;
  Counted* raw = new Counted(&deaths);
  {
    AutoRefPtr<Counted> adopted(raw);  // count 1, adopted
    EXPECT_EQ(raw->GetCount(), 1);
    auto added = AutoRefPtr<Counted>::AddRefPtr(raw);
    EXPECT_EQ(raw->GetCount(), 2);
    AutoRefPtr<Counted> tagged(raw, Zentor::kAddRef);
    EXPECT_EQ(raw->GetCount(), 3);
    AutoRefPtr<Zentor::IUserDefinedType> base = added;  // converting copy
    EXPECT_EQ(raw->GetCount(), 4);
    AutoRefPtr<const Zentor::IUserDefinedType> constBase(std::move(base));  // converting move
    EXPECT_FALSE(base);
    EXPECT_EQ(raw->GetCount(), 4);
    EXPECT_TRUE(constBase == adopted);
    EXPECT_TRUE(adopted == raw);
    EXPECT_FALSE(adopted == nullptr);
    EXPECT_EQ(adopted <=> tagged, std::strong_ordering::equal);
    tagged = nullptr;
    EXPECT_EQ(raw->GetCount(), 3);
    Counted* released = added.release();
    EXPECT_FALSE(added);
    EXPECT_EQ(raw->GetCount(), 3) << "release() hands the reference over";
    released->Release();
    auto down = Zentor::DynamicRefCast<const Counted>(constBase);
    EXPECT_EQ(down.get(), raw);
    EXPECT_EQ(raw->GetCount(), 3);
    adopted = adopted;  // self-assignment keeps the reference
    EXPECT_EQ(raw->GetCount(), 3);
  }
  EXPECT_EQ(deaths, 1);
  AutoRefPtr<Counted> empty;
  empty.reset(new Counted(&deaths));
  empty.reset();
  EXPECT_EQ(deaths, 2);
}

TEST(Variant, HoldsReferencesToObjects) {
  int deaths = 0;
  AutoRefPtr<Counted> object(new Counted(&deaths));
  auto variant = zhost::MakeVariant();
  variant->SetUserDefined(object.get());
  EXPECT_EQ(object->GetCount(), 2);
  EXPECT_EQ(variant->GetType(), 21u);
  EXPECT_EQ(variant->GetUserDefinedPtr(), object.get());
  EXPECT_EQ(object->GetCount(), 2) << "GetUserDefinedPtr borrows";
  {
    auto held = variant->GetUserDefined();
    EXPECT_EQ(object->GetCount(), 3) << "GetUserDefined adds a reference";
  }
  variant->SetUserDefined(variant->GetUserDefinedPtr());  // the same object again
  EXPECT_EQ(object->GetCount(), 2);
  variant->AssignNumber(1);
  EXPECT_EQ(object->GetCount(), 1);
  object.reset();
  EXPECT_EQ(deaths, 1);
}

// A text of any length comes back whole, whatever the first buffer size of
// the wrappers: they must retry with the size that the slot asks for.
class Lengths : public ::testing::TestWithParam<size_t> {};

// A foreign IJSON whose text reads answer by the length + 1 protocols of
// the interface, each with its own copy bound.
class ProtocolJSON : public zhost::HostTextJSON {
 public:
  explicit ProtocolJSON(std::string text) : HostTextJSON(text), fText(std::move(text)) {}
  // Copies when length <= size, zero byte at index length.
  unsigned long long Interface_GetString(const char* key, char* buffer, unsigned long long size,
                                         unsigned char* complete) const override {
    if (std::string(key) != "k") return 0;
    if (complete) *complete = 1;
    if (buffer && fText.size() <= size) {
      fText.copy(buffer, fText.size());
      buffer[fText.size()] = '\0';
    }
    return fText.size() + 1;
  }
  // Copies and completes when length < size.
  unsigned long long Interface_AsString(char* buffer, unsigned long long size,
                                        unsigned char* complete) const override {
    if (complete) *complete = 0;
    if (buffer && fText.size() < size) {
      fText.copy(buffer, fText.size());
      buffer[fText.size()] = '\0';
      if (complete) *complete = 1;
    }
    return fText.size() + 1;
  }
  // Copies and completes when length + 1 <= size.
  unsigned long long Interface_GetErrorMessage(char* buffer, unsigned long long size,
                                               unsigned char* complete) const override {
    const bool fits = fText.size() + 1 <= size;
    if (complete) *complete = fits ? 1 : 0;
    if (buffer && fits) {
      fText.copy(buffer, fText.size());
      buffer[fText.size()] = '\0';
    }
    return fText.size() + 1;
  }

 private:
  std::string fText;
};

TEST_P(Lengths, IJSONTextReadsRetryUntilTheTextFits) {
  std::string text(GetParam(), 'a');
  if (!text.empty()) text.back() = 'z';
  AutoRefPtr<Zentor::IJSON> json(new ProtocolJSON(text));
  EXPECT_EQ(json->ToString(), text);
  std::string out = "old";
  ASSERT_TRUE(json->ToCachedString(out));
  EXPECT_EQ(out, text);
  ASSERT_TRUE(json->GetString("k", out));
  EXPECT_EQ(out, text);
  EXPECT_FALSE(json->GetString("other", out));
  ASSERT_TRUE(json->AsString(out));
  EXPECT_EQ(out, text);
  EXPECT_EQ(json->GetErrorMessage(), text);
}

TEST_P(Lengths, ContextTextReadsRetryUntilTheTextFits) {
  std::ostringstream sink;
  zhost::Output out(sink);
  zhost::Host host(out);
  const std::string message(GetParam(), 'm');
  host.Context().TriggerErrorHandler(Zentor::ErrorSeverity::Error, "S", "C", message);
  EXPECT_EQ(host.Context().GetErrorMessage(), message);
}

INSTANTIATE_TEST_SUITE_P(AroundTheFirstBuffer, Lengths,
                         ::testing::Values(0, 1, 254, 255, 256, 257, 5000));

TEST(DataRef, ToStringReadsThroughEitherPath) {
  for (const bool direct : {true, false}) {
    AutoRefPtr<Zentor::IDataRef> data(new zhost::HostData(std::string("a\0b", 3), direct));
    EXPECT_EQ(data->ToString(), std::string("a\0b", 3)) << direct;
  }
}

}  // namespace
