#include "ZentorData.h"

#include <algorithm>
#include <cstring>

namespace Zentor {

void Data::Interface_Assign(const char* data, unsigned long long size) {
  if (data)
    fBytes.assign(data, static_cast<size_t>(size));
  else
    fBytes.clear();
}

unsigned long long Data::Interface_Read(char* out, unsigned long long size,
                                        unsigned long long offset) const {
  if (offset >= fBytes.size()) return 0;
  const unsigned long long count = std::min<unsigned long long>(size, fBytes.size() - offset);
  std::memcpy(out, fBytes.data() + offset, static_cast<size_t>(count));
  return count;
}

// Data that cannot show its bytes in one piece is compared chunk by chunk,
// so that no copy of the whole of it is needed.
bool Data::Interface_IsEqual(IDataRef* other) const {
  if (!other || other->GetSize() != fBytes.size()) return false;
  if (fBytes.empty()) return true;
  if (const void* direct = other->GetData())
    return std::memcmp(direct, fBytes.data(), fBytes.size()) == 0;
  constexpr unsigned long long kChunk = 8192;
  char buffer[kChunk];
  for (unsigned long long offset = 0; offset < fBytes.size(); offset += kChunk) {
    const unsigned long long wanted = std::min<unsigned long long>(kChunk, fBytes.size() - offset);
    if (other->Read(buffer, wanted, offset) != wanted) return false;
    if (std::memcmp(buffer, fBytes.data() + offset, static_cast<size_t>(wanted)) != 0) return false;
  }
  return true;
}

}  // namespace Zentor
