#include "Platform/Linux/Capture/ScreenGrabber.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <bit>

#include "VMAgentCore/UniqueFD.h"

namespace tervain::Linux::X11 {
namespace {

constexpr std::size_t bytesPerPixel = sizeof(std::uint32_t);

std::size_t pixelCount(const Area& area) {
  return std::size_t{area.width} * area.height;
}

/// How many bits of memory a pixel takes, 0 if the server does not say.
unsigned bitsPerPixel(const xcb_setup_t& setup, std::uint8_t depth) {
  const xcb_format_t* const formats = xcb_setup_pixmap_formats(&setup);
  const xcb_format_t* const end = formats + xcb_setup_pixmap_formats_length(&setup);
  const auto* const format = std::find_if(
      formats, end, [depth](const xcb_format_t& candidate) { return candidate.depth == depth; });
  return format == end ? 0 : format->bits_per_pixel;
}

/// The visual that says how the screen's pixels hold their colours; null if the server does not.
const xcb_visualtype_t* rootVisual(const xcb_screen_t& screen) {
  for (auto depth = xcb_screen_allowed_depths_iterator(&screen); depth.rem > 0;
       xcb_depth_next(&depth)) {
    const xcb_visualtype_t* const visuals = xcb_depth_visuals(depth.data);
    const xcb_visualtype_t* const end = visuals + xcb_depth_visuals_length(depth.data);
    const auto* const visual =
        std::find_if(visuals, end, [&screen](const xcb_visualtype_t& candidate) {
          return candidate.visual_id == screen.root_visual;
        });
    if (visual != end) {
      return visual;
    }
  }
  return nullptr;
}

/// Whether the pixels are what pictures are made of here: what every server in use today offers.
bool hasUsualPixels(const Session& x11) {
  const xcb_setup_t& setup = *xcb_get_setup(x11.get());
  const xcb_screen_t& screen = x11.screen();
  const xcb_visualtype_t* const visual = rootVisual(screen);
  const auto order = std::endian::native == std::endian::little ? XCB_IMAGE_ORDER_LSB_FIRST
                                                                : XCB_IMAGE_ORDER_MSB_FIRST;
  return setup.image_byte_order == order && bitsPerPixel(setup, screen.root_depth) == 32 &&
         visual != nullptr && visual->red_mask == 0xFF0000 && visual->green_mask == 0xFF00 &&
         visual->blue_mask == 0xFF;
}

/// Whether descriptors can be passed over a connection. Asking the server for what needs one would
/// otherwise break the connection.
bool passesDescriptors(const Session& x11) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  const int fd = xcb_get_file_descriptor(x11.get());
  return getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
         address.ss_family == AF_UNIX;
}

/// Memory of a fixed size that is really there: what is only promised may be missing when it is
/// touched, and that would end the process.
UniqueFD reserveMemory(std::size_t size) {
  UniqueFD memory(memfd_create("screen", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!memory || posix_fallocate(memory.get(), 0, static_cast<off_t>(size)) != 0 ||
      fcntl(memory.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
    return {};
  }
  return memory;
}

/// Lays a pixel whose colours are multiplied by its opacity over another.
std::uint32_t over(std::uint32_t below, std::uint32_t pixel) {
  const std::uint32_t shine = 0xFF - (pixel >> 24U);
  // Two colours at a time, each divided by 255 and rounded.
  const auto dim = [shine](std::uint32_t colours) {
    const std::uint32_t product = colours * shine + 0x800080U;
    return (product + (product >> 8U & 0xFF00FFU)) >> 8U & 0xFF00FFU;
  };
  return pixel + dim(below & 0xFF00FFU) + (dim(below >> 8U & 0xFFU) << 8U);
}

/// Draws the pointer into the picture of an area.
void drawPointer(const xcb_xfixes_get_cursor_image_reply_t& pointer, const Area& area,
                 std::uint32_t* picture) {
  if (pointer.length < std::uint32_t{pointer.width} * pointer.height) {
    return;
  }
  const std::uint32_t* const pixels = xcb_xfixes_get_cursor_image_cursor_image(&pointer);
  const int left = pointer.x - pointer.xhot - area.x;
  const int top = pointer.y - pointer.yhot - area.y;
  const int right = std::min<int>(left + pointer.width, area.width);
  const int bottom = std::min<int>(top + pointer.height, area.height);
  for (int y = std::max(top, 0); y < bottom; ++y) {
    std::uint32_t* const row = picture + std::ptrdiff_t{y} * area.width;
    for (int x = std::max(left, 0); x < right; ++x) {
      row[x] = over(row[x], pixels[(y - top) * pointer.width + (x - left)]);
    }
  }
}

}  // namespace

void SharedSegment::Unmap::operator()(void* bytes) const {
  munmap(bytes, size);
}

std::optional<SharedSegment> SharedSegment::create(const Session& x11, std::size_t size) {
  UniqueFD memory = reserveMemory(size);
  if (!memory) {
    return std::nullopt;
  }
  void* const bytes =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, memory.get(), 0);
  if (bytes == MAP_FAILED) {
    return std::nullopt;
  }
  const auto id = xcb_generate_id(x11.get());
  // A refusal shows when the first picture is asked for.
  xcb_shm_attach_fd(x11.get(), id, memory.release(), /*read_only=*/0);
  return SharedSegment(id, Mapping(bytes, Unmap{size}));
}

ScreenGrabber::ScreenGrabber(Session session) : session_(std::move(session)) {
  if (session_.has(xcb_xfixes_id)) {
    canSeePointer_ = session_.await(xcb_xfixes_query_version(session_.get(), 4, 0)) != nullptr;
  }
  if (session_.alive() && session_.has(xcb_shm_id) && passesDescriptors(session_)) {
    const auto version = session_.await(xcb_shm_query_version(session_.get()));
    canShare_ = version && (version->major_version > 1 || version->minor_version >= 2);
  }
}

ScreenGrabber::~ScreenGrabber() {
  if (segment_ && session_.alive()) {
    // The connection goes to others, and the server would keep the memory as long as it lives.
    xcb_shm_detach(session_.get(), segment_->id());
    xcb_flush(session_.get());
  }
}

std::optional<std::string> ScreenGrabber::grab(const Area& area) {
  if (!hasUsualPixels(session_)) {
    return "pictures of a screen with " + std::to_string(session_.screen().root_depth) +
           " bits per pixel in this format are not supported (the usual 24 are)";
  }
  // Asked for first, so that the server answers both in one go.
  const auto askedPointer = canSeePointer_ ? xcb_xfixes_get_cursor_image(session_.get())
                                           : xcb_xfixes_get_cursor_image_cookie_t{};
  const bool grabbed = grabShared(area) || grabCopied(area);
  const auto pointer = canSeePointer_ ? session_.await(askedPointer) : nullptr;
  if (!session_.alive()) {
    return "the X server has gone";
  }
  if (!grabbed) {
    return "the X server refuses the picture of the screen";
  }
  if (pointer) {
    drawPointer(*pointer, area, pixels_);
  }
  return std::nullopt;
}

/// Makes sure of a segment of at least this size.
bool ScreenGrabber::share(std::size_t size) {
  if (segment_ && segment_->size() >= size) {
    return true;
  }
  if (segment_) {
    xcb_shm_detach(session_.get(), segment_->id());
    segment_.reset();
  }
  segment_ = SharedSegment::create(session_, size);
  return segment_.has_value();
}

bool ScreenGrabber::grabShared(const Area& area) {
  if (!canShare_ || !share(pixelCount(area) * bytesPerPixel)) {
    return false;
  }
  const auto reply = session_.await(
      xcb_shm_get_image(session_.get(), session_.screen().root, area.x, area.y, area.width,
                        area.height, ~0U, XCB_IMAGE_FORMAT_Z_PIXMAP, segment_->id(), 0));
  pixels_ = reply ? segment_->pixels() : nullptr;
  return reply != nullptr;
}

bool ScreenGrabber::grabCopied(const Area& area) {
  if (!session_.alive()) {
    return false;
  }
  copy_ = session_.await(xcb_get_image(session_.get(), XCB_IMAGE_FORMAT_Z_PIXMAP,
                                       session_.screen().root, area.x, area.y, area.width,
                                       area.height, ~0U));
  // The length counts units of four bytes, as many as a pixel takes.
  if (!copy_ || copy_->length < pixelCount(area)) {
    return false;
  }
  pixels_ = reinterpret_cast<std::uint32_t*>(xcb_get_image_data(copy_.get()));
  return true;
}

}  // namespace tervain::Linux::X11
