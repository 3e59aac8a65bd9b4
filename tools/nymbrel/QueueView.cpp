#include "QueueView.h"

#include <NymbrelCore/NYBArray.h>
#include <NymbrelCore/NYBException.h>
#include <NymbrelCore/NYBKeyedUnarchiver.h>
#include <NymbrelCore/NYBSessionKey.h>
#include <NymbrelCore/NYBUser.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

#include "Describe.h"
#include "Errors.h"

namespace nymbrel {

using nyb::NYBDictionary;
using nyb::NYBDynamicValue;
using nyb::NYBRecord;

namespace {

std::vector<std::shared_ptr<NYBRecord>> queuedRecords(const nyb::NYBSessionData& session) {
  std::vector<std::shared_ptr<NYBRecord>> records;
  if (const nyb::NYBArray* array = session.records().array()) {
    for (const auto& element : *array) {
      if (auto record = element.objectAs<NYBRecord>()) records.push_back(record);
    }
  }
  return records;
}

struct Photo {
  std::shared_ptr<NYBRecord> record;
  std::string file;
  std::size_t queuedPosition = 0;  // 1-based; 0 when the record is no longer queued
};

std::vector<Photo> photos(const ArchiveContents& archive) {
  std::vector<Photo> list;
  const NYBDictionary* map =
      archive.session ? archive.session->imageFilenames().dictionary() : nullptr;
  if (map == nullptr) return list;
  auto records = queuedRecords(*archive.session);
  for (const auto& [key, name] : *map) {
    Photo photo{key.objectAs<NYBRecord>(), std::string(name.stringView())};
    for (std::size_t i = 0; photo.record && i < records.size(); ++i) {
      if (records[i]->isEqual(*photo.record)) {
        photo.queuedPosition = i + 1;
        break;
      }
    }
    list.push_back(std::move(photo));
  }
  return list;
}

std::optional<std::uintmax_t> fileSize(const std::string& path) {
  std::error_code error;
  auto size = std::filesystem::file_size(path, error);
  if (error) return std::nullopt;
  return size;
}

std::string sizeText(std::uintmax_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + " bytes";
  std::ostringstream text;
  text.precision(1);
  text << std::fixed << static_cast<double>(bytes) / 1024.0 << " KB";
  return text.str();
}

}  // namespace

std::size_t ArchiveContents::recordCount() const {
  return session ? queuedRecords(*session).size() : 0;
}

std::size_t ArchiveContents::photoCount() const {
  const NYBDictionary* map = session ? session->imageFilenames().dictionary() : nullptr;
  return map ? map->size() : 0;
}

std::optional<UserCredentials> ArchiveContents::user() const {
  auto archived = session ? session->user().objectAs<nyb::NYBUser>() : nullptr;
  if (!archived) return std::nullopt;
  return UserCredentials{std::string(archived->organizationID().stringView()),
                         std::string(archived->nymbrelUserID().stringView()),
                         std::string(archived->accessToken().stringView())};
}

ArchiveContents readArchive(const std::string& documentsDirectory) {
  ArchiveContents archive;
  archive.path = (std::filesystem::path(documentsDirectory) / "sessionData").string();
  archive.imageDirectory = (std::filesystem::path(documentsDirectory) / "images").string();
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(documentsDirectory, error)) {
    if (entry.path().filename().string().rfind("sessionData.damaged-", 0) == 0) {
      archive.damagedArchives.push_back(entry.path().string());
    }
  }
  std::sort(archive.damagedArchives.begin(), archive.damagedArchives.end());
  if (!std::filesystem::exists(archive.path, error)) return archive;
  archive.exists = true;
  if (!std::filesystem::is_regular_file(archive.path, error)) {
    throw CommandFailure(kExitFailure, "the archive " + archive.path + " is not a file");
  }
  std::ifstream file(archive.path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (!file.good() && !file.eof()) {
    throw CommandFailure(kExitFailure, "cannot read the archive " + archive.path);
  }
  nyb::NYBSessionKey::Contents opened = nyb::NYBSessionKey::openArchive(nyb::NYBData(bytes));
  using State = nyb::NYBSessionKey::State;
  if (opened.state == State::KeyMissing) {
    throw CommandFailure(kExitKey, "the archive " + archive.path +
                                       " is encrypted: give its key with --key-file FILE (or "
                                       "NYMBREL_KEY_FILE)");
  }
  if (opened.state == State::WrongKey) {
    throw CommandFailure(kExitKey, "the key given does not open the archive " + archive.path +
                                       ": it was written with another key");
  }
  if (opened.state == State::Damaged) {
    throw CommandFailure(kExitFailure,
                         "the archive " + archive.path + " is damaged: " + opened.reason);
  }
  try {
    NYBDynamicValue root = nyb::NYBKeyedUnarchiver::unarchiveObjectWithData(opened.bytes);
    if (root.isPresent() && !root.isNull()) {
      archive.session = root.objectAs<nyb::NYBSessionData>();
      if (!archive.session) {
        throw CommandFailure(kExitFailure, "the archive " + archive.path + " holds a " +
                                               root.description() + ", not a session");
      }
    }
  } catch (const nyb::NYBException& damage) {
    throw CommandFailure(kExitFailure,
                         "the archive " + archive.path + " is damaged: " + damage.reason());
  }
  return archive;
}

std::string maskToken(std::string_view token) {
  if (token.size() < 12) return std::string(token.size(), '*');
  return std::string(token.size() - 4, '*') + std::string(token.substr(token.size() - 4));
}

namespace {

std::string keptText(const ArchiveContents& archive) {
  if (archive.damagedArchives.empty()) return "";
  std::ostringstream out;
  out << "Damaged archives kept for recovery: " << archive.damagedArchives.size() << "\n";
  for (const std::string& path : archive.damagedArchives) {
    auto size = fileSize(path);
    out << "  " << path << " (" << (size ? sizeText(*size) : std::string("unreadable")) << ")\n";
  }
  return out.str();
}

}  // namespace

std::string queueText(const ArchiveContents& archive) {
  std::ostringstream out;
  if (!archive.exists) {
    out << "No archive at " << archive.path << ": no session, nothing queued.\n";
    return out.str() + keptText(archive);
  }
  if (!archive.session) {
    out << "The archive " << archive.path << " holds no session: nothing queued.\n";
    return out.str() + keptText(archive);
  }
  out << "Archive: " << archive.path << "\n";
  if (auto user = archive.user()) {
    out << "User:    " << user->org << "/" << user->user << ", token " << maskToken(user->token)
        << "\n";
  } else {
    out << "User:    none\n";
  }
  auto records = queuedRecords(*archive.session);
  auto waiting = photos(archive);
  out << "Queued records: " << records.size() << "\n";
  for (std::size_t i = 0; i < records.size(); ++i) {
    const NYBRecord& record = *records[i];
    out << "  " << i + 1 << ". " << recordLabel(record);
    auto document = record.JSONObject();
    if (document["timestamp"].isString()) out << "  " << document["timestamp"].stringView();
    if (std::string values = recordValues(record); !values.empty()) out << "  " << values;
    for (const auto& photo : waiting) {
      if (photo.queuedPosition == i + 1) out << "  [photo " << photo.file << "]";
    }
    out << "\n";
  }
  out << "Photos waiting: " << waiting.size() << "\n";
  for (std::size_t i = 0; i < waiting.size(); ++i) {
    const Photo& photo = waiting[i];
    std::string path = (std::filesystem::path(archive.imageDirectory) / photo.file).string();
    auto size = fileSize(path);
    out << "  " << i + 1 << ". " << photo.file << " ("
        << (size ? sizeText(*size) : std::string("file missing")) << ") for "
        << (photo.record ? recordLabel(*photo.record) : std::string("an unknown record"));
    if (photo.queuedPosition != 0) {
      out << ", queued record " << photo.queuedPosition;
    } else if (photo.record && photo.record->recordID().isString()) {
      out << ", sent as " << photo.record->recordID().stringView();
    }
    out << "\n";
  }
  return out.str() + keptText(archive);
}

NYBDictionary queueJSON(const ArchiveContents& archive) {
  NYBDictionary document;
  document.set("archive", archive.path);
  document.set("exists", archive.exists);
  document.set("session", archive.session != nullptr);
  if (auto user = archive.user()) {
    document.set("user", NYBDictionary{{"organization", user->org},
                                       {"user_id", user->user},
                                       {"token", maskToken(user->token)}});
  } else {
    document.set("user", NYBDynamicValue::null());
  }
  auto waiting = photos(archive);
  nyb::NYBArray recordList;
  auto records =
      archive.session ? queuedRecords(*archive.session) : std::vector<std::shared_ptr<NYBRecord>>();
  for (std::size_t i = 0; i < records.size(); ++i) {
    NYBDictionary entry{{"position", static_cast<std::uint64_t>(i + 1)},
                        {"type", recordTypeName(*records[i])},
                        {"activity_id", records[i]->activityID()}};
    for (const auto& photo : waiting) {
      if (photo.queuedPosition == i + 1) entry.set("photo", photo.file);
    }
    entry.set("document", records[i]->JSONObject());
    recordList.append(std::move(entry));
  }
  document.set("records", std::move(recordList));
  nyb::NYBArray photoList;
  for (const auto& photo : waiting) {
    std::string path = (std::filesystem::path(archive.imageDirectory) / photo.file).string();
    NYBDictionary entry{{"file", photo.file}, {"path", path}};
    if (auto size = fileSize(path)) entry.set("bytes", static_cast<std::uint64_t>(*size));
    entry.set("queued_position",
              photo.queuedPosition != 0
                  ? NYBDynamicValue(static_cast<std::uint64_t>(photo.queuedPosition))
                  : NYBDynamicValue::null());
    if (photo.record) {
      entry.set("type", recordTypeName(*photo.record));
      entry.set("activity_id", photo.record->activityID());
      entry.set("record_id", photo.record->recordID());
    }
    photoList.append(std::move(entry));
  }
  document.set("photos", std::move(photoList));
  nyb::NYBArray kept;
  for (const std::string& path : archive.damagedArchives) kept.append(path);
  document.set("damaged_archives", std::move(kept));
  return document;
}

}  // namespace nymbrel
