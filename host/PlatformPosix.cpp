// The host's system interface on POSIX systems (Linux, macOS).
#include <dlfcn.h>
#include <pwd.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <vector>

#if defined(__APPLE__)
#include <mach-o/dyld.h>
#endif

#include "Platform.h"

namespace zhost {

LibraryHandle OpenLibrary(const std::string& path, std::string& error) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    const char* reason = dlerror();
    error = reason ? reason : ("cannot open " + path);
  }
  return handle;
}

void* LibrarySymbol(LibraryHandle library, const char* name) {
  return dlsym(library, name);
}

void CloseLibrary(LibraryHandle library) {
  dlclose(library);
}

std::string ExecutablePath() {
#if defined(__APPLE__)
  uint32_t size = 0;
  _NSGetExecutablePath(nullptr, &size);
  std::vector<char> path(size + 1);
  if (_NSGetExecutablePath(path.data(), &size) != 0) return "";
  return path.data();
#else
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
  return length > 0 ? std::string(path, static_cast<size_t>(length)) : std::string();
#endif
}

bool FileExists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

std::FILE* OpenFile(const std::string& path, const char* mode) {
  return std::fopen(path.c_str(), mode);
}

bool IsTerminal(int stream) {
  return isatty(stream) != 0;
}

std::string HomeDirectory() {
  const char* home = std::getenv("HOME");
  if (!home || !*home) {
    const passwd* user = getpwuid(getuid());
    home = user ? user->pw_dir : nullptr;
  }
  return home ? home : "";
}

void UseBinaryOutput() {}

}  // namespace zhost
