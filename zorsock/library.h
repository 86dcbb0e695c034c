// C++ access to the settings behind the zor* calls' one global connection
// (time-outs, queue sizes). Takes effect at the next zorInit.
#pragma once

#include "zorsock/connection.h"

namespace zorsock {

void SetConnectionOptions(const ConnectionOptions& options);
ConnectionOptions GetConnectionOptions();

}  // namespace zorsock
