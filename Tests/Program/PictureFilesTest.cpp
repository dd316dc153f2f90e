// Pictures of every kind through the real program, compared sample by sample.

#include "Program/Files/Metadata.h"
#include "Program/Files/Picture.h"
#include "Tests/Program/Blur.h"
#include "Tests/Support/Oracle.h"

#include <gmock/gmock.h>

#include <cmath>
#include <map>
#include <set>
#include <sys/stat.h>
#include <thread>

namespace Tessaloom::BilateralBlur::Program::Test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
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

// What files hold beside the pixels

/// An image with metadata of all kinds that its format can hold.
void saveWithMetadata(const std::string& file) {
    save(shading(40, 30, 3).copy(VImage::option()->set("xres", 5.0)->set("yres", 5.0)), file,
         VImage::option()->set("strip", true));
    const auto image = Exiv2::ImageFactory::open(file);
    image->readMetadata();
    Exiv2::ExifData exif;
    exif["Exif.Image.Artist"] = "Somebody";
    exif["Exif.Image.Orientation"] = std::uint16_t(6);
    exif["Exif.Photo.FNumber"] = Exiv2::URational(28, 10);
    exif["Exif.GPSInfo.GPSLatitudeRef"] = "N";
    exif["Exif.Image.XResolution"] = Exiv2::URational(50, 1);
    exif["Exif.Image.YResolution"] = Exiv2::URational(50, 1);
    exif["Exif.Image.ResolutionUnit"] = std::uint16_t(3);
    Exiv2::IptcData iptc;
    iptc["Iptc.Application2.Caption"] = "caption";
    Exiv2::XmpData xmp;
    xmp["Xmp.xmp.Rating"] = "3";
    VipsBlob* profile = nullptr;
    ASSERT_EQ(vips_profile_load("p3", &profile, nullptr), 0);
    Exiv2::DataBuf icc(static_cast<const Exiv2::byte*>(profile->area.data), profile->area.length);
    vips_area_unref(&profile->area);
    if (file.ends_with(".jpg")) {
        const std::string thumbnail = contents(file);
        Exiv2::ExifThumb(exif).setJpegThumbnail(reinterpret_cast<const Exiv2::byte*>(thumbnail.data()),
                                                static_cast<long>(thumbnail.size()));
        image->setComment("comment");
    }
    if (image->checkMode(Exiv2::mdIptc) & Exiv2::amWrite)
        image->setIptcData(iptc);
    image->setExifData(exif);
    image->setXmpData(xmp);
    image->setIccProfile(icc);
    image->writeMetadata();
}

/// The kinds of metadata that a file has.
std::set<std::string> kindsIn(const std::string& file) {
    const auto image = Exiv2::ImageFactory::open(file);
    image->readMetadata();
    const Exiv2::ExifData& exif = image->exifData();
    std::set<std::string> kinds;
    for (const auto& [key, kind] : {std::pair("Exif.Image.Artist", "artist"),
                                    {"Exif.Photo.FNumber", "EXIF"},
                                    {"Exif.GPSInfo.GPSLatitudeRef", "GPS"},
                                    {"Exif.Thumbnail.Compression", "thumbnail"}})
        if (exif.findKey(Exiv2::ExifKey(key)) != exif.end())
            kinds.insert(kind);
    if (!image->iptcData().empty())
        kinds.insert("IPTC");
    if (!image->comment().empty())
        kinds.insert("comment");
    if (!image->xmpData().empty())
        kinds.insert("XMP");
    const VImage loaded = load(file);
    if (loaded.get_typeof(VIPS_META_ICC_NAME))
        kinds.insert("profile");
    if (loaded.get_typeof(VIPS_META_ORIENTATION) && loaded.get_int(VIPS_META_ORIENTATION) == 6)
        kinds.insert("orientation");
    // In a WebP, EXIF alone has a place for it.
    const auto density = exif.findKey(Exiv2::ExifKey("Exif.Image.XResolution"));
    if (file.ends_with(".webp") ? density != exif.end() && density->toLong() == 50
                                : std::abs(loaded.xres() - 5) < 0.01)
        kinds.insert("density");
    return kinds;
}

