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
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/plugin_fixture.h"

namespace {

namespace fs = std::filesystem;

struct Result {
  int code = -1;
  std::string out, err;
};

std::string ReadFile(const fs::path& path) {
  std::stringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

int LinesWith(const std::string& text, const std::string& part) {
  int n = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) n += line.find(part) != std::string::npos;
  return n;
}

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
    const std::string out = File("stdout"), err = File("stderr");
    const int status = std::system((command + " >" + out + " 2>" + err + " </dev/null").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(out), ReadFile(err)};
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

  // ffprobe's view of the first video stream (frames counted by decoding),
  // and the audio codec, if any, as "audio".
  static std::map<std::string, std::string> ProbeFile(const std::string& path) {
    std::map<std::string, std::string> probe;
    const Result v = Shell("ffprobe -v error -count_frames -select_streams v:0 -show_entries "
                           "stream=codec_name,width,height,nb_read_frames,r_frame_rate,start_time "
                           "-of default=nw=1 " + path);
    EXPECT_EQ(v.code, 0) << v.err;
    std::istringstream lines(v.out);
    for (std::string line; std::getline(lines, line);) {
      const size_t eq = line.find('=');
      if (eq != std::string::npos) probe[line.substr(0, eq)] = line.substr(eq + 1);
    }
    const Result a = Shell("ffprobe -v error -select_streams a:0 -show_entries stream=codec_name "
                           "-of csv=p=0 " + path);
    probe["audio"] = a.out.substr(0, a.out.find('\n'));
    return probe;
  }

  // Expects ffprobe to report these values.
  static void ExpectVideo(const std::string& path, const std::map<std::string, std::string>& want) {
    std::map<std::string, std::string> probe = ProbeFile(path);
    for (const auto& [key, value] : want) EXPECT_EQ(probe[key], value) << key << " of " << path;
  }

  // Nothing under the output's name, finished or not, after a failed run.
  static void ExpectNoOutput(const std::string& path) {
    EXPECT_FALSE(fs::exists(path)) << path;
    EXPECT_FALSE(fs::exists(path + ".part")) << path;
  }

  // The decoded frames of a file's video, one hash each.
  static std::string FrameHashes(const std::string& path) {
    const Result r = Shell("(ffmpeg -nostdin -v error -i " + path +
                           " -map 0:v -pix_fmt yuv420p -f framemd5 - | grep -v '^#' | cut -d, -f6)");
    EXPECT_EQ(r.err, "");
    return r.out;
  }

  static fs::path root_;
};

fs::path Cli::root_;

// The frames of a Y4M 4:2:0 file (one header line, then "FRAME\n" and the
// Y, U and V planes of each) as packed NV12 planes.
std::vector<std::pair<std::vector<uint8_t>, std::vector<uint8_t>>> Y4mFrames(
    const std::string& data, int width, int height) {
  std::vector<std::pair<std::vector<uint8_t>, std::vector<uint8_t>>> frames;
  const size_t luma = size_t(width) * height, chroma = size_t((width + 1) / 2) * ((height + 1) / 2);
  for (size_t at = data.find('\n') + 1; data.compare(at, 5, "FRAME") == 0; at += luma + 2 * chroma) {
    at = data.find('\n', at) + 1;
    if (at + luma + 2 * chroma > data.size()) break;
    const auto frame = data.begin() + at;
    std::vector<uint8_t>& uv =
        frames.emplace_back(std::vector<uint8_t>(frame, frame + luma), std::vector<uint8_t>(2 * chroma)).second;
    for (size_t i = 0; i < 2 * chroma; ++i) uv[i] = data[at + luma + i % 2 * chroma + i / 2];
  }
  return frames;
}

// A lossless round trip at an odd size: each enlarged frame must be what
// the fixture network makes of it, luma and chroma. Fewer than 31 frames,
// so the time governor never decides anything.
TEST_F(Cli, LosslessOutputIsThePluginsOutputForEachFrame) {
  const int w = 203, h = 117;
  const std::string in = Clip("pattern.y4m",
                              "-f lavfi -i testsrc2=size=204x118:rate=10 -vf crop=203:117:0:0:exact=1 "
                              "-frames:v 8 -pix_fmt yuv420p");
  const std::string out = File("pattern_2x.y4m");
  const Result r = Vorlith("upscale -q " + in + " " + out);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "");
  const auto src = Y4mFrames(ReadFile(in), w, h), dst = Y4mFrames(ReadFile(out), 2 * w, 2 * h);
  ASSERT_EQ(src.size(), 8u);
  ASSERT_EQ(dst.size(), 8u);
  for (size_t f = 0; f < src.size(); ++f) {
    SCOPED_TRACE(f);
    vorlith::test::ExpectNearestLumaBilinearChroma(src[f].first, src[f].second, dst[f].first,
                                                   dst[f].second, w, h);
  }
}

