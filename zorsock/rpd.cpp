// Raw data recording and replay over a connection of its own (docs/rpd.md).
// Mode 1: the server streams every camera's 2D detections; zorRPDRecv moves
// what has arrived into the file without waiting. Mode 2: a recording is
// checked as a whole, then zorRPDSend uploads it on a thread of its own and the
// server replays it as its camera input; zorRPDRecv reports the progress.
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

#include "zorsock/dial.h"
#include "zorsock/library.h"
#include "zorsock/rpd_file.h"
#include "zorsock/zorsock.h"

namespace zorsock {
namespace {

// How long the server may take to accept the mode, to take one chunk of an
// upload, and to check and install a complete recording.
constexpr auto kUploadStepTimeout = std::chrono::seconds(30);
constexpr auto kVerdictTimeout = std::chrono::seconds(60);
// Most bytes one zorRPDRecv call reads, so that a call never takes long.
constexpr size_t kMaxReadPerCall = 4u << 20;

struct Transfer {
  explicit Transfer(int m) : mode(m), dialer(io) {}
  ~Transfer() {
    if (upload.joinable()) upload.join();
    if (file) std::fclose(file);
  }

  const int mode;
  asio::io_context io;
  Dialer dialer;
  std::string address;

  // Mode 1.
  std::FILE* file = nullptr;
  std::string path;
  size_t cameras = 0;
  wire::Bytes inbox;  // received bytes not yet a whole message

