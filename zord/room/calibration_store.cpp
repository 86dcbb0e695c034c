#include "zord/room/calibration_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "zord/room/scene.h"

namespace zord {
namespace {

using nlohmann::json;
constexpr const char* kFormat = "zord-calibration";
constexpr int kVersion = 1;

struct FormatError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

double Number(const json& object, const char* key, const std::string& where) {
  if (!object.contains(key) || !object.at(key).is_number() ||
      !std::isfinite(object.at(key).get<double>())) {
    throw FormatError(where + "." + key + ": expected a finite number");
  }
  return object.at(key).get<double>();
}

std::vector<double> Numbers(const json& object, const char* key, size_t count,
                            const std::string& where) {
  const std::string at = where.empty() ? key : where + "." + key;
  if (!object.contains(key) || !object.at(key).is_array() || object.at(key).size() != count) {
    throw FormatError(at + ": expected " + std::to_string(count) + " numbers");
  }
  std::vector<double> out;
  for (const json& v : object.at(key)) {
    if (!v.is_number() || !std::isfinite(v.get<double>())) throw FormatError(at + ": expected numbers");
    out.push_back(v.get<double>());
  }
  return out;
}

Eigen::Quaterniond Rotation(const std::vector<double>& q, const std::string& where) {
  const auto r = UnitQuaternion(q[0], q[1], q[2], q[3]);
  if (!r) throw FormatError(where + ": zero quaternion");
  return *r;
}

// Image sizes are whole pixels; checked before the cast, which is undefined
// for doubles outside int's range.
int Pixels(const json& object, const char* key, const std::string& where) {
  const double v = Number(object, key, where);
  if (!(v >= 1 && v <= 65536) || v != std::floor(v)) {
    throw FormatError(where + "." + key + ": expected a whole number of pixels from 1 to 65536");
  }
  return static_cast<int>(v);
}

Intrinsics LensFrom(const json& j, const std::string& where) {
  if (!j.is_object()) throw FormatError(where + ": expected an object");
  Intrinsics k;
  k.fx = Number(j, "fx", where);
  k.fy = Number(j, "fy", where);
  k.cx = Number(j, "cx", where);
  k.cy = Number(j, "cy", where);
  k.k1 = Number(j, "k1", where);
  // Files written before the lens had more than one term lack these.
  for (auto [key, value] : {std::pair{"k2", &k.k2}, {"p1", &k.p1}, {"p2", &k.p2}})
    if (j.contains(key)) *value = Number(j, key, where);
  k.width = Pixels(j, "width", where);
  k.height = Pixels(j, "height", where);
  if (!(k.fx > 0 && k.fy > 0)) throw FormatError(where + ": focal lengths must be above 0");
  return k;
}

CalibrationState StateFrom(const json& root, size_t camera_count) {
  if (!root.is_object()) throw FormatError("expected a JSON object");
  if (root.value("format", "") != kFormat) throw FormatError("format: expected \"" + std::string(kFormat) + "\"");
  if (!root.contains("version") || root.at("version") != kVersion) {
    throw FormatError("version: expected " + std::to_string(kVersion));
  }
  CalibrationState state;
  state.cameras.resize(camera_count);
  const std::vector<double> g = Numbers(root, "global_transform", 7, "");
  state.global.position = Eigen::Vector3d(g[0], g[1], g[2]);
  state.global.rotation = Rotation({g[3], g[4], g[5], g[6]}, "global_transform");
  if (!root.contains("cameras") || !root.at("cameras").is_array()) {
    throw FormatError("cameras: expected an array");
  }
  const json& cameras = root.at("cameras");
  for (size_t i = 0; i < cameras.size(); ++i) {
    const std::string where = "cameras[" + std::to_string(i) + "]";
    const json& c = cameras[i];
    if (!c.is_object() || !c.contains("id") || !c.at("id").is_number_integer()) {
      throw FormatError(where + ".id: expected an integer");
    }
    const int64_t id = c.at("id").get<int64_t>();
    if (id < 0 || id >= static_cast<int64_t>(camera_count)) {
      throw FormatError(where + ".id: camera " + std::to_string(id) + " is not in the scene (" +
                        std::to_string(camera_count) + " cameras)");
    }
    if (!c.contains("calibrated") || !c.at("calibrated").is_boolean()) {
      throw FormatError(where + ".calibrated: expected true or false");
    }
    CameraCalibration& cam = state.cameras[id];
    cam.calibrated = c.at("calibrated").get<bool>();
    if (!cam.calibrated) continue;
    if (!c.contains("lens")) throw FormatError(where + ".lens: missing");
    cam.lens = LensFrom(c.at("lens"), where + ".lens");
    if (!c.contains("world_to_camera") || !c.at("world_to_camera").is_object()) {
      throw FormatError(where + ".world_to_camera: expected an object");
    }
    const json& pose = c.at("world_to_camera");
    const std::string pose_at = where + ".world_to_camera";
    cam.pose.rotation = Rotation(Numbers(pose, "rotation", 4, pose_at), pose_at + ".rotation");
    const std::vector<double> t = Numbers(pose, "translation", 3, pose_at);
    cam.pose.translation = Eigen::Vector3d(t[0], t[1], t[2]);
  }
  return state;
}

bool Fail(std::string* error, const std::string& what) {
  *error = what + ": " + std::strerror(errno);
  return false;
}

}  // namespace

json LensToJson(const Intrinsics& k) {
  return {{"fx", k.fx}, {"fy", k.fy}, {"cx", k.cx}, {"cy", k.cy},
          {"k1", k.k1}, {"k2", k.k2}, {"p1", k.p1}, {"p2", k.p2},
          {"width", k.width}, {"height", k.height}};
}

json CalibrationToJson(const CalibrationState& state) {
  const RigidPlacement& g = state.global;
  json cameras = json::array();
  for (size_t id = 0; id < state.cameras.size(); ++id) {
    const CameraCalibration& cam = state.cameras[id];
    json c = {{"id", id}, {"calibrated", cam.calibrated}};
    if (cam.calibrated) {
      const Eigen::Quaterniond& q = cam.pose.rotation;
      const Eigen::Vector3d& t = cam.pose.translation;
      c["lens"] = LensToJson(cam.lens);
      c["world_to_camera"] = {{"rotation", {q.w(), q.x(), q.y(), q.z()}},
                              {"translation", {t.x(), t.y(), t.z()}}};
    }
    cameras.push_back(c);
  }
  return {{"format", kFormat},
          {"version", kVersion},
          {"global_transform",
           {g.position.x(), g.position.y(), g.position.z(), g.rotation.w(), g.rotation.x(),
            g.rotation.y(), g.rotation.z()}},
          {"cameras", cameras}};
}

LoadStatus LoadCalibration(const std::string& path, size_t camera_count, CalibrationState* state,
                           std::string* error) {
  if (!std::filesystem::exists(path)) {
    *error = path + ": no such file";
    return LoadStatus::kMissing;
  }
  std::string text;
  if (!ReadTextFile(path, &text, error)) return LoadStatus::kCorrupt;
  if (!ParseCalibration(text, camera_count, state, error)) {
    *error = path + ": " + *error;
    return LoadStatus::kCorrupt;
  }
  return LoadStatus::kLoaded;
}

bool ParseCalibration(const std::string& text, size_t camera_count, CalibrationState* state,
                      std::string* error) {
  try {
    *state = StateFrom(json::parse(text), camera_count);
    return true;
  } catch (const FormatError& e) {
    *error = e.what();
  } catch (const std::exception& e) {  // the parser's: syntax, numbers beyond the double range
    *error = std::string("not a valid state file: ") + e.what();
  }
  return false;
}

bool SaveCalibration(const std::string& path, const CalibrationState& state, std::string* error) {
  return WriteFileAtomically(path, CalibrationToJson(state).dump(2) + "\n", error);
}

void RemoveLeftoverTemporaries(const std::string& path) {
  const std::filesystem::path target(path);
  const std::filesystem::path folder =
      target.has_parent_path() ? target.parent_path() : std::filesystem::path(".");
  const std::string prefix = "." + target.filename().string() + ".";
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ec)) {
    const std::string name = entry.path().filename().string();
    if (name.size() == prefix.size() + 6 && name.compare(0, prefix.size(), prefix) == 0 &&
        entry.is_regular_file(ec))
      std::filesystem::remove(entry.path(), ec);
  }
}

