// Pass 2: the pairwise poses made metric with the wand's known LED spacing and
// chained along the camera tree into one frame, plus a first wand pose for
// every frame by triangulation.
#pragma once

#include <optional>
#include <vector>

#include "zord/solver/camera_model.h"
#include "zord/solver/relative_poses.h"
#include "zord/solver/sample_set.h"
#include "zord/solver/solver_result.h"
#include "zord/solver/wand_data.h"

namespace zord {

// Millimetres per unit of the pair's unit translation: the median over shared
// frames of true over triangulated distance between the outermost LEDs both
// cameras see. Empty when fewer than three frames allow it.
std::optional<double> EstimatePairScale(const SampleSet& set, const StraightWand& wand, int parent,
                                        int child, const Extrinsics& relative);

// Camera poses in the root camera's frame: relative[c] takes camera c from its
// tree parent (metric). Cameras outside the tree keep the identity.
std::vector<Extrinsics> ChainPoses(const CameraTree& tree, const std::vector<Extrinsics>& relative);

// Each frame's wand pose from the LEDs triangulated by the cameras in `use`;
// empty for frames where fewer than two LEDs could be triangulated.
std::vector<std::optional<WandPose>> TriangulateWandPoses(
    const SampleSet& set, const StraightWand& wand, const std::vector<Extrinsics>& poses,
    const std::vector<Intrinsics>& lenses, const std::vector<bool>& use, double reject_px);

}  // namespace zord
