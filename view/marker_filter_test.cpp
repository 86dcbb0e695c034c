// The per-marker smoothing filter and the store of filters and trails.
#include <gtest/gtest.h>

#include <cmath>

#include "view/marker_filter.h"
#include "view/marker_store.h"

namespace {

ZORMarker Seen(int frame, float x, float y = 0, float z = 0, float cond = 1) {
  ZORMarker m{};
  m.id = 7;
  m.frame = frame;
  m.x = x, m.y = y, m.z = z;
  m.cond = cond;
  return m;
}

ZORMarker Missing(int frame) { return Seen(frame, 0, 0, 0, -1); }

TEST(MarkerFilter, WindowIsOddReconfiguringKeepsDataAndResetForgets) {
  MarkerFilter f;
  f.Configure(480, 60);
  EXPECT_EQ(f.window(), 9);
  EXPECT_EQ(f.data().size(), 9u);
  EXPECT_EQ(f.data().front().cond, -1);
  f.Push(Seen(1, 5));
  f.Configure(500, 55);  // 9.09 -> 9: nothing changes
  EXPECT_EQ(f.data().back().x, 5);
  EXPECT_EQ(f.lastValidFrame(), 1);
  f.Configure(480, 160);  // 3
  EXPECT_EQ(f.data().size(), 3u);
  f.Reset(480, 60);
  EXPECT_EQ(f.lastValidFrame(), -1);
  EXPECT_EQ(f.data().back().frame, -1);
  f.Configure(100, 160);  // 0 made odd
  EXPECT_EQ(f.window(), 1);
}

// The diagnostic is part of the program's interface: its text and line.
TEST(MarkerFilterDeathTest, ARateOfZeroStopsWithTheFiltersDiagnostic) {
  MarkerFilter f;
  EXPECT_DEATH(f.Configure(480, 0), "filter:16: assertion failed: system_freq > 0 && filter_freq > 0");
}

TEST(MarkerFilter, OutputIsHalfAWindowBack) {
  MarkerFilter f;
  f.Configure(480, 60);
  for (int i = 0; i < 9; ++i) f.Push(Seen(i, float(i * 10)));
  ZORMarker out;
  EXPECT_EQ(f.Output(MarkerFilter::kFit, out), 9);
  EXPECT_EQ(out.frame, 4);
  EXPECT_NEAR(out.x, 40, 1e-4);  // a straight line is reproduced exactly
  EXPECT_EQ(f.Output(MarkerFilter::kAverage, out), 9);
  EXPECT_NEAR(out.x, 40, 1e-4);
  // A one-sample window gives the newest sample.
  f.Configure(100, 160);
  f.Push(Seen(3, 1.5f, 2.5f, 3.5f));
  EXPECT_EQ(f.Output(MarkerFilter::kFit, out), 1);
  EXPECT_FLOAT_EQ(out.x, 1.5f);
  EXPECT_FLOAT_EQ(out.z, 3.5f);
}

TEST(MarkerFilter, FitFollowsTheTrendAcrossAMissingSampleWhereTheAverageDrifts) {
  MarkerFilter f;
  f.Configure(300, 60);  // window 5
  // Frames 0, (1 missing), 5, 6, 7 on the line x = 10 * frame: the gap from
  // 0 to 5 is too long to fill, so the window holds four valid samples.
  const int frames[5] = {0, 1, 5, 6, 7};
  for (int i = 0; i < 5; ++i) {
    f.Push(i == 1 ? Missing(frames[i]) : Seen(frames[i], float(frames[i] * 10)));
  }
  ZORMarker fit, average;
  EXPECT_EQ(f.Output(MarkerFilter::kFit, fit), 4);
  EXPECT_EQ(f.Output(MarkerFilter::kAverage, average), 4);
  EXPECT_NEAR(fit.x, 50, 1e-4);
  EXPECT_NEAR(average.x, 45, 1e-4);  // (0 + 50 + 60 + 70) / 4
}

TEST(MarkerFilter, InvalidEdgeGivesNothingAndAConditionZeroMiddleOnlyTheAverage) {
  MarkerFilter f;
  f.Configure(300, 60);
  for (int i = 0; i < 4; ++i) f.Push(Seen(i, 1));
  f.Push(Missing(4));  // last sample of the window not seen
  ZORMarker out;
  EXPECT_EQ(f.Output(MarkerFilter::kFit, out), 0);
  EXPECT_EQ(out.cond, -1);
  EXPECT_EQ(f.Output(MarkerFilter::kAverage, out), 0);

  MarkerFilter g;
  g.Configure(300, 60);
  for (int i = 0; i < 5; ++i) g.Push(Seen(i, float(i), 0, 0, i == 2 ? 0.0f : 1.0f));
  EXPECT_EQ(g.Output(MarkerFilter::kFit, out), 0);
  // The middle (condition 0) was closed by gap filling: flagged, so it counts.
  EXPECT_EQ(g.Output(MarkerFilter::kAverage, out), 5);
  EXPECT_NEAR(out.x, 2, 1e-5);
}

TEST(MarkerFilter, ShortGapIsFilledOnTheLineALongOneStaysOpen) {
  MarkerFilter f;
  f.Configure(480, 60);  // window 9, gaps up to 4
  f.Push(Seen(10, 0, 0, 0));
  for (int i = 11; i <= 13; ++i) f.Push(Missing(i));
  f.Push(Seen(14, 40, 0, 0));
  const auto& d = f.data();
  for (int k = 1; k <= 3; ++k) {
    const ZORMarker& s = d[d.size() - 1 - 4 + k];
    EXPECT_NEAR(s.x, 10.0f * k, 1e-4);
    EXPECT_TRUE(s.flag & MarkerFilter::kInterpolated);
    EXPECT_EQ(s.cond, -1);  // the condition is left as it was
  }
  EXPECT_EQ(f.lastValidFrame(), 14);

  for (int i = 15; i <= 19; ++i) f.Push(Missing(i));
  f.Push(Seen(20, 60));
  for (int i = 3; i <= 7; ++i) EXPECT_FALSE(d[i].flag & MarkerFilter::kInterpolated) << i;
}

std::vector<ZORMarker> Frame(int frame, float x, int count = 2) {
  std::vector<ZORMarker> markers;
  for (int i = 0; i < count; ++i) {
    ZORMarker m = Seen(frame, x + i * 100);
    m.id = i;
    markers.push_back(m);
  }
  return markers;
}

TEST(MarkerStore, FilteringReplacesMarkersWithTheDelayedFit) {
  MarkerStore store;
  store.SetFilterFrequency(60);
  store.SetFiltering(true);
  std::vector<ZORMarker> markers;
  for (int i = 0; i < 9; ++i) {
    markers = Frame(i, float(i));
    store.Process(markers, 480);
  }
  EXPECT_EQ(markers[0].frame, 4);
  EXPECT_NEAR(markers[0].x, 4, 1e-4);
  EXPECT_NEAR(markers[1].x, 104, 1e-4);
  EXPECT_EQ(store.filters().size(), 2u);
  std::vector<ZORMarker> none;  // an empty frame drops the filters
  store.Process(none, 480);
  EXPECT_TRUE(store.filters().empty());
}

TEST(MarkerStore, LowRatioOrFilteringOffLeavesMarkers) {
  MarkerStore store;
  store.SetFilterFrequency(200);  // 480 / 200 = 2: below 3
  store.SetFiltering(true);
  std::vector<ZORMarker> markers = Frame(1, 5);
  store.Process(markers, 480);
  EXPECT_FLOAT_EQ(markers[0].x, 5);
  EXPECT_TRUE(store.filters().empty());
  store.SetFilterFrequency(60);
  store.SetFiltering(false);
  store.Process(markers, 480);
  EXPECT_FLOAT_EQ(markers[0].x, 5);
  EXPECT_EQ(store.filters().size(), 2u);  // history kept, ready for switching on
}

TEST(MarkerStore, TrailsKeepTheNewestPositionsAndBreakOnGaps) {
  MarkerStore store;
  store.SetBrush(kBrushLines);
  store.SetMaxHistory(3);
  for (int i = 0; i < 5; ++i) {
    std::vector<ZORMarker> markers = Frame(i, float(i), 1);
    if (i == 3) markers[0].cond = -1;
    store.Process(markers, 480);
  }
  const MarkerTrail& t = store.trails()[0];
  EXPECT_EQ(t.count, 3u);
  EXPECT_FLOAT_EQ(t.Back(0)[0], 4);
  EXPECT_TRUE(std::isnan(t.Back(1)[0]));
  EXPECT_FLOAT_EQ(t.Back(2)[0], 2);
  EXPECT_EQ(store.HistoryBytes(), 3 * sizeof(Vec3));
  store.SetMaxHistory(2);  // shrinking keeps the newest
  std::vector<ZORMarker> markers = Frame(5, 5, 1);
  store.Process(markers, 480);
  EXPECT_EQ(store.trails()[0].count, 2u);
  EXPECT_FLOAT_EQ(store.trails()[0].Back(1)[0], 4);
  store.SetMaxHistory(0);  // ignored
  EXPECT_EQ(store.maxHistory(), 2);
  store.SetBrush(kBrushNone);
  EXPECT_EQ(store.HistoryBytes(), 0u);
}

TEST(MarkerStore, AnotherMarkerInTheSlotStartsANewTrailAndUnseenOnesHaveNoCondition) {
  MarkerStore store;
  store.SetBrush(kBrushPoints);
  std::vector<ZORMarker> markers = Frame(0, 1, 1);
  store.Process(markers, 480);
  markers[0].id = 99;
  store.Process(markers, 480);
  EXPECT_EQ(store.trails()[0].count, 1u);
  EXPECT_EQ(store.trails()[0].id, 99);
  markers = Frame(1, 1, 3);
  markers[0].cond = 10, markers[1].cond = 15, markers[2].cond = -1;
  store.Process(markers, 480);
  EXPECT_FLOAT_EQ(store.averageCondition(), 12.5f);
}

}  // namespace
