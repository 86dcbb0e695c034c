// CalibSession: the server session opened for calibration. Through it the
// client defines the wand, starts and stops the capture of wand data, asks
// the server to calibrate at a chosen quality, reads the server's pass-by-pass
// messages and saves the result with any pending alignment. It also records
// the raw 2D data of a capture into a local file when asked to.
//
// Everything runs on the GUI thread; the window calls these operations from
// its slots and its frame pump and shows what they leave in the members.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "calib/stillness_detector.h"
#include "link/zortk.h"

class CalibSession : public ZOR {
 public:
  // Fixed tracker ids of the calibration.
  static constexpr int32_t kRigidTrackerId = 0;  // rigid body / general markers
  static constexpr int32_t kCalibTrackerId = 1;  // the wand as the server calibrates with it
  static constexpr int32_t kWandTrackerId = 2;   // the wand as read from its file(s)
  static constexpr int32_t kPointTrackerId = 3;  // the alignment object
  static constexpr int kRigidMarkers = 128;
  static constexpr int kMessageBytes = 1024;

  // Server parameters of a calibration session.
  static constexpr int kCalibFlags = 0x0C00;
  static constexpr int kSessionSetting = 0x0202;
  static constexpr int kLoadExisting = 0x0C11;
  static constexpr int kCalibStream = 0x02A2;
  static constexpr int kSecondStream = 0x0201;
  static constexpr int kOn = 0x0102;
  static constexpr int kCaptureStart = 0x0C21;
  static constexpr int kCaptureStop = 0x0C22;
  static constexpr int kCaptureReset = 0x0C20;
  static constexpr int kCalibrate = 0x0C13;
  static constexpr int kMessage = 0x0C51;
  static constexpr int kGlobalTransform = 0xC200;
  static constexpr int kSave = 0x0C12;

  CalibSession(int markerCapacity, float scale);

  // The window's connect goes through here: the session always opens for
  // calibration.
  int32_t Init(const ConnectionSettings& settings, bool startStreaming, bool setFrequency) override {
    return open(settings, startStreaming, setFrequency);
  }
  // Closing ends capture and raw recording; the server drops the captured
  // data with the session.
  void Done() override;

  // Returns zorInit's result (>= 0), its negative code, or -1 when the server
  // refused the set-up.
  int32_t open(const ConnectionSettings& settings, bool secondStream, bool applySetting);
  void toggleCapture();
  void resetCapture();
  void calibrate(int32_t quality);
  // Reads one message from the server: 1 when one was read, else 0.
  int readMessage();
  // What readMessage does with a message once read.
  void applyMessage(const std::string& message);
  // True when it saved (refused silently while capturing or calibrating).
  bool save();
  // Puts the server back on a blank calibration (the capture stays); false
  // when not connected or busy.
  bool resetCalibration();
  void applyPendingAlignment();
  // Makes tracker 1 a copy of the wand; loads defaultWandFile into tracker 2
  // when there is no wand yet. False when there is still no wand.
  bool prepareCalibrationTracker(const std::string& defaultWandFile);
  // Replaces the wand by the first file, merges the others into it and
  // prepares the calibration tracker. Nothing happens for an empty list.
  void setWandFiles(const std::vector<std::string>& files);
  void addWandFile(const std::string& fileName);
  // The wand tracker was replaced: the calibration tracker is made anew.
  void wandChanged();
  // Replaces the tracker with that id by `tracker` (sent when connected).
  Tracker* replaceTracker(std::unique_ptr<Tracker> tracker);

  // Raw recording of the capture. openRaw names a free capture file, opens
  // the recording into it (request's mode and file are set) and returns 1, 0
  // when not asked for or already open (or no free name), or the library's
  // negative code. drainRaw moves what arrived into the file and closes the
  // recording when the stream failed; closeRaw ends it.
  int32_t openRaw(ConnectionSettings& request);
  void drainRaw();
  void closeRaw();

  // Alignment (calib_align.cpp). The pending alignment is `pose`: applied to
  // everything shown while aligning and written to the server by save().
  //
  // Sets the kind and what goes with it: the cached frame is dropped, the
  // stillness reference forgotten, and for kinds 2 and 3 the index list is
  // 0, 1, 2 again. Returns whether the kind's object is there (tracker 3 for
  // kind 1, the wand for kind 3; kind 2 needs none).
  bool setAlignKind(int32_t kind);
  // The tracker a kind aligns with, or -1.
  static int32_t alignObjectTracker(int32_t kind);
  bool alignObjectPresent() const;
  // The Align toggle: 1 when an alignment started, -1 when the running one
  // ended without saving, 0 when nothing happened (not connected, busy).
  int startAlignment();
  // The pending pose from the current frame (raw, before it is shown
  // aligned): true when it was computed.
  bool computeAlignment();
  // The three-point construction: p0 becomes the origin, p1 lies on +X and
  // p2 on the +Z side in the plane Y = 0; `flip` turns it upside down. False
  // (pose unchanged) when none of the three points is valid.
  bool alignFromPoints(const ZORMarker& p0, const ZORMarker& p1, const ZORMarker& p2, bool flip);
  // The construction, flipped when the cameras' vote puts them below the floor.
  bool alignWithCheck(const ZORMarker& p0, const ZORMarker& p1, const ZORMarker& p2);
  // Turns the last construction upside down; false when there was none.
  bool flipAlignment();
  // Empties the captured wand points.
  void clearAlignPoints();
  // The stillness detection on this frame's one valid rigid: appends its
  // position (in unaligned coordinates) to the wand points when it rests.
  StillnessDetector::Step detectStillness();
  int alignPointCount() const { return static_cast<int>(alignWandPoints.size()); }
  // Ends capture-time trackers' reports while aligning so that the object
  // is the one rigid in view; true restores them.
  void showAlignObjectOnly(bool on);

  // Quality value for a row of the quality chooser.
  static int32_t qualityForRow(int row);

  int32_t alignKind = 3;
  int32_t loadExisting = 0;
  int32_t recordRaw = 0;
  int32_t rawOpen = 0;
  std::vector<ZORMarker> alignPoints;      // working list of a computation
  std::vector<ZORMarker> alignWandPoints;  // captured at rest, unaligned coordinates
  // Which entries of the working list are the origin, the X point and the
  // plane point (kind 2: filled by picking markers).
  std::vector<int32_t> alignIndices = {0, 1, 2};
  bool autoSnapshot = true;  // stillness takes points by itself (kind 3)
  StillnessDetector stillness;
  bool capturing = false;
  bool captured = false;
  bool calibrating = false;
  bool calibrated = false;
  bool aligning = false;
  bool aligned = false;
  bool anySaved = false;
  bool calibrationSaved = false;
  int32_t quality = 0;
  int32_t capturedFrames = 0;
  int32_t captureStart = 0;
  int32_t lastCaptureFrame = 0;
  int32_t pass = 0;
  int32_t messageReady = 0;
  float passError = -1.0f;
  std::string messageDetail;
  int32_t wandAdded = 0;
  std::string rawFile;  // the file of the last recording opened

 private:
  // Forgets the resting place, passing over the frames already received.
  void restartStillness();

  ZORMarker lastAligned_[3] = {};  // the points of the last construction
  bool lastFlip_ = false;
  bool haveAligned_ = false;
  bool flipUp_ = false;  // the operator asked for the other way up
};
