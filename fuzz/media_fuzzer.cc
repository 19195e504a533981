// The command-line host's input side on arbitrary bytes as a file: FFmpeg's
// demuxers and decoders through MediaReader, then each frame fitted and
// converted to NV12 as the upscale command does. A bad file must come back as
// a CliError, with nothing crashed and nothing leaked.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/log.h>
}

#include "tools/cli/frame.h"
#include "tools/cli/media.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  av_log_set_level(AV_LOG_QUIET);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // An in-memory file, so the reader opens it by path as it opens any input.
  const int fd = memfd_create("vorlith-media-fuzz", 0);
  if (fd < 0) std::abort();
  for (size_t done = 0; done < size;) {
    const ssize_t n = write(fd, data + done, size - done);
    if (n <= 0) std::abort();
    done += size_t(n);
  }
  using namespace vorlith::cli;
  try {
    MediaReader reader("/proc/self/fd/" + std::to_string(fd), 1);
    Converter converter;
    for (int i = 0; i < 6; ++i) {
      const AVFrame* frame = reader.Next();
      if (frame == nullptr) {
        reader.CheckComplete();
        break;
      }
      int width = 0, height = 0;
      FitSize(frame->width, frame->height, &width, &height);
      const Frame nv12 = converter.ToNv12(frame, width, height);
      if (nv12.width() != width || nv12.height() != height) std::abort();
    }
  } catch (const CliError&) {
  }
  close(fd);
  return 0;
}
