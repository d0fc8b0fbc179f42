// Exception guard shared by everything that calls into module code.
#pragma once

#include <cxxabi.h>

#include <exception>
#include <string>
#include <typeinfo>

#include "Text.h"

namespace zhost {

template <class Body>
bool Guarded(Body&& body, std::string& exception) {
  try {
    body();
    return true;
  } catch (const std::exception& e) {
    exception = Demangle(typeid(e).name()) + ": " + e.what();
  } catch (...) {
    const std::type_info* type = abi::__cxa_current_exception_type();
    exception =
        (type ? Demangle(type->name()) : std::string("unknown type")) + ": (not a std::exception)";
  }
  return false;
}

}  // namespace zhost
