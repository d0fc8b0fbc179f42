// Zentor::IJSON: the host's native JSON document interface, through which
// native modules build, query and serialise JSON without depending on the
// implementation behind it. What the comments below say each call does is
// what the JSON module's implementation does.
//
// Views. An IJSON is a view: a handle on one node of a document, with a
// status of its own. Views share nodes and never copy unless a call says
// so: the view of a "JSON" value (IUserDefinedType::Serialize) is that
// value's document, and the views that Get, At, FindNodePath,
// ElementMatching*, RemoveIndex, RemoveKey and ForEach hand out are the
// nodes themselves. So a change made through a view:
// - either edits the nodes in place (PushBack*, Remove*, Set* on an
//   object, ReplaceIndex), and every view and every "JSON" value that
//   holds those nodes sees it;
// - or rebinds the view (Parse, Deserialize, and any Set* on a null
//   document, which starts a new object): the view moves onto a new
//   document, and the value or document it came from stays as it was.
// Take a const view (Serialize<const IJSON>) to read an argument: then no
// call that changes anything compiles. The views of nodes that a const view
// hands out (Get, At, FindNodePath, ElementMatching*) are not const, yet
// they are the caller's nodes too: hold them as AutoRefPtr<const IJSON>.
//
// Conventions of the slots:
// - keys and texts are NUL-terminated UTF-8; booleans cross as unsigned char
//   (0 or 1); sizes and indices as unsigned 64-bit numbers;
// - slots returning IJSON* return +1 (a new object owned by the caller) or
//   null;
// - texts come back through caller buffers: the slot returns the size the
//   caller needs (text length + 1); the exact copy rule differs per slot and
//   is noted there; the non-virtual calls hide it behind std::string;
// - almost every call first clears the status of the view it is made
//   through (ForEach, Clone, GetErrorStatus and GetErrorMessage do not);
//   each call below says which of its failures set a status. A failure
//   that sets none leaves the status clear, so test the result, not only
//   the status.
#pragma once

#include <concepts>
#include <exception>
#include <string>
#include <type_traits>

#include "Zentor.h"

namespace Zentor {

// What IJSON::ForEach takes: any callable, capturing lambdas included, that
// it can call with a member's key and view and whose result converts to
// bool.
template <class Visit>
concept JSONMemberVisitor = requires(Visit& visit, const char* key, const IJSON* value) {
  { visit(key, value) } -> std::convertible_to<bool>;
};

class IJSON : public IObject {
 public:
  // One byte: the outcome of the last operation.
  enum Status : unsigned char {
    kStatusNone = 0,
    kStatusWarning = 1,
    kStatusError = 2,
  };

  // The all-ones value that the serialisation slots return on failure.
  static constexpr unsigned long long kInvalidSize = ~0ULL;

  // Member walk callbacks; returning 0 stops (or, with error reporting,
  // marks) the walk. `key` is the member name, or the decimal index for an
  // array element; `value` is a view of the member itself (not a copy),
  // valid during the call.
  using ForEachCallback = unsigned char (*)(const char* key, const IJSON* value, void* user);
  using ForEachErrorCallback = unsigned char (*)(const char* key, const IJSON* value, void* user,
                                                 char* errorBuffer, unsigned int errorBufferSize);
  using ForEachContextCallback = unsigned char (*)(const char* key, const IJSON* value, void* user,
                                                   IContext* context);

  // -- non-virtual calls -----------------------------------------------------
  //
  // Every call that takes a key or a text takes a C string or a std::string;
  // a std::string ends at its first zero byte there (the slots take C
  // strings), except for the value of SetString, which is kept whole.

  // Whole documents -----------------------------------------------------------

  // Rebinds this view onto the parsed document (member order kept) and
  // returns true; the value or document the view came from keeps its old
  // content. On failure nothing changes and the status is the error "JSON
  // parse error in line <line counted from 0>: <reason>". A null text
  // changes nothing and returns true.
  bool Parse(const char* text) { return Interface_Parse(text); }
  bool Parse(const std::string& text) { return Interface_Parse(text.c_str()); }
  // Byte-wise order of the two documents' texts; false for another
  // implementation's IJSON. No status.
  bool LessThan(const IJSON* other) const { return Interface_LessThan(other); }
  // Equal values; false for another implementation's IJSON. No status.
  bool Equals(const IJSON* other) const { return Interface_Equals(other); }

