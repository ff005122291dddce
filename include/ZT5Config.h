/* Parameter ids of SetDisplayParam / GetDisplayParam and of the UI callback. */
#ifndef ZT5_CONFIG_H
#define ZT5_CONFIG_H

/* Front end ids. */
#define ZT5_CFG_COMMON_ROTATION                 1
#define ZT5_CFG_COMMON_ORIENTATION              4
#define ZT5_CFG_COMMON_SHAREDMEM_AGENT          6
#define ZT5_CFG_COMMON_BENCHMARK                14
#define ZT5_CFG_COMMON_BENCHMARK_BLIT           30
#define ZT5_CFG_COMMON_BENCHMARK_FRAME          31
#define ZT5_CFG_COMMON_BENCHMARK_RESET          50
#define ZT5_CFG_COMMON_FISHEYE_PARAM            64

/* Player-wide ids. */
#define ZT5_CFG_PLAYER_MODE                     0x1000004
#define ZT5_CFG_PLUGINMGR_HDL                   0x1000015
#define ZT5_CFG_PLAYER_PARENT_OBJECT            0x1000025

/* Display ids. */
#define ZT5_CFG_DISPLAY_PARAM                   0x9000001
#define ZT5_CFG_DISPLAY_STATUS                  0x9000003
#define ZT5_CFG_DISPLAY_SOURCE_RECT             0x9000004
#define ZT5_CFG_DISPLAY_LAST_FRAME              0x9000008
#define ZT5_CFG_DISPLAY_FIT_MODE                0x900000a
#define ZT5_CFG_DISPLAY_FULLSCREEN              0x900000b
#define ZT5_CFG_DISPLAY_SWITCH_HANDLE           0x900000c
#define ZT5_CFG_DISPLAY_ZOOM                    0x900000d
#define ZT5_CFG_DISPLAY_FRAMEINFO               0x900000e
#define ZT5_CFG_DISPLAY_RESIZE_ALG              0x900000f
#define ZT5_CFG_DISPLAY_UPDATE                  0x9000010
#define ZT5_CFG_DISPLAY_REFRESH                 0x9000011
#define ZT5_CFG_DISPLAY_ADJUST                  0x9000014
#define ZT5_CFG_DISPLAY_RESERVED_15             0x9000015
#define ZT5_CFG_DISPLAY_CLIP_TO_VIEWPORT        0x9000016
#define ZT5_CFG_DISPLAY_OPENGLES_DISPLAYCONTEXT 0x9000021
#define ZT5_CFG_DISPLAY_USE_OPENGLES            0x9000022
#define ZT5_CFG_DISPLAY_RENDERER_INITED         0x9000023
#define ZT5_CFG_DISPLAY_OPENGL_SCALE_RECT       0x9000024
#define ZT5_CFG_DISPLAY_RENDERER_ERROR          0x9000025
#define ZT5_CFG_DISPLAY_SCALE_MODE              0x9000026
#define ZT5_CFG_DISPLAY_UITOUCH_VELOCITY        0x9000027
#define ZT5_CFG_DISPLAY_UITOUCH_MOVED           0x9000028
#define ZT5_CFG_DISPLAY_FISHEYE_MODE            0x900002a
#define ZT5_CFG_DISPLAY_YUV_BUFFER              0x900002c
#define ZT5_CFG_DISPLAY_YUV_BUFFER_LEN          0x900002d
#define ZT5_CFG_DISPLAY_UITOUCH_UP              0x900002e
#define ZT5_CFG_DISPLAY_UITOUCH_DOWN            0x900002f
#define ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY   0x9000030
#define ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX        0x9000031
#define ZT5_CFG_DISPLAY_YUV_BUFFER_MODE         0x9000032
#define ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP       0x9000033
#define ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE      0x9000034
#define ZT5_CFG_DISPLAY_UICALLBACK              0x9000035
#define ZT5_CFG_DISPLAY_CURISE_STATE_EVENT      0x9000036
#define ZT5_CFG_DISPLAY_FISHEYE_X_POS           0x9000037
#define ZT5_CFG_DISPLAY_FISHEYE_Y_POS           0x9000038
#define ZT5_CFG_DISPLAY_FISHEYE_WIDTH           0x9000039
#define ZT5_CFG_DISPLAY_FISHEYE_HEIGHT          0x900003a
#define ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY     0x900003b
#define ZT5_CFG_DISPLAY_OPENGL_FULLVIEW         0x900003c
#define ZT5_CFG_DISPLAY_FE_BASE_ANIMATION       0x900003d
#define ZT5_CFG_DISPLAY_FE_BG_STAR              0x900003e
#define ZT5_CFG_DISPLAY_FE_BG_CLOUD             0x900003f
#define ZT5_CFG_DISPLAY_FE_CURRENTSTATUS        0x9000041
#define ZT5_CFG_DISPLAY_ROTATION_ANGLE          0x9000042
#define ZT5_CFG_DISPLAY_MULTI_DISPLAY           0x9000043
#define ZT5_CFG_DISPLAY_GL_SNAPSHOT             0x9000044
#define ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS    0x9000045
#define ZT5_CFG_DISPLAY_RENDER_MUTEX            0x9000046
#define ZT5_CFG_DISPLAY_FE_PLATFORM             0x9000047
#define ZT5_CFG_DISPLAY_EAGL_LAYER              0x9000048
#define ZT5_CFG_DISPLAY_SCALE_RATIO             0x9000049
#define ZT5_CFG_DISPLAY_EDGE_EVENT              0x900004b
#define ZT5_CFG_DISPLAY_MAX_SCALE               0x900004c
#define ZT5_CFG_DISPLAY_DISTORTION_PARAM        0x900004d
/* Overlays of the plain view. FONT_PATH: a NUL-terminated font file name
 * (copied) for the face labels; FACE_INFO: a ZT5FaceInfoList (kept);
 * FACE_MUTEX: the CZT5Mutex guarding it (kept); FACE_OPTION: u32 bits, 0
 * rectangles, 1 gender line, 2 age line, 3 name line; BACK_COLOR: u32
 * 0xRRGGBB clear colour of every view; LOGO_DATA: a ZT5VideoLogo (copied). */
