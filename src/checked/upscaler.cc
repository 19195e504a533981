// The checked Upscaler: frames of any size through the networks, in tiles
// that overlap by the network's receptive field.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "src/checked/context.h"
#include "src/kernels/resize/linear_2x_nv.h"
#include "src/model/network.h"
#include "src/platform/platform.h"
#include "src/platform/worker_pool.h"
#include "src/plugin/sr_plugin.h"
#include "vorlith/convert.h"
#include "vorlith/vorlith.hpp"

namespace vorlith {
namespace {

[[noreturn]] void Invalid(const std::string& what) { throw std::invalid_argument(what); }

std::string Size(int w, int h) { return std::to_string(w) + "x" + std::to_string(h); }

template <class T>
void CheckView(const char* fn, const char* name, const PlaneView<T>& p, int width, int height, int channels) {
  const std::string at = std::string(fn) + ": " + name;
  if (p.data == nullptr) Invalid(at + ".data must not be null");
  if (p.channels != channels) {
    Invalid(at + " must have " + std::to_string(channels) + " channel(s), got " + std::to_string(p.channels));
  }
  if (p.width != width || p.height != height) {
    Invalid(at + " must be " + Size(width, height) + ", got " + Size(p.width, p.height));
  }
  if (p.stride < p.row_values()) {
    Invalid(at + ".stride must be at least width * channels (" + std::to_string(p.row_values()) + "), got " +
            std::to_string(p.stride));
  }
}

template <class T>
void CheckSource(const char* fn, const char* name, const PlaneView<T>& p, int channels) {
  if (p.width < 1 || p.height < 1) Invalid(std::string(fn) + ": " + name + " must not be empty, got " + Size(p.width, p.height));
  CheckView(fn, name, p, p.width, p.height, channels);
}

// The bytes a view spans, for the overlap check.
template <class T>
std::pair<const uint8_t*, const uint8_t*> Span(const PlaneView<T>& p) {
  const auto* first = reinterpret_cast<const uint8_t*>(p.data);
  const auto* last = reinterpret_cast<const uint8_t*>(p.row(p.height - 1) + p.row_values());
  return {first, last};
}

template <class A, class B>
void CheckApart(const char* fn, const char* a_name, const PlaneView<A>& a, const char* b_name,
                const PlaneView<B>& b) {
  const auto [a0, a1] = Span(a);
  const auto [b0, b1] = Span(b);
  if (a0 < b1 && b0 < a1) Invalid(std::string(fn) + ": " + a_name + " and " + b_name + " must not overlap");
}

// A network output value as a byte: truncated toward zero into 32 bits
// (negative and NaN to 0), the low 16 bits read as signed and saturated to
// 0..255 - what the library's float-to-byte conversion does to its vector
// columns, here for every column.
uint8_t ToByte(float v) {
  uint32_t u = 0;
  if (v >= 4294967296.0f) {
    u = 0xFFFFFFFFu;
  } else if (v > 0.0f) {
    u = static_cast<uint32_t>(v);
  }
  const auto s = static_cast<int16_t>(static_cast<uint16_t>(u));
  return static_cast<uint8_t>(std::clamp<int16_t>(s, 0, 255));
}

void ToBytes(const float* src, uint8_t* dst, int n) {
  const int body = n / 8 * 8;
  if (body > 0) CvtF32ToU8_STRIDE(const_cast<float*>(src), dst, 1, body, body, body);
  for (int i = body; i < n; ++i) dst[i] = ToByte(src[i]);
}

// The plug-in's full-network budget holds for a 1280x720 frame; other sizes
// are measured against it per pixel.
constexpr double kBudgetPixels = 1280.0 * 720.0;

}  // namespace

struct Upscaler::Impl {
  Options options;
  std::unique_ptr<model::Network> full, light;
  bool on_light = false;
  int frames = 0;
  double elapsed_ms = 0.0, pixels = 0.0;
  int bands = 1;
  std::vector<float> input, output;
  std::vector<std::vector<int16_t>> chroma_scratch;
  std::vector<uint8_t> staging;