  // Compact text when `indent` is empty, else indented by it. Numbers read
  // from text are mostly written as read (12.50 stays 12.50) until
  // something reads them as numbers (then 12.5); reals set by a module are
  // written with at most six decimals (0.1 + 0.2 as 0.3, 1e-7 as 0.0), NaN
  // and infinities as nan and inf, which are no JSON. No status.
  bool ToString(std::string& out, const std::string& indent = std::string()) const {
    out.clear();
    ReadSlotText(
        [&](char* buffer, unsigned long long size) {
          return Interface_ToString(indent.c_str(), buffer, size);
        },
        out);
    return true;
  }
  std::string ToString(const std::string& indent = std::string()) const {
    std::string out;
    ToString(out, indent);
    return out;
  }
  // The same as ToString: there is no cache (the nodes may be shared and
  // changed through other views).
  bool ToCachedString(std::string& out, const std::string& indent = std::string()) {
    out.clear();
    ReadSlotText(
        [&](char* buffer, unsigned long long size) {
          return Interface_ToCachedString(indent.c_str(), buffer, size);
        },
        out);
    return true;
  }

  // A view of a deep copy of the document, which shares nothing with this
  // one; the copy starts with this view's status.
  AutoRefPtr<IJSON> Clone() const { return AutoRefPtr<IJSON>(Interface_Clone()); }

  // Finding nodes ---------------------------------------------------------------

  // A view of the node at `path` ("a/0/b": member names and array indices
  // split at "/", one leading "/" ignored, no escapes; "" is this node), or
  // empty. Not found: a warning ("Couldn't find JSON node, ...").
  AutoRefPtr<IJSON> FindNodePath(const char* path) const {
    return AutoRefPtr<IJSON>(Interface_FindNodePath(path));
  }
  AutoRefPtr<IJSON> FindNodePath(const std::string& path) const {
    return FindNodePath(path.c_str());
  }
  // In an array, a view of the first element that is an object whose member
  // `key` reads as the text `value` (numbers and booleans in their text
  // form), or empty. Not an array, or a null key or value: the warning "JSON
  // object is not an array". No match: empty, no status.
  AutoRefPtr<IJSON> ElementMatchingString(const char* key, const char* value) const {
    return AutoRefPtr<IJSON>(Interface_ElementMatchingString(key, value));
  }
  AutoRefPtr<IJSON> ElementMatchingString(const std::string& key, const std::string& value) const {
    return ElementMatchingString(key.c_str(), value.c_str());
  }
  // As ElementMatchingString, for a member that converts to the number
  // `value` as AsDouble converts ("2.5" and "2.5kg" match 2.5).
  AutoRefPtr<IJSON> ElementMatchingDouble(const char* key, double value) const {
    return AutoRefPtr<IJSON>(Interface_ElementMatchingDouble(key, value));
  }
  AutoRefPtr<IJSON> ElementMatchingDouble(const std::string& key, double value) const {
    return ElementMatchingDouble(key.c_str(), value);
  }

  // Whole-node reads, none of which sets a status ----------------------------

  // Members of an object, elements of an array; 0 for anything else.
  unsigned long long Size() const { return Interface_Size(); }
  // True for null, "", {} and []; false for numbers and booleans.
  bool Empty() const { return Interface_Empty(); }
  bool IsNull() const { return Interface_IsNull(); }
  bool IsBool() const { return Interface_IsBool(); }
  bool IsNumber() const { return Interface_IsNumber(); }
  // A real: 2.0 is one, 2 is not.
  bool IsDouble() const { return Interface_IsDouble(); }
  // An integer (2.0 is none) in the range of the type; IsInt64 takes any
  // integer, IsUInt64 only 0 to 9223372036854775807.
  bool IsInt() const { return Interface_IsInt(); }
  bool IsUInt() const { return Interface_IsUInt(); }
  bool IsInt64() const { return Interface_IsInt64(); }
  bool IsUInt64() const { return Interface_IsUInt64(); }
  bool IsString() const { return Interface_IsString(); }
  bool IsArray() const { return Interface_IsArray(); }
  bool IsObject() const { return Interface_IsObject(); }

