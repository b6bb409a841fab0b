#include <future>

#include "Desktop/Desktop.h"
#include "Support/Picture.h"
#include "VMAgentCore/Base64/Base64.h"

namespace tervain::test {
namespace {

constexpr std::uint32_t red = 0xE02020;
constexpr std::uint32_t green = 0x20C040;
constexpr std::uint32_t blue = 0x2040E0;

/// The screen, its left half red, its right half green, with a blue pointer that is a square of 16
/// pixels, its hot spot at (4, 4).
class Painting {
 public:
  explicit Painting(const std::string& display) : x11_(xcb_connect(display.c_str(), nullptr)) {
    const auto half = static_cast<std::uint16_t>(width() / 2);
    const xcb_cursor_t pointer = makePointer();
    for (const std::uint32_t colour : {red, green}) {
      const std::uint32_t values[] = {colour, 1, pointer};
      const xcb_window_t window = xcb_generate_id(x11_);
      xcb_create_window(x11_, XCB_COPY_FROM_PARENT, window, screen_->root,
                        static_cast<std::int16_t>(colour == red ? 0 : half), 0, half, height(), 0,
                        XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                        XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_CURSOR, values);
      xcb_map_window(x11_, window);
    }
    pointTo(0, 0);
  }
  ~Painting() { xcb_disconnect(x11_); }
  Painting(const Painting&) = delete;
  Painting& operator=(const Painting&) = delete;

  void pointTo(int x, int y) {
    xcb_warp_pointer(x11_, XCB_NONE, screen_->root, 0, 0, 0, 0, static_cast<std::int16_t>(x),
                     static_cast<std::int16_t>(y));
    std::free(xcb_get_input_focus_reply(x11_, xcb_get_input_focus(x11_), nullptr));
  }

  [[nodiscard]] std::uint16_t width() const { return screen_->width_in_pixels; }
  [[nodiscard]] std::uint16_t height() const { return screen_->height_in_pixels; }

 private:
  xcb_cursor_t makePointer() {
    const xcb_pixmap_t all = xcb_generate_id(x11_);
    xcb_create_pixmap(x11_, 1, all, screen_->root, 16, 16);
    const xcb_gcontext_t gc = xcb_generate_id(x11_);
    const std::uint32_t one = 1;
    xcb_create_gc(x11_, gc, all, XCB_GC_FOREGROUND, &one);
    const xcb_rectangle_t square{0, 0, 16, 16};
    xcb_poly_fill_rectangle(x11_, all, gc, 1, &square);
    const xcb_cursor_t cursor = xcb_generate_id(x11_);
    xcb_create_cursor(x11_, cursor, all, all, 0x2020, 0x4040, 0xE0E0, 0, 0, 0, 4, 4);
    return cursor;
  }

