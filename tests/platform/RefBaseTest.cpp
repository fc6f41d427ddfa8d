// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <utils/RefBase.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

using android::RefBase;
using android::sp;
using android::wp;

namespace {

/** Notes what happens to it, one letter an event. */
class Noting : public virtual RefBase {
public:
    explicit Noting(std::string* events) : mEvents(events) {}
    ~Noting() override { *mEvents += 'd'; }

    std::atomic<int> uses{0};

private:
    void onFirstRef() override { *mEvents += 'f'; }
    void onLastStrongRef(const void*) override { *mEvents += 'l'; }

    std::string* const mEvents;
};

class Side : public virtual RefBase {
public:
    int value = 7;
};

class Both : public Noting, public Side {
public:
    using Noting::Noting;
};

TEST(RefBase, LivesAsLongAsItsStrongReferences) {
    struct Case {
        const char* name;
        std::function<void(std::string*)> run;
        const char* events;
    };
    const auto copyAndMove = [](std::string* events) {
        sp<Noting> first = new Noting(events);
        sp<Noting> second = first;
        const sp<RefBase> moved = std::move(first);
        EXPECT_EQ(first, nullptr);
        EXPECT_EQ(moved->getStrongCount(), 2);
        second = *&second;
        second.clear();
        EXPECT_EQ(*events, "f");
    };
    const auto replace = [](std::string* events) {
        sp<Noting> object = new Noting(events);
        object = new Noting(events);
        EXPECT_EQ(*events, "ffld");
    };
    const auto outlive = [](std::string* events) {
        sp<Noting> object = new Noting(events);
        const wp<Noting> weak(object);
        const wp<Noting> copy = weak;
        object = nullptr;
        EXPECT_EQ(*events, "fld");
        EXPECT_EQ(copy.promote(), nullptr);
    };
    const auto outliveUnheld = [](std::string* events) {
        wp<Noting> weak;
        {
            Noting local(events);
            weak = wp<Noting>(&local);
        }
        EXPECT_EQ(weak.promote(), nullptr);
    };
    const auto changeBase = [](std::string* events) {
        sp<Both> object = new Both(events);
        const sp<Side> side = wp<Side>(object).promote();
        object.clear();
        EXPECT_EQ(side->value, 7);
    };
    const Case cases[] = {
        {"copies and moves", copyAndMove, "fld"},
        {"replaced", replace, "ffldld"},
        {"first held by a promotion", [](auto* e) { wp<Noting>(new Noting(e)).promote(); }, "fld"},
        {"weak reference outlives it", outlive, "fld"},
        {"weak reference outlives it, never held", outliveUnheld, "d"},
        {"seen through another base", changeBase, "fld"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string events;
        c.run(&events);
        EXPECT_EQ(events, c.events);
    }
}

TEST(RefBase, PromotionRacesWithTheLastRelease) {
    for (int round = 0; round < 300; ++round) {
        std::string events;
        std::atomic<bool> isUnderWay{false};
        sp<Noting> object = new Noting(&events);
        std::vector<std::thread> threads;
        for (int i = 0; i < 2; ++i) {
            threads.emplace_back([&isUnderWay, weak = wp<Noting>(object)] {
                isUnderWay = true;
                for (int tries = 0; tries < 50; ++tries) {
                    if (const sp<Noting> held = weak.promote()) {
                        ++held->uses;
                    }
                }
            });
        }
        while (!isUnderWay) {
            std::this_thread::yield();
        }
        object.clear();
        for (std::thread& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(events, "fld");
    }
}

}  // namespace
