// The messages zord decodes from its peers: the six-byte header, the
// handshake, requests, a replay upload's raw header and frames, and the
// discovery query. The first byte picks the decoder.
#include "fuzz/fuzz_input.h"
#include "zorsock/wire.h"

namespace wire = zorsock::wire;
using zorfuzz::Require;
using zorfuzz::RequireRoundTrip;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zorfuzz::PickDecoder(data, size, 6, [](int which, const uint8_t* p, size_t n) {
    constexpr size_t kHeader = wire::kHeaderSize;
    switch (which) {
      case 0:
        if (n >= kHeader) {
          const auto header = wire::DecodeHeader(p, nullptr);
          if (header) Require(header->length >= 2 && header->length <= wire::kMaxMessage, "length bound");
        }
        break;
      case 1: RequireRoundTrip(p, n, wire::DecodeHello, wire::EncodeHello, kHeader); break;
      case 2: RequireRoundTrip(p, n, wire::DecodeRequest, wire::EncodeRequest, kHeader); break;
      case 3: RequireRoundTrip(p, n, wire::DecodeRawHeader, wire::EncodeRawHeader, kHeader); break;
      case 4:
        if (n >= 1) {
          const size_t cameras = 1 + p[0];  // the upload's header announced these
          auto decode = [cameras](const uint8_t* q, size_t m) {
            return wire::DecodeRawFrame(q, m, cameras);
          };
          RequireRoundTrip(p + 1, n - 1, decode, wire::EncodeRawFrame, kHeader);
        }
        break;
      case 5: RequireRoundTrip(p, n, wire::DecodeQuery, wire::EncodeQuery, 0); break;
    }
  });
  return 0;
}
