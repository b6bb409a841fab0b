pkg_check_modules(XCB REQUIRED IMPORTED_TARGET
  xcb xcb-randr xcb-res xcb-shm xcb-xfixes xcb-xkb xcb-xtest)
pkg_check_modules(TURBOJPEG REQUIRED IMPORTED_TARGET libturbojpeg)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)

target_sources(Platform PRIVATE
  Linux/AXNames.cpp
  Linux/AccessibilityActions.cpp
  Linux/AccessibilityBus.cpp
  Linux/AccessibilityReader.cpp
  Linux/AutoreleasePool.cpp
  Linux/Capture.cpp
  Linux/Displays.cpp
  Linux/Elements.cpp
  Linux/Events.cpp
  Linux/Facts.cpp
  Linux/FocusedWindow.cpp
  Linux/HitTest.cpp
  Linux/Keyboard.cpp
  Linux/KeyboardMap.cpp
  Linux/Launch.cpp
  Linux/MacKeys.cpp
  Linux/Monitors.cpp
  Linux/Placement.cpp
  Linux/Pointer.cpp
  Linux/Privacy.cpp
  Linux/Process.cpp
  Linux/ScreenGrabber.cpp
  Linux/SpareKeys.cpp
  Linux/Windows.cpp
  Linux/Workspace.cpp
  Linux/X11.cpp)
target_link_libraries(Platform PRIVATE PkgConfig::XCB PkgConfig::SYSTEMD PkgConfig::TURBOJPEG)

# The agent runs this to open applications. It stands beside the agent, which finds it there.
pkg_check_modules(GIO REQUIRED IMPORTED_TARGET gio-2.0 gio-unix-2.0)
add_executable(tervain-open Linux/tervain-open.cpp)
# ThreadSanitizer sees races in GLib, which is not built for it; the program has no thread of its own.
if(TERVAIN_SANITIZE STREQUAL thread)
  target_link_libraries(tervain-open PRIVATE Warnings PkgConfig::GIO)
else()
  target_link_libraries(tervain-open PRIVATE BuildOptions PkgConfig::GIO)
endif()
set_target_properties(tervain-open PROPERTIES
  RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/Sources/TervainVMAgent)
add_dependencies(Platform tervain-open)
install(TARGETS tervain-open RUNTIME)
