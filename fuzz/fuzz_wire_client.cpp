// The messages the client library decodes from a server: welcome, refusal,
// replies, frames, cameras, calibration messages and discovery answers. The
// first byte picks the decoder.
#include "fuzz/fuzz_input.h"
#include "zorsock/wire.h"

namespace wire = zorsock::wire;
using zorfuzz::RequireRoundTrip;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zorfuzz::PickDecoder(data, size, 7, [](int which, const uint8_t* p, size_t n) {
    constexpr size_t kHeader = wire::kHeaderSize;
    switch (which) {
      case 0: RequireRoundTrip(p, n, wire::DecodeWelcome, wire::EncodeWelcome, kHeader); break;
      case 1: RequireRoundTrip(p, n, wire::DecodeRefuse, wire::EncodeRefuse, kHeader); break;
      case 2: RequireRoundTrip(p, n, wire::DecodeReply, wire::EncodeReply, kHeader); break;
      case 3: RequireRoundTrip(p, n, wire::DecodeFrame, wire::EncodeFrame, kHeader); break;
      case 4: RequireRoundTrip(p, n, wire::DecodeCameras, wire::EncodeCameras, kHeader); break;
      case 5: RequireRoundTrip(p, n, wire::DecodeAnswer, wire::EncodeAnswer, 0); break;
      case 6: RequireRoundTrip(p, n, wire::DecodeCalibMessage, wire::EncodeCalibMessage, kHeader); break;
    }
  });
  return 0;
}
