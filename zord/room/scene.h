// The simulated installation: room, cameras (true and nominal lenses and
// mountings), and the LEDs of the wand, the rigid bodies, the alignment frame
// and the loose markers. Loaded from a JSON scene file (docs/simulator.md) or
// the built-in default scene; immutable once loaded.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include <Eigen/Core>
#include <Eigen/Geometry>

#include "zord/room/sim_pose.h"
#include "zord/solver/camera_model.h"

namespace zord {

struct SceneCamera {
  Intrinsics nominal;   // what the server knows before calibration
  Intrinsics truth;     // the real lens
  Extrinsics mounting;  // where the camera was meant to be mounted
  Extrinsics pose;      // where it really is
};

// One LED of an object: its id and its position in the object's frame (mm).
struct SceneLed {
  int id = 0;
  Eigen::Vector3d local = Eigen::Vector3d::Zero();
};

struct SceneWand {
  std::vector<SceneLed> leds;  // along the local +X axis
  bool waving = true;
  Eigen::Vector3d rest_position{0, 1000, 0};
  Eigen::Vector3d rest_direction{1, 0, 0};
};

struct SceneBody {
  std::vector<SceneLed> leds;
  bool moving = true;
  RigidPlacement rest;                       // also the centre of its path
  Eigen::Vector3d range{800, 300, 800};      // half extent of its path (mm)
};

// A shiny flat surface: cameras on its front side also see the mirror image
// of the LEDs in front of it, with probability `rate` per detection.
struct ScenePlane {
  Eigen::Vector3d point = Eigen::Vector3d::Zero();
  Eigen::Vector3d normal = Eigen::Vector3d::UnitY();  // unit, the shiny side
  double rate = 1;
};

// What makes a real room misbehave; all off unless the scene asks for it.
struct SceneEffects {
  bool operator_body = false;     // a person-sized cylinder beside the wand hides LEDs
  double body_radius_mm = 250;
  double body_height_mm = 1800;
  bool stands = false;            // the camera stands (floor to camera) hide LEDs
  double stand_radius_mm = 40;
  std::vector<ScenePlane> mirrors;
  double mislabel_rate = 0;       // a blob carries another LED's id
  double merge_px = 0;            // blobs closer than this in an image merge into one

  bool Any() const {
    return operator_body || stands || !mirrors.empty() || mislabel_rate > 0 || merge_px > 0;
  }
};

struct Scene {
  std::string name = "default";
  Eigen::Vector3d room_size{6000, 3000, 6000};  // x, height, z; centred on x = z = 0
  Eigen::Vector3d volume_centre{0, 1200, 0};    // where the wand is waved
  Eigen::Vector3d volume_size{2800, 1200, 2800};
  double noise_px = 0.1;        // sigma of the Gaussian pixel noise
  double dropout = 0;           // probability that a detection is lost
  bool start_calibrated = false;
  double exposure_us = 400;
  double temperature_c = 41.5;
  double led_diameter_mm = 8;

  std::vector<SceneCamera> cameras;
  SceneWand wand;
  std::vector<SceneBody> bodies;
  std::vector<SceneLed> align;  // the L frame, in its own frame
  RigidPlacement align_pose;
  std::vector<SceneLed> loose;  // world positions
  SceneEffects effects;

  // LEDs are numbered densely by "slot": the wand's, each body's, the
  // alignment frame's, then the loose ones, in file order.
  int LedCount() const { return static_cast<int>(led_ids_.size()); }
  int LedId(int slot) const { return led_ids_[slot]; }
  int SlotOf(int led_id) const;  // -1 for an LED the scene does not have

  // Fills the slot tables; fails (with the reason) on duplicate or negative ids.
  bool Index(std::string* why);

 private:
  std::vector<int> led_ids_;
  std::unordered_map<int, int> slot_of_;
};

// The scene used when no file is given; data/scenes/default.json is the same text.
const char* DefaultSceneJson();

// Parses a scene; `source` names the file in error messages. False with a
// message naming the file and the offending key.
bool ParseScene(const std::string& json_text, const std::string& source, Scene* scene,
                std::string* error);
bool LoadScene(const std::string& path, Scene* scene, std::string* error);

// Reads a whole file; false with the system's reason.
bool ReadTextFile(const std::string& path, std::string* text, std::string* error);

}  // namespace zord
