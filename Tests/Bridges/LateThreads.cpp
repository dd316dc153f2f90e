#include <chrono>
#include <dlfcn.h>
#include <pthread.h>
#include <thread>

// Loaded before melt's libraries. The writer of melt 7.12 starts its thread first and then notes that it
// runs; on a busy machine the thread can be the faster one, takes that for the order to stop, and melt ends
// with nothing written, or waits for ever. So every new thread begins a little later here.

namespace {

struct Start {
    void* (*run)(void*);
    void* argument;
};

void* runLater(void* given) {
    const Start start = *static_cast<Start*>(given);
    delete static_cast<Start*>(given);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    return start.run(start.argument);
}

} // namespace

extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attributes,
                                                                     void* (*run)(void*),
                                                                     void* argument) noexcept {
    static const auto kOriginal =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return kOriginal(thread, attributes, runLater, new Start{run, argument});
}
