#include "zorsock/codes.h"

#include "zorsock/zorsock.h"

#ifndef ZORSOCK_VERSION
#define ZORSOCK_VERSION "0.0.0"
#endif

namespace zorsock {

const char* CodeText(int code) {
  switch (code) {
    case ZOR_FINISHED: return "Finished";
    case ZOR_INVALID_VALUE: return "Invalid Value";
    case ZOR_INVALID_ENUM: return "Invalid Enum";
    case ZOR_INVALID_OPERATION: return "Invalid Operation";
    case ZOR_CONNECTION_LOST: return "Connection Lost";
    case ZOR_TIMED_OUT: return "Timed Out";
    case ZOR_PROTOCOL_ERROR: return "Protocol Error";
    case ZOR_NOT_CONNECTED: return "Not Connected";
    default: return nullptr;
  }
}

const char* LibraryVersion() { return ZORSOCK_VERSION; }

std::string ShortVersion() {
  const std::string full = ZORSOCK_VERSION;
  const size_t first = full.find('.');
  const size_t second = first == std::string::npos ? first : full.find('.', first + 1);
  return full.substr(0, second);
}

}  // namespace zorsock
