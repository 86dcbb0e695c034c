#include "zorsock/wire.h"

#include <algorithm>
#include <cmath>

namespace zorsock::wire {

namespace {

// Appends little-endian values to a message whose header is filled in last.
class Writer {
 public:
  explicit Writer(Type type) {
    bytes_.resize(kHeaderSize);
    const auto t = static_cast<uint16_t>(type);
    std::memcpy(bytes_.data() + 4, &t, 2);
  }
  template <typename T>
  void Put(const T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    const auto* p = reinterpret_cast<const uint8_t*>(&value);
    bytes_.insert(bytes_.end(), p, p + sizeof(T));
  }
  template <typename T>
  void PutArray(const std::vector<T>& values) {
    Put(static_cast<uint32_t>(values.size()));
    PutRecords(values, values.size());
  }
  template <typename T>
  void PutRecords(const std::vector<T>& values, size_t count) {
    const auto* p = reinterpret_cast<const uint8_t*>(values.data());
    bytes_.insert(bytes_.end(), p, p + count * sizeof(T));
  }
  void PutText(std::string_view text) {
    Put(static_cast<uint32_t>(text.size()));
    bytes_.insert(bytes_.end(), text.begin(), text.end());
  }
  Bytes Finish() {
    const auto length = static_cast<uint32_t>(bytes_.size() - 4);
    std::memcpy(bytes_.data(), &length, 4);
    return std::move(bytes_);
  }

 private:
  Bytes bytes_;
};

// Reads little-endian values; any read past the end clears ok() and yields
// zeros, so decoders check once at the end.
class Reader {
 public:
  Reader(const uint8_t* p, size_t n) : p_(p), n_(n) {}
  template <typename T>
  T Get() {
    T value{};
    if (!Have(sizeof(T))) return value;
    std::memcpy(&value, p_ + at_, sizeof(T));
    at_ += sizeof(T);
    return value;
  }
  template <typename T>
  void GetRecords(std::vector<T>& out, uint32_t count) {
    // Check the size before allocating: the count comes from the peer.
    if (count > (n_ - at_) / sizeof(T) || !Have(size_t{count} * sizeof(T))) {
      ok_ = false;
      return;
    }
    out.resize(count);
    if (count > 0) std::memcpy(out.data(), p_ + at_, size_t{count} * sizeof(T));
    at_ += size_t{count} * sizeof(T);
  }
  template <typename T>
  void GetArray(std::vector<T>& out) {
    GetRecords(out, Get<uint32_t>());
  }
  std::string GetText() {
    const auto size = Get<uint32_t>();
    if (!Have(size)) return {};
    std::string text(reinterpret_cast<const char*>(p_ + at_), size);
    at_ += size;
    return text;
  }
  // True when every read stayed inside and nothing is left over.
  bool Done() const { return ok_ && at_ == n_; }
  bool ok() const { return ok_; }

