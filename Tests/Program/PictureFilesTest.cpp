// Pictures of every kind through the real program, compared sample by sample.

#include "Tests/BilateralBlur/Oracle.h"
#include "Tests/Program/ProgramRun.h"
#include "Tests/Program/TestPictures.h"

#include <gmock/gmock.h>

#include <cmath>
#include <sys/stat.h>

namespace Tessaloom::BilateralBlur::Program::Test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using vips::VImage;

unsigned to8(std::uint8_t sample) {
    return sample;
}
unsigned to8(std::uint16_t sample) {
    return static_cast<unsigned>(std::lround(sample / 257.0));
}

/// A frame at scale 0: colours as far as the 8 bits of the premultiplied picture carry them.
template<class Sample>
void expectUnfiltered(const Samples<Sample>& in, const Samples<Sample>& out, const std::string& what) {
    ASSERT_EQ(std::tie(in.width, in.height, in.channels), std::tie(out.width, out.height, out.channels))
        << what;
    const bool hasAlpha = in.channels % 2 == 0;
    for (int y = 0; y < in.height; ++y)
        for (int x = 0; x < in.width; ++x) {
            const int last = in.channels - 1;
            const double alpha = hasAlpha ? to8(in.at(x, y, last)) : 255;
            for (int channel = 0; channel < in.channels; ++channel) {
                const double wanted = alpha == 0 ? 0 : to8(in.at(x, y, channel));
                const bool isAlpha = hasAlpha && channel == last;
                const double allowed = alpha == 0 ? 0 : isAlpha || alpha == 255 ? 1 : 255 / alpha;
                ASSERT_NEAR(to8(out.at(x, y, channel)), wanted, allowed)
                    << what << ", pixel " << x << "," << y << ", channel " << channel << ", alpha " << alpha;
                ASSERT_EQ(out.at(x, y, channel) % (sizeof(Sample) == 2 ? 257 : 1), 0u);
            }
        }
}

/// Sends a picture of each kind as a frame of a sequence through scale 0 and compares.
template<class Sample>
void sendThrough(const Folder& folder, const std::string& ending, const std::vector<int>& channels) {
    std::vector<Samples<Sample>> pictures;
    for (std::size_t i = 0; i < channels.size(); ++i) {
        pictures.push_back(noise<Sample>(53 - i, 31 + i, channels[i], 7 + i));
        pictures[i].save(folder / (std::to_string(i) + ending),
                         ending == ".webp" ? VImage::option()->set("lossless", true) : nullptr);
    }
    const Outcome outcome =
        runProgram({folder / ("#" + ending), folder / ("out#" + ending), "--blur-scale", "0"});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(outcome.err.find("16 are rounded") != std::string::npos, sizeof(Sample) == 2) << outcome.err;
    for (std::size_t i = 0; i < pictures.size(); ++i) {
        const std::string name = "out" + std::to_string(i) + ending;
        expectUnfiltered(pictures[i], load<Sample>(folder / name), name);
    }
}

TEST(PictureFiles, OfEveryKindKeepTheirKindAndColours) {
    for (const std::string ending : {".png", ".tif"}) {
        sendThrough<std::uint8_t>(Folder(), ending, {1, 2, 3, 4});
        sendThrough<std::uint16_t>(Folder(), ending, {1, 2, 3, 4});
    }
    sendThrough<std::uint8_t>(Folder(), ".webp", {3, 4});
}

TEST(PictureFiles, OfLossyTypesAndPalettesKeepTheirColours) {
    const Folder folder;
    shading(64, 48, 1).save(folder / "1.jpg");
    shading(64, 48, 3).save(folder / "3.jpg");
    ASSERT_EQ(runProgram({folder / "#.jpg", folder / "out%d.jpeg", "--blur-scale", "0"}).exitCode, 0);
    for (const std::string number : {"1", "3"}) {
        const auto in = load<std::uint8_t>(folder / (number + ".jpg"));
        const auto out = load<std::uint8_t>(folder / ("out" + number + ".jpeg"));
        ASSERT_EQ(in.channels, out.channels);
        for (std::size_t i = 0; i < in.values.size(); ++i)
            ASSERT_NEAR(in.values[i], out.values[i], 4);
    }
    shading(64, 48, 3).save(folder / "in.png", VImage::option()->set("palette", true));
    ASSERT_EQ(runProgram({folder / "in.png", folder / "out.tif", "--blur-scale", "0"}).exitCode, 0);
    expectUnfiltered(load<std::uint8_t>(folder / "in.png"), load<std::uint8_t>(folder / "out.tif"),
                     "palette");
}

