#include "src/platform/platform.h"

#include <dlfcn.h>
#include <sched.h>
#include <syslog.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>
#include <utility>

namespace vorlith::platform {
namespace {

// Seams are plain globals: like the plug-in itself they are meant for one
// thread at a time (the test that sets them).
std::function<void(const std::string&)>& ErrorSink() {
  static std::function<void(const std::string&)> sink;
  return sink;
}

std::string& ResourceOverride() {
  static std::string directory;
  return directory;
}

std::function<int64_t()>& ClockOverride() {
  static std::function<int64_t()> clock;
  return clock;
}

bool& NeuralPathFlag() {
  static bool supported = true;
  return supported;
}

bool IsFile(const std::filesystem::path& path) {
  std::error_code ec;
  return std::filesystem::is_regular_file(path, ec);
}

}  // namespace

void LogError(const std::string& message) {
  if (ErrorSink()) {
    ErrorSink()(message);
    return;
  }
  syslog(LOG_ERR, "%s", message.c_str());
}

void SetErrorLogSinkForTest(std::function<void(const std::string&)> sink) {
  ErrorSink() = std::move(sink);
}

std::string LibraryDirectory() {
  Dl_info info{};
  // Any function of this library names the shared object it was loaded from
  // (or the executable, when linked statically).
  if (dladdr(reinterpret_cast<void*>(&LibraryDirectory), &info) == 0 || info.dli_fname == nullptr) {
    return {};
  }
  std::error_code ec;
  const std::filesystem::path file = std::filesystem::canonical(info.dli_fname, ec);
  return ec ? std::filesystem::path(info.dli_fname).parent_path().string()
            : file.parent_path().string();
}

std::string PathForResource(const std::string& name, const std::string& type) {
  const std::string file = name + "." + type;
  if (!ResourceOverride().empty()) {
    const std::filesystem::path path = std::filesystem::path(ResourceOverride()) / file;
    return IsFile(path) ? path.string() : std::string();
  }
  const std::filesystem::path dir = LibraryDirectory();
  if (dir.empty()) return {};
  for (const std::filesystem::path& path :
       {dir / file, dir / ".." / "share" / "vorlith" / file}) {
    if (IsFile(path)) return path.lexically_normal().string();
  }
  // A multiarch libdir (lib/x86_64-linux-gnu) is one level deeper.
  if (dir.parent_path().filename() == "lib") {
    const std::filesystem::path path = dir / ".." / ".." / "share" / "vorlith" / file;
    if (IsFile(path)) return path.lexically_normal().string();
  }
#ifdef VORLITH_INSTALL_DATADIR
  // Installed elsewhere than the library's tree: the configured data
  // directory.
  const std::filesystem::path installed = std::filesystem::path(VORLITH_INSTALL_DATADIR) / file;
  if (IsFile(installed)) return installed.string();
#endif
  return {};
}

void SetResourceDirectoryForTest(const std::string& directory) { ResourceOverride() = directory; }

int64_t NowMicroseconds() {
  if (ClockOverride()) return ClockOverride()();
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

void SetClockForTest(std::function<int64_t()> clock) { ClockOverride() = std::move(clock); }

int UsableCpus() {
  cpu_set_t set;
  // A mask wider than cpu_set_t (over 1024 CPUs) fails; count the online ones.
  if (sched_getaffinity(0, sizeof(set), &set) == 0) return std::max(1, CPU_COUNT(&set));
  return static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
}

bool NeuralPathSupported() { return NeuralPathFlag(); }
void SetNeuralPathSupportedForTest(bool supported) { NeuralPathFlag() = supported; }

}  // namespace vorlith::platform
