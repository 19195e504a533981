// Enlarges the chroma plane of a synthetic NV12 test frame 2x with
// Linear_2x_nv and reports what it did. Writes the Cb and Cr planes before and
// after as PGM images into the output directory.
//
//   vorlith-demo [OUTPUT_DIR] [WIDTH HEIGHT]
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "vorlith/kernels.h"

namespace {

// Chroma of a colour-bar frame with a diagonal gradient across it, so that
// the enlargement has both flat areas and edges to show.
std::vector<unsigned char> TestChroma(int cw, int ch) {
  static const unsigned char kBars[8][2] = {{128, 128}, {16, 146}, {166, 16}, {54, 34},
                                            {202, 222}, {90, 240}, {240, 110}, {128, 128}};
  std::vector<unsigned char> uv(size_t(2) * cw * ch);
  for (int y = 0; y < ch; ++y) {
    for (int x = 0; x < cw; ++x) {
      const int bar = x * 8 / cw;
      const int ramp = (x + y) * 64 / (cw + ch) - 32;
      for (int c = 0; c < 2; ++c) {
        const int v = y < ch * 2 / 3 ? kBars[bar][c] : 128 + (c ? -ramp : ramp) * 3;
        uv[size_t(y) * 2 * cw + 2 * x + c] = static_cast<unsigned char>(std::clamp(v, 0, 255));
      }
    }
  }
  return uv;
}

bool WritePlanePgm(const std::string& path, const std::vector<unsigned char>& uv, int w, int h,
                   int stride, int component) {
  std::ofstream out(path, std::ios::binary);
  out << "P5\n" << w << " " << h << "\n255\n";
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) out.put(static_cast<char>(uv[size_t(y) * stride + 2 * x + component]));
  }
  return bool(out);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string out_dir = argc > 1 ? argv[1] : ".";
  const int width = argc > 3 ? std::atoi(argv[2]) : 1280;
  const int height = argc > 3 ? std::atoi(argv[3]) : 720;
  if (width < 2 || height < 2 || width > 10240 || height > 8192) {
    std::fprintf(stderr, "vorlith-demo: frame size must be 2x2 to 10240x8192\n");
    return 2;
  }
  const int cw = (width + 1) / 2, ch = (height + 1) / 2;
  const int src_stride = 2 * cw, dst_stride = 4 * cw;
  const std::vector<unsigned char> src = TestChroma(cw, ch);
  std::vector<unsigned char> dst(size_t(dst_stride) * 2 * ch);

  _StLanczos1p5x ctx{};
  InitLanczos1p5x(&ctx);
  const int runs = 200;
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < runs; ++i) {
    Linear_2x_nv(&ctx, const_cast<unsigned char*>(src.data()), dst.data(), ch, cw, src_stride,
                 dst_stride);
  }
  const double us =
      std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count() /
      runs;
  UInitLanczos1p5x(&ctx);

  unsigned long long checksum = 1469598103934665603ull;  // FNV-1a of the output
  for (unsigned char b : dst) checksum = (checksum ^ b) * 1099511628211ull;

  bool ok = true;
  const char* names[2] = {"cb", "cr"};
  for (int c = 0; c < 2; ++c) {
    ok &= WritePlanePgm(out_dir + "/chroma_in_" + names[c] + ".pgm", src, cw, ch, src_stride, c);
    ok &= WritePlanePgm(out_dir + "/chroma_out_" + names[c] + ".pgm", dst, 2 * cw, 2 * ch,
                        dst_stride, c);
  }
  std::printf("frame %dx%d NV12: chroma plane %dx%d pairs enlarged to %dx%d pairs\n", width,
              height, cw, ch, 2 * cw, 2 * ch);
  std::printf("Linear_2x_nv: %.1f us per plane (mean of %d runs), %.0f MB/s read+written\n", us,
              runs, (src.size() + dst.size()) / us);
  std::printf("output checksum (FNV-1a): %016llx\n", checksum);
  if (!ok) {
    std::fprintf(stderr, "vorlith-demo: could not write the PGM images to %s\n", out_dir.c_str());
    return 1;
  }
  std::printf("wrote %s/chroma_{in,out}_{cb,cr}.pgm\n", out_dir.c_str());
  return 0;
}
