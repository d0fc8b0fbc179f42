// The status code that an entry point returns, and that a caller of one
// reads: 0 for success, else the one-based position of the argument at
// fault in the high 16 bits and what was wrong with it in the low 16.
#pragma once

namespace Zentor {

enum StatusKind : unsigned int {
  kStatusArgumentMissing = 1,  // fewer arguments than parameters
  kStatusWrongKind = 2,        // wrong kind, or not convertible
  kStatusEmptyObject = 4,      // a user-defined value that holds no object
};

// The status for the argument at one-based `position` (cut to 16 bits).
constexpr unsigned int MakeStatus(unsigned int position, StatusKind kind) {
  return ((position & 0xFFFFu) << 16) | kind;
}

constexpr unsigned int StatusPosition(unsigned int status) {
  return status >> 16;
}
constexpr unsigned int StatusKindOf(unsigned int status) {
  return status & 0xFFFFu;
}

}  // namespace Zentor
