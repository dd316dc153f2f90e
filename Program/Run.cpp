#include "Program/Run.h"

namespace Tessaloom::BilateralBlur::Program {

std::vector<int> Run::those(Job::State state) const {
    std::vector<int> indices;
    for (std::size_t i = 0; i < jobs.size(); ++i)
        if (jobs[i].state == state)
            indices.push_back(static_cast<int>(i));
    return indices;
}

std::vector<int> Run::framesOf(Job::State state) const {
    std::vector<int> frames;
    for (const int index : those(state))
        frames.push_back(jobs[static_cast<std::size_t>(index)].frame);
    return frames;
}

std::string outputName(const std::filesystem::path& output) {
    return output == kStandardStream ? "standard output" : output.string();
}

} // namespace Tessaloom::BilateralBlur::Program
