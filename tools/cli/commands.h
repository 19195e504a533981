// The `vorlith` subcommands. Each returns normally on success and throws
// CliError otherwise; main turns that into a message and an exit status.
#ifndef VORLITH_TOOLS_CLI_COMMANDS_H_
#define VORLITH_TOOLS_CLI_COMMANDS_H_

#include <atomic>
#include <string>

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
  EncodeOptions encode;
};

// Set by SIGINT and SIGTERM; long loops stop and clean up when it is.
extern std::atomic<bool> g_interrupted;

void RunUpscale(const Options& options);
void RunImage(const Options& options);
void RunCompare(const Options& options);

}  // namespace vorlith::cli

#endif  // VORLITH_TOOLS_CLI_COMMANDS_H_
