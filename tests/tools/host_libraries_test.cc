// The workstation's liblog and libcutils.
#include <android/log.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/tools/expectations.h"

namespace kelda::tools {
namespace {

const std::string kStamp = "[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{3} +";

TEST(Log, PrintsThreadtimeLinesFromTheMinimumPriorityOn) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(1, __android_log_print(ANDROID_LOG_WARN, "KelUpm", "value %d", 42));
  EXPECT_LT(__android_log_print(ANDROID_LOG_DEBUG, "T", "hidden by default"), 0);
  EXPECT_EQ(ANDROID_LOG_INFO, __android_log_set_minimum_priority(ANDROID_LOG_ERROR));
  EXPECT_LT(__android_log_print(ANDROID_LOG_WARN, "T", "hidden"), 0);
  EXPECT_EQ(1, __android_log_print(ANDROID_LOG_ERROR, "LongerThanEight", "two\nlines\n"));
  EXPECT_EQ(ANDROID_LOG_ERROR, __android_log_set_minimum_priority(ANDROID_LOG_INFO));
  const std::string start =
      kStamp + std::to_string(getpid()) + " +" + std::to_string(gettid()) + " ";
  EXPECT_TRUE(Matches(testing::internal::GetCapturedStderr(),
                      start + "W KelUpm  : value 42\n" + start + "E LongerThanEight: two\n" +
                          start + "E LongerThanEight: lines\n"));
}

TEST(Log, FoldsRepeats) {
  testing::internal::CaptureStderr();
  const auto log = [](int times, int priority, const char* tag, const char* message) {
    for (int i = 0; i < times; ++i) {
      __android_log_print(priority, tag, "%s", message);
    }
  };
  log(1000, ANDROID_LOG_WARN, "T", "again");
  log(2, ANDROID_LOG_ERROR, "T", "again");
  log(1, ANDROID_LOG_ERROR, "U", "again");
  log(1, ANDROID_LOG_ERROR, "U", "other");
  const std::string stamp = kStamp + "[0-9]+ +[0-9]+ ";
  EXPECT_TRUE(Matches(testing::internal::GetCapturedStderr(),
                      stamp + "W T       : again\n" + stamp +
                          "W T       : the line before, 999 times more\n" + stamp +
                          "E T       : again\n" + stamp + "E T       : again\n" + stamp +
                          "E U       : again\n" + stamp + "E U       : other\n"));
}

TEST(Log, CutsALongMessageAsThePlatformDoes) {
  static std::string seen;
  __android_log_set_logger([](const __android_log_message* message) { seen = message->message; });
  __android_log_print(ANDROID_LOG_INFO, "T", "%s", std::string(5000, 'x').c_str());
  __android_log_set_logger(nullptr);
  EXPECT_EQ(std::string(1023, 'x'), seen);
}

TEST(Log, KeepsTheLinesOfThreadsApart) {
  testing::internal::CaptureStderr();
  std::vector<std::thread> threads(4);
  for (std::thread& thread : threads) {
    thread = std::thread([] {
      for (int line = 0; line < 500; ++line) {
        __android_log_print(ANDROID_LOG_INFO, "T", "%s%d", std::string(200, 'a').c_str(), line);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  std::istringstream lines(testing::internal::GetCapturedStderr());
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    ASSERT_TRUE(Matches(line, kStamp + "[0-9]+ +[0-9]+ I T       : a{200}[0-9]+"));
  }
  EXPECT_EQ(2000, count);
}

TEST(Properties, ReadsIntegersByThePlatformsRules) {
  constexpr int32_t kDefault = -77;
  const auto read = [](const char* value) {
    EXPECT_EQ(0, property_set("test.value", value));
    return property_get_int32("test.value", kDefault);
  };
  EXPECT_EQ(1, read("1"));
  EXPECT_EQ(-5, read("-5"));
  EXPECT_EQ(5, read("+5"));
  EXPECT_EQ(7, read(" 7"));
  EXPECT_EQ(-16, read("-0x10"));
  EXPECT_EQ(8, read("010"));
  EXPECT_EQ(12, read("12abc"));
  EXPECT_EQ(2147483647, read("2147483647"));
  EXPECT_EQ(-2147483647 - 1, read("-2147483648"));
  for (const char* none : {"2147483648", "-2147483649", "0xffffffff", "99999999999999999999999", "",
                           " ", "yes", "x1"}) {
    EXPECT_EQ(kDefault, read(none)) << "'" << none << "'";
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

}  // namespace
}  // namespace kelda::tools
