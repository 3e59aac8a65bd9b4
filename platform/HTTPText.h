// Small text helpers for HTTP header fields, shared by the URL session and
// the request.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nyb::http {

inline char lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

inline bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

inline const std::string* findField(const std::vector<std::pair<std::string, std::string>>& fields,
                                    std::string_view name) {
  for (const auto& [field, value] : fields) {
    if (equalsIgnoringCase(field, name)) return &value;
  }
  return nullptr;
}

inline std::string_view trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' ||
                           text.back() == '\n')) {
    text.remove_suffix(1);
  }
  return text;
}

}  // namespace nyb::http
