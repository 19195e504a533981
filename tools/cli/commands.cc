#include "tools/cli/commands.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "tools/cli/host.h"
#include "tools/cli/report.h"
#include "tools/cli/segments.h"

namespace vorlith::cli {

std::atomic<bool> g_interrupted{false};

namespace {

std::string Size(int width, int height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

std::string Fixed(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof(text), "%.*f", decimals, value);
  return text;
}

// The size a frame goes into the plug-in at: its own, or with --fit the
// largest that the plug-in takes.
void PluginSize(const Options& options, const std::string& what, int width, int height,
                int* out_width, int* out_height) {
  if (options.offline && !options.fit) {
    // The Upscaler enlarges frames of any size, in tiles.
    *out_width = width;
    *out_height = height;
    return;
  }
  FitSize(width, height, out_width, out_height);
  if ((*out_width != width || *out_height != height) && !options.fit) {
    throw CliError(kExitTooLarge,
                   what + " is " + Size(width, height) + ": the plug-in enlarges frames of at most " +
                       std::to_string(kMaxSide) + " pixels in width and in height. Add --fit to "
                       "shrink each frame to " + Size(*out_width, *out_height) +
                       " (swscale, area averaging) before enlarging it.");
  }
}

void CheckInterrupted() {
  if (g_interrupted) throw CliError(kExitInterrupted, "interrupted; no output written");
}

}  // namespace

void WriteFileAtomically(const std::string& path, const std::vector<unsigned char>& bytes) {
  const std::string temp = path + ".part";
  {
    std::ofstream out(temp, std::ios::binary | std::ios::trunc);
    if (!out) throw CliError(kExitFailure, "cannot write " + temp);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) {
      std::remove(temp.c_str());
      throw CliError(kExitFailure, "cannot write " + temp);
    }
  }
  std::error_code ec;
  std::filesystem::rename(temp, path, ec);
  if (ec) {
    std::remove(temp.c_str());
    throw CliError(kExitFailure, "cannot rename " + temp + " to " + path + ": " + ec.message());
  }
}

