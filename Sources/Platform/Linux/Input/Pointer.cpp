#include "Platform/Pointer.h"

#include "Platform/Linux/X11/Session.h"

namespace tervain::Platform {

using namespace Linux;

std::optional<Point> pointerLocation() {
  auto x11 = X11::Session::open(after(X11::lookLimit));
  if (!x11) {
    return std::nullopt;
  }
  const auto pointer = x11->await(xcb_query_pointer(x11->get(), x11->screen().root));
  if (!pointer) {
    return std::nullopt;
  }
  return Point{static_cast<double>(pointer->root_x), static_cast<double>(pointer->root_y)};
}

}  // namespace tervain::Platform
