// The generic model mapping against a direct hand-written RapidJSON mapping of
// the same record-sized object (20 properties, one date through a transformer),
// and keyed archiving per object.
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <charconv>
#include <optional>
#include <string>

#include "NymbrelCore/NYBFormatter.h"
#include "NymbrelCore/NYBJSONSerialization.h"
#include "NymbrelCore/NYBKeyedArchiver.h"
#include "NymbrelCore/NYBKeyedUnarchiver.h"
#include "NymbrelCore/NYBModel.h"

namespace {

using namespace nyb;

constexpr int kFields = 16;  // plus timestamp, source, heart rate and validated

class BenchRecord : public NYBModel {
  NYB_DECLARE_MODEL(BenchRecord, NYBModelClass)
 public:
  NYBDynamicValue timestamp, source, heartRate, validated;
  NYBDynamicValue values[kFields];
};

NYBPropertyTable benchProperties() {
  auto table = NYBPropertyTable::of<BenchRecord>();
  table.field("timestamp", &BenchRecord::timestamp)
      .field("source", &BenchRecord::source)
      .field("heartRate", &BenchRecord::heartRate)
      .field("validated", &BenchRecord::validated);
  NYBPropertyTable built = table.build();
  for (int i = 0; i < kFields; ++i) {
    built.add(
        {"field" + std::to_string(i), NYBPropertyKind::Object,
         [i](const NYBModel& m) { return static_cast<const BenchRecord&>(m).values[i]; },
         [i](NYBModel& m, const NYBDynamicValue& v) { static_cast<BenchRecord&>(m).values[i] = v; },
         nullptr});
  }
  return built;
}

NYBKeyMap benchKeys() {
  NYBKeyMap keys{{"timestamp", "timestamp"},
                 {"source", "source"},
                 {"heartRate", "heart_rate"},
                 {"validated", "validated"}};
  for (int i = 0; i < kFields; ++i)
    keys.emplace_back("field" + std::to_string(i), "field_" + std::to_string(i));
  return keys;
}

std::shared_ptr<NYBValueTransformer> timestampTransformer(const NYBModelClass&) {
  return NYBValueTransformer::transformerUsingForwardBlock(
      [](const NYBDynamicValue& v) -> NYBDynamicValue {
        return NYBFormatter::sharedFormatter().ISO8601DateTimeFormatter()->dateFromString(
            v.stringView());
      },
      [](const NYBDynamicValue& v) -> NYBDynamicValue {
        return NYBFormatter::sharedFormatter().ISO8601DateTimeFormatter()->stringFromDate(v.date());
      });
}

}  // namespace

const NYBModelClass& BenchRecord::staticClass() {
  static const NYBModelClass cls({"BenchRecord",
                                  &NYBModel::staticClass(),
                                  [] { return std::make_shared<BenchRecord>(); },
                                  benchProperties(),
                                  benchKeys(),
                                  {{"timestampTransformer", timestampTransformer}}});
  return cls;
}

