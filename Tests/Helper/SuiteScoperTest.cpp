#include "Plugins/Shared/Helper/SuiteScoper.h"

#include "Host/Services.h"
#include "Host/Suites.h"
#include "Plugins/Shared/Helper/ScriptHelper.h"
#include "Tests/Support/FaultyHost.h"

namespace Tessaloom::BilateralBlur {
namespace {

using testing::Contains;
using testing::Throws;

class SuiteScoperTest : public testing::Test {
protected:
    ~SuiteScoperTest() override { EXPECT_THAT(mServices.settle(), testing::IsEmpty()); }

    Host::Services mServices{Host::runScript};
    Host::Services::Visit mVisit{mServices};
    FaultyHost mHost;
    PF_InData& mInData = *FaultyHost::wrap({{}, Host::utilCallbacks(), nullptr, Host::basicSuite(), 0, 1, 1});
    PF_OutData mOutData{};
};

TEST_F(SuiteScoperTest, HoldsSuitesForAScope) {
    const auto scope = [&](PF_OutData* out, const char* message) {
        const SuiteScoper<AEGP_MemorySuite1> first(mInData.pica_basicP, "AEGP Memory Suite", 1);
        const SuiteScoper<PF_HandleSuite1> second(&mInData, "PF Handle Suite", 2, out, message);
        EXPECT_NE(second->host_new_handle, nullptr);
    };
    mOutData.out_flags = 1;
    scope(&mOutData, "");
    EXPECT_EQ(mOutData.out_flags, 1);
    mHost.faults.suites = {{"PF Handle Suite", nullptr}};
    mHost.calls.clear();
    EXPECT_THAT([&] { scope(nullptr, ""); }, Throws<int>(13));
    EXPECT_THAT(mHost.calls, Contains("ReleaseSuite PF Handle Suite 2")) << "the host has counted it";
    mHost.faults = {.failing = {{"AcquireSuite PF Handle Suite 2", 1}}};
    mHost.calls.clear();
    EXPECT_THAT([&] { scope(nullptr, ""); }, Throws<int>(13));
    EXPECT_THAT([&] { scope(&mOutData, nullptr); }, Throws<int>(13));
    EXPECT_THAT(mHost.calls, testing::Not(Contains("ReleaseSuite PF Handle Suite 2")));
    EXPECT_STREQ(mOutData.return_msg, "Not able to acquire AEFX Suite.");
    EXPECT_EQ(mOutData.out_flags, 1 | PF_OutFlag_DISPLAY_ERROR_MESSAGE);
    EXPECT_THAT([&] { scope(&mOutData, ("%s" + std::string(1000, 'x')).c_str()); }, Throws<int>(13));
    EXPECT_EQ(mOutData.return_msg, "%s" + std::string(253, 'x'));
}

int mMessages = 0;

int countMessage(char*, const char*, ...) {
    return ++mMessages;
}

TEST_F(SuiteScoperTest, FreeFunctionsAcquireAndReleaseDrawingSuitesInOrder) {
    for (const char* name : {"Draw", "Supplier", "Surface", "Path"})
        mHost.faults.suites["DRAWBOT " + std::string(name) + " Suite"] = name;
    DRAWBOT_Suites suites{};
    EXPECT_EQ(AcquireDrawbotSuites(&mInData, &mOutData, nullptr), 514);
    EXPECT_EQ(AcquireDrawbotSuites(&mInData, &mOutData, &suites), 0);
    EXPECT_STREQ(static_cast<const char*>(suites.surface_suiteP), "Surface");
    EXPECT_EQ(ReleaseDrawbotSuites(&mInData, &mOutData), 0);
    EXPECT_THAT(
        mHost.calls,
        testing::ElementsAre("AcquireSuite DRAWBOT Draw Suite 1", "AcquireSuite DRAWBOT Supplier Suite 1",
                             "AcquireSuite DRAWBOT Surface Suite 2", "AcquireSuite DRAWBOT Path Suite 1",
                             "ReleaseSuite DRAWBOT Draw Suite 1", "ReleaseSuite DRAWBOT Supplier Suite 1",
                             "ReleaseSuite DRAWBOT Surface Suite 2", "ReleaseSuite DRAWBOT Path Suite 1"));
    mHost.faults.suites["DRAWBOT Surface Suite"] = nullptr;
    EXPECT_EQ(AcquireDrawbotSuites(&mInData, &mOutData, &suites), 516);
    EXPECT_STREQ(mOutData.return_msg, "Not able to acquire AEFX Suite-DRAWBOT Surface Suite-2");
    mOutData.out_flags = 2;
    mInData.pica_basicP = nullptr;
    EXPECT_EQ(ReleaseSuite(&mInData, &mOutData, "A", 7, "message"), 516);
    EXPECT_STREQ(mOutData.return_msg, "message");
    EXPECT_EQ(ReleaseDrawbotSuites(&mInData, &mOutData), 0);
    EXPECT_STREQ(mOutData.return_msg, "Not able to release AEFX Suite.");
    EXPECT_EQ(mOutData.out_flags, 2 | PF_OutFlag_DISPLAY_ERROR_MESSAGE);
    PF_UtilCallbacks utils = *mInData.utils;
    utils.ansi.sprintf = countMessage;
    mInData.utils = &utils;
    ReleaseDrawbotSuites(&mInData, &mOutData);
    EXPECT_EQ(mMessages, 4) << "it goes on behind a failure";
}

TEST_F(SuiteScoperTest, RunsScripts) {
    const auto run = [&] { return ScriptHelper::RunSriptAndGetStringResult(mInData.pica_basicP, "'a'+6*7"); };
    EXPECT_EQ(run(), "a42");
    EXPECT_THAT(mHost.calls, Contains("AEGP_ExecuteScript 0 'a'+6*7 0"));
    for (const char* ofBothTexts : {"AEGP_LockMemHandle", "AEGP_FreeMemHandle"})
        EXPECT_THAT(mHost.calls, Contains(ofBothTexts).Times(2));
    {
        Host::Services services; // of an effect that is linked in, which has no engine
        const Host::Services::Visit visit(services);
        EXPECT_EQ(run(), "");
    }
    for (const char* callback : {"AEGP_ExecuteScript", "AEGP_LockMemHandle"}) {
        mHost.faults.failing = {{callback, 77}};
        EXPECT_EQ(run(), "");
    }
    mHost.faults.failing = {{"AcquireSuite AEGP Memory Suite 1", 1}};
    EXPECT_THROW(run(), int);
    EXPECT_EQ(ScriptHelper::TrimStringWhiteSpaces(" \t\n\v\f\r"), "");
    EXPECT_EQ(ScriptHelper::TrimStringWhiteSpaces("\n\xA0 x y\v\f\r"), "\xA0 x y");
}

} // namespace
} // namespace Tessaloom::BilateralBlur
