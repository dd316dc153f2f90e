#include "Program/Cores.h"

#include <sched.h>

namespace Tessaloom::BilateralBlur::Program {

void restrictToCores(unsigned cores) {
    cpu_set_t set;
    // The call fails on machines with more cores than the set holds.
    if (sched_getaffinity(0, sizeof set, &set) != 0)
        return;
    for (int core = 0; core < CPU_SETSIZE; ++core) {
        if (CPU_ISSET(core, &set) && cores > 0)
            --cores;
        else
            CPU_CLR(core, &set);
    }
    sched_setaffinity(0, sizeof set, &set);
}

} // namespace Tessaloom::BilateralBlur::Program
