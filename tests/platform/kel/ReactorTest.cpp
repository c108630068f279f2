// State machines and reactors: following a watched collection, zombies, recursive delivery
// switches, and the lifetime of a reactor dropped from inside its own handler; each for both
// reactor collections, the hash map and the small one.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/kel/Kel.h"

namespace {

using Log = std::vector<std::string>;

class Item : public Kel::Entity {
 public:
  KEL_ENTITY(Item, "Test::Item");
  class NotifieeConst : public Kel::NotifieeConstOf<Item> {
   public:
    virtual void onSize() {}
  };
  KEL_KEY(std::string, id);
  KEL_SCALAR(uint32_t, size, Size);

 private:
  explicit Item(const std::string& id) : id_(id) {}
};

class Folder : public Kel::Entity {
 public:
  KEL_ENTITY(Folder, "Test::Folder");
  class NotifieeConst : public Kel::NotifieeConstOf<Folder> {
   public:
    virtual void onItem(const std::string&) {}
  };
  KEL_CREATOR(Folder);
  KEL_ENTITY_COLL(Item, std::string, item, Item);

 private:
  Folder() = default;
};

int gReactorsAlive = 0;

struct Hashed {
  template <class Key, class R>
  using Map = Kel::ReactorMap<Key, R>;
};
struct Small {
  template <class Key, class R>
  using Map = Kel::SmallReactorMap<Key, R>;
};

template <class Kind>
class WatchSm : public Kel::StateMachine {
 public:
  KEL_ENTITY(WatchSm, "Test::WatchSm");
  class NotifieeConst : public Kel::NotifieeConstOf<WatchSm> {};

  class KelItem : public Kel::Reactor<WatchSm, Item> {
   public:
    KelItem(WatchSm* owner, const Item::PtrConst& item) : Kel::Reactor<WatchSm, Item>(owner, item) {
      ++gReactorsAlive;
    }
    ~KelItem() override { --gReactorsAlive; }
    void onSize() override {
      if (this->isZombie()) return;
      this->owner()->log.push_back("size " + this->fwkKey() + "=" +
                                   std::to_string(this->notifier()->size()));
      if (this->owner()->dropOnSize) {
        this->owner()->itemDel(this->fwkKey());
        // Still alive: the reactor is destroyed only after this notification.
        this->owner()->log.push_back("after drop " + this->fwkKey() +
                                     (this->isZombie() ? " zombie" : ""));
      }
    }
    void handleDel() override { this->owner()->log.push_back("del " + this->fwkKey()); }
  };

  class KelFolder : public Kel::Reactor<WatchSm, Folder> {
   public:
    using Kel::Reactor<WatchSm, Folder>::Reactor;
    void onItem(const std::string& k) override {
      if (this->isZombie()) return;
      if (auto item = this->notifier()->item(k))
        this->owner()->itemIs(item);
      else
        this->owner()->itemDel(k);
    }
  };

  KEL_REACTOR(KelFolder, folder);
  KEL_REACTOR_COLL_OF(typename Kind::template Map, KelItem, std::string, item);

  static Kel::Ptr<WatchSm> WatchSmIs(const Folder::Ptr& f) {
    return Kel::Ptr<WatchSm>(new WatchSm(f));
  }

  Log log;
  bool dropOnSize = false;

 private:
  explicit WatchSm(const Folder::Ptr& f) {
    this->folderIs(f);
    for (const auto& item : f->itemColl()) this->itemIs(item);
  }
};

// A machine that watches a folder through a reactor holding one reactor per item, as the
// route-status machine watches a route and its alternatives.
class NestSm : public Kel::StateMachine {
 public:
  KEL_ENTITY(NestSm, "Test::NestSm");
  class NotifieeConst : public Kel::NotifieeConstOf<NestSm> {};

  class KelFolder;
  class KelItem : public Kel::Reactor<KelFolder, Item> {
   public:
    using Kel::Reactor<KelFolder, Item>::Reactor;
    void onSize() override {
      if (isZombie()) return;
      owner()->owner()->log.push_back("size " + fwkKey());
    }
  };
  class KelFolder : public Kel::NestingReactor<NestSm, Folder> {
   public:
    KEL_REACTOR_OWNER_NAME("Test::NestSm::KelFolder");
    KelFolder(NestSm* owner, const Folder::PtrConst& folder) : NestingReactor(owner, folder) {
      for (const auto& item : folder->itemColl()) itemIs(item);
    }
    void onItem(const std::string& k) override {
      if (isZombie()) return;
      if (auto item = notifier()->item(k))
        itemIs(item);
      else
        itemDel(k);
    }
    KEL_NESTED_REACTOR_COLL_OF(::Kel::SmallReactorMap, KelItem, std::string, item);
  };

