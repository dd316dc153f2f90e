#pragma once

#include "Host/Effect.h"
#include "Program/Plan.h"
#include "Program/Report.h"

#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// Reads, filters and writes all jobs; what fails is reported and the others go on. The three overlap, with
/// one thread each and at most one picture waiting between two of them, so memory doesn't grow with the
/// number of jobs. The effect is called on the calling thread alone.
void doWork(const std::vector<Job>& jobs, Host::Effect& effect, int blurScale, Report& report);

} // namespace Tessaloom::BilateralBlur::Program
