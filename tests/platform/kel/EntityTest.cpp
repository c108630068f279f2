// The generated mutator contract and notification delivery, on small entity types of our own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/kel/Kel.h"

namespace {

class Part : public Kel::Entity {
 public:
  KEL_ENTITY(Part, "Test::Part");
  class NotifieeConst : public Kel::NotifieeConstOf<Part> {};
  KEL_KEY(std::string, id);
  KEL_CTOR_PARAM(uint32_t, weight);

  void kelCheckCtorParams(uint32_t weight) const {
    Kel::checkCtorParam(*this, "weight", weight_, weight);
  }

 private:
  Part(const std::string& id, uint32_t weight) : id_(id), weight_(weight) {}
};

class Widget : public Kel::Entity {
 public:
  KEL_ENTITY(Widget, "Test::Widget");
  class NotifieeConst : public Kel::NotifieeConstOf<Widget> {
   public:
    virtual void onColor() {}
    virtual void onCount() {}
    virtual void onPart(const std::string&) {}
    virtual void onPeer(const std::string&) {}
    virtual void onLabel(const uint32_t&) {}
    virtual void onTag(const std::string&) {}
  };
  KEL_CREATOR(Widget);
  KEL_KEY(std::string, id);
  KEL_SCALAR(uint32_t, color, Color);
  KEL_COUNTER(uint32_t, count, Count);
  KEL_ENTITY_COLL(Part, std::string, part, Part);
  KEL_PTR_COLL(Widget, std::string, peer, Peer);
  KEL_SET(uint32_t, label, Label);
  KEL_MAP(std::string, uint32_t, tag, Tag);

