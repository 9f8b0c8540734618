#include "tools/zel/picture/WaveChart.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <new>
#include <stdexcept>

namespace zel::tool {
namespace {

constexpr double kLeft = 40;  // Names of channels.
constexpr double kRight = 24;
constexpr double kEdge = 6;  // What texts keep free.
constexpr double kTop = 12;
constexpr double kHeading = 28;
constexpr double kLaneGap = 4;
constexpr double kFileGap = 14;
constexpr double kAxis = 40;
constexpr double kLowestLane = 14;
constexpr double kTextSize = 13;

struct Colour {
  double red;
  double green;
  double blue;
};
constexpr Colour kPaper = {1, 1, 1};
constexpr Colour kInk = {0.13, 0.15, 0.18};
constexpr Colour kFaint = {0.40, 0.44, 0.49};
constexpr Colour kLane = {0.95, 0.96, 0.975};
constexpr Colour kGrid = {0.84, 0.86, 0.89};
constexpr Colour kRange = {0.49, 0.69, 0.89};
constexpr Colour kPower = {0.11, 0.36, 0.66};

struct Free {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
  void operator()(cairo_t* context) const { cairo_destroy(context); }
  void operator()(PangoLayout* layout) const { g_object_unref(layout); }
};

/// Draws on memory; lengths are pixels.
class Canvas {
 public:
  Canvas(unsigned char* pixels, int width, int height)
      : width_(width),
        surface_(cairo_image_surface_create_for_data(pixels, CAIRO_FORMAT_RGB24, width, height,
                                                     4 * width)),
        context_(cairo_create(surface_.get())),
        layout_(pango_cairo_create_layout(context_.get())) {
    if (cairo_status(context_.get()) != CAIRO_STATUS_SUCCESS) throw std::bad_alloc();
    Fill(kPaper, 0, 0, width, height);
    // Without a font, boxes would stand for letters.
    pango_layout_set_text(layout_.get(), "0", 1);
    if (pango_layout_get_unknown_glyphs_count(layout_.get()) > 0) {
      throw std::runtime_error("no font is installed to write names and times with");
    }
  }

  void Fill(const Colour& colour, double x, double y, double width, double height) {
    cairo_set_source_rgb(context_.get(), colour.red, colour.green, colour.blue);
    cairo_rectangle(context_.get(), x, y, width, height);
    cairo_fill(context_.get());
  }

  /// Writes one line, centred vertically on `y`. Longer lines than `space` pixels are cut in the
  /// middle; a line that would reach beyond an edge is moved inside.
  /// @param align 0: the line begins at `x`; 1: it ends there; 0.5: it is centred on `x`
  /// @return its width
  double Write(const std::string& text, const Colour& colour, double x, double y, double align,
               double space, bool bold = false) {
    PangoFontDescription* font = pango_font_description_from_string("DejaVu Sans, Sans");
    pango_font_description_set_absolute_size(font, kTextSize * PANGO_SCALE);
    if (bold) pango_font_description_set_weight(font, PANGO_WEIGHT_BOLD);
    pango_layout_set_font_description(layout_.get(), font);
    pango_font_description_free(font);
    pango_layout_set_single_paragraph_mode(layout_.get(), TRUE);
    // The line is aligned to the left in any script. Inside it, scripts keep their own direction.
    pango_layout_set_auto_dir(layout_.get(), FALSE);
    pango_layout_set_ellipsize(layout_.get(), PANGO_ELLIPSIZE_MIDDLE);
    pango_layout_set_width(layout_.get(), static_cast<int>(std::max(space, 0.0)) * PANGO_SCALE);
    pango_layout_set_text(layout_.get(), text.data(), static_cast<int>(text.size()));
    PangoRectangle area;
    pango_layout_get_pixel_extents(layout_.get(), nullptr, &area);
    cairo_set_source_rgb(context_.get(), colour.red, colour.green, colour.blue);
    const double left =
        std::max(std::min(x - align * area.width, width_ - kEdge - area.width), 0.0);
    cairo_move_to(context_.get(), std::round(left - area.x), std::round(y - area.height / 2.0));
    pango_cairo_show_layout(context_.get(), layout_.get());
    return area.width;
  }

