// The platform services the plug-in and the model runner rely on, each with a
// seam through which tests replace it.
#ifndef VORLITH_SRC_PLATFORM_PLATFORM_H_
#define VORLITH_SRC_PLATFORM_PLATFORM_H_

#include <cstdint>
#include <functional>
#include <string>

namespace vorlith::platform {

// ---- Logging: error-level lines go to syslog (LOG_ERR).
void LogError(const std::string& message);
// Replaces the sink (null restores syslog).
void SetErrorLogSinkForTest(std::function<void(const std::string&)> sink);

// ---- Resources: the networks live beside the loaded library, or in
// ../share/vorlith relative to it in an installed tree.
// Returns the path of NAME.TYPE, or an empty string when neither place has it.
std::string PathForResource(const std::string& name, const std::string& type);
// The directory of the loaded shared library (of the executable when linked
// statically).
std::string LibraryDirectory();
// Searches only `directory` from now on; an empty string restores the default.
void SetResourceDirectoryForTest(const std::string& directory);

// ---- Clock: whole microseconds of a monotonic clock.
int64_t NowMicroseconds();
// Replaces the clock (null restores the monotonic one).
void SetClockForTest(std::function<int64_t()> clock);

// ---- The CPUs this process may run on: its affinity mask, which taskset and
// container cpusets narrow (the online count does not), at least 1.
int UsableCpus();

// ---- Whether the neural path is available on this system (always, on Linux).
bool NeuralPathSupported();
void SetNeuralPathSupportedForTest(bool supported);

}  // namespace vorlith::platform

#endif  // VORLITH_SRC_PLATFORM_PLATFORM_H_
