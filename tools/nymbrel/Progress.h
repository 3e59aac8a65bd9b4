// A progress bar for the upload queue: "[##########----------]  5/10".
//
// On a terminal it is redrawn in place on one line, and lines printed through
// print() appear above it. Anywhere else (a pipe, a file, a test) it prints a
// plain line whenever another tenth of the work is done, so logs stay short.
// Main thread only.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>

namespace nymbrel {

class ProgressBar {
 public:
  // The bar goes to `out`; `interactive` says whether that is a terminal.
  ProgressBar(std::ostream& out, std::size_t total, bool interactive);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // Sets how much is done (at most the total) and shows it.
  void update(std::size_t done);
  // Writes a line to `lineOut` without tearing the bar.
  void print(std::ostream& lineOut, const std::string& line);
  // Ends the bar's line.
  void finish();

  // The bar's text for a count: twenty cells, then done/total.
  static std::string render(std::size_t done, std::size_t total);

 private:
  void clearLine();
  void draw();

  std::ostream& out_;
  std::size_t total_;
  std::size_t done_ = 0;
  std::size_t lastTenthShown_ = 0;
  bool interactive_;
  bool drawn_ = false;
  bool finished_ = false;
};

// Whether a standard stream (1 or 2) is a terminal.
bool isTerminal(int fd);

}  // namespace nymbrel
