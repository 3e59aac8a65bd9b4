// nymbrel import FILE [--type TYPE] [--format csv|jsonl]
//
// Reads many readings from a CSV file with a header row or a JSON-lines file,
// reports each bad row with its line number, and sends the good ones in file
// order with a progress bar.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>

#include "Commands.h"
#include "Describe.h"
#include "Errors.h"
#include "Import.h"
#include "Options.h"
#include "Progress.h"
#include "Refusals.h"
#include "SessionHost.h"

namespace nymbrel {

namespace {

class ImportCommand : public Command {
 public:
  explicit ImportCommand(CLI::App& parent) {
    app_ = parent.add_subcommand("import", "Submit many readings from a CSV or JSON-lines file");
    app_->add_option("FILE", file_,
                     "the readings: CSV with a header row, or one JSON object a line")
        ->required()
        ->type_name("");
    app_->add_option(
            "--type", type_,
            "the record type of rows that have no record_type column (" + recordTypeNames() + ")")
        ->type_name("TYPE");
    app_->add_option("--format", format_, "csv or jsonl (default: from the first line)")
        ->check(CLI::IsMember({"csv", "jsonl"}))
        ->type_name("FORMAT");
    addDataDirOption(*app_, options_);
    addServiceOptions(*app_, options_);
    addVerboseOption(*app_, options_);
    app_->footer(
        "Each row is one reading. Columns: record_type (unless --type), unit (of the type's\n"
        "unit-bearing field), image (a PNG file, relative to FILE's folder), and fields of the\n"
        "type by their option name (blood-glucose), property name (bloodGlucose) or JSON key\n"
        "(blood_glucose); empty cells are left out. A bad row is reported with its line number\n"
        "and skipped; the other rows are still sent (exit status 4 when rows were skipped).\n"
        "A JSON line with a \"record\" object (as rejected.jsonl holds) is sent as that\n"
        "record; importing the data directory's rejected.jsonl removes the lines sent.");
  }

  bool chosen() const override { return app_->parsed(); }

  int run() override {
    const RecordTypeSpec* defaultType = nullptr;
    if (!type_.empty()) {
      defaultType = findRecordType(type_);
      if (defaultType == nullptr) {
        throw usageError("--type: \"" + type_ + "\" is not a record type (" + recordTypeNames() +
                         ")");
      }
    }
    configureLibrary(options_);

    std::ifstream in(file_, std::ios::binary);
    if (!in)
      throw CommandFailure(kExitFailure, "cannot read " + file_ + ": " + std::strerror(errno));
    std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ImportFormat format = format_ == "csv"     ? ImportFormat::CSV
                          : format_ == "jsonl" ? ImportFormat::JSONLines
                                               : ImportFormat::Detect;
    ImportTable table = parseImport(content, format);

    std::vector<std::string> errors = table.errors;
    std::vector<ImportedRecord> records;
    auto base = std::filesystem::absolute(file_).parent_path();
    for (const auto& row : table.rows) {
      if (auto record = recordFromRow(row, defaultType, base, errors)) {
        records.push_back(std::move(*record));
      }
    }
    std::size_t badRows = table.errors.size() + (table.rows.size() - records.size());
    // Every message starts "line N: "; report them in file order.
    auto lineOf = [](const std::string& message) { return std::stoul(message.substr(5)); };
    std::stable_sort(errors.begin(), errors.end(),
                     [&](const auto& a, const auto& b) { return lineOf(a) < lineOf(b); });
    for (const auto& error : errors) std::cerr << "nymbrel: " << error << "\n";
    if (records.empty()) {
      std::cerr << "nymbrel: nothing to send: " << file_ << " holds no good rows\n";
      return badRows > 0 ? kExitBadRows : kExitOK;
    }

    std::size_t photoCount = 0;
    for (const auto& record : records) photoCount += record.photo ? 1 : 0;
    ProgressBar progressBar(std::cerr, records.size() + photoCount, isTerminal(2));
    ProgressBar* progress = &progressBar;
    SessionHost host([&](const SessionHost::Event& event) {
      if (SessionHost::isRefusal(event.kind) || !event.tracked) printEvent(event, progress);
      progress->update(host.settledCount());
    });
    openSession(host, options_);
    auto user = host.user();
    std::cout << "sending " << records.size() << " readings from " << file_ << " to " << baseURL()
              << " as " << user->organizationID().stringView() << "/"
              << user->nymbrelUserID().stringView() << std::endl;

    // In file order: runs of records without photos go in one submission.
    std::vector<std::shared_ptr<nyb::NYBRecord>> batch;
    for (const auto& record : records) {
      if (!record.photo) {
        batch.push_back(record.record);
        continue;
      }
      if (!batch.empty()) host.submit(batch);
      batch.clear();
      host.submit(record.record, record.photo);
    }
    if (!batch.empty()) host.submit(batch);
    progress->update(host.settledCount());

    bool finished = host.runUntilIdle(
        std::chrono::milliseconds(static_cast<long long>(options_.timeoutSeconds * 1000)));
    progress->finish();
    // A line of the data directory's own rejected.jsonl is done with once its
    // record was sent, refused again (a new line), or is in the written archive
    // (not while the last save failed: then the line is its only copy).
    const bool archived = finished && !host.saveFailure();
    std::map<std::size_t, const nyb::NYBRecord*> byLine;
    for (const auto& record : records) byLine[record.line] = record.record.get();
    forgetSentRefusals(file_, documentsDirectory(options_), content, [&](std::size_t line) {
      auto record = byLine.find(line);
      return record != byLine.end() && (archived || host.settled(*record->second));
    });
    SessionHost::Tally tally = host.tally();
    std::cout << "imported " << file_ << ": " << tally.recordsSubmitted << " of " << records.size()
              << " records sent";
    if (photoCount > 0)
      std::cout << ", " << tally.photosSubmitted << " of " << photoCount << " photos";
    if (tally.recordsRejected > 0) std::cout << ", " << tally.recordsRejected << " rejected";
    if (badRows > 0) std::cout << "; " << badRows << " bad rows skipped";
    std::cout << std::endl;
    int code = reportOutcome(host, finished, options_);
    return badRows > 0 ? combineExitCodes(code, kExitBadRows) : code;
  }

 private:
  CLI::App* app_;
  CommonOptions options_;
  std::string file_;
  std::string type_;
  std::string format_;
};

}  // namespace

std::unique_ptr<Command> addImportCommand(CLI::App& app) {
  return std::make_unique<ImportCommand>(app);
}

}  // namespace nymbrel