namespace {

// An NV12 frame as 8-bit BGR, the layout OpenCV writes.
cv::Mat ToBgr(const Frame& frame, Converter& converter) {
  cv::Mat bgr(frame.height(), frame.width(), CV_8UC3);
  AVFrame* av = av_frame_alloc();
  av->format = AV_PIX_FMT_BGR24;
  av->width = frame.width();
  av->height = frame.height();
  av->colorspace = AVCOL_SPC_SMPTE170M;
  av->data[0] = bgr.data;
  av->linesize[0] = static_cast<int>(bgr.step[0]);
  converter.FromNv12(frame, av);
  av_frame_free(&av);
  return bgr;
}

std::vector<unsigned char> Encode(const std::string& path, const cv::Mat& image) {
  const std::string ext = std::filesystem::path(path).extension().string();
  std::vector<unsigned char> bytes;
  bool ok = false;
  try {
    ok = !ext.empty() && cv::imencode(ext, image, bytes, {cv::IMWRITE_JPEG_QUALITY, 95});
  } catch (const cv::Exception&) {
    ok = false;
  }
  if (!ok) {
    throw CliError(kExitUsage, "cannot write " + path + ": use a .png or .jpg name");
  }
  return bytes;
}

// The first frame of `reader` at the plug-in's size, NV12.
Frame FirstFrame(const Options& options, MediaReader& reader, Converter& converter) {
  if (options.start_seconds > 0) reader.SeekTo(options.start_seconds);
  const AVFrame* decoded = reader.Next();
  if (decoded == nullptr) {
    throw CliError(kExitFailure, "cannot read " + options.input + ": no frame" +
                                     (options.start_seconds > 0 ? " at the start point" : ""));
  }
  int width = 0, height = 0;
  PluginSize(options, options.input, decoded->width, decoded->height, &width, &height);
  return converter.ToNv12(decoded, width, height);
}

void Summary(Reporter& reporter, const Options& options, const MediaReader& reader,
             const MediaWriter& writer, const PluginHost& host, double seconds) {
  const HostStats& stats = host.stats();
  std::string wrote = "wrote " + options.output + ": " + Size(writer.width(), writer.height()) +
                      " " + writer.codec_name() + ", " + std::to_string(writer.frames_written()) +
                      " frames";
  if (!writer.audio_note().empty()) wrote += "; " + writer.audio_note();
  reporter.Note(wrote);
  reporter.Note("frames: " + std::to_string(reader.frames_read()) + " in, " +
                std::to_string(writer.frames_written()) + " out" +
                (reader.damaged_frames() > 0
                     ? " (" + std::to_string(reader.damaged_frames()) + " decoded with errors)"
                     : ""));
  reporter.Note("enlarge: mean " + Fixed(stats.MeanMs(), 1) + " ms, 95th percentile " +
                Fixed(stats.PercentileMs(95), 1) + " ms per frame; " +
                Fixed(seconds > 0 ? double(stats.frames) / seconds : 0.0, 1) + " fps overall in " +
                Fixed(seconds, 1) + " s");
  std::string used = "network:";
  const char* sep = " ";
  for (Path path : {Path::kFull, Path::kLight, Path::kBilinear}) {
    const long n = stats.per_path[static_cast<int>(path)];
    if (n == 0) continue;
    used += sep + std::string(PathName(path)) + " " + std::to_string(n) + " frame" + (n == 1 ? "" : "s");
    sep = ", ";
  }
  reporter.Note(used);
  std::string governor;
  if (stats.fallbacks > 0) {
    governor += "moved to the light network " + std::to_string(stats.fallbacks) + " time" +
                (stats.fallbacks == 1 ? "" : "s");
  }
  if (stats.refused > 0) {
    const long bilinear = stats.per_path[static_cast<int>(Path::kBilinear)];
    governor += (governor.empty() ? "" : "; ") + std::string("refused ") +
                std::to_string(stats.refused) + " frame" + (stats.refused == 1 ? "" : "s") + ", " +
                std::to_string(bilinear) + " of them written as a plain bilinear 2x";
  }
  if (!governor.empty()) reporter.Note("governor: " + governor);
}

// The plan's segment `given.segment`, and the options that enlarge it: the
// plan's input, piece, network and codec, offline.
Segment PlannedSegment(const Options& given, Options& options) {
  const std::vector<Segment> plan = ReadPlan(given.plan);
  if (given.segment < 0 || given.segment >= static_cast<int>(plan.size())) {
    throw CliError(kExitUsage, given.plan + " has segments 0 to " + std::to_string(plan.size() - 1) +
                                   ", not " + std::to_string(given.segment));
  }
  const Segment& s = plan[given.segment];
  options.input = s.input;
  options.output = s.piece;
  options.offline = true;
  options.net = s.net == "light" ? NET_TYPE_LIGHT : NET_TYPE_FULL;
  options.encode.codec = s.codec;
  options.encode.audio = false;  // the join takes it from the original
  std::error_code ec;
  std::filesystem::create_directories(std::filesystem::path(s.piece).parent_path(), ec);
  return s;
}

}  // namespace

