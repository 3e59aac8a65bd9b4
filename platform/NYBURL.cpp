#include "NymbrelCore/NYBURL.h"

#include <charconv>

#include "platform/Hashing.h"
#include "platform/PercentEncoding.h"

namespace nyb {

namespace {

bool isHex(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Query characters, and the delimiters that separate a URL's parts.
bool isURLCharacter(char c) {
  return isURLQueryCharacter(static_cast<unsigned char>(c)) || c == '#' || c == '[' || c == ']';
}

// Splits "scheme://authority/path?query#fragment" into views of the text.
struct Parts {
  std::string_view scheme, authority, path, query;
};

Parts split(std::string_view s) {
  Parts p;
  if (auto hash = s.find('#'); hash != std::string_view::npos) s = s.substr(0, hash);
  auto colon = s.find(':');
  auto firstSlash = s.find('/');
  if (colon != std::string_view::npos && colon > 0 &&
      (firstSlash == std::string_view::npos || colon < firstSlash)) {
    p.scheme = s.substr(0, colon);
    s.remove_prefix(colon + 1);
  }
  if (s.substr(0, 2) == "//") {
    s.remove_prefix(2);
    auto end = s.find_first_of("/?");
    p.authority = s.substr(0, end);
    s = end == std::string_view::npos ? std::string_view() : s.substr(end);
  }
  auto q = s.find('?');
  p.path = s.substr(0, q);
  if (q != std::string_view::npos) p.query = s.substr(q + 1);
  return p;
}

std::string_view hostPort(std::string_view authority) {
  if (auto at = authority.rfind('@'); at != std::string_view::npos) authority.remove_prefix(at + 1);
  return authority;
}

}  // namespace

std::optional<NYBURL> NYBURL::URLWithString(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '%') {
      if (i + 2 >= text.size() + 0 || !isHex(text[i + 1]) || !isHex(text[i + 2])) {
        return std::nullopt;
      }
      i += 2;
      continue;
    }
    if (!isURLCharacter(c)) return std::nullopt;
  }
  return NYBURL(std::string(text));
}

NYBURL NYBURL::fileURLWithPath(std::string_view path) {
  return NYBURL("file://" + std::string(path));
}

std::string NYBURL::scheme() const { return std::string(split(text_).scheme); }

std::string NYBURL::host() const {
  std::string_view hp = hostPort(split(text_).authority);
  if (!hp.empty() && hp.front() == '[') {
    auto close = hp.find(']');
    return std::string(hp.substr(1, close == std::string_view::npos ? hp.npos : close - 1));
  }
  return std::string(hp.substr(0, hp.find(':')));
}

std::optional<int> NYBURL::port() const {
  std::string_view hp = hostPort(split(text_).authority);
  if (!hp.empty() && hp.front() == '[') {
    auto close = hp.find(']');
    if (close == std::string_view::npos) return std::nullopt;
    hp.remove_prefix(close + 1);
  }
  auto colon = hp.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  std::string_view digits = hp.substr(colon + 1);
  int port = 0;
  auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return port;
}

std::string NYBURL::path() const { return std::string(split(text_).path); }
std::string NYBURL::query() const { return std::string(split(text_).query); }
bool NYBURL::isFileURL() const { return split(text_).scheme == "file"; }
std::size_t NYBURL::hash() const { return hashing::bytes(text_); }

}  // namespace nyb
