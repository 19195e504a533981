// Video and image files through FFmpeg's libraries: decoding any input they
// read, converting frames to and from NV12, and encoding and muxing the
// enlarged frames with the input's timing and audio.
#ifndef VORLITH_TOOLS_CLI_MEDIA_H_
#define VORLITH_TOOLS_CLI_MEDIA_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "tools/cli/frame.h"

extern "C" {
struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;
struct SwsContext;
}

namespace vorlith::cli {

// FFmpeg's error text for a negative status.
std::string AvError(int status);

// A file's demuxer with its streams probed, and its first video stream;
// closed when dropped. Throws CliError when the file cannot be read or has
// no video. For reading packets without decoding them.
struct FormatCloser {
  void operator()(AVFormatContext* format) const;
};
using Demuxer = std::unique_ptr<AVFormatContext, FormatCloser>;
Demuxer OpenDemuxer(const std::string& path, int* video_index);

// Reads the first video stream of a file, frame by frame, and hands the
// packets of its first audio stream to a sink on the way.
class MediaReader {
 public:
  // Throws CliError when the file cannot be opened or has no decodable video.
  MediaReader(const std::string& path, int threads);
  ~MediaReader();
  MediaReader(const MediaReader&) = delete;
  MediaReader& operator=(const MediaReader&) = delete;

  // Starts at `seconds` after the first timestamp of the file: seeks to the
  // key frame before it and drops the frames decoded before it.
  void SeekTo(double seconds);
  // Reads only the frames with timestamps in [start_pts, end_pts) (the video
  // stream's time base), seeking first to the keyframe at start_pts when
  // `seek`; output timestamps count from start_pts.
  void LimitTo(int64_t start_pts, int64_t end_pts, bool seek);
  // The next decoded frame, valid until the next call; null at the end.
  const AVFrame* Next();
  // Throws CliError when the input ended abnormally: a read error, a last
  // frame that decoded with errors, or fewer frames than the file declares.
  // Only meaningful once Next has returned null.
  void CheckComplete() const;

  void set_audio_sink(std::function<void(AVPacket*)> sink) { audio_sink_ = std::move(sink); }
  const std::string& path() const { return path_; }
  AVFormatContext* format() const { return format_; }
  AVStream* video() const;
  AVStream* audio() const;  // null without audio
  // Frame rate as the container and codec suggest it (never zero).
  double fps() const;
  int width() const;
  int height() const;
  // Frames the file declares or its duration implies from the start point;
  // -1 when unknown.
  long ExpectedFrames() const;
  // Where output timestamps start, in microseconds on the file's clock.
  int64_t origin_us() const { return origin_us_; }
  long frames_read() const { return frames_; }
  long damaged_frames() const { return damaged_; }

 private:
  void Open(int threads);
  void Close();
  // The video's length as the file states it, in seconds; -1 when unstated.
  double DeclaredSeconds() const;

  std::string path_;
  AVFormatContext* format_ = nullptr;
  AVCodecContext* decoder_ = nullptr;
  AVPacket* packet_ = nullptr;
  AVFrame* frame_ = nullptr;
  int video_index_ = -1;
  int audio_index_ = -1;
  std::function<void(AVPacket*)> audio_sink_;
  int64_t origin_us_ = 0;
  int64_t start_pts_;  // drop frames before this (stream time base); none when unset
  int64_t end_pts_;    // stop at this (stream time base); none when unset
  bool draining_ = false;
  bool ended_ = false;  // reached end_pts_
  bool read_error_ = false;
  std::string read_error_text_;
  bool last_damaged_ = false;
  int64_t last_pts_;
  bool seeked_ = false;
  long frames_ = 0;
  long damaged_ = 0;
};

// NV12 <-> other pixel formats and sizes with swscale, keeping one context
// per direction. YUV input keeps its matrix; RGB is taken as BT.601, the
// NV12 as video range.
class Converter {
 public:
  Converter() = default;
  ~Converter();
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  // A decoded frame as a new NV12 frame of width x height.
  Frame ToNv12(const AVFrame* src, int width, int height);
  // An NV12 frame into `dst`, whose format, width and height are set and
  // whose planes are allocated.
  void FromNv12(const Frame& src, AVFrame* dst);

 private:
  SwsContext* to_nv12_ = nullptr;
  SwsContext* from_nv12_ = nullptr;
};

struct EncodeOptions {
  std::string codec;  // "h264", "ffv1", "raw"; empty: chosen by the file name
  int crf = 18;
  std::string preset = "medium";
  int threads = 0;
  bool audio = true;  // copy the input's first audio stream
};

// Writes enlarged frames to a temporary file beside the output, renamed into
// place by Finish; destroyed before that, it deletes the temporary file.
class MediaWriter {
 public:
  // Opens the temporary file at once, so that an unwritable output fails
  // before any work. `input` gives the timing and the audio stream to copy.
  MediaWriter(const std::string& path, const EncodeOptions& options, const MediaReader& input);
  ~MediaWriter();
  MediaWriter(const MediaWriter&) = delete;
  MediaWriter& operator=(const MediaWriter&) = delete;

  // Encodes one frame; the first one fixes the output size, and frames of
  // another size are scaled to it. `pts` is in the input video time base.
  void WriteVideo(const Frame& frame, int64_t pts);
  // Copies one packet of the input's audio stream (ignored without one).
  void WriteAudio(const AVPacket* packet);
  // Copies an encoded video packet of `from` instead of encoding frames (all
  // packets of one writer come this way or none), `offset` added to its
  // timestamps in the output stream's time base.
  void CopyVideo(const AVStream* from, AVPacket* packet, int64_t offset_us);
  // A metadata entry of the file; before the first frame.
  void SetTag(const std::string& key, const std::string& value);
  // Drains the encoder, finishes the file and moves it into place.
  void Finish();

  std::string codec_name() const;
  bool has_audio() const { return audio_stream_ != nullptr; }
  const std::string& audio_note() const { return audio_note_; }
  int width() const { return width_; }
  int height() const { return height_; }
  long frames_written() const { return frames_; }

 private:
  void Open(int width, int height);
  void Encode(AVFrame* frame);
  void Mux(AVPacket* packet, AVStream* stream);

  std::string path_, temp_path_;
  EncodeOptions options_;
  const MediaReader& input_;
  AVFormatContext* format_ = nullptr;
  AVCodecContext* encoder_ = nullptr;
  AVStream* video_stream_ = nullptr;
  AVStream* audio_stream_ = nullptr;
  AVPacket* packet_ = nullptr;
  std::deque<AVPacket*> pending_audio_;  // audio read before the header is out
  Converter converter_;
  std::string audio_note_;
  void WriteHeader();

  bool header_written_ = false;
  bool copying_ = false;  // packets come through CopyVideo
  bool finished_ = false;
  bool frame_index_pts_ = false;  // formats that store no timestamps
  int pixel_format_ = -1;
  int width_ = 0, height_ = 0;
  int64_t last_pts_;
  long frames_ = 0;
};

}  // namespace vorlith::cli

#endif  // VORLITH_TOOLS_CLI_MEDIA_H_