 private:
  int width_;
  std::unique_ptr<cairo_surface_t, Free> surface_;
  std::unique_ptr<cairo_t, Free> context_;
  std::unique_ptr<PangoLayout, Free> layout_;
};

/// The axis of time.
class Axis {
 public:
  Axis(double length, double left, double width)
      : length_(length), left_(left), perSecond_(width / length) {
    // A label needs this much room.
    const double wanted = 96 / perSecond_;
    constexpr double clockSteps[] = {1,   2,   5,    10,   15,   30,    60,    120,
                                     300, 600, 1200, 1800, 3600, 10800, 21600, 43200};
    if (wanted <= 1) {
      const double power = std::pow(10, std::floor(std::log10(wanted)));
      step_ = power * (wanted <= power       ? 1
                       : wanted <= 2 * power ? 2
                       : wanted <= 5 * power ? 5
                                             : 10);
      decimals_ = static_cast<int>(std::max(0.0, std::ceil(-std::log10(step_) - 1e-9)));
      return;
    }
    const double* found = std::lower_bound(std::begin(clockSteps), std::end(clockSteps), wanted);
    step_ = found != std::end(clockSteps) ? *found : 86400 * std::ceil(wanted / 86400);
  }

  double X(double seconds) const { return left_ + seconds * perSecond_; }
  double SecondsAt(double x) const { return (x - left_) / perSecond_; }
  double step() const { return step_; }
  double length() const { return length_; }

  std::string Label(double seconds) const {
    char text[64];
    if (length_ < 60) {
      std::snprintf(text, sizeof(text), "%.*f s", decimals_, seconds);
      return text;
    }
    const auto whole = static_cast<long long>(std::floor(seconds + 1e-6));
    if (length_ < 3600) {
      std::snprintf(text, sizeof(text), "%lld:%02lld", whole / 60, whole % 60);
    } else {
      std::snprintf(text, sizeof(text), "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60,
                    whole % 60);
    }
    return text;
  }

