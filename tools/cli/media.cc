#include "tools/cli/media.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libavutil/parseutils.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace vorlith::cli {

std::string AvError(int status) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(status, text, sizeof(text));
  return text;
}

void FormatCloser::operator()(AVFormatContext* format) const { avformat_close_input(&format); }

Demuxer OpenDemuxer(const std::string& path, int* video_index) {
  AVFormatContext* format = nullptr;
  int status = avformat_open_input(&format, path.c_str(), nullptr, nullptr);
  if (status < 0) throw CliError(kExitFailure, "cannot read " + path + ": " + AvError(status));
  Demuxer demuxer(format);
  status = avformat_find_stream_info(format, nullptr);
  if (status < 0) throw CliError(kExitFailure, "cannot read " + path + ": " + AvError(status));
  *video_index = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  if (*video_index < 0) throw CliError(kExitFailure, "cannot read " + path + ": it has no video stream");
  return demuxer;
}

namespace {

bool Damaged(const AVFrame* frame) {
  return frame->decode_error_flags != 0 || (frame->flags & AV_FRAME_FLAG_CORRUPT) != 0;
}

// Demuxers copy colour fields from the file unchecked (a Matroska matrix of 59,
// say), and reading an enum that holds a value outside its range is undefined.
// Read the raw integer; anything outside 0..count-1 becomes `unknown` (gaps
// inside that range are valid values and pass through).
template <typename Enum>
Enum Checked(const Enum& field, Enum count, Enum unknown) {
  static_assert(sizeof(Enum) == sizeof(int));
  int raw = 0;
  std::memcpy(&raw, &field, sizeof(raw));
  return raw >= 0 && raw < static_cast<int>(count) ? static_cast<Enum>(raw) : unknown;
}

}  // namespace

// ---- MediaReader -------------------------------------------------------------

MediaReader::MediaReader(const std::string& path, int threads)
    : path_(path), start_pts_(AV_NOPTS_VALUE), end_pts_(AV_NOPTS_VALUE), last_pts_(AV_NOPTS_VALUE) {
  // A constructor that throws runs no destructor: free what Open made.
  try {
    Open(threads);
  } catch (...) {
    Close();
    throw;
  }
}