TEST(PictureFiles, AreFilteredAsTheFormulasSay) {
    constexpr int kScale = 20;
    const Folder folder;
    auto picture = noise<std::uint8_t>(41, 37, 4, 3);
    for (auto& value : picture.values)
        value = static_cast<std::uint8_t>(110 + value % 30);
    picture.save(folder / "in.png");
    ASSERT_EQ(
        runProgram({folder / "in.png", folder / "out.png", "--blur-scale", std::to_string(kScale)}).exitCode,
        0);
    const auto out = load<std::uint8_t>(folder / "out.png");
    std::vector<std::uint8_t> argb;
    for (std::size_t i = 0; i < picture.values.size(); i += 4)
        argb.insert(argb.end(),
                    {picture.values[i + 3], picture.values[i], picture.values[i + 1], picture.values[i + 2]});
    const std::vector<double> wanted = Oracle::effect(argb.data(), 41, 37, 41 * 4, kScale);
    for (std::size_t i = 0; i < out.values.size(); i += 4) {
        ASSERT_NEAR(out.values[i + 3], wanted[i], 1);
        for (int channel = 0; channel < 3; ++channel)
            ASSERT_NEAR(out.values[i + channel], wanted[i + 1 + channel], 255 / wanted[i] + 1) << i;
    }
}

std::string fieldText(const VImage& image, const char* field) {
    char* text = nullptr;
    if (vips_image_get_typeof(image.get_image(), field) == 0 ||
        vips_image_get_as_string(image.get_image(), field, &text) != 0)
        return "";
    const std::string copy = text;
    g_free(text);
    return copy;
}

// From type to type and back. The library that reads and writes the files knows no EXIF in PNG, and in TIFF
// of its fields the orientation alone.
TEST(PictureFiles, KeepWhatLiesBesideThePixels) {
    const Folder folder;
    VipsBlob* profile = nullptr;
    ASSERT_EQ(vips_profile_load("p3", &profile, nullptr), 0);
    VImage image = shading(40, 30, 3).image().copy(VImage::option()->set("xres", 4.0)->set("yres", 5.0));
    image.set(VIPS_META_ICC_NAME, nullptr, profile->area.data, profile->area.length);
    std::string xmp = "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">kept</x:xmpmeta>";
    image.set(VIPS_META_XMP_NAME, nullptr, xmp.data(), xmp.size());
    image.set(VIPS_META_ORIENTATION, 6);
    image.set("exif-ifd0-Artist", "Somebody (Somebody, ASCII, 9 components, 9 bytes)");
    image.write_to_file((folder / "0.jpg").c_str());
    for (const std::vector<std::string>& way :
         {std::vector<std::string>{"0.jpg", "1.png", "2.webp", "3.png", "4.jpg"},
          {"0.jpg", "5.tif", "6.tif", "7.png", "8.jpg"}}) {
        for (std::size_t i = 1; i < way.size(); ++i)
            ASSERT_EQ(runProgram({folder / way[i - 1], folder / way[i], "--blur-scale", "7"}).exitCode, 0);
        const VImage before = VImage::new_from_file((folder / "0.jpg").c_str());
        const VImage after = VImage::new_from_file((folder / way.back()).c_str());
        EXPECT_EQ(after.width(), 40) << "turned";
        EXPECT_NEAR(before.xres(), after.xres(), 0.02);
        EXPECT_NEAR(before.yres(), after.yres(), 0.02);
        for (const char* field :
             {VIPS_META_ICC_NAME, VIPS_META_XMP_NAME, VIPS_META_ORIENTATION, "exif-ifd2-PixelXDimension"})
            EXPECT_EQ(fieldText(after, field), fieldText(before, field)) << field << way.back();
        EXPECT_THAT(fieldText(after, "exif-ifd0-Artist"), HasSubstr(way[1] == "5.tif" ? "" : "Somebody"));
    }
    vips_area_unref(reinterpret_cast<VipsArea*>(profile));
}