bool WriteFileAtomically(const std::string& path, const std::string& contents, std::string* error) {
  const std::filesystem::path target(path);
  const std::filesystem::path folder =
      target.has_parent_path() ? target.parent_path() : std::filesystem::path(".");
  std::string hidden = ".";  // built piecewise: GCC 12 warns falsely on "." + string
  hidden += target.filename().string();
  hidden += ".XXXXXX";
  std::string temp = (folder / hidden).string();
  // The contents go first into a file without a name: a process killed while
  // writing leaves nothing behind. It gets its temporary name only when whole,
  // just before it takes the target's. File systems without unnamed files get
  // a named temporary from the start.
  int fd = open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0644);
  const bool unnamed = fd >= 0;
  if (!unnamed) {
    fd = mkstemp(temp.data());
    if (fd < 0) return Fail(error, temp);
    fchmod(fd, 0644);  // mkstemp makes it private; the file is not secret
  }
  auto give_up = [&](const std::string& what) {
    Fail(error, what);
    close(fd);
    if (!unnamed) unlink(temp.c_str());
    return false;
  };
  size_t written = 0;
  while (written < contents.size()) {
    const ssize_t n = write(fd, contents.data() + written, contents.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return give_up(temp);
    written += static_cast<size_t>(n);
  }
  if (fsync(fd) != 0) return give_up(temp);
  if (unnamed) {
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    for (int attempt = 0;; ++attempt) {  // a free temporary name, as mkstemp would pick
      temp = (folder / hidden).string();
      temp.replace(temp.size() - 6, 6, std::to_string(100000 + (getpid() + attempt * 7919) % 900000));
      if (linkat(AT_FDCWD, self.c_str(), AT_FDCWD, temp.c_str(), AT_SYMLINK_FOLLOW) == 0) break;
      if (errno != EEXIST || attempt > 100) return give_up(temp);
    }
  }
  close(fd);
  if (rename(temp.c_str(), path.c_str()) != 0) {
    Fail(error, path);
    unlink(temp.c_str());
    return false;
  }
  const int dir = open(folder.c_str(), O_RDONLY | O_DIRECTORY);
  if (dir >= 0) {
    fsync(dir);
    close(dir);
  }
  return true;
}

}  // namespace zord
