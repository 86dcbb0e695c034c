#include "view/orientation.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>

#include "link/save_file.h"

OrientationMatrix IdentityOrientation() {
  return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
}

OrientationMatrix AxesMatrix(const Vec3& a, const Vec3& b, const Vec3& c) {
  return {a[0], a[1], a[2], 0, b[0], b[1], b[2], 0, c[0], c[1], c[2], 0, 0, 0, 0, 1};
}

bool ReadOrientationFile(const std::string& fileName, OrientationMatrix& m) {
  std::FILE* file = std::fopen(fileName.c_str(), "r");
  if (!file) return false;
  bool found = false;
  char line[1024];
  while (std::fgets(line, sizeof line, file)) {
    OrientationMatrix read;
    float* r = read.data();
    const int n = std::sscanf(line, "%f %f %f %f %f %f %f %f %f %f %f %f %f %f %f %f ", &r[0],
                              &r[1], &r[2], &r[3], &r[4], &r[5], &r[6], &r[7], &r[8], &r[9],
                              &r[10], &r[11], &r[12], &r[13], &r[14], &r[15]);
    // "nan" and "inf" scan as numbers, but would leave the view showing nothing.
    if (n == 16 && std::all_of(read.begin(), read.end(), [](float v) { return std::isfinite(v); })) {
      m = read;
      found = true;
    }
  }
  std::fclose(file);
  return found;
}

bool WriteOrientationFile(const std::string& fileName, const OrientationMatrix& m) {
  std::ostringstream line;
  for (float v : m) line << v << ' ';
  line << '\n';
  if (!SaveFileAtomically(fileName, line.str())) {
    std::printf("unable to open: %s\n", fileName.c_str());
    return false;
  }
  return true;
}
