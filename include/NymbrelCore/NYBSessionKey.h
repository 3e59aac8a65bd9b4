// NYBSessionKey: the key that keeps the session's files encrypted at rest.
//
// Without a key (the default) the archive ("sessionData") and the photos
// ("images/<name>.png") are plain files, protected only by their modes. Once
// the host gives a 256-bit key, before the session loads, every archive and
// photo the library writes is encrypted and authenticated with it
// (AES-256-GCM, a fresh random nonce per write, the file's role and name bound
// in, so that no file can stand in for another), and every one it reads must
// open with it. A file that does not (another key, a changed or cut byte) is
// treated like a damaged archive: logged, kept aside for recovery, never used
// in part. A plain archive found while a key is set is read once and written
// again encrypted, and so are its plain photos.
//
// Ownership. The key is the process's, like the documents directory it
// protects: every session of the process uses it. setKey() copies the bytes
// into memory the library owns and wipes them when the key is replaced or
// cleared; a provider is asked for the key each time a file is sealed or
// opened, and the copy it fills is wiped right after that one use.
//
// Threads. Every operation may be called from any thread, except rotateKey()
// (main thread, where photos are written). A provider is called on the main
// thread and on the archive's write queue, possibly at once: it must be
// thread-safe, and quick enough to run once per file written or read.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "NymbrelCore/NYBData.h"

namespace nyb {

class NYB_EXPORT NYBSessionKey {
 public:
  static constexpr std::size_t kKeySize = 32;
  // Fills the buffer with the key and returns true; false when the key is not
  // available now (a locked keyring): writes then fail and are tried again by
  // the next save, and reads are refused as if the key were missing.
  using Provider = std::function<bool(std::span<std::uint8_t, kKeySize> key)>;

  // Uses this key from now on. A key of another size raises
  // NYBInvalidArgumentException.
  static void setKey(std::span<const std::uint8_t> key);
  // Asks the provider for the key each time one is needed.
  static void setKeyProvider(Provider provider);
  // Also opens files sealed with this key, but never writes with it: an earlier
  // key, after a rotation that did not finish (see rotateKey()).
  static void addPreviousKey(std::span<const std::uint8_t> key);
  // Forgets every key (wiping the held bytes): later writes are plain again,
  // and encrypted files can no longer be read.
  static void clearKeys();
  // Whether a key or a provider is set.
  static bool isSet();

  // Main thread. Makes `newKey` the key, keeps the one it replaces as a
  // previous key for the rest of the process, and encrypts every photo again
  // with the new key at once, each durably. The archive follows with the
  // session's next save: call saveSessionData() and waitForArchiveWrites()
  // before letting go of the old key. False (with the reason) when a photo
  // could not be written again; the new key is in use all the same, and the
  // old one must be given back with addPreviousKey() after a restart.
  static bool rotateKey(std::span<const std::uint8_t> newKey, std::string* failure = nullptr);

  // What an archive file's bytes hold, opened with the keys as they are now;
  // for hosts that read the archive without a session (an inspection tool).
  enum class State {
    Plain,       // not encrypted: `bytes` is the file as it is
    Opened,      // decrypted and authenticated: `bytes` is the archive
    KeyMissing,  // encrypted, and no key (or no provider's key) is set
    WrongKey,    // encrypted with a key that is not set
    Damaged,     // encrypted, but changed or cut short since it was written
  };
  struct Contents {
    State state = State::Plain;
    NYBData bytes;
    std::string reason;  // why it was refused; empty when it was not
  };
  static Contents openArchive(const NYBData& fileBytes);
};

}  // namespace nyb
