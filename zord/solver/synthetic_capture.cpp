#include "zord/solver/synthetic_capture.h"

#include <cmath>
#include <random>

namespace zord {
namespace {

// World to camera for a camera at `eye` looking at `target` with image up
// close to world +Y.
Extrinsics LookAt(const Eigen::Vector3d& eye, const Eigen::Vector3d& target, double roll) {
  const Eigen::Vector3d z = (target - eye).normalized();
  Eigen::Vector3d x = z.cross(Eigen::Vector3d::UnitY()).normalized();  // image right
  Eigen::Vector3d y = z.cross(x);                                      // image down
  const Eigen::AngleAxisd twist(roll, z);
  x = twist * x;
  y = twist * y;
  Eigen::Matrix3d r;
  r.row(0) = x.transpose();
  r.row(1) = y.transpose();
  r.row(2) = z.transpose();
  Extrinsics e;
  e.rotation = Eigen::Quaterniond(r).normalized();
  e.translation = -(r * eye);
  return e;
}

}  // namespace

std::vector<WandLed> StandardWand() {
  const double offsets[] = {0, 85, 210, 320, 470, 600, 770, 900};
  std::vector<WandLed> leds;
  for (int i = 0; i < 8; ++i) leds.push_back({i, {offsets[i] - 450, 0, 0}});
  return leds;
}

std::string SyntheticOptions::Check() const {
  if (cameras < 2) return "cameras must be at least 2";
  if (frames < 1) return "frames must be at least 1";
  if (!(noise_px >= 0) || !(dropout >= 0 && dropout < 1) ||
      !(outlier_fraction >= 0 && outlier_fraction < 1) ||
      !(mislabel_fraction >= 0 && mislabel_fraction < 1))
    return "noise, dropout, outlier and mislabel fractions must be valid";
  if (!(room.minCoeff() > 0) || !(volume_half.minCoeff() > 0))
    return "room and volume must be positive";
  return {};
}

SyntheticCapture MakeSyntheticCapture(const SyntheticOptions& options) {
  std::mt19937 rng(options.seed);
  std::normal_distribution<double> gauss(0, 1);
  std::uniform_real_distribution<double> unit(0, 1);

  SyntheticCapture out;
  out.input.wand = StandardWand();
  // Stands along the walls, 300 mm inside, evenly around the perimeter;
  // alternate cameras mounted high and low so that many cameras see in depth.
  const double hx = options.room.x() / 2 - 300, hz = options.room.z() / 2 - 300;
  const double perimeter = 4 * (hx + hz);
  for (int c = 0; c < options.cameras; ++c) {
    double along = perimeter * (c + 0.5) / options.cameras;
    Eigen::Vector3d eye;
    const double height = options.room.y() * (c % 2 == 0 ? 0.9 : 0.75);
    if (along < 2 * hx) {
      eye = {-hx + along, height, -hz};
    } else if ((along -= 2 * hx) < 2 * hz) {
      eye = {hx, height, -hz + along};
    } else if ((along -= 2 * hz) < 2 * hx) {
      eye = {hx - along, height, hz};
    } else {
      eye = {-hx, height, hz - (along - 2 * hx)};
    }
    const Eigen::Vector3d aim =
        options.volume_centre + Eigen::Vector3d(gauss(rng), 0.5 * gauss(rng), gauss(rng)) * 300;
    out.true_poses.push_back(LookAt(eye, aim, 0.02 * gauss(rng)));

    Intrinsics truth = options.lens;
    const double focal_scale = 1 + (c % 2 == 0 ? 1 : -1) * options.focal_error;
    truth.fx *= focal_scale;
    truth.fy *= focal_scale;
    const double angle = 2 * M_PI * unit(rng);
    truth.cx += options.principal_error_px * std::cos(angle);
    truth.cy += options.principal_error_px * std::sin(angle);
    truth.k1 = options.true_k1;
    truth.k2 = options.true_k2;
    truth.p1 = options.true_p1;
    truth.p2 = options.true_p2;
    out.true_lenses.push_back(truth);
  }
  out.input.cameras.assign(options.cameras, options.lens);
  std::vector<LensField> fields;
  for (const Intrinsics& k : out.true_lenses) fields.push_back(FieldOf(k));

  // The wand's path: a Lissajous figure through the volume with incommensurate
  // frequencies; its direction sweeps all azimuths and a wide range of tilts.
  const double phase[] = {unit(rng), unit(rng), unit(rng), unit(rng)};
  for (int f = 0; f < options.frames; ++f) {
    const double t = 2 * M_PI * (f + 0.5) / options.frames;
    WandPose pose;
    pose.frame = f;
    pose.centre = options.volume_centre +
                  options.volume_half.cwiseProduct(Eigen::Vector3d(std::sin(7 * t + 6 * phase[0]),
                                                                   std::sin(11 * t + 6 * phase[1]),
                                                                   std::sin(5 * t + 6 * phase[2])));
    const double azimuth = 23 * t + 6 * phase[3];
    const double tilt = 1.2 * std::sin(17 * t);
    pose.direction = {std::cos(tilt) * std::cos(azimuth), std::sin(tilt),
                      std::cos(tilt) * std::sin(azimuth)};
    out.true_wand.push_back(pose);

    WandFrame frame;
    frame.number = 1000 + f;
    for (int c = 0; c < options.cameras; ++c) {
      for (const WandLed& led : out.input.wand) {
        const Eigen::Vector3d world = pose.centre + led.local.x() * pose.direction;
        Eigen::Vector2d uv;
        if (!ImageCamera(out.true_lenses[c], fields[c], out.true_poses[c].ToCamera(world), &uv))
          continue;
        uv += options.noise_px * Eigen::Vector2d(gauss(rng), gauss(rng));
        if (!options.lens.Inside(uv) || unit(rng) < options.dropout) continue;
        if (c == options.weak_camera &&
            std::abs(uv.y() / options.lens.height - 0.7) > 0.5 * options.weak_strip)
          continue;
        int id = led.id;
        if (unit(rng) < options.outlier_fraction) {
          const double a = 2 * M_PI * unit(rng), r = 5 + 55 * unit(rng);
          uv += r * Eigen::Vector2d(std::cos(a), std::sin(a));
          ++out.corrupted;
        } else if (unit(rng) < options.mislabel_fraction) {
          const int others = static_cast<int>(out.input.wand.size()) - 1;
          id = out.input.wand[(led.id + 1 + static_cast<int>(unit(rng) * others)) %
                              out.input.wand.size()].id;
          ++out.corrupted;
        }
        frame.observations.push_back({c, id, uv.x(), uv.y()});
      }
    }
    out.input.frames.push_back(std::move(frame));
  }
  return out;
}

}  // namespace zord