  model::Network& Current() { return on_light ? *light : *full; }

  std::unique_ptr<model::Network> Load(const char* name) {
    const std::string file = std::string(name) + ".onnx";
    const std::string path =
        options.models.empty() ? platform::PathForResource(name, "onnx") : options.models + "/" + file;
    if (path.empty()) throw std::runtime_error("Upscaler: " + file + " is not installed beside the library");
    std::string error;
    const int threads = options.threads > 0 ? options.threads : bands;
    // On a Vulkan GPU where there is one, as the plug-in does: the same bytes.
    std::unique_ptr<model::Network> net = model::Network::Load(path, threads, /*gpu=*/true, &error);
    if (net == nullptr) throw std::runtime_error("Upscaler: cannot load " + path + ": " + error);
    if (net->OutputShape({1, 1, 17, 13}) != std::vector<int64_t>{1, 1, 34, 26}) {
      throw std::runtime_error("Upscaler: " + path + " does not enlarge a one-channel image two times");
    }
    return net;
  }

  // The luma, tile by tile; rows of each tile's output become bytes on the
  // network's threads as they are finished.
  void Luma(ConstPlane src, Plane dst) {
    model::Network& net = Current();
    const int margin = static_cast<int>(net.InputMargin());
    const int w = src.width, h = src.height;
    const int step = std::max(Upscaler::kTile - 2 * margin, 16);
    const int tiles_x = w <= Upscaler::kTile ? 1 : (w + step - 1) / step;
    const int tiles_y = h <= Upscaler::kTile ? 1 : (h + step - 1) / step;
    platform::WorkerPool& pool = platform::WorkerPool::Shared();
    for (int ty = 0; ty < tiles_y; ++ty) {
      const int y0 = tiles_y == 1 ? 0 : ty * step, y1 = tiles_y == 1 ? h : std::min(h, y0 + step);
      const int wy0 = std::max(0, y0 - margin), wy1 = tiles_y == 1 ? h : std::min(h, y1 + margin);
      for (int tx = 0; tx < tiles_x; ++tx) {
        const int x0 = tiles_x == 1 ? 0 : tx * step, x1 = tiles_x == 1 ? w : std::min(w, x0 + step);
        const int wx0 = std::max(0, x0 - margin), wx1 = tiles_x == 1 ? w : std::min(w, x1 + margin);
        const int ww = wx1 - wx0, wh = wy1 - wy0;
        input.resize(static_cast<size_t>(ww) * wh);
        const int parts = std::clamp(wh / 32, 1, bands);
        pool.Run(parts, [&](int part) {
          const int first = wh * part / parts, end = wh * (part + 1) / parts;
          CvtU8ToF32_STRIDE(const_cast<uint8_t*>(src.row(wy0 + first)) + wx0,
                            input.data() + static_cast<size_t>(first) * ww, end - first, ww,
                            static_cast<int>(src.stride), ww);
        });
        model::Network::Region region;
        region.rows = 2 * (y1 - wy0);
        region.columns = 2 * (x1 - wx0);
        const int keep_row = 2 * (y0 - wy0), keep_col = 2 * (x0 - wx0), out_w = 2 * ww;
        region.on_rows = [&](const float* o, int64_t first, int64_t end) {
          for (int64_t r = std::max<int64_t>(first, keep_row); r < end; ++r) {
            ToBytes(o + r * out_w + keep_col, dst.row(static_cast<int>(2 * wy0 + r)) + 2 * x0, 2 * (x1 - x0));
          }
        };
        std::vector<int64_t> shape;
        std::string error;
        if (!net.Run(input.data(), {1, 1, wh, ww}, region, &output, &shape, &error)) {
          throw std::runtime_error("Upscaler: the network failed on a " + Size(ww, wh) + " tile: " + error);
        }
      }
    }
  }

