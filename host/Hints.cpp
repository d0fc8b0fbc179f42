#include "Hints.h"

#include <algorithm>
#include <numeric>

#include "Definition.h"

namespace zhost {
namespace {

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
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

}  // namespace zhost
