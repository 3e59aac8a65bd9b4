// NYBMedia's one operation that reads the session: the media URL carrying the
// current user's token.
#include <string>
#include <string_view>

#include "NymbrelCore/NYBMedia.h"
#include "NymbrelCore/NYBSession.h"

namespace nyb {

namespace {

// The characters a query item's value keeps as they are: the query
// characters of a URL (RFC 3986) without the two that separate items.
bool staysInQueryItem(unsigned char c) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
  switch (c) {
    case '-':
    case '.':
    case '_':
    case '~':
    case '!':
    case '$':
    case '\'':
    case '(':
    case ')':
    case '*':
    case '+':
    case ',':
    case ';':
    case ':':
    case '@':
    case '/':
    case '?':
      return true;
    default:
      return false;
  }
}

std::string encodeQueryItemValue(std::string_view raw) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(raw.size());
  for (char ch : raw) {
    const auto c = static_cast<unsigned char>(ch);
    if (staysInQueryItem(c)) {
      out += ch;
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 0x0F];
    }
  }
  return out;
}

}  // namespace

std::optional<NYBURL> NYBMedia::authenticatedURL() const {
  if (mediaURL_.isAbsent() || mediaURL_.isNull()) return std::nullopt;
  std::shared_ptr<NYBUser> user = NYBSession::sharedInstance()->user();
  if (!user || user->accessToken().isAbsent() || user->accessToken().isNull()) return std::nullopt;

  const NYBURL* given = mediaURL_.url();
  const std::string text = given != nullptr ? given->absoluteString() : mediaURL_.description();
  if (!NYBURL::URLWithString(text)) return std::nullopt;
  // The URL's components: everything before the query, the query, the fragment.
  const std::size_t fragmentStart = text.find('#');
  const std::string_view beforeFragment = std::string_view(text).substr(0, fragmentStart);
  const std::string_view base = beforeFragment.substr(0, beforeFragment.find('?'));
  std::string result(base);
  result += "?authentication_token=";
  result += encodeQueryItemValue(user->accessToken().description());
  if (fragmentStart != std::string::npos) result += text.substr(fragmentStart);
  return NYBURL::URLWithString(result);
}

}  // namespace nyb
