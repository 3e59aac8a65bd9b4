// What the service refused, kept by the tool so that it is not lost.
//
// The library drops a record that the service refuses (a 4xx answer) and
// tells the host once, in its failed notification, with nothing but the
// status. The tool keeps every such record in <data dir>/rejected.jsonl, one
// JSON object a line, written whole and flushed to disk before the run goes on:
//
//   {"refused": "record", "status": 401, "error": "HTTP 401 unauthorized",
//    "answer": {...the service's answer, or its text...},
//    "at": "2026-11-23T12:06:04+00:00", "record_type": "weight",
//    "record": {...the record's document...}, "image": "rejected-photos/<uuid>.png"}
//
// "image" names a copy of the record's queued photo, taken while the session
// still holds the file. A refused photo ("refused": "photo") is kept the same
// way, with the record as the service stored it: its "_id" makes a later send
// an update of that record, followed by the photo. `nymbrel import` reads
// these lines back (Import.h) and sends each record as it was.
//
// The file and the photo copies are 0600 and the photo folder 0700: they hold
// health data. Main thread only; the transport that notes the service's
// answers runs on the URL session's thread and hands them over under a lock.
#pragma once

#include <NymbrelCore/NYBSessionData.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "SessionHost.h"

namespace nymbrel {

inline constexpr std::string_view kRejectedFileName = "rejected.jsonl";
inline constexpr std::string_view kRejectedPhotoFolder = "rejected-photos";

class RefusalKeeper {
 public:
  // Keeps refusals in `directory`. Until destroyed, the library's requests go
  // through a transport that notes the body of each 4xx answer.
  explicit RefusalKeeper(const std::string& directory);
  ~RefusalKeeper();
  RefusalKeeper(const RefusalKeeper&) = delete;
  RefusalKeeper& operator=(const RefusalKeeper&) = delete;

  // Keeps a refused record or photo; other events are ignored. Must run
  // inside the notification, while `data` still holds the photo. When the
  // line cannot be written, says so on standard error with the record's
  // document, so that it is not lost with the file.
  void keep(const SessionHost::Event& event, const nyb::NYBSessionData* data);

  const std::filesystem::path& path() const { return path_; }
  // "2 refused records kept in PATH; when the cause is fixed, send them again
  // with: nymbrel import PATH", or empty when nothing was kept.
  std::string summary() const;
  std::size_t recordsKept() const { return recordsKept_; }
  std::size_t photosKept() const { return photosKept_; }

 private:
  class Answers;
  std::filesystem::path directory_;
  std::filesystem::path path_;
  std::shared_ptr<Answers> answers_;
  std::size_t recordsKept_ = 0;
  std::size_t photosKept_ = 0;
};

// How many lines the rejected.jsonl of `documentsDirectory` holds; 0 when
// there is none.
std::size_t keptRefusalCount(const std::string& documentsDirectory);

// After an import of `file`: when it is the rejected.jsonl of
// `documentsDirectory`, removes the lines for which `sent(line)` holds, and
// the photo copies they name; lines that this run appended stay. `original`
// is the text the import read. The file is replaced durably, or removed when
// nothing is left. Failures are said on standard error; the file then stays
// as it was.
void forgetSentRefusals(const std::filesystem::path& file, const std::string& documentsDirectory,
                        std::string_view original, const std::function<bool(std::size_t)>& sent);

}  // namespace nymbrel
