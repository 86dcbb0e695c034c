// The wire protocol shared by client and server: every message round-trips,
// and short, padded, oversized or hostile input is refused.
#include "zorsock/wire.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "zorsock/feedback_wire.h"

namespace zorsock::wire {
namespace {

// Checks an encoded message's header, then decodes its payload.
template <typename Decode>
auto RoundTrip(const Bytes& bytes, Type type, Decode decode) {
  std::string why;
  const auto header = DecodeHeader(bytes.data(), &why);
  EXPECT_TRUE(header) << why;
  EXPECT_EQ(header->length + 4, bytes.size());
  EXPECT_EQ(header->type, type);
  return decode(bytes.data() + kHeaderSize, bytes.size() - kHeaderSize);
}

TEST(Wire, HelloRoundTripAndWrongMagic) {
  Hello hello;
  hello.role = Role::kControl;
  hello.flags = ZOR_FLAG_SLAVE | ZOR_FLAG_CALIBRATE;
  hello.identity = "tester";
  Bytes bytes = EncodeHello(hello);
  auto back = RoundTrip(bytes, Type::kHello, DecodeHello);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->version, kVersion);
  EXPECT_EQ(back->role, Role::kControl);
  EXPECT_EQ(back->flags, hello.flags);
  EXPECT_EQ(back->identity, "tester");

  bytes[kHeaderSize] ^= 0xFF;  // not our magic: some other program
  EXPECT_FALSE(DecodeHello(bytes.data() + kHeaderSize, bytes.size() - kHeaderSize));
}

TEST(Wire, RequestAndReplyRoundTrip) {
  Request request;
  request.seq = 77;
  request.op = Op::kMarkerFloats;
  request.target = (3 << 12) | 5;
  request.code = ZOR_MARKER_POSITION;
  request.floats = {1.5f, -2, 3};
  request.text = "x";
  auto back = RoundTrip(EncodeRequest(request), Type::kRequest, DecodeRequest);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->seq, 77u);
  EXPECT_EQ(back->op, Op::kMarkerFloats);
  EXPECT_EQ(back->target, request.target);
  EXPECT_EQ(back->floats, request.floats);
  EXPECT_TRUE(back->ints.empty());
  EXPECT_EQ(back->text, "x");

  Reply reply;
  reply.seq = 77;
  reply.status = ZOR_INVALID_OPERATION;
  reply.ints = {1, 2};
  auto reply_back = RoundTrip(EncodeReply(reply), Type::kReply, DecodeReply);
  ASSERT_TRUE(reply_back);
  EXPECT_EQ(reply_back->status, ZOR_INVALID_OPERATION);
  EXPECT_EQ(reply_back->ints, reply.ints);
}

// Round trips cannot see two fields swapped on both sides; recordings and
// other peers would.
TEST(Wire, FieldsLieInTheDocumentedOrder) {
  const auto hex = [](const Bytes& bytes) {
    std::string out;
    for (uint8_t b : bytes) out += "0123456789abcdef"[b >> 4], out += "0123456789abcdef"[b & 15];
    return out;
  };
  EXPECT_EQ(hex(EncodeHello({1, Role::kControl, 5, "ab"})),
            "14000000" "0100" "5a4f5a31" "0100" "0100" "05000000" "020000006162");
  EXPECT_EQ(hex(EncodeRequest({7, Op::kGetInts, -1, 3, {2}, {}, ""})),
            "20000000" "0400" "07000000" "0800" "ffffffff" "03000000" "0100000002000000"
            "00000000" "00000000");
}

TEST(Wire, FrameRoundTripKeepsEveryRecord) {
  Frame frame;
  frame.number = 12;
  frame.time_us = 1234567890123;
  frame.markers = {{4096, 12, 1, 2, 3, 0.5f, 2}, {4097, 12, 4, 5, 6, 0, 0}};
  frame.rigids = {{1, 12, {1, 2, 3, 1, 0, 0, 0}, 1, 4}};
  frame.images = {{0, 12, 7, 100.5f, 200.25f, 3, 0.8f, 0}};
  frame.detectors = {{0, 12, 1, 1280, 1024, 1400, 500, 35, 0, 0}};
  auto back = RoundTrip(EncodeFrame(frame), Type::kFrame, DecodeFrame);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->number, 12);
  EXPECT_EQ(back->time_us, frame.time_us);
  ASSERT_EQ(back->markers.size(), 2u);
  EXPECT_EQ(back->markers[1].id, 4097);
  EXPECT_FLOAT_EQ(back->markers[0].z, 3);
  ASSERT_EQ(back->rigids.size(), 1u);
  EXPECT_FLOAT_EQ(back->rigids[0].pose[2], 3);
  ASSERT_EQ(back->images.size(), 1u);
  EXPECT_FLOAT_EQ(back->images[0].v, 200.25f);
  ASSERT_EQ(back->detectors.size(), 1u);
  EXPECT_EQ(back->detectors[0].width, 1280);
}