void MediaReader::Open(int threads) {
  const std::string& path = path_;
  int status = avformat_open_input(&format_, path.c_str(), nullptr, nullptr);
  if (status < 0) {
    throw CliError(kExitFailure, "cannot read " + path + ": " + AvError(status));
  }
  status = avformat_find_stream_info(format_, nullptr);
  if (status < 0) {
    throw CliError(kExitFailure, "cannot read " + path + ": " + AvError(status));
  }
  const AVCodec* codec = nullptr;
  video_index_ = av_find_best_stream(format_, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
  if (video_index_ < 0 || codec == nullptr) {
    throw CliError(kExitFailure, "cannot read " + path + ": " +
                                     (video_index_ == AVERROR_DECODER_NOT_FOUND
                                          ? "no decoder for its video stream"
                                          : "it has no video stream"));
  }
  audio_index_ = av_find_best_stream(format_, AVMEDIA_TYPE_AUDIO, -1, video_index_, nullptr, 0);
  if (audio_index_ < 0) audio_index_ = -1;

  decoder_ = avcodec_alloc_context3(codec);
  avcodec_parameters_to_context(decoder_, video()->codecpar);
  decoder_->thread_count = threads;
  decoder_->pkt_timebase = video()->time_base;
  status = avcodec_open2(decoder_, codec, nullptr);
  if (status < 0 || decoder_->width <= 0 || decoder_->height <= 0) {
    throw CliError(kExitFailure, "cannot decode the video of " + path + ": " +
                                     (status < 0 ? AvError(status) : "no frame size"));
  }
  packet_ = av_packet_alloc();
  frame_ = av_frame_alloc();
  if (format_->start_time != AV_NOPTS_VALUE) origin_us_ = format_->start_time;
}

MediaReader::~MediaReader() { Close(); }

void MediaReader::Close() {
  av_frame_free(&frame_);
  av_packet_free(&packet_);
  avcodec_free_context(&decoder_);
  avformat_close_input(&format_);
}

AVStream* MediaReader::video() const { return format_->streams[video_index_]; }
AVStream* MediaReader::audio() const {
  return audio_index_ < 0 ? nullptr : format_->streams[audio_index_];
}
int MediaReader::width() const { return decoder_->width; }
int MediaReader::height() const { return decoder_->height; }

double MediaReader::fps() const {
  const AVRational rate = av_guess_frame_rate(format_, video(), nullptr);
  return rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 25.0;
}

long MediaReader::ExpectedFrames() const {
  long frames = -1;
  if (video()->nb_frames > 0) {
    frames = static_cast<long>(video()->nb_frames);
  } else if (format_->duration > 0) {
    frames = std::lround(double(format_->duration) / AV_TIME_BASE * fps());
  }
  if (frames > 0 && seeked_) {
    const double skipped = double(origin_us_ - std::max<int64_t>(format_->start_time, 0)) / AV_TIME_BASE;
    frames = std::max(0L, frames - std::lround(skipped * fps()));
  }
  return frames;
}

void MediaReader::SeekTo(double seconds) {
  const int64_t base = format_->start_time == AV_NOPTS_VALUE ? 0 : format_->start_time;
  const int64_t target = base + static_cast<int64_t>(std::llround(seconds * AV_TIME_BASE));
  origin_us_ = target;
  start_pts_ = av_rescale_q(target, AV_TIME_BASE_Q, video()->time_base);
  seeked_ = true;
  // Without a usable index the frames before the target are decoded and
  // dropped instead.
  if (avformat_seek_file(format_, -1, INT64_MIN, target, target, 0) >= 0) {
    avcodec_flush_buffers(decoder_);
  }
}

void MediaReader::LimitTo(int64_t start_pts, int64_t end_pts, bool seek) {
  start_pts_ = start_pts;
  end_pts_ = end_pts;
  origin_us_ = av_rescale_q(start_pts, video()->time_base, AV_TIME_BASE_Q);
  seeked_ = true;
  if (seek && avformat_seek_file(format_, video_index_, INT64_MIN, start_pts, start_pts, 0) >= 0) {
    avcodec_flush_buffers(decoder_);
  }
}

const AVFrame* MediaReader::Next() {
  av_frame_unref(frame_);
  if (ended_) return nullptr;
  for (;;) {
    int status = avcodec_receive_frame(decoder_, frame_);
    if (status == 0) {
      const int64_t pts = frame_->best_effort_timestamp;
      if (start_pts_ != AV_NOPTS_VALUE && pts != AV_NOPTS_VALUE && pts < start_pts_) {
        av_frame_unref(frame_);
        continue;
      }
      // Frames come out in presentation order: the first at the end of the
      // range ends it.
      if (end_pts_ != AV_NOPTS_VALUE && pts != AV_NOPTS_VALUE && pts >= end_pts_) {
        av_frame_unref(frame_);
        ended_ = true;
        return nullptr;
      }
      if (pts != AV_NOPTS_VALUE) last_pts_ = pts;
      last_damaged_ = Damaged(frame_);
      damaged_ += last_damaged_;
      ++frames_;
      return frame_;
    }
    if (status == AVERROR_EOF) return nullptr;
    if (status != AVERROR(EAGAIN)) {
      throw CliError(kExitFailure, path_ + " is damaged or truncated: decoding failed after frame " +
                                       std::to_string(frames_) + " (" + AvError(status) + ")");
    }
    status = av_read_frame(format_, packet_);
    if (status < 0) {
      if (status != AVERROR_EOF) {
        read_error_ = true;
        read_error_text_ = AvError(status);
      }
      draining_ = true;
      avcodec_send_packet(decoder_, nullptr);
      continue;
    }
    if (packet_->stream_index == video_index_) {
      // A packet the decoder rejects is damage in the stream; the frames
      // around it say so through their error flags.
      if (avcodec_send_packet(decoder_, packet_) < 0) {
        ++damaged_;
        last_damaged_ = true;
      }
    } else if (packet_->stream_index == audio_index_ && audio_sink_) {
      audio_sink_(packet_);
    }
    av_packet_unref(packet_);
  }
}

double MediaReader::DeclaredSeconds() const {
  if (format_->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE) return -1;
  if (video()->duration > 0) return double(video()->duration) * av_q2d(video()->time_base);
  // Matroska keeps a track's length in a tag.
  if (const AVDictionaryEntry* tag = av_dict_get(video()->metadata, "DURATION", nullptr, 0)) {
    int64_t us = 0;
    if (av_parse_time(&us, tag->value, 1) == 0 && us > 0) return double(us) / AV_TIME_BASE;
  }
  return -1;
}

void MediaReader::CheckComplete() const {
  const std::string where = " after frame " + std::to_string(frames_);
  if (read_error_) {
    throw CliError(kExitFailure, path_ + " is damaged or truncated: reading stopped" + where +
                                     " (" + read_error_text_ + ")");
  }
  if (frames_ == 0) throw CliError(kExitFailure, path_ + " has no decodable video frame");
  if (last_damaged_) {
    throw CliError(kExitFailure, path_ + " is damaged or truncated: its last frame" +
                                     " did not decode cleanly (frame " + std::to_string(frames_) +
                                     ")");
  }
  if (!seeked_ && video()->nb_frames > 0 && frames_ < video()->nb_frames) {
    throw CliError(kExitFailure, path_ + " is truncated: it declares " +
                                     std::to_string(video()->nb_frames) +
                                     " video frames, but only " + std::to_string(frames_) +
                                     " could be read");
  }
  const double declared = DeclaredSeconds();
  if (!seeked_ && declared > 0 && last_pts_ != AV_NOPTS_VALUE) {
    const int64_t first = video()->start_time != AV_NOPTS_VALUE ? video()->start_time : 0;
    const double end = double(last_pts_ - first) * av_q2d(video()->time_base) + 1.0 / fps();
    // A few frames of slack for containers that round their durations.
    if (end < declared - 3.0 / fps()) {
      char text[128];
      std::snprintf(text, sizeof(text), " is truncated: its video should last %.2f s, but ends after %.2f s",
                    declared, end);
      throw CliError(kExitFailure, path_ + text);
    }
  }
}

// ---- Converter ---------------------------------------------------------------

namespace {

bool IsRgb(AVPixelFormat format) {
  const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(format);
  return desc != nullptr && (desc->flags & AV_PIX_FMT_FLAG_RGB) != 0;
}

// Full-range YUV formats that predate the colour-range field.
AVPixelFormat WithoutJpegRange(AVPixelFormat format, bool* full_range) {
  switch (format) {
    case AV_PIX_FMT_YUVJ420P: *full_range = true; return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P: *full_range = true; return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P: *full_range = true; return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P: *full_range = true; return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ411P: *full_range = true; return AV_PIX_FMT_YUV411P;
    default: return format;
  }
}

const int* Matrix(AVColorSpace space) {
  switch (space) {
    case AVCOL_SPC_BT709: return sws_getCoefficients(SWS_CS_ITU709);
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL: return sws_getCoefficients(SWS_CS_BT2020);
    case AVCOL_SPC_SMPTE240M: return sws_getCoefficients(SWS_CS_SMPTE240M);
    case AVCOL_SPC_FCC: return sws_getCoefficients(SWS_CS_FCC);
    default: return sws_getCoefficients(SWS_CS_ITU601);
  }
}

SwsContext* Prepare(SwsContext* context, int src_w, int src_h, AVPixelFormat src_format,
                    bool src_full, int dst_w, int dst_h, AVPixelFormat dst_format, bool dst_full,
                    const int* matrix) {
  // Area averaging when shrinking (--fit), bicubic otherwise.
  const int flags = (dst_w < src_w || dst_h < src_h ? SWS_AREA : SWS_BICUBIC) | SWS_ACCURATE_RND;
  context = sws_getCachedContext(context, src_w, src_h, src_format, dst_w, dst_h, dst_format,
                                 flags, nullptr, nullptr, nullptr);
  if (context == nullptr) {
    throw CliError(kExitFailure, std::string("cannot convert ") +
                                     av_get_pix_fmt_name(src_format) + " frames to " +
                                     av_get_pix_fmt_name(dst_format));
  }
  sws_setColorspaceDetails(context, matrix, src_full, matrix, dst_full, 0, 1 << 16, 1 << 16);
  return context;
}

}  // namespace

Converter::~Converter() {
  sws_freeContext(to_nv12_);
  sws_freeContext(from_nv12_);
}

Frame Converter::ToNv12(const AVFrame* src, int width, int height) {
  const AVColorRange range = Checked(src->color_range, AVCOL_RANGE_NB, AVCOL_RANGE_UNSPECIFIED);
  bool full = range == AVCOL_RANGE_JPEG;
  const AVPixelFormat format = WithoutJpegRange(static_cast<AVPixelFormat>(src->format), &full);
  if (IsRgb(format)) full = true;
  to_nv12_ = Prepare(to_nv12_, src->width, src->height, format, full, width, height,
                     AV_PIX_FMT_NV12, false,
                     Matrix(Checked(src->colorspace, AVCOL_SPC_NB, AVCOL_SPC_UNSPECIFIED)));
  Frame out = Frame::Create(width, height);
  FrameLock lock(out);
  uint8_t* planes[4] = {out.plane(0), out.plane(1), nullptr, nullptr};
  int strides[4] = {out.stride(0), out.stride(1), 0, 0};
  sws_scale(to_nv12_, src->data, src->linesize, 0, src->height, planes, strides);
  return out;
}

void Converter::FromNv12(const Frame& src, AVFrame* dst) {
  const AVPixelFormat format = static_cast<AVPixelFormat>(dst->format);
  from_nv12_ = Prepare(from_nv12_, src.width(), src.height(), AV_PIX_FMT_NV12, false, dst->width,
                       dst->height, format, IsRgb(format), Matrix(dst->colorspace));
  FrameLock lock(src, true);
  const uint8_t* planes[4] = {src.plane(0), src.plane(1), nullptr, nullptr};
  const int strides[4] = {src.stride(0), src.stride(1), 0, 0};
  sws_scale(from_nv12_, planes, strides, 0, src.height(), dst->data, dst->linesize);
}

// ---- MediaWriter -------------------------------------------------------------

namespace {

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

const AVCodec* FindEncoder(const std::string& codec) {
  if (codec == "h264") {
    const AVCodec* x264 = avcodec_find_encoder_by_name("libx264");
    return x264 != nullptr ? x264 : avcodec_find_encoder(AV_CODEC_ID_H264);
  }
  if (codec == "ffv1") return avcodec_find_encoder(AV_CODEC_ID_FFV1);
  // The Y4M muxer takes decoded frames as they are.
  return avcodec_find_encoder(AV_CODEC_ID_WRAPPED_AVFRAME);
}

// Frames go to the encoder as NV12 where it takes that, else as 4:2:0 planes.
AVPixelFormat EncoderFormat(const AVCodec* codec) {
  if (codec->pix_fmts == nullptr) return AV_PIX_FMT_YUV420P;
  for (const AVPixelFormat* f = codec->pix_fmts; *f != AV_PIX_FMT_NONE; ++f) {
    if (*f == AV_PIX_FMT_NV12) return AV_PIX_FMT_NV12;
  }
  for (const AVPixelFormat* f = codec->pix_fmts; *f != AV_PIX_FMT_NONE; ++f) {
    if (*f == AV_PIX_FMT_YUV420P) return AV_PIX_FMT_YUV420P;
  }
  return codec->pix_fmts[0];
}

// An AVFrame over a pixel buffer's planes, holding a reference (and a lock)
// until the encoder lets the frame go.
AVFrame* WrapNv12(const Frame& frame) {
  AVFrame* av = av_frame_alloc();
  VLPixelBufferRef buffer = VLPixelBufferRetain(frame.get());
  VLPixelBufferLockBaseAddress(buffer, kVLPixelBufferLock_ReadOnly);
  av->buf[0] = av_buffer_create(
      frame.plane(0), size_t(frame.stride(0)) * frame.height(),
      [](void* opaque, uint8_t*) {
        auto* b = static_cast<VLPixelBufferRef>(opaque);
        VLPixelBufferUnlockBaseAddress(b, kVLPixelBufferLock_ReadOnly);
        VLPixelBufferRelease(b);
      },
      buffer, AV_BUFFER_FLAG_READONLY);
  av->format = AV_PIX_FMT_NV12;
  av->width = frame.width();
  av->height = frame.height();
  for (int i = 0; i < 2; ++i) {
    av->data[i] = frame.plane(i);
    av->linesize[i] = frame.stride(i);
  }
  return av;
}

}  // namespace

MediaWriter::MediaWriter(const std::string& path, const EncodeOptions& options,
                         const MediaReader& input)
    : path_(path), options_(options), input_(input), last_pts_(AV_NOPTS_VALUE) {
  const std::string name = std::filesystem::path(path).filename().string();
  const std::string ext = Lower(std::filesystem::path(path).extension().string());
  const AVOutputFormat* container = av_guess_format(nullptr, name.c_str(), nullptr);
  if (container == nullptr || ext.empty()) {
    throw CliError(kExitUsage, "cannot tell a video format from the name " + path +
                                   "; use .mp4, .mkv, .mov or .y4m");
  }
  if (ext == ".y4m") {
    if (!options_.codec.empty() && options_.codec != "raw") {
      throw CliError(kExitUsage, ".y4m holds raw frames only; --codec " + options_.codec +
                                     " needs .mkv or .mp4");
    }
    options_.codec = "raw";
  } else if (options_.codec.empty()) {
    options_.codec = "h264";
  }
  const AVCodec* codec = FindEncoder(options_.codec);
  if (codec == nullptr) {
    throw CliError(kExitFailure, "this FFmpeg has no " + options_.codec + " encoder");
  }
  // 0 is a no; formats that cannot tell answer with an error and are tried.
  if (avformat_query_codec(container, codec->id, FF_COMPLIANCE_NORMAL) == 0) {
    throw CliError(kExitUsage, std::string(codec->name) + " video cannot be stored in " + ext +
                                   " files; use .mkv");
  }
  avformat_alloc_output_context2(&format_, container, nullptr, nullptr);
  if (format_ == nullptr) throw CliError(kExitFailure, "cannot set up " + path);
  frame_index_pts_ = (container->flags & AVFMT_NOTIMESTAMPS) != 0 || ext == ".y4m";

  temp_path_ = path + ".part";
  // Muxers that rewrite the file at the end (MP4's faststart) reopen it by
  // this name.
  format_->url = av_strdup(temp_path_.c_str());
  const int status = avio_open(&format_->pb, temp_path_.c_str(), AVIO_FLAG_WRITE);
  if (status < 0) {
    throw CliError(kExitFailure, "cannot write " + temp_path_ + ": " + AvError(status));
  }
  encoder_ = avcodec_alloc_context3(codec);
  pixel_format_ = EncoderFormat(codec);
  video_stream_ = avformat_new_stream(format_, nullptr);
  packet_ = av_packet_alloc();

  if (const AVStream* in = options_.audio ? input.audio() : nullptr) {
    const char* audio_name = avcodec_get_name(in->codecpar->codec_id);
    if (container->audio_codec != AV_CODEC_ID_NONE &&
        avformat_query_codec(container, in->codecpar->codec_id, FF_COMPLIANCE_NORMAL) != 0) {
      audio_stream_ = avformat_new_stream(format_, nullptr);
      avcodec_parameters_copy(audio_stream_->codecpar, in->codecpar);
      audio_stream_->codecpar->codec_tag = 0;
      audio_stream_->time_base = in->time_base;
      audio_note_ = std::string("audio: ") + audio_name + " copied";
    } else {
      audio_note_ = std::string("audio: ") + audio_name + " cannot go into " + ext + " files; left out";
    }
  }
}

MediaWriter::~MediaWriter() {
  for (AVPacket* p : pending_audio_) av_packet_free(&p);
  av_packet_free(&packet_);
  avcodec_free_context(&encoder_);
  if (format_ != nullptr) {
    avio_closep(&format_->pb);
    avformat_free_context(format_);
  }
  if (!finished_ && !temp_path_.empty()) std::remove(temp_path_.c_str());
}

std::string MediaWriter::codec_name() const {
  if (options_.codec == "h264") return "H.264";
  if (options_.codec == "ffv1") return "FFV1";
  return "raw 4:2:0";
}

void MediaWriter::Open(int width, int height) {
  width_ = width;
  height_ = height;
  const AVStream* in = input_.video();
  const AVRational rate = av_d2q(input_.fps(), 1 << 20);
  encoder_->width = width;
  encoder_->height = height;
  encoder_->pix_fmt = static_cast<AVPixelFormat>(pixel_format_);
  encoder_->framerate = rate;
  encoder_->time_base = frame_index_pts_ ? av_inv_q(rate) : in->time_base;
  encoder_->sample_aspect_ratio = in->codecpar->sample_aspect_ratio;
  encoder_->color_range = AVCOL_RANGE_MPEG;
  // The enlarged frames keep the input's colour description; RGB input was
  // converted with the BT.601 matrix.
  const AVCodecParameters* par = in->codecpar;
  const AVColorSpace space = Checked(par->color_space, AVCOL_SPC_NB, AVCOL_SPC_UNSPECIFIED);
  encoder_->colorspace = space == AVCOL_SPC_RGB ? AVCOL_SPC_SMPTE170M : space;
  encoder_->color_primaries = Checked(par->color_primaries, AVCOL_PRI_NB, AVCOL_PRI_UNSPECIFIED);
  encoder_->color_trc = Checked(par->color_trc, AVCOL_TRC_NB, AVCOL_TRC_UNSPECIFIED);
  encoder_->thread_count = options_.threads;
  if (format_->oformat->flags & AVFMT_GLOBALHEADER) encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  AVDictionary* settings = nullptr;
  if (options_.codec == "h264") {
    av_dict_set(&settings, "preset", options_.preset.c_str(), 0);
    av_dict_set_int(&settings, "crf", options_.crf, 0);
  } else if (options_.codec == "ffv1") {
    av_dict_set(&settings, "level", "3", 0);
    av_dict_set(&settings, "slicecrc", "1", 0);
  }
  int status = avcodec_open2(encoder_, encoder_->codec, &settings);
  av_dict_free(&settings);
  if (status < 0) {
    throw CliError(kExitFailure, "cannot start the " + codec_name() + " encoder for " +
                                     std::to_string(width) + "x" + std::to_string(height) +
                                     " frames: " + AvError(status));
  }
  avcodec_parameters_from_context(video_stream_->codecpar, encoder_);
  video_stream_->time_base = encoder_->time_base;
  video_stream_->avg_frame_rate = rate;
  video_stream_->sample_aspect_ratio = encoder_->sample_aspect_ratio;
  WriteHeader();
}

void MediaWriter::WriteHeader() {
  AVDictionary* muxer = nullptr;
  if (std::string(format_->oformat->name).find("mp4") != std::string::npos) {
    av_dict_set(&muxer, "movflags", "+faststart", 0);
  }
  const int status = avformat_write_header(format_, &muxer);
  av_dict_free(&muxer);
  if (status < 0) throw CliError(kExitFailure, "cannot write " + temp_path_ + ": " + AvError(status));
  header_written_ = true;
  for (AVPacket*& p : pending_audio_) {
    WriteAudio(p);
    av_packet_free(&p);
  }
  pending_audio_.clear();
}

void MediaWriter::WriteVideo(const Frame& frame, int64_t pts) {
  if (!header_written_) Open(frame.width(), frame.height());
  AVFrame* av = nullptr;
  if (pixel_format_ == AV_PIX_FMT_NV12 && frame.width() == width_ && frame.height() == height_) {
    av = WrapNv12(frame);
  } else {
    av = av_frame_alloc();
    av->format = pixel_format_;
    av->width = width_;
    av->height = height_;
    av->colorspace = encoder_->colorspace;
    if (av_frame_get_buffer(av, 0) < 0) {
      av_frame_free(&av);
      throw CliError(kExitFailure, "out of memory");
    }
    converter_.FromNv12(frame, av);
  }
  // Timestamps keep the input's spacing, counted from where the output starts.
  if (frame_index_pts_) {
    pts = frames_;
  } else {
    const int64_t origin = av_rescale_q(input_.origin_us(), AV_TIME_BASE_Q, input_.video()->time_base);
    pts = pts == AV_NOPTS_VALUE ? AV_NOPTS_VALUE : std::max<int64_t>(pts - origin, 0);
    const int64_t step = std::max<int64_t>(
        1, av_rescale_q(1, av_inv_q(encoder_->framerate), encoder_->time_base));
    if (pts == AV_NOPTS_VALUE) pts = last_pts_ == AV_NOPTS_VALUE ? 0 : last_pts_ + step;
    if (last_pts_ != AV_NOPTS_VALUE && pts <= last_pts_) pts = last_pts_ + 1;
  }
  av->pts = pts;
  last_pts_ = pts;
  try {
    Encode(av);
  } catch (...) {
    av_frame_free(&av);
    throw;
  }
  av_frame_free(&av);
  ++frames_;
}

void MediaWriter::CopyVideo(const AVStream* from, AVPacket* packet, int64_t offset_us) {
  if (!header_written_) {
    copying_ = true;
    width_ = from->codecpar->width;
    height_ = from->codecpar->height;
    avcodec_parameters_copy(video_stream_->codecpar, from->codecpar);
    video_stream_->codecpar->codec_tag = 0;
    video_stream_->time_base = from->time_base;
    video_stream_->avg_frame_rate = av_d2q(input_.fps(), 1 << 20);
    video_stream_->sample_aspect_ratio = from->codecpar->sample_aspect_ratio;
    WriteHeader();
  }
  if (!copying_) throw CliError(kExitFailure, "cannot mix copied and encoded video");
  const int64_t offset = av_rescale_q(offset_us, AV_TIME_BASE_Q, video_stream_->time_base);
  av_packet_rescale_ts(packet, from->time_base, video_stream_->time_base);
  if (packet->pts != AV_NOPTS_VALUE) packet->pts += offset;
  if (packet->dts != AV_NOPTS_VALUE) packet->dts += offset;
  packet->pos = -1;
  Mux(packet, video_stream_);
  ++frames_;
}

void MediaWriter::SetTag(const std::string& key, const std::string& value) {
  av_dict_set(&format_->metadata, key.c_str(), value.c_str(), 0);
}

void MediaWriter::Encode(AVFrame* frame) {
  int status = avcodec_send_frame(encoder_, frame);
  if (status < 0) throw CliError(kExitFailure, "encoding failed: " + AvError(status));
  for (;;) {
    status = avcodec_receive_packet(encoder_, packet_);
    if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) return;
    if (status < 0) throw CliError(kExitFailure, "encoding failed: " + AvError(status));
    av_packet_rescale_ts(packet_, encoder_->time_base, video_stream_->time_base);
    Mux(packet_, video_stream_);
  }
}