void RunUpscale(const Options& given) {
  Options options = given;
  std::optional<Segment> segment;
  if (!given.plan.empty()) segment = PlannedSegment(given, options);
  MediaReader reader(options.input, options.encode.threads);
  int width = 0, height = 0;
  PluginSize(options, options.input, reader.width(), reader.height(), &width, &height);
  std::unique_ptr<PluginHost> host =
      options.offline ? PluginHost::CreateOffline(options.net) : PluginHost::CreateDefault(options.net);
  if (segment) {
    if (reader.video()->time_base.num != segment->tb_num ||
        reader.video()->time_base.den != segment->tb_den) {
      throw CliError(kExitFailure, options.input + " is not the video " + given.plan + " was made for");
    }
    // The first segment reads from the file's start, as a whole-file run does.
    reader.LimitTo(segment->start_pts, segment->end_pts, segment->index > 0);
  } else if (options.start_seconds > 0) {
    reader.SeekTo(options.start_seconds);
  }
  MediaWriter writer(options.output, options.encode, reader);
  if (segment) writer.SetTag(kPieceTag, PieceTag(*segment));
  reader.set_audio_sink([&writer](AVPacket* packet) { writer.WriteAudio(packet); });

  Reporter reporter(options.quiet, options.stats);
  long expected = reader.ExpectedFrames();
  if (options.frames > 0) expected = expected > 0 ? std::min(expected, options.frames) : options.frames;
  reporter.Start(expected);
  if (width != reader.width() || height != reader.height()) {
    reporter.Note("fitting " + Size(reader.width(), reader.height()) + " frames to " +
                  Size(width, height) + " before enlarging");
  }

  Converter converter;
  int last_width = 0, last_height = 0;
  long index = 0;
  const AVFrame* decoded = nullptr;
  while ((options.frames == 0 || index < options.frames) && (decoded = reader.Next()) != nullptr) {
    CheckInterrupted();
    ++index;
    if (decoded->width != last_width || decoded->height != last_height) {
      const std::string where = "frame " + std::to_string(index);
      PluginSize(options, options.input + " at " + where, decoded->width, decoded->height, &width,
                 &height);
      if (last_width != 0) {
        reporter.Note(where + ": size changes from " + Size(last_width, last_height) + " to " +
                      Size(decoded->width, decoded->height) + "; the output stays " +
                      Size(writer.width(), writer.height()));
      }
      last_width = decoded->width;
      last_height = decoded->height;
    }
    const Frame nv12 = converter.ToNv12(decoded, width, height);
    const Enlarged enlarged = host->Enlarge(nv12);
    if (enlarged.fell_back) {
      reporter.Note("frame " + std::to_string(index) +
                    ": the governor moved to the light network (the full one ran over its budget)");
    }
    if (enlarged.refused_here) {
      reporter.Note("frame " + std::to_string(index) + ": the governor refused " +
                    Size(width, height) +
                    " frames (the light network ran over its budget); they are enlarged with a "
                    "plain bilinear 2x from here on");
    }
    const double seconds =
        decoded->best_effort_timestamp == AV_NOPTS_VALUE
            ? 0.0
            : double(decoded->best_effort_timestamp) * av_q2d(reader.video()->time_base) -
                  double(reader.origin_us()) / AV_TIME_BASE;
    writer.WriteVideo(enlarged.frame, decoded->best_effort_timestamp);
    reporter.Frame(index, seconds, width, height, enlarged);
  }
  if (index == 0 && options.start_seconds > 0) {
    throw CliError(kExitFailure, options.input + " has no frame at or after the start point");
  }
  if (decoded == nullptr) reader.CheckComplete();
  if (segment && writer.frames_written() != segment->frames) {
    throw CliError(kExitFailure, "segment " + std::to_string(segment->index) + " of " + given.plan +
                                     ": " + std::to_string(segment->frames) + " frames planned, " +
                                     std::to_string(writer.frames_written()) +
                                     " read; has the input changed since it was planned?");
  }
  writer.Finish();
  const double seconds = reporter.elapsed_seconds();
  reporter.Stop();
  Summary(reporter, options, reader, writer, *host, seconds);
}

void RunImage(const Options& options) {
  MediaReader reader(options.input, 0);
  Converter converter;
  const Frame nv12 = FirstFrame(options, reader, converter);
  std::unique_ptr<PluginHost> host = PluginHost::CreateDefault(options.net);
  const Enlarged enlarged = host->Enlarge(nv12);
  WriteFileAtomically(options.output, Encode(options.output, ToBgr(enlarged.frame, converter)));
  Reporter reporter(options.quiet, false);
  reporter.Note("wrote " + options.output + ": " + Size(enlarged.frame.width(), enlarged.frame.height()) +
                ", " + PathName(enlarged.path) + " network, " + Fixed(enlarged.ms, 1) + " ms");
}