  KEL_REACTOR(KelFolder, folder);
  static Kel::Ptr<NestSm> NestSmIs(const Folder::Ptr& f) { return Kel::Ptr<NestSm>(new NestSm(f)); }
  Log log;

 private:
  explicit NestSm(const Folder::Ptr& f) { folderIs(f); }
};

template <class Kind>
class ReactorTest : public ::testing::Test {
 protected:
  using Sm = WatchSm<Kind>;
  Folder::Ptr folder = Folder::FolderIs();
};
using Kinds = ::testing::Types<Hashed, Small>;
TYPED_TEST_SUITE(ReactorTest, Kinds);

// Destroying the machine drops its reactors without calling their delete handlers.
TYPED_TEST(ReactorTest, CollectionOfReactorsFollowsTheWatchedCollectionAndLeavesWithTheMachine) {
  this->folder->itemIs("a");
  const int before = gReactorsAlive;
  {
    auto sm = TestFixture::Sm::WatchSmIs(this->folder);
    EXPECT_EQ(gReactorsAlive, before + 1);
    this->folder->itemIs("b")->sizeIs(2);
    EXPECT_EQ(sm->items(), 2u);
    EXPECT_EQ(sm->item("b")->fwkKey(), "b");
    this->folder->itemDel("a");
    EXPECT_EQ(sm->items(), 1u);
    EXPECT_EQ(sm->log, (Log{"size b=2", "del a"}));
    EXPECT_EQ(this->folder->notifieeList().size(), 1u);
  }
  EXPECT_EQ(gReactorsAlive, before);
  EXPECT_EQ(this->folder->notifieeList().size(), 0u);
  EXPECT_EQ(this->folder->item("b")->notifieeList().size(), 0u);
}

// A zombie ignores notifications until its flag is cleared; the machine's delivery switch reaches
// the reactors it holds.
TYPED_TEST(ReactorTest, ZombiesAndTheMachinesSwitchSilenceItsReactors) {
  auto item = this->folder->itemIs("a");
  auto sm = TestFixture::Sm::WatchSmIs(this->folder);
  sm->item("a")->kelDoZombieReactors(true);
  item->sizeIs(1);
  sm->item("a")->kelDoZombieReactors(false);
  sm->hasNotificationActiveIs(false);
  item->sizeIs(2);
  this->folder->itemIs("b");  // the folder reactor is off too: no reactor for b
  EXPECT_EQ(sm->items(), 1u);
  sm->hasNotificationActiveIs(false);  // same state again: nothing changes
  sm->hasNotificationActiveIs(true);
  item->sizeIs(3);
  EXPECT_EQ(sm->log, (Log{"size a=3"}));
}

TYPED_TEST(ReactorTest, ReactorDroppedInItsOwnHandlerLivesUntilTheNotificationEnds) {
  auto item = this->folder->itemIs("a");
  auto sm = TestFixture::Sm::WatchSmIs(this->folder);
  int before = gReactorsAlive;
  sm->dropOnSize = true;
  item->sizeIs(1);
  EXPECT_EQ(sm->log, (Log{"size a=1", "del a", "after drop a zombie"}));
  EXPECT_EQ(gReactorsAlive, before - 1);
  EXPECT_EQ(sm->items(), 0u);
  EXPECT_EQ(item->notifieeList().size(), 0u);
}

// The entity the old reactor watched left the collection: its handleDel runs before the
// newcomer's reactor exists.
TYPED_TEST(ReactorTest, ReactorReplacedWhenItsKeyNowNamesAnotherEntity) {
  auto sm = TestFixture::Sm::WatchSmIs(this->folder);
  auto first = this->folder->itemIs("a");
  // Another entity under the same key (the folder's member was replaced meanwhile).
  auto other = Kel::Ptr<Item>(Kel::Access::create<Item>(std::string("a")));
  sm->itemIs(other);
  EXPECT_EQ(sm->item("a")->notifier(), other);
  first->sizeIs(5);
  other->sizeIs(6);
  EXPECT_EQ(sm->log, (Log{"del a", "size a=6"}));
}

// The reactors a reactor holds hear what it hears: the machine's switch reaches them through
// it, and a zombie's are zombies. A reactor that holds none is three words, its vtable pointer,
// its notifier with the flags, and its owner: a million alternatives pay for every word. One that
// holds a small collection (a route's) adds the collection's two words and nothing else.
TEST(NestingReactorTest, SwitchesAndRetirementReachTheReactorsItHolds) {
  static_assert(sizeof(NestSm::KelItem) == 3 * sizeof(void*));
  static_assert(sizeof(NestSm::KelFolder) == 5 * sizeof(void*));
  static_assert(sizeof(Kel::NotifieeBase) == 2 * sizeof(void*));
  auto folder = Folder::FolderIs();
  auto a = folder->itemIs("a");
  auto sm = NestSm::NestSmIs(folder);
  auto b = folder->itemIs("b");
  a->sizeIs(1);
  sm->hasNotificationActiveIs(false);
  b->sizeIs(1);
  sm->hasNotificationActiveIs(true);
  b->sizeIs(2);
  sm->folder()->kelDoZombieReactors(true);
  a->sizeIs(2);
  EXPECT_TRUE(sm->folder()->item("a")->isZombie());
  sm->folder()->kelDoZombieReactors(false);
  a->sizeIs(3);
  EXPECT_EQ(sm->log, (Log{"size a", "size b", "size a"}));
}

// A route's collection is two words beside its base, and a million routes pay for each: the
// spilled block's address, its count and its capacity share them. Past its two inline places it
// moves its reactors into a block of their own through several capacities, keeps them in key
// order whatever the order of arrival, and back inline keeps every one findable.
TEST(SmallReactorMapTest, KeepsTwoWordsAndEveryReactorInKeyOrderThroughGrowingAndShrinking) {
  using Map = Small::Map<std::string, WatchSm<Small>::KelItem>;
  static_assert(sizeof(Map) == 2 * sizeof(void*));
  auto folder = Folder::FolderIs();
  const int before = gReactorsAlive;
  {
    auto sm = WatchSm<Small>::WatchSmIs(folder);
    std::vector<std::string> ids, present;
    for (int i = 20; i > 0; --i) ids.push_back(std::string(1, char('a' + i)));
    const auto check = [&] {
      std::vector<std::string> sorted = present;
      std::sort(sorted.begin(), sorted.end());
      ASSERT_EQ(sm->itemColl().keys(), sorted);
      ASSERT_EQ(sm->items(), sorted.size());
      ASSERT_EQ(gReactorsAlive, before + int(sorted.size()));
      for (const std::string& id : ids) {
        const bool in = std::find(sorted.begin(), sorted.end(), id) != sorted.end();
        ASSERT_EQ(sm->itemHas(id), in) << id;
        if (in) {
          ASSERT_EQ(sm->item(id)->fwkKey(), id);
        }
      }
    };
    for (const std::string& id : ids) {  // in reverse key order, through capacities 4 to 32
      folder->itemIs(id);
      present.push_back(id);
      check();
    }
    // Out of the middle, then from both ends, down to one and back inline on the way.
    for (size_t k = 0; present.size() > 1; ++k) {
      const size_t at = k % 3 == 0 ? present.size() / 2 : k % 3 == 1 ? 0 : present.size() - 1;
      folder->itemDel(present[at]);
      EXPECT_EQ(sm->log.back(), "del " + present[at]);
      present.erase(present.begin() + long(at));
      check();
    }
    for (const char* id : {"D", "B", "E", "A", "C"}) {  // spilled again, in mixed order
      folder->itemIs(id);
      present.push_back(id);
    }
    check();
    folder->item("D")->sizeIs(4);
    EXPECT_EQ(sm->log.back(), "size D=4");
    sm->itemDelAll();
    EXPECT_EQ(sm->items(), 0u);
    EXPECT_EQ(gReactorsAlive, before);
    folder->itemIs("g");
    EXPECT_EQ(sm->itemColl().keys(), (std::vector<std::string>{"g"}));
  }
  EXPECT_EQ(gReactorsAlive, before);
}

}  // namespace
