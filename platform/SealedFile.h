// Encryption at rest for the files the library keeps (the archive, the
// photos), with the process's key (NYBSessionKey). A sealed file is
//
//   "NYBE" | version 1 | key id (8) | nonce (12) | ciphertext | tag (16)
//
// sealed with AES-256-GCM (OpenSSL's EVP). The associated data is the 25-byte
// header followed by the file's role ("sessionData", "images/<name>"), so a
// file moved into another's place, or with any header byte changed, fails to
// open. The key id (the first 8 bytes of SHA-256 over a label and the key)
// tells "written with another key" apart from damage without trying keys.
// Anything that does not start with the magic is a plain file.
//
// Callable from any thread.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "NymbrelCore/NYBData.h"
#include "NymbrelCore/NYBImage.h"
#include "NymbrelCore/NYBSessionKey.h"

namespace nyb::sealed {

// A key and its id; the bytes are wiped when it goes.
struct SecretKey {
  explicit SecretKey(std::span<const std::uint8_t> key);
  ~SecretKey();
  SecretKey(const SecretKey&) = delete;
  SecretKey& operator=(const SecretKey&) = delete;
  std::array<std::uint8_t, NYBSessionKey::kKeySize> bytes{};
  std::array<std::uint8_t, 8> id{};
};

// The key store behind NYBSessionKey. The key to write with: null when no key
// is set, or (with `unavailable` set) when the provider had none to give.
std::unique_ptr<SecretKey> currentKey(bool& unavailable);
// The keys that only open files.
std::vector<std::unique_ptr<SecretKey>> previousKeys();

inline constexpr std::string_view kArchiveRole = "sessionData";
inline constexpr std::string_view kPhotoRolePrefix = "images/";
std::string photoRole(std::string_view fileName);

// Whether a key (or a provider) is set.
bool keyed();

// With a key set, the bytes sealed with it for the role; with none, the bytes
// as they are. Raises NYBException when the provider has no key to give.
NYBData sealIfKeyed(const NYBData& plain, std::string_view role);

// The same into `out` (its memory reused from one call to the next): true when
// a key is set and `out` holds the sealed bytes; false, `out` untouched, when
// none is.
bool sealIntoIfKeyed(std::span<const std::uint8_t> plain, std::string_view role,
                     std::vector<std::uint8_t>& out);
// The file's bytes opened for the role with the keys set now.
NYBSessionKey::Contents open(const NYBData& fileBytes, std::string_view role);

// What may be used of a file read from disk: its plain bytes, or a raised
// NYBException naming why not. A plain file passes with or without a key (the
// caller writes it again sealed); `wasPlain` says which it was.
NYBData openOrRaise(NYBData fileBytes, std::string_view role, bool* wasPlain = nullptr);

// Photos: the PNG at `path` sealed (with a key set) for its file name and
// written durably; false when it was not, with `error` set.
bool writePhoto(const std::string& path, const NYBData& png, std::error_code& error);
// The photo at `path`, opened for its file name; null when it cannot be read,
// opened or decoded. One that does not open (another key, damage) is logged
// and kept for recovery in "images.damaged" beside the image directory.
std::shared_ptr<NYBImage> readPhoto(const std::string& path);

// Seals again with the current key every file in the directory that is plain
// or sealed with another key it can open (role: `rolePrefix` + file name),
// each written durably; files it cannot open are left as they are. False,
// with the reason, when one could not be written.
bool resealDirectory(const std::string& directory, std::string_view rolePrefix,
                     std::string* failure);

}  // namespace nyb::sealed
