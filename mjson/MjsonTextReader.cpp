// Reading JSON text: whitespace and strings, and the strict parser, which
// walks containers with an explicit stack so that document depth is bounded
// by memory alone.
#include <string.h>

#include <algorithm>

#include "Mjson.h"
#include "MjsonInternal.h"
#include "MjsonScratch.h"

using namespace mjson::detail;

// ---------------------------------------------------------------------------
// Lexical steps

void JsonValue::SkipBOM(const std::string& text, ParserContext& ctx) {
  size_t p = ctx.fPosition;
  if (p + 3 <= text.size() && static_cast<unsigned char>(text[p]) == 0xEF &&
      static_cast<unsigned char>(text[p + 1]) == 0xBB &&
      static_cast<unsigned char>(text[p + 2]) == 0xBF)
    ctx.fPosition = p + 3;
}

void JsonValue::SkipWhitespace(const std::string& text, ParserContext& ctx) {
  const char* data = text.data();
  size_t n = text.size();
  size_t p = ctx.fPosition;
  while (p < n) {
    char c = data[p];
    if (static_cast<unsigned char>(c) > ' ') break;
    if (c == ' ' || c == '\t') {
      p = SkipBlanks(data, p + 1, n);  // indentation comes in runs of blanks
    } else if (c == '\n' || c == '\r') {
      ++p;
      // CR LF and LF CR are one break; CR CR is two.
      char other = c == '\n' ? '\r' : '\n';
      if (p < n && data[p] == other) ++p;
      ++ctx.fLine;
      ctx.fLineStart = p;
    } else {
      break;
    }
  }
  ctx.fPosition = p;
}

namespace {

// Decodes the escape whose letter `e` follows a backslash; `p` points after
// the letter and is moved past the digits of \u escapes. False, with the
// error and position set, for an escape the grammar does not allow.
bool DecodeEscape(char e, const std::string& text, const char*& p, std::string& out,
                  ParserContext& ctx) {
  switch (e) {
    case '"':
    case '\\':
    case '/':
      out.push_back(e);
      return true;
    case 'b':
      out.push_back('\b');
      return true;
    case 'f':
      out.push_back('\f');
      return true;
    case 'n':
      out.push_back('\n');
      return true;
    case 'r':
      out.push_back('\r');
      return true;
    case 't':
      out.push_back('\t');
      return true;
    case 'u':
      break;
    default:
      ctx.fPosition = static_cast<size_t>(p - 1 - text.data());
      if (ctx.fError.empty()) ctx.fError = "illegally quoted character";
      return false;
  }
  const char* data = text.data();
  const char* end = data + text.size();
  ctx.fPosition = static_cast<size_t>(p - data);
  unsigned short code = 0;
  if (end - p < 5 || !Parse4HexDigits(text, ctx, code)) {
    if (ctx.fError.empty()) ctx.fError = "incorrect utf16 char quoting";
    return false;
  }
  p = data + ctx.fPosition;
  if (code < 0xD800 || code > 0xDBFF || end - p <= 6 || p[0] != '\\' || p[1] != 'u') {
    AppendUnicodeAsUTF8(out, code);  // also a lone low or unpaired high surrogate
    return true;
  }
  ctx.fPosition += 2;
  unsigned short low = 0;
  if (!Parse4HexDigits(text, ctx, low)) {
    if (ctx.fError.empty()) ctx.fError = "incorrect utf32 char quoting";
    return false;
  }
  p = data + ctx.fPosition;
  if (low >= 0xDC00 && low <= 0xDFFF) {
    // Joined with OR, not addition: for high surrogates from D840 up, bit
    // 16 merges instead of carrying. Kept on purpose.
    unsigned cp = ((static_cast<unsigned>(code) - 0xD800) << 10) |
                  (static_cast<unsigned>(low) - 0xDC00) | 0x10000;
    AppendUnicodeAsUTF8(out, cp);
  } else {
    AppendUnicodeAsUTF8(out, code);
    AppendUnicodeAsUTF8(out, low);
  }
  return true;
}

// The rest of a string from `p`, the first byte that needs attention, to
// its closing quote. On success the position is after the quote; on failure
// `out` is cleared and the error and position say what went wrong.
bool DecodeStringTail(const std::string& text, const char* p, std::string& out,
                      ParserContext& ctx) {
  const char* data = text.data();
  const char* end = data + text.size();
  for (;;) {
    if (p >= end) break;
    unsigned char c = static_cast<unsigned char>(*p);
    if (c == '"') {
      ctx.fPosition = static_cast<size_t>(p + 1 - data);
      return true;
    }
    if (c < 0x20) {
      ctx.fPosition = static_cast<size_t>(p - data);
      if (ctx.fError.empty()) ctx.fError = "control character must be quoted";
      break;
    }
    if (c != '\\') {
      const char* run = FindSpecial(p, end);
      out.append(p, run);
      p = run;
      continue;
    }
    // A backslash that ends the text is an ordinary byte.
    if (p + 1 >= end) {
      out.push_back('\\');
      ++p;
      continue;
    }
    char e = p[1];
    p += 2;
    if (!DecodeEscape(e, text, p, out, ctx)) break;
  }
  out.clear();
  if (ctx.fError.empty()) ctx.fError = "string quote sign expected";
  if (p >= end) ctx.fPosition = text.size();
  return false;
}

// A decoded string that is not UTF-8: the message names the offset and, when
// there is one, the start of the string before it.
void ReportBadUtf8(std::string& out, size_t badPos, ParserContext& ctx) {
  out.resize(std::min<size_t>(badPos, 20));
  ctx.fPosition += badPos;
  ctx.fError = "illegal UTF8 character found at position " + std::to_string(badPos);
  if (!out.empty()) {
    ctx.fError += " in string which starts with \"";
    ctx.fError += out;
    ctx.fError += '"';
  }
  out.clear();
}

}  // namespace

