#include "TerminalSignals.h"

namespace zhost {
namespace {

volatile sig_atomic_t gInterrupted = 0;
volatile sig_atomic_t gResized = 0;

void Note(int signal) {
  if (signal == SIGINT) gInterrupted = 1;
#if defined(_WIN32)
  ::signal(SIGINT, Note);  // the handler does not stay installed there
#else
  if (signal == SIGWINCH) gResized = 1;
#endif
}

#if !defined(_WIN32)
void Catch(int signal, struct sigaction& old) {
  struct sigaction action {};
  action.sa_handler = Note;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;  // no SA_RESTART: the read in progress must return
  sigaction(signal, &action, &old);
}
#endif

bool Take(volatile sig_atomic_t& flag) {
  const bool set = flag != 0;
  flag = 0;
  return set;
}

}  // namespace

TerminalSignals::TerminalSignals(bool resize) : fResize(resize) {
  gInterrupted = 0;
  gResized = 0;
#if defined(_WIN32)
  fOldInterrupt = ::signal(SIGINT, Note);
#else
  Catch(SIGINT, fOldInterrupt);
  if (fResize) Catch(SIGWINCH, fOldResize);
#endif
}

TerminalSignals::~TerminalSignals() {
#if defined(_WIN32)
  ::signal(SIGINT, fOldInterrupt);
#else
  sigaction(SIGINT, &fOldInterrupt, nullptr);
  if (fResize) sigaction(SIGWINCH, &fOldResize, nullptr);
#endif
}

bool TerminalSignals::TakeInterrupt() {
  return Take(gInterrupted);
}

bool TerminalSignals::TakeResize() {
  return Take(gResized);
}

}  // namespace zhost