 private:
  explicit Widget(const std::string& id) : id_(id) {}
};

// Records every notification as a line of text.
class Recorder : public Widget::NotifieeConst {
 public:
  explicit Recorder(const Widget::PtrConst& w) { notifierIs(w); }
  void onColor() override { log.push_back("color " + std::to_string(notifier()->color())); }
  void onCount() override { log.push_back("count " + std::to_string(notifier()->count())); }
  void onPart(const std::string& k) override {
    log.push_back("part " + k + (notifier()->partHas(k) ? " present" : " absent"));
  }
  void onPeer(const std::string& k) override { log.push_back("peer " + k); }
  void onLabel(const uint32_t& k) override { log.push_back("label " + std::to_string(k)); }
  void onTag(const std::string& k) override {
    log.push_back("tag " + k + "=" + std::to_string(notifier()->tag(k)));
  }
  std::vector<std::string> log;
};

using Log = std::vector<std::string>;

template <class E>
auto throwsText(const char* text) {
  return testing::ThrowsMessage<E>(testing::StrEq(text));
}

TEST(EntityMutators, AttributesNotifyOnlyOnChange) {
  auto w = Widget::WidgetIs("w");
  Recorder r(w);
  w->colorIs(0);
  w->colorIs(3);
  w->colorIs(3);
  // A counter wraps, and an increment by zero is silent.
  EXPECT_EQ(w->countInc(0), 0u);
  w->countIs(0xFFFFFFFFu);
  EXPECT_EQ(w->countInc(1), 0u);
  EXPECT_EQ(w->countInc(2), 2u);
  w->labelIs(5);
  w->labelIs(5);
  w->tagIs("a", 1);
  w->tagIs("a", 1);
  w->tagIs("a", 2);
  w->tagNotify("a");  // heard without a change
  EXPECT_FALSE(w->tagDel("b"));
  EXPECT_EQ(r.log, (Log{"color 3", "count 4294967295", "count 0", "count 2", "label 5", "tag a=1",
                        "tag a=2", "tag a=2"}));
  r.log.clear();
  w->labelIs(6);
  w->labelDelAll();  // each member's removal is heard
  EXPECT_EQ(w->labels(), 0u);
  EXPECT_THAT(r.log, testing::UnorderedElementsAre("label 6", "label 5", "label 6"));
}

// Every route and alternative is an entity: past its vtable pointer and reference count, an
// entity is its notifiee list, its parent and the number of its parent's attribute that holds it,
// which a 64-bit build keeps in the 4 bytes after the count.
static_assert(sizeof(void*) != 8 || sizeof(Kel::Entity) == 4 * sizeof(void*));

// Recreating a member is silent with the same constructor parameter and refused with another.
// The member knows the attribute that holds it, and loses it with its parent.
TEST(EntityMutators, InstantiatingCollectionCreatesOnceAndOwnsItsMembers) {
  auto w = Widget::WidgetIs("w");
  Recorder r(w);
  auto p = w->partIs("a", 7u);
  EXPECT_EQ(p->weight(), 7u);
  EXPECT_EQ(p->parent(), w.get());
  EXPECT_EQ(w->partIs("a", 7u), p);
  EXPECT_THAT(
      [&] { w->partIs("a", 8u); },
      throwsText<Kel::NameInUseException>(
          "Reinstantiating the entity with fullName 'w'/part/'a' where constructor parameter "
          "attribute 'weight' has a different value of 8 than the current value of 7 not "
          "allowed"));
  EXPECT_EQ(p->weight(), 7u);
  EXPECT_EQ(r.log, (Log{"part a present"}));
  EXPECT_TRUE(w->partDel("a"));
  EXPECT_FALSE(w->partDel("a"));
  EXPECT_EQ(r.log, (Log{"part a present", "part a absent"}));
  EXPECT_EQ(p->parent(), nullptr);
  EXPECT_STREQ(p->parentAttrName(), "");
  EXPECT_EQ(p->references(), 1u);  // only the test holds it now
}

// A member built apart joins with one notification, replaces the member under its key (which
// loses its owner), and cannot be taken from an owner that still holds it.
TEST(EntityMutators, OwningCollectionAdoptsAMemberBuiltApart) {
  auto w = Widget::WidgetIs("w");
  auto first = w->partIs("a", 7u);
  Recorder r(w);
  Kel::Ptr<Part> built(Kel::Access::create<Part>(std::string("a"), 9u));
  EXPECT_EQ(w->partIs(built), built);
  EXPECT_EQ(w->part("a"), built);
  EXPECT_EQ(built->parent(), w.get());
  EXPECT_EQ(first->parent(), nullptr);
  EXPECT_EQ(w->partIs(built), built);  // already the member: silent
  EXPECT_EQ(r.log, (Log{"part a present"}));

  auto other = Widget::WidgetIs("v");
  EXPECT_THAT([&] { other->partIs(built); },
              throwsText<Kel::RangeException>("entity 'w'/part/'a' given to Test::Widget::part is "
                                              "already a member of 'w'"));
  EXPECT_EQ(other->parts(), 0u);
  EXPECT_EQ(built->parent(), w.get());
}

TEST(EntityMutators, PointerCollectionReplacesAndIsSilentForTheSameMember) {
  auto w = Widget::WidgetIs("w");
  auto x1 = Widget::WidgetIs("x"), x2 = Widget::WidgetIs("x");
  Recorder r(w);
  w->peerIs(x1);
  w->peerIs(x1);
  w->peerIs(x2);
  EXPECT_EQ(w->peer("x"), x2);
  EXPECT_EQ(x1->parent(), nullptr);  // a pointer collection does not own
  EXPECT_EQ(r.log, (Log{"peer x", "peer x"}));
}

TEST(EntityMutators, DeletedMemberStaysAliveUntilItsRemovalIsAnnounced) {
  auto w = Widget::WidgetIs("w");
  struct Watcher : Widget::NotifieeConst {
    Part* raw = nullptr;
    Kel::Ptr<Part> seen;
    void onPart(const std::string&) override { seen = Kel::Ptr<Part>(raw); }
  } watcher;
  watcher.notifierIs(w);
  watcher.raw = w->partIs("a", 1u).get();
  w->partDel("a");
  // The watcher took a counted reference to the member inside the removal's notification; had
  // the member been destroyed before the notification, this would be a dangling pointer.
  ASSERT_TRUE(watcher.seen);
  EXPECT_EQ(watcher.seen->id(), "a");
}

// A notifiee that, when notified, unregisters or destroys another (or itself).
class Remover : public Widget::NotifieeConst {
 public:
  Remover(const Widget::PtrConst& w, Log* log, std::string name)
      : log_(log), name_(std::move(name)) {
    notifierIs(w);
  }
  void onColor() override {
    log_->push_back(name_);
    if (action) action();
  }
  std::function<void()> action;