  // This node converted to the type; false, with `out` 0, when it does not
  // convert or is out of the type's range. Unlike the Is* tests these
  // convert: a real reads as an integer cut toward zero (2.7 as 2), true and
  // false as 1 and 0, a string as the number it begins with ("12abc" as 12,
  // " 12" as nothing); AsBool reads any number (not 0) and any string (not
  // "": "false" is true) as a boolean. Null, objects and arrays convert to
  // nothing. Integers above 9223372036854775807 read only as reals and as
  // text. Reading a number that came from text as a number settles it for
  // every holder of the node: it is written in the number's own form from
  // then on (12.50 as 12.5, 2E3 as 2e+03, 100000000000000000000000 as
  // 9.9999999999999991611e+22).
  bool AsBool(bool& out) const {
    unsigned char value = 0;
    const bool ok = Interface_AsBool(&value);
    out = value != 0;
    return ok;
  }
  bool AsDouble(double& out) const { return Interface_AsDouble(&out); }
  bool AsInt(int& out) const { return Interface_AsInt(&out); }
  bool AsUInt(unsigned int& out) const { return Interface_AsUInt(&out); }
  bool AsInt64(long long& out) const { return Interface_AsInt64(&out); }
  bool AsUInt64(unsigned long long& out) const { return Interface_AsUInt64(&out); }
  // The node's text: a string's own text, any other node in its compact
  // JSON form (a number as its text, an object as {...}).
  bool AsString(std::string& out) const {
    return ReadSlotText(
        [this](char* buffer, unsigned long long size) {
          return Interface_AsString(buffer, size, nullptr);
        },
        out);
  }

  // Members of an object --------------------------------------------------------
  //
  // The typed reads below convert the member as the As* reads do. They fail
  // when the view is no object (the error "Error while searching member
  // '<key>'. Type is <type> but should be Object."), when the member is
  // missing (the warning "Could not find member '<key>'") or when it does not
  // convert (the warning "Member '<key>' is no <double, integer, 32 bit
  // integer, ...>"). A null key fails without a status. On failure `out` is
  // left alone or set to 0: test the result.

  // The member's text, as AsString reads it: a string's text, any other
  // member in its compact JSON form ("null" for null). The not-found warning
  // ends in "'." here.
  bool GetString(const char* key, std::string& out) const {
    // The slot copies when length <= size and then writes its zero byte at
    // index `size`, so it is told one byte less than the buffer offered.
    return ReadSlotText(
        [&](char* buffer, unsigned long long size) {
          return Interface_GetString(key, buffer, size - 1, nullptr);
        },
        out);
  }
  bool GetString(const std::string& key, std::string& out) const {
    return GetString(key.c_str(), out);
  }
  bool GetDouble(const char* key, double& out) const { return Interface_GetDouble(key, &out); }
  bool GetDouble(const std::string& key, double& out) const { return GetDouble(key.c_str(), out); }
  bool GetInt(const char* key, int& out) const { return Interface_GetInt(key, &out); }
  bool GetInt(const std::string& key, int& out) const { return GetInt(key.c_str(), out); }
  bool GetUInt(const char* key, unsigned int& out) const { return Interface_GetUInt(key, &out); }
  bool GetUInt(const std::string& key, unsigned int& out) const {
    return GetUInt(key.c_str(), out);
  }
  bool GetInt64(const char* key, long long& out) const { return Interface_GetInt64(key, &out); }
  bool GetInt64(const std::string& key, long long& out) const { return GetInt64(key.c_str(), out); }
  bool GetUInt64(const char* key, unsigned long long& out) const {
    return Interface_GetUInt64(key, &out);
  }
  bool GetUInt64(const std::string& key, unsigned long long& out) const {
    return GetUInt64(key.c_str(), out);
  }
  bool GetBoolean(const char* key, bool& out) const {
    unsigned char value = 0;
    const bool ok = Interface_GetBoolean(key, &value);
    if (ok) out = value != 0;
    return ok;
  }
  bool GetBoolean(const std::string& key, bool& out) const { return GetBoolean(key.c_str(), out); }
  // A view of the member itself (changes through it change this document),
  // or empty. A missing member sets no status; a view that is no object
  // sets the error above.
  AutoRefPtr<IJSON> Get(const char* key) const { return AutoRefPtr<IJSON>(Interface_Get(key)); }
  AutoRefPtr<IJSON> Get(const std::string& key) const { return Get(key.c_str()); }
  // An object: whether it has the member. An array: whether it holds an
  // element whose text (as AsString reads it) is `key`. No status.
  bool Has(const char* key) const { return Interface_Has(key); }
  bool Has(const std::string& key) const { return Interface_Has(key.c_str()); }

