#include <gtest/gtest.h>

#include <random>
#include <string>

#include "VMAgentCore/Base64.h"
#include "VMAgentCore/Json.h"

namespace tervain {
namespace {

std::string encoded(std::string_view bytes) {
  std::string text;
  appendBase64(text, bytes);
  return text;
}

TEST(Base64, EncodesWithPaddingAndEscapedSlashes) {
  for (const auto& [bytes, text] :
       {std::pair("", ""), std::pair("f", "Zg=="), std::pair("fo", "Zm8="),
        std::pair("foo", "Zm9v"), std::pair("\xff\xff\xff", "\\/\\/\\/\\/"),
        std::pair("\xfb\xef\xbe", "++++")}) {
    EXPECT_EQ(encoded(bytes), text);
  }
}

TEST(Base64, RoundTripsEveryLengthAroundItsBlocks) {
  std::mt19937 random(1);  // NOLINT(cert-msc*): the same bytes every time
  for (std::size_t size = 0; size < 3100;
       size += size % 1536 < 8 || size % 1536 > 1528 ? 1U : 37U) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
      byte = static_cast<char>(random());
    }
    // Through a JSON reader, as on the wire.
    const Json text = Json::parse('"' + encoded(bytes) + '"');
    ASSERT_EQ(decodeBase64(text.get<std::string>()), bytes) << size;
  }
}

TEST(Base64, RefusesWhatIsNotValid) {
  for (const char* text : {"Zg", "Zg=", "Z===", "====", "Zm9v\n", "Zm 9", "Zm-_", "=m9v", "Zm=v",
                           "Zh==", "Zm9=", "Zm9\xc3", "!!"}) {
    EXPECT_EQ(decodeBase64(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace tervain
