// The characters of a URL, and percent-encoding of text for one: every byte outside the caller's
// allowed set becomes '%' and two upper-case hex digits. The allowed sets differ by where the text
// goes (a path segment, a query item's value).
#pragma once

#include <string>
#include <string_view>

namespace nyb {

// The characters a URL's query may hold as they are (RFC 3986): unreserved,
// sub-delimiters, ':', '@', '/' and '?'.
inline bool isURLQueryCharacter(unsigned char c) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
  switch (c) {
    case '-':
    case '.':
    case '_':
    case '~':  // unreserved
    case '!':
    case '$':
    case '&':
    case '\'':
    case '(':
    case ')':
    case '*':
    case '+':
    case ',':
    case ';':
    case '=':  // sub-delims
    case ':':
    case '@':
    case '/':
    case '?':
      return true;
    default:
      return false;
  }
}

template <typename Allowed>
std::string percentEncode(std::string_view raw, Allowed allowed) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(raw.size());
  for (char ch : raw) {
    const auto c = static_cast<unsigned char>(ch);
    if (allowed(c)) {
      out += ch;
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 0x0F];
    }
  }
  return out;
}

}  // namespace nyb
