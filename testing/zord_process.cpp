#include "testing/zord_process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <regex>
#include <thread>

namespace zortest {

namespace {

std::string EnvOr(const char* name, const std::string& fallback) {
  const char* v = std::getenv(name);
  return v && *v ? v : fallback;
}

bool PortFree(int type, int port) {
  int fd = socket(AF_INET, type, 0);
  if (fd < 0) return false;
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  a.sin_port = htons(static_cast<uint16_t>(port));
  bool ok = bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
  close(fd);
  return ok;
}

}  // namespace

std::string BinPath(const std::string& name) { return EnvOr("ZOR_BIN_DIR", ".") + "/" + name; }
std::string DataPath(const std::string& name) { return EnvOr("ZOR_DATA_DIR", "data") + "/" + name; }

TempDir::TempDir() {
  std::string tmpl = (std::filesystem::temp_directory_path() / "zortest-XXXXXX").string();
  char* p = mkdtemp(tmpl.data());
  path_ = p ? p : "";
}

TempDir::~TempDir() {
  std::error_code ec;
  if (!path_.empty()) std::filesystem::remove_all(path_, ec);
}

int FreePort() {
  // Ask the kernel for a free TCP port, then make sure UDP has it free too.
  for (int attempt = 0; attempt < 50; ++attempt) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = 0;
    socklen_t len = sizeof a;
    int port = 0;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0) {
      port = ntohs(a.sin_port);
    }
    close(fd);
    if (port > 0 && PortFree(SOCK_DGRAM, port)) return port;
  }
  return 0;
}

ZordProcess::ZordProcess(std::vector<std::string> args) : args_(std::move(args)) {
  state_file_ = dir_.File("zord-state.json");
  for (size_t i = 0; i + 1 < args_.size(); ++i) {
    if (args_[i] == "--state") state_file_ = args_[i + 1];
  }
}

ZordProcess::~ZordProcess() { Stop(); }

std::string ZordProcess::address() const { return "127.0.0.1:" + std::to_string(port_); }

void ZordProcess::Drain() const {
  if (out_fd_ < 0) return;
  char buf[4096];
  for (;;) {
    ssize_t n = read(out_fd_, buf, sizeof buf);
    if (n <= 0) break;
    output_.append(buf, static_cast<size_t>(n));
  }
}

std::string ZordProcess::output() const {
  Drain();
  return output_;
}

bool ZordProcess::Start() {
  if (pid_ > 0) return true;
  if (port_ == 0) port_ = FreePort();
  if (discovery_port_ == 0) discovery_port_ = FreePort();
  std::vector<std::string> argv = {BinPath("zord"), "--listen", "127.0.0.1",
                                   "--port", std::to_string(port_),
                                   "--discovery-port", std::to_string(discovery_port_)};
  bool has_state = false;
  for (const auto& a : args_) has_state = has_state || a == "--state";
  if (!has_state) {
    argv.push_back("--state");
    argv.push_back(state_file_);
  }
  argv.insert(argv.end(), args_.begin(), args_.end());

  int pipefd[2];
  if (pipe(pipefd) != 0) {
    error_ = "pipe failed";
    return false;
  }
  pid_t pid = fork();
  if (pid < 0) {
    error_ = "fork failed";
    return false;
  }
  if (pid == 0) {
    dup2(pipefd[1], STDOUT_FILENO);
    dup2(pipefd[1], STDERR_FILENO);
    close(pipefd[0]);
    close(pipefd[1]);
    std::vector<char*> cargv;
    for (auto& a : argv) cargv.push_back(a.data());
    cargv.push_back(nullptr);
    execv(cargv[0], cargv.data());
    _exit(127);
  }
  close(pipefd[1]);
  out_fd_ = pipefd[0];
  fcntl(out_fd_, F_SETFL, fcntl(out_fd_, F_GETFL) | O_NONBLOCK);
  pid_ = pid;

  // zord prints "zord: listening on ADDR:PORT" once it accepts connections.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  size_t seen = output_.size();
  while (std::chrono::steady_clock::now() < deadline) {
    pollfd p{out_fd_, POLLIN, 0};
    poll(&p, 1, 50);
    Drain();
    if (output_.find("listening on", seen) != std::string::npos) return true;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      error_ = "zord exited before listening: " + output_;
      return false;
    }
  }
  error_ = "zord did not start listening within 20 s: " + output_;
  Kill();
  return false;
}

void ZordProcess::Stop() {
  if (pid_ <= 0) return;
  kill(pid_, SIGTERM);
  for (int i = 0; i < 500; ++i) {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (pid_ > 0) Kill();
  Drain();
  if (out_fd_ >= 0) close(out_fd_);
  out_fd_ = -1;
}

void ZordProcess::Kill() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  Drain();
  if (out_fd_ >= 0) close(out_fd_);
  out_fd_ = -1;
}

bool ZordProcess::Restart() {
  Stop();
  return Start();
}

}  // namespace zortest
