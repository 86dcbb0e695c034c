// What the user has picked in the view: markers (by click, in click order,
// and by box), rigid bodies and cameras, plus nine numbered sets that store
// and recall a selection by ids so that it survives changing frames. Also the
// pure parts of picking: the ray test for markers, the pick regions and the
// decoding of OpenGL selection hit records.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "zorsock/geometry.h"
#include "zorsock/zorsock.h"

// Names loaded for OpenGL selection: the manipulator rings use 11..14; the
// frame's records are numbered from these bases by their list index.
enum PickNames : uint32_t {
  kNameRingX = 11, kNameRingY = 12, kNameRingZ = 13, kNameRingFree = 14,
  kNameMarkerBase = 0x100000, kNameRigidBase = 0x200000, kNameCameraBase = 0x300000,
  kNameRangeSize = 0x100000,
};

struct PickRegion {
  double x = 0, y = 0;  // centre, pixels, y from the bottom
  double w = 8, h = 8;
  static PickRegion Around(int x, int y);
  // The box between the drag start and the pointer (each side at least 1).
  static PickRegion Box(int startX, int startY, int x, int y);
};

// Index of the marker seen (cond > 0) nearest to the eye among those whose
// squared distance from the ray is below radius^2; ties keep the earlier
// marker; -1 when none. Positions are millimetres times `scale`.
int PickMarker(const std::vector<ZORMarker>& markers, float scale, const Vec3& origin,
               const Vec3& direction, float radius);

// The innermost name of each hit record in an OpenGL selection buffer; a
// record running past `size` ends the list (an overflowing buffer reports
// hits = -1: everything that fits is used).
std::vector<uint32_t> DecodeHits(const uint32_t* buffer, size_t size, int hits);

class Selection {
 public:
  static constexpr int kSets = 9;

  bool ToggleMarker(int index);  // true when now selected
  bool MarkerSelected(int index) const;
  bool AddDragMarker(int index);
  bool ToggleRigid(int index);
  bool RigidSelected(int index) const;
  void ResizeCameras(size_t n);
  bool ToggleCamera(int index);
  bool CameraSelected(int index) const;
  bool AnyCamera() const;
  // Markers, box markers and rigid bodies (what a plain box drag replaces).
  void ClearLists();
  void ClearAll();  // the lists and the cameras
  bool Empty() const;

  // Marker indices picked by click or box, in order, without repeats.
  std::vector<int> AllMarkers() const;

  // Numbered sets, 1..9: an empty set stores the current selection (by ids),
  // a stored one is recalled into the current frame. Returns 1 stored,
  // 2 recalled, 0 nothing done.
  int UseSet(int n, const std::vector<ZORMarker>& markers, const std::vector<ZORRigid>& rigids,
             const std::vector<ZORCamera>& cameras);
  void ForgetSets();
  bool SetStored(int n) const;

  std::vector<int> markers;      // click order
  std::vector<int> dragMarkers;  // box-selected
  std::vector<int> rigids;
  std::vector<char> cameras;     // one flag per camera

 private:
  struct Stored {
    std::vector<int32_t> markerIds, rigidIds, cameraIds;
    bool Empty() const { return markerIds.empty() && rigidIds.empty() && cameraIds.empty(); }
  };
  std::array<Stored, kSets> sets_;
};
