// The session engine, each figure beside a baseline measured in the same run:
//
// - Submit/N: main-thread cost of one submitRecord() with N records queued
//   (the save it triggers snapshots the queue); beside it the snapshot alone
//   and the model base's shallow copy of the same session data.
// - SaveArchive/N and LoadArchive/N: a save (snapshot, archive, durable
//   write, waited for) and a load of a session of N records, against
//   RawWriteFsyncRename/N and RawRead/N of the same bytes, and the load also
//   against MsgpackUnpack/N: msgpack-cxx unpacking the same bytes into its
//   generic object tree.
// - DrainQueue/N: the main thread's share of sending a backlog of N records,
//   per record (take the head, remove it, snapshot for the save), read
//   against DrainQueue/1000: draining is linear when the figure stays flat.
// - DrainPhotoMap/N: the same with a photo mapped to every queued record, so
//   that each step also drops the head's mapping; read against
//   DrainPhotoMap/1000 likewise.
// - QueueMemory/N: the peak resident memory that loading an archive of N
//   records, reading its head and saving it again adds, beside the archive's
//   size (peak_ratio = peak / archive).
// - UploadBacklog: 10,000 queued records uploaded to nymbrel-devserver one at
//   a time, against CurlBacklog: the same bodies POSTed with bare libcurl on
//   one keep-alive handle, with the same headers and accepted encodings. The
//   devserver keeps its records in a file database; it is found through
//   NYB_DEVSERVER or next to this program (../tools/devserver/nymbrel-devserver).
// - SubmitPhoto: submitRecord(record, image) of a 4032x3024 photo-like image
//   (the main thread's share; whole_ms adds the writes it queued), against
//   LibpngDefault: libpng's default encoder writing the same pixels once.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <fcntl.h>
#include <malloc.h>
#include <png.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <msgpack.hpp>
#include <random>
#include <string>

#include "BenchSession.h"

extern char** environ;

