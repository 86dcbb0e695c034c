#include "zord/room/sim_engine.h"

#include <cmath>
#include <iostream>

#include "zord/room/truth.h"

namespace zord {

bool SimOptions::Check(std::string* why) const {
  if (noise_px > 100 || std::isnan(noise_px)) {
    *why = "noise must be below 100 pixels";
    return false;
  }
  if (!truth_out.empty() && truth_out == state_file) {
    *why = "the truth file and the state file must differ";
    return false;
  }
  return true;
}

std::unique_ptr<Engine> CreateSimEngine(const SimOptions& options, std::string* error) {
  return SimEngine::Create(options, error);
}

std::unique_ptr<SimEngine> SimEngine::Create(const SimOptions& options, std::string* error) {
  if (!options.Check(error)) return nullptr;
  auto scene = std::make_unique<Scene>();
  const bool loaded = options.scene_file.empty()
                          ? ParseScene(DefaultSceneJson(), "built-in scene", scene.get(), error)
                          : LoadScene(options.scene_file, scene.get(), error);
  if (!loaded) return nullptr;
  std::unique_ptr<SimEngine> engine(new SimEngine(std::move(scene), options));
  if (!engine->Start(error)) return nullptr;
  return engine;
}

SimEngine::SimEngine(std::unique_ptr<Scene> scene, const SimOptions& options)
    : options_(options),
      scene_(std::move(scene)),
      operator_(*scene_),
      detector_(*scene_, options.seed, options.noise_px >= 0 ? options.noise_px : scene_->noise_px,
                scene_->dropout),
      recon_(scene_->LedCount()),
      last_seen_(scene_->LedCount(), Eigen::Vector3d::Zero()),
      seen_before_(scene_->LedCount(), 0),
      last_rigid_(kMaxTrackerId + 1) {
  world_.reserve(scene_->LedCount());
  for (const SceneCamera& cam : scene_->cameras) nominal_.push_back(cam.nominal);
  operator_.SetFollow(options.follow);
}

CalibrationState SimEngine::InitialCalibration() const {
  CalibrationState state;
  state.cameras.resize(scene_->cameras.size());
  if (scene_->start_calibrated) {
    for (size_t i = 0; i < state.cameras.size(); ++i) {
      state.cameras[i] = {true, scene_->cameras[i].truth, scene_->cameras[i].pose};
    }
  }
  return state;
}

bool SimEngine::Start(std::string* error) {
  CalibrationState initial = InitialCalibration();
  if (!options_.state_file.empty()) RemoveLeftoverTemporaries(options_.state_file);
  if (!options_.calibration_file.empty()) {
    if (LoadCalibration(options_.calibration_file, scene_->cameras.size(), &initial, error) !=
        LoadStatus::kLoaded) {
      return false;
    }
  } else if (!options_.state_file.empty()) {
    std::string why;
    switch (LoadCalibration(options_.state_file, scene_->cameras.size(), &initial, &why)) {
      case LoadStatus::kLoaded:
      case LoadStatus::kMissing:
        break;
      case LoadStatus::kCorrupt:
        // Keep the file as it is for inspection; it is replaced only by a save.
        std::cerr << "zord: error: " << why << "; starting uncalibrated\n";
        initial = CalibrationState();
        initial.cameras.resize(scene_->cameras.size());
        break;
    }
  }
  if (!options_.truth_out.empty()) {
    const std::string truth = TruthJson(*scene_, operator_).dump(2) + "\n";
    if (!WriteFileAtomically(options_.truth_out, truth, error)) return false;
  }
  std::lock_guard lock(mutex_);
  working_ = saved_ = current_ = initial;
  RebuildRig();
  return true;
}

void SimEngine::RebuildRig() {
  auto rig = std::make_shared<Rig>();
  for (size_t i = 0; i < working_.cameras.size(); ++i) {
    const CameraCalibration& cal = working_.cameras[i];
    const SceneCamera& cam = scene_->cameras[i];
    // Uncalibrated cameras are shown where the scene says they were mounted.
    const Extrinsics& pose = cal.calibrated ? cal.pose : cam.mounting;
    rig->cameras.push_back(MakeCalibratedCamera(cal.calibrated, cal.calibrated ? cal.lens : cam.nominal, pose));
    RigidPlacement reported;
    ReportedPose(pose, &reported.position, &reported.rotation);
    rig->reported.push_back(reported);
  }
  rig->global = working_.global;
  rig_ = std::move(rig);
}

void SimEngine::Step(int32_t frame_number, double dt, int64_t time_us, FrameData& out) {
  out.number = frame_number;
  out.time_us = time_us;
  out.markers.clear();
  out.rigids.clear();
  out.images.clear();
  out.detectors.clear();

  std::shared_ptr<const TrackerPlan> plan;
  std::shared_ptr<const Rig> rig;
  std::shared_ptr<const RawRecording> replay;
  const zorsock::wire::RawFrame* replayed = nullptr;
  int64_t replay_index = -1;
  bool capturing;
  Eigen::Vector3d person;
  std::vector<Extrinsics> moved;  // the cameras' poses after a bump
  {
    std::lock_guard lock(mutex_);
    if (plan_version_ != trackers_.version()) {
      plan_ = std::make_shared<const TrackerPlan>(
          trackers_.Plan([this](int led) { return scene_->SlotOf(led); }));
      plan_version_ = trackers_.version();
    }
    const bool align = activity_ >= ZOR_ACTIVITY_ALIGN && activity_ <= ZOR_ACTIVITY_ALIGN + 3;
    operator_.SetCues({capturing_, align ? activity_ - ZOR_ACTIVITY_ALIGN : -1});
    operator_.Advance(dt);
    operator_.LedWorld(&world_);
    lit_ = operator_.lit();
    person = OperatorPosition(operator_.WandPose().position, operator_.WandDirection());
    if (cameras_moved_ != operator_.CamerasMoved()) {
      cameras_moved_ = operator_.CamerasMoved();
      moved = operator_.CameraPoses();
    }
    plan = plan_;
    rig = rig_;
    capturing = capturing_;
    last_frame_ = frame_number;
    replay = replay_;  // keeps the recorded frame alive outside the lock
    replayed = NextReplayFrame(&replay_index);
  }

  for (size_t c = 0; c < moved.size(); ++c) detector_.Move(static_cast<int>(c), moved[c]);
  if (replayed) {
    detector_.Load(replayed->images, *scene_);
  } else {
    detector_.Run(world_, lit_, &person);
  }
  Reconstruct(*plan, *rig);
  if (options_.camera_watch) WatchCameras(*plan, rig, dt);
  Report(*plan, *rig, frame_number, out);
  if (out.want_images) {
    if (replayed) {
      out.images = replayed->images;
      for (ZORImage& image : out.images) image.frame = frame_number;
    } else {
      ReportImages(frame_number, out);
    }
  }
  out.wand_capture = capturing && CollectCapture(*plan, frame_number, replay_index);
}

const zorsock::wire::RawFrame* SimEngine::NextReplayFrame(int64_t* index) {
  if (!replay_) return nullptr;
  *index = static_cast<int64_t>(replay_next_);
  const zorsock::wire::RawFrame* frame = &replay_->frames[replay_next_];
  replay_next_ = (replay_next_ + 1) % replay_->frames.size();
  return frame;
}

void SimEngine::Reconstruct(const TrackerPlan& plan, const Rig& rig) {
  for (int slot : plan.wanted_slots) {
    Triangulated& t = recon_[slot];
    const Eigen::Vector3d& last = last_seen_[slot];
    if (Triangulate(rig.cameras, detector_.detections().data() + detector_.First(slot),
                          detector_.Count(slot), seen_before_[slot] ? &last : nullptr, &t)) {
      seen_before_[slot] = 1;
      last_seen_[slot] = t.position;
    }
  }
}

void SimEngine::Report(const TrackerPlan& plan, const Rig& rig, int32_t frame, FrameData& out) {
  const RigidPlacement& g = rig.global;
  for (const TrackerPlan::Marker& m : plan.markers) {
    ZORMarker marker{m.wire_id, frame, 0, 0, 0, 0, 0};
    Eigen::Vector3d p = Eigen::Vector3d::Zero();
    if (m.slot >= 0) {
      const Triangulated& t = recon_[m.slot];
      p = last_seen_[m.slot];
      marker.cond = t.cond;
      marker.flag = t.cameras;
    }
    const Eigen::Vector3d w = g.Apply(p);
    marker.x = static_cast<float>(w.x());
    marker.y = static_cast<float>(w.y());
    marker.z = static_cast<float>(w.z());
    out.markers.push_back(marker);
  }

  if (fit_local_.size() < static_cast<size_t>(plan.max_rigid_points)) {
    fit_local_.resize(plan.max_rigid_points);
    fit_world_.resize(plan.max_rigid_points);
  }
  for (const TrackerPlan::Rigid& r : plan.rigids) {
    int used = 0;
    for (int i = r.first; i < r.first + r.count; ++i) {
      const TrackerPlan::RigidPoint& point = plan.rigid_points[i];
      if (recon_[point.slot].cond <= 0) continue;
      fit_local_[used] = point.local;
      fit_world_[used] = recon_[point.slot].position;
      ++used;
    }
    ZORRigid rigid{r.id, frame, {}, 0, 0};
    RigidFit fit;
    if (FitRigid(fit_local_.data(), fit_world_.data(), used, &fit)) {
      last_rigid_[r.id] = {fit.position, fit.rotation};
      rigid.cond = RigidCond(fit.rms_mm);
      rigid.flag = static_cast<uint32_t>(used);
    }
    ToPose7(g.Then(last_rigid_[r.id]), rigid.pose);
    out.rigids.push_back(rigid);
  }

  if (out.want_detectors) {
    const std::vector<int32_t>& counts = detector_.per_camera();
    for (size_t c = 0; c < rig.cameras.size(); ++c) {
      const CalibratedCamera& cam = rig.cameras[c];
      const ZORDetector d{static_cast<int32_t>(c),
                          frame,
                          counts[c],
                          cam.lens.width,
                          cam.lens.height,
                          static_cast<float>(cam.lens.fx),
                          static_cast<float>(scene_->exposure_us),
                          static_cast<float>(scene_->temperature_c + 0.1 * static_cast<double>(c % 7)),
                          cam.calibrated ? 0 : 1,
                          0};
      out.detectors.push_back(d);
    }
  }
}

void SimEngine::ReportImages(int32_t frame, FrameData& out) const {
  for (const Detection& d : detector_.detections()) {
    const SceneCamera& cam = scene_->cameras[d.camera];
    out.images.push_back({d.camera, frame, scene_->LedId(d.slot), d.u, d.v,
                          BlobSize(scene_->led_diameter_mm, cam.truth.fx, d.depth),
                          BlobIntensity(d.depth), 0});
  }
}

bool SimEngine::CollectCapture(const TrackerPlan& plan, int32_t frame, int64_t replayed) {
  capture_scratch_.clear();
  for (int slot : plan.calibration_slots) {
    const Detection* d = detector_.detections().data() + detector_.First(slot);
    for (int i = 0; i < detector_.Count(slot); ++i) {
      capture_scratch_.push_back({d[i].camera, scene_->LedId(slot), d[i].u, d[i].v});
    }
  }
  // The solver's view of the frame, worked out before taking the lock.
  bool countable = false;
  if (options_.capture_tally) {
    tally_wand_.ids.clear();
    for (int slot : plan.calibration_slots) tally_wand_.ids.push_back(scene_->LedId(slot));
    tally_frame_.number = frame;
    tally_frame_.observations.clear();
    for (const CalibrationObservation& o : capture_scratch_)
      tally_frame_.observations.push_back({o.camera, o.led, o.u, o.v});
    countable = WandSampleFrame(nominal_, tally_frame_, tally_wand_, &tally_samples_);
  }
  std::lock_guard lock(mutex_);
  if (!capturing_) return false;
  if (replayed >= 0 && replay_ && static_cast<size_t>(replayed) < replay_taken_.size()) {
    // Each recorded frame once, and only those the recording captured.
    if (replay_taken_[replayed]) return true;
    if (replay_marks_capture_ &&
        !(replay_->frames[replayed].flags & zorsock::wire::kRawFrameCapturing))
      return true;
    replay_taken_[replayed] = 1;
  }
  if (capture_->observations.size() + capture_scratch_.size() > kMaxCaptureObservations) {
    capturing_ = false;
    messages_.push_back("capture stopped: the capture buffer is full");
    return false;
  }
  capture_->Append(frame, capture_scratch_);
  if (countable) {
    if (capture_->tally.cameras() != static_cast<int>(scene_->cameras.size()))
      capture_->tally.Reset(static_cast<int>(scene_->cameras.size()));
    capture_->tally.Add(tally_samples_, nominal_);
  }
  return true;
}

std::vector<ZORCamera> SimEngine::Cameras() const {
  std::shared_ptr<const Rig> rig;
  {
    std::lock_guard lock(mutex_);
    rig = rig_;
  }
  std::vector<ZORCamera> cameras;
  for (size_t c = 0; c < rig->cameras.size(); ++c) {
    ZORCamera cam{static_cast<int32_t>(c), {}, rig->cameras[c].calibrated ? 1.0f : -1.0f, 0};
    ToPose7(rig->global.Then(rig->reported[c]), cam.pose);
    cameras.push_back(cam);
  }
  return cameras;
}

}  // namespace zord