 private:
  bool Have(size_t size) {
    if (!ok_ || size > n_ - at_) ok_ = false;
    return ok_;
  }
  const uint8_t* p_;
  size_t n_;
  size_t at_ = 0;
  bool ok_ = true;
};

template <typename T>
std::optional<T> Checked(const Reader& r, T value) {
  if (!r.Done()) return std::nullopt;
  return value;
}

bool KnownType(uint16_t type) {
  return type >= static_cast<uint16_t>(Type::kHello) &&
         type <= static_cast<uint16_t>(Type::kCalibMessage);
}

bool KnownOp(uint16_t op) {
  return op >= static_cast<uint16_t>(Op::kTracker) && op <= static_cast<uint16_t>(Op::kControl);
}

}  // namespace

std::optional<Header> DecodeHeader(const uint8_t* six_bytes, std::string* why) {
  Reader r(six_bytes, kHeaderSize);
  Header h;
  h.length = r.Get<uint32_t>();
  const auto type = r.Get<uint16_t>();
  if (h.length < 2 || h.length > kMaxMessage) {
    if (why) *why = "message length " + std::to_string(h.length) + " out of range";
    return std::nullopt;
  }
  if (!KnownType(type)) {
    if (why) *why = "unknown message type " + std::to_string(type);
    return std::nullopt;
  }
  h.type = static_cast<Type>(type);
  return h;
}

Bytes EncodeHello(const Hello& m) {
  Writer w(Type::kHello);
  w.Put(kMagic);
  w.Put(m.version);
  w.Put(static_cast<uint16_t>(m.role));
  w.Put(m.flags);
  w.PutText(m.identity);
  return w.Finish();
}

std::optional<Hello> DecodeHello(const uint8_t* p, size_t n) {
  Reader r(p, n);
  if (r.Get<uint32_t>() != kMagic) return std::nullopt;
  Hello m;
  m.version = r.Get<uint16_t>();
  const auto role = r.Get<uint16_t>();
  if (role > static_cast<uint16_t>(Role::kRaw)) return std::nullopt;
  m.role = static_cast<Role>(role);
  m.flags = r.Get<uint32_t>();
  m.identity = r.GetText();
  return Checked(r, std::move(m));
}

Bytes EncodeWelcome(const Welcome& m) {
  Writer w(Type::kWelcome);
  w.Put(m.version);
  w.Put(m.session);
  w.PutText(m.description);
  return w.Finish();
}

std::optional<Welcome> DecodeWelcome(const uint8_t* p, size_t n) {
  Reader r(p, n);
  Welcome m;
  m.version = r.Get<uint16_t>();
  m.session = r.Get<int32_t>();
  m.description = r.GetText();
  return Checked(r, std::move(m));
}

Bytes EncodeRefuse(const Refuse& m) {
  Writer w(Type::kRefuse);
  w.Put(m.reason);
  w.PutText(m.message);
  return w.Finish();
}

std::optional<Refuse> DecodeRefuse(const uint8_t* p, size_t n) {
  Reader r(p, n);
  Refuse m;
  m.reason = r.Get<int32_t>();
  m.message = r.GetText();
  return Checked(r, std::move(m));
}

Bytes EncodeRequest(const Request& m) {
  Writer w(Type::kRequest);
  w.Put(m.seq);
  w.Put(static_cast<uint16_t>(m.op));
  w.Put(m.target);
  w.Put(m.code);
  w.PutArray(m.ints);
  w.PutArray(m.floats);
  w.PutText(m.text);
  return w.Finish();
}

std::optional<Request> DecodeRequest(const uint8_t* p, size_t n) {
  Reader r(p, n);
  Request m;
  m.seq = r.Get<uint32_t>();
  const auto op = r.Get<uint16_t>();
  if (!KnownOp(op)) return std::nullopt;
  m.op = static_cast<Op>(op);
  m.target = r.Get<int32_t>();
  m.code = r.Get<int32_t>();
  r.GetArray(m.ints);
  r.GetArray(m.floats);
  m.text = r.GetText();
  return Checked(r, std::move(m));
}

Bytes EncodeReply(const Reply& m) {
  Writer w(Type::kReply);
  w.Put(m.seq);
  w.Put(m.status);
  w.PutArray(m.ints);
  w.PutArray(m.floats);
  w.PutText(m.text);
  return w.Finish();
}

std::optional<Reply> DecodeReply(const uint8_t* p, size_t n) {
  Reader r(p, n);
  Reply m;
  m.seq = r.Get<uint32_t>();
  m.status = r.Get<int32_t>();
  r.GetArray(m.ints);
  r.GetArray(m.floats);
  m.text = r.GetText();
  return Checked(r, std::move(m));
}

Bytes EncodeFrame(const Frame& m) {
  // Fit the kinds into one message, cutting the bulkiest optional kinds first.
  constexpr size_t kFixed = kHeaderSize - 4 + 4 + 8 + 4 * 4;
  size_t room = kMaxMessage - kFixed;
  auto fit = [&room](size_t count, size_t size) {
    const size_t n = std::min(count, room / size);
    room -= n * size;
    return n;
  };
  const size_t nm = fit(m.markers.size(), sizeof(ZORMarker));
  const size_t nr = fit(m.rigids.size(), sizeof(ZORRigid));
  const size_t nd = fit(m.detectors.size(), sizeof(ZORDetector));
  const size_t ni = fit(m.images.size(), sizeof(ZORImage));

  Writer w(Type::kFrame);
  w.Put(m.number);
  w.Put(m.time_us);
  w.Put(static_cast<uint32_t>(nm));
  w.Put(static_cast<uint32_t>(nr));
  w.Put(static_cast<uint32_t>(ni));
  w.Put(static_cast<uint32_t>(nd));
  w.PutRecords(m.markers, nm);
  w.PutRecords(m.rigids, nr);
  w.PutRecords(m.images, ni);
  w.PutRecords(m.detectors, nd);
  return w.Finish();
}

std::optional<Frame> DecodeFrame(const uint8_t* p, size_t n) {
  Reader r(p, n);
  Frame m;
  m.number = r.Get<int32_t>();
  m.time_us = r.Get<int64_t>();
  const auto nm = r.Get<uint32_t>();
  const auto nr = r.Get<uint32_t>();
  const auto ni = r.Get<uint32_t>();
  const auto nd = r.Get<uint32_t>();
  r.GetRecords(m.markers, nm);
  r.GetRecords(m.rigids, nr);
  r.GetRecords(m.images, ni);
  r.GetRecords(m.detectors, nd);
  return Checked(r, std::move(m));
}

Bytes EncodeCameras(const std::vector<ZORCamera>& cameras) {
  Writer w(Type::kCameras);
  w.PutArray(cameras);
  return w.Finish();
}

std::optional<std::vector<ZORCamera>> DecodeCameras(const uint8_t* p, size_t n) {
  Reader r(p, n);
  std::vector<ZORCamera> cameras;
  r.GetArray(cameras);
  return Checked(r, std::move(cameras));
}

Bytes EncodeFinished() { return Writer(Type::kFinished).Finish(); }

Bytes EncodeCalibMessage(std::string_view text) {
  Writer w(Type::kCalibMessage);
  w.PutText(text.substr(0, ZOR_STRING_MAX - 1));
  return w.Finish();
}

std::optional<std::string> DecodeCalibMessage(const uint8_t* p, size_t n) {
  Reader r(p, n);
  std::string text = r.GetText();
  if (text.size() >= ZOR_STRING_MAX) return std::nullopt;
  return Checked(r, std::move(text));
}

Bytes EncodeRawHeader(const RawHeader& m) {
  Writer w(Type::kRawHeader);
  w.Put(static_cast<uint16_t>(m.cameras.size()));
  for (const RawCamera& c : m.cameras) {
    w.Put(c.width);
    w.Put(c.height);
  }
  w.PutText(m.description.substr(0, kMaxRawDescription));
  return w.Finish();
}

std::optional<RawHeader> DecodeRawHeader(const uint8_t* p, size_t n) {
  Reader r(p, n);
  RawHeader m;
  const auto count = r.Get<uint16_t>();
  if (count == 0 || count > kMaxRawCameras) return std::nullopt;
  for (int i = 0; i < count && r.ok(); ++i) {
    RawCamera c;
    c.width = r.Get<uint16_t>();
    c.height = r.Get<uint16_t>();
    if (c.width == 0 || c.height == 0) return std::nullopt;
    m.cameras.push_back(c);
  }
  m.description = r.GetText();
  if (m.description.size() > kMaxRawDescription) return std::nullopt;
  return Checked(r, std::move(m));
}

Bytes EncodeRawFrame(const RawFrame& m) {
  Writer w(Type::kRawFrame);
  w.Put(m.number);
  w.Put(m.time_us);
  w.Put(m.flags);
  w.PutArray(m.images);
  return w.Finish();
}

std::optional<RawFrame> DecodeRawFrame(const uint8_t* p, size_t n, size_t cameras) {
  Reader r(p, n);
  RawFrame m;
  m.number = r.Get<int32_t>();
  m.time_us = r.Get<int64_t>();
  m.flags = r.Get<uint32_t>();
  const auto count = r.Get<uint32_t>();
  if (count > kMaxRawImages) return std::nullopt;
  r.GetRecords(m.images, count);
  if (!r.Done()) return std::nullopt;
  for (const ZORImage& image : m.images) {
    if (image.camera < 0 || static_cast<size_t>(image.camera) >= cameras || image.led < 0 ||
        !std::isfinite(image.u) || !std::isfinite(image.v) || !std::isfinite(image.size) ||
        !std::isfinite(image.intensity))
      return std::nullopt;
  }
  return m;
}

Bytes EncodeRawEnd() { return Writer(Type::kRawEnd).Finish(); }

// Datagrams carry no length header of their own: the datagram is the message.
namespace {

Bytes DropHeader(Bytes bytes) {
  bytes.erase(bytes.begin(), bytes.begin() + kHeaderSize);
  return bytes;
}

}  // namespace

Bytes EncodeQuery(const DiscoveryQuery& m) {
  Writer w(Type::kHello);
  w.Put(kQueryMagic);
  w.Put(kVersion);
  w.PutText(m.identity.substr(0, 256));
  return DropHeader(w.Finish());
}

std::optional<DiscoveryQuery> DecodeQuery(const uint8_t* p, size_t n) {
  Reader r(p, n);
  if (r.Get<uint32_t>() != kQueryMagic) return std::nullopt;
  r.Get<uint16_t>();  // version: any version may ask
  DiscoveryQuery m;
  m.identity = r.GetText();
  return Checked(r, std::move(m));
}

Bytes EncodeAnswer(const DiscoveryAnswer& m) {
  Writer w(Type::kHello);
  w.Put(kAnswerMagic);
  w.Put(kVersion);
  w.PutText(m.host.substr(0, 200));
  w.Put(m.port);
  w.PutText(m.description.substr(0, 255));
  return DropHeader(w.Finish());
}

std::optional<DiscoveryAnswer> DecodeAnswer(const uint8_t* p, size_t n) {
  Reader r(p, n);
  if (r.Get<uint32_t>() != kAnswerMagic) return std::nullopt;
  r.Get<uint16_t>();
  DiscoveryAnswer m;
  m.host = r.GetText();
  m.port = r.Get<uint16_t>();
  m.description = r.GetText();
  return Checked(r, std::move(m));
}

int FloatCount(int code) { return code == ZOR_GLOBAL_TRANSFORM ? 7 : 1; }

int IntCount(int code) { return code == ZOR_FRAME_TIME ? 2 : 1; }

std::string ControlIdentity(const std::string& token) {
  return token.empty() ? "zorControl" : "zorControl " + token;
}

std::string ControlToken(const std::string& identity) {
  const size_t space = identity.find(' ');
  return space == std::string::npos ? std::string() : identity.substr(space + 1);
}

}  // namespace zorsock::wire
