#include "zord/solver/solver_result.h"

#include <cstdio>

namespace zord {

std::vector<std::string> PassReport::Messages() const {
  if (!success) return {"pass " + std::to_string(pass) + " failed. " + reason};
  char error[64];
  std::snprintf(error, sizeof error, "error %f", rms_px);
  return {"pass " + std::to_string(pass) + " success.", error};
}

}  // namespace zord
