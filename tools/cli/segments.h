// Long videos in pieces: a plan cuts a video at keyframes into ranges that
// separate processes (a cluster's array tasks) enlarge to their own files,
// and a join puts the pieces back together with the original's audio.
//
// A plan is JSON, one segment per line, each line complete on its own so
// that a task needs only its line:
//   {"index":0,"segments":4,"start":0.0,"end":0.48,"keyframe":0,"frames":12,
//    "start_pts":0,"end_pts":6144,"time_base":"1/12800","input":"/abs/in.mp4",
//    "piece":"/abs/in-pieces/0000.mkv","net":"full","codec":"ffv1"}
// start and end are seconds from the file's start; keyframe is the number of
// the frame (presentation order, from 0) the range starts on; start_pts and
// end_pts bound the range [start_pts, end_pts) in the video's time base.
#ifndef VORLITH_TOOLS_CLI_SEGMENTS_H_
#define VORLITH_TOOLS_CLI_SEGMENTS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace vorlith::cli {

struct Segment {
  int index = 0;
  int segments = 0;
  double start = 0, end = 0;
  long keyframe = 0;
  long frames = 0;
  int64_t start_pts = 0, end_pts = 0;
  int tb_num = 1, tb_den = 1;
  std::string input, piece, net = "full", codec = "ffv1";
};

// The metadata keys a piece carries, so a join can tell it belongs.
inline constexpr const char* kPieceTag = "vorlith_piece";

// "index/segments frames input": what a piece of `segment` declares.
std::string PieceTag(const Segment& segment);

// Every frame's timestamp and keyframe flag, read without decoding.
struct VideoIndex {
  int tb_num = 1, tb_den = 1;
  int64_t origin_pts = 0;  // the file's start, in the video's time base
  double fps = 25;
  std::vector<int64_t> pts;  // presentation order
  std::vector<bool> key;
};

// Throws CliError when the video's packets carry no timestamps.
VideoIndex ScanVideo(const std::string& path);

// Cuts `index` into at most `segments` ranges, each starting on a keyframe
// as near as there is to an equal share of the frames. Fewer ranges when
// there are fewer keyframes.
std::vector<Segment> MakePlan(const VideoIndex& index, int segments);

std::string ToJson(const Segment& segment);
// Reads every line of a plan file; throws CliError naming the line at fault.
std::vector<Segment> ReadPlan(const std::string& path);

}  // namespace vorlith::cli

#endif  // VORLITH_TOOLS_CLI_SEGMENTS_H_
