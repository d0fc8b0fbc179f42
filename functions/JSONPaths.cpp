// Script functions that find and remove nodes by path, and the writing walk
// that they share with JSON.SetSubNode.
#include <string>
#include <string_view>
#include <type_traits>

#include "JSONFunctions.h"

namespace JSONFunctions {

namespace {

// Decimal text to int, as the index of an array step. std::stoi raises
// std::out_of_range for "99999999999" and std::invalid_argument for text
// that does not start with a number; both leave the entry point on purpose.
int StepToIndex(std::string_view step) {
  return std::stoi(std::string(step));
}

// A path is one text ("a/0/b", one leading "/" ignored, no escaping) or a
// host vector of steps taken as they stand. Both forms are read through the
// same small step source so that one walk serves both; they differ only in
// the messages of the writing walk.

class TextPath {
 public:
  explicit TextPath(const std::string& path) : fPath(path), fSteps(path) {}
  bool Empty() const { return fSteps.Done(); }
  // Cuts the next step off; `last` tells whether nothing remains after it.
  bool Next(std::string_view& step, bool& last) {
    if (!fSteps.Next(step)) return false;
    last = fSteps.Done();
    return true;
  }

  std::string EmptyPath() const { return "JSON path " + fPath + " doesn't exist!"; }
  std::string DoesNotExist(std::string_view) const {
    return "JSON path " + fPath + " doesn't exist!";
  }
  std::string OutOfBounds() const {
    return "JSON path " + fPath + " with array index which is out of bounds!";
  }
  std::string LastOutOfBounds() const { return OutOfBounds(); }
  std::string CannotRetrieve(std::string_view) const {
    return "Couldn't retrieve JSON element from path " + fPath;
  }

 private:
  const std::string& fPath;
  PathSteps fSteps;
};

class VectorPath {
 public:
  explicit VectorPath(const StringVector& path) : fPath(path), fSize(path ? path->GetSize() : 0) {}
  bool Empty() const { return fSize == 0; }
  bool Next(std::string_view& step, bool& last) {
    if (fIndex >= fSize) return false;
    fStep = fPath->At(fIndex++);
    step = fStep;
    last = fIndex == fSize;
    return true;
  }

  std::string EmptyPath() const { return "JSON path vector is empty. Path doesn't exist!"; }
  std::string DoesNotExist(std::string_view) const { return "JSON path vector doesn't exist!"; }
  std::string OutOfBounds() const {
    return "JSON path vector with array index which is out of bounds!";
  }
  // The users know this text without the word "vector"; it stays as it is.
  std::string LastOutOfBounds() const {
    return "JSON path with array index which is out of bounds!";
  }
  std::string CannotRetrieve(std::string_view step) const {
    return "Couldn't retrieve JSON element from path " + std::string(step);
  }