namespace {

// "WxH" (centred) or "WxH+X+Y", in input pixels, clamped to the frame.
cv::Rect ParseCrop(const std::string& text, int width, int height) {
  int w = std::min(width, 320), h = std::min(height, 180), x = -1, y = -1;
  if (!text.empty()) {
    char tail = 0;
    const int n = std::sscanf(text.c_str(), "%dx%d+%d+%d%c", &w, &h, &x, &y, &tail);
    if (!(n == 2 || n == 4) || w <= 0 || h <= 0 || (n == 4 && (x < 0 || y < 0))) {
      throw CliError(kExitUsage, "--crop takes WxH or WxH+X+Y, not " + text);
    }
  }
  w = std::min(w, width);
  h = std::min(h, height);
  if (x < 0) x = (width - w) / 2;
  if (y < 0) y = (height - h) / 2;
  x = std::min(x, width - w);
  y = std::min(y, height - h);
  return cv::Rect(x, y, w, h);
}

}  // namespace

void RunCompare(const Options& options) {
  MediaReader reader(options.input, 0);
  Converter converter;
  const Frame nv12 = FirstFrame(options, reader, converter);
  const cv::Rect crop = ParseCrop(options.crop, nv12.width(), nv12.height());
  std::unique_ptr<PluginHost> host = PluginHost::CreateDefault(options.net);
  const Enlarged network = host->Enlarge(nv12);

  // Both panels share the plug-in's chroma, so they differ only in luma.
  Frame bicubic = Frame::Create(network.frame.width(), network.frame.height());
  {
    FrameLock from(network.frame, true);
    FrameLock to(bicubic);
    const size_t rows = VLPixelBufferGetHeightOfPlane(bicubic.get(), 1);
    for (size_t y = 0; y < rows; ++y) {
      std::copy_n(network.frame.plane(1) + y * network.frame.stride(1), bicubic.stride(1),
                  bicubic.plane(1) + y * bicubic.stride(1));
    }
  }
  KernelContext ctx;
  BicubicEnlargeLuma(nv12, bicubic, ctx);

  const cv::Rect region(2 * crop.x, 2 * crop.y, 2 * crop.width, 2 * crop.height);
  const cv::Mat left = ToBgr(bicubic, converter)(region);
  const cv::Mat right = ToBgr(network.frame, converter)(region);
  const int gap = 8, label = 30;
  cv::Mat canvas(label + region.height, 2 * region.width + gap, CV_8UC3, cv::Scalar(32, 32, 32));
  left.copyTo(canvas(cv::Rect(0, label, region.width, region.height)));
  right.copyTo(canvas(cv::Rect(region.width + gap, label, region.width, region.height)));
  const auto caption = [&](const std::string& text, int x) {
    cv::putText(canvas, text, cv::Point(x + 6, 21), cv::FONT_HERSHEY_SIMPLEX, 0.55,
                cv::Scalar(240, 240, 240), 1, cv::LINE_AA);
  };
  caption("bicubic 2x", 0);
  caption(std::string(PathName(network.path)) + " network 2x", region.width + gap);
  WriteFileAtomically(options.output, Encode(options.output, canvas));
  Reporter reporter(options.quiet, false);
  reporter.Note("wrote " + options.output + ": crop " + Size(crop.width, crop.height) + "+" +
                std::to_string(crop.x) + "+" + std::to_string(crop.y) + " of " +
                Size(nv12.width(), nv12.height()) + ", bicubic left, " + PathName(network.path) +
                " network right");
}

}  // namespace vorlith::cli
