// State machines and reactors: following a watched collection, zombies, recursive delivery
// switches, and the lifetime of a reactor dropped from inside its own handler.
#include <gtest/gtest.h>

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

class WatchSm : public Kel::StateMachine {
 public:
  KEL_ENTITY(WatchSm, "Test::WatchSm");
  class NotifieeConst : public Kel::NotifieeConstOf<WatchSm> {};

  class KelItem : public Kel::Reactor<WatchSm, Item> {
   public:
    KelItem(WatchSm* owner, const Item::PtrConst& item) : Reactor(owner, item) { ++gReactorsAlive; }
    ~KelItem() override { --gReactorsAlive; }
    void onSize() override {
      if (isZombie()) return;
      owner()->log.push_back("size " + fwkKey() + "=" + std::to_string(notifier()->size()));
      if (owner()->dropOnSize) {
        owner()->itemDel(fwkKey());
        // Still alive: the reactor is destroyed only after this notification.
        owner()->log.push_back("after drop " + fwkKey() + (isZombie() ? " zombie" : ""));
      }
    }
    void handleDel() override { owner()->log.push_back("del " + fwkKey()); }
  };

  class KelFolder : public Kel::Reactor<WatchSm, Folder> {
   public:
    using Reactor::Reactor;
    void onItem(const std::string& k) override {
      if (isZombie()) return;
      if (auto item = notifier()->item(k)) {
        owner()->itemIs(item);
      } else {
        owner()->itemDel(k);
      }
    }
  };

  KEL_REACTOR(KelFolder, folder);
  KEL_REACTOR_COLL(KelItem, std::string, item);

  static Kel::Ptr<WatchSm> WatchSmIs(const Folder::Ptr& f) { return Kel::Ptr<WatchSm>(new WatchSm(f)); }

  Log log;
  bool dropOnSize = false;

 private:
  explicit WatchSm(const Folder::Ptr& f) {
    folderIs(f);
    for (const auto& item : f->itemColl()) itemIs(item);
  }
};

class ReactorTest : public ::testing::Test {
 protected:
  Folder::Ptr folder = Folder::FolderIs();
};

TEST_F(ReactorTest, CollectionOfReactorsFollowsTheWatchedCollection) {
  folder->itemIs("a");
  auto sm = WatchSm::WatchSmIs(folder);
  EXPECT_EQ(sm->items(), 1u);
  folder->itemIs("b")->sizeIs(2);
  EXPECT_EQ(sm->items(), 2u);
  EXPECT_EQ(sm->item("b")->fwkKey(), "b");
  folder->itemDel("a");
  EXPECT_EQ(sm->items(), 1u);
  EXPECT_EQ(sm->log, (Log{"size b=2", "del a"}));
}

TEST_F(ReactorTest, ZombieReactorIgnoresNotificationsUntilTheFlagIsCleared) {
  auto item = folder->itemIs("a");
  auto sm = WatchSm::WatchSmIs(folder);
  sm->item("a")->kelDoZombieReactors(true);
  item->sizeIs(1);
  sm->item("a")->kelDoZombieReactors(false);
  item->sizeIs(2);
  EXPECT_EQ(sm->log, (Log{"size a=2"}));
}

TEST_F(ReactorTest, DeliverySwitchOnTheMachineReachesNestedReactors) {
  auto item = folder->itemIs("a");
  auto sm = WatchSm::WatchSmIs(folder);
  sm->hasNotificationActiveIs(false);
  item->sizeIs(1);
  folder->itemIs("b");  // the folder reactor is off too: no reactor for b
  EXPECT_EQ(sm->items(), 1u);
  sm->hasNotificationActiveIs(false);  // same state again: nothing changes
  sm->hasNotificationActiveIs(true);
  item->sizeIs(2);
  EXPECT_EQ(sm->log, (Log{"size a=2"}));
}

TEST_F(ReactorTest, ReactorDroppedInItsOwnHandlerLivesUntilTheNotificationEnds) {
  auto item = folder->itemIs("a");
  auto sm = WatchSm::WatchSmIs(folder);
  int before = gReactorsAlive;
  sm->dropOnSize = true;
  item->sizeIs(1);
  EXPECT_EQ(sm->log, (Log{"size a=1", "del a", "after drop a zombie"}));
  EXPECT_EQ(gReactorsAlive, before - 1);
  EXPECT_EQ(sm->items(), 0u);
  EXPECT_EQ(item->notifieeList().size(), 0u);
}

TEST_F(ReactorTest, DestroyingTheMachineDropsReactorsWithoutTheirDeleteHandlers) {
  folder->itemIs("a");
  folder->itemIs("b");
  int before = gReactorsAlive;
  {
    auto sm = WatchSm::WatchSmIs(folder);
    EXPECT_EQ(gReactorsAlive, before + 2);
    EXPECT_EQ(folder->notifieeList().size(), 1u);
  }
  EXPECT_EQ(gReactorsAlive, before);
  EXPECT_EQ(folder->notifieeList().size(), 0u);
  EXPECT_EQ(folder->item("a")->notifieeList().size(), 0u);
}

TEST_F(ReactorTest, NullNotifierToAReactorCollectionIsRefused) {
  auto sm = WatchSm::WatchSmIs(folder);
  try {
    sm->itemIs(nullptr);
    FAIL();
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(), "null _item parameter to mutator for Test::WatchSm::item not allowed\"");
  }
}

// The entity the old reactor watched left the collection: its handleDel runs before the
// newcomer's reactor exists.
TEST_F(ReactorTest, ReactorReplacedWhenItsKeyNowNamesAnotherEntity) {
  auto sm = WatchSm::WatchSmIs(folder);
  auto first = folder->itemIs("a");
  // Another entity under the same key (the folder's member was replaced meanwhile).
  auto other = Kel::Ptr<Item>(Kel::Access::create<Item>(std::string("a")));
  sm->itemIs(other);
  EXPECT_EQ(sm->item("a")->notifier(), other);
  first->sizeIs(5);
  other->sizeIs(6);
  EXPECT_EQ(sm->log, (Log{"del a", "size a=6"}));
}

}  // namespace