#define ZT5_CFG_DISPLAY_FONT_PATH               0x9000050
#define ZT5_CFG_DISPLAY_FACE_INFO               0x9000051
#define ZT5_CFG_DISPLAY_FACE_MUTEX              0x9000052
#define ZT5_CFG_DISPLAY_FACE_OPTION             0x9000053
#define ZT5_CFG_DISPLAY_BACK_COLOR              0x9000054
#define ZT5_CFG_DISPLAY_LOGO_DATA               0x9000055
/* How the frame's Y'CbCr samples become RGB: one 32-bit word, a matrix
 * (ZT5_YUV_MATRIX_*) ORed with ZT5_YUV_RANGE_FULL for full-range samples.
 * Default 0: BT.601, video range. Other values are refused. */
#define ZT5_CFG_DISPLAY_YUV_MATRIX              0x9000057
#define ZT5_YUV_MATRIX_BT601                    0x0
#define ZT5_YUV_MATRIX_BT709                    0x1
#define ZT5_YUV_MATRIX_BT2020                   0x2
#define ZT5_YUV_RANGE_FULL                      0x100
/* Read only: a ZT5RenderStats record (draw and frame counts). */
#define ZT5_CFG_DISPLAY_RENDER_STATS            0x9000060
/* Faces over the plain view: a ZT5FaceList record, copied at the call. */
#define ZT5_CFG_DISPLAY_FACE_LIST               0x9000061
/* A display without a window: two 32-bit words, width and height (16..8192
 * each, else refused with 2), set before Init. A display whose Init then
 * gets hWnd 0 draws off-screen at that size, through EGL without any window
 * system; a display with a window ignores the size. Reads back the two
 * words (0, 0 when none was set). */
#define ZT5_CFG_DISPLAY_OFFSCREEN_SIZE          0x9000065
#define ZT5_OFFSCREEN_SIDE_MIN                  16
#define ZT5_OFFSCREEN_SIDE_MAX                  8192
/* Read only: the picture the display shows, into the host's buffer: a
 * ZT5Picture record (ZT5Records.h). */
#define ZT5_CFG_DISPLAY_PICTURE                 0x9000066
/* Read only: where a point lies, in the picture on screen (the last draw's
 * cameras, every view): a ZT5PointMap record the host fills and the
 * library completes. Result 0 for any record, 2 for a null one. */
#define ZT5_CFG_DISPLAY_MAP_POINT               0x9000063
/* Turn the view's steerable camera so that a frame point (two floats, pixels
 * of the frame as pushed) comes to the centre of its pane, stepped per draw
 * as the view's own jumps move, within the view's limits; ends a cruise as
 * a touch does. Refused with 2, nothing moves: a point outside the frame or
 * not a finite number, or a view without a steerable camera (mode 7). */
