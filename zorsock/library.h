// C++ access to the settings behind the zor* calls' one global connection
// (time-outs, queue sizes). Takes effect at the next zorInit.
#pragma once

#include "zorsock/connection.h"

namespace zorsock {

void SetConnectionOptions(const ConnectionOptions& options);
ConnectionOptions GetConnectionOptions();
// Whether zorInit opened a session that is still up (raw data replay needs none).
bool HasOpenSession();
// Bytes the open session's receive buffer has room for (0 without one).
size_t ReceiveBufferCapacity();

}  // namespace zorsock
