// The wire protocol between zorsock and zord (docs/protocol.md describes it
// byte by byte). Every message is: u32 length of what follows, u16 type,
// payload; all integers and floats little-endian. Decoding never trusts the
// peer: every read is bounds-checked and a malformed message is an error, not
// a crash.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "zorsock/zorsock.h"

namespace zorsock::wire {

static_assert(std::endian::native == std::endian::little,
              "records are copied to and from the wire as they lie in memory");

constexpr uint32_t kMagic = 0x315A4F5A;     // "ZOZ1" in memory order
constexpr uint16_t kVersion = 1;
constexpr size_t kHeaderSize = 6;           // u32 length, u16 type
constexpr uint32_t kMaxMessage = 8u << 20;  // largest accepted length field

enum class Type : uint16_t {
  kHello = 1,     // client -> server, first message
  kWelcome = 2,   // server -> client: handshake accepted
  kRefuse = 3,    // server -> client: handshake refused, then closed
  kRequest = 4,   // client -> server
  kReply = 5,     // server -> client, same sequence number as the request
  kFrame = 6,     // server -> client, pushed while streaming
  kCameras = 7,   // server -> client, pushed on connect, on change, periodically
  kFinished = 8,  // server -> client: the server ends the session cleanly
  kRawHeader = 9,  // raw data: the cameras of a recording (server -> client, or client -> server)
  kRawFrame = 10,  // raw data: one frame's 2D detections
  kRawEnd = 11,    // raw data, client -> server: the recording is complete
  kCalibMessage = 12,  // server -> client: one calibration progress message, pushed
};

// Who is connecting: a zor* client session, or a one-shot operator control
// connection (zorControl) that gets no frames and opens no engine session.
// A raw data connection (zorRPDOpen) gives its mode in Hello::flags.
enum class Role : uint16_t { kClient = 0, kControl = 1, kRaw = 2 };
constexpr uint32_t kRawRecord = 1;  // the server streams its raw 2D data
constexpr uint32_t kRawReplay = 2;  // the client sends a recording for the server to replay

enum class Op : uint16_t {
  kTracker = 1,        // target = tracker id, code = op
  kTrackerInt = 2,     // target = tracker id, code = op, ints[0] = value
  kTrackerFloat = 3,   // target = tracker id, code = param, floats[0] = value
  kMarkerInts = 4,     // target = marker id, code, ints
  kMarkerFloats = 5,   // target = marker id, code, floats
  kSetInteger = 6,     // code, ints[0] = value
  kSetFloats = 7,      // code, floats
  kGetInts = 8,        // code -> reply ints
  kGetFloats = 9,      // code -> reply floats
  kGetString = 10,     // code -> reply text
  kControl = 11,       // text = JSON request -> reply text = JSON reply
};

struct Hello {
  uint16_t version = kVersion;
  Role role = Role::kClient;
  uint32_t flags = 0;  // zorInit flags
  std::string identity;
};

struct Welcome {
  uint16_t version = kVersion;
  int32_t session = 0;
  std::string description;  // "zord 0.1  <name>"
};

struct Refuse {
  int32_t reason = ZOR_ERR_HANDSHAKE;
  std::string message;
};

struct Request {
  uint32_t seq = 0;
  Op op = Op::kTracker;
  int32_t target = 0;
  int32_t code = 0;
  std::vector<int32_t> ints;
  std::vector<float> floats;
  std::string text;
};

struct Reply {
  uint32_t seq = 0;
  int32_t status = ZOR_NO_ERROR;
  std::vector<int32_t> ints;
  std::vector<float> floats;
  std::string text;
};

struct Frame {
  int32_t number = 0;
  int64_t time_us = 0;
  std::vector<ZORMarker> markers;
  std::vector<ZORRigid> rigids;
  std::vector<ZORImage> images;
  std::vector<ZORDetector> detectors;

