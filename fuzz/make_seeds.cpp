// Writes the wire and recording seeds of the harnesses (corpus/<harness>/)
// from the encoders, so they follow the format when it changes:
//   build-fuzz/bin/fuzz_make_seeds fuzz/corpus
// The other seeds are the shipped scene, tracker and state files.
#include <cstdio>
#include <filesystem>
#include <string>

#include "zorsock/rpd_file.h"
#include "zorsock/wire.h"

namespace wire = zorsock::wire;

namespace {

std::filesystem::path root;

// A seed: the selector byte the harness switches on, then the payload.
void Seed(const std::string& harness, const std::string& name, int selector, const wire::Bytes& m,
          size_t skip = wire::kHeaderSize) {
  std::filesystem::create_directories(root / harness);
  FILE* f = std::fopen((root / harness / name).c_str(), "wb");
  if (selector >= 0) std::fputc(selector, f);
  std::fwrite(m.data() + skip, 1, m.size() - skip, f);
  std::fclose(f);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: fuzz_make_seeds CORPUS_FOLDER\n");
    return 1;
  }
  root = argv[1];

  wire::Hello hello;
  hello.identity = "zorcalib";
  wire::Request request;
  request.seq = 7;
  request.op = wire::Op::kSetFloats;
  request.code = ZOR_GLOBAL_TRANSFORM;
  request.floats = {0, 0, 0, 1, 0, 0, 0};
  request.text = "x";
  wire::RawHeader raw;
  raw.cameras = {{1280, 1024}, {640, 480}};
  raw.description = "zord 0.1  seed";
  wire::RawFrame raw_frame;
  raw_frame.number = 3;
  raw_frame.images = {{0, 3, 2, 10.5f, 20.25f, 3, 0.8f, 0}, {1, 3, 5, 1, 2, 3, 1, 0}};
  Seed("wire_server", "header", 0, wire::EncodeFinished(), 0);
  Seed("wire_server", "hello", 1, wire::EncodeHello(hello));
  Seed("wire_server", "request", 2, wire::EncodeRequest(request));
  Seed("wire_server", "raw_header", 3, wire::EncodeRawHeader(raw));
  wire::Bytes frame = {1};  // two cameras in the upload's header
  const wire::Bytes encoded = wire::EncodeRawFrame(raw_frame);
  frame.insert(frame.end(), encoded.begin() + wire::kHeaderSize, encoded.end());
  Seed("wire_server", "raw_frame", 4, frame, 0);
  Seed("wire_server", "query", 5, wire::EncodeQuery({"zorcalib"}), 0);

  wire::Reply reply;
  reply.seq = 7;
  reply.ints = {1, 2};
  reply.text = "pass 1 of 4";
  wire::Frame f;
  f.number = 9;
  f.time_us = 18750;
  f.markers = {{4097, 9, 1, 2, 3, 1, 3}};
  f.rigids = {{2, 9, {1, 2, 3, 1, 0, 0, 0}, 0.5f, 4}};
  f.images = raw_frame.images;
  f.detectors = {{0, 9, 2, 1280, 1024, 1200, 400, 41.5f}};
  ZORCamera camera{0, {0, 2500, 3000, 1, 0, 0, 0}, 0.2f, 0};
  Seed("wire_client", "welcome", 0, wire::EncodeWelcome({wire::kVersion, 3, "zord 0.1  seed"}));
  Seed("wire_client", "refuse", 1, wire::EncodeRefuse({ZOR_ERR_HANDSHAKE, "not now"}));
  Seed("wire_client", "reply", 2, wire::EncodeReply(reply));
  Seed("wire_client", "frame", 3, wire::EncodeFrame(f));
  Seed("wire_client", "cameras", 4, wire::EncodeCameras({camera, camera}));
  Seed("wire_client", "answer", 5, wire::EncodeAnswer({"", 3020, "zord 0.1  seed"}), 0);
  Seed("wire_client", "calib_message", 6, wire::EncodeCalibMessage("pass 1 success. 0.21"));

  wire::Bytes recording = zorsock::rpd::EncodeFileHeader(raw);
  for (int i = 0; i < 3; ++i) {
    const wire::Bytes message = wire::EncodeRawFrame(raw_frame);
    const auto length = static_cast<uint32_t>(message.size() - wire::kHeaderSize);
    const auto* l = reinterpret_cast<const uint8_t*>(&length);
    recording.insert(recording.end(), l, l + 4);
    recording.insert(recording.end(), message.begin() + wire::kHeaderSize, message.end());
  }
  Seed("rpd", "three_frames.rpd", -1, recording, 0);
  return 0;
}
