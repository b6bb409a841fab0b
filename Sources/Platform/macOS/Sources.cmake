target_sources(Platform PRIVATE
  macOS/Accessibility.cpp
  macOS/AutoreleasePool.cpp
  macOS/Capture.mm
  macOS/Displays.cpp
  macOS/Events.cpp
  macOS/Pointer.cpp
  macOS/Privacy.cpp
  macOS/Process.cpp
  macOS/Workspace.mm)
target_compile_options(Platform PRIVATE $<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-arc>)
target_link_libraries(Platform PRIVATE
  "-framework AppKit" "-framework ApplicationServices" "-framework ScreenCaptureKit")
