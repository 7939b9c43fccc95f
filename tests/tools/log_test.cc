// The workstation's liblog.
#include <android/log.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/tools/matches.h"
#include "tests/tools/symbols.h"

namespace kelda::tools {
namespace {

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

const std::string kStamp = "[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{3} +";

TEST(Log, PrintsThreadtimeLines) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(1, __android_log_print(ANDROID_LOG_WARN, "KelUpm", "value %d", 42));
  EXPECT_EQ(1, __android_log_print(ANDROID_LOG_ERROR, "LongerThanEight", "two\nlines\n"));
  const auto lines = Lines(testing::internal::GetCapturedStderr());
  ASSERT_EQ(3U, lines.size());
  const std::string ids = std::to_string(getpid()) + " +" + std::to_string(gettid());
  EXPECT_TRUE(Matches(lines[0], kStamp + ids + " W KelUpm  : value 42")) << lines[0];
  EXPECT_TRUE(Matches(lines[1], kStamp + ids + " E LongerThanEight: two")) << lines[1];
  EXPECT_TRUE(Matches(lines[2], kStamp + ids + " E LongerThanEight: lines")) << lines[2];
}

TEST(Log, DropsWhatIsBelowTheMinimumPriority) {
  testing::internal::CaptureStderr();
  EXPECT_LT(__android_log_print(ANDROID_LOG_DEBUG, "T", "hidden by default"), 0);
  EXPECT_EQ(ANDROID_LOG_INFO, __android_log_set_minimum_priority(ANDROID_LOG_ERROR));
  EXPECT_LT(__android_log_print(ANDROID_LOG_WARN, "T", "hidden"), 0);
  EXPECT_EQ(1, __android_log_print(ANDROID_LOG_ERROR, "T", "shown"));
  EXPECT_EQ(ANDROID_LOG_ERROR, __android_log_set_minimum_priority(ANDROID_LOG_INFO));
  const auto lines = Lines(testing::internal::GetCapturedStderr());
  ASSERT_EQ(1U, lines.size());
  EXPECT_NE(std::string::npos, lines[0].find("shown"));
}

TEST(Log, CutsALongMessageAsThePlatformDoes) {
  static std::string seen;
  __android_log_set_logger([](const __android_log_message* message) { seen = message->message; });
  __android_log_print(ANDROID_LOG_INFO, "T", "%s", std::string(5000, 'x').c_str());
  __android_log_set_logger(nullptr);
  EXPECT_EQ(std::string(1023, 'x'), seen);
}

TEST(Log, KeepsTheLinesOfThreadsApart) {
  constexpr int kThreads = 4;
  constexpr int kLines = 500;
  testing::internal::CaptureStderr();
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread] {
      for (int line = 0; line < kLines; ++line) {
        __android_log_print(ANDROID_LOG_INFO, "T", "%d %d %s", thread, line,
                            std::string(200, 'a').c_str());
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const auto lines = Lines(testing::internal::GetCapturedStderr());
  EXPECT_EQ(static_cast<size_t>(kThreads * kLines), lines.size());
  const std::string form = kStamp + "[0-9]+ +[0-9]+ I T       : [0-9] [0-9]+ a{200}";
  for (const std::string& line : lines) {
    ASSERT_TRUE(Matches(line, form)) << line;
  }
}

TEST(Log, ExportsWhatItsHeaderDeclares) {
  EXPECT_EQ(
      (std::set<std::string>{"__android_log_print", "__android_log_set_logger",
                             "__android_log_set_minimum_priority", "__android_log_stderr_logger"}),
      ExportedSymbols(LOG_LIBRARY));
}

}  // namespace
}  // namespace kelda::tools
