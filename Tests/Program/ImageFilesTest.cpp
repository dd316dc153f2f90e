// Images of every kind through the real program, compared sample by sample.

#include "Host/Effect.h"
#include "Program/Files/Encode.h"
#include "Program/Files/Format.h"
#include "Program/Files/ImageFile.h"
#include "Program/Files/Metadata.h"
#include "Program/OutputFile.h"
#include "Tests/Program/Blur.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfInputFile.h>
#include <ImfOutputFile.h>
#include <ImfStandardAttributes.h>
#include <half.h>

#include <bit>
#include <sys/stat.h>

#ifdef __SANITIZE_ADDRESS__
// The tests make files in HEIC, whose encoder loses memory.
extern "C" [[gnu::visibility("default")]] const char* __lsan_default_suppressions();
const char* __lsan_default_suppressions() {
    return "leak:x265";
}
#endif

namespace Tessaloom::BilateralBlur::Program::Test {

namespace {

using namespace std::string_literals;
using testing::HasSubstr;
using vips::VImage;

/// Checks that an image is of another's kind, with its samples, which may differ by `loss`.
void expectSame(const VImage& wanted, const VImage& image, double loss = 0) {
    ASSERT_EQ(std::tuple(wanted.width(), wanted.height(), wanted.bands(), wanted.format()),
              std::tuple(image.width(), image.height(), image.bands(), image.format()));
    EXPECT_LE((wanted - image).abs().max(), loss);
}

class ImageFiles : public testing::Test {
protected:
    // The start of OpenGL would take half of a run's time.
    ImageFiles() {
        setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent", 1);
        std::filesystem::current_path(mDirectory / "");
    }
    ~ImageFiles() override { std::filesystem::current_path("/"); }

    /// Filters a file with an effect that changes nothing at radius 0. Gives what is printed.
    std::string filter(const std::string& in, const std::string& out,
                       std::vector<std::string> more = {}) const {
        more.insert(more.begin(), {PROGRAM, in, out, "--effect=bilateral-smooth", "--radius=0"});
        const Outcome outcome = ProcessRun(more).wait();
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
#ifndef __SANITIZE_ADDRESS__ // keeps what is freed
        EXPECT_LE(outcome.peakMiB, 200) << "whatever the file's metadata asks for";
#endif
        return outcome.err;
    }

    /// Checks that the samples of an image stay as they are in a file that is written with these options.
    void expectKept(const VImage& image, const std::string& name, const std::string& options = "",
                    double loss = 0) const {
        SCOPED_TRACE(name);
        save(image, name + options);
        EXPECT_EQ(filter(name, "out." + name), "");
        expectSame(load(name), load("out." + name), loss);
    }

    /// A small PNG file, in.png, with chunks behind its header and before its end.
    void writePng(const std::string& first, const std::string& last = "") const {
        save(shading(20, 20, 3), "in.png");
        std::string png = contents("in.png");
        png.insert(png.size() - 12, last);
        std::ofstream("in.png") << png.insert(33, first);
    }

    const Directory mDirectory;
};

TEST_F(ImageFiles, OfEveryKindKeepTheirKindDepthAndColours) {
    for (const int channels : {1, 2, 3, 4}) {
        SCOPED_TRACE(channels);
        const VImage image = noise(53, 31, channels, 7), deep = noise(53, 31, channels, 7, true);
        expectKept(deep, "deep.png");
        expectKept(deep, "deep.tif");
        expectKept(deep * 3e-5 - 0.5, "float.tif");
        expectKept(image, "in.png");
        expectKept(image, "in.tif");
        expectKept(image, "in.webp", "[lossless]");
        expectKept(shading(53, 31, channels), "in.jpg", "", 2);
    }
    EXPECT_THAT(filter("float.tif", "out.png"), HasSubstr("PNG holds 16 bits per channel at most"));
    save(noise(53, 31, 3, 7, true), "deep.png");
    blur("deep.png", "out.png", {"--blur-scale=0"}); // an effect of 8 bits
    expectSame(load("deep.png"), load("out.png"), 128);
}

TEST_F(ImageFiles, AreCompressedAsAskedWithoutLoss) {
    save(noise(60, 50, 3).resize(5), "in.png");
    for (const std::string format : {".png", ".tif"}) {
        SCOPED_TRACE(format);
        const auto size = [&](const std::string& level) {
            filter("in.png", level + format, {"--compression", level});
            expectSame(load("in.png"), load(level + format));
            return contents(level + format).size();
        };
        EXPECT_GT(size("0"), 300u * 250 * 3);
        EXPECT_LT(size("1"), size("0"));
        EXPECT_LT(size("9"), size("1"));
        filter("in.png", "own" + format);
        const std::string same = format == ".png" ? "4" : "lzw";
        size(same);
        EXPECT_TRUE(contents("own" + format) == contents(same + format));
    }
}

// OpenEXR

constexpr int kWidth = 29, kHeight = 23;
const Imath::Box2i kWindow({-3, 5}, {-4 + kWidth, 4 + kHeight});

/// A file's channels in rows: the bits of floats, which hold every other sample as well.
struct Exr {
    Imf::Header header;
    std::map<std::string, std::vector<std::uint32_t>> channels;