// Strings without escapes, the most common, are found by one scan and
// copied in one piece; the rest are decoded escape by escape.
bool JsonValue::ParseString(const std::string& text, std::string& out, ParserContext& ctx) {
  const char* data = text.data();
  const char* end = data + text.size();
  size_t pos = ctx.fPosition;
  if (pos >= text.size() || data[pos] != '"') {
    out.clear();
    return false;
  }
  const char* start = data + pos + 1;
  const char* p = FindSpecial(start, end);
  out.assign(start, p);
  if (p < end && *p == '"')
    ctx.fPosition = static_cast<size_t>(p + 1 - data);
  else if (!DecodeStringTail(text, p, out, ctx))
    return false;
  if (ctx.fNoUTF8Check || ctx.fInputIsUTF8) return true;
  size_t badPos = 0;
  if (IsUTF8(out, &badPos)) return true;
  ReportBadUtf8(out, badPos, ctx);
  return false;
}

// ---------------------------------------------------------------------------
// The parser

namespace {

// How the next value must look.
enum class ValueMode : uint8_t {
  kAny,           // any value; objects become compiled objects when a table is given
  kCompiledOnly,  // an object, parsed against the table
  kObjectOnly,    // a plain object
  kArrayOnly,     // an array whose elements are compiled objects when a table is given
};

class TextParser {
 public:
  TextParser(const std::string& text, ParserContext& ctx) : fText(text), fCtx(ctx) {}

  ~TextParser() {
    for (JsonObject::Member& m : fPairs)
      if (m.value) m.value->Release();
    for (JsonValue* v : fValues) v->Release();
    for (Frame& f : fFrames)
      if (f.compiled) f.compiled->Release();
    if (fArena) fArena->Discard();  // a parse cut short by an exception
  }

  // Parses one value, in an arena of its own unless the input is short.
  JsonValue* Run(ValueMode mode, const JsonCompiledObjectContext* table);

 private:
  JsonValue* Build(ValueMode mode, const JsonCompiledObjectContext* table);
  enum class Kind : uint8_t { kObject, kArray, kCompiled };
  struct Frame {
    Kind kind;
    char previous;       // the byte examined on the previous pass
    bool droppingValue;  // compiled: the pending value belongs to an unknown key
    size_t base;         // first scratch entry of this frame
    size_t count;        // pairs or elements parsed so far
    size_t slot;         // compiled: slot of the pending value
    const JsonCompiledObjectContext* table;  // compiled: its table; array: element table
    JsonCompiledObject* compiled;
  };

