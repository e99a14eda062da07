#include "testing/MediaClip.hpp"

#include <cstdint>
#include <cstdlib>
#include <vector>
#include <stdexcept>

#include <fmt/format.h>

#include "core/base/Files.hpp"

namespace vorlen::testing {

ClipFolder::ClipFolder() : path_(makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-clips-")) {}

ClipFolder::~ClipFolder() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
}

std::filesystem::path ClipFolder::make(const std::string& name, const std::string& arguments) const {
    auto file = path_ / name;
    auto command = fmt::format("ffmpeg -nostdin -hide_banner -v error -y {} '{}'", arguments, file.string());
    int status = std::system(command.c_str());
    if (status != 0) throw std::runtime_error(fmt::format("making {} failed ({}): {}", name, status, command));
    return file;
}

std::string lavfiVideo(int width, int height, double seconds, const std::string& rate) {
    return fmt::format("-f lavfi -i testsrc2=size={}x{}:rate={}:duration={}", width, height, rate, seconds);
}

std::string lavfiTone(double seconds, int channels) {
    std::string expressions;
    for (int i = 0; i < channels; ++i)
        expressions += fmt::format("{}0.25*sin(2*PI*{}*t)", i ? "|" : "", 220 * (i + 2));
    return fmt::format("-f lavfi -i 'aevalsrc={}:s=48000:c={}:d={}'", expressions, channels == 6 ? "5.1" : "stereo",
                       seconds);
}

std::string lavfiSilence(double seconds) {
    return fmt::format("-f lavfi -t {} -i anullsrc=r=48000:cl=stereo", seconds);
}

namespace {

std::uint32_t readBig32(const std::string& bytes, std::size_t at) {
    return (std::uint32_t(std::uint8_t(bytes[at])) << 24) | (std::uint32_t(std::uint8_t(bytes[at + 1])) << 16) |
           (std::uint32_t(std::uint8_t(bytes[at + 2])) << 8) | std::uint32_t(std::uint8_t(bytes[at + 3]));
}

struct Box {
    std::size_t offset;
    std::size_t size;
    std::string type;
};

std::vector<Box> boxesIn(const std::string& bytes, std::size_t from, std::size_t to) {
    std::vector<Box> boxes;
    while (from + 8 <= to) {
        std::size_t size = readBig32(bytes, from);
        if (size < 8 || from + size > to) throw std::runtime_error("unexpected MP4 box layout");
        boxes.push_back({from, size, bytes.substr(from + 4, 4)});
        from += size;
    }
    return boxes;
}

}  // namespace

void moveUserDataFirst(const std::filesystem::path& file) {
    std::string bytes = readFile(file);
    for (const auto& top : boxesIn(bytes, 0, bytes.size())) {
        if (top.type != "moov") continue;
        std::string first, rest;
        for (const auto& child : boxesIn(bytes, top.offset + 8, top.offset + top.size)) {
            auto content = bytes.substr(child.offset, child.size);
            (child.type == "mvhd" || child.type == "udta" ? first : rest) += content;
        }
        // The same size in the same place: chunk offsets stay true.
        bytes.replace(top.offset + 8, top.size - 8, first + rest);
        writeFileAtomically(file, bytes);
        return;
    }
    throw std::runtime_error("no moov box");
}

}  // namespace vorlen::testing
