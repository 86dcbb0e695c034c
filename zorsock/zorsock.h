/* zorsock — client library of the zord capture server.
 *
 * One process holds at most one connection (the C API keeps it in the
 * library). Calls that talk to the server block for one round trip at most
 * (bounded by ZOR_REPLY_TIMEOUT_MS); the per-frame getters never block: the
 * library receives frames on its own I/O thread and queues them.
 *
 * Every call records whether it succeeded (zorGetStatus) and, when it failed,
 * queues an error code that zorGetError pops (oldest first, 0 when none).
 */
#ifndef ZORSOCK_ZORSOCK_H
#define ZORSOCK_ZORSOCK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Frame records (all fields 32-bit, little-endian, packed) ---- */

typedef struct ZORMarker {
  int32_t id;     /* (tracker << 12) | index */
  int32_t frame;  /* server frame number */
  float x, y, z;  /* position, after scale and pose */
  float cond;     /* > 0: seen in this frame; falls with the triangulation residual */
  uint32_t flag;  /* number of cameras that saw the marker */
} ZORMarker;

typedef struct ZORRigid {
  int32_t id;     /* tracker id */
  int32_t frame;
  float pose[7];  /* x, y, z, qw, qx, qy, qz */
  float cond;     /* > 0: tracked; RMS fit residual falls with it */
  uint32_t flag;  /* number of markers used in the fit */
} ZORRigid;

typedef struct ZORCamera {
  int32_t id;     /* shown to users as id + 1 */
  float pose[7];  /* camera to world; the camera looks along its -Z, image up is +Y */
  float cond;     /* < 0: not calibrated */
  uint32_t flag;
} ZORCamera;

/* One 2D detection of one LED by one camera. */
typedef struct ZORImage {
  int32_t camera;  /* camera id */
  int32_t frame;
  int32_t led;     /* LED id the detection belongs to */
  float u, v;      /* pixel coordinates, origin top left, v down */
  float size;      /* blob diameter in pixels */
  float intensity; /* 0..1 */
  uint32_t flag;
} ZORImage;

/* Per-camera state for one frame. */
typedef struct ZORDetector {
  int32_t camera;
  int32_t frame;
  int32_t detections; /* number of LEDs seen */
  int32_t width;      /* sensor size in pixels */
  int32_t height;
  float focal;        /* focal length in pixels */
  float exposure;     /* microseconds */
  float temperature;  /* degrees Celsius */
  int32_t state;      /* 0 ok, 1 uncalibrated, 2 no signal */
  uint32_t flag;
} ZORDetector;

/* ---- Codes ---- */

/* Errors (zorGetError) */
#define ZOR_NO_ERROR 0x00
#define ZOR_FINISHED 0x01          /* the server ended the session */
#define ZOR_INVALID_VALUE 0x20
#define ZOR_INVALID_ENUM 0x21
#define ZOR_INVALID_OPERATION 0x22
#define ZOR_CONNECTION_LOST 0x30   /* the link broke without the server ending it */
#define ZOR_TIMED_OUT 0x31         /* the server did not answer in time */
#define ZOR_PROTOCOL_ERROR 0x32    /* the server sent something malformed */
#define ZOR_NOT_CONNECTED 0x33

/* zorInit failures: negated socket error numbers */
#define ZOR_ERR_CONNECTION_REFUSED (-10061)
#define ZOR_ERR_NETWORK_UNREACHABLE (-10051)
#define ZOR_ERR_HOST_UNREACHABLE (-10065)
#define ZOR_ERR_TIMED_OUT (-10060)
#define ZOR_ERR_ALREADY_CONNECTED (-2)
#define ZOR_ERR_HANDSHAKE (-3)     /* the peer is not a zord of a compatible version */
#define ZOR_ERR_RESOLVE (-4)       /* host name could not be resolved */

/* zorInit flags */
#define ZOR_FLAG_SLAVE 0x001       /* watch only; state changes are refused */
#define ZOR_FLAG_POSTPROCESS 0x010
#define ZOR_FLAG_CALIBRATE 0xC00   /* open the session for calibration */

/* Tracker operations and types */
#define ZOR_TRACKER_CREATE 0x100
#define ZOR_TRACKER_DESTROY 0x101
#define ZOR_ON 0x102               /* enable a tracker / switch a stream on */
#define ZOR_OFF 0x103
#define ZOR_POINT_TRACKER 0x300
#define ZOR_RIGID_TRACKER 0x301
#define ZOR_CALIB_TRACKER 0xC01

/* Server parameters */
#define ZOR_FREQUENCY 0x200        /* float, frames per second */
#define ZOR_STREAMING 0x201        /* ZOR_ON / ZOR_OFF */
#define ZOR_INTERPOLATE 0x202
#define ZOR_SEND_MARKERS 0x211     /* set ZOR_ON/ZOR_OFF; get: current frame has markers */
#define ZOR_SEND_RIGIDS 0x212
#define ZOR_SEND_DETECTORS 0x2A1
#define ZOR_SEND_IMAGES 0x2A2
#define ZOR_MARKER_LED 0x400       /* zorMarkeriv: LED id of a tracker marker */
#define ZOR_MARKER_POSITION 0x401  /* zorMarkerfv: local position (3 floats) */
#define ZOR_VERSION 0x500          /* zorGetString: library version */
#define ZOR_FRAME_NUMBER 0x510     /* newest frame number received */
#define ZOR_FRAMES_DROPPED 0x511   /* frames dropped by the library's bounded queue */
#define ZOR_FRAME_TIME 0x512       /* 2 ints: server clock (us, lo/hi) of the head frame */
#define ZOR_SERVER_NAME 0x520      /* zorGetString: the server's description */