 private:
  Log* log_;
  std::string name_;
};

class EntityNotification : public ::testing::Test {
 protected:
  std::unique_ptr<Remover> notifiee(const std::string& name) {
    return std::make_unique<Remover>(w, &log, name);
  }
  Widget::Ptr w = Widget::WidgetIs("w");
  Log log;
};

TEST_F(EntityNotification, NestedNotificationsRunInsideTheOuterHandler) {
  auto b = Widget::WidgetIs("b");
  auto outer = notifiee("w begins");
  outer->action = [&] {
    b->colorIs(1);
    log.push_back("w ends");
  };
  Remover inner(b, &log, "b");
  w->colorIs(1);
  EXPECT_EQ(log, (Log{"w begins", "b", "w ends"}));
}

TEST_F(EntityNotification, UnregisteringDuringNotificationStopsDeliveryAtOnce) {
  auto first = notifiee("first"), second = notifiee("second"), third = notifiee("third");
  first->action = [&] { third->isRegisteredNotifieeIs(false); };
  second->action = [&] { second->isRegisteredNotifieeIs(false); };
  w->colorIs(1);
  EXPECT_EQ(log, (Log{"first", "second"}));
  log.clear();
  first->action = nullptr;
  third->isRegisteredNotifieeIs(true);
  w->colorIs(2);
  EXPECT_EQ(log, (Log{"first", "third"}));
  EXPECT_EQ(w->notifieeList().size(), 2u);
}

TEST_F(EntityNotification, NotifieeRegisteredDuringNotificationHearsOnlyLaterOnes) {
  auto only = notifiee("only");
  std::unique_ptr<Remover> late;
  only->action = [&] {
    // The only notifiee leaves and a new one arrives within the same notification.
    only->isRegisteredNotifieeIs(false);
    if (!late) late = notifiee("late");
  };
  w->colorIs(1);
  EXPECT_EQ(log, (Log{"only"}));
  w->colorIs(2);
  EXPECT_EQ(log, (Log{"only", "late"}));
}

// The list's block of slots regrows while it is being walked, and is compacted afterwards: nobody
// is skipped, heard twice or heard out of turn.
TEST_F(EntityNotification, ManyNotifieesKeepTheirTurnsWhileTheListGrowsAndShrinks) {
  std::vector<std::unique_ptr<Remover>> members;
  for (int i = 0; i < 3; ++i) members.push_back(notifiee("m" + std::to_string(i)));
  members[1]->action = [&] {
    // Nine newcomers: the block regrows twice under the walk.
    for (int i = 3; i < 12; ++i) members.push_back(notifiee("m" + std::to_string(i)));
    members[0]->isRegisteredNotifieeIs(false);
    members[2]->isRegisteredNotifieeIs(false);
  };
  w->colorIs(1);
  EXPECT_EQ(log, (Log{"m0", "m1"}));
  log.clear();
  members[1]->action = nullptr;
  w->colorIs(2);
  Log expected{"m1"};
  for (int i = 3; i < 12; ++i) expected.push_back("m" + std::to_string(i));
  EXPECT_EQ(log, expected);
  EXPECT_EQ(w->notifieeList().size(), 10u);
  // Down to one: it goes back inline and still hears.
  members.erase(members.begin() + 2, members.end());
  log.clear();
  w->colorIs(3);
  EXPECT_EQ(log, (Log{"m1"}));
  EXPECT_EQ(w->notifieeList().slots(), 1u);
}

// Two notifiees share a two-slot pair. One leaving and another arriving within a notification
// leaves the newcomer after both slots, out of the walk; the list then shrinks back.
TEST_F(EntityNotification, APairKeepsItsTurnsWhenOneLeavesAndAnotherArrivesDuringANotification) {
  auto a = notifiee("a"), b = notifiee("b");
  std::unique_ptr<Remover> late;
  EXPECT_EQ(w->notifieeList().slots(), 2u);
  a->action = [&] {
    a->isRegisteredNotifieeIs(false);
    late = notifiee("late");
  };
  w->colorIs(1);
  EXPECT_EQ(log, (Log{"a", "b"}));
  log.clear();
  w->colorIs(2);
  EXPECT_EQ(log, (Log{"b", "late"}));
  EXPECT_EQ(w->notifieeList().size(), 2u);
  b->isRegisteredNotifieeIs(false);
  EXPECT_EQ(w->notifieeList().slots(), 1u);
  a = notifiee("again");
  EXPECT_EQ(w->notifieeList().slots(), 2u);
  log.clear();
  w->colorIs(3);
  EXPECT_EQ(log, (Log{"late", "again"}));
}

TEST_F(EntityNotification, NotifierOutlivesItsNotificationWhenAHandlerDropsIt) {
  auto dropper = notifiee("dropper"), other = notifiee("other");
  // In the middle of the entity's notification the first notifiee destroys the other before its
  // turn, then itself, dropping every reference to the entity: the other is not called, and the
  // walk over the notifiee list must still be safe (the sanitizer build turns a use after free
  // here into a failure).
  dropper->action = [&] {
    w = nullptr;
    other.reset();
    dropper.reset();
  };
  Widget* entity = w.get();
  entity->colorIs(1);
  EXPECT_EQ(log, (Log{"dropper"}));
}

TEST_F(EntityNotification, NotifieeHoldsItsNotifierRebindsAndCanBeSilenced) {
  auto b = Widget::WidgetIs("b");
  Recorder r(w);
  EXPECT_EQ(w->references(), 2u);
  r.hasNotificationActiveIs(false);
  w->colorIs(1);
  r.hasNotificationActiveIs(true);
  w->colorIs(2);
  r.notifierIs(b);
  EXPECT_EQ(w->references(), 1u);
  EXPECT_EQ(w->notifieeList().size(), 0u);
  w->colorIs(3);
  b->colorIs(4);
  EXPECT_EQ(r.log, (Log{"color 2", "color 4"}));
}

TEST(EntityRefCount, AtomicSwitchKeepsCountsRight) {
  Kel::threadSafePtrsIs(true);
  {
    auto w = Widget::WidgetIs("w");
    std::vector<Widget::Ptr> copies(100, w);
    EXPECT_EQ(w->references(), 101u);
  }
  Kel::threadSafePtrsIs(false);
}

}  // namespace
