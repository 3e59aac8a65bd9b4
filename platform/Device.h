// The device and the process's bundles, as the library sees them.
//
// deviceModel() is the hardware identifier (the machine field of uname),
// read once and kept for the process; systemVersion() is the operating
// system's version (the release field of uname). A bundle's information
// dictionary is found by the bundle's identifier: the library's own bundle is
// present from the start, made from the build's generated bundle information,
// and hosts and tests may replace or remove any bundle's information. Every
// function may be called from any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "NymbrelCore/NYBDictionary.h"

namespace nyb::platform {

// The hardware model identifier, such as "x86_64" or "aarch64".
const std::string& deviceModel();
// The operating system's version, such as "6.1.0-18-amd64".
std::string systemVersion();

// The identifier of the library's own bundle.
std::string_view libraryBundleIdentifier();
// The information dictionary of the bundle with that identifier; absent when
// no such bundle is known.
std::optional<NYBDictionary> bundleInfoDictionary(std::string_view identifier);

// The "CFBundleShortVersionString" of the library's bundle information; absent
// when the bundle or the key is missing.
std::optional<std::string> libraryShortVersion();
// Replaces the information of a bundle; absent removes the bundle.
void setBundleInfoDictionary(std::string_view identifier, std::optional<NYBDictionary> info);

}  // namespace nyb::platform
