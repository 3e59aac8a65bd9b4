#include "NymbrelCore/NYBSessionKey.h"

#include <openssl/crypto.h>

#include <filesystem>
#include <mutex>
#include <utility>

#include "NymbrelCore/NYBConstants.h"
#include "NymbrelCore/NYBDocuments.h"
#include "platform/Log.h"
#include "platform/SealedFile.h"

namespace nyb {

namespace {

struct KeyStore {
  std::mutex mutex;
  // At most one of the two is set.
  std::shared_ptr<const sealed::SecretKey> key;
  NYBSessionKey::Provider provider;
  std::vector<std::shared_ptr<const sealed::SecretKey>> previous;
};

KeyStore& store() {
  static KeyStore* const keys = new KeyStore;
  return *keys;
}

std::unique_ptr<sealed::SecretKey> copyOf(const sealed::SecretKey& key) {
  return std::make_unique<sealed::SecretKey>(key.bytes);
}

void keepAsPrevious(KeyStore& keys, std::shared_ptr<const sealed::SecretKey> key) {
  for (const auto& kept : keys.previous) {
    if (kept->id == key->id) return;
  }
  keys.previous.push_back(std::move(key));
}

}  // namespace

namespace sealed {

std::unique_ptr<SecretKey> currentKey(bool& unavailable) {
  unavailable = false;
  NYBSessionKey::Provider provider;
  {
    KeyStore& keys = store();
    std::lock_guard lock(keys.mutex);
    if (keys.key) return copyOf(*keys.key);
    if (!keys.provider) return nullptr;
    provider = keys.provider;
  }
  // Outside the lock: a provider may be slow, or set keys itself.
  std::array<std::uint8_t, NYBSessionKey::kKeySize> buffer{};
  bool given = false;
  try {
    given = provider(std::span<std::uint8_t, NYBSessionKey::kKeySize>(buffer));
  } catch (...) {
    given = false;
  }
  std::unique_ptr<SecretKey> key = given ? std::make_unique<SecretKey>(buffer) : nullptr;
  OPENSSL_cleanse(buffer.data(), buffer.size());
  unavailable = !key;
  return key;
}

bool keyed() { return NYBSessionKey::isSet(); }

std::vector<std::unique_ptr<SecretKey>> previousKeys() {
  KeyStore& keys = store();
  std::lock_guard lock(keys.mutex);
  std::vector<std::unique_ptr<SecretKey>> copies;
  for (const auto& key : keys.previous) copies.push_back(copyOf(*key));
  return copies;
}

}  // namespace sealed

void NYBSessionKey::setKey(std::span<const std::uint8_t> key) {
  auto held = std::make_shared<const sealed::SecretKey>(key);
  KeyStore& keys = store();
  std::lock_guard lock(keys.mutex);
  keys.key = std::move(held);
  keys.provider = nullptr;
}

void NYBSessionKey::setKeyProvider(Provider provider) {
  KeyStore& keys = store();
  std::lock_guard lock(keys.mutex);
  keys.key.reset();
  keys.provider = std::move(provider);
}

void NYBSessionKey::addPreviousKey(std::span<const std::uint8_t> key) {
  auto held = std::make_shared<const sealed::SecretKey>(key);
  KeyStore& keys = store();
  std::lock_guard lock(keys.mutex);
  keepAsPrevious(keys, std::move(held));
}

void NYBSessionKey::clearKeys() {
  KeyStore& keys = store();
  std::lock_guard lock(keys.mutex);
  keys.key.reset();
  keys.provider = nullptr;
  keys.previous.clear();
}

bool NYBSessionKey::isSet() {
  KeyStore& keys = store();
  std::lock_guard lock(keys.mutex);
  return keys.key || keys.provider;
}

bool NYBSessionKey::rotateKey(std::span<const std::uint8_t> newKey, std::string* failure) {
  auto held = std::make_shared<const sealed::SecretKey>(newKey);
  bool unavailable = false;
  std::unique_ptr<sealed::SecretKey> old = sealed::currentKey(unavailable);
  {
    KeyStore& keys = store();
    std::lock_guard lock(keys.mutex);
    if (old) keepAsPrevious(keys, std::shared_ptr<const sealed::SecretKey>(std::move(old)));
    keys.key = std::move(held);
    keys.provider = nullptr;
  }
  const std::string images =
      (std::filesystem::path(NYBDocuments::documentsDirectory()) / kNYBImageDirectory).string();
  std::string reason;
  const bool resealed = sealed::resealDirectory(images, sealed::kPhotoRolePrefix, &reason);
  if (!resealed) log("NYBSessionKey: Unable to encrypt the photos with the new key: {}", reason);
  if (failure) *failure = reason;
  return resealed;
}

NYBSessionKey::Contents NYBSessionKey::openArchive(const NYBData& fileBytes) {
  return sealed::open(fileBytes, sealed::kArchiveRole);
}

}  // namespace nyb
