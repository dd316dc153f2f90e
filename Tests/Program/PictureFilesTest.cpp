// Pictures of every kind through the real program, compared sample by sample.

#include "Program/Files/Metadata.h"
#include "Program/Files/Picture.h"
#include "Program/OutputFile.h"
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

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using vips::VImage;

std::vector<double> samples(const VImage& image) {
    const VImage memory = image.cast(VIPS_FORMAT_DOUBLE).copy_memory();
    const auto* data = static_cast<const double*>(memory.data());
    return {data, data + std::size_t(memory.width()) * memory.height() * memory.bands()};
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
        return samples(rgba[3].bandjoin(rgba.extract_band(0, VImage::option()->set("n", 3))));
    };
    const std::vector<double> before = argb(image), out = argb(load(folder / "out.tif"));
    const std::vector<std::uint8_t> in(before.begin(), before.end());
    const std::vector<double> wanted = Oracle::effect(in.data(), 41, 37, 41 * 4, 20);
    ASSERT_EQ(out.size(), wanted.size());
    for (std::size_t i = 0; i < out.size(); ++i)
        ASSERT_NEAR(out[i], wanted[i], i % 4 == 0 ? 1 : 255 / wanted[i - i % 4] + 1) << i;
}

// What files hold beside the pixels

const std::pair<const char*, const char*> kExif[] = {
    {"Exif.Image.Artist", "Somebody"},
    {"Exif.Image.Orientation", "6"},
    {"Exif.Photo.FNumber", "28/10"},
    {"Exif.GPSInfo.GPSLatitudeRef", "N"},
};

/// An image with metadata of all kinds that its format can hold.
void saveWithMetadata(const std::string& file) {
    save(shading(40, 30, 3).copy(VImage::option()->set("xres", 5.0)->set("yres", 7.0)), file,
         VImage::option()->set("profile", "p3"));
    const std::string thumbnail = contents(file);
    const auto image = Exiv2::ImageFactory::open(file);
    image->readMetadata();
    Exiv2::ExifData& exif = image->exifData();
    for (const auto& [key, value] : kExif)
        exif[key] = std::string(value);
    exif["Exif.Image.XResolution"] = std::string("50/1");
    exif["Exif.Image.YResolution"] = std::string("70/1");
    exif["Exif.Image.ResolutionUnit"] = std::string("3");
    if (file.ends_with(".jpg")) {
        Exiv2::ExifThumb(exif).setJpegThumbnail(reinterpret_cast<const Exiv2::byte*>(thumbnail.data()),
                                                static_cast<long>(thumbnail.size()));
        image->setComment("comment");
    }
    if (image->checkMode(Exiv2::mdIptc) & Exiv2::amWrite)
        image->iptcData()["Iptc.Application2.Caption"] = "caption";
    image->xmpData()["Xmp.xmp.Rating"] = "3";
    image->writeMetadata();
}

/// The kinds of metadata that a file has.
std::set<std::string> kindsIn(const std::string& file) {
    const auto image = Exiv2::ImageFactory::open(file);
    image->readMetadata();
    const Exiv2::ExifData& exif = image->exifData();
    const VImage loaded = load(file);
    // In a WebP, EXIF alone has a place for the density.
    const auto dotsAre = [&](const char* key, int number) {
        const auto field = exif.findKey(Exiv2::ExifKey(key));
        return field != exif.end() && field->toLong() == number;
    };
    const bool isDense = file.ends_with(".webp")
                             ? dotsAre("Exif.Image.XResolution", 50) && dotsAre("Exif.Image.YResolution", 70)
                             : std::abs(loaded.xres() - 5) < 0.01 && std::abs(loaded.yres() - 7) < 0.01;
    std::map<std::string, bool> kinds{
        {"IPTC", !image->iptcData().empty()},
        {"XMP", !image->xmpData().empty()},
        {"comment", !image->comment().empty()},
        {"density", isDense},
        {"profile", loaded.get_typeof(VIPS_META_ICC_NAME) != 0},
        {"thumbnail", exif.findKey(Exiv2::ExifKey("Exif.Thumbnail.Compression")) != exif.end()},
    };
    for (const auto& [key, value] : kExif) {
        const auto field = exif.findKey(Exiv2::ExifKey(key));
        kinds[key] = field != exif.end() && field->toString() == value;
    }
    std::set<std::string> present;
    for (const auto& [kind, isPresent] : kinds)
        if (isPresent)
            present.insert(kind);
    return present;
}

