// Uploads: sequential postRecord round trips through the whole client (record
// JSON, request, libcurl on the session's thread, answer parsing, model
// making, delivery on the main run loop) to a keep-alive server on loopback,
// against the same POSTs sent with bare libcurl on one reused handle, in the
// same run. Compare the two "time" columns (and items_per_second).
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <stdlib.h>

#include <memory>
#include <string>

#include "NymbrelCore/NYBAPIClient.h"
#include "NymbrelCore/NYBJSONSerialization.h"
#include "NymbrelCore/NYBRunLoop.h"
// The loopback server is built into this program directly: benchmarks do not
// link the test support library.
#include "tests/support/LoopbackServer.cpp"

namespace {

using namespace nyb;
using namespace std::chrono_literals;

constexpr const char* kToken = "bench-token-0123456789";
// N: the same number of sequential round trips for both.
constexpr int kRoundTrips = 3000;

class BenchBiometrics : public NYBRecord {
  NYB_DECLARE_MODEL(BenchBiometrics, NYBRecordClass)
 public:
  NYBRecordType recordType() const override { return NYBRecordTypeBiometrics; }
  NYBDynamicValue heartRate, systolic, diastolic, temperature;
};

const NYBRecordClass& BenchBiometrics::staticClass() {
  static const NYBRecordClass cls({"BenchBiometrics",
                                   &NYBRecord::staticClass(),
                                   [] { return std::make_shared<BenchBiometrics>(); },
                                   NYBPropertyTable::of<BenchBiometrics>()
                                       .field("heartRate", &BenchBiometrics::heartRate)
                                       .field("systolic", &BenchBiometrics::systolic)
                                       .field("diastolic", &BenchBiometrics::diastolic)
                                       .field("temperature", &BenchBiometrics::temperature),
                                   [] {
                                     NYBKeyMap keys = NYBRecord::commonKeyPaths();
                                     keys.insert(keys.end(), {{"heartRate", "heart_rate"},
                                                              {"systolic", "systolic"},
                                                              {"diastolic", "diastolic"},
                                                              {"temperature", "temperature"}});
                                     return keys;
                                   }(),
                                   {}});
  return cls;
}

std::shared_ptr<BenchBiometrics> makeRecord() {
  auto record = std::make_shared<BenchBiometrics>();
  record->setActivityID("bench-activity-0001");
  record->setTimestamp(NYBDate(1456841109));
  record->heartRate = 61;
  record->systolic = 118;
  record->diastolic = 76;
  record->temperature = 36.6;
  record->setComment("after a walk");
  return record;
}

// The server and the client's base URL, made once for the program.
test::LoopbackServer& server() {
  static test::LoopbackServer* const instance = [] {
    auto* s = new test::LoopbackServer;
    nyb::NYBSetRequestBaseURL(s->baseURL() + "/v1");
    // The service's answer: the record back with its identifier.
    auto record = makeRecord();
    record->setRecordID("5f0c6f9e2a");
    NYBDictionary answer{{"biometrics", record->JSONObject()}};
    s->setDefaultResponse(
        test::ScriptedResponse::json(201, *NYBJSONSerialization::dataWithJSONObject(answer)));
    return s;
  }();
  return *instance;
}

void BM_ClientPostRecord(benchmark::State& state) {
  server();
  auto user = std::make_shared<NYBUser>("user-42", "org-7", kToken);
  NYBAPIClient client(user);
  auto record = makeRecord();
  std::size_t failures = 0;
  for (auto _ : state) {
    bool done = false;
    client.postRecord(record, [&](NYBDynamicValue result, std::shared_ptr<NYBError> error) {
      if (error || !result.isObject()) ++failures;
      done = true;
    });
    if (!NYBRunLoop::main().runUntil([&] { return done; }, 10s)) {
      state.SkipWithError("no answer");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["failures"] = static_cast<double>(failures);
}

size_t discard(char*, size_t size, size_t count, void* sink) {
  static_cast<std::string*>(sink)->append(size * count, '\0');
  return size * count;
}

void BM_BareCurlPost(benchmark::State& state) {
  server();
  // The same bytes the client sends: URL, headers and body.
  auto record = makeRecord();
  NYBDictionary body{{"biometrics", record->JSONObject()}, {"authentication_token", kToken}};
  const std::string json = *NYBJSONSerialization::dataWithJSONObject(body);
  const std::string url =
      server().baseURL() + "/v1/organizations/org-7/users/user-42/biometrics.json";

  curl_global_init(CURL_GLOBAL_DEFAULT);
  CURL* easy = curl_easy_init();
  curl_slist* headers = nullptr;
  for (const char* header : {"Accept: application/json", "Nymbrel-Version: 2015-10-01",
                             "X-Nymbrel-Mobile-Token: bench-token-0123456789",
                             "Content-Type: application/json", "Expect:"}) {
    headers = curl_slist_append(headers, header);
  }
  std::string sink;
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, json.c_str());
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(json.size()));
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_TCP_NODELAY, 1L);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &discard);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &sink);
  std::size_t failures = 0;
  for (auto _ : state) {
    sink.clear();
    if (curl_easy_perform(easy) != CURLE_OK) ++failures;
    benchmark::DoNotOptimize(sink.size());
  }
  curl_slist_free_all(headers);
  curl_easy_cleanup(easy);
  state.SetItemsProcessed(state.iterations());
  state.counters["failures"] = static_cast<double>(failures);
}

BENCHMARK(BM_BareCurlPost)->Unit(benchmark::kMicrosecond)->Iterations(kRoundTrips);
BENCHMARK(BM_ClientPostRecord)->Unit(benchmark::kMicrosecond)->Iterations(kRoundTrips);

}  // namespace

BENCHMARK_MAIN();
