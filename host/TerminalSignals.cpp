#include "TerminalSignals.h"

namespace zhost {
namespace {

volatile sig_atomic_t gInterrupted = 0;
volatile sig_atomic_t gResized = 0;

void Note(int signal) {
  if (signal == SIGINT) gInterrupted = 1;
  if (signal == SIGWINCH) gResized = 1;
}

void Catch(int signal, struct sigaction& old) {
  struct sigaction action {};
  action.sa_handler = Note;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;  // no SA_RESTART: the read in progress must return
  sigaction(signal, &action, &old);
}

bool Take(volatile sig_atomic_t& flag) {
  const bool set = flag != 0;
  flag = 0;
  return set;
}

}  // namespace

TerminalSignals::TerminalSignals(bool resize) : fResize(resize) {
  gInterrupted = 0;
  gResized = 0;
  Catch(SIGINT, fOldInterrupt);
  if (fResize) Catch(SIGWINCH, fOldResize);
}

TerminalSignals::~TerminalSignals() {
  sigaction(SIGINT, &fOldInterrupt, nullptr);
  if (fResize) sigaction(SIGWINCH, &fOldResize, nullptr);
}

bool TerminalSignals::TakeInterrupt() {
  return Take(gInterrupted);
}

bool TerminalSignals::TakeResize() {
  return Take(gResized);
}

}  // namespace zhost
