#pragma once

namespace Tessaloom::BilateralBlur::Program {

/// Restricts the process, with all threads and processes that it starts later, to the first `cores` of those
/// that it may use. Whatever counts cores to choose a number of threads, the effect and the libraries among
/// them, counts these.
void restrictToCores(unsigned cores);

} // namespace Tessaloom::BilateralBlur::Program
