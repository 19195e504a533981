// `vorlith plan` and `vorlith join`: the two ends of enlarging one video as
// many independent pieces (see segments.h).
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "tools/cli/commands.h"
#include "tools/cli/report.h"
#include "tools/cli/segments.h"

namespace vorlith::cli {

namespace fs = std::filesystem;

void RunPlan(const Options& options) {
  const VideoIndex index = ScanVideo(options.input);
  int wanted = options.segments;
  if (options.segment_seconds > 0) {
    const double seconds = double(index.pts.size()) / index.fps;
    wanted = std::max(1, static_cast<int>(std::ceil(seconds / options.segment_seconds - 1e-9)));
  }
  std::vector<Segment> plan = MakePlan(index, wanted);
  const fs::path input = fs::absolute(options.input).lexically_normal();
  const fs::path pieces = fs::absolute(options.pieces.empty()
                                           ? fs::path(input.stem().string() + "-pieces")
                                           : fs::path(options.pieces))
                              .lexically_normal();
  std::string text;
  for (Segment& s : plan) {
    char name[32];
    std::snprintf(name, sizeof(name), "%04d.mkv", s.index);
    s.input = input.string();
    s.piece = (pieces / name).string();
    s.net = options.net == NET_TYPE_LIGHT ? "light" : "full";
    s.codec = options.encode.codec.empty() ? "ffv1" : options.encode.codec;
    text += ToJson(s) + "\n";
  }
  if (options.output.empty()) {
    std::fputs(text.c_str(), stdout);
  } else {
    WriteFileAtomically(options.output, std::vector<unsigned char>(text.begin(), text.end()));
  }
  if (!options.quiet && static_cast<int>(plan.size()) < wanted) {
    std::fprintf(stderr,
                 "vorlith: %s has keyframes for %zu segments only (of %d asked for); a finer cut "
                 "needs more keyframes (re-encode with a shorter keyframe interval)\n",
                 options.input.c_str(), plan.size(), wanted);
  }
}

namespace {

// What a piece file holds, read without decoding.
struct PieceInfo {
  std::string tag, codec;
  int width = 0, height = 0;
  long packets = 0;
  std::string extradata;
};

PieceInfo ProbePiece(const std::string& path) {
  int video = -1;
  const Demuxer demuxer = OpenDemuxer(path, &video);
  AVFormatContext* format = demuxer.get();
  PieceInfo info;
  if (const AVDictionaryEntry* tag = av_dict_get(format->metadata, kPieceTag, nullptr, 0)) {
    info.tag = tag->value;
  }
  const AVCodecParameters* par = format->streams[video]->codecpar;
  info.codec = avcodec_get_name(par->codec_id);
  info.width = par->width;
  info.height = par->height;
  info.extradata.assign(reinterpret_cast<const char*>(par->extradata), par->extradata_size);
  AVPacket* packet = av_packet_alloc();
  int status;
  while ((status = av_read_frame(format, packet)) >= 0) {
    info.packets += packet->stream_index == video;
    av_packet_unref(packet);
  }
  av_packet_free(&packet);
  if (status != AVERROR_EOF) throw CliError(kExitFailure, path + " is damaged: " + AvError(status));
  return info;
}

// Every piece there, whole and of this plan; otherwise one error that lists
// what is missing or wrong and how to redo it.
void CheckPieces(const std::vector<Segment>& plan, const std::string& plan_path,
                 std::vector<PieceInfo>& infos) {
  std::vector<int> missing;
  std::string wrong;
  for (const Segment& s : plan) {
    PieceInfo info;
    if (!fs::exists(s.piece)) {
      missing.push_back(s.index);
    } else {
      try {
        info = ProbePiece(s.piece);
        if (info.tag != PieceTag(s)) {
          wrong += "\n  " + s.piece + " is not segment " + std::to_string(s.index) + " of this plan";
        } else if (info.packets != s.frames) {
          wrong += "\n  " + s.piece + " has " + std::to_string(info.packets) + " of " +
                   std::to_string(s.frames) + " frames";
        } else if (!infos.empty() && (info.width != infos[0].width || info.height != infos[0].height ||
                                      info.codec != infos[0].codec)) {
          wrong += "\n  " + s.piece + " differs in size or codec from " + plan[0].piece;
        }
      } catch (const CliError& e) {
        wrong += std::string("\n  ") + e.what();
      }
    }
    infos.push_back(info);
  }
  if (missing.empty() && wrong.empty()) return;
  std::string message = "cannot join " + plan_path + ":";
  if (!missing.empty()) {
    std::string list;
    for (int k : missing) list += (list.empty() ? "" : ", ") + std::to_string(k);
    message += " segment" + std::string(missing.size() == 1 ? " " : "s ") + list + " of " +
               std::to_string(plan.size()) + (missing.size() == 1 ? " is" : " are") + " missing";
  }
  if (!wrong.empty()) message += (missing.empty() ? " unusable pieces:" : "; unusable pieces:") + wrong;
  message += "\nredo each with: vorlith upscale --plan " + plan_path + " --segment K";
  throw CliError(kExitFailure, message);
}

// The original's audio packets, handed to the writer up to a time so that
// they interleave with the video.
class AudioFeed {
 public:
  AudioFeed(const MediaReader& original, MediaWriter& writer) : writer_(writer) {
    if (original.audio() == nullptr || !writer.has_audio()) return;
    index_ = original.audio()->index;
    time_base_ = original.audio()->time_base;
    if (avformat_open_input(&format_, original.path().c_str(), nullptr, nullptr) < 0) {
      throw CliError(kExitFailure, "cannot read the audio of " + original.path());
    }
    packet_ = av_packet_alloc();
  }
  ~AudioFeed() {
    av_packet_free(&packet_);
    avformat_close_input(&format_);
  }
  AudioFeed(const AudioFeed&) = delete;
  AudioFeed& operator=(const AudioFeed&) = delete;

