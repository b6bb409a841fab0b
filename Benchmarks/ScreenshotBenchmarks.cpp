// A screenshot, from the request's first byte to the reply's last, beside the bare capture and
// encoding of the same pixels in one process, and beside the commands that people use for it; in
// the same run and alternating, so that all meet the same machine and the same screen.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <turbojpeg.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "Measurement.h"
#include "Support/AgentProcess.h"
#include "Support/TempDir.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/SpawnGroupLeader.h"

namespace tervain::bench {
namespace {

using test::AgentProcess;
using test::Peer;

/// What a program must at least do: the server writes the pixels into shared memory, they are
/// encoded. Everything is set up once.
class BareCapture {
 public:
  BareCapture() : x11_(xcb_connect(nullptr, nullptr)) {
    screen_ = xcb_setup_roots_iterator(xcb_get_setup(x11_)).data;
    std::free(xcb_shm_query_version_reply(x11_, xcb_shm_query_version(x11_), nullptr));
    std::free(xcb_xfixes_query_version_reply(x11_, xcb_xfixes_query_version(x11_, 4, 0), nullptr));
    const std::size_t size = std::size_t{4} * screen_->width_in_pixels * screen_->height_in_pixels;
    const int memory = memfd_create("bare", MFD_CLOEXEC);
    if (ftruncate(memory, static_cast<off_t>(size)) != 0) {
      std::abort();
    }
    pixels_ = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0);
    xcb_shm_attach_fd(x11_, segment_, memory, 0);
    capacity_ = tjBufSize(width(), height(), TJSAMP_420);
    jpeg_ = tjAlloc(static_cast<int>(capacity_));
  }

  /// How large the picture has become.
  unsigned long run() {
    const auto pointer = xcb_xfixes_get_cursor_image(x11_);
    const auto image =
        xcb_shm_get_image(x11_, screen_->root, 0, 0, screen_->width_in_pixels,
                          screen_->height_in_pixels, ~0U, XCB_IMAGE_FORMAT_Z_PIXMAP, segment_, 0);
    std::free(xcb_shm_get_image_reply(x11_, image, nullptr));
    std::free(xcb_xfixes_get_cursor_image_reply(x11_, pointer, nullptr));
    unsigned long size = capacity_;
    tjCompress2(encoder_, static_cast<const unsigned char*>(pixels_), width(), 0, height(),
                TJPF_BGRX, &jpeg_, &size, TJSAMP_420, 70, TJFLAG_NOREALLOC);
    return size;
  }

  [[nodiscard]] int width() const { return screen_->width_in_pixels; }
  [[nodiscard]] int height() const { return screen_->height_in_pixels; }

