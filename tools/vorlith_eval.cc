// Measures 2x enlargement quality the way the super-resolution literature
// reports it, through this library: each network runs inside the plug-in
// (SelectNetType, Init, ProcessData on an NV12 frame), exactly as a host runs
// it, and the library's Lanczos and bicubic 2x kernels run as exported.
//
//   vorlith-eval [--data DIR] [--sets set5,set14] [--runner]
//
// --runner adds rows for each network run by the model runner alone at the
// image's size, to show what the plug-in's fixed-size tensor costs.
//
// Protocol: HR cropped to even size; Y = round(16 + 65.481 R + 128.553 G +
// 24.966 B) (R, G, B in 0..1); LR = MATLAB-style antialiased bicubic halving
// of that Y, rounded to bytes; PSNR and SSIM on Y with 2 pixels trimmed from
// every border. Prints a Markdown table (mean over each set).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>

#include "tools/cli/frame.h"
#include "vorlith/kernels.h"
#include "vorlith/model.h"
#include "vorlith/pixel_buffer.h"
#include "vorlith/plugin.h"

namespace {

namespace fs = std::filesystem;

struct Image {
  int w = 0, h = 0;
  std::vector<double> px;  // row-major
  double& at(int x, int y) { return px[size_t(y) * w + x]; }
  double at(int x, int y) const { return px[size_t(y) * w + x]; }
};

Image Blank(int w, int h) { return {w, h, std::vector<double>(size_t(w) * h)}; }

double RoundByte(double v) { return std::clamp(std::nearbyint(v), 0.0, 255.0); }

// Keys cubic, a = -0.5.
double Cubic(double x) {
  const double a = std::fabs(x), a2 = a * a, a3 = a2 * a;
  if (a <= 1) return 1.5 * a3 - 2.5 * a2 + 1.0;
  if (a <= 2) return -0.5 * a3 + 2.5 * a2 - 4.0 * a + 2.0;
  return 0.0;
}

// One axis of MATLAB imresize (bicubic): for each output sample, source
// indices (symmetric edge padding) and normalised weights.
struct Axis {
  std::vector<std::vector<std::pair<int, double>>> taps;
};

Axis ResizeAxis(int in_len, int out_len) {
  const double scale = double(out_len) / in_len;
  const double width = scale < 1 ? 4.0 / scale : 4.0;
  const int count = int(std::ceil(width)) + 2;
  Axis axis;
  for (int x = 1; x <= out_len; ++x) {
    const double u = x / scale + 0.5 * (1 - 1 / scale);
    const double left = std::floor(u - width / 2);
    std::vector<std::pair<int, double>> t;
    double sum = 0;
    for (int k = 0; k < count; ++k) {
      const double idx = left + k;
      const double w = scale < 1 ? scale * Cubic(scale * (u - idx)) : Cubic(u - idx);
      // 1-based idx to 0-based, mirrored into 0 .. in_len-1.
      long m = static_cast<long>(idx) - 1;
      m = ((m % (2L * in_len)) + 2L * in_len) % (2L * in_len);
      if (m >= in_len) m = 2L * in_len - 1 - m;
      t.emplace_back(static_cast<int>(m), w);
      sum += w;
    }
    for (auto& p : t) p.second /= sum;
    axis.taps.push_back(std::move(t));
  }
  return axis;
}

// imresize to out_w x out_h, rows first, then columns; rounded to bytes.
Image MatlabBicubic(const Image& src, int out_w, int out_h) {
  const Axis ay = ResizeAxis(src.h, out_h), ax = ResizeAxis(src.w, out_w);
  Image rows = Blank(src.w, out_h);
  for (int y = 0; y < out_h; ++y) {
    for (int x = 0; x < src.w; ++x) {
      double s = 0;
      for (const auto& [i, w] : ay.taps[y]) s += w * src.at(x, i);
      rows.at(x, y) = s;
    }
  }
  Image out = Blank(out_w, out_h);
  for (int y = 0; y < out_h; ++y) {
    for (int x = 0; x < out_w; ++x) {
      double s = 0;
      for (const auto& [i, w] : ax.taps[x]) s += w * rows.at(i, y);
      out.at(x, y) = RoundByte(s);
    }
  }
  return out;
}

bool LoadLuma(const fs::path& path, Image* y) {
  const cv::Mat m = cv::imread(path.string(), cv::IMREAD_COLOR);  // grey becomes B = G = R
  if (m.empty() || m.depth() != CV_8U) return false;
  *y = Blank(m.cols & ~1, m.rows & ~1);
  for (int r = 0; r < y->h; ++r) {
    const unsigned char* p = m.ptr<unsigned char>(r);
    for (int c = 0; c < y->w; ++c) {
      const double b = p[3 * c] / 255.0, g = p[3 * c + 1] / 255.0, rr = p[3 * c + 2] / 255.0;
      y->at(c, r) = RoundByte(16.0 + 65.481 * rr + 128.553 * g + 24.966 * b);
    }
  }
  return true;
}

Image Shave(const Image& a, int s) {
  Image out = Blank(a.w - 2 * s, a.h - 2 * s);
  for (int y = 0; y < out.h; ++y) {
    for (int x = 0; x < out.w; ++x) out.at(x, y) = a.at(x + s, y + s);
  }
  return out;
}

double Psnr(const Image& a, const Image& b) {
  double se = 0;
  for (size_t i = 0; i < a.px.size(); ++i) se += (a.px[i] - b.px[i]) * (a.px[i] - b.px[i]);
  const double mse = se / a.px.size();
  return mse == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 / mse);
}

