// Raw data recordings as files: a good one reads back, and damaged or hostile
// ones are refused with a message saying what and where, never a crash.
#include "zorsock/rpd_file.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>

#include "testing/zord_process.h"
#include "zorsock/zorsock.h"

namespace zorsock::rpd {
namespace {

wire::RawHeader TwoCameras() {
  return {{{1280, 1024}, {640, 480}}, "unit"};
}

wire::Bytes Payload(const wire::RawFrame& frame) {
  const wire::Bytes message = wire::EncodeRawFrame(frame);
  return wire::Bytes(message.begin() + wire::kHeaderSize, message.end());
}

void AppendRecord(std::vector<uint8_t>& file, const wire::Bytes& payload) {
  const auto size = static_cast<uint32_t>(payload.size());
  const auto* p = reinterpret_cast<const uint8_t*>(&size);
  file.insert(file.end(), p, p + 4);
  file.insert(file.end(), payload.begin(), payload.end());
}

std::vector<uint8_t> GoodFile(int frames) {
  std::vector<uint8_t> file = EncodeFileHeader(TwoCameras());
  for (int f = 1; f <= frames; ++f) {
    wire::RawFrame frame{f, f * 1000, f % 2 ? wire::kRawFrameCapturing : 0u,
                         {{0, f, 3, 10.5f, 20.25f, 2, 0.5f, 0}, {1, f, 4, 100, 200, 2, 0.5f, 0}}};
    AppendRecord(file, Payload(frame));
  }
  return file;
}

std::string Why(const std::vector<uint8_t>& file) {
  Recording recording;
  std::string why;
  EXPECT_FALSE(ParseRecording(file, &recording, &why));
  return why;
}

TEST(RpdFile, AGoodRecordingReadsBack) {
  const std::vector<uint8_t> file = GoodFile(3);
  Recording recording;
  std::string why;
  ASSERT_TRUE(ParseRecording(file, &recording, &why)) << why;
  ASSERT_EQ(recording.header.cameras.size(), 2u);
  EXPECT_EQ(recording.header.cameras[1].width, 640);
  EXPECT_EQ(recording.header.description, "unit");
  ASSERT_EQ(recording.frames.size(), 3u);
  const auto frame = wire::DecodeRawFrame(file.data() + recording.frames[2].offset,
                                          recording.frames[2].size, 2);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->number, 3);
  EXPECT_EQ(frame->flags, wire::kRawFrameCapturing);
  ASSERT_EQ(frame->images.size(), 2u);
  EXPECT_EQ(frame->images[0].u, 10.5f);
  // A record becomes a frame message without re-encoding.
  const wire::Bytes message = FrameMessage(file.data() + recording.frames[2].offset,
                                           recording.frames[2].size);
  EXPECT_EQ(message, wire::EncodeRawFrame(*frame));
}

TEST(RpdFile, DamagedFilesAreRefusedWithTheReason) {
  EXPECT_NE(Why({}).find("not a raw data recording"), std::string::npos);
  std::vector<uint8_t> file = GoodFile(2);
  std::vector<uint8_t> bad = file;
  bad[4] = 9;  // version
  EXPECT_NE(Why(bad).find("version 9"), std::string::npos);
  // Cut anywhere: in the header, in a record's length, in a record.
  EXPECT_NE(Why(std::vector<uint8_t>(file.begin(), file.begin() + 10)).find("header"), std::string::npos);
  const size_t header_size = EncodeFileHeader(TwoCameras()).size();
  EXPECT_NE(Why(std::vector<uint8_t>(file.begin(), file.begin() + header_size + 2)).find("record 1"),
            std::string::npos);
  const std::string cut = Why(std::vector<uint8_t>(file.begin(), file.end() - 5));
  EXPECT_NE(cut.find("frame record 2"), std::string::npos) << cut;
  EXPECT_NE(cut.find("truncated"), std::string::npos) << cut;
  // Only a header: nothing to replay.
  EXPECT_NE(Why(EncodeFileHeader(TwoCameras())).find("no frames"), std::string::npos);
  // No cameras.
  EXPECT_NE(Why(EncodeFileHeader({{}, "x"})).find("header"), std::string::npos);
}

TEST(RpdFile, HostileRecordsAreRefused) {
  const std::vector<uint8_t> start = EncodeFileHeader(TwoCameras());
  auto with_frame = [&](const wire::RawFrame& frame) {
    std::vector<uint8_t> file = start;
    AppendRecord(file, Payload(frame));
    return Why(file);
  };
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_NE(with_frame({1, 0, 0, {{2, 1, 0, 1, 1, 1, 1, 0}}}).find("malformed"), std::string::npos);
  EXPECT_NE(with_frame({1, 0, 0, {{-1, 1, 0, 1, 1, 1, 1, 0}}}).find("malformed"), std::string::npos);
  EXPECT_NE(with_frame({1, 0, 0, {{0, 1, -4, 1, 1, 1, 1, 0}}}).find("malformed"), std::string::npos);
  EXPECT_NE(with_frame({1, 0, 0, {{0, 1, 0, nan, 1, 1, 1, 0}}}).find("malformed"), std::string::npos);

  // A length that claims gigabytes, and a count that does not match the size.
  std::vector<uint8_t> huge = start;
  const uint32_t claim = 0xFFFFFFF0u;
  huge.insert(huge.end(), reinterpret_cast<const uint8_t*>(&claim),
              reinterpret_cast<const uint8_t*>(&claim) + 4);
  huge.resize(huge.size() + 64);
  EXPECT_NE(Why(huge).find("more than a frame can hold"), std::string::npos);
  wire::Bytes payload = Payload({1, 0, 0, {{0, 1, 0, 1, 1, 1, 1, 0}}});
  const uint32_t count = 1000000;
  std::memcpy(payload.data() + 16, &count, 4);
  std::vector<uint8_t> lying = start;
  AppendRecord(lying, payload);
  EXPECT_NE(Why(lying).find("malformed"), std::string::npos);
}

TEST(RpdFile, SendingABadFileFailsBeforeConnecting) {
  zortest::TempDir dir;
  std::ofstream(dir.File("bad.rpd"), std::ios::binary) << "ZRPD but not really";
  // No server listens there: the file is refused first.
  EXPECT_EQ(zorRPDOpen("127.0.0.1:1", dir.File("bad.rpd").c_str(), 2), ZOR_RPD_FILE_ERROR);
  EXPECT_NE(std::string(zorRPDError()).find("bad.rpd"), std::string::npos) << zorRPDError();
  EXPECT_EQ(zorRPDOpen("127.0.0.1:1", dir.File("missing.rpd").c_str(), 2), ZOR_RPD_FILE_ERROR);
  EXPECT_EQ(zorRPDOpen("127.0.0.1:1", dir.File("x.rpd").c_str(), 0), ZOR_RPD_INVALID_MODE);
  EXPECT_EQ(zorRPDSend(), ZOR_RPD_WRONG_STATE);
  EXPECT_EQ(zorRPDRecv(), 0);
  EXPECT_EQ(zorRPDClose(), 0);
}

}  // namespace
}  // namespace zorsock::rpd