  // Mode 2.
  std::vector<uint8_t> contents;
  rpd::Recording recording;
  std::thread upload;
  std::atomic<int64_t> sent{0};
  int64_t reported = 0;
  std::atomic<bool> finished{false};
  int outcome = 0;  // once finished: 0 accepted, else a ZOR_RPD_* code
  std::string outcome_text;
};

std::mutex g_mu;
std::unique_ptr<Transfer> g_transfer;
std::string g_error;

int Fail(int code, const std::string& why) {
  g_error = why;
  return code;
}

// The upload of mode 2, on its own thread: the frames, the end mark, and the
// server's verdict.
void Upload(Transfer* t) {
  auto finish = [t](int code, const std::string& why) {
    t->outcome = code;
    t->outcome_text = why;
    t->finished = true;
  };
  for (const rpd::Recording::Record& r : t->recording.frames) {
    const wire::Bytes message = rpd::FrameMessage(t->contents.data() + r.offset, r.size);
    if (std::error_code ec = t->dialer.Write(message, Clock::now() + kUploadStepTimeout))
      return finish(ZOR_RPD_IO_ERROR, "sending the recording failed: " + ec.message());
    t->sent += static_cast<int64_t>(r.size + 4);
  }
  if (std::error_code ec = t->dialer.Write(wire::EncodeRawEnd(), Clock::now() + kUploadStepTimeout))
    return finish(ZOR_RPD_IO_ERROR, "sending the recording failed: " + ec.message());
  Message answer;
  std::string why;
  if (t->dialer.Read(&answer, Clock::now() + kVerdictTimeout, &why))
    return finish(ZOR_RPD_IO_ERROR, "no answer from the server: " + why);
  const auto reply = answer.type == wire::Type::kReply
                         ? wire::DecodeReply(answer.payload.data(), answer.payload.size())
                         : std::nullopt;
  if (!reply) return finish(ZOR_RPD_IO_ERROR, "the server did not answer the recording");
  if (reply->status != ZOR_NO_ERROR)
    return finish(ZOR_RPD_REFUSED, "the server refused the recording: " + reply->text);
  finish(0, "");
}

int OpenRecord(std::unique_ptr<Transfer>& t, const char* fileName) {
  Message message;
  std::string why;
  const auto deadline = Clock::now() + std::chrono::milliseconds(ZOR_CONNECT_TIMEOUT_MS);
  if (t->dialer.Read(&message, deadline, &why) || message.type != wire::Type::kRawHeader)
    return Fail(ZOR_RPD_MODE_FAILED, "the server did not start the raw data stream");
  const auto header = wire::DecodeRawHeader(message.payload.data(), message.payload.size());
  if (!header) return Fail(ZOR_RPD_MODE_FAILED, "the server sent a malformed raw data header");
  t->cameras = header->cameras.size();
  t->path = fileName;
  t->file = std::fopen(fileName, "wb");
  if (!t->file) return Fail(ZOR_RPD_FILE_ERROR, "cannot create " + t->path + ": " + std::strerror(errno));
  const wire::Bytes start = rpd::EncodeFileHeader(*header);
  if (std::fwrite(start.data(), 1, start.size(), t->file) != start.size() || std::fflush(t->file) != 0)
    return Fail(ZOR_RPD_FILE_ERROR, "cannot write " + t->path + ": " + std::strerror(errno));
  std::error_code ec;
  t->dialer.socket().non_blocking(true, ec);
  if (ec) return Fail(ZOR_RPD_MODE_FAILED, "cannot read the stream: " + ec.message());
  return 1;
}

// Mode 1: whole frame messages in the inbox go to the file.
int MoveToFile(Transfer& t, size_t* written) {
  size_t at = 0;
  while (t.inbox.size() - at >= wire::kHeaderSize) {
    std::string why;
    const auto header = wire::DecodeHeader(t.inbox.data() + at, &why);
    if (!header) return Fail(ZOR_RPD_IO_ERROR, "malformed raw data stream: " + why);
    const size_t size = header->payload_size();
    if (t.inbox.size() - at - wire::kHeaderSize < size) break;
    const uint8_t* payload = t.inbox.data() + at + wire::kHeaderSize;
    if (header->type == wire::Type::kFinished)
      return Fail(ZOR_RPD_IO_ERROR, "the server ended the raw data stream");
    if (header->type != wire::Type::kRawFrame || !wire::DecodeRawFrame(payload, size, t.cameras))
      return Fail(ZOR_RPD_IO_ERROR, "malformed raw data frame");
    const auto length = static_cast<uint32_t>(size);
    if (std::fwrite(&length, 4, 1, t.file) != 1 || std::fwrite(payload, 1, size, t.file) != size)
      return Fail(ZOR_RPD_FILE_ERROR, "cannot write " + t.path + ": " + std::strerror(errno));
    *written += 4 + size;
    at += wire::kHeaderSize + size;
  }
  t.inbox.erase(t.inbox.begin(), t.inbox.begin() + static_cast<std::ptrdiff_t>(at));
  return 0;
}

int Receive(Transfer& t) {
  size_t written = 0;
  size_t read = 0;
  uint8_t chunk[1 << 16];
  while (read < kMaxReadPerCall) {
    std::error_code ec;
    const size_t got = t.dialer.socket().read_some(asio::buffer(chunk), ec);
    if (ec == asio::error::would_block || ec == asio::error::try_again) break;
    if (ec) {
      // Frames that arrived before the end still go to the file.
      const int code = MoveToFile(t, &written);
      if (code < 0) return code;
      return Fail(ZOR_RPD_IO_ERROR, ec == asio::error::eof ? "the server closed the raw data stream"
                                                           : "raw data stream lost: " + ec.message());
    }
    read += got;
    t.inbox.insert(t.inbox.end(), chunk, chunk + got);
    if (const int code = MoveToFile(t, &written); code < 0) return code;
  }
  if (written > 0 && std::fflush(t.file) != 0)
    return Fail(ZOR_RPD_FILE_ERROR, "cannot write " + t.path + ": " + std::strerror(errno));
  return static_cast<int>(std::min<size_t>(written, INT_MAX));
}

}  // namespace
}  // namespace zorsock

using namespace zorsock;

