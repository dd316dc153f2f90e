#pragma once

#include <sys/resource.h>

namespace Tessaloom::BilateralBlur::Host::Test {

/// How many fresh pages the calling thread gets while it does `work`.
template<class Work>
long pageFaults(Work work) {
    const auto count = [] {
        rusage usage{};
        getrusage(RUSAGE_THREAD, &usage);
        return usage.ru_minflt;
    };
    const long before = count();
    work();
    return count() - before;
}

} // namespace Tessaloom::BilateralBlur::Host::Test
