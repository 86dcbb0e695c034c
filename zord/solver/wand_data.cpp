#include "zord/solver/wand_data.h"

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>
#include <set>

namespace zord {

int StraightWand::IndexOf(int id) const {
  const auto it = std::find(ids.begin(), ids.end(), id);
  return it == ids.end() ? -1 : static_cast<int>(it - ids.begin());
}

double StraightWand::Length() const {
  if (offsets.empty()) return 0;
  const auto [lo, hi] = std::minmax_element(offsets.begin(), offsets.end());
  return *hi - *lo;
}

bool MakeStraightWand(const std::vector<WandLed>& leds, double tolerance_mm, StraightWand* wand,
                      std::string* error) {
  if (leds.size() < 3) {
    *error = "the wand needs at least 3 LEDs, it has " + std::to_string(leds.size());
    return false;
  }
  std::set<int> ids;
  Eigen::Vector3d centroid = Eigen::Vector3d::Zero();
  for (const WandLed& led : leds) {
    if (!ids.insert(led.id).second) {
      *error = "the wand lists LED " + std::to_string(led.id) + " twice";
      return false;
    }
    if (!led.local.allFinite()) {
      *error = "the wand's LED " + std::to_string(led.id) + " has no valid position";
      return false;
    }
    centroid += led.local;
  }
  centroid /= static_cast<double>(leds.size());

  Eigen::Matrix3d scatter = Eigen::Matrix3d::Zero();
  for (const WandLed& led : leds)
    scatter += (led.local - centroid) * (led.local - centroid).transpose();
  const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> eigen(scatter);
  const Eigen::Vector3d axis = eigen.eigenvectors().col(2);  // largest spread

  StraightWand out;
  for (const WandLed& led : leds) {
    const Eigen::Vector3d d = led.local - centroid;
    const double along = d.dot(axis);
    if ((d - along * axis).norm() > tolerance_mm) {
      *error = "the wand is not straight: LED " + std::to_string(led.id) + " lies " +
               std::to_string((d - along * axis).norm()) + " mm off its axis";
      return false;
    }
    out.ids.push_back(led.id);
    out.offsets.push_back(along);
  }
  std::vector<double> sorted = out.offsets;
  std::sort(sorted.begin(), sorted.end());
  for (size_t i = 1; i < sorted.size(); ++i) {
    if (sorted[i] - sorted[i - 1] < 1.0) {
      *error = "two of the wand's LEDs are less than 1 mm apart";
      return false;
    }
  }
  *wand = std::move(out);
  return true;
}

}  // namespace zord
