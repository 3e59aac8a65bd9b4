// NYBSessionData: the whole persisted state of one session: the user it
// belongs to, the upload queue of records (head first), the photo map (for
// each queued record that has a photo, the name of its PNG file in the image
// directory), and a few containers kept for add-on modules.
//
// It is a model: archiving, copying, equality and description come from the
// model base, one entry per property under the property's name. Containers
// are immutable values; every change builds a new container and stores it,
// so a container handed out earlier never changes under its holder.
//
// The queue is kept apart from the other properties, in chunks shared with
// every snapshot(), so that adding at the tail, removing the head and taking
// a snapshot cost the same whatever the backlog. A queued record must not be
// changed in place (the session queues its own copies): its archive bytes are
// kept from the first save that encodes it and joined by later ones, and a
// record loaded from the archive is decoded only when first read (its bytes
// were checked at load). The records() array is made from the queue when
// first asked for after a change, which costs one pass over the queue.
//
// The photo map is keyed by copies of the records (as a dictionary copies its
// keys) and looks a record up by model equality (the values of all its
// properties): a record changed after its photo was queued no longer finds
// it. The record that findNextImageRecordWithRecordID() gives is the map's
// own key. A photo's file
// name is the record's hash as an unsigned decimal number plus ".png": two
// records with identical values share one file, and the later photo wins.
// Photos live in <documents directory>/images; files are written durably with
// mode 0600. A photo's file is written before the record's entry is mapped,
// and deleted only after the entry is gone from the archive on disk: the
// removing operations keep the file's name among the deferred deletions,
// which the session reads at its next save and erases once that write is
// durable. So after a crash the archive never names a photo whose file is
// gone; a file that no archive names is removed at the next load. With a key
// set (NYBSessionKey) a photo's file is sealed under it; one that does not
// open is logged, kept in <documents directory>/images.damaged and read as
// no photo.
//
// Failures are written to the platform log and swallowed; no operation
// reports an error to its caller. The object is not synchronised: the session
// uses it on the main thread only and hands snapshots to other threads, which
// share only containers, queue chunks and records that never change.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "NymbrelCore/NYBData.h"
#include "NymbrelCore/NYBImage.h"
#include "NymbrelCore/NYBModel.h"
#include "NymbrelCore/NYBRecord.h"
#include "NymbrelCore/NYBUser.h"

namespace nyb {

namespace session {
class PhotoMap;
class RecordQueue;
}  // namespace session

class NYB_EXPORT NYBSessionData : public NYBModel {
  NYB_DECLARE_MODEL(NYBSessionData, NYBModelClass)
 public:
  // No user; empty queue, photo map, query dates, anchors and peripheral data.
  NYBSessionData();
  // The same, for that user.
  explicit NYBSessionData(std::shared_ptr<NYBUser> user);
  ~NYBSessionData() override;

  // The model copy (equal to copy()), made without a pass over the queue: the
  // copy shares the queue's chunks and records. What a save archives.
  std::shared_ptr<NYBSessionData> snapshot() const;
  // The queue's records joined from the bytes kept for them, the other
  // properties as the model base stores them.
  void encodeWithCoder(NYBKeyedArchiver& coder) const override;
  // Sets the queue to records still encoded: each view lies in `archive` and
  // holds one checked element as the archive stores it. Each is decoded when
  // first read; one that fails to decode then is dropped from the queue with
  // "Caught decoding exception: <reason>" and counted (takeDamagedRecordCount).
  void setEncodedRecords(std::shared_ptr<const NYBData> archive,
                         const std::vector<std::string_view>& records);
  // How many queued records failed to decode since the last call; resets it.
  std::size_t takeDamagedRecordCount();