// Wang et al.: 11x11 Gaussian window (sigma 1.5), valid positions only.
double Ssim(const Image& a, const Image& b) {
  double g[11], gs = 0;
  for (int i = 0; i < 11; ++i) gs += g[i] = std::exp(-(i - 5) * (i - 5) / (2 * 1.5 * 1.5));
  for (double& v : g) v /= gs;
  const double c1 = (0.01 * 255) * (0.01 * 255), c2 = (0.03 * 255) * (0.03 * 255);
  double total = 0;
  long n = 0;
  for (int y = 0; y + 11 <= a.h; ++y) {
    for (int x = 0; x + 11 <= a.w; ++x) {
      double ma = 0, mb = 0, saa = 0, sbb = 0, sab = 0;
      for (int j = 0; j < 11; ++j) {
        for (int i = 0; i < 11; ++i) {
          const double w = g[i] * g[j], va = a.at(x + i, y + j), vb = b.at(x + i, y + j);
          ma += w * va;
          mb += w * vb;
          saa += w * va * va;
          sbb += w * vb * vb;
          sab += w * va * vb;
        }
      }
      const double va = saa - ma * ma, vb = sbb - mb * mb, cov = sab - ma * mb;
      total += ((2 * ma * mb + c1) * (2 * cov + c2)) / ((ma * ma + mb * mb + c1) * (va + vb + c2));
      ++n;
    }
  }
  return total / n;
}

std::vector<unsigned char> ToBytes(const Image& a) {
  std::vector<unsigned char> out(a.px.size());
  for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<unsigned char>(a.px[i]);
  return out;
}

Image FromBytes(const unsigned char* p, int w, int h, size_t stride) {
  Image out = Blank(w, h);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) out.at(x, y) = p[y * stride + x];
  }
  return out;
}

// The plug-in on one network; a fresh object per image set, so that fewer
// than the governor's 31-frame minimum pass and it never switches networks.
class PluginRunner {
 public:
  explicit PluginRunner(NetType net) : net_(net) {}

  bool Start() {
    sr_.reset(SuperResolutionInterface::Create());
    sr_->SelectNetType(net_);
    return sr_->Init("") == SR_OK;
  }

