#include "Progress.h"

#include <unistd.h>

#include <algorithm>

namespace nymbrel {

ProgressBar::ProgressBar(std::ostream& out, std::size_t total, bool interactive)
    : out_(out), total_(total), interactive_(interactive) {}

ProgressBar::~ProgressBar() { finish(); }

std::string ProgressBar::render(std::size_t done, std::size_t total) {
  constexpr std::size_t kCells = 20;
  std::size_t filled = total == 0 ? kCells : std::min(done, total) * kCells / total;
  std::string bar = "[" + std::string(filled, '#') + std::string(kCells - filled, '-') + "] ";
  std::string count = std::to_string(done) + "/" + std::to_string(total);
  std::string totalText = std::to_string(total);
  // Right-align the count so the bar does not jitter.
  std::size_t width = 2 * totalText.size() + 1;
  return bar + std::string(width > count.size() ? width - count.size() : 0, ' ') + count;
}

void ProgressBar::update(std::size_t done) {
  done_ = std::min(done, total_);
  if (finished_) return;
  if (interactive_) {
    draw();
    return;
  }
  // Plain output: one line per tenth reached (every step for short queues).
  std::size_t tenth = total_ == 0 ? 10 : done_ * 10 / total_;
  if (total_ <= 10 ? done_ > lastTenthShown_ : tenth > lastTenthShown_) {
    lastTenthShown_ = total_ <= 10 ? done_ : tenth;
    out_ << render(done_, total_) << "\n" << std::flush;
  }
}

void ProgressBar::print(std::ostream& lineOut, const std::string& line) {
  if (interactive_ && drawn_ && !finished_) clearLine();
  lineOut << line << "\n" << std::flush;
  if (interactive_ && drawn_ && !finished_) draw();
}

void ProgressBar::finish() {
  if (finished_) return;
  finished_ = true;
  if (interactive_ && drawn_) out_ << "\n" << std::flush;
}

void ProgressBar::clearLine() { out_ << "\r\033[K" << std::flush; }

void ProgressBar::draw() {
  out_ << "\r" << render(done_, total_) << std::flush;
  drawn_ = true;
}

bool isTerminal(int fd) { return ::isatty(fd) == 1; }

}  // namespace nymbrel
