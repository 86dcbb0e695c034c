// Peers that are not well-behaved clients, on both sides: hostile or broken
// clients must not hurt the server, and servers that refuse, stay silent or
// talk nonsense must not hang the library.
#include <gtest/gtest.h>

#include <unistd.h>

#include <asio.hpp>
#include <atomic>
#include <cstring>
#include <fstream>
#include <thread>

#include "zord/server/fake_server_test_support.h"
#include "zorsock/wire.h"

namespace zord {
namespace {

namespace wire = zorsock::wire;
using asio::ip::tcp;
using zortest::WaitFor;

class PeersTest : public ServerFixture {
 protected:
  void SetUp() override {
    options_.frequency = 480;
    options_.limits.handshake_timeout = std::chrono::milliseconds(500);
    // Half a second of frames: a client that stops reading starts losing frames
    // soon, while a live client stalled by a loaded machine does not.
    options_.limits.max_queued_frames = 240;
    StartServer();
  }

  tcp::socket Raw() {
    tcp::socket s(io_);
    s.connect({asio::ip::make_address("127.0.0.1"), static_cast<uint16_t>(server_->port())});
    return s;
  }

  // A well-behaved client still gets streamed frames.
  void ExpectServerStillServes() {
    ASSERT_GE(zorInit(Address().c_str(), 0), 0);
    ASSERT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);
    zortest::FrameFetcher f;
    EXPECT_TRUE(WaitFor([&] { return f.Fetch() == 1 && !f.markers.empty(); }));
    zorDone();
  }

  // Whether the server closed this connection within a few seconds.
  static bool ClosedByServer(tcp::socket& s) {
    s.non_blocking(true);
    return WaitFor([&] {
      uint8_t b[4096];
      std::error_code ec;
      s.read_some(asio::buffer(b), ec);
      return ec && ec != asio::error::would_block;
    }, 5);
  }

