// The `vorlith` command end to end: clips made with ffmpeg at test time and
// the shipped sample go through the real program, and ffprobe reads back
// what it wrote. The program runs from a private copy beside the fixture
// network (nearest2x.onnx as both networks), found the way it finds its real
// networks: in ../share/vorlith relative to itself.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/plugin_fixture.h"
#include "vorlith/plugin.h"

namespace {

namespace fs = std::filesystem;

struct Result {
  int code = -1;
  std::string out, err;
};

std::string ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

int LinesWith(const std::string& text, const std::string& part) {
  int n = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) n += line.find(part) != std::string::npos;
  return n;
}

// ffprobe's view of the first video stream (frames counted by decoding) and
// of the audio codec, if any.
struct Probe {
  std::map<std::string, std::string> video;
  std::string audio;
  int Int(const std::string& key) const { return std::atoi(video.at(key).c_str()); }
};

class Cli : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    char pattern[] = "/tmp/vorlith-cli-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    fs::create_directories(root_ / "bin");
    fs::create_directories(root_ / "share" / "vorlith");
    fs::copy_file(VORLITH_CLI, root_ / "bin" / "vorlith");
    for (const char* name : {"RTC.onnx", "RTC_degrade.onnx"}) {
      fs::copy_file(vorlith::test::FixturePath("nearest2x.onnx"), root_ / "share" / "vorlith" / name);
    }
  }
  static void TearDownTestSuite() {
    std::error_code ec;
    fs::remove_all(root_, ec);
  }

  static std::string File(const std::string& name) { return (root_ / name).string(); }

  static Result Shell(const std::string& command) {
    Result result;
    const std::string out = File("stdout"), err = File("stderr");
    const int status = std::system((command + " >" + out + " 2>" + err + " </dev/null").c_str());
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = ReadFile(out);
    result.err = ReadFile(err);
    return result;
  }

  static Result Vorlith(const std::string& args, const std::string& program = "") {
    return Shell((program.empty() ? File("bin/vorlith") : program) + " " + args);
  }

  // Writes a clip with ffmpeg; `args` are its input and encoding options.
  static std::string Clip(const std::string& name, const std::string& args) {
    const std::string path = File(name);
    const Result r = Shell("ffmpeg -nostdin -v error -y " + args + " " + path);
    EXPECT_EQ(r.code, 0) << r.err;
    return path;
  }

  static Probe ProbeFile(const std::string& path) {
    Probe probe;
    const Result v = Shell("ffprobe -v error -count_frames -select_streams v:0 -show_entries "
                           "stream=codec_name,width,height,nb_read_frames,r_frame_rate,start_time "
                           "-of default=nw=1 " + path);
    EXPECT_EQ(v.code, 0) << v.err;
    std::istringstream lines(v.out);
    for (std::string line; std::getline(lines, line);) {
      const size_t eq = line.find('=');
      if (eq != std::string::npos) probe.video[line.substr(0, eq)] = line.substr(eq + 1);
    }
    const Result a = Shell("ffprobe -v error -select_streams a:0 -show_entries stream=codec_name "
                           "-of csv=p=0 " + path);
    probe.audio = a.out.substr(0, a.out.find('\n'));
    return probe;
  }

  // Nothing under the output's name, finished or not, after a failed run.
  static void ExpectNoOutput(const std::string& path) {
    EXPECT_FALSE(fs::exists(path)) << path;
    EXPECT_FALSE(fs::exists(path + ".part")) << path;
  }

  static fs::path root_;
};

fs::path Cli::root_;

