#include "platform/SealedFile.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <system_error>

#include "NymbrelCore/NYBException.h"
#include "platform/DurableFile.h"
#include "platform/Log.h"

namespace nyb::sealed {

namespace {

constexpr std::array<std::uint8_t, 4> kMagic = {'N', 'Y', 'B', 'E'};
constexpr std::uint8_t kVersion = 1;
constexpr std::size_t kIdSize = 8;
constexpr std::size_t kNonceSize = 12;
constexpr std::size_t kHeaderSize = kMagic.size() + 1 + kIdSize + kNonceSize;
constexpr std::size_t kTagSize = 16;
// Ids of keys are made with this label first, so that they are no digest
// anyone else makes of the key.
constexpr std::string_view kIdLabel = "NymbrelCore file key id v1";

using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

CipherContext newContext() {
  CipherContext context(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
  if (!context) throw std::bad_alloc();
  return context;
}

std::string associatedData(const std::uint8_t* header, std::string_view role) {
  std::string data(reinterpret_cast<const char*>(header), kHeaderSize);
  data.append(role);
  return data;
}

// EVP takes int lengths; the files are far below that.
int intLength(std::size_t size) {
  if (size > static_cast<std::size_t>(std::numeric_limits<int>::max()) / 2)
    throw NYBInvalidArgumentException("A file of " + std::to_string(size) +
                                      " bytes is too large to encrypt");
  return static_cast<int>(size);
}

// Seals into `out`, whose memory is reused: fresh pages for every write of a
// long archive cost more than the encryption itself.
void sealInto(const SecretKey& key, std::span<const std::uint8_t> plain, std::string_view role,
              std::vector<std::uint8_t>& out) {
  out.resize(kHeaderSize + plain.size() + kTagSize);
  std::uint8_t* header = out.data();
  std::memcpy(header, kMagic.data(), kMagic.size());
  header[kMagic.size()] = kVersion;
  std::memcpy(header + kMagic.size() + 1, key.id.data(), kIdSize);
  std::uint8_t* nonce = header + kMagic.size() + 1 + kIdSize;
  if (RAND_bytes(nonce, static_cast<int>(kNonceSize)) != 1)
    throw NYBException("NYBSealedFileException", "No random nonce could be made");
  const std::string ad = associatedData(header, role);
  CipherContext context = newContext();
  int length = 0;
  std::uint8_t* cipher = out.data() + kHeaderSize;
  bool ok =
      EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.bytes.data(), nonce) == 1 &&
      EVP_EncryptUpdate(context.get(), nullptr, &length,
                        reinterpret_cast<const std::uint8_t*>(ad.data()),
                        intLength(ad.size())) == 1 &&
      EVP_EncryptUpdate(context.get(), cipher, &length, plain.data(), intLength(plain.size())) ==
          1 &&
      EVP_EncryptFinal_ex(context.get(), cipher + length, &length) == 1 &&
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(kTagSize),
                          out.data() + kHeaderSize + plain.size()) == 1;
  if (!ok) throw NYBException("NYBSealedFileException", "The file could not be encrypted");
}

NYBData seal(const SecretKey& key, const NYBData& plain, std::string_view role) {
  std::vector<std::uint8_t> out;
  sealInto(key, {plain.bytes(), plain.length()}, role, out);
  return NYBData(std::move(out));
}

// The key to write with; raises when a provider has none to give.
std::unique_ptr<SecretKey> writingKey() {
  bool unavailable = false;
  std::unique_ptr<SecretKey> key = currentKey(unavailable);
  if (unavailable)
    throw NYBException("NYBSealedFileException",
                       "The session key's provider gave no key: nothing is written");
  return key;
}

// The plaintext, or absent when the tag does not match.
std::optional<NYBData> unseal(const SecretKey& key, const NYBData& file, std::string_view role) {
  const std::uint8_t* header = file.bytes();
  const std::uint8_t* nonce = header + kMagic.size() + 1 + kIdSize;
  const std::size_t cipherSize = file.length() - kHeaderSize - kTagSize;
  const std::string ad = associatedData(header, role);
  std::vector<std::uint8_t> plain(cipherSize);
  std::array<std::uint8_t, kTagSize> tag;
  std::memcpy(tag.data(), file.bytes() + kHeaderSize + cipherSize, kTagSize);
  CipherContext context = newContext();
  int length = 0;
  bool ok =
      EVP_DecryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.bytes.data(), nonce) == 1 &&
      EVP_DecryptUpdate(context.get(), nullptr, &length,
                        reinterpret_cast<const std::uint8_t*>(ad.data()),
                        intLength(ad.size())) == 1 &&
      EVP_DecryptUpdate(context.get(), plain.data(), &length, header + kHeaderSize,
                        intLength(cipherSize)) == 1 &&
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, static_cast<int>(kTagSize),
                          tag.data()) == 1 &&
      EVP_DecryptFinal_ex(context.get(), plain.data() + length, &length) == 1;
  if (!ok) {
    // Never half-used: what was decrypted before the tag failed goes.
    OPENSSL_cleanse(plain.data(), plain.size());
    return std::nullopt;
  }
  return NYBData(std::move(plain));
}

