// Pictures of every kind through the real program, compared sample by sample.

#include "Tests/Program/Blur.h"
#include "Tests/Support/Oracle.h"

#include <gmock/gmock.h>

#include <cmath>

namespace Tessaloom::BilateralBlur::Program::Test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using vips::VImage;

template<class Sample = double>
std::vector<Sample> samples(const VImage& image, VipsBandFormat format = VIPS_FORMAT_DOUBLE) {
    std::size_t size = 0;
    auto* data = static_cast<Sample*>(image.cast(format).write_to_memory(&size));
    const std::vector<Sample> samples(data, data + size / sizeof(Sample));
    g_free(data);
    return samples;
}

/// A frame at scale 0: colours as far as the 8 bits of the premultiplied picture carry them, and `loss` on
/// top of that.
void expectUnfiltered(const VImage& in, const VImage& out, double loss = 0) {
    ASSERT_EQ(std::tuple(in.width(), in.height(), in.bands(), in.format()),
              std::tuple(out.width(), out.height(), out.bands(), out.format()));
    const int unit = in.format() == VIPS_FORMAT_USHORT ? 257 : 1, last = in.bands() - 1;
    const bool hasAlpha = in.bands() % 2 == 0;
    const std::vector<double> before = samples(in), after = samples(out);
    for (std::size_t i = 0; i < before.size(); ++i) {
        const int channel = static_cast<int>(i % in.bands());
        const double alpha = hasAlpha ? std::round(before[i - channel + last] / unit) : 255;
        const double wanted = alpha == 0 ? 0 : std::round(before[i] / unit);
        const double allowed = alpha == 0 ? 0 : hasAlpha && channel == last ? 1 : 255 / alpha;
        ASSERT_NEAR(after[i] / unit, wanted, allowed + loss) << "sample " << i << ", alpha " << alpha;
        ASSERT_EQ(std::fmod(after[i], unit), 0);
    }
}

/// Sends pictures with these numbers of channels as frames of a sequence through scale 0 and compares.
void sendThrough(const std::string& ending, const std::vector<int>& kinds, bool deep = false) {
    SCOPED_TRACE(ending);
    const Folder folder;
    const bool lossy = ending == ".jpg";
    for (const int channels : kinds)
        save(lossy ? shading(53, 31, channels) : noise(53 - channels, 31 + channels, channels, 7, deep),
             folder / (std::to_string(channels) + ending),
             ending == ".webp" ? VImage::option()->set("lossless", true) : nullptr);
    const Outcome outcome = blur(folder / ("#" + ending), folder / ("out%d" + ending), 0);
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(outcome.err.find("16-bit input") != std::string::npos, deep) << outcome.err;
    for (const int channels : kinds) {
        const std::string name = std::to_string(channels) + ending;
        expectUnfiltered(load(folder / name), load(folder / ("out" + name)), lossy ? 3 : 0);
    }
}

TEST(PictureFiles, OfEveryKindKeepTheirKindAndColours) {
    for (const std::string ending : {".png", ".tif"})
        for (const bool deep : {false, true})
            sendThrough(ending, {1, 2, 3, 4}, deep);
    sendThrough(".webp", {3, 4});
    sendThrough(".jpg", {1, 3});
}