  // The setters store a member in place, replacing one of the same key. On a
  // null document they first rebind this view onto a new empty object (the
  // value the view came from stays null). Errors: "Can't set key/value pair
  // into JSON" (a null key, a null or foreign value), "..., JSON element is
  // not a JSON object", "..., JSON key is not a valid UTF8-string" (SetString
  // reports a bad key or value as "..., value for key "<key>" key and/or
  // value is not a valid UTF8-string").
  bool SetBool(const char* key, bool value) { return Interface_SetBool(key, value ? 1 : 0); }
  bool SetBool(const std::string& key, bool value) { return SetBool(key.c_str(), value); }
  // A real set here is written with at most six decimals, and NaN and
  // infinities as nan and inf (see ToString); to store a real exactly, parse
  // its text into a view and SetJSON that.
  bool SetDouble(const char* key, double value) { return Interface_SetDouble(key, value); }
  bool SetDouble(const std::string& key, double value) { return SetDouble(key.c_str(), value); }
  // Integers are stored and written exactly.
  bool SetInt(const char* key, int value) { return Interface_SetInt(key, value); }
  bool SetInt(const std::string& key, int value) { return SetInt(key.c_str(), value); }
  bool SetUInt(const char* key, unsigned int value) { return Interface_SetUInt(key, value); }
  bool SetUInt(const std::string& key, unsigned int value) { return SetUInt(key.c_str(), value); }
  bool SetInt64(const char* key, long long value) { return Interface_SetInt64(key, value); }
  bool SetInt64(const std::string& key, long long value) { return SetInt64(key.c_str(), value); }
  bool SetUInt64(const char* key, unsigned long long value) {
    return Interface_SetUInt64(key, value);
  }
  bool SetUInt64(const std::string& key, unsigned long long value) {
    return SetUInt64(key.c_str(), value);
  }
  // A C string value ends at its first zero byte.
  bool SetString(const char* key, const char* value) { return Interface_SetString(key, value); }
  // The value is stored whole, zero bytes included: a value with zero bytes
  // is set with them turned into blanks (which fails, and reports, exactly
  // as the whole value would), then replaced by the value parsed from its
  // JSON text through a second view of the member.
  bool SetString(const std::string& key, const std::string& value) {
    if (value.find('\0') == std::string::npos)
      return Interface_SetString(key.c_str(), value.c_str());
    std::string blanked = value;
    for (char& c : blanked)
      if (c == '\0') c = ' ';
    if (!Interface_SetString(key.c_str(), blanked.c_str())) return false;
    AutoRefPtr<IJSON> member = Get(key);
    return member && member->Parse(QuotedText(value)) && SetJSON(key, member.get());
  }
  // Stores a deep copy of `value`'s document: later changes on either side
  // stay apart. Only documents of this implementation can be stored.
  bool SetJSON(const char* key, const IJSON* value) { return Interface_SetJSON(key, value); }
  bool SetJSON(const std::string& key, const IJSON* value) { return SetJSON(key.c_str(), value); }
  bool SetNull(const char* key) { return Interface_SetNull(key); }
  bool SetNull(const std::string& key) { return SetNull(key.c_str()); }
  // Takes the member out and returns a view of it (no longer in this
  // document, still shared with anyone else who holds it), or empty. A
  // missing key, or a view that is no object: the warning "Couldn't remove
  // element with key <key>[, JSON object is not an object]". No status for
  // a null key.
  AutoRefPtr<IJSON> RemoveKey(const char* key) {
    return AutoRefPtr<IJSON>(Interface_RemoveKey(key));
  }
  AutoRefPtr<IJSON> RemoveKey(const std::string& key) { return RemoveKey(key.c_str()); }

