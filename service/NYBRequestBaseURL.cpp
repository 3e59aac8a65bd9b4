// The service's base URL: the build's value until a host names another.
#include <arpa/inet.h>

#include <mutex>
#include <string>
#include <utility>

#include "NYBBundleInfo.h"
#include "NymbrelCore/NYBConstants.h"
#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBURL.h"
#include "service/RequestBaseURL.h"

namespace nyb {

namespace {

struct BaseURL {
  std::mutex mutex;
  std::string value = bundle::kBaseURL;
};

BaseURL& baseURL() {
  static BaseURL* const shared = new BaseURL();  // outlives every thread that sends
  return *shared;
}

bool isLoopbackHost(std::string host) {
  if (host.size() > 2 && host.front() == '[' && host.back() == ']')
    host = host.substr(1, host.size() - 2);
  if (host == "localhost" || host == "::1") return true;
  in_addr address{};
  return inet_pton(AF_INET, host.c_str(), &address) == 1 && (ntohl(address.s_addr) >> 24) == 127;
}

}  // namespace

std::string NYBRequestBaseURL::value() const {
  BaseURL& shared = baseURL();
  std::lock_guard lock(shared.mutex);
  return shared.value;
}

void NYBSetRequestBaseURL(std::string_view url) {
  const std::string text(url);
  const std::optional<NYBURL> parsed = NYBURL::URLWithString(text);
  const std::string scheme = parsed ? parsed->scheme() : std::string();
  if (!parsed || parsed->host().empty() || (scheme != "https" && scheme != "http")) {
    throw NYBInvalidArgumentException("The base URL \"" + text + "\" is not an http(s) URL");
  }
  if (scheme == "http" && !isLoopbackHost(parsed->host())) {
    throw NYBInvalidArgumentException("The base URL \"" + text +
                                      "\" sends the token in clear text to a host that is not "
                                      "this machine; use https");
  }
  service::setRequestBaseURLUnchecked(text);
}

void service::setRequestBaseURLUnchecked(std::string url) {
  BaseURL& shared = baseURL();
  std::lock_guard lock(shared.mutex);
  shared.value = std::move(url);
}

}  // namespace nyb
