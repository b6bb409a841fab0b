find_package(PkgConfig REQUIRED)
pkg_check_modules(XCB REQUIRED IMPORTED_TARGET
  xcb xcb-randr xcb-shm xcb-xfixes xcb-xkb xcb-xtest)
pkg_check_modules(TURBOJPEG REQUIRED IMPORTED_TARGET libturbojpeg)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)

target_sources(Platform PRIVATE
  Linux/AccessibilityBus.cpp
  Linux/Capture.cpp
  Linux/Displays.cpp
  Linux/Events.cpp
  Linux/FocusedWindow.cpp
  Linux/Keyboard.cpp
  Linux/KeyboardMap.cpp
  Linux/Launch.cpp
  Linux/MacKeys.cpp
  Linux/Monitors.cpp
  Linux/Pointer.cpp
  Linux/Privacy.cpp
  Linux/Process.cpp
  Linux/ScreenGrabber.cpp
  Linux/SpareKeys.cpp
  Linux/X11.cpp)
target_link_libraries(Platform PRIVATE PkgConfig::XCB PkgConfig::SYSTEMD PkgConfig::TURBOJPEG)

# The agent runs this to open applications. It stands beside the agent, which finds it there.
pkg_check_modules(GIO REQUIRED IMPORTED_TARGET gio-2.0 gio-unix-2.0)
add_executable(tervain-open Linux/tervain-open.cpp)
target_link_libraries(tervain-open PRIVATE BuildOptions PkgConfig::GIO)
set_target_properties(tervain-open PROPERTIES
  RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/Sources/TervainVMAgent)
add_dependencies(Platform tervain-open)
install(TARGETS tervain-open RUNTIME)
