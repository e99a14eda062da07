#include "core/publish/Poster.hpp"

#include <gtest/gtest.h>

#include "core/base/Crypto.hpp"
#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/Vips.hpp"

namespace vorlen {
namespace {

using vips::VImage;

std::string sourceText(const std::function<void()>& action) {
    try {
        action();
    } catch (const VorlenError& error) {
        EXPECT_TRUE(error.is<failure::Source>());
        return error.text();
    }
    ADD_FAILURE() << "no failure";
    return {};
}

VImage srgb(const VImage& image) {
    return image.cast(VIPS_FORMAT_UCHAR).copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

std::string pngBytes(const VImage& image) {
    auto* blob = image.pngsave_buffer();
    std::size_t length = 0;
    auto* data = static_cast<const char*>(vips_blob_get(blob, &length));
    std::string bytes(data, length);
    vips_area_unref(VIPS_AREA(blob));
    return bytes;
}

std::vector<double> pixelOf(const std::string& jpeg, int x, int y) {
    return VImage::new_from_buffer(jpeg, "")(x, y);
}

class PosterTest : public ::testing::Test {
protected:
    void SetUp() override {
        startVips();
        folder_ = makeUniqueDirectory(std::filesystem::temp_directory_path(), "poster-test-");
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::filesystem::path write(const std::string& name, const std::string& bytes) {
        auto path = folder_ / name;
        writeFileAtomically(path, bytes);
        return path;
    }

    std::filesystem::path folder_;
};

TEST_F(PosterTest, NamesComeFromTheContent) {
    std::string jpeg = "not really a jpeg";
    EXPECT_EQ(posterName(jpeg), "poster-" + sha256Hex(jpeg).substr(0, 8) + ".jpg");
    EXPECT_TRUE(isValidPosterName(posterName(jpeg)));
    for (const char* bad : {"poster-0123abcd.jpeg", "poster-0123ABCD.jpg", "poster-0123abc.jpg", "poster-0123abcde.jpg",
                            "Poster-0123abcd.jpg", "poster-0123abcg.jpg", "poster.jpg"})
        EXPECT_FALSE(isValidPosterName(bad)) << bad;
}

TEST_F(PosterTest, TransparencyBecomesWhiteInAnSrgbJpeg) {
    // Red on the left, fully transparent on the right, 16 bits a sample.
    auto opaqueRed = VImage::black(32, 16, VImage::option()->set("bands", 4)) + std::vector<double>{65535, 0, 0, 65535};
    auto clear = VImage::black(32, 16, VImage::option()->set("bands", 4));
    auto picture = opaqueRed.join(clear, VIPS_DIRECTION_HORIZONTAL)
                       .cast(VIPS_FORMAT_USHORT)
                       .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_RGB16));

    auto poster = makePoster(picture, 2.5);
    EXPECT_EQ(poster.size(), (PixelSize{64, 16}));
    EXPECT_EQ(poster.time, 2.5);
    EXPECT_EQ(poster.name, posterName(poster.jpeg));
    EXPECT_EQ(checkPosterJpeg(poster.jpeg), (PixelSize{64, 16}));
    auto decoded = VImage::new_from_buffer(poster.jpeg, "");
    EXPECT_EQ(decoded.bands(), 3);
    auto white = pixelOf(poster.jpeg, 56, 8);
    auto red = pixelOf(poster.jpeg, 8, 8);
    for (double value : white) EXPECT_GT(value, 245);
    EXPECT_GT(red[0], 230);
    EXPECT_LT(red[1], 25);
}

TEST_F(PosterTest, OnlyJpegBytesPassTheCheck) {
    auto png = pngBytes(srgb(VImage::black(8, 8, VImage::option()->set("bands", 3))));
    for (const std::string& bytes : {png, std::string("\xFF\xD8\xFF garbage", 11), std::string()})
        EXPECT_EQ(sourceText([&] { checkPosterJpeg(bytes); }), "The poster is not a JPEG image.");
}

TEST_F(PosterTest, ATransparentPngFileComesOutOnWhiteWithinTheMaximumSize) {
    auto transparent = srgb(VImage::black(400, 200, VImage::option()->set("bands", 4)) + std::vector<double>{0, 0, 255, 0});
    auto file = write("clear.png", pngBytes(transparent));

    auto poster = posterFromImage(file, {100, 100});
    EXPECT_EQ(poster.size(), (PixelSize{100, 50}));
    EXPECT_FALSE(poster.time.has_value());
    for (double value : pixelOf(poster.jpeg, 50, 25)) EXPECT_GT(value, 245);

    // Never enlarged.
    EXPECT_EQ(posterFromImage(file, {3840, 2160}).size(), (PixelSize{400, 200}));
}

TEST_F(PosterTest, AnExifOrientationIsApplied) {
    // Stored landscape with orientation 6: shown turned a quarter clockwise, so portrait.
    auto stored = srgb(VImage::black(300, 100, VImage::option()->set("bands", 3)) + 128).copy();
    stored.set("orientation", 6);
    auto* blob = stored.jpegsave_buffer();
    std::size_t length = 0;
    auto* data = static_cast<const char*>(vips_blob_get(blob, &length));
    auto file = write("turned.jpg", std::string(data, length));
    vips_area_unref(VIPS_AREA(blob));

    auto poster = posterFromImage(file, {1920, 150});
    EXPECT_EQ(poster.size(), (PixelSize{50, 150}));
    // The poster carries no orientation of its own that would turn it again.
    EXPECT_EQ(VImage::new_from_buffer(poster.jpeg, "").get_typeof("orientation"), 0u);
}

TEST_F(PosterTest, FilesThatAreNotImagesFailWithTheirName) {
    auto text = write("notes.png", "hello");
    auto picture = write("ok.png", pngBytes(srgb(VImage::black(8, 8, VImage::option()->set("bands", 3)))));
    EXPECT_EQ(sourceText([&] { posterFromImage(text, {100, 100}); }), "notes.png is not an image file that the app can read.");
    EXPECT_EQ(sourceText([&] { posterFromImage(folder_ / "missing.jpg", {100, 100}); }),
              "missing.jpg is not an image file that the app can read.");
    EXPECT_EQ(sourceText([&] { posterFromImage(picture, {0, 100}); }), "ok.png is not an image file that the app can read.");
}

TEST_F(PosterTest, ThumbnailsKeepTheShapeAndTime) {
    auto poster = makePoster(srgb(VImage::black(640, 360, VImage::option()->set("bands", 3)) + 90), 4.0);
    auto small = thumbnail(poster.jpeg, 160, poster.time);
    EXPECT_EQ(small.size(), (PixelSize{160, 90}));
    EXPECT_EQ(small.time, 4.0);
    EXPECT_TRUE(isValidPosterName(small.name));
    EXPECT_NE(small.name, poster.name);
}

}  // namespace
}  // namespace vorlen
