pkg_check_modules(XCB REQUIRED IMPORTED_TARGET xcb xcb-randr xcb-res)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)

target_sources(Platform PRIVATE
  Linux/AXNames.cpp
  Linux/AccessibilityActions.cpp
  Linux/AccessibilityBus.cpp
  Linux/AccessibilityReader.cpp
  Linux/Displays.cpp
  Linux/Elements.cpp
  Linux/Facts.cpp
  Linux/HitTest.cpp
  Linux/Placement.cpp
  Linux/Pointer.cpp
  Linux/Privacy.cpp
  Linux/Process.cpp
  Linux/Windows.cpp
  Linux/Workspace.cpp
  Linux/X11.cpp)
target_link_libraries(Platform PRIVATE PkgConfig::XCB PkgConfig::SYSTEMD)