  xcb_connection_t* x11_;
  xcb_screen_t* screen_ = xcb_setup_roots_iterator(xcb_get_setup(x11_)).data;
};

/// The picture of a screenshot that must succeed.
Picture decode(const Json& reply) {
  EXPECT_TRUE(reply.value("ok", false)) << reply.dump().substr(0, 200);
  const Picture picture(decodeBase64(reply.value("image", "")).value_or(""));
  EXPECT_EQ(picture.subsampling, TJSAMP_420);
  return picture;
}

AgentProcess::Options onDisplay(const std::string& display) {
  return {.environment = {{"DISPLAY", display}}};
}

std::string ownDisplay() {
  return desktopEnvironment()["DISPLAY"];
}

/// What a compressed colour may differ from the one that was painted.
constexpr int near = 12;

/// Whether a picture shows a part of the painting that begins at `left`.
void expectPainting(const Picture& picture, int left, int middle) {
  for (const int x : {20, picture.width / 2 - 4, picture.width / 2 + 4, picture.width - 20}) {
    for (const int y : {20, picture.height / 2, picture.height - 20}) {
      EXPECT_LE(picture.distance(x, y, left + x < middle ? red : green), near) << x << ", " << y;
    }
  }
}

TEST(ScreenshotDesktop, ShowsTheScreenWithThePointer) {
  Painting painting(ownDisplay());
  const AgentProcess agent(onDisplay(ownDisplay()));
  Peer host = agent.connect();
  for (const auto& [x, y] : {std::pair(600, 300), {1500, 1000}, {painting.width() - 1, 2}}) {
    painting.pointTo(x, y);
    const Json reply = host.ask(R"({"op":"screenshot"})");
    const Picture picture = decode(reply);
    EXPECT_EQ(reply["width"], painting.width());
    EXPECT_EQ(picture.width, painting.width());
    EXPECT_EQ(reply["height"], painting.height());
    EXPECT_EQ(picture.height, painting.height());
    expectPainting(picture, 0, painting.width() / 2);
    // A pointer at the edge is cut off there, and its hot spot is where it points to.
    const std::uint32_t around = x < painting.width() / 2 ? red : green;
    EXPECT_LE(picture.distance(std::min(x + 3, picture.width - 1), y + 3, blue), 4 * near);
    EXPECT_LE(picture.distance(x - 24, y + 3, around), near);
    EXPECT_LE(picture.distance(x - 1, y + 30, around), near);
  }
}

TEST(ScreenshotDesktop, EachMonitorIsADisplay) {
  const std::map<std::string, std::string> environment = {{"DISPLAY", ownDisplay()}};
  const auto xrandr = [&](std::vector<std::string> command) {
    command.insert(command.begin(), "xrandr");
    const Ended ended = runToEnd(command, environment);
    ASSERT_EQ(ended.status, 0) << ended.err;
  };
  Painting painting(ownDisplay());
  painting.pointTo(1000, 500);
  // The second reaches beyond the screen, as monitors may.
  xrandr({"--setmonitor", "left", "640/100x1080/100+0+0", "screen"});
  xrandr({"--setmonitor", "*right", "1400/100x1080/100+640+0", "none"});
  const AgentProcess agent(onDisplay(ownDisplay()));
  Peer host = agent.connect();
  const Json displays = host.ask(R"({"op":"ping"})")["displays"];
  ASSERT_EQ(displays.size(), 2U);
  EXPECT_NE(displays[0]["id"], displays[1]["id"]);
  const std::size_t rightIndex = displays[0]["width"] == 640 ? 1 : 0;
  for (const std::size_t i : {0U, 1U}) {
    EXPECT_EQ(displays[i]["main"], i == rightIndex) << displays;
  }
  for (const std::size_t i : {0U, 1U}) {
    const bool right = i == rightIndex;
    const Picture picture = decode(host.ask(Json{{"op", "screenshot"}, {"display", i}}.dump()));
    EXPECT_EQ(picture.width, right ? 1280 : 640) << i;
    expectPainting(picture, right ? 640 : 0, painting.width() / 2);
    if (right) {
      EXPECT_LE(picture.distance(1000 - 640 + 3, 503, blue), 4 * near);
    }
  }
  xrandr({"--delmonitor", "left"});
  xrandr({"--delmonitor", "right"});
}

/// How to start an X server with a screen. The line it writes is its display's number.
std::vector<std::string> xServer(const std::string& screen,
                                 const std::vector<std::string>& options = {}) {
  std::vector<std::string> command{"Xvfb", "-displayfd", "1", "-nolisten",
                                   "tcp",  "-screen",    "0", screen};
  command.insert(command.end(), options.begin(), options.end());
  return command;
}

TEST(ScreenshotDesktop, MakesDoWithoutExtensionsAndRefusesUnusualPixelsInWords) {
  const Program plain(xServer("640x480x24", {"-extension", "MIT-SHM", "-extension", "RANDR"}));
  const std::string display = ":" + plain.line();
  const Painting painting(display);
  const Picture picture =
      decode(AgentProcess(onDisplay(display)).connect().ask(R"({"op":"screenshot"})"));
  EXPECT_EQ(picture.width, 640);
  expectPainting(picture, 0, 320);

  const Program unusual(xServer("640x480x16"));
  const AgentProcess agent(onDisplay(":" + unusual.line()));
  EXPECT_EQ(agent.connect().ask(R"({"op":"screenshot"})")["error"],
            "ScreenCaptureKit capture failed: pictures of a screen with 16 bits per pixel in this "
            "format are not supported (the usual 24 are)");
}

TEST(ScreenshotDesktop, ManyAtOnceLeaveNothingBehind) {
  const AgentProcess agent(onDisplay(ownDisplay()));
  agent.connect().ask(R"({"op":"screenshot"})");
  const auto before = agent.footprint();
  std::vector<std::future<void>> hosts;
  for (int i = 0; i < 12; ++i) {
    hosts.push_back(std::async(std::launch::async, [&agent] {
      Peer host = agent.connect();
      for (int n = 0; n < 5; ++n) {
        EXPECT_EQ(host.ask(R"({"op":"screenshot"})").value("error", ""), "");
      }
    }));
  }
  hosts.clear();
  // A connection to the X server may be kept more than before, but not one a host.
  EXPECT_TRUE(eventually([&] {
    const auto now = agent.footprint();
    return now.descriptors <= before.descriptors + 4 && now.threads <= before.threads;
  })) << testing::PrintToString(agent.footprint());
  // Once nobody looks any more, the memory of the pictures goes.
  EXPECT_TRUE(eventually([&] { return SANITIZED || agent.residentBytes() < 12U * 1024 * 1024; }))
      << agent.residentBytes();
}

TEST(Checkup, FindsNothingWrongWithThisDesktop) {
  const TempDir dir;
  const auto ended =
      runToEnd({SERVE_UNIX_PATH, dir.path("socket"), AGENT_PATH, "--check"}, desktopEnvironment());
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_NE(ended.err.find("pointer             moved, and put back\n"), std::string::npos);
}

}  // namespace
}  // namespace tervain::test
