// What the cameras see: every lit LED in front of a camera and inside its image
// becomes a 2D detection, projected with the true lens and mounting, with
// Gaussian pixel noise and optional random drop-outs.
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
  void Run(const std::vector<Eigen::Vector3d>& world, const std::vector<uint8_t>& lit);
  // Takes recorded detections instead (replay), grouped the same way;
  // detections of LEDs the scene lacks or of unknown cameras are skipped.
  void Load(const std::vector<ZORImage>& images, const Scene& scene);

  const std::vector<Detection>& detections() const { return detections_; }
  int First(int slot) const { return first_[slot]; }
  int Count(int slot) const { return first_[slot + 1] - first_[slot]; }
  // Detections per camera in the last Run.
  const std::vector<int32_t>& per_camera() const { return per_camera_; }

 private:
  struct Camera {
    Eigen::Matrix3d rotation;
    Eigen::Vector3d translation;
    Intrinsics lens;
  };
  std::vector<Camera> cameras_;
  SimRandom rng_;
  float noise_px_;
  double dropout_;
  std::vector<Detection> detections_;
  std::vector<int> first_;  // LedCount + 1 entries
  std::vector<int32_t> per_camera_;
};

// Blob diameter (pixels) and brightness (0..1) of an LED at `depth` mm.
float BlobSize(double led_diameter_mm, double focal_px, float depth);
float BlobIntensity(float depth);

}  // namespace zord
