#include "Plugins/BilateralSmooth/Sources/CpuFormula.h"
#include "Tests/Cpu/InstructionSets.h"
#include "Tests/Support/SmoothFrames.h"

namespace Tessaloom::BilateralBlur {
namespace {

/// Random images with gaps between their rows, filtered on each set of instructions.
class Smooth : public InstructionSetTest, SmoothFrames {
protected:
    template<class Value>
    void expectFiltered(const Frame& frame, Depth depth, double fullScale, double most, double mean) {
        const int width = frame.width, height = frame.height;
        expectOracle<Value>(frame, fullScale, most, mean, [&](const auto& values, int radius, int threshold) {
            return filtered(values, std::size_t{4} * width, below(3), below(2),
                            [&](const Value* pixels, Value* target, std::ptrdiff_t stride, ThreadPool& pool) {
                                const auto* bytes = reinterpret_cast<const std::uint8_t*>(pixels);
                                bilateralSmooth({bytes, stride, width, height, depth, fullScale}, target,
                                                stride, radius, threshold / 1000.0, pool);
                            });
        });
    }

    void expectEveryDepth() {
        const bool isWide = below(12) == 0;
        const int width = 1 + (isWide ? 256 + below(10) : below(40)),
                  height = 1 + below(isWide ? 3 : 12 + below(2) * 28);
        Frame frame = makeFrame(width, height);
        expectFiltered<std::uint8_t>(frame, Depth::Bits8, 255, 0.51 / 255, 0.5 / 255);
        expectFiltered<std::uint16_t>(frame, Depth::Bits16, 32768, 2e-4, 2e-5);
        expectFiltered<float>(frame, Depth::Float, 1, 2e-4, 2e-5);
        const double factor = std::pow(10, 6 * uniform() - 3);
        reachBeyondFullScale(frame, factor);
        expectFiltered<float>(frame, Depth::Float, 1, 2e-4, 2e-5 + 4e-7 * factor);
    }
};

TEST_P(Smooth, IsTheOraclesImageAtEveryDepth) {
    for (int i = 0; i < 50 && !HasFatalFailure(); ++i)
        expectEveryDepth();
}

INSTANTIATE_INSTRUCTION_SETS(Smooth);

} // namespace
} // namespace Tessaloom::BilateralBlur
