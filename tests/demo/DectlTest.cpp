// SPDX-License-Identifier: Apache-2.0
// The command-line client as a program: what it prints, how it ends, and what the service is asked.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utils/String16.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

#include "ProgramRun.h"
#include "aidl/UnsupportedService.h"

namespace {

using Strings = std::vector<std::string>;

const std::string kDectl = kDemo.parent_path() / "tools/dectl/dectl";

class Service : public ChildProcess {
public:
    explicit Service(const Strings& arguments = {})
        : ChildProcess(kDemo / "service/displayengine-service", arguments) {
        EXPECT_TRUE(waitForLine("ready"));
    }
};

ProgramRun dectl(const std::string& arguments, const Strings& environment = {}) {
    std::istringstream words(arguments);
    return {kDectl, Strings{std::istream_iterator<std::string>(words), {}}, environment};
}

TEST(DectlTest, EachCommandReachesTheServiceAndPrintsTheAnswer) {
    Service service({"--panel-name", "  P\"\\\n\x1b\xff\xc3\xa9"});
    const struct {
        const char* arguments;
        const char* output;
        const char* report;  // the service's last line about it
    } cases[] = {
        {"panel-name", "panel_name: P\\\"\\\\\\n\\u001b\xef\xbf\xbd\xc3\xa9",
         "getEffect feature=14 type=0 length=255 result=0"},
        {"folding --json", R"({"supported":1,"alpha":528})",
         "getEffect feature=33 type=14 length=4 result=0"},
        {"local-hbm", "local_hbm: 1", "getEffect feature=25 type=16 length=1 result=0"},
        {"reading", "reading: 1", "getSupported feature=26 result=1"},
        {"global-reading", "global_reading: 1", "getSupported feature=34 result=1"},
        {"brightness 100 101", "level: 101\nsupported: 1", "setScene scene=20 value=101 result=0"},
        {"scene -7 -2", "result: 0", "setScene scene=-7 value=-2 result=0"},
        {"frame-rate 60\x7f", "result: 0", "setData type=15 data={FPS=\"60\\x7f\"} result=0"},
        {"cwb on", "result: 0", "setData type=24 data={forceEnable=1} result=0"},
        {"cwb off", "result: 0", "setData type=24 data={forceEnable=0} result=0"},
        {"video", "supported: true\non: true", "getSupported feature=44 result=1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        const ProgramRun run = dectl(c.arguments);
        EXPECT_EQ(run.code, 0);
        EXPECT_EQ(run.output, c.output);
        EXPECT_EQ(run.error, "");
        EXPECT_TRUE(service.waitForLine(c.report));
    }
}

void expectFailure(const std::string& arguments, int code, const Strings& reasons,
                   const Strings& environment = {}) {
    SCOPED_TRACE(arguments);
    const ProgramRun run = dectl(arguments, environment);
    EXPECT_EQ(run.code, code);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.error.rfind("dectl: ", 0), 0U) << run.error;
    for (const std::string& reason : reasons) {
        EXPECT_NE(run.error.find(reason), std::string::npos) << run.error;
    }
    EXPECT_EQ(std::count(run.error.begin(), run.error.end(), '\n'), 1) << run.error;
}

TEST(DectlTest, AServiceWithoutAFeatureRefusesOrAnswers) {
    Service service({"--without", "14", "--without", "19", "--without", "25", "--without", "33",
                     "--supported", "0"});
    expectFailure("panel-name", 1, {"name, result -22"});
    expectFailure("brightness 1", 1, {"does not support"});
    expectFailure("scene 20 -1", 1, {"scene 20 with value -1, result -22"});
    EXPECT_EQ(dectl("folding").output, "supported: 0\nalpha: null");
    EXPECT_EQ(dectl("local-hbm").output, "local_hbm: 0");
    EXPECT_EQ(dectl("video").output, "supported: false\non: false");
}

TEST(DectlTest, FailedCallsAreToldFromAnswersWithTheSameValue) {
    ASSERT_EQ(android::defaultServiceManager()->addService(
                  android::String16("DisplayEngineService"),
                  new com::tivora::displayengine::UnsupportedService),
              android::OK);
    android::ProcessState::self()->startThreadPool();
    for (const char* command : {"panel-name", "folding", "local-hbm", "frame-rate 60", "cwb on"}) {
        expectFailure(command, 1, {"the service refused"});
    }
    expectFailure("watch", 1, {"the registration of a callback"});
}

TEST(DectlTest, WithoutServiceOrSenseTheCodeIsTwo) {
    for (const char* command : {"reading", "video", "--json watch"}) {
        expectFailure(command, 2, {"the display engine service is not running"});
    }
    for (const char* arguments :
         {"", "bogus", "reading folding", "reading --bogus", "brightness", "brightness 1 -1",
          "scene 20", "scene 20 2147483648", "cwb maybe"}) {
        expectFailure(arguments, 2, {"--help"});
    }
    EXPECT_EQ(dectl("--help").code, 0);
}

TEST(DectlTest, NamesTheFolderThatCannotBeUsedAndTheReason) {
    const std::string directory = std::getenv("DISPLAYENGINE_RUNTIME_DIR");
    const std::string open = directory + "/open";
    ASSERT_EQ(mkdir(open.c_str(), 0755), 0);
    std::ofstream(directory + "/file");
    Strings folders = {open, directory + "/file"};
    const std::string foreign = directory + "/foreign";
    if (geteuid() == 0 && mkdir(foreign.c_str(), 0700) == 0 && chown(foreign.c_str(), 1, 1) == 0) {
        folders.push_back(foreign);
    }
    for (const std::string& folder : folders) {
        expectFailure("reading", 2, {folder + " ", "(", "belong to user"},
                      {"DISPLAYENGINE_RUNTIME_DIR=" + folder});
    }
}

TEST(DectlTest, VerboseShowsTheWholeLogAndAMissingPropertiesFileOnce) {
    Service service;
    const std::string error =
        dectl("cwb on --verbose", {"DISPLAYENGINE_PROPERTIES=/no/such/file"}).error;
    EXPECT_NE(error.find("setCwbForceEnable"), std::string::npos) << error;
    const size_t missing = error.find("/no/such/file");
    EXPECT_NE(missing, std::string::npos) << error;
    EXPECT_EQ(error.find("/no/such/file", missing + 1), std::string::npos) << error;
}

TEST(DectlTest, AStoppedServiceDoesNotAnswer) {
    Service service;
    service.kill(SIGSTOP);
    for (const char* command : {"reading --timeout 0.1", "watch --timeout 0.1"}) {
        expectFailure(command, 2, {"the display engine service does not answer"});
    }
}

TEST(DectlTest, WatchPrintsEventsUntilItOrTheServiceEnds) {
    Service service;
    const auto reports = [&](const char* what, const ChildProcess& watch) {
        return service.waitForLine(what + std::string(" pid=") + std::to_string(watch.pid()));
    };
    ChildProcess plain(kDectl, {"watch"});
    EXPECT_TRUE(reports("registered", plain));
    ChildProcess json(kDectl, {"watch", "--json"});
    EXPECT_TRUE(reports("registered", json));
    service.writeLine("enable off");
    EXPECT_EQ(plain.readLine(), "event=3 Enable=false");
    EXPECT_EQ(json.readLine(), R"({"event":3,"data":{"Enable":false}})");
    plain.kill(SIGINT);
    EXPECT_EQ(plain.wait(), 0);
    EXPECT_TRUE(reports("withdrawn", plain));

    ChildProcess mortal(kDectl, {"watch"});
    EXPECT_TRUE(reports("registered", mortal));
    mortal.kill();
    EXPECT_TRUE(reports("died", mortal));
    service.kill();
    EXPECT_EQ(json.wait(), 2);
    EXPECT_EQ(json.standardError(), "dectl: the display engine service has died\n");
}

}  // namespace