 private:
  double length_;
  double left_;
  double perSecond_;
  double step_ = 0;
  int decimals_ = 0;
};

std::string ChannelName(int channel, int channels) {
  if (channels == 1) return "";
  if (channels == 2) return channel == 0 ? "L" : "R";
  return std::to_string(channel + 1);
}

/// The part of the height that is left for lanes; negative when there is none.
double Room(std::size_t files, double height) {
  return height - kTop - kAxis - static_cast<double>(files) * (kHeading + kFileGap);
}

/// Draws the paper of a lane from column `begin` to `end`, with lines at the ticks of the axis.
void DrawGrid(Canvas* canvas, const Axis& axis, double begin, double end, double top,
              double height) {
  canvas->Fill(kLane, begin, top, end - begin, height);
  for (int i = 1; i * axis.step() < axis.length(); ++i) {
    const double x = std::floor(axis.X(i * axis.step()));
    if (x > begin && x < end) canvas->Fill(kGrid, x, top, 1, height);
  }
}

/// @param channel counted from 0; -1 for all together
void DrawLane(Canvas* canvas, const Axis& axis, const Wave& wave, int channel, double top,
              double height) {
  const double begin = std::floor(axis.X(wave.start));
  const double end = std::max(std::ceil(axis.X(wave.End())), begin + 1);
  DrawGrid(canvas, axis, begin, end, top, height);
  const double middle = top + height / 2;
  const double scale = height / 2;
  Envelope::Span before{1, -1, 0};
  const auto columns = static_cast<int>(end - begin);
  for (int i = 0; i < columns; ++i) {
    const double x = begin + i;
    Envelope::Span span = wave.envelope.Over(channel, (axis.SecondsAt(x) - wave.start) * wave.rate,
                                             (axis.SecondsAt(x + 1) - wave.start) * wave.rate);
    if (span.high < span.low) continue;
    // Otherwise columns of few samples would not touch each other.
    const Envelope::Span joined = span;
    if (before.low <= before.high) {
      span.low = std::min(span.low, before.high);
      span.high = std::max(span.high, before.low);
    }
    before = joined;
    // Silence is drawn as a thin line.
    const auto bar = [&](const Colour& colour, double high, double low) {
      const double extra = std::max(1 - (high - low) * scale, 0.0) / 2;
      canvas->Fill(colour, x, middle - high * scale - extra, 1, (high - low) * scale + 2 * extra);
    };
    bar(kRange, span.high, span.low);
    const double high = std::min(span.rms, span.high);
    const double low = std::max(-span.rms, span.low);
    if (high >= low) bar(kPower, high, low);
  }
}

/// Draws the axis at height `line`: five ticks to a step, and a label at every step.
void DrawAxis(Canvas* canvas, const Axis& axis, double line, double right) {
  canvas->Fill(kFaint, kLeft, line, right - kLeft, 1);
  const auto ticks = static_cast<long>(axis.length() / axis.step() * 5 * (1 + 1e-9));
  for (long i = 0; i <= ticks; ++i) {
    const double t = axis.step() * static_cast<double>(i) / 5;
    const bool major = i % 5 == 0;
    canvas->Fill(kFaint, std::min(std::floor(axis.X(t)), right - 1), line, 1, major ? 8 : 4);
    if (major) canvas->Write(axis.Label(t), kInk, std::min(axis.X(t), right), line + 20, 0.5, 120);
  }
}

}  // namespace

long WaveChart::MinHeight(std::size_t files) {
  return std::lround(static_cast<double>(files) * kLowestLane - Room(files, 0));
}

long WaveChart::DefaultHeight(const std::vector<Wave>& waves) {
  double height = 0;
  for (const Wave& wave : waves) {
    const int channels = wave.envelope.channels();
    const double lane = channels == 1 ? 88 : channels == 2 ? 60 : 36;
    height += channels * lane;
  }
  return std::lround(height - Room(waves.size(), 0));
}

WaveChart::WaveChart(const std::vector<Wave>& waves, int width, int height)
    : width_(width), height_(height), pixels_(std::size_t{4} * width * height) {
  int lanes = 0;
  double length = 0;
  for (const Wave& wave : waves) {
    lanes += wave.envelope.channels();
    length = std::max(length, wave.End());
  }
  const double room = Room(waves.size(), height);
  const bool shared = room < lanes * kLowestLane;
  if (shared) lanes = static_cast<int>(waves.size());
  const double lane = std::floor(room / lanes);

  Canvas canvas(pixels_.data(), width, height);
  const Axis axis(std::max(length, 1e-6), kLeft, width - kLeft - kRight);
  double y = kTop;
  for (const Wave& wave : waves) {
    const double right = width - kRight;
    const double space = right - kLeft;
    const double detail =
        canvas.Write(wave.detail, kFaint, right, y + kHeading / 2, 1, space * 0.6);
    canvas.Write(wave.name, kInk, kLeft, y + kHeading / 2, 0, space - detail - 16, true);
    y += kHeading;
    const int count = shared ? 1 : wave.envelope.channels();
    for (int channel = 0; channel < count; ++channel, y += lane) {
      DrawLane(&canvas, axis, wave, shared ? -1 : channel, y, lane - kLaneGap);
      canvas.Write(ChannelName(channel, count), kFaint, kLeft - 8, y + (lane - kLaneGap) / 2, 1,
                   kLeft - 8);
    }
    y += kFileGap;
  }

  DrawAxis(&canvas, axis, std::floor(y - kFileGap / 2), width - kRight);
}

PixelView WaveChart::View() const {
  return {pixels_.data(), std::ptrdiff_t{4} * width_, width_, height_};
}

}  // namespace zel::tool
