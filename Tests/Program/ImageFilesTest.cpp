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
#include <ImfHeader.h>
#include <ImfInputFile.h>
#include <ImfOutputFile.h>
#include <ImfStandardAttributes.h>
#include <gmock/gmock.h>
#include <half.h>

#include <cstring>
#include <map>
#include <random>
#include <set>
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

using testing::HasSubstr;
using vips::VImage;

/// Colours as near as the 8 bits of the premultiplied image carry them, and `loss` on top of that.
void expectNear(const VImage& wanted, const VImage& image, double loss = 0) {
    ASSERT_EQ(std::tuple(wanted.width(), wanted.height(), wanted.bands(), wanted.format()),
              std::tuple(image.width(), image.height(), image.bands(), image.format()));
    const int unit = wanted.format() == VIPS_FORMAT_USHORT ? 257 : 1, last = wanted.bands() - 1;
    const VImage before = (wanted.cast(VIPS_FORMAT_DOUBLE) / unit).rint();
    const VImage after = image.cast(VIPS_FORMAT_DOUBLE) / unit, difference = (before - after).abs();
    const bool hasAlpha = last % 2 == 1;
    const VImage alpha = hasAlpha ? before[last] : before[0] * 0 + 255;
    EXPECT_LE((difference * alpha).max(), 255 * (1 + loss));
    EXPECT_LE(difference[hasAlpha ? last : 0].max(), 1 + loss);
    EXPECT_EQ((after * (alpha == 0)).max(), 0);
}