  // ---- Queue ---------------------------------------------------------------
  // Appends at the tail; a null record is ignored.
  void addRecord(const std::shared_ptr<NYBRecord>& record);
  // Appends every record, in order; null ones are ignored.
  void addRecords(const std::vector<std::shared_ptr<NYBRecord>>& records);
  // Appends every record of an array value, in order; other elements, and a
  // value that is not an array (absent included), are ignored.
  void addRecords(const NYBDynamicValue& records);
  // The head of the queue, left in place; null when the queue is empty.
  // A head found damaged leaves the queue here (see setEncodedRecords()).
  std::shared_ptr<NYBRecord> peekNextRecord() const;
  // Removes the head only when it equals `record` (model equality).
  void removeNextRecordIfMatch(const std::shared_ptr<NYBRecord>& record);
  bool hasRecords() const;

  // ---- Photos --------------------------------------------------------------
  // Queues the record (whatever becomes of the photo), then writes the photo
  // as PNG to the image directory under the record's file name and maps the
  // name to the record. When encoding or writing fails, logs
  // "NYBSessionData: Error converting image to PNG representation" and leaves
  // the record queued without a photo. Nothing at all when either is null.
  void addRecord(const std::shared_ptr<NYBRecord>& record,
                 const std::shared_ptr<const NYBImage>& image);
  bool hasImages() const;
  bool hasImageForRecord(const std::shared_ptr<NYBRecord>& record) const;
  // The photo read from the record's file; null without a mapping or when
  // the file cannot be read.
  std::shared_ptr<NYBImage> imageForRecord(const std::shared_ptr<NYBRecord>& record) const;
  // The first record of the photo map, in its order, that has a recordID;
  // null when none has.
  std::shared_ptr<NYBRecord> findNextImageRecordWithRecordID() const;
  // Removes the record's mapping and defers the deletion of its photo file
  // until a save without the mapping is on disk (see eraseImageFiles()).
  void removeImageForRecord(const std::shared_ptr<NYBRecord>& record);
  // The file names whose deletion waits for a durable save without their
  // mappings, oldest first.
  const std::vector<std::string>& deferredImageDeletions() const { return deferredImageDeletions_; }
  // Deletes the named photo files and drops them from the deferred
  // deletions; a file the photo map names again (a record with the same
  // values queued with a new photo) is kept. A failure, a missing file
  // included, logs "NYBSessionData: Unable to erase image file. Detail:
  // <reason>".
  void eraseImageFiles(const std::vector<std::string>& names);
  // Deletes every file of the image directory that the photo map does not
  // name (left by a crash between writing a photo and the archive naming it).
  void removeOrphanImageFiles() const;
  // Moves the old record's file name to the new record; the file keeps its
  // name. Nothing when either is null or the old record has no mapping.
  void replaceImageRecord(const std::shared_ptr<NYBRecord>& oldRecord,
                          const std::shared_ptr<NYBRecord>& newRecord);
  std::optional<std::string> imageFilenameForRecord(const std::shared_ptr<NYBRecord>& record) const;
  std::optional<std::string> imageFilepathForRecord(const std::shared_ptr<NYBRecord>& record) const;
  // The image directory joined with the name; absent for an absent name and
  // for one that is not a plain file name (empty, ".", "..", or holding a
  // "/"), so that a damaged archive cannot point outside the directory.
  std::optional<std::string> pathForImageName(const std::optional<std::string>& name) const;
  // Maps the name to a copy of the record, replacing an earlier mapping;
  // nothing when either is null or empty.
  void addImageFilename(const std::shared_ptr<NYBRecord>& record,
                        const std::optional<std::string>& filename);
  void removeImageFilename(const std::shared_ptr<NYBRecord>& record);
  // <documents directory>/images
  std::string imageDirectory() const;
  // Makes the image directory (mode 0700, with missing parents) when nothing
  // exists at its path; logs "NYBSessionData: Unable to create directory for
  // images to upload. Detail: <reason>" on failure.
  void verifyImageDirectory() const;
  // Deletes everything inside the image directory but the files whose
  // deletion is deferred (they go after the save), ignoring failures; the
  // photo map is not touched.
  void eraseImageDirectoryContents() const;

  // ---- Add-on state --------------------------------------------------------
  std::optional<NYBData> dataForBluetoothPeripheralID(std::uint64_t bluetoothPeripheralID) const;
  void setData(const NYBData& data, std::uint64_t forBluetoothPeripheralID);

