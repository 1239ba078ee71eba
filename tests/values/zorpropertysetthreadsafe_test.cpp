// The thread-safe set under concurrent writers, re-entrant observers and a dirty flag that never waits for the lock.
#include "values/zorpropertysetthreadsafe.h"

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>

namespace {

std::u16string NameOf(int thread, int index) {
  // Built by appending: GCC 12 at -O3 reports a false -Wrestrict on "t" + std::to_string(...).
  std::string narrow = "t";
  narrow += std::to_string(thread) + "-" + std::to_string(index);
  return std::u16string(narrow.begin(), narrow.end());
}

TEST(ZORPropertySetThreadsafe, ConcurrentWritersOfDistinctNamesLoseNothing) {
  constexpr int kThreads = 2;
  constexpr int kNames = 200;
  ZORPropertySetThreadsafe set;
  auto writer = [&set](int thread) {
    for (int i = 0; i < kNames; ++i) {
      set.SetPropertyLong(NameOf(thread, i), i);
      int32_t number = -1;
      EXPECT_TRUE(set.GetPropertyLong(NameOf(thread, i), number));
      EXPECT_EQ(number, i);
      set.SetPropertyLong(NameOf(thread, i), i * 2);  // and a change of it
    }
  };
  std::thread first(writer, 0);
  std::thread second(writer, 1);
  first.join();
  second.join();

  ZORPropertyList list;
  set.GetAllProperties(list);
  ASSERT_EQ(list.size(), static_cast<size_t>(kThreads * kNames));
  for (int thread = 0; thread < kThreads; ++thread) {
    for (int i = 0; i < kNames; ++i) {
      int32_t number = -1;
      ASSERT_TRUE(set.GetPropertyLong(NameOf(thread, i), number));
      EXPECT_EQ(number, i * 2);
    }
  }
}

// Reads the set it observes, from inside the callback.
class ReadingObserver : public IZORPropertySetNotify {
 public:
  void OnPropertyChanged(ZORPropertySet& set, const ZORProperty& property) override {
    int32_t number = 0;
    if (set.GetPropertyLong(property.name, number)) seen += number;
    ZORPropertyList list;
    set.GetAllProperties(list);
  }
  bool OnPropertyChanging(ZORPropertySet& set, ZORProperty&) override {
    std::vector<uint8_t> blob;
    set.GetAllPropertiesBinary(blob);
    return false;
  }
  int seen = 0;
};

TEST(ZORPropertySetThreadsafe, ObserverMayReadTheSetItObserves) {
  ZORPropertySetThreadsafe set;
  ReadingObserver observer;
  set.AddNotify(&observer);
  // From this thread and from another, while the other thread holds the lock.
  set.SetPropertyLong(u"a", 1);
  std::thread([&set] {
    set.SetPropertyLong(u"a", 2);
    set.SetAllProperties({{u"b", std::make_shared<VELAnyValLong>(4)}}, true);
  }).join();
  EXPECT_EQ(observer.seen, 1 + 2 + 4);
  set.RemoveNotify(&observer);
}

// Holds the set's lock inside a callback until the test lets it go.
class BlockingObserver : public IZORPropertySetNotify {
 public:
  void OnPropertyChanged(ZORPropertySet&, const ZORProperty&) override {
    inside.set_value();
    release.get_future().wait();
  }
  bool OnPropertyChanging(ZORPropertySet&, ZORProperty&) override { return false; }
  std::promise<void> inside;
  std::promise<void> release;
};

TEST(ZORPropertySetThreadsafe, DirtyFlagDoesNotWaitForTheLock) {
  ZORPropertySetThreadsafe set;
  BlockingObserver observer;
  set.AddNotify(&observer);
  std::thread writer([&set] {
    set.SetAllProperties({{u"a", std::make_shared<VELAnyValLong>(1)}}, true);
  });
  observer.inside.get_future().wait();
  // The writer holds the lock now; the flag is still ours to read and write.
  EXPECT_TRUE(set.IsDirty());
  set.SetDirty(false);
  EXPECT_FALSE(set.IsDirty());
  observer.release.set_value();
  writer.join();
  EXPECT_TRUE(set.IsDirty());  // SetAllProperties sets it once done
  set.RemoveNotify(&observer);
}

TEST(ZORPropertySetThreadsafe, SetsMergedIntoEachOtherDoNotDeadlock) {
  ZORPropertySetThreadsafe left;
  ZORPropertySetThreadsafe right;
  left.SetPropertyLong(u"left", 1);
  right.SetPropertyLong(u"right", 2);
  auto merge = [](ZORPropertySet& into, const ZORPropertySet& from) {
    for (int i = 0; i < 200; ++i) into.MergePropertySet(from, true, true);
  };
  std::thread first(merge, std::ref(left), std::cref(right));
  std::thread second(merge, std::ref(right), std::cref(left));
  first.join();
  second.join();
  int32_t number = 0;
  EXPECT_TRUE(left.GetPropertyLong(u"right", number));
  EXPECT_TRUE(right.GetPropertyLong(u"left", number));
}

TEST(ZORPropertySetThreadsafe, ReadersAndBlobWritersShareValuesSafely) {
  ZORPropertySetThreadsafe set;
  set.SetPropertyAString(u"text", "0");
  std::thread writer([&set] {
    for (int i = 1; i <= 300; ++i) {
      set.SetPropertyAString(u"text", std::to_string(i));
      std::vector<uint8_t> blob;
      set.GetAllPropertiesBinary(blob);
      set.MergePropertiesBinary(blob, true, true);
    }
  });
  // A reader keeps the value it got while the writer replaces it.
  for (int i = 0; i < 300; ++i) {
    std::string text;
    ASSERT_TRUE(set.GetPropertyAString(u"TEXT", text));
    EXPECT_FALSE(text.empty());
  }
  writer.join();
  std::string text;
  ASSERT_TRUE(set.GetPropertyAString(u"text", text));
  EXPECT_EQ(text, "300");
}

}  // namespace
