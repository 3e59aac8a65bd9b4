// nymbrel demo
//
// A tour of the library against a local development server: starts
// nymbrel-devserver on a free loopback port (unless --server names another),
// starts a session for the demo user, submits one record of each of the eight
// types (three entered in units other than the stored ones, so the raw
// measurements show) and a photo, drives the run loop while printing each
// notification, then asks the server for what it stored. Exits 0 only if
// everything arrived.
#include <NymbrelCore/NYBAPIClient.h>
#include <NymbrelCore/NYBArray.h>
#include <NymbrelCore/NYBBiometrics.h>
#include <NymbrelCore/NYBDiabetes.h>
#include <NymbrelCore/NYBDispatchQueue.h>
#include <NymbrelCore/NYBFitness.h>
#include <NymbrelCore/NYBImage.h>
#include <NymbrelCore/NYBIntraDay.h>
#include <NymbrelCore/NYBNutrition.h>
#include <NymbrelCore/NYBRequest.h>
#include <NymbrelCore/NYBRoutine.h>
#include <NymbrelCore/NYBRunLoop.h>
#include <NymbrelCore/NYBSleep.h>
#include <NymbrelCore/NYBWeight.h>
#include <stdlib.h>

#include <cmath>
#include <filesystem>
#include <iostream>

#include "Commands.h"
#include "Describe.h"
#include "DevServerProcess.h"
#include "Errors.h"
#include "Options.h"
#include "Progress.h"
#include "RecordBuilder.h"
#include "Refusals.h"
#include "SessionHost.h"

