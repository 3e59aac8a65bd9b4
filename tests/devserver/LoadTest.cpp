// Load from a second process: every request answered, every record stored exactly once,
// counted in the database file itself.
#include "DevServer.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

namespace nyb::test {
namespace {

constexpr int kSequential = 10000;
constexpr int kClients = 4;
constexpr int kPerClient = 2500;

// Posts `count` records with activity IDs prefix-0...; returns how many were answered 201.
int postMany(const DevServer& server, const std::string& prefix, int count) {
  auto http = server.client();
  int created = 0;
  for (int i = 0; i < count; ++i) {
    auto res = http->Post(collectionPath("weight"),
                          wrapped("weight", weightRecord(prefix + std::to_string(i), i)),
                          "application/json");
    if (res && res->status == 201) ++created;
  }
  return created;
}

double perSecond(int requests, std::chrono::steady_clock::duration elapsed) {
  return requests / std::chrono::duration<double>(elapsed).count();
}

TEST(LoadTest, AnswersEveryRequestAndStoresEachRecordOnce) {
  ScratchDir dir;
  const std::string db = (dir.path() / "load.sqlite").string();
  DevServer server({"--db", db});

  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(postMany(server, "seq-", kSequential), kSequential);
  auto sequential = std::chrono::steady_clock::now() - start;

  start = std::chrono::steady_clock::now();
  std::atomic<int> created{0};
  std::vector<std::thread> clients;
  for (int c = 0; c < kClients; ++c) {
    clients.emplace_back(
        [&, c] { created += postMany(server, "client" + std::to_string(c) + "-", kPerClient); });
  }
  for (auto& client : clients) client.join();
  auto concurrent = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(created.load(), kClients * kPerClient);

  std::printf(
      "[ load     ] %d sequential POSTs: %.0f requests/s; %d clients x %d: %.0f requests/s\n",
      kSequential, perSecond(kSequential, sequential), kClients, kPerClient,
      perSecond(kClients * kPerClient, concurrent));
  ASSERT_EQ(server.stop(), 0);

  sqlite3* handle = nullptr;
  ASSERT_EQ(sqlite3_open_v2(db.c_str(), &handle, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
  sqlite3_stmt* query = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(handle,
                               "SELECT COUNT(*), COUNT(DISTINCT id), COUNT(DISTINCT activity_id),"
                               " SUM(activity_id LIKE 'seq-%') FROM records",
                               -1, &query, nullptr),
            SQLITE_OK);
  ASSERT_EQ(sqlite3_step(query), SQLITE_ROW);
  const int total = kSequential + kClients * kPerClient;
  EXPECT_EQ(sqlite3_column_int(query, 0), total);
  EXPECT_EQ(sqlite3_column_int(query, 1), total);
  EXPECT_EQ(sqlite3_column_int(query, 2), total);
  EXPECT_EQ(sqlite3_column_int(query, 3), kSequential);
  sqlite3_finalize(query);
  sqlite3_close(handle);
}

}  // namespace
}  // namespace nyb::test
