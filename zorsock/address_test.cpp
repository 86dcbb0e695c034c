// Server addresses as text, connect errors as codes, and the client-side transform.
#include "zorsock/address.h"

#include <asio/error.hpp>
#include <cmath>
#include <gtest/gtest.h>

#include "zorsock/transform.h"
#include "zorsock/zorsock.h"

namespace zorsock {
namespace {

TEST(ServerAddress, HostAndOptionalPortOrRefused) {
  const struct { const char* text; const char* host; int port; } good[] = {
      {"localhost", "localhost", 8999}, {"10.0.0.5:9100", "10.0.0.5", 9100},
      {"[::1]:9100", "::1", 9100}, {"::1", "::1", 8999}};  // a bare v6 address has no port
  for (const auto& c : good) {
    const auto a = ParseServerAddress(c.text, 8999);
    ASSERT_TRUE(a) << c.text;
    EXPECT_EQ(a->host, c.host);
    EXPECT_EQ(a->port, c.port) << c.text;
  }
  for (const char* text : {"", ":80", "host:", "host:0", "host:65536", "host:12x", "[::1", "[::1]x"})
    EXPECT_FALSE(ParseServerAddress(text, 8999)) << text;
}

TEST(ServerAddress, FormatLeavesOutTheDefaultPort) {
  EXPECT_EQ(FormatServerAddress("127.0.0.1", 8999, 8999), "127.0.0.1");
  EXPECT_EQ(FormatServerAddress("127.0.0.1", 9000, 8999), "127.0.0.1:9000");
  EXPECT_EQ(FormatServerAddress("::1", 9000, 8999), "[::1]:9000");
}

TEST(ServerAddress, SocketErrorsMapToTheirCodes) {
  EXPECT_EQ(ConnectErrorCode(asio::error::connection_refused), ZOR_ERR_CONNECTION_REFUSED);
  EXPECT_EQ(ConnectErrorCode(asio::error::network_unreachable), ZOR_ERR_NETWORK_UNREACHABLE);
  EXPECT_EQ(ConnectErrorCode(asio::error::host_unreachable), ZOR_ERR_HOST_UNREACHABLE);
  EXPECT_EQ(ConnectErrorCode(asio::error::timed_out), ZOR_ERR_TIMED_OUT);
}

TEST(ClientTransform, ScalesThenMovesPositionsAndPoses) {
  ClientTransform t;
  t.scale = 2;
  // Quarter turn about +Y, then 100 along X.
  const float h = std::sqrt(0.5f);
  t.pose = {100, 0, 0, h, 0, h, 0};
  ZORMarker m{1, 1, 1, 2, 3, 1, 0};
  t.Apply(&m, 1);
  // scaled (2, 4, 6); +90 deg about Y maps (x, z) to (z, -x): (6, 4, -2).
  EXPECT_NEAR(m.x, 106, 1e-4);
  EXPECT_NEAR(m.y, 4, 1e-4);
  EXPECT_NEAR(m.z, -2, 1e-4);

  ZORRigid r{1, 1, {1, 2, 3, 1, 0, 0, 0}, 1, 0};
  t.Apply(&r, 1);
  EXPECT_NEAR(r.pose[0], 106, 1e-4);
  EXPECT_NEAR(r.pose[3], h, 1e-6);  // the body takes the pose's rotation
  EXPECT_NEAR(r.pose[5], h, 1e-6);

  float local[3] = {10, 20, 30};
  t.ToServer(local);
  EXPECT_FLOAT_EQ(local[0], 5);
  EXPECT_FLOAT_EQ(local[2], 15);
}

}  // namespace
}  // namespace zorsock