  // Returns false (with a message) when the plug-in does not run the frame.
  bool Run(const Image& lr, Image* out) {
    const vorlith::cli::Frame frame = vorlith::cli::Frame::Create(lr.w, lr.h);
    {
      vorlith::cli::FrameLock lock(frame);
      const std::vector<unsigned char> bytes = ToBytes(lr);
      for (int r = 0; r < lr.h; ++r) {
        std::memcpy(frame.plane(0) + size_t(r) * frame.stride(0), &bytes[size_t(r) * lr.w], lr.w);
      }
      std::memset(frame.plane(1), 128, size_t(frame.stride(1)) * ((lr.h + 1) / 2));
    }
    _tagVideoData in{}, result{};
    in.width = lr.w;
    in.height = lr.h;
    in.pixelBuffer = frame.get();
    in.format = 1;
    const int status = sr_->ProcessData(&in, &result);
    // ProcessData hands over a reference whenever it made a frame.
    const vorlith::cli::Frame enlarged(status >= 0 ? result.pixelBuffer : nullptr);
    const int want = net_ == NET_TYPE_LIGHT ? SR_OK_LIGHT : SR_OK;
    if (status != want) {
      std::fprintf(stderr, "vorlith-eval: ProcessData returned %d (expected %d) on %dx%d\n", status,
                   want, lr.w, lr.h);
      return false;
    }
    vorlith::cli::FrameLock lock(enlarged, true);
    *out = FromBytes(enlarged.plane(0), int(result.width), int(result.height), enlarged.stride(0));
    return true;
  }

 private:
  NetType net_;
  std::unique_ptr<SuperResolutionInterface> sr_;
};

// One of the library's single-plane 2x kernels, with its ring scratch.
Image RunKernel(void (*kernel)(_StLanczos1p5x*, unsigned char*, unsigned char*, int, int),
                const Image& lr) {
  vorlith::cli::KernelContext ctx;
  // The context owns its ring and frees it with delete[].
  ctx.get()->workBuf = new unsigned char[size_t(16) * lr.w * sizeof(int32_t)];
  std::vector<unsigned char> src = ToBytes(lr), dst(size_t(4) * lr.w * lr.h);
  kernel(ctx.get(), src.data(), dst.data(), lr.h, lr.w);
  return FromBytes(dst.data(), 2 * lr.w, 2 * lr.h, size_t(2) * lr.w);
}

// A network through the model runner alone, at the image's own size: what
// the network gives without the plug-in's fixed-size tensor. Bytes as the
// plug-in makes them in a row's body: truncated, saturated.
template <class Network>
bool RunNetwork(const Image& lr, Image* out) {
  static std::shared_ptr<Network> network = Network::initWithConfiguration(vorlith::ModelConfiguration());
  if (network == nullptr) return false;
  auto input = vorlith::MultiArray::initWithShape({1, 1, lr.h, lr.w}, vorlith::MultiArrayDataType::Float32);
  auto* in = static_cast<float*>(input->dataPointer());
  for (size_t i = 0; i < lr.px.size(); ++i) in[i] = static_cast<float>(lr.px[i]);
  auto result = network->predictionFromRTC_input(input);
  if (result->_161 == nullptr) return false;
  const auto* y = static_cast<const float*>(result->_161->dataPointer());
  *out = Blank(2 * lr.w, 2 * lr.h);
  for (size_t i = 0; i < out->px.size(); ++i) out->px[i] = std::clamp(std::trunc(double(y[i])), 0.0, 255.0);
  return true;
}

struct Method {
  const char* name;
  std::function<bool(const Image& lr, Image* sr)> run;
  std::function<bool()> start = [] { return true; };
};