  // Cb/Cr pairs 2x in bands of output rows; rows and pairs past uv2's
  // extent (an odd height's or width's last) go to a staging plane first.
  void Chroma(ConstPlane uv, Plane uv2) {
    const int cw = uv.width, ch = uv.height;
    const int rows = std::min(2 * ch, uv2.height);
    const bool direct = 2 * cw == uv2.width;
    const int row_bytes = 4 * cw;
    uint8_t* out = uv2.data;
    int out_stride = static_cast<int>(uv2.stride);
    if (!direct) {
      staging.resize(static_cast<size_t>(rows) * row_bytes);
      out = staging.data();
      out_stride = row_bytes;
    }
    const int parts = std::clamp(rows / 32, 1, bands);
    if (chroma_scratch.size() < static_cast<size_t>(parts)) chroma_scratch.resize(static_cast<size_t>(parts));
    for (int p = 0; p < parts; ++p) chroma_scratch[p].resize(std::max(chroma_scratch[p].size(), size_t(8) * cw));
    platform::WorkerPool::Shared().Run(parts, [&](int p) {
      Linear2xNvRows(chroma_scratch[p].data(), uv.data, out, ch, cw, static_cast<int>(uv.stride), out_stride,
                     Linear2xNvBandStart(p, parts, ch, rows), Linear2xNvBandStart(p + 1, parts, ch, rows));
    });
    if (!direct) {
      for (int r = 0; r < rows; ++r) {
        std::memcpy(uv2.row(r), staging.data() + static_cast<size_t>(r) * row_bytes, uv2.row_values());
      }
    }
  }

