#pragma once

#include "Program/Pipeline.h"
#include "Program/Report.h"
#include "Program/Run.h"

namespace Tessaloom::BilateralBlur::Program {

/// Does all jobs that wait, in a child process, records in `run` what comes of them and has it printed.
///
/// Libraries that decode and encode end the process where memory runs out. If the child dies, the frames that
/// it was working on are tried again, each in a child of its own, which tells the one that can't be done; the
/// rest goes on in a further child. A child that dies before the effect is set up is started once more without
/// reading meanwhile, then without OpenGL, since a driver may be what it died of; after that the work ends.
///
/// A signal that ends this process ends the child first; what either of them left half-written is removed. If
/// this process is killed, the child is too. Throws Failure where no process can be started.
///
/// To be called while the process has one thread, and before anything is in the buffers of standard output.
void superviseJobs(Run& run, const Settings& settings, Report& report);

} // namespace Tessaloom::BilateralBlur::Program
