#include "zel/Common/Image/Rotate.h"

double CalcResizeScaleforRotate(const IMG_PARAM& img, int nAngle) {
  if (nAngle % 180 == 0 || img.nWidth == img.nHeight) return 1.0;
  const double width = img.nWidth;
  const double height = img.nHeight;
  return height <= width ? height / width : width / height;
}

int ImageRotateYV12(const IMG_PARAM&, unsigned char*, unsigned char*, unsigned char*, int, int, int,
                    const IMG_PARAM&, unsigned char*, unsigned char*, unsigned char*, int, int, int,
                    IMAGE_INTERPOLATION, int) {
  return 1;
}

int ImageDragYUV(const IMG_PARAM&, unsigned char*, unsigned char*, unsigned char*, int, int, int,
                 const IMG_PARAM&, unsigned char*, unsigned char*, unsigned char*, int, int, int,
                 IMAGE_INTERPOLATION, int) {
  return 1;
}

int ImageRotateResizeYUV(const IMG_PARAM&, unsigned char*, unsigned char*, unsigned char*, int, int,
                         int, const IMG_PARAM&, unsigned char*, unsigned char*, unsigned char*, int,
                         int, int, IMAGE_INTERPOLATION, int) {
  return 1;
}
