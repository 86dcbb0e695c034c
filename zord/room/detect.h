// What the cameras see: every lit LED in front of a camera, inside its lens's
// field and inside its image becomes a 2D detection, projected with the true
// lens and mounting, with Gaussian pixel noise and optional random drop-outs;
// and, as the scene asks, what real rooms add: the operator's body and the
// camera stands hiding LEDs (an edge shifts a blob's centroid), reflections
// in shiny surfaces, blobs with another LED's id, and blobs that merge.
#pragma once

#include <cstdint>
#include <vector>

#include <Eigen/Core>

#include "zord/room/scene.h"
#include "zord/room/sim_random.h"
#include "zorsock/zorsock.h"

namespace zord {

struct Detection {
  int32_t camera = 0;
  int32_t slot = 0;   // LED slot in the scene
  float u = 0, v = 0; // pixels, origin top left
  float depth = 0;    // distance along the camera's axis (mm)
};

class Detector {
 public:
  // noise_px: sigma of the pixel noise; dropout: probability a detection is lost.
  Detector(const Scene& scene, uint64_t seed, double noise_px, double dropout);

  // Projects the LEDs (world positions and lit flags by slot). Detections are
  // grouped by LED slot, cameras in order within a slot.
  // `person`: where the operator stands on the floor (for the body's occlusion).
  void Run(const std::vector<Eigen::Vector3d>& world, const std::vector<uint8_t>& lit,
           const Eigen::Vector3d* person = nullptr);
  // Takes recorded detections instead (replay), grouped the same way;
  // detections of LEDs the scene lacks or of unknown cameras are skipped.
  void Load(const std::vector<ZORImage>& images, const Scene& scene);

  const std::vector<Detection>& detections() const { return detections_; }
  int First(int slot) const { return first_[slot]; }
  int Count(int slot) const { return first_[slot + 1] - first_[slot]; }
  // Detections per camera in the last Run.
  const std::vector<int32_t>& per_camera() const { return per_camera_; }

  // The camera has been knocked: it now sees from `pose`.
  void Move(int camera, const Extrinsics& pose);

 private:
  struct Camera {
    Eigen::Matrix3d rotation;
    Eigen::Vector3d translation;
    Eigen::Vector3d centre;
    Intrinsics lens;
    LensField field;
  };
  // False when the LED is hidden from the camera; a partly hidden one moves.
  bool Occlude(int camera, const Eigen::Vector3d* person, Eigen::Vector3d* led);
  // Detects world point x as the LED in `slot`, if the camera images it.
  void Emit(int camera, int slot, const Eigen::Vector3d& x);
  // Mislabels and merges blobs after detection.
  void Corrupt(int leds);
  void GroupBySlot();

  std::vector<Camera> cameras_;
  SimRandom rng_;
  float noise_px_;
  double dropout_;
  SceneEffects effects_;
  double led_radius_mm_;
  std::vector<Detection> detections_;
  std::vector<int> first_;  // LedCount + 1 entries
  std::vector<int32_t> per_camera_;
};

// Where the operator waving the wand stands on the floor: beside its middle,
// across its axis, at arm's length.
Eigen::Vector3d OperatorPosition(const Eigen::Vector3d& wand_centre,
                                 const Eigen::Vector3d& wand_direction);

// Blob diameter (pixels) and brightness (0..1) of an LED at `depth` mm.
float BlobSize(double led_diameter_mm, double focal_px, float depth);
float BlobIntensity(float depth);

}  // namespace zord
