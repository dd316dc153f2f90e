#pragma once

#include <vips/vips8>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program::Test {

/// A picture for the tests: samples side by side, row after row.
template<class Sample>
struct Samples {
    int width, height, channels;
    std::vector<Sample> values;

    Sample at(int x, int y, int channel) const { return values[(y * width + x) * channels + channel]; }

    vips::VImage image() const {
        constexpr bool kDeep = sizeof(Sample) == 2;
        const auto grey = kDeep ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_B_W;
        const auto colour = kDeep ? VIPS_INTERPRETATION_RGB16 : VIPS_INTERPRETATION_sRGB;
        return vips::VImage::new_from_memory(const_cast<Sample*>(values.data()),
                                             values.size() * sizeof(Sample), width, height, channels,
                                             kDeep ? VIPS_FORMAT_USHORT : VIPS_FORMAT_UCHAR)
            .copy(vips::VImage::option()->set("interpretation", channels < 3 ? grey : colour))
            .copy_memory();
    }

    void save(const std::string& file, vips::VOption* options = nullptr) const {
        image().write_to_file(file.c_str(), options);
    }
};

/// Independent noise; with the lowest and the highest value among the alphas in good number.
template<class Sample>
Samples<Sample> noise(int width, int height, int channels, unsigned seed) {
    Samples<Sample> samples{width, height, channels, {}};
    std::mt19937 random(seed);
    const auto full = static_cast<Sample>(~Sample{0});
    for (int i = 0; i < width * height; ++i)
        for (int channel = 0; channel < channels; ++channel) {
            const auto value = static_cast<Sample>(random());
            const bool isAlpha = channels % 2 == 0 && channel == channels - 1;
            const unsigned chosen = random() % 4;
            samples.values.push_back(!isAlpha || chosen > 1 ? value : chosen == 0 ? Sample{0} : full);
        }
    return samples;
}

/// Smooth shading, which survives JPEG.
inline Samples<std::uint8_t> shading(int width, int height, int channels) {
    Samples<std::uint8_t> samples{width, height, channels, {}};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int channel = 0; channel < channels; ++channel)
                samples.values.push_back(
                    static_cast<std::uint8_t>(40 + 150 * x / width + 40 * y / height + channel));
    return samples;
}

/// What a file holds, decoded as it stands. Throws for a file that is cut short.
template<class Sample>
Samples<Sample> load(const std::string& file) {
    const vips::VImage image = vips::VImage::new_from_file(
        file.c_str(), vips::VImage::option()->set("fail_on", VIPS_FAIL_ON_TRUNCATED));
    std::size_t size = 0;
    auto* data = static_cast<Sample*>(image.write_to_memory(&size));
    Samples<Sample> samples{
        image.width(), image.height(), image.bands(), {data, data + size / sizeof(Sample)}};
    g_free(data);
    return samples;
}

} // namespace Tessaloom::BilateralBlur::Program::Test
