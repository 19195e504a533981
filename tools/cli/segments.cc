#include "tools/cli/segments.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <memory>

#include <nlohmann/json.hpp>

extern "C" {
#include <libavformat/avformat.h>
}

#include "tools/cli/frame.h"
#include "tools/cli/media.h"

namespace vorlith::cli {

std::string PieceTag(const Segment& segment) {
  return std::to_string(segment.index) + "/" + std::to_string(segment.segments) + " " +
         std::to_string(segment.frames) + " " + segment.input;
}

VideoIndex ScanVideo(const std::string& path) {
  int video = -1;
  const Demuxer demuxer = OpenDemuxer(path, &video);
  AVFormatContext* format = demuxer.get();
  AVStream* stream = format->streams[video];

  VideoIndex index;
  index.tb_num = stream->time_base.num;
  index.tb_den = stream->time_base.den;
  const AVRational rate = av_guess_frame_rate(format, stream, nullptr);
  if (rate.num > 0 && rate.den > 0) index.fps = av_q2d(rate);
  std::vector<std::pair<int64_t, bool>> frames;
  AVPacket* packet = av_packet_alloc();
  int status;
  while ((status = av_read_frame(format, packet)) >= 0) {
    if (packet->stream_index == video && !(packet->flags & AV_PKT_FLAG_DISCARD)) {
      if (packet->pts == AV_NOPTS_VALUE) {
        av_packet_free(&packet);
        throw CliError(kExitFailure, path + " cannot be cut: its video packets carry no timestamps "
                                            "(remux it to .mkv or .mp4 first)");
      }
      frames.emplace_back(packet->pts, (packet->flags & AV_PKT_FLAG_KEY) != 0);
    }
    av_packet_unref(packet);
  }
  av_packet_free(&packet);
  if (status != AVERROR_EOF) {
    throw CliError(kExitFailure, path + " is damaged or truncated: " + AvError(status));
  }
  if (frames.empty()) throw CliError(kExitFailure, path + " has no video frame");
  std::sort(frames.begin(), frames.end());
  for (const auto& [pts, key] : frames) {
    index.pts.push_back(pts);
    index.key.push_back(key);
  }
  index.origin_pts = index.pts.front();
  if (format->start_time != AV_NOPTS_VALUE) {
    index.origin_pts = std::min(index.origin_pts,
                                av_rescale_q(format->start_time, AV_TIME_BASE_Q, stream->time_base));
  }
  return index;
}

std::vector<Segment> MakePlan(const VideoIndex& index, int segments) {
  const long total = static_cast<long>(index.pts.size());
  // Range starts, as frame numbers: 0, then the keyframe nearest each equal
  // share of the frames (ties to the earlier one).
  std::vector<long> starts = {0};
  for (int i = 1; i < segments; ++i) {
    const double ideal = double(total) * i / segments;
    long best = -1;
    for (long f = starts.back() + 1; f < total; ++f) {
      if (!index.key[f]) continue;
      if (best < 0 || std::fabs(double(f) - ideal) < std::fabs(double(best) - ideal)) best = f;
      if (double(f) > ideal) break;
    }
    if (best > 0) starts.push_back(best);
  }
  starts.erase(std::unique(starts.begin(), starts.end()), starts.end());

  const AVRational tb{index.tb_num, index.tb_den};
  const auto seconds = [&](int64_t pts) { return double(pts - index.origin_pts) * av_q2d(tb); };
  std::vector<Segment> plan;
  for (size_t i = 0; i < starts.size(); ++i) {
    const long first = starts[i];
    const long next = i + 1 < starts.size() ? starts[i + 1] : total;
    Segment s;
    s.index = static_cast<int>(i);
    s.segments = static_cast<int>(starts.size());
    s.keyframe = first;
    s.frames = next - first;
    s.start_pts = i == 0 ? index.origin_pts : index.pts[first];
    s.end_pts = next < total ? index.pts[next] : index.pts.back() + 1;
    s.start = seconds(s.start_pts);
    s.end = next < total ? seconds(s.end_pts) : seconds(index.pts.back()) + 1.0 / index.fps;
    s.tb_num = index.tb_num;
    s.tb_den = index.tb_den;
    plan.push_back(s);
  }
  return plan;
}

std::string ToJson(const Segment& s) {
  const auto round6 = [](double v) { return std::round(v * 1e6) / 1e6; };
  nlohmann::ordered_json line = {
      {"index", s.index},
      {"segments", s.segments},
      {"start", round6(s.start)},
      {"end", round6(s.end)},
      {"keyframe", s.keyframe},
      {"frames", s.frames},
      {"start_pts", s.start_pts},
      {"end_pts", s.end_pts},
      {"time_base", std::to_string(s.tb_num) + "/" + std::to_string(s.tb_den)},
      {"input", s.input},
      {"piece", s.piece},
      {"net", s.net},
      {"codec", s.codec},
  };
  return line.dump();
}

std::vector<Segment> ReadPlan(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw CliError(kExitFailure, "cannot read the plan " + path);
  std::vector<Segment> plan;
  int number = 0;
  for (std::string text; std::getline(in, text);) {
    ++number;
    if (text.find_first_not_of(" \t\r") == std::string::npos) continue;
    const std::string where = path + " line " + std::to_string(number);
    Segment s;
    try {
      const nlohmann::json line = nlohmann::json::parse(text);
      s.index = line.at("index").get<int>();
      s.segments = line.at("segments").get<int>();
      s.start = line.at("start").get<double>();
      s.end = line.at("end").get<double>();
      s.keyframe = line.at("keyframe").get<long>();
      s.frames = line.at("frames").get<long>();
      s.start_pts = line.at("start_pts").get<int64_t>();
      s.end_pts = line.at("end_pts").get<int64_t>();
      const std::string tb = line.at("time_base").get<std::string>();
      if (std::sscanf(tb.c_str(), "%d/%d", &s.tb_num, &s.tb_den) != 2 || s.tb_num <= 0 ||
          s.tb_den <= 0) {
        throw CliError(kExitFailure, where + ": time_base is not N/D: " + tb);
      }
      s.input = line.at("input").get<std::string>();
      s.piece = line.at("piece").get<std::string>();
      s.net = line.at("net").get<std::string>();
      s.codec = line.at("codec").get<std::string>();
    } catch (const nlohmann::json::exception& e) {
      throw CliError(kExitFailure, where + " is not a plan line: " + e.what());
    }
    if (s.net != "full" && s.net != "light") throw CliError(kExitFailure, where + ": unknown net " + s.net);
    if (s.codec != "ffv1" && s.codec != "h264") {
      throw CliError(kExitFailure, where + ": pieces are ffv1 or h264, not " + s.codec);
    }
    if (s.index != static_cast<int>(plan.size()) || s.frames <= 0 || s.end_pts <= s.start_pts) {
      throw CliError(kExitFailure, where + ": segment " + std::to_string(s.index) +
                                       " is out of order or empty");
    }
    if (!plan.empty() && (s.segments != plan[0].segments || s.input != plan[0].input ||
                          s.start_pts != plan.back().end_pts)) {
      throw CliError(kExitFailure, where + ": does not continue the plan's earlier lines");
    }
    plan.push_back(s);
  }
  if (plan.empty() || static_cast<int>(plan.size()) != plan[0].segments) {
    throw CliError(kExitFailure, "the plan " + path + " has " + std::to_string(plan.size()) +
                                     " lines for " +
                                     std::to_string(plan.empty() ? 0 : plan[0].segments) +
                                     " segments");
  }
  return plan;
}

}  // namespace vorlith::cli
