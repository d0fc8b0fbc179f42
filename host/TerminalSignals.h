// The signals an interactive session catches instead of dying of them:
// Ctrl-C (SIGINT) abandons the line being typed and keeps the session
// with its variables; a resized window (SIGWINCH, where the system has it)
// makes the line editor draw the line anew. On POSIX systems they are
// caught without SA_RESTART, so that a read waiting for a key returns early
// and the reader can act on them.
#pragma once

#include <signal.h>

namespace zhost {

class TerminalSignals {
 public:
  // Catches SIGINT, and SIGWINCH when `resize`, until destroyed; then the
  // handlers that were there before come back.
  explicit TerminalSignals(bool resize);
  ~TerminalSignals();
  TerminalSignals(const TerminalSignals&) = delete;
  TerminalSignals& operator=(const TerminalSignals&) = delete;

  // Whether the signal came since the last call; each call clears it.
  static bool TakeInterrupt();
  static bool TakeResize();

 private:
  bool fResize;
#if defined(_WIN32)
  void (*fOldInterrupt)(int) = nullptr;
#else
  struct sigaction fOldInterrupt {};
  struct sigaction fOldResize {};
#endif
};

}  // namespace zhost