  asio::io_context io_;
};

TEST_F(PeersTest, GarbageOversizedOrCutMessagesAreDisconnected) {
  auto garbage = Raw();
  asio::write(garbage, asio::buffer(std::string("GET / HTTP/1.1\r\nHost: zord\r\n\r\n")));
  EXPECT_TRUE(ClosedByServer(garbage));

  // A 4 GB length: disconnected without allocating it.
  auto oversized = Raw();
  uint8_t header[6];
  const uint32_t length = 0xFFFFFFF0;
  const uint16_t type = static_cast<uint16_t>(wire::Type::kHello);
  std::memcpy(header, &length, 4);
  std::memcpy(header + 4, &type, 2);
  asio::write(oversized, asio::buffer(header));
  EXPECT_TRUE(ClosedByServer(oversized));

  {
    auto half = Raw();
    const wire::Bytes hello = wire::EncodeHello({});
    asio::write(half, asio::buffer(hello.data(), hello.size() / 2));
  }  // closed mid-message
  ExpectServerStillServes();
}

size_t ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  size_t pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

// Each peer that sent a header declaring 8 MiB used to cost 8 MiB at once,
// with no bound on peers and no end to the wait for the rest.
TEST_F(PeersTest, DeclaredLengthsCostNothingStalledPeersTimeOutAndPeersAreCapped) {
  server_.reset();
  options_.max_sessions = 32;
  options_.limits.message_timeout = std::chrono::milliseconds(3000);
  StartServer();
  const size_t before = ResidentBytes();
  std::vector<tcp::socket> stalled;
  for (int i = 0; i < 32; ++i) {
    stalled.push_back(Raw());
    wire::Bytes start = wire::EncodeHello({});
    const uint32_t length = wire::kMaxMessage;
    const uint16_t type = static_cast<uint16_t>(wire::Type::kRequest);
    start.resize(start.size() + 6 + 100);
    std::memcpy(start.data() + start.size() - 106, &length, 4);
    std::memcpy(start.data() + start.size() - 102, &type, 2);
    asio::write(stalled.back(), asio::buffer(start));
  }
  ASSERT_TRUE(WaitFor([&] { return server_->stats().sessions == 32; }));
  auto extra = Raw();
  EXPECT_TRUE(ClosedByServer(extra));
  EXPECT_EQ(server_->stats().sessions, 32);  // the others still wait for their bytes
  EXPECT_LT(ResidentBytes() - before, 32u << 20);  // was 32 x 8 MiB
  for (auto& s : stalled) EXPECT_TRUE(ClosedByServer(s));
  ExpectServerStillServes();
}

TEST_F(PeersTest, SilentPeerIsDroppedAfterTheHandshakeTimeOut) {
  auto s = Raw();
  EXPECT_TRUE(ClosedByServer(s));
  EXPECT_TRUE(WaitFor([&] { return server_->stats().sessions == 0; }));
}

TEST_F(PeersTest, RequestBeforeHandshakeAndMalformedRequestAreDisconnected) {
  auto s = Raw();
  asio::write(s, asio::buffer(wire::EncodeRequest({})));
  EXPECT_TRUE(ClosedByServer(s));

  auto t = Raw();
  asio::write(t, asio::buffer(wire::EncodeHello({})));
  wire::Bytes request = wire::EncodeRequest({});
  request.resize(request.size() - 2);  // the text length cut short...
  const uint32_t length = static_cast<uint32_t>(request.size() - 4);
  std::memcpy(request.data(), &length, 4);  // ...in a well-framed message
  asio::write(t, asio::buffer(request));
  EXPECT_TRUE(ClosedByServer(t));
  ExpectServerStillServes();
}

TEST_F(PeersTest, WrongVersionIsRefusedWithAReason) {
  auto s = Raw();
  wire::Hello hello;
  hello.version = wire::kVersion + 1;
  asio::write(s, asio::buffer(wire::EncodeHello(hello)));
  uint8_t header[wire::kHeaderSize];
  asio::read(s, asio::buffer(header));
  const auto h = wire::DecodeHeader(header, nullptr);
  ASSERT_TRUE(h);
  ASSERT_EQ(h->type, wire::Type::kRefuse);
  wire::Bytes payload(h->payload_size());
  asio::read(s, asio::buffer(payload));
  const auto refuse = wire::DecodeRefuse(payload.data(), payload.size());
  ASSERT_TRUE(refuse);
  EXPECT_NE(refuse->message.find("version"), std::string::npos);
  EXPECT_TRUE(ClosedByServer(s));
}

TEST_F(PeersTest, AClientThatStopsReadingDoesNotHoldUpOthers) {
  engine_.markers_per_frame = 1000;  // 28 kB frames: socket buffers fill within a second
  // A raw client that asks for frames and then never reads them.
  auto s = Raw();
  asio::write(s, asio::buffer(wire::EncodeHello({})));
  wire::Request on;
  on.seq = 1;
  on.op = wire::Op::kSetInteger;
  on.code = ZOR_STREAMING;
  on.ints = {ZOR_ON};
  asio::write(s, asio::buffer(wire::EncodeRequest(on)));

  ASSERT_GE(zorInit(Address().c_str(), 0), 0);
  ASSERT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);
  zortest::FrameFetcher f;
  int delivered = 0;
  ASSERT_TRUE(zortest::FetchInOrder(
      f, [&] { return delivered > 1000 && server_->stats().session_frames_dropped > 0; },
      [&] { ++delivered; }, 30));
  int dropped = -1;
  zorGetIntegerv(ZOR_FRAMES_DROPPED, &dropped);
  EXPECT_EQ(dropped, 0);
}

// ---- Servers that are not zord ----

// A server that takes the next client's hello and welcomes it, whatever it says.
tcp::socket AcceptAndWelcome(tcp::acceptor& acceptor) {
  tcp::socket s = acceptor.accept();
  uint8_t header[wire::kHeaderSize];
  asio::read(s, asio::buffer(header));
  wire::Bytes payload(wire::DecodeHeader(header, nullptr)->payload_size());
  asio::read(s, asio::buffer(payload));
  asio::write(s, asio::buffer(wire::EncodeWelcome({})));
  return s;
}

