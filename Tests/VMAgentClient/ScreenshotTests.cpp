#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <cstdlib>
#include <vector>

#include "Support/Picture.h"
#include "VMAgentClient/ProtocolError.h"
#include "VMAgentClient/Screenshot.h"
#include "VMAgentCore/Base64/Base64.h"

namespace tervain {
namespace {

constexpr int quality = 95;

/// A picture whose red and green tell a place in it, as the agent would send it.
Json pictured(int width, int height, double scale) {
  std::vector<unsigned char> rgb;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      rgb.push_back(static_cast<unsigned char>(255 * x / width));
      rgb.push_back(static_cast<unsigned char>(255 * y / height));
      rgb.push_back(0);
    }
  }
  const tjhandle encoder = tjInitCompress();
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  tjCompress2(encoder, rgb.data(), width, 0, height, TJPF_RGB, &bytes, &size, TJSAMP_444, quality,
              0);
  std::string image = "\"";
  appendBase64(image, {reinterpret_cast<const char*>(bytes), size});
  tjFree(bytes);
  tjDestroy(encoder);
  return {{"ok", true},
          {"image", Json::parse(image + "\"")},
          {"scale", scale},
          {"width", width},
          {"height", height}};
}

TEST(Screenshot, IsCutAndScaledAsWished) {
  const struct {
    PictureWish wish;
    double scale;
    std::vector<int> size;
    ScreenPoint middle;  // in points
  } cases[]{
      {{}, 2, {640, 400}, {160, 100}},
      {{.points = true}, 2, {320, 200}, {160, 100}},
      {{.points = true}, 1.5, {427, 267}, {213, 133}},
      {{.points = true}, 0.5, {640, 400}, {640, 400}},
      {{.longest = 100}, 1, {100, 63}, {320, 200}},
      {{.longest = 2000, .quality = 50}, 1, {640, 400}, {320, 200}},
      {{.region = Frame{200, 100, 40, 20}}, 2, {80, 40}, {220, 110}},
      {{.region = Frame{0, 150, 320, 50}, .longest = 300}, 2, {300, 47}, {160, 175}},
      {{.region = Frame{426, 266, 1, 1}}, 1.5, {1, 1}, {426, 266}},
  };
  for (const auto& c : cases) {
    const Screenshot shot = screenshotOf(pictured(640, 400, c.scale), c.wish);
    const test::Picture came(shot.jpeg);
    EXPECT_EQ((std::vector<int>{came.width, came.height}), c.size);
    EXPECT_EQ((std::vector<int>{shot.width, shot.height}), c.size);
    // A place in the picture is the place on the display that it shows.
    const ScreenPoint place = placeOf(shot, shot.width / 2, shot.height / 2);
    EXPECT_NEAR(static_cast<double>(place.x), static_cast<double>(c.middle.x), 4);
    EXPECT_NEAR(static_cast<double>(place.y), static_cast<double>(c.middle.y), 4);
    const auto part = [](std::int64_t at, double scale, int of) {
      return static_cast<unsigned>(255 * static_cast<double>(at) * scale / of);
    };
    const unsigned colour = part(c.middle.x, c.scale, 640) << 16U | part(c.middle.y, c.scale, 400)
                                                                        << 8U;
    EXPECT_LE(came.distance(came.width / 2, came.height / 2, colour), 6);
  }
}

TEST(Screenshot, SaysWhatCanNotBePictured) {
  const Json reply = pictured(640, 400, 2);
  for (const Frame& region : {Frame{300, 0, 21, 1}, {-1, 0, 5, 5}, {0, 0, 0, 5}, {0, 201, 5, 5}}) {
    EXPECT_THROW(screenshotOf(reply, {.region = region}), BadWish);
  }
  for (const Json& image : {Json("no base64"), Json("bm8="), Json(), Json("")}) {
    EXPECT_THROW(screenshotOf(Json{{"image", image}}, {.points = true}), ProtocolError);
  }
}

}  // namespace
}  // namespace tervain
