// What the command tells its user while it runs: a progress bar on a
// terminal (plain lines otherwise) on stderr, and event lines, per-frame
// statistics and the closing summary on stdout.
#ifndef VORLITH_TOOLS_CLI_REPORT_H_
#define VORLITH_TOOLS_CLI_REPORT_H_

#include <chrono>
#include <cstdio>
#include <string>

#include "tools/cli/host.h"

namespace vorlith::cli {

class Reporter {
 public:
  // quiet: nothing but errors; stats: one line per frame.
  Reporter(bool quiet, bool stats);
  ~Reporter();

  // `total` frames expected, or -1 when unknown.
  void Start(long total);
  // After each frame: `index` counts from 1; `seconds` is its timestamp.
  void Frame(long index, double seconds, int width, int height, const Enlarged& frame);
  // A line of its own (governor events, size changes, notes).
  void Note(const std::string& line);
  // Takes the progress bar away.
  void Stop();
  double elapsed_seconds() const;

 private:
  void ClearBar();
  void DrawProgress(long index);

  bool quiet_, stats_, tty_;
  bool bar_shown_ = false;
  long total_ = -1;
  long next_plain_ = 0;
  std::chrono::steady_clock::time_point start_, last_draw_;
};

// "1:02:03" or "2:03".
std::string Clock(double seconds);

}  // namespace vorlith::cli

#endif  // VORLITH_TOOLS_CLI_REPORT_H_
