// Rotating and moving planar pictures: the scale that a rotation needs, and the entry points.
//
//   const IMG_PARAM frame = {y, 640, 480, 640, 8, 0, 0, 640, 480};
//   const double scale = CalcResizeScaleforRotate(frame, 90);  // 0.75
//
// Threads: each routine is marked [any]: any thread, at any time, as long as no other thread uses
// the same buffers.
#pragma once

#include "zel/Common/Image/Resize.h"

/// [any] The factor that makes the rectangle fit its own frame after a quarter turn: the shorter
/// side over the longer one. 1.0 for a multiple of 180 degrees, and if both sides are 0.
/// @param nAngle degrees, of either sign.
ZEL_API double CalcResizeScaleforRotate(const IMG_PARAM& img, int nAngle);

// Entry points of rotation and moving, kept so that callers link. They take the arguments of
// ImageResizeYV12.

/// [any] Does not rotate: reads and writes nothing.
/// @return 1.
ZEL_API int ImageRotateYV12(const IMG_PARAM& src, unsigned char* pSrcY, unsigned char* pSrcU,
                            unsigned char* pSrcV, int nSrcPitchY, int nSrcPitchU, int nSrcPitchV,
                            const IMG_PARAM& dst, unsigned char* pDstY, unsigned char* pDstU,
                            unsigned char* pDstV, int nDstPitchY, int nDstPitchU, int nDstPitchV,
                            IMAGE_INTERPOLATION method, int nReserved = 0);
/// [any] Does not move: reads and writes nothing.
/// @return 1.
ZEL_API int ImageDragYUV(const IMG_PARAM& src, unsigned char* pSrcY, unsigned char* pSrcU,
                         unsigned char* pSrcV, int nSrcPitchY, int nSrcPitchU, int nSrcPitchV,
                         const IMG_PARAM& dst, unsigned char* pDstY, unsigned char* pDstU,
                         unsigned char* pDstV, int nDstPitchY, int nDstPitchU, int nDstPitchV,
                         IMAGE_INTERPOLATION method, int nReserved = 0);
/// [any] Neither rotates nor scales: reads and writes nothing.
/// @return 1.
ZEL_API int ImageRotateResizeYUV(const IMG_PARAM& src, unsigned char* pSrcY, unsigned char* pSrcU,
                                 unsigned char* pSrcV, int nSrcPitchY, int nSrcPitchU,
                                 int nSrcPitchV, const IMG_PARAM& dst, unsigned char* pDstY,
                                 unsigned char* pDstU, unsigned char* pDstV, int nDstPitchY,
                                 int nDstPitchU, int nDstPitchV, IMAGE_INTERPOLATION method,
                                 int nReserved = 0);
