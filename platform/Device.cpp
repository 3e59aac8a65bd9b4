#include "platform/Device.h"

#include <sys/utsname.h>

#include <map>
#include <mutex>

#include "NYBBundleInfo.h"

namespace nyb::platform {

namespace {

utsname systemName() {
  utsname name{};
  if (::uname(&name) != 0) return utsname{};
  return name;
}

struct Bundles {
  std::mutex mutex;
  std::map<std::string, NYBDictionary, std::less<>> infos;
};

Bundles& bundles() {
  static Bundles* shared = [] {
    auto* b = new Bundles;  // never destroyed: read until the process ends
    b->infos.emplace(bundle::kIdentifier,
                     NYBDictionary{{"CFBundleIdentifier", bundle::kIdentifier},
                                   {"CFBundleShortVersionString", bundle::kShortVersionString}});
    return b;
  }();
  return *shared;
}

}  // namespace

const std::string& deviceModel() {
  static const std::string model = systemName().machine;
  return model;
}

std::string systemVersion() { return systemName().release; }

std::string_view libraryBundleIdentifier() { return bundle::kIdentifier; }

std::optional<NYBDictionary> bundleInfoDictionary(std::string_view identifier) {
  Bundles& b = bundles();
  std::lock_guard lock(b.mutex);
  auto it = b.infos.find(identifier);
  if (it == b.infos.end()) return std::nullopt;
  return it->second;
}

std::optional<std::string> libraryShortVersion() {
  std::optional<NYBDictionary> info = bundleInfoDictionary(libraryBundleIdentifier());
  if (!info) return std::nullopt;
  return (*info)["CFBundleShortVersionString"].string();
}

void setBundleInfoDictionary(std::string_view identifier, std::optional<NYBDictionary> info) {
  Bundles& b = bundles();
  std::lock_guard lock(b.mutex);
  auto it = b.infos.find(identifier);
  if (!info) {
    if (it != b.infos.end()) b.infos.erase(it);
  } else if (it != b.infos.end()) {
    it->second = std::move(*info);
  } else {
    b.infos.emplace(std::string(identifier), std::move(*info));
  }
}

}  // namespace nyb::platform
