// What the archive holds, read without starting a session (so nothing is
// sent): the user with the token masked, the queued records in order and the
// photos waiting for upload, as text for people or as one JSON document for
// scripts.
#pragma once

#include <NymbrelCore/NYBDictionary.h>
#include <NymbrelCore/NYBSessionData.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Options.h"

namespace nymbrel {

struct ArchiveContents {
  std::string path;            // <documents directory>/sessionData
  std::string imageDirectory;  // <documents directory>/images
  bool exists = false;
  // Archives that failed to load, moved aside by the library for recovery
  // ("sessionData.damaged-<UTC time>" beside the archive), oldest first.
  std::vector<std::string> damagedArchives;
  // Null when there is no archive or it holds no session.
  std::shared_ptr<nyb::NYBSessionData> session;

  std::size_t recordCount() const;
  std::size_t photoCount() const;
  // The archived user; absent without one.
  std::optional<UserCredentials> user() const;
};

// Reads <documentsDirectory>/sessionData and lists the damaged archives kept
// beside it. An archive that cannot be read or
// decoded is a failure (kExitFailure) naming the file and what is wrong.
ArchiveContents readArchive(const std::string& documentsDirectory);

// The token with all but its last four characters hidden; wholly hidden when
// shorter than twelve characters.
std::string maskToken(std::string_view token);

std::string queueText(const ArchiveContents& archive);
nyb::NYBDictionary queueJSON(const ArchiveContents& archive);

}  // namespace nymbrel
