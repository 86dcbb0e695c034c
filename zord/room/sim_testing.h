// Helpers shared by the simulation's unit tests.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "zord/room/scene.h"
#include "zorsock/zorsock.h"

namespace zord::testing {

inline Scene DefaultScene() {
  Scene scene;
  std::string error;
  EXPECT_TRUE(ParseScene(DefaultSceneJson(), "built-in", &scene, &error)) << error;
  return scene;
}

inline void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

inline std::string ReadFile(const std::string& path) {
  std::string text, error;
  EXPECT_TRUE(ReadTextFile(path, &text, &error)) << error;
  return text;
}

}  // namespace zord::testing
