// Scene files as zord loads them (--scene). Every input gives a scene or a
// message, never an exception or a crash. Property: a loaded scene's LED
// slot tables agree both ways and its rotations are unit quaternions.
#include <cmath>

#include "fuzz/fuzz_input.h"
#include "zord/room/scene.h"

using zorfuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  zord::Scene scene;
  std::string error;
  if (!zord::ParseScene(text, "fuzz.json", &scene, &error)) {
    Require(!error.empty(), "a refusal says why");
    return 0;
  }
  for (int slot = 0; slot < scene.LedCount(); ++slot) {
    Require(scene.SlotOf(scene.LedId(slot)) == slot, "LED slots agree");
  }
  for (const zord::SceneBody& body : scene.bodies) {
    Require(std::abs(body.rest.rotation.norm() - 1) < 1e-9, "unit body rotation");
  }
  for (const zord::SceneCamera& cam : scene.cameras) {
    Require(std::abs(cam.pose.rotation.norm() - 1) < 1e-9, "unit camera rotation");
  }
  return 0;
}
