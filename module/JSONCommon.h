// What the script functions and the native JSON interface share, so that
// both read paths, answer member questions and word parse errors alike.
#pragma once

#include <string>
#include <string_view>

#include "Mjson.h"

// A shared owner of a node of the value tree.
using ValuePtr = JsonAutoRefPtr<JsonValue>;

// Whether `value` is a node of `type`; false for no node.
inline bool IsType(const ValuePtr& value, JsonValue::EJsonValueType type) {
  return value && value->Type() == type;
}

// Whether `value` is an object or a compiled object.
inline bool IsObjectLike(const ValuePtr& value) {
  return IsType(value, JsonValue::Object) || IsType(value, JsonValue::CompiledObject);
}

// A new reference to the member `key` of an object or compiled object, or
// empty.
inline ValuePtr MemberOf(const ValuePtr& container, const std::string& key) {
  return container ? mjson::JsonShare(mjson::MemberOf(*container, key)) : ValuePtr();
}

// `value` as an array, or null when it is none.
inline JsonArray* AsArray(const ValuePtr& value) {
  return IsType(value, JsonValue::Array) ? static_cast<JsonArray*>(value.get()) : nullptr;
}

// The steps of a node path such as "a/0/b": separated by "/", one leading
// "/" ignored, no escaping. Empty steps inside the path are kept ("a//b"
// has three steps); a trailing "/" adds none. How a step becomes an array
// index is up to each walk: their conversions differ on purpose.
class PathSteps {
 public:
  explicit PathSteps(std::string_view path) : fRest(path) {
    if (!fRest.empty() && fRest[0] == '/') fRest.remove_prefix(1);
  }

  // True when no step is left.
  bool Done() const { return fRest.empty(); }

  // Cuts the next step off; false when none is left. The step views the
  // path given to the constructor.
  bool Next(std::string_view& step) {
    if (fRest.empty()) return false;
    const size_t slash = fRest.find('/');
    if (slash == std::string_view::npos) {
      step = fRest;
      fRest = std::string_view();
    } else {
      step = fRest.substr(0, slash);
      fRest.remove_prefix(slash + 1);
    }
    return true;
  }

 private:
  std::string_view fRest;
};

// Whether a path step is meant as an array index.
inline bool StartsWithDigit(std::string_view step) {
  return !step.empty() && step[0] >= '0' && step[0] <= '9';
}

// Whether an object or compiled object has the member `key`; for an array,
// whether some element reads as the text `key`. False for every other value.
bool HasKeyOrElement(const JsonValue& root, const std::string& key);

// Removes the member `key` of an object or compiled object; false when
// there is no such member or `container` is neither.
bool EraseMember(JsonValue& container, const std::string& key);

// The message of a failed parse, as scripts and native callers read it.
std::string ParseErrorMessage(const ParserContext& context);

// The text of `value`: compact for an empty `indent`, else indented by it
// with one member or element a line.
void WriteText(const JsonValue& value, const std::string& indent, std::string& out);