// The table of the manual page: every kind goes from each format to each, except what a format can't hold and
// the thumbnail, which shows the unfiltered image.
TEST(PictureFiles, KeepMetadataFromFormatToFormat) {
    const Folder folder;
    std::set<std::string> all{"XMP", "density", "profile"};
    for (const auto& [key, value] : kExif)
        all.insert(key);
    const std::map<std::string, std::set<std::string>> more{
        {".jpg", {"IPTC", "comment"}}, {".tif", {"IPTC"}}, {".webp", {}}, {".png", {}}};
    for (const char* name : {"in.jpg", "in.tif", "in.webp"})
        saveWithMetadata(folder / name);
    ASSERT_EQ(kindsIn(folder / "in.jpg").count("thumbnail"), 1u);
    ASSERT_EQ(blur(folder / "in.jpg", folder / "in.png", 0).exitCode, 0);
    for (const auto& [from, fromMore] : more)
        for (const auto& [to, toMore] : more) {
            ASSERT_EQ(blur(folder / ("in" + from), folder / ("out" + to), 0).exitCode, 0);
            std::set<std::string> expected = all;
            std::set_intersection(fromMore.begin(), fromMore.end(), toMore.begin(), toMore.end(),
                                  std::inserter(expected, expected.end()));
            EXPECT_EQ(kindsIn(folder / ("out" + to)), expected) << from << " to " << to;
        }
}

TEST(PictureFiles, GetNoMetadataThatTheInputLacks) {
    const Folder folder;
    save(shading(40, 30, 3), folder / "in.webp");
    // libvips puts EXIF into every WebP.
    Exiv2::ImageFactory::open(folder / "in.webp")->writeMetadata();
    for (const char* name : {"out.jpg", "out.png", "out.webp", "out.tif"}) {
        ASSERT_EQ(blur(folder / "in.webp", folder / name, 0).exitCode, 0);
        const auto image = Exiv2::ImageFactory::open(folder / name);
        image->readMetadata();
        Exiv2::ExifData& exif = image->exifData();
        EXPECT_EQ(exif["Exif.Image.XResolution"].count(), 0) << name;
        EXPECT_THAT(contents(folder / name), Not(AnyOf(HasSubstr("pHYs"), HasSubstr("Exif")))) << name;
    }
}

