// NYBURL: an absolute or relative URL, kept as the text it was made from.
//
// URLWithString() accepts only text made of the characters a URL may hold
// (RFC 3986: unreserved and reserved characters, and '%' with two hex digits);
// anything else (a blank, say) gives no URL, as the platform's URL parser does.
// Nothing is percent-encoded or normalised. A plain immutable value.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace nyb {

class NYB_EXPORT NYBURL {
 public:
  [[nodiscard]] static std::optional<NYBURL> URLWithString(std::string_view text);
  // A file URL for an absolute path.
  [[nodiscard]] static NYBURL fileURLWithPath(std::string_view path);

  const std::string& absoluteString() const { return text_; }
  // Components of the text; empty where the URL has none. port() is absent
  // when the text names none.
  std::string scheme() const;
  std::string host() const;
  std::optional<int> port() const;
  std::string path() const;
  std::string query() const;
  bool isFileURL() const;

  friend bool operator==(const NYBURL& a, const NYBURL& b) { return a.text_ == b.text_; }
  std::size_t hash() const;

 private:
  explicit NYBURL(std::string text) : text_(std::move(text)) {}
  std::string text_;
};

}  // namespace nyb