TEST_F(Cli, EnlargesTheShippedSample) {
  const std::string out = File("city_2x.mp4");
  const Result r = Vorlith("upscale " VORLITH_SAMPLES "/city.mp4 " + out + " --stats --preset ultrafast");
  ASSERT_EQ(r.code, 0) << r.err;
  const Probe p = ProbeFile(out);
  EXPECT_EQ(p.video.at("codec_name"), "h264");
  EXPECT_EQ(p.Int("width"), 1440);
  EXPECT_EQ(p.Int("height"), 808);
  EXPECT_EQ(p.Int("nb_read_frames"), 50);
  EXPECT_EQ(p.video.at("r_frame_rate"), "25/1");
  EXPECT_EQ(LinesWith(r.out, " t="), 50) << r.out;  // --stats: one line a frame
  EXPECT_NE(r.out.find("frames: 50 in, 50 out"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("95th percentile"), std::string::npos) << r.out;
  // Progress goes to stderr as plain lines when it is not a terminal.
  EXPECT_NE(r.err.find("50/50 frames"), std::string::npos) << r.err;
}

// A lossless round trip at an odd size: each enlarged frame must be the
// plug-in's own output for that frame, luma and chroma. Fewer than 31
// frames, so the time governor never decides anything.
TEST_F(Cli, LosslessOutputIsThePluginsOutputForEachFrame) {
  const int w = 203, h = 117, frames = 8;
  const std::string in = Clip("pattern.y4m",
                              "-f lavfi -i testsrc2=size=204x118:rate=10 -vf crop=203:117:0:0:exact=1 "
                              "-frames:v 8 -pix_fmt yuv420p");
  const std::string out = File("pattern_2x.y4m");
  const Result r = Vorlith("upscale -q " + in + " " + out);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "");

  // Y4M: one header line, then "FRAME\n" and three planes per frame.
  const auto planes = [](const std::string& data, int width, int height) {
    std::vector<std::string> frames;
    size_t at = data.find('\n') + 1;
    const size_t cw = (width + 1) / 2, ch = (height + 1) / 2;
    const size_t bytes = size_t(width) * height + 2 * cw * ch;
    while (at < data.size() && data.compare(at, 5, "FRAME") == 0) {
      at = data.find('\n', at) + 1;
      frames.push_back(data.substr(at, bytes));
      at += bytes;
    }
    return frames;
  };
  const std::vector<std::string> src = planes(ReadFile(in), w, h);
  const std::vector<std::string> dst = planes(ReadFile(out), 2 * w, 2 * h);
  ASSERT_EQ(src.size(), size_t(frames));
  ASSERT_EQ(dst.size(), size_t(frames));

  vorlith::test::ResourceDirectory networks("nearest2x.onnx", "nearest2x.onnx");
  std::unique_ptr<SuperResolutionInterface> sr(SuperResolutionInterface::Create());
  sr->Init("");
  const size_t cw = (w + 1) / 2, ch = (h + 1) / 2;
  for (int f = 0; f < frames; ++f) {
    SCOPED_TRACE(f);
    VLPixelBufferRef buffer = nullptr;
    ASSERT_EQ(VLPixelBufferCreate(w, h, kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange, &buffer), 0);
    VLPixelBufferLockBaseAddress(buffer, 0);
    auto* y = static_cast<char*>(VLPixelBufferGetBaseAddressOfPlane(buffer, 0));
    auto* uv = static_cast<char*>(VLPixelBufferGetBaseAddressOfPlane(buffer, 1));
    const size_t ys = VLPixelBufferGetBytesPerRowOfPlane(buffer, 0);
    const size_t uvs = VLPixelBufferGetBytesPerRowOfPlane(buffer, 1);
    const char* u = src[f].data() + size_t(w) * h;
    const char* v = u + cw * ch;
    for (int row = 0; row < h; ++row) std::copy_n(src[f].data() + size_t(row) * w, w, y + row * ys);
    for (size_t row = 0; row < ch; ++row) {
      for (size_t x = 0; x < cw; ++x) {
        uv[row * uvs + 2 * x] = u[row * cw + x];
        uv[row * uvs + 2 * x + 1] = v[row * cw + x];
      }
    }
    VLPixelBufferUnlockBaseAddress(buffer, 0);
    _tagVideoData frame_in{static_cast<uint32_t>(w), static_cast<uint32_t>(h), buffer, 1, {}, 0, 0};
    _tagVideoData frame_out{};
    ASSERT_EQ(sr->ProcessData(&frame_in, &frame_out), SR_OK);
    VLPixelBufferRelease(buffer);

    const std::vector<uint8_t> want_y = vorlith::test::PackedPlane(frame_out.pixelBuffer, 0);
    const std::vector<uint8_t> want_uv = vorlith::test::PackedPlane(frame_out.pixelBuffer, 1);
    VLPixelBufferRelease(frame_out.pixelBuffer);
    const size_t y_bytes = size_t(4) * w * h, c_bytes = size_t(w) * h;  // 2W x 2H, W x H
    ASSERT_EQ(want_y.size(), y_bytes);
    std::string want(want_y.begin(), want_y.end());
    for (int c = 0; c < 2; ++c) {
      for (size_t i = 0; i < c_bytes; ++i) want += static_cast<char>(want_uv[2 * i + c]);
    }
    ASSERT_EQ(dst[f].size(), want.size());
    size_t differ = 0, first = 0;
    for (size_t i = want.size(); i-- > 0;) {
      if (dst[f][i] != want[i]) ++differ, first = i;
    }
    EXPECT_EQ(differ, 0u) << "first at byte " << first << " (luma is " << y_bytes << " bytes)";
  }
}

