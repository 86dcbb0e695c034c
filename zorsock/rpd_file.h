// Raw data recording files (.rpd, docs/rpd.md): a header naming the cameras,
// then one record per frame holding every 2D detection. A record is the raw
// frame message's payload behind its length, so recording and replaying move
// bytes between file and network without re-encoding them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "zorsock/wire.h"

namespace zorsock::rpd {

constexpr uint32_t kFileMagic = 0x4450525A;  // "ZRPD" in memory order
constexpr uint16_t kFileVersion = 1;
// Largest recording zorRPDOpen reads for sending (the server keeps it in memory).
constexpr size_t kMaxFileSize = size_t{1} << 30;

// The bytes that start a file: magic, version, then the header's payload.
wire::Bytes EncodeFileHeader(const wire::RawHeader& header);

// A checked recording: its header and where each frame's payload lies.
struct Recording {
  wire::RawHeader header;
  struct Record {
    size_t offset = 0;  // of the payload in the file's bytes
    size_t size = 0;
  };
  std::vector<Record> frames;
};

// Checks a whole file (its bytes): header, every record complete and well
// formed, at least one frame. False with a message naming what is wrong and
// where (record number and byte offset).
bool ParseRecording(const std::vector<uint8_t>& bytes, Recording* out, std::string* why);

// Reads a file of at most kMaxFileSize bytes; false with the reason.
bool ReadWholeFile(const std::string& path, std::vector<uint8_t>* bytes, std::string* why);

// A raw frame message (wire header included) around a record's payload.
wire::Bytes FrameMessage(const uint8_t* payload, size_t size);

}  // namespace zorsock::rpd
