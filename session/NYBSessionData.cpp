#include "NymbrelCore/NYBSessionData.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <new>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBConstants.h"
#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBDocuments.h"
#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBKeyedArchiver.h"
#include "model/ArchiveElements.h"
#include "platform/DurableFile.h"
#include "platform/Log.h"
#include "platform/SealedFile.h"
#include "session/PhotoMap.h"
#include "session/RecordQueue.h"

namespace nyb {

namespace {

const NYBDictionary& dictionaryOf(const NYBDynamicValue& value) {
  static const NYBDictionary empty;
  const NYBDictionary* dictionary = value.dictionary();
  return dictionary != nullptr ? *dictionary : empty;
}

using session::PhotoMap;
using session::QueuedElement;
using session::RecordQueue;

constexpr std::string_view kRecordsKey = "records";
constexpr std::string_view kImageFilenamesKey = "imageFilenames";

// A file name that stays inside its directory.
bool isPlainFileName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

}  // namespace

const NYBModelClass& NYBSessionData::staticClass() {
  static const NYBModelClass cls(
      {"NYBSessionData",
       &NYBModel::staticClass(),
       [] { return std::make_shared<NYBSessionData>(); },
       NYBPropertyTable::of<NYBSessionData>()
           .computed(std::string(kRecordsKey), &NYBSessionData::recordsValue,
                     &NYBSessionData::setRecords)
           .computed("imageFilenames", &NYBSessionData::imageFilenamesValue,
                     &NYBSessionData::setImageFilenames)
           .field("user", &NYBSessionData::user_)
           .field("queryDates", &NYBSessionData::queryDates_)
           .field("anchors", &NYBSessionData::anchors_)
           .field("routineQueryTimestamp", &NYBSessionData::routineQueryTimestamp_)
           .field("routineFetchTimestamp", &NYBSessionData::routineFetchTimestamp_)
           .field("intradayStepsQueryTimestamp", &NYBSessionData::intradayStepsQueryTimestamp_)
           .field("intradayStepsFetchTimestamp", &NYBSessionData::intradayStepsFetchTimestamp_)
           .field("passivePeripheralIDs", &NYBSessionData::passivePeripheralIDs_)
           .field("bluetoothPeripheralData", &NYBSessionData::bluetoothPeripheralData_),
       std::nullopt,
       {}});
  return cls;
}

NYBSessionData::NYBSessionData() : NYBSessionData(nullptr) {}

NYBSessionData::NYBSessionData(std::shared_ptr<NYBUser> user)
    : queue_(std::make_unique<RecordQueue>()),
      photos_(std::make_unique<PhotoMap>()),
      queryDates_(NYBDictionary()),
      anchors_(NYBDictionary()),
      bluetoothPeripheralData_(NYBDictionary()) {
  if (user) user_ = std::move(user);
}

NYBSessionData::~NYBSessionData() = default;

std::shared_ptr<NYBSessionData> NYBSessionData::snapshot() const {
  auto copy = std::make_shared<NYBSessionData>();
  *copy->queue_ = *queue_;
  copy->queueStale_ = queueStale_;
  copy->records_ = records_;
  copy->recordsCached_ = recordsCached_;
  *copy->photos_ = *photos_;
  copy->imageFilenames_ = imageFilenames_;
  copy->imageFilenamesCached_ = imageFilenamesCached_;
  // Every other property, as the model base copies them.
  for (const NYBPropertyInfo* info : classObject().allProperties()) {
    if (info->name != kRecordsKey && info->name != kImageFilenamesKey) {
      info->fieldStore(*copy, info->getter(*this));
    }
  }
  return copy;
}

void NYBSessionData::encodeWithCoder(NYBKeyedArchiver& coder) const {
  // A value other than an array was set as the queue: the model base writes it.
  if (recordsCached_ && !records_.isArray()) {
    NYBModel::encodeWithCoder(coder);
    return;
  }
  std::vector<std::string_view> encoded;
  encoded.reserve(queue().size());
  try {
    queue().forEach(
        [&](const RecordQueue::Element& element) { encoded.push_back(element->encoded()); });
    archive::encodeEncodedArray(coder, kRecordsKey, encoded);
  } catch (const NYBException& failure) {
    // As the model base does for any property it cannot write.
    log("*** Caught exception encoding value for key \"{}\" on class {}: {}", kRecordsKey,
        className(), failure.description());
  }
  for (const NYBPropertyInfo* info : classObject().allProperties()) {
    if (info->name == kRecordsKey) continue;
    const NYBDynamicValue value = info->getter(*this);
    if (value.isAbsent() || value.isNull()) continue;
    try {
      coder.encodeObject(value, info->name);
    } catch (const NYBException& failure) {
      log("*** Caught exception encoding value for key \"{}\" on class {}: {}", info->name,
          className(), failure.description());
    }
  }
}

void NYBSessionData::setEncodedRecords(std::shared_ptr<const NYBData> archive,
                                       const std::vector<std::string_view>& records) {
  RecordQueue queue;
  for (std::string_view bytes : records) {
    queue.pushBack(std::make_shared<const QueuedElement>(archive, bytes));
  }
  *queue_ = std::move(queue);
  queueStale_ = false;
  changedQueue();
}

std::size_t NYBSessionData::takeDamagedRecordCount() { return std::exchange(damagedRecords_, 0); }

// MARK: - Queue

namespace {

// The element's value; absent when it cannot be decoded, which is logged.
NYBDynamicValue decoded(const RecordQueue::Element& element, std::size_t& damaged) {
  try {
    return element->value();
  } catch (const NYBException& exception) {
    log("Caught decoding exception: {}", exception.description());
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& exception) {
    log("Caught decoding exception: {}", exception.what());
  }
  ++damaged;
  return {};
}

}  // namespace

const NYBDynamicValue& NYBSessionData::records() const {
  if (recordsCached_) return records_;
  std::vector<NYBDynamicValue> values;
  values.reserve(queue().size());
  const std::size_t damagedBefore = damagedRecords_;
  queue().forEach([&](const RecordQueue::Element& element) {
    NYBDynamicValue value = decoded(element, damagedRecords_);
    if (value.isPresent()) values.push_back(std::move(value));
  });
  if (damagedRecords_ != damagedBefore) {
    // The damaged ones leave the queue, as at the head.
    RecordQueue kept;
    for (const NYBDynamicValue& value : values) {
      kept.pushBack(std::make_shared<const QueuedElement>(value));
    }
    *queue_ = std::move(kept);
  }
  records_ = NYBArray(std::move(values));
  recordsCached_ = true;
  return records_;
}

void NYBSessionData::setRecords(NYBDynamicValue records) {
  // Kept as given, as any property's value is; an array becomes the queue
  // when the queue is first used, so that a model copy costs no pass.
  queueStale_ = records.isArray();
  records_ = std::move(records);
  recordsCached_ = true;
  *queue_ = RecordQueue();
}

RecordQueue& NYBSessionData::queue() const {
  if (queueStale_) {
    queueStale_ = false;
    RecordQueue queue;
    for (const NYBDynamicValue& record : *records_.array()) {
      queue.pushBack(std::make_shared<const QueuedElement>(record));
    }
    *queue_ = std::move(queue);
  }
  return *queue_;
}

void NYBSessionData::addRecord(const std::shared_ptr<NYBRecord>& record) {
  if (!record) return;
  queue().pushBack(std::make_shared<const QueuedElement>(record));
  changedQueue();
}

void NYBSessionData::addRecords(const std::vector<std::shared_ptr<NYBRecord>>& records) {
  for (const auto& record : records) {
    if (record) queue().pushBack(std::make_shared<const QueuedElement>(record));
  }
  changedQueue();
}

void NYBSessionData::addRecords(const NYBDynamicValue& records) {
  const NYBArray* added = records.array();
  if (added == nullptr) return;
  for (const NYBDynamicValue& record : *added) {
    if (record.objectAs<NYBRecord>())
      queue().pushBack(std::make_shared<const QueuedElement>(record));
  }
  changedQueue();
}

std::shared_ptr<NYBRecord> NYBSessionData::peekNextRecord() const {
  while (!queue().empty()) {
    const NYBDynamicValue head = decoded(queue().front(), damagedRecords_);
    if (head.isPresent()) return head.objectAs<NYBRecord>();
    queue().popFront();
    recordsCached_ = false;
  }
  return nullptr;
}

void NYBSessionData::removeNextRecordIfMatch(const std::shared_ptr<NYBRecord>& record) {
  if (!record || queue().empty()) return;
  const NYBDynamicValue head = decoded(queue().front(), damagedRecords_);
  if (!head.isEqual(NYBDynamicValue(record))) return;
  queue().popFront();
  changedQueue();
}

bool NYBSessionData::hasRecords() const {
  peekNextRecord();  // a damaged head leaves first
  return !queue().empty();
}

// MARK: - Photos

const NYBDynamicValue& NYBSessionData::imageFilenames() const {
  if (!imageFilenamesCached_) {
    imageFilenames_ = photos_->dictionary();
    imageFilenamesCached_ = true;
  }
  return imageFilenames_;
}

void NYBSessionData::setImageFilenames(NYBDynamicValue imageFilenames) {
  // A dictionary lives on in the map alone (a loaded archive's would double
  // the map's memory); any other value is kept to be given back as it was.
  const NYBDictionary* dictionary = imageFilenames.dictionary();
  *photos_ = dictionary != nullptr ? PhotoMap(*dictionary) : PhotoMap();
  changedPhotos();
  if (dictionary == nullptr) {
    imageFilenames_ = std::move(imageFilenames);
    imageFilenamesCached_ = true;
  }
}

void NYBSessionData::addRecord(const std::shared_ptr<NYBRecord>& record,
                               const std::shared_ptr<const NYBImage>& image) {
  if (!record || !image) return;
  addRecord(record);
  const std::string filename = std::to_string(record->hash()) + ".png";
  const std::optional<std::string> path = pathForImageName(filename);
  const std::optional<NYBData> png = NYBImagePNGRepresentation(image);
  std::error_code error;
  if (path && png && sealed::writePhoto(*path, *png, error)) {
    addImageFilename(record, filename);
  } else {
    log("NYBSessionData: Error converting image to PNG representation");
  }
}

bool NYBSessionData::hasImages() const { return !photos_->empty(); }

bool NYBSessionData::hasImageForRecord(const std::shared_ptr<NYBRecord>& record) const {
  return imageFilenameForRecord(record).has_value();
}

std::shared_ptr<NYBImage> NYBSessionData::imageForRecord(
    const std::shared_ptr<NYBRecord>& record) const {
  const std::optional<std::string> path = imageFilepathForRecord(record);
  if (!path) return nullptr;
  return sealed::readPhoto(*path);
}

std::shared_ptr<NYBRecord> NYBSessionData::findNextImageRecordWithRecordID() const {
  std::shared_ptr<NYBRecord> found;
  photos_->forEachWhile([&](const NYBDynamicValue& key, const NYBDynamicValue&) {
    auto record = key.objectAs<NYBRecord>();
    if (record && record->recordID().isPresent()) found = std::move(record);
    return !found;
  });
  return found;
}

void NYBSessionData::removeImageForRecord(const std::shared_ptr<NYBRecord>& record) {
  // The file stays until the archive on disk no longer names it: deleting it
  // first would let a crash leave an entry whose photo is gone.
  if (std::optional<std::string> name = imageFilenameForRecord(record);
      name && pathForImageName(name)) {
    deferredImageDeletions_.push_back(std::move(*name));
  }
  removeImageFilename(record);
}

void NYBSessionData::eraseImageFiles(const std::vector<std::string>& names) {
  const std::unordered_set<std::string> erased(names.begin(), names.end());
  for (const std::string& name : erased) {
    const std::optional<std::string> path = pathForImageName(name);
    if (!path || photos_->names(name)) continue;
    if (::unlink(path->c_str()) != 0) {
      log("NYBSessionData: Unable to erase image file. Detail: {}",
          std::error_code(errno, std::generic_category()).message());
    }
  }
  std::erase_if(deferredImageDeletions_,
                [&erased](const std::string& name) { return erased.count(name) != 0; });
}

void NYBSessionData::removeOrphanImageFiles() const {
  std::unordered_set<std::string> named;
  photos_->forEachWhile([&](const NYBDynamicValue&, const NYBDynamicValue& name) {
    if (name.isString()) named.emplace(name.stringView());
    return true;
  });
  std::error_code error;
  std::filesystem::directory_iterator entries(imageDirectory(), error);
  if (error) return;
  std::vector<std::filesystem::path> orphans;
  for (const auto& entry : entries) {
    if (entry.is_regular_file(error) && named.count(entry.path().filename().string()) == 0) {
      orphans.push_back(entry.path());
    }
  }
  for (const auto& path : orphans) std::filesystem::remove(path, error);
}

void NYBSessionData::replaceImageRecord(const std::shared_ptr<NYBRecord>& oldRecord,
                                        const std::shared_ptr<NYBRecord>& newRecord) {
  if (!oldRecord || !newRecord) return;
  const std::optional<std::string> filename = imageFilenameForRecord(oldRecord);
  removeImageFilename(oldRecord);
  addImageFilename(newRecord, filename);
}

std::optional<std::string> NYBSessionData::imageFilenameForRecord(
    const std::shared_ptr<NYBRecord>& record) const {
  if (!record) return std::nullopt;
  const NYBDynamicValue* name = photos_->find(NYBDynamicValue(record));
  if (name == nullptr) return std::nullopt;
  return name->string();
}

std::optional<std::string> NYBSessionData::imageFilepathForRecord(
    const std::shared_ptr<NYBRecord>& record) const {
  return pathForImageName(imageFilenameForRecord(record));
}

std::optional<std::string> NYBSessionData::pathForImageName(
    const std::optional<std::string>& name) const {
  if (!name || !isPlainFileName(*name)) return std::nullopt;
  return (std::filesystem::path(imageDirectory()) / *name).string();
}

void NYBSessionData::addImageFilename(const std::shared_ptr<NYBRecord>& record,
                                      const std::optional<std::string>& filename) {
  if (!record || !filename || filename->empty()) return;
  // The key is a copy, as a dictionary copies its keys: a record changed
  // after it was queued no longer finds the photo, and no one can change a
  // key under the map.
  photos_->set(record->copy(), *filename);
  changedPhotos();
}

void NYBSessionData::removeImageFilename(const std::shared_ptr<NYBRecord>& record) {
  if (!record) return;
  if (photos_->remove(NYBDynamicValue(record))) changedPhotos();
}

std::string NYBSessionData::imageDirectory() const {
  return (std::filesystem::path(NYBDocuments::documentsDirectory()) / kNYBImageDirectory).string();
}

void NYBSessionData::verifyImageDirectory() const {
  const std::string directory = imageDirectory();
  std::error_code error;
  if (std::filesystem::status(directory, error).type() != std::filesystem::file_type::not_found) {
    return;
  }
  if (!createPrivateDirectories(directory, error)) {
    log("NYBSessionData: Unable to create directory for images to upload. Detail: {}",
        error.message());
  }
}

void NYBSessionData::eraseImageDirectoryContents() const {
  std::error_code error;
  std::filesystem::directory_iterator entries(imageDirectory(), error);
  if (error) return;
  const std::unordered_set<std::string> deferred(deferredImageDeletions_.begin(),
                                                 deferredImageDeletions_.end());
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : entries) {
    if (deferred.count(entry.path().filename().string()) == 0) paths.push_back(entry.path());
  }
  for (const auto& path : paths) {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
}

// MARK: - Add-on state

std::optional<NYBData> NYBSessionData::dataForBluetoothPeripheralID(
    std::uint64_t bluetoothPeripheralID) const {
  const NYBDynamicValue* data =
      dictionaryOf(bluetoothPeripheralData_).find(NYBDynamicValue(bluetoothPeripheralID));
  if (data == nullptr || data->data() == nullptr) return std::nullopt;
  return *data->data();
}

void NYBSessionData::setData(const NYBData& data, std::uint64_t forBluetoothPeripheralID) {
  NYBDictionary peripherals = dictionaryOf(bluetoothPeripheralData_);
  peripherals.set(NYBDynamicValue(forBluetoothPeripheralID), data);
  setBluetoothPeripheralData(std::move(peripherals));
}

}  // namespace nyb