 private:
  xcb_connection_t* x11_;
  xcb_screen_t* screen_ = nullptr;
  xcb_shm_seg_t segment_ = xcb_generate_id(x11_);
  void* pixels_ = nullptr;
  tjhandle encoder_ = tjInitCompress();
  unsigned long capacity_ = 0;
  unsigned char* jpeg_ = nullptr;
};

/// Covers the screen with something like what desktops show: even areas, edges, text and a picture.
void paintScreen() {
  xcb_connection_t* const x11 = xcb_connect(nullptr, nullptr);  // open as long as this runs
  const xcb_screen_t& screen = *xcb_setup_roots_iterator(xcb_get_setup(x11)).data;
  const xcb_window_t window = xcb_generate_id(x11);
  const std::uint32_t values[] = {0xF4F4F0, 1};
  xcb_create_window(x11, XCB_COPY_FROM_PARENT, window, screen.root, 0, 0, screen.width_in_pixels,
                    screen.height_in_pixels, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                    XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
  xcb_map_window(x11, window);
  const xcb_gcontext_t gc = xcb_generate_id(x11);
  xcb_create_gc(x11, gc, window, 0, nullptr);
  std::uint32_t random = 1;
  const auto next = [&random] { return (random = random * 1'103'515'245 + 12'345) >> 8U; };
  const auto rectangle = [&](std::uint32_t colour, std::uint32_t x, std::uint32_t y,
                             std::uint16_t width, std::uint16_t height) {
    xcb_change_gc(x11, gc, XCB_GC_FOREGROUND, &colour);
    const xcb_rectangle_t area{static_cast<std::int16_t>(x), static_cast<std::int16_t>(y), width,
                               height};
    xcb_poly_fill_rectangle(x11, window, gc, 1, &area);
  };
  for (int i = 0; i < 30'000; ++i) {  // strokes of letters
    rectangle(0x202020, next() % (screen.width_in_pixels / 2U),
              next() % screen.height_in_pixels / 18 * 18 + next() % 10, 2, 6);
  }
  for (int i = 0; i < 4'000; ++i) {  // patches of a picture
    rectangle(next(), screen.width_in_pixels / 2U + next() % (screen.width_in_pixels / 3U),
              next() % (screen.height_in_pixels / 2U), 12, 9);
  }
  std::free(xcb_get_input_focus_reply(x11, xcb_get_input_focus(x11), nullptr));
}

template <class Action>
double timed(Action action) {
  const double start = now();
  action();
  return now() - start;
}

/// Sends a request and reads its reply to the last byte, but does not look at it.
std::size_t screenshot(const Peer& host) {
  host.send("{\"op\":\"screenshot\"}\n");
  static std::array<char, std::size_t{256} * 1024> buffer;
  std::size_t total = 0;
  do {
    const ssize_t n = readSome(host.fd(), buffer);
    if (n <= 0) {
      std::abort();
    }
    total += static_cast<std::size_t>(n);
    if (buffer[static_cast<std::size_t>(n) - 1] == '\n') {
      return total;
    }
  } while (true);
}

void runCommand(const std::vector<std::string>& command) {
  const pid_t pid =
      spawnGroupLeader(command.front(), std::span(command).subspan(1), processEnvironment(),
                       STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO);
  int status = 0;
  waitpid(pid, &status, 0);
  if (status != 0) {
    std::fprintf(stderr, "%s fails\n", command.front().c_str());
    std::exit(EXIT_FAILURE);
  }
}

int run() {
  std::signal(SIGPIPE, SIG_IGN);
  paintScreen();
  BareCapture bare;
  const AgentProcess agent({{{"DISPLAY", std::getenv("DISPLAY")}}, {}});
  const Peer host = agent.connect();
  const test::TempDir dir;
  const std::string file = dir.path("shot.jpg");
  const std::vector<std::vector<std::string>> commands = {
      {"/usr/bin/scrot", "--overwrite", "--pointer", "--quality", "70", file},
      {"/usr/bin/maim", "--quality", "7", "--format=jpg", file},
      {"/usr/bin/import", "-window", "root", "-quality", "70", file}};
  std::vector<Samples> times(commands.size());
  Samples whole;
  Samples least;
  std::size_t bytes = 0;
  for (int i = 0; i < 200; ++i) {
    whole.add(timed([&] { bytes = screenshot(host); }));
    least.add(timed([&] { bare.run(); }));
    if (i % 20 == 0) {
      for (std::size_t c = 0; c < commands.size(); ++c) {
        times[c].add(timed([&] { runCommand(commands[c]); }));
      }
    }
  }
  const std::string what = "screenshot of " + std::to_string(bare.width()) + "×" +
                           std::to_string(bare.height()) + " (" + std::to_string(bytes / 1024) +
                           " KiB reply), median, beside ";
  std::vector<Row> rows{timesRow(what + "the bare capture and encoding", whole.quantile(0.5),
                                 least.quantile(0.5), 1.5)};
  for (std::size_t c = 0; c < commands.size(); ++c) {
    rows.push_back(
        timesRow(what + commands[c][0], whole.quantile(0.5), times[c].quantile(0.5), 1.0));
  }
  return printTable(rows) ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace tervain::bench

int main() {
  return tervain::bench::run();
}
