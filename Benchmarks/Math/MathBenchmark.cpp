// The hot operations of the toolkit beside the same work in GLM, over arrays too long for the compiler to see
// through. The aim is at most twice GLM's time.

#include "Plugins/Shared/Math/Affine.h"
#include "Plugins/Shared/Math/Mat4.h"
#include "Plugins/Shared/Math/Quaternion.h"

#include <benchmark/benchmark.h>
#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>

#include <random>
#include <vector>

namespace Tessaloom::BilateralBlur {
namespace {

constexpr int kCount = 1024;

double randomNumber() {
    static std::mt19937 kEngine(1);
    return std::uniform_real_distribution<double>(-2.0, 2.0)(kEngine);
}

Mat4 randomMatrix() {
    Mat4 matrix;
    for (double& element : matrix.m)
        element = randomNumber();
    return matrix;
}

glm::dmat4 randomGlmMatrix() {
    glm::dmat4 matrix;
    for (int column = 0; column < 4; ++column)
        for (int row = 0; row < 4; ++row)
            matrix[column][row] = randomNumber();
    return matrix;
}

Quaternion randomRotation() {
    Quaternion q(randomNumber(), randomNumber(), randomNumber(), randomNumber());
    q.normalize();
    return q;
}

glm::dquat randomGlmRotation() {
    return glm::normalize(glm::dquat(randomNumber(), randomNumber(), randomNumber(), randomNumber()));
}

// Runs `step(i)` over all places of the arrays that it works on.
template<class Step>
void overArray(benchmark::State& state, Step step) {
    for (auto _ : state) {
        for (int i = 0; i < kCount; ++i)
            step(i);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kCount);
}

template<class Value>
std::vector<Value> filled(Value (*make)()) {
    std::vector<Value> values;
    for (int i = 0; i < kCount; ++i)
        values.push_back(make());
    return values;
}

void mat4Mult(benchmark::State& state) {
    const auto a = filled(randomMatrix), b = filled(randomMatrix);
    std::vector<Mat4> out(kCount);
    overArray(state, [&](int i) { Mat4::mult(a[i], b[i], out[i]); });
}
BENCHMARK(mat4Mult);

void glmMult(benchmark::State& state) {
    const auto a = filled(randomGlmMatrix), b = filled(randomGlmMatrix);
    std::vector<glm::dmat4> out(kCount);
    overArray(state, [&](int i) { out[i] = a[i] * b[i]; });
}
BENCHMARK(glmMult);

void mat4GetInverse(benchmark::State& state) {
    const auto a = filled(randomMatrix);
    std::vector<Mat4> out(kCount);
    overArray(state, [&](int i) { a[i].getInverse(out[i]); });
}
BENCHMARK(mat4GetInverse);

void glmInverse(benchmark::State& state) {
    const auto a = filled(randomGlmMatrix);
    std::vector<glm::dmat4> out(kCount);
    overArray(state, [&](int i) { out[i] = glm::inverse(a[i]); });
}
BENCHMARK(glmInverse);

void quaternionSlerp(benchmark::State& state) {
    const auto a = filled(randomRotation), b = filled(randomRotation);
    std::vector<Quaternion> out(kCount);
    overArray(state, [&](int i) {
        out[i] = a[i];
        out[i].slerp(b[i], 0.3);
    });
}
BENCHMARK(quaternionSlerp);

void glmSlerp(benchmark::State& state) {
    const auto a = filled(randomGlmRotation), b = filled(randomGlmRotation);
    std::vector<glm::dquat> out(kCount);
    overArray(state, [&](int i) { out[i] = glm::slerp(a[i], b[i], 0.3); });
}
BENCHMARK(glmSlerp);

Vec2 randomPoint() {
    return {randomNumber(), randomNumber()};
}

glm::dvec2 randomGlmPoint() {
    return {randomNumber(), randomNumber()};
}

void affineTransform(benchmark::State& state) {
    const Affine matrix(0.8, 0.6, -0.6, 0.8, 3, 4);
    auto points = filled(randomPoint);
    overArray(state, [&](int i) { matrix.transform(points[i]); });
}
BENCHMARK(affineTransform);

void glmTransform(benchmark::State& state) {
    const glm::dmat3x2 matrix(0.8, 0.6, -0.6, 0.8, 3, 4);
    auto points = filled(randomGlmPoint);
    overArray(state, [&](int i) { points[i] = matrix * glm::dvec3(points[i], 1); });
}
BENCHMARK(glmTransform);

} // namespace
} // namespace Tessaloom::BilateralBlur
