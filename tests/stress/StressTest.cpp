// Many clients, each of which exits in the middle of everything that a client does, against one
// service that counts who registers and who withdraws.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/ChildProcess.h"
#include "support/ProcessingLibrary.h"

namespace {

namespace fs = std::filesystem;

constexpr int kSideBySide = 4;
constexpr int kExits = 200;

std::string beside(const std::string& path) {
    return (fs::path(ChildProcess::ownPath()).parent_path() / path).string();
}

/**
 * The sample service. It sends events without a pause, the next one as soon as it has reported the
 * last, and what it reports of keyed registrations, the engines' own, is counted.
 */
class Service {
public:
    Service() {
        EXPECT_TRUE(mProcess.waitForLine("ready"));
        mReader = std::thread([this] { read(); });
    }
    ~Service() {
        if (mReader.joinable()) {
            stop();
        }
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /** Asks it to quit and waits until all that it reported is counted. */
    void stop() {
        mQuit = true;
        mReader.join();
        EXPECT_EQ(mProcess.wait(), 0);
    }

    /** How often it reported `what` about this process; after stop(). */
    int count(const std::string& what, pid_t pid) {
        return mCounts[what + " pid=" + std::to_string(pid)];
    }

private:
    void read() {
        mProcess.writeLine("enable off");
        while (const auto line = mProcess.readLine()) {
            const bool isEvent = line->rfind("enable ", 0) == 0;
            if (isEvent && mQuit) {
                mProcess.writeLine("quit");
            } else if (isEvent) {
                mProcess.writeLine(line->rfind("enable on", 0) == 0 ? "enable off" : "enable on");
            } else if (const size_t pid = line->rfind(" pid=");
                       pid != std::string::npos && line->find("ey=") < pid) {
                ++mCounts[line->substr(0, line->find(' ')) + line->substr(pid)];
            }
        }
    }

    ChildProcess mProcess{beside("../../demo/service/displayengine-service"),
                          {"--monitor-frames", "1000000", "--abort-ms", "3", "--overload-ms", "2"}};
    std::map<std::string, int> mCounts;
    std::atomic<bool> mQuit{false};
    std::thread mReader;
};

/** What the clients have done, in all. */
struct Clients {
    std::mutex mutex;
    std::vector<pid_t> pids;
    std::array<int64_t, 3> sums{};  ///< Events received, frames processed, frames cancelled.

    void run(const std::string& program, int seed) {
        // A fifth of them exit at once, most soon after, and a few late.
        const int operations = seed % 5 == 0 ? 0 : seed % 23 == 1 ? 4000 : seed * 37 % 200;
        ChildProcess client(program, {std::to_string(seed), std::to_string(operations)});
        const std::string line = client.readLine().value_or("");
        EXPECT_EQ(client.wait(), 0) << "seed " << seed << ", " << operations << " operations";
        const std::lock_guard<std::mutex> lock(mutex);
        pids.push_back(client.pid());
        std::istringstream numbers(line);
        for (int64_t& sum : sums) {
            int64_t number = 0;
            numbers >> number;
            sum += number;
        }
    }
};

TEST(Stress, EveryClientWithdrawsOnceWheneverItExits) {
    processing::use("without_nothing");
    Service service;
    Clients clients;
    std::vector<std::thread> runners;
    for (int slot = 0; slot < kSideBySide; ++slot) {
        runners.emplace_back([&clients, slot] {
            // Each slot has a name of its own, since clients of one name would replace each other's
            // registrations; a name that is longer than what the service gets to know of it.
            const fs::path folder = fs::path(std::getenv("DISPLAYENGINE_RUNTIME_DIR")) /
                                    std::to_string(slot) / std::string(240, 'n');
            fs::create_directories(folder);
            fs::create_symlink(beside("stress_client"), folder / "client");
            for (int seed = slot; seed < kExits && !testing::Test::HasFailure();
                 seed += kSideBySide) {
                clients.run(folder / "client", seed);
            }
        });
    }
    for (std::thread& runner : runners) {
        runner.join();
    }
    service.stop();
    ASSERT_FALSE(testing::Test::HasFailure());

    int registered = 0;
    for (const pid_t pid : clients.pids) {
        registered += service.count("registered", pid);
        EXPECT_LE(service.count("registered", pid), 1);
        EXPECT_EQ(service.count("unregisterCallbackEx", pid), service.count("registered", pid));
        EXPECT_EQ(service.count("withdrawn", pid), service.count("registered", pid));
    }
    std::cout << registered << " of " << clients.pids.size() << " clients registered, "
              << clients.sums[0] << " events, " << clients.sums[1] << " frames processed, "
              << clients.sums[2] << " cancelled" << std::endl;
    EXPECT_GT(registered, kExits / 2);
    for (const int64_t sum : clients.sums) {
        EXPECT_GT(sum, kExits);
    }
}

}  // namespace
