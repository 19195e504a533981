// An integrator's first program against the installed library: a kernel
// call, then (unless --kernels-only) one frame through the plug-in, whose
// networks must come from the installed share directory.
#include <vorlith/kernels.h>
#include <vorlith/plugin.h>

#include <cstdio>
#include <cstring>
#include <memory>

int main(int argc, char** argv) {
  _StLanczos1p5x ctx{};
  InitLanczos1p5x(&ctx);
  unsigned char uv[4] = {10, 20, 30, 40}, uv2[16] = {};
  Linear_2x_nv(&ctx, uv, uv2, 1, 2, 4, 8);
  UInitLanczos1p5x(&ctx);
  if (uv2[0] != 10 || uv2[1] != 20) {
    std::fprintf(stderr, "consumer: Linear_2x_nv gave %d %d\n", uv2[0], uv2[1]);
    return 1;
  }
  if (argc > 1 && std::strcmp(argv[1], "--kernels-only") == 0) return 0;

  std::unique_ptr<SuperResolutionInterface> sr(SuperResolutionInterface::Create());
  sr->Init("");
  VLPixelBufferRef frame = nullptr;
  VLPixelBufferCreate(24, 16, kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange, &frame);
  _tagVideoData in{}, out{};
  in.width = 24;
  in.height = 16;
  in.pixelBuffer = frame;
  in.format = 1;
  const int status = sr->ProcessData(&in, &out);
  VLPixelBufferRelease(frame);
  if (status != SR_OK || out.width != 48 || out.height != 32) {
    std::fprintf(stderr, "consumer: ProcessData returned %d (%ux%u)\n", status, out.width, out.height);
    return 1;
  }
  VLPixelBufferRelease(out.pixelBuffer);
  std::printf("consumer: %s\n", libVorlithVersionString);
  return 0;
}