class ImageFiles : public testing::Test {
protected:
    // The start of OpenGL would take half of a run's time.
    ImageFiles() { setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent", 1); }

    /// Filters a file of the directory at scale 0. Gives what is printed.
    std::string filter(const std::string& in, const std::string& out,
                       const std::vector<std::string>& more = {}) const {
        const Outcome outcome = blur(mDirectory / in, mDirectory / out, 0, more);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return outcome.err;
    }

    /// Checks that a file is what the effect of a module makes of another.
    void expectFiltered(const std::string& in, const std::string& out, const char* module,
                        const std::vector<std::int32_t>& values) const {
        const ReadOptions reading{.keepsDepth = true};
        Image source = ImageFile(mDirectory / in, reading).decode();
        Image result = ImageFile(mDirectory / out, reading).decode();
        Host::World &wanted = source.pages[0].world, &world = result.pages[0].world;
        const Host::Module loaded(module);
        ASSERT_TRUE(Host::Effect(loaded).render(wanted, wanted, values).ok());
        ASSERT_TRUE(world.sameShape(wanted));
        for (int y = 0; y < world.height; ++y)
            ASSERT_EQ(
                std::memcmp(world.row(y), wanted.row(y), world.width * Host::bytesPerPixel(world.format())),
                0);
    }

    const Directory mDirectory;
};

TEST_F(ImageFiles, OfEveryKindKeepTheirKindAndColours) {
    const std::map<std::string, std::vector<int>> kKinds{
        {".jpg", {1, 3}}, {".png", {1, 2, 3, 4}}, {".tif", {1, 2, 3, 4}}, {".webp", {3, 4}}};
    for (const auto& [format, kinds] : kKinds)
        for (const int channels : kinds)
            for (const bool deep : {false, true}) {
                if (deep && format != ".png" && format != ".tif")
                    continue;
                SCOPED_TRACE(std::to_string(channels) + format);
                const bool lossy = format == ".jpg";
                const std::string in = "in" + format, out = "out" + format;
                save(lossy ? shading(53, 31, channels) : noise(53, 31, channels, 7, deep),
                     mDirectory / in + (format == ".webp" ? "[lossless]" : ""));
                const std::string notes = filter(in, out);
                const VImage image = load(mDirectory / in);
                EXPECT_EQ(notes.find("16-bit input is reduced") != std::string::npos,
                          image.format() == VIPS_FORMAT_USHORT);
                expectNear(image, load(mDirectory / out), lossy ? 2 : 0);
            }
}

TEST_F(ImageFiles, AreCompressedAsAskedWithoutLoss) {
    save(noise(60, 50, 3).resize(5), mDirectory / "in.png");
    for (const std::string format : {".png", ".tif"}) {
        SCOPED_TRACE(format);
        const auto size = [&](const std::string& level) {
            filter("in.png", level + format, {"--compression", level});
            EXPECT_EQ((load(mDirectory / level + format) - load(mDirectory / "in.png")).abs().max(), 0)
                << level;
            return contents(mDirectory / level + format).size();
        };
        EXPECT_GT(size("0"), 300u * 250 * 3);
        EXPECT_LT(size("1"), size("0"));
        EXPECT_LT(size("9"), size("1"));
        filter("in.png", "own" + format);
        const std::string same = format == ".png" ? "4" : "lzw";
        size(same);
        EXPECT_TRUE(contents(mDirectory / "own" + format) == contents(mDirectory / same + format));
    }
}

TEST_F(ImageFiles, AreFilteredAsTheEffectFiltersThem) {
    save(noise(41, 37, 4), mDirectory / "in.png");
    ASSERT_EQ(blur(mDirectory / "in.png", mDirectory / "out.tif", 20).exitCode, 0);
    expectFiltered("in.png", "out.tif", MODULE, {20});
}

TEST_F(ImageFiles, KeepTheirDepthWithAnEffectThatTakesIt) {
    const auto smooth = [&](const std::string& in, const std::string& out, const std::string& radius) {
        const Outcome outcome =
            ProcessRun({PROGRAM, mDirectory / in, mDirectory / out, "--effect=bilateral-smooth",
                        "--radius=" + radius, "--threshold=0.05"})
                .wait();
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return outcome.err;
    };
    for (const int channels : {1, 2, 3, 4}) {
        const VImage deep = noise(53, 31, channels, 7, true);
        const VipsInterpretation kinds[] = {VIPS_INTERPRETATION_B_W, VIPS_INTERPRETATION_scRGB};
        // Multiples of 257 would come back from 8 bits as well.
        const VImage fine = (deep * 0.9 + VImage::gaussnoise(53, 31).abs()).cast(VIPS_FORMAT_USHORT);
        save(fine.copy(VImage::option()->set("interpretation", deep.interpretation())),
             mDirectory / "in.png");
        save(load(mDirectory / "in.png"), mDirectory / "in.tif");
        save((deep * 3e-5 - 0.5)
                 .cast(VIPS_FORMAT_FLOAT)
                 .copy(VImage::option()->set("interpretation", kinds[channels > 2])),
             mDirectory / "float.tif");
        for (const std::string in : {"in.png", "in.tif", "float.tif"}) {
            SCOPED_TRACE(in + " with channels: " + std::to_string(channels));
            const std::string out = "out." + in;
            EXPECT_EQ(smooth(in, out, "0"), "");
            const VImage before = load(mDirectory / in), after = load(mDirectory / out);
            EXPECT_EQ(after.format(), before.format());
            EXPECT_EQ(after.bands(), channels);
            EXPECT_EQ((after - before).abs().max(), 0);
        }
    }
    EXPECT_THAT(smooth("float.tif", "out.png", "0"), HasSubstr("PNG holds 16 bits per channel at most"));
    smooth("float.tif", "out.tif", "8");
    expectFiltered("float.tif", "out.tif", SMOOTH_MODULE, {8, 50});
}

// OpenEXR

/// A file's channels in rows, with all bytes of their samples.
struct Exr {
    Imf::Header header;
    std::map<std::string, std::vector<char>> channels;

