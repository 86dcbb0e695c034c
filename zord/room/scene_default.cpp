// The built-in scene, used when zord is given no scene file. Kept identical to
// data/scenes/default.json (a test compares them).
#include "zord/room/scene.h"

namespace zord {

const char* DefaultSceneJson() {
  return R"json({
  "name": "default",
  "room": {"size": [6000, 3000, 6000]},
  "volume": {"centre": [0, 1200, 0], "size": [2800, 1200, 2800]},
  "noise_px": 0.1,
  "dropout": 0.0,
  "start_calibrated": false,
  "exposure_us": 400,
  "temperature_c": 41.5,
  "led_diameter_mm": 8,
  "lens": {"fx": 1150, "fy": 1150, "cx": 640, "cy": 512, "k1": -0.04, "width": 1280, "height": 1024},
  "lens_error": {"focal_px": 12, "centre_px": 5, "k1": 0.01},
  "mount_error": {"position_mm": 20, "angle_deg": 0.8},
  "perturbation_seed": 7,
  "cameras": [
    {"position": [2800, 2750, 2800], "aim": [0, 900, 0]},
    {"position": [0, 2350, 2900], "aim": [0, 1000, 0]},
    {"position": [-2800, 2750, 2800], "aim": [0, 900, 0]},
    {"position": [-2900, 2350, 0], "aim": [0, 1000, 0]},
    {"position": [-2800, 2750, -2800], "aim": [0, 900, 0]},
    {"position": [0, 2350, -2900], "aim": [0, 1000, 0]},
    {"position": [2800, 2750, -2800], "aim": [0, 900, 0]},
    {"position": [2900, 2350, 0], "aim": [0, 1000, 0]}
  ],
  "wand": {
    "leds": [[0, -450, 0, 0], [1, -350, 0, 0], [2, -180, 0, 0], [3, -40, 0, 0],
             [4, 75, 0, 0], [5, 235, 0, 0], [6, 360, 0, 0], [7, 450, 0, 0]],
    "motion": "wave",
    "position": [0, 1000, 0],
    "direction": [1, 0, 0]
  },
  "bodies": [
    {
      "leds": [[8, 0, 0, 0], [9, 140, 0, 20], [10, -30, 0, 110], [11, 60, 70, -80], [12, -90, 40, -40]],
      "motion": "move",
      "position": [0, 1100, 0],
      "rotation": [1, 0, 0, 0],
      "range": [900, 250, 900]
    }
  ],
  "align": {
    "leds": [[13, 0, 0, 0], [14, 300, 0, 0], [15, 700, 0, 0], [16, 0, 0, 500]],
    "position": [-400, 10, 300],
    "yaw_deg": 20
  },
  "loose": [[17, 1800, 150, -1800], [18, -1900, 1400, -1500], [19, 1500, 2000, 1900], [20, -600, 50, -2200]]
}
)json";
}

}  // namespace zord
