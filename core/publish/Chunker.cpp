#include "core/publish/Chunker.hpp"

#include "core/base/Files.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>
#include <system_error>

#include "core/base/Task.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen::Chunker {

namespace fs = std::filesystem;

namespace {

std::uint64_t measure(const fs::path& path) {
    FileHandle file(path, O_RDONLY);
    off_t end = ::lseek(file.fd(), 0, SEEK_END);
    if (end < 0) throwErrno("cannot seek", path);
    return static_cast<std::uint64_t>(end);
}

// Moves one piece into the chunk in steps of at most 1 MiB. Where the kernel can
// copy between the two files, it does so itself: each byte is copied once and
// no memory of ours holds it. Where it cannot (another file system, an old
// kernel), the bytes go through the buffer.
void copyPiece(const Piece& piece, int out, const fs::path& outPath, char* buffer) {
    FileHandle in(piece.source, O_RDONLY);
    const auto length = piece.range.range.length;
    std::uint64_t copied = 0;
    bool inKernel = true;
    while (copied <= length) {
        // One byte more than is left shows a file that grew.
        auto step = static_cast<std::size_t>(std::min<std::uint64_t>(copyBufferBytes, length - copied + 1));
        ssize_t moved;
        if (inKernel) {
            moved = ::copy_file_range(in.fd(), nullptr, out, nullptr, step, 0);
            if (moved < 0 && copied == 0 &&
                (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)) {
                inKernel = false;
                continue;
            }
        } else {
            moved = ::read(in.fd(), buffer, step);
            if (moved > 0) writeAll(out, std::string_view(buffer, static_cast<std::size_t>(moved)), outPath);
        }
        if (moved < 0) {
            if (errno == EINTR) continue;
            throwErrno("cannot copy", piece.source);
        }
        if (moved == 0) break;
        copied += static_cast<std::uint64_t>(moved);
    }
    if (copied != length) {
        throw VorlenError::manifest(fmt::format("{} changed size while chunking", piece.source.string()));
    }
}

std::string chunkName(const std::string& directory, std::size_t k) { return fmt::format("{}/{:03d}.mp4", directory, k); }

}  // namespace

std::vector<fs::path> segmentFiles(const fs::path& directory) {
    std::vector<std::uint32_t> numbers;
    for (const auto& entry : fs::directory_iterator(directory)) {
        auto name = entry.path().filename().string();
        if (name.size() <= 4 || !name.ends_with(".m4s")) continue;
        std::string_view stem(name.data(), name.size() - 4);
        std::uint32_t number = 0;
        auto [end, error] = std::from_chars(stem.data(), stem.data() + stem.size(), number);
        if (error != std::errc() || end != stem.data() + stem.size()) continue;
        numbers.push_back(number);
    }
    if (numbers.empty()) throw VorlenError::manifest(fmt::format("no media segments in {}", directory.string()));
    std::sort(numbers.begin(), numbers.end());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (numbers[i] != i + 1) {
            throw VorlenError::manifest(
                fmt::format("media segments in {} are not numbered 1..{}", directory.string(), numbers.size()));
        }
    }
    std::vector<fs::path> files;
    files.reserve(numbers.size());
    for (auto number : numbers) files.push_back(directory / fmt::format("{}.m4s", number));
    return files;
}

StreamLayout layout(const std::string& directory, std::uint64_t initSize, const std::vector<std::uint64_t>& segmentSizes,
                    std::uint64_t maxChunkBytes) {
    std::size_t k = 1;
    StreamLayout result{directory, ChunkRange{chunkName(directory, k), ByteRange{0, initSize}}, {}};
    std::uint64_t offset = initSize;
    result.segments.reserve(segmentSizes.size());
    for (auto size : segmentSizes) {
        if (offset != 0 && (offset > maxChunkBytes || size > maxChunkBytes - offset)) {
            ++k;
            offset = 0;
        }
        result.segments.push_back(ChunkRange{chunkName(directory, k), ByteRange{offset, size}});
        offset += size;
    }
    return result;
}

StreamLayout chunk(const PackagedStream& stream, const fs::path& input, const fs::path& output,
                   std::uint64_t maxChunkBytes) {
    const auto& name = stream.directoryName;
    auto streamInput = input / name;
    std::vector<Piece> pieces;
    auto segments = segmentFiles(streamInput);
    pieces.reserve(segments.size() + 1);
    pieces.push_back(Piece{streamInput / "init.mp4", {}});
    for (auto& segment : segments) pieces.push_back(Piece{std::move(segment), {}});

    std::vector<std::uint64_t> sizes;
    sizes.reserve(segments.size());
    auto initSize = measure(pieces.front().source);
    for (std::size_t i = 1; i < pieces.size(); ++i) sizes.push_back(measure(pieces[i].source));
    auto result = layout(name, initSize, sizes, maxChunkBytes);
    pieces[0].range = result.initSegment;
    for (std::size_t i = 0; i < result.segments.size(); ++i) pieces[i + 1].range = result.segments[i];

    fs::create_directories(output / name);
    // One fixed buffer for the whole stream: memory does not grow with the video.
    auto buffer = std::make_unique_for_overwrite<char[]>(copyBufferBytes);
    std::size_t next = 0;
    for (const auto& file : result.files()) {
        auto path = output / file;
        FileHandle out(path, O_WRONLY | O_CREAT | O_TRUNC);
        for (; next < pieces.size() && pieces[next].range.file == file; ++next) {
            checkCancellation();
            copyPiece(pieces[next], out.fd(), path, buffer.get());
        }
        out.close();
    }
    return result;
}

}  // namespace vorlen::Chunker
