// The messages the client library decodes from a server: welcome, refusal,
// replies, frames, cameras and discovery answers. The first byte picks the
// decoder.
#include "fuzz/fuzz_input.h"
#include "zorsock/wire.h"

namespace wire = zorsock::wire;
using zorfuzz::RequireRoundTrip;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const uint8_t* p = data + 1;
  const size_t n = size - 1;
  constexpr size_t kHeader = wire::kHeaderSize;
  switch (data[0] % 6) {
    case 0: RequireRoundTrip(p, n, wire::DecodeWelcome, wire::EncodeWelcome, kHeader); break;
    case 1: RequireRoundTrip(p, n, wire::DecodeRefuse, wire::EncodeRefuse, kHeader); break;
    case 2: RequireRoundTrip(p, n, wire::DecodeReply, wire::EncodeReply, kHeader); break;
    case 3: RequireRoundTrip(p, n, wire::DecodeFrame, wire::EncodeFrame, kHeader); break;
    case 4: RequireRoundTrip(p, n, wire::DecodeCameras, wire::EncodeCameras, kHeader); break;
    case 5: RequireRoundTrip(p, n, wire::DecodeAnswer, wire::EncodeAnswer, 0); break;
  }
  return 0;
}
