// What the harnesses share: a parser that reads a file gets the fuzzer's
// bytes through a scratch file of this process, and a property that fails
// aborts so libFuzzer keeps the input that broke it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zorfuzz {

// Writes the bytes to this process's scratch file named `name` and returns its path.
std::string ScratchFile(const std::string& name, const uint8_t* data, size_t size);

// Aborts with `what` on stderr unless `ok`.
void Require(bool ok, const char* what);

// The wire harnesses: the first byte picks which of `count` decoders gets the
// rest of the input; `run(which, p, n)`.
template <typename Run>
void PickDecoder(const uint8_t* data, size_t size, int count, Run run) {
  if (size >= 1) run(data[0] % count, data + 1, size - 1);
}

// For message codecs: whatever decodes, encoded (a message whose payload
// starts `skip` bytes in) decodes again and encodes to the same bytes.
template <typename Decode, typename Encode>
void RequireRoundTrip(const uint8_t* p, size_t n, Decode decode, Encode encode, size_t skip) {
  const auto first = decode(p, n);
  if (!first) return;
  const std::vector<uint8_t> once = encode(*first);
  const auto second = decode(once.data() + skip, once.size() - skip);
  Require(second.has_value(), "an encoded message decodes");
  Require(encode(*second) == once, "decoding and encoding agree");
}

}  // namespace zorfuzz
