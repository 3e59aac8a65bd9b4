#include "Refusals.h"

#include <NymbrelCore/NYBArray.h>
#include <NymbrelCore/NYBConstants.h>
#include <NymbrelCore/NYBDateFormatter.h>
#include <NymbrelCore/NYBFormatter.h>
#include <NymbrelCore/NYBImage.h>
#include <NymbrelCore/NYBJSONSerialization.h>
#include <NymbrelCore/NYBURLSession.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <vector>

#include "Describe.h"
#include "RecordBuilder.h"

namespace nymbrel {

namespace fs = std::filesystem;
using nyb::NYBDynamicValue;

namespace {

// An answer longer than this is an error page, not a reason; its start is enough.
constexpr std::size_t kMaxAnswerBytes = 64 * 1024;

std::string systemError(const std::string& what) { return what + ": " + std::strerror(errno); }

void writeAll(int fd, std::string_view bytes, const std::string& what) {
  while (!bytes.empty()) {
    ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw std::runtime_error(systemError("cannot write " + what));
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
}

// Replaces `path` with `bytes` so that a crash leaves the old file or the new
// one, never a part: a 0600 temporary beside it, flushed, renamed over it,
// then the directory flushed.
void replaceDurably(const fs::path& path, std::string_view bytes) {
  std::string temporary = path.string() + ".XXXXXX";
  int fd = ::mkstemp(temporary.data());
  if (fd < 0) throw std::runtime_error(systemError("cannot create a file beside " + path.string()));
  try {
    if (::fchmod(fd, 0600) != 0)
      throw std::runtime_error(systemError("cannot protect " + temporary));
    writeAll(fd, bytes, temporary);
    if (::fsync(fd) != 0) throw std::runtime_error(systemError("cannot flush " + temporary));
  } catch (...) {
    ::close(fd);
    ::unlink(temporary.c_str());
    throw;
  }
  ::close(fd);
  if (::rename(temporary.c_str(), path.c_str()) != 0) {
    std::string why = systemError("cannot rename " + temporary + " to " + path.string());
    ::unlink(temporary.c_str());
    throw std::runtime_error(why);
  }
  int directory = ::open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory >= 0) {
    ::fsync(directory);
    ::close(directory);
  }
}

std::string now() {
  auto formatter = nyb::NYBFormatter::sharedFormatter().ISO8601DateTimeFormatter();
  return formatter->stringFromDate(nyb::NYBDate::now()).value_or("");
}

std::string plural(std::size_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace

// Sits between the library and its transport and notes the last answer with a
// 4xx status. The session sends one request at a time and announces its
// refusal before it sends the next, so the noted answer is the refused one's.
class RefusalKeeper::Answers : public nyb::NYBURLSession {
 public:
  explicit Answers(std::shared_ptr<nyb::NYBURLSession> transport)
      : transport_(std::move(transport)) {}

  void startDataTask(nyb::NYBURLRequest request, nyb::NYBURLSessionCompletion completion) override {
    auto self = std::static_pointer_cast<Answers>(shared_from_this());
    transport_->startDataTask(
        std::move(request), [self, completion = std::move(completion)](
                                std::optional<nyb::NYBData> data,
                                std::shared_ptr<const nyb::NYBHTTPURLResponse> response,
                                std::shared_ptr<nyb::NYBError> error) {
          if (response && response->statusCode() >= 400 && response->statusCode() <= 499) {
            std::lock_guard lock(self->mutex_);
            self->status_ = response->statusCode();
            self->body_ = data ? std::string(data->view().substr(0, kMaxAnswerBytes)) : "";
          }
          completion(std::move(data), std::move(response), std::move(error));
        });
  }

  // The noted answer when its status is `status`, as JSON when it parses and
  // as text otherwise; absent when there is none. Forgets it either way.
  NYBDynamicValue take(std::int64_t status) {
    std::optional<std::string> body;
    {
      std::lock_guard lock(mutex_);
      if (status_ == status) body = std::move(body_);
      status_ = 0;
      body_.clear();
    }
    if (!body || body->empty()) return {};
    NYBDynamicValue json = nyb::NYBJSONSerialization::JSONObjectWithData(*body);
    if (json.isPresent()) return json;
    // Text that JSON cannot carry (bytes that are not UTF-8) is left out.
    if (!nyb::NYBJSONSerialization::isValidJSONObject(nyb::NYBArray{*body})) return {};
    return *body;
  }

  const std::shared_ptr<nyb::NYBURLSession>& transport() const { return transport_; }

 private:
  std::shared_ptr<nyb::NYBURLSession> transport_;
  std::mutex mutex_;
  std::int64_t status_ = 0;
  std::string body_;
};

RefusalKeeper::RefusalKeeper(const std::string& directory)
    : directory_(directory),
      path_(directory_ / kRejectedFileName),
      answers_(std::make_shared<Answers>(nyb::NYBURLSession::sharedSession())) {
  nyb::NYBURLSession::setSharedSession(answers_);
}

RefusalKeeper::~RefusalKeeper() { nyb::NYBURLSession::setSharedSession(answers_->transport()); }

void RefusalKeeper::keep(const SessionHost::Event& event, const nyb::NYBSessionData* data) {
  bool recordRefused = event.kind == SessionHost::EventKind::RecordRejected;
  bool photoRefused = event.kind == SessionHost::EventKind::PhotoRejected;
  if ((!recordRefused && !photoRefused) || !event.record) return;
  bool byService = event.error && event.error->domain() == nyb::kNYBHTTPErrorDomain;
  // A photo the session could not read back has nothing left to keep.
  if (photoRefused && !byService) return;

  std::string label = recordLabel(*event.record);
  nyb::NYBDictionary line{{"refused", recordRefused ? "record" : "photo"}};
  if (byService) line.set("status", event.error->code());
  if (event.error) line.set("error", errorText(*event.error));
  if (byService) line.set("answer", answers_->take(event.error->code()));
  line.set("at", now());
  line.set("record_type", recordTypeName(*event.record));
  line.set("record", event.record->JSONObject());

  std::optional<std::string> photo =
      data ? data->imageFilepathForRecord(event.record) : std::nullopt;
  std::error_code missing;
  if (photo && fs::exists(*photo, missing)) {
    fs::path copy = fs::path(kRejectedPhotoFolder) / (newActivityID() + ".png");
    try {
      // The queued file may be sealed under the data directory's key: the
      // copy is the photo itself, for import to read.
      std::optional<nyb::NYBData> png =
          nyb::NYBImagePNGRepresentation(data->imageForRecord(event.record));
      if (!png) throw std::runtime_error("cannot read " + *photo);
      const std::string bytes(png->view());
      std::error_code ignored;
      fs::create_directory(directory_ / kRejectedPhotoFolder, ignored);
      fs::permissions(directory_ / kRejectedPhotoFolder, fs::perms::owner_all, ignored);
      replaceDurably(directory_ / copy, bytes);
      line.set("image", copy.string());
    } catch (const std::exception& failure) {
      std::cerr << "nymbrel: could not keep the photo of the refused " << label << ": "
                << failure.what() << "\n";
    }
  }

  std::string text = compactJSON(line) + "\n";
  int fd = ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  try {
    if (fd < 0) throw std::runtime_error(systemError("cannot open " + path_.string()));
    if (::fchmod(fd, 0600) != 0) throw std::runtime_error(systemError("cannot protect it"));
    writeAll(fd, text, path_.string());
    if (::fsync(fd) != 0) throw std::runtime_error(systemError("cannot flush it"));
    ::close(fd);
    ++(recordRefused ? recordsKept_ : photosKept_);
  } catch (const std::exception& failure) {
    if (fd >= 0) ::close(fd);
    std::cerr << "nymbrel: could not keep the refused " << label << ": " << failure.what()
              << "; here it is:\nnymbrel: " << text;
  }
}

std::string RefusalKeeper::summary() const {
  std::size_t total = recordsKept_ + photosKept_;
  if (total == 0) return "";
  std::string what;
  if (recordsKept_ > 0) what = plural(recordsKept_, "refused record");
  if (photosKept_ > 0) what += (what.empty() ? "" : " and ") + plural(photosKept_, "refused photo");
  return what + " kept in " + path_.string() + "; when the cause is fixed, send " +
         (total == 1 ? "it" : "them") + " again with: nymbrel import " + path_.string();
}

std::size_t keptRefusalCount(const std::string& documentsDirectory) {
  std::ifstream in(fs::path(documentsDirectory) / kRejectedFileName);
  std::size_t count = 0;
  for (std::string line; std::getline(in, line);) count += line.empty() ? 0 : 1;
  return count;
}

void forgetSentRefusals(const fs::path& file, const std::string& documentsDirectory,
                        std::string_view original, const std::function<bool(std::size_t)>& sent) {
  fs::path folder(documentsDirectory);
  std::error_code error;
  if (!fs::equivalent(file, folder / kRejectedFileName, error)) return;
  try {
    std::ifstream in(file, std::ios::binary);
    std::string current((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // Only this run appends to the file, after what the import read.
    if (!std::string_view(current).starts_with(original)) {
      throw std::runtime_error("it changed while the import ran");
    }
    std::string kept;
    std::vector<fs::path> photos;
    std::size_t number = 0;
    for (std::string_view rest = original; !rest.empty();) {
      auto end = rest.find('\n');
      std::string_view line = rest.substr(0, end == std::string_view::npos ? rest.size() : end + 1);
      rest.remove_prefix(line.size());
      if (!sent(++number)) {
        kept += line;
        continue;
      }
      // Only a copy this tool made is removed, whatever an edited line names.
      NYBDynamicValue entry = nyb::NYBJSONSerialization::JSONObjectWithData(line);
      const nyb::NYBDictionary* fields = entry.dictionary();
      if (fields && (*fields)["image"].isString()) {
        fs::path image((*fields)["image"].stringView());
        if (image.parent_path() == kRejectedPhotoFolder) photos.push_back(folder / image);
      }
    }
    kept += current.substr(original.size());
    if (kept.empty()) {
      if (::unlink(file.c_str()) != 0) throw std::runtime_error(systemError("cannot remove it"));
    } else {
      replaceDurably(file, kept);
    }
    for (const auto& photo : photos) fs::remove(photo, error);
  } catch (const std::exception& failure) {
    std::cerr << "nymbrel: could not remove the sent lines from " << file.string() << ": "
              << failure.what() << "; importing it again sends them twice\n";
  }
}

}  // namespace nymbrel
