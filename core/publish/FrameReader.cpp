#include "core/publish/FrameReader.hpp"

#include <cmath>
#include <cstdint>
#include <limits>

#include <fmt/format.h>

#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/PosterChoice.hpp"
#include "core/publish/ToolRunner.hpp"
#include "core/publish/Vips.hpp"

namespace vorlen {

namespace {

namespace fs = std::filesystem;

// Frames for scoring need no more: statistics use 64 pixels, the scorer 256.
constexpr int samplingSide = 480;

// A number as people read it in messages: "12.5", "3.0", "-1.0", "inf", "nan".
std::string timeText(double time) {
    if (std::isnan(time)) return "nan";
    if (std::isinf(time)) return time > 0 ? "inf" : "-inf";
    auto text = fmt::format("{}", time);
    if (text.find_first_of(".e") == std::string::npos) text += ".0";
    return text;
}

fs::path makeWorkDirectory() {
    auto parent = fs::temp_directory_path() / "vorlen";
    fs::create_directories(parent);
    return makeUniqueDirectory(parent, "frames-");
}

std::vector<std::string> frameArguments(const fs::path& video, const std::vector<std::string>& seeks,
                                        const std::vector<fs::path>& outputs, int maxSide) {
    std::vector<std::string> arguments{"-hide_banner", "-nostdin", "-loglevel", "error"};
    for (const auto& seek : seeks) {
        // Before -i: the demuxer seeks to the keyframe before, and decoding runs on to the exact frame.
        arguments.insert(arguments.end(), {"-accurate_seek", "-ss", seek, "-i", video.string()});
    }
    std::string filter = "format=rgb24";
    if (maxSide > 0)
        filter = fmt::format("scale=w='min(iw,{0})':h='min(ih,{0})':force_original_aspect_ratio=decrease,{1}",
                             maxSide, filter);
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        arguments.insert(arguments.end(), {"-map", fmt::format("{}:V:0", i), "-frames:v", "1", "-vf", filter, "-c:v",
                                           "ppm", "-f", "image2", "-update", "1", outputs[i].string()});
    }
    return arguments;
}

}  // namespace

std::string FrameReader::seekArgument(double time) {
    constexpr double timescale = 1'000'000'000;
    double ticks = std::ceil(time * timescale);
    if (!std::isfinite(ticks) || ticks < 0 || ticks >= double(std::numeric_limits<std::int64_t>::max()))
        throw VorlenError::source(timeText(time) + " s is not a valid frame time.");
    auto whole = std::int64_t(ticks);
    return fmt::format("{}.{:09d}", whole / 1'000'000'000, whole % 1'000'000'000);
}

std::vector<FrameReader::Frame> FrameReader::frames(const fs::path& video, const std::vector<double>& times,
                                                    int maxSide) const {
    startVips();
    std::vector<Frame> frames(times.size());
    std::vector<std::size_t> requested;  // indexes of frames with a valid time
    std::vector<std::string> seeks;
    for (std::size_t i = 0; i < times.size(); ++i) {
        frames[i].time = times[i];
        try {
            seeks.push_back(seekArgument(times[i]));
            requested.push_back(i);
        } catch (const VorlenError&) {
            frames[i].error = std::current_exception();
        }
    }
    if (requested.empty()) return frames;

    checkCancellation();
    auto folder = makeWorkDirectory();
    DirectoryRemover remover(folder);
    std::vector<fs::path> outputs;
    for (std::size_t i = 0; i < requested.size(); ++i) outputs.push_back(folder / fmt::format("frame-{}.ppm", i));

    std::exception_ptr runError;
    try {
        ToolRunner::run("ffmpeg", tools_.ffmpeg, frameArguments(video, seeks, outputs, maxSide));
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception&) {
        // Frames that were written before the failure still count.
        runError = std::current_exception();
    }
    for (std::size_t i = 0; i < requested.size(); ++i) {
        auto& frame = frames[requested[i]];
        std::error_code error;
        if (fs::file_size(outputs[i], error) > 0 && !error) {
            try {
                frame.image = std::make_shared<const vips::VImage>(vips::VImage::new_from_file(outputs[i].c_str()).copy_memory());
                continue;
            } catch (const vips::VError&) {
                frame.error = std::make_exception_ptr(VorlenError::source("Could not read a video frame."));
                continue;
            }
        }
        frame.error = runError ? runError
                               : std::make_exception_ptr(VorlenError::source(
                                     fmt::format("{} has no frame at {} s.", video.filename().string(), timeText(frame.time))));
    }
    return frames;
}

Poster FrameReader::frame(const fs::path& video, double at) const {
    auto read = frames(video, {at});
    if (!read[0].image) std::rethrow_exception(read[0].error);
    return makePoster(*read[0].image, at);
}

Poster FrameReader::frameOfSegment(const fs::path& playlist, double offset, double at) const {
    startVips();
    auto folder = makeWorkDirectory();
    DirectoryRemover remover(folder);
    const auto output = folder / "frame.ppm";
    ToolRunner::run("ffmpeg", tools_.ffmpeg,
                    {"-hide_banner", "-nostdin", "-loglevel", "error", "-protocol_whitelist", "file,http,https,tcp,tls,crypto",
                     "-i", playlist.string(), "-ss", seekArgument(offset), "-map", "0:V:0", "-frames:v", "1", "-vf",
                     "format=rgb24", "-c:v", "ppm", "-f", "image2", "-update", "1", output.string()});
    std::error_code error;
    if (fs::file_size(output, error) == 0 || error)
        throw VorlenError::source(fmt::format("The video has no frame at {} s.", timeText(at)));
    return makePoster(vips::VImage::new_from_file(output.c_str()).copy_memory(), at);
}

Poster FrameReader::chooseFrame(const fs::path& video, double duration,
                                const std::shared_ptr<PosterFrameScorer>& scorer) const {
    auto file = video.filename().string();
    if (!std::isfinite(duration) || duration <= 0) throw VorlenError::source(file + " has no duration.");
    PosterChoice::Evaluator evaluator{scorer};
    std::vector<PosterCandidate> candidates;
    std::exception_ptr firstError;
    for (const auto& frame : frames(video, PosterChoice::samplingTimes(duration), samplingSide)) {
        if (!frame.image) {
            if (!firstError) firstError = frame.error;
            continue;
        }
        candidates.push_back(evaluator.evaluate(frame.time, *frame.image));
    }
    auto chosen = PosterChoice::choose(candidates);
    if (!chosen) {
        auto detail = firstError ? ": " + describe(firstError) : std::string();
        throw VorlenError::source("Could not read a frame from " + file + detail + ".");
    }
    checkCancellation();
    return frame(video, *chosen);
}

}  // namespace vorlen