  // Elements of an array ----------------------------------------------------

  // A view of the element itself, or empty. Not an array: empty, no status;
  // past the end: the error "Index is out of bounds".
  AutoRefPtr<IJSON> At(unsigned long long index) const {
    return AutoRefPtr<IJSON>(Interface_At(index));
  }
  // The pushes append in place. Not an array: the warning "Couldn't push
  // back to JSON array, JSON object is not an array" ("JSON object is not an
  // array" for PushBackJSON). A null or non-UTF-8 text: the warning
  // "Couldn't push back invalid value to JSON array".
  bool PushBackBool(bool value) { return Interface_PushBackBool(value ? 1 : 0); }
  bool PushBackString(const char* text) { return Interface_PushBackString(text); }
  bool PushBackString(const std::string& text) { return Interface_PushBackString(text.c_str()); }
  // Written as SetDouble's reals are.
  bool PushBackDouble(double value) { return Interface_PushBackDouble(value); }
  // Appends a deep copy of `other`'s document (this one's own included).
  // Another implementation's IJSON is refused without a status.
  bool PushBackJSON(const IJSON* other) { return Interface_PushBackJSON(other); }
  // Stores `value`'s document itself at `index`, shared, not copied: later
  // in-place changes through either view show in both. An index past the
  // end stores nothing and still returns true, without a status. Refusals
  // as PushBackJSON.
  bool ReplaceIndex(unsigned long long index, const IJSON* value) {
    return Interface_ReplaceIndex(index, value);
  }
  // Takes the element out and returns a view of it, or empty. Past the end,
  // or not an array: the warning "Couldn't remove element at position
  // <index>[, JSON object is not an array]".
  AutoRefPtr<IJSON> RemoveIndex(unsigned long long index) {
    return AutoRefPtr<IJSON>(Interface_RemoveIndex(index));
  }

  // Walking members -------------------------------------------------------------

  // Calls `visit(key, value)` for each member of an object (in order) or
  // element of an array (key "0", "1", ...) until it returns false; `value`
  // is a view of the member itself. `visit` is any callable, capturing
  // lambdas included, whose result converts to bool. An exception from it
  // stops the walk and is thrown again once the walk is over. False when
  // `visit` stopped the walk or the view is neither object nor array.
  template <JSONMemberVisitor Visit>
  bool ForEach(Visit&& visit) const {
    struct Walk {
      std::remove_reference_t<Visit>* visit;
      std::exception_ptr failure;
    } walk{&visit, nullptr};
    const bool complete = Interface_ForEach(
        [](const char* key, const IJSON* value, void* user) -> unsigned char {
          auto* self = static_cast<Walk*>(user);
          try {
            return static_cast<bool>((*self->visit)(key, value)) ? 1 : 0;
          } catch (...) {
            // Kept for later: an exception must not unwind through the
            // implementation's frames.
            self->failure = std::current_exception();
            return 0;
          }
        },
        &walk);
    if (walk.failure) std::rethrow_exception(walk.failure);
    return complete;
  }
  // The same walk through a plain callback and a user pointer.
  bool ForEach(ForEachCallback callback, void* user) const {
    return Interface_ForEach(callback, user);
  }
  // A walk that goes on after failures: when `callback` returns 0 and has
  // written a text into its buffer (1024 bytes), that text is appended to
  // `errorBuffer` as "Item '<position from 1>' has error '<text>'" (entries
  // separated by ", ", an entry that does not fit is dropped) and the walk
  // goes on, up to 20 such texts. A 0 without a text, or without an
  // `errorBuffer`, stops the walk. False when any callback returned 0.
  bool ForEach(ForEachErrorCallback callback, void* user, char* errorBuffer,
               unsigned int errorBufferSize) const {
    return Interface_ForEach(callback, user, errorBuffer, errorBufferSize);
  }
  // A walk that collects the errors that `callback` reports on `context`:
  // after each 0 it takes the context's error message, clears it, and goes
  // on (up to 20 messages, about 10 KB); at the end it reports them all
  // once more as one error, source "Zentor", code
  // "Error.Zentor.FunctionError", message "Item '<position from 1>' has
  // error '<message>', ...". The host thus sees each error twice: once as
  // the callback reports it, once in the summary. False when any callback
  // returned 0.
  bool ForEach(ForEachContextCallback callback, void* user, IContext* context) const {
    return Interface_ForEach(callback, user, context);
  }

