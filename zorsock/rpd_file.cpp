#include "zorsock/rpd_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace zorsock::rpd {
namespace {

template <typename T>
T Load(const uint8_t* p) {
  T value;
  std::memcpy(&value, p, sizeof value);
  return value;
}

std::string At(size_t record, size_t offset) {
  return "frame record " + std::to_string(record + 1) + " at byte " + std::to_string(offset);
}

}  // namespace

wire::Bytes EncodeFileHeader(const wire::RawHeader& header) {
  const wire::Bytes message = wire::EncodeRawHeader(header);
  const size_t payload = message.size() - wire::kHeaderSize;
  wire::Bytes out(6 + payload);
  std::memcpy(out.data(), &kFileMagic, 4);
  std::memcpy(out.data() + 4, &kFileVersion, 2);
  std::memcpy(out.data() + 6, message.data() + wire::kHeaderSize, payload);
  return out;
}

bool ParseRecording(const std::vector<uint8_t>& bytes, Recording* out, std::string* why) {
  const uint8_t* p = bytes.data();
  const size_t n = bytes.size();
  if (n < 6 || Load<uint32_t>(p) != kFileMagic) {
    *why = "not a raw data recording (no ZRPD signature)";
    return false;
  }
  if (const auto version = Load<uint16_t>(p + 4); version != kFileVersion) {
    *why = "recording format version " + std::to_string(version) + " is not supported (expected " +
           std::to_string(kFileVersion) + ")";
    return false;
  }
  // The header's size: camera count, 4 bytes a camera, a text.
  size_t at = 6;
  if (n < at + 2) {
    *why = "the header is truncated";
    return false;
  }
  const size_t cameras = Load<uint16_t>(p + at);
  const size_t text_at = at + 2 + 4 * cameras;
  if (n < text_at + 4 || n - text_at - 4 < Load<uint32_t>(p + text_at)) {
    *why = "the header is truncated";
    return false;
  }
  const size_t header_end = text_at + 4 + Load<uint32_t>(p + text_at);
  const auto header = wire::DecodeRawHeader(p + at, header_end - at);
  if (!header) {
    *why = "the header is malformed (1 to 256 cameras of non-zero size, a short description)";
    return false;
  }
  Recording recording;
  recording.header = *header;
  at = header_end;
  while (at < n) {
    const size_t index = recording.frames.size();
    if (n - at < 4) {
      *why = At(index, at) + " is truncated (the file ends inside its length)";
      return false;
    }
    const size_t size = Load<uint32_t>(p + at);
    if (size + 2 > wire::kMaxMessage) {
      *why = At(index, at) + " claims " + std::to_string(size) + " bytes, more than a frame can hold";
      return false;
    }
    if (n - at - 4 < size) {
      *why = At(index, at) + " is truncated (needs " + std::to_string(size) + " bytes, " +
             std::to_string(n - at - 4) + " left)";
      return false;
    }
    if (!wire::DecodeRawFrame(p + at + 4, size, recording.header.cameras.size())) {
      *why = At(index, at) +
             " is malformed (bad detection count, a camera outside the header's, a negative LED "
             "or a non-finite value)";
      return false;
    }
    recording.frames.push_back({at + 4, size});
    at += 4 + size;
  }
  if (recording.frames.empty()) {
    *why = "the recording holds no frames";
    return false;
  }
  *out = std::move(recording);
  return true;
}

bool ReadWholeFile(const std::string& path, std::vector<uint8_t>* bytes, std::string* why) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
  if (!file) {
    *why = "cannot open " + path + ": " + std::strerror(errno);
    return false;
  }
  bytes->clear();
  uint8_t chunk[1 << 16];
  for (;;) {
    const size_t got = std::fread(chunk, 1, sizeof chunk, file.get());
    bytes->insert(bytes->end(), chunk, chunk + got);
    if (bytes->size() > kMaxFileSize) {
      *why = path + " is larger than " + std::to_string(kMaxFileSize >> 20) + " MiB";
      return false;
    }
    if (got < sizeof chunk) break;
  }
  if (std::ferror(file.get())) {
    *why = "cannot read " + path + ": " + std::strerror(errno);
    return false;
  }
  return true;
}

wire::Bytes FrameMessage(const uint8_t* payload, size_t size) {
  wire::Bytes out(wire::kHeaderSize + size);
  const auto length = static_cast<uint32_t>(size + 2);
  const auto type = static_cast<uint16_t>(wire::Type::kRawFrame);
  std::memcpy(out.data(), &length, 4);
  std::memcpy(out.data() + 4, &type, 2);
  if (size > 0) std::memcpy(out.data() + wire::kHeaderSize, payload, size);
  return out;
}

}  // namespace zorsock::rpd
