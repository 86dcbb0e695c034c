#include "zord/room/scene.h"

#include <cmath>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <cstring>
#include <cerrno>

#include <nlohmann/json.hpp>

#include "zord/room/sim_random.h"

namespace zord {
namespace {

using nlohmann::json;

constexpr int kMaxCameras = 256;
// Every number of a scene is a length in mm, an angle, a pixel count or a
// factor: none comes near this, and keeping below it means sums, squares and
// norms of them never overflow.
constexpr double kMaxMagnitude = 1e9;
constexpr double kPi = 3.14159265358979323846;

struct SceneError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A JSON object being read, with its key path for error messages. Every key
// must be consumed: an unknown key is a typo and fails the load.
class Node {
 public:
  Node(const json& value, std::string path) : value_(value), path_(std::move(path)) {
    if (!value_.is_object()) Fail("expected an object");
  }

  bool Has(const char* key) const { return value_.contains(key); }

  Node Object(const char* key) {
    used_.insert(key);
    return Node(value_.at(key), Sub(key));
  }

  // Reads the object under `key`, when there is one, with `read`; then it
  // must hold nothing `read` left unread.
  template <typename Read>
  void IfObject(const char* key, Read&& read) {
    if (!Has(key)) return;
    Node object = Object(key);
    read(object);
    object.Finish();
  }

  double Number(const char* key, double fallback) {
    if (!Has(key)) return fallback;
    used_.insert(key);
    return NumberOf(value_.at(key), Sub(key));
  }

  double PositiveNumber(const char* key, double fallback) {
    const double v = Number(key, fallback);
    if (!(v > 0)) throw SceneError(Sub(key) + ": must be above 0");
    return v;
  }

  int Integer(const char* key, int fallback, int min, int max) {
    if (!Has(key)) return fallback;
    used_.insert(key);
    const json& v = value_.at(key);
    if (!v.is_number_integer() || v.get<int64_t>() < min || v.get<int64_t>() > max) {
      throw SceneError(Sub(key) + ": expected an integer from " + std::to_string(min) + " to " +
                       std::to_string(max));
    }
    return v.get<int>();
  }

  bool Bool(const char* key, bool fallback) {
    if (!Has(key)) return fallback;
    used_.insert(key);
    if (!value_.at(key).is_boolean()) throw SceneError(Sub(key) + ": expected true or false");
    return value_.at(key).get<bool>();
  }

  std::string String(const char* key, const std::string& fallback) {
    if (!Has(key)) return fallback;
    used_.insert(key);
    if (!value_.at(key).is_string()) throw SceneError(Sub(key) + ": expected a string");
    return value_.at(key).get<std::string>();
  }

  Eigen::Vector3d Vector(const char* key, const Eigen::Vector3d& fallback) {
    if (!Has(key)) return fallback;
    used_.insert(key);
    const std::vector<double> v = Numbers(value_.at(key), Sub(key), 3);
    return {v[0], v[1], v[2]};
  }

  const json& Array(const char* key) {
    used_.insert(key);
    if (!value_.at(key).is_array()) throw SceneError(Sub(key) + ": expected an array");
    return value_.at(key);
  }

  // Call when done: complains about keys nobody read.
  void Finish() const {
    for (const auto& item : value_.items()) {
      if (!used_.count(item.key())) throw SceneError(Sub(item.key().c_str()) + ": unknown key");
    }
  }

  std::string Sub(const char* key) const { return path_.empty() ? key : path_ + "." + key; }
  [[noreturn]] void Fail(const std::string& why) const {
    throw SceneError((path_.empty() ? std::string("top level") : path_) + ": " + why);
  }

  static double NumberOf(const json& v, const std::string& path) {
    if (!v.is_number()) throw SceneError(path + ": expected a number");
    const double d = v.get<double>();
    if (!std::isfinite(d) || std::abs(d) > kMaxMagnitude) {
      throw SceneError(path + ": expected a number from -1e9 to 1e9");
    }
    return d;
  }

  static std::vector<double> Numbers(const json& v, const std::string& path, size_t count) {
    if (!v.is_array() || v.size() != count) {
      throw SceneError(path + ": expected an array of " + std::to_string(count) + " numbers");
    }
    std::vector<double> out;
    for (size_t i = 0; i < count; ++i) {
      out.push_back(NumberOf(v[i], path + "[" + std::to_string(i) + "]"));
    }
    return out;
  }

