#include "Plugins/Shared/Helper/SuiteScoper.h"

#include "Host/Services.h"
#include "Plugins/Shared/Helper/ScriptHelper.h"
#include "Tests/Support/FaultyHost.h"

#include <gmock/gmock.h>

#include <string>

namespace Tessaloom::BilateralBlur {
namespace {

using Host::Services;

class SuiteScoperTest : public testing::Test {
protected:
    ~SuiteScoperTest() override { EXPECT_THAT(mServices.settle(), testing::IsEmpty()); }

    // What the user is told by an operation that must give this code; the other flags stay.
    template<class Operation>
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
    PF_InData& mInData = *FaultyHost::wrap({{}, Services::utils(), nullptr, Services::basicSuite(), 0, 1, 1});
    PF_OutData mOutData{};
};

TEST_F(SuiteScoperTest, HoldsSuitesForAScopeAndThrowsThirteenWhereTheyAreMissing) {
    const auto scope = [&](PF_Err expected, PF_OutData* out, const char* text) {
        return shown(expected, [&]() -> PF_Err {
            try {
                const SuiteScoper<AEGP_MemorySuite1> first(mInData.pica_basicP, "AEGP Memory Suite", 1);
                const SuiteScoper<PF_HandleSuite1> second(&mInData, "PF Handle Suite", 2, out, text);
                return first->AEGP_FreeMemHandle && second->host_new_handle ? 0 : -1;
            } catch (int code) {
                return code;
            }
        });
    };
    EXPECT_EQ(scope(0, &mOutData, "text"), "");
    mHost.faults.failing = {{"PF Handle Suite", 1}};
    EXPECT_EQ(scope(13, nullptr, "text"), "");
    EXPECT_EQ(scope(13, &mOutData, nullptr), "Not able to acquire AEFX Suite.");
    EXPECT_EQ(scope(13, &mOutData, ("%s" + std::string(1000, 'x')).c_str()), "%s" + std::string(253, 'x'));
}

TEST_F(SuiteScoperTest, TheFreeFunctionsGoByThePointerAndTheClassByTheCode) {
    void* suite = nullptr;
    const auto acquire = [&] { return AcquireSuite(&mInData, &mOutData, "A", 7, nullptr, &suite); };
    const auto release = [&] { return ReleaseSuite(&mInData, &mOutData, "A", 7, nullptr); };
    EXPECT_EQ(shown(516, acquire), "Not able to acquire AEFX Suite-A-7");
    EXPECT_EQ(shown(516, [&] { return AcquireSuite(&mInData, &mOutData, "A", 7, "own", &suite); }), "own");
    // A host that gives a table and an error code at once.
    const auto giveBoth = [](const char*, std::int32_t, const void** table) {
        return *table = "", PF_Err{1};
    };
    SPBasicSuite both{giveBoth, nullptr};
    mInData.pica_basicP = &both;
    EXPECT_EQ(shown(0, acquire), "");
    EXPECT_THROW(SuiteScoper<PF_HandleSuite1>(&both, "A", 7), int);
    mInData.pica_basicP = nullptr;
    EXPECT_EQ(shown(516, release), "Not able to release AEFX Suite.");
}

TEST_F(SuiteScoperTest, TakesTheFourDrawingSuitesAsFarAsTheyGo) {
    DRAWBOT_Suites suites{}, *record = nullptr;
    const auto acquire = [&] { return AcquireDrawbotSuites(&mInData, &mOutData, record); };
    EXPECT_EQ(shown(514, acquire), "NULL suite pointer passed to AEFX_AcquireDrawbotSuites");
    record = &suites;
    EXPECT_EQ(shown(0, acquire), "");
    EXPECT_TRUE(suites.drawbot_suiteP && suites.supplier_suiteP && suites.surface_suiteP &&
                suites.path_suiteP);
    EXPECT_EQ(shown(0, [&] { return ReleaseDrawbotSuites(&mInData, &mOutData); }), "");
    mHost.faults.failing = {{"DRAWBOT Surface Suite", 1}};
    EXPECT_EQ(shown(516, acquire), "Not able to acquire AEFX Suite-DRAWBOT Surface Suite-2");
    EXPECT_EQ(mServices.settle().size(), 2u) << "the path suite isn't asked for";
}

TEST_F(SuiteScoperTest, ScriptsRunAndTextsAreTrimmed) {
    const auto run = [&](const char* script) {
        return ScriptHelper::RunSriptAndGetStringResult(mInData.pica_basicP, script);
    };
    EXPECT_EQ(run("'a' + 6 * 7"), "a42");
    for (const char* callback : {"AEGP_ExecuteScript", "AEGP_LockMemHandle"}) {
        mHost.faults.failing = {{callback, 77}};
        EXPECT_EQ(run("1"), "");
    }
    mHost.faults.failing = {{"AEGP Memory Suite", 1}};
    EXPECT_THROW(run("1"), int);
    EXPECT_EQ(ScriptHelper::TrimStringWhiteSpaces(" \t\n\v\f\r"), "");
    EXPECT_EQ(ScriptHelper::TrimStringWhiteSpaces("\n\xA0 x\v\f\r"), "\xA0 x");
}

} // namespace
} // namespace Tessaloom::BilateralBlur
