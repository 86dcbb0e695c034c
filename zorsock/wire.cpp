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
  // Field lists (below) name each field once, in wire order, for both the
  // Writer and the Reader.
  template <typename... T>
  void operator()(const T&... fields) {
    (Field(fields), ...);
  }
  void Magic(uint32_t magic) { Put(magic); }
  void Stamp(uint32_t magic) { Put(magic), Put(kVersion); }  // a datagram's start
  Bytes Finish() {
    const auto length = static_cast<uint32_t>(bytes_.size() - 4);
    std::memcpy(bytes_.data(), &length, 4);
    return std::move(bytes_);
  }

 private:
  template <typename T>
  void Field(const T& value) {
    Put(value);
  }
  template <typename T>
  void Field(const std::vector<T>& values) {
    PutArray(values);
  }
  void Field(const std::string& text) { PutText(text); }

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
  template <typename... T>
  void operator()(T&... fields) {
    (Field(fields), ...);
  }
  void Magic(uint32_t magic) {
    if (Get<uint32_t>() != magic) ok_ = false;
  }
  void Stamp(uint32_t magic) { Magic(magic), Get<uint16_t>(); }  // any version may ask or answer
  // True when every read stayed inside and nothing is left over.
  bool Done() const { return ok_ && at_ == n_; }
  bool ok() const { return ok_; }

 private:
  template <typename T>
  void Field(T& value) {
    value = Get<T>();
  }
  template <typename T>
  void Field(std::vector<T>& values) {
    GetArray(values);
  }
  void Field(std::string& text) { text = GetText(); }
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

// A message whose payload is its field list `fields`, written or read whole.
template <typename M, typename Fields>
Bytes Encode(Type type, const M& m, Fields fields) {
  Writer w(type);
  fields(w, m);
  return w.Finish();
}

template <typename M, typename Fields>
std::optional<M> Decode(const uint8_t* p, size_t n, Fields fields) {
  Reader r(p, n);
  M m;
  fields(r, m);
  return Checked(r, std::move(m));
}

// Enumerations come as read; their decoders check the range afterwards.
constexpr auto kHelloFields = [](auto& io, auto& m) {
  io.Magic(kMagic);
  io(m.version, m.role, m.flags, m.identity);
};
constexpr auto kWelcomeFields = [](auto& io, auto& m) { io(m.version, m.session, m.description); };
constexpr auto kRefuseFields = [](auto& io, auto& m) { io(m.reason, m.message); };
constexpr auto kRequestFields = [](auto& io, auto& m) {
  io(m.seq, m.op, m.target, m.code, m.ints, m.floats, m.text);
};
constexpr auto kReplyFields = [](auto& io, auto& m) {
  io(m.seq, m.status, m.ints, m.floats, m.text);
};
constexpr auto kCamerasFields = [](auto& io, auto& cameras) { io(cameras); };
constexpr auto kRawFrameFields = [](auto& io, auto& m) {
  io(m.number, m.time_us, m.flags, m.images);
};

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

Bytes EncodeHello(const Hello& m) { return Encode(Type::kHello, m, kHelloFields); }

std::optional<Hello> DecodeHello(const uint8_t* p, size_t n) {
  auto m = Decode<Hello>(p, n, kHelloFields);
  if (m && m->role > Role::kRaw) return std::nullopt;
  return m;
}

Bytes EncodeWelcome(const Welcome& m) { return Encode(Type::kWelcome, m, kWelcomeFields); }

std::optional<Welcome> DecodeWelcome(const uint8_t* p, size_t n) {
  return Decode<Welcome>(p, n, kWelcomeFields);
}

Bytes EncodeRefuse(const Refuse& m) { return Encode(Type::kRefuse, m, kRefuseFields); }

std::optional<Refuse> DecodeRefuse(const uint8_t* p, size_t n) {
  return Decode<Refuse>(p, n, kRefuseFields);
}

Bytes EncodeRequest(const Request& m) { return Encode(Type::kRequest, m, kRequestFields); }

std::optional<Request> DecodeRequest(const uint8_t* p, size_t n) {
  auto m = Decode<Request>(p, n, kRequestFields);
  if (m && !KnownOp(static_cast<uint16_t>(m->op))) return std::nullopt;
  return m;
}

Bytes EncodeReply(const Reply& m) { return Encode(Type::kReply, m, kReplyFields); }

std::optional<Reply> DecodeReply(const uint8_t* p, size_t n) {
  return Decode<Reply>(p, n, kReplyFields);
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
  return Encode(Type::kCameras, cameras, kCamerasFields);
}

std::optional<std::vector<ZORCamera>> DecodeCameras(const uint8_t* p, size_t n) {
  return Decode<std::vector<ZORCamera>>(p, n, kCamerasFields);
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

Bytes EncodeRawFrame(const RawFrame& m) { return Encode(Type::kRawFrame, m, kRawFrameFields); }

std::optional<RawFrame> DecodeRawFrame(const uint8_t* p, size_t n, size_t cameras) {
  auto m = Decode<RawFrame>(p, n, kRawFrameFields);
  if (!m || m->images.size() > kMaxRawImages) return std::nullopt;
  for (const ZORImage& image : m->images) {
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

constexpr auto kQueryFields = [](auto& io, auto& m) {
  io.Stamp(kQueryMagic);
  io(m.identity);
};
constexpr auto kAnswerFields = [](auto& io, auto& m) {
  io.Stamp(kAnswerMagic);
  io(m.host, m.port, m.description);
};

Bytes DropHeader(Bytes bytes) {
  bytes.erase(bytes.begin(), bytes.begin() + kHeaderSize);
  return bytes;
}

}  // namespace

Bytes EncodeQuery(const DiscoveryQuery& m) {
  const DiscoveryQuery cut{m.identity.substr(0, 256)};
  return DropHeader(Encode(Type::kHello, cut, kQueryFields));
}

std::optional<DiscoveryQuery> DecodeQuery(const uint8_t* p, size_t n) {
  return Decode<DiscoveryQuery>(p, n, kQueryFields);
}

Bytes EncodeAnswer(const DiscoveryAnswer& m) {
  const DiscoveryAnswer cut{m.host.substr(0, 200), m.port, m.description.substr(0, 255)};
  return DropHeader(Encode(Type::kHello, cut, kAnswerFields));
}

std::optional<DiscoveryAnswer> DecodeAnswer(const uint8_t* p, size_t n) {
  return Decode<DiscoveryAnswer>(p, n, kAnswerFields);
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
