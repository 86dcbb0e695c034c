#include "trackers/rigid_capture.h"

#include <Eigen/LU>
#include <Eigen/SVD>
#include <cmath>
#include <sstream>

#include "link/save_file.h"

RigidFit FitRigid(const std::vector<Eigen::Vector3d>& from, const std::vector<Eigen::Vector3d>& to) {
  RigidFit fit;
  const size_t n = std::min(from.size(), to.size());
  if (n == 0) return fit;
  Eigen::Vector3d a = Eigen::Vector3d::Zero(), b = Eigen::Vector3d::Zero();
  for (size_t i = 0; i < n; ++i) a += from[i], b += to[i];
  a /= double(n), b /= double(n);
  Eigen::Matrix3d h = Eigen::Matrix3d::Zero();
  for (size_t i = 0; i < n; ++i) h += (from[i] - a) * (to[i] - b).transpose();
  Eigen::JacobiSVD<Eigen::Matrix3d> svd(h, Eigen::ComputeFullU | Eigen::ComputeFullV);
  Eigen::Matrix3d d = Eigen::Matrix3d::Identity();
  // A reflection is never a valid answer for a physical body.
  if ((svd.matrixV() * svd.matrixU().transpose()).determinant() < 0) d(2, 2) = -1;
  fit.rotation = svd.matrixV() * d * svd.matrixU().transpose();
  fit.translation = b - fit.rotation * a;
  for (size_t i = 0; i < n; ++i) fit.worst = std::max(fit.worst, (fit.Apply(from[i]) - to[i]).norm());
  return fit;
}

void RigidCapture::Start(const std::vector<int32_t>& markerIds) {
  slots_.assign(markerIds.size(), Slot{});
  for (size_t i = 0; i < markerIds.size(); ++i) slots_[i].id = markerIds[i];
  frames_ = usedFrames_ = 0;
}

void RigidCapture::AddFrame(const std::vector<ZORMarker>& markers, float scale) {
  ++frames_;
  if (slots_.empty()) return;
  const double toMm = (scale > 0 && std::isfinite(scale)) ? 1.0 / scale : 1.0;
  // The frame's positions by slot.
  std::vector<Eigen::Vector3d> world(slots_.size());
  std::vector<char> seen(slots_.size(), 0);
  for (const ZORMarker& m : markers) {
    if (!(m.cond > 0)) continue;
    for (size_t s = 0; s < slots_.size(); ++s) {
      if (slots_[s].id == m.id) {
        world[s] = Eigen::Vector3d(m.x, m.y, m.z) * toMm;
        seen[s] = 1;
        break;
      }
    }
  }
  RigidFit toLocal;
  if (slots_[0].count == 0) {
    // No local frame yet: it starts on the reference marker.
    if (!seen[0]) return;
    int present = 0;
    for (char s : seen) present += s;
    if (present < 2) return;
    toLocal.translation = -world[0];
  } else {
    // The frame that best brings the markers seen onto their local positions.
    std::vector<Eigen::Vector3d> from, to;
    for (size_t s = 0; s < slots_.size(); ++s) {
      if (seen[s] && slots_[s].count > 0) from.push_back(world[s]), to.push_back(slots_[s].position);
    }
    if (from.size() < 3) return;
    toLocal = FitRigid(from, to);
  }
  for (size_t s = 0; s < slots_.size(); ++s) {
    if (!seen[s]) continue;
    Slot& slot = slots_[s];
    const Eigen::Vector3d local = toLocal.Apply(world[s]);
    if (slot.count == 0) {
      slot.position = local;
    } else {
      slot.movement += (local - slot.position).norm();
      slot.position = (1.0 - kWeight) * slot.position + kWeight * local;
    }
    ++slot.count;
  }
  ++usedFrames_;
}

std::vector<Eigen::Vector3d> RigidCapture::Finish(std::string* message) const {
  std::vector<Eigen::Vector3d> positions;
  if (slots_.empty()) {
    *message = "no points selected";
  } else if (slots_.size() < 3) {
    *message = "3 or more markers need to be selected.";
  } else if (usedFrames_ < kFramesNeeded) {
    *message = "not enough frames...";
  } else {
    for (const Slot& slot : slots_) positions.push_back(slot.position);
  }
  return positions;
}

bool WriteRigidFile(const std::string& path, float scale,
                    const std::vector<Eigen::Vector3d>& positions, std::string* error) {
  if (scale == 0 || std::isnan(scale)) scale = 1.0f;
  std::ostringstream out;
  out << "s, " << 1.0f / scale << "\n";
  for (size_t i = 0; i < positions.size(); ++i)
    out << i << ", " << positions[i].x() << " " << positions[i].y() << " " << positions[i].z() << "\n";
  return SaveFileAtomically(path, out.str(), error);
}
