#include "Host/Services.h"
#include "Host/World.h"

#include <gmock/gmock.h>

#include <atomic>
#include <mutex>
#include <set>
#include <thread>

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ServicesTest : public testing::Test {
protected:
    template<class Suite>
    const Suite& acquire(const char* name, int version) {
        const void* table = nullptr;
        EXPECT_EQ(Services::basicSuite()->AcquireSuite(name, version, &table), 0);
        return *static_cast<const Suite*>(table);
    }

    Services mServices;
    Services::Visit mVisit{mServices};
};

TEST_F(ServicesTest, SuitesAreHadByNameAndVersionAndCounted) {
    SPBasicSuite& basic = *Services::basicSuite();
    const void* table = nullptr;
    EXPECT_NE(basic.AcquireSuite("PF Handle Suite", 1, &table), 0);
    EXPECT_NE(basic.AcquireSuite("PF Handles", 2, &table), 0);
    EXPECT_EQ(table, nullptr);
    for (const auto& [name, version] : {std::pair{"AEGP PF Interface Suite", 1},
                                        {"AEGP Layer Suite", 11},
                                        {"AEGP Item Suite", 10},
                                        {"DRAWBOT Draw Suite", 1},
                                        {"DRAWBOT Supplier Suite", 1},
                                        {"DRAWBOT Surface Suite", 2},
                                        {"DRAWBOT Path Suite", 1}}) {
        table = nullptr;
        EXPECT_EQ(basic.AcquireSuite(name, version, &table), 0) << name;
        EXPECT_NE(table, nullptr);
        EXPECT_EQ(basic.ReleaseSuite(name, version), 0);
    }
    EXPECT_THAT(mServices.settle(), IsEmpty());
    acquire<PF_ANSICallbacksSuite1>("PF ANSI Suite", 1);
    acquire<PF_ANSICallbacksSuite1>("PF ANSI Suite", 1);
    EXPECT_NE(basic.ReleaseSuite("AEGP Item Suite", 10), 0);
    EXPECT_THAT(mServices.settle(),
                ElementsAre("suite \"AEGP Item Suite\" version 10 was given back but not taken",
                            "suite \"PF ANSI Suite\" version 1 wasn't given back (2 times)"));
}

TEST_F(ServicesTest, HandlesHoldMemoryUntilTheyAreDisposedOf) {
    const auto& suite = acquire<PF_HandleSuite1>("PF Handle Suite", 2);
    void* handle = suite.host_new_handle(1000);
    void* empty = suite.host_new_handle(0);
    auto* bytes = static_cast<char*>(suite.host_lock_handle(handle));
    bytes[0] = 'a';
    bytes[999] = 'z';
    suite.host_unlock_handle(handle);
    EXPECT_EQ(suite.host_lock_handle(handle), bytes);
    EXPECT_EQ(bytes[999], 'z');
    suite.host_unlock_handle(handle);
    suite.host_dispose_handle(handle);
    suite.host_dispose_handle(empty);
    EXPECT_EQ(suite.host_new_handle(~std::uint64_t{0}), nullptr);
    EXPECT_EQ(suite.host_lock_handle(handle), nullptr);
    EXPECT_THAT(mServices.settle(),
                ElementsAre(HasSubstr("isn't one of the host's"), HasSubstr("PF Handle Suite")));
}

struct Walk {
    std::atomic<int> calls{0};
    std::mutex mutex;
    std::set<std::thread::id> threads;
};

PF_Err addUp(void* refcon, int x, int y, PF_PixelFloat* in, PF_PixelFloat* out) {
    auto& walk = *static_cast<Walk*>(refcon);
    ++walk.calls;
    *out = {in->alpha + 1, static_cast<float>(x), static_cast<float>(y), 0};
    const std::lock_guard lock(walk.mutex);
    walk.threads.insert(std::this_thread::get_id());
    return Services::current() ? 0 : 1;
}

PF_Err failAtTheSeventhRow(void* refcon, int, int y, PF_PixelFloat*, PF_PixelFloat*) {
    ++static_cast<Walk*>(refcon)->calls;
    return y == 7 ? 77 : 0;
}

