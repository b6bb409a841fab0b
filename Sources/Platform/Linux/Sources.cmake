find_package(PkgConfig REQUIRED)
pkg_check_modules(XCB REQUIRED IMPORTED_TARGET xcb xcb-randr xcb-xkb xcb-xtest)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)

target_sources(Platform PRIVATE
  Linux/AccessibilityBus.cpp
  Linux/Displays.cpp
  Linux/Events.cpp
  Linux/FocusedWindow.cpp
  Linux/Keyboard.cpp
  Linux/KeyboardMap.cpp
  Linux/MacKeys.cpp
  Linux/Pointer.cpp
  Linux/Privacy.cpp
  Linux/Process.cpp
  Linux/SpareKeys.cpp
  Linux/X11.cpp)
target_link_libraries(Platform PRIVATE PkgConfig::XCB PkgConfig::SYSTEMD)
