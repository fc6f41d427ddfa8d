#include <gtest/gtest.h>
#include <utils/RefBase.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using android::RefBase;
using android::sp;
using android::wp;

namespace {

struct Events {
    std::string text;  // one letter an event, in their order
};

class Counted : public virtual RefBase {
public:
    explicit Counted(Events* events) : mEvents(events) {}
    ~Counted() override { mEvents->text += 'd'; }

private:
    void onFirstRef() override { mEvents->text += 'f'; }
    void onLastStrongRef(const void*) override { mEvents->text += 'l'; }

    Events* const mEvents;
};

class Side : public virtual RefBase {
public:
    int64_t value = 7;
};

class Both : public Counted, public Side {
public:
    using Counted::Counted;
};

TEST(RefBase, LivesAsLongAsItsStrongReferences) {
    struct Case {
        const char* name;
        std::function<void(Events*)> run;
        const char* events;
    };
    const Case cases[] = {
        {"never held", [](Events* e) { std::make_unique<Counted>(e); }, "d"},
        {"one holder", [](Events* e) { sp<Counted>::make(e); }, "fld"},
        {"copies and moves",
         [](Events* e) {
             sp<Counted> first = new Counted(e);
             sp<Counted> second = first;
             sp<RefBase> moved = std::move(first);
             EXPECT_EQ(first, nullptr);
             EXPECT_EQ(moved->getStrongCount(), 2);
             second.clear();
             EXPECT_EQ(e->text, "f");
         },
         "fld"},
        {"assigned to itself, then replaced",
         [](Events* e) {
             sp<Counted> object = new Counted(e);
             const sp<Counted>& same = object;
             object = same;
             EXPECT_EQ(e->text, "f");
             object = new Counted(e);
             EXPECT_EQ(e->text, "ffld");
         },
         "ffldld"},
        {"first held by promotion",
         [](Events* e) {
             const wp<Counted> weak(new Counted(e));
             EXPECT_EQ(e->text, "");
             EXPECT_NE(weak.promote(), nullptr);
         },
         "fld"},
        {"a weak reference holds nothing",
         [](Events* e) {
             sp<Counted> object = new Counted(e);
             const wp<Counted> weak(object);
             const wp<Counted> other = weak;
             object = nullptr;
             EXPECT_EQ(e->text, "fld");
             EXPECT_EQ(weak.promote(), nullptr);
             EXPECT_EQ(other.promote(), nullptr);
             EXPECT_EQ(weak, other);
         },
         "fld"},
        {"gone without ever being held",
         [](Events* e) {
             wp<Counted> weak;
             {
                 Counted local(e);
                 weak = wp<Counted>(&local);
             }
             EXPECT_EQ(weak.promote(), nullptr);
         },
         "d"},
        {"seen through another base",
         [](Events* e) {
             sp<Both> object = new Both(e);
             const wp<Side> weak(object);
             const sp<Side> side = weak.promote();
             object.clear();
             EXPECT_EQ(side->value, 7);
             EXPECT_EQ(e->text, "f");
         },
         "fld"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Events events;
        c.run(&events);
        EXPECT_EQ(events.text, c.events);
    }
}

TEST(RefBase, PromotionRacesWithTheLastRelease) {
    class Canary : public RefBase {
    public:
        explicit Canary(std::atomic<int>* gone) : mGone(gone) {}
        ~Canary() override { ++*mGone; }

        std::atomic<int> uses{0};

    private:
        std::atomic<int>* const mGone;
    };
    for (int round = 0; round < 300; ++round) {
        std::atomic<int> gone{0};
        std::atomic<int> ready{0};
        sp<Canary> object = new Canary(&gone);
        std::vector<std::thread> threads;
        for (int i = 0; i < 2; ++i) {
            threads.emplace_back([&ready, weak = wp<Canary>(object)] {
                ++ready;
                for (int tries = 0; tries < 50; ++tries) {
                    if (const sp<Canary> held = weak.promote()) {
                        ++held->uses;
                    }
                }
            });
        }
        while (ready == 0) {
            std::this_thread::yield();
        }
        object.clear();
        for (std::thread& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(gone, 1);
    }
}

}  // namespace
