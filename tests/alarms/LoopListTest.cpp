#include <deque>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "fixture/Texts.h"
#include "ixocamglue/alarms/Xmlist.h"

namespace ixocamglue::test {
namespace {

std::vector<int> Items(const TLoopList<int>& list) {
  std::vector<int> items;
  for (std::int32_t i = 0; i < list.GetCount(); ++i) items.push_back(list.GetItem(i));
  return items;
}

TEST(LoopList, GrowingKeepsTheOrderWhicheverPartMoves) {
  for (int head = 0; head < 4; ++head) {
    TLoopList<int> list(4);
    for (int i = 0; i < head; ++i) {
      list.Add(-1);
      list.DeleteFirst();
    }
    for (int i = 1; i <= 5; ++i) list.Add(i);
    EXPECT_EQ(list.GetCapacity(), 8);
    EXPECT_EQ(list.GetHead(), 4 / 2 <= head ? 8 - (4 - head) : head) << head;
    EXPECT_EQ(Items(list), (std::vector<int>{1, 2, 3, 4, 5})) << head;
  }
}

TEST(LoopList, SmallCapacitiesStartAtTwo) {
  for (const std::int32_t asked : {-7, 0, 1, 2}) EXPECT_EQ(TLoopList<int>(asked).GetCapacity(), 2);
  EXPECT_EQ(TLoopList<int>(3).GetCapacity(), 3);
}

TEST(LoopList, InsertOutOfRangeThrowsTheTextAndDoesNotGrow) {
  TLoopList<int> list(2);
  list.Add(1);
  list.Add(2);
  for (const std::int32_t index : {-1, 3})
    EXPECT_EQ(Thrown<std::out_of_range>([&] { list.Insert(index, 9); }), "E:TLoopList<T>.Insert Index out of range!");
  EXPECT_EQ(list.GetCapacity(), 2);
  EXPECT_EQ(Items(list), (std::vector<int>{1, 2}));
}

TEST(LoopList, DeletingFromAnEmptyListChangesNothingAndDeletedSlotsKeepTheirItem) {
  TLoopList<std::shared_ptr<int>> list(2);
  list.DeleteFirst();
  list.DeleteLast();
  EXPECT_EQ(list.GetCount(), 0);
  EXPECT_EQ(list.GetHead(), 0);
  const auto item = std::make_shared<int>(1);
  list.Add(item);
  list.DeleteFirst();
  EXPECT_EQ(item.use_count(), 2);
  EXPECT_EQ(list.GetItem(-1), item);  // any index maps into the ring
}

// A stream of operations beside std::deque, from every residue of the head.
TEST(LoopList, DoesWhatADequeDoes) {
  TLoopList<int> list(2);
  std::deque<int> model;
  std::uint32_t random = 12345;
  for (int step = 0; step < 20'000; ++step) {
    random = random * 1664525U + 1013904223U;
    const auto at = static_cast<std::int32_t>((random >> 8) % (model.size() + 1));
    switch ((random >> 28) % 6) {
      case 0:
      case 1:
        list.Add(step);
        model.push_back(step);
        break;
      case 2:
        list.Insert(at, step);
        model.insert(model.begin() + at, step);
        break;
      case 3:
        list.DeleteFirst();
        if (!model.empty()) model.pop_front();
        break;
      case 4:
        list.DeleteLast();
        if (!model.empty()) model.pop_back();
        break;
      default:
        if (model.empty()) break;
        list.SetFirst(step);
        list.SetLast(-step);
        model.front() = step;
        model.back() = -step;
        EXPECT_EQ(list.GetItem(list.GetCapacity() - 1 + 1), list.GetFirst());
        *list.PItems(0) = model.front();
    }
    ASSERT_EQ(static_cast<std::size_t>(list.GetCount()), model.size());
    if (!model.empty()) {
      ASSERT_EQ(list.GetFirst(), model.front());
      ASSERT_EQ(list.GetLast(), model.back());
    }
  }
  EXPECT_EQ(Items(list), std::vector<int>(model.begin(), model.end()));
}

}  // namespace
}  // namespace ixocamglue::test
