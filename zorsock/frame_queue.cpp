#include "zorsock/frame_queue.h"

#include <algorithm>

namespace zorsock {

namespace {

unsigned Bit(Kind kind) { return 1u << static_cast<int>(kind); }

// Records of one kind in a frame, as raw bytes.
struct RecordSpan {
  const void* data;
  size_t count;
  size_t size;
};

RecordSpan Records(const wire::Frame& f, Kind kind) {
  switch (kind) {
    case Kind::kMarkers: return {f.markers.data(), f.markers.size(), sizeof(ZORMarker)};
    case Kind::kRigids: return {f.rigids.data(), f.rigids.size(), sizeof(ZORRigid)};
    case Kind::kImages: return {f.images.data(), f.images.size(), sizeof(ZORImage)};
    case Kind::kDetectors:
      return {f.detectors.data(), f.detectors.size(), sizeof(ZORDetector)};
  }
  return {nullptr, 0, 0};
}

unsigned KindsPresent(const wire::Frame& f) {
  unsigned mask = 0;
  for (Kind k : {Kind::kMarkers, Kind::kRigids, Kind::kImages, Kind::kDetectors}) {
    if (Records(f, k).count > 0) mask |= Bit(k);
  }
  return mask;
}

}  // namespace

FrameQueue::FrameQueue(size_t capacity, size_t max_bytes)
    : capacity_(std::max<size_t>(capacity, 2)), max_bytes_(max_bytes) {}

size_t FrameQueue::RecordBytes(const wire::Frame& f) {
  size_t bytes = 0;
  for (Kind k : {Kind::kMarkers, Kind::kRigids, Kind::kImages, Kind::kDetectors}) {
    const RecordSpan r = Records(f, k);
    bytes += r.count * r.size;
  }
  return bytes;
}

void FrameQueue::Push(wire::Frame frame) {
  std::lock_guard lock(mu_);
  if (frame.number <= received_) {  // the numbering restarted: older frames are void
    for (const wire::Frame& old : incoming_) Discard(old);
    incoming_.clear();
    restarted_ = true;
  }
  received_ = frame.number;
  received_time_us_ = frame.time_us;
  if (frame.empty()) return;
  bytes_ += RecordBytes(frame);
  incoming_.push_back(std::move(frame));
  while ((frames_.size() + incoming_.size() > capacity_ || bytes_ > max_bytes_) && DropOldest())
    ++dropped_;
}

bool FrameQueue::DropOldest() {
  if (!frames_.empty() && frames_.front().taken == 0) {
    Discard(frames_.front().frame);
    frames_.pop_front();
  } else if (frames_.size() > 1) {  // the head is started: the one after it
    Discard(frames_[1].frame);
    frames_.erase(frames_.begin() + 1);
  } else if (!incoming_.empty() && (!frames_.empty() || incoming_.size() > 1)) {
    Discard(incoming_.front());
    incoming_.pop_front();
  } else {
    return false;  // one frame is always kept, however large
  }
  return true;
}

void FrameQueue::Present() {
  if (restarted_) {
    for (const Entry& e : frames_) Discard(e.frame);
    frames_.clear();
  }
  restarted_ = false;
  for (auto& frame : incoming_) frames_.push_back(Entry{std::move(frame), 0});
  incoming_.clear();
  newest_ = received_;
  newest_time_us_ = received_time_us_;
}

void FrameQueue::Observe(int position) {
  if (position <= last_position_) Present();
  last_position_ = position;
}

bool FrameQueue::HeadHas(Kind kind) {
  std::lock_guard lock(mu_);
  Observe(static_cast<int>(kind));
  if (frames_.empty()) return false;
  const Entry& head = frames_.front();
  return !(head.taken & Bit(kind)) && Records(head.frame, kind).count > 0;
}

int FrameQueue::Take(Kind kind, void* out, int capacity) {
  std::lock_guard lock(mu_);
  if (frames_.empty()) Present();  // a caller that takes without asking first
  last_position_ = 99;             // the next question starts a new round
  if (frames_.empty()) return 0;
  Entry& head = frames_.front();
  const RecordSpan records = Records(head.frame, kind);
  if ((head.taken & Bit(kind)) || records.count == 0) return 0;
  const size_t n = std::min(records.count, static_cast<size_t>(std::max(capacity, 0)));
  if (n > 0) std::memcpy(out, records.data, n * records.size);
  head.taken |= Bit(kind);
  PopIfDone();
  return static_cast<int>(n);
}

void FrameQueue::PopIfDone() {
  const Entry& head = frames_.front();
  if ((KindsPresent(head.frame) & ~head.taken) == 0) {
    Discard(head.frame);
    frames_.pop_front();
  }
}

int32_t FrameQueue::newest() {
  std::lock_guard lock(mu_);
  Observe(4);  // after the four kinds
  return newest_;
}

int64_t FrameQueue::dropped() const {
  std::lock_guard lock(mu_);
  return dropped_;
}

int64_t FrameQueue::head_time_us() const {
  std::lock_guard lock(mu_);
  return frames_.empty() ? newest_time_us_ : frames_.front().frame.time_us;
}

size_t FrameQueue::size() const {
  std::lock_guard lock(mu_);
  return frames_.size() + incoming_.size();
}

void FrameQueue::Clear() {
  std::lock_guard lock(mu_);
  frames_.clear();
  incoming_.clear();
  bytes_ = 0;
  restarted_ = false;
  last_position_ = 99;
  newest_ = received_ = 0;
  newest_time_us_ = received_time_us_ = 0;
  dropped_ = 0;
}

}  // namespace zorsock
