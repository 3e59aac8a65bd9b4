// Fault injection: rules that make requests of the REST interface fail on purpose.
//
// Contract: a rule picks requests (all of them, or those of one method) and does, in this
// order: wait `delay_ms`; then answer `status` with `body` instead of serving the request,
// or close the connection without any answer (`close`), or, with neither, serve it
// normally. A rule takes the next `count` requests it picks, or each with probability
// `fraction` drawn from its own generator seeded with `seed` (so a run is reproducible for
// a given order of requests), or every request when it has neither. Rules are tried in the
// order they were added; the first that takes a request decides. clear() drops them all.
// Every member function is thread-safe; wait() returns early once stop() is called.
#pragma once

#include <rapidjson/document.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace nyb::devserver {

struct FaultRule {
  std::optional<int> status;
  std::optional<std::string> body;  // sent as is; a JSON body of its own when absent
  std::chrono::milliseconds delay{0};
  bool close = false;
  std::optional<std::uint64_t> count;
  std::optional<double> fraction;
  std::uint64_t seed = 0;
  std::string method;  // empty: any method
};

// From the control endpoint's JSON: {"status": 503, "count": 2}, {"close": true,
// "fraction": 0.1, "seed": 7}, {"delay_ms": 250, "method": "POST"} ...
// Throws std::invalid_argument on unknown keys, wrong types or meaningless combinations.
FaultRule parseFaultRule(const rapidjson::Value& json);

// From the command line: the same keys as "key=value" items separated by commas, "close"
// alone, and "body=" last since it runs to the end: "status=500,count=1,body={\"a\":1}".
FaultRule parseFaultArgument(std::string_view text);

// What to do with one request.
struct FaultAction {
  enum class Kind { Serve, Answer, Close };
  Kind kind = Kind::Serve;
  std::chrono::milliseconds delay{0};
  int status = 0;
  std::string body;
  std::string contentType;
};

class Faults {
 public:
  int add(const FaultRule& rule);  // returns the rule's id
  void clear();

  // The action for the next request of `method`, or nullopt when no rule takes it.
  std::optional<FaultAction> take(std::string_view method);

  // {"faults": [{"id": .., the rule's keys .., "remaining": .., "hits": ..}, ...]}
  std::string describe() const;

  // Sleeps for `delay` unless stopped; false when cut short by stop().
  bool wait(std::chrono::milliseconds delay);
  void stop();

 private:
  struct Entry {
    int id = 0;
    FaultRule rule;
    std::mt19937_64 random;
    std::uint64_t hits = 0;
  };

  mutable std::mutex mutex_;
  std::condition_variable stopped_;
  bool stopping_ = false;
  int nextID_ = 1;
  std::vector<Entry> entries_;
};

}  // namespace nyb::devserver
