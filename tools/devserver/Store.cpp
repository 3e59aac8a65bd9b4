#include "Store.h"

#include <sqlite3.h>

#include <cstdio>
#include <stdexcept>

namespace nyb::devserver {

namespace {

std::string columnText(sqlite3_stmt* statement, int column) {
  auto text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
  return text == nullptr
             ? std::string()
             : std::string(text, static_cast<size_t>(sqlite3_column_bytes(statement, column)));
}

}  // namespace

// A cached prepared statement, bound and stepped under the store's mutex; reset when done.
class Store::Statement {
 public:
  Statement(Store& store, const char* sql) : store_(store) {
    auto& statements = store.statements_;
    auto it = statements.find(sql);
    if (it == statements.end()) {
      sqlite3_stmt* prepared = nullptr;
      if (sqlite3_prepare_v2(store.db_, sql, -1, &prepared, nullptr) != SQLITE_OK)
        store.fail("prepare");
      it = statements.emplace(sql, prepared).first;
    }
    statement_ = it->second;
  }
  ~Statement() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& bind(std::string_view text) {
    if (sqlite3_bind_text(statement_, ++index_, text.data(), static_cast<int>(text.size()),
                          SQLITE_TRANSIENT) != SQLITE_OK) {
      store_.fail("bind");
    }
    return *this;
  }
  Statement& bindOptional(const std::optional<std::string>& text) {
    if (text) return bind(std::string_view(*text));
    sqlite3_bind_null(statement_, ++index_);
    return *this;
  }
  Statement& bind(const Collection& collection) {
    return bind(collection.organization).bind(collection.userID).bind(collection.root);
  }
  Statement& bindBlob(std::string_view bytes) {
    if (sqlite3_bind_blob(statement_, ++index_, bytes.data(), static_cast<int>(bytes.size()),
                          SQLITE_TRANSIENT) != SQLITE_OK) {
      store_.fail("bind");
    }
    return *this;
  }

  // True while a row is available.
  bool step() {
    int rc = sqlite3_step(statement_);
    if (rc == SQLITE_ROW) return true;
    if (rc != SQLITE_DONE) store_.fail("step");
    return false;
  }

  RecordRow record() const {
    RecordRow row{columnText(statement_, 0), std::nullopt, columnText(statement_, 2)};
    if (sqlite3_column_type(statement_, 1) != SQLITE_NULL)
      row.activityID = columnText(statement_, 1);
    return row;
  }
  sqlite3_stmt* get() const { return statement_; }

 private:
  Store& store_;
  sqlite3_stmt* statement_ = nullptr;
  int index_ = 0;
};

Store::Store(const std::string& path) {
  const char* name = path.empty() ? ":memory:" : path.c_str();
  // The store's own mutex serialises the connection, so SQLite's is not needed.
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  if (sqlite3_open_v2(name, &db_, flags, nullptr) != SQLITE_OK) {
    std::string message = db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory";
    sqlite3_close(db_);
    throw std::runtime_error("cannot open database " + std::string(name) + ": " + message);
  }
  try {
    sqlite3_busy_timeout(db_, 5000);
    if (!path.empty()) {
      exec("PRAGMA journal_mode=WAL");
      exec("PRAGMA synchronous=NORMAL");
    }
    exec(
        "CREATE TABLE IF NOT EXISTS records ("
        " id TEXT PRIMARY KEY, organization TEXT NOT NULL, user_id TEXT NOT NULL,"
        " root TEXT NOT NULL, activity_id TEXT, body TEXT NOT NULL)");
    exec(
        "CREATE INDEX IF NOT EXISTS records_by_activity"
        " ON records (organization, user_id, root, activity_id)");
    exec(
        "CREATE TABLE IF NOT EXISTS media ("
        " id TEXT PRIMARY KEY, organization TEXT NOT NULL, user_id TEXT NOT NULL,"
        " record_id TEXT NOT NULL, png BLOB NOT NULL)");
  } catch (...) {
    sqlite3_close(db_);
    throw;
  }
  committer_ = std::thread([this] { commitPeriodically(); });
}

Store::~Store() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  stopped_.notify_all();
  committer_.join();
  std::lock_guard lock(mutex_);
  try {
    commitLocked();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "nymbrel-devserver: %s\n", e.what());
  }
  for (auto& [sql, statement] : statements_) sqlite3_finalize(statement);
  sqlite3_close(db_);
}

void Store::beginLocked() {
  if (sqlite3_get_autocommit(db_) == 0) return;
  exec("BEGIN IMMEDIATE");
}

void Store::commitLocked() {
  if (sqlite3_get_autocommit(db_) == 0) exec("COMMIT");
}

void Store::commitPeriodically() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    stopped_.wait_for(lock, kCommitInterval);
    try {
      commitLocked();
    } catch (const std::exception& e) {
      // Tried again at the next interval and at the stop; the writes stay visible meanwhile.
      std::fprintf(stderr, "nymbrel-devserver: %s\n", e.what());
    }
  }
}