  // Writes every audio packet that starts before `seconds` on the file's clock.
  void Until(double seconds) {
    while (format_ != nullptr && !done_) {
      if (!held_) {
        const int status = av_read_frame(format_, packet_);
        if (status < 0) {
          done_ = true;
          return;
        }
        if (packet_->stream_index != index_) {
          av_packet_unref(packet_);
          continue;
        }
        held_ = true;
      }
      if (packet_->pts != AV_NOPTS_VALUE && double(packet_->pts) * av_q2d(time_base_) > seconds) {
        return;
      }
      writer_.WriteAudio(packet_);
      av_packet_unref(packet_);
      held_ = false;
    }
  }

 private:
  MediaWriter& writer_;
  AVFormatContext* format_ = nullptr;
  AVPacket* packet_ = nullptr;
  AVRational time_base_{1, 1};
  int index_ = -1;
  bool held_ = false, done_ = false;
};

}  // namespace

void RunJoin(const Options& options) {
  const std::vector<Segment> plan = ReadPlan(options.plan);
  std::vector<PieceInfo> infos;
  CheckPieces(plan, options.plan, infos);

  MediaReader original(plan[0].input, options.encode.threads);
  if (original.video()->time_base.num != plan[0].tb_num ||
      original.video()->time_base.den != plan[0].tb_den) {
    throw CliError(kExitFailure, plan[0].input + " is not the video " + options.plan + " was made for");
  }
  const bool copy = options.encode.codec == "ffv1" && infos[0].codec == "ffv1";
  MediaWriter writer(options.output, options.encode, original);
  AudioFeed audio(original, writer);
  Reporter reporter(options.quiet, false);
  long total = 0;
  for (const Segment& s : plan) total += s.frames;
  reporter.Start(total);

  const AVRational tb = original.video()->time_base;
  long written = 0;
  Converter converter;
  for (const Segment& s : plan) {
    if (g_interrupted) throw CliError(kExitInterrupted, "interrupted; no output written");
    // Piece timestamps count from the segment's start.
    const int64_t start_us = av_rescale_q(s.start_pts, tb, AV_TIME_BASE_Q);
    const double start_seconds = double(start_us) / AV_TIME_BASE;
    long frames = 0;
    if (copy) {
      if (infos[&s - plan.data()].extradata != infos[0].extradata) {
        throw CliError(kExitFailure, s.piece + " was encoded with other settings than " +
                                         plan[0].piece + "; join with --codec h264");
      }
      // Packets only: no decoder for pieces that are copied.
      int video = -1;
      const Demuxer piece = OpenDemuxer(s.piece, &video);
      const AVStream* stream = piece->streams[video];
      AVPacket* packet = av_packet_alloc();
      while (av_read_frame(piece.get(), packet) >= 0) {
        if (packet->stream_index == video) {
          const double at = start_seconds + double(packet->pts) * av_q2d(stream->time_base);
          audio.Until(at);
          writer.CopyVideo(stream, packet, start_us - original.origin_us());
          ++frames;
          reporter.Frame(++written, at, infos[0].width, infos[0].height, Enlarged{});
        }
        av_packet_unref(packet);
      }
      av_packet_free(&packet);
    } else {
      MediaReader piece(s.piece, options.encode.threads);
      while (const AVFrame* decoded = piece.Next()) {
        const int64_t rel = av_rescale_q(decoded->best_effort_timestamp, piece.video()->time_base, tb);
        const int64_t pts = s.start_pts + rel;
        const double at = double(pts) * av_q2d(tb);
        audio.Until(at);
        writer.WriteVideo(converter.ToNv12(decoded, decoded->width, decoded->height), pts);
        ++frames;
        reporter.Frame(++written, at, decoded->width, decoded->height, Enlarged{});
      }
      piece.CheckComplete();
    }
    if (frames != s.frames) {
      throw CliError(kExitFailure, s.piece + " gave " + std::to_string(frames) + " of " +
                                       std::to_string(s.frames) + " frames");
    }
  }
  audio.Until(INFINITY);
  writer.Finish();
  reporter.Stop();
  std::string wrote = "wrote " + options.output + ": " + std::to_string(writer.width()) + "x" +
                      std::to_string(writer.height()) + " " + writer.codec_name() + ", " +
                      std::to_string(written) + " frames from " + std::to_string(plan.size()) +
                      " pieces" + (copy ? " (copied, not re-encoded)" : "");
  if (!writer.audio_note().empty()) wrote += "; " + writer.audio_note();
  if (options.remove_pieces) {
    std::error_code ec;
    for (const Segment& s : plan) fs::remove(s.piece, ec);
    const fs::path dir = fs::path(plan[0].piece).parent_path();
    if (fs::is_empty(dir, ec)) fs::remove(dir, ec);
    wrote += "; pieces removed";
  }
  reporter.Note(wrote);
}

}  // namespace vorlith::cli
