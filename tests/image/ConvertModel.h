// The colour conversions once more, in the most naive form: pixel by pixel over the whole picture,
// with divisions instead of shifts. Signatures are those of the library.
#pragma once

#include "zel/Common/Image/ImageConvert.h"

namespace model {

using Byte = unsigned char;
using Header = tagBITMAPINFOHEADER;

void Yuv420_2_rgb24(Header*, Byte* bits, Byte* y, Byte* u, Byte* v, int py, int pu, int pv);
void Yuv420_2_rgb32(Header*, Byte* bits, Byte* y, Byte* u, Byte* v, int py, int pu, int pv);
void Yuv420_2_Argb(Header*, Byte* bits, Byte* y, Byte* u, Byte* v, int py, int pu, int pv);
void Yuv420_2_rgb32_Alpha(Header*, Byte* bits, Byte* y, Byte* u, Byte* v, Byte* a, int py, int pu,
                          int pv);
void Yuv420_2_rgb24Simple(Header*, Byte* bits, Byte* y, Byte* u, Byte* v, int py, int pu, int pv);

void Rgb24_2_yuv420(Byte* y, Byte* u, Byte* v, int py, int pu, int pv, Header*, Byte* bits);
void Rgb32_2_yuv420(Byte* y, Byte* u, Byte* v, int py, int pu, int pv, Header*, Byte* bits);
void Argb_2_yuv420(Byte* y, Byte* u, Byte* v, int py, int pu, int pv, Header*, Byte* bits);
void Rgb8_2_YUV420(Byte* y, Byte* u, Byte* v, int py, int pu, int pv, tagBITMAPINFO*, Byte* bits);
void Rgb32_2_yuv420_Alpha(Byte* y, Byte* u, Byte* v, Byte* a, int py, int pu, int pv, Header*,
                          Byte* bits);
void Rgb32_2_yuv420A(Byte* y, Byte* u, Byte* v, Byte* a, int py, int pu, int pv, Header*,
                     Byte* bits);
void Rgb24_2_yuv420Simple(Byte* y, Byte* u, Byte* v, int py, int pu, int pv, Header*, Byte* bits);

void Rgb24_2_YUY2(Byte* dst, int pitch_dst, int x_dst, int y_dst, int cx, int cy, int yuy2,
                  Byte* src, int height_src, int pitch_src, int x_src, int y_src);
void YUY2_2_Rgb24(Byte* dst, int height_dst, int pitch_dst, int x_dst, int y_dst, int cx, int cy,
                  Byte* src, int pitch_src, int yuy2, int x_src, int y_src);
void YUY2_Blt_fast(Byte* dst, int pitch_dst, int x_dst, int y_dst, int cx, int cy, int yuy2_dst,
                   Byte* src, int pitch_src, int yuy2_src, int x_src, int y_src);
void YV12_Blt_fast(Byte* dst_y, Byte* dst_u, Byte* dst_v, int dpy, int dpu, int dpv, int x_dst,
                   int y_dst, int cx, int y_end, Byte* src_y, Byte* src_u, Byte* src_v, int spy,
                   int spu, int spv, int x_src, int y_src);
void YUY2_2_Yuv420(Byte* y, Byte* u, Byte* v, int py, int pu, int pv, int x_dst, int y_dst, int cx,
                   int cy, Byte* src, int pitch_src, int yuy2, int x_src, int y_src);
void Yuv420_2_YUY2(Byte* dst, int pitch_dst, int x_dst, int y_dst, int cx, int cy, int yuy2,
                   Byte* y, Byte* u, Byte* v, int py, int pu, int pv, int x_src, int y_src);

}  // namespace model