TEST(PictureFiles, AreFilteredAsTheFormulasSay) {
    const Folder folder;
    const VImage image = (noise(41, 37, 4) / 9 + 110).cast(VIPS_FORMAT_UCHAR);
    save(image, folder / "in.png");
    ASSERT_EQ(blur(folder / "in.png", folder / "out.tif", 20).exitCode, 0);
    const auto argb = [](const VImage& rgba) {
        return rgba[3].bandjoin(rgba.extract_band(0, VImage::option()->set("n", 3)));
    };
    const auto in = samples<std::uint8_t>(argb(image), VIPS_FORMAT_UCHAR);
    const std::vector<double> out = samples(argb(load(folder / "out.tif")));
    const std::vector<double> wanted = Oracle::effect(in.data(), 41, 37, 41 * 4, 20);
    ASSERT_EQ(out.size(), wanted.size());
    for (std::size_t i = 0; i < out.size(); ++i)
        ASSERT_NEAR(out[i], wanted[i], i % 4 == 0 ? 1 : 255 / wanted[i - i % 4] + 1) << i;
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
    VImage image = shading(40, 30, 3).copy(VImage::option()->set("xres", 4.0)->set("yres", 5.0));
    image.set(VIPS_META_ICC_NAME, nullptr, profile->area.data, profile->area.length);
    std::string xmp = "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">kept</x:xmpmeta>";
    image.set(VIPS_META_XMP_NAME, nullptr, xmp.data(), xmp.size());
    image.set(VIPS_META_ORIENTATION, 6);
    image.set("exif-ifd0-Artist", "Somebody (Somebody, ASCII, 9 components, 9 bytes)");
    save(image, folder / "0.jpg");
    const VImage before = load(folder / "0.jpg");
    using Way = std::vector<std::string>;
    for (const Way& way :
         {Way{"0.jpg", "1.png", "2.webp", "3.png", "4.jpg"}, {"0.jpg", "5.tif", "6.tif", "7.png", "8.jpg"}}) {
        for (std::size_t i = 1; i < way.size(); ++i)
            ASSERT_EQ(blur(folder / way[i - 1], folder / way[i], 7).exitCode, 0);
        const VImage after = load(folder / way.back());
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

TEST(PictureFiles, CarryTheColourChunksOfPngAndThePicturesOfPalettes) {
    const Folder folder;
    save(shading(20, 20, 3), folder / "plain.png", VImage::option()->set("palette", true));
    const std::string plain = contents(folder / "plain.png");
    // gAMA of 1.0, with the checksum that its definition gives.
    const std::string gamma("\0\0\0\4gAMA\0\1\x86\xa0\x31\xe8\x96\x5f", 16);
    std::ofstream(folder / "in.png") << plain.substr(0, 33) + gamma + plain.substr(33);
    ASSERT_EQ(blur(folder / "in.png", folder / "out.png", 0).exitCode, 0);
    EXPECT_EQ(contents(folder / "out.png").substr(33, gamma.size()), gamma);
    expectUnfiltered(load(folder / "in.png"), load(folder / "out.png"));
}

TEST(PictureFiles, ReplaceAnOldOutputWithItsPermissionsAndBehindItsLink) {
    const Folder folder;
    const std::string in = folder / "in.png", link = folder / "out.png", real = folder / "real";
    save(shading(20, 20, 3), in);
    std::ofstream{real} << "old";
    std::filesystem::permissions(real, std::filesystem::perms(0640));
    std::filesystem::create_symlink("real", link);
    // The second time, the picture replaces itself.
    for (const std::string& out : {link, in})
        ASSERT_EQ(blur(in, out, 0).exitCode, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(std::filesystem::status(real).permissions(), std::filesystem::perms(0640));
    expectUnfiltered(load(in), load(real));
    EXPECT_THAT(folder.names(), ElementsAre("in.png", "out.png", "real"));
}

TEST(PictureFiles, WithSeveralPagesGiveTheFirstAndSayNothingWithQuiet) {
    const Folder folder;
    const std::string in = folder / "in.tif", out = folder / "out.tif";
    const VImage first = shading(16, 12, 3);
    save(first.join(noise(16, 12, 3), VIPS_DIRECTION_VERTICAL), in, VImage::option()->set("page_height", 12));
    EXPECT_THAT(blur(in, out, 0).err, HasSubstr("only the first of 2 pages"));
    expectUnfiltered(first, load(out));
    const Outcome quiet = blur(in, out, 0, {"--quiet"});
    EXPECT_EQ(quiet.out + quiet.err, "");
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Program::Test