/* Calibration */
#define ZOR_CALIB_LOAD_EXISTING 0xC11  /* 0 blank, 1 keep the existing calibration */
#define ZOR_CALIB_SAVE 0xC12
#define ZOR_CALIB_RUN 0xC13            /* zorTrackeri(1, .., quality) */
#define ZOR_CALIB_CAPTURE_RESET 0xC20
#define ZOR_CALIB_CAPTURE_START 0xC21
#define ZOR_CALIB_CAPTURE_STOP 0xC22
#define ZOR_CALIB_MESSAGE 0xC51        /* zorGetString: next calibration message */
#define ZOR_GLOBAL_TRANSFORM 0xC200    /* zorGetFloatv/zorSetFloatv: a pose (7 floats) */

#define ZOR_DEFAULT_PORT 8999
#define ZOR_STRING_MAX 1024        /* zorGetString writes at most this many bytes */
#define ZOR_SCAN_RESULT_SIZE 512   /* 256-byte address, then 256-byte description */
#define ZOR_CONNECT_TIMEOUT_MS 3000
#define ZOR_REPLY_TIMEOUT_MS 5000

/* ---- Session ---- */

/* server: "host" or "host:port" (default port 8999). Returns >= 0 on success. */
int zorInit(const char* server, unsigned int flags);
void zorDone(void);
int zorGetStatus(void);
int zorGetError(void);

int zorSetInteger(int code, int value);
int zorSetFloat(int code, float value);
int zorSetFloatv(int code, const float* values);
int zorGetFloatv(int code, float* values);   /* returns the count, <= 0 on failure */
int zorGetIntegerv(int code, int* values);   /* returns the count, <= 0 on failure */
/* Version, server name, calibration messages, and the text of an error code.
 * Writes at most ZOR_STRING_MAX bytes including the terminator; returns the
 * length, 0 or less when there is nothing. */
int zorGetString(int code, char* buffer);

int zorScale(float scale);
int zorLoadPose(const float pose[7]);

/* Copy the records of the current frame (see docs/protocol.md); return the
 * count, 0 for none, < 0 on error. Never block. */
int zorGetMarkers(ZORMarker* out, int capacity);
int zorGetRigids(ZORRigid* out, int capacity);
int zorGetImages(ZORImage* out, int capacity);
int zorGetDetectors(ZORDetector* out, int capacity);
int zorGetCameras(ZORCamera* out, int capacity);

int zorTracker(int id, int op);
int zorTrackeri(int id, int op, int value);
int zorTrackerf(int id, int param, float value);
int zorMarkeriv(int markerId, int code, const int* values);
int zorMarkerfv(int markerId, int code, const float* values);

/* ---- Raw data ---- */
/* Raw data (docs/rpd.md). zorRPDOpen(address, file, mode): mode 1 records the
 * server's raw 2D data into `file` (zorRPDRecv moves what has arrived and
 * returns the bytes written, 0 when nothing is pending); mode 2, only while no
 * session is open, checks the recording `file` and zorRPDSend uploads it for
 * the server to replay as its camera input (zorRPDRecv then returns the bytes
 * sent since the last call). zorRPDClose ends the transfer (in mode 2 it waits
 * for the upload and returns its outcome). 1 on success, negative codes below;
 * zorRPDError() says what went wrong last, in words. */
#define ZOR_RPD_INVALID_MODE (-1)    /* mode other than 1 or 2 */
#define ZOR_RPD_WRONG_STATE (-2)     /* mode 2 while connected, or a transfer already open */
#define ZOR_RPD_CANNOT_CONNECT (-3)  /* the server cannot be reached */
#define ZOR_RPD_MODE_FAILED (-4)     /* the server did not take the mode */
#define ZOR_RPD_REFUSED (-5)         /* the server refused the recording (see its messages) */
#define ZOR_RPD_FILE_ERROR (-6)      /* the file cannot be written, read, or is no valid recording */
#define ZOR_RPD_IO_ERROR (-7)        /* the stream broke or the server ended it */
int zorRPDOpen(const char* address, const char* fileName, int mode);
int zorRPDSend(void);
int zorRPDRecv(void);
int zorRPDClose(void);
const char* zorRPDError(void);

/* ---- Discovery (UDP) ---- */
/* target: a host, broadcast or subnet address (NULL or "" means the local
 * broadcast and loopback). results: max * ZOR_SCAN_RESULT_SIZE bytes.
 * Returns the number of servers found, negative on error. */
int zor_scan(const char* target, int port, const char* ident, int timeout_us, char* results,
             int max);

/* ---- Pose math: Pose = x, y, z, qw, qx, qy, qz; matrices column-major ---- */
void mult_pp(const float* a, const float* b, float* out);
void convert_pm(const float* pose, float* m16);
void convert_mp(const float* m16, float* pose);
void invert_p(float* pose);
void normalize_p(float* pose);
void mult_mv3_v3(const float* m16, const float* v, float* out);

#ifdef __cplusplus
} /* extern "C" */

static_assert(sizeof(ZORMarker) == 28, "ZORMarker layout");
static_assert(sizeof(ZORRigid) == 44, "ZORRigid layout");
static_assert(sizeof(ZORCamera) == 40, "ZORCamera layout");
static_assert(sizeof(ZORImage) == 32, "ZORImage layout");
static_assert(sizeof(ZORDetector) == 40, "ZORDetector layout");
#endif

#endif /* ZORSOCK_ZORSOCK_H */
