#pragma once

#include "Plugins/Shared/Math/Mat4.h"
#include "Plugins/Shared/Math/Quaternion.h"

#include <array>
#include <bit>

namespace Tessaloom::BilateralBlur {

/// What a red test prints of the toolkit's values: all of them are made of doubles.
template<typename Value>
requires(sizeof(Value) % sizeof(double) == 0) void PrintTo(const Value& value, std::ostream* out) {
    *out << testing::PrintToString(std::bit_cast<std::array<double, sizeof(Value) / sizeof(double)>>(value));
}

/// What a change, or a function that takes a value first, makes of the value.
template<typename Value, typename Change, typename... Arguments>
Value changed(Value value, Change change, Arguments&&... arguments) {
    std::invoke(change, value, arguments...);
    return value;
}

/// Random input for property tests, the same for the same seed.
class Random {
public:
    explicit Random(unsigned seed) : mEngine(seed) {}

    double between(double low, double high) { return low + (high - low) * mUnit(mEngine); }
    Vec2 vec2() { return {between(-2, 2), between(-2, 2)}; }
    Vec3 vec3() { return {between(-2, 2), between(-2, 2), between(-2, 2)}; }
    Vec4 vec4() { return {vec3(), between(-2, 2)}; }
    Mat4 mat4() { return {vec4(), vec4(), vec4(), vec4(), false}; }
    Quaternion rotation() {
        const Vec4 q = vec4();
        return changed(Quaternion(q.x, q.y, q.z, q.w), &Quaternion::normalize);
    }

private:
    std::mt19937 mEngine;
    std::uniform_real_distribution<double> mUnit{0.0, 1.0};
};

/// Runs a property over `rounds` seeds; a failure names its seed.
template<typename Property>
void forEachSeed(unsigned rounds, Property property) {
    for (unsigned seed = 1; seed <= rounds; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Random random(seed);
        property(random);
    }
}

} // namespace Tessaloom::BilateralBlur
