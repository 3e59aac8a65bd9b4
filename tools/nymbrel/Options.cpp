#include "Options.h"

#include <NymbrelCore/NYBConstants.h>
#include <NymbrelCore/NYBDocuments.h>
#include <NymbrelCore/NYBException.h>
#include <NymbrelCore/NYBPlatformLog.h>
#include <NymbrelCore/NYBSessionKey.h>
#include <NymbrelCore/NYBURL.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "Errors.h"

namespace nymbrel {

namespace {

// The run loop's deadline is kept in milliseconds; beyond a day the wait is
// no longer a time-out anyone means.
constexpr double kMaxTimeoutSeconds = 86400;

std::string checkTimeout(std::string& text) {
  char* end = nullptr;
  double seconds = std::strtod(text.c_str(), &end);
  bool number = !text.empty() && end == text.c_str() + text.size();
  if (!number || !(seconds > 0)) return "must be a positive number of seconds, not " + text;
  if (seconds > kMaxTimeoutSeconds) return "at most 86400 seconds (a day), not " + text;
  return "";
}

// The key: 32 raw bytes, or 64 hexadecimal digits with white space around.
std::vector<std::uint8_t> readKeyFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (!file && !file.eof()) {
    throw CommandFailure(kExitKey, "--key-file: cannot read " + path + ": " + std::strerror(errno));
  }
  std::vector<std::uint8_t> key;
  if (text.size() == nyb::NYBSessionKey::kKeySize) {
    key.assign(text.begin(), text.end());
  } else {
    const auto first = text.find_first_not_of(" \t\r\n");
    const auto last = text.find_last_not_of(" \t\r\n");
    const std::string digits =
        first == std::string::npos ? "" : text.substr(first, last - first + 1);
    const bool hex = digits.size() == 2 * nyb::NYBSessionKey::kKeySize &&
                     digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    for (std::size_t i = 0; hex && i < digits.size(); i += 2) {
      key.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
  }
  std::fill(text.begin(), text.end(), '\0');
  if (key.size() != nyb::NYBSessionKey::kKeySize) {
    throw CommandFailure(
        kExitKey, "--key-file: " + path + " holds no key (32 bytes, or 64 hexadecimal digits)");
  }
  return key;
}

}  // namespace

void addDataDirOption(CLI::App& command, CommonOptions& options) {
  command
      .add_option("--data-dir", options.dataDir,
                  "where the archive and the photos live (default: the library's documents "
                  "directory, $XDG_DATA_HOME/nymbrel)")
      ->envname("NYMBREL_DATA_DIR")
      ->type_name("DIR");
  command
      .add_option("--key-file", options.keyFile,
                  "a file holding the 32-byte key that keeps the archive and the photos "
                  "encrypted (raw, or 64 hexadecimal digits); without it they are plain files")
      ->envname("NYMBREL_KEY_FILE")
      ->type_name("FILE");
}

void addServiceOptions(CLI::App& command, CommonOptions& options) {
  command
      .add_option("--server", options.server,
                  "the service's base URL (default: " + std::string(NYB_DEFAULT_BASE_URL) + ")")
      ->envname("NYMBREL_BASE_URL")
      ->type_name("URL");
  command.add_option("--org", options.org, "the user's organisation")
      ->envname("NYMBREL_ORG")
      ->type_name("ORG");
  command.add_option("--user", options.user, "the user's identifier at the service")
      ->envname("NYMBREL_USER")
      ->type_name("USER");
  command.add_option("--token", options.token, "the user's access token")
      ->envname("NYMBREL_TOKEN")
      ->type_name("TOKEN");
  command
      .add_option("--timeout", options.timeoutSeconds,
                  "seconds to wait for the service before leaving the rest queued")
      ->check(CLI::Validator(checkTimeout, ""))
      ->default_val(60)
      ->type_name("SECONDS");
  command.add_flag("--discard-queue", options.discardQueue,
                   "start a session for a different user even when records of the earlier "
                   "one are still queued (they are dropped)");
}

void addVerboseOption(CLI::App& command, CommonOptions& options) {
  command.add_flag("-v,--verbose", options.verbose, "show the library's log on standard error");
}

std::string documentsDirectory(const CommonOptions& options) {
  if (!options.dataDir.empty()) return std::filesystem::absolute(options.dataDir).string();
  return nyb::NYBDocuments::defaultDocumentsDirectory();
}

std::optional<UserCredentials> givenCredentials(const CommonOptions& options) {
  if (options.org.empty() && options.user.empty() && options.token.empty()) return std::nullopt;
  std::vector<std::string> missing;
  if (options.org.empty()) missing.push_back("--org");
  if (options.user.empty()) missing.push_back("--user");
  if (options.token.empty()) missing.push_back("--token");
  if (!missing.empty()) {
    std::string list;
    for (const auto& name : missing) list += (list.empty() ? "" : " and ") + name;
    throw usageError("give --org, --user and --token together (missing " + list + ")");
  }
  return UserCredentials{options.org, options.user, options.token};
}

void configureLibrary(const CommonOptions& options) {
  if (!options.server.empty()) {
    auto url = nyb::NYBURL::URLWithString(options.server);
    if (!url || (url->scheme() != "http" && url->scheme() != "https") || url->host().empty()) {
      throw usageError("--server: \"" + options.server + "\" is not an http or https URL");
    }
    try {
      nyb::NYBSetRequestBaseURL(options.server);
    } catch (const nyb::NYBException& refused) {
      throw usageError("--server: " + refused.reason());
    }
  }
  if (!options.dataDir.empty())
    nyb::NYBDocuments::setDocumentsDirectory(documentsDirectory(options));
  if (!options.keyFile.empty()) {
    std::vector<std::uint8_t> key = readKeyFile(options.keyFile);
    nyb::NYBSessionKey::setKey(key);
    std::fill(key.begin(), key.end(), std::uint8_t{0});
  }
  if (options.verbose) {
    nyb::NYBSetPlatformLogSink([](std::string_view line) {
      std::cerr << "nymbrel: library: " << line << (line.ends_with('\n') ? "" : "\n");
    });
  } else {
    nyb::NYBSetPlatformLogSink([](std::string_view) {});
  }
}

std::string baseURL() { return nyb::kNYBRequestBaseURLString.value(); }

}  // namespace nymbrel