  // The wire form ----------------------------------------------------------------
  //
  // The text length as 8 bytes little-endian, then the compact text without
  // zero byte.

  unsigned long long SerializedSize() { return Interface_SerializedSize(); }
  // Rebinds this view onto the document read from `data` (as Parse does)
  // and returns the bytes used; kInvalidSize when `data` is shorter than its
  // prefix says (no status) or the text does not parse (Parse's error).
  unsigned long long Deserialize(const char* data, unsigned long long size) {
    return Interface_Deserialize(data, size);
  }
  // Returns the bytes written, or kInvalidSize, without a status, when they
  // do not fit.
  unsigned long long Serialize(char* buffer, unsigned long long size) {
    return Interface_Serialize(buffer, size);
  }
  bool Serialize(std::string& out) {
    out.assign(static_cast<size_t>(SerializedSize()), '\0');
    const unsigned long long written = Interface_Serialize(out.data(), out.size());
    if (written == kInvalidSize) return false;
    out.resize(static_cast<size_t>(written));
    return true;
  }

  // The status ----------------------------------------------------------------------

  // The outcome of the last call made through this view (each view has its
  // own).
  Status GetErrorStatus() const { return Interface_GetErrorStatus(); }
  std::string GetErrorMessage() const {
    std::string buffer(255, '\0');
    for (;;) {
      unsigned char complete = 0;
      const unsigned long long needed =
          Interface_GetErrorMessage(buffer.data(), buffer.size() + 1, &complete);
      if (needed == 0) return std::string();
      if (complete) return std::string(buffer.data(), static_cast<size_t>(needed - 1));
      buffer.assign(static_cast<size_t>(needed - 1), '\0');
    }
  }

  // -- slots, in this order --------------------------------------------------