#define ZT5_CFG_DISPLAY_AIM_AT                  0x9000064
/* The lens's projection, for every fisheye view: a ZT5LensModel (copied).
 * A direction theta off the lens axis lands at the fraction
 * f(theta) / f(fov / 2) of the lens circle's radius (the circle of
 * ZT5_CFG_COMMON_FISHEYE_PARAM), f by dwLaw. Default (the all-zero record):
 * equidistant, 180 degrees; for FishEyeMode 10, whose circle is as wide as
 * the picture, orthographic, 180 degrees, until a record is set. Refused
 * with 2, nothing changed: an unknown law, a field of view
 * outside 60..360 degrees (orthographic: above 180; stereographic: 360
 * itself), a coefficient that isn't a finite number, a polynomial that
 * doesn't grow over 0..fov / 2. */
#define ZT5_CFG_COMMON_LENS_MODEL               0x9000062
#define ZT5_LENS_EQUIDISTANT                    0  /* f = theta */
#define ZT5_LENS_EQUISOLID                      1  /* f = sin(theta / 2) */
#define ZT5_LENS_STEREOGRAPHIC                  2  /* f = tan(theta / 2) */
#define ZT5_LENS_ORTHOGRAPHIC                   3  /* f = sin(theta) */
#define ZT5_LENS_POLYNOMIAL                     4  /* f = theta (1 + k1 theta^2 + ... + k4 theta^8) */

/* Values a codec or player gives to the display. */
#define ZT5_CFG_CODEC_FRAME_CALLBACK            0x11000033
#define ZT5_CFG_CODEC_ALIGNINFO                 0x11000044
#define ZT5_CFG_CODEC_HINT                      0x11000048
#define ZT5_CFG_PLAYER_RECT                     0x12000004

/* dwEvent of every UI callback message. */
#define ZT5_UI_EVENT                            1000

/* FrameInfo.dwCSType flags. */
#define ZT5_FRAME_CS_I420          0x1
#define ZT5_FRAME_CS_I420_B        0x8001
#define ZT5_FRAME_CS_SEMIPLANAR_A  0x8
#define ZT5_FRAME_CS_SEMIPLANAR_B  0x10
#define ZT5_FRAME_CS_SEMIPLANAR_C  0x8000
#define ZT5_FRAME_CS_PACKED2       0x1000
#define ZT5_FRAME_CS_PACKED3       0x100
#define ZT5_FRAME_CS_PACKED4_A     0x4000
#define ZT5_FRAME_CS_PACKED4_B     0x5000
#define ZT5_FRAME_CS_OUTPUT        0x400
/* Semi-planar 4:2:0 with the U sample of each chroma pair first (NV12, what
 * hardware decoders deliver); the SEMIPLANAR types put V first. Full-size Y
 * plane, then rows of interleaved U,V pairs. */
#define ZT5_FRAME_CS_NV12          0x20
/* Packed 4:2:2, two bytes a pixel: ZT5_FRAME_CS_YUYV (the packed two-byte
 * type, Y0 U Y1 V, what USB cameras give) and ZT5_FRAME_CS_UYVY (U Y0 V Y1).
 * Rows of 2 * w bytes (w rounded up to even). */
#define ZT5_FRAME_CS_YUYV          ZT5_FRAME_CS_PACKED2
#define ZT5_FRAME_CS_UYVY          0x2000
/* 10-bit 4:2:0 in 16-bit little-endian words. ZT5_FRAME_CS_I010: planar,
 * the 10 bits in the low bits of each word (software HEVC Main 10 decoders);
 * rows of 2 * w bytes, chroma planes of (w/2) by (h/2) words.
 * ZT5_FRAME_CS_P010: Y, then rows of U,V word pairs, the 10 bits in the top
 * bits of each word (hardware decoders); both at a pitch of 2 * w bytes. */
#define ZT5_FRAME_CS_I010          0x40
#define ZT5_FRAME_CS_P010          0x80

/* Colour-space ids used from the display manager downward. */
#define ZT5_CS_I420          0x50000811
#define ZT5_CS_I420_B        0x70000012
#define ZT5_CS_SEMIPLANAR_A  0x70000002
#define ZT5_CS_SEMIPLANAR_B  0x70000003
#define ZT5_CS_SEMIPLANAR_C  0x70000006
#define ZT5_CS_PACKED2       0x50000410
#define ZT5_CS_PACKED3       0x16000777
#define ZT5_CS_PACKED4_A     0x37001777
#define ZT5_CS_PACKED4_B     0x70000010
#define ZT5_CS_OUTPUT        0x15000454
#define ZT5_CS_NV12          0x70000004

/* Snapshot result word for RGBA pixels. */
#define ZT5_SNAPSHOT_RGBA    0x4000

#endif
