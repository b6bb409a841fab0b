#include "VMAgentClient/Screenshot.h"

#include <turbojpeg.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "VMAgentClient/ProtocolError.h"
#include "VMAgentCore/Base64/Base64.h"

namespace tervain {
namespace {

/// Of a picture that is compressed once more: text in it stays readable.
constexpr int usualQuality = 85;

/// Pictures of more pixels than any display has are not taken in.
constexpr std::int64_t mostPixels = 200'000'000;

constexpr int channels = 3;

struct Destroy {
  void operator()(void* codec) const { tjDestroy(codec); }
};
using Codec = std::unique_ptr<void, Destroy>;

struct PixelSize {
  int width = 0;
  int height = 0;
  bool operator==(const PixelSize&) const = default;
};

struct Pixels {
  PixelSize size;
  std::vector<unsigned char> rgb;
};

/// A rectangle of pixels, with fractions.
struct PixelArea {
  double left;
  double top;
  double width;
  double height;
};

[[noreturn]] void throwNoPicture() {
  throw ProtocolError("the agent's reply holds no picture");
}

/// A JPEG that can be decoded at smaller sizes, which takes less time than to scale what was
/// decoded.
class Jpeg {
 public:
  explicit Jpeg(std::string_view bytes) : bytes_(bytes), decoder_(tjInitDecompress()) {
    int subsampling = 0;
    int space = 0;
    if (!decoder_ ||
        tjDecompressHeader3(decoder_.get(), data(), bytes_.size(), &size_.width, &size_.height,
                            &subsampling, &space) != 0 ||
        std::int64_t{size_.width} * size_.height > mostPixels) {
      throwNoPicture();
    }
  }

  [[nodiscard]] PixelSize size() const { return size_; }

  /// Decodes it at the smallest size that is at least `factor`, 0 to 1, times its own.
  [[nodiscard]] Pixels decode(double factor) const {
    int count = 0;
    const tjscalingfactor* const scalings = tjGetScalingFactors(&count);
    Pixels pixels{size_, {}};
    for (const tjscalingfactor& scaling : std::vector(scalings, scalings + count)) {
      if (scaling.num >= factor * scaling.denom && scaling.num <= scaling.denom) {
        const PixelSize scaled{TJSCALED(size_.width, scaling), TJSCALED(size_.height, scaling)};
        pixels.size = scaled.width < pixels.size.width ? scaled : pixels.size;
      }
    }
    const auto [width, height] = pixels.size;
    pixels.rgb.resize(static_cast<std::size_t>(channels) * static_cast<std::size_t>(width) *
                      static_cast<std::size_t>(height));
    const int failed = tjDecompress2(decoder_.get(), data(), bytes_.size(), pixels.rgb.data(),
                                     width, 0, height, TJPF_RGB, 0);
    if (failed != 0 && tjGetErrorCode(decoder_.get()) == TJERR_FATAL) {
      throwNoPicture();
    }
    return pixels;
  }

 private:
  [[nodiscard]] const unsigned char* data() const {
    return reinterpret_cast<const unsigned char*>(bytes_.data());
  }

