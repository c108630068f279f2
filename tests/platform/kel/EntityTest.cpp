// The generated mutator contract and notification delivery, on small entity types of the test's own.
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
  class NotifieeConst : public Kel::NotifieeConstOf<Part> {
   public:
    virtual void onLength() {}
  };
  KEL_KEY(std::string, id);
  KEL_CTOR_PARAM(uint32_t, weight);
  KEL_SCALAR(uint32_t, length, Length);

  void kelCheckCtorParams(uint32_t weight) const { Kel::checkCtorParam(*this, "weight", weight_, weight); }

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
    virtual void onSlot(const uint32_t&) {}
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
  void onTag(const std::string& k) override { log.push_back("tag " + k + "=" + std::to_string(notifier()->tag(k))); }
  std::vector<std::string> log;
};

using Log = std::vector<std::string>;

TEST(EntityMutators, ScalarsNotifyOnlyOnChange) {
  auto w = Widget::WidgetIs("w");
  Recorder r(w);
  w->colorIs(0);
  w->colorIs(3);
  w->colorIs(3);
  EXPECT_EQ(r.log, (Log{"color 3"}));
}

TEST(EntityMutators, CounterIncrementsWrapAndStaySilentForZero) {
  auto w = Widget::WidgetIs("w");
  Recorder r(w);
  EXPECT_EQ(w->countInc(0), 0u);
  w->countIs(0xFFFFFFFFu);
  EXPECT_EQ(w->countInc(1), 0u);
  EXPECT_EQ(w->countInc(2), 2u);
  EXPECT_EQ(r.log, (Log{"count 4294967295", "count 0", "count 2"}));
}

TEST(EntityMutators, InstantiatingCollectionCreatesOnceAndOwnsItsMembers) {
  auto w = Widget::WidgetIs("w");
  Recorder r(w);
  auto p = w->partIs("a", 7u);
  EXPECT_EQ(p->weight(), 7u);
  EXPECT_EQ(p->parent(), w.get());
  EXPECT_EQ(w->partIs("a", 7u), p);  // existing member, unchanged, silent
  EXPECT_EQ(r.log, (Log{"part a present"}));
  EXPECT_TRUE(w->partDel("a"));
  EXPECT_FALSE(w->partDel("a"));
  EXPECT_EQ(r.log, (Log{"part a present", "part a absent"}));
  EXPECT_EQ(p->parent(), nullptr);
  EXPECT_EQ(p->references(), 1u);  // only the test holds it now
}

// A member built apart joins with one notification, replaces the member under its key (which
// loses its owner), and cannot be taken from an owner that still holds it.
TEST(EntityMutators, OwningCollectionAdoptsAMemberBuiltApart) {
  auto w = Widget::WidgetIs("w");
  auto first = w->partIs("a", 7u);
  Recorder r(w);
  Kel::Ptr<Part> built(Kel::Access::create<Part>(std::string("a"), 9u));
  built->lengthIs(3);  // filled in before it joins: nobody hears this
  EXPECT_EQ(w->partIs(built), built);
  EXPECT_EQ(w->part("a"), built);
  EXPECT_EQ(built->parent(), w.get());
  EXPECT_EQ(first->parent(), nullptr);
  EXPECT_EQ(w->partIs(built), built);  // already the member: silent
  EXPECT_EQ(r.log, (Log{"part a present"}));

  auto other = Widget::WidgetIs("v");
  try {
    other->partIs(built);
    FAIL();
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(), "entity 'w'/part/'a' given to Test::Widget::part is already a member of 'w'");
  }
  EXPECT_EQ(other->parts(), 0u);
  EXPECT_EQ(built->parent(), w.get());
  try {
    w->partIs(Kel::Ptr<Part>());
    FAIL();
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(), "null _part parameter to mutator for Test::Widget::part not allowed\"");
  }
}

TEST(EntityMutators, RecreatingWithAnotherConstructorParameterIsRefused) {
  auto w = Widget::WidgetIs("w");
  w->partIs("a", 7u);
  try {
    w->partIs("a", 8u);
    FAIL();
  } catch (const Kel::NameInUseException& e) {
    EXPECT_STREQ(e.what(),
                 "Reinstantiating the entity with fullName 'w'/part/'a' where constructor parameter attribute "
                 "'weight' has a different value of 8 than the current value of 7 not allowed");
  }
  EXPECT_EQ(w->part("a")->weight(), 7u);
}