namespace {

std::shared_ptr<BenchRecord> sampleRecord() {
  auto r = std::make_shared<BenchRecord>();
  r->timestamp = NYBDate(1456841109);
  r->source = "nymbrelmobile";
  r->heartRate = 72;
  r->validated = true;
  for (int i = 0; i < kFields; ++i) {
    if (i % 2 == 0) {
      r->values[i] = 70.5 + i;
    } else {
      r->values[i] = "a reading of field number " + std::to_string(i);
    }
  }
  return r;
}

// The same record as a plain struct with a hand-written mapping.
struct DirectRecord {
  double timestamp = 0;
  std::string source;
  int64_t heartRate = 0;
  bool validated = false;
  double numbers[kFields / 2];
  std::string texts[kFields / 2];
};

DirectRecord sampleDirect() {
  DirectRecord d;
  d.timestamp = 1456841109;
  d.source = "nymbrelmobile";
  d.heartRate = 72;
  d.validated = true;
  for (int i = 0; i < kFields; ++i) {
    if (i % 2 == 0) {
      d.numbers[i / 2] = 70.5 + i;
    } else {
      d.texts[i / 2] = "a reading of field number " + std::to_string(i);
    }
  }
  return d;
}

void writeReal(rapidjson::Writer<rapidjson::StringBuffer>& w, double v) {
  char buffer[32];
  auto end = std::to_chars(buffer, buffer + sizeof buffer, v).ptr;
  w.RawValue(buffer, static_cast<rapidjson::SizeType>(end - buffer), rapidjson::kNumberType);
}

std::string writeDirect(const DirectRecord& d) {
  auto formatter = NYBFormatter::sharedFormatter().ISO8601DateTimeFormatter();
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> w(buffer);
  w.StartObject();
  w.Key("timestamp");
  w.String(formatter->stringFromDate(NYBDate(d.timestamp))->c_str());
  w.Key("source");
  w.String(d.source.c_str());
  w.Key("heart_rate");
  w.Int64(d.heartRate);
  w.Key("validated");
  w.Bool(d.validated);
  for (int i = 0; i < kFields; ++i) {
    std::string key = "field_" + std::to_string(i);
    w.Key(key.c_str());
    if (i % 2 == 0) {
      writeReal(w, d.numbers[i / 2]);
    } else {
      w.String(d.texts[i / 2].c_str());
    }
  }
  w.EndObject();
  return buffer.GetString();
}

DirectRecord readDirect(const std::string& text) {
  auto formatter = NYBFormatter::sharedFormatter().ISO8601DateTimeFormatter();
  rapidjson::Document doc;
  doc.Parse<rapidjson::kParseFullPrecisionFlag>(text.c_str());
  DirectRecord d;
  if (auto t = formatter->dateFromString(doc["timestamp"].GetString())) {
    d.timestamp = t->timeIntervalSince1970();
  }
  d.source = doc["source"].GetString();
  d.heartRate = doc["heart_rate"].GetInt64();
  d.validated = doc["validated"].GetBool();
  for (int i = 0; i < kFields; ++i) {
    std::string key = "field_" + std::to_string(i);
    const auto& v = doc[key.c_str()];
    if (i % 2 == 0) {
      d.numbers[i / 2] = v.GetDouble();
    } else {
      d.texts[i / 2] = v.GetString();
    }
  }
  return d;
}

void BM_Generic_JSONObjectAndWrite(benchmark::State& state) {
  auto record = sampleRecord();
  for (auto _ : state) {
    auto text = NYBJSONSerialization::dataWithJSONObject(record->JSONObject());
    benchmark::DoNotOptimize(text);
  }
}
BENCHMARK(BM_Generic_JSONObjectAndWrite);

void BM_Direct_Write(benchmark::State& state) {
  auto record = sampleDirect();
  for (auto _ : state) {
    auto text = writeDirect(record);
    benchmark::DoNotOptimize(text);
  }
}
BENCHMARK(BM_Direct_Write);

void BM_Generic_ParseAndModelFromJSONObject(benchmark::State& state) {
  auto text = *NYBJSONSerialization::dataWithJSONObject(sampleRecord()->JSONObject());
  for (auto _ : state) {
    auto model = BenchRecord::modelFromJSONObject(NYBJSONSerialization::JSONObjectWithData(text));
    benchmark::DoNotOptimize(model);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_Generic_ParseAndModelFromJSONObject);

void BM_Direct_Parse(benchmark::State& state) {
  auto text = writeDirect(sampleDirect());
  for (auto _ : state) {
    auto record = readDirect(text);
    benchmark::DoNotOptimize(record);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_Direct_Parse);

void BM_Archive_Encode(benchmark::State& state) {
  NYBDynamicValue record = sampleRecord();
  for (auto _ : state) {
    auto data = NYBKeyedArchiver::archivedDataWithRootObject(record);
    benchmark::DoNotOptimize(data);
  }
}
BENCHMARK(BM_Archive_Encode);

void BM_Archive_Decode(benchmark::State& state) {
  auto data = NYBKeyedArchiver::archivedDataWithRootObject(NYBDynamicValue(sampleRecord()));
  for (auto _ : state) {
    auto value = NYBKeyedUnarchiver::unarchiveObjectWithData(data);
    benchmark::DoNotOptimize(value);
  }
}
BENCHMARK(BM_Archive_Decode);

}  // namespace

BENCHMARK_MAIN();