TEST(PictureFiles, KeepPngChunksAndTheFirstExif) {
    const Folder folder;
    save(shading(20, 20, 3), folder / "plain.png", VImage::option()->set("strip", true));
    const std::string plain = contents(folder / "plain.png"), head = plain.substr(0, 33);
    const std::string body = plain.substr(33, plain.size() - 45), end = plain.substr(plain.size() - 12);
    const std::string exif =
        pngChunk("eXIf", std::string("II*\0\x8\0\0\0\1\0\x3b\1\2\0\3\0\0\0Me\0\0\0\0\0\0", 26));
    const std::string before = pngChunk("gAMA", std::string("\0\1\x86\xa0", 4)) +
                               pngChunk("bKGD", std::string("\0\x10\0\x20\0\x30", 6));
    const std::string after = pngChunk("iTXt", std::string("Title\0\0\0de\0Titel\0Stra\xc3\x9f\x65", 24)) +
                              pngChunk("tIME", std::string("\x7\xd0\1\2\3\4\5", 7));
    std::ofstream(folder / "in.png") << head << before << exif << exif << body << after << end;
    ASSERT_EQ(blur(folder / "in.png", folder / "out.png", 0).exitCode, 0);
    const std::string out = contents(folder / "out.png");
    for (const std::string& kept : {before, exif, after})
        EXPECT_THAT(out, HasSubstr(kept));
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
    // The quantisation tables and the channels' sampling, without what a format or program adds.
    const auto settings = [](const std::string& jpeg) {
        return jpeg.substr(jpeg.find("\xff\xdb"), 138) + jpeg.substr(jpeg.find("\xff\xc0"), 19);
    };
    const VImage colours = shading(64, 64, 3), bilevel = shading(64, 64, 1) > 128;
    for (const char* options : {"[Q=60]", "[Q=85,subsample_mode=off]", "[Q=98]"}) {
        const std::string filtered = filter(".jpg", colours, options);
        EXPECT_EQ(settings(filtered), settings(contents(in + ".jpg"))) << options;
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

TEST(PictureFiles, ReplaceAnOldOutputWithItsPermissionsAndOwnerThroughItsLink) {
    const Folder folder;
    const std::string in = folder / "in.png", link = folder / "out.png", real = folder / "real";
    save(shading(20, 20, 3), in);
    std::ofstream{real} << "old";
    std::filesystem::create_symlink("real", link);
    // Only root can give files away; others keep their own.
    const bool isGiven = chown(real.c_str(), 1234, 5678) == 0;
    std::filesystem::permissions(real, std::filesystem::perms(04640));
    // The second time, the picture replaces itself.
    for (const std::string& out : {link, in})
        ASSERT_EQ(blur(in, out, 0).exitCode, 0);
    struct stat now {};
    ASSERT_EQ(stat(real.c_str(), &now), 0);
    EXPECT_EQ(now.st_mode & 07777, 04640u);
    EXPECT_EQ(now.st_uid, isGiven ? 1234 : getuid());
    EXPECT_EQ(now.st_gid, isGiven ? 5678 : getgid());
    expectUnfiltered(load(in), load(real));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_THAT(folder.names(), ElementsAre("in.png", "out.png", "real"));
}

TEST(PictureFiles, NoteAFourthChannelThatNeedNotBeAlpha) {
    const Folder folder;
    save(noise(20, 10, 4), folder / "alpha.tif");
    std::string tiff = contents(folder / "alpha.tif");
    const std::size_t entry = tiff.find(std::string("\x52\1\3\0\1\0\0\0", 8));
    ASSERT_NE(entry, std::string::npos);
    tiff[entry + 8] = 0; // ExtraSamples: unspecified
    std::ofstream(folder / "unspecified.tif") << tiff;
    EXPECT_EQ(blur(folder / "alpha.tif", folder / "out.tif", 0).err, "");
    const Outcome outcome = blur(folder / "unspecified.tif", folder / "out.tif", 0);
    EXPECT_THAT(outcome.err, HasSubstr("it doesn't say what its last channel is; it is taken for alpha"));
    expectUnfiltered(load(folder / "alpha.tif"), load(folder / "out.tif"));
}

TEST(PictureFiles, KeepAllPagesAndFrames) {
    const Folder folder;
    VImage tall = paged(shading(16, 12, 3).join(noise(16, 24, 3), VIPS_DIRECTION_VERTICAL), 12);
    const std::vector<int> delays{100, 50, 200};
    tall.set("delay", delays);
    tall.set("loop", 3);
    for (const std::string extension : {".tif", ".webp"}) {
        const std::string in = folder / ("in" + extension), out = folder / ("out" + extension);
        save(tall, in, extension == ".webp" ? VImage::option()->set("lossless", true) : nullptr);
        const Outcome outcome = blur(in, out, 0, {"--quiet"});
        EXPECT_EQ(outcome.out + outcome.err, "");
        const VImage all = VImage::new_from_file(out.c_str(), VImage::option()->set("n", -1));
        expectUnfiltered(tall, all);
        EXPECT_EQ(all.get_int(VIPS_META_PAGE_HEIGHT), 12);
        if (extension == ".webp") {
            EXPECT_EQ(all.get_array_int("delay"), delays);
            EXPECT_EQ(all.get_int("loop"), 3);
        }
        ASSERT_EQ(blur(in, folder / "page.png", 0, {"--page", "2"}).exitCode, 0);
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
    replaceFile(folder / "in.tif", encodePicture(written, *written.format, "in.tif"));
    ASSERT_EQ(blur(folder / "in.tif", folder / "out.tif", 0).exitCode, 0);
    const Picture read = PictureFile(folder / "out.tif").decode();
    ASSERT_EQ(read.pages.size(), written.pages.size());
    for (int i = 0; i < 6; ++i) {
        EXPECT_TRUE(read.pages[i].world.sameShape(written.pages[i].world)) << i;
        EXPECT_EQ(read.pages[i].channels, written.pages[i].channels);
        EXPECT_EQ(read.pages[i].texts, written.pages[i].texts);
    }
}

TEST(PictureFiles, AreReadFromPipes) {
    const Folder folder;
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string extension : {".png", ".jpg", ".tif", ".webp"}) {
        const std::string in = folder / ("in" + extension), out = folder / ("out" + extension);
        const std::string piped = folder / ("piped" + extension);
        save(noise(90, 80, 3), in);
        ASSERT_EQ(blur(in, out, 0).exitCode, 0);
        for (const std::string& input : {pipe, std::string("-"), std::string("/dev/stdin")}) {
            const std::jthread writer([&] { std::ofstream(pipe) << contents(in); });
            ProcessRun run(command(input, piped, 0), [&] {
                if (input != pipe)
                    dup2(open(pipe.c_str(), O_RDONLY), STDIN_FILENO);
            });
            ASSERT_EQ(run.wait().exitCode, 0);
            EXPECT_EQ(contents(piped), contents(out)) << input << extension;
        }
    }
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Program::Test
