#include "Program/ModuleOutput.h"

#include <cstdlib>
#include <iostream>
#include <unistd.h>

namespace Tessaloom::BilateralBlur::Program {

int takeStandardOutput(bool verbose) {
    const int standardOutput = dup(STDOUT_FILENO);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    if (!verbose) {
        // The effect prints what it runs on, and does without GL where there is none.
        std::cout.rdbuf(nullptr);
        setenv("EGL_LOG_LEVEL", "fatal", 0);
    }
    return standardOutput;
}

} // namespace Tessaloom::BilateralBlur::Program