  bool AtEnd() const { return fCtx.fPosition >= fText.size(); }
  char Peek() const { return fText[fCtx.fPosition]; }
  void Fail(const char* message) {
    if (fCtx.fError.empty()) fCtx.fError = message;
  }
  // Most tokens are followed by nothing or by one blank; only longer runs
  // and line breaks take the full scan.
  void SkipWs() {
    const size_t p = fCtx.fPosition;
    const size_t n = fText.size();
    const unsigned char* data = reinterpret_cast<const unsigned char*>(fText.data());
    if (p < n && data[p] > ' ') return;
    if (n - p >= 2 && data[p] == ' ' && data[p + 1] > ' ') {
      fCtx.fPosition = p + 1;
      return;
    }
    JsonValue::SkipWhitespace(fText, fCtx);
  }

  // The string at the cursor. One without escapes, in input already known
  // to be UTF-8, is a span of the input itself; any other is decoded and
  // checked into fKey by the full routine. Either way `out` is valid until
  // the next string is scanned.
  bool ScanString(std::string_view& out) {
    const char* data = fText.data();
    const char* end = data + fText.size();
    const size_t pos = fCtx.fPosition;
    if (pos < fText.size() && data[pos] == '"' && (fCtx.fNoUTF8Check || fCtx.fInputIsUTF8)) {
      const char* start = data + pos + 1;
      const char* p = FindSpecial(start, end);
      if (p < end && *p == '"') {
        out = std::string_view(start, static_cast<size_t>(p - start));
        fCtx.fPosition = static_cast<size_t>(p + 1 - data);
        return true;
      }
    }
    if (!JsonValue::ParseString(fText, fKey, fCtx)) return false;
    out = fKey;
    return true;
  }

  // How the next value must look, as a frame's step asks for it.
  struct NextValue {
    ValueMode mode;
    const JsonCompiledObjectContext* table;
  };

  // Starts a value: returns a finished scalar, or pushes a container frame
  // and returns null with `*opened` set; null without `*opened` is a
  // failure, with the error set. Out-parameters rather than a returned
  // pair keep the hot loop's state in registers.
  JsonValue* BeginValue(ValueMode mode, const JsonCompiledObjectContext* table, bool* opened);
  void Open(Kind kind, const JsonCompiledObjectContext* table);
  JsonValue* ParseScalar();
  // One step of the top frame, past separators: returns the finished
  // container (the frame popped), or null with `*wantValue` set and `*next`
  // saying how the next value must look; null without `*wantValue` is a
  // failure, with the error set.
  JsonValue* StepFrame(bool* wantValue, NextValue* next);
  // The top frame's container, built from its children; the frame is popped.
  JsonValue* CloseFrame();
  // A member's key and colon, and how its value must look; false on failure.
  bool ReadMemberKey(Frame& f, NextValue* next);
  bool Attach(JsonValue* value);
  void Unwind(bool failedInValue);

