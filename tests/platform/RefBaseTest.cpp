// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <utils/RefBase.h>

#include <atomic>
#include <string>
#include <thread>

using android::RefBase;
using android::sp;
using android::wp;

namespace {

/** Notes that it is held for the first time, and that it is destroyed: one letter an event. */
class Noting : public RefBase {
public:
    explicit Noting(std::string* events) : mEvents(events) {}
    ~Noting() override { *mEvents += 'd'; }

private:
    void onFirstRef() override { *mEvents += 'f'; }

    std::string* const mEvents;
};

TEST(RefBase, LivesAsLongAsItsStrongReferences) {
    std::string events;
    sp<Noting> object = new Noting(&events);
    object = new Noting(&events);
    EXPECT_EQ(events, "ffd") << "replaced";
    const wp<Noting> weak(object);
    EXPECT_EQ(weak.promote(), object);
    object.clear();
    EXPECT_EQ(events, "ffdd");
    EXPECT_EQ(weak.promote(), nullptr);

    wp<Noting>(new Noting(&events)).promote();
    EXPECT_EQ(events, "ffddfd") << "first held by a promotion";
    wp<Noting> unheld;
    {
        Noting local(&events);
        unheld = wp<Noting>(&local);
    }
    EXPECT_EQ(unheld.promote(), nullptr);
}

TEST(RefBase, PromotionRacesWithTheLastRelease) {
    for (int round = 0; round < 100; ++round) {
        std::string events;
        std::atomic<bool> isUnderWay{false};
        sp<Noting> object = new Noting(&events);
        std::thread other([&isUnderWay, weak = wp<Noting>(object)] {
            isUnderWay = true;
            while (weak.promote() != nullptr) {
            }
        });
        while (!isUnderWay) {
            std::this_thread::yield();
        }
        object.clear();
        other.join();
        ASSERT_EQ(events, "fd");
    }
}

}  // namespace
