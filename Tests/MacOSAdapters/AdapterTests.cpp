// The plain C++ of the macOS port against functions that count references.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "MacOSAdapters/FakeSystem.h"
#include "Platform/Accessibility.h"
#include "Platform/Displays.h"
#include "Platform/Events.h"
#include "Platform/Pointer.h"
#include "Platform/Privacy.h"
#include "Platform/macOS/CFRef.h"

namespace tervain::Platform {
namespace {

using Fake::Answer;
using Fake::line;
using Fake::make;
using Requests = std::vector<std::string>;
using std::chrono::milliseconds;

constexpr std::int32_t failed = -25204;

/// An array of new objects, whose texts end in their numbers.
Fake::Reference array(std::size_t count, Fake::Type type, const std::string& text,
                      std::optional<Fake::Type> lastType = {}) {
  std::vector<Fake::Reference> items;
  for (std::size_t i = 0; i < count; ++i) {
    items.push_back(make(i + 1 == count ? lastType.value_or(type) : type, line(text, i)));
  }
  return make(Fake::array, items);
}

Fake::Reference address(const std::string& relative, const std::string& base) {
  return make(Fake::url,
              std::vector<Fake::Reference>{make(Fake::string, relative), make(Fake::string, base)});
}

struct Describe {
  std::string operator()(const AXOther& /*other*/) const { return "other"; }
  std::string operator()(const std::string& text) const { return "text " + text; }
  std::string operator()(const AXURL& url) const { return "url " + url.text; }
  std::string operator()(const Point& p) const { return line("point", p.x, p.y); }
  std::string operator()(const Size& s) const { return line("size", s.width, s.height); }
  std::string operator()(const AXNumber& number) const {
    return std::visit([&](auto n) { return line("number", number.index(), n); }, number);
  }
  std::string operator()(const AXElements& elements) const {
    std::string text = line(elements.first.size(), "of", elements.count);
    if (!elements.first.empty()) {  // which must live on after their array
      performAction(elements.first.back(), "press");
      text += ", " + Fake::system().requests.back();
    }
    return text;
  }
};

class MacOSAdapters : public testing::Test {
 protected:
  Fake::System system_;
  AXElement application_ = applicationElement(42, milliseconds(1500));
  static constexpr AXWalk walk{.maxDepth = 12, .maxNodes = 800, .maxChildren = 2};
};

TEST_F(MacOSAdapters, AReferenceLetsGoOfWhatItHad) {
  auto held = CFRef<CFTypeRef>::adopt(make(Fake::string, ""));
  *held.out() = make(Fake::string, "");
  held = CFRef<CFTypeRef>::adopt(make(Fake::string, ""));
}

TEST_F(MacOSAdapters, AttributesAreTranslatedByType) {
  const auto makeCases = [] {
    return std::vector<std::pair<Answer, const char*>>{
        {{make(Fake::string, "Grüße, 🌍\xFF")}, "text Grüße, 🌍?"},
        {{make(Fake::string, std::string("a\0b", 3))}, "text a\0b"},
        {{make(Fake::string, "")}, "text "},
        {{make(Fake::boolean, true)}, "number 0 1"},
        {{make(Fake::number, std::int64_t{-7})}, "number 0 -7"},
        {{make(Fake::number, 0.5F)}, "number 1 0.5"},
        {{make(Fake::number, 0.25)}, "number 2 0.25"},
        {{address("page", "https://example.org/")}, "url https://example.org/page"},
        {{make(Fake::value, Point{10.5, -3})}, "point 10.5 -3"},
        {{make(Fake::value, Size{99.5, 20})}, "size 99.5 20"},
        {{make(Fake::value, "")}, "other"},
        {{make(Fake::date, "")}, "other"},
        {{array(2, Fake::element, "child")}, "2 of 2, press of child 1"},
        {{array(0, Fake::element, "")}, "0 of 0"},
        {{array(3, Fake::element, "child", Fake::string)}, "other"},
        {{make(Fake::array, std::vector{array(2, Fake::element, "")})}, "other"},
        {{make(Fake::string, "stale"), failed}, "nothing"},
        {{nullptr, failed}, "nothing"},
        {{}, "nothing"}};
  };
  for (const bool knowsLists : {true, false}) {
    system_.application.knowsLists = knowsLists;
    for (const auto& [answer, expected] : makeCases()) {
      system_.answers["AXValue"] = answer;
      const auto value = AXReader(application_, walk).attribute(application_, AXAttribute::value);
      EXPECT_STREQ((value ? std::visit(Describe{}, *value) : "nothing").c_str(), expected);
    }
  }
  system_.answers["AXValue"] = {address("page", "https://example.org/")};
  system_.createsObjects = false;
  EXPECT_EQ(std::visit(Describe{}, *AXReader().attribute(application_, AXAttribute::value)),
            "url ");
}

TEST_F(MacOSAdapters, AttributesAreAskedForByTheirNames) {
  const char* names[] = {"AXRole",    "AXSubrole", "AXTitle",    "AXValue",
                         "AXEnabled", "AXFocused", "AXPosition", "AXSize"};
  for (const bool knowsLists : {true, false}) {
    system_.application.knowsLists = knowsLists;
    for (const char* name : names) {
      system_.answers[name] = {make(Fake::string, name)};
    }
    AXReader reader(application_, walk);
    for (std::size_t index = 0; index < std::size(names); ++index) {
      const auto value = reader.attribute(application_, static_cast<AXAttribute>(index));
      EXPECT_EQ(std::visit(Describe{}, *value), line("text", names[index]));
    }
  }
}

TEST_F(MacOSAdapters, ActionNamesAreAllOrNothing) {
  const std::pair<Answer, Requests> cases[] = {
      {{array(2, Fake::string, "AXAction")}, {"AXAction 0", "AXAction 1"}},
      {{array(2, Fake::string, "AXAction", Fake::number)}, {}},
      {{array(2, Fake::string, "AXAction"), failed}, {}},
      {{}, {}}};
  for (const auto& [answer, expected] : cases) {
    system_.answers["action names"] = answer;
    EXPECT_EQ(AXReader().actionNames(application_), expected);
  }
}

TEST_F(MacOSAdapters, TheElementAtAPositionIsTheSystemsAnswer) {
  const std::pair<Answer, std::optional<AXError>> cases[] = {
      {{make(Fake::element, "button")}, std::nullopt},
      {{make(Fake::element, "stale"), failed}, AXError::cannotComplete},
      {{nullptr, failed}, AXError::cannotComplete},
      {{}, AXError::success}};
  for (const auto& [answer, error] : cases) {
    system_.requests = {};
    system_.answers["element at position"] = answer;
    const auto found = elementAtPosition(-10, 20.5F, milliseconds(1500));
    EXPECT_EQ(system_.requests, Requests{"at -10 20.5 of everything"});
    EXPECT_EQ(system_.timeout, milliseconds(1500));
    if (error) {
      EXPECT_EQ(std::get<AXError>(found), *error);
    } else {
      performAction(std::get<AXElement>(found), "press");
      EXPECT_EQ(system_.requests.back(), "press of button");
    }
  }
}

TEST_F(MacOSAdapters, ElementsAreActedOn) {
  for (const auto code : {AXError::success, AXError::cannotComplete, AXError(-25299)}) {
    system_.result = static_cast<std::int32_t>(code);
    system_.isSettable = code == AXError::cannotComplete;
    EXPECT_EQ(isValueSettable(application_), system_.isSettable);
    const std::vector results = {performAction(application_, "AXPréss"), setValue(application_, ""),
                                 setFocused(application_)};
    EXPECT_EQ(results, std::vector(3, code));
  }
  EXPECT_EQ(Requests(system_.requests.end() - 4, system_.requests.end()),
            (Requests{"set AXValue of application 42", "AXPréss of application 42",
                      "AXValue of application 42 = ", "AXFocused of application 42 = true"}));
  system_.createsObjects = false;
  const std::vector results = {performAction(application_, "AXPress"), setValue(application_, "")};
  EXPECT_EQ(results, std::vector(2, AXError::failure));
  EXPECT_TRUE(std::holds_alternative<AXError>(elementAtPosition(0, 0, milliseconds(1500))));
  // For an application that the system gives no element for, it is asked nothing.
  const AXElement none = applicationElement(-1, milliseconds(1500));
  EXPECT_EQ(setFocused(none), AXError::invalidUIElement);
  EXPECT_FALSE(isValueSettable(none));
  EXPECT_FALSE(AXReader(none, walk).attribute(none, AXAttribute::role));
}

TEST_F(MacOSAdapters, EventsArePostedAsMadeAndAtTheirPace) {
  std::vector<std::optional<Event>> events;
  const auto makeAll = [&events] {
    events.clear();
    events.push_back(mouseEvent(MouseEventType::otherDown, {10.5, -2}, MouseButton::center));
    events.push_back(scrollEvent(-40, 3));
    events.push_back(keyboardEvent(36, /*down=*/true));
    events.push_back(keyboardEvent(0, /*down=*/false));
  };
  makeAll();
  setClickState(*events[0], 3);
  setFlags(*events[2], 0x120000);
  setUnicodeString(*events[3], u"a\xD83C");
  system_.requests = {};
  const auto start = std::chrono::steady_clock::now();
  for (const auto& event : events) {
    post(*event);
    pause(milliseconds(2));
  }
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(8));
  EXPECT_EQ(system_.requests,
            (Requests{"tap 0 mouse 25 at 10.5 -2 by 2 field 1 = 3",
                      "tap 0 scroll by unit 1 with 2 wheels by -40 3 0",
                      "tap 0 key 36 down flags 1179648", "tap 0 key 0 up units 97 55356"}));
  events[2] = std::move(events[3]);
  system_.createsObjects = false;
  makeAll();
  EXPECT_EQ(std::count(events.begin(), events.end(), std::nullopt), 4);
}

TEST_F(MacOSAdapters, DisplaysAreThoseInUse) {
  EXPECT_TRUE(activeDisplays(8).empty());
  system_.displays = {7, 8, 9};
  const auto displays = activeDisplays(2);
  ASSERT_EQ(displays.size(), 2);
  EXPECT_TRUE(displays[0].id == 7 && displays[0].isMain);
  EXPECT_TRUE(displays[1].id == 8 && !displays[1].isMain);
  EXPECT_TRUE(displays[1].width == 1008 && displays[1].height == 508);
}

TEST_F(MacOSAdapters, ThePointerIsWhereANewEventIs) {
  system_.pointer = {100.5, -200};
  EXPECT_EQ(Describe{}(pointerLocation().value()), "point 100.5 -200");
  system_.createsObjects = false;
  EXPECT_FALSE(pointerLocation());
}

TEST_F(MacOSAdapters, EachGrantIsItsOwn) {
  for (const char* grant : {"accessibility", "capture", "post"}) {
    system_.grant = grant;
    EXPECT_EQ(accessibilityGranted(), system_.grant == "accessibility");
    EXPECT_EQ(screenRecordingGranted(), system_.grant == "capture");
    EXPECT_EQ(postEventGranted(), system_.grant == "post");
  }
}

}  // namespace
}  // namespace tervain::Platform
