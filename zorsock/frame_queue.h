// The library's queue of received frames and how it presents them to the
// caller one frame at a time: the head is the oldest queued frame that still
// has records the caller has not taken; each kind of record is handed out once,
// and the head leaves the queue when all its kinds have been taken.
//
// Callers assemble a frame from several calls (which kinds does the head have,
// what is the newest number, take each kind). For their answers to agree, the
// caller sees a snapshot: frames received meanwhile become visible only when a
// new round of questions starts, that is when a question comes that is not
// later than the previous one in the order markers, rigids, images,
// detectors, frame number; or when the caller takes from an empty snapshot.
// Frames arrive on the I/O thread and are taken on the caller's thread, so
// every method locks.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>

#include "zorsock/wire.h"

namespace zorsock {

enum class Kind { kMarkers = 0, kRigids = 1, kImages = 2, kDetectors = 3 };

class FrameQueue {
 public:
  // Bounded in frames and in bytes of records: a fast server streaming to a
  // caller that stopped polling costs at most `max_bytes`. At least two
  // frames: the head the caller is taking and one arriving.
  explicit FrameQueue(size_t capacity = 2048, size_t max_bytes = kDefaultMaxBytes);
  static constexpr size_t kDefaultMaxBytes = 256u << 20;

  // Queues a received frame. Every frame counts for newest(); frames without
  // records are not queued. A full queue drops its oldest frame (never the
  // head the caller has started taking). A frame
  // numbered at or below the newest one means the server restarted its clock:
  // frames of the old numbering still queued are discarded.
  void Push(wire::Frame frame);

  // Whether the head frame has records of this kind not yet taken.
  bool HeadHas(Kind kind);

  // Copies up to `capacity` of the head's records of that kind into `out`
  // and marks the kind taken; 0 when the head has none left of that kind.
  int Take(Kind kind, void* out, int capacity);

  // The newest frame number presented (frames without records count).
  int32_t newest();
  int64_t dropped() const;
  // Server clock of the head frame, or of the newest when nothing is queued.
  int64_t head_time_us() const;
  size_t size() const;
  void Clear();

 private:
  // With mu_ held.
  void PopIfDone();
  bool DropOldest();           // false when only the started head is left
  void Discard(const wire::Frame& frame) { bytes_ -= RecordBytes(frame); }
  static size_t RecordBytes(const wire::Frame& frame);
  void Observe(int position);  // a question at this position of the round
  void Present();              // received frames become visible

  struct Entry {
    wire::Frame frame;
    unsigned taken = 0;  // bit per Kind
  };

  const size_t capacity_;
  const size_t max_bytes_;
  size_t bytes_ = 0;                // records of every queued frame
  mutable std::mutex mu_;
  std::deque<Entry> frames_;        // visible to the caller
  std::deque<wire::Frame> incoming_;  // received since the last round began
  bool restarted_ = false;          // the numbering restarted since then
  int last_position_ = 99;          // position of the previous question
  int32_t newest_ = 0;              // newest number presented
  int64_t newest_time_us_ = 0;
  int32_t received_ = 0;            // newest number received
  int64_t received_time_us_ = 0;
  int64_t dropped_ = 0;
};

}  // namespace zorsock