TEST(Wire, OversizedFrameIsCutToFitImagesFirst) {
  Frame frame;
  frame.markers.resize(10);
  frame.images.resize(kMaxMessage / sizeof(ZORImage) + 10);
  const Bytes bytes = EncodeFrame(frame);
  EXPECT_LE(bytes.size() - 4, kMaxMessage);
  auto back = RoundTrip(bytes, Type::kFrame, DecodeFrame);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->markers.size(), 10u);
  EXPECT_LT(back->images.size(), frame.images.size());
}

TEST(Wire, HeaderRejectsBadLengthsAndTypes) {
  auto header = [](uint32_t length, uint16_t type) {
    uint8_t b[kHeaderSize];
    std::memcpy(b, &length, 4);
    std::memcpy(b + 4, &type, 2);
    std::string why;
    return DecodeHeader(b, &why).has_value();
  };
  EXPECT_TRUE(header(2, 8));
  EXPECT_TRUE(header(kMaxMessage, 6));
  EXPECT_FALSE(header(1, 6));               // shorter than the type itself
  EXPECT_FALSE(header(kMaxMessage + 1, 6));  // oversized
  EXPECT_FALSE(header(0xFFFFFFFF, 6));
  EXPECT_FALSE(header(10, 0));
  EXPECT_FALSE(header(10, 99));
}

TEST(Wire, TruncatedOrPaddedPayloadsAreRejected) {
  Frame frame;
  frame.number = 3;
  frame.markers.resize(4);
  const Bytes bytes = EncodeFrame(frame);
  const uint8_t* p = bytes.data() + kHeaderSize;
  const size_t n = bytes.size() - kHeaderSize;
  for (size_t cut = 0; cut < n; ++cut) EXPECT_FALSE(DecodeFrame(p, cut)) << cut;
  Bytes padded(p, p + n);
  padded.push_back(0);
  EXPECT_FALSE(DecodeFrame(padded.data(), padded.size()));
  // A calibration message is cut to what zorGetString can hand out.
  const auto text = RoundTrip(EncodeCalibMessage(std::string(ZOR_STRING_MAX + 9, 'x') + "end"),
                              Type::kCalibMessage, DecodeCalibMessage);
  EXPECT_EQ(text, std::string(ZOR_STRING_MAX - 1, 'x'));
}

TEST(Wire, HostileCountsDoNotAllocateAndUnknownOpsAreRejected) {
  // A frame that claims four billion markers in a few bytes.
  Bytes payload(4 + 8 + 16, 0);
  const uint32_t huge = 0xFFFFFFFF;
  std::memcpy(payload.data() + 12, &huge, 4);
  EXPECT_FALSE(DecodeFrame(payload.data(), payload.size()));

  Bytes bytes = EncodeReply(Reply{});
  std::memcpy(bytes.data() + kHeaderSize + 8, &huge, 4);  // the ints count
  EXPECT_FALSE(DecodeReply(bytes.data() + kHeaderSize, bytes.size() - kHeaderSize));

  bytes = EncodeRequest(Request{});
  const uint16_t bad = 999;
  std::memcpy(bytes.data() + kHeaderSize + 4, &bad, 2);
  EXPECT_FALSE(DecodeRequest(bytes.data() + kHeaderSize, bytes.size() - kHeaderSize));
}

TEST(Wire, DiscoveryDatagrams) {
  const Bytes query = EncodeQuery({"configtoolbar"});
  auto q = DecodeQuery(query.data(), query.size());
  ASSERT_TRUE(q);
  EXPECT_EQ(q->identity, "configtoolbar");
  EXPECT_FALSE(DecodeAnswer(query.data(), query.size()));  // a query is no answer

  DiscoveryAnswer answer;
  answer.host = "10.0.0.5";
  answer.port = 9000;
  answer.description = "zord 0.1  lab";
  const Bytes a = EncodeAnswer(answer);
  auto back = DecodeAnswer(a.data(), a.size());
  ASSERT_TRUE(back);
  EXPECT_EQ(back->host, "10.0.0.5");
  EXPECT_EQ(back->port, 9000);
  EXPECT_EQ(back->description, "zord 0.1  lab");
  EXPECT_FALSE(DecodeAnswer(a.data(), a.size() - 1));
}

TEST(Wire, CameraModelsKeepEveryBitAndRefuseMalformedReplies) {
  ZORCameraModel m{3, 1, 1280, 1024, 1150.123456789, 1151.5, 640.25, 512.75, -0.04, 0.001, 1e-5, -2e-5,
                   {1, 0, 0, 0, 0.6, -0.8, 0, 0.8, 0.6}, {-12.5, 1800.0000001, 3520.75}};
  std::vector<int32_t> ints = EncodeModels({m, m});
  std::vector<ZORCameraModel> out;
  ASSERT_TRUE(DecodeModels(ints, &out));
  ASSERT_EQ(out.size(), 2u);
  EXPECT_EQ(std::memcmp(&out[1], &m, sizeof m), 0);
  ints.pop_back();
  EXPECT_FALSE(DecodeModels(ints, &out));  // truncated
  ints = EncodeModels({m});
  ints[0] = -1;
  EXPECT_FALSE(DecodeModels(ints, &out));  // hostile count
  m.translation[2] = std::nan("");
  EXPECT_FALSE(DecodeModels(EncodeModels({m}), &out));
}

}  // namespace
}  // namespace zorsock::wire
