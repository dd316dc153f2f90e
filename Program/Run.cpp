#include "Program/Run.h"

namespace Tessaloom::BilateralBlur::Program {

std::vector<int> Run::those(Job::State state) const {
    std::vector<int> indices;
    for (std::size_t i = 0; i < jobs.size(); ++i)
        if (jobs[i].state == state)
            indices.push_back(static_cast<int>(i));
    return indices;
}

std::string outputName(const std::filesystem::path& output) {
    return output == kStandardStream ? "standard output" : output.string();
}

} // namespace Tessaloom::BilateralBlur::Program
