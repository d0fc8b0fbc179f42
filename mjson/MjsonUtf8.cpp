// UTF-8: checking bytes, sixteen at a time (MjsonScan.h), and encoding code
// points; the hexadecimal digits of \u escapes.
#include <string.h>

#include "Mjson.h"
#include "MjsonInternal.h"

using namespace mjson::detail;

// ---------------------------------------------------------------------------
// UTF-8

bool JsonValue::IsUTF8(std::string_view s, size_t* badPos) {
  // Short ASCII strings, most keys and many values, in a few loads of
  // whole registers (overlapping where the length is not a power of two).
  if ((s.size() <= 16 && ShortIsAscii(s.data(), s.size())) || Utf8BlocksOk(s.data(), s.size())) {
    if (badPos) *badPos = s.size();
    return true;
  }
  const unsigned char* data = reinterpret_cast<const unsigned char*>(s.data());
  const char* const end = s.data() + s.size();
  size_t n = s.size();
  size_t i = 0;
  while (i < n) {
    // Skip runs of ASCII a block at a time; most text is mostly ASCII.
    i = static_cast<size_t>(SkipAscii(s.data() + i, end) - s.data());
    if (i >= n) break;
    unsigned char c = data[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    size_t extra;
    if ((c & 0xE0) == 0xC0)
      extra = 1;
    else if ((c & 0xF0) == 0xE0)
      extra = 2;
    else if ((c & 0xF8) == 0xF0)
      extra = 3;
    else
      extra = 0;
    bool ok = extra != 0 && n - i > extra;
    for (size_t k = 1; ok && k <= extra; ++k) ok = (data[i + k] & 0xC0) == 0x80;
    if (!ok) {
      if (badPos) *badPos = i;
      return false;
    }
    i += extra + 1;
  }
  if (badPos) *badPos = n;
  return true;
}

void AppendUnicodeAsUTF8(std::string& out, unsigned int cp) {
  char buf[4];
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    buf[0] = static_cast<char>(0xC0 | (cp >> 6));
    buf[1] = static_cast<char>(0x80 | (cp & 0x3F));
    out.append(buf, 2);
  } else if (cp < 0x10000) {
    buf[0] = static_cast<char>(0xE0 | (cp >> 12));
    buf[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    buf[2] = static_cast<char>(0x80 | (cp & 0x3F));
    out.append(buf, 3);
  } else if (cp < 0x110000) {
    buf[0] = static_cast<char>(0xF0 | (cp >> 18));
    buf[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    buf[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    buf[3] = static_cast<char>(0x80 | (cp & 0x3F));
    out.append(buf, 4);
  }
}

bool IsHexDigit(char c, unsigned char& value) {
  if (c >= '0' && c <= '9') {
    value = static_cast<unsigned char>(c - '0');
  } else if (c >= 'A' && c <= 'F') {
    value = static_cast<unsigned char>(c - 'A' + 10);
  } else if (c >= 'a' && c <= 'f') {
    value = static_cast<unsigned char>(c - 'a' + 10);
  } else {
    return false;
  }
  return true;
}

bool Parse4HexDigits(const std::string& text, ParserContext& ctx, unsigned short& code) {
  // Always consumes four bytes; callers have checked that they exist.
  bool ok = true;
  unsigned value = 0;
  for (int k = 0; k < 4; ++k) {
    unsigned char digit = 0;
    if (!IsHexDigit(text[ctx.fPosition + k], digit)) ok = false;
    value = (value << 4) | digit;
  }
  ctx.fPosition += 4;
  code = static_cast<unsigned short>(value);
  return ok;
}
