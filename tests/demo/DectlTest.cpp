// SPDX-License-Identifier: Apache-2.0
// The command-line client as a program: what it prints, how it ends, and what the service is asked.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <utils/String16.h>

#include <csignal>

#include "ProgramRun.h"
#include "aidl/UnsupportedService.h"
#include "tools/support/JsonText.h"

namespace {

const std::string kDectl = kDemo.parent_path() / "tools/dectl/dectl";

ProgramRun dectl(const std::string& arguments, const Strings& environment = {}) {
    return {kDectl, words(arguments), environment};
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

TEST(DectlTest, AServiceWithoutAFeatureRefusesOrAnswers) {
    Service service(words("--without 14 --without 19 --without 25 --without 33 --supported 0"));
    dectl("panel-name").expectFailure(1, "name, result -22");
    dectl("brightness 1").expectFailure(1, "does not support");
    dectl("scene 20 -1").expectFailure(1, "scene 20 with value -1, result -22");
    EXPECT_EQ(dectl("folding").output, "supported: 0\nalpha: null");
    EXPECT_EQ(dectl("video").output, "supported: false\non: false");
}

/** A service with a dump of its own, and another configuration than the sample service can have. */
class DumpingService : public com::tivora::displayengine::UnsupportedService {
public:
    /** Makes one the display engine service, in place of the one before. */
    static void install(const std::string& text, int32_t minWidth) {
        const android::sp<DumpingService> service = new DumpingService;
        service->mText = text;
        service->mConfig[1] = minWidth;
        ASSERT_EQ(android::defaultServiceManager()->addService(
                      android::String16("DisplayEngineService"), service),
                  android::OK);
        android::ProcessState::self()->startThreadPool();
    }

    android::status_t dump(int fd, const android::Vector<android::String16>&) override {
        return write(fd, mText.data(), mText.size()) < 0 ? android::UNKNOWN_ERROR : android::OK;
    }
    Status getSupported(int32_t, int32_t* result) override {
        *result = 1;
        return Status::ok();
    }
    Status getEffectExByData(int32_t, const android::os::PersistableBundle&,
                             std::vector<int32_t>* status, int32_t*) override {
        *status = mConfig;
        return Status::ok();
    }

private:
    std::vector<int32_t> mConfig = {2, 0, 0, 1, 1, 30, 31, 0, -1, 40, 50, 2, 2};
    std::string mText;
};

TEST(DectlTest, TellsTheAnswersOfAServiceThatRefuses) {
    DumpingService::install("a\x1b[2J\tb\n\xff\n", 0);
    for (const char* command : {"panel-name", "folding", "local-hbm", "frame-rate 60", "cwb on"}) {
        dectl(command).expectFailure(1, "the service refused");
    }
    dectl("watch").expectFailure(1, "the registration of a callback");
    const ProgramRun run = dectl("dump");
    EXPECT_EQ(run.output, "a?[2J\tb\n\xff");
    EXPECT_EQ(run.error,
              "dectl: warning: enable=2 breaks the rule switch (1 for on, 0 for off): the engine "
              "takes enable=0\n"
              "dectl: warning: overload_ms=50 abort_ms=40 breaks the rule time-limits (2 <= "
              "overload_ms <= abort_ms): the engine takes overload_ms=33 abort_ms=34\n");
    DumpingService::install("no JSON", 1);
    EXPECT_EQ(dectl("video").error,
              "dectl: warning: min_width=1 max_width=1 breaks the rule width-range (0 <= min_width "
              "< max_width): the engine refuses the configuration\n");
    dectl("dump --json").expectFailure(1, "a dump of its state: it has written no JSON");
    DumpingService::install("", 0);
    dectl("dump").expectFailure(1, "a dump of its state: it has written nothing");
}

TEST(DectlTest, WarnsOfWhatTheEngineRefusesOrReplaces) {
    const struct {
        const char* options;
        Strings rules;
    } cases[] = {
        {"--enable off --min-width 1 --min-height 2 --max-width 3 --max-height 4 --max-fps 5 "
         "--monitor-frames 6 --monitor-tolerance 7 --monitor-restore -8 --abort-ms 210 "
         "--overload-ms 209 --overload-count 11 --overload-period-ms 12",
         {}},
        {"--min-width 720 --min-height -1 --max-fps 1 --overload-ms 50",
         {"width-range", "height-range", "frame-rate"}},
        {"--short-config 12", {"length"}},
        {"--overload-ms 50 --max-fps 60 --monitor-frames 60", {"monitor-rate", "time-limits"}},
        {"--max-fps 2147483647 --monitor-tolerance -1 --overload-ms 1 --overload-count 1 "
         "--overload-period-ms 1",
         {"monitor-rate", "monitor-tolerance", "time-limits", "overload-count", "overload-period"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.options);
        Service service(words(c.options));
        const ProgramRun run = dectl("dump --json");
        Strings rules;
        for (size_t at = 0; (at = run.error.find(" rule ", at)) != std::string::npos;) {
            at += 6;
            rules.push_back(run.error.substr(at, run.error.find(" (", at) - at));
        }
        EXPECT_EQ(rules, c.rules);
        EXPECT_EQ(run.error, dectl("video").error);
        // The engine itself logs the values that it takes.
        const Json engine = Json::parse(run.output)["engine"];
        std::string log = engine.is_null()
                              ? "Invalid input: "
                              : "enable:# rect:{ min:#x# max:#x# } maxFps:# monitor:{ maxFps:# "
                                "tolerance:# restore:# } timeout:{ abort:#ms overload:#ms "
                                "tolerance:#/#ms }";
        for (const auto& [name, value] : engine.items()) {
            log.replace(log.find('#'), 1, value.dump());
        }
        const std::string logged =
            dectl("video --verbose", {"DISPLAYENGINE_PROPERTIES=/no/such/file"}).error;
        const size_t file = logged.find("/no/such/file");
        EXPECT_TRUE(file != std::string::npos && file == logged.rfind("/no/such/file")) << logged;
        EXPECT_NE(logged.find(log), std::string::npos) << log << '\n' << logged;
    }
}

TEST(DectlTest, WithoutServiceOrSenseTheCodeIsTwo) {
    for (const char* command : {"reading", "video", "--json watch", "dump"}) {
        dectl(command).expectFailure(2, "the display engine service is not running");
    }
    for (const char* arguments :
         {"", "bogus", "reading folding", "reading --bogus", "brightness", "brightness 1 -1",
          "scene 20", "scene 20 2147483648", "cwb maybe"}) {
        dectl(arguments).expectFailure(2, "--help");
    }
    dectl("reading", {"DISPLAYENGINE_RUNTIME_DIR=/dev/null"})
        .expectFailure(2, "/dev/null cannot be used (");
    EXPECT_EQ(dectl("--help").code, 0);
    EXPECT_EQ(dectl("--version").output, "dectl " DISPLAYENGINE_VERSION);
}

TEST(DectlTest, WatchPrintsEventsUntilItOrTheServiceEnds) {
    Service service;
    const auto awaitReport = [&](const char* what, const ChildProcess& watch) {
        const std::string line = what + std::string(" pid=") + std::to_string(watch.pid());
        EXPECT_TRUE(service.waitForLine(line)) << line;
    };
    ChildProcess mortal(kDectl, {"watch"});
    awaitReport("registered", mortal);
    mortal.kill();
    awaitReport("died", mortal);
    ChildProcess plain(kDectl, {"watch"});
    awaitReport("registered", plain);
    ChildProcess json(kDectl, {"watch", "--json"});
    awaitReport("registered", json);
    service.writeLine("enable off");
    EXPECT_EQ(plain.readLine(), "event=3 Enable=false");
    EXPECT_EQ(json.readLine(), R"({"event":3,"data":{"Enable":false}})");
    const std::string dump = dectl("dump").output;
    for (const std::string& line :
         {"clients:\n  pid=" + std::to_string(plain.pid()) + "\n",
          std::string(" event=enable off clients=2\n"), std::string("registerCallback: 3")}) {
        EXPECT_NE(dump.find(line), std::string::npos) << line << dump;
    }
    plain.kill(SIGINT);
    EXPECT_EQ(plain.wait(), 0);
    awaitReport("withdrawn", plain);
    service.kill();
    EXPECT_EQ(json.wait(), 2);
    EXPECT_EQ(json.standardError(), "dectl: the display engine service has died\n");
}

}  // namespace
