#include "tools/cli/report.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>

namespace vorlith::cli {

std::string Clock(double seconds) {
  const long s = std::lround(std::max(seconds, 0.0));
  char text[32];
  if (s >= 3600) {
    std::snprintf(text, sizeof(text), "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
  } else {
    std::snprintf(text, sizeof(text), "%ld:%02ld", s / 60, s % 60);
  }
  return text;
}

Reporter::Reporter(bool quiet, bool stats)
    : quiet_(quiet), stats_(stats), tty_(isatty(STDERR_FILENO) == 1) {
  start_ = last_draw_ = std::chrono::steady_clock::now();
}

Reporter::~Reporter() { Stop(); }

double Reporter::elapsed_seconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void Reporter::Start(long total) {
  total_ = total;
  start_ = last_draw_ = std::chrono::steady_clock::now();
  next_plain_ = 1;
}

void Reporter::ClearBar() {
  if (bar_shown_) {
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    bar_shown_ = false;
  }
}

void Reporter::Stop() { ClearBar(); }

void Reporter::Note(const std::string& line) {
  if (quiet_) return;
  ClearBar();
  std::fprintf(stdout, "%s\n", line.c_str());
  std::fflush(stdout);
}

void Reporter::Frame(long index, double seconds, int width, int height, const Enlarged& frame) {
  if (quiet_) return;
  if (stats_) {
    char line[160];
    std::snprintf(line, sizeof(line), "frame %ld  t=%.3f s  %dx%d  %-8s %7.2f ms%s", index, seconds,
                  width, height, PathName(frame.path), frame.ms,
                  frame.status == SR_ERR_TOO_SLOW ? "  (refused by the governor)" : "");
    Note(line);
  }
  DrawProgress(index);
}

void Reporter::DrawProgress(long index) {
  const double elapsed = elapsed_seconds();
  const double fps = elapsed > 0 ? double(index) / elapsed : 0.0;
  // Estimates from a file's duration can fall short.
  const bool known = total_ > 0 && index <= total_;
  std::string left;
  if (known && fps > 0) {
    left.append(", ").append(Clock(double(total_ - index) / fps)).append(" left");
  }
  char counts[64];
  if (known) {
    std::snprintf(counts, sizeof(counts), "%ld/%ld frames", index, total_);
  } else {
    std::snprintf(counts, sizeof(counts), "%ld frames", index);
  }
  if (tty_) {
    // Redrawn at most ten times a second, and for the last frame.
    const auto now = std::chrono::steady_clock::now();
    if (index != total_ && bar_shown_ && now - last_draw_ < std::chrono::milliseconds(100)) return;
    last_draw_ = now;
    std::string bar;
    if (known) {
      const int width = 30;
      const int filled = static_cast<int>(std::min(1.0, double(index) / double(total_)) * width);
      bar.append("[").append(filled, '#').append(width - filled, '.').append("] ");
    }
    std::fprintf(stderr, "\r\033[K%s%s, %.1f fps%s", bar.c_str(), counts, fps, left.c_str());
    std::fflush(stderr);
    bar_shown_ = true;
    return;
  }
  // Plain lines: one every tenth of the way, or every 100 frames when the
  // length is unknown.
  const long step = known ? std::max(1L, (total_ + 9) / 10) : 100;
  if (index < next_plain_ * step && index != total_) return;
  next_plain_ = index / step + 1;
  std::fprintf(stderr, "vorlith: %s, %.1f fps%s\n", counts, fps, left.c_str());
  std::fflush(stderr);
}

}  // namespace vorlith::cli