  // ---- Properties ----------------------------------------------------------
  // An array of records, head first.
  const NYBDynamicValue& records() const;
  void setRecords(NYBDynamicValue records);
  // A dictionary: record to file name.
  const NYBDynamicValue& imageFilenames() const;
  void setImageFilenames(NYBDynamicValue imageFilenames);
  // An NYBUser.
  const NYBDynamicValue& user() const { return user_; }
  void setUser(NYBDynamicValue user) { user_ = std::move(user); }
  const NYBDynamicValue& queryDates() const { return queryDates_; }
  void setQueryDates(NYBDynamicValue queryDates) { queryDates_ = std::move(queryDates); }
  const NYBDynamicValue& anchors() const { return anchors_; }
  void setAnchors(NYBDynamicValue anchors) { anchors_ = std::move(anchors); }
  const NYBDynamicValue& routineQueryTimestamp() const { return routineQueryTimestamp_; }
  void setRoutineQueryTimestamp(NYBDynamicValue date) { routineQueryTimestamp_ = std::move(date); }
  const NYBDynamicValue& routineFetchTimestamp() const { return routineFetchTimestamp_; }
  void setRoutineFetchTimestamp(NYBDynamicValue date) { routineFetchTimestamp_ = std::move(date); }
  const NYBDynamicValue& intradayStepsQueryTimestamp() const {
    return intradayStepsQueryTimestamp_;
  }
  void setIntradayStepsQueryTimestamp(NYBDynamicValue date) {
    intradayStepsQueryTimestamp_ = std::move(date);
  }
  const NYBDynamicValue& intradayStepsFetchTimestamp() const {
    return intradayStepsFetchTimestamp_;
  }
  void setIntradayStepsFetchTimestamp(NYBDynamicValue date) {
    intradayStepsFetchTimestamp_ = std::move(date);
  }
  const NYBDynamicValue& passivePeripheralIDs() const { return passivePeripheralIDs_; }
  void setPassivePeripheralIDs(NYBDynamicValue ids) { passivePeripheralIDs_ = std::move(ids); }
  // A dictionary: peripheral identifier (number) to data.
  const NYBDynamicValue& bluetoothPeripheralData() const { return bluetoothPeripheralData_; }
  void setBluetoothPeripheralData(NYBDynamicValue data) {
    bluetoothPeripheralData_ = std::move(data);
  }

 private:
  NYBDynamicValue recordsValue() const { return records(); }
  NYBDynamicValue imageFilenamesValue() const { return imageFilenames(); }
  void changedPhotos() {
    imageFilenamesCached_ = false;
    imageFilenames_ = NYBDynamicValue();  // not held beside the map until the next read
  }
  void changedQueue() { recordsCached_ = false; }
  // The queue, made from records_ first when an array was set.
  session::RecordQueue& queue() const;

  std::unique_ptr<session::RecordQueue> queue_;
  // records() as last made; a value that is not an array, when one was set.
  mutable NYBDynamicValue records_;
  mutable bool recordsCached_ = false;
  mutable bool queueStale_ = false;
  mutable std::size_t damagedRecords_ = 0;
  std::unique_ptr<session::PhotoMap> photos_;
  // imageFilenames() as last made, if read since the last change; a value
  // that is not a dictionary, when one was set.
  mutable NYBDynamicValue imageFilenames_;
  mutable bool imageFilenamesCached_ = false;
  NYBDynamicValue user_;
  NYBDynamicValue queryDates_;
  NYBDynamicValue anchors_;
  NYBDynamicValue routineQueryTimestamp_;
  NYBDynamicValue routineFetchTimestamp_;
  NYBDynamicValue intradayStepsQueryTimestamp_;
  NYBDynamicValue intradayStepsFetchTimestamp_;
  NYBDynamicValue passivePeripheralIDs_;
  NYBDynamicValue bluetoothPeripheralData_;
  // Not a property: neither archived nor copied.
  std::vector<std::string> deferredImageDeletions_;
};

}  // namespace nyb