TEST_F(ServicesTest, IterationReachesEachPixelOnceOnSeveralThreads) {
    const auto& suite = acquire<PF_iterateFloatSuite1>("PF iterateFloat Suite", 1);
    World in(61, 400, PF_PixelFormat_ARGB128), out(61, 400, PF_PixelFormat_ARGB128);
    for (int y = 0; y < in.height; ++y)
        for (int x = 0; x < in.width; ++x)
            in.row<PF_PixelFloat>(y)[x].alpha = static_cast<float>(x * y);
    Walk walk;
    ASSERT_EQ(suite.iterate(nullptr, 0, 400, &in, nullptr, &walk, addUp, &out), 0);
    EXPECT_EQ(walk.calls, 61 * 400);
    EXPECT_GT(walk.threads.size(), 1u);
    for (int y = 0; y < out.height; ++y)
        for (int x = 0; x < out.width; ++x) {
            const PF_PixelFloat pixel = out.row<PF_PixelFloat>(y)[x];
            ASSERT_TRUE(pixel.alpha == x * y + 1 && pixel.red == x && pixel.green == y);
        }
    EXPECT_TRUE(out.spareBytesIntact());
}

TEST_F(ServicesTest, IterationStaysInsideAndStopsAtAFailure) {
    const auto& suite = acquire<PF_iterateFloatSuite1>("PF iterateFloat Suite", 1);
    World large(20, 2000, PF_PixelFormat_ARGB128), small(10, 5, PF_PixelFormat_ARGB128), bytes(10, 10);
    const PF_LRect area{-5, 3, 100, 100};
    Walk walk;
    EXPECT_EQ(suite.iterate(nullptr, 0, 0, &large, &area, &walk, addUp, &small), 0);
    EXPECT_EQ(walk.calls, 10 * 2);
    walk.calls = 0;
    EXPECT_EQ(suite.iterate(nullptr, 0, 0, nullptr, nullptr, &walk, failAtTheSeventhRow, &large), 77);
    EXPECT_LT(walk.calls, 20 * 2000);
    EXPECT_EQ(suite.iterate(nullptr, 0, 0, &bytes, nullptr, &walk, addUp, &bytes), PF_Err_BAD_CALLBACK_PARAM);
}

TEST_F(ServicesTest, ScriptsGiveBackTextsInMemoryHandles) {
    const auto& utility = acquire<AEGP_UtilitySuite5>("AEGP Utility Suite", 11);
    const auto& memory = acquire<AEGP_MemorySuite1>("AEGP Memory Suite", 1);
    const struct {
        const char *script, *result, *error;
    } kCases[] = {
        {"var s = 0; for (var i = 1; i <= 10; ++i) s += i; 'sum ' + s", "sum 55", ""},
        {"JSON.stringify({a: [1, 2]})", "{\"a\":[1,2]}", ""},
        {"typeof s", "undefined", ""},
        {"undefined", "", ""},
        {"throw new Error('no such layer')", "", "Error: no such layer"},
        {"var = ", "", "SyntaxError"},
        {"(function f() { return 1 + f(); })()", "", "RangeError"},
    };
    for (const auto& [script, result, error] : kCases) {
        AEGP_MemHandle handles[2] = {};
        void* texts[2] = {};
        ASSERT_EQ(utility.AEGP_ExecuteScript(0, script, 0, &handles[0], &handles[1]), 0);
        for (int i = 0; i < 2; ++i)
            ASSERT_EQ(memory.AEGP_LockMemHandle(handles[i], &texts[i]), 0);
        EXPECT_STREQ(static_cast<char*>(texts[0]), result) << script;
        EXPECT_THAT(static_cast<char*>(texts[1]), testing::StartsWith(error)) << script;
        for (void* handle : handles)
            EXPECT_EQ(memory.AEGP_FreeMemHandle(handle), 0);
    }
    EXPECT_NE(memory.AEGP_FreeMemHandle(nullptr), 0);
    EXPECT_THAT(mServices.settle(), testing::SizeIs(3)) << "two suites, one unknown handle";
}

TEST_F(ServicesTest, PixelsAreFoundForWorldsOfTheRightDepthAlone) {
    World world(3, 3), deep(3, 3, PF_PixelFormat_ARGB64);
    PF_LayerDef copy = world;
    PF_Pixel8* base8 = nullptr;
    PF_Pixel16* base16 = nullptr;
    const PF_UtilCallbacks& utils = *Services::utils();
    EXPECT_EQ(utils.get_pixel_data8(&world, nullptr, &base8), 0);
    EXPECT_EQ(base8, world.row(0));
    EXPECT_EQ(utils.get_pixel_data16(&deep, nullptr, &base16), 0);
    EXPECT_EQ(base16, deep.row<PF_Pixel16>(0));
    for (PF_LayerDef* wrong : {static_cast<PF_LayerDef*>(&deep), &copy, static_cast<PF_LayerDef*>(nullptr)}) {
        EXPECT_NE(utils.get_pixel_data8(wrong, nullptr, &base8), 0);
        EXPECT_EQ(base8, nullptr);
    }
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
