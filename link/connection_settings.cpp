#include "link/connection_settings.h"

#include <netdb.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <set>
#include <sstream>
#include <string_view>

#include "link/save_file.h"
#include "link/settings_number.h"
#include "zorsock/address.h"
#include "zorsock/zorsock.h"

namespace {

constexpr int kMaxLine = 1023;
constexpr int kMaxScanResults = 256;
constexpr char kFindServers = '<';
constexpr std::string_view kPlainServer = "server:  ";  // the "<find servers>" entry and its kin

// Splits a line into its first `max` blank-separated words, as scanf's "%s"
// would (the last word does not take the rest of the line).
std::vector<std::string> Words(const std::string& line, size_t max) {
  std::vector<std::string> words;
  std::istringstream in(line);
  std::string word;
  while (words.size() < max && in >> word) words.push_back(word);
  return words;
}

std::string ServerLine(const std::string& name, const std::map<std::string, std::string>& aliases) {
  const auto alias = aliases.find(name);
  return "server: " + (alias == aliases.end() ? std::string() : alias->second) + " " + name + "\n";
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const ConnectionSettings& s) {
  out << "server: " << s.server << "\n"
      << "freq: " << s.frequency << "\n"
      << "interpolate: " << s.interpolate << "\n"
      << "flags: " << std::hex << s.flags << std::dec << "\n";
  if (s.rpdMode != 0) out << "rpdMode=" << s.rpdMode << " file=" << s.rpdFile << "\n";
  return out;
}

int FrequencyIndex(float frequency) {
  static constexpr struct {
    float rate;
    int index;
  } kRates[] = {{30, 4}, {60, 3}, {120, 2}, {240, 1}, {480, 0}};
  for (const auto& r : kRates)
    if (frequency == r.rate) return r.index;
  return 0;
}

std::string McclientPath() {
  const char* home = std::getenv("HOME");
  if (!home) return ".mcclient";
  return std::string(home) + '/' + ".mcclient";
}

std::optional<McclientContents> ReadMcclient(const std::string& path, std::ostream& info,
                                             std::ostream& errors) {
  std::ifstream file(path);
  if (!file) return std::nullopt;
  McclientContents contents;
  std::string line;
  while (std::getline(file, line)) {
    if (line.size() > kMaxLine) line.resize(kMaxLine);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line[0] == '#') continue;

    // Entries without an address are written "server:  <name>": the whole rest
    // is the name, so that a name with blanks does not come back as an alias.
    if (line.size() > kPlainServer.size() && line.starts_with(kPlainServer) &&
        line[kPlainServer.size()] != ' ') {
      std::string name = line.substr(kPlainServer.size());
      name.erase(name.find_last_not_of(" \t") + 1);
      contents.servers.push_back(name);
      continue;
    }

    const std::vector<std::string> words = Words(line, 3);
    if (words.size() == 3) {
      if (words[0] != "server:") continue;  // e.g. "mode: 1 2": ignored silently
      // An alias: "server: <address> <display name>"; the name may hold blanks.
      std::string rest = line.substr(line.find(": ") + 2);
      rest.erase(0, rest.find_first_not_of(" \t"));
      const size_t blank = rest.find(' ');
      const std::string address = rest.substr(0, blank);
      std::string name = rest.substr(blank + 1);
      name.erase(0, name.find_first_not_of(" \t"));
      info << "loading alias: " << address << "(" << name << ")" << std::endl;
      contents.aliases[name] = address;
      contents.servers.push_back(name);
    } else if (words.size() == 2) {
      const std::string& key = words[0];
      const std::string& value = words[1];
      if (key == "server:") {
        contents.servers.push_back(value);
      } else if (key == "mode:") {
        contents.modeIndex = SettingInt(value.c_str());  // "Default" reads as 0
      } else if (key == "frequency:") {
        contents.frequencyIndex = FrequencyIndex(SettingFloat(value.c_str()));
      } else if (key == "postprocess:") {
        contents.postprocessIndex = SettingInt(value.c_str()) == 1 ? 1 : 0;
      } else if (key == "interpolate:") {
        contents.interpolate = SettingInt(value.c_str());
      } else {
        errors << "unknown token: " << key << " in " << path << std::endl;
      }
    } else {
      errors << "unknown configuration: " << line << std::endl;
    }
  }
  return contents;
}

std::string FormatMcclient(const McclientChoices& c) {
  std::string out;
  if (c.currentServer.find(kFindServers) == std::string::npos)
    out += ServerLine(c.currentServer, c.aliases);
  // Every other entry but the last ("<find servers>"), in list order.
  for (size_t i = 0; i + 1 < c.serverEntries.size(); ++i)
    if (c.serverEntries[i] != c.currentServer) out += ServerLine(c.serverEntries[i], c.aliases);
  out += "mode: " + c.modeText + "\n";
  out += "frequency: " + c.frequencyText + "\n";
  out += "postprocess: " + std::to_string(c.postprocessIndex) + "\n";
  out += "interpolate: " + std::to_string(c.interpolate) + "\n";
  return out;
}

bool WriteMcclient(const std::string& path, const McclientChoices& choices) {
  return SaveFileAtomically(path, FormatMcclient(choices));
}

std::string DisplayNameOf(const std::string& description) {
  const size_t pair = description.find("  ");
  if (pair == std::string::npos || pair == 0) return {};
  return description.substr(pair + 2);
}

std::optional<std::vector<FoundServer>> ScanServers(const std::string& target, int port,
                                                    const char* ident) {
  std::vector<char> results(size_t(kMaxScanResults) * ZOR_SCAN_RESULT_SIZE, 0);
  const int count =
      zor_scan(target.c_str(), port, ident, kScanTimeoutUs, results.data(), kMaxScanResults);
  if (count < 0) {
    std::printf("error: connection check failed: ret=%d\n", count);
    return std::nullopt;
  }
  std::vector<FoundServer> found;
  for (int i = 0; i < std::min(count, kMaxScanResults); ++i) {
    const char* slot = results.data() + size_t(i) * ZOR_SCAN_RESULT_SIZE;
    const std::string address(slot, strnlen(slot, 256));
    const std::string description(slot + 256, strnlen(slot + 256, 256));
    found.push_back({address, DisplayNameOf(description)});
  }
  return found;
}

namespace {

// The numeric addresses `host` stands for; empty when it does not resolve.
std::set<std::string> NumericAddresses(const std::string& host) {
  std::set<std::string> numeric;
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &list) != 0) return numeric;
  for (const addrinfo* a = list; a; a = a->ai_next) {
    char text[NI_MAXHOST];
    if (getnameinfo(a->ai_addr, a->ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST) == 0)
      numeric.insert(text);
  }
  freeaddrinfo(list);
  return numeric;
}

}  // namespace

bool SameServer(const std::string& a, const std::string& b) {
  if (a == b) return true;
  const auto first = zorsock::ParseServerAddress(a, ZOR_DEFAULT_PORT);
  const auto second = zorsock::ParseServerAddress(b, ZOR_DEFAULT_PORT);
  if (!first || !second || first->port != second->port) return false;
  const std::set<std::string> mine = NumericAddresses(first->host);
  for (const std::string& address : NumericAddresses(second->host))
    if (mine.count(address)) return true;
  return false;
}

bool CheckConnection(const std::string& server, int port) {
  const auto found = ScanServers(server, port, "auto connect test");
  if (!found) return false;
  for (const FoundServer& s : *found)
    if (SameServer(s.address, server)) return true;
  return false;
}