bool hasMagic(const NYBData& file) {
  return file.length() >= kMagic.size() && std::equal(kMagic.begin(), kMagic.end(), file.bytes());
}

NYBData readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                  std::istreambuf_iterator<char>());
  if (!in && !in.eof()) throw NYBInvalidArgumentException("cannot read " + path.string());
  return NYBData(std::move(bytes));
}

}  // namespace

SecretKey::SecretKey(std::span<const std::uint8_t> key) {
  if (key.size() != bytes.size()) {
    throw NYBInvalidArgumentException("A session key has 32 bytes, not " +
                                      std::to_string(key.size()));
  }
  std::copy(key.begin(), key.end(), bytes.begin());
  std::array<std::uint8_t, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  std::vector<std::uint8_t> input(kIdLabel.begin(), kIdLabel.end());
  input.insert(input.end(), key.begin(), key.end());
  const bool ok =
      EVP_Digest(input.data(), input.size(), digest.data(), &size, EVP_sha256(), nullptr) == 1;
  OPENSSL_cleanse(input.data(), input.size());
  if (!ok) throw NYBException("NYBSealedFileException", "The key's id could not be made");
  std::copy_n(digest.begin(), id.size(), id.begin());
}

SecretKey::~SecretKey() { OPENSSL_cleanse(bytes.data(), bytes.size()); }

std::string photoRole(std::string_view fileName) {
  std::string role(kPhotoRolePrefix);
  role.append(fileName);
  return role;
}

NYBData sealIfKeyed(const NYBData& plain, std::string_view role) {
  std::unique_ptr<SecretKey> key = writingKey();
  if (!key) return plain;
  return seal(*key, plain, role);
}

bool sealIntoIfKeyed(std::span<const std::uint8_t> plain, std::string_view role,
                     std::vector<std::uint8_t>& out) {
  std::unique_ptr<SecretKey> key = writingKey();
  if (!key) return false;
  sealInto(*key, plain, role, out);
  return true;
}

NYBSessionKey::Contents open(const NYBData& fileBytes, std::string_view role) {
  using State = NYBSessionKey::State;
  if (!hasMagic(fileBytes)) return {State::Plain, fileBytes, ""};
  if (fileBytes.length() < kHeaderSize + kTagSize)
    return {State::Damaged, {}, "the encrypted file is cut short"};
  if (fileBytes.bytes()[kMagic.size()] != kVersion)
    return {State::Damaged, {}, "the encrypted file has an unknown version"};
  bool unavailable = false;
  std::vector<std::unique_ptr<SecretKey>> keys = previousKeys();
  if (std::unique_ptr<SecretKey> current = currentKey(unavailable)) {
    keys.insert(keys.begin(), std::move(current));
  }
  if (keys.empty()) return {State::KeyMissing, {}, "the file is encrypted and no key is set"};
  const std::uint8_t* id = fileBytes.bytes() + kMagic.size() + 1;
  for (const auto& key : keys) {
    if (!std::equal(key->id.begin(), key->id.end(), id)) continue;
    if (std::optional<NYBData> plain = unseal(*key, fileBytes, role)) {
      return {State::Opened, std::move(*plain), ""};
    }
    return {State::Damaged, {}, "the encrypted file fails authentication (changed or cut short)"};
  }
  if (unavailable) return {State::KeyMissing, {}, "the session key's provider gave no key"};
  return {State::WrongKey, {}, "the file is encrypted with another key"};
}

