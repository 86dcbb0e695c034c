// Raw data recording. The server does not offer a raw data stream yet: the
// calls check their arguments and the server's reachability, and then say
// that recording is not available.
#include <chrono>

#include "zorsock/dial.h"
#include "zorsock/zorsock.h"

extern "C" {

int zorRPDOpen(const char* address, const char* fileName, int mode) {
  if (mode != 1 && mode != 2) return ZOR_RPD_INVALID_MODE;
  if (!address || !fileName) return ZOR_RPD_CANNOT_CONNECT;
  const auto parsed = zorsock::ParseServerAddress(address, ZOR_DEFAULT_PORT);
  if (!parsed) return ZOR_RPD_CANNOT_CONNECT;
  asio::io_context io;
  zorsock::Dialer dialer(io);
  const auto deadline =
      zorsock::Clock::now() + std::chrono::milliseconds(ZOR_CONNECT_TIMEOUT_MS);
  if (dialer.Connect(*parsed, deadline) != 0) return ZOR_RPD_CANNOT_CONNECT;
  return ZOR_RPD_NOT_AVAILABLE;
}

int zorRPDSend(void) { return 0; }
int zorRPDRecv(void) { return 0; }
int zorRPDClose(void) { return 0; }

}  // extern "C"
