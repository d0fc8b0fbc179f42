// What the host needs from the operating system, behind one small
// interface: loading modules and finding their exports, where the host's
// own program file is, whether a stream is a terminal, the user's home.
// PlatformPosix.cpp implements it with dlopen and friends, PlatformWindows.cpp
// with LoadLibrary and GetProcAddress.
#pragma once

#include <cstdio>
#include <string>

namespace zhost {

// A loaded module; null when loading failed.
using LibraryHandle = void*;

// Loads the library at `path`; on failure null, with the system's reason.
LibraryHandle OpenLibrary(const std::string& path, std::string& error);
// The address of the export `name`, or null.
void* LibrarySymbol(LibraryHandle library, const char* name);
// Drops one reference that OpenLibrary took.
void CloseLibrary(LibraryHandle library);

// The host's own program file, or "" when the system does not tell.
std::string ExecutablePath();
// Whether a file exists at `path`.
bool FileExists(const std::string& path);
// std::fopen of a path in UTF-8 (Windows takes it as UTF-8 too, not in the
// system's code page); null with errno set when it fails.
std::FILE* OpenFile(const std::string& path, const char* mode);
// Whether standard input (0) or output (1) is a terminal.
bool IsTerminal(int stream);
// The user's home folder, or "" when there is none.
std::string HomeDirectory();
// Output is written as bytes, with "\n" line ends on every system, so that
// transcripts compare equal everywhere.
void UseBinaryOutput();

// How the system names a module file: ".so", ".dylib" or ".dll".
inline constexpr const char* kModuleSuffix = ZENTOR_MODULE_SUFFIX;

}  // namespace zhost
