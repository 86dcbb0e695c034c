// Rendering cost of the 3D view: milliseconds per drawn frame and per pick
// for synthetic scenes at 1280 x 800, measured in the real widget's context
// (glFinish after each frame so the renderer's work is counted).
//   view_bench [--frames N]             figures for every scene
//   view_bench --show NAME [--seconds S] keep a window open (screenshots):
//                                        scene, cones, trails, 2d, select
#include <CLI/CLI.hpp>

#include <QApplication>
#include <QTimer>

#include <sys/resource.h>

#include <chrono>
#include <cstdio>

#include "link/zortk.h"
#include "view/gl_view.h"
#include "view/synthetic_scene.h"
#include "view/view_test_support.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kFramesPerRepaint = 8;  // 480 Hz data, 60 Hz redraw

double MsSince(Clock::time_point t0, int n) {
  return std::chrono::duration<double, std::milli>(Clock::now() - t0).count() / n;
}

// CPU time of the whole process (the software renderer's threads included),
// in milliseconds: the figure a busy shared machine does not inflate.
double CpuMs() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 +
         (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

struct Case {
  const char* name;
  SyntheticScene scene;
  bool cones;
  int trailFrames = 0;  // history per marker, drawn as lines
};

void Measure(GLView& view, ZOR& session, const Case& c, int frames) {
  MarkerStore& store = view.markerStore();
  store.Reset(c.scene.frequency);
  store.SetBrush(c.trailFrames > 0 ? kBrushLines : kBrushNone);
  if (c.trailFrames > 0) {
    store.SetMaxHistory(c.trailFrames);
    for (int i = 0; i < c.trailFrames; ++i) {  // the markers' recent past
      c.scene.Fill(session, i);
      view.ProcessFrame();
    }
  }
  c.scene.Fill(session, 1);
  view.draw.cones = c.cones;
  view.makeCurrent();
  view.Paint();  // builds the display lists
  glFinish();
  auto t0 = Clock::now();
  const double cpu0 = CpuMs();
  int recorded = c.trailFrames;
  for (int i = 0; i < frames; ++i) {
    // With trails, the frames a 480 Hz stream delivers between two 60 Hz
    // repaints are recorded first, as in the window (counted in the time).
    for (int k = 0; c.trailFrames > 0 && k < kFramesPerRepaint; ++k) {
      c.scene.Fill(session, recorded++);
      view.ProcessFrame();
    }
    c.scene.Fill(session, i);  // not timed separately: a few microseconds
    view.Paint();
    glFinish();
  }
  const double draw = MsSince(t0, frames);
  const double drawCpu = (CpuMs() - cpu0) / frames;
  // Picks: a box over the middle of the view (selection mode) and a click ray.
  const int w = view.pixelWidth(), h = view.pixelHeight();
  t0 = Clock::now();
  size_t hits = 0;
  for (int i = 0; i < frames; ++i) {
    hits = view.PickNames(PickRegion::Box(w / 4, h / 4, 3 * w / 4, 3 * h / 4)).size();
  }
  const double pick = MsSince(t0, frames);
  t0 = Clock::now();
  for (int i = 0; i < frames; ++i) view.ClickMarker(w / 2, h / 2);
  const double ray = MsSince(t0, frames);
  view.doneCurrent();
  std::printf("%-34s draw %6.2f ms/frame (cpu %6.2f)   box pick %6.2f ms (%zu hits)   click pick %6.3f ms\n",
              c.name, draw, drawCpu, pick, hits, ray);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App cli{"3D view rendering benchmark"};
  int frames = 100;
  std::string show;
  double seconds = 30;
  cli.add_option("--frames", frames, "frames per measurement")->check(CLI::PositiveNumber);
  cli.add_option("--show", show, "keep a window with this scene open");
  cli.add_option("--seconds", seconds, "how long --show keeps the window");
  CLI11_PARSE(cli, argc, argv);

  UseLegacyGLFormat();
  QApplication app(argc, argv);
  InitGlutOnce(argc, argv);
  GLView view;
  ZOR session(512, 1.0f);
  view.SetSession(&session);
  view.resize(1280, 800);
  view.show();
  QApplication::processEvents();
  view.camera().rotation.set(25, 35, 0);
  view.camera().distance = 75;
  view.camera().wantedCentre.set(0, 8, 0);

  if (!show.empty()) {
    SyntheticScene scene;
    scene.uncalibrated = show == "scene" ? 2 : 0;
    view.draw.cones = show == "cones";
    view.draw.stands = show == "cones";
    if (show == "2d") view.sl_View2d();
    if (show == "trails") {
      scene.markers = 24;
      view.markerStore().SetBrush(kBrushLines);
      view.markerStore().SetFade(true);
      view.markerStore().SetFadeCount(600);
    }
    int frame = 0;
    if (show == "trails") {
      for (; frame < 900; ++frame) {
        scene.Fill(session, frame * 4);
        view.ProcessFrame();
      }
    }
    scene.Fill(session, frame);
    if (show == "select") {
      for (int i : {3, 9, 17}) view.selection().ToggleMarker(i);
      view.selection().rigids = {2};
      view.draw.showDistance = true;
      view.draw.markerIds = true;
      view.camera().distance = 35;
    }
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] { view.update(); });
    timer.start(16);
    QTimer::singleShot(static_cast<int>(seconds * 1000), &app, &QApplication::quit);
    return QApplication::exec();
  }

  const Case cases[] = {
      {"128 markers, 16 rigids, 16 cameras", {128, 16, 16, 0, 480}, false},
      {"128 markers, 16 rigids, 16 cones", {128, 16, 16, 0, 480}, true},
      {"512 markers, 16 rigids, 16 cones", {512, 16, 16, 0, 480}, true},
      {"128 markers, 2000-frame trails", {128, 16, 16, 0, 480}, false, 2000},
  };
  std::printf("view_bench: %dx%d, %d frames, renderer %s\n", view.pixelWidth(), view.pixelHeight(),
              frames, reinterpret_cast<const char*>((view.makeCurrent(), glGetString(GL_RENDERER))));
  for (const Case& c : cases) Measure(view, session, c, frames);
  return 0;
}
