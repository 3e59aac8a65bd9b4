// Content encoding of the devserver's answers.
//
// Contract: encodeAnswer() is the one place that decides how an answer's body goes out; the
// server calls it after every handler (and after the error handler), on the connection's
// thread, for answers whose type is kJsonContentType. The HTTP library would
// otherwise compress every JSON answer with the best encoding the client offers (brotli at
// its slowest setting), which for the few hundred bytes of a record costs more than sending
// them: small answers go out as they are, and only answers of at least kCompressFrom bytes
// are compressed, with gzip, when the request accepts it. Brotli is never used.
#pragma once

#include <httplib.h>

#include <cstddef>
#include <string_view>

namespace nyb::devserver {

inline constexpr std::size_t kCompressFrom = 1024;

// The type of every JSON answer. The HTTP library compresses only the exact type
// "application/json"; with its charset named, the answer is left to encodeAnswer().
inline constexpr const char* kJsonContentType = "application/json; charset=utf-8";

// Whether an Accept-Encoding value accepts `coding` (a listed token without q=0, or "*").
bool acceptsCoding(std::string_view acceptEncoding, std::string_view coding);

void encodeAnswer(const httplib::Request& request, httplib::Response& response);

}  // namespace nyb::devserver
