// Raw data recordings (.rpd) as the client and zord read them from disk.
// Property: a recording that parses, written out again from its header and
// frame records, parses to the same frames.
#include <cstring>

#include "fuzz/fuzz_input.h"
#include "zorsock/rpd_file.h"

using zorfuzz::Require;
namespace rpd = zorsock::rpd;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<uint8_t> bytes(data, data + size);
  rpd::Recording recording;
  std::string why;
  if (!rpd::ParseRecording(bytes, &recording, &why)) {
    Require(!why.empty(), "a refusal says why");
    return 0;
  }
  std::vector<uint8_t> again = rpd::EncodeFileHeader(recording.header);
  for (const auto& frame : recording.frames) {
    const auto length = static_cast<uint32_t>(frame.size);
    const uint8_t* l = reinterpret_cast<const uint8_t*>(&length);
    again.insert(again.end(), l, l + 4);
    again.insert(again.end(), data + frame.offset, data + frame.offset + frame.size);
  }
  rpd::Recording reread;
  Require(rpd::ParseRecording(again, &reread, &why), "a rewritten recording parses");
  Require(reread.frames.size() == recording.frames.size(), "same frame count");
  for (size_t i = 0; i < reread.frames.size(); ++i) {
    Require(reread.frames[i].size == recording.frames[i].size &&
                std::memcmp(again.data() + reread.frames[i].offset, data + recording.frames[i].offset,
                            recording.frames[i].size) == 0,
            "same frame records");
  }
  return 0;
}