NYBData openOrRaise(NYBData fileBytes, std::string_view role, bool* wasPlain) {
  // A plain file (the usual case) passes through without a copy.
  if (!hasMagic(fileBytes)) {
    if (wasPlain) *wasPlain = true;
    return fileBytes;
  }
  NYBSessionKey::Contents contents = open(fileBytes, role);
  if (wasPlain) *wasPlain = contents.state == NYBSessionKey::State::Plain;
  if (contents.state != NYBSessionKey::State::Plain &&
      contents.state != NYBSessionKey::State::Opened) {
    throw NYBException("NYBSealedFileException", contents.reason);
  }
  return std::move(contents.bytes);
}

bool writePhoto(const std::string& path, const NYBData& png, std::error_code& error) {
  const std::filesystem::path file(path);
  try {
    const NYBData bytes = sealIfKeyed(png, photoRole(file.filename().string()));
    return writeFileDurably(file, bytes.view(), error);
  } catch (const NYBException& exception) {
    log("NYBSessionData: {}", exception.reason());
    error = std::make_error_code(std::errc::permission_denied);
    return false;
  }
}

std::shared_ptr<NYBImage> readPhoto(const std::string& path) {
  const std::filesystem::path file(path);
  NYBData bytes;
  try {
    bytes = readFile(file);
  } catch (const NYBException&) {
    return nullptr;
  }
  NYBSessionKey::Contents contents = open(bytes, photoRole(file.filename().string()));
  if (contents.state == NYBSessionKey::State::Plain ||
      contents.state == NYBSessionKey::State::Opened) {
    return NYBImage::imageWithData(contents.bytes);
  }
  // A hard link keeps the bytes when the session then drops the photo.
  const std::filesystem::path kept =
      file.parent_path().parent_path() / (file.parent_path().filename().string() + ".damaged");
  std::error_code error;
  createPrivateDirectories(kept, error);
  std::filesystem::remove(kept / file.filename(), error);
  std::filesystem::create_hard_link(file, kept / file.filename(), error);
  log("NYBSessionData: Unable to open the photo {}: {}; kept in {}", path, contents.reason,
      kept.string());
  return nullptr;
}

bool resealDirectory(const std::string& directory, std::string_view rolePrefix,
                     std::string* failure) {
  bool unavailable = false;
  std::unique_ptr<SecretKey> key = currentKey(unavailable);
  if (!key) {
    if (unavailable && failure) *failure = "the session key's provider gave no key";
    return !unavailable;
  }
  std::error_code error;
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
    if (entry.is_regular_file(error)) files.push_back(entry.path());
  }
  bool allWritten = true;
  for (const auto& path : files) {
    const std::string name = path.filename().string();
    const std::string role = std::string(rolePrefix) + name;
    try {
      const NYBData bytes = readFile(path);
      if (hasMagic(bytes) && bytes.length() >= kHeaderSize &&
          std::equal(key->id.begin(), key->id.end(), bytes.bytes() + kMagic.size() + 1)) {
        continue;  // sealed with the current key already
      }
      NYBSessionKey::Contents contents = open(bytes, role);
      if (contents.state != NYBSessionKey::State::Plain &&
          contents.state != NYBSessionKey::State::Opened) {
        continue;  // left for the reader to refuse and keep
      }
      const NYBData sealedBytes = seal(*key, contents.bytes, role);
      if (!writeFileDurably(path, sealedBytes.view(), error)) {
        throw NYBInvalidArgumentException(path.string() + ": " + error.message());
      }
    } catch (const NYBException& exception) {
      if (failure && allWritten) *failure = exception.reason();
      allWritten = false;
    }
  }
  return allWritten;
}

}  // namespace nyb::sealed