    Imf::FrameBuffer frameBuffer() {
        const Imath::Box2i window = header.dataWindow();
        const int width = window.max.x - window.min.x + 1, height = window.max.y - window.min.y + 1;
        Imf::FrameBuffer buffer;
        for (auto at = header.channels().begin(); at != header.channels().end(); ++at) {
            const std::size_t size = at.channel().type == Imf::HALF ? 2 : 4;
            channels[at.name()].resize(size * width * height);
            buffer.insert(at.name(), Imf::Slice::Make(at.channel().type, channels[at.name()].data(), window,
                                                      size, size * width));
        }
        return buffer;
    }
    const float* floats(const std::string& name) { return reinterpret_cast<float*>(channels[name].data()); }
};

Exr readExr(const std::string& file) {
    Imf::InputFile input(file.c_str());
    Exr exr{input.header(), {}};
    input.setFrameBuffer(exr.frameBuffer());
    input.readPixels(exr.header.dataWindow().min.y, exr.header.dataWindow().max.y);
    return exr;
}

/// Values of all kinds and signs, more than 1 among them, in R, G, B, and in Z; alpha 0, 1 and between; an id.
Exr writeExr(const std::string& file, Imf::PixelType type, Imf::Compression compression) {
    constexpr int kWidth = 29, kHeight = 23;
    Exr exr{Imf::Header(40, 30, Imath::Box2i({-3, 5}, {-4 + kWidth, 4 + kHeight})), {}};
    exr.header.compression() = compression;
    Imf::addOwner(exr.header, "Somebody");
    for (const std::string name : {"R", "G", "B", "A", "Z", "id"})
        exr.header.channels().insert(name, Imf::Channel(name == "id"  ? Imf::UINT
                                                        : name == "Z" ? Imf::FLOAT
                                                                      : type));
    const Imf::FrameBuffer buffer = exr.frameBuffer();
    std::mt19937 random(5);
    for (auto& [name, bytes] : exr.channels)
        for (std::size_t i = 0; i < std::size_t{kWidth * kHeight}; ++i) {
            const float any =
                std::ldexp(static_cast<float>(random()) / 4e9f, static_cast<int>(random() % 12) - 6);
            const float odd[] = {0, -any, NAN, INFINITY}, cover[] = {0, 1, any, any / 64};
            const float value = name == "A"         ? cover[random() % 4]
                                : random() % 8 == 0 ? odd[random() % 4]
                                                    : any;
            const half rounded = value;
            if (bytes.size() == 2 * kWidth * kHeight)
                std::memcpy(&bytes[2 * i], &rounded, 2);
            else
                std::memcpy(&bytes[4 * i], &value, 4);
        }
    Imf::OutputFile output(file.c_str(), exr.header);
    output.setFrameBuffer(buffer);
    output.writePixels(kHeight);
    return exr;
}

TEST_F(ImageFiles, OfOpenExrKeepAllThatIsNotFiltered) {
    const std::string in = mDirectory / "in.exr", out = mDirectory / "out.exr";
    const auto smooth = [&](const std::string& output, const std::string& radius) {
        const Outcome outcome = ProcessRun({PROGRAM, in, mDirectory / output, "--effect=bilateral-smooth",
                                            "--radius=" + radius, "--threshold=0.5"})
                                    .wait();
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return outcome.err;
    };
    for (const Imf::PixelType type : {Imf::HALF, Imf::FLOAT})
        for (const Imf::Compression compression : {Imf::PIZ_COMPRESSION, Imf::ZIPS_COMPRESSION}) {
            Exr wanted = writeExr(in, type, compression);
            EXPECT_EQ(smooth("out.exr", "0"), "");
            Exr same = readExr(out);
            EXPECT_TRUE(same.channels == wanted.channels) << type << compression;
            EXPECT_EQ(same.header.dataWindow(), wanted.header.dataWindow());
            EXPECT_EQ(same.header.displayWindow(), wanted.header.displayWindow());
            EXPECT_EQ(same.header.compression(), compression);
            EXPECT_EQ(Imf::owner(same.header), "Somebody");
        }
    // The effect's own result, with alpha multiplied in; light without alpha stays.
    Exr before = readExr(in);
    smooth("out.exr", "4");
    Exr after = readExr(out);
    Image image = ImageFile(in, {.keepsDepth = true}).decode();
    Host::World& world = image.pages[0].world;
    const Host::Module module(SMOOTH_MODULE);
    ASSERT_TRUE(Host::Effect(module).render(world, world, std::array{4, 500}).ok());
    int changed = 0;
    for (int i = 0; i < world.width * world.height; ++i) {
        const float alpha = before.floats("A")[i], old = before.floats("G")[i], now = after.floats("G")[i];
        const float straight = world.row<PF_PixelFloat>(i / world.width)[i % world.width].green;
        const float wanted = alpha > 0 ? straight * alpha : old;
        if (std::isfinite(wanted)) {
            ASSERT_NEAR(now, wanted, std::abs(wanted) * 1e-6) << i;
        }
        changed += now != old;
    }
    EXPECT_GT(changed, 100);
    EXPECT_TRUE(after.channels["Z"] == before.channels["Z"]);
    EXPECT_THAT(smooth("out.tif", "0"), HasSubstr("only OpenEXR keeps its other channels: Z, id"));
}

// What files hold beside the pixels

const std::pair<const char*, const char*> kExif[] = {
    {"Exif.Image.Artist", "Somebody"},
    {"Exif.Image.Orientation", "6"},
    {"Exif.Photo.FNumber", "28/10"},
    {"Exif.GPSInfo.GPSLatitudeRef", "N"},
};

/// The kinds of metadata, and whether a file has them.
std::map<std::string, bool> kindsIn(const std::string& file) {
    const auto image = Exiv2::ImageFactory::open(file);
    image->readMetadata();
    Exiv2::ExifData& exif = image->exifData();
    const VImage loaded = load(file);
    // In a WebP, EXIF alone has a place for the density.
    const bool isWebp = file.ends_with(".webp");
    const double x = isWebp ? exif["Exif.Image.XResolution"].toFloat() / 25.4 : loaded.xres();
    const double y = isWebp ? exif["Exif.Image.YResolution"].toFloat() / 25.4 : loaded.yres();
    const auto has = [&](const char* key) { return exif.findKey(Exiv2::ExifKey(key)) != exif.end(); };
    std::map<std::string, bool> kinds{
        {"IPTC", !image->iptcData().empty()},
        {"XMP", !image->xmpData().empty()},
        {"comment", !image->comment().empty()},
        {"density", std::abs(x - 5) + std::abs(y - 10) < 0.01},
        {"only what isn't of a TIFF", file.ends_with(".tif") || !has("Exif.Image.PlanarConfiguration")},
        {"profile", loaded.get_typeof(VIPS_META_ICC_NAME) != 0},
        {"thumbnail", has("Exif.Thumbnail.Compression")},
    };
    for (const auto& [key, value] : kExif)
        kinds[key] = has(key) && exif[key].toString() == value;
    return kinds;
}

// The table of the manual page: every kind goes from each format to each, except what a format can't hold and
// the thumbnail, which shows the unfiltered image.
TEST_F(ImageFiles, KeepMetadataFromFormatToFormat) {
    const std::string jpeg = mDirectory / "in.jpg";
    save(shading(40, 30, 3).copy(VImage::option()->set("xres", 5.0)->set("yres", 10.0)),
         jpeg + "[profile=p3]");
    const auto image = Exiv2::ImageFactory::open(jpeg);
    image->readMetadata();
    for (const auto& [key, value] : kExif)
        image->exifData()[key] = std::string(value);
    Exiv2::ExifThumb(image->exifData()).setJpegThumbnail(jpeg);
    image->setComment("comment");
    image->iptcData()["Iptc.Application2.Caption"] = "caption";
    image->xmpData()["Xmp.xmp.Rating"] = "3";
    image->writeMetadata();
    const std::map<std::string, bool> all = kindsIn(jpeg);
    for (const auto& [kind, isThere] : all)
        ASSERT_TRUE(isThere) << kind;
    const std::set<std::string> kHaveIptc{".jpg", ".tif"};
    for (const std::string from : {".jpg", ".png", ".tif", ".webp"}) {
        if (from != ".jpg")
            filter("in.jpg", "in" + from);
        for (const std::string to : {".jpg", ".png", ".tif", ".webp"}) {
            filter("in" + from, "out" + to);
            std::map<std::string, bool> expected = all;
            expected["IPTC"] = kHaveIptc.contains(from) && kHaveIptc.contains(to);
            expected["comment"] = from == ".jpg" && to == ".jpg";
            expected["thumbnail"] = false;
            EXPECT_EQ(kindsIn(mDirectory / "out" + to), expected) << from << " to " << to;
        }
    }
}

TEST_F(ImageFiles, GetNoMetadataThatTheInputLacks) {
    save(shading(40, 30, 3), mDirectory / "in.webp");
    // libvips puts EXIF into every WebP.
    Exiv2::ImageFactory::open(mDirectory / "in.webp")->writeMetadata();
    for (const std::string out : {"out.jpg", "out.png", "out.webp", "out.tif"}) {
        filter("in.webp", out);
        EXPECT_EQ(ImageFile(mDirectory / out).decode().pages[0].density.x, 0) << out;
        EXPECT_EQ(load(mDirectory / out).get_typeof(VIPS_META_EXIF_NAME), 0u) << out;
    }
}

TEST_F(ImageFiles, KeepPngChunksAndTheFirstExif) {
    const auto exif = [](const std::string& artist) {
        const std::string start("II*\0\x8\0\0\0\1\0\x3b\1\2\0\3\0\0\0", 18);
        return pngChunk("eXIf", start + artist + std::string(6, '\0'));
    };
    const std::string before = pngChunk("gAMA", std::string("\0\1\x86\xa0", 4)) +
                               pngChunk("bKGD", std::string("\0\x10\0\x20\0\x30", 6));
    const std::string after = pngChunk("iTXt", std::string("Title\0\0\0de\0Titel\0Stra\xc3\x9f\x65", 24)) +
                              pngChunk("tIME", std::string("\x7\xd0\1\2\3\4\5", 7));
    save(shading(20, 20, 3), mDirectory / "plain.png");
    std::string png = contents(mDirectory / "plain.png");
    png.insert(png.size() - 12, after); // before the chunk of the end
    png.insert(33, before + exif("Me") + exif("He"));
    std::ofstream(mDirectory / "in.png") << png;
    filter("in.png", "out.png");
    const std::string out = contents(mDirectory / "out.png");
    for (const std::string& kept : {before, exif("Me"), after})
        EXPECT_THAT(out, HasSubstr(kept));
    EXPECT_EQ(out.find("eXIf"), out.rfind("eXIf"));
}

/// The JPEG file with a packet of XMP in place of its metadata.
void giveXmp(const std::string& file, const std::string& properties) {
    const std::string segment =
        std::string("http://ns.adobe.com/xap/1.0/\0", 29) +
        "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF xmlns:rdf='http://www.w3.org/1999/"
        "02/22-rdf-syntax-ns#'><rdf:Description rdf:about='' "
        "xmlns:xmp='http://ns.adobe.com/xap/1.0/'>" +
        properties + "</rdf:Description></rdf:RDF></x:xmpmeta>";
    const std::size_t size = segment.size() + 2;
    std::string jpeg = contents(file);
    jpeg.insert(2,
                std::string("\xff\xe1") + static_cast<char>(size >> 8) + static_cast<char>(size) + segment);
    std::ofstream(file) << jpeg;
}

TEST_F(ImageFiles, LoseXmpThatIsDamagedWithANote) {
    for (const char* damaged :
         {"<xmp:Rating>3 & more</xmp:Rating>", "<xmp:Label>\xe9</xmp:Label>", "<no:Rating>3</no:Rating>",
          "<xmp:Rating>3</xmp:Rating><xmp:Rating>4</xmp:Rating>", "<xmp:Rating>"}) {
        save(shading(20, 20, 3), mDirectory / "in.jpg");
        giveXmp(mDirectory / "in.jpg", damaged);
        EXPECT_THAT(filter("in.jpg", "out.jpg"), HasSubstr("its XMP is damaged and isn't kept")) << damaged;
    }
}

// Entries that share their bytes ask for a hundred times the file's size.
TEST_F(ImageFiles, LoseMetadataThatWouldTakeAllMemory) {
    constexpr std::uint32_t kShared = 1 << 20, kEntries = 200;
    std::vector<std::array<std::uint32_t, 4>> shared;
    for (std::uint32_t i = 0; i < kEntries; ++i)
        shared.push_back({40000 + i, 7, kShared, 8 + 2 + 12 * kEntries + 4});
    save(shading(20, 20, 3), mDirectory / "in.png");
    [[maybe_unused]] const long usual = blur(mDirectory / "in.png", mDirectory / "out.png", 0).peakMiB;
    std::string png = contents(mDirectory / "in.png");
    std::ofstream(mDirectory / "in.png")
        << png.insert(33, pngChunk("eXIf", tiff(shared, std::string(kShared, 'x'))));
    std::string packet;
    for (int i = 0; i < 6000; ++i)
        packet += "<xmp:P/>";
    save(shading(20, 20, 3), mDirectory / "in.jpg");
    giveXmp(mDirectory / "in.jpg", packet);
    for (const std::string format : {".png", ".jpg"}) {
        const Outcome outcome = blur(mDirectory / "in" + format, mDirectory / "out" + format, 0);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr("its metadata is larger than 64 MB, or has more than 5000 parts"));
#ifndef __SANITIZE_ADDRESS__ // keeps what is freed
        EXPECT_LE(outcome.peakMiB, usual + 20) << format;
#endif
    }
}

