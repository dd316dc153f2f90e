#include "Host/Services.h"
#include "Host/Suites.h"
#include "Host/World.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class ServicesTest : public testing::Test {
protected:
    template<class Suite>
    const Suite& acquire(const char* name, int version) {
        const void* table = nullptr;
        EXPECT_EQ(basicSuite()->AcquireSuite(name, version, &table), 0);
        return *static_cast<const Suite*>(table);
    }

    Services mServices;
    Services::Visit mVisit{mServices};
};

TEST_F(ServicesTest, AcquiresSuitesByNameAndVersion) {
    SPBasicSuite& basic = *basicSuite();
    const void* table = nullptr;
    EXPECT_NE(basic.AcquireSuite("PF Handle Suite", 1, &table), 0);
    EXPECT_NE(basic.AcquireSuite("PF Handles", 2, &table), 0);
    EXPECT_EQ(table, nullptr);
    acquire<PF_ANSICallbacksSuite1>("PF ANSI Suite", 1);
    acquire<PF_ANSICallbacksSuite1>("PF ANSI Suite", 1);
    EXPECT_NE(basic.ReleaseSuite("AEGP Item Suite", 10), 0);
    EXPECT_THAT(mServices.settle(),
                ElementsAre("suite \"AEGP Item Suite\" version 10 was released but not acquired",
                            "suite \"PF ANSI Suite\" version 1 wasn't released (2 times)"));
}

TEST_F(ServicesTest, KeepsMemoryUntilItsHandleIsDisposedOf) {
    const auto& suite = acquire<PF_HandleSuite1>("PF Handle Suite", 2);
    void *handle = suite.host_new_handle(1000), *empty = suite.host_new_handle(0);
    static_cast<char*>(suite.host_lock_handle(handle))[999] = 'z';
    suite.host_unlock_handle(handle);
    EXPECT_EQ(static_cast<char*>(suite.host_lock_handle(handle))[999], 'z');
    suite.host_dispose_handle(handle);
    suite.host_dispose_handle(handle);
    suite.host_unlock_handle(empty);
    suite.host_dispose_handle(empty);
#ifndef __SANITIZE_ADDRESS__ // which ends the process for want of memory
    EXPECT_EQ(suite.host_new_handle(SIZE_MAX), nullptr);
#endif
    EXPECT_THAT(mServices.settle(),
                ElementsAre(HasSubstr("was still locked"), HasSubstr("is unknown"),
                            HasSubstr("was unlocked more often than locked"), HasSubstr("PF Handle Suite")));
}

struct Walk {
    int failingRow;
    std::atomic<int> calls{0};
    std::mutex mutex{};
    std::set<std::thread::id> threads{};
};

PF_Err note(void* refcon, int x, int y, PF_PixelFloat* in, PF_PixelFloat* out) {
    auto& walk = *static_cast<Walk*>(refcon);
    ++walk.calls;
    *out = {in->alpha + 1, static_cast<float>(x), static_cast<float>(y), 0};
    const std::lock_guard lock(walk.mutex);
    walk.threads.insert(std::this_thread::get_id());
    return y == walk.failingRow ? 77 : Services::current() ? 0 : 1;
}

TEST_F(ServicesTest, IteratesOnSeveralThreadsAndStopsAtAFailure) {
    const auto& suite = acquire<PF_iterateFloatSuite1>("PF iterateFloat Suite", 1);
    World in(61, 400, PF_PixelFormat_ARGB128), out(50, 2000, PF_PixelFormat_ARGB128), bytes(10, 10);
    in.row<PF_PixelFloat>(399)[49].alpha = 5;
    const PF_LRect area{-5, 3, 100, 5000};
    Walk walk{-1}, failing{7};
    ASSERT_EQ(suite.iterate(nullptr, 0, 400, &in, &area, &walk, note, &out), 0);
    EXPECT_EQ(walk.calls, 50 * 397);
    EXPECT_GT(walk.threads.size(), 1u);
    const PF_PixelFloat expected{6, 49, 399, 0};
    EXPECT_EQ(std::memcmp(out.row<PF_PixelFloat>(399) + 49, &expected, sizeof expected), 0);
    EXPECT_TRUE(out.paddingIntact());
    EXPECT_EQ(suite.iterate(nullptr, 0, 0, nullptr, nullptr, &failing, note, &out), 77);
    EXPECT_LT(failing.calls, 50 * 2000);
    EXPECT_EQ(suite.iterate(nullptr, 0, 0, &bytes, nullptr, &walk, note, &bytes), PF_Err_BAD_CALLBACK_PARAM);
}

TEST_F(ServicesTest, ReportsScriptErrors) {
    const auto& utility = acquire<AEGP_UtilitySuite5>("AEGP Utility Suite", 11);
    const auto& memory = acquire<AEGP_MemorySuite1>("AEGP Memory Suite", 1);
    for (const auto& [script, error] : {std::pair{"undefined", ""},
                                        {"throw new Error('no such layer')", "Error: no such layer"},
                                        {"var = ", "SyntaxError"},
                                        {"(function f() { return 1 + f(); })()", "RangeError"}}) {
        void *result = nullptr, *message = nullptr, *text = nullptr;
        ASSERT_EQ(utility.AEGP_ExecuteScript(0, script, 0, &result, &message), 0);
        ASSERT_EQ(memory.AEGP_LockMemHandle(message, &text), 0);
        EXPECT_THAT(static_cast<char*>(text), testing::StartsWith(error)) << script;
        EXPECT_EQ(memory.AEGP_FreeMemHandle(result), 0);
        EXPECT_EQ(memory.AEGP_FreeMemHandle(message), 0);
    }
    EXPECT_NE(memory.AEGP_FreeMemHandle(nullptr), 0);
    EXPECT_THAT(mServices.settle(), testing::SizeIs(3)) << "two suites, one unknown handle";
}

TEST_F(ServicesTest, FindsPixelsOfTheRightDepthOnly) {
    World world(3, 3), deep(3, 3, PF_PixelFormat_ARGB64);
    PF_Pixel8* base = nullptr;
    EXPECT_EQ(utilCallbacks()->get_pixel_data8(&world, nullptr, &base), 0);
    EXPECT_EQ(base, world.row(0));
    EXPECT_NE(utilCallbacks()->get_pixel_data8(&deep, nullptr, &base), 0);
    EXPECT_EQ(base, nullptr);
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
