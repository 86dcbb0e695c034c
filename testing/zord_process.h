// Runs a real zord server process for tests: on a free loopback port, with
// discovery on a free UDP port, its state in a private temporary folder.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace zortest {

// Path of a built executable (ZOR_BIN_DIR, set by CTest) or a shipped data file
// (ZOR_DATA_DIR).
std::string BinPath(const std::string& name);
std::string DataPath(const std::string& name);

// A fresh, empty folder that is removed with the object.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

class ZordProcess {
 public:
  // Extra command-line arguments for zord (for example {"--scene", file}).
  // Unless given, --state is a file in a private folder.
  explicit ZordProcess(std::vector<std::string> args = {});
  ~ZordProcess();  // stops the server (SIGTERM, then SIGKILL after 5 s)
  ZordProcess(const ZordProcess&) = delete;
  ZordProcess& operator=(const ZordProcess&) = delete;

  // Starts the server and waits until it listens; false (with the reason in
  // error()) when it exits or says nothing within 20 s.
  bool Start();
  void Stop();         // SIGTERM and wait: the server ends its sessions cleanly
  void Kill();         // SIGKILL: the server dies without a word
  bool Restart();      // Stop() then Start() on the same ports and state file
  bool running() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }  // for signals of a test's own (SIGSTOP, SIGCONT)

  int port() const { return port_; }
  int discovery_port() const { return discovery_port_; }
  std::string address() const;   // "127.0.0.1:PORT", what zorInit takes
  const std::string& state_file() const { return state_file_; }
  const std::string& error() const { return error_; }
  std::string output() const;    // what the server printed so far

 private:
  std::vector<std::string> args_;
  TempDir dir_;
  std::string state_file_;
  pid_t pid_ = -1;
  int out_fd_ = -1;
  int port_ = 0;
  int discovery_port_ = 0;
  std::string error_;
  mutable std::string output_;
  void Drain() const;
};

// A free TCP/UDP port number on loopback (both protocols free at the time of asking).
int FreePort();

}  // namespace zortest
