#include "tools/common/host_support.h"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>

#include "vorlith/plugin.h"
#include "vorlith/resize.h"

namespace vorlith::host {
namespace {

// out(2i) = (3 x[i] + x[i-1]), out(2i+1) = (3 x[i] + x[i+1]), edges
// replicated: the horizontal half of the 9/3/3/1 kernel, times 4.
void HorizontalRow(const uint8_t* src, int width, int* dst) {
  for (int i = 0; i < width; ++i) {
    const int left = src[std::max(i - 1, 0)];
    const int right = src[std::min(i + 1, width - 1)];
    dst[2 * i] = 3 * src[i] + left;
    dst[2 * i + 1] = 3 * src[i] + right;
  }
}

}  // namespace

void BilinearEnlargeNv12(_StLanczos1p5x* ctx, const uint8_t* y, ptrdiff_t y_stride, const uint8_t* uv,
                         ptrdiff_t uv_stride, int w, int h, uint8_t* y2, ptrdiff_t y2_stride, uint8_t* uv2,
                         ptrdiff_t uv2_stride) {
  std::vector<int> rows(size_t(3) * 2 * w);  // rows above, at and below
  int* row[3] = {&rows[0], &rows[size_t(2) * w], &rows[size_t(4) * w]};
  for (int r = 0; r < h; ++r) {
    for (int k = 0; k < 3; ++k) HorizontalRow(y + std::clamp(r + k - 1, 0, h - 1) * y_stride, w, row[k]);
    uint8_t* top = y2 + 2 * r * y2_stride;
    uint8_t* bottom = top + y2_stride;
    for (int x = 0; x < 2 * w; ++x) {
      top[x] = static_cast<uint8_t>((3 * row[1][x] + row[0][x] + 8) >> 4);
      bottom[x] = static_cast<uint8_t>((3 * row[1][x] + row[2][x] + 8) >> 4);
    }
  }
  // The kernel takes its source as writable bytes; it only reads them.
  Linear_2x_nv(ctx, const_cast<uint8_t*>(uv), uv2, (h + 1) / 2, (w + 1) / 2, static_cast<int>(uv_stride),
               static_cast<int>(uv2_stride));
}

NetworkSearch FindNetworks() {
  namespace fs = std::filesystem;
  NetworkSearch search;
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&SuperResolutionInterface::Create), &info) != 0 &&
      info.dli_fname != nullptr) {
    std::error_code ec;
    fs::path file = fs::canonical(info.dli_fname, ec);
    if (ec) file = info.dli_fname;
    const fs::path dir = file.parent_path();
    search.directories = {dir.string(), (dir.parent_path() / "share" / "vorlith").string()};
    if (dir.parent_path().filename() == "lib") {
      search.directories.push_back((dir.parent_path().parent_path() / "share" / "vorlith").string());
    }
  }
#ifdef VORLITH_INSTALL_DATADIR
  search.directories.push_back(VORLITH_INSTALL_DATADIR);
#endif
  for (const char* name : {"RTC.onnx", "RTC_degrade.onnx"}) {
    bool found = false;
    for (const std::string& dir : search.directories) {
      std::error_code ec;
      found = found || fs::is_regular_file(fs::path(dir) / name, ec);
    }
    if (!found) search.missing.push_back(name);
  }
  return search;
}

std::string NetworkTrouble() {
  const NetworkSearch search = FindNetworks();
  std::string where;
  for (size_t i = 0; i < search.directories.size(); ++i) {
    where += (i == 0 ? "" : i + 1 == search.directories.size() ? " or " : ", ") + search.directories[i];
  }
  if (search.missing.empty()) {
    return "its networks (RTC.onnx, RTC_degrade.onnx in " + where +
           ") are damaged or use an operator the runtime lacks";
  }
  std::string names;
  for (size_t i = 0; i < search.missing.size(); ++i) names += (i ? " and " : "") + search.missing[i];
  return names + " not found in " + where;
}

}  // namespace vorlith::host
