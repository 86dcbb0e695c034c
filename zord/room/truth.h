// The simulation's ground truth, for tests and the operator console: true
// camera poses (as clients see camera poses) and lenses, every LED's world
// position now, and the object poses; world mm, without the global transform.
#pragma once

#include <nlohmann/json.hpp>

#include "zord/room/operator.h"
#include "zord/room/scene.h"

namespace zord {

nlohmann::json TruthJson(const Scene& scene, const Operator& op);

}  // namespace zord
