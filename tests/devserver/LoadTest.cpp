// Concurrent clients: every request answered, every record stored exactly once, counted in
// the database file itself.
#include "DevServer.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <atomic>
#include <thread>

namespace nyb::test {
namespace {

constexpr int kClients = 4;
constexpr int kPerClient = 1000;

TEST(LoadTest, AnswersEveryRequestAndStoresEachRecordOnce) {
  ScratchDir dir;
  const std::string db = (dir.path() / "load.sqlite").string();
  DevServer server({"--db", db});
  std::atomic<int> created{0};
  std::vector<std::thread> clients;
  for (int c = 0; c < kClients; ++c) {
    clients.emplace_back([&, c] {
      auto http = server.client();
      for (int i = 0; i < kPerClient; ++i) {
        const std::string id = "client" + std::to_string(c) + "-" + std::to_string(i);
        auto res = http->Post(collectionPath("weight"), wrapped("weight", weightRecord(id, i)),
                              "application/json");
        if (res && res->status == 201) ++created;
      }
    });
  }
  for (auto& client : clients) client.join();
  EXPECT_EQ(created.load(), kClients * kPerClient);
  ASSERT_EQ(server.stop(), 0);

  sqlite3* handle = nullptr;
  ASSERT_EQ(sqlite3_open_v2(db.c_str(), &handle, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
  sqlite3_stmt* query = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(handle,
                               "SELECT COUNT(*), COUNT(DISTINCT id), COUNT(DISTINCT activity_id)"
                               " FROM records",
                               -1, &query, nullptr),
            SQLITE_OK);
  ASSERT_EQ(sqlite3_step(query), SQLITE_ROW);
  const int total = kClients * kPerClient;
  EXPECT_EQ(sqlite3_column_int(query, 0), total);
  EXPECT_EQ(sqlite3_column_int(query, 1), total);
  EXPECT_EQ(sqlite3_column_int(query, 2), total);
  sqlite3_finalize(query);
  sqlite3_close(handle);
}

}  // namespace
}  // namespace nyb::test