TEST(EntityMutators, NullEntityIsRefusedWithTheExactText) {
  auto w = Widget::WidgetIs("w");
  Recorder r(w);
  try {
    w->peerIs(nullptr);
    FAIL();
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(), "null _peer parameter to mutator for Test::Widget::peer not allowed\"");
  }
  EXPECT_EQ(w->peers(), 0u);
  EXPECT_TRUE(r.log.empty());
}

TEST(EntityMutators, PointerCollectionReplacesAndIsSilentForTheSameMember) {
  auto w = Widget::WidgetIs("w");
  auto x1 = Widget::WidgetIs("x");
  auto x2 = Widget::WidgetIs("x");
  Recorder r(w);
  w->peerIs(x1);
  w->peerIs(x1);
  w->peerIs(x2);
  EXPECT_EQ(w->peer("x"), x2);
  EXPECT_EQ(x1->parent(), nullptr);  // a pointer collection does not own
  EXPECT_EQ(r.log, (Log{"peer x", "peer x"}));
}

TEST(EntityMutators, SetsAndMapsNotifyOnChangeOnlyAndDelAllNotifiesEach) {
  auto w = Widget::WidgetIs("w");
  Recorder r(w);
  w->labelIs(5);
  w->labelIs(5);
  w->tagIs("a", 1);
  w->tagIs("a", 1);
  w->tagIs("a", 2);
  w->tagNotify("a");
  EXPECT_EQ(r.log, (Log{"label 5", "tag a=1", "tag a=2", "tag a=2"}));
  r.log.clear();
  w->labelIs(6);
  w->labelDelAll();
  EXPECT_EQ(w->labels(), 0u);
  EXPECT_EQ(r.log.size(), 3u);
  EXPECT_FALSE(w->tagDel("b"));
}

TEST(EntityMutators, DeletedMemberStaysAliveUntilItsRemovalIsAnnounced) {
  auto w = Widget::WidgetIs("w");
  Kel::Ptr<Part> seen;
  struct Watcher : Widget::NotifieeConst {
    Kel::Ptr<Part>* seen;
    Part* raw = nullptr;
    void onPart(const std::string&) override { *seen = Kel::Ptr<Part>(raw); }
  } watcher;
  watcher.seen = &seen;
  watcher.notifierIs(w);
  watcher.raw = w->partIs("a", 1u).get();
  w->partDel("a");
  // The watcher took a counted reference to the member inside the removal's notification; had
  // the member been destroyed before the notification, this would be a dangling pointer.
  ASSERT_TRUE(seen);
  EXPECT_EQ(seen->id(), "a");
}

TEST(EntityNotification, NestedNotificationsRunInsideTheOuterHandler) {
  auto a = Widget::WidgetIs("a");
  auto b = Widget::WidgetIs("b");
  Log order;
  struct OnA : Widget::NotifieeConst {
    Log* order;
    Widget::Ptr b;
    void onColor() override {
      order->push_back("a begins");
      b->colorIs(1);
      order->push_back("a ends");
    }
  } onA;
  struct OnB : Widget::NotifieeConst {
    Log* order;
    void onColor() override { order->push_back("b"); }
  } onB;
  onA.order = onB.order = &order;
  onA.b = b;
  onA.notifierIs(a);
  onB.notifierIs(b);
  a->colorIs(1);
  EXPECT_EQ(order, (Log{"a begins", "b", "a ends"}));
}

// A notifiee that, when notified, unregisters or destroys another (or itself).
class Remover : public Widget::NotifieeConst {
 public:
  Remover(const Widget::PtrConst& w, Log* log, std::string name) : log_(log), name_(std::move(name)) { notifierIs(w); }
  void onColor() override {
    log_->push_back(name_);
    if (action) action();
  }
  std::function<void()> action;

 private:
  Log* log_;
  std::string name_;
};

TEST(EntityNotification, UnregisteringDuringNotificationStopsDeliveryAtOnce) {
  auto w = Widget::WidgetIs("w");
  Log log;
  Remover first(w, &log, "first"), second(w, &log, "second"), third(w, &log, "third");
  first.action = [&] { third.isRegisteredNotifieeIs(false); };
  second.action = [&] { second.isRegisteredNotifieeIs(false); };
  w->colorIs(1);
  EXPECT_EQ(log, (Log{"first", "second"}));
  log.clear();
  first.action = nullptr;
  third.isRegisteredNotifieeIs(true);
  w->colorIs(2);
  EXPECT_EQ(log, (Log{"first", "third"}));
  EXPECT_EQ(w->notifieeList().size(), 2u);
}