TEST_F(ImageFiles, KeepLargeExifWhereTheFormatHasRoomAndGoOnWithOddExif) {
    std::vector<std::array<std::uint32_t, 4>> large;
    for (std::uint32_t i = 0; i < 20; ++i)
        large.push_back({40000 + i, 7, 5000, 8 + 2 + 12 * 20 + 4 + 5000 * i});
    const std::string exif = tiff(large, std::string(100'000, 'x'));
    save(shading(20, 20, 3), mDirectory / "plain.png");
    const auto give = [&](const std::string& block) {
        std::string png = contents(mDirectory / "plain.png");
        std::ofstream(mDirectory / "in.png") << png.insert(33, pngChunk("eXIf", block));
    };
    const auto fields = [&](const std::string& out) {
        const auto image = Exiv2::ImageFactory::open(mDirectory / out);
        image->readMetadata();
        return image->exifData().count();
    };
    for (const std::string& block : {exif, std::string("Exif\0\0", 6) + exif}) {
        give(block);
        for (const std::string out : {"out.png", "out.webp"}) {
            EXPECT_EQ(filter("in.png", out), "");
            EXPECT_GE(fields(out), 20) << out; // and the density, where it has no other place
        }
    }
    EXPECT_THAT(filter("in.png", "out.jpg"),
                HasSubstr("the largest fields aren't kept: Image.0x9c40 and 7 more"));
    EXPECT_EQ(fields("out.jpg"), 12);
    // A hundred directories of 65535 entries each, which overlap.
    std::vector<std::array<std::uint32_t, 4>> directories{{0x014A, 4, 100, 26}};
    std::string overlapping;
    for (std::uint32_t i = 0; i < 100; ++i)
        overlapping += {static_cast<char>(i + 200), '\2', '\0', '\0'};
    give(tiff(directories, overlapping + std::string(800'000, '\xff')));
    EXPECT_THAT(filter("in.png", "out.png"), HasSubstr("more than 5000 parts"));
    give("no EXIF at all");
    EXPECT_THAT(filter("in.png", "out.png"), HasSubstr("its metadata is damaged"));
}

TEST_F(ImageFiles, NoteWhatAJpegHasBesideItsPixels) {
    save(shading(20, 20, 3), mDirectory / "in.jpg");
    const std::string jpeg = contents(mDirectory / "in.jpg");
    std::ofstream(mDirectory / "in.jpg")
        << jpeg.substr(0, jpeg.size() - 2) << std::string(80, '?') << "\xff\xd9" << jpeg;
    const std::string notes = filter("in.jpg", "out.jfif");
    EXPECT_THAT(notes, HasSubstr(" bytes between its pixels and its end mean nothing"));
    EXPECT_THAT(notes, HasSubstr("isn't kept: " + std::to_string(jpeg.size()) + " bytes"));
}

TEST_F(ImageFiles, FollowTheInputsCompression) {
    const auto filtered = [&](const std::string& format, const VImage& image, const std::string& options) {
        save(image, mDirectory / "in" + format + options);
        filter("in" + format, "out" + format);
        return contents(mDirectory / "out" + format);
    };
    // The quantisation tables and the channels' sampling, without what a format or program adds.
    const auto settings = [](const std::string& jpeg) {
        return jpeg.substr(jpeg.find("\xff\xdb"), 138) + jpeg.substr(jpeg.find("\xff\xc0"), 19);
    };
    const VImage colours = shading(64, 64, 3), bilevel = shading(64, 64, 1) > 128;
    for (const char* options : {"[Q=60]", "[Q=85,subsample_mode=off]", "[Q=98]"}) {
        const std::string out = filtered(".jpg", colours, options);
        EXPECT_EQ(settings(out), settings(contents(mDirectory / "in.jpg"))) << options;
    }
    // Other inputs have none to follow.
    save(colours, mDirectory / "in.png");
    for (const std::string quality : {"95", "60"}) {
        save(colours, mDirectory / "in.jpg[subsample_mode=off,Q=" + quality + "]");
        filter("in.png", "out.jpg", {quality == "95" ? "--quiet" : "--quality=60"});
        EXPECT_EQ(settings(contents(mDirectory / "out.jpg")), settings(contents(mDirectory / "in.jpg")))
            << quality;
    }
    filter("in.png", "out.webp", {"--quality=60"});
    EXPECT_EQ(contents(mDirectory / "out.webp").find("VP8L"), std::string::npos);
    EXPECT_EQ(filtered(".webp", colours, "[Q=80]").find("VP8L"), std::string::npos);
    EXPECT_THAT(filtered(".webp", colours, "[lossless]"), HasSubstr("VP8L"));
    // One bit a pixel stays where the result still has no other values.
    for (const std::string format : {".png", ".tif"}) {
        filtered(format, bilevel, "[bitdepth=1]");
        expectNear(bilevel, load(mDirectory / "out" + format));
        EXPECT_EQ(ImageFile(mDirectory / "out" + format).decode().pages[0].bits, 1);
    }
    filtered(".png", colours, "[palette]");
    expectNear(load(mDirectory / "in.png"), load(mDirectory / "out.png"));
}

TEST_F(ImageFiles, ReplaceAnOldOutputOfAnyNameWithItsPermissionsAndOwnerThroughItsLink) {
    const std::string name(255, 'x'), real = mDirectory / name; // the longest name that there is
    save(shading(20, 20, 3), mDirectory / "#1.png");
    std::ofstream{real} << "old";
    std::filesystem::create_symlink(name, mDirectory / "50%d.png");
    // Only root can give files away; others keep their own.
    const bool isGiven = chown(real.c_str(), 1234, 5678) == 0;
    std::filesystem::permissions(real, std::filesystem::perms(04640));
    // The second time, the image replaces itself.
    for (const char* out : {"50%d.png", "#1.png"})
        filter("#1.png", out);
    struct stat now {};
    ASSERT_EQ(stat(real.c_str(), &now), 0);
    EXPECT_EQ(now.st_mode & 07777, 04640u);
    EXPECT_EQ(now.st_uid, isGiven ? 1234 : getuid());
    EXPECT_EQ(now.st_gid, isGiven ? 5678 : getgid());
    expectNear(load(mDirectory / "#1.png"), load(real));
    EXPECT_TRUE(std::filesystem::is_symlink(mDirectory / "50%d.png"));
    EXPECT_THAT(mDirectory.names(), testing::ElementsAre("#1.png", "50%d.png", name));
}

TEST_F(ImageFiles, NoteWhatIsOddOrNotKeptOfATiff) {
    std::string packet = "<x:xmpmeta xmlns:x='adobe:ns:meta/'/>";
    VImage alpha = noise(20, 10, 4), pages = paged(noise(8, 8, 3), 4);
    for (VImage* image : {&alpha, &pages})
        image->set(VIPS_META_XMP_NAME, nullptr, packet.data(), packet.size());
    save(alpha, mDirectory / "alpha.tif");
    std::string tiff = contents(mDirectory / "alpha.tif");
    const std::size_t entry = tiff.find(std::string("\x52\1\3\0\1\0\0\0", 8));
    ASSERT_NE(entry, std::string::npos);
    tiff[entry + 8] = 0; // ExtraSamples: unspecified
    std::ofstream(mDirectory / "unspecified.tif") << tiff;
    EXPECT_EQ(filter("alpha.tif", "out.tif"), "");
    EXPECT_THAT(filter("unspecified.tif", "out.tif"),
                HasSubstr("it doesn't say what its last channel is; it is taken for alpha"));
    expectNear(load(mDirectory / "alpha.tif"), load(mDirectory / "out.tif"));

    save(pages, mDirectory / "pages.tif");
    save(pages, mDirectory / "big.tif[bigtiff]");
    EXPECT_THAT(filter("big.tif", "out.tif"), HasSubstr("its metadata is damaged, or of a kind that can't"));
    EXPECT_THAT(filter("pages.tif", "out.tif"), HasSubstr("XMP of the pages after the first aren't kept"));
}

TEST_F(ImageFiles, KeepAllFramesOfAnAnimation) {
    VImage tall = paged(noise(16, 36, 3), 12);
    const std::vector<int> delays{100, 10, 200};
    tall.set("delay", std::vector<int>{100, 50, 200});
    tall.set("loop", 3);
    save(tall, mDirectory / "in.webp[lossless]");
    // The library that writes this file changes short delays, and knows no background.
    std::string webp = contents(mDirectory / "in.webp");
    const std::size_t animation = webp.find("ANIM") + 8;
    const std::string background = "\x11\x22\x33\x44";
    webp.replace(animation, 4, background);
    webp[webp.find("ANMF", webp.find("ANMF") + 1) + 8 + 12] = 10;
    std::ofstream(mDirectory / "in.webp") << webp;
    EXPECT_EQ(filter("in.webp", "out.webp"), "");
    const std::string written = contents(mDirectory / "out.webp");
    EXPECT_EQ(written.substr(written.find("ANIM") + 8, 4), background);
    const VImage all = load(mDirectory / "out.webp[n=-1]");
    expectNear(tall, all);
    EXPECT_EQ(all.get_int(VIPS_META_PAGE_HEIGHT), 12);
    EXPECT_EQ(all.get_array_int("delay"), delays);
    EXPECT_EQ(all.get_int("loop"), 3);
    filter("in.webp", "page.png", {"--page", "2"});
    expectNear(tall.crop(0, 12, 16, 12), load(mDirectory / "page.png"));
}

TEST_F(ImageFiles, KeepAllPagesOfDifferentSizesAndKinds) {
    Image written;
    written.format = formatNamed("tiff");
    auto metadata = std::make_shared<Metadata>();
    metadata->exif["Exif.Image.Orientation"] = std::uint16_t{2};
    written.metadata = std::move(metadata);
    for (int i = 0; i < 6; ++i) {
        Page& page = written.pages.emplace_back();
        page.world = Host::World(page.width = 5 + i, page.height = 9 - i);
        page.channels = 1 + i % 4;
        page.orientation = 2 + i;
    }
    replaceFile(mDirectory / "in.tif", encodeImage(written, *written.format, "in.tif"));
    filter("in.tif", "out.tif");
    for (int i = 0; i < 6; ++i) {
        const Image read = ImageFile(mDirectory / "out.tif", {i + 1}).decode();
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
    std::string packet = "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/"
                         "22-rdf-syntax-ns#'><rdf:Description rdf:about='' xmp:Rating='3' "
                         "xmlns:xmp='http://ns.adobe.com/xap/1.0/'/></rdf:RDF></x:xmpmeta>";
    std::string exif = tiff({{0x0112, 3, 1, 6}, {0x013B, 2, 3, 'M' | 'e' << 8}});
    VImage colours = shading(64, 48, 3);
    colours.set(VIPS_META_EXIF_NAME, nullptr, exif.data(), exif.size());
    colours.set(VIPS_META_XMP_NAME, nullptr, packet.data(), packet.size());
    for (const std::string format : {".heic", ".avif", ".jxl"}) {
        SCOPED_TRACE(format);
        save(colours, mDirectory / "in" + format + "[lossless]");
        if (format == ".jxl") {
            const std::string pixels = contents(mDirectory / "in.jxl");
            std::ofstream(mDirectory / "in.jxl") << jxlWith(pixels, exif, packet);
        }
        EXPECT_EQ(filter("in" + format, "out.png"), "");
        expectNear(load(mDirectory / "in" + format), load(mDirectory / "out.png"));
        const auto written = Exiv2::ImageFactory::open(mDirectory / "out.png");
        written->readMetadata();
        EXPECT_EQ(written->exifData()["Exif.Image.Artist"].toString(), "Me");
        EXPECT_EQ(written->xmpData()["Xmp.xmp.Rating"].toString(), "3");
        // The decoder turns the pixels.
        EXPECT_EQ(written->exifData()["Exif.Image.Orientation"].count(), 0);
    }
    save(noise(64, 48, 3, 7, true), mDirectory / "deep.heic[bitdepth=12,lossless]");
    EXPECT_THAT(filter("deep.heic", "out.png"), HasSubstr("16-bit input is reduced"));
    EXPECT_EQ(load(mDirectory / "out.png").max(), 65535);
}

TEST_F(ImageFiles, GoThroughPipes) {
    ASSERT_EQ(mkfifo((mDirectory / "pipe").c_str(), 0600), 0);
    for (const std::string format : {".jpg", ".png", ".tif", ".webp"}) {
        save(noise(700, 520, 3), mDirectory / "in" + format); // more than is read at once
        filter("in" + format, "out" + format);
        filter("in" + format, "out.png");
        // Without --format the output has the format of the input.
        const std::pair<const char*, std::string> kCases[] = {
            {"cat in$format | blur - - --verbose", format},
            {"cat in$format >pipe & blur pipe -", format},
            {"cat in$format | blur /dev/stdin - --format=png", ".png"}};
        for (const auto& [command, written] : kCases)
            EXPECT_EQ(ProcessRun(shell(mDirectory, 0, "format=" + format + "; " + command)).wait().out,
                      contents(mDirectory / "out" + written))
                << command << format;
    }
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Program::Test