// Frames change size in mid-stream: every frame still comes out, at the
// size of the first, here losslessly with FFV1.
TEST_F(Cli, SizeChangeMidStreamKeepsEveryFrame) {
  const std::string a = Clip("a.ts", "-f lavfi -i testsrc2=size=320x240:rate=25 -frames:v 8 -c:v mpeg2video");
  const std::string b = Clip("b.ts", "-f lavfi -i testsrc2=size=176x144:rate=25 -frames:v 7 -c:v mpeg2video");
  const std::string joined = File("joined.ts");
  std::ofstream(joined, std::ios::binary) << ReadFile(a) << ReadFile(b);
  const std::string out = File("joined_2x.mkv");
  const Result r = Vorlith("upscale --codec ffv1 " + joined + " " + out);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("size changes from 320x240 to 176x144"), std::string::npos) << r.out;
  const Probe p = ProbeFile(out);
  EXPECT_EQ(p.video.at("codec_name"), "ffv1");
  EXPECT_EQ(p.Int("width"), 640);
  EXPECT_EQ(p.Int("height"), 480);
  // The decoder may drop a frame at the join; what it decodes must all come out.
  EXPECT_EQ(p.Int("nb_read_frames"), ProbeFile(joined).Int("nb_read_frames"));
  EXPECT_GE(p.Int("nb_read_frames"), 14);
}

// A portrait clip at an NTSC rate with audio, from a start point: the rate
// stays, timestamps start again at zero and the audio is copied.
TEST_F(Cli, PortraitClipKeepsRateAndAudioFromAStartPoint) {
  const std::string in = Clip("portrait.mp4",
                              "-f lavfi -i testsrc2=size=180x320:rate=30000/1001 -f lavfi "
                              "-i sine=frequency=440:sample_rate=48000 -t 2 -c:v libx264 "
                              "-preset ultrafast -c:a aac -shortest");
  const std::string out = File("portrait_2x.mp4");
  const Result r = Vorlith("upscale --start 0.5 --frames 20 --preset ultrafast " + in + " " + out);
  ASSERT_EQ(r.code, 0) << r.err;
  const Probe p = ProbeFile(out);
  EXPECT_EQ(p.Int("width"), 360);
  EXPECT_EQ(p.Int("height"), 640);
  EXPECT_EQ(p.Int("nb_read_frames"), 20);
  EXPECT_EQ(p.video.at("r_frame_rate"), "30000/1001");
  EXPECT_LT(std::atof(p.video.at("start_time").c_str()), 0.05);
  EXPECT_EQ(p.audio, "aac");
}

