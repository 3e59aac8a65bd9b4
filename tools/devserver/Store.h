// SQLite storage of the devserver: records and uploaded media.
//
// Contract: one connection guarded by one mutex, so every member function may be called from
// any thread and each is atomic on its own; a caller that needs several calls to act as one
// (read, then write) serialises them itself. A file path keeps the data across restarts
// (WAL journal, no fsync per commit: a development tool, not a vault); an empty path keeps
// it in memory. Records are kept as their JSON text with their owner, root and activity ID;
// listings come back in insertion order. SQLite failures throw std::runtime_error.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
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

  std::mutex mutex_;
  sqlite3* db_ = nullptr;
  // Prepared once, keyed by their SQL literal, finalised with the connection.
  std::unordered_map<const char*, sqlite3_stmt*> statements_;
};

}  // namespace nyb::devserver