  virtual bool Interface_Parse(const char* text) = 0;
  virtual bool Interface_LessThan(const IJSON* other) const = 0;
  virtual bool Interface_Equals(const IJSON* other) const = 0;
  // Copies text and zero byte when length < size; returns length + 1.
  virtual unsigned long long Interface_ToString(const char* indent, char* buffer,
                                                unsigned long long size) const = 0;
  virtual unsigned long long Interface_ToCachedString(const char* indent, char* buffer,
                                                      unsigned long long size) = 0;
  virtual IJSON* Interface_FindNodePath(const char* path) const = 0;
  virtual IJSON* Interface_ElementMatchingString(const char* key, const char* value) const = 0;
  virtual IJSON* Interface_ElementMatchingDouble(const char* key, double value) const = 0;
  virtual unsigned long long Interface_Size() const = 0;
  virtual bool Interface_Empty() const = 0;
  // Returns length + 1 of the member's text (0 when there is none); copies
  // text and zero byte (at index length) when length <= size.
  virtual unsigned long long Interface_GetString(const char* key, char* buffer,
                                                 unsigned long long size,
                                                 unsigned char* complete) const = 0;
  virtual bool Interface_GetDouble(const char* key, double* out) const = 0;
  virtual bool Interface_GetInt(const char* key, int* out) const = 0;
  virtual bool Interface_GetUInt(const char* key, unsigned int* out) const = 0;
  virtual bool Interface_GetInt64(const char* key, long long* out) const = 0;
  virtual bool Interface_GetUInt64(const char* key, unsigned long long* out) const = 0;
  virtual bool Interface_GetBoolean(const char* key, unsigned char* out) const = 0;
  virtual IJSON* Interface_Get(const char* key) const = 0;
  virtual bool Interface_Has(const char* key) const = 0;
  virtual IJSON* Interface_At(unsigned long long index) const = 0;
  virtual bool Interface_PushBackBool(unsigned char value) = 0;
  virtual bool Interface_PushBackString(const char* text) = 0;
  virtual bool Interface_PushBackDouble(double value) = 0;
  virtual bool Interface_PushBackJSON(const IJSON* other) = 0;
  virtual IJSON* Interface_RemoveIndex(unsigned long long index) = 0;
  virtual IJSON* Interface_RemoveKey(const char* key) = 0;
  virtual bool Interface_AsBool(unsigned char* out) const = 0;
  virtual bool Interface_AsDouble(double* out) const = 0;
  virtual bool Interface_AsInt(int* out) const = 0;
  virtual bool Interface_AsUInt(unsigned int* out) const = 0;
  virtual bool Interface_AsInt64(long long* out) const = 0;
  virtual bool Interface_AsUInt64(unsigned long long* out) const = 0;
  // Returns length + 1 (0 on failure); copies text and zero byte and sets
  // *complete to 1 when length < size.
  virtual unsigned long long Interface_AsString(char* buffer, unsigned long long size,
                                                unsigned char* complete) const = 0;
  virtual bool Interface_IsNull() const = 0;
  virtual bool Interface_IsBool() const = 0;
  virtual bool Interface_IsNumber() const = 0;
  virtual bool Interface_IsDouble() const = 0;
  virtual bool Interface_IsInt() const = 0;
  virtual bool Interface_IsUInt() const = 0;
  virtual bool Interface_IsInt64() const = 0;
  virtual bool Interface_IsUInt64() const = 0;
  virtual bool Interface_IsString() const = 0;
  virtual bool Interface_IsArray() const = 0;
  virtual bool Interface_IsObject() const = 0;
  virtual bool Interface_SetBool(const char* key, unsigned char value) = 0;
  virtual bool Interface_SetDouble(const char* key, double value) = 0;
  virtual bool Interface_SetInt(const char* key, int value) = 0;
  virtual bool Interface_SetUInt(const char* key, unsigned int value) = 0;
  virtual bool Interface_SetInt64(const char* key, long long value) = 0;
  virtual bool Interface_SetUInt64(const char* key, unsigned long long value) = 0;
  virtual bool Interface_SetString(const char* key, const char* value) = 0;
  virtual bool Interface_SetJSON(const char* key, const IJSON* value) = 0;
  virtual bool Interface_SetNull(const char* key) = 0;
  virtual bool Interface_ReplaceIndex(unsigned long long index, const IJSON* value) = 0;
  virtual bool Interface_ForEach(ForEachCallback callback, void* user) const = 0;
  virtual bool Interface_ForEach(ForEachErrorCallback callback, void* user, char* errorBuffer,
                                 unsigned int errorBufferSize) const = 0;
  virtual bool Interface_ForEach(ForEachContextCallback callback, void* user,
                                 IContext* context) const = 0;
  virtual IJSON* Interface_Clone() const = 0;
  virtual unsigned long long Interface_SerializedSize() = 0;
  // Both return the bytes used, or kInvalidSize.
  virtual unsigned long long Interface_Deserialize(const char* data, unsigned long long size) = 0;
  virtual unsigned long long Interface_Serialize(char* buffer, unsigned long long size) = 0;
  virtual Status Interface_GetErrorStatus() const = 0;
  // Returns length + 1; copies message and zero byte and sets *complete to 1
  // when length + 1 <= size, else sets *complete to 0.
  virtual unsigned long long Interface_GetErrorMessage(char* buffer, unsigned long long size,
                                                       unsigned char* complete) const = 0;

 protected:
  virtual ~IJSON() = default;

 private:
  // `text` as a JSON string literal: quotes, backslashes and control bytes
  // escaped, every other byte as it is.
  static std::string QuotedText(const std::string& text) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out = "\"";
    for (const char c : text) {
      const auto byte = static_cast<unsigned char>(c);
      if (c == '"' || c == '\\') {
        out += '\\';
        out += c;
      } else if (byte < 0x20) {
        out += "\\u00";
        out += kHex[byte >> 4];
        out += kHex[byte & 0xF];
      } else {
        out += c;
      }
    }
    return out + '"';
  }
};

}  // namespace Zentor
