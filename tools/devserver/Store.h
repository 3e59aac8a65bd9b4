// SQLite storage of the devserver: records and uploaded media.
//
// Contract: one connection guarded by one mutex, so every member function may be called from
// any thread and each is atomic on its own; a caller that needs several calls to act as one
// (read, then write) serialises them itself. A file path keeps the data across restarts; an
// empty path keeps it in memory. Writes go into one open transaction that a thread of the
// store commits every kCommitInterval, and the destructor commits the rest: every write is
// visible to every later call at once and is in the file after a clean stop, while a crash
// of the process loses at most the last interval's writes (a commit per write cost more than
// serving the request). The WAL journal is flushed to the disk at checkpoints only: a
// development tool, not a vault. Records are kept as their JSON text with their owner, root
// and activity ID; listings come back in insertion order. SQLite failures throw
// std::runtime_error.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace nyb::devserver {

// One user's records of one root.
struct Collection {
  std::string_view organization;
  std::string_view userID;
  std::string_view root;
};

struct RecordRow {
  std::string id;
  std::optional<std::string> activityID;
  std::string json;
};

struct MediaRow {
  std::string id;
  std::string organization;
  std::string userID;
  std::string recordID;
  std::string png;
};

class Store {
 public:
  explicit Store(const std::string& path);
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  // Adds new records, all or none.
  void insert(const Collection& collection, const std::vector<RecordRow>& rows);
  // Stores `row` under its id, replacing the record of that id if there is one.
  void put(const Collection& collection, const RecordRow& row);
  std::optional<RecordRow> find(const Collection& collection, std::string_view id);
  // The most recently added record of the collection with that activity ID.
  std::optional<RecordRow> findByActivity(const Collection& collection,
                                          std::string_view activityID);
  bool remove(const Collection& collection, std::string_view id);
  std::vector<RecordRow> list(const Collection& collection);
  size_t recordCount();

  void putMedia(const MediaRow& media);
  std::optional<MediaRow> media(std::string_view id);

 private:
  class Statement;
  void exec(const char* sql);
  [[noreturn]] void fail(const char* what);

  // Opens the transaction that the next commit ends, unless one is open.
  void beginLocked();
  void commitLocked();
  void commitPeriodically();

  static constexpr std::chrono::milliseconds kCommitInterval{100};

  std::mutex mutex_;
  std::condition_variable stopped_;
  bool stopping_ = false;
  std::thread committer_;
  sqlite3* db_ = nullptr;
  // Prepared once, keyed by their SQL literal, finalised with the connection.
  std::unordered_map<const char*, sqlite3_stmt*> statements_;
};

}  // namespace nyb::devserver
