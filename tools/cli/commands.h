// The `vorlith` subcommands. Each returns normally on success and throws
// CliError otherwise; main turns that into a message and an exit status.
#ifndef VORLITH_TOOLS_CLI_COMMANDS_H_
#define VORLITH_TOOLS_CLI_COMMANDS_H_

#include <atomic>
#include <string>
#include <vector>

#include "tools/cli/media.h"
#include "vorlith/plugin.h"

namespace vorlith::cli {

struct Options {
  std::string input, output;
  NetType net = NET_TYPE_FULL;
  bool fit = false;
  bool quiet = false;
  bool stats = false;
  bool offline = false;      // upscale: one network for every frame, no time governor
  double start_seconds = 0;  // 0: from the beginning
  long frames = 0;           // 0: all
  std::string crop;          // compare: "WxH" or "WxH+X+Y"
  std::string plan;          // upscale --segment, join: the plan file
  int segment = -1;          // upscale: the plan's segment to enlarge
  int segments = 0;          // plan: how many
  double segment_seconds = 0;  // plan: or how long each
  std::string pieces;        // plan: where the pieces go
  bool remove_pieces = false;  // join: delete the pieces once the output is complete
  EncodeOptions encode;
};

// Set by SIGINT and SIGTERM; long loops stop and clean up when it is.
extern std::atomic<bool> g_interrupted;

void RunUpscale(const Options& options);
void RunImage(const Options& options);
void RunCompare(const Options& options);
void RunPlan(const Options& options);
void RunJoin(const Options& options);

// Writes `bytes` to a temporary file and renames it to `path`, so that a
// failed run leaves no file under the final name.
void WriteFileAtomically(const std::string& path, const std::vector<unsigned char>& bytes);

}  // namespace vorlith::cli

#endif  // VORLITH_TOOLS_CLI_COMMANDS_H_
