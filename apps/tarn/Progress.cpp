// Shows how far a long operation is, and stops it when the user asks to.
#include "apps/tarn/Progress.h"

#include <atomic>
#include <cmath>
#include <cstdio>
#include <memory>

#include "apps/tarn/Console.h"
#include "apps/tarn/Messages.h"

namespace tarnapp {

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<bool> stopAsked{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set by a signal handler");

class ProgressLine {
 public:
  explicit ProgressLine(bool quiet) : quiet_(quiet), terminal_(IsTerminal()) {}
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;
  ~ProgressLine() { EndLine(); }

  bool Show(const tarnhost::ProgressReport& report) {
    if (!quiet_) Print(report);
    return !stopAsked;
  }

 private:
  void Print(const tarnhost::ProgressReport& report) {
    const Clock::time_point now = Clock::now();
    if (stage_ != report.stage || unit_ != report.unit) {
      if (!terminal_ && stage_ != report.stage) std::fprintf(stderr, "%s …\n", report.stage);
      stage_ = report.stage;
      unit_ = report.unit;
      begin_ = now;
    }
    if (!terminal_ ||
        (now - shown_ < std::chrono::milliseconds(100) && report.done != report.total))
      return;
    shown_ = now;
    std::fprintf(stderr, "\r\x1b[K%s", Describe(report, now).c_str());
    open_ = true;
    if (report.done == report.total) EndLine();
  }

  [[nodiscard]] std::string Describe(const tarnhost::ProgressReport& report,
                                     Clock::time_point now) const {
    std::string text = stage_ + " " + Grouped(report.done) + " of " + Grouped(report.total) +
                       (unit_.empty() ? "" : " ") + unit_;
    const double seconds = std::chrono::duration<double>(now - begin_).count();
    if (report.done == 0 || seconds < 0.2) return text;
    const double rate = static_cast<double>(report.done) / seconds;
    const double left = static_cast<double>(report.total - report.done) / rate;
    return text + ", " + Grouped(static_cast<std::uint64_t>(rate)) + " a second, " +
           Grouped(static_cast<std::uint64_t>(std::llround(left))) + " s left";
  }

  void EndLine() {
    if (open_) std::fputs("\r\x1b[K", stderr);
    open_ = false;
  }

  bool quiet_;
  bool terminal_;
  bool open_ = false;
  std::string stage_;
  std::string unit_;
  Clock::time_point begin_;
  Clock::time_point shown_;
};

}  // namespace

void StopOnInterrupt() {
  CallOnInterrupt([] { stopAsked = true; });
}

std::function<bool(const tarnhost::ProgressReport&)> ShowProgress(bool quiet) {
  auto line = std::make_shared<ProgressLine>(quiet);
  return [line](const tarnhost::ProgressReport& report) { return line->Show(report); };
}

std::function<void(std::uint64_t, const std::filesystem::path&)> ShowTemporaryDisk(bool quiet) {
  if (quiet) return {};
  return [](std::uint64_t bytes, const std::filesystem::path& folder) {
    const std::filesystem::path place = folder.parent_path().empty() ? "." : folder.parent_path();
    std::fprintf(stderr, "taking up to %s of temporary disk in %s\n", Bytes(bytes).c_str(),
                 place.string().c_str());
  };
}

}  // namespace tarnapp
