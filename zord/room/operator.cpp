#include "zord/room/operator.h"

#include <cmath>
#include <stdexcept>

namespace zord {
namespace {

using nlohmann::json;
constexpr double kTwoPi = 6.28318530717958647692;

Eigen::Vector3d VectorField(const json& request, const char* key) {
  if (!request.contains(key)) throw std::runtime_error(std::string("missing \"") + key + "\"");
  const json& v = request.at(key);
  if (!v.is_array() || v.size() != 3) {
    throw std::runtime_error(std::string("\"") + key + "\" must be 3 numbers");
  }
  Eigen::Vector3d out;
  for (int i = 0; i < 3; ++i) {
    if (!v[i].is_number() || !std::isfinite(v[i].get<double>())) {
      throw std::runtime_error(std::string("\"") + key + "\" must be 3 finite numbers");
    }
    out[i] = v[i].get<double>();
  }
  return out;
}

Eigen::Quaterniond QuaternionField(const json& request, const char* key) {
  if (!request.contains(key)) return Eigen::Quaterniond::Identity();
  const json& v = request.at(key);
  if (!v.is_array() || v.size() != 4) {
    throw std::runtime_error(std::string("\"") + key + "\" must be 4 numbers w, x, y, z");
  }
  double q[4];
  for (int i = 0; i < 4; ++i) {
    if (!v[i].is_number() || !std::isfinite(v[i].get<double>())) {
      throw std::runtime_error(std::string("\"") + key + "\" must be 4 finite numbers");
    }
    q[i] = v[i].get<double>();
  }
  const auto r = UnitQuaternion(q[0], q[1], q[2], q[3]);
  if (!r) throw std::runtime_error(std::string("\"") + key + "\" is zero");
  return *r;
}

std::string Mode(const json& request) {
  if (!request.contains("mode") || !request.at("mode").is_string()) {
    throw std::runtime_error("missing \"mode\"");
  }
  return request.at("mode").get<std::string>();
}

}  // namespace

Operator::Operator(const Scene& scene)
    : scene_(scene),
      wand_waving_(scene.wand.waving),
      wand_position_(scene.wand.rest_position),
      wand_direction_(scene.wand.rest_direction),
      lit_(scene.LedCount(), 1) {
  for (const SceneCamera& cam : scene.cameras) camera_poses_.push_back(cam.pose);
  for (const SceneBody& body : scene.bodies) {
    body_moving_.push_back(body.moving);
    body_poses_.push_back(body.rest);
  }
  FindAlignSpots();
  Advance(0);
}

void Operator::Advance(double dt) {
  if (std::isfinite(dt) && dt > 0) time_ += dt;
  if (following_) {
    Follow();
  } else if (wand_waving_) {
    UpdateWand();
  }
  for (size_t i = 0; i < body_poses_.size(); ++i) {
    if (body_moving_[i]) UpdateBody(i);
  }
}

// A Lissajous figure with unrelated frequencies fills the volume box; the
// heading spins and the pitch swings so every camera sees the wand from many
// angles.
void Operator::UpdateWand() { WavePose(time_, &wand_position_, &wand_direction_); }

void Operator::WavePose(double t, Eigen::Vector3d* position, Eigen::Vector3d* direction) const {
  const Eigen::Vector3d half = 0.5 * scene_.volume_size;
  *position = scene_.volume_centre +
                   Eigen::Vector3d(half.x() * std::sin(kTwoPi * 0.131 * t + 0.3),
                                   half.y() * std::sin(kTwoPi * 0.213 * t + 1.1),
                                   half.z() * std::sin(kTwoPi * 0.171 * t + 2.0));
  const double yaw = kTwoPi * 0.23 * t;
  const double pitch = 1.1 * std::sin(kTwoPi * 0.113 * t + 0.5);
  *direction = Eigen::Vector3d(std::cos(pitch) * std::cos(yaw), std::sin(pitch),
                               std::cos(pitch) * std::sin(yaw));
}

// Slow drift around the body's rest pose, turning about the vertical and
// tilting a little; each body has its own phase.
void Operator::UpdateBody(size_t index) {
  const SceneBody& body = scene_.bodies[index];
  const double t = time_;
  const double phase = 1.7 * static_cast<double>(index);
  RigidPlacement& pose = body_poses_[index];
  pose.position = body.rest.position +
                  Eigen::Vector3d(body.range.x() * std::sin(kTwoPi * 0.051 * t + phase),
                                  body.range.y() * std::sin(kTwoPi * 0.073 * t + 2 * phase),
                                  body.range.z() * std::sin(kTwoPi * 0.043 * t + 3 * phase));
  const Eigen::AngleAxisd yaw(kTwoPi * 0.031 * t + phase, Eigen::Vector3d::UnitY());
  const Eigen::AngleAxisd tilt(0.3 * std::sin(kTwoPi * 0.061 * t + phase), Eigen::Vector3d::UnitX());
  pose.rotation = (body.rest.rotation * yaw * tilt).normalized();
}

RigidPlacement Operator::WandPose() const {
  RigidPlacement pose;
  pose.position = wand_position_;
  pose.rotation = Eigen::Quaterniond::FromTwoVectors(Eigen::Vector3d::UnitX(), wand_direction_);
  return pose;
}

void Operator::LedWorld(std::vector<Eigen::Vector3d>* world) const {
  world->resize(scene_.LedCount());
  size_t slot = 0;
  // The wand's LEDs lie on its axis, so only its direction matters.
  for (const SceneLed& led : scene_.wand.leds) {
    (*world)[slot++] = wand_position_ + led.local.x() * wand_direction_;
  }
  for (size_t b = 0; b < scene_.bodies.size(); ++b) {
    const Eigen::Matrix3d r = body_poses_[b].rotation.toRotationMatrix();
    for (const SceneLed& led : scene_.bodies[b].leds) {
      (*world)[slot++] = r * led.local + body_poses_[b].position;
    }
  }
  for (const SceneLed& led : scene_.align) {
    (*world)[slot++] = scene_.align_pose.rotation * led.local + scene_.align_pose.position;
  }
  for (const SceneLed& led : scene_.loose) (*world)[slot++] = led.local;
}

json Operator::Handle(const json& request) {
  const std::string cmd = request.at("cmd").get<std::string>();
  if (cmd == "follow") {
    if (!request.contains("on") || !request.at("on").is_boolean()) {
      throw std::runtime_error("\"on\" must be true or false");
    }
    SetFollow(request.at("on").get<bool>());
    return {{"ok", true}, {"follow", following_}};
  }
  if (cmd == "wand") {
    const std::string mode = Mode(request);
    if (mode == "wave") {
      wand_waving_ = true;
      UpdateWand();
    } else if (mode == "rest") {
      const Eigen::Vector3d position = VectorField(request, "position");
      const Eigen::Vector3d direction = VectorField(request, "direction");
      if (direction.norm() < 1e-9) throw std::runtime_error("\"direction\" is zero");
      wand_waving_ = false;
      wand_position_ = position;
      wand_direction_ = direction.normalized();
    } else {
      throw std::runtime_error("wand mode must be wave or rest");
    }
    following_ = false;  // told what to do instead
    return {{"ok", true}, {"wand", wand_waving_ ? "wave" : "rest"}};
  }
  if (cmd == "body") {
    int index = 0;
    if (request.contains("index")) {
      if (!request.at("index").is_number_integer()) throw std::runtime_error("\"index\" must be an integer");
      index = request.at("index").get<int>();
    }
    if (index < 0 || index >= static_cast<int>(body_poses_.size())) {
      throw std::runtime_error("no body " + std::to_string(index) + " in the scene");
    }
    const std::string mode = Mode(request);
    if (mode == "move") {
      body_moving_[index] = 1;
      UpdateBody(index);
    } else if (mode == "rest") {
      RigidPlacement pose;
      pose.position = VectorField(request, "position");
      pose.rotation = QuaternionField(request, "rotation");
      body_moving_[index] = 0;
      body_poses_[index] = pose;
    } else {
      throw std::runtime_error("body mode must be move or rest");
    }
    following_ = false;
    return {{"ok", true}, {"index", index}, {"body", body_moving_[index] ? "move" : "rest"}};
  }
  if (cmd == "led") {
    if (!request.contains("id") || !request.at("id").is_number_integer()) {
      throw std::runtime_error("\"id\" must be an integer");
    }
    if (!request.contains("visible") || !request.at("visible").is_boolean()) {
      throw std::runtime_error("\"visible\" must be true or false");
    }
    const int id = request.at("id").get<int>();
    const int slot = scene_.SlotOf(id);
    if (slot < 0) throw std::runtime_error("no LED " + std::to_string(id) + " in the scene");
    lit_[slot] = request.at("visible").get<bool>() ? 1 : 0;
    return {{"ok", true}, {"id", id}, {"visible", lit_[slot] != 0}};
  }
  if (cmd == "bump") return Bump(request);
  throw std::runtime_error("unknown cmd \"" + cmd + "\"");
}

// Knocks a camera on its stand: its centre moves, it turns about its centre.
json Operator::Bump(const json& request) {
  if (!request.contains("camera") || !request.at("camera").is_number_integer()) {
    throw std::runtime_error("\"camera\" must be an integer");
  }
  const int64_t camera = request.at("camera").get<int64_t>();
  if (camera < 0 || camera >= static_cast<int64_t>(camera_poses_.size())) {
    throw std::runtime_error("no camera " + std::to_string(camera) + " in the scene");
  }
  const Eigen::Vector3d shift =
      request.contains("position_mm") ? VectorField(request, "position_mm") : Eigen::Vector3d::Zero();
  const Eigen::Vector3d turn = request.contains("rotation_deg")
                                   ? Eigen::Vector3d(VectorField(request, "rotation_deg") * kTwoPi / 360)
                                   : Eigen::Vector3d::Zero();
  Extrinsics& pose = camera_poses_[camera];
  const Eigen::Vector3d centre = pose.Centre() + shift;
  if (turn.norm() > 0) {
    // World to camera after turning the camera by `turn` in world axes.
    pose.rotation = (pose.rotation * Eigen::Quaterniond(Eigen::AngleAxisd(turn.norm(), turn.normalized())).conjugate()).normalized();
  }
  pose.translation = -(pose.rotation * centre);
  ++cameras_moved_;
  return {{"ok", true}, {"camera", camera}};
}

json Operator::Status() const {
  json bodies = json::array();
  for (uint8_t moving : body_moving_) bodies.push_back(moving ? "move" : "rest");
  json hidden = json::array();
  for (int slot = 0; slot < scene_.LedCount(); ++slot) {
    if (!lit_[slot]) hidden.push_back(scene_.LedId(slot));
  }
  return {{"time_s", time_}, {"wand", wand_waving_ ? "wave" : "rest"}, {"follow", following_},
          {"bodies", bodies},
          {"hidden_leds", hidden}};
}

}  // namespace zord