void MediaWriter::Mux(AVPacket* packet, AVStream* stream) {
  packet->stream_index = stream->index;
  const int status = av_interleaved_write_frame(format_, packet);
  if (status < 0) throw CliError(kExitFailure, "cannot write " + temp_path_ + ": " + AvError(status));
}

void MediaWriter::WriteAudio(const AVPacket* packet) {
  if (audio_stream_ == nullptr) return;
  if (!header_written_) {
    pending_audio_.push_back(av_packet_clone(packet));
    return;
  }
  AVPacket* copy = av_packet_clone(packet);
  const AVRational in_base = input_.audio()->time_base;
  const int64_t origin = av_rescale_q(input_.origin_us(), AV_TIME_BASE_Q, in_base);
  // Audio from before the start point stays out, as the video does.
  if (copy->pts != AV_NOPTS_VALUE && copy->pts < origin) {
    av_packet_free(&copy);
    return;
  }
  if (copy->pts != AV_NOPTS_VALUE) copy->pts -= origin;
  if (copy->dts != AV_NOPTS_VALUE) copy->dts -= origin;
  av_packet_rescale_ts(copy, in_base, audio_stream_->time_base);
  copy->pos = -1;
  try {
    Mux(copy, audio_stream_);
  } catch (...) {
    av_packet_free(&copy);
    throw;
  }
  av_packet_free(&copy);
}

void MediaWriter::Finish() {
  if (!header_written_) throw CliError(kExitFailure, "no frame was written");
  if (!copying_) Encode(nullptr);
  int status = av_write_trailer(format_);
  if (status < 0) throw CliError(kExitFailure, "cannot finish " + temp_path_ + ": " + AvError(status));
  status = avio_closep(&format_->pb);
  if (status < 0) throw CliError(kExitFailure, "cannot finish " + temp_path_ + ": " + AvError(status));
  std::error_code ec;
  std::filesystem::rename(temp_path_, path_, ec);
  if (ec) throw CliError(kExitFailure, "cannot rename " + temp_path_ + " to " + path_ + ": " + ec.message());
  finished_ = true;
}

}  // namespace vorlith::cli