TEST(PictureFiles, CarryTheColourChunksOfPng) {
    const Folder folder;
    shading(20, 20, 1).save(folder / "plain.png");
    const std::string plain = contents(folder / "plain.png");
    // gAMA of 1.0, with the checksum that its definition gives.
    const std::string gamma("\0\0\0\4gAMA\0\1\x86\xa0\x31\xe8\x96\x5f", 16);
    std::ofstream(folder / "in.png") << plain.substr(0, 33) + gamma + plain.substr(33);
    ASSERT_EQ(runProgram({folder / "in.png", folder / "out.png", "--blur-scale", "0"}).exitCode, 0);
    EXPECT_EQ(contents(folder / "out.png").substr(33, gamma.size()), gamma);
    expectUnfiltered(load<std::uint8_t>(folder / "in.png"), load<std::uint8_t>(folder / "out.png"), "gamma");
}

TEST(PictureFiles, ReplaceAnOldOutputWithItsPermissionsAndBehindItsLink) {
    const Folder folder;
    shading(20, 20, 3).save(folder / "in.png");
    std::filesystem::create_directory(folder / "real");
    std::ofstream(folder / "real/out.png") << "old";
    std::filesystem::permissions(folder / "real/out.png", std::filesystem::perms(0640));
    std::filesystem::create_symlink("real/out.png", folder / "out.png");
    ASSERT_EQ(runProgram({folder / "in.png", folder / "out.png", "--blur-scale", "0"}).exitCode, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "out.png"));
    EXPECT_EQ(std::filesystem::status(folder / "real/out.png").permissions(), std::filesystem::perms(0640));
    expectUnfiltered(load<std::uint8_t>(folder / "in.png"), load<std::uint8_t>(folder / "real/out.png"),
                     "link");
    // The picture may replace itself.
    ASSERT_EQ(runProgram({folder / "in.png", folder / "in.png", "--blur-scale", "0"}).exitCode, 0);
    EXPECT_THAT(folder.names(), ElementsAre("in.png", "out.png", "real"));
}

TEST(PictureFiles, WithSeveralPagesGiveTheFirst) {
    const Folder folder;
    const auto first = shading(16, 12, 3), second = noise<std::uint8_t>(16, 12, 3, 9);
    first.image()
        .join(second.image(), VIPS_DIRECTION_VERTICAL)
        .write_to_file((folder / "in.tif").c_str(), VImage::option()->set("page_height", 12));
    const Outcome outcome = runProgram({folder / "in.tif", folder / "out.tif", "--blur-scale", "0"});
    ASSERT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.err, HasSubstr("of 2 pages the first alone"));
    expectUnfiltered(first, load<std::uint8_t>(folder / "out.tif"), "first page");
}

TEST(Program, TellsWhatTheModuleDeclares) {
    EXPECT_EQ(runProgram({"--about"}).out, "Bilateral Blur v1.0\nBilateral Blur\n");
    EXPECT_THAT(runProgram({"--help"}).out, HasSubstr("Blur Scale, a whole number, 0 to 60"));
    EXPECT_EQ(runProgram({"--version"}).out, "bilateral-blur " BILATERAL_BLUR_VERSION "\n");
}

TEST(Program, PrintsNothingWithQuiet) {
    const Folder folder;
    noise<std::uint16_t>(20, 20, 3, 1).save(folder / "in.png");
    const Outcome outcome =
        runProgram({folder / "in.png", folder / "out.png", "--blur-scale", "5", "--quiet"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.out + outcome.err, "");
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Program::Test