 private:
  const StringVector& fPath;
  size_t fSize;
  size_t fIndex = 0;
  std::string fStep;
};

// The reading walk: no copy, no report; a failed walk gives null.
template <class Path>
JSONObjRef FindNode(const JSONObjRef& json, Path path, unsigned int jsonTypeId,
                    Zentor::IContext* context) {
  JSONObjRef result = NewJSONObj(jsonTypeId, context);
  if (path.Empty()) return result;
  JsonValue* current = json->fRoot.get();
  std::string_view step;
  bool last = false;
  while (path.Next(step, last)) {
    if (!current) return result;
    if (current->Type() == JsonValue::Array) {
      if (step.empty()) continue;
      if (!StartsWithDigit(step)) return result;
      const int index = StepToIndex(step);
      const auto& values = static_cast<const JsonArray*>(current)->Values();
      if (index < 0 || index >= static_cast<int>(values.size())) return result;
      current = values[static_cast<size_t>(index)];
    } else if (current->Type() == JsonValue::Object) {
      current = const_cast<JsonValue*>(static_cast<const JsonObject*>(current)->Peek(step));
    } else {
      return result;
    }
  }
  if (current) result->fRoot = mjson::JsonShare(current);
  return result;
}

// The writing walk on a deep copy of the argument. Every step but the last
// must exist; the last one removes (T = void*) or writes the value.
// Intermediate nodes are never created.
template <class T, class Path>
JSONObjRef WriteNode(const JSONObjRef& json, Path path, const T& value, Zentor::IContext* context) {
  JSONObjRef result = CopyOf(json);
  auto fail = [&](const std::string& message) {
    Report(context, kSeverityWarning, kErrorWrongPath, message);
    return result;
  };
  if (path.Empty()) return fail(path.EmptyPath());
  JsonValue* current = result->fRoot.get();
  std::string_view step;
  bool last = false;
  while (path.Next(step, last)) {
    if (current && current->Type() == JsonValue::Array) {
      auto* array = static_cast<JsonArray*>(current);
      if (step.empty()) continue;
      if (!StartsWithDigit(step)) return fail(path.DoesNotExist(step));
      const int index = StepToIndex(step);
      const size_t size = array->Size();
      // index == size passes: the setters append there.
      if (index < 0 || static_cast<size_t>(index) > size) return fail(path.OutOfBounds());
      const size_t at = static_cast<size_t>(index);
      if (last) {
        if constexpr (std::is_same_v<T, Removal>) {
          if (at >= size) return fail(path.LastOutOfBounds());
          array->EraseAtIndex(at);
        } else {
          ValuePtr node = CreateJSONObject_internal(value);
          if (at == size)
            array->AddValue(std::move(node));
          else
            array->SetValueAtIndex(at, node);
        }
        return result;
      }
      current = at < size ? array->Values()[at] : nullptr;
      if (!current) return fail(path.CannotRetrieve(step));
    } else if (current && current->Type() == JsonValue::Object) {
      auto* object = static_cast<JsonObject*>(current);
      if (last) {
        const std::string key(step);
        if constexpr (std::is_same_v<T, Removal>) {
          if (!object->Erase(key)) return fail(path.DoesNotExist(step));
        } else {
          // A member that the insert refuses (a key that is not UTF-8) is
          // dropped without a message.
          InsertValue_internal(object, key, value);
        }
        return result;
      }
      current = const_cast<JsonValue*>(object->Peek(step));
      if (!current) return fail(path.CannotRetrieve(step));
    } else {
      return fail(path.DoesNotExist(step));
    }
  }
  return result;
}

}  // namespace

template <class T>
JSONObjRef SetNodePath(const JSONObjRef& json, const std::string& path, const T& value,
                       Zentor::IContext* context) {
  return WriteNode<T>(json, TextPath(path), value, context);
}

template <class T>
JSONObjRef SetNodeVector(const JSONObjRef& json, const StringVector& path, const T& value,
                         Zentor::IContext* context) {
  return WriteNode<T>(json, VectorPath(path), value, context);
}

// The value kinds of JSON.SetSubNode, and the removal.
#define ZENTOR_INSTANTIATE_WALKS(T)                                                      \
  template JSONObjRef SetNodePath<T>(const JSONObjRef&, const std::string&, const T&,    \
                                     Zentor::IContext*);                                 \
  template JSONObjRef SetNodeVector<T>(const JSONObjRef&, const StringVector&, const T&, \
                                       Zentor::IContext*);
ZENTOR_INSTANTIATE_WALKS(bool)
ZENTOR_INSTANTIATE_WALKS(double)
ZENTOR_INSTANTIATE_WALKS(long long)
ZENTOR_INSTANTIATE_WALKS(unsigned long long)
ZENTOR_INSTANTIATE_WALKS(std::string)
ZENTOR_INSTANTIATE_WALKS(JSONObjRef)
ZENTOR_INSTANTIATE_WALKS(BoolVector)
ZENTOR_INSTANTIATE_WALKS(NumberVector)
ZENTOR_INSTANTIATE_WALKS(StringVector)
ZENTOR_INSTANTIATE_WALKS(Removal)
#undef ZENTOR_INSTANTIATE_WALKS

}  // namespace JSONFunctions

using namespace JSONFunctions;

JSONObjRef FindNodePath(const JSONObjRef& json, const std::string& path,
                        Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  return FindNode(json, TextPath(path), jsonTypeId, context);
}

JSONObjRef GetFromNodePath(const JSONObjRef& json, const std::string& path,
                           Zentor::IContext* context) {
  return FindNodePath(json, path, context);
}

JSONObjRef GetFromNodeVector(const JSONObjRef& json, const StringVector& path,
                             Zentor::IContext* context) {
  static const unsigned int jsonTypeId = FindJSONTypeId(context);
  return FindNode(json, VectorPath(path), jsonTypeId, context);
}

JSONObjRef RemoveNodePath(const JSONObjRef& json, const std::string& path,
                          Zentor::IContext* context) {
  return SetNodePath<Removal>(json, path, nullptr, context);
}

JSONObjRef RemoveNodeVector(const JSONObjRef& json, const StringVector& path,
                            Zentor::IContext* context) {
  return SetNodeVector<Removal>(json, path, nullptr, context);
}
