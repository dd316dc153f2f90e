#include "Plugins/Shared/Helper/SuiteScoper.h"

#include "Host/Services.h"
#include "Plugins/Shared/Helper/ScriptHelper.h"

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Tessaloom::BilateralBlur {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Log = std::vector<std::string>;

// A basic suite that notes what it is asked, and fails as the test says.
Log fakeLog;
PF_Err fakeCode = 0;
bool fakeFills = true;
std::string fakeMissing;
constexpr int kTable = 0;

SPBasicSuite fakeBasic{[](const char* name, std::int32_t version, const void** suite) -> PF_Err {
                           fakeLog.push_back("+" + std::string(name) + std::to_string(version));
                           if (fakeMissing == name)
                               return 1;
                           if (fakeFills)
                               *suite = &kTable;
                           return fakeCode;
                       },
                       [](const char* name, std::int32_t version) -> PF_Err {
                           fakeLog.push_back("-" + std::string(name) + std::to_string(version));
                           return 99; // nobody looks
                       }};

class SuiteScoperTest : public testing::Test {
protected:
    SuiteScoperTest() {
        fakeLog.clear();
        fakeCode = 0;
        fakeFills = true;
        fakeMissing.clear();
        mInData.utils = Host::Services::utils();
        mInData.pica_basicP = &fakeBasic;
    }

    // What the operation tells the user; the other flags stay.
    std::string message(const std::function<void()>& operation) {
        mOutData = {};
        mOutData.out_flags = 0x401;
        operation();
        EXPECT_EQ(mOutData.out_flags, mOutData.return_msg[0] ? 0x501 : 0x401);
        return mOutData.return_msg;
    }

    PF_InData mInData{};
    PF_OutData mOutData{};
};

TEST_F(SuiteScoperTest, HoldsSuitesForAScopeAndThrowsThirteenWhereTheyAreMissing) {
    const auto scope = [&](PF_OutData* out, const char* text) {
        try {
            const SuiteScoper<PF_HandleSuite1> first(&fakeBasic, "A", 3);
            EXPECT_EQ(static_cast<const void*>(first.operator->()), &kTable);
            const SuiteScoper<PF_HandleSuite1> second(&mInData, "B", 2, out, text);
        } catch (int code) {
            EXPECT_EQ(code, 13);
        }
    };
    EXPECT_EQ(message([&] { scope(&mOutData, "text"); }), "");
    EXPECT_THAT(std::exchange(fakeLog, {}), ElementsAre("+A3", "+B2", "-B2", "-A3"));
    fakeMissing = "B";
    EXPECT_EQ(message([&] { scope(nullptr, "text"); }), "");
    EXPECT_THAT(fakeLog, ElementsAre("+A3", "+B2", "-A3"));
    EXPECT_EQ(message([&] { scope(&mOutData, nullptr); }), "Not able to acquire AEFX Suite.");
    EXPECT_EQ(message([&] { scope(&mOutData, "100 %s of it"); }), "100 %s of it");
    EXPECT_EQ(message([&] { scope(&mOutData, std::string(1000, 'x').c_str()); }), std::string(255, 'x'));
    fakeCode = 5; // although the pointer is filled
    EXPECT_THROW(SuiteScoper<PF_HandleSuite1>(&fakeBasic, "C", 1), int);
}

TEST_F(SuiteScoperTest, IsJudgedByThePointerInTheFreeFunction) {
    const auto acquire = [&](const char* text, PF_Err code, bool fills, bool basic, PF_Err expected) {
        fakeCode = code;
        fakeFills = fills;
        mInData.pica_basicP = basic ? &fakeBasic : nullptr;
        return message([&] {
            void* suite = nullptr;
            EXPECT_EQ(AcquireSuite(&mInData, &mOutData, "A", 7, text, &suite), expected);
            EXPECT_EQ(suite != nullptr, expected == 0);
        });
    };
    EXPECT_EQ(acquire(nullptr, 0, true, true, 0), "");
    EXPECT_EQ(acquire(nullptr, 1, true, true, 0), "");
    EXPECT_EQ(acquire(nullptr, 0, false, true, 516), "Not able to acquire AEFX Suite-A-7");
    EXPECT_EQ(acquire("own text", 1, false, true, 516), "own text");
    EXPECT_EQ(acquire(nullptr, 0, true, false, 516), "Not able to acquire AEFX Suite-A-7");

    const auto release = [&](const char* text, PF_Err expected) {
        return message([&] { EXPECT_EQ(ReleaseSuite(&mInData, &mOutData, "A", 7, text), expected); });
    };
    EXPECT_EQ(release(nullptr, 516), "Not able to release AEFX Suite.");
    EXPECT_EQ(release("own text", 516), "own text");
    mInData.pica_basicP = &fakeBasic;
    EXPECT_EQ(release(nullptr, 0), "");
    EXPECT_EQ(fakeLog.back(), "-A7");
}

TEST_F(SuiteScoperTest, TakesTheFourDrawingSuitesAsFarAsTheyGo) {
    DRAWBOT_Suites suites{};
    const auto acquire = [&](DRAWBOT_Suites* record, PF_Err expected) {
        return message([&] { EXPECT_EQ(AcquireDrawbotSuites(&mInData, &mOutData, record), expected); });
    };
    const auto release = [&] { EXPECT_EQ(ReleaseDrawbotSuites(&mInData, &mOutData), 0); };
    EXPECT_EQ(acquire(nullptr, 514), "NULL suite pointer passed to AEFX_AcquireDrawbotSuites");
    EXPECT_EQ(acquire(&suites, 0), "");
    EXPECT_EQ(suites.path_suiteP, &kTable);
    EXPECT_EQ(message(release), "");
    const char* const names[] = {"DRAWBOT Draw Suite1", "DRAWBOT Supplier Suite1", "DRAWBOT Surface Suite2",
                                 "DRAWBOT Path Suite1"};
    ASSERT_EQ(fakeLog.size(), 8u);
    for (std::size_t i = 0; i < 8; ++i)
        EXPECT_EQ(fakeLog[i], (i < 4 ? "+" : "-") + std::string(names[i % 4]));
    suites = {};
    fakeLog.clear();
    fakeMissing = "DRAWBOT Surface Suite";
    EXPECT_EQ(acquire(&suites, 516), "Not able to acquire AEFX Suite-DRAWBOT Surface Suite-2");
    EXPECT_EQ(fakeLog.size(), 3u) << "the path suite isn't asked for";
    EXPECT_EQ(suites.supplier_suiteP, &kTable);
    mInData.pica_basicP = nullptr;
    EXPECT_EQ(message(release), "Not able to release AEFX Suite.");
}

TEST(ScriptHelper, RunsScriptsAndTrimsTexts) {
    Host::Services services;
    const Host::Services::Visit visit(services);
    SPBasicSuite* basic = Host::Services::basicSuite();
    const auto run = [&](const char* script) {
        const std::string text = ScriptHelper::RunSriptAndGetStringResult(basic, script);
        EXPECT_THAT(services.settle(), IsEmpty());
        return text;
    };
    EXPECT_EQ(run("'a' + 6 * 7"), "a42");
    EXPECT_EQ(run("''"), "");
    EXPECT_EQ(run("throw 'no'"), "");
    for (const Host::Callback callback : {Host::Callback::ExecuteScript, Host::Callback::LockMemHandle}) {
        services.faults = {.failing = {{callback, 77}}};
        EXPECT_EQ(run("1"), "");
    }
    for (const char* missing : {"AEGP Utility Suite", "AEGP Memory Suite"}) {
        services.faults = {.missingSuite = missing};
        EXPECT_THROW(run("1"), int);
        EXPECT_THAT(services.settle(), IsEmpty());
    }
    const char* const texts[][2] = {
        {"", ""}, {" \t\n\v\f\r", ""}, {" a b\t", "a b"}, {"a", "a"}, {"\n\xA0 x\v", "\xA0 x"}};
    for (const auto& [text, trimmed] : texts)
        EXPECT_EQ(ScriptHelper::TrimStringWhiteSpaces(text), trimmed);
}

} // namespace
} // namespace Tessaloom::BilateralBlur
