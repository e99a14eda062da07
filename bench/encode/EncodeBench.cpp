// Encodes one 1080p clip with the full ladder twice: as our one command that
// decodes the source once and splits it, and as one ffmpeg process per rung,
// all started at once. Prints CPU seconds, wall seconds and the realtime
// factor of each, the SSIM of the 1080 rungs of ours, and the CPU ratio.
//
//   bench_encode [--seconds 20] [--speed balanced] [--grain 0] [--source FILE] [--keep DIR]
//
// --grain adds temporal noise of that strength to the made source: camera grain
// that costs the decoders and encoders real work, and that no rung keeps, so
// SSIM against a grainy source falls far below what a clean one gives.

#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <regex>
#include <string>
#include <thread>

#include <fmt/format.h>

#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/publish/SoftwareEncoder.hpp"
#include "core/publish/ToolRunner.hpp"
#include "core/publish/VideoCommand.hpp"

namespace fs = std::filesystem;
using namespace vorlen;

namespace {

double loadAverage() {
    double load[1] = {0};
    getloadavg(load, 1);
    return load[0];
}

double childCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Measure {
    double cpu = 0;
    double wall = 0;
};

template <class F>
Measure measure(F work) {
    double cpuBefore = childCpuSeconds();
    auto wallBefore = std::chrono::steady_clock::now();
    work();
    return {childCpuSeconds() - cpuBefore,
            std::chrono::duration<double>(std::chrono::steady_clock::now() - wallBefore).count()};
}

double ssim(const Tools& tools, const fs::path& encoded, const fs::path& source) {
    auto output = ToolRunner::run("ffmpeg", tools.ffmpeg,
                                  {"-hide_banner", "-nostdin", "-i", encoded.string(), "-i", source.string(),
                                   "-lavfi", "[0:v]format=yuv420p[a];[1:v]format=yuv420p[b];[a][b]ssim", "-f", "null", "-"});
    std::smatch match;
    static const std::regex all("All:([0-9.]+)");
    std::string text = output.standardError;
    double value = 0;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), all); it != std::sregex_iterator(); ++it)
        value = std::stod((*it)[1]);
    return value;
}

}  // namespace

int main(int argc, char** argv) {
    std::cout << std::unitbuf;
    double seconds = 20;
    std::string speedName = "balanced";
    int grain = 0;
    fs::path source;
    fs::path keep;
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string key = argv[i];
        if (key == "--seconds") seconds = std::stod(argv[i + 1]);
        else if (key == "--speed") speedName = argv[i + 1];
        else if (key == "--grain") grain = std::stoi(argv[i + 1]);
        else if (key == "--source") source = argv[i + 1];
        else if (key == "--keep") keep = argv[i + 1];
    }
    auto speed = encodingSpeedFromRawValue(speedName);
    if (!speed) {
        std::cerr << "unknown speed " << speedName << '\n';
        return 2;
    }
    auto tools = Tools::locate();
    auto work = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-bench-encode-");
    DirectoryRemover remover(work);
    if (source.empty()) {
        source = work / "source.mp4";
        auto picture = fmt::format("testsrc2=size=1920x1080:rate=30000/1001:duration={}", seconds);
        if (grain > 0) picture += fmt::format(",noise=alls={}:allf=t", grain);
        ToolRunner::run("ffmpeg", tools.ffmpeg,
                        {"-hide_banner", "-nostdin", "-v", "error", "-f", "lavfi", "-i", picture,
                         "-c:v", "libx264", "-preset", "veryfast", "-crf", "10", source.string()});
    }
    auto info = inspectFile(tools, source);
    auto rungs = ladder(info.width, info.height);
    SoftwareEncoder encoder(*speed);
    std::cout << fmt::format("source {}x{} {:.2f} s (grain {}), ladder of {} rungs, speed {} (x264 {}, x265 {}), {} cores\n",
                             info.width, info.height, info.durationSeconds, grain, rungs.size(), speedName,
                             SoftwareEncoder::x264Preset(*speed), SoftwareEncoder::x265Preset(*speed),
                             std::thread::hardware_concurrency());

    auto oursDir = work / "ours";
    auto perRungDir = work / "per-rung";
    fs::create_directories(oursDir);
    fs::create_directories(perRungDir);

    auto command = VideoCommand::make(source, info, rungs, encoder, 6, oursDir);
    auto ours = measure([&] { encodeVideo(tools, command, {}); });
    std::cout << fmt::format("ours:     cpu_s={:.1f} wall_s={:.1f} rtf={:.3f}\n", ours.cpu, ours.wall,
                             info.durationSeconds / ours.wall);

    auto perRung = measure([&] {
        std::vector<Task<void>> tasks;
        for (const auto& rung : rungs) {
            auto single = VideoCommand::make(source, info, {rung}, encoder, 6, perRungDir);
            tasks.push_back(Task<void>::spawn([&tools, single] { encodeVideo(tools, single, {}); }));
        }
        for (auto& task : tasks) task.value();
    });
    std::cout << fmt::format("per_rung: cpu_s={:.1f} wall_s={:.1f} rtf={:.3f}\n", perRung.cpu, perRung.wall,
                             info.durationSeconds / perRung.wall);

    std::cout << fmt::format("ssim_1080={:.5f} ssim_1080hevc={:.5f}\n", ssim(tools, oursDir / "v_1080.mp4", source),
                             ssim(tools, oursDir / "v_1080hevc.mp4", source));
    // On a shared machine wall time tells of the neighbours; the CPU seconds tell
    // what two free cores would take.
    std::cout << fmt::format("load_average={:.1f} ours_rtf_on_2_free_cores={:.3f}\n", loadAverage(),
                             info.durationSeconds / (ours.cpu / 2));
    std::cout << fmt::format("cpu_ratio_vs_per_rung={:.3f}\n", perRung.cpu / ours.cpu);
    if (!keep.empty()) {
        remover.release();
        fs::rename(work, keep);
    }
    return 0;
}
