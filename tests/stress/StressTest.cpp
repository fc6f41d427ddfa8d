// SPDX-License-Identifier: Apache-2.0
// Many clients, each of which exits in the middle of everything that a client does, against one
// service that tells who registers and who withdraws.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/ProcessingLibrary.h"

namespace {

namespace fs = std::filesystem;

constexpr int kSideBySide = 4;
constexpr int kExits = 200;

const fs::path kFolder = fs::path(ChildProcess::ownPath()).parent_path();

/** Has the service send an event as soon as it has sent the last; counts each of its lines. */
std::map<std::string, int> watch(ChildProcess& service, const std::atomic<bool>& mayQuit) {
    std::map<std::string, int> reported;
    service.writeLine("enable off");
    while (const auto line = service.readLine()) {
        ++reported[*line];
        if (line->rfind("enable ", 0) == 0) {
            const bool isOn = line->rfind("enable on", 0) == 0;
            service.writeLine(mayQuit ? "quit" : isOn ? "enable off" : "enable on");
        }
    }
    EXPECT_EQ(service.wait(), 0);
    return reported;
}

/** A client that has run, and what it said of itself. */
struct Client {
    std::string identity; /**< as the service tells it */
    int64_t events = 0;
    int64_t cancelled = 0;

    void run(const std::string& program, int seed) {
        // A fifth of them exit at once, most soon after, and a few late.
        const int operations = seed % 5 == 0 ? 0 : seed % 23 == 1 ? 4000 : seed * 37 % 200;
        ChildProcess process(program, {std::to_string(seed), std::to_string(operations)});
        // The service gets to know so much of a name.
        identity = " key=" + program.substr(0, 255) + " pid=" + std::to_string(process.pid());
        std::istringstream(process.readLine().value_or("")) >> events >> cancelled;
        EXPECT_EQ(process.wait(), 0) << "seed " << seed << ", " << operations << " operations";
    }
};

TEST(StressTest, EveryClientWithdrawsOnceWheneverItExits) {
    processing::use("without_nothing");
    ChildProcess::patience = std::chrono::minutes(3);
    ChildProcess service(kFolder / "../../demo/service/displayengine-service",
                         {"--monitor-frames", "1000000", "--abort-ms", "3", "--overload-ms", "2"});
    ASSERT_TRUE(service.waitForLine("ready"));
    std::atomic<bool> mayQuit{false};
    auto watched = std::async(std::launch::async, [&] { return watch(service, mayQuit); });

    std::vector<Client> clients(kExits);
    std::vector<std::future<void>> slots;
    for (int slot = 0; slot < kSideBySide; ++slot) {
        slots.push_back(std::async(std::launch::async, [&clients, slot] {
            // Each has a name of its own, as clients of one name replace each other's
            // registrations.
            const fs::path folder = fs::path(std::getenv("DISPLAYENGINE_RUNTIME_DIR")) /
                                    std::to_string(slot) / std::string(240, 'n');
            fs::create_directories(folder);
            fs::create_symlink(kFolder / "stress_client", folder / "client");
            for (int i = slot; i < kExits && !testing::Test::HasFailure(); i += kSideBySide) {
                clients[static_cast<size_t>(i)].run(folder / "client", i);
            }
        }));
    }
    slots.clear();  // Waits for their end.
    mayQuit = true;
    std::map<std::string, int> reported = watched.get();
    ASSERT_FALSE(testing::Test::HasFailure());

    int registrations = 0;
    Client sum;
    for (const Client& client : clients) {
        const int registered = reported["registered" + client.identity];
        EXPECT_LE(registered, 1) << client.identity;
        EXPECT_EQ(reported["withdrawn" + client.identity], registered) << client.identity;
        registrations += registered;
        sum.events += client.events;
        sum.cancelled += client.cancelled;
    }
    std::cout << registrations << " of " << kExits << " clients registered, " << sum.events
              << " events, " << sum.cancelled << " frames cancelled" << std::endl;
    EXPECT_GT(registrations, kExits / 2);
    EXPECT_GT(std::min(sum.events, sum.cancelled), kExits);
}

}  // namespace
