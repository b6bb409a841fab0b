#include <gtest/gtest.h>

#include "VMAgentClient/Inspection.h"

namespace tervain {
namespace {

/// What the page is given for its script.
Json dataOf(const std::string& page) {
  constexpr std::string_view begin = R"(<script type="application/json" id="data">)";
  const std::size_t start = page.find(begin) + begin.size();
  return Json::parse(page.substr(start, page.find("</script>", start) - start));
}

TEST(Inspection, GivesTheLineThatFindsAnElement) {
  const ElementTree tree = treeOf(Json::parse(R"({"app":"A","tree":{"ref":"e1","children":[
      {"ref":"e2","role":"AXButton","title":"It's","actions":["AXPress"]},
      {"ref":"e3","role":"AXButton","title":"-x","actions":["AXRaise","AXPress"]},
      {"ref":"e4","role":"AXRow","value":"one","actions":["AXOpen"]},
      {"ref":"e5","role":"AXRow","value":"two","frame":{"x":0,"y":-9,"w":10,"h":10}},
      {"ref":"e6","role":"AXRow","title":"same","frame":{"x":1,"y":2,"w":10,"h":10}},
      {"ref":"e7","role":"AXRow","title":"same"}]}})"),
                                  25);
  std::vector<std::string> lines;
  const Json data = dataOf(inspectionPage(tree, {}, "tervainctl -a x"));
  for (const Json& element : data.at("elements")) {
    lines.push_back(element.at("command"));
  }
  const std::vector<std::string> expected{
      "",
      R"(tervainctl -a x press --role AXButton --title 'It'\''s' --exact)",
      "tervainctl -a x press --role AXButton --title=-x --exact",
      "tervainctl -a x press --role AXRow --value one --exact AXOpen",
      "tervainctl -a x click --role AXRow --value two --exact",
      "tervainctl -a x click 6 7",
      ""};
  EXPECT_EQ(lines, expected);
}

TEST(Inspection, HasNoMarkupOfTheGuests) {
  const std::string hostile = "</script><img src=x onerror=alert(1)>@DATA@@PICTURE@<!--";
  const Json reply{{"app", hostile}, {"tree", {{"ref", hostile}, {"title", hostile}}}};
  const std::string page = inspectionPage(treeOf(reply, 25), {"jpeg", 1, 1, 1, {}}, hostile);
  EXPECT_EQ(page.find("<img src=x"), page.npos);
  EXPECT_EQ(dataOf(page).at("elements").at(0).at("title"), hostile);
}

}  // namespace
}  // namespace tervain