TEST(EntityNotification, NotifieeDestroyedDuringNotificationIsNotCalled) {
  auto w = Widget::WidgetIs("w");
  Log log;
  Remover first(w, &log, "first");
  auto* doomed = new Remover(w, &log, "doomed");
  first.action = [&] { delete doomed; };
  w->colorIs(1);
  EXPECT_EQ(log, (Log{"first"}));
  EXPECT_EQ(w->notifieeList().size(), 1u);
}

TEST(EntityNotification, NotifieeRegisteredDuringNotificationHearsOnlyLaterOnes) {
  auto w = Widget::WidgetIs("w");
  Log log;
  Remover only(w, &log, "only");
  std::unique_ptr<Remover> late;
  only.action = [&] {
    // The only notifiee leaves and a new one arrives within the same notification.
    only.isRegisteredNotifieeIs(false);
    if (!late) late = std::make_unique<Remover>(w, &log, "late");
  };
  w->colorIs(1);
  EXPECT_EQ(log, (Log{"only"}));
  w->colorIs(2);
  EXPECT_EQ(log, (Log{"only", "late"}));
}

// The list's block of slots regrows while it is being walked, and is compacted afterwards: nobody
// is skipped, heard twice or heard out of turn.
TEST(EntityNotification, ManyNotifieesKeepTheirTurnsWhileTheListGrowsAndShrinks) {
  auto w = Widget::WidgetIs("w");
  Log log;
  std::vector<std::unique_ptr<Remover>> members;
  for (int i = 0; i < 3; ++i) members.push_back(std::make_unique<Remover>(w, &log, "m" + std::to_string(i)));
  members[1]->action = [&] {
    // Nine newcomers: the block regrows twice under the walk.
    for (int i = 3; i < 12; ++i) members.push_back(std::make_unique<Remover>(w, &log, "m" + std::to_string(i)));
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
TEST(EntityNotification, APairKeepsItsTurnsWhenOneLeavesAndAnotherArrivesDuringANotification) {
  auto w = Widget::WidgetIs("w");
  Log log;
  auto a = std::make_unique<Remover>(w, &log, "a");
  Remover b(w, &log, "b");
  std::unique_ptr<Remover> late;
  EXPECT_EQ(w->notifieeList().slots(), 2u);
  a->action = [&] {
    a->isRegisteredNotifieeIs(false);
    late = std::make_unique<Remover>(w, &log, "late");
  };
  w->colorIs(1);
  EXPECT_EQ(log, (Log{"a", "b"}));
  log.clear();
  w->colorIs(2);
  EXPECT_EQ(log, (Log{"b", "late"}));
  EXPECT_EQ(w->notifieeList().size(), 2u);
  b.isRegisteredNotifieeIs(false);
  EXPECT_EQ(w->notifieeList().slots(), 1u);
  a = std::make_unique<Remover>(w, &log, "again");
  EXPECT_EQ(w->notifieeList().slots(), 2u);
  log.clear();
  w->colorIs(3);
  EXPECT_EQ(log, (Log{"late", "again"}));
}

TEST(EntityNotification, NotifierOutlivesItsNotificationWhenAHandlerDropsIt) {
  Widget::Ptr w = Widget::WidgetIs("w");
  Log log;
  auto* dropper = new Remover(w, &log, "dropper");
  auto* other = new Remover(w, &log, "other");
  // The first notifiee drops every reference to the entity, its own included, in the middle of
  // the entity's notification; the walk over the notifiee list must still be safe (the sanitizer
  // build turns a use after free here into a failure).
  dropper->action = [&] {
    w = nullptr;
    delete other;
    delete dropper;
  };
  Widget* raw = w.get();
  raw->colorIs(1);
  EXPECT_EQ(log, (Log{"dropper"}));
}

TEST(EntityNotification, InactiveNotifieeHearsNothing) {
  auto w = Widget::WidgetIs("w");
  Recorder r(w);
  r.hasNotificationActiveIs(false);
  w->colorIs(1);
  r.hasNotificationActiveIs(true);
  w->colorIs(2);
  EXPECT_EQ(r.log, (Log{"color 2"}));
}

TEST(EntityNotification, NotifieeHoldsItsNotifierAndRebinds) {
  auto a = Widget::WidgetIs("a");
  auto b = Widget::WidgetIs("b");
  Recorder r(a);
  EXPECT_EQ(a->references(), 2u);
  r.notifierIs(b);
  EXPECT_EQ(a->references(), 1u);
  a->colorIs(1);
  b->colorIs(2);
  EXPECT_EQ(r.log, (Log{"color 2"}));
  EXPECT_EQ(a->notifieeList().size(), 0u);
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