namespace {

using namespace nyb;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

using namespace nyb::bench;

// ---- Main-thread cost of a submission -----------------------------------------

void Submit(benchmark::State& state) {
  auto session = sessionWith(state.range(0));
  long next = state.range(0);
  for (auto _ : state) {
    session->submitRecord(weight(next++));
    state.PauseTiming();
    session->waitForArchiveWrites();  // the next submission starts a write again
    state.ResumeTiming();
  }
  finish(session);
}
BENCHMARK(Submit)
    ->Arg(1000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10);

void SnapshotOnly(benchmark::State& state) {
  auto session = sessionWith(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(session->sessionData()->copyAs<NYBSessionData>());
  finish(session);
}
BENCHMARK(SnapshotOnly)
    ->Arg(1000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10);

void ShallowCopy(benchmark::State& state) {
  auto session = sessionWith(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(session->sessionData()->copy());
  finish(session);
}
BENCHMARK(ShallowCopy)
    ->Arg(1000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(10);

// ---- Save and load ------------------------------------------------------------

fs::path archive() { return documents() / "sessionData"; }

void SaveArchive(benchmark::State& state) {
  auto session = sessionWith(state.range(0));
  for (auto _ : state) {
    session->saveSessionData();
    session->waitForArchiveWrites();
  }
  state.counters["bytes"] = static_cast<double>(fs::file_size(archive()));
  finish(session);
}
BENCHMARK(SaveArchive)
    ->Arg(1000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

void LoadArchive(benchmark::State& state) {
  auto session = sessionWith(state.range(0));
  loadArchiveLoop(state, session);
  finish(session);
}
BENCHMARK(LoadArchive)
    ->Arg(1000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

// The bytes of an archive of N records, as the session writes them.
std::string archiveBytes(long count) {
  auto session = sessionWith(count);
  std::ifstream file(archive(), std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  finish(session);
  return bytes;
}

void RawWriteFsyncRename(benchmark::State& state) {
  const std::string bytes = archiveBytes(state.range(0));
  const fs::path target = documents() / "raw";
  const fs::path temporary = documents() / ".raw.tmp";
  for (auto _ : state) {
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    for (std::size_t done = 0; done < bytes.size();) {
      const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
      if (n <= 0) std::abort();
      done += static_cast<std::size_t>(n);
    }
    ::fsync(fd);
    ::close(fd);
    ::rename(temporary.c_str(), target.c_str());
    const int dir = ::open(documents().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::fsync(dir);
    ::close(dir);
  }
  state.counters["bytes"] = static_cast<double>(bytes.size());
}
BENCHMARK(RawWriteFsyncRename)
    ->Arg(1000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

void RawRead(benchmark::State& state) {
  const std::string bytes = archiveBytes(state.range(0));
  const fs::path target = documents() / "raw";
  std::ofstream(target, std::ios::binary | std::ios::trunc) << bytes;
  for (auto _ : state) {
    std::ifstream file(target, std::ios::binary | std::ios::ate);
    std::string read(static_cast<std::size_t>(file.tellg()), '\0');
    file.seekg(0);
    file.read(read.data(), static_cast<std::streamsize>(read.size()));
    benchmark::DoNotOptimize(read);
  }
}
BENCHMARK(RawRead)
    ->Arg(1000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

// Unpacks what msgpack-cxx can see of the archive as its generic tree, in
// one zone: an object is an ext whose payload holds its class name and keyed
// map, so those are unpacked too, as the archive's own reader walks them.
void unpackTree(const msgpack::object& value, msgpack::zone& zone) {
  constexpr std::int8_t kObjectExt = 5;
  if (value.type == msgpack::type::ARRAY) {
    for (std::uint32_t i = 0; i < value.via.array.size; ++i)
      unpackTree(value.via.array.ptr[i], zone);
  } else if (value.type == msgpack::type::MAP) {
    for (std::uint32_t i = 0; i < value.via.map.size; ++i) {
      unpackTree(value.via.map.ptr[i].key, zone);
      unpackTree(value.via.map.ptr[i].val, zone);
    }
  } else if (value.type == msgpack::type::EXT && value.via.ext.type() == kObjectExt) {
    std::size_t offset = 0;
    msgpack::unpack(zone, value.via.ext.data(), value.via.ext.size, offset);  // the class name
    unpackTree(msgpack::unpack(zone, value.via.ext.data(), value.via.ext.size, offset), zone);
  }
}

void MsgpackUnpack(benchmark::State& state) {
  const std::string bytes = archiveBytes(state.range(0));
  constexpr std::size_t kHeader = 5;  // "NYBA" and the version
  for (auto _ : state) {
    msgpack::zone zone;
    std::size_t offset = 0;
    unpackTree(msgpack::unpack(zone, bytes.data() + kHeader, bytes.size() - kHeader, offset), zone);
    benchmark::DoNotOptimize(&zone);
  }
}
BENCHMARK(MsgpackUnpack)
    ->Arg(1000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

// Takes the head, removes it (and its photo's mapping) and snapshots for the
// save, until the queue is empty.
void drainBacklog(benchmark::State& state, bool withPhotos) {
  for (auto _ : state) {
    state.PauseTiming();
    auto data = std::make_shared<NYBSessionData>();
    for (const auto& record : records(state.range(0))) {
      data->addRecord(record);
      if (withPhotos) data->addImageFilename(record, std::to_string(record->hash()) + ".png");
    }
    state.ResumeTiming();
    while (auto head = data->peekNextRecord()) {
      if (withPhotos) data->removeImageFilename(head);
      data->removeNextRecordIfMatch(head);
      benchmark::DoNotOptimize(data->snapshot());
    }
  }
  state.counters["us/record"] = benchmark::Counter(
      static_cast<double>(state.range(0)) * 1e-6,
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void DrainQueue(benchmark::State& state) { drainBacklog(state, false); }
BENCHMARK(DrainQueue)
    ->Arg(1000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

void DrainPhotoMap(benchmark::State& state) { drainBacklog(state, true); }
BENCHMARK(DrainPhotoMap)
    ->Arg(1000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

double statusMegabytes(std::string_view field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(field, 0) == 0) return std::stod(line.substr(field.size() + 1)) / 1024.0;
  }
  return 0;
}

void QueueMemory(benchmark::State& state) {
  const std::string bytes = archiveBytes(state.range(0));
  double peak = 0;
  for (auto _ : state) {
    auto reachability = std::make_shared<NYBFakeReachabilitySource>(kNYBReachabilityFlagsReachable);
    auto session = NYBSession::sessionWithConfiguration({reachability});
    nyb::session::Testing::setProcessingRecord(*session, weight(-1));  // sends nothing
    std::ofstream(archive(), std::ios::binary | std::ios::trunc) << bytes;
    ::malloc_trim(0);
    const double before = statusMegabytes("VmRSS:");
    std::ofstream("/proc/self/clear_refs") << "5";  // restarts the peak from here
    session->loadSession();
    benchmark::DoNotOptimize(session->sessionData()->peekNextRecord());
    session->saveSessionData();
    session->waitForArchiveWrites();
    peak = statusMegabytes("VmHWM:") - before;
    finish(session);
  }
  const double archiveMegabytes = static_cast<double>(bytes.size()) / (1024.0 * 1024.0);
  state.counters["peak_MB"] = peak;
  state.counters["archive_MB"] = archiveMegabytes;
  state.counters["peak_ratio"] = peak / archiveMegabytes;
}
BENCHMARK(QueueMemory)->Arg(100'000)->Unit(benchmark::kMillisecond)->Iterations(1);

// ---- Uploads to the devserver ---------------------------------------------------

constexpr long kBacklog = 10'000;

std::string devserverPath() {
  if (const char* given = std::getenv("NYB_DEVSERVER")) return given;
  char self[PATH_MAX] = {};
  const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) return "";
  return (fs::path(std::string(self, static_cast<std::size_t>(n))).parent_path().parent_path() /
          "tools/devserver/nymbrel-devserver")
      .string();
}

// nymbrel-devserver on loopback for the whole run; its base URL, or "" when
// it cannot be started. The library reads the base URL once, so it is set
// before any request is made.
const std::string& devserverBaseURL() {
  static const std::string base = []() -> std::string {
    std::string path = devserverPath();
    if (path.empty() || !fs::exists(path)) return "";
    // A file database, as a developer runs it: every record it acknowledges is
    // stored, and kept across a clean stop.
    const std::string database =
        (documents().parent_path() / (documents().filename().string() + "-devserver.db")).string();
    std::vector<std::string> arguments = {path,           "--port", "0",     "--user",
                                          "acme:u1:tok1", "--db",   database};
    std::vector<char*> argv;
    for (auto& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    int out[2];
    if (::pipe(out) != 0) return "";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    static pid_t pid = -1;
    const int rc = ::posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    if (rc != 0) return "";
    static std::string removeAtExit = database;
    std::atexit([] {
      ::kill(pid, SIGTERM);
      ::waitpid(pid, nullptr, 0);
      for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(removeAtExit + suffix);
    });
    std::string line;
    char c = 0;
    pollfd ready{out[0], POLLIN, 0};
    while (::poll(&ready, 1, 30'000) > 0 && ::read(out[0], &c, 1) == 1 && c != '\n') line += c;
    ::close(out[0]);
    if (!line.empty()) nyb::NYBSetRequestBaseURL(line);
    return line;
  }();
  return base;
}

void UploadBacklog(benchmark::State& state) {
  if (devserverBaseURL().empty()) {
    state.SkipWithError("nymbrel-devserver not found (set NYB_DEVSERVER)");
    return;
  }
  for (auto _ : state) {
    state.PauseTiming();
    auto session = sessionWith(kBacklog, /*idle=*/true);
    state.ResumeTiming();
    session->processQueue();
    NYBRunLoop::main().runUntil([&] { return !session->sessionData()->hasRecords(); }, 600s);
    session->waitForArchiveWrites();
    state.PauseTiming();
    if (session->sessionData()->hasRecords()) state.SkipWithError("the backlog did not drain");
    session->endSession();
    state.ResumeTiming();
  }
  state.counters["records/s"] = benchmark::Counter(static_cast<double>(kBacklog),
                                                   benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(UploadBacklog)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

std::size_t discard(char*, std::size_t size, std::size_t count, void*) { return size * count; }

void CurlBacklog(benchmark::State& state) {
  if (devserverBaseURL().empty()) {
    state.SkipWithError("nymbrel-devserver not found (set NYB_DEVSERVER)");
    return;
  }
  std::vector<std::string> bodies;
  for (long i = 0; i < kBacklog; ++i) {
    bodies.push_back(*NYBJSONSerialization::dataWithJSONObject(
        NYBDictionary{{"weight", weight(i)->JSONObject()}, {"authentication_token", "tok1"}}));
  }
  const std::string url = devserverBaseURL() + "/organizations/acme/users/u1/weight.json";
  for (auto _ : state) {
    CURL* curl = curl_easy_init();
    curl_slist* headers = nullptr;
    for (const char* header : {"Accept: application/json", "Content-Type: application/json",
                               "Nymbrel-Version: 2015-10-01", "X-Nymbrel-Mobile-Token: tok1"}) {
      headers = curl_slist_append(headers, header);
    }
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, discard);
    // What the library's URL session asks for.
    curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "gzip");
    for (const std::string& body : bodies) {
      curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
      curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
      if (curl_easy_perform(curl) != CURLE_OK) state.SkipWithError("a POST failed");
    }
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
  }
  state.counters["records/s"] = benchmark::Counter(static_cast<double>(kBacklog),
                                                   benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(CurlBacklog)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

// ---- Photos -----------------------------------------------------------------------

constexpr std::size_t kPhotoWidth = 4032, kPhotoHeight = 3024;

// Smooth gradients with sensor-like noise: compresses as a photo does, not
// as flat colour or random bytes would.
const std::shared_ptr<const NYBImage>& photo() {
  static const std::shared_ptr<const NYBImage> image = [] {
    std::vector<std::uint8_t> pixels(kPhotoWidth * kPhotoHeight * 4);
    std::mt19937 random(7);
    for (std::size_t y = 0; y < kPhotoHeight; ++y) {
      for (std::size_t x = 0; x < kPhotoWidth; ++x) {
        const std::size_t i = (y * kPhotoWidth + x) * 4;
        const int noise = static_cast<int>(random() % 7);
        pixels[i] = static_cast<std::uint8_t>(x * 255 / kPhotoWidth + noise);
        pixels[i + 1] = static_cast<std::uint8_t>(y * 255 / kPhotoHeight + noise);
        pixels[i + 2] = static_cast<std::uint8_t>((x + y) / 32 + noise);
        pixels[i + 3] = 255;
      }
    }
    return std::make_shared<const NYBImage>(kPhotoWidth, kPhotoHeight, std::move(pixels));
  }();
  return image;
}

void SubmitPhoto(benchmark::State& state) {
  photo();
  auto session = sessionWith(0);
  long next = 0;
  std::chrono::steady_clock::duration whole{};
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    session->submitRecord(weight(next++), photo());
    state.PauseTiming();
    session->waitForArchiveWrites();
    whole += std::chrono::steady_clock::now() - start;
    state.ResumeTiming();
  }
  // Encoding and every durable write, wherever they ran.
  state.counters["whole_ms"] = std::chrono::duration<double, std::milli>(whole).count() /
                               static_cast<double>(state.iterations());
  finish(session);
}
BENCHMARK(SubmitPhoto)->Unit(benchmark::kMillisecond)->Iterations(3);

void LibpngDefault(benchmark::State& state) {
  const NYBImage& image = *photo();
  std::vector<png_bytep> rows(kPhotoHeight);
  for (std::size_t y = 0; y < kPhotoHeight; ++y) {
    rows[y] = const_cast<png_bytep>(image.pixels().data() + y * kPhotoWidth * 4);
  }
  std::size_t size = 0;
  for (auto _ : state) {
    std::vector<std::uint8_t> out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(
        png, &out,
        [](png_structp p, png_bytep data, png_size_t length) {
          auto* sink = static_cast<std::vector<std::uint8_t>*>(png_get_io_ptr(p));
          sink->insert(sink->end(), data, data + length);
        },
        nullptr);
    png_set_IHDR(png, info, kPhotoWidth, kPhotoHeight, 8, PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_rows(png, info, rows.data());
    png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    png_destroy_write_struct(&png, &info);
    size = out.size();
  }
  state.counters["bytes"] = static_cast<double>(size);
}
BENCHMARK(LibpngDefault)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
