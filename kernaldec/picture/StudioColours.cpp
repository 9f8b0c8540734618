#include "kernaldec/picture/StudioColours.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cmath>

namespace zel::kernaldec {
namespace {

constexpr int kBits = 14;
constexpr std::int32_t kOne = 1 << kBits;
constexpr std::int32_t kHalf = kOne / 2;

/// The shares of red and blue in luma, which define a matrix.
struct Weights {
  double red;
  double blue;
  double green() const { return 1 - red - blue; }
};
constexpr Weights kBt601 = {0.299, 0.114};

Weights WeightsOf(AVColorSpace matrix) {
  switch (matrix) {
    case AVCOL_SPC_BT709:
      return {0.2126, 0.0722};
    case AVCOL_SPC_FCC:
      return {0.30, 0.11};
    case AVCOL_SPC_SMPTE240M:
      return {0.212, 0.087};
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL:
      return {0.2627, 0.0593};
    default:
      return kBt601;
  }
}

/// R'G'B' of a chroma value at luma 0. Luma adds the same amount to all three.
struct Rgb {
  double red;
  double green;
  double blue;
};

Rgb OfChroma(const Weights& w, double cb, double cr) {
  const double red = 2 * (1 - w.red) * cr;
  const double blue = 2 * (1 - w.blue) * cb;
  return {red, -(w.red * red + w.blue * blue) / w.green(), blue};
}

std::int32_t Fixed(double value) {
  return static_cast<std::int32_t>(std::lround(value * kOne));
}

std::uint8_t ToByte(std::int32_t fixed) {
  return static_cast<std::uint8_t>(std::clamp(fixed >> kBits, 0, 255));
}

}  // namespace

ColourCoding CodingOf(const AVFrame& frame) {
  ColourCoding coding{static_cast<AVPixelFormat>(frame.format),
                      frame.color_range == AVCOL_RANGE_JPEG, frame.colorspace};
  constexpr AVPixelFormat kFullRange[][2] = {
      {AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUV420P}, {AV_PIX_FMT_YUVJ422P, AV_PIX_FMT_YUV422P},
      {AV_PIX_FMT_YUVJ444P, AV_PIX_FMT_YUV444P}, {AV_PIX_FMT_YUVJ440P, AV_PIX_FMT_YUV440P},
      {AV_PIX_FMT_YUVJ411P, AV_PIX_FMT_YUV411P},
  };
  for (const auto& [implying, plain] : kFullRange) {
    if (coding.format != implying) continue;
    coding.format = plain;
    coding.fullRange = true;
  }
  const AVPixFmtDescriptor* layout = av_pix_fmt_desc_get(coding.format);
  if (layout != nullptr && layout->nb_components <= 2 &&
      (layout->flags & AV_PIX_FMT_FLAG_PAL) == 0) {
    coding.fullRange = frame.color_range != AVCOL_RANGE_MPEG;
  }
  if (layout != nullptr && (layout->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) != 0) {
    coding.fullRange = false;
    coding.matrix = AVCOL_SPC_RGB;
  }
  return coding;
}

StudioColours::StudioColours(const ColourCoding& from) {
  const Weights weights = WeightsOf(from.matrix);
  identity_ = !from.fullRange && weights.red == kBt601.red && weights.blue == kBt601.blue;
  if (identity_) return;
  const double lumaScale = from.fullRange ? 219.0 / 255 : 1;
  const double chromaScale = from.fullRange ? 224.0 / 255 : 1;
  lumaOfLuma_ = Fixed(lumaScale);
  lumaOffset_ = 16 * kOne - (from.fullRange ? 0 : 16 * lumaOfLuma_) + kHalf;
  for (const std::size_t i : {0U, 1U}) {
    const Rgb rgb = OfChroma(weights, i == 0 ? 1 : 0, i == 0 ? 0 : 1);
    const double luma = kBt601.red * rgb.red + kBt601.green() * rgb.green + kBt601.blue * rgb.blue;
    // Luma has 219 levels, chroma 224.
    lumaOf_[i] = Fixed(luma * chromaScale * 219 / 224);
    cbOf_[i] = Fixed((rgb.blue - luma) / (2 * (1 - kBt601.blue)) * chromaScale);
    crOf_[i] = Fixed((rgb.red - luma) / (2 * (1 - kBt601.red)) * chromaScale);
  }
}

void StudioColours::Apply(std::uint8_t* const planes[3], const int pitches[3], int width,
                          int height) const {
  for (int row = 0; row < (height + 1) / 2; ++row) {
    std::uint8_t* cbRow = planes[1] + static_cast<std::ptrdiff_t>(row) * pitches[1];
    std::uint8_t* crRow = planes[2] + static_cast<std::ptrdiff_t>(row) * pitches[2];
    std::uint8_t* luma[2];
    luma[0] = planes[0] + static_cast<std::ptrdiff_t>(row) * 2 * pitches[0];
    luma[1] = 2 * row + 1 < height ? luma[0] + pitches[0] : nullptr;
    for (int column = 0; column < (width + 1) / 2; ++column) {
      const std::int32_t cb = cbRow[column] - 128;
      const std::int32_t cr = crRow[column] - 128;
      const std::int32_t shift = lumaOf_[0] * cb + lumaOf_[1] * cr + lumaOffset_;
      for (std::uint8_t* line : luma) {
        if (line == nullptr) continue;
        for (int x = 2 * column; x < std::min(2 * column + 2, width); ++x) {
          line[x] = ToByte(lumaOfLuma_ * line[x] + shift);
        }
      }
      constexpr std::int32_t kMiddle = 128 * kOne + kHalf;
      cbRow[column] = ToByte(cbOf_[0] * cb + cbOf_[1] * cr + kMiddle);
      crRow[column] = ToByte(crOf_[0] * cb + crOf_[1] * cr + kMiddle);
    }
  }
}

}  // namespace zel::kernaldec
