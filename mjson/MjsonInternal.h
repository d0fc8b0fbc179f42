// Internals of the value library that its sources share and its tests may
// look at; not part of the library's interface.
#pragma once

#include <cstddef>
#include <cstdint>

// The hash that objects index their members with first. It has no secret:
// keys can be chosen to collide under it, and an object whose probe runs
// grow long moves to a hash keyed per process instead.
uint64_t MjsonFastKeyHash(const char* p, size_t n);