std::vector<std::string> Split(const std::string& s) {
  std::vector<std::string> out;
  size_t at = 0;
  while (at <= s.size()) {
    const size_t comma = std::min(s.find(',', at), s.size());
    if (comma > at) out.push_back(s.substr(at, comma - at));
    at = comma + 1;
  }
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  fs::path data = fs::path(VORLITH_SOURCE_DIR) / ".." / "shared" / "data" / "sr";
  std::string sets = "set5,set14";
  bool runner_rows = false;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--data" && i + 1 < argc) {
      data = argv[++i];
    } else if (a == "--runner") {
      runner_rows = true;
    } else if (a == "--sets" && i + 1 < argc) {
      sets = argv[++i];
    } else {
      std::fprintf(stderr, "usage: %s [--data DIR] [--sets set5,set14] [--runner]\n", argv[0]);
      return 2;
    }
  }

  PluginRunner full(NET_TYPE_FULL), light(NET_TYPE_LIGHT);
  std::vector<Method> methods = {
      {"bicubic (MATLAB imresize)",
       [](const Image& lr, Image* sr) {
         *sr = MatlabBicubic(lr, 2 * lr.w, 2 * lr.h);
         return true;
       }},
      {"library `Cubic2x_NEON`",
       [](const Image& lr, Image* sr) {
         *sr = RunKernel(Cubic2x_NEON, lr);
         return true;
       }},
      {"library `Lanczos2x_SingleChannel`",
       [](const Image& lr, Image* sr) {
         *sr = RunKernel(Lanczos2x_SingleChannel, lr);
         return true;
       }},
      {"RTC_degrade (light) in the plug-in", [&](const Image& lr, Image* sr) { return light.Run(lr, sr); },
       [&] { return light.Start(); }},
      {"RTC (full) in the plug-in", [&](const Image& lr, Image* sr) { return full.Run(lr, sr); },
       [&] { return full.Start(); }},
  };
  if (runner_rows) {
    methods.push_back({"RTC_degrade, model runner at image size", RunNetwork<vorlith::RTC_degrade>});
    methods.push_back({"RTC, model runner at image size", RunNetwork<vorlith::RTC>});
  }

  struct Score {
    double psnr = 0, ssim = 0;
  };
  std::vector<std::string> set_names = Split(sets);
  std::vector<std::vector<Score>> table(methods.size(), std::vector<Score>(set_names.size()));
  for (size_t s = 0; s < set_names.size(); ++s) {
    std::vector<fs::path> files;
    const fs::path dir = data / "val" / set_names[s];
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(dir, ec)) {
      if (e.path().extension() == ".png") files.push_back(e.path());
    }
    if (files.empty()) {
      std::fprintf(stderr, "vorlith-eval: no PNG images in %s\n", dir.c_str());
      return 1;
    }
    std::sort(files.begin(), files.end());
    std::vector<std::pair<Image, Image>> pairs;  // (LR, HR)
    for (const fs::path& f : files) {
      Image hr;
      if (!LoadLuma(f, &hr)) {
        std::fprintf(stderr, "vorlith-eval: cannot read %s\n", f.c_str());
        return 1;
      }
      Image lr = MatlabBicubic(hr, hr.w / 2, hr.h / 2);
      pairs.emplace_back(std::move(lr), Shave(hr, 2));
    }
    for (size_t m = 0; m < methods.size(); ++m) {
      if (!methods[m].start()) {
        std::fprintf(stderr, "vorlith-eval: the plug-in could not start (%s)\n", methods[m].name);
        return 1;
      }
      for (const auto& [lr, hr] : pairs) {
        Image sr;
        if (!methods[m].run(lr, &sr)) return 1;
        const Image cut = Shave(sr, 2);
        table[m][s].psnr += Psnr(cut, hr) / pairs.size();
        table[m][s].ssim += Ssim(cut, hr) / pairs.size();
      }
    }
  }

  std::printf("| method |");
  for (const auto& n : set_names) std::printf(" %s PSNR (dB) | %s SSIM |", n.c_str(), n.c_str());
  std::printf("\n|---|");
  for (size_t s = 0; s < set_names.size(); ++s) std::printf("---:|---:|");
  std::printf("\n");
  for (size_t m = 0; m < methods.size(); ++m) {
    std::printf("| %s |", methods[m].name);
    for (const Score& sc : table[m]) std::printf(" %.2f | %.4f |", sc.psnr, sc.ssim);
    std::printf("\n");
  }
  return 0;
}