// Offline: the one network asked for on every frame (over 30 frames, where
// the governor may act), the same frames as the plug-in gives with the
// fixture network (which has no state a frame could leave behind), and
// frames wider than the plug-in takes, enlarged whole (the Upscaler's tiles
// are checked against whole frames in its own tests).
TEST_F(Cli, OfflineRunsOneNetworkOnEveryFrameOfAnySize) {
  const std::string in =
      Clip("offline.y4m", "-f lavfi -i testsrc2=size=96x64:rate=25 -frames:v 40 -pix_fmt yuv420p");
  const std::string live = File("live_2x.y4m"), offline = File("offline_2x.y4m");
  ASSERT_EQ(Vorlith("upscale -q " + in + " " + live).code, 0);
  const Result r = Vorlith("upscale --offline --net light --stats " + in + " " + offline);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(LinesWith(r.out, "  light "), 40) << r.out;
  EXPECT_NE(r.out.find("network: light 40 frames"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("frames: 40 in, 40 out"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("95th percentile"), std::string::npos) << r.out;
  // Progress goes to stderr as plain lines when it is not a terminal.
  EXPECT_NE(r.err.find("40/40 frames"), std::string::npos) << r.err;
  EXPECT_EQ(ReadFile(offline), ReadFile(live));

  const std::string wide =
      Clip("offline_wide.y4m", "-f lavfi -i testsrc2=size=1312x38:rate=25 -frames:v 2 -pix_fmt yuv420p");
  const std::string wide2x = File("offline_wide_2x.y4m");
  ASSERT_EQ(Vorlith("upscale -q --offline " + wide + " " + wide2x).code, 0);
  ExpectVideo(wide2x, {{"width", "2624"}, {"height", "76"}, {"nb_read_frames", "2"}});
}

// A clip cut at keyframes into planned segments, each enlarged by its own
// process, then joined: the frames of one offline run, and the original's
// audio, whether the lossless pieces are copied or encoded once. A join with
// a piece missing names it and writes nothing.
TEST_F(Cli, PlannedSegmentsJoinToTheOfflineRun) {
  const std::string in = Clip("long.mp4", "-f lavfi -i testsrc2=size=96x64:rate=25:duration=2 "
                                          "-f lavfi -i sine=duration=2 -c:v libx264 -g 8 -bf 2 "
                                          "-c:a aac -shortest");
  const std::string plan = File("long.plan"), single = File("single_2x.mkv");
  Result r = Vorlith("plan " + in + " --segments 3 --pieces " + File("pieces") + " -o " + plan);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(LinesWith(ReadFile(plan), "\"segments\":3,"), 3) << ReadFile(plan);
  ASSERT_EQ(Vorlith("upscale -q --offline --codec ffv1 " + in + " " + single).code, 0);
  for (const char* k : {"2", "0"}) {
    r = Vorlith("upscale -q --plan " + plan + " --segment " + k);
    ASSERT_EQ(r.code, 0) << r.err;
  }
  const std::string copied = File("joined_2x.mkv"), encoded = File("joined_2x.mp4");
  r = Vorlith("join --plan " + plan + " " + copied);
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("segment 1 of 3 is missing"), std::string::npos) << r.err;
  ExpectNoOutput(copied);

  ASSERT_EQ(Vorlith("upscale -q --plan " + plan + " --segment 1").code, 0);
  r = Vorlith("join --codec ffv1 --plan " + plan + " " + copied);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("copied, not re-encoded"), std::string::npos) << r.out;
  ASSERT_EQ(Vorlith("join -q --crf 0 --preset ultrafast --remove-pieces --plan " + plan + " " + encoded).code, 0);
  EXPECT_FALSE(fs::exists(File("pieces")));
  const std::string frames = FrameHashes(single);
  EXPECT_EQ(LinesWith(frames, ""), 50);
  EXPECT_EQ(FrameHashes(copied), frames);
  EXPECT_EQ(FrameHashes(encoded), frames);
  for (const std::string& out : {copied, encoded}) {
    ExpectVideo(out, {{"audio", "aac"}, {"nb_read_frames", "50"}, {"start_time", "0.000000"}});
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
  // The decoder may drop a frame at the join; what it decodes must all come out.
  const int decoded = std::atoi(ProbeFile(joined)["nb_read_frames"].c_str());
  EXPECT_GE(decoded, 14);
  ExpectVideo(out, {{"codec_name", "ffv1"}, {"width", "640"}, {"height", "480"},
                    {"nb_read_frames", std::to_string(decoded)}});
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
  ExpectVideo(out, {{"codec_name", "h264"}, {"width", "360"}, {"height", "640"}, {"nb_read_frames", "20"},
                    {"r_frame_rate", "30000/1001"}, {"audio", "aac"}});
  const std::map<std::string, std::string> probe = ProbeFile(out);
  ASSERT_EQ(probe.count("start_time"), 1u);
  EXPECT_LT(std::atof(probe.at("start_time").c_str()), 0.05);
}

// Each failure exits with its code and message and leaves no output; a
// frame wider than 1280, refused, goes through shrunk with --fit.
TEST_F(Cli, FailuresExitWithTheirCodeAndLeaveNoOutput) {
  const std::string out = File("bad_2x.mkv");
  std::ofstream(File("garbage.mp4")) << "not a video";
  const std::string whole = Clip("whole.mkv", "-f lavfi -i testsrc2=size=160x90:rate=25 -frames:v 20 -c:v ffv1");
  const std::string data = ReadFile(whole);
  std::ofstream(File("cut.mkv"), std::ios::binary) << data.substr(0, data.size() / 2);
  const std::string wide = Clip("wide.y4m", "-f lavfi -i testsrc2=size=1290x96:rate=25 -frames:v 3 -pix_fmt yuv420p");
  const struct {
    std::string args;
    int code;
    std::vector<std::string> messages;
  } cases[] = {
      {File("missing.mp4") + " " + out, 1, {"cannot read " + File("missing.mp4")}},
      {"-q " + File("garbage.mp4") + " " + out, 1, {"cannot read"}},
      // Cut in half: the run fails only at the end, after the output was begun.
      {"-q " + File("cut.mkv") + " " + out, 1, {"truncated"}},
      {whole + " " + File("no/such/folder/out.mp4"), 1, {"cannot write"}},
      {whole + " " + File("out.unknown"), 2, {}},
      {"--net medium " + whole + " " + out, 2, {}},
      {wide + " " + out, 3, {"1290x96", "at most 1280", "--fit"}},
      {"--segment 1 " + whole + " " + out, 2, {"--plan FILE --segment K alone"}},
  };
  for (const auto& c : cases) {
    const Result r = Vorlith("upscale " + c.args);
    EXPECT_EQ(r.code, c.code) << c.args;
    for (const std::string& m : c.messages) {
      EXPECT_NE(r.err.find(m), std::string::npos) << c.args << ": " << r.err;
    }
    ExpectNoOutput(out);
  }
  const Result fitted = Vorlith("upscale --fit --preset ultrafast " + wide + " " + out);
  ASSERT_EQ(fitted.code, 0) << fitted.err;
  ExpectVideo(out, {{"width", "2560"}, {"height", "190"}, {"nb_read_frames", "3"}});
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
  for (const std::string& still : {png, jpg}) {
    const Result r = Vorlith("image " + in + " " + still);
    ASSERT_EQ(r.code, 0) << r.err;
  }
  ExpectVideo(png, {{"codec_name", "png"}, {"width", "320"}, {"height", "180"}});
  ExpectVideo(jpg, {{"codec_name", "mjpeg"}});
  // 60x40 crop: two 120x80 panels 8 pixels apart under a 30-pixel caption.
  const Result r = Vorlith("compare --crop 60x40+10+10 " + in + " " + cmp);
  ASSERT_EQ(r.code, 0) << r.err;
  ExpectVideo(cmp, {{"width", "248"}, {"height", "110"}});
}

}  // namespace
