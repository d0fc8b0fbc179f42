// A program of an embedder who happens to use, at global scope, names that
// the value library uses for its own machinery: the library's headers must
// neither clash with them nor pick them up in its own templates. The names
// come before the headers (the harder order: the headers are then read with
// them in view) and some have exactly the signatures of the library's own.
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

class JsonValue;

template <class T>
struct NodeList {
  T* first = nullptr;
  size_t count = 0;
};
struct CompactString {
  const char* text;
};
struct Arena {
  int blocks = 0;
};
struct TreeCopier {
  static int Copy(int x) { return x + 1; }
};
struct PendingDeletes {
  int count = 0;
};
using JsonValueList = NodeList<JsonValue*>;
struct ThreadState {
  int id = 7;
};
struct ThreadCache {
  int hits = 0;
};
namespace detail {
inline int Unrelated() {
  return 3;
}
}  // namespace detail

static int gPoolCalls = 0;
void* JsonPoolAllocate(size_t bytes) {
  ++gPoolCalls;
  return std::malloc(bytes);
}
void JsonPoolFree(void* p, size_t) noexcept {
  ++gPoolCalls;
  std::free(p);
}
void CopyShortBytes(char* dst, const char* src, size_t n) {
  std::memcpy(dst, src, n);
}
size_t ContainerSize(const JsonValue& value);
bool IsEmptyValue(const JsonValue* value);

#include "JsonRef.h"
#include "Mjson.h"

// Same name and signature as the library's mjson::JsonShare, which its
// templates must not confuse with this one.
template <class T>
JsonAutoRefPtr<T> JsonShare(T* p) {
  std::abort();
  return JsonAutoRefPtr<T>(p);
}

size_t ContainerSize(const JsonValue&) {
  return 42;
}
bool IsEmptyValue(const JsonValue* value) {
  return value != nullptr;  // the embedder's own idea of "empty"
}

namespace {

int gFailures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "failed: %s\n", what);
    ++gFailures;
  }
}

std::string Text(const JsonValue& v) {
  std::string out;
  v.WriteToString(out);
  return out;
}

}  // namespace

int main() {
  ParserContext ctx;
  ctx.fKeepObjectOrder = true;
  JsonAutoRefPtr<JsonValue> doc = JsonValue::ReadFromString(
      "{\"name\":\"\\u00e9t\\u00e9\",\"list\":[1,2.50,true],\"none\":null}", &ctx, nullptr);
  Check(doc && ctx.fError.empty() && ctx.fCompleted, "parse");
  if (!doc) return 1;

  // The proxies and the containers' lists are templates of the library,
  // instantiated here, with this program's names in view.
  JsonAutoRefPtr<JsonObject> object = ConvertToObject(doc);
  ObjectRef added(object.get(), "added");
  added = 3LL;
  ArrayRef first(object->KeyValAsArray("list").get(), 0);
  first = std::string("one");
  JsonAutoRefPtr<JsonArray> list = object->KeyValAsArray("list");
  for (int i = 0; i < 40; ++i) list->AddInteger(i);  // grows the list's storage
  for (int i = 0; i < 40; ++i) list->EraseAtIndex(list->Size() - 1);
  Check(Text(*doc) ==
            "{\"name\":\"\xC3\xA9t\xC3\xA9\",\"list\":[\"one\",2.50,true],\"none\":null,"
            "\"added\":3}",
        "edited text");

  // The library's conveniences, and this program's own functions of the
  // same names, each where it was asked for.
  Check(mjson::ContainerSize(*doc) == 4 && ContainerSize(*doc) == 42, "ContainerSize");
  Check(!mjson::IsEmptyValue(doc.get()) && IsEmptyValue(doc.get()), "IsEmptyValue");
  Check(mjson::IsEmptyValue(object->At("none").get()), "null is empty");
  JsonAutoRefPtr<JsonValue> shared = mjson::JsonShare(object->GetSubNode("list"));
  Check(shared && shared->Type() == JsonValue::Array, "JsonShare");

  // Copies, equality and MessagePack both ways.
  JsonAutoRefPtr<JsonValue> copy = JsonValue::Copy(*doc);
  Check(*copy == *doc, "copy equals");
  std::string bytes;
  Check(doc->WriteToMsgPack(bytes), "MessagePack written");
  JsonAutoRefPtr<JsonValue> back = JsonValue::ReadFromMsgPack(bytes, nullptr, nullptr);
  Check(back && *back == *doc, "MessagePack read back");
  std::string pretty;
  object->KeyValAsArray("list")->WriteToStringPretty(pretty, " ", "\n");
  // Writing MessagePack read 2.50, which now writes as the number it is.
  Check(pretty == "[\n \"one\",\n 2.5,\n true\n]", "pretty text");

  // A failing parse reports as documented.
  ParserContext bad;
  Check(!JsonValue::ReadFromString("[1,]", &bad, nullptr) &&
            bad.fError == "array must not end with comma",
        "parse error");

  // This program's own types, untouched by the library's.
  NodeList<int> nodes;
  JsonValueList values;
  CompactString s{"mine"};
  Arena arena;
  PendingDeletes pending;
  ThreadState state;
  ThreadCache cache;
  char buffer[8] = {};
  CopyShortBytes(buffer, s.text, 4);
  JsonPoolFree(JsonPoolAllocate(8), 8);
  Check(nodes.count == 0 && values.first == nullptr && arena.blocks == 0 && pending.count == 0 &&
            state.id == 7 && cache.hits == 0 && TreeCopier::Copy(1) == 2 &&
            std::strcmp(buffer, "mine") == 0 && gPoolCalls == 2 && detail::Unrelated() == 3,
        "the program's own names");

  if (gFailures) return 1;
  std::puts("embedder names: ok");
  return 0;
}