  bool empty() const {
    return markers.empty() && rigids.empty() && images.empty() && detectors.empty();
  }
};

// Raw data (docs/rpd.md): what the cameras of a recording are, then one
// message per frame with every 2D detection of every camera.
constexpr size_t kMaxRawCameras = 256;
constexpr size_t kMaxRawImages = 250000;  // per frame (fits one message)
constexpr size_t kMaxRawDescription = 1024;
constexpr uint32_t kRawFrameCapturing = 1;  // RawFrame::flags: the wand was being captured

struct RawCamera {
  uint16_t width = 0, height = 0;
};

struct RawHeader {
  std::vector<RawCamera> cameras;  // by camera id
  std::string description;         // the recording server's
};

struct RawFrame {
  int32_t number = 0;
  int64_t time_us = 0;
  uint32_t flags = 0;              // kRawFrameCapturing
  std::vector<ZORImage> images;    // camera ids below the header's camera count
};

using Bytes = std::vector<uint8_t>;

// A message's header, once its six bytes have arrived.
struct Header {
  uint32_t length = 0;  // bytes after the length field: type + payload
  Type type = Type::kHello;
  size_t payload_size() const { return length - 2; }
};

// Checks the header: a length outside [2, kMaxMessage] or an unknown type is
// a broken or hostile peer.
std::optional<Header> DecodeHeader(const uint8_t* six_bytes, std::string* why);

// Whole messages, header included, ready to send.
Bytes EncodeHello(const Hello& m);
Bytes EncodeWelcome(const Welcome& m);
Bytes EncodeRefuse(const Refuse& m);
Bytes EncodeRequest(const Request& m);
Bytes EncodeReply(const Reply& m);
// Kinds beyond what fits in one message are cut (images first).
Bytes EncodeFrame(const Frame& m);
Bytes EncodeCameras(const std::vector<ZORCamera>& cameras);
Bytes EncodeFinished();
Bytes EncodeCalibMessage(std::string_view text);

Bytes EncodeRawHeader(const RawHeader& m);
Bytes EncodeRawFrame(const RawFrame& m);
Bytes EncodeRawEnd();

// Payload decoders (the header already read): nullopt when the payload is
// short, too long, or inconsistent.
std::optional<Hello> DecodeHello(const uint8_t* p, size_t n);
std::optional<Welcome> DecodeWelcome(const uint8_t* p, size_t n);
std::optional<Refuse> DecodeRefuse(const uint8_t* p, size_t n);
std::optional<Request> DecodeRequest(const uint8_t* p, size_t n);
std::optional<Reply> DecodeReply(const uint8_t* p, size_t n);
std::optional<Frame> DecodeFrame(const uint8_t* p, size_t n);
std::optional<std::vector<ZORCamera>> DecodeCameras(const uint8_t* p, size_t n);
std::optional<std::string> DecodeCalibMessage(const uint8_t* p, size_t n);
// Raw data decoders also check the values: 1..kMaxRawCameras cameras of
// non-zero size; at most kMaxRawImages finite detections a frame, of cameras
// below `cameras` and LEDs >= 0.
std::optional<RawHeader> DecodeRawHeader(const uint8_t* p, size_t n);
std::optional<RawFrame> DecodeRawFrame(const uint8_t* p, size_t n, size_t cameras);

// A control connection's Hello::identity: "zorControl", then " <token>" when
// the operator has one (the server asks for it from peers off this machine).
std::string ControlIdentity(const std::string& token);
std::string ControlToken(const std::string& identity);

// ---- Discovery datagrams (UDP) ----

constexpr uint32_t kQueryMagic = 0x515A4F5A;   // "ZOZQ"
constexpr uint32_t kAnswerMagic = 0x415A4F5A;  // "ZOZA"
constexpr size_t kMaxDatagram = 1400;

struct DiscoveryQuery {
  std::string identity;  // who is asking, for the server's log
};

struct DiscoveryAnswer {
  std::string host;  // the server's address; empty: the answer's sender address
  uint16_t port = ZOR_DEFAULT_PORT;  // its TCP port
  std::string description;           // "zord 0.1  <name>"
};

Bytes EncodeQuery(const DiscoveryQuery& m);
Bytes EncodeAnswer(const DiscoveryAnswer& m);
std::optional<DiscoveryQuery> DecodeQuery(const uint8_t* p, size_t n);
std::optional<DiscoveryAnswer> DecodeAnswer(const uint8_t* p, size_t n);

// How many values a code carries, for the calls whose C signature does not
// say (zorSetFloatv, zorGetFloatv, zorGetIntegerv).
int FloatCount(int code);
int IntCount(int code);

}  // namespace zorsock::wire