  const std::string& fText;
  ParserContext& fCtx;
  mjson::detail::Scratch<Frame, mjson::detail::ScratchUse::kTextFrames> fFramesScratch;
  std::vector<Frame>& fFrames = fFramesScratch.Get();
  mjson::detail::Scratch<JsonObject::Member, mjson::detail::ScratchUse::kTextPairs> fPairsScratch;
  std::vector<JsonObject::Member>& fPairs = fPairsScratch.Get();
  mjson::detail::Scratch<JsonValue*, mjson::detail::ScratchUse::kTextValues> fValuesScratch;
  std::vector<JsonValue*>& fValues = fValuesScratch.Get();
  std::string fKey;
  // Where the document is built; null for the pool.
  mjson::detail::Arena* fArena = nullptr;
};

JsonValue* TextParser::ParseScalar() {
  const std::string& t = fText;
  size_t p = fCtx.fPosition;
  char c = t[p];
  switch (c) {
    case '"': {
      std::string_view s;
      if (!ScanString(s)) return nullptr;
      return mjson::detail::MakeNode<JsonString>(fArena, s.data(), s.size(), fArena,
                                                 JsonString::Trusted{});
    }
    case 't':
      if (t.size() - p >= 4 && memcmp(t.data() + p, "true", 4) == 0) {
        fCtx.fPosition = p + 4;
        return mjson::detail::MakeNode<JsonTrue>(fArena);
      }
      break;
    case 'f':
      if (t.size() - p >= 5 && memcmp(t.data() + p, "false", 5) == 0) {
        fCtx.fPosition = p + 5;
        return mjson::detail::MakeNode<JsonFalse>(fArena);
      }
      break;
    case 'n':
      if (t.size() - p >= 4 && memcmp(t.data() + p, "null", 4) == 0) {
        fCtx.fPosition = p + 4;
        return mjson::detail::MakeNode<JsonNull>(fArena);
      }
      break;
    default:
      if (c == '-' || IsDigit(c)) return mjson::detail::ParseNumber(t, fCtx, fArena);
      break;
  }
  Fail("not a JSON value");
  return nullptr;
}

void TextParser::Open(Kind kind, const JsonCompiledObjectContext* table) {
  Frame f{};
  f.kind = kind;
  f.previous = fText[fCtx.fPosition];
  f.table = table;
  if (kind == Kind::kCompiled) {
    f.compiled = mjson::detail::MakeNode<JsonCompiledObject>(fArena, table, fArena);
  } else {
    f.base = kind == Kind::kObject ? fPairs.size() : fValues.size();
  }
  fFrames.push_back(f);
  ++fCtx.fPosition;  // the opening bracket
  SkipWs();
}

JsonValue* TextParser::BeginValue(ValueMode mode, const JsonCompiledObjectContext* table,
                                  bool* opened) {
  *opened = false;
  switch (mode) {
    case ValueMode::kCompiledOnly:
      if (!table || AtEnd() || Peek() != '{') break;
      Open(Kind::kCompiled, table);
      *opened = true;
      return nullptr;
    case ValueMode::kObjectOnly:
      if (AtEnd() || Peek() != '{') break;
      Open(Kind::kObject, nullptr);
      *opened = true;
      return nullptr;
    case ValueMode::kArrayOnly:
      if (AtEnd() || Peek() != '[') break;
      Open(Kind::kArray, table);
      *opened = true;
      return nullptr;
    case ValueMode::kAny:
      if (AtEnd()) {
        Fail("unexpected end of input");
        return nullptr;
      }
      if (Peek() == '{') {
        Open(table ? Kind::kCompiled : Kind::kObject, table);
        *opened = true;
        return nullptr;
      }
      if (Peek() == '[') {
        Open(Kind::kArray, table);
        *opened = true;
        return nullptr;
      }
      return ParseScalar();
  }
  Fail(mode == ValueMode::kCompiledOnly ? "illegal compiled object"
       : mode == ValueMode::kObjectOnly ? "illegal object"
                                        : "illegal array");
  return nullptr;
}

JsonValue* TextParser::StepFrame(bool* wantValue, NextValue* next) {
  *wantValue = false;
  Frame& f = fFrames.back();
  const bool isArray = f.kind == Kind::kArray;
  const bool isCompiled = f.kind == Kind::kCompiled;
  for (;;) {
    if (AtEnd()) {
      Fail(isArray ? "illegal array" : isCompiled ? "illegal compiled object" : "illegal object");
      return nullptr;
    }
    const char c = Peek();
    const bool empty = isCompiled ? f.compiled->Empty() : f.count == 0;
    if (c == (isArray ? ']' : '}')) {
      if (f.previous == ',') {
        Fail(isArray      ? "array must not end with comma"
             : isCompiled ? "object list must not end with comma"
                          : "object list must not end with a comma");
        return nullptr;
      }
      ++fCtx.fPosition;
      SkipWs();
      return CloseFrame();
    }
    if (c == ',') {
      if (f.previous == ',' || empty) {
        Fail(isArray ? "expected value in front before comma"
                     : "expected key value pair in front before comma");
        return nullptr;
      }
      f.previous = ',';
      ++fCtx.fPosition;
      SkipWs();
      continue;
    }
    if (f.previous != ',' && !empty) {
      Fail(isArray ? "comma separator expected between values"
                   : "comma separator expected between key value pairs");
      return nullptr;
    }
    f.previous = c;
    if (isArray) {
      *next = {f.table ? ValueMode::kCompiledOnly : ValueMode::kAny, f.table};
    } else if (!ReadMemberKey(f, next)) {
      return nullptr;
    }
    *wantValue = true;
    return nullptr;
  }
}

JsonValue* TextParser::CloseFrame() {
  Frame& f = fFrames.back();
  JsonValue* done;
  switch (f.kind) {
    case Kind::kArray: {
      auto* array = mjson::detail::MakeNode<JsonArray>(fArena);
      array->AdoptValues(fValues.data() + f.base, fValues.size() - f.base, fArena);
      fValues.resize(f.base);
      done = array;
      break;
    }
    case Kind::kCompiled:
      done = f.compiled;
      f.compiled = nullptr;
      break;
    default: {
      auto* object = mjson::detail::MakeNode<JsonObject>(fArena, fCtx.fKeepObjectOrder);
      object->AdoptMembers(fPairs.data() + f.base, fPairs.size() - f.base, fArena);
      fPairs.resize(f.base);
      done = object;
      break;
    }
  }
  fFrames.pop_back();
  return done;
}

bool TextParser::ReadMemberKey(Frame& f, NextValue* next) {
  std::string_view key;
  if (!ScanString(key)) {
    if (fCtx.fError.empty())
      fCtx.fError = "key (string) expected";
    else
      fCtx.fError += " while parsing a key";
    return false;
  }
  SkipWs();
  if (AtEnd() || Peek() != ':') {
    Fail("colon expected");
    return false;
  }
  ++fCtx.fPosition;
  SkipWs();
  *next = {ValueMode::kAny, nullptr};
  if (f.kind != Kind::kCompiled) {
    fPairs.emplace_back(key.data(), key.size(), fArena);
    return true;
  }
  // A compiled object's key table says how the value must look; a key it
  // does not know has its value parsed and dropped.
  if (key.data() != fKey.data()) fKey.assign(key);
  const size_t slot = f.table->GetIndexForKey(fKey);
  f.slot = slot;
  f.droppingValue = slot >= f.compiled->SlotCount();
  if (f.droppingValue) return true;
  const unsigned short flags = f.table->KeyFlags(slot);
  const JsonCompiledObjectContext* sub = f.table->SubContext(slot);
  if ((flags & JsonCompiledObjectContext::kCompiledObject) && sub)
    *next = {ValueMode::kCompiledOnly, sub};
  else if (flags & JsonCompiledObjectContext::kPlainObject)
    *next = {ValueMode::kObjectOnly, nullptr};
  else if (flags & JsonCompiledObjectContext::kArrayMask)
    *next = {ValueMode::kArrayOnly, sub};
  return true;
}

bool TextParser::Attach(JsonValue* value) {
  Frame& f = fFrames.back();
  ++f.count;
  switch (f.kind) {
    case Kind::kArray:
      fValues.push_back(value);
      break;
    case Kind::kObject:
      fPairs.back().value = value;
      break;
    case Kind::kCompiled:
      if (f.droppingValue) {
        value->Release();
        // For compiled objects this option rejects keys the table lacks.
        if (fCtx.fFailOnDuplicateKey) {
          Fail("duplicate key");
          return false;
        }
      } else {
        f.compiled->InsertValueInternal(f.slot, value);
      }
      break;
  }
  SkipWs();
  return true;
}

void TextParser::Unwind(bool failedInValue) {
  // Every enclosing level adds its phrase, so the message tells how deep
  // the failure lay.
  while (!fFrames.empty()) {
    Frame& f = fFrames.back();
    if (failedInValue) {
      if (f.kind == Kind::kObject) {
        if (!fCtx.fError.empty()) fCtx.fError += " while parsing a value";
      } else if (f.kind == Kind::kCompiled) {
        if (fCtx.fError.empty())
          fCtx.fError = "value is not of expected type";
        else
          fCtx.fError += " while parsing value";
      }
    }
    if (f.kind == Kind::kObject) {
      for (size_t i = f.base; i < fPairs.size(); ++i)
        if (fPairs[i].value) fPairs[i].value->Release();
      fPairs.resize(f.base);
    } else if (f.kind == Kind::kArray) {
      for (size_t i = f.base; i < fValues.size(); ++i) fValues[i]->Release();
      fValues.resize(f.base);
    } else if (f.compiled) {
      f.compiled->Release();
    }
    fFrames.pop_back();
    failedInValue = true;
  }
}

JsonValue* TextParser::Run(ValueMode mode, const JsonCompiledObjectContext* table) {
  const size_t left = fCtx.fPosition < fText.size() ? fText.size() - fCtx.fPosition : 0;
  fArena = mjson::detail::Arena::ForInput(left);
  JsonValue* value = Build(mode, table);
  if (fArena) fArena->Finish(value);
  fArena = nullptr;
  return value;
}

JsonValue* TextParser::Build(ValueMode mode, const JsonCompiledObjectContext* table) {
  bool opened;
  JsonValue* value = BeginValue(mode, table, &opened);
  for (;;) {
    if (value) {
      if (fFrames.empty()) return value;
      if (!Attach(value)) {
        Unwind(false);
        return nullptr;
      }
    } else if (!opened) {
      Unwind(true);
      return nullptr;
    }
    bool wantValue;
    NextValue next;
    value = StepFrame(&wantValue, &next);
    if (wantValue) {
      value = BeginValue(next.mode, next.table, &opened);
    } else if (!value) {
      Unwind(false);
      return nullptr;
    } else {
      opened = false;
    }
  }
}

}  // namespace