  std::string_view bytes_;
  Codec decoder_;
  PixelSize size_;
};

/// Which pixels of a line make one of a shorter line, and how much of each.
struct Span {
  int first;
  std::vector<float> weights;
};

/// Each pixel of the shorter line is the average of what it covers.
std::vector<Span> spans(double start, double length, int count, int available) {
  std::vector<Span> all;
  const double step = length / count;
  for (int i = 0; i < count; ++i) {
    const double from = start + i * step;
    const double to = std::min<double>(from + step, available);
    const int first = std::clamp(static_cast<int>(from), 0, available - 1);
    Span span{first, {}};
    for (int pixel = first; pixel == first || pixel < to; ++pixel) {
      const double share = std::min<double>(pixel + 1, to) - std::max<double>(pixel, from);
      span.weights.push_back(static_cast<float>(std::max(share, 1e-6)));
    }
    float sum = 0;
    for (const float weight : span.weights) {
      sum += weight;
    }
    for (float& weight : span.weights) {
      weight /= sum;
    }
    all.push_back(std::move(span));
  }
  return all;
}

/// A row of the source, its pixels averaged into those of the result.
void addRow(const unsigned char* row, const std::vector<Span>& columns, float weight,
            std::vector<float>& sums) {
  float* sum = sums.data();
  for (const Span& column : columns) {
    const unsigned char* pixel = row + std::ptrdiff_t{channels} * column.first;
    for (const float share : column.weights) {
      for (int channel = 0; channel < channels; ++channel) {
        sum[channel] += static_cast<float>(*pixel++) * share * weight;
      }
    }
    sum += channels;
  }
}

/// An area of a picture, averaged into a size that is no larger.
Pixels scaled(const Pixels& source, const PixelArea& area, PixelSize size) {
  const auto columns = spans(area.left, area.width, size.width, source.size.width);
  const auto rows = spans(area.top, area.height, size.height, source.size.height);
  Pixels result{size, {}};
  std::vector<float> sums(static_cast<std::size_t>(channels * size.width));
  for (const Span& span : rows) {
    std::fill(sums.begin(), sums.end(), 0.0F);
    const unsigned char* row =
        source.rgb.data() + std::ptrdiff_t{channels} * source.size.width * span.first;
    for (const float weight : span.weights) {
      addRow(row, columns, weight, sums);
      row += std::ptrdiff_t{channels} * source.size.width;
    }
    std::transform(sums.begin(), sums.end(), std::back_inserter(result.rgb), [](float sum) {
      return static_cast<unsigned char>(std::clamp(std::lround(sum), 0L, 255L));
    });
  }
  return result;
}

std::string encoded(const Pixels& pixels, int quality) {
  const Codec encoder(tjInitCompress());
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  const bool failed = !encoder || tjCompress2(encoder.get(), pixels.rgb.data(), pixels.size.width,
                                              0, pixels.size.height, TJPF_RGB, &bytes, &size,
                                              TJSAMP_420, quality, 0) != 0;
  const std::unique_ptr<unsigned char, decltype(&tjFree)> owner(bytes, &tjFree);
  if (failed) {
    throw std::runtime_error("the picture can't be compressed");
  }
  return {reinterpret_cast<const char*>(bytes), size};
}

double scaleOf(const Json& reply) {
  const auto scale = reply.find("scale");
  const double number = scale != reply.end() && scale->is_number() ? scale->get<double>() : 1;
  return std::isfinite(number) && number > 0 ? number : 1;
}

int pixelsMember(const Json& reply, std::string_view key) {
  return static_cast<int>(
      std::clamp<std::int64_t>(integerMember(reply, key).value_or(0), 0, mostPixels));
}

/// The area of the picture that is wanted, in pixels.
PixelArea areaOf(const std::optional<Frame>& region, PixelSize size, double scale) {
  if (!region) {
    return {0, 0, double(size.width), double(size.height)};
  }
  const double width = size.width / scale;  // in points
  const double height = size.height / scale;
  const auto inside = [](std::int64_t start, std::int64_t length, double all) {
    return start >= 0 && length > 0 && double(start) + double(length) <= std::ceil(all);
  };
  if (!inside(region->x, region->w, width) || !inside(region->y, region->h, height)) {
    const auto text = [](double number) { return std::to_string(std::llround(std::ceil(number))); };
    throw BadWish("the region " + std::to_string(region->x) + "," + std::to_string(region->y) +
                  "," + std::to_string(region->w) + "," + std::to_string(region->h) +
                  " is not within the display, which is " + text(width) + " points wide and " +
                  text(height) + " high");
  }
  const double left = double(region->x) * scale;
  const double top = double(region->y) * scale;
  return {left, top, std::min(double(region->w) * scale, size.width - left),
          std::min(double(region->h) * scale, size.height - top)};
}

/// How much smaller the picture becomes, 1 or less.
double factorOf(const PictureWish& wish, const PixelArea& area, double scale) {
  const double factor = wish.points ? std::min(1.0, 1 / scale) : 1;
  const double longest = std::max(area.width, area.height);
  return wish.longest ? std::min(factor, *wish.longest / longest) : factor;
}

}  // namespace

Screenshot screenshotOf(const Json& reply, const PictureWish& wish) {
  const std::string* text = stringMember(reply, "image");
  auto bytes = text ? decodeBase64(*text) : std::nullopt;
  if (!bytes) {
    throwNoPicture();
  }
  const double scale = scaleOf(reply);
  if (wish == PictureWish{}) {
    return {
        *std::move(bytes), pixelsMember(reply, "width"), pixelsMember(reply, "height"), scale, {}};
  }
  const Jpeg jpeg(*bytes);
  const PixelArea area = areaOf(wish.region, jpeg.size(), scale);
  const double factor = factorOf(wish, area, scale);
  const auto pixels = [factor](double length) {
    return std::max(1, static_cast<int>(std::lround(length * factor)));
  };
  const PixelSize size{pixels(area.width), pixels(area.height)};
  const ScreenPoint origin =
      wish.region ? ScreenPoint{wish.region->x, wish.region->y} : ScreenPoint{};
  if (size == jpeg.size() && !wish.quality) {
    return {*std::move(bytes), size.width, size.height, scale, origin};
  }
  const Pixels decoded = jpeg.decode(factor);
  const double shrunk = double(decoded.size.width) / jpeg.size().width;
  const PixelArea there{area.left * shrunk, area.top * shrunk, area.width * shrunk,
                        area.height * shrunk};
  const Pixels result = size == decoded.size ? decoded : scaled(decoded, there, size);
  return {encoded(result, wish.quality.value_or(usualQuality)), size.width, size.height,
          scale * factor, origin};
}

ScreenPoint placeOf(const Screenshot& screenshot, double x, double y) {
  const auto points = [&](double pixels) {
    // The middle of the pixel, so that the last one is still on the display.
    return static_cast<std::int64_t>(std::floor((pixels + 0.5) / screenshot.pixelsPerPoint));
  };
  return {screenshot.origin.x + points(x), screenshot.origin.y + points(y)};
}

}  // namespace tervain