 private:
  const json& value_;
  std::string path_;
  std::set<std::string> used_;
};

std::string Indexed(const std::string& path, size_t i) {
  return path + "[" + std::to_string(i) + "]";
}

Intrinsics ReadLens(Node node, const Intrinsics& base) {
  Intrinsics k = base;
  k.fx = node.PositiveNumber("fx", k.fx);
  k.fy = node.PositiveNumber("fy", k.fy);
  k.cx = node.Number("cx", k.cx);
  k.cy = node.Number("cy", k.cy);
  k.k1 = node.Number("k1", k.k1);
  k.k2 = node.Number("k2", k.k2);
  k.p1 = node.Number("p1", k.p1);
  k.p2 = node.Number("p2", k.p2);
  k.width = node.Integer("width", k.width, 16, 65536);
  k.height = node.Integer("height", k.height, 16, 65536);
  node.Finish();
  return k;
}

// [[id, x, y, z], ...]
std::vector<SceneLed> ReadLeds(const json& array, const std::string& path) {
  std::vector<SceneLed> leds;
  for (size_t i = 0; i < array.size(); ++i) {
    const std::string at = Indexed(path, i);
    const json& row = array[i];
    if (!row.is_array() || row.size() != 4 || !row[0].is_number_integer() ||
        row[0].get<int64_t>() < 0 || row[0].get<int64_t>() > (1 << 30)) {
      throw SceneError(at + ": expected [id, x, y, z] with an integer id from 0 to 2^30");
    }
    const std::vector<double> p = Node::Numbers(json::array({row[1], row[2], row[3]}), at, 3);
    leds.push_back({row[0].get<int>(), {p[0], p[1], p[2]}});
  }
  return leds;
}

Eigen::Quaterniond ReadRotation(Node& node, const char* key) {
  if (!node.Has(key)) return Eigen::Quaterniond::Identity();
  const std::vector<double> q = Node::Numbers(node.Array(key), node.Sub(key), 4);
  const auto r = UnitQuaternion(q[0], q[1], q[2], q[3]);
  if (!r) throw SceneError(node.Sub(key) + ": the quaternion is zero");
  return *r;
}

// A camera at `position` looking at `aim`, image up towards the world's +Y,
// turned by `roll` radians about its viewing axis.
Extrinsics LookAt(const Eigen::Vector3d& position, const Eigen::Vector3d& aim, double roll,
                  const std::string& path) {
  const Eigen::Vector3d forward = aim - position;
  if (forward.norm() < 1e-6) throw SceneError(path + ": aim equals position");
  const Eigen::Vector3d z = forward.normalized();
  Eigen::Vector3d x = z.cross(Eigen::Vector3d::UnitY());
  if (x.norm() < 1e-6) x = Eigen::Vector3d::UnitX();  // looking straight up or down
  x.normalize();
  const Eigen::Vector3d y = z.cross(x);  // image down
  Eigen::Matrix3d rows;
  rows.row(0) = x;
  rows.row(1) = y;
  rows.row(2) = z;
  Extrinsics e;
  e.rotation = Eigen::Quaterniond(Eigen::AngleAxisd(roll, Eigen::Vector3d::UnitZ()) *
                                  Eigen::Quaterniond(rows)).normalized();
  e.translation = -(e.rotation * position);
  return e;
}

SceneEffects ReadEffects(Node node) {
  SceneEffects e;
  node.IfObject("occlusion", [&](Node& o) {
    e.operator_body = o.Bool("operator", e.operator_body);
    e.body_radius_mm = o.PositiveNumber("body_radius", e.body_radius_mm);
    e.body_height_mm = o.PositiveNumber("body_height", e.body_height_mm);
    e.stands = o.Bool("stands", e.stands);
    e.stand_radius_mm = o.PositiveNumber("stand_radius", e.stand_radius_mm);
  });
  if (node.Has("mirrors")) {
    const json& list = node.Array("mirrors");
    for (size_t i = 0; i < list.size(); ++i) {
      Node m(list[i], Indexed("effects.mirrors", i));
      ScenePlane plane;
      plane.point = m.Vector("point", plane.point);
      const Eigen::Vector3d normal = m.Vector("normal", plane.normal);
      if (normal.norm() < 1e-9) throw SceneError(m.Sub("normal") + ": must not be zero");
      plane.normal = normal.normalized();
      plane.rate = m.Number("rate", plane.rate);
      if (!(plane.rate >= 0 && plane.rate <= 1)) throw SceneError(m.Sub("rate") + ": must be from 0 to 1");
      m.Finish();
      e.mirrors.push_back(plane);
    }
  }
  e.mislabel_rate = node.Number("mislabel_rate", 0);
  if (!(e.mislabel_rate >= 0 && e.mislabel_rate <= 1))
    throw SceneError("effects.mislabel_rate: must be from 0 to 1");
  e.merge_px = node.Number("merge_px", 0);
  if (!(e.merge_px >= 0 && e.merge_px <= 100)) throw SceneError("effects.merge_px: must be from 0 to 100");
  node.Finish();
  return e;
}

struct Perturbation {
  double focal_px = 12, centre_px = 5, k1 = 0.01, k2 = 0, tangential = 0;
  double position_mm = 20, angle_deg = 0.8;
};

double Symmetric(SimRandom& rng) { return 2 * rng.Uniform() - 1; }

Intrinsics PerturbLens(const Intrinsics& k, const Perturbation& p, SimRandom& rng) {
  Intrinsics t = k;
  const double focal = Symmetric(rng) * p.focal_px;
  t.fx += focal;
  t.fy += focal + 0.2 * Symmetric(rng) * p.focal_px;
  t.cx += Symmetric(rng) * p.centre_px;
  t.cy += Symmetric(rng) * p.centre_px;
  t.k1 += Symmetric(rng) * p.k1;
  // Drawn only when asked for, so that older scenes keep their lenses.
  if (p.k2 > 0) t.k2 += Symmetric(rng) * p.k2;
  if (p.tangential > 0) {
    t.p1 += Symmetric(rng) * p.tangential;
    t.p2 += Symmetric(rng) * p.tangential;
  }
  return t;
}

Eigen::Vector3d RandomUnit(SimRandom& rng) {
  for (;;) {
    const Eigen::Vector3d v(Symmetric(rng), Symmetric(rng), Symmetric(rng));
    if (v.norm() > 0.1 && v.norm() <= 1) return v.normalized();
  }
}

Extrinsics PerturbMounting(const Extrinsics& e, const Perturbation& p, SimRandom& rng) {
  const Eigen::Vector3d centre = e.Centre() + RandomUnit(rng) * (rng.Uniform() * p.position_mm);
  const Eigen::AngleAxisd turn(rng.Uniform() * p.angle_deg * kPi / 180, RandomUnit(rng));
  Extrinsics t;
  t.rotation = (Eigen::Quaterniond(turn) * e.rotation).normalized();
  t.translation = -(t.rotation * centre);
  return t;
}

SceneCamera ReadCamera(Node node, const Intrinsics& lens, const Perturbation& p, SimRandom& rng,
                       const std::string& path) {
  SceneCamera cam;
  const Eigen::Vector3d position = node.Vector("position", {0, 2500, 3000});
  const Eigen::Vector3d aim = node.Vector("aim", {0, 1000, 0});
  const double roll = node.Number("roll_deg", 0) * kPi / 180;
  cam.nominal = node.Has("lens") ? ReadLens(node.Object("lens"), lens) : lens;
  cam.mounting = LookAt(position, aim, roll, path);
  cam.truth = PerturbLens(cam.nominal, p, rng);
  cam.pose = PerturbMounting(cam.mounting, p, rng);
  if (node.Has("true_lens")) cam.truth = ReadLens(node.Object("true_lens"), cam.nominal);
  if (node.Bool("exact_mounting", false)) cam.pose = cam.mounting;
  node.Finish();
  return cam;
}

void ReadCameraRing(Node node, const Intrinsics& lens, const Perturbation& p, SimRandom& rng,
                    std::vector<SceneCamera>* cameras, const std::string& path) {
  const int count = node.Integer("count", 8, 1, kMaxCameras);
  const double radius = node.PositiveNumber("radius", 2800);
  const double height = node.Number("height", 2600);
  const double height_step = node.Number("height_step", 0);
  const double start = node.Number("start_deg", 0) * kPi / 180;
  const Eigen::Vector3d aim = node.Vector("aim", {0, 1000, 0});
  node.Finish();
  for (int i = 0; i < count; ++i) {
    const double angle = start + 2 * kPi * i / count;
    const double h = height + ((i % 2) ? height_step : 0);
    const Eigen::Vector3d position(radius * std::cos(angle), h, radius * std::sin(angle));
    SceneCamera cam;
    cam.nominal = lens;
    cam.mounting = LookAt(position, aim, 0, Indexed(path, i));
    cam.truth = PerturbLens(lens, p, rng);
    cam.pose = PerturbMounting(cam.mounting, p, rng);
    cameras->push_back(cam);
  }
}

void ReadScene(const json& root, Scene* scene) {
  Node top(root, "");
  scene->name = top.String("name", scene->name);
  top.IfObject("room", [&](Node& room) {
    scene->room_size = room.Vector("size", scene->room_size);
  });
  top.IfObject("volume", [&](Node& volume) {
    scene->volume_centre = volume.Vector("centre", scene->volume_centre);
    scene->volume_size = volume.Vector("size", scene->volume_size);
  });
  for (int i = 0; i < 3; ++i) {
    if (!(scene->room_size[i] > 0)) throw SceneError("room.size: every extent must be above 0");
    if (scene->volume_size[i] < 0) throw SceneError("volume.size: extents must not be negative");
  }
  scene->noise_px = top.Number("noise_px", scene->noise_px);
  if (scene->noise_px < 0) throw SceneError("noise_px: must not be negative");
  scene->dropout = top.Number("dropout", scene->dropout);
  if (scene->dropout < 0 || scene->dropout > 1) throw SceneError("dropout: must be from 0 to 1");
  scene->start_calibrated = top.Bool("start_calibrated", scene->start_calibrated);
  scene->exposure_us = top.PositiveNumber("exposure_us", scene->exposure_us);
  scene->temperature_c = top.Number("temperature_c", scene->temperature_c);
  scene->led_diameter_mm = top.PositiveNumber("led_diameter_mm", scene->led_diameter_mm);

  Intrinsics lens;
  if (top.Has("lens")) lens = ReadLens(top.Object("lens"), lens);
  Perturbation p;
  top.IfObject("lens_error", [&](Node& e) {
    p.focal_px = e.Number("focal_px", p.focal_px);
    p.centre_px = e.Number("centre_px", p.centre_px);
    p.k1 = e.Number("k1", p.k1);
    p.k2 = e.Number("k2", p.k2);
    p.tangential = e.Number("tangential", p.tangential);
  });
  top.IfObject("mount_error", [&](Node& e) {
    p.position_mm = e.Number("position_mm", p.position_mm);
    p.angle_deg = e.Number("angle_deg", p.angle_deg);
  });
  SimRandom rng(static_cast<uint64_t>(top.Integer("perturbation_seed", 7, 0, 1 << 30)));

  scene->cameras.clear();
  if (top.Has("cameras")) {
    const json& list = top.Array("cameras");
    for (size_t i = 0; i < list.size(); ++i) {
      const std::string at = Indexed("cameras", i);
      scene->cameras.push_back(ReadCamera(Node(list[i], at), lens, p, rng, at));
    }
  }
  if (top.Has("camera_rings")) {
    const json& list = top.Array("camera_rings");
    for (size_t i = 0; i < list.size(); ++i) {
      const std::string at = Indexed("camera_rings", i);
      ReadCameraRing(Node(list[i], at), lens, p, rng, &scene->cameras, at);
    }
  }
  if (scene->cameras.empty()) throw SceneError("cameras: the scene has no camera");
  if (scene->cameras.size() > kMaxCameras) {
    throw SceneError("cameras: more than " + std::to_string(kMaxCameras) + " cameras");
  }

  top.IfObject("wand", [&](Node& wand) {
    scene->wand.leds = ReadLeds(wand.Array("leds"), "wand.leds");
    const std::string motion = wand.String("motion", "wave");
    if (motion != "wave" && motion != "rest") throw SceneError("wand.motion: expected wave or rest");
    scene->wand.waving = motion == "wave";
    scene->wand.rest_position = wand.Vector("position", scene->wand.rest_position);
    scene->wand.rest_direction = wand.Vector("direction", scene->wand.rest_direction);
    if (scene->wand.rest_direction.norm() < 1e-9) throw SceneError("wand.direction: zero vector");
    scene->wand.rest_direction.normalize();
  });
  scene->bodies.clear();
  if (top.Has("bodies")) {
    const json& list = top.Array("bodies");
    for (size_t i = 0; i < list.size(); ++i) {
      const std::string at = Indexed("bodies", i);
      Node node(list[i], at);
      SceneBody body;
      body.leds = ReadLeds(node.Array("leds"), at + ".leds");
      const std::string motion = node.String("motion", "move");
      if (motion != "move" && motion != "rest") throw SceneError(at + ".motion: expected move or rest");
      body.moving = motion == "move";
      body.rest.position = node.Vector("position", scene->volume_centre);
      body.rest.rotation = ReadRotation(node, "rotation");
      body.range = node.Vector("range", body.range);
      node.Finish();
      scene->bodies.push_back(body);
    }
  }
  top.IfObject("align", [&](Node& align) {
    scene->align = ReadLeds(align.Array("leds"), "align.leds");
    scene->align_pose.position = align.Vector("position", {0, 0, 0});
    scene->align_pose.rotation = Eigen::Quaterniond(
        Eigen::AngleAxisd(align.Number("yaw_deg", 0) * kPi / 180, Eigen::Vector3d::UnitY()));
  });
  scene->loose.clear();
  if (top.Has("loose")) scene->loose = ReadLeds(top.Array("loose"), "loose");
  if (top.Has("loose_fill")) {
    Node fill = top.Object("loose_fill");
    const int first = fill.Integer("first_id", 100, 0, 1 << 24);
    const int count = fill.Integer("count", 0, 0, 1 << 16);
    SimRandom place(static_cast<uint64_t>(fill.Integer("seed", 3, 0, 1 << 30)));
    fill.Finish();
    for (int i = 0; i < count; ++i) {
      Eigen::Vector3d p;
      for (int k = 0; k < 3; ++k) {
        p[k] = scene->volume_centre[k] + Symmetric(place) * 0.5 * scene->volume_size[k];
      }
      scene->loose.push_back({first + i, p});
    }
  }
  if (top.Has("effects")) scene->effects = ReadEffects(top.Object("effects"));
  top.Finish();
}

}  // namespace

int Scene::SlotOf(int led_id) const {
  const auto it = slot_of_.find(led_id);
  return it == slot_of_.end() ? -1 : it->second;
}

bool Scene::Index(std::string* why) {
  led_ids_.clear();
  slot_of_.clear();
  auto add = [&](const std::vector<SceneLed>& leds, const char* what) {
    for (const SceneLed& led : leds) {
      if (led.id < 0) {
        *why = std::string(what) + ": negative LED id " + std::to_string(led.id);
        return false;
      }
      if (!slot_of_.emplace(led.id, LedCount()).second) {
        *why = std::string(what) + ": LED id " + std::to_string(led.id) + " is used twice";
        return false;
      }
      led_ids_.push_back(led.id);
    }
    return true;
  };
  if (!add(wand.leds, "wand.leds")) return false;
  for (const SceneBody& body : bodies) {
    if (!add(body.leds, "bodies.leds")) return false;
  }
  return add(align, "align.leds") && add(loose, "loose");
}

bool ParseScene(const std::string& json_text, const std::string& source, Scene* scene,
                std::string* error) {
  // Every exception of the parser becomes a message: besides syntax errors it
  // throws out_of_range for numbers beyond the double range (1e400).
  json root;
  try {
    root = json::parse(json_text);
  } catch (const std::exception& e) {
    *error = source + ": not valid JSON: " + e.what();
    return false;
  }
  Scene parsed;
  try {
    ReadScene(root, &parsed);
  } catch (const std::exception& e) {
    *error = source + ": " + e.what();
    return false;
  }
  std::string why;
  if (!parsed.Index(&why)) {
    *error = source + ": " + why;
    return false;
  }
  *scene = std::move(parsed);
  return true;
}

bool ReadTextFile(const std::string& path, std::string* text, std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = path + ": " + std::strerror(errno);
    return false;
  }
  std::ostringstream buffer;
  buffer << in.rdbuf();
  if (in.bad()) {
    *error = path + ": read error";
    return false;
  }
  *text = buffer.str();
  return true;
}

bool LoadScene(const std::string& path, Scene* scene, std::string* error) {
  std::string text;
  if (!ReadTextFile(path, &text, error)) return false;
  return ParseScene(text, path, scene, error);
}

}  // namespace zord