// The table of the manual page: every kind goes from each format to each, except what a format can't hold.
TEST(PictureFiles, KeepMetadataFromFormatToFormat) {
    const Folder folder;
    const std::set<std::string> all{"artist", "EXIF", "GPS", "orientation", "XMP", "profile", "density"};
    const std::map<std::string, std::set<std::string>> more{
        {".jpg", {"IPTC", "comment"}}, {".tif", {"IPTC"}}, {".webp", {}}, {".png", {}}};
    for (const char* extension : {".jpg", ".tif", ".webp"})
        saveWithMetadata(folder / (std::string("in") + extension));
    ASSERT_EQ(blur(folder / "in.jpg", folder / "in.png", 0).exitCode, 0);
    for (const auto& [from, fromMore] : more)
        for (const auto& [to, toMore] : more) {
            const std::string out = folder / ("out" + to);
            ASSERT_EQ(blur(folder / ("in" + from), out, 0).exitCode, 0);
            std::set<std::string> expected = all;
            std::set_intersection(fromMore.begin(), fromMore.end(), toMore.begin(), toMore.end(),
                                  std::inserter(expected, expected.end()));
            EXPECT_EQ(kindsIn(out), expected) << from << " to " << to;
        }
}

TEST(PictureFiles, GetNoMetadataThatTheInputLacks) {
    const Folder folder;
    save(shading(40, 30, 3), folder / "in.webp");
    // libvips puts EXIF into every WebP.
    Exiv2::ImageFactory::open(folder / "in.webp")->writeMetadata();
    for (const char* name : {"out.jpg", "out.png", "out.webp", "out.tif"}) {
        const std::string out = folder / name;
        ASSERT_EQ(blur(folder / "in.webp", out, 0).exitCode, 0);
        const auto image = Exiv2::ImageFactory::open(out);
        image->readMetadata();
        const Exiv2::ExifData& exif = image->exifData();
        EXPECT_EQ(exif.findKey(Exiv2::ExifKey("Exif.Image.XResolution")), exif.end()) << name;
        EXPECT_EQ(exif.empty(), !out.ends_with(".tif")) << name;
        EXPECT_THAT(contents(out), Not(HasSubstr("pHYs")));
    }
}

TEST(PictureFiles, KeepPngChunksAndTheFirstExif) {
    const Folder folder;
    save(shading(20, 20, 3), folder / "plain.png", VImage::option()->set("strip", true));
    const std::string plain = contents(folder / "plain.png");
    const std::string exif("II*\0\x8\0\0\0\1\0\x3b\1\2\0\3\0\0\0Me\0\0\0\0\0\0", 26);
    const std::string before = pngChunk("gAMA", std::string("\0\1\x86\xa0", 4)) +
                               pngChunk("bKGD", std::string("\0\x10\0\x20\0\x30", 6));
    const std::string after = pngChunk("iTXt", std::string("Title\0\0\0de\0Titel\0Stra\xc3\x9f\x65", 24)) +
                              pngChunk("tIME", std::string("\x7\xd0\1\2\3\4\5", 7)) +
                              pngChunk("tEXt", std::string("Author\0Me", 9));
    const std::size_t head = 33, end = plain.size() - 12;
    std::ofstream(folder / "in.png") << plain.substr(0, head) << before << pngChunk("eXIf", exif)
                                     << pngChunk("eXIf", exif) << plain.substr(head, end - head) << after
                                     << plain.substr(end);
    ASSERT_EQ(blur(folder / "in.png", folder / "out.png", 0).exitCode, 0);
    const std::string out = contents(folder / "out.png");
    EXPECT_THAT(out, HasSubstr(before));
    EXPECT_THAT(out, HasSubstr(after));
    EXPECT_THAT(out, HasSubstr(pngChunk("eXIf", exif)));
    EXPECT_EQ(out.find("eXIf"), out.rfind("eXIf"));
}