namespace nymbrel {

using namespace nyb;

namespace {

NYBDate minutesAgo(double minutes) {
  return NYBDate(NYBDate::now().timeIntervalSince1970() - minutes * 60);
}

// One record of each type, as an application would fill them in.
std::vector<std::shared_ptr<NYBRecord>> demoRecords() {
  auto biometrics = std::make_shared<NYBBiometrics>();
  biometrics->setTimestamp(minutesAgo(55));
  biometrics->setTemperature(98.6, NYBTemperatureUnitFahrenheit);  // stored as 37 C
  biometrics->setSystolic(118);
  biometrics->setDiastolic(76);
  biometrics->setRestingHeartrate(61);
  biometrics->setSpo2(98);
  biometrics->setMinHeartRate(52);  // travels inside "extras"

  auto diabetes = std::make_shared<NYBDiabetes>();
  diabetes->setTimestamp(minutesAgo(50));
  diabetes->setBloodGlucose(5.5, NYBGlucoseUnitMmolL);  // stored as 99 mg/dL
  diabetes->setRelationshipToMeal(NYBMealRelationshipBefore);
  diabetes->setDiabetesEvent(NYBDiabetesEventExercise);

  auto weight = std::make_shared<NYBWeight>();
  weight->setTimestamp(minutesAgo(45));
  weight->setWeight(165.3, NYBWeightUnitPounds);  // stored in kilograms
  weight->setBmi(23.1);
  weight->setFatPercent(18.5);

  auto routine = std::make_shared<NYBRoutine>();
  routine->setTimestamp(minutesAgo(40));
  routine->setSteps(8042);
  routine->setDistance(6.1);
  routine->setFloors(12);
  routine->setCaloriesBurned(2140);

  auto nutrition = std::make_shared<NYBNutrition>();
  nutrition->setTimestamp(minutesAgo(35));
  nutrition->setMeal("lunch");
  nutrition->setCalories(640);
  nutrition->setCarbohydrates(72);
  nutrition->setProtein(32);
  nutrition->setFat(21);
  nutrition->setComment("the photo shows the plate");

  auto fitness = std::make_shared<NYBFitness>();
  fitness->setTimestamp(minutesAgo(30));
  fitness->setType("running");
  fitness->setIntensity("moderate");
  fitness->setStartTime(minutesAgo(60));
  fitness->setDistance(5.2);
  fitness->setDuration(1800);
  fitness->setCalories(410);

  auto sleep = std::make_shared<NYBSleep>();
  sleep->setTimestamp(minutesAgo(25));
  sleep->setTotalSleep(432);
  sleep->setDeep(95);
  sleep->setLight(240);
  sleep->setRem(88);
  sleep->setAwake(9);
  sleep->setTimesWoken(2);

  auto intraday = std::make_shared<NYBIntraDay>();
  intraday->setTimestamp(minutesAgo(1));
  intraday->setStart(minutesAgo(61));
  intraday->setEnd(minutesAgo(1));
  intraday->setDeviceSource("demo-band-01");
  intraday->setManufacturer("Nymbrel");
  intraday->setModel("Demo Band");
  const double counts[] = {1200, 860, 1430, 310};
  for (int quarter = 0; quarter < 4; ++quarter) {
    intraday->addValue(counts[quarter], minutesAgo(61 - 15.0 * quarter),
                       minutesAgo(46 - 15.0 * quarter));
  }

  std::vector<std::shared_ptr<NYBRecord>> records = {biometrics, diabetes, weight, routine,
                                                     nutrition,  fitness,  sleep,  intraday};
  for (const auto& record : records) {
    if (record->activityID().isAbsent()) record->setActivityID(newActivityID());
  }
  return records;
}

// A small picture of a plate on a table, so that there is a photo to send.
std::shared_ptr<NYBImage> demoPhoto() {
  constexpr std::size_t width = 160, height = 120;
  std::vector<std::uint8_t> rgba(width * height * 4);
  for (std::size_t y = 0; y < height; ++y) {
    for (std::size_t x = 0; x < width; ++x) {
      double dx = (static_cast<double>(x) - 80) / 50, dy = (static_cast<double>(y) - 60) / 45;
      double r = std::sqrt(dx * dx + dy * dy);
      std::uint8_t* pixel = &rgba[(y * width + x) * 4];
      bool plate = r < 1.0, food = r < 0.55;
      pixel[0] = food ? 200 : plate ? 245 : static_cast<std::uint8_t>(120 + x / 4);
      pixel[1] = food ? 120 : plate ? 245 : static_cast<std::uint8_t>(80 + y / 4);
      pixel[2] = food ? 40 : plate ? 240 : 50;
      pixel[3] = 255;
    }
  }
  return std::make_shared<NYBImage>(width, height, std::move(rgba));
}

struct Collection {
  std::string root;
  bool answered = false;
  NYBDynamicValue json;
  std::shared_ptr<NYBError> error;
};

// GETs every record collection of the user from the server, driving the run
// loop until all answers are in (or the time is up).
std::shared_ptr<std::vector<Collection>> fetchCollections(const std::shared_ptr<NYBUser>& user,
                                                          std::chrono::milliseconds timeout) {
  auto collections = std::make_shared<std::vector<Collection>>();
  for (const auto& type : recordTypes()) {
    collections->push_back(Collection{std::string(type.name), false, {}, nullptr});
  }
  for (std::size_t i = 0; i < recordTypes().size(); ++i) {
    auto request = std::make_shared<NYBRequest>();
    request->setHTTPMethod(NYBHTTPMethodGET);
    request->setURL(NYBAPIClient::urlForRecordType(recordTypes()[i].type, user));
    request->setAuthToken(user->accessToken().string());
    request->sendWithCompletion([collections, i](NYBDynamicValue json, auto, auto error) {
      // The URL session's thread: hand the answer to the main thread.
      NYBDispatchQueue::main().async([collections, i, json, error] {
        auto& collection = (*collections)[i];
        collection.answered = true;
        collection.json = json;
        collection.error = error;
      });
    });
  }
  NYBRunLoop::main().runUntil(
      [&] {
        return std::all_of(collections->begin(), collections->end(),
                           [](const Collection& c) { return c.answered; });
      },
      timeout);
  return collections;
}

class DemoCommand : public Command {
 public:
  explicit DemoCommand(CLI::App& parent) {
    app_ = parent.add_subcommand(
        "demo", "Submit one record of every type and a photo to a local development server");
    app_->add_option("--devserver", devserver_,
                     "the nymbrel-devserver binary (default: next to nymbrel, or on PATH)")
        ->envname("NYMBREL_DEVSERVER")
        ->type_name("PATH");
    app_->add_option("--image", image_, "the photo to send (default: a generated picture)")
        ->type_name("FILE.png");
    app_->add_flag("--keep-data", keepData_, "keep the demo's data directory");
    addDataDirOption(*app_, options_);
    addServiceOptions(*app_, options_);
    addVerboseOption(*app_, options_);
    app_->footer(
        "Without --server, the demo starts its own nymbrel-devserver on a free loopback port and\n"
        "stops it afterwards. The user defaults to the devserver's demo user (demo-org,\n"
        "demo-user, demo-token). Without --data-dir, the archive and the photo live in a new\n"
        "temporary directory, removed at the end unless --keep-data.");
  }

  bool chosen() const override { return app_->parsed(); }

