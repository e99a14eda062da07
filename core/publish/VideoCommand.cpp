#include "core/publish/VideoCommand.hpp"

#include <cmath>
#include <sstream>

#include <fmt/format.h>

#include "core/base/VorlenError.hpp"
#include "core/publish/ToolRunner.hpp"

namespace vorlen {

std::string scaleFilter(std::int64_t height) {
    return fmt::format("scale=w={}:h={}:force_original_aspect_ratio=decrease:force_divisible_by=2:flags=lanczos",
                       standardWidth(height), height);
}

std::string filterGraph(const SourceInfo& info, const std::vector<Rung>& rungs, const VideoEncoder& encoder) {
    std::string graph = fmt::format("[0:V:0]split={}", rungs.size());
    for (std::size_t i = 0; i < rungs.size(); ++i) graph += fmt::format("[in{}]", i);
    for (std::size_t i = 0; i < rungs.size(); ++i) {
        auto plan = ColorPlan::forRung(rungs[i].codec, info.hdr);
        std::string chain = scaleFilter(rungs[i].height);
        if (plan.kind == ColorPlan::Kind::sdr8 && info.hdr)
            chain += ",zscale=t=linear:npl=100,format=gbrpf32le,zscale=p=bt709,tonemap=tonemap=hable,"
                     "zscale=t=bt709:m=bt709:r=tv";
        chain += ",format=" + encoder.pixelFormat(plan);
        graph += fmt::format(";[in{}]{}[out{}]", i, chain, i);
    }
    return graph;
}

std::int64_t groupOfPictures(double fps, double segmentSeconds) {
    return std::max<std::int64_t>(1, static_cast<std::int64_t>(std::ceil(fps * segmentSeconds)));
}

VideoCommand VideoCommand::make(const std::filesystem::path& source, const SourceInfo& info,
                                const std::vector<Rung>& rungs, const VideoEncoder& encoder, double segmentSeconds,
                                const std::filesystem::path& outputDirectory, const HDRMasteringMetadata& mastering) {
    VideoCommand command;
    auto& args = command.arguments;
    args = {"-hide_banner", "-nostdin", "-y", "-i", source.string(), "-filter_complex",
            filterGraph(info, rungs, encoder)};
    auto gop = groupOfPictures(info.fps, segmentSeconds);
    // %g keeps "6" for 6 and "6.006" for 6.006, as ffmpeg's expression reads either.
    auto grid = fmt::format("expr:gte(t,n_forced*{})", segmentSeconds);
    for (std::size_t i = 0; i < rungs.size(); ++i) {
        const auto& rung = rungs[i];
        RungEncoding encoding{rung, ColorPlan::forRung(rung.codec, info.hdr), gop, mastering};
        args.push_back("-map");
        args.push_back(fmt::format("[out{}]", i));
        auto encoderArgs = encoder.encoderArguments(encoding);
        args.insert(args.end(), encoderArgs.begin(), encoderArgs.end());
        args.insert(args.end(), {"-b:v", fmt::format("{}k", encoder.targetBitrateKbps(rung)), "-maxrate",
                                 fmt::format("{}k", rung.maxrateKbps), "-bufsize", fmt::format("{}k", rung.bufsizeKbps)});
        if (encoding.plan.kind == ColorPlan::Kind::hdr10) {
            args.insert(args.end(), {"-color_primaries", "bt2020", "-color_trc",
                                     encoding.plan.transfer == HDRTransfer::pq ? "smpte2084" : "arib-std-b67",
                                     "-colorspace", "bt2020nc"});
        } else {
            args.insert(args.end(), {"-color_primaries", "bt709", "-color_trc", "bt709", "-colorspace", "bt709"});
        }
        args.insert(args.end(), {"-g", std::to_string(gop), "-force_key_frames", grid, "-fps_mode", "cfr", "-an",
                                 "-sn", "-dn"});
        auto file = outputDirectory / ("v_" + rung.id + ".mp4");
        args.push_back(file.string());
        command.outputs.push_back({rung, file});
    }
    return command;
}

bool needsToneMapping(const SourceInfo& info, const std::vector<Rung>& rungs) {
    if (!info.hdr) return false;
    for (const auto& rung : rungs)
        if (rung.codec == VideoCodec::h264) return true;
    return false;
}

bool filtersListZscale(const std::string& filtersOutput) {
    std::istringstream lines(filtersOutput);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string first, second;
        if (words >> first >> second && second == "zscale") return true;
    }
    return false;
}

void checkToneMapping(const Tools& tools) {
    auto output = ToolRunner::run("ffmpeg", tools.ffmpeg, {"-hide_banner", "-filters"});
    if (!filtersListZscale(output.standardOutput))
        throw VorlenError::config(
            "this HDR source needs an ffmpeg with the zscale filter (libzimg) to make its SDR renditions");
}

std::vector<EncodedRung> encodeVideo(const Tools& tools, const VideoCommand& command,
                                     const std::function<void(double)>& onSeconds) {
    ToolRunner::runFFmpeg(tools, command.arguments, onSeconds);
    return command.outputs;
}

}  // namespace vorlen
