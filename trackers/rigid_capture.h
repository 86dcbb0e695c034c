// Turning markers seen over a number of frames into a rigid body: each frame
// is brought into one local frame by a best-fit rotation and translation, and
// every marker's local position is smoothed over the frames. No widgets here.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <string>
#include <vector>

#include "zorsock/zorsock.h"

// The rotation and translation that best map `from` onto `to` (least squares
// over the pairs, no scaling): to ~ rotation * from + translation.
struct RigidFit {
  Eigen::Matrix3d rotation = Eigen::Matrix3d::Identity();
  Eigen::Vector3d translation = Eigen::Vector3d::Zero();
  Eigen::Vector3d Apply(const Eigen::Vector3d& p) const { return rotation * p + translation; }
  // Largest distance between a mapped `from` point and its `to` point.
  double worst = 0;
};
RigidFit FitRigid(const std::vector<Eigen::Vector3d>& from, const std::vector<Eigen::Vector3d>& to);

class RigidCapture {
 public:
  static constexpr int kFramesWanted = 20;  // frames gathered before finishing
  static constexpr int kFramesNeeded = 10;  // frames that must have added samples
  static constexpr double kWeight = 0.1;    // of a new sample in the running mean

  // Starts over with the markers (packed ids) to capture, in slot order. Slot
  // 0 is the reference: the local frame has its origin on that marker as
  // first seen, with the axes of the room.
  void Start(const std::vector<int32_t>& markerIds);
  // One frame of the session; positions are divided by `scale` (the session's
  // units per millimetre) so the local frame is in millimetres. Markers with a
  // condition of 0 or less, or not selected, add nothing.
  void AddFrame(const std::vector<ZORMarker>& markers, float scale);
  bool Enough() const { return frames_ >= kFramesWanted; }
  int frames() const { return frames_; }
  int usedFrames() const { return usedFrames_; }

  // The local marker positions once the capture is complete; otherwise
  // empty, with the reason in `message` ("no points selected", "3 or more
  // markers need to be selected.", "not enough frames...").
  std::vector<Eigen::Vector3d> Finish(std::string* message) const;

  struct Slot {
    int32_t id = 0;
    int32_t count = 0;
    Eigen::Vector3d position = Eigen::Vector3d::Zero();
    double movement = 0;
  };
  const std::vector<Slot>& markerSlots() const { return slots_; }

 private:
  std::vector<Slot> slots_;
  int frames_ = 0;
  int usedFrames_ = 0;
};

// Writes a rigid body definition: "s, " and 1/scale (a scale of 0 or NaN is
// 1), then "i, x y z" per slot. False with the reason in `error`.
bool WriteRigidFile(const std::string& path, float scale,
                    const std::vector<Eigen::Vector3d>& positions, std::string* error);
