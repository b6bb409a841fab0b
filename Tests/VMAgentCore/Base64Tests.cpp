#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <string>

#include "VMAgentCore/Base64/Base64.h"
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
  constexpr std::string_view allDigits(
      "\x00\x10\x83\x10\x51\x87\x20\x92\x8b\x30\xd3\x8f\x41\x14\x93\x51"
      "\x55\x97\x61\x96\x9b\x71\xd7\x9f\x82\x18\xa3\x92\x59\xa7\xa2\x9a"
      "\xab\xb2\xdb\xaf\xc3\x1c\xb3\xd3\x5d\xb7\xe3\x9e\xbb\xf3\xdf\xbf",
      48);
  EXPECT_EQ(encoded(allDigits),
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+\\/");
}

TEST(Base64, RoundTripsEveryLengthAroundItsBlocks) {
  std::mt19937 random(1);  // NOLINT(cert-msc*): the same bytes every time
  for (std::size_t size = 0; size < 7000;
       size += size % 3072 < 70 || size % 3072 > 3002 ? 1U : 61U) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
      byte = size % 2 == 0 ? static_cast<char>(random()) : '\xff';  // which is slashes alone
    }
    const std::string text = encoded(bytes);
    ASSERT_EQ(decodeEscapedBase64(text), bytes) << size;
    ASSERT_EQ(decodeBase64(Json::parse('"' + text + '"').get<std::string>()), bytes) << size;
  }
}

TEST(Base64, TakesWhatIsValidAndNothingElse) {
  const auto isDigit = [](char c) { return std::isalnum(c) != 0 || c == '+' || c == '/'; };
  for (int c = -128; c < 128; ++c) {
    for (const std::size_t at : {0U, 70U, 135U, 148U}) {
      std::string text(152, 'A');
      text[at] = static_cast<char>(c);
      EXPECT_EQ(decodeBase64(text).has_value(), c >= 0 && isDigit(static_cast<char>(c))) << c;
    }
  }
  for (const char* text : {"Zg", "Zg=", "Z===", "====", "=", "Zm=v", "Zg==Zg==", "Zm9\\/"}) {
    EXPECT_EQ(decodeBase64(text), std::nullopt) << text;
  }
  // Bits that belong to no byte do no harm.
  EXPECT_EQ(decodeBase64("QR=="), "A");
  EXPECT_EQ(decodeBase64("Zm9="), "fo");
  const std::string digits(40, 'A');
  for (const char* end : {"\\", "\\\\/A", "\\n", "\\u002f"}) {
    EXPECT_EQ(decodeEscapedBase64(digits + "AAA" + end), std::nullopt) << end;
    EXPECT_EQ(decodeEscapedBase64(digits + "AAA" + end + digits), std::nullopt) << end;
  }
}

}  // namespace
}  // namespace tervain
