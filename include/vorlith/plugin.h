// The plug-in interface a host video program drives: create it, optionally
// select a network, Init, then ProcessData once per NV12 frame.
//
//   SuperResolutionInterface* sr = SuperResolutionInterface::Create();
//   sr->SelectNetType(NET_TYPE_FULL);
//   sr->Init("");
//   _tagVideoData in{...}, out{};   // in.pixelBuffer: a "420v" VLPixelBufferRef
//   int status = sr->ProcessData(&in, &out);   // SR_OK or SR_OK_LIGHT: out holds
//   ...                                         // a new buffer; release it
//   VLPixelBufferRelease(out.pixelBuffer);
//   delete sr;
//
// One object serves one thread at a time; it takes no lock.
#ifndef VORLITH_PLUGIN_H_
#define VORLITH_PLUGIN_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "vorlith/export.h"
#include "vorlith/pixel_buffer.h"

// Network selector: 1 selects the light network, every other value the full.
enum NetType : int32_t {
  NET_TYPE_FULL = 0,
  NET_TYPE_LIGHT = 1,
};

// Status codes of the plug-in's operations.
enum : int32_t {
  SR_OK = 0,                 // success; from ProcessData: frame done with the full network
  SR_OK_LIGHT = 3,           // ProcessData: frame done with the light network
  SR_ERR_TOO_LARGE = 11,     // ProcessData: width or height above 1280
  SR_ERR_TOO_SLOW = 41,      // ProcessData: this frame size is refused as too slow
  SR_ERR_UNSUPPORTED = -1,   // ProcessData: neural path unavailable, format other than 1,
                             // or the frame could not be run (see ProcessData)
};

// The frame record exchanged with the host; its byte layout is fixed.
struct _tagVideoData {
  uint32_t width;                // luma width in pixels
  uint32_t height;               // luma height in pixels
  VLPixelBufferRef pixelBuffer;  // two planes: Y, interleaved CbCr
  int32_t format;                // 1 = NV12 video range ("420v"), the only value used
  uint8_t hostFields[36];        // the host's own; never read or written by the plug-in
  int32_t strideY;               // bytes per row of plane 0, written on output
  int32_t strideUV;              // bytes per row of plane 1, written on output
};
static_assert(offsetof(_tagVideoData, width) == 0);
static_assert(offsetof(_tagVideoData, height) == 4);
static_assert(offsetof(_tagVideoData, pixelBuffer) == 8);
static_assert(offsetof(_tagVideoData, format) == 16);
static_assert(offsetof(_tagVideoData, hostFields) == 20);
static_assert(offsetof(_tagVideoData, strideY) == 56);
static_assert(offsetof(_tagVideoData, strideUV) == 60);
static_assert(sizeof(_tagVideoData) == 64);

class VORLITH_API SuperResolutionInterface {
 public:
  virtual ~SuperResolutionInterface();
  // 1, the NV12 format code.
  virtual int GetSupportFormat() = 0;
  // Light network for 1, full otherwise; applied again by the next ProcessData
  // after SetFrameStatus. Returns 0.
  virtual int SelectNetType(NetType type) = 0;
  // Loads both networks and prepares the first input size. The string is not
  // used. Returns 0 even when a network could not be loaded (an error-level
  // log line says which); ProcessData then refuses frames with -1.
  virtual int Init(std::string unused) = 0;
  // Returns 0; does nothing.
  virtual int Clear() = 0;
  // Enlarges one NV12 frame 2x. On SR_OK or SR_OK_LIGHT, and on the frame on
  // which the time governor refuses its size (SR_ERR_TOO_SLOW), `out` holds a
  // new pixel buffer the caller must release; every other return leaves `out`
  // untouched. Bytes 20..55 of `out` are never touched.
  virtual int ProcessData(_tagVideoData* in, _tagVideoData* out) = 0;
  // Makes the next ProcessData re-apply the stored network selection, undoing
  // a fallback to the light network. Returns 0.
  virtual int SetFrameStatus() = 0;
  // Returns 1 with either network (kept as hosts expect it).
  virtual int GetDeviceType() = 0;

  // A new plug-in object; the caller deletes it through this interface.
  static SuperResolutionInterface* Create();
};

extern "C" {
VORLITH_API extern const unsigned char libVorlithVersionString[];
VORLITH_API extern const double libVorlithVersionNumber;
}

#endif  // VORLITH_PLUGIN_H_
