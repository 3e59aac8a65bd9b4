// Uploads: sequential postRecord round trips through the whole client (record
// JSON, request, libcurl on the session's thread, answer parsing, model
// making, delivery on the main run loop) to a keep-alive server on loopback,
// against the same POSTs sent with bare libcurl on one reused handle, in the
// same run. Compare the two "time" columns (and items_per_second), or read
// the ratio of ClientAgainstBareCurl, which alternates the two.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
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

// One postRecord, its answer delivered on the main run loop; false when none came.
bool postThroughClient(NYBAPIClient& client, const std::shared_ptr<BenchBiometrics>& record,
                       std::size_t& failures) {
  bool done = false;
  client.postRecord(record, [&](NYBDynamicValue result, std::shared_ptr<NYBError> error) {
    if (error || !result.isObject()) ++failures;
    done = true;
  });
  return NYBRunLoop::main().runUntil([&] { return done; }, 10s);
}

void BM_ClientPostRecord(benchmark::State& state) {
  server();
  auto user = std::make_shared<NYBUser>("user-42", "org-7", kToken);
  NYBAPIClient client(user);
  auto record = makeRecord();
  std::size_t failures = 0;
  for (auto _ : state) {
    if (!postThroughClient(client, record, failures)) {
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

// Bare libcurl on one reused handle, sending the same bytes the client sends:
// URL, headers and body.
class BareCurl {
 public:
  BareCurl() {
    auto record = makeRecord();
    NYBDictionary body{{"biometrics", record->JSONObject()}, {"authentication_token", kToken}};
    json_ = *NYBJSONSerialization::dataWithJSONObject(body);
    url_ = server().baseURL() + "/v1/organizations/org-7/users/user-42/biometrics.json";
    curl_global_init(CURL_GLOBAL_DEFAULT);
    easy_ = curl_easy_init();
    for (const char* header : {"Accept: application/json", "Nymbrel-Version: 2015-10-01",
                               "X-Nymbrel-Mobile-Token: bench-token-0123456789",
                               "Content-Type: application/json", "Expect:"}) {
      headers_ = curl_slist_append(headers_, header);
    }
    curl_easy_setopt(easy_, CURLOPT_URL, url_.c_str());
    curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headers_);
    curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, json_.c_str());
    curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(json_.size()));
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy_, CURLOPT_TCP_NODELAY, 1L);
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &discard);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, &sink_);
  }
  ~BareCurl() {
    curl_slist_free_all(headers_);
    curl_easy_cleanup(easy_);
  }
  BareCurl(const BareCurl&) = delete;
  BareCurl& operator=(const BareCurl&) = delete;

  bool post() {
    sink_.clear();
    const bool ok = curl_easy_perform(easy_) == CURLE_OK;
    benchmark::DoNotOptimize(sink_.size());
    return ok;
  }

 private:
  std::string json_, url_, sink_;
  CURL* easy_ = nullptr;
  curl_slist* headers_ = nullptr;
};

void BM_BareCurlPost(benchmark::State& state) {
  BareCurl curl;
  std::size_t failures = 0;
  for (auto _ : state) {
    if (!curl.post()) ++failures;
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["failures"] = static_cast<double>(failures);
}

// The two alternating, one round trip each per iteration, so that a shared
// machine's changing load weighs on both alike: "ratio" is the client's time
// over bare libcurl's.
void BM_ClientAgainstBareCurl(benchmark::State& state) {
  BareCurl curl;
  auto user = std::make_shared<NYBUser>("user-42", "org-7", kToken);
  NYBAPIClient client(user);
  auto record = makeRecord();
  using Clock = std::chrono::steady_clock;
  Clock::duration bare{}, ours{};
  std::size_t failures = 0;
  for (auto _ : state) {
    const auto start = Clock::now();
    if (!curl.post()) ++failures;
    const auto middle = Clock::now();
    if (!postThroughClient(client, record, failures)) {
      state.SkipWithError("no answer");
      break;
    }
    bare += middle - start;
    ours += Clock::now() - middle;
  }
  const auto perCall = [&](Clock::duration total) {
    return std::chrono::duration<double, std::micro>(total).count() /
           static_cast<double>(std::max<std::int64_t>(state.iterations(), 1));
  };
  state.counters["bare_us"] = perCall(bare);
  state.counters["client_us"] = perCall(ours);
  state.counters["ratio"] = perCall(ours) / std::max(perCall(bare), 1e-9);
  state.counters["failures"] = static_cast<double>(failures);
}

BENCHMARK(BM_BareCurlPost)->Unit(benchmark::kMicrosecond)->Iterations(kRoundTrips);
BENCHMARK(BM_ClientPostRecord)->Unit(benchmark::kMicrosecond)->Iterations(kRoundTrips);
BENCHMARK(BM_ClientAgainstBareCurl)->Unit(benchmark::kMicrosecond)->Iterations(kRoundTrips);

}  // namespace

BENCHMARK_MAIN();