JsonValue* JsonValue::Parse(const std::string& text, ParserContext& ctx,
                            const JsonCompiledObjectContext* compiled) {
  return TextParser(text, ctx).Run(ValueMode::kAny, compiled);
}

JsonValue* JsonObject::Parse(const std::string& text, ParserContext& ctx) {
  return TextParser(text, ctx).Run(ValueMode::kObjectOnly, nullptr);
}

JsonValue* JsonArray::Parse(const std::string& text, ParserContext& ctx,
                            const JsonCompiledObjectContext* compiled) {
  return TextParser(text, ctx).Run(ValueMode::kArrayOnly, compiled);
}

JsonValue* JsonCompiledObject::Parse(const std::string& text, ParserContext& ctx,
                                     const JsonCompiledObjectContext* compiled) {
  return TextParser(text, ctx).Run(ValueMode::kCompiledOnly, compiled);
}

JsonAutoRefPtr<JsonValue> JsonValue::ReadFromString(const std::string& text, ParserContext* ctx,
                                                    const JsonCompiledObjectContext* compiled) {
  ParserContext local;
  if (ctx) {
    // MessagePack documents are arrays or maps; no JSON text starts with
    // one of their type bytes.
    if (ctx->fDetectMsgPack && !text.empty() &&
        mjson::detail::msgpack::IsContainerCode(static_cast<unsigned char>(text[0])))
      return ReadFromMsgPack(text, ctx, compiled);
    ctx->Reset();
  } else {
    ctx = &local;
  }
  if (!ctx->fNoUTF8Check && ctx->fCheckInputUTF8) ctx->fInputIsUTF8 = IsUTF8(text);
  SkipBOM(text, *ctx);
  SkipWhitespace(text, *ctx);
  return mjson::detail::FinishRead(text, *ctx,
                                   JsonAutoRefPtr<JsonValue>(Parse(text, *ctx, compiled)));
}

JsonAutoRefPtr<JsonValue> mjson::detail::FinishRead(const std::string& input, ParserContext& ctx,
                                                    JsonAutoRefPtr<JsonValue> value) {
  if (!value) return value;
  JsonValue::SkipWhitespace(input, ctx);
  if (ctx.fPosition < input.size()) {
    ctx.fError = "illegal trailing characters after value";
    return {};
  }
  ctx.fCompleted = true;
  return value;
}

JsonAutoRefPtr<JsonObject> JsonObject::ReadFromString(const std::string& text, ParserContext* ctx) {
  return ConvertToObject(JsonValue::ReadFromString(text, ctx, nullptr));
}

JsonAutoRefPtr<JsonArray> JsonArray::ReadFromString(const std::string& text, ParserContext* ctx,
                                                    const JsonCompiledObjectContext* compiled) {
  return ConvertToArray(JsonValue::ReadFromString(text, ctx, compiled));
}

JsonAutoRefPtr<JsonCompiledObject> JsonCompiledObject::ReadFromString(
    const std::string& text, const JsonCompiledObjectContext* compiled, ParserContext* ctx) {
  return ConvertToCompiledObject(JsonValue::ReadFromString(text, ctx, compiled));
}
