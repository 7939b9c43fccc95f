#include "upmix-lib/handle_table.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace kelda::upmix_lib {
namespace {

TEST(HandleTable, StaleZeroAndForeignHandlesAreRefused) {
  HandleTable<int> table;
  EXPECT_EQ(table.Find(0), nullptr);
  EXPECT_EQ(table.Find(0xFFFFFFFF), nullptr);
  const uint32_t first = table.Insert(std::make_unique<int>(1));
  ASSERT_NE(first, 0u);
  EXPECT_EQ(*table.Find(first), 1);
  EXPECT_EQ(*table.Remove(first), 1);
  EXPECT_EQ(table.Find(first), nullptr);
  EXPECT_EQ(table.Remove(first), nullptr);

  const uint32_t second = table.Insert(std::make_unique<int>(2));
  EXPECT_NE(second, first);
  EXPECT_EQ(table.Find(first), nullptr);
  EXPECT_EQ(*table.Find(second), 2);
  table.Remove(second);
}

TEST(HandleTable, HoldsItsCapacityAndRefusesMore) {
  HandleTable<size_t> table;
  std::vector<uint32_t> handles;
  for (size_t i = 0; i < table.kCapacity; ++i) {
    handles.push_back(table.Insert(std::make_unique<size_t>(i)));
  }
  EXPECT_EQ(std::set(handles.begin(), handles.end()).size(), table.kCapacity);
  EXPECT_EQ(table.Insert(std::make_unique<size_t>(0)), 0u);
  for (size_t i = 0; i < handles.size(); ++i) {
    ASSERT_EQ(*table.Find(handles[i]), i);
    table.Remove(handles[i]);
  }
}

TEST(HandleTable, LookUpsHoldWhileOthersComeAndGo) {
  HandleTable<int> table;
  const uint32_t kept = table.Insert(std::make_unique<int>(7));
  std::thread other([&] {
    for (int i = 0; i < 20000; ++i) {
      table.Remove(table.Insert(std::make_unique<int>(i)));
    }
  });
  int found = 0;
  for (int i = 0; i < 20000; ++i) {
    const int* value = table.Find(kept);
    found += value != nullptr && *value == 7 ? 1 : 0;
  }
  other.join();
  EXPECT_EQ(found, 20000);
  table.Remove(kept);
}

}  // namespace
}  // namespace kelda::upmix_lib
