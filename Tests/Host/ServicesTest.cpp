#include "Host/Services.h"
#include "Host/Suites.h"
#include "Host/World.h"

#include <atomic>

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

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

TEST_F(ServicesTest, ReportsWhatIsMisusedAndWhatIsNotReleased) {
    const void* table = nullptr;
    EXPECT_NE(basicSuite()->AcquireSuite("PF Handle Suite", 1, &table), 0);
    const auto& suite = acquire<PF_HandleSuite1>("PF Handle Suite", 2);
    acquire<PF_HandleSuite1>("PF Handle Suite", 2);
    acquire<PF_HandleSuite1>("PF Handle Suite", 2);
    EXPECT_EQ(basicSuite()->ReleaseSuite("PF Handle Suite", 2), 0);
    EXPECT_NE(basicSuite()->ReleaseSuite("AEGP Item Suite", 10), 0);
    void *handle = suite.host_new_handle(1000), *empty = suite.host_new_handle(0);
    static_cast<char*>(suite.host_lock_handle(handle))[999] = 'z';
    suite.host_unlock_handle(handle);
    EXPECT_EQ(static_cast<char*>(suite.host_lock_handle(handle))[999], 'z');
    suite.host_dispose_handle(handle);
    suite.host_dispose_handle(handle);
    suite.host_unlock_handle(empty);
#ifndef __SANITIZE_ADDRESS__ // which ends the process for want of memory
    EXPECT_EQ(suite.host_new_handle(SIZE_MAX), nullptr);
#endif
    EXPECT_THAT(mServices.settle(),
                testing::ElementsAre(HasSubstr("Item Suite\" version 10 was released but not acquired"),
                                     HasSubstr("was still locked"), HasSubstr("is unknown"),
                                     HasSubstr("was unlocked more often than locked"),
                                     HasSubstr("handle 2 wasn't released"),
                                     HasSubstr("Handle Suite\" version 2 wasn't released (2 times)")));
}

struct Walk {
    bool fails;
    std::atomic<std::size_t> calls = 0, threads = 0;
};

PF_Err note(void* refcon, int, int, PF_PixelFloat*, PF_PixelFloat*) {
    thread_local Walk* last = nullptr;
    auto& walk = *static_cast<Walk*>(refcon);
    walk.threads += std::exchange(last, &walk) != &walk;
    ++walk.calls;
    return walk.fails ? 77 : Services::current() ? 0 : 1;
}

TEST_F(ServicesTest, IteratesOnSeveralThreadsAndStopsAtAFailure) {
    const auto& suite = acquire<PF_iterateFloatSuite1>("PF iterateFloat Suite", 1);
    World in(61, 400, PF_PixelFormat_ARGB128), out(50, 2000, PF_PixelFormat_ARGB128), bytes(10, 10);
    const PF_LRect area{-5, 3, 100, 5000};
    Walk walk{false}, failing{true};
    EXPECT_EQ(suite.iterate(nullptr, 0, 400, &in, &area, &walk, note, &out), 0);
    EXPECT_EQ(walk.calls, 50u * 397);
    EXPECT_GT(walk.threads, 1u);
    EXPECT_EQ(suite.iterate(nullptr, 0, 0, nullptr, nullptr, &failing, note, &out), 77);
    EXPECT_EQ(failing.calls, failing.threads);
    EXPECT_EQ(suite.iterate(nullptr, 0, 0, &bytes, nullptr, &walk, note, &bytes), PF_Err_BAD_CALLBACK_PARAM);
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
