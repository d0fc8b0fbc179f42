#include "EditLineReader.h"

#include <histedit.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <utility>

#include "Hints.h"

namespace zhost {
namespace {

// Enough to find last week's lines again, small enough to load at once.
constexpr int kHistoryLines = 1000;

// The key that Ctrl-C is, whether it comes as a signal or, on a terminal
// that does not make signals of keys, as the byte itself.
constexpr wchar_t kInterruptKey = L'\x03';

class EditLineReader final : public LineReader {
 public:
  EditLineReader(std::string prompt, std::string historyFile, CompletionWords words);
  ~EditLineReader() override;
  EditLineReader(const EditLineReader&) = delete;
  EditLineReader& operator=(const EditLineReader&) = delete;

  std::optional<std::string> ReadLine() override;
  void Continue(bool continued) override { fContinued = continued; }
  bool TakeAbandoned() override { return std::exchange(fAbandoned, false); }

 private:
  static EditLineReader& Of(EditLine* editor);
  static char* Prompt(EditLine* editor);
  static int ReadKey(EditLine* editor, wchar_t* key);
  static unsigned char Interrupt(EditLine* editor, int key);
  static unsigned char CompleteName(EditLine* editor, int key);
  void Remember(const std::string& line);

  TerminalSignals fSignals{true};
  std::string fPrompt;
  std::string fHistoryFile;
  CompletionWords fWords;
  std::string fOldLocale;
  History* fHistory = nullptr;
  EditLine* fEditor = nullptr;
  bool fInterrupted = false;
  bool fContinued = false;
  bool fAbandoned = false;
  bool fEnded = false;
};

// Column after column, as wide as the terminal allows.
void ShowChoices(const std::vector<std::string>& choices) {
  winsize window{};
  const size_t width =
      ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col > 0 ? window.ws_col : 80;
  size_t longest = 0;
  for (const std::string& choice : choices) longest = std::max(longest, choice.size());
  const size_t columns = std::max<size_t>(1, width / (longest + 2));
  const size_t rows = (choices.size() + columns - 1) / columns;
  std::fputc('\n', stdout);
  for (size_t row = 0; row < rows; ++row) {
    std::string line;
    for (size_t index = row; index < choices.size(); index += rows)
      line += choices[index] + std::string(longest + 2 - choices[index].size(), ' ');
    line.erase(line.find_last_not_of(' ') + 1);
    std::fprintf(stdout, "%s\n", line.c_str());
  }
  std::fflush(stdout);
}

EditLineReader::EditLineReader(std::string prompt, std::string historyFile, CompletionWords words)
    : fPrompt(std::move(prompt)), fHistoryFile(std::move(historyFile)), fWords(std::move(words)) {
  // libedit decodes the typed bytes by LC_CTYPE, so a UTF-8 terminal needs
  // a UTF-8 locale to type "é". Another one is not taken over: it would
  // give bytes above 127 character classes in the lexer.
  if (const char* old = std::setlocale(LC_CTYPE, nullptr)) fOldLocale = old;
  if (std::setlocale(LC_CTYPE, "") && std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0)
    std::setlocale(LC_CTYPE, fOldLocale.c_str());

  HistEvent event;
  fHistory = history_init();
  history(fHistory, &event, H_SETSIZE, kHistoryLines);
  history(fHistory, &event, H_SETUNIQUE, 1);
  if (!fHistoryFile.empty()) history(fHistory, &event, H_LOAD, fHistoryFile.c_str());

  fEditor = el_init("zentor", stdin, stdout, stderr);
  el_set(fEditor, EL_CLIENTDATA, this);
  el_set(fEditor, EL_PROMPT, &EditLineReader::Prompt);
  el_set(fEditor, EL_EDITOR, "emacs");
  el_set(fEditor, EL_HIST, history, fHistory);
  // The user's ~/.editrc may change keys; Tab and Ctrl-C are bound after
  // it, since the session depends on them.
  el_source(fEditor, nullptr);
  el_set(fEditor, EL_GETCFN, &EditLineReader::ReadKey);
  // The wide form keeps our names as they are; the narrow one copies them
  // and never frees the copies.
  el_wset(fEditor, EL_ADDFN, L"zentor-complete", L"complete a name", &EditLineReader::CompleteName);
  el_wset(fEditor, EL_ADDFN, L"zentor-interrupt", L"abandon the line", &EditLineReader::Interrupt);
  el_set(fEditor, EL_BIND, "^I", "zentor-complete", nullptr);
  el_set(fEditor, EL_BIND, "^C", "zentor-interrupt", nullptr);
}

EditLineReader::~EditLineReader() {
  el_end(fEditor);
  history_end(fHistory);
  std::setlocale(LC_CTYPE, fOldLocale.c_str());
  // Input ran out at the prompt: the next output starts on a line of its own.
  if (fEnded) std::fputc('\n', stdout);
  std::fflush(stdout);
}

std::optional<std::string> EditLineReader::ReadLine() {
  // A Ctrl-C typed while the last statement ran has done its work: the
  // session is still there.
  TerminalSignals::TakeInterrupt();
  for (;;) {
    fInterrupted = false;
    int count = 0;
    const char* text = el_gets(fEditor, &count);
    if (fInterrupted) {
      std::fputs("^C\n", stdout);
      std::fflush(stdout);
      fAbandoned = true;
      fContinued = false;
      continue;
    }
    // Ctrl-D on an empty line, or a terminal that went away.
    if (!text || count <= 0) break;
    std::string line(text, static_cast<size_t>(count));
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    Remember(line);
    return line;
  }
  fEnded = true;
  return std::nullopt;
}

// Each line goes to the file at once, so that a session that is killed
// keeps its history too. The file holds as many lines as memory does.
void EditLineReader::Remember(const std::string& line) {
  if (line.find_first_not_of(" \t") == std::string::npos) return;
  HistEvent event;
  history(fHistory, &event, H_ENTER, line.c_str());
  if (!fHistoryFile.empty()) history(fHistory, &event, H_SAVE, fHistoryFile.c_str());
}

EditLineReader& EditLineReader::Of(EditLine* editor) {
  void* reader = nullptr;
  el_get(editor, EL_CLIENTDATA, &reader);
  return *static_cast<EditLineReader*>(reader);
}

char* EditLineReader::Prompt(EditLine* editor) {
  EditLineReader& reader = Of(editor);
  return reader.fContinued ? const_cast<char*>(kContinuationPrompt) : reader.fPrompt.data();
}

// One typed character, decoded by the locale as libedit's own read does,
// and what that read cannot know: a signal that cut it short. Ctrl-C
// becomes its key; once the key has moved the cursor out of the way, the
// read fails so that el_gets returns. Gives 1, or 0 at the end of input,
// or -1 on an error.
int EditLineReader::ReadKey(EditLine* editor, wchar_t* key) {
  if (Of(editor).fInterrupted) {
    errno = EINTR;
    return -1;
  }
  std::mbstate_t state{};
  for (;;) {
    char byte = 0;
    const ssize_t got = read(STDIN_FILENO, &byte, 1);
    if (got == 1) {
      const size_t used = std::mbrtowc(key, &byte, 1, &state);
      if (used == static_cast<size_t>(-2)) continue;  // more bytes of it to come
      if (used == static_cast<size_t>(-1)) {
        state = std::mbstate_t{};  // no character in this locale: dropped
        continue;
      }
      return 1;
    }
    if (got == 0) return 0;
    if (errno != EINTR) return -1;
    if (TerminalSignals::TakeInterrupt()) {
      *key = kInterruptKey;
      return 1;
    }
    if (TerminalSignals::TakeResize()) {
      el_resize(editor);
      el_set(editor, EL_REFRESH);
    }
  }
}

// Abandons the line: the cursor goes to its end, where ^C is shown.
unsigned char EditLineReader::Interrupt(EditLine* editor, int /*key*/) {
  Of(editor).fInterrupted = true;
  const LineInfo* line = el_line(editor);
  el_cursor(editor, static_cast<int>(line->lastchar - line->cursor));
  return CC_REFRESH;
}

// The name before the cursor: completed as far as all its choices agree,
// or, when that adds nothing, the choices listed below the line.
unsigned char EditLineReader::CompleteName(EditLine* editor, int /*key*/) {
  const LineInfo* line = el_line(editor);
  const std::string typed(line->buffer, static_cast<size_t>(line->cursor - line->buffer));
  const Completion completion = Complete(typed, Of(editor).fWords());
  if (completion.choices.empty()) return CC_REFRESH_BEEP;
  if (const std::string insert = TabInsertion(completion); !insert.empty()) {
    el_insertstr(editor, insert.c_str());
    return CC_REFRESH;
  }
  if (completion.choices.size() == 1) return CC_NORM;
  ShowChoices(completion.choices);
  return CC_REDISPLAY;
}

}  // namespace

std::unique_ptr<LineReader> MakeEditLineReader(const std::string& prompt,
                                               const std::string& historyFile,
                                               CompletionWords words) {
  return std::make_unique<EditLineReader>(prompt, historyFile, std::move(words));
}

}  // namespace zhost
