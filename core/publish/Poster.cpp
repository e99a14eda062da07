#include "core/publish/Poster.hpp"

#include <algorithm>
#include <cmath>
#include <memory>

#include "core/base/Crypto.hpp"
#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/Vips.hpp"

namespace vorlen {

namespace {

constexpr std::string_view namePrefix = "poster-";
constexpr std::string_view nameSuffix = ".jpg";

// Bytes lent to libvips without a copy; they must outlive every image made from them.
struct BorrowedBlob {
    VipsBlob* blob;
    explicit BorrowedBlob(std::string_view bytes) : blob(vips_blob_new(nullptr, bytes.data(), bytes.size())) {}
    ~BorrowedBlob() { vips_area_unref(VIPS_AREA(blob)); }
    BorrowedBlob(const BorrowedBlob&) = delete;
    BorrowedBlob& operator=(const BorrowedBlob&) = delete;
};

vips::VImage toOpaqueSrgb(vips::VImage image) {
    try {
        if (image.get_typeof(VIPS_META_ICC_NAME) != 0)
            image = image.icc_transform("srgb", vips::VImage::option()->set("embedded", true));
        image = image.colourspace(VIPS_INTERPRETATION_sRGB);
        if (image.has_alpha())
            image = image.flatten(vips::VImage::option()->set("background", std::vector<double>{255, 255, 255}));
        if (image.format() != VIPS_FORMAT_UCHAR) image = image.cast(VIPS_FORMAT_UCHAR);
        // Keep only the picture's own data: an orientation tag left behind would turn it twice.
        image = image.copy();
        for (auto field : {"orientation", "exif-data", "xmp-data", "iptc-data", VIPS_META_ICC_NAME})
            if (image.get_typeof(field) != 0) image.remove(field);
        return image;
    } catch (const vips::VError&) {
        throw VorlenError::source("Could not convert the poster to sRGB.");
    }
}

std::string fileLabel(const std::filesystem::path& file) {
    return file.filename().string();
}

}  // namespace

std::string posterName(std::string_view jpeg) {
    return std::string(namePrefix) + sha256Hex(jpeg).substr(0, 8) + std::string(nameSuffix);
}

bool isValidPosterName(std::string_view name) {
    if (name.size() != namePrefix.size() + 8 + nameSuffix.size()) return false;
    if (!name.starts_with(namePrefix) || !name.ends_with(nameSuffix)) return false;
    auto digits = name.substr(namePrefix.size(), 8);
    return std::all_of(digits.begin(), digits.end(),
                       [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

Poster makePoster(const vips::VImage& image, std::optional<double> time) {
    startVips();
    auto opaque = toOpaqueSrgb(image);
    std::string jpeg;
    try {
        VipsBlob* blob = opaque.jpegsave_buffer(
            vips::VImage::option()->set("Q", 85)->set("optimize_coding", true)->set("strip", true));
        std::size_t length = 0;
        auto* data = static_cast<const char*>(vips_blob_get(blob, &length));
        jpeg.assign(data, length);
        vips_area_unref(VIPS_AREA(blob));
    } catch (const vips::VError&) {
        throw VorlenError::source("Could not encode the poster as JPEG.");
    }
    Poster poster;
    poster.name = posterName(jpeg);
    poster.jpeg = std::move(jpeg);
    poster.width = opaque.width();
    poster.height = opaque.height();
    poster.time = time;
    return poster;
}

PixelSize checkPosterJpeg(std::string_view jpeg) {
    startVips();
    auto failure = [] { return VorlenError::source("The poster is not a JPEG image."); };
    const char* loader = vips_foreign_find_load_buffer(jpeg.data(), jpeg.size());
    if (loader == nullptr || std::string_view(loader) != "VipsForeignLoadJpegBuffer") {
        vips_error_clear();
        throw failure();
    }
    try {
        auto image = vips::VImage::new_from_buffer(jpeg.data(), jpeg.size(), "");
        if (image.width() < 1 || image.height() < 1) throw failure();
        return {image.width(), image.height()};
    } catch (const vips::VError&) {
        throw failure();
    }
}

Poster posterFromImage(const std::filesystem::path& file, PixelSize maximumSize) {
    startVips();
    auto failure = [&] { return VorlenError::source(fileLabel(file) + " is not an image file that the app can read."); };
    if (maximumSize.width < 1 || maximumSize.height < 1) throw failure();
    std::string bytes;
    try {
        bytes = readFile(file);
    } catch (const std::exception&) {
        throw failure();
    }
    try {
        BorrowedBlob blob(bytes);
        auto header = vips::VImage::new_from_buffer(bytes.data(), bytes.size(), "");
        double width = header.width();
        double height = header.height();
        int orientation = header.get_typeof("orientation") != 0 ? header.get_int("orientation") : 1;
        if (orientation >= 5 && orientation <= 8) std::swap(width, height);
        double scale = std::min({1.0, double(maximumSize.width) / width, double(maximumSize.height) / height});
        int maxPixelSize = std::max(1, int(std::floor(scale * std::max(width, height))));
        auto image = vips::VImage::thumbnail_buffer(
            blob.blob, maxPixelSize,
            vips::VImage::option()->set("height", maxPixelSize)->set("size", VIPS_SIZE_DOWN));
        return makePoster(image, std::nullopt);
    } catch (const vips::VError&) {
        throw failure();
    } catch (const VorlenError&) {
        throw failure();
    }
}

Poster thumbnail(std::string_view jpeg, int maxPixelSize, std::optional<double> time) {
    startVips();
    checkPosterJpeg(jpeg);
    try {
        BorrowedBlob blob(jpeg);
        auto image = vips::VImage::thumbnail_buffer(
            blob.blob, std::max(1, maxPixelSize),
            vips::VImage::option()->set("height", std::max(1, maxPixelSize))->set("size", VIPS_SIZE_DOWN));
        return makePoster(image, time);
    } catch (const vips::VError&) {
        throw VorlenError::source("The poster is not a JPEG image.");
    }
}

}  // namespace vorlen