TEST(PictureFiles, FollowTheInputsCompression) {
    const Folder folder;
    const std::string in = folder / "in", out = folder / "out";
    const auto filter = [&](const std::string& extension, const VImage& image, const std::string& options) {
        image.write_to_file((in + extension + options).c_str());
        EXPECT_EQ(blur(in + extension, out + extension, 0).exitCode, 0);
        return contents(out + extension);
    };
    const auto tables = [](const std::string& jpeg) { return jpeg.substr(jpeg.find("\xff\xdb"), 138); };
    const VImage colours = shading(64, 64, 3), bilevel = shading(64, 64, 1) > 128;
    for (const char* options : {"[Q=60]", "[Q=85,subsample_mode=off]", "[Q=98]"}) {
        const std::string filtered = filter(".jpg", colours, options);
        EXPECT_EQ(tables(filtered), tables(contents(in + ".jpg"))) << options;
        EXPECT_STREQ(load(out + ".jpg").get_string("jpeg-chroma-subsample"),
                     load(in + ".jpg").get_string("jpeg-chroma-subsample"));
    }
    EXPECT_THAT(filter(".webp", colours, "[Q=80]"), Not(HasSubstr("VP8L")));
    EXPECT_THAT(filter(".webp", colours, "[lossless]"), HasSubstr("VP8L"));
    // One bit a pixel stays where the result still has no other values.
    for (const std::string extension : {".png", ".tif"}) {
        filter(extension, bilevel, "[bitdepth=1]");
        expectUnfiltered(bilevel, load(out + extension));
        EXPECT_EQ(PictureFile(out + extension).decode().pages[0].bits, 1);
    }
    filter(".png", colours, "[palette]");
    expectUnfiltered(load(in + ".png"), load(out + ".png"));
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

TEST(PictureFiles, KeepAllPagesAndFrames) {
    const Folder folder;
    VImage tall = shading(16, 12, 3).join(noise(16, 24, 3), VIPS_DIRECTION_VERTICAL).copy();
    tall.set(VIPS_META_PAGE_HEIGHT, 12);
    tall.set("delay", std::vector<int>{100, 50, 200});
    tall.set("loop", 3);
    const auto loadAll = [](const std::string& file) {
        return VImage::new_from_file(file.c_str(), VImage::option()->set("n", -1));
    };
    for (const std::string extension : {".tif", ".webp"}) {
        const std::string in = folder / ("in" + extension), out = folder / ("out" + extension);
        save(tall, in, extension == ".webp" ? VImage::option()->set("lossless", true) : nullptr);
        const Outcome outcome = blur(in, out, 0, {"--quiet"});
        EXPECT_EQ(outcome.out + outcome.err, "");
        expectUnfiltered(tall, loadAll(out));
        EXPECT_EQ(loadAll(out).get_int(VIPS_META_PAGE_HEIGHT), 12);
    }
    EXPECT_EQ(loadAll(folder / "out.webp").get_array_int("delay"), tall.get_array_int("delay"));
    EXPECT_EQ(loadAll(folder / "out.webp").get_int("loop"), 3);
    for (const char* in : {"in.tif", "in.webp"}) {
        ASSERT_EQ(blur(folder / in, folder / "page.png", 0, {"--page", "2"}).exitCode, 0);
        expectUnfiltered(tall.crop(0, 12, 16, 12), load(folder / "page.png"));
    }
}

TEST(PictureFiles, KeepPagesOfDifferentSizesAndKinds) {
    const Folder folder;
    Picture written;
    written.pages.resize(6);
    written.format = formatNamed("tiff");
    written.metadata = std::make_shared<Metadata>();
    for (int i = 0; i < 6; ++i) {
        Page& page = written.pages[i];
        page.world = Host::World(page.width = 5 + i, page.height = 9 - i);
        page.channels = 1 + i % 4;
        page.texts = {{285, "page " + std::to_string(i)}}; // the tag PageName
    }
    const Bytes bytes = encodePicture(written, *written.format, "in.tif");
    std::ofstream(folder / "in.tif").write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    ASSERT_EQ(blur(folder / "in.tif", folder / "out.tif", 0).exitCode, 0);
    const Picture read = PictureFile(folder / "out.tif").decode();
    ASSERT_EQ(read.pages.size(), written.pages.size());
    for (int i = 0; i < 6; ++i) {
        EXPECT_TRUE(read.pages[i].world.sameShape(written.pages[i].world)) << i;
        EXPECT_EQ(read.pages[i].channels, 1 + i % 4);
        EXPECT_EQ(read.pages[i].texts, written.pages[i].texts);
    }
}

TEST(PictureFiles, AreReadFromPipes) {
    const Folder folder;
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string extension : {".png", ".jpg", ".tif", ".webp"}) {
        const std::string in = folder / ("in" + extension), out = folder / ("out" + extension);
        save(noise(90, 80, 3), in);
        ASSERT_EQ(blur(in, out, 0).exitCode, 0);
        for (const std::string& input : {pipe, std::string("-"), std::string("/dev/stdin")}) {
            const std::jthread writer([&] { std::ofstream(pipe) << contents(in); });
            const std::string piped = folder / ("piped" + extension);
            const Outcome outcome = ProcessRun(command(input, piped, 0), [&] {
                                        if (input != pipe)
                                            dup2(open(pipe.c_str(), O_RDONLY), STDIN_FILENO);
                                    }).wait();
            ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
            EXPECT_EQ(contents(piped), contents(out)) << input << extension;
        }
    }
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Program::Test
