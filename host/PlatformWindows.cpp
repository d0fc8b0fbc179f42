// The host's system interface on Windows.
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Platform.h"

namespace zhost {

LibraryHandle OpenLibrary(const std::string& path, std::string& error) {
  HMODULE module = LoadLibraryA(path.c_str());
  if (!module)
    error = "cannot load " + path + " (Windows error " + std::to_string(GetLastError()) + ")";
  return reinterpret_cast<LibraryHandle>(module);
}

void* LibrarySymbol(LibraryHandle library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

void CloseLibrary(LibraryHandle library) {
  FreeLibrary(static_cast<HMODULE>(library));
}

std::string ExecutablePath() {
  char path[MAX_PATH];
  const DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return "";
  std::string text(path, length);
  for (char& c : text)
    if (c == '\\') c = '/';
  return text;
}

bool FileExists(const std::string& path) {
  return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::FILE* OpenFile(const std::string& path, const char* mode) {
  auto wide = [](const std::string& text) {
    const int size = static_cast<int>(text.size());
    const int length =
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
    std::wstring out(static_cast<size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, out.data(), length);
    return out;
  };
  const std::wstring widePath = wide(path);
  if (widePath.empty() && !path.empty()) {
    errno = EINVAL;  // not UTF-8
    return nullptr;
  }
  return _wfopen(widePath.c_str(), wide(mode).c_str());
}

bool IsTerminal(int stream) {
  return _isatty(stream) != 0;
}

std::string HomeDirectory() {
  const char* home = std::getenv("USERPROFILE");
  if (!home || !*home) home = std::getenv("HOME");
  return home ? home : "";
}

void UseBinaryOutput() {
  _setmode(_fileno(stdout), _O_BINARY);
  _setmode(_fileno(stderr), _O_BINARY);
}

}  // namespace zhost