TEST_F(Cli, FramesAboveTheLimitNeedFit) {
  const std::string in = Clip("wide.y4m", "-f lavfi -i testsrc2=size=1290x96:rate=25 -frames:v 3 -pix_fmt yuv420p");
  const std::string out = File("wide_2x.mkv");
  const Result refused = Vorlith("upscale " + in + " " + out);
  EXPECT_EQ(refused.code, 3);
  EXPECT_NE(refused.err.find("1290x96"), std::string::npos) << refused.err;
  EXPECT_NE(refused.err.find("at most 1280"), std::string::npos) << refused.err;
  EXPECT_NE(refused.err.find("--fit"), std::string::npos) << refused.err;
  ExpectNoOutput(out);

  const Result fitted = Vorlith("upscale --fit --preset ultrafast " + in + " " + out);
  ASSERT_EQ(fitted.code, 0) << fitted.err;
  const Probe p = ProbeFile(out);
  EXPECT_EQ(p.Int("width"), 2560);
  EXPECT_EQ(p.Int("height"), 190);
  EXPECT_EQ(p.Int("nb_read_frames"), 3);
}

TEST_F(Cli, BadInputsFailWithAMessageAndLeaveNoOutput) {
  const std::string out = File("bad_2x.mkv");
  Result r = Vorlith("upscale " + File("missing.mp4") + " " + out);
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("cannot read " + File("missing.mp4")), std::string::npos) << r.err;

  std::ofstream(File("garbage.mp4")) << "not a video";
  r = Vorlith("upscale -q " + File("garbage.mp4") + " " + out);
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("cannot read"), std::string::npos) << r.err;

  // Cut in half: the run fails only at the end, after the output was begun.
  const std::string whole = Clip("whole.mkv", "-f lavfi -i testsrc2=size=160x90:rate=25 -frames:v 20 -c:v ffv1");
  const std::string cut = File("cut.mkv");
  const std::string data = ReadFile(whole);
  std::ofstream(cut, std::ios::binary) << data.substr(0, data.size() / 2);
  r = Vorlith("upscale -q " + cut + " " + out);
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("truncated"), std::string::npos) << r.err;
  ExpectNoOutput(out);

  // The output's folder does not exist.
  r = Vorlith("upscale " + whole + " " + File("no/such/folder/out.mp4"));
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("cannot write"), std::string::npos) << r.err;

  r = Vorlith("upscale " + whole + " " + File("out.unknown"));
  EXPECT_EQ(r.code, 2);
  r = Vorlith("upscale --net medium " + whole + " " + out);
  EXPECT_EQ(r.code, 2);
  ExpectNoOutput(out);
}

TEST_F(Cli, MissingNetworksAreNamed) {
  const fs::path alone = root_ / "alone";
  fs::create_directories(alone / "bin");
  fs::copy_file(VORLITH_CLI, alone / "bin" / "vorlith");
  const std::string in = Clip("small.y4m", "-f lavfi -i testsrc2=size=64x48:rate=25 -frames:v 2 -pix_fmt yuv420p");
  const std::string out = File("small_2x.y4m");
  const Result r = Vorlith("upscale " + in + " " + out, (alone / "bin" / "vorlith").string());
  EXPECT_EQ(r.code, 4);
  EXPECT_NE(r.err.find("RTC.onnx and RTC_degrade.onnx not found in " + (alone / "bin").string()),
            std::string::npos) << r.err;
  EXPECT_NE(r.err.find((alone / "share" / "vorlith").string()), std::string::npos) << r.err;
  ExpectNoOutput(out);
}

TEST_F(Cli, StillsAndTheComparisonImage) {
  const std::string in = Clip("still.png", "-f lavfi -i testsrc2=size=160x90 -frames:v 1");
  const std::string png = File("still_2x.png"), jpg = File("still_2x.jpg"), cmp = File("compare.png");
  Result r = Vorlith("image " + in + " " + png);
  ASSERT_EQ(r.code, 0) << r.err;
  Probe p = ProbeFile(png);
  EXPECT_EQ(p.Int("width"), 320);
  EXPECT_EQ(p.Int("height"), 180);
  r = Vorlith("image " + in + " " + jpg);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(ProbeFile(jpg).video.at("codec_name"), "mjpeg");

  // 60x40 crop: two 120x80 panels 8 pixels apart under a 30-pixel caption.
  r = Vorlith("compare --crop 60x40+10+10 " + in + " " + cmp);
  ASSERT_EQ(r.code, 0) << r.err;
  p = ProbeFile(cmp);
  EXPECT_EQ(p.Int("width"), 248);
  EXPECT_EQ(p.Int("height"), 110);
}

}  // namespace
