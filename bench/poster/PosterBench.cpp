// Samples and scores the twelve poster frames of a 1080p and a 2160p H.264
// rendition, and compares that with one ffmpeg decode of a single frame of the
// same file, measured in the same run. Prints wall and CPU seconds (this
// process and its children) and the ratios.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include <fmt/format.h>

#include "core/publish/FrameReader.hpp"
#include "core/publish/PosterChoice.hpp"
#include "core/publish/PosterHeuristicScorer.hpp"
#include "core/publish/ToolRunner.hpp"
#include "testing/MediaClip.hpp"

namespace {

using namespace vorlen;

struct Cost {
    double wall = 0;
    double cpu = 0;
};

double cpuSeconds() {
    double total = 0;
    for (int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage{};
        getrusage(who, &usage);
        total += double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                 double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    }
    return total;
}

// The median of a few runs, so that one noisy neighbour does not decide.
Cost measure(int runs, const std::function<void()>& work) {
    std::vector<Cost> costs;
    for (int i = 0; i < runs; ++i) {
        double cpuBefore = cpuSeconds();
        auto start = std::chrono::steady_clock::now();
        work();
        costs.push_back({std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
                         cpuSeconds() - cpuBefore});
    }
    std::sort(costs.begin(), costs.end(), [](const Cost& a, const Cost& b) { return a.wall < b.wall; });
    return costs[costs.size() / 2];
}

void bench(const Tools& tools, const std::filesystem::path& video, double duration, const std::string& label) {
    FrameReader reader(tools);
    auto scorer = std::make_shared<PosterHeuristicScorer>();
    auto times = PosterChoice::samplingTimes(duration);

    auto sampleAndScore = measure(3, [&] {
        PosterChoice::Evaluator evaluator{scorer};
        std::vector<PosterCandidate> candidates;
        for (const auto& frame : reader.frames(video, times, 480))
            if (frame.image) candidates.push_back(evaluator.evaluate(frame.time, *frame.image));
        if (candidates.size() != times.size()) throw std::runtime_error("a frame was missing");
        PosterChoice::choose(candidates);
    });
    auto choose = measure(1, [&] { reader.chooseFrame(video, duration, scorer); });
    // The peer: ffmpeg seeking exactly to one of the same times and writing that
    // one frame, a process for each time, since the cost depends on the distance
    // from the keyframe before.
    auto folder = std::filesystem::temp_directory_path();
    auto frameFile = (folder / "vorlen-bench-frame.ppm").string();
    Cost singles;
    for (double time : times) {
        auto single = measure(1, [&] {
            ToolRunner::run("ffmpeg", tools.ffmpeg,
                            {"-nostdin", "-v", "error", "-y", "-ss", FrameReader::seekArgument(time), "-i",
                             video.string(), "-frames:v", "1", frameFile});
        });
        singles.wall += single.wall / double(times.size());
        singles.cpu += single.cpu / double(times.size());
    }
    std::filesystem::remove(frameFile);

    fmt::print("{}: 12 frames sampled and scored {:.3f} s wall, {:.3f} s CPU; whole choice with the full-size read "
               "{:.3f} s wall, {:.3f} s CPU\n",
               label, sampleAndScore.wall, sampleAndScore.cpu, choose.wall, choose.cpu);
    fmt::print("{}: one ffmpeg decode of a single frame (mean over the 12 times) {:.3f} s wall, {:.3f} s CPU\n", label,
               singles.wall, singles.cpu);
    fmt::print("{}: ratio sample+score / single frame = {:.2f} (wall), {:.2f} (CPU)\n", label,
               sampleAndScore.wall / singles.wall, sampleAndScore.cpu / singles.cpu);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    double duration = argc > 1 ? std::stod(argv[1]) : 20;
    auto tools = Tools::locate();
    testing::ClipFolder clips;
    // Renditions as the ladder makes them: High profile, a keyframe every 6 s.
    auto encode = [&](const std::string& name, int width, int height) {
        return clips.make(name, fmt::format("{} -c:v libx264 -preset veryfast -profile:v high -pix_fmt yuv420p "
                                            "-g 180 -keyint_min 180 -sc_threshold 0",
                                            testing::lavfiVideo(width, height, duration, "30")));
    };
    fmt::print("making {} s renditions...\n", duration);
    std::fflush(stdout);
    auto hd = encode("1080.mp4", 1920, 1080);
    auto uhd = encode("2160.mp4", 3840, 2160);
    bench(tools, hd, duration, "1080p");
    bench(tools, uhd, duration, "2160p");
    return 0;
}