void Store::exec(const char* sql) {
  char* error = nullptr;
  if (sqlite3_exec(db_, sql, nullptr, nullptr, &error) != SQLITE_OK) {
    std::string message = error != nullptr ? error : "unknown error";
    sqlite3_free(error);
    throw std::runtime_error(std::string("SQLite: ") + message + " in " + sql);
  }
}

void Store::fail(const char* what) {
  throw std::runtime_error(std::string("SQLite ") + what + ": " + sqlite3_errmsg(db_));
}

void Store::insert(const Collection& collection, const std::vector<RecordRow>& rows) {
  std::lock_guard lock(mutex_);
  beginLocked();
  exec("SAVEPOINT rows");
  try {
    for (const auto& row : rows) {
      Statement statement(*this,
                          "INSERT INTO records (organization, user_id, root, id, activity_id, body)"
                          " VALUES (?, ?, ?, ?, ?, ?)");
      statement.bind(collection).bind(row.id).bindOptional(row.activityID).bind(row.json).step();
    }
    exec("RELEASE rows");
  } catch (...) {
    exec("ROLLBACK TO rows");
    exec("RELEASE rows");
    throw;
  }
}

void Store::put(const Collection& collection, const RecordRow& row) {
  std::lock_guard lock(mutex_);
  beginLocked();
  // An UPDATE keeps the row's place in the listing; an unknown id is inserted.
  Statement update(*this,
                   "UPDATE records SET activity_id = ?, body = ?"
                   " WHERE organization = ? AND user_id = ? AND root = ? AND id = ?");
  update.bindOptional(row.activityID).bind(row.json).bind(collection).bind(row.id).step();
  if (sqlite3_changes(db_) > 0) return;
  Statement insert(*this,
                   "INSERT INTO records (organization, user_id, root, id, activity_id, body)"
                   " VALUES (?, ?, ?, ?, ?, ?)");
  insert.bind(collection).bind(row.id).bindOptional(row.activityID).bind(row.json).step();
}

std::optional<RecordRow> Store::find(const Collection& collection, std::string_view id) {
  std::lock_guard lock(mutex_);
  Statement statement(*this,
                      "SELECT id, activity_id, body FROM records"
                      " WHERE organization = ? AND user_id = ? AND root = ? AND id = ?");
  statement.bind(collection).bind(id);
  if (!statement.step()) return std::nullopt;
  return statement.record();
}

std::optional<RecordRow> Store::findByActivity(const Collection& collection,
                                               std::string_view activityID) {
  std::lock_guard lock(mutex_);
  Statement statement(*this,
                      "SELECT id, activity_id, body FROM records"
                      " WHERE organization = ? AND user_id = ? AND root = ? AND activity_id = ?"
                      " ORDER BY rowid DESC LIMIT 1");
  statement.bind(collection).bind(activityID);
  if (!statement.step()) return std::nullopt;
  return statement.record();
}

bool Store::remove(const Collection& collection, std::string_view id) {
  std::lock_guard lock(mutex_);
  beginLocked();
  Statement statement(*this,
                      "DELETE FROM records"
                      " WHERE organization = ? AND user_id = ? AND root = ? AND id = ?");
  statement.bind(collection).bind(id).step();
  return sqlite3_changes(db_) > 0;
}

std::vector<RecordRow> Store::list(const Collection& collection) {
  std::lock_guard lock(mutex_);
  Statement statement(*this,
                      "SELECT id, activity_id, body FROM records"
                      " WHERE organization = ? AND user_id = ? AND root = ? ORDER BY rowid");
  statement.bind(collection);
  std::vector<RecordRow> rows;
  while (statement.step()) rows.push_back(statement.record());
  return rows;
}

size_t Store::recordCount() {
  std::lock_guard lock(mutex_);
  Statement statement(*this, "SELECT COUNT(*) FROM records");
  statement.step();
  return static_cast<size_t>(sqlite3_column_int64(statement.get(), 0));
}

void Store::putMedia(const MediaRow& media) {
  std::lock_guard lock(mutex_);
  beginLocked();
  Statement statement(*this,
                      "INSERT INTO media (id, organization, user_id, record_id, png)"
                      " VALUES (?, ?, ?, ?, ?)");
  statement.bind(media.id).bind(media.organization).bind(media.userID).bind(media.recordID);
  statement.bindBlob(media.png).step();
}

std::optional<MediaRow> Store::media(std::string_view id) {
  std::lock_guard lock(mutex_);
  Statement statement(*this,
                      "SELECT id, organization, user_id, record_id, png FROM media WHERE id = ?");
  statement.bind(id);
  if (!statement.step()) return std::nullopt;
  auto* s = statement.get();
  auto blob = static_cast<const char*>(sqlite3_column_blob(s, 4));
  return MediaRow{
      columnText(s, 0), columnText(s, 1), columnText(s, 2), columnText(s, 3),
      std::string(blob == nullptr ? "" : blob, static_cast<size_t>(sqlite3_column_bytes(s, 4)))};
}

}  // namespace nyb::devserver