extern "C" {

int zorRPDOpen(const char* address, const char* fileName, int mode) {
  std::lock_guard lock(g_mu);
  if (mode != 1 && mode != 2) return Fail(ZOR_RPD_INVALID_MODE, "raw data mode must be 1 or 2");
  if (g_transfer) return Fail(ZOR_RPD_WRONG_STATE, "a raw data transfer is already open");
  if (mode == 2 && HasOpenSession())
    return Fail(ZOR_RPD_WRONG_STATE, "a recording can be sent only while not connected");
  if (!address || !fileName) return Fail(ZOR_RPD_CANNOT_CONNECT, "no server address or file name");
  const auto parsed = ParseServerAddress(address, ZOR_DEFAULT_PORT);
  if (!parsed) return Fail(ZOR_RPD_CANNOT_CONNECT, std::string("invalid server address ") + address);

  auto t = std::make_unique<Transfer>(mode);
  t->address = address;
  std::string why;
  if (mode == 2) {
    // The whole file is checked before anything is sent.
    if (!rpd::ReadWholeFile(fileName, &t->contents, &why) ||
        !rpd::ParseRecording(t->contents, &t->recording, &why))
      return Fail(ZOR_RPD_FILE_ERROR, std::string(fileName) + ": " + why);
  }
  const auto deadline = Clock::now() + std::chrono::milliseconds(ZOR_CONNECT_TIMEOUT_MS);
  if (t->dialer.Connect(*parsed, deadline) != 0)
    return Fail(ZOR_RPD_CANNOT_CONNECT, std::string("unable to connect to ") + address);
  wire::Hello hello;
  hello.role = wire::Role::kRaw;
  hello.flags = mode == 1 ? wire::kRawRecord : wire::kRawReplay;
  hello.identity = "zorRPD";
  wire::Welcome welcome;
  if (t->dialer.Handshake(hello, deadline, &welcome, &why) != 0)
    return Fail(ZOR_RPD_MODE_FAILED, "the server did not take the raw data mode: " + why);

  if (mode == 1) {
    if (const int code = OpenRecord(t, fileName); code < 0) {
      if (t->file) {
        std::fclose(t->file);
        t->file = nullptr;
        std::remove(fileName);
      }
      return code;
    }
  } else if (std::error_code ec = t->dialer.Write(wire::EncodeRawHeader(t->recording.header), deadline)) {
    return Fail(ZOR_RPD_MODE_FAILED, "sending the recording's header failed: " + ec.message());
  }
  g_error.clear();
  g_transfer = std::move(t);
  return 1;
}

int zorRPDSend(void) {
  std::lock_guard lock(g_mu);
  Transfer* t = g_transfer.get();
  if (!t || t->mode != 2) return Fail(ZOR_RPD_WRONG_STATE, "no recording is open for sending");
  if (t->upload.joinable()) return Fail(ZOR_RPD_WRONG_STATE, "the recording is already being sent");
  t->upload = std::thread(Upload, t);
  return 1;
}

int zorRPDRecv(void) {
  std::lock_guard lock(g_mu);
  Transfer* t = g_transfer.get();
  if (!t) return 0;
  if (t->mode == 1) return Receive(*t);
  if (t->finished && t->outcome != 0) return Fail(t->outcome, t->outcome_text);
  const int64_t sent = t->sent;
  const int64_t moved = sent - t->reported;
  t->reported = sent;
  return static_cast<int>(std::min<int64_t>(moved, INT_MAX));
}

int zorRPDClose(void) {
  std::unique_ptr<Transfer> t;
  {
    std::lock_guard lock(g_mu);
    t = std::move(g_transfer);
  }
  if (!t) return 0;
  int result = 0;
  if (t->mode == 1) {
    std::lock_guard lock(g_mu);
    // What has arrived so far still belongs in the file.
    if (const int code = Receive(*t); code < 0 && code != ZOR_RPD_IO_ERROR) result = code;
    if (std::fclose(t->file) != 0)
      result = Fail(ZOR_RPD_FILE_ERROR, "cannot write " + t->path + ": " + std::strerror(errno));
    t->file = nullptr;
  } else if (t->upload.joinable()) {
    t->upload.join();  // bounded by the upload's time-outs
    if (t->outcome != 0) {
      std::lock_guard lock(g_mu);
      result = Fail(t->outcome, t->outcome_text);
    }
  }
  return result;
}

const char* zorRPDError(void) {
  static thread_local std::string copy;
  std::lock_guard lock(g_mu);
  copy = g_error;
  return copy.c_str();
}

}  // extern "C"
