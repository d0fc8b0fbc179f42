#include "Hints.h"

#include <algorithm>
#include <numeric>

#include "Definition.h"

namespace zhost {
namespace {

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool IsNameChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '.';
}

// How far a name may be from the typed one and still be offered: a typo
// is about one slip per four characters; a name of one or two characters
// is near almost anything, so it gets only the other case.
size_t Tolerance(const std::string& typed) {
  if (typed.size() < 3) return 0;
  return std::clamp<size_t>(typed.size() / 4, 1, 3);
}

}  // namespace

size_t EditDistance(std::string_view a, std::string_view b) {
  // Rows i-2, i-1 and i of the table of distances between prefixes.
  std::vector<size_t> before(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
  std::iota(last.begin(), last.end(), size_t{0});
  for (size_t i = 1; i <= a.size(); ++i) {
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const bool same = Lower(a[i - 1]) == Lower(b[j - 1]);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same ? 0 : 1)});
      if (i > 1 && j > 1 && Lower(a[i - 1]) == Lower(b[j - 2]) &&
          Lower(a[i - 2]) == Lower(b[j - 1]))
        row[j] = std::min(row[j], before[j - 2] + 1);
    }
    std::swap(before, last);
    std::swap(last, row);
  }
  return last[b.size()];
}

std::vector<std::string> NearestNames(const std::string& typed,
                                      const std::vector<std::string>& known) {
  const size_t tolerance = Tolerance(typed);
  const bool qualified = typed.find('.') != std::string::npos;
  std::vector<std::pair<size_t, std::string>> near;
  for (const std::string& name : known) {
    size_t distance = EditDistance(typed, name);
    if (const size_t dot = name.rfind('.'); !qualified && dot != std::string::npos)
      distance = std::min(distance, EditDistance(typed, std::string_view(name).substr(dot + 1)));
    if (distance <= tolerance) near.emplace_back(distance, name);
  }
  std::sort(near.begin(), near.end());
  near.erase(std::unique(near.begin(), near.end()), near.end());
  std::vector<std::string> names;
  for (const auto& [distance, name] : near)
    if (distance == near.front().first && names.size() < 3) names.push_back(name);
  return names;
}

ScriptError Unknown(const std::string& what, const std::string& name,
                    const std::vector<std::string>& known) {
  std::string message = "unknown " + what + " " + name;
  const auto names = NearestNames(name, known);
  for (size_t i = 0; i < names.size(); ++i)
    message += (i == 0 ? "; did you mean " : i + 1 == names.size() ? " or " : ", ") + names[i];
  return ScriptError(names.empty() ? message : message + "?");
}

ScriptError NoOverload(const std::string& name, const std::vector<std::string>& kinds,
                       const std::vector<std::vector<std::string>>& declared) {
  const std::string message = "no overload " + Signature(name, kinds) + "; declared:";
  if (declared.size() == 1) return ScriptError(message + " " + Signature(name, declared.front()));
  std::vector<std::string> list;
  for (const auto& params : declared) list.push_back(Signature(name, params));
  return ScriptError(message, std::move(list));
}

Completion Complete(const std::string& typed, const std::vector<std::string>& words) {
  size_t start = typed.size();
  while (start > 0 && IsNameChar(typed[start - 1])) --start;
  // Commands complete only where they can stand: first on the line.
  if (start > 0 && typed[start - 1] == ':' && typed.find_first_not_of(" \t") == start - 1) --start;
  const std::string prefix = typed.substr(start);
  const bool command = !prefix.empty() && prefix[0] == ':';
  Completion completion;
  for (const std::string& word : words)
    if (!word.empty() && word.size() >= prefix.size() &&
        word.compare(0, prefix.size(), prefix) == 0 && (word[0] == ':') == command)
      completion.choices.push_back(word);
  std::sort(completion.choices.begin(), completion.choices.end());
  completion.choices.erase(std::unique(completion.choices.begin(), completion.choices.end()),
                           completion.choices.end());
  if (completion.choices.empty()) return completion;
  const std::string& first = completion.choices.front();
  const std::string& last = completion.choices.back();
  // Sorted, the first and last choice share what all of them share.
  const size_t common =
      std::mismatch(first.begin(), first.end(), last.begin(), last.end()).first - first.begin();
  completion.insert = first.substr(prefix.size(), common - prefix.size());
  return completion;
}

std::string TabInsertion(const Completion& completion) {
  const bool command = completion.choices.size() == 1 && completion.choices.front()[0] == ':';
  return command ? completion.insert + " " : completion.insert;
}

}  // namespace zhost