  int run() override {
    bool userGiven = givenCredentials(options_).has_value();
    if (!userGiven) {
      options_.org = "demo-org";
      options_.user = "demo-user";
      options_.token = "demo-token";
    }
    std::string why;
    std::shared_ptr<NYBImage> photo = image_.empty() ? demoPhoto() : loadPhoto(image_, &why);
    if (!photo) throw usageError("--image: \"" + image_ + "\"" + why);

    std::unique_ptr<DevServerProcess> server;
    if (options_.server.empty()) {
      auto binary = findDevServer(devserver_);
      if (!binary) {
        throw CommandFailure(kExitFailure,
                             devserver_.empty()
                                 ? "cannot find nymbrel-devserver next to nymbrel or on PATH; "
                                   "give --devserver PATH or --server URL"
                                 : "--devserver: " + devserver_ + " is not an executable file");
      }
      std::vector<std::string> arguments;
      if (userGiven)
        arguments = {"--user", options_.org + ":" + options_.user + ":" + options_.token};
      if (options_.verbose) arguments.push_back("--log");
      server = std::make_unique<DevServerProcess>(*binary, arguments, options_.verbose);
      options_.server = server->baseURL();
      std::cout << "started nymbrel-devserver at " << options_.server << std::endl;
    }

    // Removes the demo's own data directory however the tour ends.
    struct TemporaryDirectory {
      std::filesystem::path path;
      bool keep = false;
      ~TemporaryDirectory() {
        std::error_code ignored;
        if (!path.empty() && !keep) std::filesystem::remove_all(path, ignored);
      }
    } temporary{{}, keepData_};
    if (options_.dataDir.empty()) {
      std::string pattern =
          (std::filesystem::temp_directory_path() / "nymbrel-demo-XXXXXX").string();
      if (::mkdtemp(pattern.data()) == nullptr) {
        throw CommandFailure(kExitFailure, "cannot make a temporary directory");
      }
      temporary.path = pattern;
      options_.dataDir = pattern;
    }
    int code = tour(photo);
    if (refusalsKept_ && !temporary.path.empty() && !temporary.keep) {
      temporary.keep = true;
      std::cerr << "nymbrel: the demo's data directory " << temporary.path.string()
                << " stays, for its refused records\n";
    }
    if (server && server->stop() != 0) {
      std::cerr << "nymbrel: nymbrel-devserver did not stop cleanly\n";
    }
    return code;
  }

 private:
  int tour(const std::shared_ptr<NYBImage>& photo) {
    configureLibrary(options_);
    auto records = demoRecords();
    auto photoRecord = records[4];  // the meal

    ProgressBar progress(std::cerr, records.size() + 1, isTerminal(2));
    SessionHost host([&](const SessionHost::Event& event) {
      printEvent(event, &progress);
      progress.update(host.settledCount());
    });
    openSession(host, options_);
    std::cout << "session for " << options_.org << "/" << options_.user << ", data in "
              << documentsDirectory(options_) << "\n"
              << "submitting " << records.size() << " records and a photo:" << std::endl;

    std::vector<std::shared_ptr<NYBRecord>> plain;
    for (const auto& record : records) {
      if (record != photoRecord) plain.push_back(record);
    }
    host.submit(plain);
    host.submit(photoRecord, photo);
    bool finished = host.runUntilIdle(timeout());
    progress.finish();
    int code = reportOutcome(host, finished, options_);
    refusalsKept_ = host.refusalKeeper() && !host.refusalKeeper()->summary().empty();

    std::cout << "\nwhat the server stored:" << std::endl;
    auto collections = fetchCollections(host.user(), timeout());
    std::size_t found = 0;
    bool photoStored = false;
    for (std::size_t i = 0; i < records.size(); ++i) {
      const Collection& collection = (*collections)[i];
      std::string where = "GET " + collection.root + ".json";
      if (!collection.answered || collection.error) {
        std::cout << std::flush;
        std::cerr << "nymbrel: " << where << ": "
                  << (collection.error ? errorText(*collection.error) : "no answer") << "\n";
        continue;
      }
      const NYBArray* stored = collection.json.dictionary()
                                   ? (*collection.json.dictionary())[collection.root].array()
                                   : nullptr;
      std::cout << where << ": " << (stored ? stored->size() : 0) << " record(s)\n";
      for (const auto& document : stored ? *stored : NYBArray()) {
        const NYBDictionary* fields = document.dictionary();
        if (!fields || !((*fields)["activity_id"] == records[i]->activityID())) continue;
        ++found;
        if (records[i] == photoRecord) {
          const NYBArray* media = (*fields)["media"].array();
          photoStored = media != nullptr && !media->empty();
        }
        std::cout << prettyJSON(document) << "\n";
      }
    }
    std::cout << std::flush;
    if (found == records.size() && photoStored && code == kExitOK) {
      std::cout << "\neverything arrived: " << records.size() << " records and 1 photo"
                << std::endl;
      return kExitOK;
    }
    if (code == kExitOK) {
      throw CommandFailure(kExitFailure, "the server holds " + std::to_string(found) + " of the " +
                                             std::to_string(records.size()) + " records" +
                                             (photoStored ? "" : " and not the photo"));
    }
    return code;
  }

  std::chrono::milliseconds timeout() const {
    return std::chrono::milliseconds(static_cast<long long>(options_.timeoutSeconds * 1000));
  }

  CLI::App* app_;
  CommonOptions options_;
  std::string devserver_;
  std::string image_;
  bool keepData_ = false;
  bool refusalsKept_ = false;
};

}  // namespace

std::unique_ptr<Command> addDemoCommand(CLI::App& app) {
  return std::make_unique<DemoCommand>(app);
}

}  // namespace nymbrel
