// vorlith: enlarges videos and images 2x through the Vorlith plug-in.
//
//   vorlith upscale INPUT OUTPUT [--net full|light] [--frames N] [--start T] ...
//   vorlith image INPUT.png OUTPUT.png
//   vorlith compare INPUT OUTPUT.png
//   vorlith plan INPUT --segments N > PLAN; vorlith upscale --plan PLAN --segment K;
//   vorlith join --plan PLAN OUTPUT
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

#include <CLI/CLI.hpp>

extern "C" {
#include <libavutil/log.h>
#include <libavutil/parseutils.h>
}

#include "tools/cli/commands.h"

namespace {

using vorlith::cli::CliError;
using vorlith::cli::Options;

void OnSignal(int) { vorlith::cli::g_interrupted = true; }

void AddCommon(CLI::App* command, Options& options, std::string& net, bool required = true) {
  command->add_option("INPUT", options.input, "a file FFmpeg can read")->required(required);
  command->add_option("OUTPUT", options.output, "the file to write")->required(required);
  command->add_option("--net", net, "network to start with")
      ->check(CLI::IsMember({"full", "light"}))
      ->capture_default_str();
  command->add_flag("--fit", options.fit,
                    "shrink frames above 1280 pixels wide or tall to fit, instead of failing");
  command->add_flag("-q,--quiet", options.quiet, "print nothing but errors");
}

double ParseStart(const std::string& text) {
  if (text.empty()) return 0;
  int64_t us = 0;
  if (av_parse_time(&us, text.c_str(), 1) < 0 || us < 0) {
    throw CliError(vorlith::cli::kExitUsage,
                   "--start takes seconds or [HH:]MM:SS[.m...], not " + text);
  }
  return double(us) / 1e6;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"vorlith: enlarges videos and images 2x with the Vorlith plug-in.", "vorlith"};
  app.require_subcommand(1);
  app.set_version_flag("--version", "vorlith 1.0.0");
  app.footer(
      "Exit status: 0 done; 1 unreadable, damaged or truncated input, or unwritable output;\n"
      "2 bad command line; 3 frame above 1280 pixels without --fit; 4 networks missing or\n"
      "unusable; 130 interrupted. Output is written under OUTPUT.part and renamed when complete.");

  Options options;
  std::string net = "full", start;

  CLI::App* upscale = app.add_subcommand("upscale", "enlarge a video 2x, keeping its timing and audio");
  AddCommon(upscale, options, net, false);
  upscale->add_option("--frames", options.frames, "stop after N frames")->check(CLI::PositiveNumber);
  upscale->add_option("--start", start, "start at T (seconds or [HH:]MM:SS[.m...])");
  upscale->add_option("--threads", options.encode.threads,
                      "decoder and encoder threads (0: automatic; the networks use every core)")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  upscale->add_flag("--offline", options.offline,
                    "one network for every frame (--net), no time governor, frames of any size: the "
                    "output depends on the input alone, never on how busy the machine is");
  upscale->add_flag("--stats", options.stats,
                    "one line per frame: milliseconds, network, governor events");
  upscale->add_option("--codec", options.encode.codec,
                      "h264 or ffv1 (lossless); default: raw for .y4m, otherwise h264")
      ->check(CLI::IsMember({"h264", "ffv1", "raw"}));
  upscale->add_option("--crf", options.encode.crf, "H.264 quality, 0 (lossless) to 51")
      ->check(CLI::Range(0, 51))
      ->capture_default_str();
  upscale->add_option("--preset", options.encode.preset, "H.264 speed preset (x264's names)")
      ->capture_default_str();
  upscale->add_option("--plan", options.plan,
                      "with --segment: enlarge one segment of this plan (`vorlith plan`) to its "
                      "piece, offline; INPUT and OUTPUT come from the plan");
  upscale->add_option("--segment", options.segment, "the plan's segment to enlarge (from 0)")
      ->check(CLI::NonNegativeNumber);

