// zord's calibration state file (--state, --calibration). Property: a state
// that loads, saved, loads back to the same state; a calibration once
// accepted is never lost at the next start.
#include "fuzz/fuzz_input.h"
#include "zord/room/calibration_store.h"

using zorfuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const size_t cameras = 1 + data[0] % 16;
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  zord::CalibrationState state;
  std::string error;
  if (!zord::ParseCalibration(text, cameras, &state, &error)) {
    Require(!error.empty(), "a refusal says why");
    return 0;
  }
  const std::string saved = zord::CalibrationToJson(state).dump(2);
  zord::CalibrationState again;
  Require(zord::ParseCalibration(saved, cameras, &again, &error), "a saved state loads back");
  Require(zord::CalibrationToJson(again).dump(2) == saved, "and is the same state");
  return 0;
}