TEST(LibraryAgainstBadServers, RefusedConnection) {
  const int port = zortest::FreePort();
  const std::string address = "127.0.0.1:" + std::to_string(port);
  EXPECT_EQ(zorInit(address.c_str(), 0), ZOR_ERR_CONNECTION_REFUSED);
  EXPECT_EQ(zorGetStatus(), 0);
  EXPECT_EQ(zorGetError(), ZOR_NO_ERROR);  // the result says it all
  char text[ZOR_STRING_MAX];
  EXPECT_EQ(zorGetString(0x28, text), 0);  // asking for an unknown text is no new error
  EXPECT_EQ(zorGetError(), ZOR_NO_ERROR);
  EXPECT_GT(zorGetString(ZOR_INVALID_OPERATION, text), 0);
  EXPECT_STREQ(text, "Invalid Operation");
  EXPECT_GT(zorGetString(ZOR_VERSION, text), 0);
  EXPECT_EQ(zorInit("127.0.0.1:notaport", 0), ZOR_ERR_RESOLVE);
}

TEST(LibraryAgainstBadServers, ListenerThatNeverAnswersTimesOut) {
  asio::io_context io;
  tcp::acceptor acceptor(io, {asio::ip::make_address("127.0.0.1"), 0});
  tcp::socket held(io);
  std::thread accept([&] {
    std::error_code ec;
    acceptor.accept(held, ec);
  });
  const std::string address = "127.0.0.1:" + std::to_string(acceptor.local_endpoint().port());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(zorInit(address.c_str(), 0), ZOR_ERR_TIMED_OUT);
  EXPECT_LT(std::chrono::steady_clock::now() - start,
            std::chrono::milliseconds(ZOR_CONNECT_TIMEOUT_MS + 3000));
  accept.join();
}

TEST(LibraryAgainstBadServers, ServerThatTalksNonsense) {
  asio::io_context io;
  tcp::acceptor acceptor(io, {asio::ip::make_address("127.0.0.1"), 0});
  std::thread serve([&] {
    tcp::socket s(io);
    std::error_code ec;
    acceptor.accept(s, ec);
    const std::string banner = "SSH-2.0-OpenSSH_9.2\r\n";
    asio::write(s, asio::buffer(banner), ec);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  });
  const std::string address = "127.0.0.1:" + std::to_string(acceptor.local_endpoint().port());
  EXPECT_EQ(zorInit(address.c_str(), 0), ZOR_ERR_HANDSHAKE);
  serve.join();
}

// A server that breaks off mid-message: the client's buffer grows only with
// the bytes that arrived, and the link ends with its reason, reported once —
// "Connection Lost" when the server goes, "Timed Out" when it falls silent.
TEST(LibraryAgainstBadServers, ServerBreakingOffMidMessageCostsLittleAndIsReportedOnce) {
  zorsock::ConnectionOptions options;
  options.silence_timeout = std::chrono::milliseconds(500);
  zorsock::SetConnectionOptions(options);
  for (const bool stays : {false, true}) {
    asio::io_context io;
    tcp::acceptor acceptor(io, {asio::ip::make_address("127.0.0.1"), 0});
    std::atomic<bool> done{false};
    std::thread serve([&] {
      tcp::socket s = AcceptAndWelcome(acceptor);
      // The header of a frame declaring the largest length, and six bytes of it.
      wire::Bytes bytes = wire::EncodeFrame({});
      const uint32_t length = wire::kMaxMessage;
      std::memcpy(bytes.data(), &length, sizeof length);  // the length field leads, little-endian
      asio::write(s, asio::buffer(bytes.data(), wire::kHeaderSize + 6));
      if (stays) WaitFor([&] { return done.load(); });
    });
    const std::string address = "127.0.0.1:" + std::to_string(acceptor.local_endpoint().port());
    ASSERT_GE(zorInit(address.c_str(), 0), 0);
    if (stays) {
      ASSERT_TRUE(WaitFor([] { return zorsock::ReceiveBufferCapacity() > 0; }));
      EXPECT_LE(zorsock::ReceiveBufferCapacity(), 64u << 10);
    }
    int error = 0;
    ASSERT_TRUE(WaitFor([&] { return (error = zorGetError()) != 0; }));
    EXPECT_EQ(error, stays ? ZOR_TIMED_OUT : ZOR_CONNECTION_LOST);
    EXPECT_EQ(zorGetError(), ZOR_NO_ERROR);
    zorDone();
    EXPECT_EQ(zorGetError(), ZOR_NO_ERROR);
    done = true;
    serve.join();
  }
  zorsock::SetConnectionOptions({});
}

}  // namespace
}  // namespace zord
