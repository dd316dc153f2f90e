#include "Plugins/Shared/Helper/SuiteScoper.h"

#include "Host/Services.h"
#include "Host/Suites.h"
#include "Plugins/Shared/Helper/ScriptHelper.h"
#include "Tests/Support/FaultyHost.h"

#include <gmock/gmock.h>

#include <string>

namespace Tessaloom::BilateralBlur {
namespace {

using Host::Services;
using testing::ElementsAre;

class SuiteScoperTest : public testing::Test {
protected:
    ~SuiteScoperTest() override { EXPECT_THAT(mServices.settle(), testing::IsEmpty()); }

    // The message that the user is shown by an operation that must return this code; the other flags stay.
    template<typename Operation>
    std::string shown(PF_Err expected, Operation operation) {
        mOutData = {};
        mOutData.out_flags = 0x401;
        EXPECT_EQ(operation(), expected);
        EXPECT_EQ(mOutData.out_flags, mOutData.return_msg[0] ? 0x501 : 0x401);
        return mOutData.return_msg;
    }

    Services mServices;
    Services::Visit mVisit{mServices};
    FaultyHost mHost;
    PF_InData& mInData = *FaultyHost::wrap({{}, Host::utilCallbacks(), nullptr, Host::basicSuite(), 0, 1, 1});
    PF_OutData mOutData{};
};

TEST_F(SuiteScoperTest, HoldsSuitesForAScope) {
    const auto scope = [&](PF_Err expected, PF_OutData* out, const char* text) {
        return shown(expected, [&]() -> PF_Err {
            try {
                const SuiteScoper<AEGP_MemorySuite1> first(mInData.pica_basicP, "AEGP Memory Suite", 1);
                const SuiteScoper<PF_HandleSuite1> second(&mInData, "PF Handle Suite", 2, out, text);
                EXPECT_NE(second->host_new_handle, nullptr);
                return 0;
            } catch (int code) {
                return code;
            }
        });
    };
    EXPECT_EQ(scope(0, &mOutData, "text"), "");
    EXPECT_THAT(mHost.calls,
                ElementsAre("AcquireSuite AEGP Memory Suite 1", "AcquireSuite PF Handle Suite 2",
                            "ReleaseSuite PF Handle Suite 2", "ReleaseSuite AEGP Memory Suite 1"));
    mHost.faults.failing = {{"AcquireSuite PF Handle Suite 2", 1}};
    EXPECT_EQ(scope(13, nullptr, "text"), "");
    EXPECT_EQ(mHost.calls.back(), "ReleaseSuite AEGP Memory Suite 1");
    EXPECT_EQ(scope(13, &mOutData, nullptr), "Not able to acquire AEFX Suite.");
    EXPECT_EQ(scope(13, &mOutData, ("%s" + std::string(1000, 'x')).c_str()), "%s" + std::string(253, 'x'));
}

TEST_F(SuiteScoperTest, FreeFunctionsJudgeByThePointerAndTheClassByTheCode) {
    void* suite = nullptr;
    const auto acquire = [&] { return AcquireSuite(&mInData, &mOutData, "A", 7, nullptr, &suite); };
    const auto release = [&] { return ReleaseSuite(&mInData, &mOutData, "A", 7, nullptr); };
    mHost.faults.suites = {{"A", nullptr}};
    EXPECT_EQ(shown(516, acquire), "Not able to acquire AEFX Suite-A-7");
    EXPECT_EQ(shown(516, [&] { return AcquireSuite(&mInData, &mOutData, "A", 7, "own", &suite); }), "own");
    SPBasicSuite both{[](const char*, std::int32_t, const void** table) -> PF_Err {
                          *table = "table";
                          return 1;
                      },
                      nullptr};
    mInData.pica_basicP = &both;
    EXPECT_EQ(shown(0, acquire), "");
    EXPECT_THROW(SuiteScoper<PF_HandleSuite1>(&both, "A", 7), int);
    mInData.pica_basicP = nullptr;
    EXPECT_EQ(shown(516, acquire), "Not able to acquire AEFX Suite-A-7");
    EXPECT_EQ(shown(516, release), "Not able to release AEFX Suite.");
}

TEST_F(SuiteScoperTest, AcquiresAndReleasesDrawingSuitesInOrder) {
    constexpr const char* kNames[] = {"DRAWBOT Draw Suite", "DRAWBOT Supplier Suite", "DRAWBOT Surface Suite",
                                      "DRAWBOT Path Suite"};
    for (const char* name : kNames)
        mHost.faults.suites[name] = name;
    DRAWBOT_Suites suites{}, *record = nullptr;
    const auto acquire = [&] { return AcquireDrawbotSuites(&mInData, &mOutData, record); };
    EXPECT_EQ(shown(514, acquire), "NULL suite pointer passed to AEFX_AcquireDrawbotSuites");
    record = &suites;
    EXPECT_EQ(shown(0, acquire), "");
    const void* const found[] = {suites.drawbot_suiteP, suites.supplier_suiteP, suites.surface_suiteP,
                                 suites.path_suiteP};
    EXPECT_THAT(found, testing::ElementsAreArray(kNames));
    mHost.faults.failing = {{"ReleaseSuite", 1}};
    EXPECT_EQ(shown(0, [&] { return ReleaseDrawbotSuites(&mInData, &mOutData); }), "");
    EXPECT_THAT(mHost.calls,
                ElementsAre("AcquireSuite DRAWBOT Draw Suite 1", "AcquireSuite DRAWBOT Supplier Suite 1",
                            "AcquireSuite DRAWBOT Surface Suite 2", "AcquireSuite DRAWBOT Path Suite 1",
                            "ReleaseSuite DRAWBOT Draw Suite 1", "ReleaseSuite DRAWBOT Supplier Suite 1",
                            "ReleaseSuite DRAWBOT Surface Suite 2", "ReleaseSuite DRAWBOT Path Suite 1"));
    mHost.faults.suites["DRAWBOT Surface Suite"] = nullptr;
    EXPECT_EQ(shown(516, acquire), "Not able to acquire AEFX Suite-DRAWBOT Surface Suite-2");
    EXPECT_EQ(mHost.calls.back(), "AcquireSuite DRAWBOT Surface Suite 2") << "the last one";
}

TEST_F(SuiteScoperTest, RunsScripts) {
    const auto run = [&](const char* script) {
        return ScriptHelper::RunSriptAndGetStringResult(mInData.pica_basicP, script);
    };
    EXPECT_EQ(run("'a'+6*7"), "a42");
    EXPECT_THAT(mHost.calls,
                ElementsAre("AcquireSuite AEGP Utility Suite 11", "AcquireSuite AEGP Memory Suite 1",
                            "AEGP_ExecuteScript 0 'a'+6*7 0", "AEGP_LockMemHandle", "AEGP_LockMemHandle",
                            "AEGP_FreeMemHandle", "AEGP_FreeMemHandle", "ReleaseSuite AEGP Memory Suite 1",
                            "ReleaseSuite AEGP Utility Suite 11"));
    for (const char* callback : {"AEGP_ExecuteScript", "AEGP_LockMemHandle"}) {
        mHost.faults.failing = {{callback, 77}};
        EXPECT_EQ(run("1"), "");
    }
    mHost.faults.failing = {{"AcquireSuite AEGP Memory Suite 1", 1}};
    EXPECT_THROW(run("1"), int);
}

TEST(ScriptHelper, TrimsWhiteSpaceAtBothEnds) {
    EXPECT_EQ(ScriptHelper::TrimStringWhiteSpaces(" \t\n\v\f\r"), "");
    EXPECT_EQ(ScriptHelper::TrimStringWhiteSpaces("\n\xA0 x y\v\f\r"), "\xA0 x y");
}

} // namespace
} // namespace Tessaloom::BilateralBlur
