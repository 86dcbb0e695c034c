// How well each camera saw the wand, and how much each pair of cameras saw
// together: the solver refuses cameras by name on these figures.
#pragma once

#include <Eigen/Core>
#include <string>
#include <vector>

#include "zord/solver/camera_model.h"
#include "zord/solver/sample_set.h"
#include "zord/solver/solver_options.h"

namespace zord {

struct CameraCoverage {
  int frames = 0;        // frames in which the camera sees at least 2 LEDs
  int samples = 0;       // its detections in those frames
  double spread_px = 0;  // std of its detections across their narrowest direction
};

// `keep` (optional, per frame per sample) restricts the count to some samples.
std::vector<CameraCoverage> MeasureCoverage(const SampleSet& set,
                                            const std::vector<std::vector<bool>>* keep = nullptr);

// Empty when the coverage is enough, else what is missing, worded to follow
// "Camera K " (e.g. "has too few samples (seen in 2 frames, needs 10)").
std::string CoverageProblem(const CameraCoverage& coverage, const Intrinsics& lens,
                            const SolverOptions& options);

// Per camera: whether its samples (those `keep` marks) reach into the outer
// part of the image on most sides, as the higher lens terms (k2, tangential)
// need to be told apart from k1 and the principal point.
std::vector<bool> ReachesCorners(const SampleSet& set, const std::vector<std::vector<bool>>* keep,
                                 const std::vector<Intrinsics>& lenses);

// Symmetric counts over camera pairs: frames in which both see the same two or
// more LEDs, and the LEDs they see together over all frames.
struct CameraLinks {
  Eigen::MatrixXi shared_frames;
  Eigen::MatrixXi shared_samples;
};
CameraLinks CountSharedSamples(const SampleSet& set);

}  // namespace zord
