#include "Encoding.h"

#include <zlib.h>

#include <string>

namespace nyb::devserver {

namespace {

std::string_view trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

// The gzip stream of `body`, or an empty string when zlib fails.
std::string gzip(const std::string& body) {
  z_stream stream{};
  if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) !=
      Z_OK) {
    return {};
  }
  std::string out(deflateBound(&stream, body.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(body.data()));
  stream.avail_in = static_cast<uInt>(body.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  const bool done = deflate(&stream, Z_FINISH) == Z_STREAM_END;
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return done ? out : std::string();
}

}  // namespace

bool acceptsCoding(std::string_view acceptEncoding, std::string_view coding) {
  while (!acceptEncoding.empty()) {
    const std::size_t comma = acceptEncoding.find(',');
    std::string_view item = acceptEncoding.substr(0, comma);
    acceptEncoding = comma == std::string_view::npos ? "" : acceptEncoding.substr(comma + 1);
    const std::size_t semicolon = item.find(';');
    const std::string_view token = trim(item.substr(0, semicolon));
    if (!equalsIgnoringCase(token, coding) && token != "*") continue;
    if (semicolon == std::string_view::npos) return true;
    const std::string_view parameter = trim(item.substr(semicolon + 1));
    // q=0, q=0.0, q=0.000: refused; any other weight accepts.
    if (parameter.size() < 3 || !equalsIgnoringCase(parameter.substr(0, 2), "q=")) return true;
    return parameter.substr(2).find_first_not_of("0.") != std::string_view::npos;
  }
  return false;
}

void encodeAnswer(const httplib::Request& request, httplib::Response& response) {
  if (response.get_header_value("Content-Type") != kJsonContentType ||
      response.body.size() < kCompressFrom || response.has_header("Content-Encoding") ||
      !acceptsCoding(request.get_header_value("Accept-Encoding"), "gzip")) {
    return;
  }
  std::string compressed = gzip(response.body);
  if (compressed.empty()) return;
  response.body = std::move(compressed);
  // The HTTP library counted the body before this function ran.
  response.headers.erase("Content-Length");
  response.set_header("Content-Length", std::to_string(response.body.size()));
  response.set_header("Content-Encoding", "gzip");
  response.set_header("Vary", "Accept-Encoding");
}

}  // namespace nyb::devserver
