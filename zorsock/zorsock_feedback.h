/* Calibration feedback from the capture server beside its calibration
 * messages: the live coverage of a wand capture, the figures of the last
 * calibration run, and the cameras that may have moved since (docs/protocol.md,
 * "Calibration feedback"). Same conventions as zorsock.h. */
#ifndef ZORSOCK_ZORSOCK_FEEDBACK_H
#define ZORSOCK_ZORSOCK_FEEDBACK_H

#include "zorsock/zorsock.h"

#define ZOR_CALIB_COVERAGE 0xC60       /* what zorGetCoverage asks the server for */
#define ZOR_COVERAGE_GRID 8            /* coverage cells across and down each image */
#define ZOR_CALIB_RESULT 0xC61         /* what zorGetCalibResult asks the server for */
#define ZOR_CAMERA_WATCH 0xC62         /* what zorGetCameraWatch asks the server for */
#define ZOR_CAMERA_MODELS 0xC63        /* what zorGetCameraModels asks the server for */

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Live wand capture coverage (docs/protocol.md) ---- */
typedef struct ZORCoverageSummary {
  int32_t cameras;
  int32_t frames;             /* captured wand frames the solver can use */
  int32_t min_frames;         /* frames a camera needs (seeing 2 or more LEDs) */
  int32_t min_shared_frames;  /* frames two cameras need together to be linked */
  float min_spread;           /* spread a camera needs, fraction of its image height */
} ZORCoverageSummary;

typedef struct ZORCoverage {
  int32_t camera;     /* camera id */
  int32_t frames;     /* usable wand frames in which it saw 2 or more LEDs */
  int32_t samples;    /* its LED detections in those frames */
  int32_t ready;      /* 1: enough coverage and linked to the others: the solver takes it */
  uint32_t cells[2];  /* coverage grid, cell (row, column) is bit row * 8 + column of
                         cells[0] (bits 0-31) then cells[1]; row 0 at the image top */
  float spread;       /* spread across its samples' narrowest direction / image height */
  float covered;      /* fraction of the grid's cells holding a sample */
} ZORCoverage;

/* Copies the coverage of the wand capture so far: the summary, up to
 * `capacity` cameras and, when shared_frames is not NULL, the frames each
 * pair of cameras saw together (n x n, row-major, n = the camera count, which
 * must not exceed capacity). Returns the camera count, < 0 on error. */
int zorGetCoverage(ZORCoverageSummary* summary, ZORCoverage* cameras, int capacity,
                   int* shared_frames);

/* ---- Figures of the last successful calibration run (docs/calibration.md) ---- */
#define ZOR_GRADE_NONE 0  /* no calibration run has succeeded yet */
#define ZOR_GRADE_EXCELLENT 1
#define ZOR_GRADE_GOOD 2
#define ZOR_GRADE_FAIR 3
#define ZOR_GRADE_POOR 4
typedef struct ZORCalibSummary {
  int32_t cameras;
  int32_t grade;             /* ZOR_GRADE_* */
  float rms_px;              /* reprojection error over every inlier sample */
  float wand_length_mm;      /* mean length of the wand measured frame by frame */
  float wand_length_std_mm;  /* its spread (one sigma); < 0 when not measured */
  int32_t frames;            /* wand frames the final pass used */
  int32_t run;               /* counts the server's successful runs: tells a new result */
} ZORCalibSummary;

typedef struct ZORCameraResult {
  int32_t camera;
  int32_t calibrated;   /* 0: the run left it out */
  int32_t samples;      /* its inlier samples */
  float rms_px;         /* its own reprojection error */
  float position_mm;    /* one-sigma uncertainty of its position, worst direction */
  float rotation_deg;   /* one-sigma uncertainty of its orientation */
} ZORCameraResult;

/* Copies the figures of the last successful run: the summary and up to
 * `capacity` cameras. Returns the camera count (0 with grade ZOR_GRADE_NONE
 * before any run succeeded), < 0 on error. */
int zorGetCalibResult(ZORCalibSummary* summary, ZORCameraResult* cameras, int capacity);

/* ---- Cameras that may have moved since their calibration ---- */
typedef struct ZORCameraWatch {
  int32_t camera;
  int32_t moved;      /* 1: its residual stays well above its calibrated level */
  float residual_px;  /* live reprojection residual against the other cameras; < 0: not seen */
  float level_px;     /* the level it settled at after calibration; < 0: still learning */
} ZORCameraWatch;

/* Copies the server's watch of up to `capacity` calibrated cameras; returns
 * the camera count, < 0 on error. */
int zorGetCameraWatch(ZORCameraWatch* cameras, int capacity);

/* ---- The current calibration of each camera, in full (docs/protocol.md) ---- */
typedef struct ZORCameraModel {
  int32_t camera;
  int32_t calibrated;      /* 0: its lens and pose are the nominal ones, not calibrated */
  int32_t width, height;   /* image size, pixels */
  double fx, fy, cx, cy;   /* focal lengths and principal point, pixels */
  double k1, k2, p1, p2;   /* radial and tangential distortion */
  double rotation[9];      /* world to camera, row-major, in the server's world in mm
                              (global transform applied, zorScale and zorLoadPose not) */
  double translation[3];   /* world to camera, mm */
} ZORCameraModel;

/* Copies the server's current calibration of up to `capacity` cameras (the
 * numbers its own export writes); returns the camera count, < 0 on error. */
int zorGetCameraModels(ZORCameraModel* cameras, int capacity);

#ifdef __cplusplus
} /* extern "C" */

static_assert(sizeof(ZORCoverage) == 32, "ZORCoverage layout");
static_assert(sizeof(ZORCameraResult) == 24, "ZORCameraResult layout");
static_assert(sizeof(ZORCameraWatch) == 16, "ZORCameraWatch layout");
static_assert(sizeof(ZORCameraModel) == 176, "ZORCameraModel layout");
#endif

#endif /* ZORSOCK_ZORSOCK_FEEDBACK_H */
