// What the session needs to open a connection: the server to reach, the frame
// rate to ask for and the flags handed to zorInit. The "Settings" dock fills
// it from its widgets and the .mcclient file; this header also holds the
// file's reader and writer and the discovery of servers on the network.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

struct ConnectionSettings {
  std::string server;        // host name or address, optionally ":port"
  float frequency = 480.0f;  // frames per second
  uint32_t flags = 0;        // bit 0 slave mode, 0x10 post-processing, 0x100..0x400 mode
  int32_t interpolate = 0;   // sent to the server only when > 0
  int32_t rpdMode = 0;       // raw recording: 0 off, 1 record, 2 send a file
  std::string rpdFile;
};

// "server: ...", "freq: ...", "interpolate: ...", "flags: <hex>", one a line,
// and the raw-recording line only when a mode is set.
std::ostream& operator<<(std::ostream& out, const ConnectionSettings& settings);

// The mode bits of flags: 0x100 * mode for modes 1..4.
constexpr uint32_t kModeBits[] = {0x100, 0x200, 0x300, 0x400};
constexpr uint32_t kPostProcessFlag = 0x10;
constexpr uint32_t kAlternativeServerFlags = 0xA00;
constexpr int kDiscoveryPort = 8999;
constexpr int kScanTimeoutUs = 1000000;

// The frequency box's index for a rate: 480, 240, 120, 60, 30 are 0..4; any
// other rate is 480.
int FrequencyIndex(float frequency);

// --- The per-user .mcclient file ------------------------------------------

// $HOME/.mcclient, or .mcclient in the current directory without HOME.
std::string McclientPath();

// What a file read gives. Servers are display names in list order; aliases
// map a display name to its address. Keys the file does not name stay unset.
struct McclientContents {
  std::vector<std::string> servers;
  std::map<std::string, std::string> aliases;
  std::optional<int> modeIndex;
  std::optional<int> frequencyIndex;
  std::optional<int> postprocessIndex;
  std::optional<int> interpolate;
};

// Reads the file; nullopt (no message) when it cannot be opened. Alias lines
// are reported on `info`, unknown keys and lines on `errors`.
std::optional<McclientContents> ReadMcclient(const std::string& path, std::ostream& info,
                                             std::ostream& errors);

// What is written: the server box (entries in order, the last being the
// "<find servers>" entry, and the current text), its aliases and the other
// boxes' current texts.
struct McclientChoices {
  std::string currentServer;
  std::vector<std::string> serverEntries;
  std::map<std::string, std::string> aliases;
  std::string modeText;
  std::string frequencyText;
  int postprocessIndex = 0;
  int interpolate = 0;
};
std::string FormatMcclient(const McclientChoices& choices);
// Writes the file; false when it cannot be opened (nothing is written then).
bool WriteMcclient(const std::string& path, const McclientChoices& choices);

// --- Finding servers --------------------------------------------------------

struct FoundServer {
  std::string address;      // what zorInit takes
  std::string displayName;  // from the server's description; may be empty
};

// Asks the network (or one host) for servers on `port`. A negative count from
// the scan prints "error: connection check failed: ret=<n>" and gives
// nullopt.
std::optional<std::vector<FoundServer>> ScanServers(const std::string& target, int port,
                                                    const char* ident);

// The display name in a server's description: what follows its first pair
// of blanks, when that pair stands after the first character.
std::string DisplayNameOf(const std::string& description);

// Whether two server addresses ("host", "host:port") name the same server:
// the same port and a numeric address in common once the hosts are resolved
// ("localhost" and "127.0.0.1" do).
bool SameServer(const std::string& a, const std::string& b);

// Whether `server` answers on the network: one of the scan's answers is the
// same server (discovery answers with numeric addresses, the operator types
// names).
bool CheckConnection(const std::string& server, int port = kDiscoveryPort);
