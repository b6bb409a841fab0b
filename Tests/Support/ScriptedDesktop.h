#pragma once

#include "ScriptedPlatform/ScriptedAccessibility.h"
#include "ScriptedPlatform/ScriptedCapture.h"
#include "ScriptedPlatform/ScriptedLaunch.h"
#include "ScriptedPlatform/ScriptedStatus.h"

namespace tervain::test {

/// Scripts a desktop of one display, on which all operations have something to do: an application
/// with two buttons is in front, and any other is launched.
inline void scriptDesktop() {
  using enum Platform::AXAttribute;
  const auto button = std::make_shared<ScriptedElement>();
  button->attributes = {{role, "AXButton"},
                        {title, "Save, with a title that is not short at all"},
                        {position, Platform::Point{1, 2}},
                        {size, Platform::Size{3, 4}}};
  button->actionNames = {"AXPress"};
  const auto application = std::make_shared<ScriptedElement>();
  application->attributes = {
      {role, "AXApplication"},
      {children, Platform::AXElements{{handleOf(button), handleOf(button)}, 2}}};
  scriptedAccessibility() = {{{7, application}}, handleOf(button), {}};
  scriptedStatus().frontmost = 7;
  scriptedStatus().pointer = {1.5, -2.5};
  scriptedStatus().displays = {{1, 640, 480, true}};
  ScriptedCapture capture;
  capture.displays = {{{640, 480}, 1}};
  script(capture);
  script(ScriptedLaunch{[](const auto&) { return std::nullopt; }, [](const auto&) { return 1; }});
}

}  // namespace tervain::test
