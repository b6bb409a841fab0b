#include "Platform/Privacy.h"

#include <string_view>

#include "Platform/Linux/Accessibility/Bus.h"
#include "Platform/Linux/X11/Session.h"

namespace tervain::Platform {

using namespace Linux;

bool accessibilityGranted() {
  return AccessibilityBus::answers();
}

bool screenRecordingGranted() {
  auto x11 = X11::Session::open(after(X11::lookLimit));
  if (!x11) {
    return false;
  }
  // One pixel tells: a server that withholds the screen refuses it too.
  const auto image = x11->await(
      xcb_get_image(x11->get(), XCB_IMAGE_FORMAT_Z_PIXMAP, x11->screen().root, 0, 0, 1, 1, ~0U));
  return image != nullptr;
}

bool postEventGranted() {
  auto x11 = X11::Session::open(after(X11::lookLimit));
  if (!x11) {
    return false;
  }
  constexpr std::string_view name = "XTEST";
  const auto extension = x11->await(xcb_query_extension(x11->get(), name.size(), name.data()));
  return extension && extension->present != 0;
}

}  // namespace tervain::Platform