    float value(const char* channel, int i) { return std::bit_cast<float>(channels[channel][i]); }
};

Exr readExr(const std::string& file) {
    Imf::InputFile input(file.c_str());
    Exr exr{input.header(), {}};
    Imf::FrameBuffer buffer;
    for (auto at = exr.header.channels().begin(); at != exr.header.channels().end(); ++at) {
        exr.channels[at.name()].resize(kWidth * kHeight);
        buffer.insert(at.name(), Imf::Slice::Make(Imf::FLOAT, exr.channels[at.name()].data(), kWindow));
    }
    input.setFrameBuffer(buffer);
    input.readPixels(kWindow.min.y, kWindow.max.y);
    return exr;
}

/// Values of all kinds and signs, more than 1 among them, in R, G, B, and in Z; alpha 0, 1 and between; an id.
void writeExr(const std::string& file, Imf::PixelType type, Imf::Compression compression) {
    Imf::Header header(40, 30, kWindow);
    header.compression() = compression;
    Imf::addOwner(header, "Somebody");
    Imf::FrameBuffer buffer;
    std::map<std::string, std::vector<std::uint32_t>> samples;
    std::mt19937 random(5);
    for (const std::string name : {"R", "G", "B", "A", "Z", "id"}) {
        const Imf::PixelType own = name == "id" ? Imf::UINT : name == "Z" ? Imf::FLOAT : type;
        for (int i = 0; i < kWidth * kHeight; ++i) {
            const float any = static_cast<float>(random() % 1000) / 50;
            const float values[] = {0, 1, any, any / 64, -any, NAN, INFINITY};
            const float value = values[random() % (name == "A" ? 4 : 7)];
            samples[name].push_back(own == Imf::HALF ? half(value).bits() : std::bit_cast<unsigned>(value));
        }
        header.channels().insert(name, Imf::Channel(own));
        buffer.insert(name, Imf::Slice::Make(own, samples[name].data(), kWindow, sizeof(std::uint32_t)));
    }
    Imf::OutputFile output(file.c_str(), header);
    output.setFrameBuffer(buffer);
    output.writePixels(kHeight);
}

TEST_F(ImageFiles, OfOpenExrKeepAllThatIsNotFiltered) {
    for (const Imf::PixelType type : {Imf::HALF, Imf::FLOAT})
        for (const Imf::Compression compression : {Imf::PIZ_COMPRESSION, Imf::ZIPS_COMPRESSION}) {
            writeExr("in.exr", type, compression);
            EXPECT_EQ(filter("in.exr", "out.exr"), "");
            const Exr wanted = readExr("in.exr"), same = readExr("out.exr");
            EXPECT_TRUE(same.channels == wanted.channels) << type << compression;
            EXPECT_TRUE(same.header.channels() == wanted.header.channels());
            EXPECT_EQ(same.header.dataWindow(), kWindow);
            EXPECT_EQ(same.header.displayWindow(), wanted.header.displayWindow());
            EXPECT_EQ(same.header.compression(), compression);
            EXPECT_EQ(Imf::owner(same.header), "Somebody");
        }
    // The effect's own result, with alpha multiplied in; light without alpha stays.
    filter("in.exr", "out.exr", {"--radius=4", "--threshold=0.5"});
    Exr before = readExr("in.exr"), after = readExr("out.exr");
    Image image = ImageFile("in.exr", {.keepsDepth = true}).decode();
    Host::World& world = image.pages[0].world;
    const Host::Module module(SMOOTH_MODULE);
    ASSERT_TRUE(Host::Effect(module).render(world, world, std::array{4, 500}).ok());
    for (int i = 0; i < kWidth * kHeight; ++i) {
        const float alpha = before.value("A", i), old = before.value("G", i), now = after.value("G", i);
        const float straight = world.row<PF_PixelFloat>(i / kWidth)[i % kWidth].green;
        const float wanted = alpha > 0 ? straight * alpha : old;
        if (std::isfinite(wanted)) {
            ASSERT_NEAR(now, wanted, std::abs(wanted) * 1e-6) << i;
        }
    }
    EXPECT_TRUE(after.channels["Z"] == before.channels["Z"]);
    // A new file's colours are multiplied as well.
    save(shading(53, 31, 4), "in.png");
    filter("in.png", "new.exr");
    filter("new.exr", "back.webp");
    expectSame(load("in.png"), load("back.webp"));
    EXPECT_THAT(filter("in.exr", "out.tif"), HasSubstr("only OpenEXR keeps its other channels: Z, id"));
}

// What files hold beside the pixels

/// A copy of an image with a block of metadata.
VImage with(const VImage& image, const char* kind, const std::string& block) {
    VImage copy = image.copy();
    vips_image_set_blob_copy(copy.get_image(), kind, block.data(), block.size());
    return copy;
}

std::string xmp(const std::string& properties) {
    return "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/"
           "22-rdf-syntax-ns#'><rdf:Description rdf:about='' xmlns:xmp='http://ns.adobe.com/xap/1.0/'>" +
           properties + "</rdf:Description></rdf:RDF></x:xmpmeta>";
}

auto metadataOf(const std::string& file) {
    auto image = Exiv2::ImageFactory::open(file);
    image->readMetadata();
    return image;
}

/// One thing of each kind that a file can hold beside its pixels; empty where it has none of the kind.
std::map<std::string, std::string> kindsIn(const std::string& file) {
    const auto image = metadataOf(file);
    const auto exif = [&](const char* key) { return image->exifData()[key].toString(); };
    const VImage loaded = load(file);
    const auto perInch = [&](const char* key, double perMillimetre) {
        // In a WebP, EXIF alone has a place for the density.
        const bool isWebp = file.ends_with(".webp");
        return std::to_string(std::lround(isWebp ? image->exifData()[key].toFloat() : 25.4 * perMillimetre));
    };
    const bool hasTagsOfTiff = !exif("Exif.Image.PlanarConfiguration").empty();
    return {
        {"EXIF", exif("Exif.Image.Artist")},
        {"EXIF of the camera", exif("Exif.Photo.FNumber")},
        {"IPTC", image->iptcData()["Iptc.Application2.Caption"].toString()},
        {"XMP", image->xmpData()["Xmp.xmp.Rating"].toString()},
        {"comment", image->comment()},
        {"density, across", perInch("Exif.Image.XResolution", loaded.xres())},
        {"density, down", perInch("Exif.Image.YResolution", loaded.yres())},
        {"only what isn't of a TIFF", file.ends_with(".tif") || !hasTagsOfTiff ? "yes" : ""},
        {"orientation", exif("Exif.Image.Orientation")},
        {"place", exif("Exif.GPSInfo.GPSLatitudeRef")},
        {"profile", loaded.get_typeof(VIPS_META_ICC_NAME) != 0 ? "yes" : ""},
        {"thumbnail", exif("Exif.Thumbnail.Compression")},
    };
}

// The table of the manual page: every kind goes from each format to each, except what a format can't hold and
// the thumbnail, which shows the unfiltered image.
TEST_F(ImageFiles, KeepMetadataFromFormatToFormat) {
    const VImage plain = shading(40, 30, 3).copy(VImage::option()->set("xres", 5.0)->set("yres", 10.0));
    save(plain, "in.jpg[profile=p3]");
    const auto image = metadataOf("in.jpg");
    image->exifData()["Exif.Image.Artist"] = "Somebody";
    image->exifData()["Exif.Image.Orientation"] = std::uint16_t{6};
    image->exifData()["Exif.Photo.FNumber"] = Exiv2::URational(28, 10);
    image->exifData()["Exif.GPSInfo.GPSLatitudeRef"] = "N";
    Exiv2::ExifThumb(image->exifData()).setJpegThumbnail("in.jpg");
    image->setComment("comment");
    image->iptcData()["Iptc.Application2.Caption"] = "caption";
    image->xmpData()["Xmp.xmp.Rating"] = "3";
    image->writeMetadata();
    const std::map<std::string, std::string> all = kindsIn("in.jpg");
    EXPECT_EQ(all.at("density, across"), "127");
    EXPECT_EQ(all.at("density, down"), "254");
    for (const auto& [kind, value] : all)
        ASSERT_NE(value, "") << kind;
    const std::set<std::string> kHaveIptc{".jpg", ".tif"};
    for (const std::string from : {".jpg", ".png", ".tif", ".webp"}) {
        if (from != ".jpg")
            filter("in.jpg", "in" + from);
        for (const std::string to : {".jpg", ".png", ".tif", ".webp"}) {
            filter("in" + from, "out" + to);
            std::map<std::string, std::string> expected = all;
            if (!kHaveIptc.contains(from) || !kHaveIptc.contains(to))
                expected["IPTC"] = "";
            if (from != ".jpg" || to != ".jpg")
                expected["comment"] = "";
            expected["thumbnail"] = "";
            EXPECT_EQ(kindsIn("out" + to), expected) << from << " to " << to;
        }
    }
}

TEST_F(ImageFiles, GetNoMetadataThatTheInputLacks) {
    save(shading(40, 30, 3), "in.webp");
    // libvips puts EXIF into every WebP.
    Exiv2::ImageFactory::open("in.webp")->writeMetadata();
    for (const std::string out : {"out.jpg", "out.png", "out.webp", "out.tif"}) {
        filter("in.webp", out);
        EXPECT_EQ(ImageFile(out).decode().pages[0].density.x, 0) << out;
        EXPECT_EQ(load(out).get_typeof(VIPS_META_EXIF_NAME), 0u) << out;
    }
}

TEST_F(ImageFiles, KeepPngChunksAndTheFirstExif) {
    const std::string before = pngChunk("gAMA", std::string("\0\1\x86\xa0", 4)) +
                               pngChunk("bKGD", std::string("\0\x10\0\x20\0\x30", 6));
    const std::string exif = pngChunk("eXIf", tiff({{0x013B, 2, 3, 'M' | 'e' << 8}}));
    const std::string after = pngChunk("iTXt", std::string("Title\0\0\0de\0Titel\0Stra\xc3\x9f\x65", 24)) +
                              pngChunk("tIME", std::string("\x7\xd0\1\2\3\4\5", 7));
    writePng(before + exif + pngChunk("eXIf", tiff({{0x013B, 2, 3, 'H' | 'e' << 8}})), after);
    filter("in.png", "out.png");
    const std::string out = contents("out.png");
    for (const std::string& kept : {before, exif, after})
        EXPECT_THAT(out, HasSubstr(kept));
    EXPECT_EQ(out.find("eXIf"), out.rfind("eXIf"));
}

/// A block of EXIF with fields of so many bytes, each `step` bytes behind the one before.
std::string exifOf(int fields, std::uint32_t size, std::uint32_t step) {
    std::vector<TiffEntry> entries;
    for (std::uint16_t tag = 40000; tag < 40000 + fields; ++tag)
        entries.push_back({tag, 7, size, 8 + 2 + 12u * fields + 4 + step * (tag - 40000u)});
    return tiff(entries, std::string(size + step * fields, 'x'));
}

TEST_F(ImageFiles, LoseMetadataThatIsDamagedOrWouldTakeAllMemoryOrTimeWithANote) {
    const auto exif = [](const std::string& block) { return pngChunk("eXIf", block); };
    const auto packet = [](const std::string& properties) {
        return pngChunk("iTXt", std::string("XML:com.adobe.xmp\0\0\0\0\0", 22) + xmp(properties));
    };
    std::string many, directories;
    for (int i = 0; i < 6000; ++i)
        many += "<xmp:P/>";
    // A hundred directories of 65535 entries each, which overlap.
    for (int i = 0; i < 100; ++i)
        directories += {static_cast<char>(i + 200), '\2', '\0', '\0'};
    directories += std::string(800'000, '\xff');
    const std::string damaged = "its XMP is damaged and isn't kept";
    for (const auto& [chunk, note] :
         {std::pair(exif(exifOf(200, 1 << 20, 0)), "its metadata is larger than 64 MB"s),
          {exif(tiff({{0x014A, 4, 100, 26}}, directories)), "more than 5000 parts"},
          {exif("no EXIF at all"), "its metadata is damaged"},
          {packet(many), "more than 5000 parts"},
          {packet("<xmp:Rating>3 & more</xmp:Rating>"), damaged},
          {packet("<xmp:Label>\xe9</xmp:Label>"), damaged},
          {packet("<no:Rating>3</no:Rating>"), damaged},
          {packet("<xmp:Rating>3</xmp:Rating><xmp:Rating>4</xmp:Rating>"), damaged},
          {packet("<xmp:Rating>"), damaged}}) {
        writePng(chunk);
        EXPECT_THAT(filter("in.png", "out.png"), HasSubstr(note)) << chunk.substr(0, 300);
    }
}

TEST_F(ImageFiles, KeepLargeExifWhereTheFormatHasRoom) {
    const auto fields = [](const std::string& out) { return metadataOf(out)->exifData().count(); };
    for (const std::string& start : {""s, "Exif\0\0"s}) {
        writePng(pngChunk("eXIf", start + exifOf(20, 5000, 5000)));
        for (const std::string out : {"out.png", "out.webp"}) {
            EXPECT_EQ(filter("in.png", out), "");
            EXPECT_GE(fields(out), 20) << out; // and the density, where it has no other place
        }
    }
    EXPECT_THAT(filter("in.png", "out.jpg"), HasSubstr("fields aren't kept: Image.0x9c40 and 7 more"));
    EXPECT_EQ(fields("out.jpg"), 12);
}

TEST_F(ImageFiles, NoteWhatAJpegHasBesideItsPixels) {
    save(shading(20, 20, 3), "in.jpg");
    const std::string jpeg = contents("in.jpg");
    std::ofstream("in.jpg") << jpeg.substr(0, jpeg.size() - 2) << std::string(80, '?') << "\xff\xd9" << jpeg;
    const std::string notes = filter("in.jpg", "out.jfif");
    EXPECT_THAT(notes, HasSubstr(" bytes between its pixels and its end mean nothing"));
    EXPECT_THAT(notes, HasSubstr("isn't kept: " + std::to_string(jpeg.size()) + " bytes"));
}

TEST_F(ImageFiles, FollowTheInputsCompression) {
    const VImage colours = shading(64, 64, 3);
    const auto filtered = [&](const std::string& format, const std::string& options) {
        save(colours, "in" + format + options);
        filter("in" + format, "out" + format);
        return contents("out" + format);
    };
    // The quantisation tables and the channels' sampling, without what a format or program adds.
    const auto settings = [](const std::string& file) {
        const std::string jpeg = contents(file);
        return jpeg.substr(jpeg.find("\xff\xdb"), 138) + jpeg.substr(jpeg.find("\xff\xc0"), 19);
    };
    for (const char* options : {"[Q=60]", "[Q=85,subsample_mode=off]", "[Q=98]"}) {
        filtered(".jpg", options);
        EXPECT_EQ(settings("out.jpg"), settings("in.jpg")) << options;
    }
    // Other inputs have none to follow.
    save(colours, "in.png");
    for (const std::string quality : {"95", "60"}) {
        save(colours, "in.jpg[subsample_mode=off,Q=" + quality + "]");
        filter("in.png", "out.jpg", {quality == "95" ? "--quiet" : "--quality=60"});
        EXPECT_EQ(settings("out.jpg"), settings("in.jpg")) << quality;
    }
    filter("in.png", "out.webp", {"--quality=60"});
    EXPECT_EQ(contents("out.webp").find("VP8L"), std::string::npos);
    EXPECT_EQ(filtered(".webp", "[Q=80]").find("VP8L"), std::string::npos);
    EXPECT_THAT(filtered(".webp", "[lossless]"), HasSubstr("VP8L"));
    // One bit a pixel stays where the result still has no other values.
    for (const std::string name : {"bits.png", "bits.tif"}) {
        expectKept(shading(64, 64, 1) > 128, name, "[bitdepth=1]");
        EXPECT_EQ(ImageFile("out." + name).decode().pages[0].bits, 1);
    }
    expectKept(colours, "colours.png", "[palette]");
}

TEST_F(ImageFiles, ReplaceAnOldOutputOfAnyNameWithItsPermissionsAndOwnerThroughItsLink) {
    const std::string name(255, 'x'); // the longest that there is
    save(shading(20, 20, 3), "#1.png");
    std::ofstream{name} << "old";
    std::filesystem::create_symlink(name, "50%d.png");
    // Only root can give files away; others keep their own.
    const bool isGiven = chown(name.c_str(), 1234, 5678) == 0;
    std::filesystem::permissions(name, std::filesystem::perms(04640));
    // A run that dies as it writes leaves a file that nobody else may read.
    ProcessRun dying({"/bin/true"}, [&] {
        const rlimit limit{};
        setrlimit(RLIMIT_FSIZE, &limit);
        replaceFile(name, std::as_bytes(std::span(name)));
    });
    EXPECT_EQ(dying.wait().exitCode, -SIGXFSZ);
    EXPECT_EQ(std::filesystem::status(mDirectory.names().at(1)).permissions(), std::filesystem::perms(0600));
    // The second time, the image replaces itself.
    for (const char* out : {"50%d.png", "#1.png"})
        filter("#1.png", out);
    struct stat now {};
    ASSERT_EQ(stat(name.c_str(), &now), 0);
    EXPECT_EQ(now.st_mode & 07777, 04640u);
    EXPECT_EQ(now.st_uid, isGiven ? 1234 : getuid());
    EXPECT_EQ(now.st_gid, isGiven ? 5678 : getgid());
    expectSame(load("#1.png"), load(name));
    EXPECT_TRUE(std::filesystem::is_symlink("50%d.png"));
    EXPECT_THAT(mDirectory.names(), testing::ElementsAre("#1.png", "50%d.png", name));
}

TEST_F(ImageFiles, NoteWhatIsOddOrNotKeptOfATiff) {
    const VImage alpha = noise(20, 10, 4);
    const VImage pages = with(paged(noise(8, 8, 3), 4), VIPS_META_XMP_NAME, xmp(""));
    save(with(alpha, VIPS_META_XMP_NAME, xmp("")), "alpha.tif");
    std::ofstream("unspecified.tif") << withTag(contents("alpha.tif"), 338, 2, 0);
    EXPECT_EQ(filter("alpha.tif", "out.tif"), "");
    EXPECT_EQ(filter("out.tif", "again.tif"), "");
    EXPECT_THAT(filter("unspecified.tif", "out.tif"),
                HasSubstr("its last channel is; it is taken for alpha"));
    expectSame(load("alpha.tif"), load("out.tif"));

    save(pages, "pages.tif");
    save(pages, "big.tif[bigtiff]");
    EXPECT_THAT(filter("big.tif", "out.tif"), HasSubstr("its metadata is damaged, or of a kind that can't"));
    EXPECT_THAT(filter("pages.tif", "out.tif"), HasSubstr("XMP of the pages after the first aren't kept"));
}

TEST_F(ImageFiles, KeepAllFramesOfAnAnimation) {
    VImage tall = paged(noise(16, 36, 3), 12);
    const std::vector<int> delays{100, 10, 200};
    tall.set("delay", std::vector<int>{100, 50, 200});
    tall.set("loop", 3);
    save(tall, "in.webp[lossless]");
    // The library that writes this file changes short delays, and knows no background.
    std::string webp = contents("in.webp");
    const std::size_t animation = webp.find("ANIM") + 8;
    const std::string background = "\x11\x22\x33\x44";
    webp.replace(animation, 4, background);
    webp[webp.find("ANMF", webp.find("ANMF") + 1) + 8 + 12] = 10;
    std::ofstream("in.webp") << webp;
    EXPECT_EQ(filter("in.webp", "out.webp"), "");
    EXPECT_THAT(contents("out.webp"), HasSubstr(std::string("ANIM\6\0\0\0", 8) + background));
    const VImage all = load("out.webp[n=-1]");
    expectSame(tall, all);
    EXPECT_EQ(all.get_int(VIPS_META_PAGE_HEIGHT), 12);
    EXPECT_EQ(all.get_array_int("delay"), delays);
    EXPECT_EQ(all.get_int("loop"), 3);
    filter("in.webp", "page.png", {"--page", "2"});
    expectSame(tall.crop(0, 12, 16, 12), load("page.png"));
}

TEST_F(ImageFiles, KeepAllPagesOfDifferentSizesAndKinds) {
    Image written;
    written.format = formatNamed("tiff");
    written.metadata = std::make_shared<Metadata>();
    for (int i = 0; i < 6; ++i) {
        Page& page = written.pages.emplace_back();
        page.world = Host::World(page.width = 5 + i, page.height = 9 - i);
        page.channels = 1 + i % 4;
        page.orientation = 2 + i;
    }
    replaceFile("in.tif", encodeImage(written, *written.format, "in.tif"));
    filter("in.tif", "out.tif");
    for (int i = 0; i < 6; ++i) {
        const Image read = ImageFile("out.tif", {i + 1}).decode();
        const Page& page = read.pages.front();
        EXPECT_TRUE(page.world.sameShape(written.pages[i].world)) << i;
        EXPECT_EQ(page.channels, written.pages[i].channels);
        EXPECT_EQ(page.orientation, 2 + i);
    }
}

/// A file of JPEG XL with metadata in boxes around its pixels.
std::string jxlWith(const std::string& pixels, const std::string& exif, const std::string& packet) {
    const auto box = [](const std::string& name, const std::string& content) {
        return pngNumber(content.size() + 8) + name + content;
    };
    return box("JXL ", "\r\n\x87\n") + box("ftyp", std::string("jxl \0\0\0\0jxl ", 12)) +
           box("Exif", std::string(4, '\0') + exif) + box("xml ", packet) + box("jxlc", pixels);
}

TEST_F(ImageFiles, OfFormatsThatAreReadAloneGoIntoOthers) {
    const std::string exif = tiff({{0x0112, 3, 1, 6}, {0x013B, 2, 3, 'M' | 'e' << 8}});
    const std::string packet = xmp("<xmp:Rating>3</xmp:Rating>");
    const VImage colours =
        with(with(shading(64, 48, 3), VIPS_META_EXIF_NAME, exif), VIPS_META_XMP_NAME, packet);
    for (const std::string format : {".heic", ".avif", ".jxl"}) {
        SCOPED_TRACE(format);
        save(colours, "in" + format + "[lossless]");
        if (format == ".jxl") {
            const std::string pixels = contents("in.jxl");
            std::ofstream("in.jxl") << jxlWith(pixels, exif, packet);
        }
        EXPECT_EQ(filter("in" + format, "out.png"), "");
        expectSame(load("in" + format), load("out.png"));
        const auto written = metadataOf("out.png");
        EXPECT_EQ(written->exifData()["Exif.Image.Artist"].toString(), "Me");
        EXPECT_EQ(written->xmpData()["Xmp.xmp.Rating"].toString(), "3");
        // The decoder turns the pixels.
        EXPECT_EQ(written->exifData()["Exif.Image.Orientation"].count(), 0);
    }
    save(noise(64, 48, 3, 7, true), "deep.heic[bitdepth=12,lossless]");
    EXPECT_EQ(filter("deep.heic", "out.png"), "");
    EXPECT_EQ(load("out.png").max(), 65535);
}

TEST_F(ImageFiles, GoThroughPipes) {
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    for (const std::string format : {".jpg", ".png", ".tif", ".webp"}) {
        save(noise(700, 520, 3), "in" + format); // more than is read at once
        filter("in" + format, "out" + format);
        filter("in" + format, "out.png");
        // Without --format the output has the format of the input.
        const std::pair<const char*, std::string> kCases[] = {
            {"cat in$format | smooth - - --verbose", format},
            {"cat in$format >pipe & smooth pipe -", format},
            {"cat in$format | smooth /dev/stdin - --format=png", ".png"}};
        for (const auto& [command, written] : kCases)
            EXPECT_EQ(ProcessRun(shell(mDirectory, "format=" + format + "; " + command)).wait().out,
                      contents("out" + written))
                << command << format;
    }
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Program::Test