  CLI::App* plan = app.add_subcommand(
      "plan", "cut a video at keyframes into segments that separate processes enlarge (`upscale "
              "--plan`) and `join` puts together; prints one JSON line per segment");
  plan->add_option("INPUT", options.input, "a file FFmpeg can read")->required();
  auto* count = plan->add_option("--segments", options.segments, "how many segments")
                    ->check(CLI::PositiveNumber);
  plan->add_option("--segment-seconds", options.segment_seconds, "or how long each, in seconds")
      ->check(CLI::PositiveNumber)
      ->excludes(count);
  plan->add_option("-o,--output", options.output, "write the plan to this file (default: stdout)");
  plan->add_option("--pieces", options.pieces,
                   "directory for the pieces (default: INPUT's name with -pieces, here)");
  plan->add_option("--net", net, "network for every segment")
      ->check(CLI::IsMember({"full", "light"}))
      ->capture_default_str();
  plan->add_option("--codec", options.encode.codec, "pieces' codec: ffv1 (lossless, default) or h264")
      ->check(CLI::IsMember({"ffv1", "h264"}));
  plan->add_flag("-q,--quiet", options.quiet, "print nothing but the plan and errors");

  CLI::App* join = app.add_subcommand(
      "join", "put the enlarged pieces of a plan together in order, with the original's audio");
  join->add_option("--plan", options.plan, "the plan the pieces were made from")->required();
  join->add_option("OUTPUT", options.output, "the file to write")->required();
  join->add_option("--codec", options.encode.codec,
                   "h264 (one encode) or ffv1 (lossless pieces copied as they are); default: "
                   "raw for .y4m, otherwise h264")
      ->check(CLI::IsMember({"h264", "ffv1", "raw"}));
  join->add_option("--crf", options.encode.crf, "H.264 quality, 0 (lossless) to 51")
      ->check(CLI::Range(0, 51))
      ->capture_default_str();
  join->add_option("--preset", options.encode.preset, "H.264 speed preset")->capture_default_str();
  join->add_option("--threads", options.encode.threads, "decoder and encoder threads (0: automatic)")
      ->check(CLI::NonNegativeNumber);
  join->add_flag("--remove-pieces", options.remove_pieces,
                 "delete the pieces (and their directory, if left empty) once the output is complete");
  join->add_flag("-q,--quiet", options.quiet, "print nothing but errors");

  CLI::App* image = app.add_subcommand("image", "enlarge a PNG or JPEG still 2x");
  AddCommon(image, options, net);

  CLI::App* compare = app.add_subcommand(
      "compare", "write a PNG of one frame's crop: bicubic 2x beside the network's 2x");
  AddCommon(compare, options, net);
  compare->add_option("--start", start, "take the frame at T");
  compare->add_option("--crop", options.crop, "WxH or WxH+X+Y in input pixels (default: 320x180, centred)");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int status = app.exit(e);
    return status == 0 ? 0 : vorlith::cli::kExitUsage;
  }

  std::signal(SIGINT, OnSignal);
  std::signal(SIGTERM, OnSignal);
  av_log_set_level(options.quiet ? AV_LOG_QUIET : AV_LOG_ERROR);
  try {
    options.net = net == "light" ? NET_TYPE_LIGHT : NET_TYPE_FULL;
    options.start_seconds = ParseStart(start);
    if (*upscale) {
      const bool planned = !options.plan.empty() || options.segment >= 0;
      if (planned && (options.plan.empty() || options.segment < 0 || !options.input.empty() ||
                      options.frames > 0 || options.start_seconds > 0)) {
        throw CliError(vorlith::cli::kExitUsage,
                       "a segment is enlarged with --plan FILE --segment K alone: the plan names "
                       "the input, the piece, the network and the codec");
      }
      if (!planned && options.output.empty()) {
        throw CliError(vorlith::cli::kExitUsage, "upscale needs INPUT and OUTPUT");
      }
      vorlith::cli::RunUpscale(options);
    }
    if (*plan) {
      if (options.segments == 0 && options.segment_seconds == 0) {
        throw CliError(vorlith::cli::kExitUsage, "plan needs --segments N or --segment-seconds S");
      }
      vorlith::cli::RunPlan(options);
    }
    if (*join) vorlith::cli::RunJoin(options);
    if (*image) vorlith::cli::RunImage(options);
    if (*compare) vorlith::cli::RunCompare(options);
  } catch (const CliError& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "vorlith: %s\n", e.what());
    return e.code();
  } catch (const std::exception& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "vorlith: %s\n", e.what());
    return vorlith::cli::kExitFailure;
  }
  return 0;
}
