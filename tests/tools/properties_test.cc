// The workstation's libcutils.
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tests/tools/symbols.h"

namespace kelda::tools {
namespace {

TEST(Properties, ReadsIntegersByThePlatformsRules) {
  constexpr int32_t kDefault = -77;
  const struct {
    const char* value;
    int32_t expected;
  } kCases[] = {
      {"1", 1},
      {"-5", -5},
      {"+5", 5},
      {" 7", 7},
      {"0x10", 16},
      {"-0x10", -16},
      {"010", 8},
      {"12abc", 12},
      {"2147483647", 2147483647},
      {"-2147483648", -2147483647 - 1},
      {"2147483648", kDefault},
      {"-2147483649", kDefault},
      {"0xffffffff", kDefault},
      {"99999999999999999999999", kDefault},
      {"-99999999999999999999999", kDefault},
      {"", kDefault},
      {" ", kDefault},
      {"yes", kDefault},
      {"true", kDefault},
      {"x1", kDefault},
  };
  for (const auto& [value, expected] : kCases) {
    ASSERT_EQ(0, property_set("test.value", value));
    EXPECT_EQ(expected, property_get_int32("test.value", kDefault)) << "'" << value << "'";
  }
  EXPECT_EQ(kDefault, property_get_int32("test.unset", kDefault));
  EXPECT_EQ(kDefault, property_get_int32(nullptr, kDefault));
}

TEST(Properties, RefusesAValueThatIsTooLongAndKeepsTheOld) {
  const std::string longest = "3" + std::string(PROPERTY_VALUE_MAX - 2, ' ');
  EXPECT_EQ(0, property_set("test.long", longest.c_str()));
  EXPECT_LT(property_set("test.long", (longest + " ").c_str()), 0);
  EXPECT_EQ(3, property_get_int32("test.long", 0));
  EXPECT_EQ(0, property_set("test.long", nullptr));
  EXPECT_EQ(0, property_get_int32("test.long", 0));
  EXPECT_LT(property_set(nullptr, "1"), 0);
  EXPECT_LT(property_set("", "1"), 0);
}

TEST(Properties, ExportsWhatItsHeaderDeclares) {
  EXPECT_EQ((std::set<std::string>{"property_get_int32", "property_set"}),
            ExportedSymbols(CUTILS_LIBRARY));
}

}  // namespace
}  // namespace kelda::tools
