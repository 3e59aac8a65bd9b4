// NYBMedia's one operation that reads the session: the media URL carrying the
// current user's token.
#include <string>
#include <string_view>

#include "NymbrelCore/NYBMedia.h"
#include "NymbrelCore/NYBSession.h"
#include "platform/PercentEncoding.h"

namespace nyb {

namespace {

// The characters a query item's value keeps as they are: the query
// characters of a URL (RFC 3986) without the two that separate items.
bool staysInQueryItem(unsigned char c) { return c != '&' && c != '=' && isURLQueryCharacter(c); }

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
  result += percentEncode(user->accessToken().description(), staysInQueryItem);
  if (fragmentStart != std::string::npos) result += text.substr(fragmentStart);
  return NYBURL::URLWithString(result);
}

}  // namespace nyb