  void Govern(std::chrono::steady_clock::time_point start, int w, int h) {
    if (options.network != Network::kAuto || on_light) return;
    elapsed_ms += std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    pixels += static_cast<double>(w) * h;
    if (++frames > kGovernorMinFrames && elapsed_ms / (pixels / kBudgetPixels) > kFullBudgetMs) on_light = true;
  }
};

Upscaler::Upscaler() : Upscaler(Options()) {}

Upscaler::Upscaler(const Options& options) : impl_(std::make_unique<Impl>()) {
  if (options.threads < 0) Invalid("Upscaler: options.threads must be 0 (one per usable CPU) or more, got " + std::to_string(options.threads));
  impl_->options = options;
  impl_->bands = options.threads > 0 ? options.threads : std::min(platform::UsableCpus(), 64);
  if (options.network != Network::kLight) impl_->full = impl_->Load("RTC");
  if (options.network != Network::kFull) impl_->light = impl_->Load("RTC_degrade");
  impl_->on_light = options.network == Network::kLight;
}

Upscaler::~Upscaler() = default;

Upscaler::Network Upscaler::network() const { return impl_->on_light ? Network::kLight : Network::kFull; }

int Upscaler::margin() const { return static_cast<int>(impl_->Current().InputMargin()); }

void Upscaler::Enlarge(ConstPlane src, Plane dst) {
  CheckSource("Upscaler::Enlarge", "src", src, 1);
  CheckView("Upscaler::Enlarge", "dst", dst, 2 * src.width, 2 * src.height, 1);
  CheckApart("Upscaler::Enlarge", "src", src, "dst", dst);
  const auto start = std::chrono::steady_clock::now();
  impl_->Luma(src, dst);
  impl_->Govern(start, src.width, src.height);
}

void Upscaler::EnlargeNV12(ConstPlane y, ConstPlane uv, Plane y2, Plane uv2) {
  const char* fn = "Upscaler::EnlargeNV12";
  CheckSource(fn, "y", y, 1);
  const int w = y.width, h = y.height;
  CheckView(fn, "uv", uv, (w + 1) / 2, (h + 1) / 2, 2);
  CheckView(fn, "y2", y2, 2 * w, 2 * h, 1);
  CheckView(fn, "uv2", uv2, w, h, 2);
  CheckApart(fn, "y", y, "y2", y2);
  CheckApart(fn, "y", y, "uv2", uv2);
  CheckApart(fn, "uv", uv, "y2", y2);
  CheckApart(fn, "uv", uv, "uv2", uv2);
  CheckApart(fn, "y2", y2, "uv2", uv2);
  const auto start = std::chrono::steady_clock::now();
  impl_->Chroma(uv, uv2);
  impl_->Luma(y, y2);
  impl_->Govern(start, w, h);
}

void Upscaler::EnlargeRGB(ConstPlane src, Plane dst, bool bgr) {
  const char* fn = "Upscaler::EnlargeRGB";
  CheckSource(fn, "src", src, 3);
  const int w = src.width, h = src.height;
  CheckView(fn, "dst", dst, 2 * w, 2 * h, 3);
  CheckApart(fn, "src", src, "dst", dst);
  const auto start = std::chrono::steady_clock::now();
  // The conversion to 4:2:0 takes packed RGBA of even sizes: the last column
  // and row are repeated, which only the chroma of the last blocks could
  // see, and it reads the top-left pixel of each block.
  const int we = w + (w & 1), he = h + (h & 1);
  std::vector<uint8_t> rgba(static_cast<size_t>(we) * he * 4);
  for (int r = 0; r < he; ++r) {
    const uint8_t* in = src.row(std::min(r, h - 1));
    uint8_t* out = rgba.data() + static_cast<size_t>(r) * we * 4;
    for (int c = 0; c < we; ++c) {
      const uint8_t* p = in + 3 * std::min(c, w - 1);
      out[4 * c + 0] = p[bgr ? 2 : 0];
      out[4 * c + 1] = p[1];
      out[4 * c + 2] = p[bgr ? 0 : 2];
      out[4 * c + 3] = 255;
    }
  }
  checked::Context context;
  const size_t pixels = static_cast<size_t>(we) * he;
  std::vector<uint8_t> i420a(pixels * 5 / 2);
  RGBA2I420A_NEON(context.get(), rgba.data(), i420a.data(), he, we);
  const int cw = we / 2, ch = he / 2;
  std::vector<uint8_t> uv(static_cast<size_t>(cw) * ch * 2);
  for (size_t i = 0; i < static_cast<size_t>(cw) * ch; ++i) {
    uv[2 * i] = i420a[pixels + i];
    uv[2 * i + 1] = i420a[pixels * 5 / 4 + i];
  }
  std::vector<uint8_t> y2(static_cast<size_t>(4) * w * h), uv2(static_cast<size_t>(2) * w * h);
  impl_->Chroma(ConstPlane(uv.data(), cw, ch, 2 * cw, 2), Plane(uv2.data(), w, h, 2 * w, 2));
  impl_->Luma(ConstPlane(i420a.data(), w, h, we), Plane(y2.data(), 2 * w, 2 * h, 2 * w));
  std::vector<uint8_t> rgb(static_cast<size_t>(12) * w * h);
  CvtColorNV12ToRGBInterleaved(y2.data(), 2 * w, uv2.data(), 2 * w, rgb.data(), 2 * w, 2 * h);
  for (int r = 0; r < 2 * h; ++r) {
    const uint8_t* in = rgb.data() + static_cast<size_t>(r) * 6 * w;
    uint8_t* out = dst.row(r);
    if (!bgr) {
      std::memcpy(out, in, static_cast<size_t>(6) * w);
      continue;
    }
    for (int c = 0; c < 2 * w; ++c) {
      out[3 * c + 0] = in[3 * c + 2];
      out[3 * c + 1] = in[3 * c + 1];
      out[3 * c + 2] = in[3 * c + 0];
    }
  }
  impl_->Govern(start, w, h);
}

}  // namespace vorlith
