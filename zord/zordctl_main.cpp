// zordctl: operator control of a running zord. Sends one JSON request (given
// as is, or built from a short command) and prints the reply.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>

#include "zord/room/calibration_export.h"
#include "zorsock/control.h"

namespace {

using nlohmann::json;

const char* const kUsage = R"(commands:
  '<json>'                          send a request as it is
  wand wave | wand rest X Y Z [DX DY DZ] | follow on|off
  body [INDEX] move | body [INDEX] rest X Y Z [QW QX QY QZ]
  led ID on|off
  truth | status
  bump K DX DY DZ [RX RY RZ]        knock camera K (0-based): mm, degrees
  export FILE                       the current calibration as OpenCV YAML (.yaml, .yml) or JSON
  clock rewind|pause|resume|status | clock silence on|off | clock frequency HZ)";

std::optional<double> Number(const std::string& word) {
  try {
    size_t used = 0;
    const double value = std::stod(word, &used);
    if (used == word.size()) return value;
  } catch (const std::exception&) {
  }
  return std::nullopt;
}

// Reads `count` numbers from words[at...] into an array; nullopt if missing.
std::optional<json> Numbers(const std::vector<std::string>& words, size_t at, size_t count) {
  if (words.size() < at + count) return std::nullopt;
  json out = json::array();
  for (size_t i = 0; i < count; ++i) {
    const auto n = Number(words[at + i]);
    if (!n) return std::nullopt;
    out.push_back(*n);
  }
  return out;
}

std::optional<json> BuildRequest(const std::vector<std::string>& w) {
  if (w.empty()) return std::nullopt;
  if (w.size() == 1 && !w[0].empty() && w[0][0] == '{') {
    json request = json::parse(w[0], nullptr, false);
    if (request.is_discarded()) return std::nullopt;
    return request;
  }
  const std::string& cmd = w[0];
  if ((cmd == "truth" || cmd == "status") && w.size() == 1) return json{{"cmd", cmd}};
  if (cmd == "export" && w.size() == 2) return json{{"cmd", "calibration"}};
  if (cmd == "bump" && (w.size() == 5 || w.size() == 8)) {
    const auto camera = Number(w[1]);
    const auto shift = Numbers(w, 2, 3);
    const auto turn = w.size() == 8 ? Numbers(w, 5, 3) : std::optional<json>(json{0, 0, 0});
    if (!camera || !shift || !turn) return std::nullopt;
    return json{{"cmd", "bump"}, {"camera", static_cast<int>(*camera)}, {"position_mm", *shift},
                {"rotation_deg", *turn}};
  }
  if (cmd == "wand" && w.size() == 2 && w[1] == "wave") return json{{"cmd", "wand"}, {"mode", "wave"}};
  if (cmd == "follow" && w.size() == 2 && (w[1] == "on" || w[1] == "off"))
    return json{{"cmd", "follow"}, {"on", w[1] == "on"}};
  if (cmd == "wand" && w.size() >= 5 && w[1] == "rest") {
    const auto position = Numbers(w, 2, 3);
    const auto direction = w.size() == 5 ? std::optional<json>(json{1, 0, 0}) : Numbers(w, 5, 3);
    if (!position || !direction || (w.size() != 5 && w.size() != 8)) return std::nullopt;
    return json{{"cmd", "wand"}, {"mode", "rest"}, {"position", *position}, {"direction", *direction}};
  }
  if (cmd == "body" && w.size() >= 2) {
    size_t at = 1;
    json request{{"cmd", "body"}};
    if (const auto index = Number(w[1])) {
      request["index"] = static_cast<int>(*index);
      ++at;
    }
    if (w.size() == at + 1 && w[at] == "move") {
      request["mode"] = "move";
      return request;
    }
    if (w.size() >= at + 4 && w[at] == "rest") {
      const auto position = Numbers(w, at + 1, 3);
      const size_t rest = w.size() - (at + 4);
      const auto rotation = rest == 0 ? std::optional<json>(json{1, 0, 0, 0}) : Numbers(w, at + 4, 4);
      if (!position || !rotation || (rest != 0 && rest != 4)) return std::nullopt;
      request["mode"] = "rest";
      request["position"] = *position;
      request["rotation"] = *rotation;
      return request;
    }
    return std::nullopt;
  }
  if (cmd == "led" && w.size() == 3 && (w[2] == "on" || w[2] == "off")) {
    const auto id = Number(w[1]);
    if (!id) return std::nullopt;
    return json{{"cmd", "led"}, {"id", static_cast<int>(*id)}, {"visible", w[2] == "on"}};
  }
  if (cmd == "clock" && w.size() == 2) return json{{"cmd", "clock"}, {"action", w[1]}};
  if (cmd == "clock" && w.size() == 3 && w[1] == "silence" && (w[2] == "on" || w[2] == "off"))
    return json{{"cmd", "clock"}, {"action", "silence"}, {"on", w[2] == "on"}};
  if (cmd == "clock" && w.size() == 3 && w[1] == "frequency") {
    const auto hz = Number(w[2]);
    if (!hz) return std::nullopt;
    return json{{"cmd", "clock"}, {"action", "frequency"}, {"hz", *hz}};
  }
  return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
  std::string server = "127.0.0.1";
  std::vector<std::string> words;
  CLI::App app{"zordctl: operator control of a running zord"};
  app.footer(kUsage);
  app.add_option("--server", server, "zord address, host or host:port")->capture_default_str();
  std::string token;
  app.add_option("--token", token, "the server's control token (needed from another machine)")
      ->envname("ZORD_CONTROL_TOKEN");
  app.add_option("command", words, "a JSON request or a command (see below)")->required();
  app.allow_extras(false);
  app.positionals_at_end(true);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int code = app.exit(e);
    return code == 0 ? 0 : 1;
  }

  const auto request = BuildRequest(words);
  if (!request) {
    std::fprintf(stderr, "zordctl: cannot make a request of that\n%s\n", kUsage);
    return 1;
  }
  std::string error;
  const std::string reply = zorControl(server, request->dump(), &error, token);
  if (!error.empty()) {
    std::fprintf(stderr, "zordctl: %s\n", error.c_str());
    return 1;
  }
  const json parsed = json::parse(reply, nullptr, false);
  if (parsed.is_discarded()) {
    std::printf("%s\n", reply.c_str());
    return 1;
  }
  if (words[0] == "export" && parsed.value("ok", false)) {
    if (!zord::ExportCalibration(parsed, words[1], &error)) {
      std::fprintf(stderr, "zordctl: %s\n", error.c_str());
      return 1;
    }
    std::printf("calibration of %zu cameras written to %s\n", parsed["cameras"].size(), words[1].c_str());
    return 0;
  }
  std::printf("%s\n", parsed.dump(2).c_str());
  return parsed.value("ok", false) ? 0 : 1;
}
